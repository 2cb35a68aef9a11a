/// Whole runs of the workflow on releases with packages, all from local sources.

#include <windows.h>

#include <bcrypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "launcher/configuration_text.h"
#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/manifest_builder.h"
#include "tests/support/package_fixture.h"
#include "tests/support/stage_report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/packages/runtime_state.h"
#include "update/packages/validation.h"
#include "update/transaction/journal.h"
#include "update/transaction/recovery.h"
#include "update/workflow/apply.h"
#include "update/workflow/check_and_apply.h"
#include "update/workflow/payload_fetch.h"
#include "update/workflow/schedule.h"
#include "update/workflow/update_run.h"

namespace launcher_update {
namespace {

using test_support::AddPatch;
using test_support::Array;
using test_support::BuildArchive;
using test_support::DebuggerTexts;
using test_support::DescribeFile;
using test_support::DescribePackage;
using test_support::FaultKind;
using test_support::FileLength;
using test_support::JsonObject;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::ReadPackageTree;
using test_support::ReadWholeFile;
using test_support::RecordedCall;
using test_support::StageReport;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::TextArray;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using OnTickCount = StandIn<"GetTickCount64", decltype(GetTickCount64)>;

constexpr wchar_t kExecutable[] = L"Velmora Pine Relay/Velmora Pine Relay.exe";
constexpr wchar_t kTheme[] = L"Velmora Pine Relay/Themes/dawn.vprtheme";
constexpr wchar_t kRuntimeDetail[] = L"package:application-runtime";
constexpr wchar_t kModelsDetail[] = L"package:uvr-mdx";

std::wstring DigestOf(const std::string& bytes) {
    return DescribeFile(L"x", bytes).sha256;
}

JsonObject InventoryJson(const PackageFileDescriptor& file) {
    JsonObject element;
    element.SetText(L"path", file.path).SetText(L"sha256", file.sha256).SetNumber(L"size", file.size);
    return element;
}

/// An installation of version 1.0.0.0 and a release 1.1.0.0 with one changed file and two packages, of which the first
/// can be patched and the second must be fetched whole.
class PackageWorkflow : public testing::Test {
  protected:
    PackageWorkflow() {
        launcher_shell::LauncherConfiguration configuration;
        configuration.productVersion = L"1.0.0.0";
        configuration.launcherVersion = L"1.0.0.0";
        WriteWholeFile(Root() + L"\\current.json",
                       platform::EncodeUtf8(launcher_shell::RenderLauncherConfiguration(configuration)));
        WritePackageTree(Root(), {{kExecutable, "old executable"}});
        ReleaseFile(kExecutable, L"application", "new executable, longer");

        settings.productVersion = L"1.0.0.0";
        settings.launcherVersion = L"1.0.0.0";
        settings.applicationDirectory = L"Velmora Pine Relay";
        settings.onStage = [this](Stage stage, const std::wstring& detail, std::uint64_t completed,
                                  std::uint64_t total) {
            reports.push_back({stage, detail, completed, total});
            if (onStageHook) onStageHook(reports.back());
        };
        settings.shouldCancel = [this] {
            asks.push_back(reports.empty() ? StageReport{} : reports.back());
            return cancel || asks.size() == cancelAtAsk;
        };
        settings.promptForUpdate = [](const std::wstring&, const ReleaseNotes&) {
            ADD_FAILURE() << "nobody may be asked";
            return false;
        };
        settings.onFileApplied = [this](std::uint64_t count) { applied.push_back(count); };
    }

    std::wstring Root() const { return rootFolder.Path(); }
    std::wstring Application() const { return Root() + L"\\Velmora Pine Relay"; }
    std::wstring Runtime() const { return Application() + L"\\Runtime"; }
    std::wstring Control() const { return ControlDirectory(Root()); }
    std::wstring RecordPath() const { return Control() + L"\\verified-inventory-v1.txt"; }
    std::wstring ManifestPath() const { return sourceFolder / L"stable.json"; }
    std::wstring Folder(const std::wstring& id, const std::wstring& version) const {
        return Runtime() + L"\\packs\\" + id + L"\\" + version;
    }

    void ReleaseFile(const std::wstring& path, const std::wstring& component, const std::string& bytes) {
        const std::wstring source = sourceFolder / (L"file-" + std::to_wstring(files.size()));
        WriteWholeFile(source, bytes);
        JsonObject file;
        file.SetText(L"component", component).SetText(L"path", path).SetText(L"url", source);
        file.SetText(L"sha256", DigestOf(bytes)).SetNumber(L"size", bytes.size());
        files.push_back(file);
        newFiles[path] = bytes;
    }

    /// The packages as the launcher manages them, active, with the support files copied out.
    void InstallManaged(const std::vector<PackageDescriptor>& packages, const PackageContent& runtime,
                        const PackageContent& models) {
        WritePackageTree(Folder(L"application-runtime", packages[0].version), runtime);
        WritePackageTree(Folder(L"uvr-mdx", packages[1].version), models);
        WritePackageTree(Application(), SupportFilesOf(runtime));
        WriteWholeFile(Runtime() + L"\\current.json", RenderRuntimeState(packages));
    }
    void InstallManagedOld() {
        InstallManaged(oldPackages, oldRuntime, oldModels);
        oldTree = Visible();
    }
    /// Everything of the release, so that the same version has nothing to do.
    void InstallManagedNew() {
        InstallManaged(newPackages, newRuntime, newModels);
        WritePackageTree(Root(), newFiles);
        settings.productVersion = L"1.1.0.0";
        oldTree = Visible();
    }
    void InstallPortable(const PackageContent& runtime, const PackageContent& models) {
        WritePackageTree(Application(), runtime);
        WritePackageTree(Application() + L"\\uvr-mdx", models);
        oldTree = Visible();
    }
    static PackageContent SupportFilesOf(const PackageContent& runtime) {
        return {{L"VPRAsioProbe.exe", runtime.at(L"VPRAsioProbe.exe")},
                {L"Licenses/GPL-3.0.txt", runtime.at(L"Licenses/GPL-3.0.txt")}};
    }

    /// Writes archives and manifest.
    void Publish() {
        const std::string patch = BuildArchive(patchContent);
        const std::string runtime = BuildArchive(newRuntime);
        const std::string models = BuildArchive(newModels);
        WriteWholeFile(sourceFolder / L"patch.vprpack", patch);
        WriteWholeFile(sourceFolder / L"runtime.vprpack", runtime);
        WriteWholeFile(sourceFolder / L"models.vprpack", models);
        patchBytes = patch.size();
        runtimeBytes = runtime.size();
        modelsBytes = models.size();
        JsonObject patchElement;
        patchElement.SetText(L"baseVersion", L"1.0.0.0").SetText(L"url", sourceFolder / L"patch.vprpack");
        patchElement.SetText(L"sha256", DigestOf(patch)).SetNumber(L"size", patchBytes);
        std::vector<std::wstring> names;
        for (const auto& file : patchContent)
            names.push_back(file.first);
        patchElement.Set(L"files", TextArray(names));
        std::vector<JsonObject> elements = {PackageJson(newPackages[0], L"runtime.vprpack", runtime),
                                            PackageJson(newPackages[1], L"models.vprpack", models)};
        elements[0].Set(L"patch", patchElement);
        manifest.Set(L"files", Array(files)).Set(L"packages", Array(elements));
        WriteWholeFile(ManifestPath(), platform::EncodeUtf8(manifest.Text()));
    }
    JsonObject PackageJson(const PackageDescriptor& package, const wchar_t* archive, const std::string& bytes) const {
        std::vector<JsonObject> inventory;
        for (const PackageFileDescriptor& file : package.inventory)
            inventory.push_back(InventoryJson(file));
        JsonObject element;
        element.SetText(L"id", package.id).SetText(L"version", package.version);
        element.SetText(L"url", sourceFolder / archive).SetText(L"sha256", DigestOf(bytes));
        element.SetNumber(L"size", bytes.size()).Set(L"requiredForStartup", L"true");
        return element.SetText(L"capability", package.capability).Set(L"files", Array(inventory));
    }

