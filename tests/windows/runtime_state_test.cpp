#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/packages/runtime_state.h"
#include "update/packages/validation.h"

namespace launcher_update {
namespace {

using test_support::DescribePackage;
using test_support::FaultKind;
using test_support::FileLength;
using test_support::ForcedAttributes;
using test_support::LongPath;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::ReadPackageTree;
using test_support::ReadWholeFile;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using OnCreateFile = StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnFindFirst = StandIn<"FindFirstFileW", decltype(FindFirstFileW)>;
using OnFindNext = StandIn<"FindNextFileW", decltype(FindNextFileW)>;
using OnFlush = StandIn<"FlushFileBuffers", decltype(FlushFileBuffers)>;
using OnGetFileSize = StandIn<"GetFileSizeEx", decltype(GetFileSizeEx)>;
using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;
using OnReadFile = StandIn<"ReadFile", decltype(ReadFile)>;

constexpr DWORD kLink = 0x400;
constexpr std::size_t kCapBytes = 262144;

constexpr wchar_t kNothingToActivate[] = L"沒有可啟用的資源包或 Runtime 目錄無法建立。";
constexpr wchar_t kCannotCommit[] = L"無法原子提交 Runtime/current.json。";
constexpr wchar_t kRolledBack[] = L"Runtime state 回讀失敗，已回復上一版。";
constexpr wchar_t kNotRolledBack[] = L"Runtime state 回讀失敗且無法回復上一版。";
constexpr wchar_t kPackageRootUnsafe[] = L"資源包目錄不是安全的一般資料夾，已略過舊版本清理。";
const std::wstring kCannotRemove = L"無法清除未使用的舊資源包版本：";

std::string Utf8(const std::wstring& text) {
    return platform::EncodeUtf8(text);
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(LongPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// The names in a folder.
std::set<std::wstring> Names(const std::wstring& folder) {
    std::vector<DirectoryEntry> entries;
    EXPECT_TRUE(ListDirectory(folder, entries));
    std::set<std::wstring> names;
    for (const DirectoryEntry& entry : entries)
        names.insert(entry.name);
    return names;
}

PackageDescriptor Named(const std::wstring& id, const std::wstring& version, const std::wstring& capability,
                        bool required) {
    PackageDescriptor package;
    package.id = id;
    package.version = version;
    package.capability = capability;
    package.requiredForStartup = required;
    return package;
}

/// A list whose rendering has exactly `bytes` bytes.
std::vector<PackageDescriptor> RenderingOf(std::size_t bytes) {
    std::vector<PackageDescriptor> packages = {Named(L"core", L"1.0.0.0", L"", true)};
    const std::size_t frame = RenderRuntimeState(packages).size();
    packages[0].capability.assign(bytes - frame, L'c');
    return packages;
}

// --- Reading

TEST(RuntimeState, LiesInTheRuntimeFolder) {
    EXPECT_EQ(RuntimeStatePath(L"C:\\App\\Runtime"), L"C:\\App\\Runtime\\current.json");
}

TEST(RuntimeState, Reading_TakesFilesUpToTheCap) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"current.json";
    std::string bytes = "left over";
    EXPECT_FALSE(ReadStateBytes(path, bytes));
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, kCapBytes}) {
        WriteWholeFile(path, std::string(size, 'x'));
        EXPECT_TRUE(ReadStateBytes(path, bytes)) << size;
        EXPECT_EQ(bytes, std::string(size, 'x'));
    }
    WriteWholeFile(path, std::string(kCapBytes + 1, 'x'));
    EXPECT_FALSE(ReadStateBytes(path, bytes));
    EXPECT_FALSE(ReadStateBytes(folder.Path(), bytes));
}

TEST(RuntimeState, Reading_IsBinary) {
    const TemporaryDirectory folder;
    const std::string raw("a\r\n\x1A\0\xFF", 6);
    WriteWholeFile(folder / L"current.json", raw);
    std::string bytes;
    EXPECT_TRUE(ReadStateBytes(folder / L"current.json", bytes));
    EXPECT_EQ(bytes, raw);
}

TEST(RuntimeState, ShortOrFailedReading_IsAFailure) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"current.json", "12345");
    std::string bytes;
    {
        const OnReadFile read([](HANDLE file, LPVOID data, DWORD length, LPDWORD got, LPOVERLAPPED overlapped) {
            return OnReadFile::Original(file, data, length - 1, got, overlapped);
        });
        EXPECT_FALSE(ReadStateBytes(folder / L"current.json", bytes));
    }
    const OnReadFile read([](HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED) { return FALSE; });
    EXPECT_FALSE(ReadStateBytes(folder / L"current.json", bytes));
}

