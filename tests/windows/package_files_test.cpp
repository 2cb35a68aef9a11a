#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/report.h"
#include "tests/support/seen_calls.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/trees.h"
#include "update/packages/install.h"
#include "update/packages/package_files.h"
#include "update/packages/patch.h"
#include "update/packages/runtime_state.h"
#include "update/packages/validation.h"

// Single files and folders of packages, and what the package code hands to Windows, call by call.

namespace launcher_update {
namespace {

using test_support::DescribeFile;
using test_support::DescribePackage;
using test_support::FaultKind;
using test_support::ForcedAttributes;
using test_support::LongPath;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::ReadPackageTree;
using test_support::ReadWholeFile;
using test_support::RecordedCall;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using OnCopyFile = StandIn<"CopyFileW", decltype(CopyFileW)>;
using OnCreateDirectory = StandIn<"CreateDirectoryW", decltype(CreateDirectoryW)>;
using OnDeleteFile = StandIn<"DeleteFileW", decltype(DeleteFileW)>;
using OnFindClose = StandIn<"FindClose", decltype(FindClose)>;
using OnFindFirst = StandIn<"FindFirstFileW", decltype(FindFirstFileW)>;
using OnFlush = StandIn<"FlushFileBuffers", decltype(FlushFileBuffers)>;
using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;
using OnLibraryClose = StandIn<"fclose", decltype(std::fclose)>;
using OnLibraryFlush = StandIn<"fflush", decltype(std::fflush)>;
using OnLibraryOpen = StandIn<"_wfopen", decltype(_wfopen)>;
using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;
using OnRemoveDirectory = StandIn<"RemoveDirectoryW", decltype(RemoveDirectoryW)>;

constexpr DWORD kLink = 0x400;

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(LongPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool Write(const std::wstring& path, const std::string& bytes) {
    return WriteFileThroughNew(path, bytes.data(), bytes.size());
}

/// The current folder for as long as the object lives.
class CurrentFolder {
  public:
    explicit CurrentFolder(const std::wstring& path) {
        previous_.resize(GetCurrentDirectoryW(static_cast<DWORD>(previous_.size()), previous_.data()));
        EXPECT_TRUE(SetCurrentDirectoryW(path.c_str()));
    }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;
    ~CurrentFolder() { SetCurrentDirectoryW(previous_.c_str()); }

  private:
    std::wstring previous_ = std::wstring(32768, L'\0');
};

/// The folders between a path and its drive, nearest first: `C:\a\b` for `C:\a\b\c`, then `C:\a`.
std::vector<std::wstring> FoldersAbove(const std::wstring& path) {
    std::vector<std::wstring> folders;
    for (std::size_t end = path.find_last_of(L'\\'); end > 2; end = path.find_last_of(L'\\', end - 1)) {
        folders.push_back(path.substr(0, end));
    }
    return folders;
}

// --- WriteFileThroughNew

TEST(WriteFileThroughNew, MissingFolders_AreMade_AndNoSiblingStays) {
    const TemporaryDirectory folder;
    ASSERT_TRUE(Write(folder / L"one\\two\\file.bin", std::string("a\0b", 3)));
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"one/two/file.bin", std::string("a\0b", 3)}}));
}

TEST(WriteFileThroughNew, NoBytes_MakeAnEmptyFile) {
    const TemporaryDirectory folder;
    ASSERT_TRUE(WriteFileThroughNew(folder / L"file", nullptr, 0));
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"file", ""}}));
}

TEST(WriteFileThroughNew, ExistingFileAndStaleSibling_AreReplaced) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "an older and longer content");
    WriteWholeFile(folder / L"file.new", "left over, and longer as well");
    ASSERT_TRUE(Write(folder / L"file", "new"));
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"file", "new"}}));
}

TEST(WriteFileThroughNew, PathWithoutSeparator_HasNoFolderToMake) {
    const TemporaryDirectory folder;
    const CurrentFolder current(folder.Path());
    EXPECT_TRUE(Write(L"plain", "x"));
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"plain", "x"}}));
}

