#pragma once

/// What the tests of the cache's files share: how files were opened, and files that are not what they seem.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/unique_handle.h"
#include "tests/support/stand_in.h"

namespace launcher_download {

using OnCreateFile = test_support::StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnFileInformation = test_support::StandIn<"GetFileInformationByHandle", decltype(GetFileInformationByHandle)>;

inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

inline BOOL Refuse(DWORD error) {
    SetLastError(error);
    return FALSE;
}

inline bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// Opens a file as another program would, and keeps it.
inline platform::FileHandle Hold(const std::wstring& path, DWORD access, DWORD sharing) {
    platform::FileHandle file(
        CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_TRUE(static_cast<bool>(file)) << GetLastError();
    return file;
}

struct Opening {
    std::wstring path;
    DWORD access, sharing, disposition, flags;
};

/// Records how files are opened.
struct Openings {
    std::vector<Opening> all;
    OnCreateFile onCreate{[this](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                 DWORD disposition, DWORD flags, HANDLE other) {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(other, nullptr);
        all.push_back({path, access, sharing, disposition, flags});
        return OnCreateFile::Original(path, access, sharing, security, disposition, flags, other);
    }};
};

/// What a file's handle may tell so that the file is not regular.
struct HandleFacts {
    const char* name;
    DWORD addedAttributes;
    DWORD links;
    bool readable;
};

inline constexpr HandleFacts kIrregular[] = {{"link", FILE_ATTRIBUTE_REPARSE_POINT, 1, true},
                                             {"directory", FILE_ATTRIBUTE_DIRECTORY, 1, true},
                                             {"second name", 0, 2, true},
                                             {"no name", 0, 0, true},
                                             {"unreadable", 0, 1, false}};

/// Every handle tells that, or only the one that is judged as number `only`.
inline OnFileInformation Tell(const HandleFacts& facts, int only = 0) {
    return OnFileInformation([facts, only, asked = 0](HANDLE file, LPBY_HANDLE_FILE_INFORMATION information) mutable {
        const BOOL good = OnFileInformation::Original(file, information);
        if (++asked != only && only != 0) return good;
        information->dwFileAttributes |= facts.addedAttributes;
        information->nNumberOfLinks = facts.links;
        return facts.readable ? good : Refuse(ERROR_INVALID_FUNCTION);
    });
}

}  // namespace launcher_download
