#pragma once

#include <span>
#include <string>

namespace launcher_shell {

/// What a verification command works with.
struct CommandRun {
    std::span<const std::wstring> values;  // behind the command's name, checked against the table
    std::wstring launcherPath;
    std::wstring launcherDirectory;
};

}  // namespace launcher_shell
