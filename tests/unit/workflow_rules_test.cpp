#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "update/workflow/payload_fetch.h"
#include "update/workflow/product_version.h"
#include "update/workflow/prompt_box.h"
#include "update/workflow/schedule.h"
#include "update/workflow/totals.h"

namespace launcher_update {
namespace {

constexpr std::int64_t kNow = 1700000000;

bool DueAfter(std::int64_t seconds, std::int32_t minutes) {
    return IsCheckDueAt(RenderUpdateState(kNow - seconds), minutes, kNow);
}

TEST(Schedule, StateFile_HasTheFixedForm) {
    EXPECT_EQ(RenderUpdateState(1700000000), "{\n  \"schemaVersion\": 1,\n  \"lastAttemptUnix\": 1700000000\n}\n");
}

TEST(Schedule, IntervalDecides) {
    EXPECT_FALSE(DueAfter(59, 1));
    EXPECT_TRUE(DueAfter(60, 1));
    EXPECT_FALSE(DueAfter(0, 1));
    EXPECT_FALSE(DueAfter(15 * 60 - 1, 15));
    EXPECT_TRUE(DueAfter(15 * 60, 15));
    EXPECT_FALSE(DueAfter(43200LL * 60 - 1, 43200));
}

TEST(Schedule, IntervalBelowTwo_IsOne) {
    for (const std::int32_t minutes : {1, 0, -1, std::numeric_limits<std::int32_t>::min()}) {
        EXPECT_FALSE(DueAfter(59, minutes)) << minutes;
        EXPECT_TRUE(DueAfter(60, minutes)) << minutes;
    }
}

TEST(Schedule, TimeInTheFuture_IsDue) {
    EXPECT_TRUE(DueAfter(-1, 15));
    EXPECT_TRUE(DueAfter(-100000, 15));
}

TEST(Schedule, WhatCannotBeRead_IsDue) {
    for (const char* state : {"", "\xFF", "{}", "{\"lastAttemptUnix\": \"abc\"}", "{\"lastAttemptUnix\": null}",
                              "{\"nested\": {\"lastAttemptUnix\": 1700000000}}", "{\"lastAttemptUnix\": -1}"}) {
        EXPECT_TRUE(IsCheckDueAt(state, 15, kNow)) << state;
    }
}

TEST(Schedule, LooseNumberAndMark_AreRead) {
    EXPECT_FALSE(IsCheckDueAt("{\"lastAttemptUnix\": 1700000000.5}", 15, kNow));
    EXPECT_FALSE(IsCheckDueAt("\xEF\xBB\xBF{\"schemaVersion\": 9, \"lastAttemptUnix\": +1700000000}", 15, kNow));
}

TEST(Schedule, PrioritiesAreComparedExactly) {
    EXPECT_TRUE(PriorityIgnoresSchedule(L"recommended"));
    EXPECT_TRUE(PriorityIgnoresSchedule(L"hotfix"));
    for (const wchar_t* priority : {L"normal", L"", L"Hotfix", L"hotfix "}) {
        EXPECT_FALSE(PriorityIgnoresSchedule(priority)) << priority;
    }
}

TEST(Payload, ClassIsTheFirstWordThatMatches) {
    EXPECT_EQ(ClassifyPayload(L"https://h/a.vprtheme"), 4u);
    EXPECT_EQ(ClassifyPayload(L"https://h/Launcher.vprtheme"), 4u);
    EXPECT_EQ(ClassifyPayload(L"https://h/Launcher-Runtime.vprpack"), 1u);
    EXPECT_EQ(ClassifyPayload(L"https://h/Runtime.vprpack"), 3u);
    EXPECT_EQ(ClassifyPayload(L"https://h/a.vprpack"), 5u);
    EXPECT_EQ(ClassifyPayload(L"https://h/a.exe"), 2u);
    EXPECT_EQ(ClassifyPayload(L"https://h/launcher.exe"), 2u);
    EXPECT_EQ(ClassifyPayload(L""), 2u);
}

TEST(Totals, SumMustFitInSixtyFourBits) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t sum = 7;
    EXPECT_TRUE(AddWithoutOverflow(kMost - 1, 1, sum));
    EXPECT_EQ(sum, kMost);
    sum = 7;
    EXPECT_FALSE(AddWithoutOverflow(kMost, 1, sum));
    EXPECT_EQ(sum, 7u);
    EXPECT_TRUE(AddWithoutOverflow(kMost, 0, sum));
}

TEST(PromptBox, NotesFollowTheQuestion) {
    ReleaseNotes notes;
    notes.summary = L"Sum";
    notes.highlights = {L"one", L"two"};
    notes.url = L"https://notes";
    EXPECT_EQ(PromptBoxText(L"1.2.3.4", notes),
              L"發現 Velmora Pine Relay 1.2.3.4 更新。\n\n現在下載並安裝嗎？\n\nSum\n• one\n• two");
}

TEST(PromptBox, WithoutNotes_TheLinkStandsIn) {
    ReleaseNotes notes;
    notes.url = L"https://notes";
    EXPECT_EQ(PromptBoxText(L"1.2.3.4", notes),
              L"發現 Velmora Pine Relay 1.2.3.4 更新。\n\n現在下載並安裝嗎？\n\n更新說明：\nhttps://notes");
    EXPECT_EQ(PromptBoxText(L"1.2.3.4", ReleaseNotes{}),
              L"發現 Velmora Pine Relay 1.2.3.4 更新。\n\n現在下載並安裝嗎？");
}

TEST(ProductVersion, OnlyTheValueChanges) {
    std::wstring replaced;
    ASSERT_TRUE(ReplaceProductVersion(
        L"{ \"a\": {\"productVersion\": \"x\"},\r\n\"productVersion\" :\t\"1.0.0.0\" , \"z\": 1} tail", L"1.1.0.0",
        replaced));
    EXPECT_EQ(replaced, L"{ \"a\": {\"productVersion\": \"x\"},\r\n\"productVersion\" :\t\"1.1.0.0\" , \"z\": 1} tail");
}

TEST(ProductVersion, WithoutAStringValue_Fails) {
    std::wstring replaced;
    for (const wchar_t* text :
         {L"{}", L"{\"productVersion\": 1}", L"{\"productVersion\": \"1.0", L"{\"productVersion\": \"\\q\"}", L""}) {
        EXPECT_FALSE(ReplaceProductVersion(text, L"1.1.0.0", replaced)) << text;
    }
}

}  // namespace
}  // namespace launcher_update
