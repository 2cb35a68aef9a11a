#pragma once

#include "launcher/verification/commands.h"

namespace launcher_shell {

int CheckFailureHandoff(const CommandRun& run);
int CheckNotesOrder(const CommandRun& run);
int CheckProgressModel(const CommandRun& run);
int CheckVerificationProgress(const CommandRun& run);
int CheckResponsiveWindow(const CommandRun& run);

}  // namespace launcher_shell
