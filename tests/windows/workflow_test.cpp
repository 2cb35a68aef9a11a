#include "update/workflow/check_and_apply.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "launcher/configuration_text.h"
#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/manifest_builder.h"
#include "tests/support/stage_report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/manifest/release_identity.h"
#include "update/transaction/lock.h"
#include "update/transaction/recovery.h"
#include "update/workflow/file_replacement.h"
#include "update/workflow/release_guard.h"
#include "update/workflow/schedule.h"

namespace launcher_update {
namespace {

using test_support::Array;
using test_support::FaultKind;
using test_support::ForcedAttributes;
using test_support::JsonObject;
using test_support::MutationFaults;
using test_support::ReadWholeFile;
using test_support::StageReport;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnTickCount = StandIn<"GetTickCount64", decltype(GetTickCount64)>;

constexpr wchar_t kExecutable[] = L"Velmora Pine Relay\\Velmora Pine Relay.exe";
constexpr wchar_t kTheme[] = L"Velmora Pine Relay\\Themes\\dawn.vprtheme";
constexpr wchar_t kReading[] = L"Velmora Pine Relay\\JapaneseReading\\aromanize.js";

std::wstring DigestOf(const std::string& bytes) {
    std::wstring hex;
    EXPECT_TRUE(Sha256OfBuffer(bytes.data(), bytes.size(), hex));
    return hex;
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(ToLongPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

using Tree = std::map<std::wstring, std::string>;

void AddToTree(const std::wstring& root, const std::wstring& relative, Tree& tree) {
    std::vector<DirectoryEntry> entries;
    ASSERT_TRUE(ListDirectory(relative.empty() ? root : root + L"\\" + relative, entries));
    for (const DirectoryEntry& entry : entries) {
        const std::wstring path = relative.empty() ? entry.name : relative + L"\\" + entry.name;
        if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            AddToTree(root, path, tree);
        } else {
            tree[path] = ReadWholeFile(root + L"\\" + path);
        }
    }
}

/// An installation of version 1.0.0.0 and a release 1.1.0.0 with one changed file, one hidden file that changes and one
/// new file, all from local sources.
class Workflow : public testing::Test {
  protected:
    Workflow() {
        launcher_shell::LauncherConfiguration configuration;
        configuration.productVersion = L"1.0.0.0";
        configuration.launcherVersion = L"1.0.0.0";
        Install(L"current.json", platform::EncodeUtf8(launcher_shell::RenderLauncherConfiguration(configuration)));
        Install(kExecutable, "old executable");
        Install(kReading, "old reading");
        EXPECT_TRUE(SetFileAttributesW((Root() + L"\\" + kReading).c_str(), FILE_ATTRIBUTE_HIDDEN));
        Release(kExecutable, L"application", "new executable, longer");
        Release(kReading, L"reading-runtime", "new reading");
        Release(kTheme, L"theme", "new theme");

        settings.productVersion = L"1.0.0.0";
        settings.launcherVersion = L"1.0.0.0";
        settings.applicationDirectory = L"Velmora Pine Relay";
        settings.onStage = [this](Stage stage, const std::wstring& detail, std::uint64_t completed,
                                  std::uint64_t total) {
            reports.push_back({stage, detail, completed, total});
            if (onStageHook) onStageHook(reports.back());
        };
        settings.shouldCancel = [this] { return cancel; };
    }

    std::wstring Root() const { return rootFolder.Path(); }
    std::wstring Control() const { return ControlDirectory(Root()); }
    std::wstring ManifestPath() const { return sourceFolder / L"stable.json"; }

    void Install(const std::wstring& path, const std::string& bytes) {
        EXPECT_TRUE(EnsureDirectory(*platform::ParentPath(Root() + L"\\" + path)));
        SetFileAttributesW((Root() + L"\\" + path).c_str(), FILE_ATTRIBUTE_NORMAL);
        WriteWholeFile(Root() + L"\\" + path, bytes);
    }

    void Release(const std::wstring& path, const std::wstring& component, const std::string& bytes) {
        const std::wstring source = sourceFolder / (L"payload-" + std::to_wstring(files.size()));
        WriteWholeFile(source, bytes);
        std::wstring slashed = path;
        std::replace(slashed.begin(), slashed.end(), L'\\', L'/');
        JsonObject file;
        file.SetText(L"component", component).SetText(L"path", slashed).SetText(L"url", source);
        file.SetText(L"sha256", DigestOf(bytes)).SetNumber(L"size", bytes.size());
        files.push_back(file);
        payloads.push_back(bytes);
        targets.push_back(path);
    }

    void Publish() {
        manifest.Set(L"files", Array(files));
        WriteWholeFile(ManifestPath(), platform::EncodeUtf8(manifest.Text()));
    }

    const Result& Run() {
        Publish();
        return RunAgain();
    }
    const Result& RunAgain() {
        reports.clear();
        result = CheckAndApply(Root(), settings, false, true, ManifestPath());
        return result;
    }

    Tree Snapshot() const {
        Tree tree;
        AddToTree(Root(), L"", tree);
        return tree;
    }
    static Tree WithoutState(Tree tree) {
        std::erase_if(tree, [](const auto& entry) {
            return entry.first == L"update-state.json" ||
                   entry.first.starts_with(L".vpr-update\\release-watermark.txt") ||
                   entry.first == L".vpr-update\\verified-inventory-v1.txt";
        });
        return tree;
    }
    Tree OldTree() const { return oldTree; }
    Tree NewTree() const {
        Tree tree = oldTree;
        for (std::size_t at = 0; at < targets.size(); ++at)
            tree[targets[at]] = payloads[at];
        std::string& text = tree[L"current.json"];
        text.replace(text.find("\"1.0.0.0\""), 9, "\"1.1.0.0\"");
        return tree;
    }

    /// What every refused or failed run must leave.
    void ExpectOldTreeAndNoFolders() { EXPECT_EQ(WithoutState(Snapshot()), OldTree()); }
    bool StateWritten() const { return Exists(UpdateStatePath(Root())); }
    const StageReport& LastReport() const { return reports.back(); }

    TemporaryDirectory rootFolder;
    TemporaryDirectory sourceFolder;
    JsonObject manifest = JsonObject()
                              .SetNumber(L"schemaVersion", 1)
                              .SetText(L"version", L"1.1.0.0")
                              .SetText(L"minimumLauncherVersion", L"1.0.0.0");
    std::vector<JsonObject> files;
    std::vector<std::string> payloads;
    std::vector<std::wstring> targets;
    Settings settings;
    bool cancel = false;
    std::function<void(const StageReport&)> onStageHook;
    std::vector<StageReport> reports;
    Result result;
    Tree oldTree = {};

    void SetUp() override { oldTree = Snapshot(); }
};

TEST_F(Workflow, NewerRelease_IsAppliedWhole) {
    ASSERT_EQ(Run().outcome, Outcome::Applied) << platform::EncodeUtf8(result.error);
    EXPECT_TRUE(result.safeToLaunch);
    EXPECT_EQ(result.version, L"1.1.0.0");
    EXPECT_EQ(result.error, L"");
    EXPECT_EQ(WithoutState(Snapshot()), NewTree());
    EXPECT_TRUE(StateWritten());
}

TEST_F(Workflow, NewerRelease_ReportsItsStagesInOrder) {
    const OnTickCount still([] { return 1000ull; });  // no report of a slow hash comes in between
    Run();
    const std::uint64_t sizes[] = {payloads[0].size(), payloads[1].size(), payloads[2].size()};
    const std::uint64_t total = sizes[0] + sizes[1] + sizes[2];
    std::vector<StageReport> expected = {{Stage::Checking, L"", 0, 0},
                                         {Stage::VerifyingFiles, L"", 0, total},
                                         {Stage::VerifyingFiles, L"", total, total},
                                         {Stage::UpdateAvailable, L"1.1.0.0", 0, 0}};
    std::uint64_t done = 0;
    for (std::uint64_t at = 0; at < 3; ++at) {
        std::wstring path = targets[at];
        std::replace(path.begin(), path.end(), L'\\', L'/');
        expected.push_back({Stage::Downloading, path, at, 3});
        expected.push_back({Stage::DownloadingBytes, path, done + sizes[at], total});
        expected.push_back({Stage::Verifying, path, done + sizes[at], total});
        expected.push_back({Stage::Downloading, path, at + 1, 3});
        done += sizes[at];
    }
    expected.push_back({Stage::Installing, L"1.1.0.0", 0, 0});
    expected.push_back({Stage::Completed, L"1.1.0.0", 3, 3});
    EXPECT_EQ(reports, expected);
}

TEST_F(Workflow, AppliedFiles_AreCountedForTheHook) {
    std::vector<std::uint64_t> counts;
    settings.onFileApplied = [&counts](std::uint64_t count) { counts.push_back(count); };
    Run();
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{1, 2, 3}));
}

TEST_F(Workflow, SecondRun_IsUpToDate) {
    Run();
    settings.productVersion = L"1.1.0.0";
    EXPECT_EQ(RunAgain().outcome, Outcome::UpToDate);
    EXPECT_EQ(LastReport(), (StageReport{Stage::UpToDate, L"1.1.0.0", 0, 0}));
    EXPECT_EQ(WithoutState(Snapshot()), NewTree());
}

TEST_F(Workflow, SameVersionWithDamage_IsRepairedWithoutAPrompt) {
    Run();
    settings.productVersion = L"1.1.0.0";
    settings.promptForUpdate = [](const std::wstring&, const ReleaseNotes&) {
        ADD_FAILURE() << "a repair must not ask";
        return false;
    };
    Install(kExecutable, "damaged, of another length");
    ASSERT_TRUE(DeleteFileW((Root() + L"\\" + kTheme).c_str()));
    EXPECT_EQ(RunAgain().outcome, Outcome::Applied);
    EXPECT_EQ(WithoutState(Snapshot()), NewTree());
    std::vector<std::wstring> fetched;
    for (const StageReport& report : reports) {
        if (report.stage == Stage::Downloading && report.completed < report.total &&
            (fetched.empty() || fetched.back() != report.detail)) {
            fetched.push_back(report.detail);
        }
        EXPECT_NE(report.stage, Stage::UpdateAvailable);
    }
    EXPECT_EQ(fetched.size(), 2u);
    EXPECT_EQ(std::count(reports.begin(), reports.end(), StageReport{Stage::Repairing, L"1.1.0.0", 0, 0}), 1);
}

TEST_F(Workflow, OlderRelease_IsUpToDate) {
    settings.productVersion = L"1.2.0.0";
    EXPECT_EQ(Run().outcome, Outcome::UpToDate);
    EXPECT_EQ(LastReport(), (StageReport{Stage::UpToDate, L"1.1.0.0", 0, 0}));
    EXPECT_TRUE(StateWritten());
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, ReleaseWithNothingToInstall_OnlyRecordsTheVersion) {
    files.clear();
    EXPECT_EQ(Run().outcome, Outcome::Applied);
    Tree expected = oldTree;
    std::string& text = expected[L"current.json"];
    text.replace(text.find("\"1.0.0.0\""), 9, "\"1.1.0.0\"");
    EXPECT_EQ(WithoutState(Snapshot()), expected);
}

TEST_F(Workflow, WithoutALocation_NothingIsRead) {
    result = CheckAndApply(Root(), settings, true, false, L"");
    EXPECT_EQ(result.outcome, Outcome::Skipped);
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Skipped, L"", 0, 0}}));
    EXPECT_EQ(Snapshot(), oldTree);
}

