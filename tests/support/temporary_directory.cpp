#include "tests/support/temporary_directory.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "platform/unique_handle.h"

namespace test_support {
namespace {

void Require(bool good, const char* what) {
    if (good) return;
    std::fprintf(stderr, "test support: %s failed, error %lu\n", what, GetLastError());
    std::abort();
}

void RemoveAll(const std::wstring& directory) {
    WIN32_FIND_DATAW entry{};
    {
        const platform::FindHandle find(FindFirstFileW((directory + L"\\*").c_str(), &entry));
        if (!find) return;
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") continue;
            const std::wstring path = directory + L'\\' + name;
            const DWORD attributes = entry.dwFileAttributes;
            const bool link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
            if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
                SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileW(path.c_str());
            } else if (link) {
                RemoveDirectoryW(path.c_str());
            } else {
                RemoveAll(path);
            }
        } while (FindNextFileW(find.Get(), &entry));
    }
    RemoveDirectoryW(directory.c_str());
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
    static unsigned serial = 0;
    wchar_t base[MAX_PATH + 1];
    Require(GetTempPathW(MAX_PATH + 1, base) != 0, "GetTempPathW");
    do {
        path_ = std::wstring(base) + L"vpr-test-" + std::to_wstring(GetCurrentProcessId()) + L'-' +
                std::to_wstring(++serial);
    } while (!CreateDirectoryW(path_.c_str(), nullptr) && GetLastError() == ERROR_ALREADY_EXISTS);
    Require(GetFileAttributesW(path_.c_str()) != INVALID_FILE_ATTRIBUTES, "CreateDirectoryW");
}

TemporaryDirectory::~TemporaryDirectory() {
    RemoveAll(path_);
}

std::string ReadWholeFile(const std::wstring& path) {
    const platform::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string bytes;
    char block[4096];
    DWORD read = 0;
    while (file && ReadFile(file.Get(), block, sizeof(block), &read, nullptr) && read > 0)
        bytes.append(block, read);
    return bytes;
}

long long FileLength(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return -1;
    return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

void WriteWholeFile(const std::wstring& path, std::string_view bytes) {
    const platform::FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    Require(static_cast<bool>(file), "CreateFileW");
    DWORD written = 0;
    Require(WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
                written == bytes.size(),
            "WriteFile");
}

}  // namespace test_support
