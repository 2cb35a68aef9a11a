#include "launcher/verification/workflow_commands.h"

#include <windows.h>

#include <string_view>

#include "launcher/configuration.h"
#include "launcher/update_worker.h"
#include "launcher/verification/output.h"
#include "launcher/verification/result_line.h"
#include "launcher/window_bridge.h"
#include "product/language.h"
#include "product/locations.h"
#include "ui/status_window.h"
#include "update/workflow/check_and_apply.h"

namespace launcher_shell {

using launcher_update::Outcome;
using launcher_update::Result;
using launcher_update::Settings;

namespace {

constexpr int kWorkflowFailed = 1317;

Settings BuildSettings(const CommandRun& run, const std::wstring& productVersion) {
    Settings settings;
    settings.productVersion = productVersion;
    settings.launcherVersion = ReadFileVersion(run.launcherPath);
    settings.applicationDirectory = product::kApplicationDirectory;
    settings.language = product::LanguageTag(product::CurrentLanguage());
    return settings;
}

void PrintResult(std::string_view name, const Result& result) {
    WriteOutput(ResultLine(name)
                    .Add("outcome", static_cast<std::uint32_t>(result.outcome))
                    .Add("safe", result.safeToLaunch)
                    .Text());
}

}  // namespace

/// As a user would see it, in a window that says yes by itself.
int InstallFromBackup(const CommandRun& run) {
    Settings settings = BuildSettings(run, run.values[1]);
    settings.updateManifestUrl = product::kBackupManifestUrl;
    launcher_ui::StatusWindow status;
    if (!launcher_ui::CreateStatusWindow(status, GetModuleHandleW(nullptr), run.values[1], SW_SHOWNORMAL)) {
        return kWorkflowFailed;
    }
    status.model.autoAcceptPrompt = true;
    ConnectToWindow(settings, status);
    Result result;
    const auto work = [&] { return launcher_update::CheckAndApply(run.values[0], settings, true, false, {}); };
    if (!RunUpdateWorker(&status, work, result)) return kWorkflowFailed;
    PrintResult("R2_INSTALL_RESULT", result);
    return result.outcome == Outcome::Applied ? 0 : kWorkflowFailed;
}

int UpdateFromManifests(const CommandRun& run) {
    Settings settings = BuildSettings(run, run.values[3]);
    settings.backupManifestUrlOverride = run.values[2];
    Result result;
    const auto work = [&] {
        return launcher_update::CheckAndApply(run.values[0], settings, true, true, run.values[1]);
    };
    if (!RunUpdateWorker(nullptr, work, result)) return kWorkflowFailed;
    PrintResult("R2_UPDATE_RESULT", result);
    const bool done = result.outcome == Outcome::Applied || result.outcome == Outcome::UpToDate;
    return done ? 0 : kWorkflowFailed;
}

}  // namespace launcher_shell
