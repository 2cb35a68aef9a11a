#pragma once

#include <string_view>

namespace platform {

/// What `PathIsRelativeW` (shlwapi) answers: false for a leading backslash and for a colon as the second character,
/// true for everything else, the empty path included. Pure, so that the parsers that lean on it run on any machine;
/// a test holds it against the real function.
[[nodiscard]] constexpr bool PathIsRelative(std::wstring_view path) {
    if (path.empty()) return true;
    return path.front() != L'\\' && !(path.size() > 1 && path[1] == L':');
}

/// The one rule for a path that may be joined under a trusted root: not empty, relative, without a colon (no drive, no
/// alternate data stream), without a NUL (Windows would cut the path there and act on another name than was judged),
/// and with no segment that is empty, `.` or `..`. Both separators cut segments. Pure; any thread.
[[nodiscard]] bool IsSafeRelativePath(std::wstring_view path);

}  // namespace platform
