#pragma once

/// Folders: making chains of them, listing them, removing trees. No operation enters a reparse point. Any thread.

#include <cstdint>
#include <string>
#include <vector>

namespace launcher_update {

struct DirectoryEntry {
    std::wstring name;
    std::uint32_t attributes = 0;
};

/// All entries but `.` and `..`, in enumeration order. False when the listing could not be begun or finished; a folder
/// without any entry, which reports error 2, is an empty list.
[[nodiscard]] bool ListDirectory(const std::wstring& path, std::vector<DirectoryEntry>& entries);

/// Appends every file below `path`, as its path relative to it with backslashes; folders do not appear. False for a
/// reparse point of any kind anywhere below, or a listing that breaks off.
[[nodiscard]] bool ListTreeNoLinks(const std::wstring& path, std::vector<std::wstring>& files);

/// Makes missing folders. An existing path passes when it is a directory, a link to one included: callers that care ask
/// `IsRealDirectory` afterwards. Two racing creators both pass.
[[nodiscard]] bool EnsureDirectory(const std::wstring& path);

/// The stricter form, on package paths: an existing path must be a real directory, not a link to one.
[[nodiscard]] bool CreateDirectoryChain(const std::wstring& path);

/// Removes a tree, clearing read-only, hidden and system attributes on the way. A missing path is success. A root that
/// is no real directory, or any directory inside that is a reparse point, is a failure; a link's target is never
/// entered. Stops at the first failure and leaves the rest.
[[nodiscard]] bool RemoveTree(const std::wstring& path);

/// The package code's form: attributes are not cleared, so that a read-only file fails it.
[[nodiscard]] bool RemoveTreeNoLinks(const std::wstring& path);

/// `RemoveTree` up to 6 times, 100 ms apart: virus scanners and indexers hold files open for moments.
[[nodiscard]] bool RemoveTreeRetry(const std::wstring& path);

}  // namespace launcher_update
