#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/window_model_fixture.h"
#include "ui/progress_model.h"

namespace launcher_ui {
namespace {

using namespace test_support;

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

std::wstring FooterAfter(const Progress& progress, Language language = Language::english) {
    WindowModel model = ProgressWindow(language);
    Report(model, progress);
    return model.At(Control::footer).text;
}

bool IsReceivingPhase(Phase phase) {
    return phase == Phase::receiving || phase == Phase::slow;
}

bool IsBetween(Phase phase) {
    return phase == Phase::connecting || phase == Phase::retrying;
}

// --- The footer, phase by phase ---

struct PhaseRow {
    Phase phase;
    bool slow;
    std::vector<Piece> footer;
};

/// The first of three attempts, no speed known, from the primary source.
const std::vector<PhaseRow>& PhaseTable() {
    static const std::vector<PhaseRow> kTable = {
        {Phase::connecting, false, {TextId::ConnectingToServer, L" (1/3)"}},
        {Phase::receiving, false, {TextId::SpeedPrefix, L"—"}},
        {Phase::slow, false, {TextId::SlowConnection, L"\n", TextId::SpeedPrefix, L"—"}},
        {Phase::retrying, false, {TextId::Reconnecting, L" (1/3)"}},
        {Phase::verifying, false, {TextId::VerifyingDownload}},
        {Phase::cached, false, {TextId::ReusingVerifiedData}},
        {Phase::complete, false, {TextId::SafetyNoteSwitching}},
        {Phase::failed, false, {TextId::SafetyNoteSwitching}},
        {Phase::cancelled, false, {TextId::SafetyNoteSwitching}},
        {Phase::switchingSource, false, {TextId::SwitchingToBackup}},
        {Phase::comparingSource, false, {TextId::ComparingSources}},
        {static_cast<Phase>(11), false, {TextId::SafetyNoteSwitching}},
        {static_cast<Phase>(0xFFFFFFFF), false, {TextId::SafetyNoteSwitching}},
        // A switch for the sake of speed says so; other phases do not care.
        {Phase::switchingSource, true, {TextId::SlowSwitchingToBackup}},
        {Phase::connecting, true, {TextId::ConnectingToServer, L" (1/3)"}},
        {Phase::receiving, true, {TextId::SpeedPrefix, L"—"}},
        {Phase::complete, true, {TextId::SafetyNoteSwitching}},
    };
    return kTable;
}

TEST(DownloadProgress_Footer, EveryPhase_HasItsText) {
    for (const Language language : kLanguages) {
        for (const PhaseRow& row : PhaseTable()) {
            Progress progress = ReportIn(row.phase);
            progress.slow = row.slow;
            EXPECT_EQ(FooterAfter(progress, language), Joined(language, row.footer))
                << "phase " << Number(row.phase) << ", language " << Number(language);
        }
    }
}

TEST(DownloadProgress_Footer, BackupSource_IsNamedInFrontExceptByASwitch) {
    for (const Language language : kLanguages) {
        for (const PhaseRow& row : PhaseTable()) {
            Progress progress = ReportIn(row.phase);
            progress.slow = row.slow;
            progress.backup = true;
            std::wstring expected = Joined(language, row.footer);
            if (row.phase != Phase::switchingSource) {
                expected = Joined(language, {TextId::SourceBackup, L"\n", expected.c_str()});
            }
            EXPECT_EQ(FooterAfter(progress, language), expected)
                << "phase " << Number(row.phase) << ", language " << Number(language);
        }
    }
}

TEST(DownloadProgress_Footer, Attempts_AreCountedBetweenConnections) {
    for (const Phase phase : kPhases) {
        Progress progress = ReportIn(phase);
        progress.attempt = 2;
        progress.maxAttempts = 7;
        EXPECT_EQ(FooterAfter(progress).ends_with(L" (2/7)"), IsBetween(phase)) << Number(phase);
    }
}

TEST(DownloadProgress_Footer, StaysOfTheLastReport) {
    WindowModel model = ProgressWindow();
    Report(model, ReportIn(Phase::connecting));
    Report(model, ReportIn(Phase::cached));
    EXPECT_EQ(model.At(Control::footer).text, model.Text(TextId::ReusingVerifiedData));
}

TEST(DownloadProgress_Footer, IsKeptInEveryView) {
    for (const ViewMode view : kViews) {
        WindowModel model = WindowIn(view);
        Report(model, ReportIn(Phase::cached));
        EXPECT_EQ(model.At(Control::footer).text, model.Text(TextId::ReusingVerifiedData));
    }
}

// --- Speed and remaining time ---

struct SpeedRow {
    double speed;
    const wchar_t* text;
};

TEST(DownloadProgress_Speed, EachValue_HasItsText) {
    const SpeedRow rows[] = {
        {0.0, L"Speed: 0.0 KB/s"},
        {1.0, L"Speed: 0.0 KB/s"},
        {131072.0, L"Speed: 128.0 KB/s"},
        {1048575.0, L"Speed: 1024.0 KB/s"},
        {1048576.0, L"Speed: 1.0 MB/s"},
        {2097152.0, L"Speed: 2.0 MB/s"},
        {-1.0, L"Speed: —"},
        {-0.5, L"Speed: —"},
        {-kInfinite, L"Speed: —"},
        {kInfinite, L"Speed: —"},
        {std::nan(""), L"Speed: —"},
        {1.1e15, L"Speed: —"},
    };
    for (const SpeedRow& row : rows) {
        EXPECT_EQ(FooterAfter(Receiving(row.speed)), row.text) << row.speed;
        Progress slow = Receiving(row.speed);
        slow.phase = Phase::slow;
        EXPECT_EQ(FooterAfter(slow), L"Slow connection. Keep waiting or reconnect.\n" + std::wstring(row.text))
            << row.speed;
    }
}

TEST(DownloadProgress_Speed, OtherPhases_SayNone) {
    for (const Phase phase : kPhases) {
        Progress progress = Receiving(131072.0);
        progress.phase = phase;
        progress.total = 1310720;
        EXPECT_EQ(FooterAfter(progress).find(L"128.0 KB/s") != std::wstring::npos, IsReceivingPhase(phase))
            << Number(phase);
        EXPECT_EQ(FooterAfter(progress).find(L"about") != std::wstring::npos, IsReceivingPhase(phase)) << Number(phase);
    }
}

struct RemainingRow {
    double speed;
    std::uint64_t elapsedMs;
    std::uint64_t bytes;
    std::uint64_t total;
    const wchar_t* text;  // empty: nothing is promised
};

TEST(DownloadProgress_Remaining, SteadyFigures_PromiseAnEnd) {
    const RemainingRow rows[] = {
        {1024.0, 3000, 0, 10240, L" · about 11 s"},
        {1024.0, 3000, 5120, 10240, L" · about 6 s"},
        {1024.0, kLargest, 0, 10240, L" · about 11 s"},
        {1024.0, 3000, 0, 10239, L" · about 10 s"},
        {1024.0, 3000, 10239, 10240, L" · about 1 s"},
        {0.5, 3000, 0, 10, L" · about 21 s"},
        // too early to tell
        {1024.0, 2999, 0, 10240, L""},
        {1024.0, 0, 0, 10240, L""},
        // nothing left, or the size is not what was said
        {1024.0, 3000, 10240, 10240, L""},
        {1024.0, 3000, 10241, 10240, L""},
        {1024.0, 3000, 0, 0, L""},
        // no speed to tell from
        {0.0, 3000, 0, 10240, L""},
        {-0.0, 3000, 0, 10240, L""},
        {-1024.0, 3000, 0, 10240, L""},
        {std::nan(""), 3000, 0, 10240, L""},
        // a day is the longest promise
        {1.0, 3000, 0, 86399, L" · about 86400 s"},
        {1.0, 3000, 0, 86400, L""},
        {2.0, 3000, 0, 172799, L" · about 86400 s"},
        {2.0, 3000, 0, 172800, L""},
        {1.0, 3000, 0, kLargest, L""},
        {std::numeric_limits<double>::denorm_min(), 3000, 0, kLargest, L""},
        // beyond what a speed can be said to be, the end is near
        {kInfinite, 3000, 0, 10240, L" · about 1 s"},
        {1e300, 3000, 0, kLargest, L" · about 1 s"},
    };
    for (const RemainingRow& row : rows) {
        Progress progress = Receiving(row.speed);
        progress.elapsedMs = row.elapsedMs;
        progress.bytes = row.bytes;
        progress.total = row.total;
        const std::wstring speed = FooterAfter(Receiving(row.speed));
        EXPECT_EQ(FooterAfter(progress), speed + row.text)
            << row.speed << " after " << row.elapsedMs << " ms, " << row.bytes << " of " << row.total;
    }
}

TEST(DownloadProgress_Remaining, FollowsTheSpeedInEveryLanguage) {
    for (const Language language : kLanguages) {
        Progress progress = Receiving(2097152.0);
        progress.total = 20971520;
        const std::vector<Piece> pieces = {TextId::SpeedPrefix, L"2.0 MB/s", TextId::RemainingPrefix, L"11 s"};
        EXPECT_EQ(FooterAfter(progress, language), Joined(language, pieces));
        progress.phase = Phase::slow;
        progress.backup = true;
        EXPECT_EQ(FooterAfter(progress, language),
                  Joined(language, {TextId::SourceBackup, L"\n", TextId::SlowConnection, L"\n", TextId::SpeedPrefix,
                                    L"2.0 MB/s", TextId::RemainingPrefix, L"11 s"}));
    }
}

// --- When a report is ignored ---

TEST(DownloadProgress_Ignored, OnceTheTransferIsOverOrToBeCancelled) {
    bool UpdateProgressModel::*const reasons[] = {&UpdateProgressModel::installing, &UpdateProgressModel::terminal,
                                                  &UpdateProgressModel::cancelRequested};
    for (const auto reason : reasons) {
        for (const Phase phase : kPhases) {
            WindowModel model = TransferWindow(30, 100);
            Report(model, Receiving(1024.0));
            model.progress.*reason = true;
            const WindowModel before = model;
            Progress late = RestartAt(10, 100);
            late.phase = phase;
            late.backup = true;
            Report(model, late, 9000);
            EXPECT_EQ(Changed(before, model), Names{}) << Number(phase);
        }
    }
}

TEST(DownloadProgress_Ignored, NeverMerelyBecauseOfTheView) {
    for (const ViewMode view : kViews) {
        WindowModel model = WindowIn(view);
        Report(model, Receiving(1024.0), 4321);
        EXPECT_TRUE(model.progress.progressSeen);
        EXPECT_EQ(model.progress.lastProgressTicks, 4321u);
    }
}

TEST(DownloadProgress_Effect, IsOnFooterAndReconnectAlone) {
    WindowModel model = TransferWindow(30, 100);
    const WindowModel before = model;
    Report(model, Receiving(1024.0), 4321);
    EXPECT_EQ(Changed(before, model), (Names{"progressSeen", "lastProgressTicks", "stallWatch", "reconnectAvailable",
                                             "footer.text", "reconnectButton.visible"}));
}

// --- Reconnect ---

TEST(DownloadProgress_Reconnect, IsOfferedWhileBytesAreAwaitedAndAttemptsAreLeft) {
    for (const Phase phase : kPhases) {
        for (const std::uint32_t attempt : {0u, 1u, 2u, 3u, 4u}) {
            WindowModel model = ProgressWindow();
            Progress progress = ReportIn(phase);
            progress.attempt = attempt;
            Report(model, progress);
            const bool offered = IsReceivingPhase(phase) && attempt < 3;
            EXPECT_EQ(model.progress.reconnectAvailable, offered) << Number(phase) << ", " << attempt;
            EXPECT_EQ(model.At(Control::reconnectButton).enabled, offered) << Number(phase) << ", " << attempt;
        }
    }
}

TEST(DownloadProgress_Reconnect, OfferEndsWithTheNextPhase) {
    for (const Phase phase : kPhases) {
        WindowModel model = ProgressWindow();
        Report(model, Receiving(1024.0));
        Report(model, ReportIn(phase));
        EXPECT_EQ(model.progress.reconnectAvailable, IsReceivingPhase(phase)) << Number(phase);
        EXPECT_EQ(model.At(Control::reconnectButton).enabled, IsReceivingPhase(phase)) << Number(phase);
    }
}

TEST(DownloadProgress_Reconnect, IsSeenInTheProgressViewWhileItIsOffered) {
    for (const ViewMode view : kViews) {
        for (const Phase phase : kPhases) {
            for (const std::uint32_t attempt : {1u, 3u}) {
                WindowModel model = WindowIn(view);
                Progress progress = ReportIn(phase);
                progress.attempt = attempt;
                Report(model, progress);
                const bool offered = IsReceivingPhase(phase) && attempt < 3;
                EXPECT_EQ(model.At(Control::reconnectButton).visible, offered && view == ViewMode::progress)
                    << Number(view) << ", " << Number(phase) << ", " << attempt;
            }
        }
    }
}

TEST(DownloadProgress_Reconnect, OnceAskedFor_StaysInSight) {
    WindowModel model = ProgressWindow();
    Report(model, Receiving(1024.0));
    EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
    EXPECT_TRUE(model.At(Control::reconnectButton).visible);
    Report(model, ReportIn(Phase::retrying));
    EXPECT_FALSE(model.At(Control::reconnectButton).visible);
}

TEST(DownloadProgress_Reconnect, Wish_IsKeptUntilTheNextConnection) {
    for (const Phase phase : kPhases) {
        WindowModel model = ProgressWindow();
        Report(model, Receiving(1024.0));
        EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
        Report(model, ReportIn(phase));
        EXPECT_EQ(model.progress.reconnectRequested, !IsBetween(phase)) << Number(phase);
        EXPECT_FALSE(model.At(Control::reconnectButton).enabled) << Number(phase) << ": asked for already";
        Report(model, Receiving(1024.0));
        EXPECT_EQ(model.At(Control::reconnectButton).enabled, IsBetween(phase)) << Number(phase);
    }
}

// --- Restart ---

TEST(DownloadProgress_Restart, OfTheSameTotal_TakesTheBarBack) {
    WindowModel model = TransferWindow(60, 100);
    Report(model, RestartAt(25, 100));
    EXPECT_EQ(model.progress.aggregateDone, 25u);
    EXPECT_EQ(model.progress.percent, 60) << "the bar follows with the next stage";
    EXPECT_EQ(model.At(Control::progressDetail).text, L"0.1 KB / 0.1 KB · 60%");
    Apply(model, Stage::Downloading, L"app.zip", 0, 1);
    EXPECT_EQ(model.progress.percent, 25);
}

TEST(DownloadProgress_Restart, InEveryPhase_TakesTheBarBack) {
    for (const Phase phase : kPhases) {
        WindowModel model = TransferWindow(60, 100);
        Progress progress = RestartAt(0, 100);
        progress.phase = phase;
        Report(model, progress);
        EXPECT_EQ(model.progress.aggregateDone, 0u) << Number(phase);
    }
}

TEST(DownloadProgress_Restart, OfAnotherTotal_ChangesNothing) {
    for (const std::uint64_t total : {std::uint64_t{0}, std::uint64_t{99}, std::uint64_t{101}, kLargest}) {
        WindowModel model = TransferWindow(60, 100);
        Report(model, RestartAt(25, total));
        EXPECT_EQ(model.progress.aggregateDone, 60u) << total;
        EXPECT_EQ(model.progress.aggregateTotal, 100u) << total;
    }
}

TEST(DownloadProgress_Restart, WithoutTheMark_ChangesNothing) {
    WindowModel model = TransferWindow(60, 100);
    Progress progress = RestartAt(25, 100);
    progress.restarted = false;
    Report(model, progress);
    EXPECT_EQ(model.progress.aggregateDone, 60u);
}

TEST(DownloadProgress_Restart, BeyondTheTotal_IsTheTotal) {
    for (const std::uint64_t done : {std::uint64_t{100}, std::uint64_t{101}, kLargest}) {
        WindowModel model = TransferWindow(60, 100);
        Report(model, RestartAt(done, 100));
        EXPECT_EQ(model.progress.aggregateDone, 100u) << done;
    }
}

TEST(DownloadProgress_Restart, BeforeATotalIsKnown_TeachesNone) {
    WindowModel model = ProgressWindow();
    Report(model, RestartAt(0, 0));
    EXPECT_FALSE(model.progress.aggregateKnown);
    Report(model, RestartAt(50, 100));
    EXPECT_FALSE(model.progress.aggregateKnown);
    Apply(model, Stage::Downloading, L"app.zip", 0, 1);
    EXPECT_TRUE(model.progress.indeterminate);
}

// --- Silence ---

TEST(Stall_Watch, RunsWhileBytesAreAwaited) {
    for (const Phase phase : kPhases) {
        for (const bool watched : {false, true}) {
            WindowModel model = ProgressWindow();
            model.progress.stallWatch = watched;
            Report(model, ReportIn(phase), 4321);
            EXPECT_EQ(model.progress.stallWatch, IsReceivingPhase(phase)) << Number(phase);
            EXPECT_EQ(model.progress.lastProgressTicks, 4321u) << Number(phase);
            EXPECT_TRUE(model.progress.progressSeen) << Number(phase);
        }
    }
}

TEST(Stall, TwoSecondsOfSilence_AreTold) {
    for (const Language language : kLanguages) {
        WindowModel model = ProgressWindow(language);
        Report(model, Receiving(1024.0), 50000);
        CheckStall(model, 52000);
        const std::vector<Piece> pieces = {TextId::SpeedPrefix, L"0.0 KB/s\n", TextId::WaitingForData};
        EXPECT_EQ(model.At(Control::footer).text, Joined(language, pieces));
    }
}

TEST(Stall, ThreeSecondsOfSilence_AreTold) {
    WindowModel model = ProgressWindow();
    Report(model, Receiving(131072.0), 50000);
    CheckStall(model, 53000);
    EXPECT_EQ(model.At(Control::footer).text, L"Speed: 0.0 KB/s\nWaiting for download data…");
}

TEST(Stall, LessThanTwoSeconds_AreNotTold) {
    for (const std::uint64_t silence : {0u, 1u, 500u, 1999u}) {
        WindowModel model = ProgressWindow();
        Report(model, Receiving(1024.0), 50000);
        const WindowModel before = model;
        CheckStall(model, 50000 + silence);
        EXPECT_EQ(Changed(before, model), Names{}) << silence;
    }
}

TEST(Stall, ChangesTheFooterAlone) {
    WindowModel model = ProgressWindow();
    Report(model, Receiving(1024.0), 50000);
    const WindowModel before = model;
    CheckStall(model, 60000);
    EXPECT_EQ(Changed(before, model), Names{"footer.text"});
}

TEST(Stall, Silence_IsCountedFromTheLastReport) {
    WindowModel model = ProgressWindow();
    Report(model, Receiving(1024.0), 50000);
    Report(model, Receiving(2048.0), 51500);
    CheckStall(model, 53499);
    EXPECT_EQ(model.At(Control::footer).text, L"Speed: 2.0 KB/s");
    CheckStall(model, 53500);
    EXPECT_EQ(model.At(Control::footer).text, L"Speed: 0.0 KB/s\nWaiting for download data…");
    Report(model, Receiving(2048.0), 53600);
    EXPECT_EQ(model.At(Control::footer).text, L"Speed: 2.0 KB/s");
}

TEST(Stall, NothingAwaited_IsNotTold) {
    for (const auto set : {+[](UpdateProgressModel& progress) { progress.stallWatch = false; },
                           +[](UpdateProgressModel& progress) { progress.terminal = true; },
                           +[](UpdateProgressModel& progress) { progress.cancelRequested = true; }}) {
        WindowModel model = ProgressWindow();
        Report(model, Receiving(1024.0), 50000);
        set(model.progress);
        const WindowModel before = model;
        CheckStall(model, 60000);
        EXPECT_EQ(Changed(before, model), Names{});
    }
}

TEST(Stall, BeforeTheFirstReport_IsNotTold) {
    WindowModel model = ProgressWindow();
    const WindowModel before = model;
    CheckStall(model, 60000);
    EXPECT_EQ(Changed(before, model), Names{});
}

// --- The bar's motion ---

TEST(StepMarquee, MovingBar_TakesOneStep) {
    WindowModel model = ProgressWindow();
    Apply(model, Stage::Checking);
    const WindowModel before = model;
    StepMarquee(model);
    EXPECT_EQ(Changed(before, model), Names{"marqueeTick"});
    EXPECT_EQ(model.progress.marqueeTick, 1u);
    StepMarquee(model);
    EXPECT_EQ(model.progress.marqueeTick, 2u);
}

TEST(StepMarquee, StillBar_EndsTheMotion) {
    WindowModel model = TransferWindow(30, 100);
    model.progress.marqueeRuns = true;
    const WindowModel before = model;
    StepMarquee(model);
    EXPECT_EQ(Changed(before, model), Names{"marqueeRuns"});
    EXPECT_FALSE(model.progress.marqueeRuns);
}

TEST(StepMarquee, LastTick_GoesOnFromZero) {
    WindowModel model = ProgressWindow();
    Apply(model, Stage::Checking);
    model.progress.marqueeTick = std::numeric_limits<unsigned>::max();
    StepMarquee(model);
    EXPECT_EQ(model.progress.marqueeTick, 0u);
}

}  // namespace
}  // namespace launcher_ui
