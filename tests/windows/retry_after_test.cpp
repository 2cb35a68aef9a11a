#include "download/retry_after.h"

#include <windows.h>

#include <winhttp.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "download/retry_rules.h"
#include "platform/text.h"
#include "tests/support/stand_in.h"

namespace launcher_download {
namespace {

using test_support::StandIn;

using OnClock = StandIn<"GetSystemTimeAsFileTime", decltype(GetSystemTimeAsFileTime)>;
using OnCalendar = StandIn<"GetSystemTime", decltype(GetSystemTime)>;
using OnDateToTime = StandIn<"WinHttpTimeToSystemTime", decltype(WinHttpTimeToSystemTime)>;
using OnTimeToTicks = StandIn<"SystemTimeToFileTime", decltype(SystemTimeToFileTime)>;

constexpr std::uint64_t kTick = 1;                 // 100 ns
constexpr std::uint64_t kSecond = 10000000;        // ticks
constexpr std::uint64_t kUnixEpoch = 11644473600;  // seconds from 1601 to 1970

// Sun, 06 Nov 1994 08:49:37 GMT
constexpr std::uint64_t kNow = (kUnixEpoch + 784111777) * kSecond;

/// The clock stands at `now_`, and the calendar in `year_`.
class Retry_After : public ::testing::Test {
  protected:
    static void ExpectWait(const std::wstring& value, std::uint64_t waitMs) {
        for (const std::uint32_t attempt : {1u, 2u, 3u}) {
            EXPECT_EQ(ParseRetryAfter(value, attempt), waitMs) << '"' << platform::EncodeUtf8(value) << '"';
        }
    }
    static void ExpectRefused(const std::wstring& value) { ExpectWait(value, kWaitRefused); }

    std::uint64_t now_ = kNow;
    WORD year_ = 1994;

