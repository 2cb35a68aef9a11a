#include <windows.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/fake_clock.h"
#include "tests/support/stand_in.h"
#include "tests/window/touch_log.h"
#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

using test_support::FakeClock;
using test_support::StandIn;

constexpr UINT_PTR kMarquee = 41;
constexpr UINT_PTR kStall = 74;

class TimerTest : public WindowTest {
  protected:
    /// The timers that the window has been given and not lost again, with their periods.
    struct Timers {
        std::map<UINT_PTR, UINT> running;
        using OnStart = StandIn<"SetTimer", decltype(SetTimer)>;
        using OnStop = StandIn<"KillTimer", decltype(KillTimer)>;
        OnStart onStart{[this](HWND window, UINT_PTR id, UINT period, TIMERPROC procedure) {
            if (window != nullptr) running[id] = period;
            return OnStart::Original(window, id, period, procedure);
        }};
        OnStop onStop{[this](HWND window, UINT_PTR id) {
            if (window != nullptr) running.erase(id);
            return OnStop::Original(window, id);
        }};
    };
    using Running = std::map<UINT_PTR, UINT>;
    [[nodiscard]] std::wstring StallText() const {
        return Text(TextId::SpeedPrefix) + L"0.0 KB/s\n" + Text(TextId::WaitingForData);
    }
};

TEST_F(TimerTest, Marquee_RunsOnlyWhileNothingIsKnown) {
    const Timers timers;
    Open();
    EXPECT_EQ(timers.running, (Running{{kMarquee, 45}}));
    Tell(Stage::CheckingFiles, L"", 1, 2);
    EXPECT_EQ(timers.running, Running{});
    EXPECT_EQ(status_.model.progress.marqueeTick, 0u);
    Tell(Stage::CheckingFiles, L"", 0, 0);
    EXPECT_EQ(timers.running, (Running{{kMarquee, 45}}));
    Tell(Stage::UpToDate);
    EXPECT_EQ(timers.running, Running{});
}

TEST_F(TimerTest, Marquee_TicksAndPaintsTheBar) {
    Open();
    const MessageLog window(Main());
    const MessageLog bar(At(Control::bar));
    const unsigned before = status_.model.progress.marqueeTick;
    EXPECT_TRUE(Until([&] { return status_.model.progress.marqueeTick >= before + 4; }));
    EXPECT_GE(window.Count(WM_TIMER), 4);
    EXPECT_GE(bar.Count(WM_PAINT), 3);
    EXPECT_EQ(bar.Count(WM_ERASEBKGND), 0);
    EXPECT_EQ(window.Count(WM_PAINT), 0);
}

TEST_F(TimerTest, Marquee_IsSeenToMove) {
    Open();
    EXPECT_TRUE(Until([&] { return status_.model.progress.marqueeTick >= 10; }));
    Settle();
    const Picture before = PictureOf(At(Control::bar));
    EXPECT_GT(before.Count(launcher_ui::colour::kBarWorking), 50);
    const unsigned tick = status_.model.progress.marqueeTick;
    EXPECT_TRUE(Until([&] { return status_.model.progress.marqueeTick >= tick + 3; }));
    Settle();
    EXPECT_NE(PictureOf(At(Control::bar)), before);
}

TEST_F(TimerTest, Marquee_WhenTheBarHasANumber_StopsItself) {
    Timers timers;
    Open();
    status_.model.progress.indeterminate = false;
    EXPECT_TRUE(Until([&] { return timers.running.empty(); }));
    EXPECT_FALSE(status_.model.progress.marqueeRuns);
}

TEST_F(TimerTest, Marquee_AfterACancel_Runs) {
    const Timers timers;
    OpenTransfer();
    EXPECT_EQ(timers.running, Running{});
    Click(Control::cancelButton);
    EXPECT_EQ(timers.running, (Running{{kMarquee, 45}}));
    Tell(Stage::Cancelled);
    EXPECT_EQ(timers.running, Running{});
}

