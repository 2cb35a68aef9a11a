#include "update/workflow/package_plan.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"

namespace launcher_update {
namespace {

using test_support::AddPatch;
using test_support::DescribePackage;
using test_support::ForcedAttributes;
using test_support::PackageContent;
using test_support::TemporaryDirectory;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

/// A package in version 2.0.0.0 whose patch from 1.0.0.0 carries one of its two files.
class PackagePlanning : public testing::Test {
  protected:
    explicit PackagePlanning(const std::wstring& id = L"uvr-mdx") : package(DescribePackage(id, L"2.0.0.0", content)) {
        package.url = L"https://h.example/full";
        package.sha256 = std::wstring(64, L'a');
        package.size = 5000;
        AddPatch(package, L"1.0.0.0", {L"new.onnx"});
        package.patch.url = L"https://h.example/patch";
        package.patch.sha256 = std::wstring(64, L'b');
        package.patch.size = 400;
    }

    std::wstring Application() const { return application.Path(); }
    std::wstring Version(const wchar_t* version) const {
        return application / (L"Runtime\\packs\\" + package.id + L"\\" + version);
    }
    std::wstring Home() const { return application / L"uvr-mdx"; }
    PackagePlan Plan() const { return PlanPackage(Application(), package); }

    void ExpectNothingToDo() const {
        const PackagePlan plan = Plan();
        EXPECT_FALSE(plan.needsPayload);
        EXPECT_EQ(plan.localSource, L"");
        EXPECT_EQ(plan.patchBase, L"");
    }
    void ExpectLocal(const std::wstring& source) const {
        const PackagePlan plan = Plan();
        EXPECT_FALSE(plan.needsPayload);
        EXPECT_EQ(plan.localSource, source);
        EXPECT_EQ(plan.patchBase, L"");
    }
    void ExpectPatch(const std::wstring& base) const {
        const PackagePlan plan = Plan();
        EXPECT_TRUE(plan.needsPayload);
        EXPECT_EQ(plan.localSource, L"");
        EXPECT_EQ(plan.patchBase, base);
        EXPECT_EQ(plan.payloadDescriptor.id, package.id);
        EXPECT_EQ(plan.payloadDescriptor.version, L"2.0.0.0");
        EXPECT_EQ(plan.payloadDescriptor.url, L"https://h.example/patch");
        EXPECT_EQ(plan.payloadDescriptor.sha256, std::wstring(64, L'b'));
        EXPECT_EQ(plan.payloadDescriptor.size, 400u);
        ASSERT_EQ(plan.payloadDescriptor.inventory.size(), 1u);
        EXPECT_EQ(plan.payloadDescriptor.inventory[0].path, L"new.onnx");
        EXPECT_EQ(plan.payloadDescriptor.inventory[0].sha256, package.patch.files[0].sha256);
        EXPECT_EQ(plan.payloadDescriptor.inventory[0].size, package.patch.files[0].size);
    }
    void ExpectFull() const {
        const PackagePlan plan = Plan();
        EXPECT_TRUE(plan.needsPayload);
        EXPECT_EQ(plan.localSource, L"");
        EXPECT_EQ(plan.patchBase, L"");
        EXPECT_EQ(plan.payloadDescriptor.url, L"https://h.example/full");
        EXPECT_EQ(plan.payloadDescriptor.sha256, std::wstring(64, L'a'));
        EXPECT_EQ(plan.payloadDescriptor.size, 5000u);
        EXPECT_EQ(plan.payloadDescriptor.inventory.size(), 2u);
    }

