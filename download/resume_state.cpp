#include "download/resume_state.h"

#include <windows.h>

#include "download/cache_file.h"
#include "download/payload_hash.h"
#include "platform/unique_handle.h"

namespace launcher_download {
namespace {

bool WriteNewFile(const std::wstring& path, const std::string& bytes) {
    const platform::FileHandle file = OpenRegularFile(path, GENERIC_WRITE, 0, CREATE_NEW);
    return file && WriteAll(file.Get(), bytes.data(), bytes.size()) && FlushFileBuffers(file.Get());
}

}  // namespace

std::wstring HashUrl(const std::wstring& url) {
    return HashFileOrBuffer(url.data(), url.size() * sizeof(wchar_t), INVALID_HANDLE_VALUE, {});
}

ResumeState ReadResumeState(const std::wstring& path) {
    const platform::FileHandle file = OpenRegularFile(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    std::uint64_t length = 0;
    if (!file || !ReadLength(file.Get(), length) || length > kMaxResumeFileBytes) return {};
    char bytes[kMaxResumeFileBytes];
    DWORD count = 0;
    if (!ReadFile(file.Get(), bytes, sizeof(bytes), &count, nullptr)) return {};
    return DecodeResumeState({bytes, count});
}

bool WriteResumeState(const std::wstring& path, const ResumeState& state) {
    const std::string bytes = EncodeResumeState(state);
    if (bytes.empty()) return false;
    const std::wstring sibling = path + L".tmp";
    (void)DeleteFileSafely(sibling);  // what it could not remove refuses the new file
    if (!WriteNewFile(sibling, bytes) || !DeleteFileSafely(path)) return false;
    return MoveFileExW(ToDownloadLongPath(sibling).c_str(), ToDownloadLongPath(path).c_str(), MOVEFILE_WRITE_THROUGH) !=
           FALSE;
}

}  // namespace launcher_download
