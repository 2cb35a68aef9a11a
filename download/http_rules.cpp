#include "download/http_rules.h"

#include <algorithm>
#include <limits>

namespace launcher_download {
namespace {

constexpr std::size_t kMaxEtagLength = 256;

constexpr bool IsDigit(wchar_t unit) {
    return unit >= L'0' && unit <= L'9';
}

/// Takes the run of digits off the front of `rest` and reads it.
std::optional<std::uint64_t> TakeDecimal(std::wstring_view& rest) {
    const auto end = std::find_if_not(rest.begin(), rest.end(), IsDigit);
    const auto length = static_cast<std::size_t>(end - rest.begin());
    const std::wstring_view digits = rest.substr(0, length);
    rest.remove_prefix(length);
    return ParseDecimal(digits);
}

bool Take(std::wstring_view& rest, std::wstring_view expected) {
    if (!rest.starts_with(expected)) return false;
    rest.remove_prefix(expected.size());
    return true;
}

}  // namespace

bool IsLowerHexSha256(std::wstring_view text) {
    return text.size() == 64 && std::all_of(text.begin(), text.end(), [](wchar_t unit) {
               return IsDigit(unit) || (unit >= L'a' && unit <= L'f');
           });
}

std::optional<std::uint64_t> ParseDecimal(std::wstring_view text) {
    if (text.empty()) return std::nullopt;
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t value = 0;
    for (const wchar_t unit : text) {
        if (!IsDigit(unit)) return std::nullopt;
        const auto digit = static_cast<std::uint64_t>(unit - L'0');
        if (value > (kMax - digit) / 10) return std::nullopt;
        value = value * 10 + digit;
    }
    return value;
}

bool IsStrongEtag(std::wstring_view text) {
    if (text.size() < 2 || text.size() > kMaxEtagLength) return false;
    if (text.front() != L'"' || text.back() != L'"') return false;
    const std::wstring_view inside = text.substr(1, text.size() - 2);
    return std::all_of(inside.begin(), inside.end(),
                       [](wchar_t unit) { return unit >= 0x21 && unit <= 0x7E && unit != L'"'; });
}

bool ParseContentRange(std::wstring_view header, std::uint64_t offset, std::uint64_t size) {
    if (size == 0 || offset >= size) return false;
    std::wstring_view rest = header;
    if (!Take(rest, L"bytes ")) return false;
    const std::optional<std::uint64_t> first = TakeDecimal(rest);
    if (!first || !Take(rest, L"-")) return false;
    const std::optional<std::uint64_t> last = TakeDecimal(rest);
    if (!last || !Take(rest, L"/")) return false;
    const std::optional<std::uint64_t> total = TakeDecimal(rest);
    return total && rest.empty() && *first == offset && *last == size - 1 && *total == size;
}

}  // namespace launcher_download
