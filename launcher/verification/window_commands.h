#pragma once

#include "launcher/verification/command_run.h"

/// Commands that open the status window, or play events to its model, and look at what it comes to.
/// command_table.h tells what each takes; each returns the exit code of the process. Main thread.

namespace launcher_shell {

int CheckFailureHandoff(const CommandRun& run);
int CheckNotesOrder(const CommandRun& run);
int CheckProgressModel(const CommandRun& run);
int CheckVerificationProgress(const CommandRun& run);
int CheckResponsiveWindow(const CommandRun& run);

}  // namespace launcher_shell
