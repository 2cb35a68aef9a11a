#include <windows.h>

#include <bcrypt.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/stage_report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/trees.h"
#include "update/workflow/file_replacement.h"
#include "update/workflow/hash_progress.h"
#include "update/workflow/payload_fetch.h"
#include "update/workflow/product_version.h"
#include "update/workflow/release_guard.h"

namespace launcher_update {
namespace {

using test_support::FileLength;
using test_support::ForcedAttributes;
using test_support::ReadWholeFile;
using test_support::StageReport;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WriteWholeFile;

using OnTickCount = StandIn<"GetTickCount64", decltype(GetTickCount64)>;

TEST(HashProgressReports, ComeAtMostOnceIn100Milliseconds) {
    std::uint64_t now = 5000;
    const OnTickCount tick([&now] { return now; });
    std::vector<StageReport> reports;
    Settings settings;
    settings.onStage = [&reports](Stage stage, const std::wstring& detail, std::uint64_t completed,
                                  std::uint64_t total) {
        reports.push_back({stage, detail, completed, total});
    };
    HashProgressReporter reporter(settings, 1000);
    reporter.Report(L"a/first", 0);
    now = 5099;
    reporter.Report(L"a/first", 10);
    now = 5100;
    reporter.Report(L"a/first", 20);
    now = 5150;
    reporter.Report(L"a/first", 30);
    reporter.FileDone(400);  // its size, though less was read
    now = 5199;
    reporter.Report(L"a/second", 0);
    reporter.Report(L"a/second", 40);
    now = 5200;
    reporter.Report(L"a/second", 50);
    reporter.Report(L"a/third", 0);  // nobody called the second one done
    now = 5300;
    reporter.Report(L"a/third", 7);
    reporter.Complete();
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::VerifyingFiles, L"", 0, 1000},
                                                 {Stage::VerifyingFiles, L"a/first", 20, 1000},
                                                 {Stage::VerifyingFiles, L"a/second", 450, 1000},
                                                 {Stage::VerifyingFiles, L"a/third", 457, 1000},
                                                 {Stage::VerifyingFiles, L"", 1000, 1000}}));
}

/// One file from a local source, as verification runs have it.
class VerifiedFile : public testing::Test {
  protected:
    VerifiedFile() {
        WriteWholeFile(folder / L"source", "a payload");
        entry.url = folder / L"source";
        entry.size = 9;
        EXPECT_TRUE(Sha256OfBuffer("a payload", 9, entry.sha256));
        settings.shouldCancel = [this] { return cancel; };
    }

    bool Fetch(std::wstring& error) {
        PayloadContext context{settings, true, L"", 0, 9, {}, {}};
        context.onProgress = [this](std::uint64_t bytes, std::uint64_t total) { progress.emplace_back(bytes, total); };
        context.onVerifying = [this] {
            ++verifying;
            cancel = cancel || cancelWhileVerifying;
        };
        return FetchVerifiedFile(entry, Target(), context, error);
    }
    std::wstring Target() const { return folder / L"staging\\deep\\target"; }

    TemporaryDirectory folder;
    ManifestFileEntry entry;
    Settings settings;
    bool cancel = false;
    bool cancelWhileVerifying = false;
    int verifying = 0;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> progress;
};

TEST_F(VerifiedFile, IsStagedAndVerified) {
    std::wstring error = L"left from before";
    EXPECT_TRUE(Fetch(error));
    EXPECT_EQ(error, L"");
    EXPECT_EQ(ReadWholeFile(Target()), "a payload");
    EXPECT_EQ(verifying, 1);
    EXPECT_EQ(progress, (std::vector<std::pair<std::uint64_t, std::uint64_t>>{{9, 9}}));
}

TEST_F(VerifiedFile, CancelWhileVerifying_HasNoMessage) {
    cancelWhileVerifying = true;
    entry.sha256 = std::wstring(64, L'0');  // the cancel comes first
    std::wstring error = L"left from before";
    EXPECT_FALSE(Fetch(error));
    EXPECT_EQ(error, L"");
    EXPECT_EQ(verifying, 1);
}

TEST_F(VerifiedFile, CancelBeforeTheFetch_HasNoMessage) {
    cancel = true;
    std::wstring error = L"left from before";
    EXPECT_FALSE(Fetch(error));
    EXPECT_EQ(error, L"");
    EXPECT_EQ(verifying, 0);
    EXPECT_EQ(FileLength(Target()), -1);
}

TEST_F(VerifiedFile, StagedFileThatCannotBeHashed_IsRefused) {
    std::wstring error;
    const StandIn<"BCryptOpenAlgorithmProvider", decltype(BCryptOpenAlgorithmProvider)> open(
        [](auto...) -> NTSTATUS { return -1; });
    EXPECT_FALSE(Fetch(error));
    EXPECT_EQ(error, L"更新檔的 SHA-256 驗證失敗。");
}

