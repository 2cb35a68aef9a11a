#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

class KeyboardTest : public WindowTest {
  protected:
    /// The controls that Tab reaches, from the first after `first` to `first` again.
    std::vector<Control> TabRound(Control first, bool backwards = false) {
        std::vector<Control> round;
        SetFocus(At(first));
        for (int step = 0; step < launcher_ui::kControlCount; ++step) {
            if (backwards) {
                PressWith(VK_SHIFT, VK_TAB);
            } else {
                Press(VK_TAB);
            }
            if (!Focused()) break;
            round.push_back(*Focused());
            if (HasFocus(first)) break;
        }
        return round;
    }
    void ExpectFocusIsUsable() {
        const HWND focus = GetFocus();
        EXPECT_TRUE(focus == Main() || (IsWindowVisible(focus) && IsWindowEnabled(focus)));
    }
    void PressCloseKeys() { PressWith(VK_MENU, VK_F4); }
};

using Controls = std::vector<Control>;

// Tab.

TEST_F(KeyboardTest, Tab_InThePrompt_GoesThroughPanelLinkUpdateAndLater) {
    OpenPrompt();
    EXPECT_EQ(TabRound(Control::updateButton),
              (Controls{Control::laterButton, Control::notesPanel, Control::notesLink, Control::updateButton}));
    EXPECT_EQ(TabRound(Control::updateButton, true),
              (Controls{Control::notesLink, Control::notesPanel, Control::laterButton, Control::updateButton}));
}

TEST_F(KeyboardTest, Tab_InAPromptWithoutAddress_LeavesOutTheLink) {
    OpenPrompt(Notes(2, L""));
    EXPECT_EQ(TabRound(Control::updateButton),
              (Controls{Control::laterButton, Control::notesPanel, Control::updateButton}));
}

TEST_F(KeyboardTest, Tab_InATransfer_GoesThroughPanelCancelAndReconnect) {
    OpenTransfer();
    EXPECT_EQ(TabRound(Control::notesPanel), (Controls{Control::cancelButton, Control::notesPanel}));
    Tell(Receiving());
    EXPECT_EQ(TabRound(Control::notesPanel),
              (Controls{Control::cancelButton, Control::reconnectButton, Control::notesPanel}));
}

TEST_F(KeyboardTest, Tab_WhereNothingCanBeCancelled_StaysInThePanel) {
    OpenTransfer();
    Tell(Stage::Verifying, L"app.zip", 1, 2);
    EXPECT_EQ(TabRound(Control::notesPanel), (Controls{Control::notesPanel}));
}

TEST_F(KeyboardTest, Tab_InTheCompactView_FindsNothing) {
    Open();
    Press(VK_TAB);
    EXPECT_FALSE(Focused());
    ExpectFocusIsUsable();
}

TEST_F(KeyboardTest, Tab_InABlockingFailure_GoesBetweenCloseAndPanel) {
    OpenFailure();
    EXPECT_TRUE(HasFocus(Control::cancelButton));
    EXPECT_EQ(TabRound(Control::cancelButton), (Controls{Control::notesPanel, Control::cancelButton}));
}

TEST_F(KeyboardTest, Tab_FromTheWindowItself_FindsTheFirstControl) {
    OpenTransfer();
    SetFocus(Main());
    Press(VK_TAB);
    EXPECT_EQ(Focused(), std::optional(Control::notesPanel));
}

TEST_F(KeyboardTest, Arrows_FromAButton_ReachOnlyWhatCanBeUsed) {
    OpenPrompt();
    for (const WORD key : std::vector<WORD>{VK_RIGHT, VK_DOWN, VK_LEFT, VK_UP}) {
        SetFocus(At(Control::updateButton));
        for (int step = 0; step < 5; ++step) {
            Press(key);
            ExpectFocusIsUsable();
        }
        EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
    }
}

// Space and Enter.

TEST_F(KeyboardTest, Space_PressesTheFocusedButton) {
    OpenPrompt();
    SetFocus(At(Control::laterButton));
    KeyDown(VK_SPACE);
    EXPECT_EQ(FaceOf(Control::laterButton), launcher_ui::kOrdinaryButton.pressed);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
    KeyUp(VK_SPACE);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::later);
}

TEST_F(KeyboardTest, Space_OnCancel_Cancels) {
    OpenTransfer();
    SetFocus(At(Control::cancelButton));
    Press(VK_SPACE);
    EXPECT_TRUE(status_.model.progress.cancelRequested);
    EXPECT_EQ(GetFocus(), Main());
}

TEST_F(KeyboardTest, Enter_InThePrompt_ChoosesUpdateWhereverTheFocusIs) {
    OpenPrompt();
    for (const Control control :
         {Control::updateButton, Control::laterButton, Control::notesLink, Control::notesPanel}) {
        SCOPED_TRACE(static_cast<int>(control));
        status_.model.promptChoice = PromptChoice::none;
        SetFocus(At(control));
        Press(VK_RETURN);
        EXPECT_EQ(status_.model.promptChoice, PromptChoice::update);
    }
    status_.model.promptChoice = PromptChoice::none;
    SetFocus(Main());
    Press(VK_RETURN);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::update);
}