TEST(WriteFileThroughNew, BytesAreForcedOut_BeforeTheRename) {
    const TemporaryDirectory folder;
    const std::wstring path = LongPath(folder / L"file");
    std::vector<std::wstring> steps;
    {
        const OnLibraryOpen open([&](const wchar_t* name, const wchar_t* mode) {
            steps.push_back(L"open " + std::wstring(mode) + L" " + name);
            return OnLibraryOpen::Original(name, mode);
        });
        const OnLibraryFlush flush([&](std::FILE* stream) {
            steps.push_back(L"flush the library");
            return OnLibraryFlush::Original(stream);
        });
        const OnFlush force([&](HANDLE file) {
            steps.push_back(L"force out");
            return OnFlush::Original(file);
        });
        const OnLibraryClose close([&](std::FILE* stream) {
            steps.push_back(L"close");
            return OnLibraryClose::Original(stream);
        });
        const OnMoveFile move([&](LPCWSTR from, LPCWSTR to, DWORD flags) {
            steps.push_back(L"move " + std::wstring(from) + L" to " + to + L" by " + std::to_wstring(flags));
            return OnMoveFile::Original(from, to, flags);
        });
        ASSERT_TRUE(Write(folder / L"file", "bytes"));
    }
    EXPECT_EQ(steps, (std::vector<std::wstring>{L"open wb " + path + L".new", L"flush the library", L"force out",
                                                L"close", L"move " + path + L".new to " + path + L" by 9"}));
}

TEST(WriteFileThroughNew, AnyFailingStep_LeavesTheOldFileAndNoSibling) {
    for (const char* function : {"_wfopen", "fwrite", "fflush", "FlushFileBuffers", "fclose", "MoveFileExW"}) {
        for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
            SCOPED_TRACE(function);
            const TemporaryDirectory folder;
            WriteWholeFile(folder / L"file", "old");
            {
                MutationFaults faults(kind, 1, ERROR_DISK_FULL);
                faults.CountOnly(function, L"");
                EXPECT_FALSE(Write(folder / L"file", "new"));
                EXPECT_TRUE(faults.Reached());
            }
            EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"file", "old"}}));
        }
    }
}

TEST(WriteFileThroughNew, SiblingThatCouldNotBeOpened_IsLeftAlone) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file.new", "of somebody else");
    {
        MutationFaults faults(FaultKind::fail, 1);
        faults.CountOnly("_wfopen", L"");
        EXPECT_FALSE(Write(folder / L"file", "new"));
    }
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"file.new", "of somebody else"}}));
}

TEST(WriteFileThroughNew, FolderThatCannotBeMade_WritesNothing) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"in-the-way", "a file");
    EXPECT_FALSE(Write(folder / L"in-the-way\\sub\\file", "new"));
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"in-the-way", "a file"}}));
    const ForcedAttributes forced(L"linked", kLink);
    ASSERT_TRUE(CreateDirectoryW((folder / L"linked").c_str(), nullptr));
    EXPECT_FALSE(Write(folder / L"linked\\file", "new"));
    EXPECT_FALSE(Exists(folder / L"linked\\file"));
}

// --- SourceFileIsSafe

TEST(SourceFileIsSafe, FileBehindPlainFolders_Passes) {
    const TemporaryDirectory folder;
    WritePackageTree(folder.Path(), {{L"one/two/file", "x"}});
    EXPECT_TRUE(SourceFileIsSafe(folder / L"one\\two\\file"));
}

TEST(SourceFileIsSafe, WhatIsNoFile_IsRefused) {
    const TemporaryDirectory folder;
    EXPECT_FALSE(SourceFileIsSafe(folder.Path()));
    EXPECT_FALSE(SourceFileIsSafe(folder / L"missing"));
    EXPECT_FALSE(SourceFileIsSafe(folder / L"missing\\file"));
}

TEST(SourceFileIsSafe, LinkAtAnyLevelBelowTheDrive_IsRefused) {
    const TemporaryDirectory folder;
    WritePackageTree(folder.Path(), {{L"one/two/file", "x"}});
    const std::wstring file = folder / L"one\\two\\file";
    std::vector<std::wstring> levels = FoldersAbove(file);
    levels.push_back(file);
    ASSERT_GE(levels.size(), 5u);
    for (const std::wstring& level : levels) {
        const ForcedAttributes forced(level, kLink);
        EXPECT_FALSE(SourceFileIsSafe(file)) << platform::EncodeUtf8(level);
    }
    EXPECT_TRUE(SourceFileIsSafe(file));
}

