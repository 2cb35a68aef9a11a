#pragma once

#include "launcher/verification/commands.h"

namespace launcher_shell {

int PicturePrompt(const CommandRun& run);
int PictureProgress(const CommandRun& run);
int PictureRepair(const CommandRun& run);

}  // namespace launcher_shell
