#include "launcher/verification/run_commands.h"

#include <windows.h>

#include <algorithm>

#include "download/http_rules.h"
#include "launcher/configuration.h"
#include "launcher/exit_codes.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"

namespace launcher_shell {
namespace {

constexpr std::uint64_t kLeastMs = 100;
constexpr std::uint64_t kMostMs = 10000;
constexpr std::uint64_t kDefaultMs = 1000;

}  // namespace

int CheckLauncherSettings(const CommandRun& run) {
    LauncherConfiguration configuration;
    std::wstring error;
    const std::wstring path = run.launcherDirectory + L"\\current.json";
    if (ReadLauncherConfiguration(path, configuration, error) != ConfigurationStatus::read) {
        return kConfigurationUnusable;
    }
    const std::wstring folder =
        launcher_update::JoinPath(run.launcherDirectory, launcher_update::kControlDirectoryName);
    // A failed look is no proof that nothing is there.
    const bool absent = launcher_update::LookAt(folder).presence == launcher_update::Presence::absent;
    return absent ? 0 : kUpdateFolderUnsettled;
}

int RunForAWhile(const CommandRun& run) {
    const auto wanted = launcher_download::ParseDecimal(run.values[0]).value_or(kDefaultMs);
    Sleep(static_cast<DWORD>(std::clamp(wanted, kLeastMs, kMostMs)));
    return 0;
}

}  // namespace launcher_shell
