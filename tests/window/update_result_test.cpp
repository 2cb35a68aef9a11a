#include "launcher/update_result.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/stand_in.h"
#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

using launcher_shell::HoldWindow;
using launcher_shell::PresentUpdateResult;
using launcher_update::Outcome;
using launcher_update::Result;
using test_support::StandIn;

constexpr std::array kOutcomes = {Outcome::Skipped, Outcome::UpToDate, Outcome::Declined,      Outcome::Cancelled,
                                  Outcome::Applied, Outcome::Failed,   Outcome::LauncherTooOld};
constexpr wchar_t kWhy[] = L"A download was interrupted; the installed version was not changed.";

class UpdateResultTest : public WindowTest {
  protected:
    [[nodiscard]] static Result With(Outcome outcome, bool safe) {
        Result result;
        result.outcome = outcome;
        result.safeToLaunch = safe;
        result.error = kWhy;
        return result;
    }
    void ExpectView(TextId text, bool detail, bool blocking, std::uint32_t colour) {
        EXPECT_EQ(status_.model.viewMode, ViewMode::progress);
        EXPECT_TRUE(status_.model.failureHeld);
        EXPECT_EQ(status_.model.failureBlocking, blocking);
        EXPECT_EQ(TextOf(At(Control::statusLine)), Text(text));
        EXPECT_EQ(TextOf(At(Control::progressLine)), Text(text));
        EXPECT_EQ(TextOf(At(Control::progressDetail)), L"");
        EXPECT_EQ(TextOf(At(Control::notesHeading)), Text(TextId::StatusDetails));
        ASSERT_EQ(status_.noteCards.cards.size(), detail ? 2u : 1u);
        EXPECT_EQ(status_.noteCards.cards[0].text, Text(text));
        if (detail) {
            EXPECT_EQ(status_.noteCards.cards[1].text, kWhy);
        }
        EXPECT_EQ(TextOf(At(Control::footer)), Text(blocking ? TextId::LaunchStopped : TextId::AutoStartNote));
        EXPECT_EQ(IsWindowVisible(At(Control::cancelButton)) != FALSE, blocking);
        EXPECT_EQ(IsWindowEnabled(At(Control::cancelButton)) != FALSE, blocking);
        EXPECT_EQ(TextOf(At(Control::cancelButton)), Text(TextId::Close));
        EXPECT_EQ(PlaceInParent(At(Control::cancelButton)).Width(), 88);
        EXPECT_EQ(HasFocus(Control::cancelButton), blocking);
        EXPECT_FALSE(IsWindowVisible(At(Control::versionBadge)));
        EXPECT_FALSE(IsWindowVisible(At(Control::reconnectButton)));
        Settle();
        EXPECT_EQ(PictureOf(At(Control::bar)).At(650, 4), colour);
    }
};

TEST_F(UpdateResultTest, UnsafeResult_OfAnyOutcome_BlocksTheLaunch) {
    for (const Outcome outcome : kOutcomes) {
        for (const bool asked : {false, true}) {
            SCOPED_TRACE(static_cast<int>(outcome));
            Open();
            EXPECT_FALSE(PresentUpdateResult(status_, With(outcome, false), asked));
            ExpectView(TextId::RecoveryNeedsAttention, true, true, launcher_ui::colour::kBarFailed);
            launcher_ui::DestroyStatusWindow(status_);
        }
    }
}

TEST_F(UpdateResultTest, SafeFailure_IsToldAndLetsTheLaunchGoOn) {
    Open();
    EXPECT_TRUE(PresentUpdateResult(status_, With(Outcome::Failed, true), false));
    ExpectView(TextId::DidNotFinishStarting, true, false, launcher_ui::colour::kBarFailed);
    launcher_ui::HoldFailureView(status_);  // returns at once
}

TEST_F(UpdateResultTest, LauncherTooOld_IsANotice) {
    for (const bool asked : {false, true}) {
        Open();
        EXPECT_TRUE(PresentUpdateResult(status_, With(Outcome::LauncherTooOld, true), asked));
        ExpectView(TextId::LauncherTooOld, false, false, launcher_ui::colour::kBarWorking);
        launcher_ui::DestroyStatusWindow(status_);
    }
}

TEST_F(UpdateResultTest, UpToDate_AskedFor_IsANotice) {
    Open();
    EXPECT_TRUE(PresentUpdateResult(status_, With(Outcome::UpToDate, true), true));
    ExpectView(TextId::AlreadyLatest, false, false, launcher_ui::colour::kBarWorking);
}

