#pragma once

#include <string>

namespace launcher_shell {

/// Tells the user why nothing is started and returns when the message has been closed. Main thread.
void ShowLaunchStopped(const std::wstring& message);

}  // namespace launcher_shell