TEST(RuntimeState, Matches_OnlyTheExactRendering) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"current.json";
    const std::vector<PackageDescriptor> packages = {Named(L"a", L"1.0.0.0", L"x", true),
                                                     Named(L"b", L"1.0.0.0", L"y", true)};
    const std::string exact = RenderRuntimeState(packages);
    EXPECT_FALSE(RuntimeStateMatches(folder.Path(), packages));
    WriteWholeFile(path, exact);
    EXPECT_TRUE(RuntimeStateMatches(folder.Path(), packages));
    EXPECT_FALSE(RuntimeStateMatches(folder.Path(), {packages[1], packages[0]}));
    EXPECT_FALSE(RuntimeStateMatches(folder.Path(), {packages[0]}));
    for (const std::string& other :
         {exact + " ", exact.substr(0, exact.size() - 1), "\xEF\xBB\xBF" + exact, std::string(), exact + exact}) {
        WriteWholeFile(path, other);
        EXPECT_FALSE(RuntimeStateMatches(folder.Path(), packages)) << other;
    }
}

TEST(RuntimeState, EmptyList_MatchesAnything) {
    const TemporaryDirectory folder;
    EXPECT_TRUE(RuntimeStateMatches(folder.Path(), {}));
    WriteWholeFile(folder / L"current.json", "garbage");
    EXPECT_TRUE(RuntimeStateMatches(folder.Path(), {}));
}

TEST(RuntimeState, StateBeyondTheCap_NeverMatches) {
    const TemporaryDirectory folder;
    for (const std::size_t size : {kCapBytes, kCapBytes + 1}) {
        const std::vector<PackageDescriptor> packages = RenderingOf(size);
        WriteWholeFile(folder / L"current.json", RenderRuntimeState(packages));
        ASSERT_EQ(FileLength(folder / L"current.json"), static_cast<long long>(size));
        EXPECT_EQ(RuntimeStateMatches(folder.Path(), packages), size == kCapBytes);
    }
}

// --- Activation

/// Two packages on disk, each in two versions; the state names the old ones.
class Activation : public testing::Test {
  protected:
    Activation() {
        for (const auto* set : {&oldSet, &newSet}) {
            for (const PackageDescriptor& package : *set)
                WritePackageTree(VersionFolder(root, package), content);
        }
        WriteWholeFile(path, RenderRuntimeState(oldSet));
    }

    bool Activate() {
        error.clear();
        return ActivatePackageSet(root, newSet, error);
    }
    std::string State() const { return ReadWholeFile(path); }
    bool StateIsOld() const { return State() == RenderRuntimeState(oldSet); }
    bool StateIsNew() const { return State() == RenderRuntimeState(newSet); }
    void ExpectRefused(const std::wstring& message) {
        EXPECT_FALSE(Activate());
        EXPECT_EQ(Utf8(error), Utf8(message));
    }

    TemporaryDirectory folder;
    std::wstring root = folder / L"Runtime";
    std::wstring path = root + L"\\current.json";
    PackageContent content = {{L"a.bin", "alpha"}, {L"sub/b.bin", "beta"}};
    std::vector<PackageDescriptor> oldSet = {DescribePackage(L"core", L"1.0.0.0", content),
                                             DescribePackage(L"voices", L"1.0.0.0", content)};
    std::vector<PackageDescriptor> newSet = {DescribePackage(L"core", L"2.0.0.0", content),
                                             DescribePackage(L"voices", L"2.0.0.0", content)};
    std::wstring error;
};

/// What comes back when a file named current.json is read after it has been replaced.
class BadReadBack {
  public:
    enum class Kind { flipped, shortened, refusedOpen, refusedRead, refusedSize, tooLong };

    explicit BadReadBack(Kind kind) : kind_(kind) {}
    [[nodiscard]] bool Reached() const { return reached_; }

  private:
    [[nodiscard]] bool Hits(HANDLE file, Kind kind) {
        const bool hit = kind == kind_ && file == readBack_;
        reached_ = reached_ || hit;
        return hit;
    }

