#pragma once

#include <span>
#include <string>

namespace launcher_shell {

/// What a verification command works with: valid while it runs, owned by whoever runs it.
struct CommandRun {
    std::span<const std::wstring> values;  // behind the command's name, checked against the table
    std::wstring launcherPath;
    std::wstring launcherDirectory;
};

}  // namespace launcher_shell
