#pragma once

/// Exit codes of a normal run. A failed start of the application exits with Windows' own error code instead; the mode
/// that replaces the launcher (self_replacement.h) and the verification commands (verification/command_table.h) have
/// codes of their own.

namespace launcher_shell {

enum ExitCode : int {
    kStarted = 0,                  // the application was started, or a command finished well
    kModulePathUnreadable = 1,     // the module file name could not be read
    kModulePathWithoutFolder = 2,  // ... or has no folder part
    kConfigurationUnusable = 3,    // current.json is unusable, or missing and could not be rebuilt
    kApplicationNotFound = 4,      // the application's path could not be resolved, or the file is missing
    kUpdateFolderUnsettled = 39,   // an interrupted update stands in the way
    kUnsafeToLaunch = 40           // the update workflow ended with the tree possibly mixed
};

}  // namespace launcher_shell
