#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/sha256.h"
#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/seen_calls.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/file_hashing.h"
#include "update/files/file_io.h"
#include "update/files/trees.h"
#include "update/transaction/journal.h"
#include "update/transaction/lock.h"
#include "update/transaction/recovery.h"
#include "update/transaction/stale_cleanup.h"

// What the update core hands to Windows, call by call: the form of every path and the terms of every open file. A path
// beyond 260 units shows a forgotten prefix on Windows alone, so the form itself is looked at.

namespace launcher_update {
namespace {

using test_support::Opening;
using test_support::ReadWholeFile;
using test_support::SeenCalls;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;
using OnGetAttributesEx = StandIn<"GetFileAttributesExW", decltype(GetFileAttributesExW)>;
using OnSetAttributes = StandIn<"SetFileAttributesW", decltype(SetFileAttributesW)>;
using OnFindFirst = StandIn<"FindFirstFileW", decltype(FindFirstFileW)>;
using OnReadFile = StandIn<"ReadFile", decltype(ReadFile)>;
using OnWriteFile = StandIn<"WriteFile", decltype(WriteFile)>;

void ExpectOpening(const Opening& seen, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    EXPECT_EQ(seen.access, access);
    EXPECT_EQ(seen.share, share);
    EXPECT_EQ(seen.disposition, disposition);
    EXPECT_EQ(seen.flags, flags);
}

TEST(FileCalls, EveryOperation_UsesTheLongForm) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "abc");
    const PackageFileDescriptor descriptor{L"file", L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
                                           3};
    std::string bytes;
    std::wstring hex;
    std::vector<DirectoryEntry> entries;
    struct Row {
        const char* name;
        std::function<bool()> operation;
        std::vector<const char*> functions;
    };
    // With slashes turned the wrong way: behind the prefix Windows would not take them for separators.
    std::wstring slashed = folder.Path();
    std::replace(slashed.begin(), slashed.end(), L'\\', L'/');
    const Row rows[] = {
        {"LookAt", [&] { return LookAt(slashed + L"/file").presence == Presence::present; }, {"GetFileAttributesW"}},
        {"ReadFileLimited", [&] { return ReadFileLimited(slashed + L"/file", 10, bytes); }, {"CreateFileW"}},
        {"FlushFileToDisk", [&] { return FlushFileToDisk(slashed + L"/file"); }, {"CreateFileW"}},
        {"Sha256OfFile", [&] { return Sha256OfFile(slashed + L"/file", hex); }, {"CreateFileW"}},
        {"HashFileSha256", [&] { return HashFileSha256(folder / L"file", hex); }, {"CreateFileW"}},
        {"FileMatchesDescriptor",
         [&] { return FileMatchesDescriptor(slashed + L"/file", descriptor); },
         {"GetFileAttributesExW", "CreateFileW"}},
        {"WriteTextDurable", [&] { return WriteTextDurable(slashed + L"/text", L"x"); }, {"_wfopen", "MoveFileExW"}},
        {"WriteStateAtomically",
         [&] { return WriteStateAtomically(slashed + L"/state", "x"); },
         {"_wfopen", "MoveFileExW"}},
        {"WriteJournalDurable",
         [&] { return WriteJournalDurable(slashed + L"/journal", L"x"); },
         {"DeleteFileW", "CreateFileW", "MoveFileExW"}},
        {"EnsureDirectory",
         [&] { return EnsureDirectory(slashed + L"/tree/one"); },
         {"GetFileAttributesW", "CreateDirectoryW"}},
        {"CreateDirectoryChain",
         [&] { return CreateDirectoryChain(folder / L"tree\\two"); },
         {"GetFileAttributesW", "CreateDirectoryW"}},
        {"CopyFileDurable",
         [&] { return CopyFileDurable(slashed + L"/file", slashed + L"/tree/new/copy", false); },
         {"GetFileAttributesW", "CreateDirectoryW", "CopyFileW", "CreateFileW"}},
        {"hiding", [&] { return SetFileAttributesW((folder / L"tree\\new\\copy").c_str(), 2) != 0; }, {}},
        {"ListDirectory", [&] { return ListDirectory(slashed + L"/tree", entries); }, {"FindFirstFileW"}},
        {"RemoveTree",
         [&] { return RemoveTree(slashed + L"/tree"); },
         {"GetFileAttributesW", "FindFirstFileW", "SetFileAttributesW", "DeleteFileW", "RemoveDirectoryW"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SeenCalls seen;
        EXPECT_TRUE(row.operation());
        if (row.functions.empty()) continue;  // the test's own doing
        seen.ExpectLongForms();
        for (const char* function : row.functions)
            EXPECT_TRUE(seen.Holds(function)) << function;
    }
}

TEST(FileCalls, AWholeTransaction_UsesTheLongForm) {
    const TemporaryDirectory folder;
    const std::wstring root = folder.Path();
    const std::wstring control = ControlDirectory(root);
    const std::wstring backup = control + L"\\backup-1";
    ASSERT_TRUE(EnsureDirectory(backup));
    ASSERT_TRUE(EnsureDirectory(root + L"\\App"));
    WriteWholeFile(root + L"\\App\\old", "old");
    UpdateManifest manifest;
    manifest.files = {{L"application", L"App/old", L"", L"", 1}, {L"theme", L"App/new", L"", L"", 1}};
    std::wstring error;
    {
        SeenCalls seen;
        ASSERT_TRUE(WriteTransactionJournal(root, control, backup, manifest, L"App", false, error));
        seen.ExpectLongForms();
    }
    WriteWholeFile(root + L"\\App\\new", "new");
    {
        SeenCalls seen;
        ASSERT_TRUE(PrepareUpdateFolder(root, error));
        seen.ExpectLongForms();
        for (const char* function : {"CreateFileW", "CopyFileW", "MoveFileExW", "DeleteFileW", "RemoveDirectoryW"})
            EXPECT_TRUE(seen.Holds(function)) << function;
        // The one rename of a restore replaces and writes through.
        ASSERT_EQ(seen.moves.size(), 1u);
        EXPECT_EQ(seen.moves[0].from, L"\\\\?\\" + root + L"\\App\\old.update-recovery");
        EXPECT_EQ(seen.moves[0].to, L"\\\\?\\" + root + L"\\App\\old");
        EXPECT_EQ(seen.moves[0].flags, 9u);
    }
    ASSERT_TRUE(EnsureDirectory(backup));
    ASSERT_TRUE(WriteTransactionJournal(root, control, backup, manifest, L"App", false, error));
    SeenCalls seen;
    ASSERT_TRUE(CommitTransaction(control, error));
    { const StagingCleanupGuard guard(control + L"\\staging-1", backup, JournalPath(control)); }
    seen.ExpectLongForms();
    ASSERT_EQ(seen.moves.size(), 1u);
    EXPECT_EQ(seen.moves[0].flags, 9u);
}

TEST(FileCalls, TheFlush_OpensForWritingThroughAndSharesEverything) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "abc");
    SeenCalls seen;
    ASSERT_TRUE(FlushFileToDisk(folder / L"file"));
    ASSERT_EQ(seen.openings.size(), 1u);
    ExpectOpening(seen.openings[0], GENERIC_WRITE, 7, OPEN_EXISTING, 0x80000080);
    EXPECT_FALSE(FlushFileToDisk(folder / L"missing"));
    EXPECT_EQ(GetFileAttributesW((folder / L"missing").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(FileCalls, TheJournalsSibling_IsNewUnsharedHiddenAndWrittenThrough) {
    const TemporaryDirectory folder;
    SeenCalls seen;
    ASSERT_TRUE(WriteJournalDurable(folder / L"transaction.json", L"x"));
    ASSERT_EQ(seen.openings.size(), 1u);
    ExpectOpening(seen.openings[0], GENERIC_WRITE, 0, CREATE_NEW, 0x80000002);
}

TEST(FileCalls, TheLock_IsUnsharedHiddenAndKept) {
    const TemporaryDirectory folder;
    SeenCalls seen;
    {
        const TransactionLock lock(folder.Path());
        ASSERT_TRUE(lock.Held());
    }
    ASSERT_EQ(seen.openings.size(), 1u);
    ExpectOpening(seen.openings[0], GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS, FILE_ATTRIBUTE_HIDDEN);
    seen.ExpectLongForms();
}

TEST(FileCalls, AShortWriteOfTheJournal_IsAFailure) {
    const TemporaryDirectory folder;
    const OnWriteFile write([](HANDLE file, LPCVOID bytes, DWORD length, LPDWORD written, LPOVERLAPPED overlapped) {
        return OnWriteFile::Original(file, bytes, length - 1, written, overlapped);
    });
    EXPECT_FALSE(WriteJournalDurable(folder / L"transaction.json", L"journal"));
    EXPECT_EQ(GetFileAttributesW((folder / L"transaction.json").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW((folder / L"transaction.json.tmp").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(FileCalls, AJournalsSiblingThatAnotherHolds_IsLeftToIt) {
    const TemporaryDirectory folder;
    const std::wstring sibling = folder / L"transaction.json.tmp";
    WriteWholeFile(sibling, "theirs");
    const platform::FileHandle holder(
        CreateFileW(sibling.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_FALSE(WriteJournalDurable(folder / L"transaction.json", L"ours"));
    EXPECT_EQ(ReadWholeFile(sibling), "theirs");
}

TEST(FileCalls, AReadError_IsNeverADigestOrAnEmptyFile) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", std::string(200000, 'x'));
    for (int failing = 1; failing <= 4; ++failing) {
        int reads = 0;
        const OnReadFile read([&](HANDLE file, LPVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED overlapped) {
            if (++reads != failing) return OnReadFile::Original(file, buffer, length, count, overlapped);
            SetLastError(ERROR_CRC);
            return FALSE;
        });
        std::wstring hex = L"left from before";
        EXPECT_FALSE(Sha256OfFile(folder / L"file", hex)) << failing;
        EXPECT_EQ(hex, L"");
        EXPECT_EQ(reads, failing);
    }
    const OnReadFile read([](auto...) { return FALSE; });
    std::string bytes;
    EXPECT_FALSE(ReadFileLimited(folder / L"file", 300000, bytes));
}

TEST(FileCalls, ADigest_EndsAtTheFirstShortRead) {
    const TemporaryDirectory folder;
    int reads = 0;
    const OnReadFile read([&](HANDLE file, LPVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED overlapped) {
        ++reads;
        EXPECT_EQ(length, 65536u);
        return OnReadFile::Original(file, buffer, length, count, overlapped);
    });
    struct Row {
        std::size_t length;
        int reads;
    };
    for (const Row& row : {Row{0, 1}, {1, 1}, {65535, 1}, {65536, 2}, {65537, 2}, {131072, 3}}) {
        WriteWholeFile(folder / L"file", std::string(row.length, 'x'));
        reads = 0;
        std::wstring hex;
        EXPECT_TRUE(Sha256OfFile(folder / L"file", hex));
        EXPECT_EQ(reads, row.reads) << row.length;
    }
}

TEST(FileCalls, AFolder_IsNeverOpenedForItsDigest) {
    const TemporaryDirectory folder;
    WIN32_FILE_ATTRIBUTE_DATA facts{};
    ASSERT_TRUE(GetFileAttributesExW(folder.Path().c_str(), GetFileExInfoStandard, &facts));
    SeenCalls seen;
    EXPECT_FALSE(FileMatchesDescriptor(folder.Path(), {L"", L"", facts.nFileSizeLow}));
    EXPECT_FALSE(seen.Holds("CreateFileW"));
}

TEST(FileCalls, ThePackagesForms_KeepSlashesBehindThePrefix) {
    SeenCalls seen;
    std::wstring hex;
    EXPECT_FALSE(HashFileSha256(L"C:/missing/file", hex));
    EXPECT_FALSE(seen.paths.empty());
    for (const auto& [function, path] : seen.paths)
        EXPECT_EQ(path, L"\\\\?\\C:/missing/file") << function;
}

TEST(FileCalls, AFileOver4GiB_IsMeasuredWhole) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "abc");
    const OnGetAttributesEx attributes([](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID facts) {
        const BOOL good = OnGetAttributesEx::Original(path, level, facts);
        static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(facts)->nFileSizeHigh = 1;
        return good;
    });
    const std::wstring digest = L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    EXPECT_FALSE(FileMatchesDescriptor(folder / L"file", {L"file", digest, 3}));
    EXPECT_TRUE(FileMatchesDescriptor(folder / L"file", {L"file", digest, 0x100000003}));
}

TEST(FileCalls, AListingThatBreaksOff_IsAFailure) {
    const TemporaryDirectory folder;
    ASSERT_TRUE(EnsureDirectory(folder / L"tree\\one"));
    ASSERT_TRUE(EnsureDirectory(folder / L"tree\\two"));
    using OnFindNext = StandIn<"FindNextFileW", decltype(FindNextFileW)>;
    int calls = 0;
    const OnFindNext next([&](HANDLE find, LPWIN32_FIND_DATAW found) {
        if (++calls < 3) return OnFindNext::Original(find, found);
        SetLastError(ERROR_CRC);
        return FALSE;
    });
    EXPECT_FALSE(RemoveTree(folder / L"tree"));
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(LookAt(folder / L"tree\\one").presence, Presence::present) << "nothing goes before the listing is whole";
}

TEST(FileCalls, AFolderWithoutAnyEntry_IsAnEmptyList) {
    DWORD error = ERROR_FILE_NOT_FOUND;
    const OnFindFirst first([&error](auto...) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    });
    const TemporaryDirectory folder;
    EXPECT_TRUE(CleanStaleUpdateWork(folder.Path()));
    ASSERT_TRUE(EnsureDirectory(folder / L"tree"));
    EXPECT_TRUE(RemoveTree(folder / L"tree"));
    for (const DWORD refused : {DWORD{ERROR_PATH_NOT_FOUND}, DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_NO_MORE_FILES}}) {
        error = refused;
        ASSERT_TRUE(EnsureDirectory(folder / L"tree"));
        EXPECT_FALSE(CleanStaleUpdateWork(folder.Path())) << refused;
        EXPECT_FALSE(RemoveTree(folder / L"tree")) << refused;
        EXPECT_EQ(LookAt(folder / L"tree").presence, Presence::present);
    }
}

TEST(FileCalls, TheFolderItself_LosesItsProtectionBeforeItGoes) {
    const TemporaryDirectory folder;
    ASSERT_TRUE(EnsureDirectory(folder / L"tree"));
    std::vector<std::pair<std::wstring, DWORD>> set;
    const OnSetAttributes attributes([&set](LPCWSTR path, DWORD value) {
        set.emplace_back(path, value);
        return OnSetAttributes::Original(path, value);
    });
    WriteWholeFile(folder / L"tree\\plain", "x");
    WriteWholeFile(folder / L"tree\\hidden", "x");
    ASSERT_TRUE(OnSetAttributes::Original((folder / L"tree\\hidden").c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(RemoveTree(folder / L"tree"));
    EXPECT_EQ(set, (std::vector<std::pair<std::wstring, DWORD>>{{L"\\\\?\\" + (folder / L"tree\\hidden"), 128},
                                                                {L"\\\\?\\" + (folder / L"tree"), 16}}));
}

TEST(FileCalls, ASystemFile_IsUnprotectedToo) {
    const TemporaryDirectory folder;
    ASSERT_TRUE(EnsureDirectory(folder / L"tree"));
    WriteWholeFile(folder / L"tree\\system", "x");
    const test_support::ForcedAttributes forced(L"system", FILE_ATTRIBUTE_SYSTEM);
    std::vector<DWORD> set;
    const OnSetAttributes attributes([&set](LPCWSTR path, DWORD value) {
        set.push_back(value);
        return OnSetAttributes::Original(path, value);
    });
    ASSERT_TRUE(RemoveTree(folder / L"tree"));
    EXPECT_EQ(set, (std::vector<DWORD>{128, 16}));
}

TEST(FileCalls, RepeatedRemovals_AreATenthOfASecondApart) {
    using OnSleep = StandIn<"Sleep", decltype(Sleep)>;
    std::vector<DWORD> pauses;
    const OnSleep sleep([&pauses](DWORD milliseconds) { pauses.push_back(milliseconds); });
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "no folder");
    EXPECT_FALSE(RemoveTreeRetry(folder / L"file"));
    EXPECT_EQ(pauses, (std::vector<DWORD>{100, 100, 100, 100, 100}));
}

using OnOpenAlgorithm = StandIn<"BCryptOpenAlgorithmProvider", decltype(BCryptOpenAlgorithmProvider)>;
using OnProperty = StandIn<"BCryptGetProperty", decltype(BCryptGetProperty)>;
using OnCreateHash = StandIn<"BCryptCreateHash", decltype(BCryptCreateHash)>;
using OnHashData = StandIn<"BCryptHashData", decltype(BCryptHashData)>;
using OnFinishHash = StandIn<"BCryptFinishHash", decltype(BCryptFinishHash)>;

constexpr auto kRefused = static_cast<NTSTATUS>(0xC0000001);

/// Neither a file nor memory, with bytes or without, has a digest now.
void ExpectNoDigest(const char* call) {
    const TemporaryDirectory folder;
    for (const char* text : {"abc", ""}) {
        const std::string bytes = text;
        WriteWholeFile(folder / L"file", bytes);
        std::wstring hex = L"left from before";
        EXPECT_FALSE(Sha256OfFile(folder / L"file", hex)) << call;
        EXPECT_EQ(hex, L"") << call;
        hex = L"left from before";
        EXPECT_FALSE(Sha256OfBuffer(bytes.data(), bytes.size(), hex)) << call;
        EXPECT_EQ(hex, L"") << call;
    }
    EXPECT_FALSE(FileMatchesDescriptor(folder / L"file", {L"file", L"", 0})) << "no digest equals no digest";
}

TEST(HashingFaults, EachRefusedCall_GivesNoDigest) {
    {
        const OnOpenAlgorithm open([](auto...) { return kRefused; });
        ExpectNoDigest("open");
    }
    for (const wchar_t* refused : {L"ObjectLength", L"HashDigestLength"}) {
        const OnProperty property(
            [refused](BCRYPT_HANDLE handle, LPCWSTR name, PUCHAR value, ULONG length, ULONG* written, ULONG flags) {
                if (std::wstring(name) == refused) return kRefused;
                return OnProperty::Original(handle, name, value, length, written, flags);
            });
        ExpectNoDigest("property");
    }
    {
        const OnProperty property(
            [](BCRYPT_HANDLE handle, LPCWSTR name, PUCHAR value, ULONG length, ULONG* written, ULONG flags) {
                const NTSTATUS status = OnProperty::Original(handle, name, value, length, written, flags);
                *written = 2;
                return status;
            });
        ExpectNoDigest("half a property");
    }
    {
        const OnCreateHash create([](auto...) { return kRefused; });
        ExpectNoDigest("create");
    }
    {
        const OnFinishHash finish([](auto...) { return kRefused; });
        ExpectNoDigest("finish");
    }
    const OnHashData data([](auto...) { return kRefused; });
    std::wstring hex;
    EXPECT_FALSE(Sha256OfBuffer("abc", 3, hex));
    EXPECT_EQ(hex, L"");
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "abc");
    EXPECT_FALSE(Sha256OfFile(folder / L"file", hex));
}

TEST(HashingFaults, AnErrorInTheMiddle_IsNotForgotten) {
    int calls = 0;
    const OnHashData data([&calls](BCRYPT_HASH_HANDLE hash, PUCHAR bytes, ULONG length, ULONG flags) {
        return ++calls == 2 ? kRefused : OnHashData::Original(hash, bytes, length, flags);
    });
    platform::Sha256 digest;
    EXPECT_TRUE(digest.Update("a", 1));
    EXPECT_FALSE(digest.Update("b", 1));
    EXPECT_FALSE(digest.Update("c", 1));
    EXPECT_FALSE(digest.Update("", 0));
    std::wstring hex;
    EXPECT_FALSE(digest.Finish(hex));
    EXPECT_EQ(hex, L"");
}

TEST(HashingFaults, MoreThanOneCallCanTake_IsRefused) {
    int calls = 0;
    const OnHashData data([&calls](auto...) {
        ++calls;
        return NTSTATUS{0};
    });
    std::wstring hex;
    EXPECT_FALSE(Sha256OfBuffer("x", 0x100000000, hex));
    EXPECT_EQ(hex, L"");
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(Sha256OfBuffer("x", 0xFFFFFFFF, hex));
    EXPECT_EQ(calls, 1);
    // Nothing is hashed for nothing.
    EXPECT_TRUE(Sha256OfBuffer(nullptr, 0, hex));
    EXPECT_EQ(calls, 1);
}

TEST(JournalFile, ExactlyTheLimit_IsRead) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"transaction.json";
    std::string journal = platform::EncodeUtf8(RenderJournal(L"backup-1", {{L"a", true}}));
    journal.resize(524288, ' ');
    WriteWholeFile(path, journal);
    std::wstring name;
    TransactionTargets targets;
    std::wstring error;
    EXPECT_TRUE(ReadTransactionJournal(path, name, targets, error));
    EXPECT_EQ(targets, (TransactionTargets{{L"a", true}}));
    WriteWholeFile(path, journal + " ");
    EXPECT_FALSE(ReadTransactionJournal(path, name, targets, error));
    EXPECT_EQ(error, L"上一次更新的交易紀錄無效；已保留備份並停止啟動。");
    error.clear();
    EXPECT_FALSE(ReadTransactionJournal(folder / L"missing", name, targets, error));
    EXPECT_EQ(error, L"上一次更新的交易紀錄無效；已保留備份並停止啟動。");
}

/// What may be written must be readable, or the launch would stop for good behind a crash.
TEST(JournalFile, TheLargestThatCanBeWritten_IsReadBack) {
    TransactionTargets written;
    std::wstring error;
    for (int index = 0; index < 256; ++index) {
        const std::wstring number = std::to_wstring(1000 + index);
        ASSERT_TRUE(AddTransactionTarget(written, number + std::wstring(512 - number.size(), L'日'), error));
    }
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"transaction.json";
    const std::wstring backup = L"backup-" + std::wstring(200, L'日');
    ASSERT_TRUE(WriteJournalDurable(path, RenderJournal(backup, written)));
    std::wstring name;
    TransactionTargets read;
    ASSERT_TRUE(ReadTransactionJournal(path, name, read, error)) << platform::EncodeUtf8(error);
    EXPECT_EQ(name, backup);
    EXPECT_EQ(read, written);
}

}  // namespace
}  // namespace launcher_update
