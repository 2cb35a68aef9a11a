#include "update/manifest/json_reader.h"
#include "update/workflow/product_version.h"

namespace launcher_update {

bool ReplaceProductVersion(std::wstring_view text, std::wstring_view version, std::wstring& replaced) {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::wstring old;
    if (!FindTopLevelValue(text, L"productVersion", start) || !ParseJsonStringAt(text, start, old, end)) return false;
    replaced = text.substr(0, start);
    replaced += L'"' + EscapeJsonText(version) + L'"';
    replaced += text.substr(end);
    return true;
}

}  // namespace launcher_update