TEST_F(TimerTest, Stall_IsWatchedOnlyWhileBytesAreAwaited) {
    const Timers timers;
    OpenTransfer();
    for (const Phase phase : {Phase::connecting, Phase::retrying, Phase::verifying, Phase::cached, Phase::complete,
                              Phase::switchingSource, Phase::comparingSource}) {
        Tell(Receiving());
        EXPECT_EQ(timers.running, (Running{{kStall, 500}}));
        Progress progress = Receiving();
        progress.phase = phase;
        Tell(progress);
        EXPECT_EQ(timers.running, Running{});
    }
    Progress slow = Receiving();
    slow.phase = Phase::slow;
    Tell(slow);
    EXPECT_EQ(timers.running, (Running{{kStall, 500}}));
}

TEST_F(TimerTest, Stall_AfterTwoSecondsOfSilence_IsTold) {
    OpenTransfer();
    std::uint64_t now = 100000;
    const StandIn<"GetTickCount64", decltype(GetTickCount64)> clock([&] { return now; });
    Tell(Receiving());
    const std::wstring speed = TextOf(At(Control::footer));
    EXPECT_EQ(status_.model.progress.lastProgressTicks, now);
    now += 1999;
    SendMessageW(Main(), WM_TIMER, kStall, 0);
    EXPECT_EQ(TextOf(At(Control::footer)), speed);
    now += 1;
    SendMessageW(Main(), WM_TIMER, kStall, 0);
    EXPECT_EQ(Narrow(TextOf(At(Control::footer))), Narrow(StallText()));
    Tell(Receiving());
    EXPECT_EQ(TextOf(At(Control::footer)), speed);
}

TEST_F(TimerTest, Stall_IsToldByItsOwnTimer) {
    OpenTransfer();
    FakeClock clock;
    Tell(Receiving());
    clock.Advance(3000);
    EXPECT_TRUE(Until([&] { return TextOf(At(Control::footer)) == StallText(); }, 3000));
}

TEST_F(TimerTest, Stall_AfterACancelOrAnEnd_IsNotTold) {
    OpenTransfer();
    FakeClock clock;
    Tell(Receiving());
    const std::wstring speed = TextOf(At(Control::footer));
    status_.model.progress.cancelRequested = true;
    clock.Advance(3000);
    SendMessageW(Main(), WM_TIMER, kStall, 0);
    EXPECT_EQ(TextOf(At(Control::footer)), speed);
    status_.model.progress.cancelRequested = false;
    status_.model.progress.terminal = true;
    SendMessageW(Main(), WM_TIMER, kStall, 0);
    EXPECT_EQ(TextOf(At(Control::footer)), speed);
}

TEST_F(TimerTest, OtherTimer_DoesNothing) {
    OpenTransfer();
    FakeClock clock;
    Tell(Receiving());
    clock.Advance(3000);
    const std::wstring speed = TextOf(At(Control::footer));
    const unsigned tick = status_.model.progress.marqueeTick;
    status_.model.progress.indeterminate = true;
    SendMessageW(Main(), WM_TIMER, 1, 0);
    EXPECT_EQ(TextOf(At(Control::footer)), speed);
    EXPECT_EQ(status_.model.progress.marqueeTick, tick);
}

TEST_F(TimerTest, Hiding_StopsBothTimersAndTheWindow) {
    const Timers timers;
    OpenTransfer();
    Tell(Receiving());
    Click(Control::cancelButton);
    ASSERT_EQ(timers.running, (Running{{kMarquee, 45}, {kStall, 500}}));
    launcher_ui::HideStatusWindow(status_);
    EXPECT_EQ(timers.running, Running{});
    EXPECT_FALSE(IsWindowVisible(Main()));
    EXPECT_TRUE(IsWindow(Main()));
    launcher_ui::HideStatusWindow(status_);
    EXPECT_FALSE(IsWindowVisible(Main()));
}

TEST_F(TimerTest, FailureView_StopsBothTimers) {
    const Timers timers;
    OpenTransfer();
    Tell(Receiving());
    Click(Control::cancelButton);
    launcher_ui::ShowFailure(status_, false, L"Why");
    EXPECT_EQ(timers.running, Running{});
}

}  // namespace
}  // namespace window_tests
