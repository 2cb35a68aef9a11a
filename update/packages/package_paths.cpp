#include "update/packages/package_paths.h"

#include "update/files/paths.h"

namespace launcher_update {

std::wstring PackageRoot(const std::wstring& root, const PackageDescriptor& package) {
    return JoinPath(root, L"packs\\" + package.id);
}

std::wstring VersionFolder(const std::wstring& root, const PackageDescriptor& package) {
    return JoinPath(PackageRoot(root, package), package.version);
}

std::wstring PackageFilePath(const std::wstring& folder, const PackageFileDescriptor& file) {
    return JoinPath(folder, file.path);
}

}  // namespace launcher_update