TEST_F(UpdateResultTest, OtherResults_ShowNothingMore) {
    for (const Outcome outcome :
         {Outcome::Skipped, Outcome::Declined, Outcome::Cancelled, Outcome::Applied, Outcome::UpToDate}) {
        for (const bool asked : {false, true}) {
            if (outcome == Outcome::UpToDate && asked) continue;
            SCOPED_TRACE(static_cast<int>(outcome));
            Open();
            EXPECT_TRUE(PresentUpdateResult(status_, With(outcome, true), asked));
            EXPECT_FALSE(status_.model.failureHeld);
            EXPECT_EQ(status_.model.viewMode, ViewMode::compact);
            EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::CheckingForUpdates));
            launcher_ui::DestroyStatusWindow(status_);
        }
    }
}

TEST_F(UpdateResultTest, Result_WithoutAWindow_IsOnlyAnswered) {
    for (const Outcome outcome : kOutcomes) {
        EXPECT_TRUE(PresentUpdateResult(status_, With(outcome, true), true));
        EXPECT_FALSE(PresentUpdateResult(status_, With(outcome, false), true));
    }
    EXPECT_EQ(Main(), nullptr);
}

TEST_F(UpdateResultTest, Views_OneAfterTheOther_StayInTheSameWindow) {
    OpenTransfer();
    const HWND window = Main();
    const std::vector<HWND> windows = OwnWindows();
    EXPECT_EQ(windows, (std::vector<HWND>{window}));
    for (const bool safe : {false, true}) {
        EXPECT_EQ(PresentUpdateResult(status_, With(Outcome::Failed, safe), false), safe);
        Settle();
        EXPECT_EQ(Main(), window);
        EXPECT_EQ(OwnWindows(), windows);
    }
    EXPECT_TRUE(PresentUpdateResult(status_, With(Outcome::LauncherTooOld, true), false));
    EXPECT_TRUE(PresentUpdateResult(status_, With(Outcome::UpToDate, true), true));
    Settle();
    EXPECT_EQ(OwnWindows(), windows);
}

TEST_F(UpdateResultTest, StageFailed_ThenASafeFailure_ReplacesTheText) {
    OpenTransfer();
    Tell(Stage::Failed, L"network");
    EXPECT_EQ(TextOf(At(Control::progressLine)), Text(TextId::DidNotFinishChecking));
    launcher_ui::ShowFailure(status_, true, L"network");
    EXPECT_EQ(TextOf(At(Control::progressLine)), Text(TextId::DidNotFinishStarting));
}

// A blocking view is held until it is closed.

TEST_F(UpdateResultTest, Hold_OfABlockingView_EndsWithAClickOnClose) {
    Open();
    launcher_ui::ShowFailure(status_, false, L"The installed version could not be confirmed.");
    Later([this] { return HasFocus(Control::cancelButton); }, [this] { Click(Control::cancelButton); });
    launcher_ui::HoldFailureView(status_);
    EXPECT_TRUE(status_.model.failureClosed);
    EXPECT_FALSE(IsWindowVisible(Main()));
}

TEST_F(UpdateResultTest, Hold_OfABlockingView_EndsWithTheCloseBox) {
    Open();
    launcher_ui::ShowFailure(status_, false, L"Recovery remains incomplete.");
    Later([] { return true; }, [this] { PostMessageW(Main(), WM_CLOSE, 0, 0); });
    launcher_ui::HoldFailureView(status_);
    EXPECT_TRUE(status_.model.failureClosed);
}

TEST_F(UpdateResultTest, Hold_OfABlockingView_EndsWhenTheWindowGoes) {
    Open();
    launcher_ui::ShowFailure(status_, false, L"Recovery remains incomplete.");
    Later([] { return true; }, [this] { DestroyWindow(Main()); });
    launcher_ui::HoldFailureView(status_);
    EXPECT_EQ(Main(), nullptr);
}

TEST_F(UpdateResultTest, Hold_InAnyOtherState_ReturnsAtOnce) {
    int waits = 0;
    const StandIn<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)> wait([&](auto...) {
        ++waits;
        return DWORD{WAIT_TIMEOUT};
    });
    launcher_ui::HoldFailureView(status_);
    Open();
    launcher_ui::HoldFailureView(status_);
    launcher_ui::ShowFailure(status_, true, L"Why");
    launcher_ui::HoldFailureView(status_);
    EXPECT_EQ(waits, 0);
}

