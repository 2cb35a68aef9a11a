#include "update/workflow/decide.h"

#include <utility>

#include "product/locations.h"
#include "update/files/file_hashing.h"
#include "update/installed/layout.h"
#include "update/installed/verified_inventory.h"
#include "update/manifest/release_identity.h"
#include "update/manifest/version.h"
#include "update/packages/package_files.h"
#include "update/packages/validation.h"
#include "update/transaction/recovery.h"
#include "update/workflow/hash_progress.h"
#include "update/workflow/manifest_source.h"
#include "update/workflow/prompt_box.h"
#include "update/workflow/release_guard.h"
#include "update/workflow/runtime_support_files.h"
#include "update/workflow/schedule.h"
#include "update/workflow/totals.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotParseManifest[] = L"無法解析更新清單。";
constexpr wchar_t kMalformedVersion[] = L"本機或遠端版本號格式不正確。";
constexpr wchar_t kNoApplicationDirectory[] = L"更新設定缺少主程式資料夾。";
constexpr wchar_t kLauncherTooOld[] = L"此更新需要較新的啟動器，請下載最新版完整安裝包。";

Next SettleUpdateFolder(UpdateRun& run) {
    std::wstring error;
    return PrepareUpdateFolder(run.root, error) ? Next::goOn : LeaveUnsafe(run, std::move(error));
}

Next LeaveSkipped(UpdateRun& run) {
    run.result.outcome = Outcome::Skipped;
    NotifyStage(run.settings, Stage::Skipped, L"", 0, 0);
    return Next::leave;
}

Next RequireManifestLocation(UpdateRun& run) {
    return run.manifestUrl.empty() ? LeaveSkipped(run) : Next::goOn;
}

/// The manifest is read even when no check is due: a hotfix must not wait for the interval.
Next BeginCheck(UpdateRun& run) {
    run.due = run.forceCheck || run.verificationMode ||
              IsCheckDue(UpdateStatePath(run.root), run.settings.updateCheckIntervalMinutes);
    NotifyStage(run.settings, Stage::Checking, L"", 0, 0);
    return Next::goOn;
}

Next ChooseBackupLocation(UpdateRun& run) {
    if (run.verificationMode) {
        run.backupManifestUrl = run.settings.backupManifestUrlOverride;
    } else if (run.manifestUrl == product::kPrimaryManifestUrl) {
        run.backupManifestUrl = product::kBackupManifestUrl;
    }
    return Next::goOn;
}

Next LeaveCancelledWhileReading(UpdateRun& run) {
    run.result.outcome = Outcome::Cancelled;
    NotifyStage(run.settings, Stage::Cancelled, L"", 0, 0);
    return Next::leave;
}

Next FetchManifest(UpdateRun& run) {
    std::wstring error;
    switch (ReadManifest(run, error)) {
        case ManifestReading::read:
            return Next::goOn;
        case ManifestReading::cancelled:
            return LeaveCancelledWhileReading(run);
        case ManifestReading::failed:
            break;
    }
    return LeaveFailed(run, error.empty() ? kCannotParseManifest : std::move(error));
}

Next RequireIndependentBackup(UpdateRun& run) {
    if (run.verificationMode) return Next::goOn;
    const bool backupSpeaks = run.fromBackup || run.manifestUrl == product::kBackupManifestUrl;
    if (!backupSpeaks || PointsOnlyAtBackup(run.manifest)) return Next::goOn;
    return LeaveFailed(run, L"backup-metadata-not-independent");
}

Next GuardAgainstRollback(UpdateRun& run) {
    std::wstring identity;
    if (!ComputeReleaseIdentity(run.manifest, identity)) return LeaveFailed(run, L"release-identity-unavailable");
    std::wstring error;
    if (CheckReleaseWatermark(ControlDirectory(run.root), run.manifest, identity, run.fromBackup, error))
        return Next::goOn;
    return LeaveFailed(run, std::move(error));
}

Next SkipUnlessDue(UpdateRun& run) {
    return !run.due && !PriorityIgnoresSchedule(run.manifest.updatePriority) ? LeaveSkipped(run) : Next::goOn;
}

Next NoteRelease(UpdateRun& run) {
    run.result.version = run.manifest.version;
    run.result.notes = SelectReleaseNotes(run.manifest, run.settings.language);
    return Next::goOn;
}

