#pragma once

/// Paths of the update core, judged and shaped before Windows sees them. Pure; any thread.

#include <string>
#include <string_view>

#include "platform/relative_path.h"

namespace launcher_update {

using platform::IsSafeRelativePath;

/// The folder under the launcher's root that holds journal, lock, staging, backups and cache.
inline constexpr std::wstring_view kControlDirectoryName = L".vpr-update";

/// The longest path that a transaction may name, in UTF-16 units.
inline constexpr std::size_t kMaxTargetPathUnits = 512;

/// The form in which the update core hands every path to Windows ("Maximum Path Length Limitation"): backslashes, and
/// `\\?\` or `\\?\UNC\` in front of a drive or UNC path. A relative path stays relative; a path in that form stays.
[[nodiscard]] std::wstring ToLongPath(std::wstring_view path);

/// The same without turning slashes. Its drive form also accepts `C:/`, and the slashes behind the prefix then stay,
/// which Windows refuses to open: package code builds its paths with backslashes.
[[nodiscard]] std::wstring ToPackageLongPath(std::wstring_view path);

/// True when an update may replace `path` (relative to the root): at most 512 units, `IsSafeRelativePath`, and not
/// inside the control directory, so that no update can write into its own journal or backups.
[[nodiscard]] bool IsSafeTransactionTarget(std::wstring_view path);

/// `left\right` with every `/` of `right` turned.
[[nodiscard]] std::wstring JoinPath(std::wstring_view left, std::wstring_view right);

}  // namespace launcher_update