    const Result& Run() {
        Publish();
        return RunAgain();
    }
    const Result& RunAgain() {
        reports.clear();
        asks.clear();
        applied.clear();
        result = CheckAndApply(Root(), settings, false, true, ManifestPath());
        return result;
    }

    /// All that the application sees: not the package folders, of which only the named ones count, and not what the
    /// launcher remembers.
    PackageContent Visible() const {
        PackageContent tree = ReadPackageTree(Root());
        std::erase_if(tree, [](const auto& file) {
            return file.first == L"update-state.json" || file.first == L".vpr-update/release-watermark.txt" ||
                   file.first == L".vpr-update/verified-inventory-v1.txt" ||
                   file.first.starts_with(L"Velmora Pine Relay/Runtime/packs/");
        });
        return tree;
    }
    PackageContent NewTree() const {
        PackageContent tree = oldTree;
        for (const auto& [path, bytes] : newFiles)
            tree[path] = bytes;
        for (const auto& [path, bytes] : SupportFilesOf(newRuntime))
            tree[L"Velmora Pine Relay/" + path] = bytes;
        tree[L"Velmora Pine Relay/Runtime/current.json"] = RenderRuntimeState(newPackages);
        std::string& text = tree[L"current.json"];
        const std::size_t at = text.find("\"1.0.0.0\"");
        if (at != std::string::npos) text.replace(at, 9, "\"1.1.0.0\"");
        return tree;
    }
    bool IsWhole(const std::vector<PackageDescriptor>& packages) const {
        return PackageSetIsActive(Runtime(), packages);
    }
    bool NoRunFolders() const {
        std::vector<DirectoryEntry> entries;
        return !ListDirectory(Control(), entries) ||
               std::none_of(entries.begin(), entries.end(), [](const DirectoryEntry& entry) {
                   return entry.name.starts_with(L"staging-") || entry.name.starts_with(L"backup-");
               });
    }
    bool StateWritten() const { return FileLength(UpdateStatePath(Root())) >= 0; }

    void ExpectApplied() {
        ASSERT_EQ(result.outcome, Outcome::Applied) << platform::EncodeUtf8(result.error);
        EXPECT_TRUE(result.safeToLaunch);
        EXPECT_EQ(result.error, L"");
        EXPECT_EQ(Visible(), NewTree());
        EXPECT_TRUE(IsWhole(newPackages));
        EXPECT_TRUE(NoRunFolders());
        EXPECT_TRUE(StateWritten());
    }
    /// What every failure leaves: nothing has changed and the installed version may start.
    void ExpectFailedAsItWas(const std::wstring& error) {
        EXPECT_EQ(result.outcome, Outcome::Failed);
        EXPECT_TRUE(result.safeToLaunch);
        EXPECT_EQ(result.error, error);
        EXPECT_EQ(reports.back(), (StageReport{Stage::Failed, error, 0, 0}));
        EXPECT_EQ(Visible(), oldTree);
        EXPECT_TRUE(NoRunFolders());
        EXPECT_FALSE(StateWritten());
    }
    std::size_t CountStage(Stage stage) const {
        return static_cast<std::size_t>(std::count_if(reports.begin(), reports.end(),
                                                      [stage](const auto& report) { return report.stage == stage; }));
    }
    /// The details of all payloads that were begun, in order.
    std::vector<std::wstring> Fetched() const {
        std::vector<std::wstring> details;
        for (const StageReport& report : reports) {
            if (report.stage == Stage::Downloading && (details.empty() || details.back() != report.detail))
                details.push_back(report.detail);
        }
        return details;
    }
    StageReport Report(Stage stage) const {
        const auto found =
            std::find_if(reports.begin(), reports.end(), [stage](const auto& report) { return report.stage == stage; });
        return found == reports.end() ? StageReport{} : *found;
    }
    std::uint64_t ReleaseBytes() const {
        std::uint64_t total = 0;
        for (const auto& content : {newRuntime, newModels, newFiles}) {
            for (const auto& file : content)
                total += file.second.size();
        }
        return total;
    }
    std::uint64_t FileBytes() const { return newFiles.at(kExecutable).size(); }

    TemporaryDirectory rootFolder;
    TemporaryDirectory sourceFolder;
    PackageContent oldRuntime{{L"VPRAsioProbe.exe", "old probe"},
                              {L"Licenses/GPL-3.0.txt", "old licence"},
                              {L"lib/core.dll", "old core"},
                              {L"lib/same.dll", "the same"}};
    PackageContent newRuntime{{L"VPRAsioProbe.exe", "new probe, longer"},
                              {L"Licenses/GPL-3.0.txt", "new licence, longer"},
                              {L"lib/core.dll", "new core, longer"},
                              {L"lib/same.dll", "the same"}};
    PackageContent patchContent{{L"VPRAsioProbe.exe", "new probe, longer"},
                                {L"Licenses/GPL-3.0.txt", "new licence, longer"},
                                {L"lib/core.dll", "new core, longer"}};
    PackageContent oldModels{{L"one.onnx", "old model"}};
    PackageContent newModels{{L"one.onnx", "new model"}, {L"two.onnx", "one more model"}};
    std::vector<PackageDescriptor> oldPackages{DescribePackage(L"application-runtime", L"1.0.0.0", oldRuntime),
                                               DescribePackage(L"uvr-mdx", L"1.0.0.0", oldModels)};
    std::vector<PackageDescriptor> newPackages{DescribePackage(L"application-runtime", L"1.1.0.0", newRuntime),
                                               DescribePackage(L"uvr-mdx", L"2.0.0.0", newModels)};
    JsonObject manifest = JsonObject()
                              .SetNumber(L"schemaVersion", 1)
                              .SetText(L"version", L"1.1.0.0")
                              .SetText(L"minimumLauncherVersion", L"1.0.0.0");
    std::vector<JsonObject> files;
    PackageContent newFiles;
    std::uint64_t patchBytes = 0;
    std::uint64_t runtimeBytes = 0;
    std::uint64_t modelsBytes = 0;
    Settings settings;
    bool cancel = false;
    std::size_t cancelAtAsk = 0;
    std::function<void(const StageReport&)> onStageHook;
    std::vector<StageReport> reports;
    std::vector<StageReport> asks;  // the last report before each question whether to cancel
    std::vector<std::uint64_t> applied;
    Result result;
    PackageContent oldTree;
};

TEST_F(PackageWorkflow, NewerRelease_IsAppliedWhole) {
    InstallManagedOld();
    Run();
    ExpectApplied();
    EXPECT_EQ(applied, (std::vector<std::uint64_t>{1, 2, 3})) << "the file, then both support files";
    EXPECT_TRUE(IsWhole(newPackages));
    EXPECT_EQ(ReadPackageTree(Folder(L"application-runtime", L"1.0.0.0")), oldRuntime) << "one step back is kept";
}

TEST_F(PackageWorkflow, NewerRelease_ReportsItsStagesInOrder) {
    InstallManagedOld();
    const OnTickCount still([] { return 1000ull; });  // no report of a slow hash comes in between
    Run();
    const std::uint64_t hashed = ReleaseBytes();
    const std::uint64_t packages = patchBytes + modelsBytes;
    const std::uint64_t total = packages + FileBytes();
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Checking, L"", 0, 0},
                                                 {Stage::VerifyingFiles, L"", 0, hashed},
                                                 {Stage::VerifyingFiles, L"", hashed, hashed},
                                                 {Stage::UpdateAvailable, L"1.1.0.0", 0, 0},
                                                 {Stage::Downloading, kRuntimeDetail, 0, 2},
                                                 {Stage::DownloadingBytes, kRuntimeDetail, patchBytes, total},
                                                 {Stage::Verifying, kRuntimeDetail, patchBytes, total},
                                                 {Stage::Downloading, kModelsDetail, 1, 2},
                                                 {Stage::DownloadingBytes, kModelsDetail, packages, total},
                                                 {Stage::Verifying, kModelsDetail, packages, total},
                                                 {Stage::Downloading, kExecutable, 0, 1},
                                                 {Stage::DownloadingBytes, kExecutable, total, total},
                                                 {Stage::Verifying, kExecutable, total, total},
                                                 {Stage::Downloading, kExecutable, 1, 1},
                                                 {Stage::Installing, L"1.1.0.0", 0, 0},
                                                 {Stage::Completed, L"1.1.0.0", 1, 1}}));
}

