#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/packages/install.h"
#include "update/packages/patch.h"

namespace launcher_update {
namespace {

using test_support::AddPatch;
using test_support::ArchiveBuilder;
using test_support::BuildArchive;
using test_support::DescribePackage;
using test_support::ForcedAttributes;
using test_support::LongPath;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::ReadPackageTree;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using OnCopyFile = StandIn<"CopyFileW", decltype(CopyFileW)>;
using OnCreateFile = StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnGetAttributesEx = StandIn<"GetFileAttributesExW", decltype(GetFileAttributesExW)>;
using OnLibraryClose = StandIn<"fclose", decltype(std::fclose)>;
using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;

constexpr DWORD kLink = 0x400;
const std::wstring kCannotWrite = L"無法安全寫入資源包 payload：";

std::string Utf8(const std::wstring& text) {
    return platform::EncodeUtf8(text);
}

/// Version 1.0.0.0 on disk as the base; 2.0.0.0 changes one file, adds one and drops one.
class Patch : public testing::Test {
  protected:
    Patch() {
        WritePackageTree(base, baseContent);
        AddPatch(package, L"1.0.0.0", {L"changed.bin", L"sub/added.bin"});
        WriteWholeFile(archive, BuildArchive(carried));
    }

    bool Run() {
        installed = L"left over";
        error.clear();
        return InstallPackagePatchInactive(archive, base, package, root, installed, error);
    }
    void ExpectRefused(const std::wstring& message) {
        EXPECT_FALSE(Run());
        EXPECT_EQ(Utf8(error), Utf8(message));
        EXPECT_EQ(installed, L"");
    }
    bool BaseMatches(const FileProgress& progress = {}) const {
        return PackagePatchBaseMatches(base, package, progress);
    }
    void PutInBase(const std::wstring& path, const std::string& bytes) { WritePackageTree(base, {{path, bytes}}); }
    std::set<std::wstring> Names() const {
        std::vector<DirectoryEntry> entries;
        EXPECT_TRUE(ListDirectory(packageRoot, entries));
        std::set<std::wstring> names;
        for (const DirectoryEntry& entry : entries)
            names.insert(entry.name);
        return names;
    }

