#include <windows.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "download/cache_file.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "tests/windows/cache_file_fixture.h"

namespace launcher_download {
namespace {

using test_support::FileLength;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::ReadWholeFile;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WriteWholeFile;

using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;
using OnSetInformation = StandIn<"SetFileInformationByHandle", decltype(SetFileInformationByHandle)>;

class File_Deletion : public ::testing::Test {
  protected:
    File_Deletion() { WriteWholeFile(path_, "precious"); }

    /// The file is as it was, and nobody has kept it open.
    void ExpectUntouched() const {
        EXPECT_TRUE(static_cast<bool>(Hold(path_, GENERIC_READ, 0)));
        EXPECT_EQ(ReadWholeFile(path_), "precious");
    }

    TemporaryDirectory top_;
    const std::wstring path_ = top_ / L"file";
};

// Deleting

TEST_F(File_Deletion, AFile_IsGoneAtOnce) {
    EXPECT_TRUE(DeleteFileSafely(path_));
    EXPECT_FALSE(Exists(path_));
    WriteWholeFile(path_, "new");
    EXPECT_EQ(ReadWholeFile(path_), "new");
}

TEST_F(File_Deletion, AnEmptyFile_Goes) {
    WriteWholeFile(path_, "");
    EXPECT_TRUE(DeleteFileSafely(path_));
    EXPECT_FALSE(Exists(path_));
}

TEST_F(File_Deletion, AHiddenFile_Goes) {
    ASSERT_TRUE(SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_HIDDEN));
    EXPECT_TRUE(DeleteFileSafely(path_));
    EXPECT_FALSE(Exists(path_));
}

TEST_F(File_Deletion, AMissingFile_IsNoFailure) {
    MutationFaults faults;
    EXPECT_TRUE(DeleteFileSafely(top_ / L"other"));
    EXPECT_EQ(faults.Count(), 0u);
    ExpectUntouched();
}

TEST_F(File_Deletion, AFileInAMissingDirectory_IsAFailure) {
    EXPECT_FALSE(DeleteFileSafely(top_ / L"other\\file"));
    EXPECT_FALSE(DeleteFileSafely(path_ + L"\\below"));
}

TEST_F(File_Deletion, AttributesThatCannotBeRead_AreAFailure) {
    for (const DWORD error : std::initializer_list<DWORD>{ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND,
                                                          ERROR_SHARING_VIOLATION, ERROR_INVALID_NAME}) {
        const UnreadableAttributes attributes(L"\\file", error);
        EXPECT_FALSE(DeleteFileSafely(path_)) << error;
    }
    ExpectUntouched();
    const UnreadableAttributes attributes(L"\\file", ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(DeleteFileSafely(path_));
}

TEST_F(File_Deletion, ADirectory_Stays) {
    ASSERT_TRUE(CreateDirectoryW((top_ / L"empty").c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryW((top_ / L"full").c_str(), nullptr));
    WriteWholeFile(top_ / L"full\\below", "x");
    MutationFaults faults;
    EXPECT_FALSE(DeleteFileSafely(top_ / L"empty"));
    EXPECT_FALSE(DeleteFileSafely(top_ / L"full"));
    EXPECT_EQ(faults.Count(), 0u);
    EXPECT_TRUE(Exists(top_ / L"empty"));
    EXPECT_TRUE(Exists(top_ / L"full\\below"));
}

TEST_F(File_Deletion, ALink_IsNotEvenOpened) {
    {
        const ForcedAttributes forced(L"\\file", FILE_ATTRIBUTE_REPARSE_POINT);
        MutationFaults faults;
        EXPECT_FALSE(DeleteFileSafely(path_));
        EXPECT_EQ(faults.Count(), 0u);
    }
    ExpectUntouched();
}

TEST_F(File_Deletion, WhatItsHandleDoesNotShowAsAFile_Stays) {
    for (const HandleFacts& facts : kIrregular) {
        SCOPED_TRACE(facts.name);
        {
            const OnFileInformation information = Tell(facts);
            MutationFaults faults;
            faults.CountOnly("SetFileInformationByHandle", L"");
            EXPECT_FALSE(DeleteFileSafely(path_));
            EXPECT_EQ(faults.Count(), 0u);
        }
        ExpectUntouched();
    }
}

TEST_F(File_Deletion, AFileWithASecondName_KeepsBoth) {
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), path_.c_str(), nullptr));
    EXPECT_FALSE(DeleteFileSafely(path_));
    EXPECT_FALSE(DeleteFileSafely(top_ / L"second"));
    EXPECT_EQ(ReadWholeFile(path_), "precious");
    EXPECT_EQ(ReadWholeFile(top_ / L"second"), "precious");
    ASSERT_TRUE(DeleteFileW((top_ / L"second").c_str()));
    EXPECT_TRUE(DeleteFileSafely(path_));
    EXPECT_FALSE(Exists(path_));
}