TEST_F(PackageWorkflow, WithoutABase_TheFullPackageIsFetchedAndCounted) {
    InstallManagedOld();
    WriteWholeFile(Folder(L"application-runtime", L"1.0.0.0") + L"\\lib\\same.dll", "the eman");
    Run();
    ExpectApplied();
    const std::uint64_t total = runtimeBytes + modelsBytes + FileBytes();
    EXPECT_EQ(Report(Stage::DownloadingBytes),
              (StageReport{Stage::DownloadingBytes, kRuntimeDetail, runtimeBytes, total}));
}

TEST_F(PackageWorkflow, ValidVersionFolder_TakesNoStep) {
    InstallManagedOld();
    WritePackageTree(Folder(L"uvr-mdx", L"2.0.0.0"), newModels);
    Run();
    ExpectApplied();
    EXPECT_EQ(Fetched(), (std::vector<std::wstring>{kRuntimeDetail, kExecutable}));
    EXPECT_EQ(Report(Stage::DownloadingBytes).total, patchBytes + FileBytes());
    EXPECT_TRUE(std::none_of(reports.begin(), reports.end(),
                             [](const auto& report) { return report.detail == kModelsDetail; }));
}

TEST_F(PackageWorkflow, PortablePackageOfThisVersion_IsCopiedWithoutADownload) {
    InstallPortable(oldRuntime, newModels);
    const OnTickCount still([] { return 1000ull; });
    Run();
    ExpectApplied();
    const std::uint64_t total = patchBytes + FileBytes();
    EXPECT_EQ(Fetched(), (std::vector<std::wstring>{kRuntimeDetail, kExecutable}));
    const auto copy =
        std::find_if(reports.begin(), reports.end(), [](const auto& report) { return report.detail == kModelsDetail; });
    ASSERT_NE(copy, reports.end());
    EXPECT_EQ(*copy, (StageReport{Stage::Verifying, kModelsDetail, patchBytes, total}));
    EXPECT_EQ(*(copy + 1), (StageReport{Stage::Downloading, kExecutable, 0, 1}));
    EXPECT_EQ(ReadPackageTree(Folder(L"uvr-mdx", L"2.0.0.0")), newModels);
}

TEST_F(PackageWorkflow, PortableBase_IsPatched) {
    InstallPortable(oldRuntime, oldModels);
    Run();
    ExpectApplied();
    EXPECT_EQ(Report(Stage::DownloadingBytes), (StageReport{Stage::DownloadingBytes, kRuntimeDetail, patchBytes,
                                                            patchBytes + modelsBytes + FileBytes()}));
    EXPECT_EQ(ReadPackageTree(Folder(L"application-runtime", L"1.1.0.0")), newRuntime);
}

TEST_F(PackageWorkflow, PortableSetOfThisRelease_StaysPortable) {
    InstallPortable(newRuntime, newModels);
    Run();
    ASSERT_EQ(result.outcome, Outcome::Applied);
    EXPECT_EQ(Fetched(), (std::vector<std::wstring>{kExecutable}));
    EXPECT_EQ(FileLength(Runtime() + L"\\current.json"), -1);
    EXPECT_EQ(ReadWholeFile(Application() + L"\\Velmora Pine Relay.exe"), "new executable, longer");
}

TEST_F(PackageWorkflow, StagedPayloads_LieInTheFolderOfTheRun) {
    InstallManagedOld();
    const OnTickCount still([] { return 1000ull; });
    const std::wstring suffix = L"-" + std::to_wstring(GetCurrentProcessId()) + L"-1000";
    const std::wstring staging = Control() + L"\\staging-1.1.0.0" + suffix;
    PackageContent staged;
    long long backup = 0;
    onStageHook = [&](const StageReport& report) {
        if (report.stage != Stage::Installing) return;
        staged = ReadPackageTree(staging);
        backup = FileLength(Control() + L"\\backup-1.0.0.0" + suffix + L"\\current.json");
    };
    Run();
    EXPECT_EQ(staged, (PackageContent{
                          {L"packages/application-runtime-1.1.0.0.zip", ReadWholeFile(sourceFolder / L"patch.vprpack")},
                          {L"packages/uvr-mdx-2.0.0.0.zip", ReadWholeFile(sourceFolder / L"models.vprpack")},
                          {kExecutable, "new executable, longer"}}));
    EXPECT_GT(backup, 0);
    EXPECT_TRUE(NoRunFolders());
}

TEST_F(PackageWorkflow, CancelIsAskedForAtEachNamedPoint) {
    InstallManagedOld();
    const OnTickCount still([] { return 1000ull; });
    Run();
    const auto asked = [this](const StageReport& last) { return std::count(asks.begin(), asks.end(), last); };
    const std::uint64_t packages = patchBytes + modelsBytes;
    const std::uint64_t total = packages + FileBytes();
    EXPECT_EQ(asked({Stage::UpdateAvailable, L"1.1.0.0", 0, 0}), 3) << "before each plan, before the first package";
    EXPECT_EQ(asked({Stage::Verifying, kRuntimeDetail, patchBytes, total}), 4)
        << "behind the report, the archive and the size; before the next package";
    EXPECT_EQ(asked({Stage::Verifying, kModelsDetail, packages, total}), 4)
        << "behind the report, the archive and the size; before the first file";
    EXPECT_EQ(asked({Stage::Verifying, kExecutable, total, total}), 1);
    EXPECT_EQ(asked({Stage::Downloading, kExecutable, 1, 1}), 1) << "one last time";
    EXPECT_EQ(asked({Stage::Installing, L"1.1.0.0", 0, 0}), 0);
    EXPECT_EQ(asks.back(), (StageReport{Stage::Downloading, kExecutable, 1, 1}));
}

TEST_F(PackageWorkflow, CancelWhereverItIsAskedFor_LeavesTheOldTree) {
    InstallManagedOld();
    Publish();
    std::size_t cancelled = 0;
    for (cancelAtAsk = 1;; ++cancelAtAsk) {
        ASSERT_TRUE(RemoveTree(Runtime() + L"\\packs\\application-runtime\\1.1.0.0"));
        ASSERT_TRUE(RemoveTree(Runtime() + L"\\packs\\uvr-mdx\\2.0.0.0"));
        DeleteFileW(UpdateStatePath(Root()).c_str());
        // Who has said yes once goes on saying it.
        cancel = false;
        settings.shouldCancel = [this] {
            asks.push_back(reports.back());
            return cancel = cancel || asks.size() == cancelAtAsk;
        };
        RunAgain();
        if (asks.size() < cancelAtAsk) break;
        ++cancelled;
        EXPECT_EQ(result.outcome, Outcome::Cancelled) << cancelAtAsk;
        EXPECT_EQ(result.error, L"") << cancelAtAsk;
        EXPECT_TRUE(result.safeToLaunch) << cancelAtAsk;
        const bool whileReading = asks.back().stage == Stage::Checking;
        EXPECT_EQ(reports.back(), (StageReport{Stage::Cancelled, whileReading ? L"" : L"1.1.0.0", 0, 0}))
            << cancelAtAsk;
        EXPECT_EQ(StateWritten(), !whileReading) << cancelAtAsk;
        EXPECT_EQ(Visible(), oldTree) << cancelAtAsk;
        EXPECT_TRUE(IsWhole(oldPackages)) << cancelAtAsk;
        EXPECT_TRUE(NoRunFolders()) << cancelAtAsk;
    }
    EXPECT_EQ(result.outcome, Outcome::Applied);
    EXPECT_GT(cancelled, 13u);
}

