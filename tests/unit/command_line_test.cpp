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
