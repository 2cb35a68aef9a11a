#include "launcher/update_worker.h"

#include <windows.h>

#include <process.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "launcher/window_bridge.h"
#include "tests/support/stand_in.h"
#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

using launcher_shell::RunUpdateWorker;
using launcher_update::Outcome;
using launcher_update::Result;
using test_support::StandIn;
using Clock = std::chrono::steady_clock;

constexpr wchar_t kStopped[] = L"The update worker stopped unexpectedly.";
constexpr wchar_t kUnconfirmed[] = L"The update worker completion could not be confirmed.";

Result Applied() {
    Result result;
    result.outcome = Outcome::Applied;
    result.version = kOffered;
    result.error = L"none";
    return result;
}

class UpdateWorkerTest : public WindowTest {
  protected:
    launcher_update::Settings Connect() {
        launcher_update::Settings settings;
        launcher_shell::ConnectToWindow(settings, status_);
        return settings;
    }
    Result result_;
};

TEST_F(UpdateWorkerTest, Work_Done_GivesItsResultFromAnotherThread) {
    Open();
    for (StatusWindow* window : {&status_, static_cast<StatusWindow*>(nullptr)}) {
        DWORD thread = 0;
        result_ = {};
        ASSERT_TRUE(RunUpdateWorker(
            window,
            [&] {
                thread = GetCurrentThreadId();
                return Applied();
            },
            result_));
        EXPECT_NE(thread, GetCurrentThreadId());
        EXPECT_EQ(result_.outcome, Outcome::Applied);
        EXPECT_EQ(result_.version, kOffered);
        EXPECT_EQ(result_.error, L"none");
        EXPECT_TRUE(result_.safeToLaunch);
    }
}

TEST_F(UpdateWorkerTest, Work_ThatThrows_CountsAsUnsafe) {
    Open();
    for (StatusWindow* window : {&status_, static_cast<StatusWindow*>(nullptr)}) {
        for (const bool standard : {true, false}) {
            result_ = Applied();
            ASSERT_TRUE(RunUpdateWorker(
                window,
                [&]() -> Result {
                    if (standard) throw std::runtime_error("worker");
                    throw 7;
                },
                result_));
            EXPECT_EQ(result_.outcome, Outcome::Failed);
            EXPECT_FALSE(result_.safeToLaunch);
            EXPECT_EQ(result_.error, kStopped);
            EXPECT_EQ(result_.version, L"");
        }
    }
}

TEST_F(UpdateWorkerTest, Work_Empty_CountsAsUnsafe) {
    Open();
    ASSERT_TRUE(RunUpdateWorker(&status_, nullptr, result_));
    EXPECT_EQ(result_.outcome, Outcome::Failed);
    EXPECT_FALSE(result_.safeToLaunch);
    EXPECT_EQ(result_.error, kStopped);
}

TEST_F(UpdateWorkerTest, Thread_NotStarted_GivesFalseAndRunsNothing) {
    Open();
    bool ran = false;
    const StandIn<"_beginthreadex", decltype(_beginthreadex)> refuse([](auto...) { return uintptr_t{0}; });
    EXPECT_FALSE(RunUpdateWorker(
        &status_,
        [&] {
            ran = true;
            return Applied();
        },
        result_));
    EXPECT_FALSE(ran);
}

TEST_F(UpdateWorkerTest, Thread_Started_HasNoFlagsAndItsHandleIsClosed) {
    Open();
    std::atomic<HANDLE> thread{nullptr};
    using OnBegin = StandIn<"_beginthreadex", decltype(_beginthreadex)>;
    const OnBegin begin([&](void* security, unsigned stack, unsigned(__stdcall * start)(void*), void* argument,
                            unsigned flags, unsigned* id) {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(stack, 0u);
        EXPECT_EQ(flags, 0u);
        const uintptr_t handle = OnBegin::Original(security, stack, start, argument, flags, id);
        thread = reinterpret_cast<HANDLE>(handle);
        return handle;
    });
    // Counted as it is closed: behind that its value may be another handle's.
    std::atomic<int> closed{0};
    using OnCloseHandle = StandIn<"CloseHandle", decltype(CloseHandle)>;
    const OnCloseHandle close([&](HANDLE handle) {
        if (handle == thread && handle != nullptr) ++closed;
        return OnCloseHandle::Original(handle);
    });
    ASSERT_TRUE(RunUpdateWorker(&status_, Applied, result_));
    EXPECT_EQ(closed, 1);
}

