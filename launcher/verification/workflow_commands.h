#pragma once

#include "launcher/verification/commands.h"

namespace launcher_shell {

int InstallFromBackup(const CommandRun& run);
int UpdateFromManifests(const CommandRun& run);

}  // namespace launcher_shell
