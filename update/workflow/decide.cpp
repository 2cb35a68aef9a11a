#include "update/workflow/decide.h"

#include <utility>

#include "product/locations.h"
#include "update/manifest/release_identity.h"
#include "update/manifest/version.h"
#include "update/transaction/recovery.h"
#include "update/workflow/hash_progress.h"
#include "update/workflow/manifest_source.h"
#include "update/workflow/prompt_box.h"
#include "update/workflow/release_guard.h"
#include "update/workflow/schedule.h"
#include "update/workflow/totals.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotParseManifest[] = L"無法解析更新清單。";
constexpr wchar_t kMalformedVersion[] = L"本機或遠端版本號格式不正確。";
constexpr wchar_t kNoApplicationDirectory[] = L"更新設定缺少主程式資料夾。";
constexpr wchar_t kLauncherTooOld[] = L"此更新需要較新的啟動器，請下載最新版完整安裝包。";
constexpr wchar_t kPackagesUnsupported[] = L"此啟動器尚不支援包含資源包的更新。";

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

/// Packages are read and judged with the manifest but cannot be installed yet: nothing is touched for such a release.
Next RefusePackages(UpdateRun& run) {
    return run.manifest.packages.empty() ? Next::goOn : LeaveFailed(run, kPackagesUnsupported);
}

std::uint64_t BytesToHash(const UpdateManifest& manifest) {
    std::uint64_t total = 0;
    for (const ManifestFileEntry& file : manifest.files) {
        // Progress loses its total, nothing else.
        if (!AddWithoutOverflow(total, file.size, total)) return ~std::uint64_t{0};
    }
    return total;
}

/// Leaves only the differing files in the manifest, or leaves the run when there are none and the version is the same.
Next CompareInstalledFiles(UpdateRun& run) {
    HashProgressReporter reporter(run.settings, BytesToHash(run.manifest));
    std::vector<ManifestFileEntry> missingFiles;
    for (const ManifestFileEntry& file : run.manifest.files) {
        if (!ManifestFileIsCurrent(run.root, file, reporter.ForFile(file.path))) missingFiles.push_back(file);
        reporter.FileDone(file.size);
    }
    reporter.Complete();
    if (run.versionOrder == 0 && missingFiles.empty()) return LeaveConcluded(run, Outcome::UpToDate, Stage::UpToDate);
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
        CompareWithInstalled,
        RequireApplicationDirectory,
        RefusePackages,  // in its place: layout, the shortcut of the verified inventory, the installed packages
        CompareInstalledFiles,
        RequireLauncherVersion,
        // here: the verified inventory is dropped, because the tree is about to change
        AnnounceChange,
        AskUser,
    };
    for (const auto step : kSteps) {
        if (step(run) == Next::leave) return Next::leave;
    }
    return Next::goOn;
}

}  // namespace launcher_update