TEST_F(File_Deletion, AFileThatIsHeldOpen_Stays) {
    for (const DWORD sharing : {DWORD{0}, DWORD{FILE_SHARE_READ}, kShareAll}) {
        const platform::FileHandle held = Hold(path_, GENERIC_READ, sharing);
        EXPECT_FALSE(DeleteFileSafely(path_)) << sharing;
    }
    ExpectUntouched();
    EXPECT_TRUE(DeleteFileSafely(path_));
    EXPECT_FALSE(Exists(path_));
}

TEST_F(File_Deletion, AReadOnlyFile_Stays) {
    ASSERT_TRUE(SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(DeleteFileSafely(path_));
    ExpectUntouched();
    ASSERT_TRUE(SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_TRUE(DeleteFileSafely(path_));
}

TEST_F(File_Deletion, AFileThatVanishesBeforeItIsOpened_IsAFailure) {
    const OnGetAttributes attributes([](auto...) { return DWORD{FILE_ATTRIBUTE_NORMAL}; });
    EXPECT_FALSE(DeleteFileSafely(top_ / L"other"));
}

TEST_F(File_Deletion, ARefusedDisposition_IsAFailure) {
    {
        int asked = 0;
        const OnSetInformation set([&asked](auto...) {
            ++asked;
            return Refuse(ERROR_ACCESS_DENIED);
        });
        EXPECT_FALSE(DeleteFileSafely(path_));
        EXPECT_EQ(asked, 1);
    }
    ExpectUntouched();
}

TEST_F(File_Deletion, TheHandle_IsUnsharedAndFollowsNoLink) {
    const Openings openings;
    ASSERT_TRUE(DeleteFileSafely(path_));
    ASSERT_EQ(openings.all.size(), 1u);
    EXPECT_EQ(openings.all[0].path, L"\\\\?\\" + path_);
    EXPECT_EQ(openings.all[0].access, 0x10080u);
    EXPECT_EQ(openings.all[0].sharing, 0u);
    EXPECT_EQ(openings.all[0].disposition, 3u);
    EXPECT_EQ(openings.all[0].flags & ~DWORD{FILE_ATTRIBUTE_NORMAL}, 0x200000u);
}

TEST_F(File_Deletion, TheHandle_IsWhatGoes) {
    HANDLE opened = nullptr;
    const OnCreateFile create([&opened](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                        DWORD disposition, DWORD flags, HANDLE other) {
        return opened = OnCreateFile::Original(path, access, sharing, security, disposition, flags, other);
    });
    int asked = 0;
    const OnSetInformation set([&](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD length) {
        ++asked;
        EXPECT_EQ(file, opened);
        EXPECT_EQ(kind, FileDispositionInfo);
        EXPECT_EQ(length, sizeof(FILE_DISPOSITION_INFO));
        EXPECT_EQ(static_cast<const FILE_DISPOSITION_INFO*>(data)->DeleteFile, TRUE);
        return OnSetInformation::Original(file, kind, data, length);
    });
    ASSERT_TRUE(DeleteFileSafely(path_));
    EXPECT_EQ(asked, 1);
}

TEST_F(File_Deletion, ThePath_IsReachedByTheLongFormAndGetsItOnce) {
    std::vector<std::wstring> paths;
    const OnGetAttributes attributes([&paths](LPCWSTR path) {
        paths.emplace_back(path);
        return OnGetAttributes::Original(path);
    });
    const Openings openings;
    const std::wstring longForm = L"\\\\?\\" + path_;
    ASSERT_TRUE(DeleteFileSafely(path_));
    WriteWholeFile(longForm, "x");
    paths.clear();
    ASSERT_TRUE(DeleteFileSafely(longForm));
    EXPECT_EQ(paths, (std::vector{longForm}));
    EXPECT_EQ(openings.all.back().path, longForm);
    EXPECT_FALSE(Exists(path_));
}

TEST_F(File_Deletion, ADeepFile_Goes) {
    std::wstring directory = top_.Path();
    while (directory.size() < 400) {
        directory += L'\\' + std::wstring(40, L'd');
        ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + directory).c_str(), nullptr));
    }
    WriteWholeFile(L"\\\\?\\" + directory + L"\\file", "x");
    EXPECT_TRUE(DeleteFileSafely(directory + L"\\file"));
    EXPECT_FALSE(Exists(L"\\\\?\\" + directory + L"\\file"));
}

// Opening