TEST(SourceFileIsSafe, LevelThatCannotBeLookedAt_IsRefused) {
    const TemporaryDirectory folder;
    WritePackageTree(folder.Path(), {{L"one/two/file", "x"}});
    const std::wstring file = folder / L"one\\two\\file";
    for (const std::wstring& level : FoldersAbove(file)) {
        const UnreadableAttributes unreadable(level, ERROR_ACCESS_DENIED);
        EXPECT_FALSE(SourceFileIsSafe(file)) << platform::EncodeUtf8(level);
    }
}

/// Every level is asked for by its long form, from the file to the first folder; the drive itself is not.
TEST(SourceFileIsSafe, WalkEndsBelowTheDrive) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    std::vector<std::wstring> expected = {LongPath(folder / L"file")};
    for (const std::wstring& level : FoldersAbove(folder / L"file"))
        expected.push_back(LongPath(level));
    std::vector<std::wstring> asked;
    const OnGetAttributes attributes([&](LPCWSTR path) {
        asked.emplace_back(path);
        return OnGetAttributes::Original(path);
    });
    EXPECT_TRUE(SourceFileIsSafe(folder / L"file"));
    EXPECT_EQ(asked, expected);
}

TEST(SourceFileIsSafe, ShortPaths_EndTheWalkAtTheirLastSeparator) {
    struct Row {
        const wchar_t* path;
        std::vector<std::wstring> asked;
    };
    const Row rows[] = {
        {L"C:\\f", {L"\\\\?\\C:\\f"}},
        {L"C:\\d\\f", {L"\\\\?\\C:\\d\\f", L"\\\\?\\C:\\d"}},
        {L"ab\\f", {L"ab\\f"}},            // the separator is the third character
        {L"abc\\f", {L"abc\\f", L"abc"}},  // the fourth
        {L"abc/d\\f", {L"abc/d\\f", L"abc/d", L"abc"}},
        {L"f", {L"f"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(platform::EncodeUtf8(row.path));
        std::vector<std::wstring> asked;
        const OnGetAttributes attributes([&](LPCWSTR path) -> DWORD {
            asked.emplace_back(path);
            return asked.size() == 1 ? FILE_ATTRIBUTE_ARCHIVE : FILE_ATTRIBUTE_DIRECTORY;
        });
        EXPECT_TRUE(SourceFileIsSafe(row.path));
        EXPECT_EQ(asked, row.asked);
    }
}

// --- CopySourceFile

TEST(CopySourceFile, SlashesAreTurned_AndFoldersMade) {
    const TemporaryDirectory folder;
    WritePackageTree(folder / L"source", {{L"one/two/資料.bin", "content"}});
    std::vector<std::wstring> seen;
    {
        const OnCopyFile copy([&](LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
            seen = {from, to, failIfExists ? L"fails if there" : L"overwrites"};
            return OnCopyFile::Original(from, to, failIfExists);
        });
        EXPECT_TRUE(CopySourceFile(folder / L"source", DescribeFile(L"one/two/資料.bin", "content"),
                                   folder / L"target\\deep\\copy.bin"));
    }
    EXPECT_EQ(seen, (std::vector<std::wstring>{LongPath(folder / L"source\\one\\two\\資料.bin"),
                                               LongPath(folder / L"target\\deep\\copy.bin"), L"fails if there"}));
    EXPECT_EQ(ReadPackageTree(folder / L"target"), (PackageContent{{L"deep/copy.bin", "content"}}));
}

TEST(CopySourceFile, ExistingDestination_IsNotOverwritten) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "new");
    WriteWholeFile(folder / L"copy", "old");
    EXPECT_FALSE(CopySourceFile(folder.Path(), DescribeFile(L"file", "new"), folder / L"copy"));
    EXPECT_EQ(ReadWholeFile(folder / L"copy"), "old");
}

