#include "update/workflow/apply.h"

#include <windows.h>

#include <optional>
#include <utility>
#include <vector>

#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/installed/layout.h"
#include "update/packages/install.h"
#include "update/packages/runtime_state.h"
#include "update/transaction/journal.h"
#include "update/transaction/lock.h"
#include "update/transaction/recovery.h"
#include "update/transaction/stale_cleanup.h"
#include "update/workflow/file_replacement.h"
#include "update/workflow/package_plan.h"
#include "update/workflow/payload_fetch.h"
#include "update/workflow/product_version.h"
#include "update/workflow/runtime_support_files.h"
#include "update/workflow/schedule.h"
#include "update/workflow/totals.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotCreateUpdateFolder[] = L"無法建立更新交易資料夾。";
constexpr wchar_t kLockTaken[] = L"另一個啟動器正在更新；本次暫不啟動主程式。";
constexpr wchar_t kCannotCleanStale[] = L"無法安全清理上一次中斷的更新暫存資料。";
constexpr wchar_t kCannotCreateStaging[] = L"無法建立更新暫存資料夾。";
constexpr wchar_t kTotalTooLarge[] = L"更新下載總容量超過啟動器可安全處理的範圍。";
constexpr wchar_t kCannotWriteVersion[] = L"無法寫入目前版本。";
constexpr wchar_t kRolledBack[] = L" 已安全回復更新前版本。";
constexpr wchar_t kRollbackUnfinished[] = L" 回復尚未完成；備份已保留且本次不應啟動主程式：";

/// One application of an update. The guard is declared behind the lock, so it cleans up while the lock is still held.
struct Application {
    explicit Application(UpdateRun& itsRun) : run(itsRun) {}

    UpdateRun& run;
    std::wstring controlDirectory;
    std::wstring applicationRoot;
    std::wstring stagingDirectory;
    std::wstring backupDirectory;
    std::vector<PackagePlan> packagePlans;  // one for each package of the manifest, when packages are needed
    std::uint64_t completedBytes = 0;
    std::uint64_t totalBytes = 0;
    std::vector<AppliedFile> appliedFiles;
    std::optional<TransactionLock> lock;
    std::optional<StagingCleanupGuard> guard;
};

/// Once the plan has begun, a cancel is an answer like "no": it counts for the schedule.
Next LeaveCancelled(UpdateRun& run) {
    run.result.error.clear();
    return LeaveConcluded(run, Outcome::Cancelled, Stage::Cancelled);
}

/// The tree may have been touched: the recovery decides whether anything may start.
Next LeaveThroughRollback(Application& application, const std::wstring& message) {
    std::wstring recoveryError;
    if (FinishOrRecover(application.run.root, application.controlDirectory, recoveryError)) {
        return LeaveFailed(application.run, message + kRolledBack);
    }
    return LeaveUnsafe(application.run, message + kRollbackUnfinished + recoveryError);
}

Next CreateUpdateFolder(Application& application) {
    return CreateDirectoryChain(application.controlDirectory) ? Next::goOn
                                                              : LeaveFailed(application.run, kCannotCreateUpdateFolder);
}

Next TakeLock(Application& application) {
    application.lock.emplace(application.controlDirectory);
    return application.lock->Held() ? Next::goOn : LeaveUnsafe(application.run, kLockTaken);
}

Next RemoveStaleFolders(Application& application) {
    return CleanStaleUpdateWork(application.controlDirectory) ? Next::goOn
                                                              : LeaveFailed(application.run, kCannotCleanStale);
}

Next CreateRunFolders(Application& application) {
    const std::wstring suffix =
        L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount64());
    const std::wstring staging = std::wstring(kStagingPrefix) + application.run.manifest.version + suffix;
    const std::wstring backup = std::wstring(kBackupPrefix) + application.run.settings.productVersion + suffix;
    application.stagingDirectory = JoinPath(application.controlDirectory, staging);
    application.backupDirectory = JoinPath(application.controlDirectory, backup);
    if (!CreateDirectoryChain(application.stagingDirectory) || !CreateDirectoryChain(application.backupDirectory)) {
        return LeaveFailed(application.run, kCannotCreateStaging);
    }
    application.guard.emplace(application.stagingDirectory, application.backupDirectory,
                              JournalPath(application.controlDirectory));
    return Next::goOn;
}

Next AddToTotal(Application& application, std::uint64_t size) {
    return AddWithoutOverflow(application.totalBytes, size, application.totalBytes)
               ? Next::goOn
               : LeaveFailed(application.run, kTotalTooLarge);
}

