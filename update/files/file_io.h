#pragma once

/// Whole-file reads and copies of the update core. All paths go through the long-path form; failures are a false result
/// and the caller chooses the words. Any thread.

#include <cstdint>
#include <string>

namespace launcher_update {

/// The whole file. False for a read error, an empty file, or more than `limitBytes`, not told apart; `bytes` is then
/// unspecified.
[[nodiscard]] bool ReadFileLimited(const std::wstring& path, std::size_t limitBytes, std::string& bytes);

/// Forces one existing file's data out to the disk ("FlushFileBuffers function").
[[nodiscard]] bool FlushFileToDisk(const std::wstring& path);

/// Forces a fresh copy out. A copy keeps the read-only bit, with which it could neither be forced out nor be replaced
/// again, so that bit is taken off first.
[[nodiscard]] bool ForceCopyOut(const std::wstring& copy);

/// Copies and forces the copy out, making the destination's folder first. Not atomic: after a failure part of a copy
/// may stand, so callers copy to a name of their own and rename.
[[nodiscard]] bool CopyFileDurable(const std::wstring& source, const std::wstring& destination, bool overwrite);

}  // namespace launcher_update
