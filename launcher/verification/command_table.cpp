#include "launcher/verification/command_table.h"

#include <algorithm>
#include <array>
#include <limits>

#include "download/http_rules.h"
#include "launcher/configuration_text.h"
#include "platform/text.h"
#include "product/text_table.h"

namespace launcher_shell {
namespace {

using Kind = ArgumentKind;

constexpr Argument kManifest = {"manifest", Kind::inputFile};
constexpr Argument kLanguage = {"language", Kind::language};
constexpr Argument kBitmap = {"bitmap", Kind::newBitmap};
constexpr Argument kVersion = {"version", Kind::version};
constexpr Argument kUrl = {"url", Kind::text};
constexpr Argument kBackup = {"backup", Kind::text};
constexpr Argument kSize = {"size", Kind::number};
constexpr Argument kSha256 = {"sha256", Kind::text};
constexpr Argument kCache = {"cache", Kind::localPath};
constexpr Argument kCancelAt = {"cancel at", Kind::number};
constexpr Argument kRoot = {"root", Kind::folder};
constexpr Argument kProductVersion = {"productVersion", Kind::version};

constexpr Argument kHandoffOptional[] = {kLanguage, {"folder", Kind::outputFolder}};
constexpr Argument kSession[] = {{"url1", Kind::text},
                                 {"backup1", Kind::text},
                                 {"url2", Kind::text},
                                 {"backup2", Kind::text},
                                 kSize,
                                 kSha256,
                                 kCache,
                                 kCancelAt};
constexpr Argument kMirror[] = {kUrl, kBackup, kSize, kSha256, kCache, kCancelAt, {"window ms", Kind::number}};
constexpr Argument kBackupInstall[] = {kRoot, kProductVersion};
constexpr Argument kBackupUpdate[] = {
    kRoot, {"manifest", Kind::location}, {"backup manifest", Kind::location}, kProductVersion};
constexpr Argument kLoopback[] = {kUrl, kSize, kSha256, kCache, kCancelAt};
constexpr Argument kSchedule[] = {
    {"state", Kind::inputFile}, {"minutes", Kind::minutes}, {"due or not-due", Kind::choice, L"due", L"not-due"}};
constexpr Argument kScheduleOptional[] = {{"priority", Kind::text}};
constexpr Argument kNotes[] = {kManifest, kLanguage, {"expected title or --none", Kind::text}};
constexpr Argument kNotesOptional[] = {{"bullets", Kind::text}};
constexpr Argument kMetadata[] = {kManifest, kLanguage, {"expected priority", Kind::text}, {"flags", Kind::flags}};
constexpr Argument kOrder[] = {kManifest, kLanguage, {"first", Kind::text}, {"second", Kind::text}};
constexpr Argument kProduction[] = {{"file", Kind::inputFile},
                                    {"valid or invalid", Kind::choice, L"valid", L"invalid"}};
constexpr Argument kAggregate[] = {
    {"a", Kind::number}, {"b", Kind::number}, {"ok or overflow", Kind::choice, L"ok", L"overflow"}};
constexpr Argument kLanguageOnly[] = {kLanguage};
constexpr Argument kBitmapOnly[] = {kBitmap};
constexpr Argument kVersionOnly[] = {kVersion};
constexpr Argument kPrompt[] = {kManifest, kLanguage, kBitmap};
constexpr Argument kProgress[] = {
    kManifest, kLanguage, kBitmap, kVersion, {"completed", Kind::number}, {"total", Kind::number}};
constexpr Argument kRepair[] = {kLanguage, kBitmap, kVersion};
constexpr Argument kMilliseconds[] = {{"ms", Kind::text}};
constexpr std::span<const Argument> kNone = {};

constexpr FailureCode kHandoffCodes[] = {{1311, "a check failed, or bad arguments"}};
constexpr FailureCode kContractCodes[] = {{1310, "a check failed"}};
constexpr FailureCode kTransferCodes[] = {{1313, "cancelled"}, {1314, "failed, or bad arguments"}};
constexpr FailureCode kLoopbackCodes[] = {
    {1312, "bad size or other bad arguments"}, {1313, "cancelled"}, {1314, "failed"}};
constexpr FailureCode kInstallCodes[] = {{1317, "the outcome is not `Applied`, or bad arguments"}};
constexpr FailureCode kUpdateCodes[] = {{1317, "the outcome is neither `Applied` nor `UpToDate`, or bad arguments"}};
constexpr FailureCode kScheduleCodes[] = {{30, "decided otherwise, or bad arguments"}};
constexpr FailureCode kNotesCodes[] = {{31, "other notes, or bad arguments"}};
constexpr FailureCode kMetadataCodes[] = {{38, "other priority or emphasis, or bad arguments"}};
constexpr FailureCode kOrderCodes[] = {{36, "another order, or bad arguments"}};
constexpr FailureCode kProductionCodes[] = {{35, "bad arguments"}, {37, "the other verdict"}};
constexpr FailureCode kAggregateCodes[] = {{38, "the other verdict, or bad arguments"}};
constexpr FailureCode kModelCodes[] = {{41, "a sequence failed"}};
constexpr FailureCode kProgressCodes[] = {{43, "not passed, or bad arguments"}};
constexpr FailureCode kResponsiveCodes[] = {{42, "the window did not answer"}};
constexpr FailureCode kPictureCodes[] = {
    {32, "notes unreadable"}, {33, "window failed"}, {34, "capture failed"}, {35, "bad arguments"}};
constexpr FailureCode kRepairCodes[] = {{34, "window or capture failed"}, {35, "bad arguments"}};
constexpr FailureCode kSettingsCodes[] = {{3, "bad settings"}, {39, "folder present"}};
constexpr std::span<const FailureCode> kNoCodes = {};

constexpr Command kCommands[] = {
    {CommandId::failureHandoff, L"--launcher-failure-handoff-self-test", kNone, kHandoffOptional, false, 1311,
     kHandoffCodes,
     "the failure views, in the language of the user or in the one given; into an existing folder go "
     "`failure-inline.bmp`, `failure-hover.bmp` and `failure-safe.bmp`",
     "LAUNCHER_FAILURE_HANDOFF_PASS safe_nonmodal=1 unsafe_blocked=1 inline_no_dialog=1 byte_units=1 "
     "stall_clears_speed=1"},
    {CommandId::downloadContract, L"--launcher-download-contract-self-test", kNone, kNone, false, 1310, kContractCodes,
     "the download engine's reading of Content-Range and ETag, and its words for speeds",
     "LAUNCHER_DOWNLOAD_CONTRACT_PASS checks=N (or ..._FAIL)"},
    {CommandId::sourceSession, L"--launcher-source-session-self-test", kSession, kNone, false, 1314, kTransferCodes,
     "two transfers, into `payload-0` and `payload-1` of the cache, that share what they learn about their sources",
     "SESSION_RESULT file=N success=0|1 canceled=0|1 preference=0|1|2, once for each"},
    {CommandId::downloadMirror, L"--launcher-download-mirror-self-test", kMirror, kNone, false, 1314, kTransferCodes,
     "one transfer from two sources; they are compared as in an update, or, "
     "with a window other than 0, 100 ms after the first byte and over that window",
     "MIRROR_RESULT success=0|1 canceled=0|1 http=N; for each report MIRROR_OBSERVATION phase=N bytes=N backup=0|1 "
     "slow=0|1"},
    {CommandId::backupInstall, L"--launcher-r2-install-self-test", kBackupInstall, kNone, false, 1317, kInstallCodes,
     "the whole workflow on a folder, against the manifest of the backup host, as if the user had said yes",
     "R2_INSTALL_RESULT outcome=N safe=0|1"},
    {CommandId::backupUpdate, L"--launcher-r2-update-self-test", kBackupUpdate, kNone, false, 1317, kUpdateCodes,
     "the whole workflow on a folder, in verification mode, with these two manifests",
     "R2_UPDATE_RESULT outcome=N safe=0|1"},
    {CommandId::downloadLoopback, L"--launcher-download-loopback-self-test", kLoopback, kNone, false, 1312,
     kLoopbackCodes, "one transfer from one source, plain http from 127.0.0.1 allowed",
     "DOWNLOAD_RESULT success=0|1 canceled=0|1 attempts=N http=N os=N; for each report DOWNLOAD_OBSERVATION phase=N "
     "bytes=N network=N attempt=N rate=N.NNN restarted=0|1"},
    {CommandId::updateSchedule, L"--launcher-update-schedule-self-test", kSchedule, kScheduleOptional, false, 30,
     kScheduleCodes, "the schedule's decision for a state file; the priority is `normal` unless given", ""},
    {CommandId::releaseNotes, L"--launcher-release-notes-self-test", kNotes, kNotesOptional, true, 31, kNotesCodes,
     "the choice of notes for a language; all bullets in order, if any are given", ""},
    {CommandId::updateMetadata, L"--launcher-update-metadata-self-test", kMetadata, kNone, false, 38, kMetadataCodes,
     "priority and emphasis; the flags are one `0` or `1` for each card from the top", ""},
    {CommandId::notesOrder, L"--launcher-update-ui-order-self-test", kOrder, kNone, false, 36, kOrderCodes,
     "the first two cards of the notes in the window", ""},
    {CommandId::productionManifest, L"--launcher-update-production-manifest-self-test", kProduction, kNone, false, 35,
     kProductionCodes, "the rules for a published manifest", ""},
    {CommandId::aggregate, L"--launcher-update-aggregate-self-test", kAggregate, kNone, false, 38, kAggregateCodes,
     "the sum of two sizes", ""},
    {CommandId::progressModel, L"--launcher-update-progress-model-self-test", kNone, kNone, false, 41, kModelCodes,
     "sequences of events on a new progress model",
     "UPDATE_PROGRESS_MODEL phase_changes=0|1 multiple_assets=0|1 unknown_total=0|1 stale_events=0|1 extraction=0|1 "
     "per_file_verification=0|1 no_transfer_install=0|1 cancel_terminal=0|1 mixed_total=0|1 passed=0|1"},
    {CommandId::verificationProgress, L"--launcher-verification-progress-self-test", kLanguageOnly, kBitmapOnly, false,
     43, kProgressCodes, "a worker that reports thousands of checked files to the window; then a picture, if wanted",
     "VERIFICATION_UI attempted=N updates=N intermediate=N progress_paints=N window_paints=N owner_thread=0|1 "
     "final_percent=N passed=0|1"},
    {CommandId::responsive, L"--launcher-update-responsive-self-test", kNone, kNone, false, 42, kResponsiveCodes,
     "the window while a worker sleeps", ""},
    {CommandId::promptPicture, L"--launcher-update-ui-screenshot", kPrompt, kVersionOnly, false, 35, kPictureCodes,
     "a picture of the prompt; the version is the installed one", ""},
    {CommandId::progressPicture, L"--launcher-update-progress-ui-screenshot", kProgress, kNone, false, 35,
     kPictureCodes, "a picture of the progress view; `completed` is at most `total`", ""},
    {CommandId::repairPicture, L"--launcher-repair-ui-screenshot", kRepair, kNone, false, 35, kRepairCodes,
     "a picture of a repair", ""},
    {CommandId::launcherSettings, L"--launcher-self-test", kNone, kNone, false, 3, kSettingsCodes,
     "the launcher's own settings file, and that no update folder stands beside it", ""},
    {CommandId::holdLock, L"--launcher-hold-lock-self-test", kMilliseconds, kNone, false, 0, kNoCodes,
     "a launcher that runs for a while once recovery and settings are done: 100 to 10000 ms, 1000 for no number; a "
     "running program keeps its file from being replaced",
     ""},
};

constexpr bool TableIsInOrder() {
    if (std::size(kCommands) != kCommandCount) return false;
    for (std::size_t index = 0; index < kCommandCount; ++index) {
        if (static_cast<std::size_t>(kCommands[index].id) != index) return false;
    }
    return true;
}
static_assert(TableIsInOrder(), "a command is missing or out of place");

constexpr bool NamesDiffer() {
    for (const Command& command : kCommands) {
        if (std::count_if(std::begin(kCommands), std::end(kCommands),
                          [&](const Command& other) { return other.name == command.name; }) != 1) {
            return false;
        }
    }
    return true;
}
static_assert(NamesDiffer(), "two commands have one name");

constexpr WorkflowCommand kWorkflowCommands[] = {
    {L"--launcher-update-self-test", 1, WorkflowCommand::Effect::observe, "<manifest>",
     "the whole workflow in verification mode"},
    {L"--launcher-update-cancel-self-test", 1, WorkflowCommand::Effect::cancel, "<manifest>",
     "the same, cancelled as soon as bytes of a payload have come"},
    {L"--launcher-update-crash-after-first-apply-self-test", 2, WorkflowCommand::Effect::crash, "<manifest> <marker>",
     "the same, standing still for ever once the first file is replaced: `marker` then holds `first-target-applied`, "
     "and a driver can kill the process and let the next start recover"},
    {L"--launcher-normal-launch-update-self-test", 1, WorkflowCommand::Effect::launch, "<manifest>",
     "the workflow in verification mode without a window, and then what a normal run does with its result"},
};

// Of `GetDriveTypeW`; drives of the network and optical ones are refused.
constexpr std::uint32_t kRemovableDrive = 2;
constexpr std::uint32_t kFixedDrive = 3;
constexpr std::uint32_t kRamDrive = 6;

bool CountFits(const Command& command, std::size_t values) {
    const std::size_t least = command.required.size();
    const std::size_t most = least + command.optional.size();
    return values == least || values == most || (command.repeats && values > most);
}

bool IsMinutes(std::wstring_view value) {
    const auto minutes = launcher_download::ParseDecimal(value);
    return minutes && *minutes >= 1 && *minutes <= static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max());
}

}  // namespace

