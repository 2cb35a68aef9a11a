#pragma once

#include <cstdint>
#include <string>

namespace launcher_download {

/// Makes every missing directory on the way to `path` and proves each of them a real directory: with a reparse point
/// among them the cache would lie somewhere else than judged. `path` must begin with a drive, a colon and a separator.
/// On true `normalised` is the full path with backslashes, without one at its end unless it is a drive's root. On false
/// directories that were already made stay. Any thread.
[[nodiscard]] bool PrepareSafeDirectory(const std::wstring& path, std::wstring& normalised);

/// Judges all `*.part` files of a prepared directory and makes room for the payload `currentSha256` of `requestSize`
/// bytes: what is older than seven days goes, and the oldest go until at most 16 payloads and 4 GiB are kept, the
/// coming one counted. False if the directory holds a `*.part` that is not a payload of this cache, more than 128
/// others, or stays over a limit because something could not be deleted; nothing is skipped that is not understood. Any
/// thread.
[[nodiscard]] bool ScanCache(const std::wstring& directory, const std::wstring& currentSha256,
                             std::uint64_t requestSize);

/// `<directory>\<name>`, also where `directory` is a drive's root.
[[nodiscard]] std::wstring CachePath(const std::wstring& directory, const std::wstring& name);

}  // namespace launcher_download