TEST_F(PackageWorkflow, PackageThatIsNotWhatWasPromised_LeavesEverythingAsItWas) {
    InstallManagedOld();
    Publish();
    const std::wstring archive = sourceFolder / L"models.vprpack";
    const std::string sound = ReadWholeFile(archive);
    std::string other = sound;
    other.back() = static_cast<char>(other.back() ^ 1);
    struct Row {
        std::string bytes;
        const wchar_t* message;
    };
    for (const Row& row :
         {Row{other, L"資源包的 SHA-256 驗證失敗。"}, Row{sound.substr(1), L"資源包大小不符或無法寫入隔離暫存區。"},
          Row{sound + "x", L"無法讀取本機測試更新檔。"}}) {
        WriteWholeFile(archive, row.bytes);
        RunAgain();
        ExpectFailedAsItWas(row.message);
        EXPECT_EQ(FileLength(Folder(L"uvr-mdx", L"2.0.0.0")), -1);
        EXPECT_TRUE(IsWhole(oldPackages));
    }
    WriteWholeFile(archive, sound);
    RunAgain();
    ExpectApplied();
}

TEST_F(PackageWorkflow, ArchiveThatDisagreesWithItsInventory_LeavesEverythingAsItWas) {
    InstallManagedOld();
    const PackageContent other{{L"one.onnx", "new model"}, {L"two.onnx", "two more models"}};
    PackageContent listed = newModels;
    newModels = other;  // the archive is made of these
    Run();
    ExpectFailedAsItWas(L"資源包 ZIP 項目的解壓大小與 inventory 不符。");
    newModels = {{L"one.onnx", "new model"}, {L"two.onnx", "eno more model"}};
    Run();
    ExpectFailedAsItWas(L"資源包 payload 驗證失敗：two.onnx");
    newModels = listed;
    Run();
    ExpectApplied();
}

TEST_F(PackageWorkflow, PackageThatCannotBeInstalled_LeavesEverythingAsItWas) {
    struct Row {
        const char* function;
        const wchar_t* path;
        const wchar_t* message;
    };
    for (const Row& row :
         {Row{"CreateDirectoryW", L".staging-2.0.0.0-", L"無法建立資源包版本暫存資料夾。"},
          Row{"CreateDirectoryW", L".staging-1.1.0.0-", L"無法建立資源包版本暫存資料夾。"},
          Row{"MoveFileExW", L"two.onnx.new", L"無法安全寫入資源包 payload：two.onnx"},
          Row{"CopyFileW", L"1.0.0.0\\lib\\same.dll", L"無法安全寫入資源包 payload：lib/same.dll"},
          Row{"MoveFileExW", L"\\.staging-2.0.0.0-", L"無法安全寫入資源包 payload：one.onnx"},
          Row{"CreateFileW", L"uvr-mdx-2.0.0.0.zip", L"資源包大小不符或無法寫入隔離暫存區。"},
          Row{"MoveFileExW", L"transaction.json.tmp", L"無法寫入可持久化的更新交易紀錄。"},
          Row{"CopyFileW", L"Velmora Pine Relay\\VPRAsioProbe.exe", L"無法建立可持久化的更新回復備份。"}}) {
        ASSERT_TRUE(RemoveTree(Runtime()));
        InstallManagedOld();
        Publish();
        {
            MutationFaults faults(FaultKind::fail, 1);
            faults.CountOnly(row.function, row.path);
            RunAgain();
            EXPECT_TRUE(faults.Reached()) << platform::EncodeUtf8(row.path);
        }
        ExpectFailedAsItWas(row.message);
        EXPECT_TRUE(IsWhole(oldPackages)) << platform::EncodeUtf8(row.path);
    }
}

TEST_F(PackageWorkflow, LocalCopyThatFails_LeavesEverythingAsItWas) {
    InstallPortable(oldRuntime, newModels);
    Publish();
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("CopyFileW", L"Velmora Pine Relay\\uvr-mdx\\two.onnx");
    RunAgain();
    EXPECT_TRUE(faults.Reached());
    ExpectFailedAsItWas(L"無法安全寫入資源包 payload：two.onnx");
}

TEST_F(PackageWorkflow, FailureBehindTheJournal_IsRolledBackWhole) {
    struct Row {
        const char* function;
        const wchar_t* path;
        const wchar_t* message;
    };
    for (const Row& row : {Row{"CopyFileW", L"1.1.0.0\\VPRAsioProbe.exe",
                               L"無法複製應用程式支援檔案：VPRAsioProbe.exe（Windows 錯誤 32）"},
                           Row{"FlushFileBuffers", L"VPRAsioProbe.exe.update-new",
                               L"無法同步應用程式支援檔案：VPRAsioProbe.exe（Windows 錯誤 32）"},
                           Row{"MoveFileExW", L"VPRAsioProbe.exe.update-new",
                               L"無法提交應用程式支援檔案：VPRAsioProbe.exe（Windows 錯誤 32）"},
                           Row{"MoveFileExW", L"Runtime\\current.json.new", L"無法原子提交 Runtime/current.json。"},
                           Row{"MoveFileExW", L"\\current.json.tmp", L"無法寫入目前版本。"},
                           Row{"MoveFileExW", L"\\transaction.json", L"無法提交更新交易；將回復更新前版本。"}}) {
        ASSERT_TRUE(RemoveTree(Runtime()));
        InstallManagedOld();
        Publish();
        {
            // The journal's own rename, of its sibling, comes before the commit and contains its name.
            const std::uint32_t at = std::wstring_view(row.path) == L"\\transaction.json" ? 2 : 1;
            MutationFaults faults(FaultKind::fail, at, ERROR_SHARING_VIOLATION);
            faults.CountOnly(row.function, row.path);
            RunAgain();
            EXPECT_TRUE(faults.Reached()) << platform::EncodeUtf8(row.path);
        }
        ExpectFailedAsItWas(row.message + std::wstring(L" 已安全回復更新前版本。"));
        EXPECT_TRUE(IsWhole(oldPackages)) << platform::EncodeUtf8(row.path);
    }
}

TEST_F(PackageWorkflow, RollbackThatCannotFinish_ForbidsTheStartUntilItCan) {
    InstallManagedOld();
    Publish();
    {
        MutationFaults faults(FaultKind::fail, 1, ERROR_SHARING_VIOLATION, true);
        faults.CountOnly("MoveFileExW", L"Velmora Pine Relay\\VPRAsioProbe.exe");
        RunAgain();
    }
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_FALSE(result.safeToLaunch);
    EXPECT_EQ(result.error,
              L"無法提交應用程式支援檔案：VPRAsioProbe.exe（Windows 錯誤 32） "
              L"回復尚未完成；備份已保留且本次不應啟動主程式：無法完整回復上一次中斷的更新；備份已保留。");
    EXPECT_EQ(reports.back(), (StageReport{Stage::Failed, result.error, 0, 0}));
    EXPECT_FALSE(NoRunFolders());
    std::wstring error;
    EXPECT_TRUE(PrepareUpdateFolder(Root(), error)) << platform::EncodeUtf8(error);
    EXPECT_EQ(Visible(), oldTree);
    EXPECT_TRUE(IsWhole(oldPackages));
    EXPECT_TRUE(NoRunFolders());
}

