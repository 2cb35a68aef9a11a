#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/text.h"
#include "tests/support/call_faults.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/report.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/packages/install.h"
#include "update/packages/runtime_state.h"
#include "update/packages/validation.h"

// Every call that changes the disk fails once, wholly and half done, and once with all calls behind it. What is told
// must be true, what was whole must be whole, and the next run without a fault must set everything right.

namespace launcher_update {
namespace {

using test_support::AddPatch;
using test_support::BuildArchive;
using test_support::DescribePackage;
using test_support::FaultKind;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::ReadPackageTree;
using test_support::ReadWholeFile;
using test_support::TemporaryDirectory;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using Names = std::set<std::wstring>;

constexpr std::uint32_t kMostCalls = 400;  // far above what any of the operations needs

std::string Utf8(const std::wstring& text) {
    return platform::EncodeUtf8(text);
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

Names NamesIn(const std::wstring& folder) {
    std::vector<DirectoryEntry> entries;
    Names names;
    if (!ListDirectory(folder, entries)) return names;
    for (const DirectoryEntry& entry : entries)
        names.insert(entry.name);
    return names;
}

using Fault = test_support::CallFault;
using test_support::kCallFaults;

const PackageContent kContent = {{L"a.bin", "alpha"}, {L"empty", ""}, {L"sub/音.bin", "beta beta"}};
const PackageContent kDamaged = {{L"a.bin", "ALPHA"}, {L"sub/other", "x"}};
const PackageContent kOther = {{L"a.bin", "of another version"}};

/// A package root with another version in it and another package beside it, which no fault may touch.
struct Scene {
    Scene() {
        AddPatch(package, L"0.0.0.1", {L"sub/音.bin"});
        WritePackageTree(other, kOther);
        WritePackageTree(root + L"\\packs\\other\\1.0.0.0", kOther);
        WritePackageTree(source, kContent);
        static const std::string full = BuildArchive(kContent);
        static const std::string patch = BuildArchive({{L"sub/音.bin", "beta beta"}});
        WriteWholeFile(folder / L"full.vprpack", full);
        WriteWholeFile(folder / L"patch.vprpack", patch);
    }

    void Put(const std::wstring& name, const PackageContent& content) const {
        WritePackageTree(packageRoot + L"\\" + name, content);
    }
    void ExpectOthersUntouched() const {
        EXPECT_EQ(ReadPackageTree(other), kOther);
        EXPECT_EQ(ReadPackageTree(root + L"\\packs\\other"),
                  (PackageContent{{L"1.0.0.0/a.bin", "of another version"}}));
        EXPECT_EQ(ReadPackageTree(source), kContent);
    }

    TemporaryDirectory folder;
    std::wstring root = folder / L"Runtime";
    std::wstring source = folder / L"source";
    std::wstring packageRoot = root + L"\\packs\\core";
    std::wstring target = packageRoot + L"\\1.0.0.0";
    std::wstring other = packageRoot + L"\\2.0.0.0";
    PackageDescriptor package = DescribePackage(L"core", L"1.0.0.0", kContent);
    std::wstring installed;
    std::wstring error;
};

bool FromArchive(Scene& scene) {
    return InstallPackageInactive(scene.folder / L"full.vprpack", scene.package, scene.root, scene.installed,
                                  scene.error);
}

bool FromPatch(Scene& scene) {
    return InstallPackagePatchInactive(scene.folder / L"patch.vprpack", scene.source, scene.package, scene.root,
                                       scene.installed, scene.error);
}

bool FromLocalFiles(Scene& scene) {
    return InstallPackageFromLocalFiles(scene.source, scene.package, scene.root, scene.installed, scene.error);
}

/// The version has been committed when one of these is told.
bool TellsACommittedVersion(const std::wstring& error) {
    return error == L"Package repair succeeded but its backup could not be removed.";
}

/// Residue may stay before and after the commit.
bool TellsResidue(const std::wstring& error) {
    return error == L"Could not remove interrupted package transaction residue.";
}

/// What may be told while the version's place is as it was.
bool TellsAnUntouchedVersion(const std::wstring& error) {
    for (const wchar_t* whole : {L"Could not restore an interrupted package repair.", L"無法建立資源包版本暫存資料夾。",
                                 L"無法隔離損壞的資源包版本資料夾。", L"無法提交資源包版本資料夾。"}) {
        if (error == whole) return true;
    }
    for (const wchar_t* file : {L"a.bin", L"empty", L"sub/音.bin"}) {
        if (error == std::wstring(L"無法安全寫入資源包 payload：") + file) return true;
    }
    return false;
}

struct Installation {
    const char* name;
    bool (*run)(Scene&);
    std::vector<std::pair<std::wstring, PackageContent>> before;  // in the package root
    std::uint32_t leastCalls;                                     // that change the disk
};

/// The version's place as it stood before, whole, or, for a repair that could not be taken back, empty with the
/// damaged version beside it.
void ExpectTrueState(const Scene& scene, const Installation& installation, bool succeeded, bool severalFaults) {
    const auto before = std::find_if(installation.before.begin(), installation.before.end(),
                                     [](const auto& entry) { return entry.first == L"1.0.0.0"; });
    const bool existed = before != installation.before.end();
    const bool exists = Exists(scene.target);
    const PackageContent now = exists ? ReadPackageTree(scene.target) : PackageContent{};
    const bool whole = exists && now == kContent;
    const bool asBefore = existed ? exists && now == before->second : !exists;
    EXPECT_TRUE(whole || asBefore || (existed && severalFaults && !exists));
    if (succeeded) {
        EXPECT_TRUE(whole);
        EXPECT_EQ(scene.installed, scene.target);
        return;
    }
    const std::wstring& error = scene.error;
    EXPECT_TRUE(TellsACommittedVersion(error) || TellsResidue(error) || TellsAnUntouchedVersion(error)) << Utf8(error);
    EXPECT_TRUE(whole || !TellsACommittedVersion(error));
    if (TellsAnUntouchedVersion(error)) {
        EXPECT_FALSE(whole);
        EXPECT_EQ(scene.installed, L"");
    }
}

class InstallFaults : public testing::TestWithParam<Installation> {};

TEST_P(InstallFaults, AnyFailingCall_LeavesTheOldOrTheNewVersion_AndTheNextRunMakesItWhole) {
    const Installation& installation = GetParam();
    for (const Fault& fault : kCallFaults) {
        std::uint32_t at = 1;
        for (; at <= kMostCalls; ++at) {
            SCOPED_TRACE(std::string(installation.name) + ", " + fault.name + ", " + std::to_string(at));
            Scene scene;
            for (const auto& [name, content] : installation.before)
                scene.Put(name, content);
            bool reached = false;
            bool succeeded = false;
            {
                MutationFaults faults(fault.kind, at, ERROR_DISK_FULL, fault.fromThenOn);
                succeeded = installation.run(scene);
                reached = faults.Reached();
            }
            ExpectTrueState(scene, installation, succeeded, fault.fromThenOn);
            scene.ExpectOthersUntouched();
            EXPECT_TRUE(installation.run(scene)) << Utf8(scene.error);
            EXPECT_EQ(ReadPackageTree(scene.target), kContent);
            EXPECT_EQ(NamesIn(scene.packageRoot), (Names{L"1.0.0.0", L"2.0.0.0"}));
            scene.ExpectOthersUntouched();
            if (!reached) break;
        }
        EXPECT_GT(at, installation.leastCalls) << "too few calls met the fault";
        EXPECT_LT(at, kMostCalls);
    }
}

const Installation kInstallations[] = {
    {"Archive", FromArchive, {}, 20},
    {"Patch", FromPatch, {}, 10},
    {"LocalFiles", FromLocalFiles, {}, 5},
    {"OverStagingResidue", FromLocalFiles, {{L".staging-1.0.0.0-1-2", kDamaged}, {L".staging-1.0.0.0-3-4", {}}}, 9},
    {"RepairFromArchive", FromArchive, {{L"1.0.0.0", kDamaged}}, 25},
    {"RepairFromLocalFiles",
     FromLocalFiles,
     {{L"1.0.0.0", kDamaged}, {L".repair-backup-1.0.0.0-1-2", kDamaged}, {L".staging-1.0.0.0-1-2", kDamaged}},
     14},
    {"Restore",
     FromLocalFiles,
     {{L".repair-backup-1.0.0.0-1-2", kDamaged}, {L".repair-backup-1.0.0.0-3-4", kContent}},
     5},
    {"DamagedBackup", FromLocalFiles, {{L".repair-backup-1.0.0.0-1-2", kDamaged}}, 9},
    {"ResidueBesideAValidVersion",
     FromArchive,
     {{L"1.0.0.0", kContent}, {L".repair-backup-1.0.0.0-1-2", kDamaged}, {L".staging-1.0.0.0-1-2", kDamaged}},
     8},
};

INSTANTIATE_TEST_SUITE_P(All, InstallFaults, testing::ValuesIn(kInstallations),
                         [](const auto& instance) { return std::string(instance.param.name); });

// --- Activation

struct ActivationScene {
    ActivationScene() {
        for (const auto* set : {&oldSet, &newSet}) {
            for (const PackageDescriptor& package : *set)
                WritePackageTree(VersionFolder(root, package), kContent);
        }
    }

    TemporaryDirectory folder;
    std::wstring root = folder / L"Runtime";
    std::wstring path = root + L"\\current.json";
    std::vector<PackageDescriptor> oldSet = {DescribePackage(L"core", L"1.0.0.0", kContent)};
    std::vector<PackageDescriptor> newSet = {DescribePackage(L"core", L"2.0.0.0", kContent),
                                             DescribePackage(L"voices", L"1.0.0.0", kContent)};
};

TEST(ActivationFaults, AnyFailingCall_LeavesTheWholeOldOrTheWholeNewState) {
    for (const bool hadState : {true, false}) {
        for (const Fault& fault : kCallFaults) {
            std::uint32_t at = 1;
            for (; at <= kMostCalls; ++at) {
                SCOPED_TRACE(std::string(fault.name) + ", " + std::to_string(at) + (hadState ? ", replacing" : ""));
                const ActivationScene scene;
                const std::string before = hadState ? RenderRuntimeState(scene.oldSet) : std::string();
                if (hadState) WriteWholeFile(scene.path, before);
                std::wstring error;
                bool reached = false;
                bool succeeded = false;
                {
                    MutationFaults faults(fault.kind, at, ERROR_DISK_FULL, fault.fromThenOn);
                    succeeded = ActivatePackageSet(scene.root, scene.newSet, error);
                    reached = faults.Reached();
                }
                EXPECT_NE(succeeded, reached);  // no call of an activation may be lost
                if (succeeded) {
                    EXPECT_EQ(ReadWholeFile(scene.path), RenderRuntimeState(scene.newSet));
                } else {
                    EXPECT_EQ(Utf8(error), Utf8(L"無法原子提交 Runtime/current.json。"));
                    EXPECT_EQ(Exists(scene.path), hadState);
                    EXPECT_EQ(ReadWholeFile(scene.path), before);
                    EXPECT_TRUE(fault.fromThenOn || !Exists(scene.path + L".new"));
                }
                EXPECT_TRUE(ActivatePackageSet(scene.root, scene.newSet, error)) << Utf8(error);
                EXPECT_EQ(ReadWholeFile(scene.path), RenderRuntimeState(scene.newSet));
                EXPECT_EQ(NamesIn(scene.root), (Names{L"current.json", L"packs"}));
                if (!reached) break;
            }
            EXPECT_GT(at, 6u) << "open, write, flush, force out, close and move";
            EXPECT_LT(at, kMostCalls);
        }
    }
}

// --- Pruning

TEST(PruningFaults, AnyFailingCall_NamesItsVersion_AndLeavesTheKeptOnesWhole) {
    for (const Fault& fault : kCallFaults) {
        std::uint32_t at = 1;
        for (; at <= kMostCalls; ++at) {
            SCOPED_TRACE(std::string(fault.name) + ", " + std::to_string(at));
            const TemporaryDirectory folder;
            const std::vector<PackageDescriptor> packages = {DescribePackage(L"core", L"4.0.0.0", kContent)};
            const std::wstring packageRoot = PackageRoot(folder.Path(), packages[0]);
            for (const wchar_t* version : {L"1.0.0.0", L"2.0.0.0", L"3.0.0.0", L"4.0.0.0"})
                WritePackageTree(packageRoot + L"\\" + version, kContent);
            std::wstring error;
            bool reached = false;
            bool succeeded = false;
            {
                MutationFaults faults(fault.kind, at, ERROR_ACCESS_DENIED, fault.fromThenOn);
                succeeded = PruneOldPackageVersions(folder.Path(), packages, error);
                reached = faults.Reached();
            }
            EXPECT_NE(succeeded, reached);
            const bool highestGone = !Exists(packageRoot + L"\\2.0.0.0");
            if (!succeeded) {
                EXPECT_EQ(Utf8(error), Utf8(std::wstring(L"無法清除未使用的舊資源包版本：") +
                                            (highestGone ? L"1.0.0.0" : L"2.0.0.0")));
            }
            EXPECT_TRUE(highestGone || ReadPackageTree(packageRoot + L"\\1.0.0.0") == kContent);
            EXPECT_TRUE(PruneOldPackageVersions(folder.Path(), packages, error)) << Utf8(error);
            EXPECT_EQ(NamesIn(packageRoot), (Names{L"3.0.0.0", L"4.0.0.0"}));
            EXPECT_EQ(ReadPackageTree(packageRoot + L"\\3.0.0.0"), kContent);
            EXPECT_EQ(ReadPackageTree(packageRoot + L"\\4.0.0.0"), kContent);
            if (!reached) break;
        }
        EXPECT_GT(at, 10u) << "three files and two folders in each of two versions";
        EXPECT_LT(at, kMostCalls);
    }
}

}  // namespace
}  // namespace launcher_update