std::span<const Command> Commands() {
    return kCommands;
}

const Command* FindCommand(std::span<const std::wstring> arguments) {
    if (arguments.empty()) return nullptr;
    const auto* const found = std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& command) {
        return command.name == arguments.front() && CountFits(command, arguments.size() - 1);
    });
    return found != std::end(kCommands) ? found : nullptr;
}

const Argument& ArgumentAt(const Command& command, std::size_t index) {
    if (index < command.required.size()) return command.required[index];
    return command.optional[std::min(index - command.required.size(), command.optional.size() - 1)];
}

bool IsPath(const Argument& argument, std::wstring_view value) {
    switch (argument.kind) {
        case Kind::inputFile:
        case Kind::newBitmap:
        case Kind::folder:
        case Kind::outputFolder:
        case Kind::localPath:
            return true;
        case Kind::location:
            return value.find(L"://") == std::wstring_view::npos;
        default:
            return false;
    }
}

bool AcceptText(const Argument& argument, std::wstring_view value) {
    switch (argument.kind) {
        case Kind::language:
            return product::LanguageOfTag(value).has_value();
        case Kind::version:
            return IsDottedVersion(value);
        case Kind::number:
            return launcher_download::ParseDecimal(value).has_value();
        case Kind::minutes:
            return IsMinutes(value);
        case Kind::choice:
            return value == argument.first || value == argument.second;
        case Kind::flags:
            return value.find_first_not_of(L"01") == std::wstring_view::npos;
        default:
            return true;
    }
}

