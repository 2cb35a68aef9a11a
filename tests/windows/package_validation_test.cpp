#include <windows.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <functional>
#include <ostream>
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
#include "update/files/file_hashing.h"
#include "update/packages/runtime_state.h"
#include "update/packages/validation.h"

namespace launcher_update {
namespace {

using test_support::DescribeFile;
using test_support::DescribePackage;
using test_support::ForcedAttributes;
using test_support::LongPath;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using OnCreateFile = StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnFindFirst = StandIn<"FindFirstFileW", decltype(FindFirstFileW)>;
using OnFindNext = StandIn<"FindNextFileW", decltype(FindNextFileW)>;
using OnGetAttributesEx = StandIn<"GetFileAttributesExW", decltype(GetFileAttributesExW)>;
using OnReadFile = StandIn<"ReadFile", decltype(ReadFile)>;

constexpr DWORD kLink = 0x400;

constexpr wchar_t kFolderMissing[] = L"資源包版本資料夾不存在或不安全。";
constexpr wchar_t kCannotList[] = L"無法安全列舉資源包版本資料夾。";
constexpr wchar_t kFilesDiffer[] = L"資源包版本資料夾與 inventory 不符。";
const std::wstring kContentDiffers = L"資源包落地內容驗證失敗：";

/// One call of a progress callback.
struct Step {
    std::wstring file;
    std::uint64_t bytes;

    friend bool operator==(const Step&, const Step&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Step& step) {
        return stream << platform::EncodeUtf8(step.file) << ' ' << step.bytes;
    }
};
using Steps = std::vector<Step>;

FileProgress Into(Steps& steps) {
    return [&steps](const PackageFileDescriptor& file, std::uint64_t bytes) { steps.push_back({file.path, bytes}); };
}

void CopyName(WIN32_FIND_DATAW& found, const wchar_t* name) {
    std::wmemcpy(found.cFileName, name, std::wcslen(name) + 1);
}

/// One version folder that is as its descriptor says.
class Validation : public testing::Test {
  protected:
    Validation() { WritePackageTree(target, content); }

    bool Validate(const FileProgress& progress = {}) {
        error.clear();
        return ValidateInstalledPackage(target, package, error, progress);
    }
    void ExpectRefused(const std::wstring& message) {
        EXPECT_FALSE(Validate());
        EXPECT_EQ(platform::EncodeUtf8(error), platform::EncodeUtf8(message));
    }
    void Put(const std::wstring& path, const std::string& bytes) { WritePackageTree(target, {{path, bytes}}); }
    void Remove(const std::wstring& path) { EXPECT_TRUE(DeleteFileW((target + L"\\" + path).c_str())); }

    TemporaryDirectory folder;
    std::wstring target = folder / L"1.0.0.0";
    PackageContent content = {{L"a.bin", "alpha"}, {L"empty", ""}, {L"sub/b.bin", "beta"}, {L"sub/deep/音.bin", "pi"}};
    PackageDescriptor package = DescribePackage(L"core", L"1.0.0.0", content);
    std::wstring error;
};

TEST_F(Validation, FolderThatIsAsDescribed_Passes_AndNothingIsTouched) {
    const MutationFaults faults;
    EXPECT_TRUE(Validate());
    EXPECT_EQ(error, L"");
    EXPECT_EQ(faults.Count(), 0u);
}

TEST_F(Validation, FolderThatIsNoSafeFolder_IsRefusedFirst) {
    {
        const ForcedAttributes forced(L"1.0.0.0", kLink);
        ExpectRefused(kFolderMissing);
    }
    {
        const UnreadableAttributes unreadable(L"1.0.0.0", ERROR_ACCESS_DENIED);
        ExpectRefused(kFolderMissing);
    }
    target = folder / L"missing";
    ExpectRefused(kFolderMissing);
    WriteWholeFile(target, "a file");
    ExpectRefused(kFolderMissing);
}

TEST_F(Validation, LinkAnywhereInside_CannotBeListedSafely) {
    for (const wchar_t* name : {L"a.bin", L"sub", L"b.bin", L"deep", L"音.bin"}) {
        SCOPED_TRACE(platform::EncodeUtf8(name));
        const ForcedAttributes forced(name, kLink);
        ExpectRefused(kCannotList);
    }
    EXPECT_TRUE(Validate());
}

/// The enumeration comes before the comparison: a link is told even where files are missing.
TEST_F(Validation, LinkIsToldBeforeMissingFiles) {
    Remove(L"a.bin");
    const ForcedAttributes forced(L"sub", kLink);
    ExpectRefused(kCannotList);
}

TEST_F(Validation, FolderThatCannotBeListed_IsItsOwnMessage) {
    for (const wchar_t* unlisted : {L"1.0.0.0\\*", L"deep\\*"}) {
        const OnFindFirst find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
            if (!std::wstring_view(pattern).ends_with(unlisted)) return OnFindFirst::Original(pattern, found);
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        });
        ExpectRefused(kCannotList);
    }
}

