#include "update/files/trees.h"

#include <windows.h>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"

namespace launcher_update {
namespace {

constexpr int kRemoveAttempts = 6;
constexpr DWORD kRemovePauseMs = 100;
constexpr DWORD kProtectingBits = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

bool IsDotEntry(const wchar_t* name) {
    return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

using LongForm = std::wstring (*)(std::wstring_view);
using ExistingPasses = bool (*)(std::uint32_t attributes);

bool MakeChain(const std::wstring& path, LongForm longForm, ExistingPasses existingPasses) {
    if (path.empty()) return false;
    const std::wstring longPath = longForm(path);
    const DWORD attributes = GetFileAttributesW(longPath.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) return existingPasses(attributes);
    const auto parent = platform::ParentPath(path);
    if (parent && !MakeChain(*parent, longForm, existingPasses)) return false;
    return CreateDirectoryW(longPath.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

enum class Protected { cleared, kept };

bool RemoveFile(const std::wstring& path, std::uint32_t attributes, Protected bits) {
    const std::wstring longPath = ToLongPath(path);
    const bool mustClear = bits == Protected::cleared && (attributes & kProtectingBits) != 0;
    if (mustClear && !SetFileAttributesW(longPath.c_str(), FILE_ATTRIBUTE_NORMAL)) return false;
    return DeleteFileW(longPath.c_str()) != FALSE;
}

bool ListWalk(const std::wstring& top, const std::wstring& below, std::vector<std::wstring>& files) {
    std::vector<DirectoryEntry> entries;
    if (!ListDirectory(below.empty() ? top : JoinPath(top, below), entries)) return false;
    for (const DirectoryEntry& entry : entries) {
        if ((entry.attributes & kReparsePointBit) != 0) return false;
        const std::wstring relative = below.empty() ? entry.name : JoinPath(below, entry.name);
        if ((entry.attributes & kDirectoryBit) == 0) {
            files.push_back(relative);
        } else if (!ListWalk(top, relative, files)) {
            return false;
        }
    }
    return true;
}

/// The one walk that removes. A link's target must not be entered, so the attributes decide before anything is opened.
bool RemoveWalk(const std::wstring& path, Protected bits) {
    const PathFacts facts = LookAt(path);
    if (facts.presence == Presence::absent) return true;
    if (!IsRealDirectory(facts.attributes)) return false;
    std::vector<DirectoryEntry> entries;
    if (!ListDirectory(path, entries)) return false;
    for (const DirectoryEntry& entry : entries) {
        const std::wstring entryPath = JoinPath(path, entry.name);
        const bool isDirectory = (entry.attributes & kDirectoryBit) != 0;
        if (isDirectory && !IsRealDirectory(entry.attributes)) return false;
        if (!(isDirectory ? RemoveWalk(entryPath, bits) : RemoveFile(entryPath, entry.attributes, bits))) return false;
    }
    const std::wstring longPath = ToLongPath(path);
    if (bits == Protected::cleared) SetFileAttributesW(longPath.c_str(), FILE_ATTRIBUTE_DIRECTORY);
    return RemoveDirectoryW(longPath.c_str()) != FALSE;
}

}  // namespace

bool ListDirectory(const std::wstring& path, std::vector<DirectoryEntry>& entries) {
    entries.clear();
    WIN32_FIND_DATAW found{};
    const platform::FindHandle find(FindFirstFileW((ToLongPath(path) + L"\\*").c_str(), &found));
    if (!find) return GetLastError() == ERROR_FILE_NOT_FOUND;
    do {
        if (!IsDotEntry(found.cFileName)) entries.push_back({found.cFileName, found.dwFileAttributes});
    } while (FindNextFileW(find.Get(), &found));
    return GetLastError() == ERROR_NO_MORE_FILES;
}

bool ListTreeNoLinks(const std::wstring& path, std::vector<std::wstring>& files) {
    return ListWalk(path, L"", files);
}

bool EnsureDirectory(const std::wstring& path) {
    return MakeChain(path, ToLongPath, [](std::uint32_t attributes) { return (attributes & kDirectoryBit) != 0; });
}

bool CreateDirectoryChain(const std::wstring& path) {
    return MakeChain(path, ToPackageLongPath, IsRealDirectory);
}

bool RemoveTree(const std::wstring& path) {
    return RemoveWalk(path, Protected::cleared);
}

bool RemoveTreeNoLinks(const std::wstring& path) {
    return RemoveWalk(path, Protected::kept);
}

bool RemoveTreeRetry(const std::wstring& path) {
    for (int attempt = 1; attempt <= kRemoveAttempts; ++attempt) {
        if (attempt > 1) Sleep(kRemovePauseMs);
        if (RemoveTree(path)) return true;
    }
    return false;
}

}  // namespace launcher_update
