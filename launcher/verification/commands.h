#pragma once

/// Runs the built-in verification commands of command_table.h. Main thread.

#include <optional>
#include <span>
#include <string>

namespace launcher_shell {

/// When in a run a command has its turn.
enum class CommandTurn {
    first,         // before anything is looked at or locked
    afterSettings  // once an interrupted update is settled and the settings are read
};

/// Runs the command that `arguments`, without the program's name, call for, if this is its turn, and gives the exit
/// code of the process; nothing for a normal run.
[[nodiscard]] std::optional<int> RunVerificationCommand(CommandTurn turn, std::span<const std::wstring> arguments,
                                                        const std::wstring& launcherPath,
                                                        const std::wstring& launcherDirectory);

}  // namespace launcher_shell
