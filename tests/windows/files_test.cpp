#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/file_hashing.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/files/trees.h"

namespace launcher_update {
namespace {

using test_support::FaultKind;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::ReadWholeFile;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WriteWholeFile;

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(ToLongPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void MakeFolder(const std::wstring& path) {
    ASSERT_TRUE(CreateDirectoryW(ToLongPath(path).c_str(), nullptr));
}

std::vector<std::string> FunctionNames(const MutationFaults& faults) {
    std::vector<std::string> names;
    for (const auto& call : faults.Calls())
        names.push_back(call.function);
    return names;
}

/// The four operations that replace a text file, with what tells them apart.
struct DurableOperation {
    const char* name;
    bool (*write)(const std::wstring& path, const std::string& text);
    const wchar_t* suffix;
    bool flushed;
    bool longPath;
    bool ownHandle;
};

const DurableOperation kDurableOperations[] = {
    {"WriteTextDurable",
     [](const std::wstring& path, const std::string& text) {
         return WriteTextDurable(path, platform::WidenAscii(text));
     },
     L".tmp", true, true, false},
    {"WriteStateAtomically",
     [](const std::wstring& path, const std::string& text) { return WriteStateAtomically(path, text); }, L".new", true,
     true, false},
    {"WriteJournalDurable",
     [](const std::wstring& path, const std::string& text) {
         return WriteJournalDurable(path, platform::WidenAscii(text));
     },
     L".tmp", true, true, true},
    {"WriteLauncherFileAtomically",
     [](const std::wstring& path, const std::string& text) {
         return WriteLauncherFileAtomically(path, platform::WidenAscii(text));
     },
     L".launcher-update", false, false, false},
};

TEST(DurableWrite, ReplacesTheFileAndLeavesNoSibling) {
    for (const DurableOperation& operation : kDurableOperations) {
        const TemporaryDirectory folder;
        const std::wstring path = folder / L"file.json";
        EXPECT_TRUE(operation.write(path, "first")) << operation.name;
        EXPECT_TRUE(operation.write(path, "second, longer")) << operation.name;
        EXPECT_EQ(ReadWholeFile(path), "second, longer") << operation.name;
        EXPECT_FALSE(Exists(path + operation.suffix)) << operation.name;
    }
}

TEST(DurableWrite, EmptyText_IsWrittenByAllButTheLauncherForm) {
    for (const DurableOperation& operation : kDurableOperations) {
        const TemporaryDirectory folder;
        EXPECT_EQ(operation.write(folder / L"file.json", ""), operation.flushed) << operation.name;
        EXPECT_EQ(Exists(folder / L"file.json"), operation.flushed) << operation.name;
    }
}

/// The inventory's text may pass what one write takes.
TEST(DurableWrite, TextOfSeveralMebibytes_IsWrittenWhole) {
    std::string text(5u << 19, 'x');
    for (std::size_t at = 0; at < text.size(); at += 1000)
        text[at] = static_cast<char>('a' + at / 1000 % 26);
    for (const DurableOperation& operation : kDurableOperations) {
        const TemporaryDirectory folder;
        ASSERT_TRUE(operation.write(folder / L"file.txt", text)) << operation.name;
        EXPECT_TRUE(ReadWholeFile(folder / L"file.txt") == text) << operation.name;
    }
}

/// The data is out before the name is: the order is what a power cut tests.
TEST(DurableWrite, SiblingIsForcedOutBeforeTheRename) {
    for (const DurableOperation& operation : kDurableOperations) {
        const TemporaryDirectory folder;
        const std::wstring path = folder / L"file.json";
        MutationFaults faults;
        ASSERT_TRUE(operation.write(path, "text"));
        const std::vector<std::string> names = FunctionNames(faults);
        const std::vector<std::string> expected =
            operation.ownHandle
                ? std::vector<std::string>{"DeleteFileW", "CreateFileW", "WriteFile", "FlushFileBuffers", "MoveFileExW"}
            : operation.flushed
                ? std::vector<std::string>{"_wfopen", "fwrite", "fflush", "FlushFileBuffers", "fclose", "MoveFileExW"}
                : std::vector<std::string>{"_wfopen", "fwrite", "fflush", "fclose", "MoveFileExW"};
        EXPECT_EQ(names, expected) << operation.name;
        const auto move = faults.Calls().back();
        const std::wstring prefix = operation.longPath ? L"\\\\?\\" : L"";
        EXPECT_EQ(move.path, prefix + path + operation.suffix) << operation.name;
        EXPECT_EQ(move.second, prefix + path) << operation.name;
    }
}

TEST(DurableWrite, RenameReplacesAndWritesThrough) {
    static DWORD seenFlags;
    static decltype(&MoveFileExW) original;
    const auto hooked = +[](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        seenFlags = flags;
        return original(from, to, flags);
    };
    const test_support::ImportHook hook("MoveFileExW", reinterpret_cast<void*>(hooked));
    original = reinterpret_cast<decltype(&MoveFileExW)>(hook.Original());
    for (const DurableOperation& operation : kDurableOperations) {
        const TemporaryDirectory folder;
        seenFlags = 0;
        ASSERT_TRUE(operation.write(folder / L"file.json", "text"));
        EXPECT_EQ(seenFlags, 9u) << operation.name;
    }
}

/// Every call that the operation makes fails once, wholly and half done. The old file stays, the sibling goes.
TEST(DurableWrite, EveryFailingCall_LeavesTheOldFileAndNoSibling) {
    for (const DurableOperation& operation : kDurableOperations) {
        for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
            std::uint32_t points = 0;
            for (std::uint32_t at = 1; at <= 100; ++at) {
                const TemporaryDirectory folder;
                const std::wstring path = folder / L"file.json";
                WriteWholeFile(path, "old");
                MutationFaults faults(kind, at, ERROR_DISK_FULL);
                const bool written = operation.write(path, "new");
                if (!faults.Reached()) break;
                ++points;
                // The journal's form begins by deleting a sibling that is not there: that failure means nothing.
                const bool harmless = operation.ownHandle && at == 1;
                EXPECT_EQ(written, harmless) << operation.name << " call " << at;
                EXPECT_EQ(ReadWholeFile(path), harmless ? "new" : "old") << operation.name << " call " << at;
                EXPECT_FALSE(Exists(path + operation.suffix)) << operation.name << " call " << at;
            }
            EXPECT_GE(points, 5u) << operation.name;
        }
    }
}

TEST(DurableWrite, Journal_IsHiddenAndReplacesAStaleSibling) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"transaction.json";
    WriteWholeFile(path + L".tmp", "stale");
    ASSERT_TRUE(SetFileAttributesW((path + L".tmp").c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(WriteJournalDurable(path, L"journal"));
    EXPECT_EQ(ReadWholeFile(path), "journal");
    EXPECT_NE(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_HIDDEN, 0u);
}

TEST(DurableWrite, TargetHeldOpen_IsLeftAlone) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"file.json";
    WriteWholeFile(path, "old");
    const HANDLE holder = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_FALSE(WriteTextDurable(path, L"new"));
    CloseHandle(holder);
    EXPECT_EQ(ReadWholeFile(path), "old");
    EXPECT_FALSE(Exists(path + L".tmp"));
}

TEST(ReadFileLimited, ExactlyTheLimitIsRead) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"file";
    std::string bytes;
    WriteWholeFile(path, std::string(100, 'x'));
    EXPECT_TRUE(ReadFileLimited(path, 100, bytes));
    EXPECT_EQ(bytes, std::string(100, 'x'));
    EXPECT_TRUE(ReadFileLimited(path, 101, bytes));
    EXPECT_FALSE(ReadFileLimited(path, 99, bytes));
    WriteWholeFile(path, "");
    EXPECT_FALSE(ReadFileLimited(path, 100, bytes));
    EXPECT_FALSE(ReadFileLimited(folder / L"missing", 100, bytes));
    EXPECT_FALSE(ReadFileLimited(folder.Path(), 100, bytes));
}

TEST(CopyFileDurable, CopiesAndFlushes) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"source", "bytes");
    MutationFaults faults;
    ASSERT_TRUE(CopyFileDurable(folder / L"source", folder / L"new\\deep\\copy", false));
    EXPECT_EQ(FunctionNames(faults), (std::vector<std::string>{"CreateDirectoryW", "CreateDirectoryW", "CopyFileW",
                                                               "CreateFileW", "FlushFileBuffers"}));
    EXPECT_EQ(ReadWholeFile(folder / L"new\\deep\\copy"), "bytes");
}