TEST_F(Workflow, ManifestThatCannotBeRead_FailsSafely) {
    result = CheckAndApply(Root(), settings, false, true, sourceFolder / L"missing.json");
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_TRUE(result.safeToLaunch);
    EXPECT_EQ(result.error, L"無法讀取本機測試更新檔。");
    EXPECT_EQ(LastReport(), (StageReport{Stage::Failed, L"無法讀取本機測試更新檔。", 0, 0}));
    EXPECT_FALSE(StateWritten());
    EXPECT_EQ(Snapshot(), oldTree);
}

TEST_F(Workflow, ManifestThatIsNoText_GivesTheGeneralMessage) {
    WriteWholeFile(ManifestPath(), "\xFF\xFE");
    EXPECT_EQ(RunAgain().error, L"無法解析更新清單。");
    WriteWholeFile(ManifestPath(), "<html>sign in</html>");
    EXPECT_EQ(RunAgain().error, L"更新清單格式不正確。");
    EXPECT_TRUE(result.safeToLaunch);
}

TEST_F(Workflow, ManifestOfExactlyTheLimit_IsRead) {
    Publish();
    const std::string text = ReadWholeFile(ManifestPath());
    WriteWholeFile(ManifestPath(), text + std::string(524288 - text.size(), ' '));
    EXPECT_EQ(RunAgain().outcome, Outcome::Applied);
    WriteWholeFile(ManifestPath(), text + std::string(524289 - text.size(), ' '));
    EXPECT_EQ(RunAgain().outcome, Outcome::Failed);
}