TEST(CopySourceFile, UnsafeSource_IsRefusedBeforeAnythingIsMade) {
    const TemporaryDirectory folder;
    WritePackageTree(folder / L"source", {{L"one/file", "x"}});
    for (const wchar_t* suffix : {L"one\\file", L"source\\one", L"source"}) {
        const ForcedAttributes forced(suffix, kLink);
        MutationFaults faults;
        EXPECT_FALSE(CopySourceFile(folder / L"source", DescribeFile(L"one/file", "x"), folder / L"target\\copy"));
        EXPECT_EQ(faults.Count(), 0u) << platform::EncodeUtf8(suffix);
    }
    EXPECT_FALSE(CopySourceFile(folder / L"source", DescribeFile(L"missing", "x"), folder / L"target\\copy"));
    EXPECT_FALSE(Exists(folder / L"target"));
}

TEST(CopySourceFile, FolderThatCannotBeMade_CopiesNothing) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    WriteWholeFile(folder / L"in-the-way", "y");
    MutationFaults faults;
    EXPECT_FALSE(CopySourceFile(folder.Path(), DescribeFile(L"file", "x"), folder / L"in-the-way\\sub\\copy"));
    EXPECT_EQ(faults.Count(), 0u);
}

/// Who assembles a folder validates it whole; a copy is taken as it comes.
TEST(CopySourceFile, ContentIsNotJudged) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "something else");
    EXPECT_TRUE(CopySourceFile(folder.Path(), DescribeFile(L"file", "x"), folder / L"copy"));
    EXPECT_EQ(ReadWholeFile(folder / L"copy"), "something else");
}

TEST(CopySourceFile, Copy_IsForcedOut) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    MutationFaults faults;
    ASSERT_TRUE(CopySourceFile(folder.Path(), DescribeFile(L"file", "x"), folder / L"copy"));
    const std::vector<RecordedCall> calls = faults.Calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls.front().function, "CopyFileW");
    EXPECT_EQ(calls.back().function, "FlushFileBuffers");
    EXPECT_EQ(calls.back().path, LongPath(folder / L"copy"));
}

TEST(CopySourceFile, CopyThatCannotBeForcedOut_IsAFailure) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    MutationFaults faults(FaultKind::fail, 1, ERROR_DISK_FULL);
    faults.CountOnly("FlushFileBuffers", L"copy");
    EXPECT_FALSE(CopySourceFile(folder.Path(), DescribeFile(L"file", "x"), folder / L"copy"));
    EXPECT_TRUE(faults.Reached());
}

