#pragma once

#include <string>

namespace launcher_shell {

/// The longest path that Windows has, in UTF-16 units with the terminator.
inline constexpr unsigned long kPathUnits = 32768;

/// The absolute form of a path, without `.` and `..` ("GetFullPathNameW function"). False for an empty path and for a
/// result beyond `kPathUnits`. Any thread.
[[nodiscard]] bool FullPath(const std::wstring& path, std::wstring& full);

}  // namespace launcher_shell
