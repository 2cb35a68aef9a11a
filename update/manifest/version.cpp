#include "update/manifest/version.h"

namespace launcher_update {
namespace {

constexpr std::uint32_t kMaxPart = 65535;  // a part fills 16 bits of a version resource

/// Takes the digits off the front of `rest`. They may be any number of zeros, so the value is judged as it grows.
bool TakePart(std::wstring_view& rest, std::uint32_t& part) {
    part = 0;
    std::size_t digits = 0;
    for (; digits < rest.size() && rest[digits] >= L'0' && rest[digits] <= L'9'; ++digits) {
        part = part * 10 + static_cast<std::uint32_t>(rest[digits] - L'0');
        if (part > kMaxPart) return false;
    }
    rest.remove_prefix(digits);
    return digits > 0;
}

bool TakeDot(std::wstring_view& rest) {
    if (!rest.starts_with(L'.')) return false;
    rest.remove_prefix(1);
    return true;
}

}  // namespace

Version ParseVersion(std::wstring_view text, bool& parsed) {
    Version version{};
    parsed = TakePart(text, version[0]) && TakeDot(text) && TakePart(text, version[1]) && TakeDot(text) &&
             TakePart(text, version[2]) && TakeDot(text) && TakePart(text, version[3]) && text.empty();
    return parsed ? version : Version{};
}

bool IsVersion(std::wstring_view text) {
    bool parsed = false;
    static_cast<void>(ParseVersion(text, parsed));
    return parsed;
}

int CompareVersions(std::wstring_view left, std::wstring_view right, bool& compared) {
    bool leftParsed = false;
    bool rightParsed = false;
    const Version leftVersion = ParseVersion(left, leftParsed);
    const Version rightVersion = ParseVersion(right, rightParsed);
    compared = leftParsed && rightParsed;
    if (!compared || leftVersion == rightVersion) return 0;
    return leftVersion < rightVersion ? -1 : 1;
}

}  // namespace launcher_update