TEST_F(Workflow, BackupSource_TakesOverAfterThePrimary) {
    Publish();
    std::vector<launcher_download::Progress> switches;
    settings.onDownloadProgress = [&switches](const launcher_download::Progress& progress) {
        switches.push_back(progress);
    };
    settings.backupManifestUrlOverride = ManifestPath();
    result = CheckAndApply(Root(), settings, false, true, sourceFolder / L"missing.json");
    EXPECT_EQ(result.outcome, Outcome::Applied);
    ASSERT_EQ(switches.size(), 1u);
    EXPECT_EQ(static_cast<unsigned>(switches[0].phase), 9u);
    EXPECT_TRUE(switches[0].backup);
}

TEST_F(Workflow, BackupOlderThanTheWatermark_IsRefused) {
    Publish();
    ASSERT_TRUE(EnsureDirectory(Control()));
    WriteWholeFile(Control() + L"\\release-watermark.txt", "2.0.0.0\n0000");
    settings.backupManifestUrlOverride = ManifestPath();
    result = CheckAndApply(Root(), settings, false, true, sourceFolder / L"missing.json");
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_EQ(result.error,
              L"Backup update information is older than the version already checked. Please retry later.");
    EXPECT_EQ(ReadWholeFile(Control() + L"\\release-watermark.txt"), "2.0.0.0\n0000");
    // The primary may be older; the mark stays.
    EXPECT_EQ(RunAgain().outcome, Outcome::Applied);
    EXPECT_EQ(ReadWholeFile(Control() + L"\\release-watermark.txt"), "2.0.0.0\n0000");
}

