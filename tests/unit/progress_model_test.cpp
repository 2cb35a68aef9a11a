#include "ui/progress_model.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/window_model_fixture.h"

namespace launcher_ui {
namespace {

using namespace test_support;

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

bool IsOneOf(Stage stage, std::initializer_list<Stage> stages) {
    for (const Stage one : stages) {
        if (one == stage) return true;
    }
    return false;
}

// --- What a stage shows ---

struct StageRow {
    Stage stage;
    const wchar_t* detail;
    std::uint64_t completed;
    std::uint64_t total;
    std::int32_t percent;
    bool indeterminate;
    bool cancellable;
    std::vector<Piece> text;
};

constexpr bool kMoving = true;
constexpr bool kStill = false;
constexpr bool kCancellable = true;
constexpr bool kFinal = false;

const std::vector<StageRow>& StageTable() {
    static const std::vector<Piece> kOnline = {TextId::UpToDate, TextId::OnlineVersionPrefix, L"2.2",
                                               TextId::OnlineVersionSuffix};
    static const std::vector<Piece> kWaiting = {TextId::VersionWaitingPrefix, L"2.2", TextId::AvailableWaitingSuffix};
    static const std::vector<Piece> kSkipped = {TextId::SkippedVersionPrefix, L"2.2", TextId::SkippedVersionSuffix};
    static const std::vector<Piece> kInstalling = {TextId::InstallingPrefix, L"2.2", TextId::InstallingSuffix};
    static const std::vector<StageRow> kTable = {
        {Stage::Checking, L"", 0, 0, 0, kMoving, kFinal, {TextId::CheckingForUpdates}},
        {Stage::Checking, L"detail", 5, 10, 0, kMoving, kFinal, {TextId::CheckingForUpdates}},
        {Stage::Skipped, L"", 0, 0, 100, kStill, kFinal, {TextId::RecentlyChecked}},
        {Stage::UpToDate, L"", 0, 0, 100, kStill, kFinal, {TextId::UpToDate}},
        {Stage::UpToDate, L"2.2", 0, 0, 100, kStill, kFinal, kOnline},
        {Stage::UpdateAvailable, L"2.2", 0, 0, 100, kStill, kFinal, kWaiting},
        {Stage::Repairing, L"2.2", 0, 0, 0, kMoving, kCancellable, {TextId::Repairing}},
        {Stage::Declined, L"2.2", 0, 0, 100, kStill, kFinal, kSkipped},
        {Stage::Downloading, L"package:x", 0, 2, 0, kMoving, kCancellable, {TextId::UpdatingRequiredResources}},
        {Stage::Downloading, L"package:", 0, 2, 0, kMoving, kCancellable, {TextId::UpdatingRequiredResources}},
        {Stage::Downloading, L"package", 0, 2, 0, kMoving, kCancellable, {TextId::Downloading}},
        {Stage::Downloading, L"Package:x", 0, 2, 0, kMoving, kCancellable, {TextId::Downloading}},
        {Stage::Downloading, L"a package:x", 0, 2, 0, kMoving, kCancellable, {TextId::Downloading}},
        {Stage::Downloading, L"app.zip", 1, 2, 0, kMoving, kCancellable, {TextId::Downloading}},
        {Stage::Downloading, L"", 1, 2, 0, kMoving, kCancellable, {TextId::Downloading}},
        {Stage::DownloadingBytes, L"package:x", 3, 8, 37, kStill, kCancellable, {TextId::UpdatingRequiredResources}},
        {Stage::DownloadingBytes, L"app.zip", 8, 8, 100, kStill, kCancellable, {TextId::Downloading}},
        {Stage::DownloadingBytes, L"app.zip", 8, 0, 0, kMoving, kCancellable, {TextId::Downloading}},
        {Stage::Verifying, L"package:x", 3, 8, 0, kMoving, kFinal, {TextId::VerifyingDownload}},
        {Stage::Installing, L"2.2", 0, 0, 0, kMoving, kFinal, kInstalling},
        {Stage::Completed, L"2.2", 0, 0, 100, kStill, kFinal, {TextId::CompletedPrefix, L"2.2"}},
        {Stage::Cancelled, L"2.2", 0, 0, 0, kStill, kFinal, {TextId::CancelledStarting}},
        {Stage::Failed, L"no space", 0, 0, 100, kStill, kFinal, {TextId::DidNotFinishChecking}},
        {Stage::CheckingFiles, L"a.dll", 1, 3, 33, kStill, kFinal, {L"33% · ", TextId::CheckingFiles, L" · a.dll"}},
        {Stage::CheckingFiles, L"", 2, 3, 66, kStill, kFinal, {L"66% · ", TextId::CheckingFiles}},
        {Stage::CheckingFiles, L"a.dll", 7, 0, 0, kMoving, kFinal, {L"0% · ", TextId::CheckingFiles, L" · a.dll"}},
        {Stage::CheckingFiles, L"", 0, 0, 0, kMoving, kFinal, {L"0% · ", TextId::CheckingFiles}},
        {Stage::VerifyingFiles, L"a.dll", 0, 3, 0, kStill, kFinal, {L"0% · ", TextId::VerifyingFiles, L" · a.dll"}},
        {Stage::VerifyingFiles, L"", 4, 3, 100, kStill, kFinal, {L"100% · ", TextId::VerifyingFiles}},
        {Stage::VerifyingFiles, L"", kLargest, kLargest, 100, kStill, kFinal, {L"100% · ", TextId::VerifyingFiles}},
        {Stage::VerifyingFiles, L"", 4, 0, 0, kMoving, kFinal, {L"0% · ", TextId::VerifyingFiles}},
    };
    return kTable;
}

std::string RowName(const StageRow& row, Language language) {
    return "stage " + std::to_string(Number(row.stage)) + " \"" + Narrow(row.detail) + "\" " +
           std::to_string(row.completed) + "/" + std::to_string(row.total) + " in language " +
           std::to_string(Number(language));
}

template <typename Check>
void ForEachRow(const Check& check) {
    for (const Language language : kLanguages) {
        for (const StageRow& row : StageTable()) {
            SCOPED_TRACE(RowName(row, language));
            WindowModel model = ProgressWindow(language);
            Apply(model, row.stage, row.detail, row.completed, row.total);
            check(model, row, language);
        }
    }
}

TEST(ApplyStage, EveryStage_SaysItsText) {
    ForEachRow([](const WindowModel& model, const StageRow& row, Language language) {
        const std::wstring text = Joined(language, row.text);
        EXPECT_EQ(model.At(Control::progressLine).text, text);
        EXPECT_EQ(model.At(Control::bar).text, text) << "for those who do not see the bar";
        EXPECT_EQ(MainText(model), text);
    });
}

TEST(ApplyStage, EveryStage_MovesTheBar) {
    ForEachRow([](const WindowModel& model, const StageRow& row, Language) {
        EXPECT_EQ(model.progress.percent, row.percent);
        EXPECT_EQ(model.progress.indeterminate, row.indeterminate);
        EXPECT_EQ(model.progress.marqueeRuns, row.indeterminate);
    });
}

TEST(ApplyStage, EveryStage_DecidesWhetherCancelWorks) {
    ForEachRow([](const WindowModel& model, const StageRow& row, Language) {
        EXPECT_EQ(model.progress.cancelEnabled, row.cancellable);
        EXPECT_EQ(model.At(Control::cancelButton).enabled, row.cancellable);
        EXPECT_TRUE(model.At(Control::cancelButton).visible);
    });
}

TEST(ApplyStage, EveryStage_IsRemembered) {
    ForEachRow([](const WindowModel& model, const StageRow& row, Language) {
        EXPECT_EQ(model.progress.lastStage, row.stage);
    });
}

TEST(ApplyStage, UnknownTotal_HasNoDetail) {
    ForEachRow([](const WindowModel& model, const StageRow& row, Language) {
        const bool isKnown = row.stage == Stage::DownloadingBytes && row.total != 0;
        EXPECT_EQ(model.At(Control::progressDetail).text.empty(), !isKnown);
    });
}

TEST(ApplyStage, CancelRequested_LeavesNothingToCancel) {
    for (const StageRow& row : StageTable()) {
        WindowModel model = ProgressWindow();
        model.progress.cancelRequested = true;
        Apply(model, row.stage, row.detail, row.completed, row.total);
        EXPECT_FALSE(model.progress.cancelEnabled) << RowName(row, model.language);
        EXPECT_FALSE(model.At(Control::cancelButton).enabled) << RowName(row, model.language);
        EXPECT_TRUE(model.progress.cancelRequested) << RowName(row, model.language);
    }
}

TEST(ApplyStage, Colour_TellsHowItStands) {
    for (const Stage stage : kStages) {
        WindowModel model = ProgressWindow();
        model.progress.barColour = 0x123456;
        Apply(model, stage, L"x");
        Colour expected = 0x2997FF;
        if (stage == Stage::Failed) expected = 0xE85454;
        if (stage == Stage::UpdateAvailable) expected = 0xF0AE3A;
        if (IsOneOf(stage, {Stage::UpToDate, Stage::Completed})) expected = 0x30BE7A;
        EXPECT_EQ(model.progress.barColour, expected) << Number(stage);
    }
}

TEST(ApplyStage, AfterATransfer_NoStageButItsOwnHasADetail) {
    for (const Stage stage : kStages) {
        WindowModel model = TransferWindow(30, 100);
        ASSERT_EQ(model.At(Control::progressDetail).text, L"0.0 KB / 0.1 KB · 30%");
        Apply(model, stage, L"x", 1, 2);
        EXPECT_EQ(model.At(Control::progressDetail).text.empty(), !IsTransferStage(stage)) << Number(stage);
    }
}

TEST(ApplyStage, StillBar_StartsItsMotionAnew) {
    for (const Stage stage : kStages) {
        WindowModel model = ProgressWindow();
        Apply(model, Stage::Checking);
        model.progress.marqueeTick = 7;
        Apply(model, stage, L"x", 1, 2);
        EXPECT_EQ(model.progress.marqueeTick, model.progress.indeterminate ? 7u : 0u) << Number(stage);
        EXPECT_EQ(model.progress.marqueeRuns, model.progress.indeterminate) << Number(stage);
    }
}

// --- Unknown stages ---

TEST(ApplyStage_UnknownStage, LeavesTextAndBarAsTheyAre) {
    for (const bool moving : {false, true}) {
        WindowModel model = moving ? ProgressWindow() : TransferWindow(30, 100);
        if (moving) Apply(model, Stage::Downloading, L"app.zip");
        const WindowModel before = model;
        Apply(model, kUnknownStage, L"x", 90, 100);
        EXPECT_EQ(MainText(model), MainText(before));
        EXPECT_EQ(model.At(Control::bar).text, MainText(before));
        EXPECT_EQ(model.progress.percent, before.progress.percent);
        EXPECT_EQ(model.progress.indeterminate, moving);
        EXPECT_EQ(model.progress.marqueeRuns, moving);
    }
}

TEST(ApplyStage_UnknownStage, CannotBeCancelledAndHasNoDetail) {
    WindowModel model = TransferWindow(30, 100);
    Apply(model, kUnknownStage, L"x", 90, 100);
    EXPECT_EQ(model.At(Control::progressDetail).text, L"");
    EXPECT_FALSE(model.progress.cancelEnabled);
    EXPECT_FALSE(model.progress.closeBlocked);
    EXPECT_EQ(model.progress.lastStage, kUnknownStage);
}

TEST(ApplyStage_UnknownStage, LearnsNothing) {
    WindowModel model = ProgressWindow();
    Apply(model, kUnknownStage, L"x", 90, 100);
    EXPECT_FALSE(model.progress.aggregateKnown);
    EXPECT_FALSE(model.progress.installing);
    EXPECT_FALSE(model.progress.terminal);
}

// --- The view ---

ViewMode ViewAfter(Stage stage, ViewMode view, bool repair) {
    if (repair || view == ViewMode::progress) return view;
    const bool opens = IsTransferStage(stage) || IsOneOf(stage, {Stage::Completed, Stage::Cancelled}) ||
                       (stage == Stage::Failed && view == ViewMode::prompt);
    return opens ? ViewMode::progress : view;
}

template <typename Check>
void ForEachStageViewAndRepair(const Check& check) {
    for (const Stage stage : kStages) {
        for (const ViewMode view : kViews) {
            for (const bool repair : {false, true}) {
                SCOPED_TRACE("stage " + std::to_string(Number(stage)) + ", view " + std::to_string(Number(view)) +
                             (repair ? ", repair" : ""));
                WindowModel model = WindowIn(view);
                model.progress.repairMode = repair;
                check(model, stage, ViewAfter(stage, view, repair));
            }
        }
    }
}

TEST(ApplyStage_View, StageOfTheUpdate_OpensTheProgressViewOnce) {
    ForEachStageViewAndRepair([](WindowModel& model, Stage stage, ViewMode expected) {
        const unsigned arrangement = model.arrangement + (model.viewMode == expected ? 0 : 1);
        Apply(model, stage, L"x", 1, 2);
        EXPECT_EQ(model.viewMode, expected);
        EXPECT_EQ(model.arrangement, arrangement);
    });
}

TEST(ApplyStage_View, MainText_IsOnTheLineOfTheView) {
    ForEachStageViewAndRepair([](WindowModel& model, Stage stage, ViewMode expected) {
        model.At(Control::statusLine).text = L"status";
        model.At(Control::progressLine).text = L"progress";
        Apply(model, stage, L"x", 1, 2);
        const bool progressView = expected == ViewMode::progress;
        const Control line = progressView ? Control::progressLine : Control::statusLine;
        EXPECT_EQ(model.At(line).text, model.At(Control::bar).text);
        if (progressView) {
            EXPECT_EQ(model.At(Control::statusLine).text, L"status");
        } else {
            EXPECT_EQ(model.At(Control::progressLine).text, L"progress");
        }
    });
}

TEST(ApplyStage_View, OtherViews_ShowNeitherDetailNorCancel) {
    ForEachStageViewAndRepair([](WindowModel& model, Stage stage, ViewMode expected) {
        model.At(Control::progressDetail).text = L"detail";
        model.At(Control::cancelButton).enabled = true;
        Apply(model, stage, L"x", 1, 2);
        const bool progressView = expected == ViewMode::progress;
        EXPECT_EQ(model.At(Control::cancelButton).visible, progressView);
        EXPECT_EQ(model.At(Control::progressDetail).text == L"detail", !progressView);
        if (!progressView) {
            EXPECT_TRUE(model.At(Control::cancelButton).enabled) << "left as it was";
        }
    });
}

TEST(ApplyStage_View, CloseBox_IsBlockedFromTheTransferToTheEnd) {
    ForEachStageViewAndRepair([](WindowModel& model, Stage stage, ViewMode) {
        for (const bool before : {false, true}) {
            WindowModel copy = model;
            copy.progress.closeBlocked = before;
            Apply(copy, stage, L"x", 1, 2);
            EXPECT_EQ(copy.progress.closeBlocked, IsTransferStage(stage) || stage == Stage::Repairing) << before;
        }
    });
}

TEST(ApplyStage_View, Cancel_WorksInEveryView) {
    ForEachStageViewAndRepair([](WindowModel& model, Stage stage, ViewMode) {
        Apply(model, stage, L"x", 1, 2);
        EXPECT_EQ(model.progress.cancelEnabled,
                  IsOneOf(stage, {Stage::Repairing, Stage::Downloading, Stage::DownloadingBytes}));
    });
}

TEST(ApplyStage_View, HiddenWindow_IsShownByARepairAndByANewView) {
    ForEachStageViewAndRepair([](WindowModel& model, Stage stage, ViewMode expected) {
        model.shown = false;
        const bool opens = expected != model.viewMode;
        Apply(model, stage, L"x", 1, 2);
        EXPECT_EQ(model.shown, opens || stage == Stage::Repairing);
    });
}

TEST(ApplyStage_View, OpenedProgressView_HasItsControlsAndLabel) {
    WindowModel model = CompactWindow();
    Apply(model, Stage::Downloading, L"app.zip", 0, 2);
    EXPECT_EQ(VisibleControls(model), VisibleControls(ProgressWindow()));
    EXPECT_EQ(model.At(Control::cancelButton).text, model.Text(TextId::SkipUpdateAndOpen));
    EXPECT_TRUE(model.At(Control::cancelButton).enabled);
}

TEST(ApplyStage_View, ProgressViewThatIsOpen_IsNotOpenedAgain) {
    WindowModel model = TransferWindow(30, 100);
    Report(model, Receiving(1024.0));
    model.At(Control::cancelButton).text = L"label";
    Apply(model, Stage::DownloadingBytes, L"app.zip", 40, 100);
    EXPECT_TRUE(model.At(Control::reconnectButton).visible);
    EXPECT_EQ(model.At(Control::cancelButton).text, L"label");
}

// --- Repair ---

TEST(ApplyStage_Repair, NeverSpeaksOfDownloads) {
    for (const Language language : kLanguages) {
        for (const StageRow& row : StageTable()) {
            if (!IsTransferStage(row.stage)) continue;
            WindowModel model = RepairWindow(language);
            Apply(model, row.stage, row.detail, row.completed, row.total);
            EXPECT_EQ(MainText(model), model.Text(TextId::Repairing)) << RowName(row, language);
            EXPECT_EQ(model.At(Control::bar).text, model.Text(TextId::Repairing)) << RowName(row, language);
        }
    }
}

TEST(ApplyStage_Repair, Completed_IsUpToDate) {
    for (const Language language : kLanguages) {
        WindowModel model = RepairWindow(language);
        Apply(model, Stage::Completed, L"2.2");
        EXPECT_EQ(MainText(model), model.Text(TextId::UpToDate));
    }
}

TEST(ApplyStage_Repair, OtherStages_SayTheirOwnTexts) {
    for (const Language language : kLanguages) {
        for (const StageRow& row : StageTable()) {
            if (IsTransferStage(row.stage) || IsOneOf(row.stage, {Stage::Completed, Stage::Repairing})) continue;
            WindowModel model = RepairWindow(language);
            Apply(model, row.stage, row.detail, row.completed, row.total);
            EXPECT_EQ(MainText(model), Joined(language, row.text)) << RowName(row, language);
        }
    }
}

TEST(ApplyStage_Repair, InTheProgressView_ReplacesTheTextToo) {
    WindowModel model = ProgressWindow();
    model.progress.repairMode = true;
    Apply(model, Stage::Downloading, L"app.zip", 0, 2);
    EXPECT_EQ(model.At(Control::progressLine).text, model.Text(TextId::Repairing));
}

TEST(ApplyStage_Repair, InTheProgressView_EndsInItsOwnWords) {
    for (const auto& [stage, text] : {std::pair{Stage::Cancelled, TextId::CancelledStarting},
                                      std::pair{Stage::Failed, TextId::DidNotFinishChecking}}) {
        WindowModel model = ProgressWindow();
        model.progress.repairMode = true;
        Apply(model, stage, L"x");
        EXPECT_EQ(model.At(Control::progressLine).text, model.Text(text));
    }
}

TEST(ApplyStage_Repair, HasTheFiguresOfItsTransfer) {
    WindowModel model = RepairWindow();
    Apply(model, Stage::DownloadingBytes, L"package:x", 53, 100);
    EXPECT_EQ(model.progress.percent, 53);
    EXPECT_FALSE(model.progress.indeterminate);
}

TEST(ApplyStage_Repair, BringsTheHiddenCompactWindowToLight) {
    WindowModel model = CompactWindow();
    model.shown = false;
    Apply(model, Stage::Repairing);
    EXPECT_TRUE(model.shown);
    EXPECT_EQ(model.viewMode, ViewMode::compact);
    EXPECT_TRUE(model.progress.repairMode);
    EXPECT_TRUE(model.progress.cancelEnabled);
    EXPECT_TRUE(model.progress.closeBlocked);
}

TEST(ApplyStage_Repair, TransferBehindTheCompactWindow_IsCancelledByTheCloseBox) {
    WindowModel model = RepairWindow();
    Apply(model, Stage::DownloadingBytes, L"package:application-runtime", 53, 100);
    EXPECT_EQ(model.viewMode, ViewMode::compact);
    EXPECT_EQ(VisibleControls(model), (Names{"title", "versionLine", "statusLine", "bar"}));
    PressCloseBox(model);
    EXPECT_TRUE(model.progress.cancelRequested);
    EXPECT_EQ(model.At(Control::statusLine).text, model.Text(TextId::CancellingSafely));
}

TEST(ApplyStage_Repair, OnlyItsOwnStage_BeginsARepair) {
    for (const Stage stage : kStages) {
        WindowModel model = CompactWindow();
        Apply(model, stage, L"x");
        EXPECT_EQ(model.progress.repairMode, stage == Stage::Repairing) << Number(stage);
    }
}

TEST(ApplyStage_Repair, StartsTheUpdateAnew) {
    WindowModel model = TransferWindow(30, 100);
    Report(model, Receiving(1024.0));
    Apply(model, Stage::Installing, L"2.2");
    Apply(model, Stage::Completed, L"2.2");
    Apply(model, Stage::Repairing);
    EXPECT_FALSE(model.progress.aggregateKnown);
    EXPECT_FALSE(model.progress.installing);
    EXPECT_FALSE(model.progress.terminal);
    EXPECT_FALSE(model.progress.progressSeen);
    Apply(model, Stage::DownloadingBytes, L"package:x", 1, 4);
    EXPECT_EQ(model.progress.percent, 25);
}

// --- Late events ---

WindowModel Installing() {
    WindowModel model = TransferWindow(30, 100);
    Apply(model, Stage::Installing, L"2.2");
    return model;
}

WindowModel EndedBy(Stage stage) {
    WindowModel model = TransferWindow(30, 100);
    Apply(model, stage, L"2.2");
    return model;
}

TEST(ApplyStage_LateEvent, OfTheTransfer_ChangesNothing) {
    for (const WindowModel& over : {Installing(), EndedBy(Stage::Completed), EndedBy(Stage::Cancelled),
                                    EndedBy(Stage::Failed), FailureWindow(true), FailureWindow(false)}) {
        for (const Stage stage : kTransferStages) {
            WindowModel model = over;
            Apply(model, stage, L"package:late", 60, 100);
            EXPECT_EQ(Changed(over, model), Names{}) << Number(stage) << " after " << Number(over.progress.lastStage);
        }
    }
}

TEST(ApplyStage_LateEvent, OfTheTransfer_DoesNotLeaveTheCompactView) {
    for (const Stage stage : kTransferStages) {
        WindowModel model = CompactWindow();
        model.progress.terminal = true;
        const WindowModel before = model;
        Apply(model, stage, L"package:late", 60, 100);
        EXPECT_EQ(Changed(before, model), Names{}) << Number(stage);
    }
}

TEST(ApplyStage_LateEvent, OfAnotherKind_TakesEffect) {
    for (const WindowModel& over : {Installing(), EndedBy(Stage::Completed)}) {
        for (const Stage stage : kStages) {
            if (IsTransferStage(stage)) continue;
            WindowModel model = over;
            model.progress.lastStage = Stage::Downloading;
            Apply(model, stage, L"x", 1, 2);
            EXPECT_EQ(model.progress.lastStage, stage);
        }
    }
}

TEST(ApplyStage_LateEvent, RepairAfterTheEnd_OpensTheTransferAgain) {
    WindowModel model = EndedBy(Stage::Failed);
    Apply(model, Stage::Repairing);
    Apply(model, Stage::Downloading, L"package:x", 0, 2);
    EXPECT_EQ(model.progress.lastStage, Stage::Downloading);
}

TEST(ApplyStage_End, ThreeStages_AreTerminal) {
    for (const Stage stage : kStages) {
        WindowModel model = ProgressWindow();
        Apply(model, stage, L"x", 1, 2);
        EXPECT_EQ(model.progress.terminal, IsOneOf(stage, {Stage::Completed, Stage::Cancelled, Stage::Failed}))
            << Number(stage);
        EXPECT_EQ(model.progress.installing, stage == Stage::Installing) << Number(stage);
    }
}

TEST(ApplyStage_End, TerminalState_OutlastsLaterStages) {
    for (const Stage stage : kStages) {
        if (stage == Stage::Repairing) continue;
        WindowModel model = EndedBy(Stage::Completed);
        Apply(model, stage, L"x", 1, 2);
        EXPECT_TRUE(model.progress.terminal) << Number(stage);
    }
}

// --- The footer ---

WindowModel WithReconnectWanted() {
    WindowModel model = TransferWindow(30, 100);
    Report(model, Receiving(1024.0));
    EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
    model.At(Control::reconnectButton).enabled = true;
    model.At(Control::footer).text = L"footer";
    return model;
}

TEST(ApplyStage_Footer, FromVerificationToTheEnd_SpeaksOfNoConnection) {
    for (const Stage stage : kStages) {
        if (stage == Stage::Repairing) continue;
        WindowModel model = WithReconnectWanted();
        Apply(model, stage, L"x", 1, 2);
        const bool ends = Number(stage) >= 8 && Number(stage) <= 12;
        EXPECT_EQ(model.progress.reconnectAvailable, !ends) << Number(stage);
        EXPECT_EQ(model.progress.reconnectRequested, !ends) << Number(stage);
        EXPECT_EQ(model.At(Control::reconnectButton).enabled, !ends) << Number(stage);
        EXPECT_EQ(model.At(Control::reconnectButton).visible, !ends) << Number(stage);
        std::wstring footer = ends ? model.Text(TextId::SafetyNoteSwitching) : L"footer";
        if (stage == Stage::Verifying) footer = model.Text(TextId::VerifyingDownload);
        EXPECT_EQ(model.At(Control::footer).text, footer) << Number(stage);
    }
}

TEST(ApplyStage_Footer, IsKeptBehindTheCompactWindowToo) {
    WindowModel model = RepairWindow();
    Apply(model, Stage::Verifying, L"package:x", 1, 2);
    EXPECT_EQ(model.At(Control::footer).text, model.Text(TextId::VerifyingDownload));
    Apply(model, Stage::Installing, L"2.2");
    EXPECT_EQ(model.At(Control::footer).text, model.Text(TextId::SafetyNoteSwitching));
}

TEST(ApplyStage_Footer, StaysInItsLanguage) {
    for (const Language language : kLanguages) {
        WindowModel model = TransferWindow(30, 100, language);
        Apply(model, Stage::Verifying, L"x", 1, 2);
        EXPECT_EQ(model.At(Control::footer).text, product::TextIn(language, TextId::VerifyingDownload));
    }
}

}  // namespace
}  // namespace launcher_ui
