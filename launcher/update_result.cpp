#include "launcher/update_result.h"

#include <windows.h>

#include <algorithm>

namespace launcher_shell {

using launcher_ui::StatusWindow;
using launcher_update::Outcome;
using launcher_update::Result;
using product::TextId;

namespace {

constexpr ULONGLONG kLongestWaitMs = 20;

void ShowNotice(StatusWindow& status, TextId text) {
    launcher_ui::ShowFailureView(status, status.model.Text(text), L"", false, false);
}

}  // namespace

bool PresentUpdateResult(StatusWindow& status, const Result& result, bool checkForUpdates) {
    if (!result.safeToLaunch || result.outcome == Outcome::Failed) {
        launcher_ui::ShowFailure(status, result.safeToLaunch, result.error);
    } else if (result.outcome == Outcome::LauncherTooOld) {
        ShowNotice(status, TextId::LauncherTooOld);
    } else if (result.outcome == Outcome::UpToDate && checkForUpdates) {
        ShowNotice(status, TextId::AlreadyLatest);
    }
    return result.safeToLaunch;
}

void HoldWindow(StatusWindow& status, unsigned long milliseconds) {
    const ULONGLONG begin = GetTickCount64();
    for (ULONGLONG waited = 0; waited < milliseconds; waited = GetTickCount64() - begin) {
        launcher_ui::WaitAndPump(status, static_cast<DWORD>(std::min(kLongestWaitMs, milliseconds - waited)));
    }
}

}  // namespace launcher_shell