TEST_F(Workflow, Watermark_RecordsVersionAndIdentity) {
    Run();
    const std::string mark = ReadWholeFile(Control() + L"\\release-watermark.txt");
    ASSERT_EQ(mark.size(), 8u + 64u);
    EXPECT_EQ(mark.substr(0, 8), "1.1.0.0\n");
    EXPECT_EQ(mark.find_first_not_of("0123456789abcdef", 8), std::string::npos);
}

TEST_F(Workflow, Watermark_ThatCannotBeWritten_FailsSafely) {
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"release-watermark.txt");
    EXPECT_EQ(Run().error, L"release-watermark-write-failed");
    EXPECT_TRUE(result.safeToLaunch);
}

TEST_F(Workflow, Watermark_FolderThatCannotBeMade_FailsSafely) {
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("CreateDirectoryW", L".vpr-update");
    EXPECT_EQ(Run().error, L"release-watermark-directory-unsafe");
    EXPECT_TRUE(result.safeToLaunch);
}

TEST_F(Workflow, MalformedVersions_FailSafely) {
    settings.productVersion = L"1.0.0";
    EXPECT_EQ(Run().error, L"本機或遠端版本號格式不正確。");
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_TRUE(result.safeToLaunch);
    EXPECT_FALSE(StateWritten());
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, WithoutAnApplicationFolder_FailsSafely) {
    settings.applicationDirectory.clear();
    EXPECT_EQ(Run().error, L"更新設定缺少主程式資料夾。");
    EXPECT_TRUE(result.safeToLaunch);
}