TEST_F(KeyboardTest, Enter_OnCancel_PressesIt) {
    OpenTransfer();
    SetFocus(At(Control::cancelButton));
    Press(VK_RETURN);
    EXPECT_TRUE(status_.model.progress.cancelRequested);
}

TEST_F(KeyboardTest, Enter_OnReconnect_PressesIt) {
    OpenTransfer();
    Tell(Receiving());
    SetFocus(At(Control::reconnectButton));
    Press(VK_RETURN);
    EXPECT_TRUE(status_.model.progress.reconnectRequested);
    EXPECT_FALSE(status_.model.progress.cancelRequested);
}

TEST_F(KeyboardTest, Enter_OnClose_ClosesTheFailure) {
    OpenFailure();
    Press(VK_RETURN);
    EXPECT_TRUE(status_.model.failureClosed);
    EXPECT_FALSE(IsWindowVisible(Main()));
}

TEST_F(KeyboardTest, Enter_InThePanelOfATransfer_DoesNothing) {
    OpenTransfer();
    SetFocus(At(Control::notesPanel));
    Press(VK_RETURN);
    EXPECT_FALSE(status_.model.progress.cancelRequested);
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_F(KeyboardTest, Key_OfAnotherWindow_IsNotTaken) {
    OpenPrompt();
    const OtherWindow other;
    other.Activate();
    Press(VK_RETURN);
    Press(VK_ESCAPE);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
}

TEST_F(KeyboardTest, Key_OfAnotherWindow_IsTranslatedAsUsual) {
    Open();
    const OtherWindow other;
    other.Activate();
    const MessageLog log(other.Handle());
    Press('A');
    EXPECT_EQ(log.Count(WM_KEYDOWN), 1);
    EXPECT_EQ(log.Count(WM_CHAR), 1);
    EXPECT_EQ(log.Count(WM_KEYUP), 1);
}

TEST_F(KeyboardTest, KeyUp_OfEnterOrEscape_IsNoChoice) {
    OpenPrompt();
    KeyUp(VK_RETURN);
    KeyUp(VK_ESCAPE);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
}

// The ways to close, in every state.

enum class Way { escape, closeBox, closeKeys };
const char* Name(Way way) {
    return way == Way::escape ? "Escape" : way == Way::closeBox ? "CloseBox" : "CloseKeys";
}

class ClosingTest : public KeyboardTest, public testing::WithParamInterface<Way> {
  protected:
    void CloseIt() {
        if (GetParam() == Way::escape) {
            Press(VK_ESCAPE);
        } else if (GetParam() == Way::closeKeys) {
            PressCloseKeys();
        } else {
            SendMessageW(Main(), WM_CLOSE, 0, 0);
        }
        Settle();
    }
};

INSTANTIATE_TEST_SUITE_P(EveryWay, ClosingTest, testing::Values(Way::escape, Way::closeBox, Way::closeKeys),
                         [](const auto& way) { return std::string(Name(way.param)); });

TEST_P(ClosingTest, BlockingFailure_IsClosedAndHidden) {
    OpenFailure(true);
    CloseIt();
    EXPECT_TRUE(status_.model.failureClosed);
    EXPECT_FALSE(IsWindowVisible(Main()));
    EXPECT_TRUE(IsWindow(Main()));
}

TEST_P(ClosingTest, SafeFailure_IsClosedAndHidden) {
    OpenFailure(false);
    CloseIt();
    EXPECT_TRUE(status_.model.failureClosed);
    EXPECT_FALSE(IsWindowVisible(Main()));
}

TEST_P(ClosingTest, Prompt_MeansLaterAndStays) {
    OpenPrompt();
    CloseIt();
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::later);
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_FALSE(status_.model.progress.cancelRequested);
}

TEST_P(ClosingTest, Transfer_AsksForTheCancelAndStays) {
    OpenTransfer();
    CloseIt();
    EXPECT_TRUE(status_.model.progress.cancelRequested);
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_EQ(TextOf(At(Control::progressLine)), Text(TextId::CancellingSafely));
    EXPECT_FALSE(IsWindowEnabled(At(Control::cancelButton)));
    CloseIt();
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_P(ClosingTest, Installation_IsNotDisturbed) {
    OpenTransfer();
    Tell(Stage::Installing, kOffered);
    CloseIt();
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_FALSE(status_.model.progress.cancelRequested);
}

TEST_P(ClosingTest, Check_HidesTheWindowExceptByEscape) {
    Open();
    CloseIt();
    EXPECT_EQ(IsWindowVisible(Main()) != FALSE, GetParam() == Way::escape) << Name(GetParam());
    EXPECT_EQ(status_.model.shown, GetParam() == Way::escape);
    EXPECT_TRUE(IsWindow(Main()));
}

TEST_P(ClosingTest, Repair_AsksForTheCancelInTheStatusLine) {
    Open();
    Tell(Stage::Repairing);
    Tell(Stage::DownloadingBytes, L"package:application-runtime", 53, 100);
    Settle();
    CloseIt();
    EXPECT_TRUE(status_.model.progress.cancelRequested);
    EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::CancellingSafely));
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_EQ(status_.model.viewMode, ViewMode::compact);
}