    Kind kind_;
    bool replaced_ = false;
    bool reached_ = false;
    HANDLE readBack_ = nullptr;
    OnMoveFile move_{[this](LPCWSTR from, LPCWSTR to, DWORD flags) {
        const BOOL good = OnMoveFile::Original(from, to, flags);
        replaced_ = true;
        return good;
    }};
    OnCreateFile open_{[this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                              DWORD disposition, DWORD flags, HANDLE other) {
        const bool isReadBack = replaced_ && std::wstring_view(path).ends_with(L"\\current.json");
        if (isReadBack && kind_ == Kind::refusedOpen) {
            reached_ = true;
            SetLastError(ERROR_SHARING_VIOLATION);
            return INVALID_HANDLE_VALUE;
        }
        const HANDLE file = OnCreateFile::Original(path, access, share, security, disposition, flags, other);
        readBack_ = isReadBack ? file : nullptr;
        return file;
    }};
    OnGetFileSize size_{[this](HANDLE file, PLARGE_INTEGER size) {
        const BOOL good = OnGetFileSize::Original(file, size);
        if (Hits(file, Kind::shortened)) --size->QuadPart;
        if (Hits(file, Kind::tooLong)) size->QuadPart = static_cast<LONGLONG>(kCapBytes) + 1;
        return Hits(file, Kind::refusedSize) ? FALSE : good;
    }};
    OnReadFile read_{[this](HANDLE file, LPVOID data, DWORD length, LPDWORD got, LPOVERLAPPED overlapped) {
        const BOOL good = OnReadFile::Original(file, data, length, got, overlapped);
        if (Hits(file, Kind::flipped)) static_cast<char*>(data)[length - 1] ^= 1;
        return Hits(file, Kind::refusedRead) ? FALSE : good;
    }};
};

constexpr BadReadBack::Kind kBadReadBacks[] = {BadReadBack::Kind::flipped,     BadReadBack::Kind::shortened,
                                               BadReadBack::Kind::refusedOpen, BadReadBack::Kind::refusedRead,
                                               BadReadBack::Kind::refusedSize, BadReadBack::Kind::tooLong};

TEST_F(Activation, WholeSet_IsNamed) {
    EXPECT_TRUE(Activate());
    EXPECT_TRUE(StateIsNew());
    EXPECT_TRUE(RuntimeStateMatches(root, newSet));
    EXPECT_EQ(Names(root), (std::set<std::wstring>{L"current.json", L"packs"}));
}

TEST_F(Activation, NamedAgain_StaysNamed) {
    ASSERT_TRUE(Activate());
    EXPECT_TRUE(Activate());
    EXPECT_TRUE(StateIsNew());
}

TEST_F(Activation, WithoutAPreviousState_OrWithAStaleSibling_Works) {
    ASSERT_TRUE(DeleteFileW(path.c_str()));
    WriteWholeFile(path + L".new", "left over by a crash, and longer than what comes: " + std::string(2000, 'x'));
    EXPECT_TRUE(Activate());
    EXPECT_TRUE(StateIsNew());
    EXPECT_FALSE(Exists(path + L".new"));
}

TEST_F(Activation, PreviousStateBeyondTheCap_IsReplaced) {
    WriteWholeFile(path, std::string(kCapBytes + 1, 'x'));
    EXPECT_TRUE(Activate());
    EXPECT_TRUE(StateIsNew());
}

TEST_F(Activation, EmptyList_IsRefused_AndTouchesNothing) {
    newSet.clear();
    const MutationFaults faults;
    ExpectRefused(kNothingToActivate);
    EXPECT_EQ(faults.Count(), 0u);
    EXPECT_TRUE(StateIsOld());
}

TEST_F(Activation, RuntimeFolderThatCannotBeMade_IsTheSameMessage) {
    {
        const ForcedAttributes forced(L"Runtime", kLink);
        ExpectRefused(kNothingToActivate);
    }
    EXPECT_TRUE(StateIsOld());
    WriteWholeFile(folder / L"file", "x");
    root = folder / L"file";
    ExpectRefused(kNothingToActivate);
    root = folder / L"file\\below";
    ExpectRefused(kNothingToActivate);
    MutationFaults faults(FaultKind::fail, 1);
    root = folder / L"absent\\Runtime";
    ExpectRefused(kNothingToActivate);
    EXPECT_TRUE(faults.Reached());
}