TEST_F(Workflow, LauncherTooOld_SaysSoAndLeavesTheSchedule) {
    for (const wchar_t* minimum : {L"1.0.0.1", L"soon", L""}) {
        manifest.SetText(L"minimumLauncherVersion", minimum);
        EXPECT_EQ(Run().outcome, Outcome::LauncherTooOld) << minimum;
        EXPECT_TRUE(result.safeToLaunch);
        EXPECT_EQ(result.error, L"此更新需要較新的啟動器，請下載最新版完整安裝包。");
        EXPECT_EQ(LastReport(), (StageReport{Stage::Failed, result.error, 0, 0}));
        EXPECT_FALSE(StateWritten());
    }
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, LauncherTooOld_DoesNotDisturbATreeThatNeedsNothing) {
    Run();
    settings.productVersion = L"1.1.0.0";
    manifest.SetText(L"minimumLauncherVersion", L"9.0.0.0");
    EXPECT_EQ(Run().outcome, Outcome::UpToDate);
}

TEST_F(Workflow, WrongPayload_IsRefusedAndLeavesTheTree) {
    struct Row {
        const char* bytes;
        const wchar_t* message;
    };
    for (const Row& row : {Row{"evil executable, long!", L"更新檔的 SHA-256 驗證失敗。"},
                           Row{"short", L"更新檔大小不符或無法寫入暫存區。"},
                           Row{"new executable, longer than promised", L"無法讀取本機測試更新檔。"}}) {
        Publish();
        WriteWholeFile(sourceFolder / L"payload-0", row.bytes);
        EXPECT_EQ(RunAgain().outcome, Outcome::Failed);
        EXPECT_EQ(result.error, row.message);
        EXPECT_TRUE(result.safeToLaunch);
        EXPECT_FALSE(StateWritten());
        ExpectOldTreeAndNoFolders();
    }
}

TEST_F(Workflow, DigestInUpperCase_IsAccepted) {
    std::wstring digest = DigestOf(payloads[0]);
    std::transform(digest.begin(), digest.end(), digest.begin(),
                   [](wchar_t unit) { return unit >= L'a' && unit <= L'f' ? static_cast<wchar_t>(unit - 32) : unit; });
    files[0].SetText(L"sha256", digest);
    EXPECT_EQ(Run().outcome, Outcome::Applied);
}

TEST_F(Workflow, ManifestListingOnePathTwice_FailsBeforeTheTreeChanges) {
    files.push_back(files[0]);
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_TRUE(result.safeToLaunch);
    ExpectOldTreeAndNoFolders();
}

/// A cancel at every stage report: before the journal it leaves the old tree, behind it the update stands.
TEST_F(Workflow, CancelAtEveryReport_LeavesAWholeTree) {
    const OnTickCount still([] { return 1000ull; });  // no report of a slow hash comes in between
    Run();
    const std::size_t count = reports.size();
    std::size_t cancelled = 0;
    for (std::size_t at = 0; at < count; ++at) {
        ASSERT_TRUE(RemoveTree(Control()));
        DeleteFileW(UpdateStatePath(Root()).c_str());
        DeleteFileW((Root() + L"\\" + kTheme).c_str());
        for (const auto& [path, bytes] : oldTree)
            Install(path, bytes);
        cancel = false;
        onStageHook = [this, at](const StageReport&) { cancel = cancel || reports.size() == at + 1; };
        RunAgain();
        EXPECT_TRUE(result.safeToLaunch);
        if (result.outcome == Outcome::Applied) {
            EXPECT_EQ(WithoutState(Snapshot()), NewTree()) << at;
            continue;
        }
        ++cancelled;
        EXPECT_EQ(result.outcome, Outcome::Cancelled) << at;
        EXPECT_EQ(result.error, L"") << at;
        EXPECT_EQ(LastReport().stage, Stage::Cancelled) << at;
        // A cancel while the manifest is read is no answer to an offer; later it counts like "no".
        EXPECT_EQ(StateWritten(), at > 0) << at;
        EXPECT_EQ(LastReport().detail, at > 0 ? L"1.1.0.0" : L"") << at;
        EXPECT_EQ(WithoutState(Snapshot()), OldTree()) << at;
    }
    EXPECT_EQ(cancelled, count - 2) << "only \"installing\" and \"completed\" come too late for a cancel";
}

