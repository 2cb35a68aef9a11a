#include "ui/failure_view.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/window_model_fixture.h"

namespace launcher_ui {
namespace {

using namespace test_support;

const std::wstring kDetail = L"A download was interrupted; the installed version was not changed.";

struct CaseRow {
    const char* name;
    TextId text;
    const wchar_t* detail;
    bool blocking;
    bool isError;
    Colour bar;
    TextId footer;
};

constexpr CaseRow kCases[] = {
    {"unsafe failure", TextId::RecoveryNeedsAttention, L"why", true, true, 0xE85454, TextId::LaunchStopped},
    {"safe failure", TextId::DidNotFinishStarting, L"why", false, true, 0xE85454, TextId::AutoStartNote},
    {"launcher too old", TextId::LauncherTooOld, L"", false, false, 0x2997FF, TextId::AutoStartNote},
    {"already up to date", TextId::AlreadyLatest, L"", false, false, 0x2997FF, TextId::AutoStartNote},
    {"blocking notice", TextId::LauncherTooOld, L"", true, false, 0x2997FF, TextId::LaunchStopped},
};

/// Runs `check` on every case, opened from every view in every language.
template <typename Check>
void ForEachCase(const Check& check) {
    for (const Language language : kLanguages) {
        for (const ViewMode view : kViews) {
            for (const CaseRow& row : kCases) {
                SCOPED_TRACE(std::string(row.name) + ", view " + std::to_string(Number(view)) + ", language " +
                             std::to_string(Number(language)));
                WindowModel model = WindowIn(view, language);
                OpenFailureView(model, product::TextIn(language, row.text), row.detail, row.blocking, row.isError);
                check(model, row);
            }
        }
    }
}

TEST(FailureView, EveryCase_SaysItsText) {
    ForEachCase([](const WindowModel& model, const CaseRow& row) {
        const std::wstring text = model.Text(row.text);
        EXPECT_EQ(model.At(Control::statusLine).text, text);
        EXPECT_EQ(model.At(Control::progressLine).text, text);
        EXPECT_EQ(model.At(Control::progressDetail).text, L"");
        EXPECT_EQ(model.At(Control::footer).text, model.Text(row.footer));
        EXPECT_EQ(model.At(Control::notesHeading).text, model.Text(TextId::StatusDetails));
    });
}

TEST(FailureView, EveryCase_HasAFullStillBar) {
    ForEachCase([](const WindowModel& model, const CaseRow& row) {
        EXPECT_EQ(model.progress.percent, 100);
        EXPECT_FALSE(model.progress.indeterminate);
        EXPECT_FALSE(model.progress.marqueeRuns);
        EXPECT_EQ(model.progress.barColour, row.bar);
    });
}

TEST(FailureView, OnlyABlockingOne_OffersClose) {
    ForEachCase([](const WindowModel& model, const CaseRow& row) {
        const ControlState& close = model.At(Control::cancelButton);
        EXPECT_EQ(close.text, model.Text(TextId::Close));
        EXPECT_EQ(close.visible, row.blocking);
        EXPECT_EQ(close.enabled, row.blocking);
    });
}

TEST(FailureView, EveryCase_ShowsTheProgressViewWithoutTheBadge) {
    ForEachCase([](const WindowModel& model, const CaseRow& row) {
        Names expected = {"title",        "statusLine",     "bar",   "notesHeading", "scrollHint", "notesPanel",
                          "progressLine", "progressDetail", "footer"};
        if (row.blocking) expected.insert("cancelButton");
        EXPECT_EQ(model.viewMode, ViewMode::progress);
        EXPECT_EQ(VisibleControls(model), expected);
        EXPECT_TRUE(model.shown);
    });
}

TEST(FailureView, EveryCase_EndsTheUpdate) {
    ForEachCase([](const WindowModel& model, const CaseRow& row) {
        EXPECT_TRUE(model.progress.terminal);
        EXPECT_FALSE(model.progress.installing);
        EXPECT_FALSE(model.progress.cancelEnabled);
        EXPECT_FALSE(model.progress.closeBlocked);
        EXPECT_FALSE(model.progress.stallWatch);
        EXPECT_FALSE(model.progress.reconnectAvailable);
        EXPECT_FALSE(model.promptOpen);
        EXPECT_TRUE(model.failureHeld);
        EXPECT_FALSE(model.failureClosed);
        EXPECT_EQ(model.failureBlocking, row.blocking);
    });
}

TEST(FailureView, EveryCase_IsReadWhereNotesAreRead) {
    ForEachCase([](const WindowModel& model, const CaseRow& row) {
        launcher_update::ReleaseNotes expected;
        expected.summary = model.Text(row.text);
        if (*row.detail != L'\0') expected.highlights = {row.detail};
        expected.priority = L"normal";
        EXPECT_EQ(model.notes, expected);
    });
}

TEST(FailureView, Opened_FillsThePanelAndArrangesTheWindow) {
    WindowModel model = ProgressWindow();
    const WindowModel before = model;
    OpenFailureView(model, L"text", L"", true, true);
    EXPECT_EQ(model.notesRevision, before.notesRevision + 1);
    EXPECT_EQ(model.arrangement, before.arrangement + 1) << "the button is narrow from now on";
}

TEST(FailureView, Close_TakesTheNarrowPlace) {
    const WindowModel model = FailureWindow(true);
    EXPECT_EQ(PlaceOf(Control::cancelButton, model.viewMode, model.failureHeld, 96), (Rectangle{620, 528, 708, 560}));
}

TEST(FailureView, DuringATransfer_EndsItsTimersAndButtons) {
    WindowModel model = TransferWindow(30, 100);
    Report(model, Receiving(1024.0));
    EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
    OpenFailureView(model, L"text", L"", true, true);
    EXPECT_FALSE(model.progress.stallWatch);
    EXPECT_FALSE(model.progress.reconnectAvailable);
    EXPECT_FALSE(model.progress.reconnectRequested);
    EXPECT_FALSE(model.progress.aggregateKnown);
    EXPECT_FALSE(model.At(Control::reconnectButton).visible);
    EXPECT_FALSE(model.At(Control::reconnectButton).enabled);
}

TEST(FailureView, DuringAMotion_StopsTheBar) {
    WindowModel model = ProgressWindow();
    Apply(model, Stage::Checking);
    OpenFailureView(model, L"text", L"", true, true);
    EXPECT_FALSE(model.progress.indeterminate);
    EXPECT_FALSE(model.progress.marqueeRuns);
}

TEST(FailureView, AnotherOne_IsHeldAnew) {
    WindowModel model = FailureWindow(true);
    PressCloseBox(model);
    OpenFailureView(model, L"text", L"Recovery remains incomplete.", true, true);
    EXPECT_FALSE(model.failureClosed);
    EXPECT_TRUE(FailureIsHeld(model));
    EXPECT_TRUE(model.shown);
    OpenFailureView(model, L"text", L"", false, true);
    EXPECT_FALSE(model.failureBlocking);
}

TEST(FailureView, AfterAStageFailed_SaysWhatHappensNext) {
    WindowModel model = ProgressWindow();
    Apply(model, Stage::Failed, L"why");
    EXPECT_EQ(model.At(Control::progressLine).text, model.Text(TextId::DidNotFinishChecking));
    OpenFailure(model, true, L"why");
    EXPECT_EQ(model.At(Control::progressLine).text, model.Text(TextId::DidNotFinishStarting));
}

// --- The detail ---

TEST(FailureView_Detail, Empty_GivesNoHighlight) {
    WindowModel model = CompactWindow();
    OpenFailureView(model, L"text", L"", true, true);
    EXPECT_TRUE(model.notes.highlights.empty());
}

TEST(FailureView_Detail, LongOne_IsCut) {
    for (const std::size_t length : {1u, 8191u, 8192u, 8193u, 100000u}) {
        std::wstring detail(length, L'a');
        if (length > 8192) detail[8192] = L'b';
        WindowModel model = CompactWindow();
        OpenFailureView(model, L"text", detail, true, true);
        ASSERT_EQ(model.notes.highlights.size(), 1u) << length;
        EXPECT_EQ(model.notes.highlights[0], std::wstring(length < 8192 ? length : 8192, L'a')) << length;
    }
}

// --- Safe and unsafe ---

TEST(Failure, Safe_DoesNotBlockTheStart) {
    for (const Language language : kLanguages) {
        WindowModel model = CompactWindow(language);
        WindowModel expected = model;
        OpenFailure(model, true, kDetail);
        OpenFailureView(expected, product::TextIn(language, TextId::DidNotFinishStarting), kDetail, false, true);
        EXPECT_EQ(Changed(expected, model), Names{});
        EXPECT_FALSE(FailureIsHeld(model));
    }
}

TEST(Failure, Unsafe_BlocksTheStart) {
    for (const Language language : kLanguages) {
        WindowModel model = CompactWindow(language);
        WindowModel expected = model;
        OpenFailure(model, false, kDetail);
        OpenFailureView(expected, product::TextIn(language, TextId::RecoveryNeedsAttention), kDetail, true, true);
        EXPECT_EQ(Changed(expected, model), Names{});
        EXPECT_TRUE(FailureIsHeld(model));
    }
}

TEST(FailureIsHeld, OnlyWhileHeldBlockingAndOpen) {
    for (const bool held : {false, true}) {
        for (const bool blocking : {false, true}) {
            for (const bool closed : {false, true}) {
                WindowModel model;
                model.failureHeld = held;
                model.failureBlocking = blocking;
                model.failureClosed = closed;
                EXPECT_EQ(FailureIsHeld(model), held && blocking && !closed) << held << blocking << closed;
            }
        }
    }
}

TEST(FailureIsHeld, CloseButtonAndCloseBoxAndEscape_EndIt) {
    WindowModel byButton = FailureWindow(true);
    EXPECT_EQ(PressButton(byButton, kCancelButtonId), ButtonEffect::none);
    EXPECT_FALSE(FailureIsHeld(byButton));
    WindowModel byBox = FailureWindow(true);
    PressCloseBox(byBox);
    EXPECT_FALSE(FailureIsHeld(byBox));
    WindowModel byKey = FailureWindow(true);
    EXPECT_TRUE(PressEscape(byKey));
    EXPECT_FALSE(FailureIsHeld(byKey));
}

TEST(FailureIsHeld, Reset_EndsIt) {
    WindowModel model = FailureWindow(true);
    ResetUpdateProgress(model);
    EXPECT_FALSE(FailureIsHeld(model));
    EXPECT_FALSE(model.failureHeld);
}

// --- Late events ---

TEST(FailureView_LateEvent, ChangesNothing) {
    for (const bool blocking : {false, true}) {
        const WindowModel before = FailureWindow(blocking);
        for (const Stage stage : kTransferStages) {
            WindowModel model = before;
            Apply(model, stage, L"late", 10, 100);
            EXPECT_EQ(Changed(before, model), Names{}) << "stage " << Number(stage);
        }
        for (const Phase phase : kPhases) {
            WindowModel model = before;
            Report(model, ReportIn(phase), 9000);
            EXPECT_EQ(Changed(before, model), Names{}) << "phase " << Number(phase);
        }
        WindowModel model = before;
        CheckStall(model, 99000);
        StepMarquee(model);
        RequestCancel(model);
        EXPECT_FALSE(TakeReconnectRequest(model));
        EXPECT_FALSE(PressEnter(model));
        EXPECT_EQ(Changed(before, model), Names{}) << "timers and questions";
    }
}

}  // namespace
}  // namespace launcher_ui
