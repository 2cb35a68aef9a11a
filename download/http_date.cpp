#include "download/http_date.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <iterator>

#include "download/http_rules.h"

namespace launcher_download {
namespace {

constexpr std::wstring_view kDayNames[] = {L"Monday", L"Tuesday",  L"Wednesday", L"Thursday",
                                           L"Friday", L"Saturday", L"Sunday"};
constexpr std::wstring_view kMonthNames[] = {L"Jan", L"Feb", L"Mar", L"Apr", L"May", L"Jun",
                                             L"Jul", L"Aug", L"Sep", L"Oct", L"Nov", L"Dec"};
constexpr unsigned kMonthLengths[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constexpr std::size_t kShortNameLength = 3;
constexpr unsigned kMostYearsAhead = 50;

struct Fields {
    std::wstring_view dayName;  // the first three letters
    unsigned year = 0;
    unsigned month = 0;  // from 1
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
};

/// Reads a text from its front. After the first mismatch nothing matches any more.
class Scanner {
  public:
    explicit Scanner(std::wstring_view text) : rest_(text) {}

    void Expect(std::wstring_view text) {
        good_ = good_ && rest_.starts_with(text);
        if (good_) rest_.remove_prefix(text.size());
    }

    /// Exactly `length` digits.
    unsigned Number(std::size_t length) {
        const auto value = rest_.size() < length ? std::nullopt : ParseDecimal(rest_.substr(0, length));
        good_ = good_ && value.has_value();
        if (good_) rest_.remove_prefix(length);
        return good_ ? static_cast<unsigned>(*value) : 0;
    }

    /// Two digits, or a blank and one: asctime's way.
    unsigned PaddedNumber() {
        if (!rest_.starts_with(L' ')) return Number(2);
        Expect(L" ");
        return Number(1);
    }

    std::wstring_view DayName(bool isLong) {
        for (const std::wstring_view name : kDayNames) {
            const std::wstring_view wanted = isLong ? name : name.substr(0, kShortNameLength);
            if (!rest_.starts_with(wanted)) continue;
            rest_.remove_prefix(wanted.size());
            return name.substr(0, kShortNameLength);
        }
        good_ = false;
        return {};
    }

    unsigned Month() {
        const auto* const found = std::find(std::begin(kMonthNames), std::end(kMonthNames), rest_.substr(0, 3));
        good_ = good_ && found != std::end(kMonthNames);
        if (!good_) return 0;
        rest_.remove_prefix(found->size());
        return static_cast<unsigned>(found - std::begin(kMonthNames)) + 1;
    }

    void Time(Fields& fields) {
        fields.hour = Number(2);
        Expect(L":");
        fields.minute = Number(2);
        Expect(L":");
        fields.second = Number(2);
    }

    [[nodiscard]] bool AtEnd() const { return good_ && rest_.empty(); }

  private:
    std::wstring_view rest_;
    bool good_ = true;
};

/// `Sun, 06 Nov 1994 08:49:37 GMT`
bool ReadPreferred(std::wstring_view text, Fields& fields) {
    Scanner scanner(text);
    fields.dayName = scanner.DayName(false);
    scanner.Expect(L", ");
    fields.day = scanner.Number(2);
    scanner.Expect(L" ");
    fields.month = scanner.Month();
    scanner.Expect(L" ");
    fields.year = scanner.Number(4);
    scanner.Expect(L" ");
    scanner.Time(fields);
    scanner.Expect(L" GMT");
    return scanner.AtEnd();
}

unsigned WithCentury(unsigned twoDigits, unsigned currentYear) {
    const unsigned year = currentYear - currentYear % 100 + twoDigits;
    return year > currentYear + kMostYearsAhead ? year - 100 : year;
}

/// `Sunday, 06-Nov-94 08:49:37 GMT`
bool ReadRfc850(std::wstring_view text, unsigned currentYear, Fields& fields) {
    Scanner scanner(text);
    fields.dayName = scanner.DayName(true);
    scanner.Expect(L", ");
    fields.day = scanner.Number(2);
    scanner.Expect(L"-");
    fields.month = scanner.Month();
    scanner.Expect(L"-");
    fields.year = WithCentury(scanner.Number(2), currentYear);
    scanner.Expect(L" ");
    scanner.Time(fields);
    scanner.Expect(L" GMT");
    return scanner.AtEnd();
}

/// `Sun Nov  6 08:49:37 1994`
bool ReadAsctime(std::wstring_view text, Fields& fields) {
    Scanner scanner(text);
    fields.dayName = scanner.DayName(false);
    scanner.Expect(L" ");
    fields.month = scanner.Month();
    scanner.Expect(L" ");
    fields.day = scanner.PaddedNumber();
    scanner.Expect(L" ");
    scanner.Time(fields);
    scanner.Expect(L" ");
    fields.year = scanner.Number(4);
    return scanner.AtEnd();
}

bool IsLeapYear(unsigned year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

bool IsInCalendar(const Fields& fields) {
    if (fields.day < 1 || fields.day > kMonthLengths[fields.month - 1]) return false;
    if (fields.month == 2 && fields.day == 29 && !IsLeapYear(fields.year)) return false;
    return fields.hour < 24 && fields.minute < 60 && fields.second < 60;
}

std::wstring Write(const Fields& fields) {
    wchar_t text[sizeof("Sun, 06 Nov 1994 08:49:37 GMT")];
    // The precisions bound what the field types alone would allow.
    std::swprintf(text, std::size(text), L"%.3ls, %02u %.3ls %04u %02u:%02u:%02u GMT", fields.dayName.data(),
                  fields.day % 100, kMonthNames[fields.month - 1].data(), fields.year % 10000, fields.hour % 100,
                  fields.minute % 100, fields.second % 100);
    return text;
}

}  // namespace

std::optional<std::wstring> NormaliseHttpDate(std::wstring_view text, unsigned currentYear) {
    Fields fields;
    const bool read = ReadPreferred(text, fields) || ReadRfc850(text, currentYear, fields) || ReadAsctime(text, fields);
    if (!read || !IsInCalendar(fields)) return std::nullopt;
    return Write(fields);
}

}  // namespace launcher_download