TEST_F(Workflow, LockHeldByAnother_IsUnsafe) {
    ASSERT_TRUE(EnsureDirectory(Control()));
    const TransactionLock other(Control());
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_FALSE(result.safeToLaunch);
    EXPECT_EQ(result.error, L"另一個啟動器仍在處理更新；已停止啟動以避免混合版本。");
    EXPECT_EQ(LastReport().stage, Stage::Failed);
}

TEST_F(Workflow, LockTakenAfterTheDecision_IsUnsafe) {
    std::optional<TransactionLock> other;
    onStageHook = [&](const StageReport& report) {
        if (report.stage != Stage::UpdateAvailable) return;
        other.emplace(Control());
        ASSERT_TRUE(EnsureDirectory(Control() + L"\\staging-of-the-other"));
    };
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_FALSE(result.safeToLaunch);
    EXPECT_EQ(result.error, L"另一個啟動器正在更新；本次暫不啟動主程式。");
    EXPECT_TRUE(Exists(Control() + L"\\staging-of-the-other")) << "another launcher's live folder was swept";
    other.reset();
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, StaleWorkThatCannotGo_FailsSafely) {
    onStageHook = [this](const StageReport& report) {
        if (report.stage == Stage::UpdateAvailable) WriteWholeFile(Control() + L"\\staging-file", "x");
    };
    EXPECT_EQ(Run().error, L"無法安全清理上一次中斷的更新暫存資料。");
    EXPECT_TRUE(result.safeToLaunch);
}

TEST_F(Workflow, FoldersThatCannotBeMade_FailSafely) {
    for (const wchar_t* folder : {L"staging-", L"backup-"}) {
        MutationFaults faults(FaultKind::fail, 1);
        faults.CountOnly("CreateDirectoryW", folder);
        EXPECT_EQ(Run().error, L"無法建立更新暫存資料夾。");
        EXPECT_TRUE(faults.Reached());
        EXPECT_TRUE(result.safeToLaunch);
    }
}

TEST_F(Workflow, UpdateFolderThatCannotBeMade_FailsSafely) {
    onStageHook = [this](const StageReport& report) {
        if (report.stage != Stage::UpdateAvailable) return;
        ASSERT_TRUE(RemoveTree(Control()));
        WriteWholeFile(Control(), "a file in its place");
    };
    EXPECT_EQ(Run().error, L"無法建立更新交易資料夾。");
    EXPECT_TRUE(result.safeToLaunch);
}

