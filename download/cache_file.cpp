#include "download/cache_file.h"

#include <algorithm>

namespace launcher_download {
namespace {

constexpr wchar_t kLongPrefix[] = L"\\\\?\\";
constexpr std::size_t kMaxWriteBytes = 1u << 30;  // one WriteFile takes a 32-bit count

}  // namespace

std::wstring ToDownloadLongPath(const std::wstring& path) {
    return path.starts_with(kLongPrefix) ? path : kLongPrefix + path;
}

bool IsRegularFileHandle(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(file, &information)) return false;
    constexpr DWORD kRefused = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    return (information.dwFileAttributes & kRefused) == 0 && information.nNumberOfLinks == 1;
}

platform::FileHandle OpenCacheFile(const std::wstring& path) {
    platform::FileHandle file(CreateFileW(ToDownloadLongPath(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                          OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (file && !IsRegularFileHandle(file.Get())) file.Reset();
    return file;
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
