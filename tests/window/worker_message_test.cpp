#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "launcher/window_bridge.h"
#include "tests/support/fake_clock.h"
#include "tests/window/window_fixture.h"
#include "ui/window_messages.h"

namespace window_tests {
namespace {

constexpr UINT kStage = 32809;
constexpr UINT kPrompt = 32810;
constexpr UINT kCancelQuery = 32811;
constexpr UINT kProgress = 32812;
constexpr UINT kReconnectQuery = 32813;
static_assert(launcher_ui::kStageMessage == kStage && launcher_ui::kPromptMessage == kPrompt &&
              launcher_ui::kCancelQueryMessage == kCancelQuery && launcher_ui::kDownloadProgressMessage == kProgress &&
              launcher_ui::kReconnectQueryMessage == kReconnectQuery);

class WorkerMessageTest : public WindowTest {
  protected:
    /// The callbacks that lead to the window, as the worker gets them.
    launcher_update::Settings Connect() {
        launcher_update::Settings settings;
        launcher_shell::ConnectToWindow(settings, status_);
        return settings;
    }
    bool AskForUpdate(const ReleaseNotes& notes = Notes()) {
        bool answer = false;
        const auto settings = Connect();
        OnWorker([&] { answer = settings.promptForUpdate(kOffered, notes); });
        return answer;
    }
    [[nodiscard]] Condition PromptIsUp() {
        return [this] { return status_.model.promptOpen && HasFocus(Control::updateButton); };
    }
};

TEST_F(WorkerMessageTest, Stage_FromTheWorker_IsShownBeforeTheSendReturns) {
    Open();
    const auto settings = Connect();
    const MessageLog log(Main());
    std::wstring shown;
    OnWorker([&] {
        settings.onStage(Stage::DownloadingBytes, L"app.zip", 20, 100);
        shown = TextOf(At(Control::progressDetail));
    });
    EXPECT_EQ(log.Count(kStage), 1);
    EXPECT_EQ(shown, L"0.0 KB / 0.1 KB · 20%");
    EXPECT_EQ(status_.model.progress.percent, 20);
    EXPECT_EQ(status_.model.progress.lastStage, Stage::DownloadingBytes);
}

TEST_F(WorkerMessageTest, Stage_HandsOverAllItsFields) {
    Open();
    const auto settings = Connect();
    OnWorker([&] { settings.onStage(Stage::VerifyingFiles, L"bin/app.dll", 3, 4); });
    EXPECT_EQ(TextOf(At(Control::statusLine)), L"75% · " + Text(TextId::VerifyingFiles) + L" · bin/app.dll");
}

TEST_F(WorkerMessageTest, Progress_FromTheWorker_IsShown) {
    OpenTransfer();
    const auto settings = Connect();
    const MessageLog log(Main());
    OnWorker([&] { settings.onDownloadProgress(Receiving()); });
    EXPECT_EQ(log.Count(kProgress), 1);
    EXPECT_NE(TextOf(At(Control::footer)).find(L"128.0 KB/s"), std::wstring::npos);
    EXPECT_TRUE(IsWindowVisible(At(Control::reconnectButton)));
    EXPECT_TRUE(IsWindowEnabled(At(Control::reconnectButton)));
    OnWorker([&] { settings.onDownloadProgress(Receiving(2097152.0)); });
    EXPECT_NE(TextOf(At(Control::footer)).find(L"2.0 MB/s"), std::wstring::npos);
}

TEST_F(WorkerMessageTest, CancelQuery_AnswersWhatTheUserAsked) {
    OpenTransfer();
    const auto settings = Connect();
    const MessageLog log(Main());
    std::vector<bool> answers;
    OnWorker([&] { answers.push_back(settings.shouldCancel()); });
    Click(Control::cancelButton);
    OnWorker([&] {
        answers.push_back(settings.shouldCancel());
        answers.push_back(settings.shouldCancel());
    });
    EXPECT_EQ(answers, (std::vector<bool>{false, true, true}));
    EXPECT_EQ(log.Count(kCancelQuery), 3);
}

TEST_F(WorkerMessageTest, ReconnectQuery_IsAnsweredOnce) {
    OpenTransfer();
    Tell(Receiving());
    const auto settings = Connect();
    const MessageLog log(Main());
    std::vector<bool> answers;
    OnWorker([&] { answers.push_back(settings.shouldReconnect()); });
    Click(Control::reconnectButton);
    OnWorker([&] {
        answers.push_back(settings.shouldReconnect());
        answers.push_back(settings.shouldReconnect());
    });
    EXPECT_EQ(answers, (std::vector<bool>{false, true, false}));
    EXPECT_EQ(log.Count(kReconnectQuery), 3);
}

TEST_F(WorkerMessageTest, ReconnectQuery_UnderACancel_IsDropped) {
    OpenTransfer();
    Tell(Receiving());
    const auto settings = Connect();
    Click(Control::reconnectButton);
    status_.model.progress.cancelRequested = true;
    bool answer = true;
    OnWorker([&] { answer = settings.shouldReconnect(); });
    EXPECT_FALSE(answer);
    EXPECT_FALSE(status_.model.progress.reconnectRequested);
    status_.model.progress.cancelRequested = false;
    OnWorker([&] { answer = settings.shouldReconnect(); });
    EXPECT_FALSE(answer);
}

TEST_F(WorkerMessageTest, ReconnectButton_UnderACancel_DoesNothing) {
    OpenTransfer();
    Tell(Receiving());
    Click(Control::cancelButton);
    SendMessageW(Main(), WM_COMMAND, 1007, reinterpret_cast<LPARAM>(At(Control::reconnectButton)));
    EXPECT_FALSE(status_.model.progress.reconnectRequested);
}

/// A comparison of two sources reports from a second thread.
TEST_F(WorkerMessageTest, TwoThreads_ReportingAtOnce_AreBothServed) {
    OpenTransfer();
    status_.counters.enabled = true;
    const auto settings = Connect();
    const auto report = [&] {
        for (int round = 0; round < 40; ++round) {
            settings.onDownloadProgress(Receiving(round * 2048.0));
            EXPECT_FALSE(settings.shouldCancel());
            EXPECT_FALSE(settings.shouldReconnect());
        }
    };
    OnWorker([&] {
        std::thread second(report);
        for (std::uint64_t at = 0; at < 40; ++at)
            settings.onStage(Stage::DownloadingBytes, L"app.zip", at, 100);
        report();
        second.join();
    });
    EXPECT_EQ(status_.counters.workerMessages, 40u + 2 * 120u);
    EXPECT_TRUE(status_.counters.allOnOwnerThread);
    EXPECT_EQ(status_.model.progress.percent, 39);
}

// The prompt.

TEST_F(WorkerMessageTest, Prompt_AcceptedByClick_AnswersYesAndOpensTheProgressView) {
    Open();
    const MessageLog log(Main());
    Later(PromptIsUp(), [this] { Click(Control::updateButton); });
    EXPECT_TRUE(AskForUpdate());
    EXPECT_EQ(log.Count(kPrompt), 1);
    EXPECT_EQ(status_.model.viewMode, ViewMode::progress);
    EXPECT_FALSE(status_.model.promptOpen);
    EXPECT_EQ(TextOf(At(Control::progressLine)), Text(TextId::PreparingCheck));
    EXPECT_TRUE(IsWindowVisible(At(Control::cancelButton)));
    EXPECT_FALSE(IsWindowEnabled(At(Control::cancelButton)));
    EXPECT_FALSE(IsWindowVisible(At(Control::updateButton)));
}

TEST_F(WorkerMessageTest, Prompt_AcceptedByEnter_AnswersYes) {
    Open();
    Later(PromptIsUp(), [this] {
        SetFocus(At(Control::laterButton));
        Press(VK_RETURN);
    });
    EXPECT_TRUE(AskForUpdate());
}

TEST_F(WorkerMessageTest, Prompt_Declined_AnswersNoAndOpensTheCompactView) {
    const std::vector<std::function<void()>> ways = {
        [this] { Click(Control::laterButton); },
        [this] { Press(VK_ESCAPE); },
        [this] { SendMessageW(Main(), WM_CLOSE, 0, 0); },
        [this] { PressWith(VK_MENU, VK_F4); },
    };
    Open();
    for (const auto& way : ways) {
        Later(PromptIsUp(), way);
        EXPECT_FALSE(AskForUpdate());
        EXPECT_EQ(status_.model.viewMode, ViewMode::compact);
        EXPECT_FALSE(status_.model.promptOpen);
        EXPECT_FALSE(status_.model.progress.cancelRequested);
        EXPECT_TRUE(IsWindowVisible(Main()));
    }
}

TEST_F(WorkerMessageTest, Prompt_ShowsWhatItWasGiven) {
    struct Row {
        const wchar_t* priority;
        TextId headline;
    };
    Open();
    for (const Row row :
         {Row{L"normal", TextId::NewVersionAvailable}, Row{L"hotfix", TextId::HotfixAvailable},
          Row{L"recommended", TextId::RecommendedAvailable}, Row{L"HOTFIX", TextId::NewVersionAvailable}}) {
        ReleaseNotes notes = Notes(3);
        notes.priority = row.priority;
        Later(PromptIsUp(), [&, this] {
            EXPECT_EQ(TextOf(At(Control::statusLine)), Text(row.headline));
            EXPECT_EQ(TextOf(At(Control::versionBadge)), std::wstring(kInstalled) + L" → " + kOffered);
            EXPECT_EQ(TextOf(At(Control::notesHeading)), Text(TextId::WhatsNew));
            EXPECT_EQ(status_.noteCards.cards.size(), 4u);
            EXPECT_TRUE(IsWindowVisible(At(Control::safetyNotice)));
            Press(VK_ESCAPE);
        });
        EXPECT_FALSE(AskForUpdate(notes));
    }
}

TEST_F(WorkerMessageTest, Prompt_AcceptedByItself_AnswersYesWithoutBeingShown) {
    Open();
    status_.model.autoAcceptPrompt = true;
    EXPECT_TRUE(AskForUpdate());
    EXPECT_EQ(status_.model.viewMode, ViewMode::compact);
    EXPECT_FALSE(status_.model.promptOpen);
}

TEST_F(WorkerMessageTest, Prompt_ThatCannotBeShown_AnswersNo) {
    Open();
    const auto settings = Connect();
    launcher_ui::DestroyStatusWindow(status_);
    bool answer = true;
    OnWorker([&] { answer = settings.promptForUpdate(kOffered, Notes()); });
    EXPECT_FALSE(answer);
}

TEST_F(WorkerMessageTest, Prompt_AfterAnEarlierChoice_WaitsForItsOwn) {
    Open();
    Later(PromptIsUp(), [this] { Click(Control::updateButton); });
    EXPECT_TRUE(AskForUpdate());
    Later(PromptIsUp(), [this] {
        EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
        Press(VK_ESCAPE);
    });
    EXPECT_FALSE(AskForUpdate());
}

// Counters.

TEST_F(WorkerMessageTest, Counters_Enabled_CountEveryMessageOnTheOwnersThread) {
    Open();
    status_.counters.enabled = true;
    status_.model.autoAcceptPrompt = true;
    const auto settings = Connect();
    OnWorker([&] {
        settings.onStage(Stage::CheckingFiles, L"", 1, 2);
        settings.onDownloadProgress(Receiving());
        EXPECT_FALSE(settings.shouldCancel());
        EXPECT_FALSE(settings.shouldReconnect());
        EXPECT_TRUE(settings.promptForUpdate(kOffered, Notes()));
    });
    EXPECT_EQ(status_.counters.workerMessages, 5u);
    EXPECT_TRUE(status_.counters.allOnOwnerThread);
    EXPECT_EQ(status_.counters.fileStageSends, 1u);
    EXPECT_EQ(status_.counters.fileStageUpdates, 1u);
    EXPECT_EQ(status_.counters.intermediatePercents, 1u);
    status_.ownerThreadId = 0;
    OnWorker([&] { EXPECT_FALSE(settings.shouldCancel()); });
    EXPECT_FALSE(status_.counters.allOnOwnerThread);
}

TEST_F(WorkerMessageTest, Counters_OfFileStages_LeaveOutOthersAndTheEnds) {
    Open();
    status_.counters.enabled = true;
    const auto settings = Connect();
    OnWorker([&] {
        settings.onStage(Stage::CheckingFiles, L"", 0, 100);
        settings.onStage(Stage::VerifyingFiles, L"", 1, 100);
        settings.onStage(Stage::CheckingFiles, L"", 99, 100);
        settings.onStage(Stage::CheckingFiles, L"", 100, 100);
        settings.onStage(Stage::DownloadingBytes, L"", 50, 100);
    });
    EXPECT_EQ(status_.counters.fileStageSends, 4u);
    EXPECT_EQ(status_.counters.fileStageUpdates, 4u);
    EXPECT_EQ(status_.counters.intermediatePercents, 2u);
    EXPECT_EQ(status_.counters.workerMessages, 5u);
}

TEST_F(WorkerMessageTest, Counters_NotEnabled_StayAtZero) {
    Open();
    const auto settings = Connect();
    OnWorker([&] {
        settings.onStage(Stage::CheckingFiles, L"", 1, 2);
        EXPECT_FALSE(settings.shouldCancel());
    });
    InvalidateRect(Main(), nullptr, TRUE);
    InvalidateRect(At(Control::bar), nullptr, TRUE);
    Settle();
    const auto& counters = status_.counters;
    EXPECT_EQ(counters.workerMessages + counters.fileStageSends + counters.fileStageUpdates +
                  counters.intermediatePercents + counters.barPaints + counters.windowPaints,
              0u);
}

TEST_F(WorkerMessageTest, Counters_OfPaints_CountBarAndWindow) {
    Open();
    Tell(Stage::CheckingFiles, L"", 1, 2);  // nothing in motion
    Settle();
    status_.counters.enabled = true;
    InvalidateRect(At(Control::bar), nullptr, FALSE);
    UpdateWindow(At(Control::bar));
    EXPECT_EQ(status_.counters.barPaints, 1u);
    EXPECT_EQ(status_.counters.windowPaints, 0u);
    InvalidateRect(Main(), nullptr, FALSE);
    UpdateWindow(Main());
    EXPECT_EQ(status_.counters.windowPaints, 1u);
}

// The rate limit.

TEST_F(WorkerMessageTest, FileStages_InARow_AreSentOncePerTenthOfASecond) {
    Open();
    test_support::FakeClock clock;
    const auto settings = Connect();
    const MessageLog log(Main());
    OnWorker([&] {
        clock.Advance(1000);
        for (std::uint64_t at = 1; at <= 50; ++at)
            settings.onStage(Stage::CheckingFiles, L"", at, 1000);
    });
    EXPECT_EQ(log.Count(kStage), 1);
    OnWorker([&] {
        clock.Advance(200);
        for (std::uint64_t at = 51; at <= 99; ++at)
            settings.onStage(Stage::CheckingFiles, L"", at, 1000);
        settings.onStage(Stage::CheckingFiles, L"", 1000, 1000);
    });
    EXPECT_EQ(log.Count(kStage), 3);
    EXPECT_EQ(status_.model.progress.percent, 100);
}

TEST_F(WorkerMessageTest, OtherStages_AreAllSent) {
    Open();
    const auto settings = Connect();
    const MessageLog log(Main());
    OnWorker([&] {
        for (std::uint64_t at = 1; at <= 50; ++at)
            settings.onStage(Stage::DownloadingBytes, L"", at, 1000);
    });
    EXPECT_EQ(log.Count(kStage), 50);
}

TEST_F(WorkerMessageTest, Settings_Copied_ShareOneRateLimit) {
    Open();
    test_support::FakeClock clock;
    const auto settings = Connect();
    const MessageLog log(Main());
    OnWorker([&] {
        clock.Advance(1000);
        const launcher_update::Settings copy = settings;
        settings.onStage(Stage::CheckingFiles, L"", 1, 1000);
        copy.onStage(Stage::CheckingFiles, L"", 2, 1000);
    });
    EXPECT_EQ(log.Count(kStage), 1);
}

TEST_F(WorkerMessageTest, BurstsOfFileStages_UpdateTheWindowAFewTimesOnly) {
    Open();
    const auto settings = Connect();
    status_.counters.enabled = true;
    test_support::FakeClock clock;
    OnWorker([&] {
        for (std::uint64_t now = 0; now < 900; now += 5) {
            const Stage stage = now < 450 ? Stage::CheckingFiles : Stage::VerifyingFiles;
            for (int event = 0; event < 100; ++event)
                settings.onStage(stage, L"", now, 1000);
            clock.Advance(5);  // the work between two bursts
        }
        settings.onStage(Stage::VerifyingFiles, L"", 1000, 1000);
    });
    const launcher_ui::WindowCounters& counters = status_.counters;
    std::printf("bursts: %u sends, %u updates, %u intermediate, %u bar paints, %u window paints\n",
                counters.fileStageSends.load(), counters.fileStageUpdates, counters.intermediatePercents,
                counters.barPaints, counters.windowPaints);
    EXPECT_GE(counters.fileStageSends, 2000u);
    EXPECT_GE(counters.fileStageUpdates, 6u);
    EXPECT_LE(counters.fileStageUpdates, 35u);
    EXPECT_GE(counters.intermediatePercents, 4u);
    EXPECT_GE(counters.barPaints, 3u);
    EXPECT_EQ(counters.windowPaints, 0u);
    EXPECT_TRUE(counters.allOnOwnerThread);
    EXPECT_EQ(status_.model.progress.percent, 100);
    EXPECT_EQ(counters.workerMessages, counters.fileStageUpdates);
}

}  // namespace
}  // namespace window_tests
