#pragma once

#include "update/workflow/update_run.h"

namespace launcher_update {

/// The deciding half of the workflow: settles the update folder, reads and judges the manifest, compares the installed
/// files, asks the user. Writes only the schedule state and the watermark. On `goOn` the run holds what must be
/// applied.
[[nodiscard]] Next Decide(UpdateRun& run);

}  // namespace launcher_update
