#include "update/packages/patch.h"

#include <algorithm>

#include "update/packages/package_files.h"

namespace launcher_update {

bool PatchCarries(const PackageDescriptor& descriptor, const PackageFileDescriptor& file) {
    const auto& carried = descriptor.patch.files;
    return std::any_of(carried.begin(), carried.end(),
                       [&](const PackageFileDescriptor& other) { return other.path == file.path; });
}

bool PackagePatchBaseMatches(const std::wstring& baseFolder, const PackageDescriptor& descriptor,
                             const FileProgress& progress) {
    if (descriptor.patch.files.empty()) return false;
    return std::all_of(
        descriptor.inventory.begin(), descriptor.inventory.end(), [&](const PackageFileDescriptor& file) {
            return PatchCarries(descriptor, file) || (SourceFileIsSafe(PackageFilePath(baseFolder, file)) &&
                                                      PackageFileMatches(baseFolder, file, progress));
        });
}

}  // namespace launcher_update
