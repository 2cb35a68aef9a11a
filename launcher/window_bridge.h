#pragma once

#include "ui/status_window.h"
#include "update/settings.h"

namespace launcher_shell {

/// Fills the five callbacks of `settings` with synchronous messages to the window. They are called on the worker's
/// thread, and each returns when the window's thread has handled it; that thread must pump all the while. The window
/// must outlive every call.
void ConnectToWindow(launcher_update::Settings& settings, launcher_ui::StatusWindow& status);

}  // namespace launcher_shell
