#include "update/packages/runtime_state_text.h"

#include <string_view>

#include "platform/text.h"

namespace launcher_update {
namespace {

std::wstring Escaped(std::wstring_view text) {
    std::wstring escaped;
    for (const wchar_t unit : text) {
        if (unit == L'"' || unit == L'\\') escaped.push_back(L'\\');
        escaped.push_back(unit);
    }
    return escaped;
}

std::wstring PackageLine(const PackageDescriptor& package) {
    const std::wstring id = Escaped(package.id);
    const std::wstring version = Escaped(package.version);
    return L"    {\"id\": \"" + id + L"\", \"version\": \"" + version + L"\", \"path\": \"packs/" + id + L"/" +
           version + L"\", \"capability\": \"" + Escaped(package.capability) + L"\", \"requiredForStartup\": " +
           (package.requiredForStartup ? L"true" : L"false") + L"}";
}

}  // namespace

std::string RenderRuntimeState(const std::vector<PackageDescriptor>& packages) {
    std::wstring text = L"{\n  \"schemaVersion\": 1,\n  \"packages\": [\n";
    for (std::size_t at = 0; at < packages.size(); ++at) {
        text += PackageLine(packages[at]) + (at + 1 < packages.size() ? L",\n" : L"\n");
    }
    return platform::EncodeUtf8(text + L"  ]\n}\n");
}

}  // namespace launcher_update
