#include "download/cache.h"

#include <windows.h>

#include <algorithm>

#include "download/cache_file.h"

namespace launcher_download {
namespace {

constexpr std::size_t kRootLength = 3;  // "C:\"
constexpr DWORD kPathCapacity = 32768;  // longest path that Windows knows, with its terminator

/// A drive, a colon and a separator, and no further colon: no UNC path, no relative path, no alternate stream.
bool NamesPlaceOnDrive(const std::wstring& path) {
    if (path.size() < kRootLength || path[1] != L':') return false;
    if (path[2] != L'\\' && path[2] != L'/') return false;
    return path.find(L':', 2) == std::wstring::npos && path.find_first_of(L"\r\n") == std::wstring::npos;
}

bool ToFullPath(const std::wstring& path, std::wstring& full) {
    std::wstring buffer(kPathCapacity, L'\0');
    const DWORD length = GetFullPathNameW(path.c_str(), kPathCapacity, buffer.data(), nullptr);
    if (length == 0 || length >= kPathCapacity) return false;
    full.assign(buffer, 0, length);
    return true;
}

DWORD AttributesOf(const std::wstring& path) {
    return GetFileAttributesW(ToDownloadLongPath(path).c_str());
}

bool EnsureRealDirectory(const std::wstring& path) {
    DWORD attributes = AttributesOf(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        // Another process may have made it meanwhile; the attributes decide, not this call.
        CreateDirectoryW(ToDownloadLongPath(path).c_str(), nullptr);
        attributes = AttributesOf(path);
    }
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    return (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == FILE_ATTRIBUTE_DIRECTORY;
}

}  // namespace

bool PrepareSafeDirectory(const std::wstring& path, std::wstring& normalised) {
    if (!NamesPlaceOnDrive(path) || !ToFullPath(path, normalised)) return false;
    // A device name in the last place turns the full path into one of the device name space.
    if (!NamesPlaceOnDrive(normalised)) return false;
    while (normalised.size() > kRootLength && normalised.back() == L'\\')
        normalised.pop_back();
    for (std::size_t end = kRootLength; end < normalised.size(); ++end) {
        end = std::min(normalised.find(L'\\', end), normalised.size());
        if (!EnsureRealDirectory(normalised.substr(0, end))) return false;
    }
    return true;
}

std::wstring CachePath(const std::wstring& directory, const std::wstring& name) {
    return directory.ends_with(L'\\') ? directory + name : directory + L'\\' + name;
}

}  // namespace launcher_download
