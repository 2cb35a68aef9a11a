#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/stand_in.h"

namespace test_support {

struct Opening {
    std::wstring path;
    DWORD access, share, disposition, flags;
};

struct Moving {
    std::wstring from;
    std::wstring to;
    DWORD flags;
};

/// Records every path that goes to Windows while it lives. On Windows a path beyond 260 units shows a forgotten prefix,
/// elsewhere it may not, so the form itself is looked at.
class SeenCalls {
  public:
    std::vector<std::pair<std::string, std::wstring>> paths;  // function and path
    std::vector<Opening> openings;
    std::vector<Moving> moves;

    [[nodiscard]] bool Holds(const std::string& function) const {
        return std::any_of(paths.begin(), paths.end(), [&](const auto& call) { return call.first == function; });
    }
    void ExpectLongForms() const {
        EXPECT_FALSE(paths.empty());
        for (const auto& [function, path] : paths)
            EXPECT_TRUE(path.starts_with(L"\\\\?\\") && path.find(L'/') == std::wstring::npos)
                << function << ' ' << platform::EncodeUtf8(path);
    }

  private:
    using OnCreateFile = StandIn<"CreateFileW", decltype(CreateFileW)>;
    using OnCreateDirectory = StandIn<"CreateDirectoryW", decltype(CreateDirectoryW)>;
    using OnRemoveDirectory = StandIn<"RemoveDirectoryW", decltype(RemoveDirectoryW)>;
    using OnDeleteFile = StandIn<"DeleteFileW", decltype(DeleteFileW)>;
    using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;
    using OnCopyFile = StandIn<"CopyFileW", decltype(CopyFileW)>;
    using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;
    using OnGetAttributesEx = StandIn<"GetFileAttributesExW", decltype(GetFileAttributesExW)>;
    using OnSetAttributes = StandIn<"SetFileAttributesW", decltype(SetFileAttributesW)>;
    using OnFindFirst = StandIn<"FindFirstFileW", decltype(FindFirstFileW)>;
    using OnLibraryOpen = StandIn<"_wfopen", decltype(_wfopen)>;

    void Note(const char* function, const wchar_t* path) { paths.emplace_back(function, path); }

    OnCreateFile createFile_{[this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                    DWORD disposition, DWORD flags, HANDLE other) {
        Note("CreateFileW", path);
        openings.push_back({path, access, share, disposition, flags});
        return OnCreateFile::Original(path, access, share, security, disposition, flags, other);
    }};
    OnCreateDirectory createDirectory_{[this](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        Note("CreateDirectoryW", path);
        return OnCreateDirectory::Original(path, security);
    }};
    OnRemoveDirectory removeDirectory_{[this](LPCWSTR path) {
        Note("RemoveDirectoryW", path);
        return OnRemoveDirectory::Original(path);
    }};
    OnDeleteFile deleteFile_{[this](LPCWSTR path) {
        Note("DeleteFileW", path);
        return OnDeleteFile::Original(path);
    }};
    OnMoveFile moveFile_{[this](LPCWSTR from, LPCWSTR to, DWORD flags) {
        Note("MoveFileExW", from);
        Note("MoveFileExW", to);
        moves.push_back({from, to, flags});
        return OnMoveFile::Original(from, to, flags);
    }};
    OnCopyFile copyFile_{[this](LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
        Note("CopyFileW", from);
        Note("CopyFileW", to);
        return OnCopyFile::Original(from, to, failIfExists);
    }};
    OnGetAttributes getAttributes_{[this](LPCWSTR path) {
        Note("GetFileAttributesW", path);
        return OnGetAttributes::Original(path);
    }};
    OnGetAttributesEx getAttributesEx_{[this](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID facts) {
        Note("GetFileAttributesExW", path);
        return OnGetAttributesEx::Original(path, level, facts);
    }};
    OnSetAttributes setAttributes_{[this](LPCWSTR path, DWORD attributes) {
        Note("SetFileAttributesW", path);
        return OnSetAttributes::Original(path, attributes);
    }};
    OnFindFirst findFirst_{[this](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
        Note("FindFirstFileW", pattern);
        return OnFindFirst::Original(pattern, found);
    }};
    OnLibraryOpen libraryOpen_{[this](const wchar_t* path, const wchar_t* mode) {
        Note("_wfopen", path);
        return OnLibraryOpen::Original(path, mode);
    }};
};

}  // namespace test_support