/// With the bit the copy could neither be forced out nor later be removed.
TEST(CopySourceFile, ReadOnlySource_GivesAnOrdinaryCopy) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    ASSERT_TRUE(SetFileAttributesW((folder / L"file").c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(CopySourceFile(folder.Path(), DescribeFile(L"file", "x"), folder / L"copy"));
    EXPECT_EQ(GetFileAttributesW((folder / L"copy").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_NE(GetFileAttributesW((folder / L"file").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    ASSERT_TRUE(SetFileAttributesW((folder / L"file").c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST(CopySourceFile, RefusedCopy_IsAFailure) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    MutationFaults faults(FaultKind::fail, 1, ERROR_DISK_FULL);
    faults.CountOnly("CopyFileW", L"");
    EXPECT_FALSE(CopySourceFile(folder.Path(), DescribeFile(L"file", "x"), folder / L"copy"));
    EXPECT_TRUE(faults.Reached());
}

// --- CreateDirectoryChain

TEST(PackageFolders, MissingChain_IsMadeFromTheTop) {
    const TemporaryDirectory folder;
    std::vector<std::wstring> made;
    {
        const OnCreateDirectory create([&](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
            made.emplace_back(path);
            return OnCreateDirectory::Original(path, security);
        });
        EXPECT_TRUE(CreateDirectoryChain(folder / L"one\\two\\three"));
        EXPECT_TRUE(CreateDirectoryChain(folder / L"one\\two\\three"));
    }
    EXPECT_EQ(made, (std::vector<std::wstring>{LongPath(folder / L"one"), LongPath(folder / L"one\\two"),
                                               LongPath(folder / L"one\\two\\three")}));
    EXPECT_EQ(GetFileAttributesW((folder / L"one\\two\\three").c_str()) & 0x410u, 0x10u);
}

TEST(PackageFolders, EitherSeparatorEndsAParent_AndAPlainNameHasNone) {
    const TemporaryDirectory folder;
    const CurrentFolder current(folder.Path());
    EXPECT_TRUE(CreateDirectoryChain(L"name"));
    EXPECT_TRUE(CreateDirectoryChain(L"one/two\\three/four"));
    EXPECT_TRUE(Exists(folder / L"name"));
    EXPECT_TRUE(Exists(folder / L"one\\two\\three\\four"));
}

TEST(PackageFolders, ExistingPath_MustBeARealFolder) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    EXPECT_FALSE(CreateDirectoryChain(folder / L"file"));
    EXPECT_FALSE(CreateDirectoryChain(folder / L"file\\below"));
    EXPECT_TRUE(CreateDirectoryChain(folder / L"linked"));
    const ForcedAttributes forced(L"linked", kLink);
    EXPECT_FALSE(CreateDirectoryChain(folder / L"linked"));
    EXPECT_FALSE(CreateDirectoryChain(folder / L"linked\\below"));
    EXPECT_FALSE(Exists(folder / L"linked\\below"));
}

TEST(PackageFolders, FolderThatAnotherMadeMeanwhile_Passes) {
    const TemporaryDirectory folder;
    for (const DWORD error : {183u, 5u, 112u}) {
        const OnCreateDirectory create([&](LPCWSTR, LPSECURITY_ATTRIBUTES) {
            SetLastError(error);
            return FALSE;
        });
        EXPECT_EQ(CreateDirectoryChain(folder / L"one"), error == 183) << error;
    }
}

TEST(PackageFolders, ParentThatCannotBeMade_StopsTheChain) {
    const TemporaryDirectory folder;
    MutationFaults faults(FaultKind::fail, 1);
    EXPECT_FALSE(CreateDirectoryChain(folder / L"one\\two"));
    EXPECT_EQ(faults.Count(), 1u);
}

// --- RemoveTreeNoLinks

TEST(RemoveTreeNoLinks, MissingPath_IsSuccess) {
    const TemporaryDirectory folder;
    EXPECT_TRUE(RemoveTreeNoLinks(folder / L"missing"));
    EXPECT_TRUE(RemoveTreeNoLinks(folder / L"missing\\below"));
}

TEST(RemoveTreeNoLinks, WholeTree_Goes) {
    const TemporaryDirectory folder;
    WritePackageTree(folder / L"tree", {{L"a", "1"}, {L"one/b", "2"}, {L"one/two/音.bin", "3"}});
    ASSERT_TRUE(CreateDirectoryW((folder / L"tree\\empty").c_str(), nullptr));
    WriteWholeFile(folder / L"beside", "x");
    EXPECT_TRUE(RemoveTreeNoLinks(folder / L"tree"));
    EXPECT_FALSE(Exists(folder / L"tree"));
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"beside", "x"}}));
}

TEST(RemoveTreeNoLinks, RootThatIsAFileOrALink_IsLeftAlone) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    WritePackageTree(folder / L"tree", {{L"a", "1"}});
    EXPECT_FALSE(RemoveTreeNoLinks(folder / L"file"));
    {
        const ForcedAttributes forced(L"tree", kLink);
        EXPECT_FALSE(RemoveTreeNoLinks(folder / L"tree"));
    }
    EXPECT_EQ(ReadPackageTree(folder.Path()), (PackageContent{{L"file", "x"}, {L"tree/a", "1"}}));
}

TEST(RemoveTreeNoLinks, RootThatCannotBeLookedAt_IsNotTakenForAbsent) {
    const TemporaryDirectory folder;
    WritePackageTree(folder / L"tree", {{L"a", "1"}});
    const UnreadableAttributes unreadable(L"tree", ERROR_ACCESS_DENIED);
    EXPECT_FALSE(RemoveTreeNoLinks(folder / L"tree"));
}

/// A link to a folder is neither entered nor removed, at any depth, and ends the walk.
TEST(RemoveTreeNoLinks, LinkInside_StopsTheWalk) {
    for (const wchar_t* below : {L"tree\\linked", L"tree\\one\\linked"}) {
        const TemporaryDirectory folder;
        WritePackageTree(folder / below, {{L"a", "1"}});
        std::size_t listed = 0;
        {
            const ForcedAttributes forced(L"linked", kLink);
            const OnFindFirst find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
                if (std::wstring_view(pattern).ends_with(L"linked\\*")) ++listed;
                return OnFindFirst::Original(pattern, found);
            });
            EXPECT_FALSE(RemoveTreeNoLinks(folder / L"tree"));
        }
        EXPECT_EQ(listed, 0u);
        EXPECT_EQ(ReadPackageTree(folder / below), (PackageContent{{L"a", "1"}}));
    }
}

