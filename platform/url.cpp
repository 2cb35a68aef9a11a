#include "platform/url.h"

#include <algorithm>

#include "platform/text.h"

namespace platform {
namespace {

/// Takes the scheme and `://` off the front.
bool TakeScheme(std::wstring_view& rest, bool& https) {
    if (StartsWithIgnoringCase(rest, L"https://")) {
        https = true;
        rest.remove_prefix(8);
        return true;
    }
    if (StartsWithIgnoringCase(rest, L"http://")) {
        https = false;
        rest.remove_prefix(7);
        return true;
    }
    return false;
}

bool HoldsOnlyPrintable(std::wstring_view authority) {
    return std::all_of(authority.begin(), authority.end(),
                       [](wchar_t unit) { return unit > 0x20 && unit != 0x7F && unit != L'\\'; });
}

void TakeUserInfo(std::wstring_view& authority, UrlParts& parts) {
    const std::size_t at = authority.rfind(L'@');
    if (at == std::wstring_view::npos) return;
    const std::wstring_view info = authority.substr(0, at);
    const std::size_t colon = info.find(L':');
    parts.userName = info.substr(0, colon);
    if (colon != std::wstring_view::npos) parts.password = info.substr(colon + 1);
    authority.remove_prefix(at + 1);
}

bool ReadPort(std::wstring_view digits, unsigned short& port) {
    if (digits.empty() || digits.size() > 5) return false;
    unsigned value = 0;
    for (const wchar_t digit : digits) {
        if (digit < L'0' || digit > L'9') return false;
        value = value * 10 + static_cast<unsigned>(digit - L'0');
    }
    if (value == 0 || value > 65535) return false;
    port = static_cast<unsigned short>(value);
    return true;
}

bool TakeHostAndPort(std::wstring_view authority, UrlParts& parts) {
    const std::size_t bracket = authority.rfind(L']');
    const std::size_t colon = authority.find(L':', bracket == std::wstring_view::npos ? 0 : bracket);
    parts.host = authority.substr(0, colon);
    if (parts.host.empty()) return false;
    parts.port = parts.https ? 443 : 80;
    return colon == std::wstring_view::npos || ReadPort(authority.substr(colon + 1), parts.port);
}

}  // namespace

bool SplitUrl(std::wstring_view url, UrlParts& parts) {
    parts = UrlParts{};
    std::wstring_view rest = url;
    if (!TakeScheme(rest, parts.https)) return false;
    const std::size_t authorityEnd = std::min(rest.find_first_of(L"/?#"), rest.size());
    std::wstring_view authority = rest.substr(0, authorityEnd);
    if (!HoldsOnlyPrintable(authority)) return false;
    TakeUserInfo(authority, parts);
    if (!TakeHostAndPort(authority, parts)) return false;
    rest.remove_prefix(authorityEnd);
    const std::size_t pathEnd = std::min(rest.find_first_of(L"?#"), rest.size());
    parts.path = rest.substr(0, pathEnd);
    parts.extra = rest.substr(pathEnd);
    return true;
}

}  // namespace platform
