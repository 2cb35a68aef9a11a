#include "update/manifest/json_reader.h"

#include <limits>
#include <optional>

namespace launcher_update {
namespace {

constexpr std::wstring_view kBlanks = L" \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

constexpr std::uint32_t ValueOf(wchar_t unit) {
    return static_cast<std::uint32_t>(unit);
}
constexpr bool IsDigit(wchar_t unit) {
    return unit >= L'0' && unit <= L'9';
}
constexpr bool IsHighSurrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

bool IsOneOf(std::wstring_view set, wchar_t unit) {
    return set.find(unit) != std::wstring_view::npos;
}

/// The first position from `at` on that holds no blank, or the length of the text.
std::uint64_t SkipBlanks(std::wstring_view text, std::uint64_t at) {
    while (at < text.size() && IsOneOf(kBlanks, text[at]))
        ++at;
    return at;
}

/// Whether a scalar that ends before `at` is ended properly.
bool IsDelimited(std::wstring_view text, std::uint64_t at) {
    at = SkipBlanks(text, at);
    return at == text.size() || IsOneOf(L",}]", text[at]);
}

std::optional<std::uint32_t> HexDigit(wchar_t unit) {
    if (IsDigit(unit)) return static_cast<std::uint32_t>(unit - L'0');
    if (unit >= L'a' && unit <= L'f') return static_cast<std::uint32_t>(unit - L'a' + 10);
    if (unit >= L'A' && unit <= L'F') return static_cast<std::uint32_t>(unit - L'A' + 10);
    return std::nullopt;
}

/// Reads the six units of a `\u` escape at `at` and moves behind them.
bool TakeUnicodeEscape(std::wstring_view text, std::uint64_t& at, std::uint32_t& unit) {
    constexpr std::uint64_t kEscapeUnits = 6;
    if (text.size() - at < kEscapeUnits || text[at] != L'\\' || text[at + 1] != L'u') return false;
    unit = 0;
    for (const wchar_t digit : text.substr(at + 2, 4)) {
        const std::optional<std::uint32_t> value = HexDigit(digit);
        if (!value) return false;
        unit = unit * 16 + *value;
    }
    at += kEscapeUnits;
    return true;
}

bool AppendUnicodeEscape(std::wstring_view text, std::uint64_t& at, std::wstring& value) {
    std::uint32_t unit = 0;
    if (!TakeUnicodeEscape(text, at, unit) || IsLowSurrogate(unit)) return false;
    value.push_back(static_cast<wchar_t>(unit));
    if (!IsHighSurrogate(unit)) return true;
    std::uint32_t low = 0;
    if (!TakeUnicodeEscape(text, at, low) || !IsLowSurrogate(low)) return false;
    value.push_back(static_cast<wchar_t>(low));
    return true;
}

/// Decodes the escape whose backslash is at `at` and moves behind it.
bool AppendEscape(std::wstring_view text, std::uint64_t& at, std::wstring& value) {
    constexpr std::wstring_view kNames = L"\"/\\bfnrt";
    constexpr std::wstring_view kUnits = L"\"/\\\b\f\n\r\t";
    static_assert(kNames.size() == kUnits.size());
    if (at + 1 >= text.size()) return false;
    if (text[at + 1] == L'u') return AppendUnicodeEscape(text, at, value);
    const std::uint64_t which = kNames.find(text[at + 1]);
    if (which == std::wstring_view::npos) return false;
    value.push_back(kUnits[which]);
    at += 2;
    return true;
}

/// The next `"` or `\` from `at` on, or the length of the text.
std::uint64_t EndOfPlainRun(std::wstring_view text, std::uint64_t at) {
    while (at < text.size() && text[at] != L'"' && text[at] != L'\\')
        ++at;
    return at;
}

/// How deep the walk for a key stands. Closing more than was opened is no error, so the counters may pass below zero;
/// they are unsigned because wrapping is defined there, and only equality with 0 and 1 is ever asked.
struct Depth {
    std::uint32_t objects = 0;
    std::uint32_t arrays = 0;

    void Count(wchar_t unit) {
        if (unit == L'{') ++objects;
        if (unit == L'}') --objects;
        if (unit == L'[') ++arrays;
        if (unit == L']') --arrays;
    }