TEST_F(File_Deletion, Opening_PassesOnWhatItIsAsked) {
    struct Row {
        DWORD access, sharing, disposition;
    };
    for (const Row& row : {Row{GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING},
                           {GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS},
                           {GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, CREATE_NEW}}) {
        const std::wstring path = row.disposition == CREATE_NEW ? top_ / L"new" : path_;
        const Openings openings;
        EXPECT_TRUE(static_cast<bool>(OpenRegularFile(path, row.access, row.sharing, row.disposition)));
        ASSERT_EQ(openings.all.size(), 1u);
        EXPECT_EQ(openings.all[0].path, L"\\\\?\\" + path);
        EXPECT_EQ(openings.all[0].access, row.access);
        EXPECT_EQ(openings.all[0].sharing, row.sharing);
        EXPECT_EQ(openings.all[0].disposition, row.disposition);
        EXPECT_EQ(openings.all[0].flags, 0x200080u);
    }
    ExpectUntouched();
    EXPECT_EQ(FileLength(top_ / L"new"), 0);
}

TEST_F(File_Deletion, Opening_WhatIsMissing_GivesNoHandle) {
    EXPECT_FALSE(static_cast<bool>(OpenRegularFile(top_ / L"other", GENERIC_READ, 0, OPEN_EXISTING)));
    EXPECT_FALSE(Exists(top_ / L"other"));
    EXPECT_FALSE(static_cast<bool>(OpenRegularFile(top_ / L"a\\b", GENERIC_WRITE, 0, OPEN_ALWAYS)));
}

TEST_F(File_Deletion, Opening_ANewFileOverAnOldOne_GivesNoHandle) {
    EXPECT_FALSE(static_cast<bool>(OpenRegularFile(path_, GENERIC_WRITE, 0, CREATE_NEW)));
    ExpectUntouched();
}

TEST_F(File_Deletion, Opening_ADirectory_GivesNoHandle) {
    EXPECT_FALSE(static_cast<bool>(OpenRegularFile(top_.Path(), GENERIC_READ, kShareAll, OPEN_EXISTING)));
    EXPECT_FALSE(static_cast<bool>(OpenExistingCacheFile(top_.Path())));
}

TEST_F(File_Deletion, Opening_AFileWithASecondName_GivesNoHandle) {
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), path_.c_str(), nullptr));
    EXPECT_FALSE(static_cast<bool>(OpenRegularFile(path_, GENERIC_READ, 0, OPEN_EXISTING)));
    EXPECT_FALSE(static_cast<bool>(OpenExistingCacheFile(top_ / L"second")));
    ExpectUntouched();
}

TEST_F(File_Deletion, Opening_WhatItsHandleDoesNotShowAsAFile_GivesNoHandleAndKeepsNone) {
    for (const HandleFacts& facts : kIrregular) {
        SCOPED_TRACE(facts.name);
        {
            const OnFileInformation information = Tell(facts);
            EXPECT_FALSE(static_cast<bool>(OpenRegularFile(path_, GENERIC_READ, 0, OPEN_EXISTING)));
            EXPECT_FALSE(static_cast<bool>(OpenExistingCacheFile(path_)));
            EXPECT_FALSE(static_cast<bool>(OpenRegularFile(top_ / L"new", GENERIC_WRITE, 0, OPEN_ALWAYS)));
        }
        ExpectUntouched();
        EXPECT_EQ(FileLength(top_ / L"new"), 0) << "what was made may stay";
    }
}

TEST_F(File_Deletion, Opening_AnExistingCacheFile_IsForReadingAlone) {
    const Openings openings;
    const platform::FileHandle file = OpenExistingCacheFile(path_);
    ASSERT_TRUE(static_cast<bool>(file));
    ASSERT_EQ(openings.all.size(), 1u);
    EXPECT_EQ(openings.all[0].path, L"\\\\?\\" + path_);
    EXPECT_EQ(openings.all[0].access, GENERIC_READ);
    EXPECT_EQ(openings.all[0].sharing, 0u);
    EXPECT_EQ(openings.all[0].disposition, 3u);
    EXPECT_EQ(openings.all[0].flags, 0x200080u);
    char bytes[8];
    DWORD count = 0;
    ASSERT_TRUE(ReadFile(file.Get(), bytes, sizeof(bytes), &count, nullptr));
    EXPECT_EQ(std::string(bytes, count), "precious");
    EXPECT_FALSE(WriteAll(file.Get(), "x", 1));
}

TEST_F(File_Deletion, Opening_AnExistingCacheFile_SharesItWithNobody) {
    const platform::FileHandle file = OpenExistingCacheFile(path_);
    ASSERT_TRUE(static_cast<bool>(file));
    const platform::FileHandle second(
        CreateFileW(path_.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_FALSE(static_cast<bool>(second));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(DeleteFileSafely(path_));
}

TEST_F(File_Deletion, Opening_AnExistingCacheFile_MakesNone) {
    EXPECT_FALSE(static_cast<bool>(OpenExistingCacheFile(top_ / L"other")));
    EXPECT_FALSE(Exists(top_ / L"other"));
    const platform::FileHandle held = Hold(path_, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_FALSE(static_cast<bool>(OpenExistingCacheFile(path_)));
}

}  // namespace
}  // namespace launcher_download