TEST_F(UpdateWorkerTest, Wait_TakesOnlyInputAndTheThreadWithoutLimit) {
    Open();
    int waits = 0;
    using OnWait = StandIn<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)>;
    const OnWait wait([&](DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds, DWORD mask) {
        ++waits;
        EXPECT_EQ(count, 1u);
        EXPECT_FALSE(all);
        EXPECT_EQ(milliseconds, INFINITE);
        EXPECT_EQ(mask, 0x1CFFu);
        return OnWait::Original(count, handles, all, milliseconds, mask);
    });
    ASSERT_TRUE(RunUpdateWorker(&status_, Applied, result_));
    EXPECT_GE(waits, 1);
    EXPECT_EQ(result_.outcome, Outcome::Applied);
}

TEST_F(UpdateWorkerTest, Wait_Refused_CountsAsUnsafeOnceTheThreadHasEnded) {
    Open();
    for (const DWORD refusal : {WAIT_FAILED, DWORD{WAIT_TIMEOUT}, DWORD{WAIT_ABANDONED_0}}) {
        std::atomic<bool> waited = false;
        std::atomic<bool> ended = false;
        int waits = 0;
        using OnMessage = StandIn<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)>;
        const OnMessage refuse([&](auto... all) {
            waited = true;
            return ++waits < 100 ? refusal : OnMessage::Original(all...);  // who does not mind it waits at last
        });
        result_ = {};
        ASSERT_TRUE(RunUpdateWorker(
            &status_,
            [&] {
                while (!waited)
                    std::this_thread::yield();
                Sleep(30);
                ended = true;
                return Applied();
            },
            result_));
        EXPECT_TRUE(ended);
        EXPECT_EQ(waits, 1);
        EXPECT_EQ(result_.outcome, Outcome::Failed);
        EXPECT_FALSE(result_.safeToLaunch);
        EXPECT_EQ(result_.error, kUnconfirmed);
        EXPECT_EQ(result_.version, kOffered);
    }
}

/// The worker waits in its sends for this thread: a wait without a pump would last for ever.
TEST_F(UpdateWorkerTest, Wait_RefusedWhileTheWorkerReports_StillComesToAnEnd) {
    Open();
    const auto settings = Connect();
    std::atomic<bool> refused = false;
    bool stuck = false;
    const StandIn<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)> refuse([&](auto...) {
        refused = true;
        return WAIT_FAILED;
    });
    using OnWait = StandIn<"WaitForSingleObject", decltype(WaitForSingleObject)>;
    const OnWait wait([&, main = GetCurrentThreadId()](HANDLE handle, DWORD milliseconds) {
        if (GetCurrentThreadId() != main || milliseconds != INFINITE) return OnWait::Original(handle, milliseconds);
        DWORD woken = OnWait::Original(handle, 1000);
        stuck = stuck || woken == WAIT_TIMEOUT;
        while (woken == WAIT_TIMEOUT) {
            launcher_ui::PumpMessages(status_);
            woken = OnWait::Original(handle, 5);
        }
        return woken;
    });
    ASSERT_TRUE(RunUpdateWorker(
        &status_,
        [&] {
            while (!refused)
                std::this_thread::yield();
            for (std::uint64_t at = 0; at < 20; ++at)
                settings.onStage(Stage::DownloadingBytes, L"", at, 20);
            return Applied();
        },
        result_));
    EXPECT_FALSE(stuck);
    EXPECT_EQ(result_.error, kUnconfirmed);
}

