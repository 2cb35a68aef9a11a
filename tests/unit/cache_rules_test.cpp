#include "download/cache_rules.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace launcher_download {
namespace {

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kGiB = 1ull << 30;

const std::wstring kStem = L"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::wstring kName = kStem + L".part";

TEST(CacheRules_Name, ALowerHexDigestAndItsSuffix_IsAPayload) {
    ASSERT_EQ(kName.size(), 69u);
    EXPECT_TRUE(IsPayloadName(kName));
    EXPECT_TRUE(IsPayloadName(std::wstring(64, L'f') + L".part"));
}

TEST(CacheRules_Name, AnyOtherLength_IsNone) {
    EXPECT_FALSE(IsPayloadName(kName.substr(1)));
    EXPECT_FALSE(IsPayloadName(L'0' + kName));
    EXPECT_FALSE(IsPayloadName(kName.substr(0, 68)));
    EXPECT_FALSE(IsPayloadName(kName + L't'));
    EXPECT_FALSE(IsPayloadName(kName + L' '));
    EXPECT_FALSE(IsPayloadName(kName + L'.'));
    for (std::size_t length = 0; length < kName.size(); ++length) {
        EXPECT_FALSE(IsPayloadName(kName.substr(0, length))) << length;
    }
}

TEST(CacheRules_Name, EveryChangedCharacter_IsJudged) {
    for (std::size_t place = 0; place < kName.size(); ++place) {
        for (const wchar_t unit : {L'0',
                                   L'9',
                                   L'a',
                                   L'f',
                                   L'A',
                                   L'F',
                                   L'g',
                                   L'G',
                                   L'p',
                                   L'P',
                                   L'.',
                                   L' ',
                                   L'*',
                                   L'\\',
                                   L'/',
                                   L':',
                                   L'\0',
                                   L'~',
                                   wchar_t{0xFF10},
                                   wchar_t{0x0430}}) {
            std::wstring name = kName;
            name[place] = unit;
            const bool hex = (unit >= L'0' && unit <= L'9') || (unit >= L'a' && unit <= L'f');
            EXPECT_EQ(IsPayloadName(name), name == kName || (place < kStem.size() && hex))
                << place << ' ' << static_cast<unsigned>(unit);
        }
    }
}

TEST(CacheRules_Name, AnotherSuffix_IsNone) {
    for (const wchar_t* suffix : {L"", L".", L".par", L".PART", L".Part", L".parT", L".part2", L".parts", L".resume",
                                  L".resume.tmp", L".part.part", L"_part", L".tmp.part", L" .part"}) {
        EXPECT_FALSE(IsPayloadName(kStem + suffix)) << suffix;
    }
}

TEST(CacheRules_Name, AnUnknownFileOfThatSuffix_IsNone) {
    for (const wchar_t* name : {L"", L".part", L"a.part", L"readme.part", L"download-trace.jsonl"}) {
        EXPECT_FALSE(IsPayloadName(name)) << name;
    }
    EXPECT_FALSE(IsPayloadName(std::wstring(64, L'A') + L".part"));
    EXPECT_FALSE(IsPayloadName(std::wstring(64, L'x') + L".part"));
    EXPECT_FALSE(IsPayloadName(std::wstring(63, L'a') + L"..part"));
}

TEST(CacheRules_Limits, AreThoseOfTheCache) {
    EXPECT_EQ(kMaxScannedPayloads, 128u);
    EXPECT_EQ(kMaxKeptPayloads, 16u);
    EXPECT_EQ(kMaxKeptBytes, 4 * kGiB);
    EXPECT_EQ(kMaxPayloadAgeTicks, 7ull * 24 * 60 * 60 * 10000000);
}

TEST(CacheRules_Tally, SixteenPayloadsWithTheComingOne_Fit) {
    CacheTally tally(1);
    EXPECT_TRUE(tally.Fits());
    for (int others = 1; others <= 15; ++others) {
        ASSERT_TRUE(tally.Add(1));
        EXPECT_TRUE(tally.Fits()) << others;
    }
    ASSERT_TRUE(tally.Add(1)) << "what is there is counted, fitting or not";
    EXPECT_FALSE(tally.Fits());
    tally.Remove(1);
    EXPECT_TRUE(tally.Fits());
}

TEST(CacheRules_Tally, EmptyPayloads_CountToo) {
    CacheTally tally(1);
    for (int others = 1; others <= 16; ++others)
        ASSERT_TRUE(tally.Add(0));
    EXPECT_FALSE(tally.Fits());
    tally.Remove(0);
    EXPECT_TRUE(tally.Fits());
}

TEST(CacheRules_Tally, FourGiBWithTheComingOne_Fit) {
    CacheTally tally(2 * kGiB);
    ASSERT_TRUE(tally.Add(2 * kGiB));
    EXPECT_TRUE(tally.Fits());
    ASSERT_TRUE(tally.Add(0));
    EXPECT_TRUE(tally.Fits());
    ASSERT_TRUE(tally.Add(1));
    EXPECT_FALSE(tally.Fits());
    tally.Remove(1);
    EXPECT_TRUE(tally.Fits());
}

TEST(CacheRules_Tally, ThreeGiBHeldAndTwoComing_FitWithoutOne) {
    CacheTally tally(2 * kGiB);
    for (int held = 0; held < 3; ++held)
        ASSERT_TRUE(tally.Add(kGiB));
    EXPECT_FALSE(tally.Fits());
    tally.Remove(kGiB);
    EXPECT_TRUE(tally.Fits());
}

TEST(CacheRules_Tally, TheComingPayloadAlone_IsCountedInFull) {
    EXPECT_TRUE(CacheTally(4 * kGiB).Fits());
    EXPECT_FALSE(CacheTally(4 * kGiB + 1).Fits());
}

TEST(CacheRules_Tally, APayloadLargerThanAny_IsRefused) {
    CacheTally tally(1);
    EXPECT_TRUE(tally.Add(0x80000000));
    EXPECT_FALSE(tally.Add(0x80000001));
    EXPECT_FALSE(tally.Add(kLargest));
}

TEST(CacheRules_Tally, ASumThatOverflows_IsRefused) {
    CacheTally tally(kLargest - 100);
    EXPECT_FALSE(tally.Add(101));
    EXPECT_FALSE(tally.Add(0x80000000));
    EXPECT_TRUE(tally.Add(100));
    EXPECT_FALSE(tally.Add(1));
    EXPECT_TRUE(tally.Add(0));
    EXPECT_FALSE(tally.Fits());
}

TEST(CacheRules_Tally, WhatWasRefused_IsNotCounted) {
    CacheTally tally(4 * kGiB);
    for (int refused = 0; refused < 20; ++refused)
        ASSERT_FALSE(tally.Add(0x80000001));
    EXPECT_TRUE(tally.Fits());
}

TEST(CacheRules_Age, SevenDays_AreYoungStill) {
    constexpr std::uint64_t kNow = 134000000000000000;
    EXPECT_TRUE(IsYoung(kNow - 6048000000000, kNow));
    EXPECT_FALSE(IsYoung(kNow - 6048000000001, kNow));
    EXPECT_FALSE(IsYoung(kNow - 6912000000000, kNow)) << "eight days";
    EXPECT_TRUE(IsYoung(kNow - 1, kNow));
    EXPECT_TRUE(IsYoung(kNow, kNow));
}

TEST(CacheRules_Age, AFileFromTheFuture_IsYoung) {
    EXPECT_TRUE(IsYoung(11, 10));
    EXPECT_TRUE(IsYoung(kLargest, 0));
    EXPECT_TRUE(IsYoung(kLargest, kLargest));
    EXPECT_TRUE(IsYoung(kLargest, kLargest - 1));
    EXPECT_TRUE(IsYoung(6048000000002, 1));
}

TEST(CacheRules_Age, AFileWithoutATime_IsAsOldAsTheClock) {
    EXPECT_TRUE(IsYoung(0, 0));
    EXPECT_TRUE(IsYoung(0, 6048000000000));
    EXPECT_FALSE(IsYoung(0, 6048000000001));
    EXPECT_FALSE(IsYoung(0, kLargest));
}

}  // namespace
}  // namespace launcher_download
