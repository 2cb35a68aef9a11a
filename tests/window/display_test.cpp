#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "tests/window/touch_log.h"
#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

class DisplayTest : public WindowTest {
  protected:
    void ExpectControlsAgree() {
        for (int index = 0; index < launcher_ui::kControlCount; ++index) {
            const Control control = ControlAt(index);
            SCOPED_TRACE(index);
            const auto& state = status_.model.At(control);
            EXPECT_EQ((StyleOf(At(control)) & WS_VISIBLE) != 0, state.visible);
            EXPECT_EQ(IsWindowEnabled(At(control)) != FALSE, state.enabled);
            if (control == Control::notesPanel) continue;
            EXPECT_EQ(Narrow(TextOf(At(control))), Narrow(state.text));
        }
    }
};

TEST_F(DisplayTest, Controls_AfterEveryStage_AgreeWithTheModel) {
    Open();
    const std::array stages = {Stage::Checking,       Stage::CheckingFiles, Stage::UpdateAvailable, Stage::Downloading,
                               Stage::Verifying,      Stage::Installing,    Stage::Completed,       Stage::Repairing,
                               Stage::VerifyingFiles, Stage::Failed};
    for (const Stage stage : stages) {
        SCOPED_TRACE(static_cast<int>(stage));
        Tell(stage, L"detail", 1, 3);
        ExpectControlsAgree();
    }
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
    ExpectControlsAgree();
    launcher_ui::ShowFailure(status_, false, L"Why");
    ExpectControlsAgree();
    launcher_ui::ShowFailure(status_, true, L"Why");
    ExpectControlsAgree();
}

TEST_F(DisplayTest, Controls_OfAHiddenWindow_AgreeWithTheModel) {
    OpenTransfer();
    Tell(Receiving());
    ShowWindow(Main(), SW_HIDE);
    TouchLog touched;
    Tell(Stage::Installing, kOffered);
    ExpectControlsAgree();
    EXPECT_EQ(touched.Count("ShowWindow"), touched.Count("ShowWindow", At(Control::reconnectButton)));
}

TEST_F(DisplayTest, Event_ThatChangesNothing_TouchesNothing) {
    OpenTransfer();
    Tell(Receiving());
    Settle();
    TouchLog touched;
    Tell(Stage::DownloadingBytes, L"app.zip", 20, 100);
    Tell(Receiving());
    Settle();
    EXPECT_EQ(touched.All(), "");
    launcher_ui::ShowFailure(status_, true, L"Why");
    Settle();
    touched.Clear();
    Tell(Stage::DownloadingBytes, L"late.zip", 60, 100);
    Tell(Receiving());
    launcher_ui::ShowModel(status_);
    Settle();
    EXPECT_EQ(touched.All(), "");
}

TEST_F(DisplayTest, Event_TouchesOnlyWhatItChanges) {
    OpenTransfer();
    Settle();
    TouchLog touched;
    Tell(Stage::DownloadingBytes, L"app.zip", 21, 100);
    EXPECT_EQ(touched.Count("SetWindowTextW"), 1);
    EXPECT_EQ(touched.Count("SetWindowTextW", At(Control::progressDetail)), 1);
    EXPECT_EQ(touched.Count("InvalidateRect"), 1);
    EXPECT_EQ(touched.Count("InvalidateRect", At(Control::bar)), 1);
    EXPECT_EQ(touched.All(), "InvalidateRect 1\nSetWindowTextW 1\n");
}

TEST_F(DisplayTest, Texts_AreSetOnceEach) {
    OpenTransfer();
    const MessageLog line(At(Control::progressLine));
    const MessageLog detail(At(Control::progressDetail));
    for (std::uint64_t done = 30; done <= 40; ++done) {
        Tell(Stage::DownloadingBytes, L"app.zip", done, 100);
        Tell(Stage::DownloadingBytes, L"app.zip", done, 100);
    }
    EXPECT_EQ(line.Count(WM_SETTEXT), 0);
    EXPECT_EQ(detail.Count(WM_SETTEXT), 11);
}

TEST_F(DisplayTest, Text_OfADrawnControl_DrawsItAnewWhenItChanges) {
    Open();
    TouchLog touched;
    Tell(Stage::CheckingFiles, L"a", 1, 2);
    EXPECT_GE(touched.Count("InvalidateRect", At(Control::bar)), 1);
}

TEST_F(DisplayTest, ButtonLabel_Changed_IsSeen) {
    OpenTransfer();
    const Picture before = PictureOf(At(Control::cancelButton));
    status_.model.At(Control::cancelButton).text = L"Another";
    launcher_ui::ShowModel(status_);
    Settle();
    EXPECT_NE(PictureOf(At(Control::cancelButton)), before);
}

