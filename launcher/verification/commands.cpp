#include "launcher/verification/commands.h"

#include <iterator>

#include "launcher/verification/argument_check.h"
#include "launcher/verification/command_run.h"
#include "launcher/verification/command_table.h"
#include "launcher/verification/manifest_commands.h"
#include "launcher/verification/picture_commands.h"
#include "launcher/verification/run_commands.h"
#include "launcher/verification/transfer_commands.h"
#include "launcher/verification/window_commands.h"
#include "launcher/verification/workflow_commands.h"

namespace launcher_shell {
namespace {

struct Runner {
    CommandId id;
    int (*run)(const CommandRun&);
};

constexpr Runner kRunners[] = {
    {CommandId::failureHandoff, CheckFailureHandoff},
    {CommandId::downloadContract, CheckDownloadContract},
    {CommandId::sourceSession, RunSourceSession},
    {CommandId::downloadMirror, RunMirrorTransfer},
    {CommandId::backupInstall, InstallFromBackup},
    {CommandId::backupUpdate, UpdateFromManifests},
    {CommandId::downloadLoopback, RunLoopbackTransfer},
    {CommandId::updateSchedule, CheckUpdateSchedule},
    {CommandId::releaseNotes, CheckReleaseNotes},
    {CommandId::updateMetadata, CheckUpdateMetadata},
    {CommandId::notesOrder, CheckNotesOrder},
    {CommandId::productionManifest, CheckProductionManifest},
    {CommandId::aggregate, CheckAggregate},
    {CommandId::progressModel, CheckProgressModel},
    {CommandId::verificationProgress, CheckVerificationProgress},
    {CommandId::responsive, CheckResponsiveWindow},
    {CommandId::promptPicture, PicturePrompt},
    {CommandId::progressPicture, PictureProgress},
    {CommandId::repairPicture, PictureRepair},
    {CommandId::launcherSettings, CheckLauncherSettings},
    {CommandId::holdLock, RunForAWhile},
};

constexpr bool RunnersAreInOrder() {
    if (std::size(kRunners) != kCommandCount) return false;
    for (std::size_t index = 0; index < kCommandCount; ++index) {
        if (static_cast<std::size_t>(kRunners[index].id) != index) return false;
    }
    return true;
}
static_assert(RunnersAreInOrder(), "a command cannot be run, or runs another");

CommandTurn TurnOf(const Command& command) {
    return command.id == CommandId::holdLock ? CommandTurn::afterSettings : CommandTurn::first;
}

}  // namespace

std::optional<int> RunVerificationCommand(CommandTurn turn, std::span<const std::wstring> arguments,
                                          const std::wstring& launcherPath, const std::wstring& launcherDirectory) {
    const Command* const command = FindCommand(arguments);
    if (command == nullptr || TurnOf(*command) != turn) return std::nullopt;
    const std::span<const std::wstring> values = arguments.subspan(1);
    if (!AcceptValues(*command, values)) return command->badArguments;
    return kRunners[static_cast<std::size_t>(command->id)].run({values, launcherPath, launcherDirectory});
}

}  // namespace launcher_shell
