#include "update/workflow/prompt_box.h"

namespace launcher_update {

std::wstring PromptBoxText(const std::wstring& version, const ReleaseNotes& notes) {
    std::wstring text = L"發現 Velmora Pine Relay " + version + L" 更新。\n\n現在下載並安裝嗎？";
    if (!notes.summary.empty() || !notes.highlights.empty()) {
        text += L"\n\n" + notes.summary;
        for (const std::wstring& highlight : notes.highlights) {
            text += L"\n• " + highlight;
        }
    } else if (!notes.url.empty()) {
        text += L"\n\n更新說明：\n" + notes.url;
    }
    return text;
}

}  // namespace launcher_update