/// What is deleted of a link to a file is the link.
TEST(RemoveTreeNoLinks, LinkToAFile_IsDeletedLikeAFile) {
    const TemporaryDirectory folder;
    WritePackageTree(folder / L"tree", {{L"a", "1"}});
    const ForcedAttributes forced(L"tree\\a", kLink);
    EXPECT_TRUE(RemoveTreeNoLinks(folder / L"tree"));
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST(RemoveTreeNoLinks, ReadOnlyFile_FailsIt) {
    const TemporaryDirectory folder;
    WritePackageTree(folder / L"tree", {{L"a", "1"}});
    const std::wstring file = folder / L"tree\\a";
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    MutationFaults faults;
    EXPECT_FALSE(RemoveTreeNoLinks(folder / L"tree"));
    for (const auto& call : faults.Calls())
        EXPECT_NE(call.function, "SetFileAttributesW");
    EXPECT_EQ(GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_READONLY, DWORD{FILE_ATTRIBUTE_READONLY});
}

TEST(RemoveTreeNoLinks, FailingCall_EndsTheWalkThere) {
    struct Row {
        const char* function;
        const wchar_t* path;
        PackageContent left;
    };
    const Row rows[] = {
        {"DeleteFileW", L"tree\\b", {{L"b", "2"}, {L"c", "3"}, {L"sub/d", "4"}}},
        {"DeleteFileW", L"sub\\d", {{L"sub/d", "4"}}},
        {"RemoveDirectoryW", L"tree\\sub", {}},
        {"RemoveDirectoryW", L"tree", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(platform::EncodeUtf8(row.path));
        const TemporaryDirectory folder;
        WritePackageTree(folder / L"tree", {{L"a", "1"}, {L"b", "2"}, {L"c", "3"}, {L"sub/d", "4"}});
        std::size_t begun = 0;
        std::size_t ended = 0;
        {
            // The path part "tree" would match the inner folder first, so the whole end of the path decides.
            const OnDeleteFile del([&](LPCWSTR path) {
                const bool refused =
                    row.function == std::string("DeleteFileW") && std::wstring_view(path).ends_with(row.path);
                return refused ? FALSE : OnDeleteFile::Original(path);
            });
            const OnRemoveDirectory remove([&](LPCWSTR path) {
                const bool refused =
                    row.function == std::string("RemoveDirectoryW") && std::wstring_view(path).ends_with(row.path);
                return refused ? FALSE : OnRemoveDirectory::Original(path);
            });
            const OnFindFirst find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
                ++begun;
                return OnFindFirst::Original(pattern, found);
            });
            const OnFindClose close([&](HANDLE handle) {
                ++ended;
                return OnFindClose::Original(handle);
            });
            EXPECT_FALSE(RemoveTreeNoLinks(folder / L"tree"));
        }
        EXPECT_EQ(ReadPackageTree(folder / L"tree"), row.left);
        EXPECT_GE(begun, 1u);
        EXPECT_EQ(ended, begun) << "an enumeration stays open";
    }
}

TEST(RemoveTreeNoLinks, FolderThatCannotBeListed_IsAFailure) {
    const TemporaryDirectory folder;
    WritePackageTree(folder / L"tree", {{L"sub/a", "1"}});
    WritePackageTree(folder / L"tree\\empty", {});  // it could be removed unseen
    for (const wchar_t* unlisted : {L"tree\\*", L"empty\\*", L"sub\\*"}) {
        const OnFindFirst find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
            if (!std::wstring_view(pattern).ends_with(unlisted)) return OnFindFirst::Original(pattern, found);
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        });
        EXPECT_FALSE(RemoveTreeNoLinks(folder / L"tree"));
        EXPECT_TRUE(Exists(folder / L"tree\\sub\\a"));
        EXPECT_EQ(Exists(folder / L"tree\\empty"), unlisted != std::wstring(L"sub\\*"));
    }
}

