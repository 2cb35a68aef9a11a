#pragma once

#include <string>

namespace launcher_download {

/// Makes every missing directory on the way to `path` and proves each of them a real directory: with a reparse point
/// among them the cache would lie somewhere else than judged. `path` must begin with a drive, a colon and a separator.
/// On true `normalised` is the full path with backslashes, without one at its end unless it is a drive's root. On false
/// directories that were already made stay. Any thread.
[[nodiscard]] bool PrepareSafeDirectory(const std::wstring& path, std::wstring& normalised);

/// `<directory>\<name>`, also where `directory` is a drive's root.
[[nodiscard]] std::wstring CachePath(const std::wstring& directory, const std::wstring& name);

}  // namespace launcher_download
