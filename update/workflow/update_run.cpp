#include "update/workflow/update_run.h"

#include <utility>

#include "update/workflow/schedule.h"

namespace launcher_update {

Next LeaveFailed(UpdateRun& run, std::wstring error) {
    run.result.outcome = Outcome::Failed;
    run.result.error = std::move(error);
    NotifyStage(run.settings, Stage::Failed, run.result.error, 0, 0);
    return Next::leave;
}

Next LeaveUnsafe(UpdateRun& run, std::wstring error) {
    run.result.safeToLaunch = false;
    return LeaveFailed(run, std::move(error));
}

Next LeaveConcluded(UpdateRun& run, Outcome outcome, Stage stage) {
    run.result.outcome = outcome;
    WriteUpdateState(UpdateStatePath(run.root));
    NotifyStage(run.settings, stage, run.manifest.version, 0, 0);
    return Next::leave;
}

}  // namespace launcher_update
