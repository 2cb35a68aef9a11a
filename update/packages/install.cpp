#include "update/packages/install.h"

#include <windows.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "update/failure.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/packages/archive.h"
#include "update/packages/package_files.h"
#include "update/packages/patch.h"
#include "update/packages/validation.h"
#include "update/packages/version_names.h"

namespace launcher_update {
namespace {

constexpr wchar_t kRootUnsafe[] = L"Package root is not a safe directory.";
constexpr wchar_t kUnsafeResidue[] = L"Unsafe interrupted package transaction residue: ";
constexpr wchar_t kResidueStays[] = L"Could not remove interrupted package transaction residue.";
constexpr wchar_t kCannotRestoreRepair[] = L"Could not restore an interrupted package repair.";
constexpr wchar_t kRepairBackupStays[] = L"Package repair succeeded but its backup could not be removed.";
constexpr wchar_t kTargetUnsafe[] = L"既有資源包版本路徑不安全，拒絕自動修復。";
constexpr wchar_t kCannotCreateStaging[] = L"無法建立資源包版本暫存資料夾。";
constexpr wchar_t kCannotWritePayload[] = L"無法安全寫入資源包 payload：";
constexpr wchar_t kLandedSizeDiffers[] = L"資源包落地檔案大小驗證失敗：";
constexpr wchar_t kCannotIsolate[] = L"無法隔離損壞的資源包版本資料夾。";
constexpr wchar_t kCannotCommit[] = L"無法提交資源包版本資料夾。";
constexpr wchar_t kCannotReopen[] = L"無法重新開啟資源包進行安裝。";

using Paths = std::vector<std::wstring>;

/// One installation of one version folder.
struct VersionInstallation {
    const PackageDescriptor& descriptor;
    std::wstring packageRoot;
    std::wstring target;
    std::wstring staging;
    Paths stagingResidue;
    Paths backupResidue;
    bool targetExists = false;
};

enum class Settled { installed, failed, mustInstall };

/// Ticks and process id, so that two installers never pick the same name.
std::wstring UniqueSuffix() {
    return std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(GetCurrentProcessId());
}

/// Never over an existing folder; written through, since each such rename is a step of the transaction.
bool MoveFolder(const std::wstring& from, const std::wstring& to) {
    return MoveFileExW(ToPackageLongPath(from).c_str(), ToPackageLongPath(to).c_str(), MOVEFILE_WRITE_THROUGH) != FALSE;
}

bool RemoveAll(const Paths& folders) {
    return std::all_of(folders.begin(), folders.end(), RemoveTreeNoLinks);
}

bool FindResidue(VersionInstallation& installation, std::wstring& error) {
    const PathFacts facts = LookAt(installation.packageRoot);
    if (facts.presence == Presence::absent) return true;
    if (!IsRealDirectory(facts.attributes)) return Fail(error, kRootUnsafe);
    std::vector<DirectoryEntry> entries;
    // A listing that fails shows no residue; what may be there then waits for the next installation.
    static_cast<void>(ListDirectory(installation.packageRoot, entries));
    for (const DirectoryEntry& entry : entries) {
        const ResidueKind kind = ClassifyResidue(entry.name, installation.descriptor.version);
        if (kind == ResidueKind::none) continue;
        if (!IsRealDirectory(entry.attributes)) return Fail(error, kUnsafeResidue + entry.name);
        Paths& residue = kind == ResidueKind::staging ? installation.stagingResidue : installation.backupResidue;
        residue.push_back(JoinPath(installation.packageRoot, entry.name));
    }
    return true;
}

bool IsValid(const std::wstring& folder, const PackageDescriptor& descriptor) {
    std::wstring dropped;
    return ValidateInstalledPackage(folder, descriptor, dropped);
}

/// A repair that was killed between its two renames: the version stands in a backup, whole.
Settled RestoreFromBackup(VersionInstallation& installation, std::wstring& error) {
    const auto backup =
        std::find_if(installation.backupResidue.begin(), installation.backupResidue.end(),
                     [&](const std::wstring& folder) { return IsValid(folder, installation.descriptor); });
    if (backup == installation.backupResidue.end()) {
        installation.targetExists = LookAt(installation.target).presence != Presence::absent;
        return Settled::mustInstall;
    }
    if (!MoveFolder(*backup, installation.target)) {
        error = kCannotRestoreRepair;
        return Settled::failed;
    }
    return Settled::installed;
}

/// What stands at the target decides whether anything must be written.
Settled SettleTarget(VersionInstallation& installation, std::wstring& error) {
    const PathFacts facts = LookAt(installation.target);
    if (facts.presence == Presence::absent) return RestoreFromBackup(installation, error);
    if (IsValid(installation.target, installation.descriptor)) return Settled::installed;
    if (!IsRealDirectory(facts.attributes)) {
        error = kTargetUnsafe;
        return Settled::failed;
    }
    installation.targetExists = true;
    return Settled::mustInstall;
}

bool WriteStaged(const VersionInstallation& installation, const PackageFileWriter& writer, std::wstring& error) {
    for (const PackageFileDescriptor& file : installation.descriptor.inventory) {
        const std::wstring landed = PackageFilePath(installation.staging, file);
        if (!writer(file, landed)) return Fail(error, kCannotWritePayload + file.path);
        std::uint64_t size = 0;
        if (!ReadFileSize(landed, size) || size != file.size) return Fail(error, kLandedSizeDiffers + file.path);
    }
    return true;
}

/// The two renames, the only moments at which the target changes: the damaged version aside, the new one into its
/// place.
bool Commit(const VersionInstallation& installation, const std::wstring& backup, std::wstring& error) {
    if (installation.targetExists && !MoveFolder(installation.target, backup)) return Fail(error, kCannotIsolate);
    if (MoveFolder(installation.staging, installation.target)) return true;
    if (installation.targetExists) static_cast<void>(MoveFolder(backup, installation.target));
    return Fail(error, kCannotCommit);
}

bool StageAndCommit(const VersionInstallation& installation, const PackageFileWriter& writer,
                    std::wstring& installedPath, std::wstring& error) {
    if (!CreateDirectoryChain(installation.staging)) return Fail(error, kCannotCreateStaging);
    const std::wstring backup =
        JoinPath(installation.packageRoot, RepairBackupPrefix(installation.descriptor.version) + UniqueSuffix());
    if (!WriteStaged(installation, writer, error) ||
        !ValidateInstalledPackage(installation.staging, installation.descriptor, error) ||
        !Commit(installation, backup, error)) {
        static_cast<void>(RemoveTreeNoLinks(installation.staging));
        return false;
    }
    // The version stands; a backup that stays is residue, which the next installation removes.
    installedPath = installation.target;
    if (installation.targetExists && !RemoveTreeNoLinks(backup)) return Fail(error, kRepairBackupStays);
    return RemoveAll(installation.backupResidue) || Fail(error, kResidueStays);
}

bool ExtractTo(PackageArchive& archive, const PackageFileDescriptor& file, const std::wstring& destination) {
    PackageArchive::Bytes bytes;
    return archive.ExtractVerified(file, bytes) && WriteFileThroughNew(destination, bytes.Data(), bytes.Length());
}

}  // namespace

bool InstallVersionFolder(const PackageDescriptor& descriptor, const std::wstring& root, std::wstring& installedPath,
                          std::wstring& error, const PackageFileWriter& writer) {
    installedPath.clear();
    const std::wstring packageRoot = PackageRoot(root, descriptor);
    VersionInstallation installation{descriptor,
                                     packageRoot,
                                     VersionFolder(root, descriptor),
                                     JoinPath(packageRoot, StagingResiduePrefix(descriptor.version) + UniqueSuffix()),
                                     {},
                                     {},
                                     false};
    if (!FindResidue(installation, error)) return false;
    if (!RemoveAll(installation.stagingResidue)) return Fail(error, kResidueStays);
    switch (SettleTarget(installation, error)) {
        case Settled::failed:
            return false;
        case Settled::mustInstall:
            return StageAndCommit(installation, writer, installedPath, error);
        case Settled::installed:
            break;
    }
    if (!RemoveAll(installation.backupResidue)) return Fail(error, kResidueStays);
    installedPath = installation.target;
    return true;
}

bool InstallPackageInactive(const std::wstring& archivePath, const PackageDescriptor& descriptor,
                            const std::wstring& root, std::wstring& installedPath, std::wstring& error) {
    installedPath.clear();
    if (!VerifyPackageArchive(archivePath, descriptor, error)) return false;
    PackageArchive archive;
    if (!archive.Open(archivePath)) return Fail(error, kCannotReopen);
    return InstallVersionFolder(descriptor, root, installedPath, error,
                                [&](const PackageFileDescriptor& file, const std::wstring& destination) {
                                    return ExtractTo(archive, file, destination);
                                });
}

bool InstallPackageFromLocalFiles(const std::wstring& sourceFolder, const PackageDescriptor& descriptor,
                                  const std::wstring& root, std::wstring& installedPath, std::wstring& error) {
    return InstallVersionFolder(descriptor, root, installedPath, error,
                                [&](const PackageFileDescriptor& file, const std::wstring& destination) {
                                    return CopySourceFile(sourceFolder, file, destination);
                                });
}

bool InstallPackagePatchInactive(const std::wstring& archivePath, const std::wstring& baseFolder,
                                 const PackageDescriptor& descriptor, const std::wstring& root,
                                 std::wstring& installedPath, std::wstring& error) {
    installedPath.clear();
    PackageDescriptor carried;  // the archive holds the changed files only, so the limits apply to these
    carried.inventory = descriptor.patch.files;
    if (!VerifyPackageArchive(archivePath, carried, error)) return false;
    PackageArchive archive;
    if (!archive.Open(archivePath)) return Fail(error, kCannotReopen);
    return InstallVersionFolder(descriptor, root, installedPath, error,
                                [&](const PackageFileDescriptor& file, const std::wstring& destination) {
                                    return PatchCarries(descriptor, file)
                                               ? ExtractTo(archive, file, destination)
                                               : CopySourceFile(baseFolder, file, destination);
                                });
}

}  // namespace launcher_update