TEST_F(PackageWorkflow, RolledBackPortableInstallation_HasNoStateAgain) {
    InstallPortable(oldRuntime, oldModels);
    Publish();
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"\\current.json.tmp");
    RunAgain();
    ExpectFailedAsItWas(L"無法寫入目前版本。 已安全回復更新前版本。");
    EXPECT_EQ(FileLength(Runtime() + L"\\current.json"), -1);
    EXPECT_EQ(ReadWholeFile(Application() + L"\\VPRAsioProbe.exe"), "old probe");
}

TEST_F(PackageWorkflow, Transaction_NamesItsTargetsInOrder) {
    InstallManagedOld();
    TransactionTargets targets;
    std::wstring backup;
    onStageHook = [&](const StageReport& report) {
        std::wstring error;
        if (report.stage != Stage::Installing) return;
        EXPECT_TRUE(ReadTransactionJournal(JournalPath(Control()), backup, targets, error));
    };
    Run();
    std::vector<std::wstring> paths;
    for (const TransactionTarget& target : targets) {
        EXPECT_TRUE(target.hadOriginal);
        paths.push_back(target.path);
    }
    EXPECT_EQ(paths, (std::vector<std::wstring>{L"Velmora Pine Relay\\Velmora Pine Relay.exe",
                                                L"Velmora Pine Relay\\Licenses\\GPL-3.0.txt",
                                                L"Velmora Pine Relay\\VPRAsioProbe.exe",
                                                L"Velmora Pine Relay\\Runtime\\current.json", L"current.json"}));
    EXPECT_TRUE(backup.starts_with(L"backup-1.0.0.0-" + std::to_wstring(GetCurrentProcessId()) + L"-"));
}

TEST_F(PackageWorkflow, TransactionWithoutPackages_DoesNotNameTheirTargets) {
    InstallManagedNew();
    WritePackageTree(Root(), {{kExecutable, "damaged"}});
    std::vector<std::wstring> paths;
    onStageHook = [&](const StageReport& report) {
        TransactionTargets targets;
        std::wstring backup;
        std::wstring error;
        if (report.stage != Stage::Installing) return;
        EXPECT_TRUE(ReadTransactionJournal(JournalPath(Control()), backup, targets, error));
        for (const TransactionTarget& target : targets)
            paths.push_back(target.path);
    };
    Run();
    ExpectApplied();
    EXPECT_EQ(paths, (std::vector<std::wstring>{L"Velmora Pine Relay\\Velmora Pine Relay.exe", L"current.json"}));
    EXPECT_EQ(applied, (std::vector<std::uint64_t>{1}));
}

TEST_F(PackageWorkflow, TreeChangesInOrder) {
    InstallManagedOld();
    Publish();
    MutationFaults faults;
    RunAgain();
    std::vector<std::wstring> renamed;
    for (const RecordedCall& call : faults.Calls()) {
        const std::wstring_view target = call.second;
        if (call.function != "MoveFileExW") continue;
        for (const wchar_t* ending : {L"\\uvr-mdx\\2.0.0.0", L"\\application-runtime\\1.1.0.0", L"\\transaction.json",
                                      L"Velmora Pine Relay.exe", L"Velmora Pine Relay\\Licenses\\GPL-3.0.txt",
                                      L"Velmora Pine Relay\\VPRAsioProbe.exe", L"\\Runtime\\current.json",
                                      L"\\transaction-committed.json", L"\\update-state.json"}) {
            if (target.ends_with(ending)) renamed.emplace_back(ending);
        }
        if (target.ends_with(Root() + L"\\current.json")) renamed.emplace_back(L"current.json");
    }
    EXPECT_EQ(renamed, (std::vector<std::wstring>{
                           L"\\application-runtime\\1.1.0.0", L"\\uvr-mdx\\2.0.0.0", L"\\transaction.json",
                           L"Velmora Pine Relay.exe", L"Velmora Pine Relay\\Licenses\\GPL-3.0.txt",
                           L"Velmora Pine Relay\\VPRAsioProbe.exe", L"\\Runtime\\current.json", L"current.json",
                           L"\\transaction-committed.json", L"\\update-state.json"}));
}

TEST_F(PackageWorkflow, OldVersions_ArePrunedBehindTheCommit) {
    WritePackageTree(Folder(L"uvr-mdx", L"0.9.0.0"), {{L"older", ""}});
    WritePackageTree(Folder(L"uvr-mdx", L"0.10.0.0"), {{L"old", ""}});
    InstallManagedOld();
    Run();
    ExpectApplied();
    EXPECT_EQ(FileLength(Folder(L"uvr-mdx", L"0.9.0.0") + L"\\older"), -1);
    EXPECT_EQ(FileLength(Folder(L"uvr-mdx", L"0.10.0.0") + L"\\old"), -1);
    EXPECT_EQ(ReadPackageTree(Folder(L"uvr-mdx", L"1.0.0.0")), oldModels);
}

TEST_F(PackageWorkflow, OldVersions_StayWhenTheCommitFails) {
    WritePackageTree(Folder(L"uvr-mdx", L"0.9.0.0"), {{L"older", ""}});
    InstallManagedOld();
    Publish();
    MutationFaults faults(FaultKind::fail, 2);  // the first is the journal's own rename
    faults.CountOnly("MoveFileExW", L"\\transaction.json");
    RunAgain();
    ExpectFailedAsItWas(L"無法提交更新交易；將回復更新前版本。 已安全回復更新前版本。");
    EXPECT_EQ(FileLength(Folder(L"uvr-mdx", L"0.9.0.0") + L"\\older"), 0);
}

TEST_F(PackageWorkflow, OldVersions_ArePrunedWhenOnlyFilesChangedToo) {
    WritePackageTree(Folder(L"uvr-mdx", L"0.9.0.0"), {{L"older", ""}});
    WritePackageTree(Folder(L"uvr-mdx", L"0.10.0.0"), {{L"old", ""}});
    InstallManagedNew();
    WritePackageTree(Root(), {{kExecutable, "damaged"}});
    Run();
    ExpectApplied();
    EXPECT_EQ(FileLength(Folder(L"uvr-mdx", L"0.9.0.0") + L"\\older"), -1);
    EXPECT_EQ(FileLength(Folder(L"uvr-mdx", L"0.10.0.0") + L"\\old"), 0);
}

TEST_F(PackageWorkflow, PruningThatFails_IsToldToTheDebuggerAlone) {
    WritePackageTree(Folder(L"uvr-mdx", L"0.9.0.0"), {{L"older", ""}});
    InstallManagedOld();
    Publish();
    const DebuggerTexts debugger;
    {
        MutationFaults faults(FaultKind::fail, 1, ERROR_SHARING_VIOLATION, true);
        faults.CountOnly("DeleteFileW", L"0.9.0.0\\older");
        RunAgain();
        EXPECT_TRUE(faults.Reached());
    }
    ExpectApplied();
    EXPECT_EQ(
        debugger.Texts(),
        (std::vector<std::wstring>{L"Velmora Pine Relay package cleanup: 無法清除未使用的舊資源包版本：0.9.0.0\n"}));
    EXPECT_EQ(reports.back(), (StageReport{Stage::Completed, L"1.1.0.0", 1, 1}));
}