/// The folder is made before the packages are looked at.
TEST_F(Activation, MissingRuntimeFolder_IsMadeFirst) {
    root = folder / L"deep\\Runtime";
    ExpectRefused(L"資源包版本資料夾不存在或不安全。");
    EXPECT_TRUE(Exists(root));
    newSet[0].inventory.clear();
    newSet.pop_back();
    WritePackageTree(VersionFolder(root, newSet[0]), {});
    EXPECT_TRUE(Activate()) << Utf8(error);
    EXPECT_EQ(ReadWholeFile(root + L"\\current.json"), RenderRuntimeState(newSet));
}

TEST_F(Activation, AnyDamagedMember_StopsIt_WithTheMessageOfItsValidation) {
    WritePackageTree(VersionFolder(root, newSet[1]), {{L"sub/b.bin", "BETA"}});
    {
        const MutationFaults faults;
        ExpectRefused(L"資源包落地內容驗證失敗：sub/b.bin");
        EXPECT_EQ(faults.Count(), 0u);
    }
    WritePackageTree(VersionFolder(root, newSet[0]), {{L"extra", ""}});
    ExpectRefused(L"資源包版本資料夾與 inventory 不符。");  // the first package's, in the order of the list
    EXPECT_TRUE(StateIsOld());
}

TEST_F(Activation, BytesAreForcedOut_BeforeTheReplacingMove) {
    std::vector<std::wstring> steps;
    const OnFlush flush([&](HANDLE file) {
        steps.emplace_back(L"force out");
        return OnFlush::Original(file);
    });
    const OnMoveFile move([&](LPCWSTR from, LPCWSTR to, DWORD flags) {
        steps.push_back(std::wstring(from) + L" > " + to + L" by " + std::to_wstring(flags));
        return OnMoveFile::Original(from, to, flags);
    });
    EXPECT_TRUE(Activate());
    EXPECT_EQ(steps,
              (std::vector<std::wstring>{L"force out", LongPath(path) + L".new > " + LongPath(path) + L" by 9"}));
}

TEST_F(Activation, StateThatCannotBeWritten_LeavesTheOldOne) {
    for (const char* function : {"_wfopen", "fwrite", "fflush", "FlushFileBuffers", "fclose", "MoveFileExW"}) {
        SCOPED_TRACE(function);
        MutationFaults faults(FaultKind::failTorn, 1, ERROR_DISK_FULL);
        faults.CountOnly(function, L"");
        ExpectRefused(kCannotCommit);
        EXPECT_TRUE(faults.Reached());
        EXPECT_TRUE(StateIsOld());
        EXPECT_FALSE(Exists(path + L".new"));
    }
}

TEST_F(Activation, BadReadBack_RestoresTheOldState) {
    for (const BadReadBack::Kind kind : kBadReadBacks) {
        SCOPED_TRACE(static_cast<int>(kind));
        BadReadBack bad(kind);
        ExpectRefused(kRolledBack);
        EXPECT_TRUE(bad.Reached());
        EXPECT_EQ(Names(root), (std::set<std::wstring>{L"current.json", L"packs"}));
        // Plain reads of the test would be turned bad as well.
        EXPECT_EQ(FileLength(path), static_cast<long long>(RenderRuntimeState(oldSet).size()));
    }
    EXPECT_TRUE(StateIsOld());
}

/// Old and new state differ in one digit only, so the length says nothing: the bytes must be the old ones.
TEST_F(Activation, BadReadBack_RestoresTheOldBytes_WhateverTheyWere) {
    for (const std::string& previous :
         {std::string(), std::string("not a state\r\n\0\x1A", 15), std::string(kCapBytes, 'x')}) {
        WriteWholeFile(path, previous);
        {
            BadReadBack bad(BadReadBack::Kind::flipped);
            ExpectRefused(kRolledBack);
            EXPECT_TRUE(bad.Reached());
        }
        EXPECT_EQ(State(), previous);
        EXPECT_TRUE(Exists(path));
    }
}

TEST_F(Activation, BadReadBack_WithoutAPreviousState_DeletesTheFile) {
    for (const bool beyondTheCap : {false, true}) {
        DeleteFileW(path.c_str());
        if (beyondTheCap) WriteWholeFile(path, std::string(kCapBytes + 1, 'x'));
        ASSERT_EQ(Exists(path), beyondTheCap);
        BadReadBack bad(BadReadBack::Kind::flipped);
        ExpectRefused(kRolledBack);
        EXPECT_TRUE(bad.Reached());
        EXPECT_FALSE(Exists(path));
    }
}

