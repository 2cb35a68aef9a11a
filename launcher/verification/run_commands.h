#pragma once

#include "launcher/verification/command_run.h"

/// Commands about a run of the launcher itself: its settings, and its staying for a while.
/// command_table.h tells what each takes; each returns the exit code of the process. Main thread.

namespace launcher_shell {

int CheckLauncherSettings(const CommandRun& run);
int RunForAWhile(const CommandRun& run);

}  // namespace launcher_shell
