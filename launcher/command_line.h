#pragma once

/// The launcher's command line as a record, and command lines for `CommandLineToArgvW`. Pure; any thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_shell {

/// The four values of `--install-launcher-update`.
struct LauncherReplacement {
    std::wstring targetPath;
    std::wstring configurationPath;
    std::wstring version;
    std::wstring sha256;
};

/// A run of the update workflow under observation, as the switches of verification/command_table.h ask for it.
struct WorkflowVerification {
    std::wstring manifest;                    // of the last of these switches
    bool writesResult = false;                // the run ends with a result file instead of the application's start
    bool cancels = false;                     // as soon as bytes of a payload have come
    std::optional<std::wstring> crashMarker;  // stands still for ever once the first file is replaced
    bool forcesCheck = false;
};

struct CommandLine {
    bool checkForUpdates = false;
    bool skipUpdateCheck = false;
    /// The switch stands somewhere, complete or not. A run that replaces the launcher may find `current.json` missing
    /// and must not make a new one, so this is known before the file is looked at.
    bool replacementMentioned = false;
    std::optional<LauncherReplacement> replacement;  // the last complete one
    std::optional<WorkflowVerification> verification;
    std::vector<std::wstring> forwardedArguments;  // for the application, in order
};

/// Reads the arguments behind the program's name. Switches are compared exactly. A switch whose values are not all
/// there is forwarded like any argument that is not known here.
[[nodiscard]] CommandLine ReadCommandLine(const std::vector<std::wstring>& arguments);

/// One argument in the quotes that `CommandLineToArgvW` takes off again ("Parsing C command-line arguments"): always
/// quoted, also when empty or without a blank.
[[nodiscard]] std::wstring QuoteCommandLineArgument(std::wstring_view text);

/// The program and its arguments, each quoted, one blank between them.
[[nodiscard]] std::wstring BuildCommandLine(std::wstring_view program, const std::vector<std::wstring>& arguments);

}  // namespace launcher_shell