    [[nodiscard]] bool IsTopLevel() const { return objects == 1 && arrays == 0; }
};

/// The position behind the string that opens at `at`, or `kNotFound` if it never ends. Escapes are stepped over without
/// being judged.
std::uint64_t SkipString(std::wstring_view text, std::uint64_t at) {
    for (++at; at < text.size(); ++at) {
        if (text[at] == L'\\') {
            ++at;
        } else if (text[at] == L'"') {
            return at + 1;
        }
    }
    return kNotFound;
}

/// The position behind the object that opens at `at`, or `kNotFound` if it never closes. Only braces count.
std::uint64_t SkipObject(std::wstring_view text, std::uint64_t at) {
    std::uint64_t depth = 0;
    while (at < text.size()) {
        if (text[at] == L'"') {
            at = SkipString(text, at);
            continue;
        }
        if (text[at] == L'{') ++depth;
        if (text[at] == L'}' && --depth == 0) return at + 1;
        ++at;
    }
    return kNotFound;
}

bool MayStandInStrictGap(wchar_t unit) {
    return unit == L',' || IsOneOf(kBlanks, unit);
}
bool MayStandInLenientGap(wchar_t unit) {
    return unit != L'}';
}

/// Copies out the objects of the array that opens at `at`. The two public walks differ in what they let stand between
/// the objects. A nested `[` is not followed, so the first `]` outside an object ends the walk.
bool WalkObjectArray(std::wstring_view text, std::uint64_t at, bool (*mayStandInGap)(wchar_t),
                     std::vector<std::wstring>& objects) {
    objects.clear();
    if (at >= text.size() || text[at] != L'[') return false;
    ++at;
    while (at < text.size()) {
        if (text[at] == L']') return true;
        if (text[at] == L'{') {
            const std::uint64_t end = SkipObject(text, at);
            if (end == kNotFound) return false;
            objects.emplace_back(text.substr(at, end - at));
            at = end;
            continue;
        }
        if (!mayStandInGap(text[at])) return false;
        at = text[at] == L'"' ? SkipString(text, at) : at + 1;
    }
    return false;
}

}  // namespace

bool DecodeUtf8Document(std::string_view bytes, std::wstring& text) {
    text.clear();
    if (bytes.starts_with(kByteOrderMark)) bytes.remove_prefix(kByteOrderMark.size());
    std::optional<std::wstring> decoded = platform::DecodeUtf8(bytes);
    if (!decoded || decoded->empty()) return false;
    text = std::move(*decoded);
    return true;
}

bool FindTopLevelValue(std::wstring_view text, std::wstring_view key, std::uint64_t& position) {
    position = kNotFound;
    Depth depth;
    std::wstring name;
    std::uint64_t at = 0;
    while (at < text.size()) {
        if (text[at] != L'"') {
            depth.Count(text[at++]);
            continue;
        }
        if (!ParseJsonStringAt(text, at, name, at)) return false;
        if (!depth.IsTopLevel() || name != key) continue;
        const std::uint64_t colon = SkipBlanks(text, at);
        if (colon == text.size() || text[colon] != L':') continue;
        const std::uint64_t value = SkipBlanks(text, colon + 1);
        if (value == text.size()) return false;
        position = value;
        return true;
    }
    return false;
}

bool ParseJsonStringAt(std::wstring_view text, std::uint64_t position, std::wstring& value, std::uint64_t& next) {
    value.clear();
    if (position >= text.size() || text[position] != L'"') return false;
    std::uint64_t at = position + 1;
    while (at < text.size()) {
        const std::uint64_t end = EndOfPlainRun(text, at);
        value.append(text, at, end - at);
        at = end;
        if (at == text.size()) return false;
        if (text[at] == L'"') {
            next = at + 1;
            return true;
        }
        if (!AppendEscape(text, at, value)) return false;
    }
    return false;
}

bool ReadJsonString(std::wstring_view text, std::wstring_view key, std::wstring& value) {
    std::uint64_t position = kNotFound;
    std::uint64_t next = kNotFound;
    return FindTopLevelValue(text, key, position) && ParseJsonStringAt(text, position, value, next);
}

bool ReadJsonBool(std::wstring_view text, std::wstring_view key, bool& value) {
    constexpr std::wstring_view kTrue = L"true";
    constexpr std::wstring_view kFalse = L"false";
    std::uint64_t position = kNotFound;
    if (!FindTopLevelValue(text, key, position)) return false;
    const std::wstring_view rest = text.substr(position);
    value = rest.starts_with(kTrue);
    if (!value && !rest.starts_with(kFalse)) return false;
    return IsDelimited(rest, value ? kTrue.size() : kFalse.size());
}

bool ReadJsonUnsigned(std::wstring_view text, std::wstring_view key, std::uint64_t& value) {
    std::uint64_t position = kNotFound;
    if (!FindTopLevelValue(text, key, position) || !IsDigit(text[position])) return false;
    std::uint64_t next = kNotFound;
    value = ConvertUnsigned(text, position, next);
    return IsDelimited(text, next);
}

bool ReadJsonUnsignedLoose(std::wstring_view text, std::wstring_view key, std::uint64_t& value) {
    std::uint64_t position = kNotFound;
    if (!FindTopLevelValue(text, key, position)) return false;
    std::uint64_t next = kNotFound;
    value = ConvertUnsigned(text, position, next);
    return next != position;
}

std::uint64_t ConvertUnsigned(std::wstring_view text, std::uint64_t position, std::uint64_t& next) {
    constexpr std::wstring_view kLibraryBlanks = L" \t\n\v\f\r";
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
    next = position;
    std::uint64_t at = position;
    while (at < text.size() && IsOneOf(kLibraryBlanks, text[at]))
        ++at;
    const bool negative = at < text.size() && text[at] == L'-';
    if (negative || (at < text.size() && text[at] == L'+')) ++at;
    std::uint64_t value = 0;
    bool tooLarge = false;
    for (; at < text.size() && IsDigit(text[at]); next = ++at) {
        const auto digit = static_cast<std::uint64_t>(text[at] - L'0');
        tooLarge = tooLarge || value > (kLargest - digit) / 10;
        value = tooLarge ? kLargest : value * 10 + digit;
    }
    return negative && !tooLarge ? 0 - value : value;
}

bool ExtractObjectArrayByKey(std::wstring_view text, std::wstring_view key, std::vector<std::wstring>& objects) {
    objects.clear();
    std::uint64_t position = kNotFound;
    return FindTopLevelValue(text, key, position) && WalkObjectArray(text, position, MayStandInLenientGap, objects);
}

bool ExtractObjectArrayAt(std::wstring_view text, std::uint64_t position, std::vector<std::wstring>& objects) {
    return WalkObjectArray(text, position, MayStandInStrictGap, objects);
}

bool ExtractObjectAt(std::wstring_view text, std::uint64_t position, std::wstring& object) {
    object.clear();
    if (position >= text.size() || text[position] != L'{') return false;
    const std::uint64_t end = SkipObject(text, position);
    if (end == kNotFound) return false;
    object = text.substr(position, end - position);
    return true;
}

bool ParseStringArrayAt(std::wstring_view text, std::uint64_t position, std::vector<std::wstring>& values) {
    values.clear();
    if (position >= text.size() || text[position] != L'[') return false;
    std::uint64_t at = SkipBlanks(text, position + 1);
    while (at < text.size() && text[at] != L']') {
        if (!ParseJsonStringAt(text, at, values.emplace_back(), at)) return false;
        at = SkipBlanks(text, at);
        if (at == text.size() || text[at] == L']') break;
        if (text[at] != L',') return false;
        at = SkipBlanks(text, at + 1);
    }
    return at < text.size();
}

std::wstring EscapeJsonText(std::wstring_view text) {
    constexpr std::wstring_view kUnits = L"\t\n\r\"\\";
    constexpr std::wstring_view kNames = L"tnr\"\\";
    static_assert(kUnits.size() == kNames.size());
    std::wstring escaped;
    escaped.reserve(text.size());
    for (const wchar_t unit : text) {
        const std::uint64_t which = kUnits.find(unit);
        if (which != std::wstring_view::npos) escaped.push_back(L'\\');
        escaped.push_back(which == std::wstring_view::npos ? unit : kNames[which]);
    }
    return escaped;
}

std::wstring QuoteJsonText(std::wstring_view text) {
    constexpr std::wstring_view kHex = L"0123456789abcdef";
    std::wstring quoted = L"\"";
    quoted.reserve(text.size() + 2);
    for (const wchar_t unit : text) {
        const std::uint32_t value = ValueOf(unit);
        if (value < 0x20) {
            quoted.append(L"\\u00").append({kHex[value / 16], kHex[value % 16]});
            continue;
        }
        if (unit == L'"' || unit == L'\\') quoted.push_back(L'\\');
        quoted.push_back(unit);
    }
    quoted.push_back(L'"');
    return quoted;
}

}  // namespace launcher_update