TEST_F(UpdateWorkerTest, Work_WithAPrompt_GetsTheUsersAnswer) {
    Open();
    const auto settings = Connect();
    bool answer = false;
    Later([this] { return status_.model.promptOpen && HasFocus(Control::updateButton); },
          [this] { Click(Control::updateButton); });
    ASSERT_TRUE(RunUpdateWorker(
        &status_,
        [&] {
            answer = settings.promptForUpdate(kOffered, Notes());
            settings.onStage(Stage::DownloadingBytes, L"app.zip", 40, 100);
            return Applied();
        },
        result_));
    EXPECT_TRUE(answer);
    EXPECT_EQ(status_.model.progress.percent, 40);
}

TEST_F(UpdateWorkerTest, User_DuringTheWork_IsServed) {
    Open();
    const auto settings = Connect();
    Later([this] { return IsWindowEnabled(At(Control::cancelButton)) && status_.model.progress.cancelEnabled; },
          [this] { Click(Control::cancelButton); });
    ASSERT_TRUE(RunUpdateWorker(
        &status_,
        [&] {
            for (std::uint64_t at = 1; at < 5000 && !settings.shouldCancel(); ++at) {
                settings.onStage(Stage::DownloadingBytes, L"app.zip", at, 5000);
                Sleep(1);
            }
            Result result;
            result.outcome = settings.shouldCancel() ? Outcome::Cancelled : Outcome::Applied;
            return result;
        },
        result_));
    EXPECT_EQ(result_.outcome, Outcome::Cancelled);
}

TEST_F(UpdateWorkerTest, Messages_QueuedWhenTheWorkEnds_AreStillHandled) {
    Open();
    const MessageLog log(Main());
    ASSERT_TRUE(RunUpdateWorker(
        &status_,
        [&] {
            PostMessageW(Main(), WM_APP + 7, 0, 0);
            return Applied();
        },
        result_));
    EXPECT_EQ(log.Count(WM_APP + 7), 1);
}

// How soon the window's thread answers while the worker is busy.

struct Gaps {
    int answered = 0;
    double longestMs = 0;
};

/// Posts to the window from a thread of its own, one message after the other, and measures how long each waits.
class Prober {
  public:
    explicit Prober(HWND window) : window_(window), thread_([this] { Run(); }) {}
    Prober(const Prober&) = delete;
    Prober& operator=(const Prober&) = delete;
    ~Prober() {
        if (thread_.joinable()) Stop();
    }

    static constexpr UINT kMessage = WM_APP + 77;

    void Answer() {
        const double waited = std::chrono::duration<double, std::milli>(Clock::now() - posted_.load()).count();
        gaps_.longestMs = std::max(gaps_.longestMs, waited);
        ++gaps_.answered;
        open_ = false;
    }
    Gaps Stop() {
        stop_ = true;
        thread_.join();
        return gaps_;
    }

  private:
    void Run() {
        while (!stop_) {
            if (!open_.exchange(true)) {
                posted_ = Clock::now();
                PostMessageW(window_, kMessage, 0, reinterpret_cast<LPARAM>(this));
            }
            Sleep(2);
        }
    }

    HWND window_;
    std::atomic<bool> stop_ = false;
    std::atomic<bool> open_ = false;
    std::atomic<Clock::time_point> posted_{};
    Gaps gaps_;
    std::thread thread_;
};

LRESULT CALLBACK ProbedProcedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message != Prober::kMessage) return DefWindowProcW(window, message, first, second);
    reinterpret_cast<Prober*>(second)->Answer();
    return 0;
}

HWND MakeProbed() {
    const HWND window = CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&ProbedProcedure));
    return window;
}

/// A thread that does nothing but answer: what it takes to reach it, this machine takes for itself.
class IdleThread {
  public:
    IdleThread() : thread_([this] { Run(); }) {
        while (window_ == nullptr)
            std::this_thread::yield();
    }
    IdleThread(const IdleThread&) = delete;
    IdleThread& operator=(const IdleThread&) = delete;
    ~IdleThread() {
        PostMessageW(window_, WM_QUIT, 0, 0);
        thread_.join();
    }
    [[nodiscard]] HWND Window() const { return window_; }

