#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cwchar>
#include <functional>
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
#include "update/packages/install.h"
#include "update/packages/package_files.h"
#include "update/packages/validation.h"

namespace launcher_update {
namespace {

using test_support::BuildArchive;
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

using OnFindFirst = StandIn<"FindFirstFileW", decltype(FindFirstFileW)>;
using OnFindNext = StandIn<"FindNextFileW", decltype(FindNextFileW)>;
using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;
using OnGetAttributesEx = StandIn<"GetFileAttributesExW", decltype(GetFileAttributesExW)>;
using OnLibraryClose = StandIn<"fclose", decltype(std::fclose)>;
using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;
using OnRemoveDirectory = StandIn<"RemoveDirectoryW", decltype(RemoveDirectoryW)>;
using OnTick = StandIn<"GetTickCount64", decltype(GetTickCount64)>;

constexpr DWORD kLink = 0x400;

constexpr wchar_t kRootUnsafe[] = L"Package root is not a safe directory.";
constexpr wchar_t kResidueStays[] = L"Could not remove interrupted package transaction residue.";
constexpr wchar_t kCannotRestore[] = L"Could not restore an interrupted package repair.";
constexpr wchar_t kBackupStays[] = L"Package repair succeeded but its backup could not be removed.";
constexpr wchar_t kTargetUnsafe[] = L"既有資源包版本路徑不安全，拒絕自動修復。";
constexpr wchar_t kCannotCreateStaging[] = L"無法建立資源包版本暫存資料夾。";
constexpr wchar_t kCannotIsolate[] = L"無法隔離損壞的資源包版本資料夾。";
constexpr wchar_t kCannotCommit[] = L"無法提交資源包版本資料夾。";
constexpr wchar_t kCannotReopen[] = L"無法重新開啟資源包進行安裝。";
constexpr wchar_t kFilesDiffer[] = L"資源包版本資料夾與 inventory 不符。";
const std::wstring kUnsafeResidue = L"Unsafe interrupted package transaction residue: ";
const std::wstring kCannotWrite = L"無法安全寫入資源包 payload：";
const std::wstring kSizeDiffers = L"資源包落地檔案大小驗證失敗：";
const std::wstring kContentDiffers = L"資源包落地內容驗證失敗：";

std::string Utf8(const std::wstring& text) {
    return platform::EncodeUtf8(text);
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(LongPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

using Names = std::set<std::wstring>;

Names NamesIn(const std::wstring& folder) {
    std::vector<DirectoryEntry> entries;
    EXPECT_TRUE(ListDirectory(folder, entries));
    Names names;
    for (const DirectoryEntry& entry : entries)
        names.insert(entry.name);
    return names;
}

struct Move {
    std::wstring from;
    std::wstring to;
    DWORD flags;

    friend bool operator==(const Move&, const Move&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Move& move) {
        return stream << Utf8(move.from) << " > " << Utf8(move.to) << " by " << move.flags;
    }
};

/// The moves of folders while the object lives: those of single files go from a `.new`.
class FolderMoves {
  public:
    [[nodiscard]] const std::vector<Move>& Seen() const { return seen_; }

  private:
    std::vector<Move> seen_;
    OnMoveFile move_{[this](LPCWSTR from, LPCWSTR to, DWORD flags) {
        if (!std::wstring_view(from).ends_with(L".new")) seen_.push_back({from, to, flags});
        return OnMoveFile::Original(from, to, flags);
    }};
};

/// Refuses the folder moves with these numbers, from 1.
class RefusedFolderMoves {
  public:
    explicit RefusedFolderMoves(std::set<int> numbers) : numbers_(std::move(numbers)) {}
    [[nodiscard]] int Count() const { return count_; }

  private:
    std::set<int> numbers_;
    int count_ = 0;
    OnMoveFile move_{[this](LPCWSTR from, LPCWSTR to, DWORD flags) {
        const bool ofFile = std::wstring_view(from).ends_with(L".new");
        if (ofFile || !numbers_.contains(++count_)) return OnMoveFile::Original(from, to, flags);
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }};
};

/// Refuses to remove folders whose path contains a text.
class KeptFolders {
  public:
    explicit KeptFolders(std::wstring part) : part_(std::move(part)) {}

  private:
    std::wstring part_;
    OnRemoveDirectory remove_{[this](LPCWSTR path) {
        const bool kept = std::wstring_view(path).find(part_) != std::wstring_view::npos;
        return kept ? FALSE : OnRemoveDirectory::Original(path);
    }};
};

/// A package root in which other things stand as well, and every source from which version 1.0.0.0 can come.
class Install : public testing::Test {
  protected:
    Install() {
        WritePackageTree(source, content);
        WriteWholeFile(archive, BuildArchive(content));
    }

    std::wstring In(const std::wstring& name) const { return packageRoot + L"\\" + name; }
    /// Makes a folder in the package root; without files it is an empty one.
    void Put(const std::wstring& name, const PackageContent& files) { WritePackageTree(In(name), files); }
    /// What a folder that is not there holds differs from everything.
    PackageContent Get(const std::wstring& name) const {
        return Exists(In(name)) ? ReadPackageTree(In(name)) : PackageContent{{L"(no folder)", ""}};
    }

    bool RunLocal() {
        installed = L"left over";
        error.clear();
        return InstallPackageFromLocalFiles(source, package, root, installed, error);
    }
    bool RunArchive() {
        installed = L"left over";
        error.clear();
        return InstallPackageInactive(archive, package, root, installed, error);
    }
    /// With a writer of the test's own. `asked` collects what it was asked for.
    bool RunWriter(const PackageFileWriter& writer) {
        installed = L"left over";
        error.clear();
        asked.clear();
        return InstallVersionFolder(package, root, installed, error,
                                    [&](const PackageFileDescriptor& file, const std::wstring& destination) {
                                        asked.push_back(destination);
                                        return writer(file, destination);
                                    });
    }
    PackageFileWriter Copying() {
        return [this](const PackageFileDescriptor& file, const std::wstring& destination) {
            return CopySourceFile(source, file, destination);
        };
    }
    void ExpectInstalled() const {
        EXPECT_EQ(Utf8(installed), Utf8(target));
        EXPECT_EQ(Get(L"1.0.0.0"), content);
    }
    void ExpectMessage(const std::wstring& message) const { EXPECT_EQ(Utf8(error), Utf8(message)); }
    void ExpectRefused(bool result, const std::wstring& message) const {
        EXPECT_FALSE(result);
        ExpectMessage(message);
        EXPECT_EQ(installed, L"");
    }

    TemporaryDirectory folder;
    std::wstring root = folder / L"Runtime";
    std::wstring source = folder / L"source";
    std::wstring archive = folder / L"core.vprpack";
    PackageContent content = {{L"a.bin", "alpha"}, {L"empty", ""}, {L"sub/deep/音 é.bin", std::string(100000, 'p')}};
    PackageContent damaged = {{L"a.bin", "ALPHA"}, {L"sub/other", "x"}};
    PackageDescriptor package = DescribePackage(L"core", L"1.0.0.0", content);
    std::wstring packageRoot = root + L"\\packs\\core";
    std::wstring target = packageRoot + L"\\1.0.0.0";
    std::wstring installed;
    std::wstring error;
    std::vector<std::wstring> asked;
};

// --- What is found on entry, and what is done

TEST_F(Install, NothingThere_IsInstalledFresh) {
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
    EXPECT_EQ(NamesIn(root), (Names{L"packs"}));  // nothing is made active
}

TEST_F(Install, FromAnArchive_IsInstalledFresh) {
    EXPECT_TRUE(RunArchive()) << Utf8(error);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
    EXPECT_EQ(NamesIn(root), (Names{L"packs"}));
}

TEST_F(Install, ValidVersion_IsNotInstalledTwice) {
    ASSERT_TRUE(RunArchive());
    for (const bool fromArchive : {true, false}) {
        const MutationFaults faults;
        EXPECT_TRUE(fromArchive ? RunArchive() : RunLocal());
        for (const RecordedCall& call : faults.Calls())
            EXPECT_TRUE(call.function == "fclose" || call.function == "fflush") << call.function;
    }
    ExpectInstalled();
    const MutationFaults faults;
    EXPECT_TRUE(RunWriter([](auto&&...) { return false; }));
    EXPECT_TRUE(asked.empty());
    EXPECT_EQ(faults.Count(), 0u);
    ExpectInstalled();
}

TEST_F(Install, ValidVersion_ResidueGoesAllTheSame) {
    Put(L"1.0.0.0", content);
    Put(L".staging-1.0.0.0-1-2", damaged);
    Put(L".repair-backup-1.0.0.0-1-2", damaged);
    Put(L".repair-backup-1.0.0.0-3-4", content);
    FolderMoves moves;
    EXPECT_TRUE(RunWriter(Copying()));
    EXPECT_TRUE(asked.empty());
    EXPECT_TRUE(moves.Seen().empty());
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, DamagedVersion_IsReplaced) {
    Put(L"1.0.0.0", damaged);
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, EmptyVersionFolder_IsReplaced) {
    Put(L"1.0.0.0", {});
    EXPECT_TRUE(RunArchive()) << Utf8(error);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, FileAtTheVersionsPlace_IsRefused) {
    ASSERT_TRUE(EnsureDirectory(packageRoot));
    WriteWholeFile(target, "a file");
    ExpectRefused(RunWriter(Copying()), kTargetUnsafe);
    EXPECT_TRUE(asked.empty());
    EXPECT_EQ(ReadWholeFile(target), "a file");
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

/// Even a link to a folder that is as it should be.
TEST_F(Install, LinkAtTheVersionsPlace_IsRefused) {
    Put(L"1.0.0.0", content);
    const ForcedAttributes forced(L"1.0.0.0", kLink);
    const MutationFaults faults;
    ExpectRefused(RunWriter(Copying()), kTargetUnsafe);
    EXPECT_EQ(faults.Count(), 0u);
    EXPECT_EQ(Get(L"1.0.0.0"), content);
}

TEST_F(Install, VersionsPlaceThatCannotBeLookedAt_IsNotTakenForAbsent) {
    Put(L"1.0.0.0", damaged);
    const UnreadableAttributes unreadable(L"1.0.0.0", ERROR_ACCESS_DENIED);
    const MutationFaults faults;
    ExpectRefused(RunWriter(Copying()), kTargetUnsafe);
    EXPECT_EQ(faults.Count(), 0u);
}

TEST_F(Install, StagingResidue_GoesBeforeAFreshInstallation) {
    Put(L".staging-1.0.0.0-1-2", content);
    Put(L".STAGING-1.0.0.0-X", damaged);
    Put(L".staging-1.0.0.0-", {});
    bool residueWasThere = false;
    EXPECT_TRUE(RunWriter([&](const PackageFileDescriptor& file, const std::wstring& destination) {
        residueWasThere = residueWasThere || NamesIn(packageRoot).size() != 1;
        return CopySourceFile(source, file, destination);
    })) << Utf8(error);
    EXPECT_FALSE(residueWasThere);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, WhatIsNoResidueOfThisVersion_Stays) {
    const Names others = {L".staging-2.0.0.0-1-2",   L".repair-backup-2.0.0.0-1-2",
                          L".staging-1.0.0.01-1-2",  L".staging-1.0.0.0",
                          L".repair-backup-1.0.0.0", L".repair-backup-1.0.0.00-1",
                          L"staging-1.0.0.0-1-2",    L"x.staging-1.0.0.0-1-2",
                          L".repair-1.0.0.0-1-2",    L"2.0.0.0"};
    for (const std::wstring& name : others)
        Put(name, damaged);
    WriteWholeFile(In(L".staging-3.0.0.0-a-file"), "x");
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ExpectInstalled();
    Names all = others;
    all.insert({L"1.0.0.0", L".staging-3.0.0.0-a-file"});
    EXPECT_EQ(NamesIn(packageRoot), all);
    for (const std::wstring& name : others)
        EXPECT_EQ(Get(name), damaged);
}

TEST_F(Install, ValidBackup_IsRestoredByARename) {
    Put(L".repair-backup-1.0.0.0-1-2", content);
    Put(L".staging-1.0.0.0-1-2", content);
    FolderMoves moves;
    EXPECT_TRUE(RunWriter(Copying()));
    EXPECT_TRUE(asked.empty());
    ExpectInstalled();
    EXPECT_EQ(moves.Seen(), (std::vector<Move>{{LongPath(In(L".repair-backup-1.0.0.0-1-2")), LongPath(target), 8}}));
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, DamagedBackup_GivesWayToAFreshInstallation) {
    Put(L".repair-backup-1.0.0.0-1-2", damaged);
    Put(L".Repair-Backup-1.0.0.0-3-4", {});
    bool backupWasThere = false;
    EXPECT_TRUE(RunWriter([&](const PackageFileDescriptor& file, const std::wstring& destination) {
        backupWasThere = Exists(In(L".repair-backup-1.0.0.0-1-2"));
        return CopySourceFile(source, file, destination);
    })) << Utf8(error);
    EXPECT_TRUE(backupWasThere) << "backups go only after the commit";
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

/// A damaged version and a valid backup: the version is there, so the backup is residue and no source.
TEST_F(Install, DamagedVersionBesideAValidBackup_IsInstalledFromTheSource) {
    Put(L"1.0.0.0", damaged);
    Put(L".repair-backup-1.0.0.0-1-2", content);
    EXPECT_TRUE(RunWriter(Copying())) << Utf8(error);
    EXPECT_EQ(asked.size(), content.size());
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

/// The version's place is looked at again when no backup has served: what has come there meanwhile is moved aside.
TEST_F(Install, VersionThatAppearsWhileBackupsAreTried_IsReplaced) {
    Put(L"1.0.0.0", damaged);
    Put(L".repair-backup-1.0.0.0-1-2", damaged);
    bool looked = false;
    {
        const OnGetAttributes attributes([&](LPCWSTR path) {
            if (looked || !std::wstring_view(path).ends_with(L"\\1.0.0.0")) return OnGetAttributes::Original(path);
            looked = true;
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_FILE_ATTRIBUTES;
        });
        EXPECT_TRUE(RunLocal()) << Utf8(error);
    }
    EXPECT_TRUE(looked);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, FirstValidBackupOfTheListing_IsTaken) {
    Put(L".repair-backup-1.0.0.0-a", damaged);
    Put(L".repair-backup-1.0.0.0-b", content);
    Put(L".repair-backup-1.0.0.0-c", content);
    FolderMoves moves;
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ASSERT_EQ(moves.Seen().size(), 1u);
    EXPECT_EQ(moves.Seen()[0].from, LongPath(In(L".repair-backup-1.0.0.0-b")));
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

/// The listing's order counts and not the names': here the volume lists them the other way round.
TEST_F(Install, BackupsAreTriedInTheOrderOfTheListing) {
    Put(L".repair-backup-1.0.0.0-b", content);
    Put(L".repair-backup-1.0.0.0-c", content);
    FolderMoves moves;
    const OnFindNext next([](HANDLE find, LPWIN32_FIND_DATAW found) {
        const BOOL more = OnFindNext::Original(find, found);
        if (!more || !std::wstring_view(found->cFileName).starts_with(L".repair-backup")) return more;
        wchar_t& last = found->cFileName[std::wcslen(found->cFileName) - 1];
        last = last == L'b' ? L'c' : L'b';
        return more;
    });
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ASSERT_EQ(moves.Seen().size(), 1u);
    EXPECT_EQ(moves.Seen()[0].from, LongPath(In(L".repair-backup-1.0.0.0-c")));
}

// --- The residue scan

TEST_F(Install, UnsafeResidue_IsNamed_AndNothingIsTouched) {
    for (const wchar_t* name : {L".staging-1.0.0.0-x", L".STAGING-1.0.0.0-", L".repair-backup-1.0.0.0-z"}) {
        SCOPED_TRACE(Utf8(name));
        Put(L".staging-1.0.0.0-1-2", damaged);
        Put(L".repair-backup-1.0.0.0-1-2", content);
        WriteWholeFile(In(name), "a file");
        {
            const MutationFaults faults;
            ExpectRefused(RunWriter(Copying()), kUnsafeResidue + name);
            EXPECT_EQ(faults.Count(), 0u);
        }
        EXPECT_TRUE(asked.empty());
        ASSERT_TRUE(DeleteFileW(In(name).c_str()));
    }
}

TEST_F(Install, LinkAmongTheResidue_IsRefused_EvenBesideAValidVersion) {
    Put(L"1.0.0.0", content);
    Put(L".staging-1.0.0.0-1-2", damaged);
    Put(L".repair-backup-1.0.0.0-1-2", damaged);
    for (const wchar_t* name : {L".staging-1.0.0.0-1-2", L".repair-backup-1.0.0.0-1-2"}) {
        const ForcedAttributes forced(name, kLink);
        const MutationFaults faults;
        ExpectRefused(RunLocal(), kUnsafeResidue + name);
        EXPECT_EQ(faults.Count(), 0u);
    }
}

TEST_F(Install, UnsafePackageRoot_IsRefused) {
    ASSERT_TRUE(EnsureDirectory(packageRoot));
    {
        const ForcedAttributes forced(L"packs\\core", kLink);
        const MutationFaults faults;
        ExpectRefused(RunLocal(), kRootUnsafe);
        EXPECT_EQ(faults.Count(), 0u);
    }
    {
        const UnreadableAttributes unreadable(L"packs\\core", ERROR_ACCESS_DENIED);
        ExpectRefused(RunLocal(), kRootUnsafe);
    }
    ASSERT_TRUE(RemoveTree(packageRoot));
    WriteWholeFile(packageRoot, "a file");
    ExpectRefused(RunLocal(), kRootUnsafe);
    EXPECT_EQ(ReadWholeFile(packageRoot), "a file");
}

TEST_F(Install, PackageRootThatCannotBeListed_ShowsNoResidue) {
    WritePackageTree(packageRoot, {});
    const OnFindFirst find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
        if (!std::wstring_view(pattern).ends_with(L"\\core\\*")) return OnFindFirst::Original(pattern, found);
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    });
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    EXPECT_EQ(ReadPackageTree(target), content);
}

TEST_F(Install, ResidueThatStays_StopsBeforeTheVersionIsLookedAt) {
    Put(L"1.0.0.0", content);
    Put(L".staging-1.0.0.0-1-2", damaged);
    Put(L".staging-1.0.0.0-3-4", damaged);
    Put(L".repair-backup-1.0.0.0-1-2", content);
    const KeptFolders kept(L".staging-1.0.0.0-3-4");
    ExpectRefused(RunWriter(Copying()), kResidueStays);
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0", L".staging-1.0.0.0-3-4", L".repair-backup-1.0.0.0-1-2"}));
}

TEST_F(Install, BackupResidueThatStays_FailsAValidVersion) {
    Put(L"1.0.0.0", content);
    Put(L".repair-backup-1.0.0.0-1-2", damaged);
    const KeptFolders kept(L".repair-backup");
    ExpectRefused(RunLocal(), kResidueStays);
    EXPECT_EQ(Get(L"1.0.0.0"), content);
}

TEST_F(Install, BackupResidueThatStays_FailsARestoredVersion) {
    Put(L".repair-backup-1.0.0.0-1-2", content);
    Put(L".repair-backup-1.0.0.0-3-4", damaged);
    {
        const KeptFolders kept(L".repair-backup-1.0.0.0-3-4");
        ExpectRefused(RunWriter(Copying()), kResidueStays);
    }
    EXPECT_TRUE(asked.empty());
    EXPECT_EQ(Get(L"1.0.0.0"), content);
    EXPECT_TRUE(RunLocal());
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, BackupResidueThatStays_FailsAFreshInstallationThatStands) {
    Put(L".repair-backup-1.0.0.0-1-2", damaged);
    {
        const KeptFolders kept(L".repair-backup-1.0.0.0-1-2");
        EXPECT_FALSE(RunLocal());
        ExpectMessage(kResidueStays);
    }
    ExpectInstalled();  // the path included
    EXPECT_TRUE(RunLocal());
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, BackupThatCannotBeRestored_IsItsOwnMessage) {
    Put(L".repair-backup-1.0.0.0-1-2", content);
    Put(L".repair-backup-1.0.0.0-3-4", damaged);
    {
        RefusedFolderMoves refused({1});
        ExpectRefused(RunWriter(Copying()), kCannotRestore);
        EXPECT_EQ(refused.Count(), 1);
    }
    EXPECT_TRUE(asked.empty());
    EXPECT_EQ(NamesIn(packageRoot), (Names{L".repair-backup-1.0.0.0-1-2", L".repair-backup-1.0.0.0-3-4"}));
    EXPECT_TRUE(RunWriter(Copying()));
    EXPECT_TRUE(asked.empty());
    ExpectInstalled();
}

/// Attributes are not cleared: what somebody has protected is not removed.
TEST_F(Install, ReadOnlyFileInTheResidue_Stays) {
    struct Row {
        const wchar_t* residue;
        bool versionStands;
    };
    for (const Row& row : {Row{L".staging-1.0.0.0-1-2", false}, Row{L".repair-backup-1.0.0.0-1-2", true}}) {
        Put(row.residue, damaged);
        const std::wstring file = In(row.residue) + L"\\a.bin";
        ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
        EXPECT_FALSE(RunLocal());
        ExpectMessage(kResidueStays);
        EXPECT_EQ(ReadWholeFile(file), "ALPHA");
        EXPECT_EQ(Exists(target), row.versionStands);
        ASSERT_TRUE(RemoveTree(packageRoot));
    }
}

TEST_F(Install, ReadOnlyFileInADamagedVersion_KeepsItsBackup) {
    Put(L"1.0.0.0", damaged);
    ASSERT_TRUE(SetFileAttributesW((target + L"\\a.bin").c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(RunLocal());
    ExpectMessage(kBackupStays);
    ExpectInstalled();
}

// --- Staging

TEST_F(Install, WriterIsAskedInTheOrderOfTheInventory_BelowTheStagingFolder) {
    std::swap(package.inventory[0], package.inventory[2]);
    {
        ULONGLONG now = 1000;
        const OnTick tick([&] { return ++now; });
        EXPECT_TRUE(RunWriter(Copying())) << Utf8(error);
    }
    const std::wstring staging = In(L".staging-1.0.0.0-1001-" + std::to_wstring(GetCurrentProcessId()));
    EXPECT_EQ(asked, (std::vector<std::wstring>{staging + L"\\sub\\deep\\音 é.bin", staging + L"\\empty",
                                                staging + L"\\a.bin"}));
}

TEST_F(Install, FreshInstallation_IsOneRenameByFlag8) {
    FolderMoves moves;
    EXPECT_TRUE(RunWriter(Copying()));
    ASSERT_EQ(moves.Seen().size(), 1u);
    const std::wstring staging = LongPath(asked[0].substr(0, asked[0].size() - std::wstring(L"\\a.bin").size()));
    EXPECT_TRUE(staging.starts_with(LongPath(In(L".staging-1.0.0.0-")))) << Utf8(staging);
    EXPECT_EQ(moves.Seen()[0], (Move{staging, LongPath(target), 8}));
}

TEST_F(Install, Repair_IsTwoRenamesByFlag8_WithFreshTicks) {
    Put(L"1.0.0.0", damaged);
    const std::wstring pid = std::to_wstring(GetCurrentProcessId());
    FolderMoves moves;
    ULONGLONG now = 1000;
    const OnTick tick([&] { return ++now; });
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    const std::wstring backup = LongPath(In(L".repair-backup-1.0.0.0-1002-" + pid));
    const std::wstring staging = LongPath(In(L".staging-1.0.0.0-1001-" + pid));
    EXPECT_EQ(moves.Seen(), (std::vector<Move>{{LongPath(target), backup, 8}, {staging, LongPath(target), 8}}));
}

/// The damaged version stays in its place until the new one is whole and validated.
TEST_F(Install, Repair_TouchesTheVersionOnlyAtTheEnd) {
    Put(L"1.0.0.0", damaged);
    EXPECT_TRUE(RunWriter([&](const PackageFileDescriptor& file, const std::wstring& destination) {
        EXPECT_EQ(Get(L"1.0.0.0"), damaged);
        return CopySourceFile(source, file, destination);
    }));
    ExpectInstalled();
}

TEST_F(Install, StagingFolderThatCannotBeMade_IsItsOwnMessage) {
    {
        MutationFaults faults(FaultKind::fail, 1, ERROR_DISK_FULL);
        faults.CountOnly("CreateDirectoryW", L".staging-");
        ExpectRefused(RunWriter(Copying()), kCannotCreateStaging);
        EXPECT_TRUE(faults.Reached());
    }
    EXPECT_TRUE(asked.empty());
    ASSERT_TRUE(RemoveTree(root + L"\\packs"));
    WriteWholeFile(root + L"\\packs", "a file");
    ExpectRefused(RunLocal(), kCannotCreateStaging);
    ASSERT_TRUE(DeleteFileW((root + L"\\packs").c_str()));
    ASSERT_TRUE(EnsureDirectory(root + L"\\packs"));
    const ForcedAttributes forced(L"Runtime\\packs", kLink);
    ExpectRefused(RunLocal(), kCannotCreateStaging);
    EXPECT_FALSE(Exists(packageRoot));
}

TEST_F(Install, FailingWriter_LeavesNoStagingFolder_AndTheVersionAsItWas) {
    for (const bool targetExists : {false, true}) {
        if (targetExists) Put(L"1.0.0.0", damaged);
        ExpectRefused(RunWriter([&](const PackageFileDescriptor& file, const std::wstring& destination) {
                          return file.path != L"sub/deep/音 é.bin" && CopySourceFile(source, file, destination);
                      }),
                      kCannotWrite + L"sub/deep/音 é.bin");
        EXPECT_EQ(asked.size(), 3u);
        EXPECT_EQ(NamesIn(packageRoot), targetExists ? Names{L"1.0.0.0"} : Names{});
    }
    EXPECT_EQ(Get(L"1.0.0.0"), damaged);
}

TEST_F(Install, FailingWriter_IsNotAskedForTheRest) {
    ExpectRefused(RunWriter([](auto&&...) { return false; }), kCannotWrite + L"a.bin");
    EXPECT_EQ(asked.size(), 1u);
}

TEST_F(Install, FileThatLandsWithAnotherSizeOrNotAtAll_IsItsOwnMessage) {
    Put(L"1.0.0.0", damaged);
    for (const auto& landed : {std::string("alpha and more"), std::string("alph"), std::string()}) {
        ExpectRefused(RunWriter([&](const PackageFileDescriptor&, const std::wstring& destination) {
                          return WriteFileThroughNew(destination, landed.data(), landed.size());
                      }),
                      kSizeDiffers + L"a.bin");
        EXPECT_EQ(asked.size(), 1u);
    }
    ExpectRefused(RunWriter([](auto&&...) { return true; }), kSizeDiffers + L"a.bin");
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
    EXPECT_EQ(Get(L"1.0.0.0"), damaged);
}

TEST_F(Install, UpperHalfOfALandedSize_Counts) {
    const OnGetAttributesEx sizes([](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID facts) {
        const BOOL good = OnGetAttributesEx::Original(path, level, facts);
        if (std::wstring_view(path).ends_with(L"empty"))
            static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(facts)->nFileSizeHigh = 1;
        return good;
    });
    ExpectRefused(RunLocal(), kSizeDiffers + L"empty");
}

/// The validation of the staged folder has the last word, in its own words.
TEST_F(Install, StagedFolderThatDoesNotValidate_IsNotCommitted) {
    Put(L"1.0.0.0", damaged);
    FolderMoves moves;
    WritePackageTree(source, {{L"a.bin", "alphA"}});
    ExpectRefused(RunLocal(), kContentDiffers + L"a.bin");
    WritePackageTree(source, {{L"a.bin", "alpha"}});
    ExpectRefused(RunWriter([&](const PackageFileDescriptor& file, const std::wstring& destination) {
                      return CopySourceFile(source, file, destination) &&
                             (file.path != L"a.bin" || WriteFileThroughNew(destination + L".extra", "x", 1));
                  }),
                  kFilesDiffer);
    {
        const ForcedAttributes forced(L"deep", kLink);
        ExpectRefused(RunArchive(), L"無法安全列舉資源包版本資料夾。");
    }
    EXPECT_TRUE(moves.Seen().empty());
    // What was walked into as a link stays as residue, and goes with the next installation.
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

// --- The commit

TEST_F(Install, DamagedVersionThatCannotBeMovedAside_StaysAndIsItsOwnMessage) {
    Put(L"1.0.0.0", damaged);
    RefusedFolderMoves refused({1});
    ExpectRefused(RunLocal(), kCannotIsolate);
    EXPECT_EQ(refused.Count(), 1) << "nothing is committed beside a version that could not be moved";
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
    EXPECT_EQ(Get(L"1.0.0.0"), damaged);
}

TEST_F(Install, FreshVersionThatCannotBeCommitted_LeavesNothing) {
    Put(L".repair-backup-1.0.0.0-1-2", damaged);
    RefusedFolderMoves refused({1});
    ExpectRefused(RunLocal(), kCannotCommit);
    EXPECT_EQ(refused.Count(), 1) << "there is no backup of this run to move back";
    EXPECT_EQ(NamesIn(packageRoot), (Names{L".repair-backup-1.0.0.0-1-2"}));
}

TEST_F(Install, RepairThatCannotBeCommitted_MovesTheDamagedVersionBack) {
    Put(L"1.0.0.0", damaged);
    {
        RefusedFolderMoves refused({2});
        ExpectRefused(RunLocal(), kCannotCommit);
        EXPECT_EQ(refused.Count(), 3);
    }
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
    EXPECT_EQ(Get(L"1.0.0.0"), damaged);
}

TEST_F(Install, RepairThatCannotBeTakenBack_IsMadeWholeByTheNextInstallation) {
    Put(L"1.0.0.0", damaged);
    {
        RefusedFolderMoves refused({2, 3});
        ExpectRefused(RunLocal(), kCannotCommit);
        EXPECT_EQ(refused.Count(), 3);
    }
    const Names left = NamesIn(packageRoot);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_TRUE(left.begin()->starts_with(L".repair-backup-1.0.0.0-"));
    EXPECT_EQ(Get(*left.begin()), damaged);
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, MoveBack_IsByFlag8) {
    Put(L"1.0.0.0", damaged);
    std::vector<Move> moves;
    const OnMoveFile move([&](LPCWSTR from, LPCWSTR to, DWORD flags) {
        moves.push_back({from, to, flags});
        return moves.size() == 2 ? FALSE : OnMoveFile::Original(from, to, flags);
    });
    ExpectRefused(RunLocal(), kCannotCommit);
    ASSERT_EQ(moves.size(), 3u);
    EXPECT_EQ(moves[2], (Move{moves[0].to, moves[0].from, 8}));
    EXPECT_EQ(Get(L"1.0.0.0"), damaged);
}

TEST_F(Install, RepairWhoseBackupStays_IsToldThoughTheVersionStands) {
    Put(L"1.0.0.0", damaged);
    {
        const KeptFolders kept(L".repair-backup");
        EXPECT_FALSE(RunLocal());
        ExpectMessage(kBackupStays);
    }
    ExpectInstalled();  // the path included
    EXPECT_EQ(NamesIn(packageRoot).size(), 2u);
    EXPECT_TRUE(RunLocal());
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

/// The backup of the run goes first, then those that were found.
TEST_F(Install, RepairWhoseOldBackupsStay_IsToldThoughTheVersionStands) {
    Put(L"1.0.0.0", damaged);
    Put(L".repair-backup-1.0.0.0-found", damaged);
    {
        const KeptFolders kept(L".repair-backup-1.0.0.0-found");
        EXPECT_FALSE(RunLocal());
        ExpectMessage(kResidueStays);
    }
    ExpectInstalled();
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0", L".repair-backup-1.0.0.0-found"}));
}

TEST_F(Install, BackupOfTheRunThatStays_LeavesTheFoundOnesUntouched) {
    Put(L"1.0.0.0", damaged);
    Put(L".repair-backup-1.0.0.0-found", damaged);
    ULONGLONG now = 1000;
    const OnTick tick([&] { return ++now; });
    const KeptFolders kept(L".repair-backup-1.0.0.0-1002");
    EXPECT_FALSE(RunLocal());
    ExpectMessage(kBackupStays);
    EXPECT_EQ(Get(L".repair-backup-1.0.0.0-found"), damaged);
}

// --- Sources

TEST_F(Install, SourceBehindALink_IsRefusedFileByFile) {
    {
        const ForcedAttributes forced(L"source", kLink);
        ExpectRefused(RunLocal(), kCannotWrite + L"a.bin");
    }
    {
        const ForcedAttributes forced(L"source\\sub", kLink);
        ExpectRefused(RunLocal(), kCannotWrite + L"sub/deep/音 é.bin");
    }
    EXPECT_EQ(NamesIn(packageRoot), Names{});
}

TEST_F(Install, SourceWithoutAFile_IsRefused) {
    ASSERT_TRUE(DeleteFileW((source + L"\\empty").c_str()));
    ExpectRefused(RunLocal(), kCannotWrite + L"empty");
    EXPECT_EQ(NamesIn(packageRoot), Names{});
}

TEST_F(Install, FilesOfTheSourceBeyondTheInventory_AreNotTaken) {
    WritePackageTree(source, {{L"unlisted", "x"}});
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    ExpectInstalled();
}

TEST_F(Install, ArchiveThatDoesNotVerify_TouchesNothing) {
    Put(L".staging-1.0.0.0-1-2", damaged);
    PackageContent other = content;
    other[L"a.bin"] = "ALPHA";
    WriteWholeFile(archive, BuildArchive(other));
    ExpectRefused(RunArchive(), L"資源包 payload 驗證失敗：a.bin");
    ASSERT_TRUE(DeleteFileW(archive.c_str()));
    ExpectRefused(RunArchive(), L"無法開啟已下載的資源包。");
    package.inventory.clear();
    ExpectRefused(RunArchive(), L"資源包 inventory 數量不正確。");
    EXPECT_EQ(NamesIn(packageRoot), (Names{L".staging-1.0.0.0-1-2"}));
}

/// Verified first, even where nothing is to be done.
TEST_F(Install, ArchiveIsVerified_EvenForAValidVersion) {
    Put(L"1.0.0.0", content);
    ASSERT_TRUE(DeleteFileW(archive.c_str()));
    ExpectRefused(RunArchive(), L"無法開啟已下載的資源包。");
}

/// The archive's first closing is the end of its verification; what is done to it then is done between check and use.
TEST_F(Install, ArchiveThatIsGoneAfterItsVerification_CannotBeReopened) {
    {
        const OnLibraryClose close([&](std::FILE* stream) {
            const int ended = OnLibraryClose::Original(stream);
            DeleteFileW(archive.c_str());
            return ended;
        });
        ExpectRefused(RunArchive(), kCannotReopen);
    }
    EXPECT_FALSE(Exists(root));
}

TEST_F(Install, ArchiveThatChangesAfterItsVerification_IsNotTrusted) {
    struct Row {
        const char* name;
        PackageContent content;
        const wchar_t* refused;
    };
    PackageContent flipped = content;
    flipped[L"empty"] = "";
    flipped[L"a.bin"] = "alphA";
    PackageContent longer = content;
    longer[L"sub/deep/音 é.bin"] += "p";
    PackageContent shorter = content;
    shorter[L"sub/deep/音 é.bin"].pop_back();
    PackageContent filled = content;
    filled[L"empty"] = "not";
    PackageContent other = content;
    other.erase(L"a.bin");
    other[L"A.bin"] = "alpha";  // the entry is looked up by its exact bytes
    for (const Row& row : {Row{"flipped", flipped, L"a.bin"}, Row{"longer", longer, L"sub/deep/音 é.bin"},
                           Row{"shorter", shorter, L"sub/deep/音 é.bin"}, Row{"filled", filled, L"empty"},
                           Row{"other case", other, L"a.bin"}}) {
        SCOPED_TRACE(row.name);
        const std::string changed = BuildArchive(row.content);
        WriteWholeFile(archive, BuildArchive(content));
        bool replaced = false;
        {
            const OnLibraryClose close([&](std::FILE* stream) {
                const int ended = OnLibraryClose::Original(stream);
                if (!replaced) WriteWholeFile(archive, changed);
                replaced = true;
                return ended;
            });
            ExpectRefused(RunArchive(), kCannotWrite + row.refused);
        }
        EXPECT_TRUE(replaced);
        EXPECT_EQ(NamesIn(packageRoot), Names{});
    }
}

TEST_F(Install, DigestInUpperCase_IsTheSameDigest) {
    for (PackageFileDescriptor& file : package.inventory) {
        for (wchar_t& digit : file.sha256)
            digit = static_cast<wchar_t>(digit >= L'a' ? digit - L'a' + L'A' : digit);
    }
    EXPECT_TRUE(RunArchive()) << Utf8(error);
    ExpectInstalled();
}

/// The archive is closed after the installation, after a failed one too: where it stays open it cannot be deleted.
TEST_F(Install, ArchiveIsClosedAfterwards) {
    std::size_t closed = 0;
    for (const bool fails : {false, true}) {
        if (fails) {
            ASSERT_TRUE(RemoveTree(packageRoot));
            WriteWholeFile(packageRoot, "a file");
        }
        closed = 0;
        const OnLibraryClose close([&](std::FILE* stream) {
            ++closed;
            return OnLibraryClose::Original(stream);
        });
        EXPECT_EQ(RunArchive(), !fails);
        EXPECT_EQ(closed, fails ? 2u : 2u + content.size());  // the archive twice, every file once
    }
}

/// Every file of an archive is written through its sibling, forced out and renamed by flags 9; copies are made new.
TEST_F(Install, FilesOfAnArchive_AreForcedOutBeforeTheirRename) {
    std::vector<std::string> steps;
    using OnFlush = StandIn<"FlushFileBuffers", decltype(FlushFileBuffers)>;
    const OnFlush flush([&](HANDLE file) {
        steps.emplace_back("force out");
        return OnFlush::Original(file);
    });
    const OnMoveFile move([&](LPCWSTR from, LPCWSTR to, DWORD flags) {
        const std::wstring name = from;
        const bool ofFile = name == std::wstring(to) + L".new";
        steps.push_back((ofFile ? "file " : "folder ") + std::to_string(flags));
        return OnMoveFile::Original(from, to, flags);
    });
    EXPECT_TRUE(RunArchive());
    EXPECT_EQ(steps, (std::vector<std::string>{"force out", "file 9", "force out", "file 9", "force out", "file 9",
                                               "folder 8"}));
}

TEST_F(Install, PathsBeyond260Units_AreInstalledRepairedAndRemoved) {
    const std::wstring part(100, L'n');
    const std::wstring path = part + L"/" + part + L"/" + part + L"/資料";
    content = {{path, "far below"}};
    package = DescribePackage(L"core", L"1.0.0.0", content);
    WriteWholeFile(archive, BuildArchive(content));
    WritePackageTree(LongPath(source), content);
    const auto installedTree = [&] { return ReadPackageTree(LongPath(target)); };
    EXPECT_TRUE(RunArchive()) << Utf8(error);
    EXPECT_EQ(installedTree(), content);
    WritePackageTree(LongPath(target), {{path, "far BELOW"}});
    EXPECT_TRUE(RunLocal()) << Utf8(error);
    EXPECT_EQ(installedTree(), content);
    EXPECT_EQ(NamesIn(packageRoot), (Names{L"1.0.0.0"}));
}

TEST_F(Install, InstalledPath_IsEmptiedFirst) {
    WritePackageTree(root + L"\\packs", {});
    WriteWholeFile(packageRoot, "a file");
    ExpectRefused(RunWriter(Copying()), kRootUnsafe);
    ASSERT_TRUE(DeleteFileW(archive.c_str()));
    EXPECT_FALSE(RunArchive());
    EXPECT_EQ(installed, L"");
}

}  // namespace
}  // namespace launcher_update