TEST_F(PackageWorkflow, DamagedPackage_IsRepairedAlone) {
    InstallManagedNew();
    WriteWholeFile(Folder(L"uvr-mdx", L"2.0.0.0") + L"\\two.onnx", "damaged");
    Run();
    ExpectApplied();
    EXPECT_EQ(Report(Stage::Repairing), (StageReport{Stage::Repairing, L"1.1.0.0", 0, 0}));
    EXPECT_EQ(CountStage(Stage::UpdateAvailable), 0u);
    EXPECT_EQ(Fetched(), (std::vector<std::wstring>{kModelsDetail}));
    EXPECT_EQ(Report(Stage::Downloading), (StageReport{Stage::Downloading, kModelsDetail, 1, 2}));
    EXPECT_EQ(Report(Stage::DownloadingBytes),
              (StageReport{Stage::DownloadingBytes, kModelsDetail, modelsBytes, modelsBytes}));
    EXPECT_EQ(reports.back(), (StageReport{Stage::Completed, L"1.1.0.0", 0, 0}));
    EXPECT_TRUE(applied.empty()) << "no support file differed";
}

TEST_F(PackageWorkflow, DamagedSupportFile_IsRepairedWithoutADownload) {
    InstallManagedNew();
    WriteWholeFile(Application() + L"\\VPRAsioProbe.exe", "damaged");
    Run();
    ASSERT_EQ(result.outcome, Outcome::Applied) << platform::EncodeUtf8(result.error);
    EXPECT_EQ(ReadWholeFile(Application() + L"\\VPRAsioProbe.exe"), "new probe, longer");
    EXPECT_EQ(applied, (std::vector<std::uint64_t>{1}));
    EXPECT_EQ(CountStage(Stage::Repairing), 1u);
    for (const Stage stage : {Stage::Downloading, Stage::DownloadingBytes, Stage::Verifying})
        EXPECT_EQ(CountStage(stage), 0u) << static_cast<unsigned>(stage);
}

TEST_F(PackageWorkflow, DamagedState_IsWrittenAnewWithoutADownload) {
    InstallManagedNew();
    WriteWholeFile(Runtime() + L"\\current.json", "{}");
    Run();
    ExpectApplied();
    EXPECT_TRUE(Fetched().empty());
    EXPECT_TRUE(applied.empty());
}

TEST_F(PackageWorkflow, SecondRunAfterAnUpdate_VerifiesAndRemembers) {
    InstallManagedOld();
    Run();
    EXPECT_EQ(FileLength(RecordPath()), -1);
    settings.productVersion = L"1.1.0.0";
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_GE(CountStage(Stage::VerifyingFiles), 2u);
    EXPECT_NE(ReadWholeFile(RecordPath()).find("\nlayout=activated\n"), std::string::npos);
    ASSERT_TRUE(DeleteFileW(UpdateStatePath(Root()).c_str()));
    const OnTickCount still([] { return 1000ull; });
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    // The file, both packages' six, and two support files outside their version folder.
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Checking, L"", 0, 0},
                                                 {Stage::CheckingFiles, L"", 0, 9},
                                                 {Stage::CheckingFiles, L"velmora pine relay\\vprasioprobe.exe", 9, 9},
                                                 {Stage::UpToDate, L"1.1.0.0", 0, 0}}));
    EXPECT_TRUE(StateWritten());
}

TEST_F(PackageWorkflow, RunThatRemembers_OpensNoInstalledFileForItsContent) {
    InstallManagedNew();
    Run();
    std::vector<std::wstring> read;
    using OnOpen = StandIn<"CreateFileW", decltype(CreateFileW)>;
    const OnOpen open([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                          DWORD flags, HANDLE model) {
        const std::wstring_view name(path);
        if (access != FILE_READ_ATTRIBUTES && name.find(L"\\Velmora Pine Relay\\") != std::wstring_view::npos &&
            !name.ends_with(L"\\Runtime\\current.json")) {
            read.emplace_back(name);
        }
        return OnOpen::Original(path, access, share, security, disposition, flags, model);
    });
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_TRUE(read.empty());
}

TEST_F(PackageWorkflow, AnotherManifestOfTheSameVersion_IsVerifiedInFull) {
    InstallManagedNew();
    Run();
    const std::string record = ReadWholeFile(RecordPath());
    ASSERT_FALSE(record.empty());
    WriteWholeFile(ManifestPath(), ReadWholeFile(ManifestPath()) + " ");
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_GE(CountStage(Stage::VerifyingFiles), 2u);
    EXPECT_NE(ReadWholeFile(RecordPath()), record);
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_EQ(CountStage(Stage::VerifyingFiles), 0u);
}

TEST_F(PackageWorkflow, TouchedFile_IsVerifiedInFullAndRememberedAnew) {
    InstallManagedNew();
    Run();
    const std::string record = ReadWholeFile(RecordPath());
    const HANDLE file = CreateFileW((Folder(L"uvr-mdx", L"2.0.0.0") + L"\\two.onnx").c_str(), FILE_WRITE_ATTRIBUTES, 0,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    const FILETIME touched{1, 0x01D00000};
    EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &touched));
    CloseHandle(file);
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_GE(CountStage(Stage::VerifyingFiles), 2u);
    EXPECT_NE(ReadWholeFile(RecordPath()), record);
    RunAgain();
    EXPECT_EQ(CountStage(Stage::VerifyingFiles), 0u);
}

TEST_F(PackageWorkflow, Record_SparesNothingWhileAnotherVersionIsNamedAsInstalled) {
    InstallManagedNew();
    Run();
    ASSERT_GE(FileLength(RecordPath()), 0);
    settings.productVersion = L"1.0.0.0";
    EXPECT_EQ(RunAgain().outcome, Outcome::Applied);
    EXPECT_EQ(CountStage(Stage::CheckingFiles), 0u);
    EXPECT_EQ(CountStage(Stage::UpdateAvailable), 1u);
    EXPECT_TRUE(Fetched().empty());
}

TEST_F(PackageWorkflow, FileChangedDuringTheVerification_IsNotRemembered) {
    InstallManagedNew();
    const std::wstring model = Folder(L"uvr-mdx", L"2.0.0.0") + L"\\two.onnx";
    onStageHook = [&](const StageReport& report) {
        // Of the same content, but another file than the one whose identity was taken.
        if (report.stage != Stage::VerifyingFiles || report.completed != 0) return;
        ASSERT_TRUE(DeleteFileW(model.c_str()));
        WriteWholeFile(model, "one more model");
    };
    EXPECT_EQ(Run().outcome, Outcome::UpToDate);
    EXPECT_EQ(FileLength(RecordPath()), -1);
}

TEST_F(PackageWorkflow, ConfirmedLayout_IsWritten) {
    InstallPortable(newRuntime, newModels);
    WritePackageTree(Root(), newFiles);
    settings.productVersion = L"1.1.0.0";
    EXPECT_EQ(Run().outcome, Outcome::UpToDate);
    EXPECT_NE(ReadWholeFile(RecordPath()).find("\nlayout=portable\n"), std::string::npos);
    RunAgain();
    EXPECT_EQ(result.outcome, Outcome::UpToDate);
    EXPECT_EQ(CountStage(Stage::VerifyingFiles), 0u);
}

TEST_F(PackageWorkflow, ReleaseOfFilesAlone_IsRememberedAsFiles) {
    InstallManagedNew();
    Publish();
    manifest.Remove(L"packages");
    WriteWholeFile(ManifestPath(), platform::EncodeUtf8(manifest.Text()));
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_NE(ReadWholeFile(RecordPath()).find("\nlayout=files\n"), std::string::npos);
    WriteWholeFile(Runtime() + L"\\current.json", "nobody looks");
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_EQ(CountStage(Stage::VerifyingFiles), 0u);
}

