#include <windows.h>

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/installed/layout.h"
#include "update/packages/runtime_state.h"

namespace launcher_update {
namespace {

using test_support::DescribePackage;
using test_support::ForcedAttributes;
using test_support::PackageContent;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using Keys = std::set<std::wstring>;

/// An application's folder and the three packages that can be portable.
class InstalledSet : public testing::Test {
  protected:
    InstalledSet() {
        settings.applicationDirectory = L"app";
        EXPECT_TRUE(EnsureDirectory(Application()));
    }

    std::wstring Application() const { return root / L"app"; }
    std::wstring Runtime() const { return Application() + L"\\Runtime"; }
    std::wstring StatePath() const { return Runtime() + L"\\current.json"; }

    void InstallPortable() {
        WritePackageTree(Application(), runtimeContent);
        WritePackageTree(Application() + L"\\uvr-mdx", mdxContent);
        WritePackageTree(Application() + L"\\uvr-hp-models", hpContent);
    }
    void InstallManaged() {
        WritePackageTree(Runtime() + L"\\packs\\application-runtime\\1.0.0.0", runtimeContent);
        WritePackageTree(Runtime() + L"\\packs\\uvr-mdx\\2.0.0.0", mdxContent);
        WritePackageTree(Runtime() + L"\\packs\\uvr-hp-models\\3.0.0.0", hpContent);
    }
    void WriteState(const std::string& bytes) {
        EXPECT_TRUE(EnsureDirectory(Runtime()));
        WriteWholeFile(StatePath(), bytes);
    }

    /// The layout that is found, or nothing.
    std::optional<InstalledLayout> Detect() const {
        UpdateManifest manifest;
        manifest.packages = packages;
        InstalledLayout layout{};
        if (!DetectInstalledLayout(root.Path(), settings, manifest, layout)) return std::nullopt;
        return layout;
    }
    bool PortableMatches(const SetProgress& progress = {}) const {
        return PortablePackageSetMatches(Application(), packages, progress);
    }
    bool FoldersExact() const { return ActivatedPackageFoldersExact(Application(), packages); }

