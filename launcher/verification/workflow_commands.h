#pragma once

#include "launcher/verification/command_run.h"

/// Commands that run the whole update workflow on a folder of the caller's.
/// command_table.h tells what each takes; each returns the exit code of the process. Main thread.

namespace launcher_shell {

int InstallFromBackup(const CommandRun& run);
int UpdateFromManifests(const CommandRun& run);

}  // namespace launcher_shell