TEST(CopyFileDurable, Overwrite_IsAsTold) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"source", "new");
    WriteWholeFile(folder / L"target", "old");
    EXPECT_FALSE(CopyFileDurable(folder / L"source", folder / L"target", false));
    EXPECT_EQ(ReadWholeFile(folder / L"target"), "old");
    EXPECT_TRUE(CopyFileDurable(folder / L"source", folder / L"target", true));
    EXPECT_EQ(ReadWholeFile(folder / L"target"), "new");
    EXPECT_FALSE(CopyFileDurable(folder / L"source", L"no-separator", true));
    EXPECT_FALSE(CopyFileDurable(folder / L"missing", folder / L"target", true));
}

TEST(CopyFileDurable, FailedFlush_IsAFailure) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"source", "bytes");
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("FlushFileBuffers", L"");
    EXPECT_FALSE(CopyFileDurable(folder / L"source", folder / L"copy", false));
    EXPECT_TRUE(faults.Reached());
}

TEST(Directories, ChainsAreMadeOnBothForms) {
    for (const auto make : {EnsureDirectory, CreateDirectoryChain}) {
        const TemporaryDirectory folder;
        EXPECT_TRUE(make(folder / L"a\\b\\c"));
        EXPECT_TRUE(make(folder / L"a\\b\\c"));
        EXPECT_TRUE(IsRealDirectory(LookAt(folder / L"a\\b\\c").attributes));
        WriteWholeFile(folder / L"file", "x");
        EXPECT_FALSE(make(folder / L"file"));
        EXPECT_FALSE(make(folder / L"file\\below"));
        EXPECT_FALSE(make(L""));
    }
}

