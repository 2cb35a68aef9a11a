#pragma once

#include "launcher/verification/commands.h"

namespace launcher_shell {

int CheckLauncherSettings(const CommandRun& run);
int RunForAWhile(const CommandRun& run);

}  // namespace launcher_shell