Next PlanPackages(Application& application) {
    UpdateRun& run = application.run;
    if (!run.needPackages) return Next::goOn;
    for (const PackageDescriptor& package : run.manifest.packages) {
        if (CancelRequested(run.settings)) return LeaveCancelled(run);
        const PackagePlan& plan =
            application.packagePlans.emplace_back(PlanPackage(application.applicationRoot, package));
        if (plan.needsPayload && AddToTotal(application, plan.payloadDescriptor.size) == Next::leave)
            return Next::leave;
    }
    return Next::goOn;
}

Next AddUpFiles(Application& application) {
    for (const ManifestFileEntry& file : application.run.manifest.files) {
        if (AddToTotal(application, file.size) == Next::leave) return Next::leave;
    }
    return Next::goOn;
}

PayloadContext ContextFor(const Application& application, const std::wstring& detail, std::uint64_t size) {
    const Settings& settings = application.run.settings;
    const std::uint64_t completed = application.completedBytes;
    const std::uint64_t total = application.totalBytes;
    PayloadContext context{settings,
                           application.run.verificationMode,
                           JoinPath(application.controlDirectory, L"downloads-v1"),
                           completed,
                           total,
                           {},
                           {}};
    context.onProgress = [&settings, detail, completed, total](std::uint64_t bytes, std::uint64_t) {
        NotifyStage(settings, Stage::DownloadingBytes, detail, completed + bytes, total);
    };
    context.onVerifying = [&settings, detail, completed, size, total] {
        NotifyStage(settings, Stage::Verifying, detail, completed + size, total);
    };
    return context;
}

std::wstring PackageDetail(const PackageDescriptor& package) {
    return std::wstring(kPackageDetailPrefix) + package.id;
}

Next CopyLocalPackage(Application& application, const PackageDescriptor& package, const PackagePlan& plan) {
    UpdateRun& run = application.run;
    NotifyStage(run.settings, Stage::Verifying, PackageDetail(package), application.completedBytes,
                application.totalBytes);
    std::wstring installedPath;
    std::wstring error;
    return InstallPackageFromLocalFiles(plan.localSource, package, RuntimeFolder(application.applicationRoot),
                                        installedPath, error)
               ? Next::goOn
               : LeaveFailed(run, std::move(error));
}

bool InstallFetched(const Application& application, const std::wstring& archive, const PackageDescriptor& package,
                    const PackagePlan& plan, std::wstring& error) {
    const std::wstring runtime = RuntimeFolder(application.applicationRoot);
    std::wstring installedPath;
    return plan.patchBase.empty()
               ? InstallPackageInactive(archive, package, runtime, installedPath, error)
               : InstallPackagePatchInactive(archive, plan.patchBase, package, runtime, installedPath, error);
}

Next FetchPackage(Application& application, std::size_t index) {
    UpdateRun& run = application.run;
    const PackageDescriptor& package = run.manifest.packages[index];
    const PackagePlan& plan = application.packagePlans[index];
    const std::wstring detail = PackageDetail(package);
    NotifyStage(run.settings, Stage::Downloading, detail, index, run.manifest.packages.size());
    const std::wstring archive =
        JoinPath(application.stagingDirectory, L"packages\\" + package.id + L"-" + package.version + L".zip");
    std::wstring error;
    if (!FetchVerifiedPackage(plan.payloadDescriptor, archive,
                              ContextFor(application, detail, plan.payloadDescriptor.size), error)) {
        return CancelRequested(run.settings) ? LeaveCancelled(run) : LeaveFailed(run, std::move(error));
    }
    application.completedBytes += plan.payloadDescriptor.size;
    if (CancelRequested(run.settings)) return LeaveCancelled(run);
    return InstallFetched(application, archive, package, plan, error) ? Next::goOn : LeaveFailed(run, std::move(error));
}

/// New versions come to stand beside the old ones. They are inactive and harmless until the transaction names them.
Next InstallPackages(Application& application) {
    UpdateRun& run = application.run;
    for (std::size_t index = 0; index < application.packagePlans.size(); ++index) {
        if (CancelRequested(run.settings)) return LeaveCancelled(run);
        const PackagePlan& plan = application.packagePlans[index];
        Next next = Next::goOn;
        if (!plan.localSource.empty()) next = CopyLocalPackage(application, run.manifest.packages[index], plan);
        if (plan.needsPayload) next = FetchPackage(application, index);
        if (next == Next::leave) return Next::leave;
    }
    return Next::goOn;
}