TEST_F(DisplayTest, Badge_OfAnotherVersion_IsSeen) {
    OpenPrompt();
    const Picture before = PictureOf(At(Control::versionBadge));
    EXPECT_GT(before.Count(launcher_ui::colour::kBadgeOffered) + before.Count(launcher_ui::colour::kBadgeArrow), 0);
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, L"9.8.7.6", Notes()));
    Settle();
    EXPECT_NE(PictureOf(At(Control::versionBadge)), before);
}

TEST_F(DisplayTest, Event_WithoutANewView_DoesNotPaintTheWindow) {
    OpenTransfer();
    Tell(Receiving());
    Settle();
    const MessageLog log(Main());
    for (std::uint64_t done = 30; done <= 60; done += 3) {
        Tell(Stage::DownloadingBytes, L"app.zip", done, 100);
        Tell(Receiving(static_cast<double>(done) * 1000));
        Settle();
    }
    EXPECT_EQ(log.Count(WM_PAINT), 0);
    EXPECT_EQ(log.Count(WM_ERASEBKGND), 0);
}

TEST_F(DisplayTest, View_Opened_PaintsTheWindowAtOnce) {
    Open();
    const MessageLog log(Main());
    launcher_ui::WindowModel& model = status_.model;
    launcher_ui::OpenProgressView(model);
    launcher_ui::ShowModel(status_);
    EXPECT_EQ(log.Count(WM_PAINT), 1);
    EXPECT_FALSE(GetUpdateRect(Main(), nullptr, FALSE));
    EXPECT_EQ(PictureOf(Main()).At(52, 200), launcher_ui::colour::kPanelFrame);
}

TEST_F(DisplayTest, Bar_ShowsPercentAndColour) {
    OpenTransfer();
    Tell(Stage::DownloadingBytes, L"app.zip", 50, 100);
    Settle();
    const Picture half = PictureOf(At(Control::bar));
    EXPECT_EQ(half.At(100, 4), launcher_ui::colour::kBarWorking);
    EXPECT_EQ(half.At(326, 4), launcher_ui::colour::kBarWorking);
    EXPECT_EQ(half.At(330, 4), launcher_ui::colour::kBarTrack);
    launcher_ui::ShowFailureView(status_, L"Failed", L"", true, true);
    Settle();
    EXPECT_EQ(PictureOf(At(Control::bar)).At(600, 4), launcher_ui::colour::kBarFailed);
    launcher_ui::ShowFailureView(status_, L"Notice", L"", false, false);
    Settle();
    EXPECT_EQ(PictureOf(At(Control::bar)).At(600, 4), launcher_ui::colour::kBarWorking);
}

TEST_F(DisplayTest, Bar_OfTheSamePercentInAnotherColour_IsDrawnAnew) {
    Open();
    Tell(Stage::UpdateAvailable, kOffered);
    Settle();
    EXPECT_EQ(PictureOf(At(Control::bar)).At(200, 5), launcher_ui::colour::kBarOffering);
    Tell(Stage::UpToDate);
    Settle();
    EXPECT_EQ(PictureOf(At(Control::bar)).At(200, 5), launcher_ui::colour::kBarGood);
}

TEST_F(DisplayTest, Bar_OfTheSamePercentAndTextInAnotherColour_IsDrawnAnew) {
    Open();
    launcher_ui::ShowFailureView(status_, L"Same", L"", false, true);
    Settle();
    EXPECT_EQ(PictureOf(At(Control::bar)).At(200, 4), launcher_ui::colour::kBarFailed);
    launcher_ui::ShowFailureView(status_, L"Same", L"", false, false);
    Settle();
    EXPECT_EQ(PictureOf(At(Control::bar)).At(200, 4), launcher_ui::colour::kBarWorking);
}

TEST_F(DisplayTest, Bar_HasTheMainTextForThoseWhoDoNotSee) {
    OpenTransfer();
    EXPECT_EQ(TextOf(At(Control::bar)), TextOf(At(Control::progressLine)));
    EXPECT_EQ(TextOf(At(Control::bar)), Text(TextId::Downloading));
}

TEST_F(DisplayTest, Statics_HaveTheirColours) {
    OpenTransfer();
    Settle();
    struct Row {
        Control control;
        std::uint32_t colour;
    };
    for (const Row row : {Row{Control::title, launcher_ui::colour::kStrongText},
                          Row{Control::notesHeading, launcher_ui::colour::kStrongText},
                          Row{Control::progressLine, launcher_ui::colour::kStrongText},
                          Row{Control::progressDetail, launcher_ui::colour::kQuietText},
                          Row{Control::footer, launcher_ui::colour::kQuietText},
                          Row{Control::scrollHint, launcher_ui::colour::kQuietText}}) {
        SCOPED_TRACE(static_cast<int>(row.control));
        const HDC context = GetDC(At(row.control));
        const auto brush = reinterpret_cast<HBRUSH>(SendMessageW(
            Main(), WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(context), reinterpret_cast<LPARAM>(At(row.control))));
        EXPECT_EQ(brush, status_.backgroundBrush.Get());
        EXPECT_EQ(GetTextColor(context), launcher_ui::ToColorRef(row.colour));
        EXPECT_EQ(GetBkMode(context), TRANSPARENT);
        ReleaseDC(At(row.control), context);
        EXPECT_EQ(PictureOf(At(row.control)).At(0, 0), launcher_ui::colour::kBackground);
    }
}

