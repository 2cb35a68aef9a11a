#include "platform/text.h"

#include <algorithm>
#include <cstdint>

namespace platform {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

constexpr bool IsHighSurrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// What a lead byte promises (RFC 3629, section 4): how many bytes follow and the least value that needs them.
struct Lead {
    unsigned following;
    std::uint32_t bits;
    std::uint32_t least;
};

std::optional<Lead> ReadLead(unsigned char byte) {
    if (byte < 0x80) return Lead{0, byte, 0};
    if ((byte & 0xE0) == 0xC0) return Lead{1, byte & 0x1Fu, 0x80};
    if ((byte & 0xF0) == 0xE0) return Lead{2, byte & 0x0Fu, 0x800};
    if ((byte & 0xF8) == 0xF0) return Lead{3, byte & 0x07u, 0x10000};
    return std::nullopt;
}

void AppendUtf16(std::wstring& text, std::uint32_t value) {
    if (value < 0x10000) {
        text.push_back(static_cast<wchar_t>(value));
        return;
    }
    value -= 0x10000;
    text.push_back(static_cast<wchar_t>(0xD800 + (value >> 10)));
    text.push_back(static_cast<wchar_t>(0xDC00 + (value & 0x3FF)));
}

void AppendUtf8(std::string& bytes, std::uint32_t value) {
    const auto push = [&bytes](std::uint32_t byte) { bytes.push_back(static_cast<char>(byte)); };
    if (value < 0x80) {
        push(value);
    } else if (value < 0x800) {
        push(0xC0 | (value >> 6));
        push(0x80 | (value & 0x3F));
    } else if (value < 0x10000) {
        push(0xE0 | (value >> 12));
        push(0x80 | ((value >> 6) & 0x3F));
        push(0x80 | (value & 0x3F));
    } else {
        push(0xF0 | (value >> 18));
        push(0x80 | ((value >> 12) & 0x3F));
        push(0x80 | ((value >> 6) & 0x3F));
        push(0x80 | (value & 0x3F));
    }
}

constexpr bool IsSeparator(wchar_t unit) {
    return unit == L'\\' || unit == L'/';
}

}  // namespace

std::optional<std::wstring> DecodeUtf8(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size();) {
        const std::optional<Lead> lead = ReadLead(static_cast<unsigned char>(bytes[at]));
        if (!lead || bytes.size() - at <= lead->following) return std::nullopt;
        std::uint32_t value = lead->bits;
        for (unsigned next = 1; next <= lead->following; ++next) {
            const auto byte = static_cast<unsigned char>(bytes[at + next]);
            if ((byte & 0xC0) != 0x80) return std::nullopt;
            value = (value << 6) | (byte & 0x3Fu);
        }
        if (value < lead->least || value > 0x10FFFF || IsHighSurrogate(value) || IsLowSurrogate(value)) {
            return std::nullopt;
        }
        AppendUtf16(text, value);
        at += lead->following + 1;
    }
    return text;
}

std::string EncodeUtf8(std::wstring_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::uint32_t unit = static_cast<char16_t>(text[at]);
        if (!IsHighSurrogate(unit) && !IsLowSurrogate(unit)) {
            AppendUtf8(bytes, unit);
            continue;
        }
        const std::uint32_t next = at + 1 < text.size() ? static_cast<char16_t>(text[at + 1]) : u'\0';
        if (IsHighSurrogate(unit) && IsLowSurrogate(next)) {
            AppendUtf8(bytes, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
            ++at;
        } else {
            AppendUtf8(bytes, kReplacement);
        }
    }
    return bytes;
}

std::wstring ToLower(std::wstring_view text) {
    std::wstring lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), ToLowerUnit);
    return lower;
}

bool EqualsIgnoringCase(std::wstring_view left, std::wstring_view right) {
    return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(), [](wchar_t a, wchar_t b) {
               return ToLowerUnit(a) == ToLowerUnit(b);
           });
}

bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix) {
    return text.size() >= prefix.size() && EqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

bool EndsWithIgnoringCase(std::wstring_view text, std::wstring_view suffix) {
    return text.size() >= suffix.size() && EqualsIgnoringCase(text.substr(text.size() - suffix.size()), suffix);
}

std::wstring WithBackslashes(std::wstring_view text) {
    std::wstring turned(text);
    std::replace(turned.begin(), turned.end(), L'/', L'\\');
    return turned;
}

std::vector<std::wstring_view> SplitPath(std::wstring_view path) {
    std::vector<std::wstring_view> pieces;
    std::size_t start = 0;
    for (std::size_t at = 0; at < path.size(); ++at) {
        if (!IsSeparator(path[at])) continue;
        pieces.push_back(path.substr(start, at - start));
        start = at + 1;
    }
    pieces.push_back(path.substr(start));
    return pieces;
}

std::optional<std::wstring> ParentPath(std::wstring_view path) {
    const std::size_t separator = path.find_last_of(L"\\/");
    if (separator == std::wstring_view::npos) return std::nullopt;
    return std::wstring(path.substr(0, separator));
}

std::wstring_view LastPathComponent(std::wstring_view path) {
    const std::size_t separator = path.find_last_of(L"\\/");
    return separator == std::wstring_view::npos ? path : path.substr(separator + 1);
}

std::wstring WidenAscii(std::string_view ascii) {
    return std::wstring(ascii.begin(), ascii.end());
}

}  // namespace platform
