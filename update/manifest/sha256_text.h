#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace launcher_update {

/// A SHA-256 digest (FIPS 180-4) in hexadecimal: 256 bits, four to a digit.
inline constexpr std::size_t kSha256HexUnits = 256 / 4;

/// Whether `text` is a digest in hexadecimal, of either case. Digests from outside are compared ignoring case. Pure.
[[nodiscard]] constexpr bool IsSha256Hex(std::wstring_view text) {
    return text.size() == kSha256HexUnits && std::all_of(text.begin(), text.end(), [](wchar_t unit) {
               return (unit >= L'0' && unit <= L'9') || (unit >= L'a' && unit <= L'f') ||
                      (unit >= L'A' && unit <= L'F');
           });
}

}  // namespace launcher_update
