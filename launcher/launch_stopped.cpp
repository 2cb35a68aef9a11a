#include "launcher/launch_stopped.h"

#include <windows.h>

namespace launcher_shell {

void ShowLaunchStopped(launcher_ui::StatusWindow& status, const std::wstring& message) {
    if (status.window == nullptr &&
        !launcher_ui::CreateStatusWindow(status, GetModuleHandleW(nullptr), L"", SW_SHOWNORMAL)) {
        return;
    }
    launcher_ui::ShowFailure(status, false, message);
    launcher_ui::HoldFailureView(status);
}

}  // namespace launcher_shell
