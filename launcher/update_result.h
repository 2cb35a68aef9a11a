#pragma once

#include "ui/status_window.h"
#include "update/settings.h"

namespace launcher_shell {

// So that the last status can be read before the application covers it.
inline constexpr unsigned long kHoldAfterFailureMs = 1400;
inline constexpr unsigned long kHoldMs = 650;

/// Shows how a run of the workflow ended, as far as the stages have not said it, and says whether the application may
/// be started. An unsafe end blocks the view until the user closes it. A window that was never created shows nothing.
/// Main thread.
[[nodiscard]] bool PresentUpdateResult(launcher_ui::StatusWindow& status, const launcher_update::Result& result,
                                       bool checkForUpdates);

/// Lets a window stand for a while and pumps. Main thread.
void HoldWindow(launcher_ui::StatusWindow& status, unsigned long milliseconds);

}  // namespace launcher_shell
