#pragma once

namespace launcher_shell {

/// One whole run of the launcher, from process start to its exit code: settles an interrupted update, runs the update
/// workflow if one is allowed, starts the application. Only a result that says the installed tree is unsafe stops the
/// last of these. Main thread, once per process.
[[nodiscard]] int RunLauncher();

}  // namespace launcher_shell
