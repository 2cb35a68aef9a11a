#include "update/workflow/check_and_apply.h"

#include <memory>
#include <utility>

#include "update/workflow/apply.h"
#include "update/workflow/decide.h"

namespace launcher_update {

Result CheckAndApply(const std::wstring& root, const Settings& settings, bool forceCheck, bool verificationMode,
                     const std::wstring& manifestUrlOverride) {
    UpdateRun run;
    run.root = root;
    run.settings = settings;
    run.settings.sourceSession = std::make_shared<launcher_download::SourceSession>();
    run.forceCheck = forceCheck;
    run.verificationMode = verificationMode;
    run.manifestUrl = manifestUrlOverride.empty() ? settings.updateManifestUrl : manifestUrlOverride;
    if (Decide(run) == Next::goOn) Apply(run);
    return std::move(run.result);
}

}  // namespace launcher_update