TEST(Directories, LinkToAFolder_PassesOnlyTheLooseForm) {
    const TemporaryDirectory folder;
    MakeFolder(folder / L"link");
    const ForcedAttributes forced(L"\\link", FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_TRUE(EnsureDirectory(folder / L"link"));
    EXPECT_FALSE(CreateDirectoryChain(folder / L"link"));
}

TEST(Directories, RacingCreator_IsNoFailure) {
    const TemporaryDirectory folder;
    // Another launcher makes the folder between the look and the creation: the creation then says "exists already".
    MutationFaults faults(FaultKind::fail, 1, ERROR_ALREADY_EXISTS);
    EXPECT_TRUE(EnsureDirectory(folder / L"a"));
    EXPECT_TRUE(faults.Reached());
}

TEST(Directories, PathsBeyond260Units_Work) {
    const TemporaryDirectory folder;
    std::wstring deep = folder.Path();
    while (deep.size() < 400)
        deep += L"\\" + std::wstring(40, L'd');
    ASSERT_TRUE(EnsureDirectory(deep));
    ASSERT_TRUE(WriteTextDurable(deep + L"\\file", L"x"));
    std::string bytes;
    EXPECT_TRUE(ReadFileLimited(deep + L"\\file", 10, bytes));
    EXPECT_TRUE(RemoveTree(folder / std::wstring(40, L'd')));
}

TEST(RemoveTree, MissingPathIsSuccess_FileIsNot) {
    const TemporaryDirectory folder;
    EXPECT_TRUE(RemoveTree(folder / L"missing"));
    EXPECT_TRUE(RemoveTree(folder / L"missing\\deeper"));
    WriteWholeFile(folder / L"file", "x");
    EXPECT_FALSE(RemoveTree(folder / L"file"));
    EXPECT_TRUE(Exists(folder / L"file"));
}

TEST(RemoveTree, UnreadablePath_IsAFailure) {
    const TemporaryDirectory folder;
    MakeFolder(folder / L"tree");
    const UnreadableAttributes unreadable(L"\\tree", ERROR_ACCESS_DENIED);
    EXPECT_FALSE(RemoveTree(folder / L"tree"));
}

TEST(RemoveTree, ProtectedFilesGoToo) {
    const TemporaryDirectory folder;
    MakeFolder(folder / L"tree");
    MakeFolder(folder / L"tree\\sub");
    struct Row {
        const wchar_t* name;
        DWORD attributes;
    };
    for (const Row& row : {Row{L"tree\\plain", FILE_ATTRIBUTE_NORMAL},
                           {L"tree\\readonly", FILE_ATTRIBUTE_READONLY},
                           {L"tree\\hidden", FILE_ATTRIBUTE_HIDDEN},
                           {L"tree\\sub\\both", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN}}) {
        WriteWholeFile(folder / row.name, "x");
        ASSERT_TRUE(SetFileAttributesW((folder / row.name).c_str(), row.attributes));
    }
    ASSERT_FALSE(DeleteFileW((folder / L"tree\\readonly").c_str())) << "this test must run as an ordinary user";
    EXPECT_TRUE(RemoveTree(folder / L"tree"));
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST(RemoveTree, LinkInside_StopsTheRemovalAndKeepsItsTarget) {
    const TemporaryDirectory folder;
    MakeFolder(folder / L"tree");
    MakeFolder(folder / L"tree\\link");
    WriteWholeFile(folder / L"tree\\link\\precious", "x");
    const ForcedAttributes forced(L"link", FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_FALSE(RemoveTree(folder / L"tree"));
    EXPECT_FALSE(RemoveTree(folder / L"tree\\link"));
    EXPECT_EQ(ReadWholeFile(folder / L"tree\\link\\precious"), "x");
}

/// A folder that becomes a link only after the listing is no better: what the listing says counts, and what stands
/// there.
TEST(RemoveTree, LinkThatOnlyTheListingShows_StopsTheRemoval) {
    const TemporaryDirectory folder;
    MakeFolder(folder / L"tree");
    MakeFolder(folder / L"tree\\link");
    WriteWholeFile(folder / L"tree\\link\\precious", "x");
    using OnFindNext = test_support::StandIn<"FindNextFileW", decltype(FindNextFileW)>;
    const OnFindNext next([](HANDLE find, LPWIN32_FIND_DATAW found) {
        const BOOL more = OnFindNext::Original(find, found);
        if (more && std::wstring_view(found->cFileName) == L"link")
            found->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        return more;
    });
    EXPECT_FALSE(RemoveTree(folder / L"tree"));
    EXPECT_EQ(ReadWholeFile(folder / L"tree\\link\\precious"), "x");
}

TEST(RemoveTree, FailedDeletion_LeavesTheRest) {
    const TemporaryDirectory folder;
    MakeFolder(folder / L"tree");
    WriteWholeFile(folder / L"tree\\a", "x");
    WriteWholeFile(folder / L"tree\\b", "x");
    MutationFaults faults(FaultKind::fail, 1, ERROR_SHARING_VIOLATION);
    faults.CountOnly("DeleteFileW", L"tree\\a");
    EXPECT_FALSE(RemoveTree(folder / L"tree"));
    EXPECT_TRUE(Exists(folder / L"tree\\a"));
    EXPECT_TRUE(Exists(folder / L"tree\\b"));
}

TEST(RemoveTreeRetry, TriesSixTimes) {
    for (const std::uint32_t failures : {5u, 6u}) {
        const TemporaryDirectory folder;
        MakeFolder(folder / L"tree");
        WriteWholeFile(folder / L"tree\\held", "x");
        static std::uint32_t failuresLeft;
        static decltype(&DeleteFileW) original;
        failuresLeft = failures;
        const auto hooked = +[](LPCWSTR path) -> BOOL {
            if (failuresLeft == 0) return original(path);
            --failuresLeft;
            SetLastError(ERROR_SHARING_VIOLATION);
            return FALSE;
        };
        const test_support::ImportHook hook("DeleteFileW", reinterpret_cast<void*>(hooked));
        original = reinterpret_cast<decltype(&DeleteFileW)>(hook.Original());
        EXPECT_EQ(RemoveTreeRetry(folder / L"tree"), failures == 5u);
        EXPECT_EQ(failuresLeft, 0u);
    }
}

TEST(Hashing, KnownDigestsAndProgress) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"file";
    WriteWholeFile(path, "abc");
    std::wstring hex;
    ASSERT_TRUE(Sha256OfFile(path, hex));
    EXPECT_EQ(hex, L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    ASSERT_TRUE(HashFileSha256(path, hex));
    EXPECT_EQ(hex, L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    WriteWholeFile(path, "");
    ASSERT_TRUE(Sha256OfFile(path, hex));
    EXPECT_EQ(hex, L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_FALSE(Sha256OfFile(folder / L"missing", hex));
    EXPECT_EQ(hex, L"");
}

TEST(Hashing, EveryLengthAroundAPiece_EqualsTheDigestOfTheWhole) {
    const TemporaryDirectory folder;
    for (const std::size_t length : {1u, 65535u, 65536u, 65537u, 131072u, 131073u, 200000u}) {
        std::string bytes(length, '\0');
        for (std::size_t at = 0; at < length; ++at)
            bytes[at] = static_cast<char>(at * 31 + at / 251);
        WriteWholeFile(folder / L"file", bytes);
        std::vector<std::uint64_t> progress;
        std::wstring fromFile;
        std::wstring fromMemory;
        ASSERT_TRUE(
            Sha256OfFile(folder / L"file", fromFile, [&progress](std::uint64_t done) { progress.push_back(done); }));
        ASSERT_TRUE(Sha256OfBuffer(bytes.data(), bytes.size(), fromMemory));
        EXPECT_EQ(fromFile, fromMemory) << length;
        ASSERT_FALSE(progress.empty());
        EXPECT_EQ(progress.front(), 0u);
        EXPECT_EQ(progress.back(), length);
        EXPECT_EQ(progress.size(), 1 + (length + 65535) / 65536);
    }
}

TEST(Hashing, WrongSize_CostsNoReading) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "abc");
    bool read = false;
    const auto progress = [&read](std::uint64_t) { read = true; };
    const std::wstring digest = L"BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
    EXPECT_FALSE(FileMatchesDescriptor(folder / L"file", {L"file", digest, 4}, progress));
    EXPECT_FALSE(read);
    EXPECT_TRUE(FileMatchesDescriptor(folder / L"file", {L"file", digest, 3}, progress));
    EXPECT_TRUE(read);
    EXPECT_FALSE(FileMatchesDescriptor(folder / L"file", {L"file", std::wstring(64, L'0'), 3}));
    EXPECT_FALSE(FileMatchesDescriptor(folder / L"missing", {L"file", digest, 3}));
    EXPECT_FALSE(FileMatchesDescriptor(folder.Path(), {L"", digest, 0}));
}

TEST(Hashing, ManifestFile_LiesUnderTheRoot) {
    const TemporaryDirectory folder;
    MakeFolder(folder / L"App");
    WriteWholeFile(folder / L"App\\file", "abc");
    ManifestFileEntry entry{L"application", L"App/file", L"",
                            L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", 3};
    EXPECT_TRUE(ManifestFileIsCurrent(folder.Path(), entry));
    entry.path = L"App/other";
    EXPECT_FALSE(ManifestFileIsCurrent(folder.Path(), entry));
}

TEST(Attributes, OnlyTwoErrorsMeanAbsent) {
    const TemporaryDirectory folder;
    EXPECT_EQ(LookAt(folder / L"missing").presence, Presence::absent);
    EXPECT_EQ(LookAt(folder / L"missing\\deeper").presence, Presence::absent);
    EXPECT_EQ(LookAt(folder.Path()).presence, Presence::present);
    // Access denied, a share that blocks, no medium, no such network place, no valid name, a link that leads nowhere.
    for (const DWORD error : {5u, 32u, 21u, 53u, 123u, 1920u}) {
        const UnreadableAttributes unreadable(L"secret", error);
        EXPECT_EQ(LookAt(folder / L"secret").presence, Presence::unknown) << error;
    }
}

}  // namespace
}  // namespace launcher_update
