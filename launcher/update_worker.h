#pragma once

#include <functional>

#include "ui/status_window.h"
#include "update/settings.h"

namespace launcher_shell {

/// Runs `work` on the one worker thread and waits for its end; with a window, which may be null, messages are pumped
/// all the while. False if the thread could not be started; nothing was touched then. An exception that leaves `work`,
/// or an empty `work`, gives outcome `Failed` with `safeToLaunch` false, since an update may have stopped half-way.
/// Main thread.
[[nodiscard]] bool RunUpdateWorker(launcher_ui::StatusWindow* window, std::function<launcher_update::Result()> work,
                                   launcher_update::Result& result);

}  // namespace launcher_shell