// --- What reaches Windows

TEST(PackageCalls, EveryOperation_UsesTheLongForm) {
    const TemporaryDirectory folder;
    const PackageContent content = {{L"deep/b.bin", "bb"}, {L"資料/é.bin", "cc"}};
    PackageDescriptor package = DescribePackage(L"core", L"1.0.0.0", content);
    test_support::AddPatch(package, L"0.0.0.1", {L"deep/b.bin"});
    const std::wstring root = folder / L"Runtime";
    const std::wstring target = VersionFolder(root, package);
    WritePackageTree(folder / L"source", content);
    WriteWholeFile(folder / L"full.vprpack", test_support::BuildArchive(content));
    WriteWholeFile(folder / L"patch.vprpack", test_support::BuildArchive({{L"deep/b.bin", "bb"}}));
    std::wstring installed;
    std::wstring error;
    std::wstring hex;
    std::set<std::wstring> files;
    struct Row {
        const char* name;
        std::function<bool()> operation;
        std::vector<const char*> functions;
    };
    const Row rows[] = {
        {"InstallPackageInactive",
         [&] { return InstallPackageInactive(folder / L"full.vprpack", package, root, installed, error); },
         {"GetFileAttributesW", "CreateDirectoryW", "_wfopen", "MoveFileExW", "GetFileAttributesExW", "FindFirstFileW",
          "CreateFileW"}},
        {"ListPackageFiles", [&] { return ListPackageFiles(target, target, files); }, {"FindFirstFileW"}},
        {"HashFileSha256", [&] { return HashFileSha256(target + L"\\deep\\b.bin", hex); }, {"CreateFileW"}},
        {"ValidateInstalledPackage",
         [&] { return ValidateInstalledPackage(target, package, error); },
         {"GetFileAttributesW", "FindFirstFileW", "GetFileAttributesExW", "CreateFileW"}},
        {"PackagePatchBaseMatches",
         [&] { return PackagePatchBaseMatches(folder / L"source", package); },
         {"GetFileAttributesW", "GetFileAttributesExW", "CreateFileW"}},
        {"ActivatePackageSet",
         [&] { return ActivatePackageSet(root, {package}, error); },
         {"_wfopen", "MoveFileExW", "CreateFileW"}},
        {"PackageSetIsActive", [&] { return PackageSetIsActive(root, {package}); }, {"CreateFileW", "FindFirstFileW"}},
        {"damage", [&] { return DeleteFileW((target + L"\\deep\\b.bin").c_str()) != 0; }, {}},
        {"InstallPackagePatchInactive, as a repair",
         [&] {
             return InstallPackagePatchInactive(folder / L"patch.vprpack", folder / L"source", package, root, installed,
                                                error);
         },
         {"CopyFileW", "_wfopen", "MoveFileExW", "DeleteFileW", "RemoveDirectoryW"}},
        {"second version",
         [&] {
             package.version = L"2.0.0.0";
             return true;
         },
         {}},
        {"InstallPackageFromLocalFiles",
         [&] { return InstallPackageFromLocalFiles(folder / L"source", package, root, installed, error); },
         {"CopyFileW", "MoveFileExW", "CreateDirectoryW"}},
        {"third version",
         [&] {
             package.version = L"3.0.0.0";
             return true;
         },
         {}},
        {"PruneOldPackageVersions",
         [&] { return PruneOldPackageVersions(root, {package}, error); },
         {"GetFileAttributesW", "FindFirstFileW", "DeleteFileW", "RemoveDirectoryW"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        test_support::SeenCalls seen;
        EXPECT_TRUE(row.operation()) << platform::EncodeUtf8(error);
        if (row.functions.empty()) continue;  // the test's own doing
        seen.ExpectLongForms();
        for (const char* function : row.functions)
            EXPECT_TRUE(seen.Holds(function)) << function;
    }
}

}  // namespace
}  // namespace launcher_update
