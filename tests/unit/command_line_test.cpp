#include "launcher/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace launcher_shell {
namespace {

using Arguments = std::vector<std::wstring>;

TEST(CommandLine, UnknownArguments_AreForwardedInOrder) {
    const CommandLine line =
        ReadCommandLine({L"a b", L"--check-for-updates", L"", L"--CHECK-for-updates", L"--skip-update-check=1"});
    EXPECT_TRUE(line.checkForUpdates);
    EXPECT_FALSE(line.skipUpdateCheck);
    EXPECT_EQ(line.forwardedArguments, (Arguments{L"a b", L"", L"--CHECK-for-updates", L"--skip-update-check=1"}));
}

TEST(CommandLine, SwitchesAreConsumedAnywhereAndRepeatedly) {
    const CommandLine line =
        ReadCommandLine({L"--skip-update-check", L"x", L"--check-for-updates", L"--skip-update-check"});
    EXPECT_TRUE(line.checkForUpdates);
    EXPECT_TRUE(line.skipUpdateCheck);
    EXPECT_EQ(line.forwardedArguments, Arguments{L"x"});
    EXPECT_FALSE(line.replacementMentioned);
}

TEST(CommandLine, CompleteReplacement_IsConsumed) {
    const CommandLine line = ReadCommandLine(
        {L"x", L"--install-launcher-update", L"target", L"--skip-update-check", L"1.0.0.0", L"digest", L"y"});
    ASSERT_TRUE(line.replacement.has_value());
    EXPECT_EQ(line.replacement->targetPath, L"target");
    EXPECT_EQ(line.replacement->configurationPath, L"--skip-update-check");
    EXPECT_EQ(line.replacement->version, L"1.0.0.0");
    EXPECT_EQ(line.replacement->sha256, L"digest");
    EXPECT_FALSE(line.skipUpdateCheck);
    EXPECT_TRUE(line.replacementMentioned);
    EXPECT_EQ(line.forwardedArguments, (Arguments{L"x", L"y"}));
}

TEST(CommandLine, ReplacementWithThreeValues_IsForwarded) {
    const CommandLine line = ReadCommandLine({L"--install-launcher-update", L"a", L"b", L"c"});
    EXPECT_FALSE(line.replacement.has_value());
    EXPECT_TRUE(line.replacementMentioned);
    EXPECT_EQ(line.forwardedArguments, (Arguments{L"--install-launcher-update", L"a", L"b", L"c"}));
}

TEST(CommandLine, RepeatedReplacement_TakesTheLast) {
    const CommandLine line = ReadCommandLine(
        {L"--install-launcher-update", L"a", L"b", L"c", L"d", L"--install-launcher-update", L"e", L"f", L"g", L"h"});
    ASSERT_TRUE(line.replacement.has_value());
    EXPECT_EQ(line.replacement->targetPath, L"e");
    EXPECT_TRUE(line.forwardedArguments.empty());
}

TEST(CommandLine, IncompleteRepetition_IsForwardedBehindTheCompleteOne) {
    const CommandLine line = ReadCommandLine(
        {L"--install-launcher-update", L"a", L"b", L"c", L"d", L"--install-launcher-update", L"e", L"f", L"g"});
    ASSERT_TRUE(line.replacement.has_value());
    EXPECT_EQ(line.replacement->targetPath, L"a");
    EXPECT_EQ(line.replacement->sha256, L"d");
    EXPECT_EQ(line.forwardedArguments, (Arguments{L"--install-launcher-update", L"e", L"f", L"g"}));
}

TEST(CommandLine, ReplacementInOtherLetters_IsForwarded) {
    const Arguments arguments = {L"--Install-launcher-update", L"a", L"b", L"c", L"d"};
    const CommandLine line = ReadCommandLine(arguments);
    EXPECT_FALSE(line.replacement.has_value());
    EXPECT_FALSE(line.replacementMentioned);
    EXPECT_EQ(line.forwardedArguments, arguments);
}

constexpr wchar_t kObserve[] = L"--launcher-update-self-test";
constexpr wchar_t kCancel[] = L"--launcher-update-cancel-self-test";
constexpr wchar_t kCrash[] = L"--launcher-update-crash-after-first-apply-self-test";
constexpr wchar_t kLaunch[] = L"--launcher-normal-launch-update-self-test";

TEST(CommandLine, NormalRun_HasNoVerification) {
    EXPECT_FALSE(ReadCommandLine({}).verification.has_value());
    EXPECT_FALSE(ReadCommandLine({L"--check-for-updates", L"m.json"}).verification.has_value());
}

TEST(CommandLine, EachWorkflowSwitch_HasItsOwnEffect) {
    struct Row {
        Arguments arguments;
        bool writesResult, cancels, crashes, forcesCheck;
    };
    for (const Row& row : {Row{{L"a", kObserve, L"m.json", L"b"}, true, false, false, false},
                           Row{{L"a", kCancel, L"m.json", L"b"}, true, true, false, false},
                           Row{{L"a", kCrash, L"m.json", L"marker", L"b"}, true, false, true, false},
                           Row{{L"a", kLaunch, L"m.json", L"b"}, false, false, false, true}}) {
        SCOPED_TRACE(testing::Message() << row.arguments[1].c_str());
        const CommandLine line = ReadCommandLine(row.arguments);
        ASSERT_TRUE(line.verification.has_value());
        EXPECT_EQ(line.verification->manifest, L"m.json");
        EXPECT_EQ(line.verification->writesResult, row.writesResult);
        EXPECT_EQ(line.verification->cancels, row.cancels);
        EXPECT_EQ(line.verification->crashMarker.value_or(L"none"), row.crashes ? L"marker" : L"none");
        EXPECT_EQ(line.verification->forcesCheck, row.forcesCheck);
        EXPECT_EQ(line.forwardedArguments, (Arguments{L"a", L"b"}));
        EXPECT_FALSE(line.checkForUpdates);
    }
}

TEST(CommandLine, WorkflowSwitchWithoutItsValues_IsForwarded) {
    for (const Arguments& arguments :
         {Arguments{kObserve}, Arguments{L"a", kCancel}, Arguments{kCrash}, Arguments{kCrash, L"m.json"},
          Arguments{kLaunch}, Arguments{L"--Launcher-update-self-test", L"m.json"},
          Arguments{L"--launcher-update-self-test=m.json", L"m.json"}}) {
        const CommandLine line = ReadCommandLine(arguments);
        EXPECT_FALSE(line.verification.has_value()) << arguments[0].c_str();
        EXPECT_EQ(line.forwardedArguments, arguments);
    }
}

TEST(CommandLine, ValuesOfAWorkflowSwitch_AreNotSwitchesThemselves) {
    const CommandLine line =
        ReadCommandLine({kCrash, L"--check-for-updates", kObserve, kObserve, L"--skip-update-check"});
    ASSERT_TRUE(line.verification.has_value());
    EXPECT_EQ(line.verification->crashMarker, kObserve);
    EXPECT_EQ(line.verification->manifest, L"--skip-update-check");
    EXPECT_FALSE(line.checkForUpdates);
    EXPECT_FALSE(line.skipUpdateCheck);
    EXPECT_TRUE(line.forwardedArguments.empty());
}

TEST(CommandLine, RepeatedWorkflowSwitch_TakesTheLastValues) {
    const CommandLine line =
        ReadCommandLine({kCrash, L"1.json", L"first", kCrash, L"2.json", L"second", kCrash, L"3.json"});
    ASSERT_TRUE(line.verification.has_value());
    EXPECT_EQ(line.verification->manifest, L"2.json");
    EXPECT_EQ(line.verification->crashMarker, L"second");
    EXPECT_EQ(line.forwardedArguments, (Arguments{kCrash, L"3.json"})) << "an incomplete repetition counts for nothing";
}

TEST(CommandLine, WorkflowSwitchesAddUp) {
    const CommandLine line = ReadCommandLine({kCrash, L"1.json", L"marker", kLaunch, L"2.json", kCancel, L"3.json",
                                              kObserve, L"4.json", L"--skip-update-check"});
    ASSERT_TRUE(line.verification.has_value());
    EXPECT_EQ(line.verification->manifest, L"4.json");
    EXPECT_EQ(line.verification->crashMarker, L"marker");
    EXPECT_TRUE(line.verification->writesResult && line.verification->cancels && line.verification->forcesCheck);
    EXPECT_TRUE(line.skipUpdateCheck);
}

TEST(CommandLine, WorkflowSwitchAndReplacement_DoNotTakeEachOthersValues) {
    const CommandLine line = ReadCommandLine({kObserve, L"m.json", L"--install-launcher-update", L"a", L"b", L"c"});
    EXPECT_TRUE(line.verification.has_value());
    EXPECT_FALSE(line.replacement.has_value());
    const CommandLine other = ReadCommandLine({L"--install-launcher-update", L"a", L"b", kObserve, L"m.json"});
    EXPECT_FALSE(other.verification.has_value());
    ASSERT_TRUE(other.replacement.has_value());
    EXPECT_EQ(other.replacement->version, kObserve);
}

TEST(CommandLine, Quoting_FollowsTheRuleForBackslashes) {
    struct Row {
        const wchar_t* text;
        const wchar_t* quoted;
    };
    for (const Row& row : {Row{L"", L"\"\""},
                           {L"plain", L"\"plain\""},
                           {L"a b", L"\"a b\""},
                           {L"a\"b", L"\"a\\\"b\""},
                           {L"a\\b", L"\"a\\b\""},
                           {L"a\\", L"\"a\\\\\""},
                           {L"a\\\\", L"\"a\\\\\\\\\""},
                           {L"a\\\"b", L"\"a\\\\\\\"b\""},
                           {L"\\\\server\\share\\", L"\"\\\\server\\share\\\\\""},
                           {L"\"", L"\"\\\"\""}}) {
        EXPECT_EQ(QuoteCommandLineArgument(row.text), row.quoted) << row.text;
    }
}

TEST(CommandLine, Built_HasOneBlankBetweenQuotedPieces) {
    EXPECT_EQ(BuildCommandLine(L"C:\\a b\\x.exe", {L"1", L""}), L"\"C:\\a b\\x.exe\" \"1\" \"\"");
    EXPECT_EQ(BuildCommandLine(L"x", {}), L"\"x\"");
}

}  // namespace
}  // namespace launcher_shell
