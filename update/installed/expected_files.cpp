#include "update/installed/expected_files.h"

#include <optional>

#include "platform/text.h"
#include "update/files/paths.h"
#include "update/packages/package_paths.h"
#include "update/packages/support_files.h"

namespace launcher_update {
namespace {

/// Where the files of a package lie, relative to the root.
std::optional<std::wstring> PackageFolder(const std::wstring& applicationDirectory, const PackageDescriptor& package,
                                          InstalledLayout layout) {
    switch (layout) {
        case InstalledLayout::activated:
            return VersionFolder(RuntimeFolder(applicationDirectory), package);
        case InstalledLayout::portable:
            return PortableHomeFolder(applicationDirectory, package);
        case InstalledLayout::files:
            break;
    }
    return std::nullopt;
}

}  // namespace

bool AddExpectedFile(ExpectedFiles& files, std::wstring_view path, std::uint64_t size) {
    if (!IsSafeRelativePath(path)) return false;
    const auto [present, isNew] = files.emplace(platform::ToLower(platform::WithBackslashes(path)), size);
    return isNew || present->second == size;
}

bool CollectExpectedInventory(const std::wstring& applicationDirectory, const UpdateManifest& manifest,
                              InstalledLayout layout, ExpectedFiles& files) {
    files.clear();
    for (const ManifestFileEntry& file : manifest.files) {
        if (!AddExpectedFile(files, file.path, file.size)) return false;
    }
    for (const PackageDescriptor& package : manifest.packages) {
        const std::optional<std::wstring> folder = PackageFolder(applicationDirectory, package, layout);
        if (!folder) return false;
        const bool copiesOut = layout == InstalledLayout::activated && package.id == kApplicationRuntimePackage;
        for (const PackageFileDescriptor& file : package.inventory) {
            if (!AddExpectedFile(files, JoinPath(*folder, file.path), file.size)) return false;
            if (copiesOut && IsApplicationRuntimeSupportFile(file.path) &&
                !AddExpectedFile(files, JoinPath(applicationDirectory, file.path), file.size)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace launcher_update
