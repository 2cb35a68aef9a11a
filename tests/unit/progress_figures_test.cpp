#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/window_model_fixture.h"
#include "ui/progress_model.h"

namespace launcher_ui {
namespace {

using namespace test_support;

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

TEST(Aggregate, FirstTotalOfBytes_IsLearned) {
    WindowModel model = ProgressWindow();
    Apply(model, Stage::DownloadingBytes, L"app.zip", 20, 100);
    EXPECT_TRUE(model.progress.aggregateKnown);
    EXPECT_EQ(model.progress.aggregateDone, 20u);
    EXPECT_EQ(model.progress.aggregateTotal, 100u);
}

TEST(Aggregate, OnlyBytes_TeachATotal) {
    for (const Stage stage : kStages) {
        WindowModel model = ProgressWindow();
        Apply(model, stage, L"x", 20, 100);
        EXPECT_EQ(model.progress.aggregateKnown, stage == Stage::DownloadingBytes) << Number(stage);
    }
}

TEST(Aggregate, OtherScale_ChangesNothing) {
    for (const Stage stage : {Stage::DownloadingBytes, Stage::Verifying}) {
        for (const std::uint64_t total : {1u, 99u, 101u, 10000u}) {
            WindowModel model = TransferWindow(20, 100);
            Apply(model, stage, L"x", total, total);
            EXPECT_EQ(model.progress.aggregateDone, 20u) << total;
            EXPECT_EQ(model.progress.aggregateTotal, 100u) << total;
            EXPECT_EQ(model.progress.percent, 20) << total;
            EXPECT_EQ(model.At(Control::progressDetail).text, L"0.0 KB / 0.1 KB · 20%") << total;
        }
    }
}

TEST(Aggregate, NoTotal_ChangesNothing) {
    for (const Stage stage : {Stage::Downloading, Stage::DownloadingBytes, Stage::Verifying}) {
        WindowModel model = TransferWindow(20, 100);
        Apply(model, stage, L"x", 50, 0);
        EXPECT_EQ(model.progress.aggregateDone, 20u) << Number(stage);
        EXPECT_EQ(model.progress.percent, 20) << Number(stage);
        EXPECT_FALSE(model.progress.indeterminate) << Number(stage);
    }
}

TEST(Aggregate, SameScale_RisesAndNeverFalls) {
    for (const Stage stage : {Stage::DownloadingBytes, Stage::Verifying}) {
        WindowModel model = TransferWindow(20, 100);
        Apply(model, stage, L"x", 60, 100);
        EXPECT_EQ(model.progress.percent, 60) << Number(stage);
        Apply(model, stage, L"x", 59, 100);
        EXPECT_EQ(model.progress.percent, 60) << Number(stage);
        Apply(model, stage, L"x", 0, 100);
        EXPECT_EQ(model.progress.aggregateDone, 60u) << Number(stage);
        Apply(model, stage, L"x", 61, 100);
        EXPECT_EQ(model.progress.percent, 61) << Number(stage);
    }
}

TEST(Aggregate, MoreThanTheTotal_IsTheTotal) {
    EXPECT_EQ(TransferWindow(101, 100).progress.aggregateDone, 100u);
    EXPECT_EQ(TransferWindow(kLargest, 100).progress.percent, 100);
    for (const Stage stage : {Stage::DownloadingBytes, Stage::Verifying}) {
        WindowModel model = TransferWindow(20, 100);
        Apply(model, stage, L"x", 5000, 100);
        EXPECT_EQ(model.progress.aggregateDone, 100u) << Number(stage);
    }
}

TEST(Aggregate, BeginningOfAPayload_MovesNothing) {
    WindowModel model = TransferWindow(20, 100);
    Apply(model, Stage::Downloading, L"x", 99, 100);
    EXPECT_EQ(model.progress.aggregateDone, 20u);
    EXPECT_EQ(model.progress.percent, 20);
}

TEST(Aggregate, Verification_ShowsTheFigures) {
    WindowModel model = TransferWindow(20, 100);
    Apply(model, Stage::Verifying, L"x", 45, 100);
    EXPECT_EQ(model.At(Control::progressDetail).text, L"0.0 KB / 0.1 KB · 45%");
}

TEST(Aggregate, Installation_FillsTheBar) {
    WindowModel model = TransferWindow(512, 1024);
    Apply(model, Stage::Installing, L"2.2", 1, 9);
    EXPECT_EQ(model.progress.aggregateDone, 1024u);
    EXPECT_EQ(model.progress.percent, 100);
    EXPECT_FALSE(model.progress.indeterminate);
    EXPECT_EQ(model.At(Control::progressDetail).text, L"1.0 KB / 1.0 KB · 100%");
}

TEST(Aggregate, ChecksOfFiles_LeaveItAlone) {
    for (const Stage stage : {Stage::CheckingFiles, Stage::VerifyingFiles}) {
        WindowModel model = TransferWindow(20, 100);
        Apply(model, stage, L"x", 80, 100);
        EXPECT_EQ(model.progress.percent, 80);
        EXPECT_EQ(model.progress.aggregateDone, 20u) << Number(stage);
        Apply(model, Stage::Downloading, L"x", 0, 2);
        EXPECT_EQ(model.progress.percent, 20) << Number(stage);
    }
}

struct AggregateRow {
    std::uint64_t done;
    std::uint64_t total;
    std::int32_t percent;
    const wchar_t* detail;
};

constexpr AggregateRow kAggregates[] = {
    {0, 2048, 0, L"0.0 KB / 2.0 KB · 0%"},
    {1, 2048, 0, L"0.0 KB / 2.0 KB · 0.0%"},
    {2, 2048, 0, L"0.0 KB / 2.0 KB · 0.1%"},
    {20, 2048, 0, L"0.0 KB / 2.0 KB · 1.0%"},
    {21, 2048, 1, L"0.0 KB / 2.0 KB · 1%"},
    {1024, 2048, 50, L"1.0 KB / 2.0 KB · 50%"},
    {2047, 2048, 99, L"2.0 KB / 2.0 KB · 99%"},
    {2048, 2048, 100, L"2.0 KB / 2.0 KB · 100%"},
    {1572864, 3221225472, 0, L"1.5 MB / 3.0 GB · 0.0%"},
    {kLargest, kLargest, 100, L"17179869184.0 GB / 17179869184.0 GB · 100%"},
};

TEST(FormatAggregate, KnownTotal_GivesPercentAndDetail) {
    for (const AggregateRow& row : kAggregates) {
        UpdateProgressModel progress;
        progress.aggregateKnown = true;
        progress.aggregateDone = row.done;
        progress.aggregateTotal = row.total;
        std::int32_t percent = -1;
        std::wstring detail = L"old";
        EXPECT_TRUE(FormatAggregate(progress, percent, detail));
        EXPECT_EQ(percent, row.percent) << row.done << " of " << row.total;
        EXPECT_EQ(detail, row.detail) << row.done << " of " << row.total;
    }
}

TEST(FormatAggregate, UnknownOrEmptyTotal_GivesNothing) {
    for (const bool known : {false, true}) {
        UpdateProgressModel progress;
        progress.aggregateKnown = known;
        progress.aggregateDone = 5;
        progress.aggregateTotal = known ? 0 : 10;
        std::int32_t percent = 0;
        std::wstring detail;
        EXPECT_FALSE(FormatAggregate(progress, percent, detail)) << known;
    }
}

// --- Sequences ---

struct Step {
    Stage stage;
    const wchar_t* detail;
    std::uint64_t completed;
    std::uint64_t total;
    std::int32_t percent;
    bool indeterminate;
    Stage lastStage;
    bool cancelEnabled;
};

void Play(WindowModel& model, const std::vector<Step>& steps) {
    for (std::size_t index = 0; index < steps.size(); ++index) {
        const Step& step = steps[index];
        SCOPED_TRACE("step " + std::to_string(index));
        Apply(model, step.stage, step.detail, step.completed, step.total);
        EXPECT_EQ(model.progress.percent, step.percent);
        EXPECT_EQ(model.progress.indeterminate, step.indeterminate);
        EXPECT_EQ(model.progress.lastStage, step.lastStage);
        EXPECT_EQ(model.progress.cancelEnabled, step.cancelEnabled);
    }
}

TEST(Sequence, TwoPackages_ShareOneBarUntilTheEnd) {
    WindowModel model = ProgressWindow();
    Play(model, {
                    {Stage::Downloading, L"package:first", 0, 2, 0, true, Stage::Downloading, true},
                    {Stage::DownloadingBytes, L"package:first", 20, 100, 20, false, Stage::DownloadingBytes, true},
                    {Stage::Verifying, L"package:first/file", 5, 20, 20, false, Stage::Verifying, false},
                    {Stage::Verifying, L"package:first", 40, 100, 40, false, Stage::Verifying, false},
                    {Stage::Downloading, L"package:second", 1, 2, 40, false, Stage::Downloading, true},
                    {Stage::DownloadingBytes, L"package:second", 30, 100, 40, false, Stage::DownloadingBytes, true},
                    {Stage::DownloadingBytes, L"package:second", 80, 100, 80, false, Stage::DownloadingBytes, true},
                    {Stage::Verifying, L"package:second", 100, 100, 100, false, Stage::Verifying, false},
                    {Stage::Installing, L"2.1.4.2", 0, 0, 100, false, Stage::Installing, false},
                    {Stage::DownloadingBytes, L"stale", 60, 100, 100, false, Stage::Installing, false},
                });
    EXPECT_TRUE(model.progress.closeBlocked);
    Play(model, {
                    {Stage::Completed, L"2.1.4.2", 0, 0, 100, false, Stage::Completed, false},
                    {Stage::Verifying, L"stale", 70, 100, 100, false, Stage::Completed, false},
                });
    EXPECT_FALSE(model.progress.closeBlocked);
}

TEST(Sequence, VerificationAlone_TeachesNoTotal) {
    WindowModel model = ProgressWindow();
    Play(model, {{Stage::Verifying, L"candidate-a", 90, 100, 0, true, Stage::Verifying, false},
                 {Stage::Verifying, L"candidate-b", 10, 100, 0, true, Stage::Verifying, false}});
    EXPECT_FALSE(model.progress.aggregateKnown);
}

TEST(Sequence, BytesWithoutATotal_TeachNoTotal) {
    WindowModel model = ProgressWindow();
    Play(model, {{Stage::DownloadingBytes, L"unknown", 5, 0, 0, true, Stage::DownloadingBytes, true}});
    EXPECT_FALSE(model.progress.aggregateKnown);
}

TEST(Sequence, InstallationWithoutATransfer_IsInMotion) {
    WindowModel model = ProgressWindow();
    Play(model, {{Stage::Installing, L"2.1.4.2", 0, 0, 0, true, Stage::Installing, false}});
    EXPECT_TRUE(model.progress.closeBlocked);
}

TEST(Sequence, AfterACancel_StaleBytesChangeNothing) {
    WindowModel model = ProgressWindow();
    model.progress.cancelRequested = true;
    Play(model, {{Stage::Cancelled, L"", 0, 0, 0, false, Stage::Cancelled, false},
                 {Stage::DownloadingBytes, L"stale-after-cancel", 10, 100, 0, false, Stage::Cancelled, false}});
    EXPECT_TRUE(model.progress.terminal);
    EXPECT_FALSE(model.progress.closeBlocked);
}

TEST(Sequence, ResetBetweenTransfers_ForgetsTheFirst) {
    WindowModel model = TransferWindow(80, 100);
    ResetUpdateProgress(model);
    Play(model, {{Stage::Downloading, L"package:x", 0, 1, 0, true, Stage::Downloading, true},
                 {Stage::DownloadingBytes, L"package:x", 10, 50, 20, false, Stage::DownloadingBytes, true}});
}

TEST(Sequence, FailureAfterAnOffer_IsToldInTheLargeView) {
    WindowModel model = PromptWindow();
    Apply(model, Stage::Failed, L"why");
    EXPECT_EQ(model.viewMode, ViewMode::progress);
    EXPECT_EQ(model.At(Control::progressLine).text, model.Text(TextId::DidNotFinishChecking));
}

// --- Reset ---

/// Every field different from what a reset leaves.
WindowModel Used() {
    WindowModel model = TransferWindow(30, 100);
    UpdateProgressModel& progress = model.progress;
    progress.installing = progress.terminal = progress.cancelRequested = progress.cancelEnabled = true;
    progress.closeBlocked = progress.repairMode = progress.indeterminate = progress.marqueeRuns = true;
    progress.reconnectAvailable = progress.reconnectRequested = progress.progressSeen = progress.stallWatch = true;
    progress.lastProgressTicks = 77;
    progress.marqueeTick = 5;
    model.failureHeld = model.failureClosed = model.failureBlocking = true;
    model.promptOpen = true;
    model.promptChoice = PromptChoice::later;
    model.offeredVersion = model.fullNotesUrl = L"x";
    for (ControlState& control : model.controls) {
        control = {L"text", true, true};
    }
    return model;
}

TEST(ResetUpdateProgress, GoesBackToTheStartAndLeavesAllElse) {
    const WindowModel before = Used();
    WindowModel model = before;
    ResetUpdateProgress(model);
    const Names expected = {"aggregateKnown",
                            "aggregateDone",
                            "aggregateTotal",
                            "installing",
                            "terminal",
                            "lastStage",
                            "failureHeld",
                            "failureClosed",
                            "failureBlocking",
                            "reconnectAvailable",
                            "reconnectRequested",
                            "progressSeen",
                            "stallWatch",
                            "footer.text",
                            "cancelButton.text",
                            "reconnectButton.visible",
                            "reconnectButton.enabled"};
    EXPECT_EQ(Changed(before, model), expected);
}

TEST(ResetUpdateProgress, LeavesTheFirstState) {
    for (const Language language : kLanguages) {
        WindowModel model = Used();
        model.language = language;
        ResetUpdateProgress(model);
        EXPECT_EQ(model.progress.aggregateDone, 0u);
        EXPECT_EQ(model.progress.aggregateTotal, 0u);
        EXPECT_EQ(model.progress.lastStage, Stage::Checking);
        EXPECT_EQ(model.At(Control::cancelButton).text, product::TextIn(language, TextId::Cancel));
        EXPECT_EQ(model.At(Control::footer).text, product::TextIn(language, TextId::SafetyNoteSwitching));
    }
}

TEST(ResetUpdateProgress, Repeated_ChangesNothing) {
    WindowModel model = Used();
    ResetUpdateProgress(model);
    const WindowModel once = model;
    ResetUpdateProgress(model);
    EXPECT_EQ(Changed(once, model), Names{});
}

}  // namespace
}  // namespace launcher_ui
