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

std::wstring KeyBelow(const std::wstring& folder, const std::wstring& path) {
    std::wstring key = platform::ToLower(std::wstring_view(path).substr(folder.size() + 1));
    std::replace(key.begin(), key.end(), L'\\', L'/');
    return key;
}

std::set<std::wstring> ExpectedFiles(const PackageDescriptor& descriptor) {
    std::set<std::wstring> files;
    for (const PackageFileDescriptor& file : descriptor.inventory) {
        files.insert(platform::ToLower(file.path));
    }
    return files;
}

}  // namespace

bool ListPackageFiles(const std::wstring& folder, const std::wstring& directory, std::set<std::wstring>& files) {
    std::vector<DirectoryEntry> entries;
    if (!ListDirectory(directory, entries)) return false;
    for (const DirectoryEntry& entry : entries) {
        if ((entry.attributes & kReparsePointBit) != 0) return false;
        const std::wstring path = JoinPath(directory, entry.name);
        if ((entry.attributes & kDirectoryBit) != 0) {
            if (!ListPackageFiles(folder, path, files)) return false;
        } else if (!files.insert(KeyBelow(folder, path)).second) {
            return false;
        }
    }
    return true;
}

bool PackageFileMatches(const std::wstring& folder, const PackageFileDescriptor& file, const FileProgress& progress) {
    const std::wstring path = PackageFilePath(folder, file);
    std::uint64_t size = 0;
    if (!ReadFileSize(path, size) || size != file.size) return false;
    HashProgress perFile;
    if (progress) perFile = [&](std::uint64_t bytes) { progress(file, bytes); };
    std::wstring hex;
    return HashFileSha256(path, hex, perFile) && platform::EqualsIgnoringCase(hex, file.sha256);
}

bool ValidateInstalledPackage(const std::wstring& folder, const PackageDescriptor& descriptor, std::wstring& error,
                              const FileProgress& progress) {
    if (!IsRealDirectory(LookAt(folder).attributes)) return Fail(error, kFolderMissing);
    std::set<std::wstring> files;
    if (!ListPackageFiles(folder, folder, files)) return Fail(error, kCannotList);
    if (files != ExpectedFiles(descriptor)) return Fail(error, kFilesDiffer);
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