Next CompareWithInstalled(UpdateRun& run) {
    bool comparable = false;
    run.versionOrder = CompareVersions(run.manifest.version, run.settings.productVersion, comparable);
    if (!comparable) return LeaveFailed(run, kMalformedVersion);
    // A downgrade is never offered; that there is none newer is a finished check.
    return run.versionOrder < 0 ? LeaveConcluded(run, Outcome::UpToDate, Stage::UpToDate) : Next::goOn;
}

Next RequireApplicationDirectory(UpdateRun& run) {
    return run.settings.applicationDirectory.empty() ? LeaveFailed(run, kNoApplicationDirectory) : Next::goOn;
}

/// The digest is what a record of a full verification is bound to. Without it nothing is spared, nothing fails.
Next NoteManifestDigest(UpdateRun& run) {
    if (!Sha256OfBuffer(run.manifestBytes.data(), run.manifestBytes.size(), run.verified.manifestDigest))
        run.verified.manifestDigest.clear();
    return Next::goOn;
}

Next NoteInstalledLayout(UpdateRun& run) {
    run.verified.manifest = run.manifest;
    InstalledLayout layout{};
    if (DetectInstalledLayout(run.root, run.settings, run.manifest, layout)) run.verified.layout = layout;
    return Next::goOn;
}

/// Whether a record of a full verification can speak about this release at all.
bool RecordMayCount(const UpdateRun& run) {
    return run.versionOrder == 0 && !run.verified.manifestDigest.empty() && run.verified.layout;
}

Next TrustVerifiedInventory(UpdateRun& run) {
    const VerifiedState& verified = run.verified;
    if (!RecordMayCount(run) || !VerifiedInventoryIsFresh(run.root, run.settings, verified.manifest,
                                                          verified.manifestDigest, *verified.layout)) {
        return Next::goOn;
    }
    return LeaveConcluded(run, Outcome::UpToDate, Stage::UpToDate);
}

/// Before the verification: what changes while it runs must not be recorded as verified.
Next TakePriorInventory(UpdateRun& run) {
    VerifiedState& verified = run.verified;
    if (RecordMayCount(run) && !ComputeInventoryDigest(run.root, run.settings, verified.manifest, *verified.layout,
                                                       verified.priorDigest, InventoryProgress::silent)) {
        verified.priorDigest.clear();
    }
    return Next::goOn;
}

enum class PackagesInPlace { none, activated, portable };

PackagesInPlace FindPackages(const UpdateRun& run, HashProgressReporter& reporter) {
    const std::wstring& directory = run.settings.applicationDirectory;
    const std::vector<PackageDescriptor>& packages = run.manifest.packages;
    const std::wstring applicationRoot = ApplicationRoot(run.root, run.settings);
    const SetProgress progress = [&](const PackageDescriptor& package, const PackageFileDescriptor& file,
                                     std::uint64_t bytes) {
        reporter.Report(PackageFilePath(VersionFolder(RuntimeFolder(directory), package), file), bytes);
    };
    const FileProgress supportProgress = [&](const PackageFileDescriptor& file, std::uint64_t bytes) {
        reporter.Report(PackageFilePath(directory, file), bytes);
    };
    if (PackageSetIsActive(RuntimeFolder(applicationRoot), packages, progress)) {
        return ApplicationRuntimeSupportFilesMatch(run.root, directory, packages, supportProgress)
                   ? PackagesInPlace::activated
                   : PackagesInPlace::none;
    }
    return PortablePackageSetMatches(applicationRoot, packages, progress) ? PackagesInPlace::portable
                                                                          : PackagesInPlace::none;
}

InstalledLayout LayoutOf(PackagesInPlace packages) {
    switch (packages) {
        case PackagesInPlace::activated:
            return InstalledLayout::activated;
        case PackagesInPlace::portable:
            return InstalledLayout::portable;
        case PackagesInPlace::none:
            break;
    }
    return InstalledLayout::files;
}