TEST_F(Validation, OneFileMoreOrLess_DiffersFromTheInventory) {
    Put(L"sub/extra", "");
    ExpectRefused(kFilesDiffer);
    Remove(L"sub\\extra");
    EXPECT_TRUE(Validate());
    Remove(L"sub\\b.bin");
    ExpectRefused(kFilesDiffer);
    Put(L"b.bin", "beta");  // as many files as described, one in another place
    ExpectRefused(kFilesDiffer);
}

TEST_F(Validation, FileInPlaceOfAFolder_DiffersFromTheInventory) {
    Remove(L"a.bin");
    ASSERT_TRUE(CreateDirectoryW((target + L"\\a.bin").c_str(), nullptr));
    ExpectRefused(kFilesDiffer);
}

TEST_F(Validation, EmptyFolder_IsNoDifference) {
    ASSERT_TRUE(CreateDirectoryW((target + L"\\sub\\nothing").c_str(), nullptr));
    EXPECT_TRUE(Validate());
}

TEST_F(Validation, CaseOfNamesAndDigests_DoesNotMatter) {
    Remove(L"a.bin");
    Put(L"A.BIN", "alpha");
    package.inventory[2].path = L"Sub/B.bin";
    for (wchar_t& digit : package.inventory[0].sha256)
        digit = static_cast<wchar_t>(digit >= L'a' ? digit - L'a' + L'A' : digit);
    EXPECT_TRUE(Validate()) << platform::EncodeUtf8(error);
}

TEST_F(Validation, EmptyInventory_AllowsFoldersAndNoFiles) {
    package.inventory.clear();
    ExpectRefused(kFilesDiffer);
    target = folder / L"empty";
    WritePackageTree(target, {});
    EXPECT_TRUE(Validate());
    ASSERT_TRUE(CreateDirectoryW((target + L"\\sub").c_str(), nullptr));
    EXPECT_TRUE(Validate());
    Put(L"sub/file", "");
    ExpectRefused(kFilesDiffer);
}

TEST_F(Validation, WrongContentOrSize_NamesTheFile) {
    Put(L"sub/b.bin", "Beta");
    ExpectRefused(kContentDiffers + L"sub/b.bin");
    Put(L"sub/b.bin", "beta and more");
    ExpectRefused(kContentDiffers + L"sub/b.bin");
    Put(L"sub/b.bin", "");
    ExpectRefused(kContentDiffers + L"sub/b.bin");
}

TEST_F(Validation, NamesComeBeforeSizesAndContent) {
    Put(L"a.bin", "ALPHA");
    Put(L"sub/b.bin", "too long");
    Put(L"extra", "x");
    Steps steps;
    std::size_t sizesAsked = 0;
    const OnGetAttributesEx sizes([&](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID facts) {
        ++sizesAsked;
        return OnGetAttributesEx::Original(path, level, facts);
    });
    EXPECT_FALSE(Validate(Into(steps)));
    EXPECT_EQ(error, kFilesDiffer);
    EXPECT_EQ(steps, Steps{});
    EXPECT_EQ(sizesAsked, 0u);
}

TEST_F(Validation, FilesAreJudgedInTheOrderOfTheInventory) {
    std::swap(package.inventory[0], package.inventory[2]);
    Steps steps;
    EXPECT_TRUE(Validate(Into(steps)));
    EXPECT_EQ(steps, (Steps{{L"sub/b.bin", 0},
                            {L"sub/b.bin", 4},
                            {L"empty", 0},
                            {L"a.bin", 0},
                            {L"a.bin", 5},
                            {L"sub/deep/音.bin", 0},
                            {L"sub/deep/音.bin", 2}}));
    Put(L"a.bin", "ALPHA");
    Put(L"sub/b.bin", "BETA");
    ExpectRefused(kContentDiffers + L"sub/b.bin");
}