TEST_F(Workflow, FileInUse_IsRolledBack) {
    const HANDLE holder = CreateFileW((Root() + L"\\" + kReading).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    Publish();
    // The rollback cannot rename over the held file either: it is unsafe until the holder is gone.
    EXPECT_EQ(RunAgain().outcome, Outcome::Failed);
    EXPECT_FALSE(result.safeToLaunch);
    EXPECT_EQ(
        result.error,
        L"無法替換更新檔案。 回復尚未完成；備份已保留且本次不應啟動主程式：無法完整回復上一次中斷的更新；備份已保留。");
    CloseHandle(holder);
    std::wstring error;
    EXPECT_TRUE(PrepareUpdateFolder(Root(), error));
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, FailureWhileReplacing_IsRolledBackSafely) {
    MutationFaults faults(FaultKind::fail, 1, ERROR_SHARING_VIOLATION);
    faults.CountOnly("MoveFileExW", L"aromanize.js.update-new");
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_TRUE(result.safeToLaunch);
    EXPECT_EQ(result.error, L"無法替換更新檔案。 已安全回復更新前版本。");
    EXPECT_FALSE(StateWritten());
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, VersionThatCannotBeRecorded_IsRolledBack) {
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"current.json.tmp");
    EXPECT_EQ(Run().error, L"無法寫入目前版本。 已安全回復更新前版本。");
    EXPECT_TRUE(result.safeToLaunch);
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, CommitThatFails_IsRolledBack) {
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"transaction.json");
    // The journal's own rename comes from its sibling, whose name ends otherwise but contains this one.
    static_cast<void>(Run());
    EXPECT_EQ(result.error, L"無法寫入可持久化的更新交易紀錄。");
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, SecondRename_IsTheCommit) {
    MutationFaults faults(FaultKind::fail, 2);
    faults.CountOnly("MoveFileExW", L"transaction.json");
    EXPECT_EQ(Run().error, L"無法提交更新交易；將回復更新前版本。 已安全回復更新前版本。");
    EXPECT_TRUE(result.safeToLaunch);
    ExpectOldTreeAndNoFolders();
}

TEST_F(Workflow, Replacement_NeedsTheBackup) {
    UpdateManifest reduced;
    reduced.files = {{L"application", kExecutable, L"", L"", 1}};
    std::vector<AppliedFile> applied;
    std::wstring error;
    const std::wstring staging = Control() + L"\\staging-1";
    const std::wstring backup = Control() + L"\\backup-1";
    ASSERT_TRUE(EnsureDirectory(staging + L"\\Velmora Pine Relay"));
    WriteWholeFile(staging + L"\\" + kExecutable, "staged");
    EXPECT_FALSE(ApplyStagedFiles(Root(), staging, backup, reduced, applied, error, {}));
    EXPECT_EQ(error, L"更新交易的既有檔案備份遺失。");
    ASSERT_TRUE(EnsureDirectory(backup + L"\\" + kExecutable));
    EXPECT_FALSE(ApplyStagedFiles(Root(), staging, backup, reduced, applied, error, {}));
    EXPECT_EQ(error, L"更新交易的既有檔案備份遺失。");
    EXPECT_EQ(ReadWholeFile(Root() + L"\\" + kExecutable), "old executable");
    ASSERT_TRUE(RemoveTree(backup + L"\\" + kExecutable));
    WriteWholeFile(backup + L"\\" + kExecutable, "old executable");
    WriteWholeFile(Root() + L"\\" + kExecutable + L".update-new", "stale");
    EXPECT_TRUE(ApplyStagedFiles(Root(), staging, backup, reduced, applied, error, {}));
    EXPECT_EQ(ReadWholeFile(Root() + L"\\" + kExecutable), "staged");
    EXPECT_FALSE(Exists(Root() + L"\\" + kExecutable + L".update-new"));
    ASSERT_EQ(applied.size(), 1u);
    EXPECT_TRUE(applied[0].existed);
    EXPECT_EQ(applied[0].targetPath, Root() + L"\\" + kExecutable);
    EXPECT_EQ(applied[0].backupPath, backup + L"\\" + kExecutable);
}

TEST_F(Workflow, Replacement_FolderThatCannotBeMade_IsItsOwnMessage) {
    UpdateManifest reduced;
    reduced.files = {{L"theme", kTheme, L"", L"", 1}};
    WriteWholeFile(Root() + L"\\Velmora Pine Relay\\Themes", "a file in its place");
    std::vector<AppliedFile> applied;
    std::wstring error;
    EXPECT_FALSE(ApplyStagedFiles(Root(), Control(), Control(), reduced, applied, error, {}));
    EXPECT_EQ(error, L"無法建立更新目標資料夾。");
    EXPECT_TRUE(applied.empty());
}

