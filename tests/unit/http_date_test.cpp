#include "download/http_date.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace launcher_download {
namespace {

constexpr unsigned kThisYear = 2024;

constexpr std::wstring_view kLongDays[] = {L"Monday", L"Tuesday",  L"Wednesday", L"Thursday",
                                           L"Friday", L"Saturday", L"Sunday"};
constexpr std::wstring_view kMonths[] = {L"Jan", L"Feb", L"Mar", L"Apr", L"May", L"Jun",
                                         L"Jul", L"Aug", L"Sep", L"Oct", L"Nov", L"Dec"};

/// One moment, its fields ready to be written in any of the three forms.
struct Moment {
    std::wstring longDay = L"Sunday";
    std::wstring day = L"06";
    std::wstring month = L"Nov";
    std::wstring year = L"1994";
    std::wstring time = L"08:49:37";

    [[nodiscard]] std::wstring ShortDay() const { return longDay.substr(0, 3); }
    [[nodiscard]] std::wstring Preferred() const {
        return ShortDay() + L", " + day + L' ' + month + L' ' + year + L' ' + time + L" GMT";
    }
    [[nodiscard]] std::wstring Rfc850() const {
        return longDay + L", " + day + L'-' + month + L'-' + year.substr(2) + L' ' + time + L" GMT";
    }
    [[nodiscard]] std::wstring Asctime() const {
        return ShortDay() + L' ' + month + L' ' + day + L' ' + time + L' ' + year;
    }
    [[nodiscard]] std::array<std::wstring, 3> AllForms() const { return {Preferred(), Rfc850(), Asctime()}; }
};

std::wstring TwoDigits(unsigned value) {
    return {static_cast<wchar_t>(L'0' + value / 10), static_cast<wchar_t>(L'0' + value % 10)};
}

void ExpectEachForm(const Moment& moment, bool taken) {
    for (const std::wstring& form : moment.AllForms()) {
        const auto expected = taken ? std::optional(moment.Preferred()) : std::nullopt;
        EXPECT_EQ(NormaliseHttpDate(form, kThisYear), expected) << form;
    }
}

void ExpectRefused(std::wstring_view text) {
    EXPECT_EQ(NormaliseHttpDate(text, kThisYear), std::nullopt) << std::wstring(text);
}

/// An example of one form, with a letter below each of its characters: f fixed, d digit, n day name, m month, p the
/// first character of a day that a blank may pad.
struct Form {
    std::wstring_view text;
    std::wstring_view kinds;
};
constexpr Form kForms[] = {
    {L"Sun, 06 Nov 1994 08:49:37 GMT",  //
     L"nnnffddfmmmfddddfddfddfddffff"},
    {L"Sunday, 06-Nov-94 08:49:37 GMT",  //
     L"nnnnnnffddfmmmfddfddfddfddffff"},
    {L"Sun Nov  6 08:49:37 1994",  //
     L"nnnfmmmfpdfddfddfddfdddd"},
};

/// Calls `check` with every text that differs from the example in one character of that kind.
template <typename Check>
void ForEachChange(const Form& form, wchar_t kind, Check check) {
    ASSERT_EQ(form.text.size(), form.kinds.size());
    std::wstring units;
    for (wchar_t unit = 0; unit < 0x100; ++unit)
        units += unit;
    units += {wchar_t{0x0660}, wchar_t{0x2013}, wchar_t{0x3000}, wchar_t{0xFF10}, wchar_t{0xFF1A}, wchar_t{0xFFFF}};
    std::size_t changes = 0;
    for (std::size_t place = 0; place < form.text.size(); ++place) {
        if (form.kinds[place] != kind) continue;
        for (const wchar_t unit : units) {
            std::wstring text(form.text);
            text[place] = unit;
            if (text == form.text) continue;
            SCOPED_TRACE(testing::Message() << "place " << place << " unit " << static_cast<unsigned>(unit));
            check(text, place, unit);
            ++changes;
        }
    }
    EXPECT_GT(changes, 0u);
}

bool IsDigit(wchar_t unit) {
    return unit >= L'0' && unit <= L'9';
}

TEST(HttpDate_Forms, AllThree_BecomeThePreferredOne) {
    EXPECT_EQ(NormaliseHttpDate(L"Sun, 06 Nov 1994 08:49:37 GMT", kThisYear), L"Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(NormaliseHttpDate(L"Sunday, 06-Nov-94 08:49:37 GMT", kThisYear), L"Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(NormaliseHttpDate(L"Sun Nov  6 08:49:37 1994", kThisYear), L"Sun, 06 Nov 1994 08:49:37 GMT");
}

TEST(HttpDate_Forms, EveryWeekday_IsKnown) {
    for (const std::wstring_view name : kLongDays) {
        Moment moment;
        moment.longDay = name;
        ExpectEachForm(moment, true);
    }
}

TEST(HttpDate_Forms, EveryMonth_IsKnown) {
    for (const std::wstring_view name : kMonths) {
        Moment moment;
        moment.month = name;
        ExpectEachForm(moment, true);
    }
}

TEST(HttpDate_Forms, TheWeekday_IsNotComparedWithTheDate) {
    EXPECT_EQ(NormaliseHttpDate(L"Wed, 06 Nov 1994 08:49:37 GMT", kThisYear), L"Wed, 06 Nov 1994 08:49:37 GMT");
}

TEST(HttpDate_Forms, MixedForms_AreRefused) {
    for (const wchar_t* text : {
             L"Sunday, 06 Nov 1994 08:49:37 GMT",
             L"Sun, 06-Nov-94 08:49:37 GMT",
             L"Sun, 06-Nov-1994 08:49:37 GMT",
             L"Sunday, 06-Nov-1994 08:49:37 GMT",
             L"Sun, 06 Nov 94 08:49:37 GMT",
             L"Sun, 06 Nov-1994 08:49:37 GMT",
             L"Sun, Nov 06 1994 08:49:37 GMT",
             L"Sun Nov  6 08:49:37 94",
             L"Sun Nov  6 08:49:37 1994 GMT",
             L"Sun Nov  6 08:49:37 GMT 1994",
             L"Sunday Nov  6 08:49:37 1994",
             L"Sun, Nov  6 08:49:37 1994",
             L"06 Nov 1994 08:49:37 GMT",
             L"1994-11-06T08:49:37Z",
             L"784111777",
         }) {
        ExpectRefused(text);
    }
}

TEST(HttpDate_Asctime, DayOfOneOrTwoDigits_IsTaken) {
    EXPECT_EQ(NormaliseHttpDate(L"Sun Nov  1 08:49:37 1994", kThisYear), L"Sun, 01 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(NormaliseHttpDate(L"Sun Nov  9 08:49:37 1994", kThisYear), L"Sun, 09 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(NormaliseHttpDate(L"Sun Nov 16 08:49:37 1994", kThisYear), L"Sun, 16 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(NormaliseHttpDate(L"Sun Nov 30 08:49:37 1994", kThisYear), L"Sun, 30 Nov 1994 08:49:37 GMT");
}

TEST(HttpDate_Asctime, AnyOtherPaddingOfTheDay_IsRefused) {
    for (const wchar_t* text : {
             L"Sun Nov 6 08:49:37 1994",
             L"Sun Nov   6 08:49:37 1994",
             L"Sun Nov 6  08:49:37 1994",
             L"Sun Nov    08:49:37 1994",
             L"Sun Nov  0 08:49:37 1994",
             L"Sun Nov  06 08:49:37 1994",
             L"Sun Nov  16 08:49:37 1994",
             L"Sun Nov \t6 08:49:37 1994",
         }) {
        ExpectRefused(text);
    }
}

TEST(HttpDate_Asctime, OnlyItsDay_MayBePadded) {
    for (const wchar_t* text : {
             L"Sun,  6 Nov 1994 08:49:37 GMT",
             L"Sun, 6 Nov 1994 08:49:37 GMT",
             L"Sunday,  6-Nov-94 08:49:37 GMT",
             L"Sunday, 6-Nov-94 08:49:37 GMT",
             L"Sun, 06 Nov 1994  8:49:37 GMT",
             L"Sun Nov  6  8:49:37 1994",
             L"Sun Nov  6 8:49:37 1994",
             L"Sun Nov  6 08: 9:37 1994",
             L"Sun Nov  6 08:49: 7 1994",
         }) {
        ExpectRefused(text);
    }
}

TEST(HttpDate_TwoDigitYear, IsAtMostFiftyYearsAhead) {
    struct Row {
        unsigned currentYear;
        const wchar_t* twoDigits;
        const wchar_t* year;
    };
    constexpr Row kRows[] = {
        {2024, L"24", L"2024"}, {2024, L"25", L"2025"}, {2024, L"23", L"2023"}, {2024, L"00", L"2000"},
        {2024, L"74", L"2074"}, {2024, L"75", L"1975"}, {2024, L"99", L"1999"}, {2000, L"50", L"2050"},
        {2000, L"51", L"1951"}, {2000, L"00", L"2000"}, {2048, L"98", L"2098"}, {2048, L"99", L"1999"},
        {2049, L"99", L"2099"}, {1999, L"99", L"1999"}, {1994, L"94", L"1994"},
    };
    for (const Row& row : kRows) {
        const std::wstring text = std::wstring(L"Sunday, 06-Nov-") + row.twoDigits + L" 08:49:37 GMT";
        const std::wstring expected = std::wstring(L"Sun, 06 Nov ") + row.year + L" 08:49:37 GMT";
        EXPECT_EQ(NormaliseHttpDate(text, row.currentYear), expected) << row.currentYear << ' ' << text;
    }
}

TEST(HttpDate_TwoDigitYear, LeapDay_IsJudgedInTheFullYear) {
    EXPECT_EQ(NormaliseHttpDate(L"Tuesday, 29-Feb-00 00:00:00 GMT", 2024), L"Tue, 29 Feb 2000 00:00:00 GMT");
    EXPECT_EQ(NormaliseHttpDate(L"Tuesday, 29-Feb-00 00:00:00 GMT", 1924), std::nullopt);
    EXPECT_EQ(NormaliseHttpDate(L"Tuesday, 29-Feb-72 00:00:00 GMT", 2024), L"Tue, 29 Feb 2072 00:00:00 GMT");
    EXPECT_EQ(NormaliseHttpDate(L"Tuesday, 29-Feb-23 00:00:00 GMT", 2024), std::nullopt);
}

TEST(HttpDate_FourDigitYear, StandsWhateverTheCurrentYearIs) {
    for (const unsigned currentYear : {1601u, 1994u, 2024u, 9999u}) {
        for (const wchar_t* year : {L"1601", L"1994", L"2095", L"9999"}) {
            Moment moment;
            moment.year = year;
            EXPECT_EQ(NormaliseHttpDate(moment.Preferred(), currentYear), moment.Preferred()) << currentYear;
            EXPECT_EQ(NormaliseHttpDate(moment.Asctime(), currentYear), moment.Preferred()) << currentYear;
        }
    }
}

TEST(HttpDate_Calendar, LeapDay_ExistsInLeapYearsOnly) {
    struct Row {
        const wchar_t* year;
        bool leap;
    };
    constexpr Row kRows[] = {{L"2000", true},  {L"1900", false}, {L"2100", false}, {L"2024", true},
                             {L"2023", false}, {L"2022", false}, {L"1600", true},  {L"1996", true}};
    for (const Row& row : kRows) {
        Moment moment{L"Thursday", L"29", L"Feb", row.year, L"00:00:00"};
        const auto expected = row.leap ? std::optional(moment.Preferred()) : std::nullopt;
        EXPECT_EQ(NormaliseHttpDate(moment.Preferred(), kThisYear), expected) << row.year;
        EXPECT_EQ(NormaliseHttpDate(moment.Asctime(), kThisYear), expected) << row.year;
    }
}

TEST(HttpDate_Calendar, EveryDayOfEveryMonth_IsJudgedByTheCalendar) {
    for (const int year : {1999, 2000, 2001, 2023, 2024}) {
        for (unsigned month = 1; month <= std::size(kMonths); ++month) {
            for (unsigned day = 0; day < 100; ++day) {
                const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                                       std::chrono::day(day)};
                Moment moment;
                moment.day = TwoDigits(day);
                moment.month = kMonths[month - 1];
                moment.year = std::to_wstring(year);
                ExpectEachForm(moment, date.ok());
            }
        }
    }
}

TEST(HttpDate_Clock, EveryHourMinuteAndSecond_IsJudgedByTheClock) {
    for (unsigned value = 0; value < 100; ++value) {
        Moment moment;
        moment.time = TwoDigits(value) + L":00:00";
        ExpectEachForm(moment, value < 24);
        moment.time = L"23:" + TwoDigits(value) + L":59";
        ExpectEachForm(moment, value < 60);
        moment.time = L"00:59:" + TwoDigits(value);
        ExpectEachForm(moment, value < 60);
    }
}

TEST(HttpDate_Clock, MidnightAtTheEndOfADayAndALeapSecond_AreRefused) {
    for (const wchar_t* time : {L"24:00:00", L"23:60:00", L"23:59:60"}) {
        Moment moment;
        moment.time = time;
        ExpectEachForm(moment, false);
    }
}

TEST(HttpDate_Torn, EveryPiece_IsRefused) {
    for (const Form& form : kForms) {
        for (std::size_t length = 0; length < form.text.size(); ++length) {
            ExpectRefused(form.text.substr(0, length));
            ExpectRefused(form.text.substr(form.text.size() - length));
        }
    }
}

TEST(HttpDate_Torn, EveryMissingCharacter_IsRefused) {
    for (const Form& form : kForms) {
        for (std::size_t place = 0; place < form.text.size(); ++place) {
            ExpectRefused(std::wstring(form.text).erase(place, 1));
        }
    }
}

TEST(HttpDate_Torn, EveryDoubledCharacter_IsRefused) {
    for (const Form& form : kForms) {
        for (std::size_t place = 0; place < form.text.size(); ++place) {
            ExpectRefused(std::wstring(form.text).insert(place, 1, form.text[place]));
        }
    }
}

TEST(HttpDate_Flipped, EveryChangeOfAFixedCharacter_IsRefused) {
    for (const Form& form : kForms) {
        ForEachChange(form, L'f', [](const std::wstring& text, std::size_t, wchar_t) { ExpectRefused(text); });
    }
}

TEST(HttpDate_Flipped, EveryChangeOfADigitIntoSomethingElse_IsRefused) {
    for (const Form& form : kForms) {
        ForEachChange(form, L'd', [](const std::wstring& text, std::size_t, wchar_t unit) {
            if (!IsDigit(unit)) ExpectRefused(text);
        });
    }
}

TEST(HttpDate_Flipped, ThePadOfADay_IsABlankOrADigitOfTheMonth) {
    ForEachChange(kForms[2], L'p', [](const std::wstring& text, std::size_t place, wchar_t unit) {
        if (unit >= L'0' && unit <= L'2') {
            const std::wstring day = text.substr(place, 2);
            EXPECT_EQ(NormaliseHttpDate(text, kThisYear), L"Sun, " + day + L" Nov 1994 08:49:37 GMT");
        } else {
            ExpectRefused(text);
        }
    });
}

TEST(HttpDate_Flipped, ADayName_IsOneOfSeven) {
    std::set<std::wstring_view> shortDays;
    for (const std::wstring_view name : kLongDays)
        shortDays.insert(name.substr(0, 3));
    for (const Form* form : {&kForms[0], &kForms[2]}) {
        ForEachChange(*form, L'n', [&shortDays](const std::wstring& text, std::size_t, wchar_t) {
            const bool known = shortDays.count(std::wstring_view(text).substr(0, 3)) == 1;
            EXPECT_EQ(NormaliseHttpDate(text, kThisYear).has_value(), known);
        });
    }
    // No two long names differ in a single character.
    ForEachChange(kForms[1], L'n', [](const std::wstring& text, std::size_t, wchar_t) { ExpectRefused(text); });
}

TEST(HttpDate_Flipped, AMonth_IsOneOfTwelve) {
    for (const wchar_t* month : {L"Nov", L"Jan", L"Jun", L"Mar", L"May"}) {
        for (std::size_t place = 0; place < 3; ++place) {
            for (wchar_t unit = 0; unit < 0x80; ++unit) {
                Moment moment;
                moment.month = month;
                moment.month[place] = unit;
                ExpectEachForm(moment,
                               std::find(std::begin(kMonths), std::end(kMonths), moment.month) != std::end(kMonths));
            }
        }
    }
}

TEST(HttpDate_Case, NamesInAnyOtherCase_AreRefused) {
    for (const wchar_t* text : {
             L"sun, 06 Nov 1994 08:49:37 GMT",
             L"SUN, 06 Nov 1994 08:49:37 GMT",
             L"Sun, 06 nov 1994 08:49:37 GMT",
             L"Sun, 06 NOV 1994 08:49:37 GMT",
             L"Sun, 06 Nov 1994 08:49:37 gmt",
             L"sunday, 06-Nov-94 08:49:37 GMT",
             L"SUNDAY, 06-Nov-94 08:49:37 GMT",
             L"Sunday, 06-nov-94 08:49:37 GMT",
             L"Sunday, 06-Nov-94 08:49:37 Gmt",
             L"sun Nov  6 08:49:37 1994",
             L"Sun nov  6 08:49:37 1994",
         }) {
        ExpectRefused(text);
    }
}

TEST(HttpDate_Zone, AnyOtherThanGmt_IsRefused) {
    for (const wchar_t* zone : {L"", L" ", L" UTC", L" UT", L" Z", L"Z", L" EST", L" +0000", L" -0000", L"+00:00",
                                L" GMT+1", L" GMT+0000", L"  GMT", L"\tGMT", L"GMT", L" (GMT)", L" BST", L" GMT GMT"}) {
        ExpectRefused(std::wstring(L"Sun, 06 Nov 1994 08:49:37") + zone);
        ExpectRefused(std::wstring(L"Sunday, 06-Nov-94 08:49:37") + zone);
    }
}

TEST(HttpDate_Around, AnythingBeforeOrBehind_IsRefused) {
    for (const Form& form : kForms) {
        for (const std::wstring_view extra :
             {L" ", L"\t", L"\r", L"\n", L"\r\n", L",", L";", L"x", L"0", L"\"", L"\xFEFF"}) {
            ExpectRefused(std::wstring(form.text).append(extra));
            ExpectRefused(std::wstring(extra).append(form.text));
        }
        ExpectRefused(std::wstring(form.text) + L'\0');
        ExpectRefused(L'\0' + std::wstring(form.text));
        ExpectRefused(std::wstring(form.text).append(form.text));
    }
}

TEST(HttpDate_Digits, MoreOrFewerThanTheFormHas_AreRefused) {
    for (const wchar_t* text : {
             L"Sun, 006 Nov 1994 08:49:37 GMT",      L"Sun, 06 Nov 01994 08:49:37 GMT",
             L"Sun, 06 Nov 19940 08:49:37 GMT",      L"Sun, 06 Nov 994 08:49:37 GMT",
             L"Sun, 06 Nov 1994 008:49:37 GMT",      L"Sun, 06 Nov 1994 08:049:37 GMT",
             L"Sun, 06 Nov 1994 08:49:037 GMT",      L"Sun, 06 Nov 1994 08:49:37.0 GMT",
             L"Sun, 06 Nov 1994 08:49 GMT",          L"Sun, 18446744073709551622 Nov 1994 08:49:37 GMT",
             L"Sun, 06 Nov 4294969290 08:49:37 GMT", L"Sun, 06 Nov 18446744073709553610 08:49:37 GMT",
             L"Sunday, 06-Nov-094 08:49:37 GMT",     L"Sunday, 06-Nov-4 08:49:37 GMT",
             L"Sun Nov  6 08:49:37 19940",           L"Sun Nov  6 08:49:37 18446744073709553610",
             L"Sun, +6 Nov 1994 08:49:37 GMT",       L"Sun, -6 Nov 1994 08:49:37 GMT",
             L"Sun, 06 Nov -994 08:49:37 GMT",
         }) {
        ExpectRefused(text);
    }
}

TEST(HttpDate_Nothing, IsRefused) {
    for (const wchar_t* text : {L"", L" ", L",", L"GMT", L"Sun", L"0", L"60"}) {
        ExpectRefused(text);
    }
    ExpectRefused(std::wstring_view());
    ExpectRefused(std::wstring(100000, L'1'));
}

}  // namespace
}  // namespace launcher_download