TEST_F(VerifiedFile, FileThatStandsAlready_IsNotOverwritten) {
    ASSERT_TRUE(EnsureDirectory(folder / L"staging\\deep"));
    WriteWholeFile(Target(), "not ours!");
    std::wstring error;
    EXPECT_FALSE(Fetch(error));
    EXPECT_EQ(error, L"更新檔大小不符或無法寫入暫存區。");
    EXPECT_EQ(ReadWholeFile(Target()), "not ours!");
    EXPECT_EQ(verifying, 0);
}

TEST(RecordedVersion, NeedsAFileOfAtMost65536BytesBeforeAndAfter) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"current.json";
    EXPECT_FALSE(WriteProductVersion(folder.Path(), L"1.1.0.0"));
    const std::string text = "{ \"productVersion\": \"1.0.0.0\" }\r\n";
    const std::string longest = text + std::string(65536 - text.size(), ' ');
    WriteWholeFile(path, longest + " ");
    EXPECT_FALSE(WriteProductVersion(folder.Path(), L"1.1.0.0"));
    EXPECT_EQ(ReadWholeFile(path), longest + " ");
    WriteWholeFile(path, longest);
    EXPECT_TRUE(WriteProductVersion(folder.Path(), L"1.1.0.0"));
    const std::string recorded = "{ \"productVersion\": \"1.1.0.0\" }\r\n" + std::string(65536 - text.size(), ' ');
    EXPECT_EQ(ReadWholeFile(path), recorded);
    EXPECT_FALSE(WriteProductVersion(folder.Path(), L"1.10.0.0")) << "one byte more than the next start reads";
    EXPECT_EQ(ReadWholeFile(path), recorded);
    WriteWholeFile(path, "\xEF\xBB\xBF" + text);
    EXPECT_TRUE(WriteProductVersion(folder.Path(), L"1.1.0.0"));
    WriteWholeFile(path, text + "\xFF");
    EXPECT_FALSE(WriteProductVersion(folder.Path(), L"1.1.0.0"));
}

/// Two staged files: one replaces an installed file, one is new.
class Replacement : public testing::Test {
  protected:
    Replacement() {
        for (const wchar_t* part : {L"root\\sub", L"staging\\sub", L"backup\\sub"})
            EXPECT_TRUE(EnsureDirectory(folder / part));
        WriteWholeFile(folder / L"root\\sub\\old", "before");
        WriteWholeFile(folder / L"backup\\sub\\old", "before");
        WriteWholeFile(folder / L"staging\\sub\\old", "after");
        WriteWholeFile(folder / L"staging\\sub\\new", "added");
        manifest.files = {{L"", L"sub/old", L"", L"", 5}, {L"", L"sub/new", L"", L"", 5}};
    }

    bool Apply() {
        return ApplyStagedFiles(folder / L"root", folder / L"staging", folder / L"backup", manifest, applied, error,
                                [this](std::uint64_t count) { counts.push_back(count); });
    }

    TemporaryDirectory folder;
    UpdateManifest manifest;
    std::vector<AppliedFile> applied;
    std::vector<std::uint64_t> counts;
    std::wstring error;
};

TEST_F(Replacement, FileThatIsNew_NeedsNoBackup) {
    EXPECT_TRUE(Apply());
    EXPECT_EQ(ReadWholeFile(folder / L"root\\sub\\old"), "after");
    EXPECT_EQ(ReadWholeFile(folder / L"root\\sub\\new"), "added");
    ASSERT_EQ(applied.size(), 2u);
    EXPECT_TRUE(applied[0].existed);
    EXPECT_FALSE(applied[1].existed);
    EXPECT_EQ(applied[1].targetPath, folder / L"root\\sub\\new");
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(ReadWholeFile(folder / L"staging\\sub\\new"), "added") << "staging keeps its copy";
}

/// What a crash left behind goes first: Windows does not copy over a hidden or a read-only file.
TEST_F(Replacement, EachSwap_ClearsCopiesForcesOutAndRenames) {
    const test_support::MutationFaults calls;
    EXPECT_TRUE(Apply());
    std::vector<std::string> course;
    for (const test_support::RecordedCall& call : calls.Calls()) {
        course.push_back(call.function);
        EXPECT_TRUE(call.path.empty() || call.path.starts_with(L"\\\\?\\"));
        EXPECT_TRUE(call.second.empty() || call.second.starts_with(L"\\\\?\\"));
    }
    EXPECT_EQ(course,
              (std::vector<std::string>{"DeleteFileW", "CopyFileW", "CreateFileW", "FlushFileBuffers", "MoveFileExW",
                                        "DeleteFileW", "CopyFileW", "CreateFileW", "FlushFileBuffers", "MoveFileExW"}));
}