TEST_F(UpdateResultTest, Buttons_OfAFailureView_AreDeadExceptClose) {
    OpenFailure(false);
    for (const WPARAM id : {1001u, 1002u, 1003u, 1004u, 1007u})
        SendMessageW(Main(), WM_COMMAND, id, 0);
    EXPECT_FALSE(status_.model.failureClosed);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
    launcher_ui::ShowFailure(status_, false, L"Why");
    for (const WPARAM id : {1001u, 1002u, 1003u, 1007u})
        SendMessageW(Main(), WM_COMMAND, id, 0);
    EXPECT_FALSE(status_.model.failureClosed);
    SendMessageW(Main(), WM_COMMAND, 1004, 0);
    EXPECT_TRUE(status_.model.failureClosed);
}

// How the program's own loops wait: by a clock that only the waits move.

class HoldTest : public UpdateResultTest {
  protected:
    struct Wait {
        DWORD count;
        DWORD milliseconds;
        DWORD mask;
    };
    std::vector<Wait> waits_;
    std::uint64_t now_ = 5000;
    std::uint64_t overrun_ = 0;  // every wait lasts so much longer than asked

  private:
    StandIn<"GetTickCount64", decltype(GetTickCount64)> onTick_{[this] { return now_; }};
    StandIn<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)> onWait_{
        [this](DWORD count, const HANDLE*, BOOL, DWORD milliseconds, DWORD mask) {
            waits_.push_back({count, milliseconds, mask});
            now_ += milliseconds + overrun_;
            if (Main() != nullptr) PostMessageW(Main(), WM_APP + 5, 0, 0);
            return DWORD{WAIT_TIMEOUT};
        }};
};

TEST_F(HoldTest, HoldWindow_LastsAsToldInShortWaitsAndPumps) {
    ASSERT_TRUE(launcher_ui::CreateStatusWindow(status_, GetModuleHandleW(nullptr), kInstalled, SW_SHOWNORMAL));
    const MessageLog log(Main());
    for (const unsigned long milliseconds : {650ul, 1400ul, 33ul, 1ul}) {
        waits_.clear();
        const int before = log.Count(WM_APP + 5);
        const std::uint64_t begin = now_;
        HoldWindow(status_, milliseconds);
        EXPECT_EQ(now_ - begin, milliseconds);
        EXPECT_EQ(waits_.size(), (milliseconds + 19) / 20);
        for (const Wait& wait : waits_) {
            EXPECT_LE(wait.milliseconds, 20u);
            EXPECT_GT(wait.milliseconds, 0u);
            EXPECT_EQ(wait.mask, 0x1CFFu);
            EXPECT_EQ(wait.count, 0u);
        }
        EXPECT_EQ(log.Count(WM_APP + 5) - before, static_cast<int>(waits_.size()));
    }
    EXPECT_EQ(launcher_shell::kHoldMs, 650u);
    EXPECT_EQ(launcher_shell::kHoldAfterFailureMs, 1400u);
}

TEST_F(HoldTest, HoldWindow_WithLateWaits_EndsSoonAfterItsTime) {
    ASSERT_TRUE(launcher_ui::CreateStatusWindow(status_, GetModuleHandleW(nullptr), kInstalled, SW_SHOWNORMAL));
    overrun_ = 16;
    const std::uint64_t begin = now_;
    HoldWindow(status_, 650);
    EXPECT_GE(now_ - begin, 650u);
    EXPECT_LE(now_ - begin, 650u + 36);
}

TEST_F(HoldTest, HoldWindow_OfNoTime_DoesNotWait) {
    HoldWindow(status_, 0);
    EXPECT_TRUE(waits_.empty());
}

TEST_F(HoldTest, PromptAndFailureWaits_AreSlicesOfFiftyMilliseconds) {
    ASSERT_TRUE(launcher_ui::CreateStatusWindow(status_, GetModuleHandleW(nullptr), kInstalled, SW_SHOWNORMAL));
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
    Later([this] { return waits_.size() >= 3; }, [this] { SendMessageW(Main(), WM_CLOSE, 0, 0); });
    EXPECT_FALSE(launcher_ui::WaitForPromptChoice(status_));
    launcher_ui::ShowFailure(status_, false, L"Why");
    const std::size_t before = waits_.size();
    Later([&, this] { return waits_.size() >= before + 3; }, [this] { SendMessageW(Main(), WM_CLOSE, 0, 0); });
    launcher_ui::HoldFailureView(status_);
    EXPECT_GE(waits_.size(), before + 3);
    for (const Wait& wait : waits_) {
        EXPECT_EQ(wait.milliseconds, 50u);
        EXPECT_EQ(wait.mask, 0x1CFFu);
        EXPECT_EQ(wait.count, 0u);
    }
}

}  // namespace
}  // namespace window_tests
