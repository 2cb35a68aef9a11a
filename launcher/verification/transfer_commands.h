#pragma once

#include "launcher/verification/commands.h"

namespace launcher_shell {

int CheckDownloadContract(const CommandRun& run);
int RunSourceSession(const CommandRun& run);
int RunMirrorTransfer(const CommandRun& run);
int RunLoopbackTransfer(const CommandRun& run);

}  // namespace launcher_shell
