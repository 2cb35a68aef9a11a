#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace launcher_download {

/// Rewrites an HTTP date (RFC 9110, section 5.6.7), in whichever of its three forms it comes, in the preferred one:
/// `Sun, 06 Nov 1994 08:49:37 GMT`. None for anything else, also for a day or hour that no calendar or clock has; the
/// day of the week must be a name but is not compared with the date. Two-digit years are taken as the RFC asks, by
/// `currentYear`: never more than 50 years ahead. Pure; any thread.
///
/// Windows' own reader is fed with the result only: it is known to take almost any text for a date.
[[nodiscard]] std::optional<std::wstring> NormaliseHttpDate(std::wstring_view text, unsigned currentYear);

}  // namespace launcher_download