TEST_F(Validation, WrongSize_CostsNoReading_AndEndsTheWork) {
    Put(L"sub/b.bin", "too long");
    Steps steps;
    std::vector<std::wstring> opened;
    const OnCreateFile open([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                DWORD disposition, DWORD flags, HANDLE other) {
        opened.emplace_back(path);
        return OnCreateFile::Original(path, access, share, security, disposition, flags, other);
    });
    EXPECT_FALSE(Validate(Into(steps)));
    EXPECT_EQ(error, kContentDiffers + L"sub/b.bin");
    EXPECT_EQ(steps, (Steps{{L"a.bin", 0}, {L"a.bin", 5}, {L"empty", 0}}));
    EXPECT_EQ(opened, (std::vector<std::wstring>{LongPath(target + L"\\a.bin"), LongPath(target + L"\\empty")}));
}

/// The size has 64 bits: a file of 4 GiB and 5 bytes is not one of 5 bytes.
TEST_F(Validation, UpperHalfOfTheSize_Counts) {
    const OnGetAttributesEx sizes([&](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID facts) {
        const BOOL good = OnGetAttributesEx::Original(path, level, facts);
        static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(facts)->nFileSizeHigh = 1;
        return good;
    });
    Steps steps;
    EXPECT_FALSE(Validate(Into(steps)));
    EXPECT_EQ(error, kContentDiffers + L"a.bin");
    EXPECT_EQ(steps, Steps{});
    package.inventory[0].size += 1ull << 32;
    EXPECT_FALSE(Validate(Into(steps)));
    EXPECT_EQ(error, kContentDiffers + L"empty");  // a.bin was taken for as large as described, and read
}

TEST_F(Validation, FileThatCannotBeAskedOpenedOrRead_FailsAsContent) {
    {
        const OnGetAttributesEx sizes([](LPCWSTR, GET_FILEEX_INFO_LEVELS, LPVOID) { return FALSE; });
        ExpectRefused(kContentDiffers + L"a.bin");
    }
    {
        const OnCreateFile open([&](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
            SetLastError(ERROR_SHARING_VIOLATION);
            return INVALID_HANDLE_VALUE;
        });
        ExpectRefused(kContentDiffers + L"a.bin");
    }
    const OnReadFile read([](HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED) {
        SetLastError(ERROR_CRC);
        return FALSE;
    });
    ExpectRefused(kContentDiffers + L"a.bin");
}

TEST_F(Validation, PathsBeyond260Units_AreListedAndHashed) {
    const std::wstring part(100, L'n');
    const std::wstring path = part + L"/" + part + L"/" + part + L"/file";
    const PackageContent deep = {{path, "far below"}};
    target = folder / L"deep";
    WritePackageTree(target, deep);
    package = DescribePackage(L"core", L"1.0.0.0", deep);
    EXPECT_TRUE(Validate()) << platform::EncodeUtf8(error);
    Put(path, "far BELOW");
    ExpectRefused(kContentDiffers + path);
}

// --- ListPackageFiles

TEST_F(Validation, Listing_GivesLoweredPathsWithoutFolders) {
    Put(L"Sub/UPPER.Bin", "x");
    ASSERT_TRUE(CreateDirectoryW((target + L"\\nothing").c_str(), nullptr));
    std::set<std::wstring> files;
    EXPECT_TRUE(ListPackageFiles(target, target, files));
    EXPECT_EQ(files, (std::set<std::wstring>{L"a.bin", L"empty", L"sub/b.bin", L"sub/deep/音.bin", L"sub/upper.bin"}));
    files.clear();
    EXPECT_TRUE(ListPackageFiles(target, target + L"\\sub\\deep", files));
    EXPECT_EQ(files, (std::set<std::wstring>{L"sub/deep/音.bin"}));
}

TEST_F(Validation, Listing_WithoutAnyEntry_IsEmpty_AndAnyOtherErrorFails) {
    for (const DWORD code : {2u, 3u, 5u, 21u, 53u}) {
        const OnFindFirst find([&](LPCWSTR, LPWIN32_FIND_DATAW) {
            SetLastError(code);
            return INVALID_HANDLE_VALUE;
        });
        std::set<std::wstring> files;
        EXPECT_EQ(ListPackageFiles(target, target, files), code == 2) << code;
        EXPECT_TRUE(files.empty());
    }
}

