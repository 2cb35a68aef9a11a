#pragma once

/// What the engine does to an open file of the cache. Handles belong to the caller; one thread per handle.

#include <windows.h>

#include <cstdint>
#include <string>

#include "platform/unique_handle.h"

namespace launcher_download {

/// Puts `\\?\` in front of a path that does not begin with it. The path must be absolute with backslashes, since
/// Windows takes what follows the prefix literally.
[[nodiscard]] std::wstring ToDownloadLongPath(const std::wstring& path);

/// True only for a file that is neither a directory nor a reparse point and has exactly one name: what is written
/// through the handle then appears in no other place.
[[nodiscard]] bool IsRegularFileHandle(HANDLE file);

/// Opens a file without following a link, by `CreateFileW`'s access, sharing and disposition. The handle is none if
/// that fails or the file is not regular by the rule above; one that was made only now may then stay.
[[nodiscard]] platform::FileHandle OpenRegularFile(const std::wstring& path, DWORD access, DWORD sharing,
                                                   DWORD disposition);

/// Opens or makes a cache file for reading and writing, shared with nobody.
[[nodiscard]] platform::FileHandle OpenCacheFile(const std::wstring& path);

/// Opens a cache file that is there already for reading, otherwise as `OpenCacheFile`.
[[nodiscard]] platform::FileHandle OpenExistingCacheFile(const std::wstring& path);

/// Deletes the file at `path` by its handle, so that what was judged is what goes. True also if it is not there. False,
/// with nothing changed, for a directory, a reparse point, a file with a second name, or one that another program
/// holds open.
[[nodiscard]] bool DeleteFileSafely(const std::wstring& path);

/// Length in bytes; false if it cannot be had.
[[nodiscard]] bool ReadLength(HANDLE file, std::uint64_t& length);

/// Moves the file pointer to `offset` bytes from the start.
[[nodiscard]] bool SeekTo(HANDLE file, std::uint64_t offset);

/// Empties the file and forces that to the disk. True only if each of the three steps succeeds.
[[nodiscard]] bool ResetFile(HANDLE file);

/// Writes all of `buffer` at the file pointer. On false the last error is the write's, or 0 for a write of no bytes; a
/// part may have been written.
[[nodiscard]] bool WriteAll(HANDLE file, const void* buffer, std::size_t length);

}  // namespace launcher_download
