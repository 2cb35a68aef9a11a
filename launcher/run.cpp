#include "launcher/run.h"

#include <windows.h>

#include <shellapi.h>

#include <optional>
#include <string>
#include <vector>

#include "launcher/application_start.h"
#include "launcher/command_line.h"
#include "launcher/configuration.h"
#include "launcher/exit_codes.h"
#include "launcher/full_path.h"
#include "launcher/launch_stopped.h"
#include "launcher/self_replacement.h"
#include "launcher/update_result.h"
#include "launcher/update_worker.h"
#include "launcher/verification/commands.h"
#include "launcher/verification/verification_run.h"
#include "launcher/window_bridge.h"
#include "platform/text.h"
#include "product/language.h"
#include "ui/status_window.h"
#include "update/transaction/recovery.h"
#include "update/workflow/check_and_apply.h"

namespace launcher_shell {
namespace {

struct Launch {
    std::wstring launcherPath;
    std::wstring launcherDirectory;
    std::wstring configurationPath;
    std::vector<std::wstring> arguments;  // behind the program's name
    CommandLine commandLine;
    std::optional<VerificationRun> verification;
    LauncherConfiguration configuration;
    ConfigurationStatus configurationStatus = ConfigurationStatus::missing;
    launcher_update::Result updateResult;
    bool useWindow = false;
    launcher_ui::StatusWindow statusWindow;  // lives to the end of the run
};

/// A step's answer: nothing to go on, or the exit code of the run.
using ExitWith = std::optional<int>;
constexpr std::nullopt_t kGoOn = std::nullopt;

ExitWith StopWithMessage(Launch& launch, const std::wstring& message, int exitCode) {
    ShowLaunchStopped(launch.statusWindow, message);
    return exitCode;
}

/// Before any window exists, or Windows scales them itself. The executable's manifest says the same; this call is for
/// hosts that drop the manifest, and its failure changes nothing.
ExitWith DeclareDpiAwareness(Launch&) {
    SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
    return kGoOn;
}

ExitWith FindOwnPath(Launch& launch) {
    launch.launcherPath.resize(kPathUnits);
    const DWORD length = GetModuleFileNameW(nullptr, launch.launcherPath.data(), kPathUnits);
    if (length == 0 || length >= kPathUnits) return kModulePathUnreadable;
    launch.launcherPath.resize(length);
    const auto folder = platform::ParentPath(launch.launcherPath);
    if (!folder) return kModulePathWithoutFolder;
    launch.launcherDirectory = *folder;
    launch.configurationPath = launch.launcherDirectory + L"\\current.json";
    return kGoOn;
}

/// A command line that cannot be split is a run without arguments.
ExitWith SplitCommandLine(Launch& launch) {
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (arguments == nullptr) return kGoOn;
    if (count > 1) launch.arguments.assign(arguments + 1, arguments + count);
    LocalFree(arguments);
    launch.commandLine = ReadCommandLine(launch.arguments);
    return kGoOn;
}

template <CommandTurn turn>
ExitWith RunCommandAt(Launch& launch) {
    return RunVerificationCommand(turn, launch.arguments, launch.launcherPath, launch.launcherDirectory);
}

ExitWith SettleUpdateFolder(Launch& launch) {
    std::wstring error;
    if (launcher_update::PrepareUpdateFolder(launch.launcherDirectory, error)) return kGoOn;
    return StopWithMessage(launch, error, kUpdateFolderUnsettled);
}

ExitWith ReadConfiguration(Launch& launch) {
    std::wstring error;
    launch.configurationStatus = ReadLauncherConfiguration(launch.configurationPath, launch.configuration, error);
    if (launch.configurationStatus == ConfigurationStatus::unusable)
        return StopWithMessage(launch, error, kConfigurationUnusable);
    if (launch.configurationStatus == ConfigurationStatus::read || launch.commandLine.replacementMentioned)
        return kGoOn;
    if (!RebuildLauncherConfiguration(launch.launcherDirectory, launch.launcherPath, launch.configurationPath,
                                      launch.configuration, error)) {
        return StopWithMessage(launch, error, kConfigurationUnusable);
    }
    launch.configurationStatus = ConfigurationStatus::read;
    return kGoOn;
}

/// A run of its own: no window, no update, no application.
ExitWith ReplaceTheLauncher(Launch& launch) {
    if (!launch.commandLine.replacement) return kGoOn;
    return ReplaceLauncher(launch.launcherPath, *launch.commandLine.replacement);
}

launcher_update::Settings BuildSettings(const LauncherConfiguration& configuration) {
    launcher_update::Settings settings;
    settings.productVersion = configuration.productVersion;
    settings.launcherVersion = configuration.launcherVersion;
    settings.applicationDirectory = configuration.applicationDirectory;
    settings.updateManifestUrl = configuration.updateManifestUrl;
    settings.language = product::LanguageTag(product::CurrentLanguage());
    settings.updateCheckIntervalMinutes = configuration.updateCheckIntervalMinutes;
    return settings;
}

/// A verification runs the real workflow unseen, whatever the settings say.
ExitWith BeginVerification(Launch& launch) {
    if (!launch.commandLine.verification) return kGoOn;
    launch.verification.emplace(*launch.commandLine.verification, launch.launcherDirectory);
    return launch.verification->ArgumentsAreGood() ? kGoOn : ExitWith(kSelfTestFailed);
}

bool WorkflowIsWanted(const Launch& launch) {
    if (launch.verification) return true;
    return !launch.commandLine.skipUpdateCheck && launch.configurationStatus == ConfigurationStatus::read &&
           !launch.configuration.updateManifestUrl.empty();
}

/// A window that cannot be made is done without: the check goes on unseen, and asks with a plain message box.
ExitWith OpenStatusWindow(Launch& launch) {
    launch.useWindow = !launch.verification && WorkflowIsWanted(launch) &&
                       launcher_ui::CreateStatusWindow(launch.statusWindow, GetModuleHandleW(nullptr),
                                                       launch.configuration.productVersion, SW_SHOWNORMAL);
    return kGoOn;
}

/// Nothing has been touched, so the installed version starts.
void NoteWorkerNotStarted(Launch& launch) {
    launch.updateResult.outcome = launcher_update::Outcome::Failed;
    launch.updateResult.error = L"Unable to start the update-check worker thread.";
    launcher_ui::ApplyStage(launch.statusWindow, launcher_update::Stage::Failed, launch.updateResult.error, 0, 0);
}

ExitWith RunUpdateWorkflow(Launch& launch) {
    if (!WorkflowIsWanted(launch)) return kGoOn;
    launcher_update::Settings settings = BuildSettings(launch.configuration);
    if (launch.useWindow) ConnectToWindow(settings, launch.statusWindow);
    if (launch.verification) launch.verification->Observe(settings);
    const WorkflowVerification verification = launch.commandLine.verification.value_or(WorkflowVerification());
    const bool forceCheck = launch.commandLine.checkForUpdates || verification.forcesCheck;
    const auto work = [&] {
        return launcher_update::CheckAndApply(launch.launcherDirectory, settings, forceCheck,
                                              launch.verification.has_value(), verification.manifest);
    };
    launcher_ui::StatusWindow* window = launch.useWindow ? &launch.statusWindow : nullptr;
    if (!RunUpdateWorker(window, work, launch.updateResult)) NoteWorkerNotStarted(launch);
    return kGoOn;
}

/// Most verifications end here, with a result file and an exit code; one goes on as a normal run.
ExitWith LeaveVerification(Launch& launch) {
    if (!launch.verification) return kGoOn;
    launch.verification->Judge(launch.updateResult);
    if (!launch.commandLine.verification->writesResult) return kGoOn;
    return launch.verification->Leave(launch.updateResult);
}

/// What stops a launch must be said, also by a run that went on without a window.
void EnsureWindow(Launch& launch) {
    launcher_ui::StatusWindow& status = launch.statusWindow;
    if (status.window != nullptr) return;
    launch.useWindow = launcher_ui::CreateStatusWindow(status, GetModuleHandleW(nullptr),
                                                       launch.configuration.productVersion, SW_SHOWNORMAL);
}

/// Only a tree that may be mixed stops the launch. Everything else stands for a moment to be read.
ExitWith ActOnResult(Launch& launch) {
    if (!WorkflowIsWanted(launch)) return kGoOn;
    const launcher_update::Result& result = launch.updateResult;
    if (!result.safeToLaunch) EnsureWindow(launch);
    if (!PresentUpdateResult(launch.statusWindow, result, launch.commandLine.checkForUpdates)) {
        launcher_ui::HoldFailureView(launch.statusWindow);
        return kUnsafeToLaunch;
    }
    if (result.outcome == launcher_update::Outcome::Applied) launch.configuration.productVersion = result.version;
    const bool failed = result.outcome == launcher_update::Outcome::Failed;
    if (launch.useWindow) HoldWindow(launch.statusWindow, failed ? kHoldAfterFailureMs : kHoldMs);
    return kGoOn;
}

/// The user never sees both at once.
ExitWith HideTheWindow(Launch& launch) {
    launcher_ui::HideStatusWindow(launch.statusWindow);
    return kGoOn;
}

ExitWith StartTheApplication(Launch& launch) {
    std::wstring path;
    std::wstring error;
    if (!ResolveApplicationPath(launch.launcherDirectory, launch.configuration, path, error)) {
        return StopWithMessage(launch, error, kApplicationNotFound);
    }
    const DWORD failure = StartApplication(path, launch.commandLine.forwardedArguments);
    if (failure == ERROR_SUCCESS) return kStarted;
    return StopWithMessage(launch,
                           product::LocalizedText(product::TextId::StartFailedPrefix) + std::to_wstring(failure) +
                               product::LocalizedText(product::TextId::StartFailedSuffix) + path,
                           static_cast<int>(failure));
}

}  // namespace

int RunLauncher() {
    constexpr ExitWith (*kSteps[])(Launch&) = {
        DeclareDpiAwareness,
        FindOwnPath,
        SplitCommandLine,  // before the settings: a run that replaces the launcher must not make them anew
        RunCommandAt<CommandTurn::first>,
        SettleUpdateFolder,  // before anything that an interrupted update may have left half done is read
        ReadConfiguration,
        RunCommandAt<CommandTurn::afterSettings>,
        ReplaceTheLauncher,
        BeginVerification,
        OpenStatusWindow,
        RunUpdateWorkflow,
        LeaveVerification,
        ActOnResult,
        HideTheWindow,
        StartTheApplication,
    };
    Launch launch;
    for (const auto step : kSteps) {
        if (const ExitWith exitCode = step(launch)) return *exitCode;
    }
    return kStarted;
}

}  // namespace launcher_shell