TEST_F(Replacement, BackupThatIsALink_IsRefused) {
    const ForcedAttributes link(L"backup\\sub\\old", FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(error, L"更新交易的既有檔案備份遺失。");
    EXPECT_EQ(ReadWholeFile(folder / L"root\\sub\\old"), "before");
    EXPECT_TRUE(counts.empty());
}

TEST_F(Replacement, TargetThatCannotBeLookedAt_CountsAsThere) {
    ASSERT_TRUE(DeleteFileW((folder / L"backup\\sub\\old").c_str()));
    const UnreadableAttributes unreadable(L"root\\sub\\old", ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(error, L"更新交易的既有檔案備份遺失。");
    EXPECT_EQ(ReadWholeFile(folder / L"root\\sub\\old"), "before");
}

TEST_F(Replacement, FirstFailure_EndsIt) {
    manifest.files.push_back({L"", L"sub/unstaged", L"", L"", 5});
    manifest.files.push_back({L"", L"sub/never", L"", L"", 5});
    WriteWholeFile(folder / L"staging\\sub\\never", "x");
    EXPECT_FALSE(Apply());
    EXPECT_EQ(error, L"無法替換更新檔案。");
    EXPECT_EQ(applied.size(), 2u);
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(ReadWholeFile(folder / L"root\\sub\\old"), "after") << "undoing it is the recovery's";
    EXPECT_EQ(FileLength(folder / L"root\\sub\\never"), -1);
}

TEST_F(Replacement, EachFailingStep_LeavesTheTargetAndNoSibling) {
    for (const char* step : {"CopyFileW", "FlushFileBuffers", "MoveFileExW"}) {
        const bool onHandle = std::string(step) == "FlushFileBuffers";
        test_support::MutationFaults faults(test_support::FaultKind::failTorn, 1, ERROR_DISK_FULL);
        faults.CountOnly(step, onHandle ? L"" : std::string(step) == "CopyFileW" ? L"staging" : L".update-new");
        EXPECT_FALSE(Apply()) << step;
        EXPECT_TRUE(faults.Reached()) << step;
        EXPECT_EQ(error, L"無法替換更新檔案。");
        EXPECT_EQ(ReadWholeFile(folder / L"root\\sub\\old"), "before");
        EXPECT_EQ(FileLength(folder / L"root\\sub\\old.update-new"), -1);
    }
}

TEST(Watermark, FolderThatIsALink_IsUnsafe) {
    const TemporaryDirectory folder;
    const std::wstring control = folder / L".vpr-update";
    ASSERT_TRUE(EnsureDirectory(control));
    const ForcedAttributes link(L".vpr-update", FILE_ATTRIBUTE_REPARSE_POINT);
    UpdateManifest release;
    release.version = L"1.0.0.0";
    std::wstring error;
    EXPECT_FALSE(CheckReleaseWatermark(control, release, L"identity", false, error));
    EXPECT_EQ(error, L"release-watermark-directory-unsafe");
    EXPECT_EQ(FileLength(control + L"\\release-watermark.txt"), -1);
}

TEST(Watermark, ThatCannotBeRead_CountsAsNone) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"release-watermark.txt";
    UpdateManifest release;
    release.version = L"1.0.0.0";
    std::wstring error;
    for (const std::string& bytes : {std::string("\xFF\xFE"), "9.0.0.0\n" + std::string(249, 'a'), std::string()}) {
        WriteWholeFile(path, bytes);
        EXPECT_TRUE(CheckReleaseWatermark(folder.Path(), release, L"identity", true, error));
        EXPECT_EQ(ReadWholeFile(path), "1.0.0.0\nidentity");
    }
    WriteWholeFile(path, "9.0.0.0\n" + std::string(248, 'a'));  // the longest that is read
    EXPECT_FALSE(CheckReleaseWatermark(folder.Path(), release, L"identity", true, error));
}

TEST(Watermark, OfAVersionThatDoesNotParse_IsLeftAlone) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"release-watermark.txt";
    WriteWholeFile(path, "soon\nidentity");
    UpdateManifest release;
    release.version = L"1.0.0.0";
    std::wstring error;
    for (const bool fromBackup : {true, false})
        EXPECT_TRUE(CheckReleaseWatermark(folder.Path(), release, L"other", fromBackup, error));
    EXPECT_EQ(ReadWholeFile(path), "soon\nidentity");
}

}  // namespace
}  // namespace launcher_update
