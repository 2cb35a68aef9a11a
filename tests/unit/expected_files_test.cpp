#include "update/installed/expected_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/text.h"

namespace launcher_update {
namespace {

constexpr wchar_t kApplication[] = L"Velmora Pine Relay";

PackageDescriptor Package(const std::wstring& id, std::vector<PackageFileDescriptor> inventory) {
    PackageDescriptor package;
    package.id = id;
    package.version = L"2.0.0.1";
    package.capability = id;
    package.inventory = std::move(inventory);
    return package;
}

UpdateManifest Release(std::vector<PackageDescriptor> packages) {
    UpdateManifest manifest;
    manifest.files = {{L"application", L"Velmora Pine Relay/Velmora Pine Relay.exe", L"", L"", 1001}};
    manifest.packages = std::move(packages);
    return manifest;
}

const ExpectedFiles::value_type kExecutable{L"velmora pine relay\\velmora pine relay.exe", 1001};

TEST(ExpectedFile, IsKeptUnderItsKey) {
    ExpectedFiles files;
    EXPECT_TRUE(AddExpectedFile(files, L"App/Sub\\File.TXT", 7));
    EXPECT_EQ(files, (ExpectedFiles{{L"app\\sub\\file.txt", 7}}));
}

TEST(ExpectedFile, ClaimedTwice_CountsOnceIfTheSizesAgree) {
    ExpectedFiles files;
    ASSERT_TRUE(AddExpectedFile(files, L"app/file", 7));
    EXPECT_TRUE(AddExpectedFile(files, L"APP\\file", 7));
    EXPECT_FALSE(AddExpectedFile(files, L"app\\File", 8));
    EXPECT_FALSE(AddExpectedFile(files, L"app/file", 6));
    EXPECT_EQ(files, (ExpectedFiles{{L"app\\file", 7}}));
}

TEST(ExpectedFile, OnAnUnsafePath_IsRefused) {
    for (const wchar_t* path : {L"", L"C:\\app\\file", L"\\app", L"/app", L"app\\..\\file", L"app/../file", L"..\\file",
                                L".\\file", L"app\\\\file", L"app//file", L"app:stream"}) {
        ExpectedFiles files;
        EXPECT_FALSE(AddExpectedFile(files, path, 1)) << platform::EncodeUtf8(path);
        EXPECT_TRUE(files.empty()) << platform::EncodeUtf8(path);
    }
}

/// In code units `-` comes before `.`, that before `\`, and that before the letters, which are all small.
TEST(ExpectedFiles, StandInCodeUnitOrder) {
    ExpectedFiles files;
    for (const wchar_t* path : {L"ab", L"a\\b", L"\u65e5", L"a-b", L"A.b", L"B", L"a"})
        ASSERT_TRUE(AddExpectedFile(files, path, 1));
    std::vector<std::wstring> keys;
    for (const auto& file : files)
        keys.push_back(file.first);
    EXPECT_EQ(keys, (std::vector<std::wstring>{L"a", L"a-b", L"a.b", L"a\\b", L"ab", L"b", L"\u65e5"}));
}

TEST(ExpectedInventory, OfAReleaseWithoutPackages_IsItsFilesInAnyLayout) {
    for (const InstalledLayout layout :
         {InstalledLayout::files, InstalledLayout::activated, InstalledLayout::portable}) {
        ExpectedFiles files{{L"left from before", 1}};
        EXPECT_TRUE(CollectExpectedInventory(kApplication, Release({}), layout, files));
        EXPECT_EQ(files, (ExpectedFiles{kExecutable}));
    }
}

TEST(ExpectedInventory, InTheLayoutOfFiles_CannotHoldPackages) {
    ExpectedFiles files;
    EXPECT_FALSE(CollectExpectedInventory(kApplication, Release({Package(L"uvr-mdx", {{L"a", L"", 1}})}),
                                          InstalledLayout::files, files));
}

TEST(ExpectedInventory, Activated_LiesInTheVersionFolders) {
    const UpdateManifest manifest = Release({Package(L"core", {{L"Bin/One.dll", L"", 3}, {L"two", L"", 4}})});
    ExpectedFiles files;
    EXPECT_TRUE(CollectExpectedInventory(kApplication, manifest, InstalledLayout::activated, files));
    EXPECT_EQ(files, (ExpectedFiles{kExecutable,
                                    {L"velmora pine relay\\runtime\\packs\\core\\2.0.0.1\\bin\\one.dll", 3},
                                    {L"velmora pine relay\\runtime\\packs\\core\\2.0.0.1\\two", 4}}));
}

TEST(ExpectedInventory, Activated_CountsSupportFilesNextToTheApplicationAsWell) {
    const UpdateManifest manifest = Release(
        {Package(L"application-runtime",
                 {{L"vprasioprobe.EXE", L"", 5}, {L"Licenses/GPL-3.0.txt", L"", 6}, {L"Licenses/Other.txt", L"", 7}})});
    ExpectedFiles files;
    EXPECT_TRUE(CollectExpectedInventory(kApplication, manifest, InstalledLayout::activated, files));
    const std::wstring folder = L"velmora pine relay\\runtime\\packs\\application-runtime\\2.0.0.1\\";
    EXPECT_EQ(files, (ExpectedFiles{kExecutable,
                                    {folder + L"vprasioprobe.exe", 5},
                                    {L"velmora pine relay\\vprasioprobe.exe", 5},
                                    {folder + L"licenses\\gpl-3.0.txt", 6},
                                    {L"velmora pine relay\\licenses\\gpl-3.0.txt", 6},
                                    {folder + L"licenses\\other.txt", 7}}));
}

TEST(ExpectedInventory, SupportFilesOfAnotherPackage_StayInItsVersionFolder) {
    ExpectedFiles files;
    EXPECT_TRUE(CollectExpectedInventory(kApplication, Release({Package(L"uvr-mdx", {{L"VPRAsioProbe.exe", L"", 5}})}),
                                         InstalledLayout::activated, files));
    EXPECT_EQ(files, (ExpectedFiles{kExecutable,
                                    {L"velmora pine relay\\runtime\\packs\\uvr-mdx\\2.0.0.1\\vprasioprobe.exe", 5}}));
}

TEST(ExpectedInventory, Portable_LiesInTheHomes) {
    const UpdateManifest manifest =
        Release({Package(L"application-runtime", {{L"VPRAsioProbe.exe", L"", 5}, {L"lib/core.dll", L"", 6}}),
                 Package(L"uvr-mdx", {{L"model.onnx", L"", 7}}), Package(L"uvr-hp-models", {{L"m/1.pth", L"", 8}})});
    ExpectedFiles files;
    EXPECT_TRUE(CollectExpectedInventory(kApplication, manifest, InstalledLayout::portable, files));
    EXPECT_EQ(files, (ExpectedFiles{kExecutable,
                                    {L"velmora pine relay\\vprasioprobe.exe", 5},
                                    {L"velmora pine relay\\lib\\core.dll", 6},
                                    {L"velmora pine relay\\uvr-mdx\\model.onnx", 7},
                                    {L"velmora pine relay\\uvr-hp-models\\m\\1.pth", 8}}));
}

TEST(ExpectedInventory, Portable_RefusesAPackageWithoutAHome) {
    ExpectedFiles files;
    EXPECT_FALSE(CollectExpectedInventory(kApplication, Release({Package(L"core", {{L"a", L"", 1}})}),
                                          InstalledLayout::portable, files));
    PackageDescriptor renamed = Package(L"uvr-mdx", {{L"a", L"", 1}});
    renamed.capability = L"separation";
    EXPECT_FALSE(CollectExpectedInventory(kApplication, Release({renamed}), InstalledLayout::portable, files));
    EXPECT_TRUE(CollectExpectedInventory(kApplication, Release({renamed}), InstalledLayout::activated, files));
}

TEST(ExpectedInventory, ClaimsThatDisagree_AreRefused) {
    struct Row {
        std::uint64_t size;
        bool accepted;
    };
    for (const Row& row : {Row{7, true}, Row{8, false}}) {
        const UpdateManifest twoPackages = Release({Package(L"application-runtime", {{L"uvr-mdx/model", L"", 7}}),
                                                    Package(L"uvr-mdx", {{L"Model", L"", row.size}})});
        ExpectedFiles files;
        EXPECT_EQ(CollectExpectedInventory(kApplication, twoPackages, InstalledLayout::portable, files), row.accepted);

        UpdateManifest fileAndSupport = Release({Package(L"application-runtime", {{L"VPRAsioProbe.exe", L"", 7}})});
        fileAndSupport.files.push_back({L"", L"Velmora Pine Relay/vprasioprobe.exe", L"", L"", row.size});
        EXPECT_EQ(CollectExpectedInventory(kApplication, fileAndSupport, InstalledLayout::activated, files),
                  row.accepted);

        UpdateManifest twoFiles = Release({});
        twoFiles.files.push_back(twoFiles.files[0]);
        twoFiles.files[1].size = twoFiles.files[0].size + row.size - 7;
        EXPECT_EQ(CollectExpectedInventory(kApplication, twoFiles, InstalledLayout::files, files), row.accepted);
    }
}

TEST(ExpectedInventory, UnsafePaths_AreRefused) {
    ExpectedFiles files;
    EXPECT_FALSE(CollectExpectedInventory(kApplication, Release({Package(L"core", {{L"../out", L"", 1}})}),
                                          InstalledLayout::activated, files));
    UpdateManifest manifest = Release({});
    manifest.files[0].path = L"..\\out";
    EXPECT_FALSE(CollectExpectedInventory(kApplication, manifest, InstalledLayout::files, files));
}

}  // namespace
}  // namespace launcher_update