    TemporaryDirectory root;
    Settings settings;
    PackageContent runtimeContent{{L"VPRAsioProbe.exe", "probe"}, {L"lib/Core.dll", "core"}};
    PackageContent mdxContent{{L"models/one.onnx", "one"}, {L"two.onnx", "second"}};
    PackageContent hpContent{{L"hp.pth", "hp"}};
    std::vector<PackageDescriptor> packages{DescribePackage(L"application-runtime", L"1.0.0.0", runtimeContent),
                                            DescribePackage(L"uvr-mdx", L"2.0.0.0", mdxContent),
                                            DescribePackage(L"uvr-hp-models", L"3.0.0.0", hpContent)};
};

using DetectedLayout = InstalledSet;
using PortableLayout = InstalledSet;
using PortableSet = InstalledSet;
using ActivatedFolders = InstalledSet;

TEST_F(DetectedLayout, WithoutPackages_IsFilesAndReadsNothing) {
    packages.clear();
    WriteState("anything");
    const ForcedAttributes linked(L"", FILE_ATTRIBUTE_REPARSE_POINT);  // would be refused if it were looked at
    EXPECT_EQ(Detect(), InstalledLayout::files);
}

TEST_F(DetectedLayout, WithTheStateOfThesePackages_IsActivated) {
    WriteState(RenderRuntimeState(packages));
    EXPECT_EQ(Detect(), InstalledLayout::activated) << "only the state is asked";
}

TEST_F(DetectedLayout, WithoutAState_IsPortable) {
    EXPECT_EQ(Detect(), InstalledLayout::portable);
    ASSERT_TRUE(EnsureDirectory(Runtime()));
    EXPECT_EQ(Detect(), InstalledLayout::portable);
}

TEST_F(DetectedLayout, WithAnotherState_IsUnknown) {
    InstallPortable();
    for (const std::string& state : {std::string(), RenderRuntimeState(packages) + " ",
                                     RenderRuntimeState({packages[1], packages[0], packages[2]})}) {
        WriteState(state);
        EXPECT_FALSE(Detect()) << state;
    }
}

TEST_F(DetectedLayout, OfTheApplicationItself_IsAsked) {
    WriteState(RenderRuntimeState(packages));
    settings.applicationDirectory = L"other";
    EXPECT_EQ(Detect(), InstalledLayout::portable);
}

TEST_F(PortableLayout, MayLackTheRuntimeFolder) {
    EXPECT_TRUE(IsPortableLayout(Application()));
    EXPECT_TRUE(IsPortableLayout(root / L"missing"));
    ASSERT_TRUE(EnsureDirectory(Runtime()));
    EXPECT_TRUE(IsPortableLayout(Application()));
}

TEST_F(PortableLayout, HasNoState) {
    InstallPortable();
    WriteState("");
    EXPECT_FALSE(IsPortableLayout(Application()));
    ASSERT_TRUE(DeleteFileW(StatePath().c_str()));
    EXPECT_TRUE(IsPortableLayout(Application()));
    ASSERT_TRUE(EnsureDirectory(StatePath()));
    EXPECT_FALSE(IsPortableLayout(Application())) << "whatever it is";
}

TEST_F(PortableLayout, HasNoLinkOrFileInPlaceOfTheRuntimeFolder) {
    ASSERT_TRUE(EnsureDirectory(Runtime()));
    {
        const ForcedAttributes linked(L"\\Runtime", FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(IsPortableLayout(Application()));
        EXPECT_FALSE(PortablePackageSetMatches(Application(), {}));
    }
    ASSERT_TRUE(RemoveTree(Runtime()));
    WriteWholeFile(Runtime(), "a file in its place");
    EXPECT_FALSE(IsPortableLayout(Application()));
    EXPECT_FALSE(PortablePackageSetMatches(Application(), {}));
}

TEST_F(PortableSet, WithEveryFileInItsHome_Matches) {
    InstallPortable();
    EXPECT_TRUE(PortableMatches());
}

TEST_F(PortableSet, OfNoPackages_NeedsOnlyTheAbsenceOfAState) {
    packages.clear();
    EXPECT_TRUE(PortableMatches());
    WriteState("");
    EXPECT_FALSE(PortableMatches());
}

TEST_F(PortableSet, WithAState_DoesNotMatch) {
    InstallPortable();
    WriteState(RenderRuntimeState(packages));
    EXPECT_FALSE(PortableMatches());
}

TEST_F(PortableSet, WithAStateThatCannotBeLookedAt_DoesNotMatch) {
    InstallPortable();
    for (const DWORD error : {DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_SHARING_VIOLATION}}) {
        const UnreadableAttributes unreadable(L"\\Runtime\\current.json", error);
        EXPECT_FALSE(PortableMatches()) << error;
    }
    for (const DWORD error : {DWORD{ERROR_FILE_NOT_FOUND}, DWORD{ERROR_PATH_NOT_FOUND}}) {
        const UnreadableAttributes absent(L"\\Runtime\\current.json", error);
        EXPECT_TRUE(PortableMatches()) << error;
    }
}

TEST_F(PortableSet, WithAPackageThatHasNoHome_DoesNotMatch) {
    InstallPortable();
    packages[1].capability = L"separation";
    EXPECT_FALSE(PortableMatches());
    packages[1] = DescribePackage(L"core", L"1.0.0.0", {});
    EXPECT_FALSE(PortableMatches()) << "even if it has no files";
}

TEST_F(PortableSet, WithAnyFileMissingOrOther_DoesNotMatch) {
    InstallPortable();
    for (const wchar_t* path : {L"\\VPRAsioProbe.exe", L"\\lib\\Core.dll", L"\\uvr-mdx\\models\\one.onnx",
                                L"\\uvr-mdx\\two.onnx", L"\\uvr-hp-models\\hp.pth"}) {
        const std::wstring file = Application() + path;
        const std::string content = test_support::ReadWholeFile(file);
        std::string other = content;
        other.back() ^= 1;
        for (const std::string& instead : {other, content + "x", std::string()}) {
            WriteWholeFile(file, instead);
            EXPECT_FALSE(PortableMatches()) << platform::EncodeUtf8(path) << ": " << instead;
        }
        ASSERT_TRUE(DeleteFileW(file.c_str()));
        EXPECT_FALSE(PortableMatches()) << platform::EncodeUtf8(path);
        WriteWholeFile(file, content);
    }
    EXPECT_TRUE(PortableMatches());
}

TEST_F(PortableSet, BehindALink_DoesNotMatch) {
    InstallPortable();
    for (const wchar_t* link :
         {L"\\lib", L"\\uvr-mdx", L"\\models", L"\\one.onnx", L"\\hp.pth", L"\\VPRAsioProbe.exe"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(PortableMatches()) << platform::EncodeUtf8(link);
    }
}

TEST_F(PortableSet, MayHoldWhateverElseItLikes) {
    InstallPortable();
    WritePackageTree(Application(), {{L"log.txt", "x"}, {L"uvr-mdx/log.txt", "x"}, {L"lib/deep/log.txt", "x"}});
    EXPECT_TRUE(PortableMatches());
}

TEST_F(PortableSet, TellsWhatItReads) {
    InstallPortable();
    std::vector<std::tuple<std::wstring, std::wstring, std::uint64_t>> told;
    EXPECT_TRUE(PortableMatches([&](const PackageDescriptor& package, const PackageFileDescriptor& file,
                                    std::uint64_t bytes) { told.emplace_back(package.id, file.path, bytes); }));
    EXPECT_EQ(told, (std::vector<std::tuple<std::wstring, std::wstring, std::uint64_t>>{
                        {L"application-runtime", L"VPRAsioProbe.exe", 0},
                        {L"application-runtime", L"VPRAsioProbe.exe", 5},
                        {L"application-runtime", L"lib/Core.dll", 0},
                        {L"application-runtime", L"lib/Core.dll", 4},
                        {L"uvr-mdx", L"models/one.onnx", 0},
                        {L"uvr-mdx", L"models/one.onnx", 3},
                        {L"uvr-mdx", L"two.onnx", 0},
                        {L"uvr-mdx", L"two.onnx", 6},
                        {L"uvr-hp-models", L"hp.pth", 0},
                        {L"uvr-hp-models", L"hp.pth", 2}}));
}

TEST_F(PortableSet, EndsAtTheFirstFailure) {
    InstallPortable();
    WriteWholeFile(Application() + L"\\uvr-mdx\\models\\one.onnx", "eno");
    std::vector<std::wstring> told;
    EXPECT_FALSE(PortableMatches([&](const PackageDescriptor&, const PackageFileDescriptor& file, std::uint64_t bytes) {
        if (bytes == 0) told.push_back(file.path);
    }));
    EXPECT_EQ(told, (std::vector<std::wstring>{L"VPRAsioProbe.exe", L"lib/Core.dll", L"models/one.onnx"}));
}

TEST_F(ActivatedFolders, WithTheFilesOfTheirInventories_AreExact) {
    InstallManaged();
    EXPECT_TRUE(FoldersExact());
    packages.clear();
    EXPECT_TRUE(FoldersExact());
}

TEST_F(ActivatedFolders, AreJudgedByNamesAlone) {
    InstallManaged();
    WriteWholeFile(Runtime() + L"\\packs\\uvr-mdx\\2.0.0.0\\two.onnx", "other content");
    EXPECT_TRUE(FoldersExact());
}

TEST_F(ActivatedFolders, AreComparedInLowerCase) {
    InstallManaged();
    const std::wstring folder = Runtime() + L"\\packs\\uvr-mdx\\2.0.0.0";
    ASSERT_TRUE(RemoveTree(folder));
    WritePackageTree(folder, {{L"Models/ONE.onnx", ""}, {L"TWO.ONNX", ""}});
    EXPECT_TRUE(FoldersExact());
}

TEST_F(ActivatedFolders, WithAStrayOrMissingFile_AreNotExact) {
    InstallManaged();
    const std::wstring folder = Runtime() + L"\\packs\\uvr-hp-models\\3.0.0.0";
    for (const wchar_t* stray : {L"\\log.txt", L"\\deep\\log.txt"}) {
        ASSERT_TRUE(EnsureDirectory(folder + L"\\deep"));
        WriteWholeFile(folder + stray, "");
        EXPECT_FALSE(FoldersExact()) << platform::EncodeUtf8(stray);
        ASSERT_TRUE(DeleteFileW((folder + stray).c_str()));
    }
    EXPECT_TRUE(FoldersExact()) << "an empty folder is no file";
    ASSERT_TRUE(DeleteFileW((folder + L"\\hp.pth").c_str()));
    EXPECT_FALSE(FoldersExact());
    ASSERT_TRUE(RemoveTree(folder));
    EXPECT_FALSE(FoldersExact());
}

TEST_F(ActivatedFolders, OfAnotherVersion_DoNotCount) {
    InstallManaged();
    WritePackageTree(Runtime() + L"\\packs\\uvr-mdx\\1.0.0.0", {{L"old", ""}});
    EXPECT_TRUE(FoldersExact());
    packages[1].version = L"1.0.0.0";
    EXPECT_FALSE(FoldersExact());
}

TEST_F(ActivatedFolders, WithALink_AreNotExact) {
    InstallManaged();
    for (const wchar_t* link : {L"2.0.0.0", L"models", L"one.onnx", L"hp.pth"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(FoldersExact()) << platform::EncodeUtf8(link);
    }
}

TEST(ListedFiles, AreKeysRelativeToTheBase) {
    const TemporaryDirectory folder;
    WritePackageTree(folder.Path(), {{L"Top.TXT", ""}, {L"Sub/Deep/File.dll", ""}});
    ASSERT_TRUE(EnsureDirectory(folder / L"empty"));
    Keys keys;
    EXPECT_TRUE(ListFilesUnder(folder.Path(), folder.Path(), keys));
    EXPECT_EQ(keys, (Keys{L"top.txt", L"sub\\deep\\file.dll"}));
    keys.clear();
    EXPECT_TRUE(ListFilesUnder(folder.Path(), folder / L"Sub", keys));
    EXPECT_EQ(keys, (Keys{L"sub\\deep\\file.dll"}));
}

TEST(ListedFiles, AreOfARealFolder) {
    const TemporaryDirectory folder;
    WritePackageTree(folder.Path(), {{L"sub/file", ""}, {L"plain", ""}});
    Keys keys;
    EXPECT_FALSE(ListFilesUnder(folder.Path(), folder / L"missing", keys));
    EXPECT_FALSE(ListFilesUnder(folder.Path(), folder / L"plain", keys));
    const ForcedAttributes linked(L"\\sub", FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_FALSE(ListFilesUnder(folder.Path(), folder / L"sub", keys));
}

TEST(ListedFiles, WithAnEntryThatIsALink_AreRefused) {
    const TemporaryDirectory folder;
    WritePackageTree(folder.Path(), {{L"sub/file", ""}});
    for (const wchar_t* link : {L"sub", L"file"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        Keys keys;
        EXPECT_FALSE(ListFilesUnder(folder.Path(), folder.Path(), keys)) << platform::EncodeUtf8(link);
    }
}

TEST(ListedFiles, WhoseListingBreaksOff_AreRefused) {
    const TemporaryDirectory folder;
    WritePackageTree(folder.Path(), {{L"one", ""}, {L"two", ""}});
    const test_support::StandIn<"FindNextFileW", decltype(FindNextFileW)> next([](HANDLE, LPWIN32_FIND_DATAW) {
        SetLastError(ERROR_READ_FAULT);
        return FALSE;
    });
    Keys keys;
    EXPECT_FALSE(ListFilesUnder(folder.Path(), folder.Path(), keys));
}

}  // namespace
}  // namespace launcher_update
