#pragma once

#include <string>
#include <string_view>

namespace platform {

/// An http or https URL in pieces (RFC 3986, section 3), each as written: nothing is decoded.
struct UrlParts {
    bool https = false;
    std::wstring userName;
    std::wstring password;
    std::wstring host;
    unsigned short port = 0;  // 443 or 80 where the URL names none
    std::wstring path;        // from the first `/` up to `?` or `#`; may be empty
    std::wstring extra;       // from `?` or `#` on; may be empty
};

/// Cuts `url` into pieces. False, with `parts` unspecified, for another scheme, a missing `//`, an empty host, a
/// control character, blank or backslash before the path, or a port that is no number from 1 to 65535.
///
/// Stricter than `WinHttpCrackUrl` on purpose: a host that two readers understand differently is refused. Pure.
[[nodiscard]] bool SplitUrl(std::wstring_view url, UrlParts& parts);

}  // namespace platform
