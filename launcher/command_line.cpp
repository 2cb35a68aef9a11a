#include "launcher/command_line.h"

#include <algorithm>

#include "launcher/verification/command_table.h"

namespace launcher_shell {
namespace {

constexpr std::wstring_view kCheckForUpdates = L"--check-for-updates";
constexpr std::wstring_view kSkipUpdateCheck = L"--skip-update-check";
constexpr std::wstring_view kInstallLauncherUpdate = L"--install-launcher-update";
constexpr std::size_t kReplacementValues = 4;

const WorkflowCommand* FindWorkflowCommand(const std::wstring& argument) {
    for (const WorkflowCommand& command : WorkflowCommands()) {
        if (command.name == argument) return &command;
    }
    return nullptr;
}

void AddVerification(std::optional<WorkflowVerification>& verification, const WorkflowCommand& command,
                     const std::wstring* values) {
    using Effect = WorkflowCommand::Effect;
    if (!verification) verification.emplace();
    verification->manifest = values[0];
    verification->writesResult = verification->writesResult || command.effect != Effect::launch;
    verification->cancels = verification->cancels || command.effect == Effect::cancel;
    verification->forcesCheck = verification->forcesCheck || command.effect == Effect::launch;
    if (command.effect == Effect::crash) verification->crashMarker = values[1];
}

}  // namespace

CommandLine ReadCommandLine(const std::vector<std::wstring>& arguments) {
    CommandLine line;
    line.replacementMentioned =
        std::find(arguments.begin(), arguments.end(), kInstallLauncherUpdate) != arguments.end();
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::wstring& argument = arguments[at];
        if (argument == kCheckForUpdates) {
            line.checkForUpdates = true;
        } else if (argument == kSkipUpdateCheck) {
            line.skipUpdateCheck = true;
        } else if (argument == kInstallLauncherUpdate && arguments.size() - at > kReplacementValues) {
            line.replacement = {arguments[at + 1], arguments[at + 2], arguments[at + 3], arguments[at + 4]};
            at += kReplacementValues;
        } else if (const WorkflowCommand* command = FindWorkflowCommand(argument);
                   command != nullptr && arguments.size() - at > command->values) {
            AddVerification(line.verification, *command, &arguments[at + 1]);
            at += command->values;
        } else {
            line.forwardedArguments.push_back(argument);
        }
    }
    return line;
}

std::wstring QuoteCommandLineArgument(std::wstring_view text) {
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t unit : text) {
        if (unit == L'\\') {
            ++backslashes;
            continue;
        }
        // Backslashes count only in front of a quote, where each stands for half of itself.
        quoted.append(unit == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        quoted.push_back(unit);
        backslashes = 0;
    }
    quoted.append(backslashes * 2, L'\\');
    return quoted + L'"';
}

std::wstring BuildCommandLine(std::wstring_view program, const std::vector<std::wstring>& arguments) {
    std::wstring line = QuoteCommandLineArgument(program);
    for (const std::wstring& argument : arguments) {
        line += L' ' + QuoteCommandLineArgument(argument);
    }
    return line;
}

}  // namespace launcher_shell