TEST_P(ClosingTest, FocusInAChild_WorksAsInTheWindow) {
    OpenTransfer();
    SetFocus(At(Control::notesPanel));
    CloseIt();
    EXPECT_TRUE(status_.model.progress.cancelRequested);
}

TEST_F(KeyboardTest, Escape_WithoutEffect_IsAnOrdinaryKey) {
    Open();
    const MessageLog log(Main());
    Press(VK_ESCAPE);
    // It reached the dialog's own handling, which makes a command of it.
    EXPECT_EQ(log.Count(WM_COMMAND), 1);
    Tell(Stage::Installing, kOffered);
    const int before = log.Count(WM_COMMAND);
    Press(VK_ESCAPE);
    EXPECT_EQ(log.Count(WM_COMMAND), before);
}

// Where the focus stays.

TEST_F(KeyboardTest, Focus_IsNeverLeftInAHiddenOrDisabledControl) {
    Open();
    for (const Control control :
         {Control::updateButton, Control::laterButton, Control::notesLink, Control::notesPanel}) {
        SCOPED_TRACE(static_cast<int>(control));
        ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
        SetFocus(At(control));
        status_.model.promptChoice = PromptChoice::update;
        EXPECT_TRUE(launcher_ui::WaitForPromptChoice(status_));
        ExpectFocusIsUsable();
        Press(VK_TAB);
        EXPECT_TRUE(Focused());
        ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
        SetFocus(At(control));
        status_.model.promptChoice = PromptChoice::later;
        EXPECT_FALSE(launcher_ui::WaitForPromptChoice(status_));
        ExpectFocusIsUsable();
    }
}

TEST_F(KeyboardTest, Focus_OnAButtonThatIsDisabled_GoesToTheWindow) {
    OpenTransfer();
    Tell(Receiving());
    SetFocus(At(Control::reconnectButton));
    Tell(Stage::Verifying, L"app.zip", 1, 2);
    EXPECT_EQ(GetFocus(), Main());
    Tell(Stage::DownloadingBytes, L"app.zip", 30, 100);
    SetFocus(At(Control::cancelButton));
    Tell(Stage::Installing, kOffered);
    EXPECT_EQ(GetFocus(), Main());
    Press(VK_TAB);
    EXPECT_EQ(Focused(), std::optional(Control::notesPanel));
}

TEST_F(KeyboardTest, Focus_ElsewhereInTheWindow_IsNotMovedByAChange) {
    OpenTransfer();
    SetFocus(At(Control::notesPanel));
    Tell(Stage::Installing, kOffered);
    EXPECT_TRUE(HasFocus(Control::notesPanel));
}

TEST_F(KeyboardTest, Focus_AfterTheWindowWasLeft_ComesBack) {
    OpenPrompt();
    const OtherWindow other;
    for (const Control control : {Control::laterButton, Control::notesPanel, Control::notesLink}) {
        SetFocus(At(control));
        other.Activate();
        EXPECT_EQ(GetFocus(), other.Handle());
        SetForegroundWindow(Main());
        SetActiveWindow(Main());
        EXPECT_TRUE(HasFocus(control)) << static_cast<int>(control);
    }
}

TEST_F(KeyboardTest, Focus_InAControlThatWentMeanwhile_DoesNotComeBack) {
    OpenPrompt();
    const OtherWindow other;
    SetFocus(At(Control::laterButton));
    other.Activate();
    Tell(Stage::Downloading, L"app.zip", 0, 1);
    SetActiveWindow(Main());
    EXPECT_EQ(GetFocus(), Main());
    Tell(Stage::DownloadingBytes, L"app.zip", 30, 100);
    SetFocus(At(Control::cancelButton));
    other.Activate();
    Tell(Stage::Installing, kOffered);
    SetActiveWindow(Main());
    EXPECT_EQ(GetFocus(), Main());
}

TEST_F(KeyboardTest, Focus_InTheWindowItself_ComesBackToIt) {
    OpenTransfer();
    SetFocus(At(Control::notesPanel));
    const OtherWindow other;
    other.Activate();
    SetActiveWindow(Main());
    EXPECT_TRUE(HasFocus(Control::notesPanel));
    SetFocus(Main());
    other.Activate();
    SetActiveWindow(Main());
    EXPECT_EQ(GetFocus(), Main());
}

}  // namespace
}  // namespace window_tests
