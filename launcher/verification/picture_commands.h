#pragma once

#include "launcher/verification/command_run.h"

/// Commands that leave a picture of one view in a new bitmap file.
/// command_table.h tells what each takes; each returns the exit code of the process. Main thread.

namespace launcher_shell {

int PicturePrompt(const CommandRun& run);
int PictureProgress(const CommandRun& run);
int PictureRepair(const CommandRun& run);

}  // namespace launcher_shell
