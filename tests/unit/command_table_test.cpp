#include "launcher/verification/command_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"

namespace launcher_shell {
namespace {

using launcher_update::kDirectoryBit;
using launcher_update::kNoAttributes;
using launcher_update::kReparsePointBit;
using launcher_update::Presence;
using Arguments = std::vector<std::wstring>;
using Kind = ArgumentKind;

// The commands, written down a second time.

struct Value {
    const char* name;
    Kind kind;
};

struct Row {
    CommandId id;
    const wchar_t* name;
    std::vector<std::size_t> counts;  // of arguments with the program's own name; the last may be `kAndMore`
    std::vector<Value> values;        // the optional ones at the end
    int badArguments;
    std::vector<int> failures;
};

constexpr std::size_t kAndMore = 1000;

constexpr Value kManifest = {"manifest", Kind::inputFile};
constexpr Value kLanguage = {"language", Kind::language};
constexpr Value kBitmap = {"bitmap", Kind::newBitmap};
constexpr Value kSize = {"size", Kind::number};
constexpr Value kSha256 = {"sha256", Kind::text};
constexpr Value kCache = {"cache", Kind::localPath};
constexpr Value kCancelAt = {"cancel at", Kind::number};
constexpr Value kProductVersion = {"productVersion", Kind::version};
constexpr Value kVersion = {"version", Kind::version};
constexpr Value kRoot = {"root", Kind::folder};

const std::vector<Row>& Table() {
    static const std::vector<Row> kTable = {
        {CommandId::failureHandoff,
         L"--launcher-failure-handoff-self-test",
         {2, 4},
         {kLanguage, {"folder", Kind::outputFolder}},
         1311,
         {1311}},
        {CommandId::downloadContract, L"--launcher-download-contract-self-test", {2}, {}, 1310, {1310}},
        {CommandId::sourceSession,
         L"--launcher-source-session-self-test",
         {10},
         {{"url1", Kind::text},
          {"backup1", Kind::text},
          {"url2", Kind::text},
          {"backup2", Kind::text},
          kSize,
          kSha256,
          kCache,
          kCancelAt},
         1314,
         {1313, 1314}},
        {CommandId::downloadMirror,
         L"--launcher-download-mirror-self-test",
         {9},
         {{"url", Kind::text}, {"backup", Kind::text}, kSize, kSha256, kCache, kCancelAt, {"window ms", Kind::number}},
         1314,
         {1313, 1314}},
        {CommandId::backupInstall, L"--launcher-r2-install-self-test", {4}, {kRoot, kProductVersion}, 1317, {1317}},
        {CommandId::backupUpdate,
         L"--launcher-r2-update-self-test",
         {6},
         {kRoot, {"manifest", Kind::location}, {"backup manifest", Kind::location}, kProductVersion},
         1317,
         {1317}},
        {CommandId::downloadLoopback,
         L"--launcher-download-loopback-self-test",
         {7},
         {{"url", Kind::text}, kSize, kSha256, kCache, kCancelAt},
         1312,
         {1312, 1313, 1314}},
        {CommandId::updateSchedule,
         L"--launcher-update-schedule-self-test",
         {5, 6},
         {{"state", Kind::inputFile},
          {"minutes", Kind::minutes},
          {"due or not-due", Kind::choice},
          {"priority", Kind::text}},
         30,
         {30}},
        {CommandId::releaseNotes,
         L"--launcher-release-notes-self-test",
         {5, kAndMore},
         {kManifest, kLanguage, {"expected title or --none", Kind::text}, {"bullets", Kind::text}},
         31,
         {31}},
        {CommandId::updateMetadata,
         L"--launcher-update-metadata-self-test",
         {6},
         {kManifest, kLanguage, {"expected priority", Kind::text}, {"flags", Kind::flags}},
         38,
         {38}},
        {CommandId::notesOrder,
         L"--launcher-update-ui-order-self-test",
         {6},
         {kManifest, kLanguage, {"first", Kind::text}, {"second", Kind::text}},
         36,
         {36}},
        {CommandId::productionManifest,
         L"--launcher-update-production-manifest-self-test",
         {4},
         {{"file", Kind::inputFile}, {"valid or invalid", Kind::choice}},
         35,
         {35, 37}},
        {CommandId::aggregate,
         L"--launcher-update-aggregate-self-test",
         {5},
         {{"a", Kind::number}, {"b", Kind::number}, {"ok or overflow", Kind::choice}},
         38,
         {38}},
        {CommandId::progressModel, L"--launcher-update-progress-model-self-test", {2}, {}, 41, {41}},
        {CommandId::verificationProgress,
         L"--launcher-verification-progress-self-test",
         {3, 4},
         {kLanguage, kBitmap},
         43,
         {43}},
        {CommandId::responsive, L"--launcher-update-responsive-self-test", {2}, {}, 42, {42}},
        {CommandId::promptPicture,
         L"--launcher-update-ui-screenshot",
         {5, 6},
         {kManifest, kLanguage, kBitmap, kVersion},
         35,
         {32, 33, 34, 35}},
        {CommandId::progressPicture,
         L"--launcher-update-progress-ui-screenshot",
         {8},
         {kManifest, kLanguage, kBitmap, kVersion, {"completed", Kind::number}, {"total", Kind::number}},
         35,
         {32, 33, 34, 35}},
        {CommandId::repairPicture,
         L"--launcher-repair-ui-screenshot",
         {5},
         {kLanguage, kBitmap, kVersion},
         35,
         {34, 35}},
        {CommandId::launcherSettings, L"--launcher-self-test", {2}, {}, 3, {3, 39}},
        {CommandId::holdLock, L"--launcher-hold-lock-self-test", {3}, {{"ms", Kind::text}}, 0, {}},
    };
    return kTable;
}

std::string Named(const Row& row) {
    return platform::EncodeUtf8(row.name);
}

bool Counts(const Row& row, std::size_t count) {
    if (std::find(row.counts.begin(), row.counts.end(), count) != row.counts.end()) return true;
    return row.counts.back() == kAndMore && count > row.counts.front();
}

/// The command for a name and as many values as make `count`, the program counted too.
const Command* Find(const std::wstring& name, std::size_t count) {
    Arguments arguments(count - 1, L"value");
    arguments[0] = name;
    return FindCommand(arguments);
}

TEST(CommandTable, ItsRows_AreTheCommandsInTheirOrder) {
    const auto commands = Commands();
    ASSERT_EQ(commands.size(), Table().size());
    ASSERT_EQ(commands.size(), kCommandCount);
    for (std::size_t index = 0; index < commands.size(); ++index) {
        const Row& row = Table()[index];
        EXPECT_EQ(commands[index].id, row.id) << Named(row);
        EXPECT_EQ(commands[index].name, row.name) << Named(row);
    }
}

TEST(CommandTable, EveryCommand_IsFoundByItsNameAndExactCountsOnly) {
    for (const Row& row : Table()) {
        for (std::size_t count = 2; count <= 40; ++count) {
            const Command* const found = Find(row.name, count);
            EXPECT_EQ(found != nullptr, Counts(row, count)) << Named(row) << " with " << count;
            if (found != nullptr) {
                EXPECT_EQ(found->id, row.id) << Named(row);
            }
        }
    }
}

TEST(CommandTable, NamesThatDiffer_AreNoCommands) {
    for (const Row& row : Table()) {
        const std::wstring name = row.name;
        for (const std::wstring& other :
             {name + L' ', L' ' + name, name.substr(1), name.substr(0, name.size() - 1), name + L'2',
              L"--Launcher" + name.substr(10), std::wstring(name).append(1, L'\0'), std::wstring()}) {
            for (std::size_t count = 2; count <= 12; ++count)
                EXPECT_EQ(Find(other, count), nullptr) << platform::EncodeUtf8(other);
        }
    }
}

TEST(CommandTable, NoArguments_AreNoCommand) {
    EXPECT_EQ(FindCommand({}), nullptr);
}

TEST(CommandTable, OnlyTheFirstArgument_CanBeACommand) {
    EXPECT_EQ(FindCommand(Arguments{L"--flag", L"--launcher-self-test"}), nullptr);
    EXPECT_EQ(FindCommand(Arguments{L"--launcher-self-test", L"--flag"}), nullptr);
}

TEST(CommandTable, EveryValue_HasItsNameAndKind) {
    for (const Row& row : Table()) {
        const Command* const command = Find(row.name, row.counts[0]);
        ASSERT_NE(command, nullptr);
        ASSERT_EQ(command->required.size() + command->optional.size(), row.values.size()) << Named(row);
        for (std::size_t index = 0; index < row.values.size(); ++index) {
            const Argument& argument = ArgumentAt(*command, index);
            EXPECT_STREQ(argument.name, row.values[index].name) << Named(row);
            EXPECT_EQ(argument.kind, row.values[index].kind) << Named(row) << ' ' << argument.name;
        }
    }
}

TEST(CommandTable, RepeatedValues_AreAllOfTheLastKind) {
    const Command* const notes = Find(L"--launcher-release-notes-self-test", 12);
    ASSERT_NE(notes, nullptr);
    for (std::size_t index = 3; index < 20; ++index)
        EXPECT_STREQ(ArgumentAt(*notes, index).name, "bullets");
}

TEST(CommandTable, EveryCommand_HasItsExitCodes) {
    for (const Row& row : Table()) {
        const Command* const command = Find(row.name, row.counts[0]);
        ASSERT_NE(command, nullptr);
        EXPECT_EQ(command->badArguments, row.badArguments) << Named(row);
        std::vector<int> codes;
        for (const FailureCode& failure : command->failures)
            codes.push_back(failure.code);
        EXPECT_EQ(codes, row.failures) << Named(row);
    }
}

TEST(CommandTable, Choices_OfferTheirTwoWords) {
    struct Choice {
        const wchar_t* command;
        std::size_t count;
        std::size_t index;
        std::wstring_view first;
        std::wstring_view second;
    };
    for (const Choice& choice : {Choice{L"--launcher-update-schedule-self-test", 5, 2, L"due", L"not-due"},
                                 Choice{L"--launcher-update-production-manifest-self-test", 4, 1, L"valid", L"invalid"},
                                 Choice{L"--launcher-update-aggregate-self-test", 5, 2, L"ok", L"overflow"}}) {
        const Argument& argument = ArgumentAt(*Find(choice.command, choice.count), choice.index);
        EXPECT_EQ(argument.first, choice.first);
        EXPECT_EQ(argument.second, choice.second);
    }
}

TEST(CommandTable, WorkflowCommands_TakeOneManifestAndTheCrashItsMarkerToo) {
    using Effect = WorkflowCommand::Effect;
    struct Workflow {
        std::wstring_view name;
        std::size_t values;
        Effect effect;
        std::string_view arguments;
    };
    constexpr Workflow kExpected[] = {
        {L"--launcher-update-self-test", 1, Effect::observe, "<manifest>"},
        {L"--launcher-update-cancel-self-test", 1, Effect::cancel, "<manifest>"},
        {L"--launcher-update-crash-after-first-apply-self-test", 2, Effect::crash, "<manifest> <marker>"},
        {L"--launcher-normal-launch-update-self-test", 1, Effect::launch, "<manifest>"},
    };
    const auto commands = WorkflowCommands();
    ASSERT_EQ(commands.size(), std::size(kExpected));
    for (std::size_t index = 0; index < commands.size(); ++index) {
        EXPECT_EQ(commands[index].name, kExpected[index].name);
        EXPECT_EQ(commands[index].values, kExpected[index].values);
        EXPECT_EQ(commands[index].effect, kExpected[index].effect);
        EXPECT_EQ(commands[index].arguments, kExpected[index].arguments);
    }
}

// --- Texts ---

struct TextRow {
    Argument argument;
    std::vector<std::wstring> accepted;
    std::vector<std::wstring> refused;
};

TEST(AcceptText, EveryKind_TakesWhatItMust) {
    const std::wstring nul = std::wstring(L"1").append(1, L'\0');
    const TextRow kRows[] = {
        {{"text", Kind::text}, {L"", L"x", L"--none", L"日本"}, {}},
        {{"language", Kind::language},
         {L"en", L"zh-TW", L"zh-CN", L"ja", L"ko", L"EN", L"eN", L"ZH-tw", L"zh-cn", L"Ja", L"KO"},
         {L"", L"e", L"zh", L"en-US", L"zh-HK", L"zh_TW", L" en", L"en ", L"jp", L"kor", L"\x212Ao", L"enzh-TW"}},
        {{"version", Kind::version},
         {L"1.2.3.4", L"0.0.0.0", L"65535.65535.65535.65535", L"01.2.3.4"},
         {L"", L"1", L"1.2.3", L"1.2.3.4.5", L"1.2.3.", L".1.2.3", L"1..2.3", L"1.2.3.65536", L"65536.0.0.0",
          L"1.2.3.4 ", L" 1.2.3.4", L"v1.2.3.4", L"1.2.3.-4", L"1.2.3.4a", L"1,2,3,4", L"\xFF11.2.3.4"}},
        {{"number", Kind::number},
         {L"0", L"7", L"0050", L"18446744073709551615"},
         {L"", L" ", L" 1", L"1 ", L"+1", L"-1", L"-0", L"1.0", L"1e3", L"0x10", L"1,000", L"\xFF11",
          L"18446744073709551616", L"99999999999999999999", L"184467440737095516150", nul}},
        {{"minutes", Kind::minutes},
         {L"1", L"15", L"2147483647"},
         {L"", L"0", L"00", L"-1", L"+1", L"1.5", L" 1", L"1 ", L"2147483648", L"4294967297", L"18446744073709551616",
          L"x"}},
        {{"choice", Kind::choice, L"due", L"not-due"},
         {L"due", L"not-due"},
         {L"", L"Due", L"NOT-DUE", L"due ", L" due", L"not", L"duenot-due", L"ok"}},
        {{"flags", Kind::flags}, {L"", L"0", L"1", L"0110"}, {L"2", L"012", L" 01", L"01 ", L"x", L"0-1", L"\xFF11"}},
    };
    for (const TextRow& row : kRows) {
        for (const std::wstring& value : row.accepted)
            EXPECT_TRUE(AcceptText(row.argument, value)) << row.argument.name << ' ' << platform::EncodeUtf8(value);
        for (const std::wstring& value : row.refused)
            EXPECT_FALSE(AcceptText(row.argument, value)) << row.argument.name << ' ' << platform::EncodeUtf8(value);
    }
}

TEST(NumberIn, ItsDigits_AreRead) {
    EXPECT_EQ(NumberIn(L"0"), 0u);
    EXPECT_EQ(NumberIn(L"0050"), 50u);
    EXPECT_EQ(NumberIn(L"18446744073709551615"), 0xFFFFFFFFFFFFFFFFu);
}

// --- Paths ---

TEST(IsPath, PathsAreAskedOfWindows_AndNothingElse) {
    for (const Kind kind : {Kind::inputFile, Kind::newBitmap, Kind::folder, Kind::outputFolder, Kind::localPath}) {
        for (const wchar_t* value : {L"C:\\x", L"x", L"", L"https://h.example/x"})
            EXPECT_TRUE(IsPath({"path", kind}, value));
    }
    for (const Kind kind :
         {Kind::text, Kind::language, Kind::version, Kind::number, Kind::minutes, Kind::choice, Kind::flags}) {
        for (const wchar_t* value : {L"C:\\x", L"x", L"", L"https://h.example/x"})
            EXPECT_FALSE(IsPath({"text", kind}, value));
    }
}

TEST(IsPath, ALocation_IsAPathUnlessItIsAnAddress) {
    const Argument location = {"manifest", Kind::location};
    for (const wchar_t* value : {L"https://h.example/x", L"HTTPS://h", L"http://127.0.0.1/x", L"file://x"}) {
        EXPECT_FALSE(IsPath(location, value));
        EXPECT_TRUE(AcceptText(location, value)) << "the workflow judges addresses";
    }
    for (const wchar_t* value : {L"C:\\x", L"C:/x", L"x", L"", L"\\\\server\\share\\x", L"https:/h.example"})
        EXPECT_TRUE(IsPath(location, value));
}

TEST(BeginsWithDrive, TakesLetterColonAndSeparator) {
    for (const wchar_t* path : {L"C:\\", L"c:/", L"A:\\x", L"z:/x", L"Z:\\a\\b.txt"})
        EXPECT_TRUE(BeginsWithDrive(path)) << platform::EncodeUtf8(path);
    for (const wchar_t* path : {L"",
                                L"C",
                                L"C:",
                                L"C:x",
                                L"C\\:",
                                L"\\C:\\",
                                L" C:\\",
                                L"1:\\x",
                                L"@:\\x",
                                L"[:\\x",
                                L"`:\\x",
                                L"{:\\x",
                                L"\xC4:\\x",
                                L"\\\\server\\share",
                                L"\\\\?\\C:\\x",
                                L"\\x",
                                L"/x",
                                L"x",
                                L"CC:\\x",
                                L"C;\\x",
                                L"C:|x",
                                L"https://h.example/x",
                                L"\x212A:\\x"})
        EXPECT_FALSE(BeginsWithDrive(path)) << platform::EncodeUtf8(path);
}

// What `GetDriveTypeW` says: unknown, no root, removable, fixed, network, optical, RAM.
constexpr std::uint32_t kDriveTypes[] = {0, 1, 2, 3, 4, 5, 6};
constexpr std::uint32_t kFixed = 3;

constexpr bool IsLocal(std::uint32_t driveType) {
    return driveType == 2 || driveType == 3 || driveType == 6;
}

constexpr std::uint32_t kFile = 0x20;  // the archive bit alone
constexpr std::uint32_t kFacts[] = {0,
                                    kFile,
                                    0x1 | 0x2 | 0x4,
                                    kDirectoryBit,
                                    kDirectoryBit | 0x1,
                                    kReparsePointBit,
                                    kReparsePointBit | kFile,
                                    kReparsePointBit | kDirectoryBit,
                                    kNoAttributes};

bool IsFile(std::uint32_t attributes) {
    return attributes != kNoAttributes && (attributes & (kDirectoryBit | kReparsePointBit)) == 0;
}

bool IsFolder(std::uint32_t attributes) {
    return attributes != kNoAttributes && (attributes & kDirectoryBit) != 0 && (attributes & kReparsePointBit) == 0;
}

/// What must become of a well-formed path ending in ".bmp".
bool Expected(Kind kind, std::uint32_t driveType, Presence presence, std::uint32_t attributes) {
    if (!IsLocal(driveType)) return false;
    const bool present = presence == Presence::present;
    switch (kind) {
        case Kind::inputFile:
            return present && IsFile(attributes);
        case Kind::newBitmap:
            return presence == Presence::absent;
        case Kind::folder:
            return present && IsFolder(attributes);
        case Kind::outputFolder:
            return presence == Presence::absent || (present && IsFolder(attributes));
        default:
            return true;
    }
}

constexpr Kind kPathKinds[] = {Kind::inputFile,    Kind::newBitmap, Kind::folder,
                               Kind::outputFolder, Kind::localPath, Kind::location};

TEST(AcceptPath, EveryDriveAndEverythingThatMayStandThere_IsJudged) {
    for (const Kind kind : kPathKinds) {
        for (const std::uint32_t driveType : kDriveTypes) {
            for (const Presence presence : {Presence::absent, Presence::present, Presence::unknown}) {
                for (const std::uint32_t attributes : kFacts) {
                    EXPECT_EQ(AcceptPath(kind, L"C:\\a\\b.bmp", {driveType, {presence, attributes}}),
                              Expected(kind, driveType, presence, attributes))
                        << "kind " << static_cast<int>(kind) << ", drive " << driveType << ", presence "
                        << static_cast<int>(presence) << ", attributes " << attributes;
                }
            }
        }
    }
}

TEST(AcceptPath, APathThatIsNotAbsoluteOnADrive_IsRefusedWhateverStandsThere) {
    for (const Kind kind : kPathKinds) {
        for (const wchar_t* path : {L"", L"b.bmp", L"a\\b.bmp", L"\\a\\b.bmp", L"C:b.bmp", L"\\\\server\\share\\b.bmp",
                                    L"\\\\?\\C:\\b.bmp", L"//server/share/b.bmp"}) {
            for (const PathArgument& facts : {PathArgument{kFixed, {Presence::present, kFile}},
                                              PathArgument{kFixed, {Presence::present, kDirectoryBit}},
                                              PathArgument{kFixed, {Presence::absent, kNoAttributes}}}) {
                EXPECT_FALSE(AcceptPath(kind, path, facts)) << platform::EncodeUtf8(path);
            }
        }
    }
}

TEST(AcceptPath, ABitmap_EndsInItsExtensionInAnyCase) {
    const PathArgument free = {kFixed, {Presence::absent, kNoAttributes}};
    for (const wchar_t* path : {L"C:\\a.bmp", L"C:/a.BMP", L"C:\\a.b.Bmp", L"C:\\.bmp"})
        EXPECT_TRUE(AcceptPath(Kind::newBitmap, path, free)) << platform::EncodeUtf8(path);
    for (const wchar_t* path : {L"C:\\a", L"C:\\a.bm", L"C:\\abmp", L"C:\\a.bmp ", L"C:\\a.bmp.png", L"C:\\a.bmp\\",
                                L"C:\\a.bmpx", L"C:\\", L"C:\\bmp"})
        EXPECT_FALSE(AcceptPath(Kind::newBitmap, path, free)) << platform::EncodeUtf8(path);
}

TEST(AcceptPath, OtherPaths_NeedNoExtension) {
    EXPECT_TRUE(AcceptPath(Kind::inputFile, L"C:\\stable.json", {kFixed, {Presence::present, kFile}}));
    EXPECT_TRUE(AcceptPath(Kind::folder, L"C:\\", {kFixed, {Presence::present, kDirectoryBit}}));
    EXPECT_TRUE(AcceptPath(Kind::outputFolder, L"d:/pictures", {kFixed, {Presence::absent, kNoAttributes}}));
    EXPECT_TRUE(AcceptPath(Kind::localPath, L"C:\\cache", {kFixed, {Presence::absent, kNoAttributes}}));
}

}  // namespace
}  // namespace launcher_shell
