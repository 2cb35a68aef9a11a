#pragma once

/// The built-in verification commands: switches that run a piece of this very executable against fixtures, print one
/// line and exit with a code that says how it went, so that a release pipeline can check a build. They ship with it.
///
/// These tables are all there is to know about the commands' command lines: dispatch, the check of arguments, the tests
/// and docs/verification-commands.md are made from them. Pure; any thread.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "update/files/attributes.h"

namespace launcher_shell {

/// In the order in which they are tried.
enum class CommandId {
    failureHandoff,
    downloadContract,
    sourceSession,
    downloadMirror,
    backupInstall,
    backupUpdate,
    downloadLoopback,
    updateSchedule,
    releaseNotes,
    updateMetadata,
    notesOrder,
    productionManifest,
    aggregate,
    progressModel,
    verificationProgress,
    responsive,
    promptPicture,
    progressPicture,
    repairPicture,
    launcherSettings,
    holdLock,
};
inline constexpr std::size_t kCommandCount = 21;

/// What a value must be.
enum class ArgumentKind {
    text,          // anything
    language,      // a tag of the text table, ignoring case
    version,       // four numbers with dots
    number,        // decimal, within 64 bits
    minutes,       // decimal, 1 to 2147483647
    choice,        // one of two words
    flags,         // `0` and `1` only
    inputFile,     // an existing plain file on a local drive
    newBitmap,     // a path on a local drive that ends in `.bmp` and does not exist
    folder,        // an existing folder on a local drive, no link
    outputFolder,  // the same, or nothing at all stands there
    localPath,     // an absolute path on a local drive
    location,      // where the update workflow may read: an address, or an absolute path on a local drive
};

struct Argument {
    const char* name;  // as the document writes it, without the angle brackets
    ArgumentKind kind;
    std::wstring_view first = {};  // the two words of a choice
    std::wstring_view second = {};
};

struct FailureCode {
    int code;
    const char* meaning;
};

struct Command {
    CommandId id;
    std::wstring_view name;
    std::span<const Argument> required;
    std::span<const Argument> optional;  // all of them or none
    bool repeats;                        // the last optional argument may come any number of times
    int badArguments;                    // exit code for values that are not what they must be
    std::span<const FailureCode> failures;
    const char* exercises;
    const char* output;  // the lines it prints, or nothing
};

[[nodiscard]] std::span<const Command> Commands();

/// The command that these arguments, without the program's name, call for, or null: the first must be its name and the
/// count must be exact. Anything else is a normal run, which forwards what it does not know.
[[nodiscard]] const Command* FindCommand(std::span<const std::wstring> arguments);

/// What the value at `index`, behind the name, must be.
[[nodiscard]] const Argument& ArgumentAt(const Command& command, std::size_t index);

/// Whether the value is judged by what Windows says about it as a path, with `AcceptPath`; else with `AcceptText`.
[[nodiscard]] bool IsPath(const Argument& argument, std::wstring_view value);

[[nodiscard]] bool AcceptText(const Argument& argument, std::wstring_view value);

/// The value of a text that was accepted as a number.
[[nodiscard]] std::uint64_t NumberIn(std::wstring_view value);

/// What Windows says about a path.
struct PathArgument {
    std::uint32_t driveType = 0;  // of `GetDriveTypeW`
    launcher_update::PathFacts facts;
};
[[nodiscard]] bool AcceptPath(ArgumentKind kind, std::wstring_view value, const PathArgument& path);

/// Whether a text names an absolute path by drive letter, colon and separator.
[[nodiscard]] bool BeginsWithDrive(std::wstring_view path);

/// Switches that run the real update workflow in verification mode. They are part of a normal run's arguments, so that
/// others may stand around them.
struct WorkflowCommand {
    enum class Effect { observe, cancel, crash, launch };
    std::wstring_view name;
    std::size_t values;
    Effect effect;
    const char* arguments;
    const char* exercises;
};
[[nodiscard]] std::span<const WorkflowCommand> WorkflowCommands();

}  // namespace launcher_shell