TEST_F(Validation, Listing_ThatBreaksOff_IsAFailure) {
    const OnFindNext next([](HANDLE, LPWIN32_FIND_DATAW) {
        SetLastError(ERROR_NETNAME_DELETED);
        return FALSE;
    });
    std::set<std::wstring> files;
    EXPECT_FALSE(ListPackageFiles(target, target, files));
}

/// On a volume that keeps the case of names two may differ in nothing else.
TEST_F(Validation, Listing_NamesThatDifferOnlyInCase_Fail) {
    Put(L"b.bin", "x");
    const OnFindNext next([](HANDLE find, LPWIN32_FIND_DATAW found) {
        const BOOL more = OnFindNext::Original(find, found);
        if (more && std::wstring_view(found->cFileName) == L"b.bin") CopyName(*found, L"A.Bin");
        return more;
    });
    std::set<std::wstring> files;
    EXPECT_FALSE(ListPackageFiles(target, target, files));
}

// --- HashFileSha256

TEST(PackageHash, KnownDigests_InLowerCase) {
    struct Row {
        std::string bytes;
        const wchar_t* hex;
    };
    const Row rows[] = {
        {"", L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string(1000000, 'a'), L"cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    const TemporaryDirectory folder;
    for (const Row& row : rows) {
        WriteWholeFile(folder / L"file", row.bytes);
        std::wstring hex = L"left over";
        EXPECT_TRUE(HashFileSha256(folder / L"file", hex));
        EXPECT_EQ(hex, row.hex);
    }
}

TEST(PackageHash, ProgressComesOncePerBlockOf65536_AndAShortReadEndsIt) {
    struct Row {
        std::size_t size;
        std::vector<std::uint64_t> progress;
        std::vector<DWORD> reads;
    };
    const Row rows[] = {
        {0, {0}, {0}},
        {1, {0, 1}, {1}},
        {65535, {0, 65535}, {65535}},
        {65536, {0, 65536}, {65536, 0}},
        {65537, {0, 65536, 65537}, {65536, 1}},
        {131072, {0, 65536, 131072}, {65536, 65536, 0}},
    };
    const TemporaryDirectory folder;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        WriteWholeFile(folder / L"file", std::string(row.size, 'x'));
        std::vector<std::uint64_t> progress;
        std::vector<DWORD> reads;
        std::wstring hex;
        const OnReadFile read([&](HANDLE file, LPVOID data, DWORD length, LPDWORD got, LPOVERLAPPED overlapped) {
            EXPECT_EQ(length, 65536u);
            const BOOL good = OnReadFile::Original(file, data, length, got, overlapped);
            reads.push_back(*got);
            return good;
        });
        EXPECT_TRUE(HashFileSha256(folder / L"file", hex, [&](std::uint64_t bytes) { progress.push_back(bytes); }));
        EXPECT_EQ(progress, row.progress);
        EXPECT_EQ(reads, row.reads);
    }
}

TEST(PackageHash, FirstProgress_ComesBeforeTheFirstRead) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", "x");
    std::vector<std::string> order;
    std::wstring hex;
    const OnReadFile read([&](HANDLE file, LPVOID data, DWORD length, LPDWORD got, LPOVERLAPPED overlapped) {
        order.emplace_back("read");
        return OnReadFile::Original(file, data, length, got, overlapped);
    });
    EXPECT_TRUE(HashFileSha256(folder / L"file", hex, [&](std::uint64_t) { order.emplace_back("progress"); }));
    EXPECT_EQ(order, (std::vector<std::string>{"progress", "read", "progress"}));
}

TEST(PackageHash, ReadThatFailsLater_FailsTheHash) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"file", std::string(200000, 'x'));
    std::size_t reads = 0;
    const OnReadFile read([&](HANDLE file, LPVOID data, DWORD length, LPDWORD got, LPOVERLAPPED overlapped) {
        return ++reads < 3 && OnReadFile::Original(file, data, length, got, overlapped);
    });
    std::wstring hex;
    EXPECT_FALSE(HashFileSha256(folder / L"file", hex));
    EXPECT_EQ(reads, 3u);
}