TEST_F(Activation, BadReadBack_ThatCannotBeTakenBack_IsItsOwnMessage) {
    {
        MutationFaults faults(FaultKind::fail, 2);
        faults.CountOnly("MoveFileExW", L"current.json.new");
        BadReadBack bad(BadReadBack::Kind::flipped);
        ExpectRefused(kNotRolledBack);
        EXPECT_TRUE(faults.Reached());
    }
    EXPECT_TRUE(StateIsNew());
    ASSERT_TRUE(DeleteFileW(path.c_str()));
    {
        MutationFaults faults(FaultKind::fail, 1);
        faults.CountOnly("DeleteFileW", L"current.json");
        BadReadBack bad(BadReadBack::Kind::flipped);
        ExpectRefused(kNotRolledBack);
        EXPECT_TRUE(faults.Reached());
    }
    EXPECT_TRUE(StateIsNew());
}

TEST_F(Activation, VersionFoldersAreNotTouched) {
    const PackageContent before = ReadPackageTree(root + L"\\packs");
    {
        BadReadBack bad(BadReadBack::Kind::flipped);
        ExpectRefused(kRolledBack);
    }
    EXPECT_TRUE(Activate());
    EXPECT_EQ(ReadPackageTree(root + L"\\packs"), before);
}

TEST_F(Activation, RuntimeFolderBeyond260Units_Works) {
    const std::wstring part(90, L'n');
    root = folder / (part + L"\\" + part + L"\\" + part);
    for (const PackageDescriptor& package : newSet)
        WritePackageTree(LongPath(VersionFolder(root, package)), content);
    EXPECT_TRUE(Activate()) << Utf8(error);
    EXPECT_EQ(ReadWholeFile(LongPath(root + L"\\current.json")), RenderRuntimeState(newSet));
}

// --- Pruning

/// One package with versions on disk.
class Pruning : public testing::Test {
  protected:
    void Install(const std::vector<std::wstring>& versions) {
        for (const std::wstring& version : versions)
            WritePackageTree(packageRoot + L"\\" + version, {{L"sub/file", "content of " + Utf8(version)}});
    }
    bool Prune(const std::wstring& active) {
        package.version = active;
        error.clear();
        return PruneOldPackageVersions(root, {package}, error);
    }
    std::set<std::wstring> Left() const { return Names(packageRoot); }

    TemporaryDirectory folder;
    std::wstring root = folder / L"Runtime";
    PackageDescriptor package = Named(L"core", L"", L"", true);
    std::wstring packageRoot = PackageRoot(root, package);
    std::wstring error;
};