TEST_F(Workflow, Replacement_ForcesTheFileOutBeforeItsRename) {
    MutationFaults faults;
    Run();
    const auto calls = faults.Calls();
    for (const std::wstring& target : targets) {
        const std::wstring sibling = target + L".update-new";
        const auto of = [&sibling](const char* function) {
            return [&sibling, function](const test_support::RecordedCall& call) {
                return call.function == function && (call.path.ends_with(sibling) || call.second.ends_with(sibling));
            };
        };
        const auto copy = std::find_if(calls.begin(), calls.end(), of("CopyFileW"));
        const auto open = std::find_if(copy, calls.end(), of("CreateFileW"));
        const auto move = std::find_if(open, calls.end(), of("MoveFileExW"));
        ASSERT_NE(move, calls.end()) << platform::EncodeUtf8(target);
        EXPECT_EQ((open + 1)->function, "FlushFileBuffers");
        EXPECT_LT(open + 1, move);
        EXPECT_TRUE(copy->path.starts_with(L"\\\\?\\"));
        EXPECT_TRUE(move->path.starts_with(L"\\\\?\\"));
    }
}

/// Every mutating call of a whole update fails once, wholly or half done. Whatever the run says then, the next start
/// finds the whole old or the whole new tree, and a run that said "safe" had it already.
TEST_F(Workflow, AnyFailingCall_LeavesAWholeTree) {
    Publish();
    for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
        std::uint32_t points = 0;
        std::uint32_t applied = 0;
        for (std::uint32_t at = 1; at <= 2000; ++at) {
            ASSERT_TRUE(RemoveTree(Control()));
            DeleteFileW(UpdateStatePath(Root()).c_str());
            DeleteFileW((Root() + L"\\" + kTheme).c_str());
            for (const auto& [path, bytes] : oldTree)
                Install(path, bytes);
            bool reached = false;
            {
                MutationFaults faults(kind, at, ERROR_DISK_FULL);
                RunAgain();
                reached = faults.Reached();
            }
            if (!reached) break;
            ++points;
            std::wstring error;
            ASSERT_TRUE(PrepareUpdateFolder(Root(), error)) << at << ": " << platform::EncodeUtf8(error);
            const Tree tree = WithoutState(Snapshot());
            const bool isNew = tree == NewTree();
            applied += result.outcome == Outcome::Applied ? 1 : 0;
            EXPECT_TRUE(isNew || tree == OldTree()) << at;
            EXPECT_EQ(isNew, result.outcome == Outcome::Applied) << at;
        }
        std::printf("failing calls tried: %u (of which %u let the update stand)\n", points, applied);
        EXPECT_GT(points, 60u);
    }
}

/// A version may carry any number of leading zeros. A mark that is too long to be read back would count as none.
TEST_F(Workflow, WatermarkTooLongToBeReadBack_DoesNotDropTheGuard) {
    const std::wstring path = Control() + L"\\release-watermark.txt";
    const std::wstring identity(64, L'a');
    std::wstring error;
    UpdateManifest release;
    release.version = std::wstring(256 - 1 - 64 - 7, L'0') + L"2.0.0.0";
    ASSERT_TRUE(CheckReleaseWatermark(Control(), release, identity, false, error));
    const std::string mark = ReadWholeFile(path);
    EXPECT_EQ(mark.size(), 256u);
    release.version = L"0" + release.version;
    EXPECT_FALSE(CheckReleaseWatermark(Control(), release, identity, false, error));
    EXPECT_EQ(error, L"release-watermark-write-failed");
    EXPECT_EQ(ReadWholeFile(path), mark);
    release.version = L"1.9.9.9";
    EXPECT_FALSE(CheckReleaseWatermark(Control(), release, identity, true, error)) << "the backup must not go back";
    EXPECT_EQ(ReadWholeFile(path), mark);
}

}  // namespace
}  // namespace launcher_update
