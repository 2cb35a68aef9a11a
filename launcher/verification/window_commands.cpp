#include "launcher/verification/window_commands.h"

#include <windows.h>

#include "launcher/update_worker.h"
#include "launcher/verification/command_window.h"
#include "launcher/verification/manifest_commands.h"
#include "launcher/verification/output.h"
#include "launcher/verification/progress_model_check.h"
#include "launcher/verification/result_line.h"
#include "launcher/window_bridge.h"
#include "ui/capture.h"
#include "ui/progress_model.h"
#include "ui/status_window.h"
#include "update/manifest/release_notes.h"

namespace launcher_shell {

using launcher_ui::StatusWindow;
using launcher_update::Stage;

namespace {

constexpr int kOtherOrder = 36;
constexpr int kModelFailed = 41;
constexpr int kNotResponsive = 42;
constexpr int kViewFailed = 43;

// A check of files, reported far more often than anybody could see.

constexpr std::uint64_t kScaleMs = 1000;  // one unit of the check for each millisecond
constexpr std::uint64_t kCheckMs = 900;   // of each of the two stages; the rest comes with the last report
constexpr int kReportsInBurst = 100;
constexpr DWORD kBetweenBurstsMs = 5;

// What a good view makes of it.
constexpr std::uint32_t kLeastReports = 2000;
constexpr std::uint32_t kLeastUpdates = 6;
constexpr std::uint32_t kMostUpdates = 35;
constexpr std::uint32_t kLeastIntermediate = 4;
constexpr std::uint32_t kLeastBarPaints = 3;

void ReportCheck(const launcher_update::Settings& settings, Stage stage) {
    const ULONGLONG begin = GetTickCount64();
    for (ULONGLONG elapsed = 0; elapsed < kCheckMs; elapsed = GetTickCount64() - begin) {
        for (int report = 0; report < kReportsInBurst; ++report) {
            launcher_update::NotifyStage(settings, stage, L"checked file", elapsed, kScaleMs);
        }
        Sleep(kBetweenBurstsMs);
    }
}

launcher_update::Result ReportChecks(const launcher_update::Settings& settings) {
    ReportCheck(settings, Stage::CheckingFiles);
    ReportCheck(settings, Stage::VerifyingFiles);
    launcher_update::NotifyStage(settings, Stage::VerifyingFiles, L"checked file", kScaleMs, kScaleMs);
    return {};
}

bool IsGoodView(const launcher_ui::WindowCounters& counters, int percent) {
    return counters.fileStageSends >= kLeastReports && counters.fileStageUpdates >= kLeastUpdates &&
           counters.fileStageUpdates <= kMostUpdates && counters.intermediatePercents >= kLeastIntermediate &&
           counters.barPaints >= kLeastBarPaints && counters.windowPaints == 0 && counters.allOnOwnerThread &&
           percent == 100;
}

void PrintView(const launcher_ui::WindowCounters& counters, int percent, bool passed) {
    WriteOutput(ResultLine("VERIFICATION_UI")
                    .Add("attempted", counters.fileStageSends.load())
                    .Add("updates", counters.fileStageUpdates)
                    .Add("intermediate", counters.intermediatePercents)
                    .Add("progress_paints", counters.barPaints)
                    .Add("window_paints", counters.windowPaints)
                    .Add("owner_thread", counters.allOnOwnerThread)
                    .Add("final_percent", percent)
                    .Add("passed", passed)
                    .Text());
}

/// The desktop asks a new window to paint itself for a while after it was shown; that is not what is counted.
void LetWindowSettle(StatusWindow& status) {
    constexpr ULONGLONG kQuietMs = 200;
    const ULONGLONG begin = GetTickCount64();
    for (ULONGLONG waited = 0; waited < kQuietMs; waited = GetTickCount64() - begin) {
        launcher_ui::WaitAndPump(status, static_cast<DWORD>(kQuietMs - waited));
    }
    UpdateWindow(status.window);
}

/// True if the worker ran to its end, and the window's counters tell of it.
bool WatchChecks(StatusWindow& status) {
    launcher_update::Settings settings;
    ConnectToWindow(settings, status);
    LetWindowSettle(status);
    status.counters.enabled = true;
    launcher_update::Result result;
    const bool ran = RunUpdateWorker(
                         &status, [&settings] { return ReportChecks(settings); }, result) &&
                     result.outcome != launcher_update::Outcome::Failed;
    status.counters.enabled = false;
    return ran;
}

// A worker that sleeps.

constexpr int kNaps = 12;
constexpr DWORD kNapMs = 50;
constexpr UINT kAnswerMs = 500;
constexpr unsigned kLeastSteps = 3;  // of the bar's motion, 45 ms each, during all naps

/// Whether the window answers after every nap, although nothing is sent to it meanwhile.
bool NapAndAsk(HWND window) {
    bool answered = true;
    for (int nap = 0; nap < kNaps; ++nap) {
        Sleep(kNapMs);
        DWORD_PTR answer = 0;
        answered = SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_BLOCK, kAnswerMs, &answer) != 0 && answered;
    }
    return answered;
}

}  // namespace

int CheckNotesOrder(const CommandRun& run) {
    launcher_update::UpdateManifest manifest;
    if (!ReadManifestFile(run.values[0], true, manifest)) return kOtherOrder;
    StatusWindow status;
    if (!OpenCommandWindow(status, run.values[1], L"") ||
        !launcher_ui::ShowPrompt(status, manifest.version,
                                 launcher_update::SelectReleaseNotes(manifest, run.values[1]))) {
        return kOtherOrder;
    }
    const auto& cards = status.noteCards.cards;
    const auto& places = status.notesLayout.cards;
    const bool inOrder = cards.size() >= 2 && places.size() == cards.size() && cards[0].text == run.values[2] &&
                         cards[1].text == run.values[3] && places[0].bottom <= places[1].top;
    return inOrder ? 0 : kOtherOrder;
}

int CheckProgressModel(const CommandRun&) {
    const ProgressModelVerdict verdict = CheckProgressModel(
        [](launcher_ui::WindowModel& model, Stage stage, const std::wstring& detail, std::uint64_t completed,
           std::uint64_t total) { launcher_ui::ApplyStage(model, stage, detail, completed, total); });
    WriteOutput(RenderProgressModelVerdict(verdict));
    return verdict.Passed() ? 0 : kModelFailed;
}

int CheckVerificationProgress(const CommandRun& run) {
    StatusWindow status;
    if (!OpenCommandWindow(status, run.values[0], L"")) return kViewFailed;
    const bool ran = WatchChecks(status);
    const int percent = status.model.progress.percent;
    const bool passed = ran && IsGoodView(status.counters, percent);
    PrintView(status.counters, percent, passed);
    const bool pictured = run.values.size() < 2 || launcher_ui::SaveWindowPicture(status.window, run.values[1]);
    return passed && pictured ? 0 : kViewFailed;
}

int CheckResponsiveWindow(const CommandRun&) {
    StatusWindow status;
    if (!launcher_ui::CreateStatusWindow(status, GetModuleHandleW(nullptr), L"", SW_SHOWNORMAL)) return kNotResponsive;
    const unsigned before = status.model.progress.marqueeTick;
    bool answered = false;
    launcher_update::Result result;
    const auto work = [&] {
        answered = NapAndAsk(status.window);
        return launcher_update::Result();
    };
    const bool ran = RunUpdateWorker(&status, work, result) && result.outcome != launcher_update::Outcome::Failed;
    const bool moved = status.model.progress.marqueeTick - before >= kLeastSteps;
    return ran && answered && moved ? 0 : kNotResponsive;
}

}  // namespace launcher_shell