  private:
    void Run() {
        const HWND window = MakeProbed();
        window_ = window;
        MSG message = {};
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
            DispatchMessageW(&message);
        DestroyWindow(window);
    }

    std::atomic<HWND> window_ = nullptr;
    std::thread thread_;
};

class ResponseTest : public UpdateWorkerTest {
  protected:
    using Step = std::function<void(const launcher_update::Settings&, std::uint64_t)>;

    /// Runs `step` on the worker again and again, for three seconds; `step` gets a number that grows. The window's
    /// thread must answer within 50 ms, beside what an idle thread needs at the same time. A busy machine lets now one
    /// thread wait and now the other, which spoils a round of a second and begins the three anew; a window that is late
    /// once in three seconds never gets there.
    void ExpectAnswers(const Step& step) {
        int inARow = 0;
        for (int round = 0; round < kMostRounds && inARow < kRoundsInARow; ++round)
            inARow = AnswersInTime(step) ? inARow + 1 : 0;
        EXPECT_EQ(inARow, kRoundsInARow) << "late again and again";
    }

  private:
    static constexpr auto kRoundTime = std::chrono::seconds(1);
    static constexpr int kRoundsInARow = 3;
    static constexpr int kMostRounds = 60;
    static constexpr int kLeastAnswers = 33;
    static constexpr double kLongestMs = 50.0;

    bool AnswersInTime(const Step& step) {
        const auto settings = Connect();
        const IdleThread idle;
        Prober reference(idle.Window());
        const HWND probed = MakeProbed();  // a new one, without a question that an earlier round left over
        Prober prober(probed);
        std::uint64_t steps = 0;
        EXPECT_TRUE(RunUpdateWorker(
            &status_,
            [&] {
                const auto end = Clock::now() + kRoundTime;
                while (Clock::now() < end)
                    step(settings, steps++);
                return Applied();
            },
            result_));
        const Gaps gaps = prober.Stop();
        const Gaps noise = reference.Stop();
        DestroyWindow(probed);
        std::printf("%s: %llu steps, %d answers, longest wait %.1f ms (of an idle thread %.1f ms)\n",
                    testing::UnitTest::GetInstance()->current_test_info()->name(), steps, gaps.answered, gaps.longestMs,
                    noise.longestMs);
        EXPECT_EQ(result_.outcome, Outcome::Applied);
        return gaps.answered > kLeastAnswers && gaps.longestMs - noise.longestMs <= kLongestMs;
    }
};

void ReportAll(const launcher_update::Settings& settings, std::uint64_t at) {
    settings.onStage(at % 2 == 0 ? Stage::DownloadingBytes : Stage::Verifying, L"package:" + std::to_wstring(at), at,
                     1000000);
    settings.onDownloadProgress(Receiving(static_cast<double>(at) * 100.0));
    static_cast<void>(settings.shouldCancel());
    static_cast<void>(settings.shouldReconnect());
    static_cast<void>(settings.promptForUpdate(kOffered, Notes()));
}

TEST_F(ResponseTest, Worker_ReportingWithoutPause_KeepsTheWindowAnswering) {
    Open();
    status_.model.autoAcceptPrompt = true;
    ExpectAnswers(ReportAll);
}

TEST_F(ResponseTest, Worker_ReportingNowAndThen_KeepsTheWindowAnswering) {
    Open();
    status_.model.autoAcceptPrompt = true;
    ExpectAnswers([](const launcher_update::Settings& settings, std::uint64_t at) {
        ReportAll(settings, at);
        Sleep(30);
    });
}

TEST_F(ResponseTest, Worker_AskingWithoutPause_KeepsTheWindowAnswering) {
    Open();
    ExpectAnswers([](const launcher_update::Settings& settings, std::uint64_t) {
        static_cast<void>(settings.shouldCancel());
        static_cast<void>(settings.shouldReconnect());
    });
}

}  // namespace
}  // namespace window_tests
