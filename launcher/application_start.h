#pragma once

/// The last act of a run: one checked path, one command line, one process that is not waited for. Main thread.

#include <string>
#include <vector>

#include "launcher/configuration_text.h"

namespace launcher_shell {

/// The application's full path. It must lie below the launcher's folder, whatever the settings say, and be a file.
/// False with a message.
[[nodiscard]] bool ResolveApplicationPath(const std::wstring& launcherDirectory,
                                          const LauncherConfiguration& configuration, std::wstring& path,
                                          std::wstring& error);

/// Starts the application in its own folder with the launcher's environment. Returns 0, or the error code of
/// `CreateProcessW`.
[[nodiscard]] unsigned long StartApplication(const std::wstring& path, const std::vector<std::wstring>& arguments);

}  // namespace launcher_shell
