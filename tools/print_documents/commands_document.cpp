#include "tools/print_documents/documents.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "launcher/verification/command_table.h"
#include "platform/text.h"

namespace print_documents {
namespace {

using launcher_shell::Argument;
using launcher_shell::ArgumentKind;
using launcher_shell::Command;
using launcher_shell::WorkflowCommand;

constexpr std::string_view kIntroduction = R"(# Built-in verification commands

The launcher carries its own proof: switches that run a piece of it against fixtures, print one line and exit with a
code. They are part of the shipped program, so that a release pipeline can check the very build that goes out.
`./dev documents` makes this file from `launcher/verification/command_table.cpp`; do not edit it by hand.

A command is called by its switch as the first argument and exactly the right count of values; `argc` counts the
program as well. With any other count the switch is an unknown argument of a normal run, which hands it on to the
application. The exit code is 0 when all is well. Values are checked before anything is done: one that is not what the
last table demands ends the command with its code for bad arguments, and nothing is printed.

Lines go to the standard output if that is a pipe or a file (`launcher.exe ... > file`, or a pipe of a calling program)
and end in a line feed; without one they are dropped. `N` stands for a number, `0|1` for no or yes.

)";

constexpr std::string_view kWorkflowIntroduction = R"(
## Runs of the real workflow

These switches may stand anywhere among the arguments of a normal run. The workflow then runs in verification mode: local
files are taken as sources, each source is tried once, nobody is asked, and there is no window.

| Switch and arguments | Does |
|---|---|
)";

constexpr std::string_view kWorkflowEnd = R"(
All but the last end with exit code 0 if the outcome is `Applied` (`Cancelled` for the one that cancels), else 20, and
leave `launcher-update-self-test-result.json` beside the launcher: one line with `schemaVersion`, `outcome`,
`safeToLaunch`, `error`, `verificationMutationAttempted`, `verificationMutationSucceeded`, `traceTruncated` and
`stages`, at most 4096 objects of `stage`, `detail`, `completed` and `total`. If that file cannot be written the exit
code is 21. An error text goes to `launcher-update-self-test-error.txt` as well; a passed run deletes it.

With the environment variable `VPR_TEST_MUTATE_AFTER_FULL_VERIFY` set to `1`, the first byte of the installed
application is flipped as soon as all installed files are verified, its time of writing kept: what was verified before is
decided upon, and what is changed after is not seen. If the flip fails, the run fails as unsafe. A normal run does not
read the variable.

## Values

| Value | Must be | In |
|---|---|---|
)";

struct KindRule {
    ArgumentKind kind;
    const char* rule;
};

constexpr KindRule kRules[] = {
    {ArgumentKind::text, "any text"},
    {ArgumentKind::language, "`en`, `zh-TW`, `zh-CN`, `ja` or `ko`, in any letter case"},
    {ArgumentKind::version, "four numbers of at most 65535 with dots between them"},
    {ArgumentKind::number, "a decimal number of at most 64 bits"},
    {ArgumentKind::minutes, "a decimal number from 1 to 2147483647"},
    {ArgumentKind::choice, "one of the two words"},
    {ArgumentKind::flags, "`0` and `1` only"},
    {ArgumentKind::inputFile, "absolute path on a local drive of an existing file, no link"},
    {ArgumentKind::newBitmap, "absolute path on a local drive that ends in `.bmp` and does not exist"},
    {ArgumentKind::folder, "absolute path on a local drive of an existing folder, no link"},
    {ArgumentKind::outputFolder, "absolute path on a local drive of a folder, no link; it need not exist"},
    {ArgumentKind::localPath, "absolute path on a local drive"},
    {ArgumentKind::location, "an address, or an absolute path on a local drive"},
};
static_assert(std::size(kRules) == static_cast<std::size_t>(ArgumentKind::location) + 1);

/// What stands between column bars.
std::string Cell(std::string_view text) {
    std::string cell;
    for (const char unit : text) {
        if (unit == '|') cell += '\\';
        cell += unit;
    }
    return cell;
}

std::string Usage(const Command& command) {
    std::string usage = platform::EncodeUtf8(command.name);
    for (const Argument& argument : command.required) {
        usage += std::string(" <") + argument.name + '>';
    }
    if (command.optional.empty()) return usage;
    usage += " [";
    for (const Argument& argument : command.optional) {
        if (usage.back() != '[') usage += ' ';
        usage += std::string("<") + argument.name + '>';
    }
    return usage + (command.repeats ? "...]" : "]");
}

std::string Counts(const Command& command) {
    const std::size_t least = 2 + command.required.size();
    if (command.repeats) return std::to_string(least) + " or more";
    if (command.optional.empty()) return std::to_string(least);
    return std::to_string(least) + " or " + std::to_string(least + command.optional.size());
}

std::string Failures(const Command& command) {
    std::string failures;
    for (const auto& failure : command.failures) {
        if (!failures.empty()) failures += "; ";
        failures += std::to_string(failure.code) + ' ' + failure.meaning;
    }
    return failures;
}

std::string CommandRow(const Command& command) {
    const std::string output = *command.output == '\0' ? std::string() : '`' + std::string(command.output) + '`';
    return "| `" + Cell(Usage(command)) + "` | " + Counts(command) + " | " + Cell(command.exercises) + " | " +
           Cell(Failures(command)) + " | " + Cell(output) + " |\n";
}

std::string WorkflowRow(const WorkflowCommand& command) {
    return "| `" + platform::EncodeUtf8(command.name) + ' ' + command.arguments + "` | " + Cell(command.exercises) +
           " |\n";
}

/// A value and the switches that take it so.
struct Use {
    const Argument* argument;
    std::string switches;
};

void AddUse(std::vector<Use>& uses, const Argument& argument, const Command& command) {
    const auto same = std::find_if(uses.begin(), uses.end(), [&](const Use& use) {
        return std::string_view(use.argument->name) == argument.name && use.argument->kind == argument.kind;
    });
    const std::string name = '`' + platform::EncodeUtf8(command.name) + '`';
    if (same == uses.end()) {
        uses.push_back({&argument, name});
    } else if (!same->switches.ends_with(name)) {
        same->switches += ", " + name;
    }
}

std::string ValueRows() {
    std::vector<Use> uses;
    for (const Command& command : launcher_shell::Commands()) {
        for (const auto& arguments : {command.required, command.optional}) {
            for (const Argument& argument : arguments) {
                AddUse(uses, argument, command);
            }
        }
    }
    std::string rows;
    for (const Use& use : uses) {
        rows += std::string("| `<") + use.argument->name + ">` | " +
                kRules[static_cast<std::size_t>(use.argument->kind)].rule + " | " + use.switches + " |\n";
    }
    return rows;
}

}  // namespace

std::string CommandsDocument() {
    std::string text(kIntroduction);
    text += "| Switch and arguments | `argc` | Exercises | Other exit codes | Output |\n|---|---|---|---|---|\n";
    for (const Command& command : launcher_shell::Commands()) {
        text += CommandRow(command);
    }
    text += kWorkflowIntroduction;
    for (const WorkflowCommand& command : launcher_shell::WorkflowCommands()) {
        text += WorkflowRow(command);
    }
    text += kWorkflowEnd;
    return text + ValueRows();
}

}  // namespace print_documents
