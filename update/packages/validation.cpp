#include "update/packages/validation.h"

#include <algorithm>

#include "platform/text.h"
#include "update/failure.h"
#include "update/files/attributes.h"
#include "update/files/file_hashing.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/packages/package_files.h"
#include "update/packages/runtime_state.h"

namespace launcher_update {
namespace {

constexpr wchar_t kFolderMissing[] = L"資源包版本資料夾不存在或不安全。";
constexpr wchar_t kCannotList[] = L"無法安全列舉資源包版本資料夾。";
constexpr wchar_t kFilesDiffer[] = L"資源包版本資料夾與 inventory 不符。";
constexpr wchar_t kContentDiffers[] = L"資源包落地內容驗證失敗：";

/// A file's name as the sets compare it.
std::wstring KeyOf(std::wstring_view path) {
    std::wstring key = platform::ToLower(path);
    std::replace(key.begin(), key.end(), L'\\', L'/');
    return key;
}

std::set<std::wstring> InventoryNames(const PackageDescriptor& descriptor) {
    std::set<std::wstring> files;
    for (const PackageFileDescriptor& file : descriptor.inventory) {
        files.insert(KeyOf(file.path));
    }
    return files;
}

}  // namespace

bool ListPackageFiles(const std::wstring& folder, const std::wstring& directory, std::set<std::wstring>& files) {
    std::vector<std::wstring> found;
    return ListTreeNoLinks(directory, found) && std::all_of(found.begin(), found.end(), [&](const std::wstring& path) {
               return files.insert(KeyOf(JoinPath(directory, path).substr(folder.size() + 1))).second;
           });
}

bool PackageFileMatches(const std::wstring& folder, const PackageFileDescriptor& file, const FileProgress& progress) {
    HashProgress perFile;
    if (progress) perFile = [&](std::uint64_t bytes) { progress(file, bytes); };
    return FileMatchesDescriptor(PackageFilePath(folder, file), file, perFile);
}

bool ValidateInstalledPackage(const std::wstring& folder, const PackageDescriptor& descriptor, std::wstring& error,
                              const FileProgress& progress) {
    if (!IsRealDirectory(LookAt(folder).attributes)) return Fail(error, kFolderMissing);
    std::set<std::wstring> files;
    if (!ListPackageFiles(folder, folder, files)) return Fail(error, kCannotList);
    if (files != InventoryNames(descriptor)) return Fail(error, kFilesDiffer);
    for (const PackageFileDescriptor& file : descriptor.inventory) {
        if (!PackageFileMatches(folder, file, progress)) return Fail(error, kContentDiffers + file.path);
    }
    return true;
}

bool PackageSetIsActive(const std::wstring& root, const std::vector<PackageDescriptor>& packages,
                        const SetProgress& progress) {
    if (!RuntimeStateMatches(root, packages)) return false;
    return std::all_of(packages.begin(), packages.end(), [&](const PackageDescriptor& package) {
        FileProgress perFile;
        if (progress)
            perFile = [&](const PackageFileDescriptor& file, std::uint64_t bytes) { progress(package, file, bytes); };
        std::wstring dropped;
        return ValidateInstalledPackage(VersionFolder(root, package), package, dropped, perFile);
    });
}

}  // namespace launcher_update