std::vector<ManifestFileEntry> FindDifferingFiles(const UpdateRun& run, HashProgressReporter& reporter) {
    std::vector<ManifestFileEntry> missingFiles;
    for (const ManifestFileEntry& file : run.manifest.files) {
        reporter.BeginFile();
        const auto progress = [&](std::uint64_t bytes) { reporter.Report(file.path, bytes); };
        if (!ManifestFileIsCurrent(run.root, file, progress)) missingFiles.push_back(file);
        reporter.FileDone(file.size);
    }
    return missingFiles;
}

/// Everything was hashed and nothing is to be done: the next starts may go by the record.
Next LeaveVerified(UpdateRun& run, InstalledLayout layout) {
    run.result.outcome = Outcome::UpToDate;
    WriteUpdateState(UpdateStatePath(run.root));
    WriteVerifiedInventory(run.root, run.settings, run.verified.manifest, run.verified.manifestDigest, layout,
                           run.verified.priorDigest);
    NotifyStage(run.settings, Stage::UpToDate, run.manifest.version, 0, 0);
    return Next::leave;
}

/// Leaves only the differing files in the manifest, or leaves the run when nothing differs and the version is the same.
Next CompareInstalled(UpdateRun& run) {
    const bool countSupportTwice = run.verified.layout == InstalledLayout::activated;
    HashProgressReporter reporter(run.settings, BytesToHash(run.manifest, countSupportTwice));
    PackagesInPlace packages = PackagesInPlace::none;
    if (!run.manifest.packages.empty()) {
        packages = FindPackages(run, reporter);
        run.needPackages = packages == PackagesInPlace::none;
    }
    std::vector<ManifestFileEntry> missingFiles = FindDifferingFiles(run, reporter);
    reporter.Complete();
    if (run.versionOrder == 0 && missingFiles.empty() && !run.needPackages) {
        return LeaveVerified(run, LayoutOf(packages));
    }
    run.manifest.files = std::move(missingFiles);
    return Next::goOn;
}

/// After the file check by design: a tree that needs nothing is not disturbed by a launcher that is too old. An
/// unreadable version counts as too old. The schedule is not written, so the message returns at each start.
Next RequireLauncherVersion(UpdateRun& run) {
    bool comparable = false;
    const int order = CompareVersions(run.settings.launcherVersion, run.manifest.minimumLauncherVersion, comparable);
    if (comparable && order >= 0) return Next::goOn;
    run.result.outcome = Outcome::LauncherTooOld;
    run.result.error = kLauncherTooOld;
    NotifyStage(run.settings, Stage::Failed, run.result.error, 0, 0);
    return Next::leave;
}

/// The tree is about to change.
Next DropVerifiedInventory(UpdateRun& run) {
    RemoveVerifiedInventory(run.root);
    return Next::goOn;
}

Next AnnounceChange(UpdateRun& run) {
    const Stage stage = run.versionOrder > 0 ? Stage::UpdateAvailable : Stage::Repairing;
    NotifyStage(run.settings, stage, run.manifest.version, 0, 0);
    return Next::goOn;
}

/// A repair is not offered, it just runs.
Next AskUser(UpdateRun& run) {
    if (run.versionOrder <= 0 || run.verificationMode) return Next::goOn;
    const bool accepted = run.settings.promptForUpdate
                              ? run.settings.promptForUpdate(run.manifest.version, run.result.notes)
                              : PromptWithMessageBox(run.manifest.version, run.result.notes);
    return accepted ? Next::goOn : LeaveConcluded(run, Outcome::Declined, Stage::Declined);
}

}  // namespace

Next Decide(UpdateRun& run) {
    constexpr Next (*kSteps[])(UpdateRun&) = {
        SettleUpdateFolder,
        RequireManifestLocation,
        BeginCheck,
        ChooseBackupLocation,
        FetchManifest,
        RequireIndependentBackup,
        GuardAgainstRollback,
        SkipUnlessDue,
        NoteRelease,
        NoteManifestDigest,
        CompareWithInstalled,
        RequireApplicationDirectory,
        NoteInstalledLayout,
        TrustVerifiedInventory,
        TakePriorInventory,  // before anything is hashed
        CompareInstalled,
        RequireLauncherVersion,
        DropVerifiedInventory,
        AnnounceChange,
        AskUser,
    };
    for (const auto step : kSteps) {
        if (step(run) == Next::leave) return Next::leave;
    }
    return Next::goOn;
}

}  // namespace launcher_update
