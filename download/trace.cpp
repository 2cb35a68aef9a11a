#include "download/trace.h"

#include <windows.h>

#include <ctime>
#include <string>

#include "download/cache.h"
#include "download/cache_file.h"
#include "download/trace_line.h"
#include "platform/unique_handle.h"

namespace launcher_download {
namespace {

constexpr std::uint64_t kRotateAboveBytes =
    0x40000;  // 256 KiB; the two files together hold little more than twice that

/// Moves the current file out of the way and opens a new one; none if any of that fails.
platform::FileHandle Rotate(const std::wstring& directory, const std::wstring& current) {
    const std::wstring previous = CachePath(directory, L"download-trace.previous.jsonl");
    (void)DeleteFileSafely(previous);  // what it could not remove refuses the move
    if (!MoveFileExW(ToDownloadLongPath(current).c_str(), ToDownloadLongPath(previous).c_str(),
                     MOVEFILE_WRITE_THROUGH)) {
        return {};
    }
    return OpenRegularFile(current, GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW);
}

platform::FileHandle OpenForLine(const std::wstring& directory) {
    const std::wstring current = CachePath(directory, L"download-trace.jsonl");
    platform::FileHandle file = OpenRegularFile(current, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS);
    std::uint64_t length = 0;
    if (!file || !ReadLength(file.Get(), length)) return {};
    if (length > kRotateAboveBytes) {
        file.Reset();
        return Rotate(directory, current);
    }
    if (!SeekTo(file.Get(), length)) return {};
    return file;
}

}  // namespace

void AppendTrace(const std::wstring& directory, const Request& request, const Progress& progress, const char* endpoint,
                 std::uint32_t osError, std::uint32_t httpStatus, const char* reasonWord, std::uint64_t firstByteMs) {
    const platform::FileHandle file = OpenForLine(directory);
    if (!file) return;
    const std::string line =
        FormatTraceLine(request, progress, {_time64(nullptr), endpoint, osError, httpStatus, reasonWord, firstByteMs});
    (void)WriteAll(file.Get(), line.data(), line.size());
}

}  // namespace launcher_download
