#include "launcher/verification/picture_commands.h"

#include "launcher/verification/command_table.h"
#include "launcher/verification/command_window.h"
#include "launcher/verification/manifest_commands.h"
#include "ui/capture.h"
#include "ui/status_window.h"
#include "update/manifest/release_notes.h"

namespace launcher_shell {

using launcher_ui::StatusWindow;
using launcher_update::Stage;
using launcher_update::UpdateManifest;

namespace {

constexpr int kNotesUnreadable = 32;
constexpr int kWindowFailed = 33;
constexpr int kCaptureFailed = 34;
constexpr int kBadArguments = 35;

/// 0, or the exit code of what went wrong.
int OpenPrompt(StatusWindow& status, const CommandRun& run, const std::wstring& installedVersion) {
    UpdateManifest manifest;
    if (!ReadManifestFile(run.values[0], true, manifest)) return kNotesUnreadable;
    const auto notes = launcher_update::SelectReleaseNotes(manifest, run.values[1]);
    const bool shown = OpenCommandWindow(status, run.values[1], installedVersion) &&
                       launcher_ui::ShowPrompt(status, manifest.version, notes);
    return shown ? 0 : kWindowFailed;
}

int Picture(const StatusWindow& status, const std::wstring& path) {
    return launcher_ui::SaveWindowPicture(status.window, path) ? 0 : kCaptureFailed;
}

}  // namespace

int PicturePrompt(const CommandRun& run) {
    StatusWindow status;
    const std::wstring installedVersion = run.values.size() > 3 ? run.values[3] : std::wstring();
    if (const int failure = OpenPrompt(status, run, installedVersion)) return failure;
    return Picture(status, run.values[2]);
}

int PictureProgress(const CommandRun& run) {
    const std::uint64_t completed = NumberIn(run.values[4]);
    const std::uint64_t total = NumberIn(run.values[5]);
    if (completed > total) return kBadArguments;
    StatusWindow status;
    if (const int failure = OpenPrompt(status, run, run.values[3])) return failure;
    status.model.promptChoice = launcher_ui::PromptChoice::update;
    if (!launcher_ui::WaitForPromptChoice(status)) return kWindowFailed;
    launcher_ui::ApplyStage(status, Stage::Downloading, L"payload", 0, 1);
    launcher_ui::ApplyStage(status, Stage::DownloadingBytes, L"payload", completed, total);
    return Picture(status, run.values[2]);
}

int PictureRepair(const CommandRun& run) {
    StatusWindow status;
    if (!OpenCommandWindow(status, run.values[0], run.values[2])) return kCaptureFailed;
    launcher_ui::ApplyStage(status, Stage::Repairing, run.values[2], 0, 0);
    return Picture(status, run.values[1]);
}

}  // namespace launcher_shell
