#include "launcher/verification/self_test_result.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace launcher_shell {
namespace {

using launcher_update::Outcome;
using launcher_update::Stage;

/// A result of one stage whose detail is this text, and what the line then is with `quoted` in its place.
std::wstring LineWithDetail(const std::wstring& detail) {
    SelfTestResult result;
    TraceStage(result, {Stage::Checking, detail, 0, 0});
    return RenderSelfTestResult(result);
}
std::wstring LineWithQuotedDetail(const std::wstring& quoted) {
    return L"{\"schemaVersion\":1,\"outcome\":\"Skipped\",\"safeToLaunch\":true,\"error\":\"\","
           L"\"verificationMutationAttempted\":false,\"verificationMutationSucceeded\":false,\"traceTruncated\":false,"
           L"\"stages\":[{\"stage\":\"Checking\",\"detail\":" +
           quoted + L",\"completed\":0,\"total\":0}]}\n";
}

TEST(SelfTestResult, NothingTold_IsALineWithNoStages) {
    EXPECT_EQ(RenderSelfTestResult({}),
              L"{\"schemaVersion\":1,\"outcome\":\"Skipped\",\"safeToLaunch\":true,\"error\":\"\","
              L"\"verificationMutationAttempted\":false,\"verificationMutationSucceeded\":false,"
              L"\"traceTruncated\":false,\"stages\":[]}\n");
}

TEST(SelfTestResult, EverythingTold_IsOneLineInFixedOrder) {
    SelfTestResult result;
    result.outcome = Outcome::Failed;
    result.safeToLaunch = false;
    result.error = L"更新檔的 SHA-256 驗證失敗。";
    result.mutationAttempted = true;
    result.mutationSucceeded = true;
    result.traceTruncated = true;
    result.stages = {{Stage::VerifyingFiles, L"", 0, std::numeric_limits<std::uint64_t>::max()},
                     {Stage::Downloading, L"package:runtime", 1, 2}};
    EXPECT_EQ(RenderSelfTestResult(result),
              L"{\"schemaVersion\":1,\"outcome\":\"Failed\",\"safeToLaunch\":false,"
              L"\"error\":\"更新檔的 SHA-256 驗證失敗。\",\"verificationMutationAttempted\":true,"
              L"\"verificationMutationSucceeded\":true,\"traceTruncated\":true,\"stages\":["
              L"{\"stage\":\"VerifyingFiles\",\"detail\":\"\",\"completed\":0,\"total\":18446744073709551615},"
              L"{\"stage\":\"Downloading\",\"detail\":\"package:runtime\",\"completed\":1,\"total\":2}]}\n");
}

TEST(SelfTestResult, EachFlagHasItsOwnPlace) {
    const auto render = [](auto change) {
        SelfTestResult result;
        change(result);
        return RenderSelfTestResult(result);
    };
    const auto line = [](const std::wstring& flags) {
        return L"{\"schemaVersion\":1,\"outcome\":\"Skipped\"," + flags + L",\"stages\":[]}\n";
    };
    EXPECT_EQ(render([](SelfTestResult& result) { result.safeToLaunch = false; }),
              line(L"\"safeToLaunch\":false,\"error\":\"\",\"verificationMutationAttempted\":false,"
                   L"\"verificationMutationSucceeded\":false,\"traceTruncated\":false"));
    EXPECT_EQ(render([](SelfTestResult& result) { result.mutationAttempted = true; }),
              line(L"\"safeToLaunch\":true,\"error\":\"\",\"verificationMutationAttempted\":true,"
                   L"\"verificationMutationSucceeded\":false,\"traceTruncated\":false"));
    EXPECT_EQ(render([](SelfTestResult& result) { result.mutationSucceeded = true; }),
              line(L"\"safeToLaunch\":true,\"error\":\"\",\"verificationMutationAttempted\":false,"
                   L"\"verificationMutationSucceeded\":true,\"traceTruncated\":false"));
    EXPECT_EQ(render([](SelfTestResult& result) { result.traceTruncated = true; }),
              line(L"\"safeToLaunch\":true,\"error\":\"\",\"verificationMutationAttempted\":false,"
                   L"\"verificationMutationSucceeded\":false,\"traceTruncated\":true"));
}

TEST(SelfTestResult, OutcomesHaveTheirNames) {
    struct Row {
        std::uint32_t number;
        const wchar_t* name;
    };
    for (const Row& row : {Row{0, L"Skipped"}, Row{1, L"UpToDate"}, Row{2, L"Declined"}, Row{3, L"Cancelled"},
                           Row{4, L"Applied"}, Row{5, L"LauncherTooOld"}, Row{6, L"Failed"}}) {
        SelfTestResult result;
        result.outcome = static_cast<Outcome>(row.number);
        const std::wstring begin = std::wstring(L"{\"schemaVersion\":1,\"outcome\":\"") + row.name + L"\",\"safe";
        EXPECT_TRUE(RenderSelfTestResult(result).starts_with(begin)) << row.number;
    }
}

TEST(SelfTestResult, StagesHaveTheirNames) {
    struct Row {
        std::uint32_t number;
        const wchar_t* name;
    };
    for (const Row& row :
         {Row{0, L"Checking"}, Row{1, L"Skipped"}, Row{2, L"UpToDate"}, Row{3, L"UpdateAvailable"},
          Row{4, L"Repairing"}, Row{5, L"Declined"}, Row{6, L"Downloading"}, Row{7, L"DownloadingBytes"},
          Row{8, L"Verifying"}, Row{9, L"Installing"}, Row{10, L"Completed"}, Row{11, L"Cancelled"}, Row{12, L"Failed"},
          Row{13, L"CheckingFiles"}, Row{14, L"VerifyingFiles"}, Row{15, L"Unknown"}, Row{16, L"Unknown"},
          Row{0xFFFFFFFF, L"Unknown"}}) {
        SelfTestResult result;
        TraceStage(result, {static_cast<Stage>(row.number), L"x", 1, 2});
        const std::wstring end = std::wstring(L"\"stages\":[{\"stage\":\"") + row.name +
                                 L"\",\"detail\":\"x\",\"completed\":1,\"total\":2}]}\n";
        EXPECT_TRUE(RenderSelfTestResult(result).ends_with(end)) << row.number;
    }
}

TEST(SelfTestResult, TextsAreQuoted) {
    struct Row {
        const wchar_t* text;
        const wchar_t* quoted;
    };
    for (const Row& row : {Row{L"", L"\"\""},
                           {L"C:\\a \"b\"", L"\"C:\\\\a \\\"b\\\"\""},
                           {L"\\", L"\"\\\\\""},
                           {L"a/b", L"\"a/b\""},
                           {L"one\r\ntwo\tthree", L"\"one\\u000d\\u000atwo\\u0009three\""},
                           {L"\x1f \x7f", L"\"\\u001f \x7f\""},
                           {L"已安全回復更新前版本。", L"\"已安全回復更新前版本。\""}}) {
        EXPECT_EQ(LineWithDetail(row.text), LineWithQuotedDetail(row.quoted)) << row.text;
        SelfTestResult result;
        result.error = row.text;
        EXPECT_NE(RenderSelfTestResult(result).find(std::wstring(L"\"error\":") + row.quoted + L",\"verification"),
                  std::wstring::npos)
            << row.text;
    }
}

TEST(SelfTestResult, EveryControlCharacterIsEscaped) {
    for (wchar_t unit = 0; unit < 0x20; ++unit) {
        const wchar_t* const digits = L"0123456789abcdef";
        const std::wstring escape = std::wstring(L"\\u00") + digits[unit / 16] + digits[unit % 16];
        EXPECT_EQ(LineWithDetail(std::wstring(1, unit)), LineWithQuotedDetail(L'"' + escape + L'"'))
            << static_cast<unsigned>(unit);
    }
}

/// Told that many stages, each with its number.
SelfTestResult ToldStages(std::size_t count) {
    SelfTestResult result;
    for (std::size_t number = 0; number < count; ++number) {
        TraceStage(result, {Stage::Verifying, L"", number, count});
    }
    return result;
}

TEST(SelfTestResult, TraceEndsWhereItsRoomEnds) {
    struct Row {
        std::size_t told;
        std::size_t kept;
        bool truncated;
    };
    for (const Row& row :
         {Row{4095, 4095, false}, Row{4096, 4096, false}, Row{4097, 4096, true}, Row{9000, 4096, true}}) {
        const SelfTestResult result = ToldStages(row.told);
        ASSERT_EQ(result.stages.size(), row.kept) << row.told;
        EXPECT_EQ(result.traceTruncated, row.truncated) << row.told;
        EXPECT_EQ(result.stages.front().completed, 0u);
        EXPECT_EQ(result.stages.back().completed, row.kept - 1) << "the first are kept, in order";
    }
}

}  // namespace
}  // namespace launcher_shell
