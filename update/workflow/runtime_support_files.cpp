#include "update/workflow/runtime_support_files.h"

#include <algorithm>
#include <utility>

#include "update/failure.h"
#include "update/files/file_hashing.h"
#include "update/files/paths.h"
#include "update/packages/package_files.h"
#include "update/packages/support_files.h"

namespace launcher_update {
namespace {

constexpr wchar_t kPackageInvalid[] = L"應用程式支援資源包在安裝前驗證失敗：";
constexpr wchar_t kSourceInvalid[] = L"應用程式支援檔案在替換前驗證失敗：";
constexpr wchar_t kCannotCreateFolder[] = L"無法建立應用程式支援檔案的目標資料夾。";
constexpr wchar_t kBackupMissing[] = L"應用程式支援檔案的交易備份遺失。";
constexpr wchar_t kCannotCopy[] = L"無法複製應用程式支援檔案：";
constexpr wchar_t kCannotFlush[] = L"無法同步應用程式支援檔案：";
constexpr wchar_t kCannotMove[] = L"無法提交應用程式支援檔案：";

const PackageDescriptor* FindRuntimePackage(const std::vector<PackageDescriptor>& packages) {
    const auto found = std::find_if(packages.begin(), packages.end(), [](const PackageDescriptor& package) {
        return package.id == kApplicationRuntimePackage;
    });
    return found == packages.end() ? nullptr : &*found;
}

std::vector<PackageFileDescriptor> SupportFilesOf(const PackageDescriptor& package) {
    std::vector<PackageFileDescriptor> files;
    std::copy_if(package.inventory.begin(), package.inventory.end(), std::back_inserter(files),
                 [](const PackageFileDescriptor& file) { return IsApplicationRuntimeSupportFile(file.path); });
    return files;
}

std::wstring WithCode(const wchar_t* message, const PackageFileDescriptor& file, std::uint32_t windowsError) {
    return message + file.path + L"（Windows 錯誤 " + std::to_wstring(windowsError) + L"）";
}

std::wstring MessageFor(const SwapResult& result, const PackageFileDescriptor& file) {
    switch (result.failedAt) {
        case SwapStep::folder:
            return kCannotCreateFolder;
        case SwapStep::backup:
            return kBackupMissing;
        case SwapStep::copy:
            return WithCode(kCannotCopy, file, result.windowsError);
        case SwapStep::flush:
            return WithCode(kCannotFlush, file, result.windowsError);
        case SwapStep::move:
            return WithCode(kCannotMove, file, result.windowsError);
        case SwapStep::done:
            break;
    }
    return {};
}

}  // namespace

bool ApplicationRuntimeSupportFilesMatch(const std::wstring& root, const std::wstring& applicationDirectory,
                                         const std::vector<PackageDescriptor>& packages,
                                         const FileProgress& onProgress) {
    const PackageDescriptor* package = FindRuntimePackage(packages);
    if (!package) return true;
    const std::wstring applicationRoot = JoinPath(root, applicationDirectory);
    const std::vector<PackageFileDescriptor> files = SupportFilesOf(*package);
    return std::all_of(files.begin(), files.end(), [&](const PackageFileDescriptor& file) {
        HashProgress perFile;
        if (onProgress) perFile = [&](std::uint64_t bytes) { onProgress(file, bytes); };
        return FileMatchesDescriptor(PackageFilePath(applicationRoot, file), file, perFile);
    });
}

bool InstallApplicationRuntimeSupportFiles(const std::wstring& root, const std::wstring& applicationDirectory,
                                           const std::wstring& runtimeDirectory, const std::wstring& backupDirectory,
                                           const std::vector<PackageDescriptor>& packages,
                                           std::vector<AppliedFile>& appliedFiles, std::wstring& error,
                                           const std::function<void(std::uint64_t)>& onFileApplied) {
    const PackageDescriptor* package = FindRuntimePackage(packages);
    if (!package) return true;
    const std::wstring versionFolder = VersionFolder(runtimeDirectory, *package);
    std::wstring why;
    if (!ValidateInstalledPackage(versionFolder, *package, why)) return Fail(error, kPackageInvalid + why);
    for (const PackageFileDescriptor& entry : SupportFilesOf(*package)) {
        AppliedFile file{PackageFilePath(JoinPath(root, applicationDirectory), entry),
                         PackageFilePath(JoinPath(backupDirectory, applicationDirectory), entry), false};
        const std::wstring source = PackageFilePath(versionFolder, entry);
        if (!FileMatchesDescriptor(source, entry)) return Fail(error, kSourceInvalid + entry.path);
        if (FileMatchesDescriptor(file.targetPath, entry)) continue;
        const SwapResult result = SwapIn(source, file);
        if (result.failedAt != SwapStep::done) return Fail(error, MessageFor(result, entry));
        appliedFiles.push_back(std::move(file));
        if (onFileApplied) onFileApplied(appliedFiles.size());
    }
    return true;
}

}  // namespace launcher_update
