#pragma once

#include "launcher/verification/command_run.h"

/// Commands of the download engine: its parsers alone, and transfers against servers that the caller names.
/// command_table.h tells what each takes; each returns the exit code of the process. Main thread.

namespace launcher_shell {

int CheckDownloadContract(const CommandRun& run);
int RunSourceSession(const CommandRun& run);
int RunMirrorTransfer(const CommandRun& run);
int RunLoopbackTransfer(const CommandRun& run);

}  // namespace launcher_shell