std::uint64_t NumberIn(std::wstring_view value) {
    return launcher_download::ParseDecimal(value).value_or(0);
}

bool BeginsWithDrive(std::wstring_view path) {
    if (path.size() < 3 || path[1] != L':' || (path[2] != L'\\' && path[2] != L'/')) return false;
    const wchar_t drive = platform::ToLowerUnit(path[0]);
    return drive >= L'a' && drive <= L'z';
}

bool AcceptPath(ArgumentKind kind, std::wstring_view value, const PathArgument& path) {
    using launcher_update::Presence;
    const bool local =
        path.driveType == kRemovableDrive || path.driveType == kFixedDrive || path.driveType == kRamDrive;
    if (!BeginsWithDrive(value) || !local) return false;
    const Presence presence = path.facts.presence;
    switch (kind) {
        case Kind::inputFile:
            return presence == Presence::present && launcher_update::IsPlainFile(path.facts.attributes);
        case Kind::newBitmap:
            return presence == Presence::absent && platform::EndsWithIgnoringCase(value, L".bmp");
        case Kind::folder:
            return presence == Presence::present && launcher_update::IsRealDirectory(path.facts.attributes);
        case Kind::outputFolder:
            return presence == Presence::absent ||
                   (presence == Presence::present && launcher_update::IsRealDirectory(path.facts.attributes));
        default:
            return true;
    }
}

std::span<const WorkflowCommand> WorkflowCommands() {
    return kWorkflowCommands;
}

}  // namespace launcher_shell