TEST_F(Pruning, ActiveAndHighestOther_AreKept) {
    struct Row {
        std::vector<std::wstring> before;
        std::wstring active;
        std::set<std::wstring> left;
    };
    const Row rows[] = {
        {{L"1.0.0.9", L"1.0.0.10", L"1.0.0.2", L"2.0.0.0"}, L"2.0.0.0", {L"1.0.0.10", L"2.0.0.0"}},
        {{L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"}, L"1.0.0.0", {L"1.0.0.0", L"3.0.0.0"}},
        {{L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"}, L"9.0.0.0", {L"3.0.0.0"}},  // the active one is not there
        {{L"1.9.9.9", L"2.0.0.0", L"1.10.0.0"}, L"5.0.0.0", {L"2.0.0.0"}},
        {{L"1.2.9.0", L"1.2.10.0"}, L"5.0.0.0", {L"1.2.10.0"}},
        {{L"1.9.0.0", L"1.10.0.0"}, L"5.0.0.0", {L"1.10.0.0"}},
        {{L"0.0.0.65535", L"0.0.1.0"}, L"5.0.0.0", {L"0.0.1.0"}},
        {{L"65535.65535.65535.65535", L"1.0.0.0"}, L"5.0.0.0", {L"65535.65535.65535.65535"}},
        {{L"007.0.0.1", L"6.0.0.0"}, L"5.0.0.0", {L"007.0.0.1"}},
        {{L"1.0.0.0"}, L"2.0.0.0", {L"1.0.0.0"}},
        {{L"2.0.0.0"}, L"2.0.0.0", {L"2.0.0.0"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Utf8(row.before.front() + L" with active " + row.active));
        ASSERT_TRUE(RemoveTree(packageRoot));
        Install(row.before);
        EXPECT_TRUE(Prune(row.active)) << Utf8(error);
        EXPECT_EQ(Left(), row.left);
        for (const std::wstring& version : row.left)
            EXPECT_EQ(ReadWholeFile(packageRoot + L"\\" + version + L"\\sub\\file"), "content of " + Utf8(version));
    }
}

TEST_F(Pruning, NamesThatAreNoVersion_Stay) {
    const std::vector<std::wstring> others = {L"1.2.3",
                                              L"1.2.3.99999",
                                              L"1.2.3.65536",
                                              L"1.2.3.4.5",
                                              L"1.2.3.",
                                              L"1..2.3",
                                              L".1.2.3",
                                              L"1.2.3.4x",
                                              L"v1.2.3.4",
                                              L"1.2.3.-4",
                                              L"1.2.3.+4",
                                              L" 1.2.3.4",
                                              L"1.2.3.4 b",
                                              L"1,2,3,4",
                                              L"1.2.3.４",
                                              L"1.2.3.0x4",
                                              L"data",
                                              L".staging-1.0.0.0-1-2",
                                              L".repair-backup-1.0.0.0-1-2",
                                              L"65536.0.0.0"};
    Install(others);
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"});
    EXPECT_TRUE(Prune(L"3.0.0.0"));
    std::set<std::wstring> left(others.begin(), others.end());
    left.insert({L"2.0.0.0", L"3.0.0.0"});
    EXPECT_EQ(Left(), left);
}

/// The active version is known by its name, whatever its case; numbers that are equal do not make it so.
TEST_F(Pruning, ActiveVersion_IsKnownByItsName) {
    Install({L"2.0.0.0", L"02.0.0.0", L"1.0.0.0"});
    EXPECT_TRUE(Prune(L"2.0.0.0"));
    EXPECT_EQ(Left(), (std::set<std::wstring>{L"2.0.0.0", L"02.0.0.0"}));
}

TEST_F(Pruning, FileNamedLikeAVersion_IsPassedOver) {
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"});
    WriteWholeFile(packageRoot + L"\\9.0.0.0", "no folder");
    WriteWholeFile(packageRoot + L"\\0.0.0.1", "no folder");
    EXPECT_TRUE(Prune(L"3.0.0.0"));
    EXPECT_EQ(Left(), (std::set<std::wstring>{L"0.0.0.1", L"2.0.0.0", L"3.0.0.0", L"9.0.0.0"}));
}

TEST_F(Pruning, LinkNamedLikeAVersion_IsPassedOver) {
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0", L"4.0.0.0"});
    {
        const ForcedAttributes forced(L"1.0.0.0", kLink);
        EXPECT_TRUE(Prune(L"4.0.0.0"));
    }
    EXPECT_EQ(Left(), (std::set<std::wstring>{L"1.0.0.0", L"3.0.0.0", L"4.0.0.0"}));
    {
        const ForcedAttributes forced(L"3.0.0.0", kLink);  // it does not count as the one to keep either
        EXPECT_TRUE(Prune(L"4.0.0.0"));
    }
    EXPECT_EQ(Left(), (std::set<std::wstring>{L"1.0.0.0", L"3.0.0.0", L"4.0.0.0"}));
}

/// What was a folder when it was listed may be a link when it is to go.
TEST_F(Pruning, VersionThatTurnsOutToBeALink_IsNamed) {
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"});
    using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;
    const OnGetAttributes attributes([](LPCWSTR path) {
        const DWORD plain = OnGetAttributes::Original(path);
        return std::wstring_view(path).ends_with(L"1.0.0.0") ? plain | kLink : plain;
    });
    EXPECT_FALSE(Prune(L"3.0.0.0"));
    EXPECT_EQ(Utf8(error), Utf8(kCannotRemove + L"1.0.0.0"));
}

TEST_F(Pruning, VersionThatHoldsALink_IsNamed_AndTheRestStays) {
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0", L"4.0.0.0"});
    WritePackageTree(packageRoot + L"\\2.0.0.0\\linked", {{L"of-others", "x"}});
    const ForcedAttributes forced(L"linked", kLink);
    EXPECT_FALSE(Prune(L"4.0.0.0"));
    EXPECT_EQ(Utf8(error), Utf8(kCannotRemove + L"2.0.0.0"));
    // The highest goes first, so the failure at 2.0.0.0 left 1.0.0.0 unreached.
    EXPECT_EQ(Left(), (std::set<std::wstring>{L"1.0.0.0", L"2.0.0.0", L"3.0.0.0", L"4.0.0.0"}));
    EXPECT_EQ(ReadWholeFile(packageRoot + L"\\2.0.0.0\\linked\\of-others"), "x");
}

TEST_F(Pruning, ReadOnlyFileInAnOldVersion_KeepsIt) {
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"});
    ASSERT_TRUE(SetFileAttributesW((packageRoot + L"\\1.0.0.0\\sub\\file").c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(Prune(L"3.0.0.0"));
    EXPECT_EQ(Utf8(error), Utf8(kCannotRemove + L"1.0.0.0"));
}

TEST_F(Pruning, OldVersionsGo_HighestFirst) {
    Install({L"1.0.0.0", L"1.0.0.2", L"1.0.0.10", L"1.0.0.20", L"2.0.0.0"});
    std::vector<std::wstring> removed;
    const MutationFaults faults;
    EXPECT_TRUE(Prune(L"2.0.0.0"));
    for (const auto& call : faults.Calls()) {
        if (call.function == "RemoveDirectoryW" && !call.path.ends_with(L"sub")) removed.push_back(call.path);
    }
    EXPECT_EQ(removed,
              (std::vector<std::wstring>{LongPath(packageRoot + L"\\1.0.0.10"), LongPath(packageRoot + L"\\1.0.0.2"),
                                         LongPath(packageRoot + L"\\1.0.0.0")}));
}

TEST_F(Pruning, PackageFolder_MissingIsFine_UnsafeIsRefused) {
    EXPECT_TRUE(Prune(L"1.0.0.0"));
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"});
    {
        const ForcedAttributes forced(L"packs\\core", kLink);
        EXPECT_FALSE(Prune(L"3.0.0.0"));
        EXPECT_EQ(Utf8(error), Utf8(kPackageRootUnsafe));
    }
    {
        const UnreadableAttributes unreadable(L"packs\\core", ERROR_ACCESS_DENIED);
        EXPECT_FALSE(Prune(L"3.0.0.0"));
        EXPECT_EQ(Utf8(error), Utf8(kPackageRootUnsafe));
    }
    EXPECT_EQ(Left().size(), 3u);
    ASSERT_TRUE(RemoveTree(packageRoot));
    WriteWholeFile(packageRoot, "a file");
    EXPECT_FALSE(Prune(L"3.0.0.0"));
    EXPECT_EQ(Utf8(error), Utf8(kPackageRootUnsafe));
    EXPECT_EQ(ReadWholeFile(packageRoot), "a file");
}

TEST_F(Pruning, EmptyList_IsTrueAndTouchesNothing) {
    Install({L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"});
    const MutationFaults faults;
    EXPECT_TRUE(PruneOldPackageVersions(root, {}, error));
    EXPECT_EQ(faults.Count(), 0u);
}

/// Packages are gone through in the order of the list, past missing ones, to the first failure.
TEST_F(Pruning, PackagesAreTakenInOrder_UntilOneFails) {
    std::vector<PackageDescriptor> packages;
    for (const wchar_t* id : {L"zeta", L"absent", L"core", L"alpha"}) {
        packages.push_back(Named(id, L"3.0.0.0", L"", true));
        if (packages.back().id == L"absent") continue;
        for (const wchar_t* version : {L"1.0.0.0", L"2.0.0.0", L"3.0.0.0"})
            WritePackageTree(PackageRoot(root, packages.back()) + L"\\" + version, {{L"file", "x"}});
    }
    {
        const ForcedAttributes forced(L"packs\\core", kLink);
        EXPECT_FALSE(PruneOldPackageVersions(root, packages, error));
        EXPECT_EQ(Utf8(error), Utf8(kPackageRootUnsafe));
    }
    EXPECT_EQ(Names(root + L"\\packs\\zeta"), (std::set<std::wstring>{L"2.0.0.0", L"3.0.0.0"}));
    EXPECT_EQ(Names(root + L"\\packs\\core").size(), 3u);
    EXPECT_EQ(Names(root + L"\\packs\\alpha").size(), 3u);
    EXPECT_TRUE(PruneOldPackageVersions(root, packages, error));
    EXPECT_EQ(Names(root + L"\\packs\\alpha"), (std::set<std::wstring>{L"2.0.0.0", L"3.0.0.0"}));
    EXPECT_FALSE(Exists(root + L"\\packs\\absent"));
}

}  // namespace
}  // namespace launcher_update