TEST(PackageHash, MissingFileAndFolder_Fail) {
    const TemporaryDirectory folder;
    std::wstring hex;
    EXPECT_FALSE(HashFileSha256(folder / L"missing", hex));
    EXPECT_FALSE(HashFileSha256(folder.Path(), hex));
}

// --- PackageSetIsActive

/// Two installed packages, named by the state.
class ActiveSet : public testing::Test {
  protected:
    ActiveSet() {
        for (const PackageDescriptor& package : packages)
            WritePackageTree(VersionFolder(root, package), content);
        WriteWholeFile(root + L"\\current.json", RenderRuntimeState(packages));
    }

    TemporaryDirectory folder;
    std::wstring root = folder / L"Runtime";
    PackageContent content = {{L"a.bin", "alpha"}, {L"b.bin", "beta"}};
    std::vector<PackageDescriptor> packages = {DescribePackage(L"core", L"1.0.0.0", content),
                                               DescribePackage(L"voices", L"2.0.0.7", content)};
    std::vector<std::pair<std::wstring, Step>> steps;
    SetProgress progress = [this](const PackageDescriptor& package, const PackageFileDescriptor& file,
                                  std::uint64_t bytes) {
        steps.push_back({package.id, {file.path, bytes}});
    };
};

TEST_F(ActiveSet, VersionFolder_LiesUnderPacksIdAndVersion) {
    EXPECT_EQ(PackageRoot(L"C:\\Runtime", packages[1]), L"C:\\Runtime\\packs\\voices");
    EXPECT_EQ(VersionFolder(L"C:\\Runtime", packages[1]), L"C:\\Runtime\\packs\\voices\\2.0.0.7");
}

TEST_F(ActiveSet, NamedAndWhole_IsActive_WithProgressByPackage) {
    EXPECT_TRUE(PackageSetIsActive(root, packages));
    EXPECT_TRUE(PackageSetIsActive(root, packages, progress));
    EXPECT_EQ(steps, (std::vector<std::pair<std::wstring, Step>>{{L"core", {L"a.bin", 0}},
                                                                 {L"core", {L"a.bin", 5}},
                                                                 {L"core", {L"b.bin", 0}},
                                                                 {L"core", {L"b.bin", 4}},
                                                                 {L"voices", {L"a.bin", 0}},
                                                                 {L"voices", {L"a.bin", 5}},
                                                                 {L"voices", {L"b.bin", 0}},
                                                                 {L"voices", {L"b.bin", 4}}}));
}

TEST_F(ActiveSet, OtherState_IsNotActive_AndNothingIsRead) {
    WriteWholeFile(root + L"\\current.json", RenderRuntimeState({packages[0]}));
    EXPECT_FALSE(PackageSetIsActive(root, packages, progress));
    ASSERT_TRUE(DeleteFileW((root + L"\\current.json").c_str()));
    EXPECT_FALSE(PackageSetIsActive(root, packages, progress));
    EXPECT_TRUE(steps.empty());
}

TEST_F(ActiveSet, DamagedMember_IsNotActive_AndEndsTheWork) {
    WritePackageTree(VersionFolder(root, packages[0]), {{L"b.bin", "BETA"}});
    EXPECT_FALSE(PackageSetIsActive(root, packages, progress));
    ASSERT_FALSE(steps.empty());
    EXPECT_EQ(steps.back().first, L"core");
    EXPECT_FALSE(PackageSetIsActive(root, packages));
}

TEST_F(ActiveSet, DamagedLastMember_IsNotActive) {
    ASSERT_TRUE(DeleteFileW((VersionFolder(root, packages[1]) + L"\\a.bin").c_str()));
    EXPECT_FALSE(PackageSetIsActive(root, packages));
}

TEST_F(ActiveSet, EmptyList_IsActiveWhateverTheStateHolds) {
    EXPECT_TRUE(PackageSetIsActive(root, {}, progress));
    WriteWholeFile(root + L"\\current.json", "garbage");
    EXPECT_TRUE(PackageSetIsActive(root, {}));
    EXPECT_TRUE(PackageSetIsActive(folder / L"missing", {}));
    EXPECT_TRUE(steps.empty());
}

}  // namespace
}  // namespace launcher_update