  private:
    OnClock clock_{[this](LPFILETIME time) {
        time->dwHighDateTime = static_cast<DWORD>(now_ >> 32);
        time->dwLowDateTime = static_cast<DWORD>(now_);
    }};
    OnCalendar calendar_{[this](LPSYSTEMTIME time) {
        *time = {};
        time->wYear = year_;
        time->wMonth = 11;
        time->wDay = 6;
    }};
};

TEST_F(Retry_After, NoValue_GivesTheWaitOfTheAttempt) {
    EXPECT_EQ(ParseRetryAfter(L"", 1), 1000u);
    EXPECT_EQ(ParseRetryAfter(L"", 2), 2000u);
    EXPECT_EQ(ParseRetryAfter(L"", 3), 4000u);
}

TEST_F(Retry_After, RefusedIsAllBitsSet) {
    EXPECT_EQ(ParseRetryAfter(L"61", 1), 0xFFFFFFFFFFFFFFFFu);
}

TEST_F(Retry_After, SecondsUpToAMinute_AreTaken) {
    ExpectWait(L"0", 0);
    ExpectWait(L"1", 1000);
    ExpectWait(L"3", 3000);
    ExpectWait(L"59", 59000);
    ExpectWait(L"60", 60000);
    ExpectWait(L"000060", 60000);
    ExpectWait(std::wstring(40, L'0') + L"3", 3000);
    ExpectWait(std::wstring(40, L'0'), 0);
}

TEST_F(Retry_After, MoreThanAMinute_IsRefused) {
    for (const wchar_t* value : {L"61", L"00061", L"3600", L"4294967296", L"4294967299", L"18446744073709551615"}) {
        ExpectRefused(value);
    }
}

TEST_F(Retry_After, SecondsThatOverflow_AreRefused) {
    // The second and third would be 0 and 3 if they were taken modulo 2^64.
    for (const wchar_t* value : {L"18446744073709551620", L"18446744073709551616", L"18446744073709551619",
                                 L"99999999999999999999999999999999999999"}) {
        ExpectRefused(value);
    }
}

TEST_F(Retry_After, WhatIsNeitherANumberNorADate_IsRefused) {
    for (const wchar_t* value :
         {L"soon", L"-1",  L"-0", L"+3",     L" 3",   L"3 ",   L"\t3", L"3\r\n", L"3.5",    L"3,5", L"3.0", L"0x3",
          L"3s",   L"1e1", L" ",  L"\uFF13", L"3;60", L"3, 3", L"GMT", L"Sun",   L"Sunday", L"Nov", L"1994"}) {
        ExpectRefused(value);
    }
    ExpectRefused(std::wstring(L"3\0", 2));
    ExpectRefused(std::wstring(L"\0", 1));
    ExpectRefused(std::wstring(100000, L'x'));
}

TEST_F(Retry_After, AnIllWrittenDate_IsRefused) {
    for (const wchar_t* value :
         {L"Sun, 06 Nov 1994 08:49:37", L"Sun, 06 Nov 1994 08:49:37 UTC", L"Sun, 06 Nov 1994 08:49:37 gmt",
          L"Sun, 06 Nov 1994 08:49:37 GMT ", L" Sun, 06 Nov 1994 08:49:37 GMT", L"Sun, 6 Nov 1994 08:49:37 GMT",
          L"Sun, 31 Nov 1994 08:49:37 GMT", L"Sun, 06 Nov 1994 24:49:37 GMT", L"Sun, 06 Nov 1994 08:49 GMT",
          L"06 Nov 1994 08:49:37 GMT", L"Sun, 06-Nov-94 08:49:37 GMT", L"Sun Nov 6 08:49:37 1994",
          L"1994-11-06T08:49:37Z"}) {
        ExpectRefused(value);
    }
    ExpectRefused(std::wstring(L"Sun, 06 Nov 1994 08:49:37 GMT\0x", 31));
}

TEST_F(Retry_After, WhatIsNoDate_NeverReachesWindows) {
    int asked = 0;
    const OnDateToTime date([&asked](LPCWSTR text, SYSTEMTIME* time) {
        ++asked;
        return OnDateToTime::Original(text, time);
    });
    ExpectRefused(L"soon");
    ExpectRefused(L"-1");
    ExpectRefused(L"Sun, 31 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(asked, 0);
}

TEST_F(Retry_After, ADateInThePast_IsNoWait) {
    for (const wchar_t* value :
         {L"Sun, 06 Nov 1994 08:49:36 GMT", L"Sunday, 06-Nov-94 08:49:36 GMT", L"Sun Nov  6 08:49:36 1994",
          L"Sat, 06 Nov 1993 08:49:38 GMT", L"Thu, 01 Jan 1970 00:00:00 GMT", L"Mon, 01 Jan 1601 00:00:00 GMT"}) {
        ExpectWait(value, 0);
    }
}

TEST_F(Retry_After, TheVeryMoment_IsNoWait) {
    for (const wchar_t* value :
         {L"Sun, 06 Nov 1994 08:49:37 GMT", L"Sunday, 06-Nov-94 08:49:37 GMT", L"Sun Nov  6 08:49:37 1994"}) {
        ExpectWait(value, 0);
    }
}

TEST_F(Retry_After, ADateAhead_IsWaitedFor) {
    for (const wchar_t* value :
         {L"Sun, 06 Nov 1994 08:49:38 GMT", L"Sunday, 06-Nov-94 08:49:38 GMT", L"Sun Nov  6 08:49:38 1994"}) {
        ExpectWait(value, 1000);
    }
    ExpectWait(L"Sun, 06 Nov 1994 08:50:07 GMT", 30000);
}

TEST_F(Retry_After, ADateAMinuteAhead_IsTheLongestWait) {
    for (const wchar_t* value :
         {L"Sun, 06 Nov 1994 08:50:37 GMT", L"Sunday, 06-Nov-94 08:50:37 GMT", L"Sun Nov  6 08:50:37 1994"}) {
        ExpectWait(value, 60000);
    }
}

TEST_F(Retry_After, ADateFurtherAhead_IsRefused) {
    for (const wchar_t* value :
         {L"Sun, 06 Nov 1994 08:50:38 GMT", L"Sunday, 06-Nov-94 08:50:38 GMT", L"Sun Nov  6 08:50:38 1994",
          L"Mon, 06 Nov 1995 08:49:37 GMT", L"Fri, 31 Dec 9999 23:59:59 GMT"}) {
        ExpectRefused(value);
    }
}

TEST_F(Retry_After, PartsOfASecond_AreRoundedDownToMilliseconds) {
    struct Row {
        std::uint64_t ticksAhead;
        std::uint64_t waitMs;
    };
    for (const Row& row :
         {Row{1, 0}, {9999, 0}, {10000, 1}, {19999, 1}, {20000, 2}, {kSecond - kTick, 999}, {kSecond, 1000}}) {
        now_ = kNow + kSecond - row.ticksAhead;
        SCOPED_TRACE(row.ticksAhead);
        ExpectWait(L"Sun, 06 Nov 1994 08:49:38 GMT", row.waitMs);
    }
}

TEST_F(Retry_After, TheMinute_EndsAtItsLastTick) {
    now_ = kNow - kTick;
    ExpectRefused(L"Sun, 06 Nov 1994 08:50:37 GMT");
    now_ = kNow + kTick;
    ExpectWait(L"Sun, 06 Nov 1994 08:50:37 GMT", 59999);
    now_ = kNow + 60 * kSecond;
    ExpectWait(L"Sun, 06 Nov 1994 08:50:37 GMT", 0);
}

TEST_F(Retry_After, AYearOfTwoDigits_IsOfTheCalendarsTime) {
    ExpectWait(L"Sunday, 06-Nov-94 08:49:38 GMT", 1000);
    year_ = 2043;
    ExpectWait(L"Sunday, 06-Nov-94 08:49:38 GMT", 1000);
    year_ = 2044;
    ExpectRefused(L"Saturday, 06-Nov-94 08:49:38 GMT");
}

TEST_F(Retry_After, EveryForm_IsReadInThePreferredOne) {
    std::vector<std::wstring> texts;
    const OnDateToTime date([&texts](LPCWSTR text, SYSTEMTIME* time) {
        texts.emplace_back(text);
        return OnDateToTime::Original(text, time);
    });
    for (const wchar_t* value :
         {L"Sun, 06 Nov 1994 08:49:38 GMT", L"Sunday, 06-Nov-94 08:49:38 GMT", L"Sun Nov  6 08:49:38 1994"}) {
        EXPECT_EQ(ParseRetryAfter(value, 1), 1000u) << platform::EncodeUtf8(value);
    }
    EXPECT_EQ(texts, std::vector<std::wstring>(3, L"Sun, 06 Nov 1994 08:49:38 GMT"));
}

TEST_F(Retry_After, ADateThatWindowsCannotRead_IsRefused) {
    int asked = 0;
    const OnDateToTime date([&asked](LPCWSTR, SYSTEMTIME*) {
        ++asked;
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    });
    ExpectRefused(L"Sun, 06 Nov 1994 08:49:36 GMT");
    EXPECT_EQ(asked, 3);
}

TEST_F(Retry_After, ATimeThatNoCalendarHas_IsRefused) {
    {
        int asked = 0;
        const OnTimeToTicks ticks([&asked](const SYSTEMTIME*, LPFILETIME) {
            ++asked;
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        });
        ExpectRefused(L"Sun, 06 Nov 1994 08:49:36 GMT");
        EXPECT_EQ(asked, 3);
    }
    const OnDateToTime date([](LPCWSTR text, SYSTEMTIME* time) {
        const BOOL good = OnDateToTime::Original(text, time);
        time->wMonth = 13;
        return good;
    });
    ExpectRefused(L"Sun, 06 Nov 1994 08:49:36 GMT");
}

TEST_F(Retry_After, ANumber_IsNeverReadAsADate) {
    int asked = 0;
    const OnDateToTime date([&asked](LPCWSTR, SYSTEMTIME*) {
        ++asked;
        return FALSE;
    });
    ExpectWait(L"3", 3000);
    ExpectRefused(L"61");
    EXPECT_EQ(ParseRetryAfter(L"", 1), 1000u);
    EXPECT_EQ(asked, 0);
}

}  // namespace
}  // namespace launcher_download
