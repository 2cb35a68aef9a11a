#include "update/workflow/prompt_box.h"

#include <windows.h>

#include "product/locations.h"

namespace launcher_update {

bool PromptWithMessageBox(const std::wstring& version, const ReleaseNotes& notes) {
    return MessageBoxW(nullptr, PromptBoxText(version, notes).c_str(), product::kProductName, MB_YESNO) == IDYES;
}

}  // namespace launcher_update