Next FetchFiles(Application& application) {
    UpdateRun& run = application.run;
    const std::uint64_t count = run.manifest.files.size();
    for (std::uint64_t index = 0; index < count; ++index) {
        const ManifestFileEntry& file = run.manifest.files[index];
        if (CancelRequested(run.settings)) return LeaveCancelled(run);
        NotifyStage(run.settings, Stage::Downloading, file.path, index, count);
        std::wstring error;
        if (!FetchVerifiedFile(file, JoinPath(application.stagingDirectory, file.path),
                               ContextFor(application, file.path, file.size), error)) {
            return CancelRequested(run.settings) ? LeaveCancelled(run) : LeaveFailed(run, std::move(error));
        }
        application.completedBytes += file.size;
        NotifyStage(run.settings, Stage::Downloading, file.path, index + 1, count);
    }
    return Next::goOn;
}

/// The last moment for a cancel: from the next step on the tree begins to change.
Next AskForCancelOnceMore(Application& application) {
    return CancelRequested(application.run.settings) ? LeaveCancelled(application.run) : Next::goOn;
}

Next WriteJournal(Application& application) {
    const UpdateRun& run = application.run;
    std::wstring error;
    if (WriteTransactionJournal(run.root, application.controlDirectory, application.backupDirectory, run.manifest,
                                run.settings.applicationDirectory, run.needPackages, error)) {
        return Next::goOn;
    }
    return LeaveFailed(application.run, std::move(error));
}

Next ReplaceFiles(Application& application) {
    const UpdateRun& run = application.run;
    NotifyStage(run.settings, Stage::Installing, run.manifest.version, 0, 0);
    std::wstring error;
    if (ApplyStagedFiles(run.root, application.stagingDirectory, application.backupDirectory, run.manifest,
                         application.appliedFiles, error, run.settings.onFileApplied)) {
        return Next::goOn;
    }
    return LeaveThroughRollback(application, error);
}

/// The set is named last: whatever it needs around it stands by then.
Next ActivatePackages(Application& application) {
    const UpdateRun& run = application.run;
    if (!run.needPackages) return Next::goOn;
    const std::wstring runtime = RuntimeFolder(application.applicationRoot);
    std::wstring error;
    if (InstallApplicationRuntimeSupportFiles(run.root, run.settings.applicationDirectory, runtime,
                                              application.backupDirectory, run.manifest.packages,
                                              application.appliedFiles, error, run.settings.onFileApplied) &&
        ActivatePackageSet(runtime, run.manifest.packages, error)) {
        return Next::goOn;
    }
    return LeaveThroughRollback(application, error);
}

Next RecordVersion(Application& application) {
    return WriteProductVersion(application.run.root, application.run.manifest.version)
               ? Next::goOn
               : LeaveThroughRollback(application, kCannotWriteVersion);
}

Next Commit(Application& application) {
    std::wstring error;
    return CommitTransaction(application.controlDirectory, error) ? Next::goOn
                                                                  : LeaveThroughRollback(application, error);
}

/// The update stands; versions that stay behind cost space and nothing else.
Next PruneOldVersions(Application& application) {
    std::wstring error;
    if (!PruneOldPackageVersions(RuntimeFolder(application.applicationRoot), application.run.manifest.packages, error))
        OutputDebugStringW((L"Velmora Pine Relay package cleanup: " + error + L"\n").c_str());
    return Next::goOn;
}

Next Conclude(Application& application) {
    UpdateRun& run = application.run;
    run.result.outcome = Outcome::Applied;
    WriteUpdateState(UpdateStatePath(run.root));
    const std::uint64_t count = run.manifest.files.size();
    NotifyStage(run.settings, Stage::Completed, run.manifest.version, count, count);
    return Next::leave;
}

}  // namespace

void Apply(UpdateRun& run) {
    Application application{run};
    application.controlDirectory = ControlDirectory(run.root);
    application.applicationRoot = ApplicationRoot(run.root, run.settings);
    constexpr Next (*kSteps[])(Application&) = {
        CreateUpdateFolder,
        TakeLock,  // before the sweep: another launcher's live folders look stale
        RemoveStaleFolders, CreateRunFolders, PlanPackages,         AddUpFiles,
        InstallPackages,    FetchFiles,       AskForCancelOnceMore, WriteJournal,
        ReplaceFiles,       ActivatePackages, RecordVersion,        Commit,
        PruneOldVersions,   Conclude,
    };
    for (const auto step : kSteps) {
        if (step(application) == Next::leave) return;
    }
}

}  // namespace launcher_update