    TemporaryDirectory application;
    PackageContent content{{L"new.onnx", "new"}, {L"same.onnx", "same"}};
    PackageContent oldContent{{L"new.onnx", "an older one"}, {L"same.onnx", "same"}, {L"gone.onnx", "gone"}};
    PackageDescriptor package;
};

class RuntimePackagePlanning : public PackagePlanning {
  protected:
    RuntimePackagePlanning() : PackagePlanning(L"application-runtime") {}
};

TEST_F(PackagePlanning, ValidVersionFolder_NeedsNothing) {
    WritePackageTree(Version(L"2.0.0.0"), content);
    WritePackageTree(Home(), content);
    ExpectNothingToDo();
}

TEST_F(PackagePlanning, PortableHomeOfThisVersion_IsCopied) {
    WritePackageTree(Home(), content);
    WritePackageTree(Version(L"1.0.0.0"), oldContent);
    ExpectLocal(Home());
}

TEST_F(PackagePlanning, DamagedVersionFolder_IsMadeAnewFromThePortableHome) {
    WritePackageTree(Version(L"2.0.0.0"), content);
    WriteWholeFile(Version(L"2.0.0.0") + L"\\same.onnx", "emas");
    WritePackageTree(Home(), content);
    ExpectLocal(Home());
}

TEST_F(PackagePlanning, StrayFileInTheVersionFolder_IsDamageToo) {
    WritePackageTree(Version(L"2.0.0.0"), content);
    WriteWholeFile(Version(L"2.0.0.0") + L"\\stray.log", "");
    ExpectFull();
}

TEST_F(PackagePlanning, PortableHome_IsNotCopiedWhereAStateSelectsVersions) {
    WritePackageTree(Home(), content);
    ASSERT_TRUE(EnsureDirectory(application / L"Runtime"));
    WriteWholeFile(application / L"Runtime\\current.json", "{}");
    ExpectPatch(Home());
}

TEST_F(PackagePlanning, PackageWithoutAHome_IsNotCopied) {
    WritePackageTree(Home(), content);
    package.capability = L"separation";
    ExpectFull();
}

TEST_F(PackagePlanning, ManagedBase_IsPatched) {
    WritePackageTree(Version(L"1.0.0.0"), oldContent);
    ExpectPatch(Version(L"1.0.0.0"));
}

TEST_F(PackagePlanning, ManagedBase_GoesBeforeThePortableOne) {
    WritePackageTree(Version(L"1.0.0.0"), oldContent);
    WritePackageTree(Home(), oldContent);
    ExpectPatch(Version(L"1.0.0.0"));
    WriteWholeFile(Version(L"1.0.0.0") + L"\\same.onnx", "emas");
    ExpectPatch(Home());
}

TEST_F(PackagePlanning, OnlyTheVersionThatThePatchNames_IsItsBase) {
    WritePackageTree(Version(L"1.0.0.1"), oldContent);
    ExpectFull();
}

TEST_F(PackagePlanning, BaseMayLackWhatThePatchCarries) {
    WritePackageTree(Version(L"1.0.0.0"), {{L"same.onnx", "same"}});
    ExpectPatch(Version(L"1.0.0.0"));
}

TEST_F(PackagePlanning, WithoutAPatch_TheFullPackageIsFetched) {
    package.patch = {};
    WritePackageTree(Version(L"1.0.0.0"), oldContent);
    WritePackageTree(Home(), oldContent);
    ExpectFull();
}

TEST_F(PackagePlanning, WithoutABase_TheFullPackageIsFetched) {
    ExpectFull();
    WritePackageTree(Version(L"1.0.0.0"), {{L"new.onnx", "new"}, {L"same.onnx", "emas"}});
    WritePackageTree(Home(), {{L"new.onnx", "new"}, {L"same.onnx", "other"}});
    ExpectFull();
}

TEST_F(PackagePlanning, BaseBehindALink_IsNone) {
    WritePackageTree(Version(L"1.0.0.0"), oldContent);
    const ForcedAttributes linked(L"\\1.0.0.0", FILE_ATTRIBUTE_REPARSE_POINT);
    ExpectFull();
}

TEST_F(PackagePlanning, PortableHomeThatIsNoLongerWhole_IsABaseAtMost) {
    WritePackageTree(Home(), oldContent);
    ExpectPatch(Home());
}

/// The application's own package lies in the application's folder itself.
TEST_F(RuntimePackagePlanning, PortableHome_IsTheApplicationsFolder) {
    WritePackageTree(Application(), content);
    ExpectLocal(Application());
}

TEST_F(RuntimePackagePlanning, PortableBase_IsTheApplicationsFolder) {
    WritePackageTree(Application(), oldContent);
    ExpectPatch(Application());
}

TEST_F(RuntimePackagePlanning, SubfolderOfItsName_IsNoHome) {
    WritePackageTree(application / L"application-runtime", content);
    ExpectFull();
}

TEST_F(PackagePlanning, ApplicationsFolder_IsNoHomeOfTheOthers) {
    WritePackageTree(Application(), content);
    ExpectFull();
}

}  // namespace
}  // namespace launcher_update
