#pragma once

#include <string>

#include "ui/status_window.h"

namespace launcher_shell {

/// Tells the user why nothing is started and returns when the view has been closed. Uses the window if there is one,
/// else creates it, without a version. Main thread.
void ShowLaunchStopped(launcher_ui::StatusWindow& status, const std::wstring& message);

}  // namespace launcher_shell