    TemporaryDirectory folder;
    std::wstring root = folder / L"Runtime";
    std::wstring packageRoot = root + L"\\packs\\core";
    std::wstring base = packageRoot + L"\\1.0.0.0";
    std::wstring target = packageRoot + L"\\2.0.0.0";
    std::wstring archive = folder / L"patch.vprpack";
    PackageContent baseContent = {
        {L"changed.bin", "old"}, {L"dropped.bin", "gone"}, {L"same.bin", "same"}, {L"sub/資料.bin", "kept"}};
    PackageContent carried = {{L"changed.bin", "new"}, {L"sub/added.bin", "added"}};
    PackageContent content = {
        {L"changed.bin", "new"}, {L"same.bin", "same"}, {L"sub/added.bin", "added"}, {L"sub/資料.bin", "kept"}};
    PackageDescriptor package = DescribePackage(L"core", L"2.0.0.0", content);
    std::wstring installed;
    std::wstring error;
};

// --- PackagePatchBaseMatches

TEST_F(Patch, BaseWithEveryUnchangedFile_Matches) {
    const MutationFaults faults;
    EXPECT_TRUE(BaseMatches());
    EXPECT_EQ(faults.Count(), 0u);
}

TEST_F(Patch, PackageWithoutAPatch_MatchesNoBase) {
    package.patch.files.clear();
    WritePackageTree(base, content);
    EXPECT_FALSE(BaseMatches());
}

/// What the patch replaces is not looked at in the base, nor is what else lies there.
TEST_F(Patch, FilesThatThePatchCarries_MayBeMissingOrDamaged) {
    ASSERT_TRUE(DeleteFileW((base + L"\\changed.bin").c_str()));
    PutInBase(L"sub/added.bin", "something else");
    PutInBase(L"unlisted", "x");
    std::set<std::wstring> asked;
    const ForcedAttributes forced(L"added.bin", kLink);
    EXPECT_TRUE(BaseMatches([&](const PackageFileDescriptor& file, std::uint64_t) { asked.insert(file.path); }));
    EXPECT_EQ(asked, (std::set<std::wstring>{L"same.bin", L"sub/資料.bin"}));
}

TEST_F(Patch, PatchThatCarriesEverything_NeedsNoBase) {
    package.patch.files = package.inventory;
    base = folder / L"missing";
    EXPECT_TRUE(BaseMatches());
}

TEST_F(Patch, UnchangedFileThatDiffers_MatchesNot) {
    for (const char* bytes : {"SAME", "sam", "same and more", ""}) {
        PutInBase(L"same.bin", bytes);
        EXPECT_FALSE(BaseMatches()) << bytes;
    }
    PutInBase(L"same.bin", "same");
    EXPECT_TRUE(BaseMatches());
    PutInBase(L"sub/資料.bin", "KEPT");
    EXPECT_FALSE(BaseMatches());
    ASSERT_TRUE(DeleteFileW((base + L"\\sub\\資料.bin").c_str()));
    EXPECT_FALSE(BaseMatches());
    ASSERT_TRUE(CreateDirectoryW((base + L"\\sub\\資料.bin").c_str(), nullptr));
    EXPECT_FALSE(BaseMatches());
}

TEST_F(Patch, BaseBehindALink_MatchesNot) {
    for (const wchar_t* suffix : {L"same.bin", L"core\\1.0.0.0", L"1.0.0.0\\sub", L"packs\\core", L"Runtime"}) {
        const ForcedAttributes forced(suffix, kLink);
        EXPECT_FALSE(BaseMatches()) << Utf8(suffix);
    }
    EXPECT_TRUE(BaseMatches());
}

TEST_F(Patch, MissingBase_MatchesNot) {
    base = folder / L"missing";
    EXPECT_FALSE(BaseMatches());
}

/// A path of the patch list is the same path only unit by unit.
TEST_F(Patch, PatchList_IsComparedExactly) {
    for (const wchar_t* other : {L"Same.bin", L"same.bi", L"same.bin2", L"ame.bin", L"sub/same.bin"}) {
        package.patch.files = {package.inventory[0], package.inventory[1], package.inventory[2]};
        package.patch.files[1].path = other;
        EXPECT_FALSE(PatchCarries(package, package.inventory[1])) << Utf8(other);
        PutInBase(L"same.bin", "SAME");
        EXPECT_FALSE(BaseMatches()) << Utf8(other);
    }
    package.patch.files[1].path = L"same.bin";
    EXPECT_TRUE(PatchCarries(package, package.inventory[1]));
    EXPECT_TRUE(BaseMatches());
}

TEST_F(Patch, DigestOfTheInventory_MayBeInUpperCase) {
    for (PackageFileDescriptor& file : package.inventory) {
        for (wchar_t& digit : file.sha256)
            digit = static_cast<wchar_t>(digit >= L'a' ? digit - L'a' + L'A' : digit);
    }
    EXPECT_TRUE(BaseMatches());
}

TEST_F(Patch, Progress_ComesInTheOrderOfTheInventory_AndEndsAtTheFirstDifference) {
    using Steps = std::vector<std::pair<std::wstring, std::uint64_t>>;
    Steps steps;
    const FileProgress progress = [&](const PackageFileDescriptor& file, std::uint64_t bytes) {
        steps.emplace_back(file.path, bytes);
    };
    EXPECT_TRUE(BaseMatches(progress));
    EXPECT_EQ(steps, (Steps{{L"same.bin", 0}, {L"same.bin", 4}, {L"sub/資料.bin", 0}, {L"sub/資料.bin", 4}}));
    steps.clear();
    PutInBase(L"same.bin", "SAME");
    EXPECT_FALSE(BaseMatches(progress));
    EXPECT_EQ(steps, (Steps{{L"same.bin", 0}, {L"same.bin", 4}}));
}

TEST_F(Patch, WrongSizeInTheBase_CostsNoReading) {
    PutInBase(L"same.bin", "longer");
    std::size_t opened = 0;
    bool progressed = false;
    const OnCreateFile open([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                DWORD disposition, DWORD flags, HANDLE other) {
        ++opened;
        return OnCreateFile::Original(path, access, share, security, disposition, flags, other);
    });
    EXPECT_FALSE(BaseMatches([&](const PackageFileDescriptor&, std::uint64_t) { progressed = true; }));
    EXPECT_FALSE(progressed);
    EXPECT_EQ(opened, 0u);
}

/// Links are looked for before the file is even asked for its size.
TEST_F(Patch, LinkInTheBase_CostsNoAsking) {
    std::size_t asked = 0;
    const OnGetAttributesEx sizes([&](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID facts) {
        ++asked;
        return OnGetAttributesEx::Original(path, level, facts);
    });
    const ForcedAttributes forced(L"same.bin", kLink);
    EXPECT_FALSE(BaseMatches());
    EXPECT_EQ(asked, 0u);
}

// --- InstallPackagePatchInactive

TEST_F(Patch, Installation_OverlaysTheBase) {
    std::set<std::wstring> copied;
    {
        const OnCopyFile copy([&](LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
            copied.insert(from);
            return OnCopyFile::Original(from, to, failIfExists);
        });
        EXPECT_TRUE(Run()) << Utf8(error);
    }
    EXPECT_EQ(copied, (std::set<std::wstring>{LongPath(base + L"\\same.bin"), LongPath(base + L"\\sub\\資料.bin")}));
    EXPECT_EQ(installed, target);
    EXPECT_EQ(ReadPackageTree(target), content);
    EXPECT_EQ(ReadPackageTree(base), baseContent);
    EXPECT_EQ(Names(), (std::set<std::wstring>{L"1.0.0.0", L"2.0.0.0"}));
}

/// The transaction is the same as for a whole package: residue, a damaged version, renames by flag 8.
TEST_F(Patch, Installation_RepairsAndCleansAsAWholePackageDoes) {
    WritePackageTree(target, {{L"same.bin", "damaged"}});
    WritePackageTree(packageRoot + L"\\.staging-2.0.0.0-1-2", {{L"a", "x"}});
    WritePackageTree(packageRoot + L"\\.repair-backup-2.0.0.0-1-2", {{L"a", "x"}});
    WritePackageTree(packageRoot + L"\\.staging-1.0.0.0-1-2", {{L"a", "x"}});
    std::vector<DWORD> flags;
    {
        const OnMoveFile move([&](LPCWSTR from, LPCWSTR to, DWORD flag) {
            flags.push_back(flag);
            return OnMoveFile::Original(from, to, flag);
        });
        EXPECT_TRUE(Run()) << Utf8(error);
    }
    EXPECT_EQ(flags, (std::vector<DWORD>{9, 9, 8, 8}));
    EXPECT_EQ(ReadPackageTree(target), content);
    EXPECT_EQ(Names(), (std::set<std::wstring>{L".staging-1.0.0.0-1-2", L"1.0.0.0", L"2.0.0.0"}));
}

TEST_F(Patch, ValidVersion_WritesNothing_ButTheArchiveIsVerifiedFirst) {
    ASSERT_TRUE(Run());
    {
        const MutationFaults faults;
        EXPECT_TRUE(Run());
        for (const auto& call : faults.Calls())
            EXPECT_TRUE(call.function == "fclose" || call.function == "fflush") << call.function;
    }
    EXPECT_EQ(installed, target);
    ASSERT_TRUE(DeleteFileW(archive.c_str()));
    ExpectRefused(L"無法開啟已下載的資源包。");
}

/// The archive is judged by the patch list, not by the inventory.
TEST_F(Patch, Archive_HoldsTheFilesOfThePatchAndNothingElse) {
    struct Row {
        PackageContent archived;
        const wchar_t* message;
    };
    PackageContent more = carried;
    more[L"same.bin"] = "same";  // stands in the inventory
    PackageContent other = carried;
    other[L"changed.bin"] = "NEW";
    for (const Row& row : {
             Row{content, L"資源包內容與 inventory 數量不符。"},
             Row{more, L"資源包 ZIP 項目的解壓大小與 inventory 不符。"},
             Row{{{L"changed.bin", "new"}}, L"資源包內容與 inventory 數量不符。"},
             Row{other, L"資源包 payload 驗證失敗：changed.bin"},
         }) {
        WriteWholeFile(archive, BuildArchive(row.archived));
        ExpectRefused(row.message);
        EXPECT_EQ(Names(), (std::set<std::wstring>{L"1.0.0.0"}));
    }
    WriteWholeFile(archive, ArchiveBuilder().AddPayload(carried).Add("runtime-manifest.json", "{}").Finish());
    EXPECT_TRUE(Run()) << Utf8(error);
}

TEST_F(Patch, PackageWithoutAPatch_CannotBePatched) {
    package.patch.files.clear();
    ExpectRefused(L"資源包 inventory 數量不正確。");
}

TEST_F(Patch, ArchiveThatIsGoneAfterItsVerification_CannotBeReopened) {
    {
        const OnLibraryClose close([&](std::FILE* stream) {
            const int ended = OnLibraryClose::Original(stream);
            DeleteFileW(archive.c_str());
            return ended;
        });
        ExpectRefused(L"無法重新開啟資源包進行安裝。");
    }
    EXPECT_EQ(Names(), (std::set<std::wstring>{L"1.0.0.0"}));
}

TEST_F(Patch, ArchiveThatChangesAfterItsVerification_IsNotTrusted) {
    PackageContent other = carried;
    other[L"sub/added.bin"] = "ADDED";
    const std::string changed = BuildArchive(other);
    bool replaced = false;
    {
        const OnLibraryClose close([&](std::FILE* stream) {
            const int ended = OnLibraryClose::Original(stream);
            if (!replaced) WriteWholeFile(archive, changed);
            replaced = true;
            return ended;
        });
        ExpectRefused(kCannotWrite + L"sub/added.bin");
    }
    EXPECT_EQ(Names(), (std::set<std::wstring>{L"1.0.0.0"}));
}

/// What the archive carries is judged by the inventory: a patch list that says otherwise changes nothing.
TEST_F(Patch, InventoryHasTheLastWord_OverThePatchList) {
    const PackageContent other = {{L"changed.bin", "NEW"}, {L"sub/added.bin", "added"}};
    WriteWholeFile(archive, BuildArchive(other));
    package.patch.files[0].sha256 = test_support::DescribeFile(L"changed.bin", "NEW").sha256;
    ExpectRefused(kCannotWrite + L"changed.bin");
}

TEST_F(Patch, BaseThatChangedSinceItMatched_IsCaughtInTheStagedFolder) {
    EXPECT_TRUE(BaseMatches());
    PutInBase(L"same.bin", "SAME");
    ExpectRefused(L"資源包落地內容驗證失敗：same.bin");
    PutInBase(L"same.bin", "longer");
    ExpectRefused(L"資源包落地檔案大小驗證失敗：same.bin");
    ASSERT_TRUE(DeleteFileW((base + L"\\same.bin").c_str()));
    ExpectRefused(kCannotWrite + L"same.bin");
    EXPECT_EQ(Names(), (std::set<std::wstring>{L"1.0.0.0"}));
}

TEST_F(Patch, BaseBehindALink_IsRefusedFileByFile) {
    const ForcedAttributes forced(L"1.0.0.0\\sub", kLink);
    ExpectRefused(kCannotWrite + L"sub/資料.bin");
}

/// Files that the patch carries are taken from the archive even where the base has them.
TEST_F(Patch, BaseMayLackWhatThePatchCarries) {
    ASSERT_TRUE(DeleteFileW((base + L"\\changed.bin").c_str()));
    PutInBase(L"sub/added.bin", "of the base");
    EXPECT_TRUE(Run()) << Utf8(error);
    EXPECT_EQ(ReadPackageTree(target), content);
}

TEST_F(Patch, ArchiveIsClosedAfterwards) {
    std::size_t closed = 0;
    const OnLibraryClose close([&](std::FILE* stream) {
        ++closed;
        return OnLibraryClose::Original(stream);
    });
    EXPECT_TRUE(Run());
    EXPECT_EQ(closed, 2u + carried.size());  // the archive twice, every file that it carries once
}

TEST_F(Patch, PathsBeyond260Units_AreCopiedAndExtracted) {
    const std::wstring part(100, L'n');
    const std::wstring deep = part + L"/" + part + L"/" + part + L"/";
    content = {{deep + L"new", "of the patch"}, {deep + L"old", "of the base"}};
    package = DescribePackage(L"core", L"2.0.0.0", content);
    AddPatch(package, L"1.0.0.0", {deep + L"new"});
    WriteWholeFile(archive, BuildArchive({{deep + L"new", "of the patch"}}));
    WritePackageTree(LongPath(base), {{deep + L"old", "of the base"}});
    EXPECT_TRUE(BaseMatches());
    EXPECT_TRUE(Run()) << Utf8(error);
    EXPECT_EQ(ReadPackageTree(LongPath(target)), content);
}

}  // namespace
}  // namespace launcher_update
