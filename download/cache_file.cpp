#include "download/cache_file.h"

#include <algorithm>

namespace launcher_download {
namespace {

constexpr wchar_t kLongPrefix[] = L"\\\\?\\";
constexpr DWORD kNotAFile = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
constexpr std::size_t kMaxWriteBytes = 1u << 30;  // one WriteFile takes a 32-bit count

}  // namespace

std::wstring ToDownloadLongPath(const std::wstring& path) {
    return path.starts_with(kLongPrefix) ? path : kLongPrefix + path;
}

bool IsRegularFileHandle(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(file, &information)) return false;
    return (information.dwFileAttributes & kNotAFile) == 0 && information.nNumberOfLinks == 1;
}

platform::FileHandle OpenCacheFile(const std::wstring& path) {
    return OpenRegularFile(path, GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS);
}

platform::FileHandle OpenExistingCacheFile(const std::wstring& path) {
    return OpenRegularFile(path, GENERIC_READ, 0, OPEN_EXISTING);
}

platform::FileHandle OpenRegularFile(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition) {
    platform::FileHandle file(CreateFileW(ToDownloadLongPath(path).c_str(), access, sharing, nullptr, disposition,
                                          FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (file && !IsRegularFileHandle(file.Get())) file.Reset();
    return file;
}

bool DeleteFileSafely(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(ToDownloadLongPath(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError() == ERROR_FILE_NOT_FOUND;
    if ((attributes & kNotAFile) != 0) return false;
    const platform::FileHandle file = OpenRegularFile(path, DELETE | FILE_READ_ATTRIBUTES, 0, OPEN_EXISTING);
    if (!file) return false;
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = TRUE;
    return SetFileInformationByHandle(file.Get(), FileDispositionInfo, &disposition, sizeof(disposition)) != FALSE;
}

bool ReadLength(HANDLE file, std::uint64_t& length) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size) || size.QuadPart < 0) return false;
    length = static_cast<std::uint64_t>(size.QuadPart);
    return true;
}

bool SeekTo(HANDLE file, std::uint64_t offset) {
    LARGE_INTEGER distance{};
    distance.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(file, distance, nullptr, FILE_BEGIN) != FALSE;
}

bool ResetFile(HANDLE file) {
    return SeekTo(file, 0) && SetEndOfFile(file) && FlushFileBuffers(file);
}

bool WriteAll(HANDLE file, const void* buffer, std::size_t length) {
    const auto* next = static_cast<const unsigned char*>(buffer);
    while (length > 0) {
        DWORD written = 0;
        SetLastError(ERROR_SUCCESS);
        if (!WriteFile(file, next, static_cast<DWORD>(std::min(length, kMaxWriteBytes)), &written, nullptr))
            return false;
        if (written == 0) return false;
        next += written;
        length -= written;
    }
    return true;
}

}  // namespace launcher_download