TEST_F(DisplayTest, PanelAndEdits_HaveThePanelsColours) {
    OpenPrompt();
    for (const UINT message : {UINT{WM_CTLCOLORSTATIC}, UINT{WM_CTLCOLOREDIT}}) {
        const HDC context = GetDC(At(Control::notesPanel));
        const auto brush = reinterpret_cast<HBRUSH>(SendMessageW(Main(), message, reinterpret_cast<WPARAM>(context),
                                                                 reinterpret_cast<LPARAM>(At(Control::notesPanel))));
        EXPECT_EQ(brush, status_.panelBrush.Get());
        EXPECT_EQ(GetTextColor(context), launcher_ui::ToColorRef(launcher_ui::colour::kStrongText));
        EXPECT_EQ(GetBkColor(context), launcher_ui::ToColorRef(launcher_ui::colour::kPanel));
        ReleaseDC(At(Control::notesPanel), context);
    }
}

TEST_F(DisplayTest, Background_Erased_IsFilledAndSaysSo) {
    Open();
    const HDC context = GetDC(Main());
    const RECT all = {0, 0, 470, 176};
    FillRect(context, &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    EXPECT_EQ(SendMessageW(Main(), WM_ERASEBKGND, reinterpret_cast<WPARAM>(context), 0), 1);
    EXPECT_EQ(GetPixel(context, 3, 3), launcher_ui::ToColorRef(launcher_ui::colour::kBackground));
    EXPECT_EQ(GetPixel(context, 460, 149), launcher_ui::ToColorRef(launcher_ui::colour::kBackground));
    ReleaseDC(Main(), context);
}

TEST_F(DisplayTest, CheckBadge_IsPartOfThePromptAlone) {
    OpenPrompt();
    EXPECT_EQ(PictureOf(Main()).At(65, 500), launcher_ui::colour::kCheckFill);
    EXPECT_EQ(PictureOf(Main()).At(300, 126), launcher_ui::colour::kRule);
    Tell(Stage::Downloading, L"app.zip", 0, 1);
    Settle();
    EXPECT_EQ(PictureOf(Main()).Count(launcher_ui::colour::kCheckFill), 0);
    EXPECT_EQ(PictureOf(Main()).At(300, 126), launcher_ui::colour::kRule);
}

// A repair behind the compact window.

TEST_F(DisplayTest, Repair_OfAHiddenWindow_ShowsItCompactWithoutActivating) {
    const OtherWindow other;
    Open(SW_HIDE);
    other.Activate();
    const HWND window = Main();
    Tell(Stage::Repairing);
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_EQ(GetActiveWindow(), other.Handle());
    EXPECT_TRUE(status_.model.progress.cancelEnabled);
    EXPECT_TRUE(status_.model.progress.closeBlocked);
    Tell(Stage::DownloadingBytes, L"package:application-runtime", 53, 100);
    EXPECT_EQ(Main(), window);
    EXPECT_EQ(status_.model.viewMode, ViewMode::compact);
    EXPECT_EQ(PlaceOnScreen(Main()).Width(), 470);
    EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::Repairing));
    for (const Control control : {Control::notesPanel, Control::notesHeading, Control::versionBadge,
                                  Control::scrollHint, Control::updateButton, Control::cancelButton}) {
        EXPECT_FALSE(IsWindowVisible(At(control))) << static_cast<int>(control);
    }
    SendMessageW(Main(), WM_CLOSE, 0, 0);
    EXPECT_TRUE(status_.model.progress.cancelRequested);
    EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::CancellingSafely));
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_F(DisplayTest, Hidden_ByItsCloseBox_StaysHiddenThroughOrdinaryStages) {
    Open();
    SendMessageW(Main(), WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindowVisible(Main()));
    Tell(Stage::CheckingFiles, L"", 1, 2);
    Tell(Stage::UpToDate);
    EXPECT_FALSE(IsWindowVisible(Main()));
    EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::UpToDate));
    Tell(Stage::Downloading, L"app.zip", 0, 1);
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_F(DisplayTest, StageEvent_PumpsWhatIsQueued) {
    Open();
    const MessageLog log(Main());
    PostMessageW(Main(), WM_APP + 9, 0, 0);
    Tell(Stage::CheckingFiles, L"", 1, 2);
    EXPECT_EQ(log.Count(WM_APP + 9), 1);
    EXPECT_FALSE(GetUpdateRect(At(Control::bar), nullptr, FALSE));
}

}  // namespace
}  // namespace window_tests
