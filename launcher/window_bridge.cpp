#include "launcher/window_bridge.h"

#include <windows.h>

#include <memory>

#include "launcher/stage_rate_limit.h"
#include "ui/window_messages.h"

namespace launcher_shell {

using launcher_download::Progress;
using launcher_ui::StatusWindow;
using launcher_update::ReleaseNotes;
using launcher_update::Stage;

namespace {

template <typename Record>
LRESULT Send(HWND window, UINT message, const Record& record) {
    return SendMessageW(window, message, 0, reinterpret_cast<LPARAM>(&record));
}

void CountSend(StatusWindow& status, Stage stage) {
    if (!status.counters.enabled || (stage != Stage::CheckingFiles && stage != Stage::VerifyingFiles)) return;
    ++status.counters.fileStageSends;
}

}  // namespace

void ConnectToWindow(launcher_update::Settings& settings, StatusWindow& status) {
    const HWND window = status.window;
    // Shared because a function object is copied with the settings; the worker alone uses it.
    settings.onStage = [window, &status, limit = std::make_shared<StageRateLimit>()](
                           Stage stage, const std::wstring& detail, std::uint64_t completed, std::uint64_t total) {
        CountSend(status, stage);
        if (!limit->Passes(stage, completed, total, GetTickCount64())) return;
        Send(window, launcher_ui::kStageMessage, launcher_ui::StageRecord{stage, detail, completed, total});
    };
    settings.promptForUpdate = [window](const std::wstring& version, const ReleaseNotes& notes) {
        return Send(window, launcher_ui::kPromptMessage, launcher_ui::PromptRecord{version, notes}) != 0;
    };
    settings.shouldCancel = [window] { return SendMessageW(window, launcher_ui::kCancelQueryMessage, 0, 0) != 0; };
    settings.shouldReconnect = [window] {
        return SendMessageW(window, launcher_ui::kReconnectQueryMessage, 0, 0) != 0;
    };
    settings.onDownloadProgress = [window](const Progress& progress) {
        Send(window, launcher_ui::kDownloadProgressMessage, progress);
    };
}

}  // namespace launcher_shell