TEST_F(PackageWorkflow, ScheduleIsWrittenBeforeTheRecord) {
    InstallManagedNew();
    Publish();
    MutationFaults faults;
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    std::vector<std::wstring> written;
    for (const RecordedCall& call : faults.Calls()) {
        if (call.function != "MoveFileExW") continue;
        for (const wchar_t* name : {L"update-state.json", L"verified-inventory-v1.txt"}) {
            if (call.second.ends_with(name)) written.emplace_back(name);
        }
    }
    EXPECT_EQ(written, (std::vector<std::wstring>{L"update-state.json", L"verified-inventory-v1.txt"}));
}

TEST_F(PackageWorkflow, Record_IsDroppedBeforeTheChangeIsAnnounced) {
    InstallManagedNew();
    Run();
    ASSERT_GE(FileLength(RecordPath()), 0);
    WriteWholeFile(Application() + L"\\VPRAsioProbe.exe", "damaged");
    long long whileVerifying = -1;
    long long whenAnnounced = 0;
    onStageHook = [&](const StageReport& report) {
        if (report.stage == Stage::VerifyingFiles) whileVerifying = FileLength(RecordPath());
        if (report.stage == Stage::Repairing) whenAnnounced = FileLength(RecordPath());
    };
    EXPECT_EQ(RunAgain().outcome, Outcome::Applied);
    EXPECT_GE(whileVerifying, 0);
    EXPECT_EQ(whenAnnounced, -1);
    EXPECT_EQ(FileLength(RecordPath()), -1);
}

TEST_F(PackageWorkflow, LauncherThatIsTooOld_KeepsTheRecord) {
    InstallManagedNew();
    Run();
    const std::string record = ReadWholeFile(RecordPath());
    ASSERT_FALSE(record.empty());
    ASSERT_TRUE(DeleteFileW(UpdateStatePath(Root()).c_str()));
    WriteWholeFile(Application() + L"\\VPRAsioProbe.exe", "damaged");
    manifest.SetText(L"minimumLauncherVersion", L"9.0.0.0");
    EXPECT_EQ(Run().outcome, Outcome::LauncherTooOld);
    EXPECT_EQ(result.error, L"此更新需要較新的啟動器，請下載最新版完整安裝包。");
    EXPECT_EQ(ReadWholeFile(RecordPath()), record);
    EXPECT_FALSE(StateWritten());
    EXPECT_EQ(ReadWholeFile(Application() + L"\\VPRAsioProbe.exe"), "damaged");
}

TEST_F(PackageWorkflow, LauncherThatIsTooOld_DoesNotDisturbASetThatNeedsNothing) {
    InstallManagedNew();
    manifest.SetText(L"minimumLauncherVersion", L"9.0.0.0");
    EXPECT_EQ(Run().outcome, Outcome::UpToDate);
}

TEST_F(PackageWorkflow, StrayFileInAVersionFolder_MeansARepair) {
    InstallManagedNew();
    Run();
    WriteWholeFile(Folder(L"uvr-mdx", L"2.0.0.0") + L"\\stray.log", "x");
    EXPECT_EQ(RunAgain().outcome, Outcome::Applied);
    EXPECT_EQ(CountStage(Stage::Repairing), 1u);
    EXPECT_EQ(ReadPackageTree(Folder(L"uvr-mdx", L"2.0.0.0")), newModels);
}

TEST_F(PackageWorkflow, BytesToVerify_CountSupportFilesTwiceWhereTheyLieTwice) {
    InstallManagedNew();
    Run();
    const std::uint64_t twice =
        newRuntime.at(L"VPRAsioProbe.exe").size() + newRuntime.at(L"Licenses/GPL-3.0.txt").size();
    EXPECT_EQ(Report(Stage::VerifyingFiles), (StageReport{Stage::VerifyingFiles, L"", 0, ReleaseBytes() + twice}));
    ASSERT_TRUE(RemoveTree(Runtime()));
    ASSERT_TRUE(RemoveTree(Control()));
    InstallPortable(newRuntime, newModels);
    RunAgain();
    EXPECT_EQ(Report(Stage::VerifyingFiles), (StageReport{Stage::VerifyingFiles, L"", 0, ReleaseBytes()}));
}

TEST_F(PackageWorkflow, Verification_ShowsPackageFilesInTheirVersionFolders) {
    InstallManagedNew();
    std::uint64_t now = 1000;
    const OnTickCount tick([&now] { return now += 100; });  // every report is due
    Run();
    const auto shown = [this](const std::wstring& detail) {
        return std::any_of(reports.begin(), reports.end(), [&](const StageReport& report) {
            return report.stage == Stage::VerifyingFiles && report.detail == detail;
        });
    };
    EXPECT_TRUE(shown(L"Velmora Pine Relay\\Runtime\\packs\\uvr-mdx\\2.0.0.0\\two.onnx"));
    EXPECT_TRUE(shown(L"Velmora Pine Relay\\Runtime\\packs\\application-runtime\\1.1.0.0\\VPRAsioProbe.exe"));
    EXPECT_TRUE(shown(kExecutable));
}

/// The first file of the manifest has another size and is not read; the figures of the packages before it must stay.
TEST_F(PackageWorkflow, Verification_CountsEveryByteUpToTheLastFile) {
    ReleaseFile(kTheme, L"theme", "new theme");
    InstallManagedNew();
    WritePackageTree(Root(), {{kExecutable, "damaged"}});
    std::uint64_t now = 1000;
    const OnTickCount tick([&now] { return now += 100; });
    Run();
    const std::uint64_t total = Report(Stage::VerifyingFiles).total;
    std::uint64_t before = 0;
    std::vector<std::uint64_t> ofTheLast;
    for (const StageReport& report : reports) {
        if (report.stage != Stage::VerifyingFiles) continue;
        EXPECT_GE(report.completed, before) << platform::EncodeUtf8(report.detail);
        before = report.completed;
        if (report.detail == kTheme) ofTheLast.push_back(report.completed);
    }
    EXPECT_EQ(ofTheLast, (std::vector<std::uint64_t>{total - 9, total})) << "all before it, then all";
}

/// One archive from a local source into the staging folder.
class FetchedPackage : public PackageWorkflow {
  protected:
    FetchedPackage() {
        Publish();
        package.url = sourceFolder / L"models.vprpack";
        package.sha256 = DigestOf(ReadWholeFile(package.url));
        package.size = modelsBytes;
    }

    bool Fetch() {
        PayloadContext context{settings, true, L"", 0, package.size, {}, {}};
        context.onVerifying = [this] { ++verifying; };
        error = L"left from before";
        return FetchVerifiedPackage(package, Target(), context, error);
    }
    std::wstring Target() const { return Root() + L"\\staging\\packages\\uvr-mdx-2.0.0.0.zip"; }

    PackageDescriptor package = newPackages[1];
    int verifying = 0;
    std::wstring error;
};

TEST_F(FetchedPackage, IsStagedAndVerified) {
    std::transform(package.sha256.begin(), package.sha256.end(), package.sha256.begin(),
                   [](wchar_t unit) { return unit >= L'a' ? static_cast<wchar_t>(unit - 32) : unit; });
    EXPECT_TRUE(Fetch()) << platform::EncodeUtf8(error);
    EXPECT_EQ(error, L"");
    EXPECT_EQ(ReadWholeFile(Target()), ReadWholeFile(package.url));
    EXPECT_EQ(verifying, 1);
}

TEST_F(FetchedPackage, IsJudgedByItsDigestThenByItsContent) {
    package.inventory[1] = DescribeFile(L"two.onnx", "eno more model");
    EXPECT_FALSE(Fetch());
    EXPECT_EQ(error, L"資源包 payload 驗證失敗：two.onnx");
    ASSERT_TRUE(DeleteFileW(Target().c_str()));
    package.sha256[0] = package.sha256[0] == L'0' ? L'1' : L'0';
    EXPECT_FALSE(Fetch());
    EXPECT_EQ(error, L"資源包的 SHA-256 驗證失敗。");
}

