#include <algorithm>
#include <iterator>

#include "update/files/paths.h"
#include "update/installed/layout.h"
#include "update/packages/support_files.h"

namespace launcher_update {
namespace {

constexpr std::wstring_view kLayoutTexts[] = {L"files", L"activated", L"portable"};

struct Home {
    std::wstring_view package;  // id and capability alike
    std::wstring_view subfolder;
};
constexpr Home kHomes[] = {
    {kApplicationRuntimePackage, L""},
    {L"uvr-mdx", L"uvr-mdx"},
    {L"uvr-hp-models", L"uvr-hp-models"},
};

}  // namespace

std::wstring_view LayoutText(InstalledLayout layout) {
    return kLayoutTexts[static_cast<std::size_t>(layout)];
}

std::optional<InstalledLayout> ParseLayoutText(std::wstring_view text) {
    const auto* const found = std::find(std::begin(kLayoutTexts), std::end(kLayoutTexts), text);
    if (found == std::end(kLayoutTexts)) return std::nullopt;
    return static_cast<InstalledLayout>(found - std::begin(kLayoutTexts));
}

std::optional<std::wstring_view> PortableHome(const PackageDescriptor& package) {
    for (const Home& home : kHomes) {
        if (package.id == home.package && package.capability == home.package) return home.subfolder;
    }
    return std::nullopt;
}

std::optional<std::wstring> PortableHomeFolder(const std::wstring& applicationRoot, const PackageDescriptor& package) {
    const std::optional<std::wstring_view> home = PortableHome(package);
    if (!home) return std::nullopt;
    return home->empty() ? applicationRoot : JoinPath(applicationRoot, *home);
}

std::wstring ApplicationRoot(const std::wstring& root, const Settings& settings) {
    return JoinPath(root, settings.applicationDirectory);
}

std::wstring RuntimeFolder(const std::wstring& applicationRoot) {
    return JoinPath(applicationRoot, L"Runtime");
}

}  // namespace launcher_update
