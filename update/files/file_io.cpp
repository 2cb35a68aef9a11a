#include "update/files/file_io.h"

#include <windows.h>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"
#include "update/files/trees.h"

namespace launcher_update {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

}  // namespace

bool ReadFileLimited(const std::wstring& path, std::size_t limitBytes, std::string& bytes) {
    const platform::FileHandle file(CreateFileW(ToLongPath(path).c_str(), GENERIC_READ, kShareAll, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    bytes.resize(limitBytes + 1);  // one more than allowed, so that one read tells "full" from "too long"
    DWORD read = 0;
    if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) return false;
    if (read == 0 || read > limitBytes) return false;
    bytes.resize(read);
    return true;
}

bool FlushFileToDisk(const std::wstring& path) {
    const platform::FileHandle file(CreateFileW(ToLongPath(path).c_str(), GENERIC_WRITE, kShareAll, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_WRITE_THROUGH,
                                                nullptr));
    return file && FlushFileBuffers(file.Get());
}

bool ForceCopyOut(const std::wstring& copy) {
    const std::uint32_t attributes = LookAt(copy).attributes;
    if (attributes != kNoAttributes && (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
        !SetFileAttributesW(ToLongPath(copy).c_str(), FILE_ATTRIBUTE_NORMAL)) {
        return false;
    }
    return FlushFileToDisk(copy);
}

bool CopyFileDurable(const std::wstring& source, const std::wstring& destination, bool overwrite) {
    const auto parent = platform::ParentPath(destination);
    if (!parent || !EnsureDirectory(*parent)) return false;
    if (!CopyFileW(ToLongPath(source).c_str(), ToLongPath(destination).c_str(), overwrite ? FALSE : TRUE)) return false;
    return FlushFileToDisk(destination);
}

}  // namespace launcher_update
