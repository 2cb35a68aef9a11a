#pragma once

#include <string>

#include "ui/status_window.h"

namespace launcher_shell {

/// Creates and shows the status window for a command, in the language of a tag that the command table has accepted.
/// False if it cannot be made. Main thread.
[[nodiscard]] bool OpenCommandWindow(launcher_ui::StatusWindow& status, const std::wstring& language,
                                     const std::wstring& installedVersion);

}  // namespace launcher_shell
