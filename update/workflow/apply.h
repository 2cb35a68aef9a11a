#pragma once

#include "update/workflow/update_run.h"

namespace launcher_update {

/// The applying half of the workflow, for a run whose deciding half said go on: stages everything, journals, swaps,
/// commits. The tree passes four states: unchanged, journalled, applying, committed; a process that dies in the second
/// or third is restored at the next start.
void Apply(UpdateRun& run);

}  // namespace launcher_update
