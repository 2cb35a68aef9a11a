#include "download/cache.h"

#include <windows.h>

#include <algorithm>
#include <vector>

#include "download/cache_file.h"
#include "download/cache_rules.h"
#include "platform/unique_handle.h"

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

/// A payload besides the coming one.
struct CachedPayload {
    std::wstring stem;
    std::uint64_t bytes = 0;
    std::uint64_t writtenTicks = 0;
};

std::uint64_t Join(DWORD high, DWORD low) {
    return static_cast<std::uint64_t>(high) << 32 | low;
}

std::uint64_t Ticks(const FILETIME& time) {
    return Join(time.dwHighDateTime, time.dwLowDateTime);
}

/// The cache as a scan finds it.
struct CacheContents {
    CacheTally tally;
    std::vector<CachedPayload> others;
};

/// Takes one entry of the directory into the account. False if it does not belong there.
bool Account(const WIN32_FIND_DATAW& found, const std::wstring& currentSha256, CacheContents& contents) {
    if (contents.others.size() == kMaxScannedPayloads || !IsPayloadName(found.cFileName)) return false;
    if ((found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0) return false;
    std::wstring stem(found.cFileName, currentSha256.size());
    if (stem == currentSha256) return true;  // its bytes are counted already
    const std::uint64_t bytes = Join(found.nFileSizeHigh, found.nFileSizeLow);
    if (!contents.tally.Add(bytes)) return false;
    contents.others.push_back({std::move(stem), bytes, Ticks(found.ftLastWriteTime)});
    return true;
}

bool ListPayloads(const std::wstring& directory, const std::wstring& currentSha256, CacheContents& contents) {
    WIN32_FIND_DATAW found{};
    const std::wstring pattern = ToDownloadLongPath(CachePath(directory, L"*.part"));
    const platform::FindHandle find(FindFirstFileW(pattern.c_str(), &found));
    if (!find) return GetLastError() == ERROR_FILE_NOT_FOUND;
    do {
        if (!Account(found, currentSha256, contents)) return false;
    } while (FindNextFileW(find.Get(), &found));
    return GetLastError() == ERROR_NO_MORE_FILES;
}

/// Deletes from the oldest on until the rest may stay.
bool Purge(const std::wstring& directory, CacheContents& contents) {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    for (const CachedPayload& payload : contents.others) {
        if (IsYoung(payload.writtenTicks, Ticks(now)) && contents.tally.Fits()) return true;
        if (!DeleteFileSafely(CachePath(directory, payload.stem + L".part"))) continue;
        (void)DeleteFileSafely(CachePath(directory, payload.stem + L".resume"));  // worth nothing without its payload
        contents.tally.Remove(payload.bytes);
    }
    return contents.tally.Fits();
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

bool ScanCache(const std::wstring& directory, const std::wstring& currentSha256, std::uint64_t requestSize) {
    CacheContents contents{CacheTally(requestSize), {}};
    if (!ListPayloads(directory, currentSha256, contents)) return false;
    std::stable_sort(
        contents.others.begin(), contents.others.end(),
        [](const CachedPayload& left, const CachedPayload& right) { return left.writtenTicks < right.writtenTicks; });
    return Purge(directory, contents);
}

std::wstring CachePath(const std::wstring& directory, const std::wstring& name) {
    return directory.ends_with(L'\\') ? directory + name : directory + L'\\' + name;
}

}  // namespace launcher_download
