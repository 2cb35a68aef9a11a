#pragma once

/// The launcher replaces its own executable. A running program cannot do that to itself, so the new launcher is placed
/// in the application's `Updater` folder and started there; it puts itself over the launcher two folders above, which
/// may still be ending, and records its version in the settings. No window is shown and nothing is started.
///
/// All copies are made in the `Updater` folder and forced out; one rename brings the new launcher into place, and one
/// rename takes it back. Whenever the process dies, the launcher is whole, old or new. Main thread.

#include <string>

#include "launcher/command_line.h"

namespace launcher_shell {

/// The exit code of the whole process.
enum ReplacementExit : int {
    kReplaced = 0,                  // replaced and recorded
    kReplacementRefused = 40,       // the arguments
    kNotInUpdaterFolder = 41,       // this program does not run from there
    kForeignConfiguration = 42,     // the settings are unusable or another program's
    kNotTheAnnouncedLauncher = 43,  // this program's digest or version is another
    kReplacementNotCopied = 44,     // backup or replacement could not be made
    kReplacementCopyDiffers = 45,   // the copy's digest is another
    kTargetStayedLocked = 46,       // for 30 seconds; the old launcher stands
    kReplacementNotConfirmed = 47,  // the old launcher was put back, its backup stays
};

/// `selfPath` is this program's own path. Waits up to 30 seconds for the old launcher to end.
[[nodiscard]] int ReplaceLauncher(const std::wstring& selfPath, const LauncherReplacement& replacement);

}  // namespace launcher_shell