TEST_F(FetchedPackage, ThatStandsAlready_IsNotOverwritten) {
    WritePackageTree(Root() + L"\\staging\\packages", {{L"uvr-mdx-2.0.0.0.zip", "not ours"}});
    EXPECT_FALSE(Fetch());
    EXPECT_EQ(error, L"資源包大小不符或無法寫入隔離暫存區。");
    EXPECT_EQ(ReadWholeFile(Target()), "not ours");
    EXPECT_EQ(verifying, 0);
}

TEST_F(FetchedPackage, CancelledAtAnyQuestion_HasNoMessage) {
    ASSERT_TRUE(Fetch());
    const std::size_t questions = asks.size();
    ASSERT_GE(questions, 2u) << "behind the report and behind the archive";
    for (cancelAtAsk = 1; cancelAtAsk <= questions; ++cancelAtAsk) {
        DeleteFileW(Target().c_str());
        asks.clear();
        // Who has said yes once goes on saying it.
        settings.shouldCancel = [this] {
            asks.push_back({});
            return asks.size() >= cancelAtAsk;
        };
        EXPECT_FALSE(Fetch()) << cancelAtAsk;
        EXPECT_EQ(error, L"") << cancelAtAsk;
    }
}

/// A hand-made run behind the decision: no manifest could say such sizes.
class PayloadSum : public PackageWorkflow {
  protected:
    void ApplyTo(UpdateRun& run) {
        run.root = Root();
        run.settings = settings;
        run.verificationMode = true;
        run.manifest.version = L"1.1.0.0";
        oldTree = Visible();
        Apply(run);
        result = run.result;
    }
};

TEST_F(PayloadSum, OfFilesThatDoesNotFit_IsRefused) {
    UpdateRun run;
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    run.manifest.files = {{L"", kExecutable, L"x", L"", most}, {L"", kTheme, L"x", L"", 1}};
    ApplyTo(run);
    ExpectFailedAsItWas(L"更新下載總容量超過啟動器可安全處理的範圍。");
}

TEST_F(PayloadSum, OfAPackageAndAFileThatDoesNotFit_IsRefused) {
    UpdateRun run;
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    run.needPackages = true;
    run.manifest.packages = newPackages;
    run.manifest.packages[0].size = most - 5;
    run.manifest.packages[1].size = 5;
    run.manifest.files = {{L"", kExecutable, L"x", L"", 1}};
    ApplyTo(run);
    ExpectFailedAsItWas(L"更新下載總容量超過啟動器可安全處理的範圍。");
    run.manifest.packages[1].size = 6;
    run.manifest.files.clear();
    reports.clear();
    ApplyTo(run);
    ExpectFailedAsItWas(L"更新下載總容量超過啟動器可安全處理的範圍。");
}

TEST_F(PayloadSum, ThatJustFits_IsTaken) {
    UpdateRun run;
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    run.manifest.files = {{L"", kExecutable, sourceFolder / L"missing", L"", most - 1}, {L"", kTheme, L"x", L"", 1}};
    ApplyTo(run);
    EXPECT_EQ(reports.front(), (StageReport{Stage::Downloading, kExecutable, 0, 2}));
    ExpectFailedAsItWas(L"無法讀取本機測試更新檔。");
}

/// A whole update in which one mutating call fails, wholly or half done.
class PackageUpdateWithAFault : public PackageWorkflow {
  protected:
    void SetUp() override {
        InstallManagedOld();
        Publish();
    }

    void Reinstall() {
        ASSERT_TRUE(RemoveTree(Control()));
        ASSERT_TRUE(RemoveTree(Runtime()));
        DeleteFileW(UpdateStatePath(Root()).c_str());
        WritePackageTree(Root(), oldTree);
        InstallManaged(oldPackages, oldRuntime, oldModels);
        settings.productVersion = L"1.0.0.0";
    }

    /// The mutating calls of an update in which nothing fails.
    std::vector<std::string> CallsOfAnUpdate() {
        const MutationFaults faults;
        RunAgain();
        std::vector<std::string> functions;
        for (const RecordedCall& call : faults.Calls())
            functions.push_back(call.function);
        return functions;
    }
    static bool CanBeHalfDone(const std::string& function) {
        return function == "WriteFile" || function == "CopyFileW" || function == "fwrite";
    }

    /// What the application sees is then the whole old or the whole new set, and the next run brings the new one.
    void FailAt(FaultKind kind, std::uint32_t at) {
        Reinstall();
        {
            const MutationFaults faults(kind, at, ERROR_DISK_FULL);
            RunAgain();
            EXPECT_TRUE(faults.Reached()) << at;
        }
        std::wstring error;
        ASSERT_TRUE(PrepareUpdateFolder(Root(), error)) << at << ": " << platform::EncodeUtf8(error);
        const PackageContent tree = Visible();
        const bool isNew = tree == NewTree();
        EXPECT_TRUE(isNew || tree == oldTree) << at;
        EXPECT_TRUE(IsWhole(isNew ? newPackages : oldPackages)) << at;
        EXPECT_EQ(isNew, result.outcome == Outcome::Applied) << at;
        stood += isNew ? 1 : 0;
        if (isNew) settings.productVersion = L"1.1.0.0";
        RunAgain();
        EXPECT_EQ(result.outcome, isNew ? Outcome::UpToDate : Outcome::Applied)
            << at << ": " << platform::EncodeUtf8(result.error);
        EXPECT_EQ(Visible(), NewTree()) << at;
        EXPECT_TRUE(IsWhole(newPackages)) << at;
    }

    std::uint32_t stood = 0;  // faults that let the update stand
};

TEST_F(PackageUpdateWithAFault, InAnyCall_LeavesAWholeSet) {
    const std::vector<std::string> calls = CallsOfAnUpdate();
    ASSERT_GT(calls.size(), 100u);
    for (std::size_t at = 0; at < calls.size(); ++at)
        FailAt(FaultKind::fail, static_cast<std::uint32_t>(at + 1));
    std::printf("failing calls tried: %zu (of which %u let the update stand)\n", calls.size(), stood);
    EXPECT_GT(stood, 0u);
    EXPECT_LT(stood, calls.size());
}

TEST_F(PackageUpdateWithAFault, InAnyHalfDoneCall_LeavesAWholeSet) {
    const std::vector<std::string> calls = CallsOfAnUpdate();
    std::uint32_t points = 0;
    for (std::size_t at = 0; at < calls.size(); ++at) {
        if (!CanBeHalfDone(calls[at])) continue;
        ++points;
        FailAt(FaultKind::failTorn, static_cast<std::uint32_t>(at + 1));
    }
    std::printf("half done calls tried: %u (of which %u let the update stand)\n", points, stood);
    // 3 archives and files fetched, 6 files of the packages, 5 backups, 3 swaps; the mark, the journal, both states and
    // the schedule.
    EXPECT_GE(points, 3u + 6 + 5 + 3 + 5);
}

/// Without the manifest's digest nothing can be recorded, and nothing fails either.
TEST_F(PackageWorkflow, ManifestDigestThatFails_OnlyLeavesNoRecord) {
    using OnFinish = StandIn<"BCryptFinishHash", decltype(BCryptFinishHash)>;
    InstallManagedNew();
    Publish();
    {
        int finished = 0;
        const OnFinish fail([&](BCRYPT_HASH_HANDLE hash, PUCHAR digest, ULONG length, ULONG flags) {
            // The first is the release's identity, the second the manifest's digest.
            return ++finished == 2 ? static_cast<NTSTATUS>(0xC0000001)
                                   : OnFinish::Original(hash, digest, length, flags);
        });
        EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
        EXPECT_EQ(FileLength(RecordPath()), -1);
    }
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_GT(FileLength(RecordPath()), 0);
}

}  // namespace
}  // namespace launcher_update
