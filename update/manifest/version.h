#pragma once

/// The one version syntax of this product: exactly four decimal numbers separated by dots, as in the version resource
/// of a Windows program, each at most 65535. Leading zeros are allowed; blanks, signs and letters are not. Pure; any
/// thread.

#include <array>
#include <cstdint>
#include <string_view>

namespace launcher_update {

using Version = std::array<std::uint32_t, 4>;

/// The four numbers; all zero, with `parsed` false, if `text` is no version.
[[nodiscard]] Version ParseVersion(std::wstring_view text, bool& parsed);

[[nodiscard]] bool IsVersion(std::wstring_view text);

/// -1, 0 or 1 as `left` is older than, equal to or newer than `right`, part by part and by number. 0, with `compared`
/// false, if either is no version.
[[nodiscard]] int CompareVersions(std::wstring_view left, std::wstring_view right, bool& compared);

}  // namespace launcher_update
