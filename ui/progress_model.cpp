#include "ui/progress_model.h"

#include <algorithm>

#include "download/speed.h"
#include "ui/format.h"

namespace launcher_ui {

using launcher_download::Phase;
using launcher_download::Progress;
using launcher_update::Stage;
using product::TextId;

namespace {

constexpr std::uint64_t kSteadyAfterMs = 3000;  // a speed seen for less promises nothing about the rest
constexpr double kLongestRemainingSeconds = 86400.0;

struct StageEvent {
    Stage stage;
    const std::wstring& detail;
    std::uint64_t completed;
    std::uint64_t total;
};

/// What one stage event shows.
struct StageDisplay {
    std::wstring text;
    std::wstring detail;
    std::int32_t percent = 0;
    bool indeterminate = false;
    bool cancellable = false;
};

bool IsOfTransfer(Stage stage) {
    return stage == Stage::Downloading || stage == Stage::DownloadingBytes || stage == Stage::Verifying ||
           stage == Stage::Installing;
}

bool IsFrom(Stage stage, Stage first, Stage last) {
    return stage >= first && stage <= last;
}

std::int32_t PercentOf(std::uint64_t done, std::uint64_t total) {
    return static_cast<std::int32_t>(100.0 * static_cast<double>(done) / static_cast<double>(total));
}

void RaiseDone(UpdateProgressModel& progress, std::uint64_t done) {
    progress.aggregateDone = std::max(progress.aggregateDone, done);
}

/// The first total that is known is the transfer's; figures of another scale belong to something else.
void LearnFromBytes(UpdateProgressModel& progress, std::uint64_t completed, std::uint64_t total) {
    if (total == 0) return;
    const std::uint64_t clamped = std::min(completed, total);
    if (!progress.aggregateKnown) {
        progress.aggregateKnown = true;
        progress.aggregateDone = clamped;
        progress.aggregateTotal = total;
    } else if (total == progress.aggregateTotal) {
        RaiseDone(progress, clamped);
    }
}

/// Checks of single files come with totals of their own, so this learns none.
void LearnFromVerification(UpdateProgressModel& progress, std::uint64_t completed, std::uint64_t total) {
    if (!progress.aggregateKnown || total == 0 || total != progress.aggregateTotal) return;
    RaiseDone(progress, std::min(completed, total));
}

void ShowAggregate(const UpdateProgressModel& progress, StageDisplay& display) {
    display.indeterminate = !FormatAggregate(progress, display.percent, display.detail);
}

void ShowFiles(const WindowModel& model, const StageEvent& event, TextId text, StageDisplay& display) {
    display.indeterminate = event.total == 0;
    if (event.total != 0) display.percent = PercentOf(std::min(event.completed, event.total), event.total);
    display.text = std::to_wstring(display.percent) + L"% · " + model.Text(text);
    if (!event.detail.empty()) display.text += L" · " + event.detail;
}

std::wstring Sentence(const WindowModel& model, TextId prefix, const std::wstring& value, TextId suffix) {
    return model.Text(prefix) + value + model.Text(suffix);
}

std::wstring UpToDateText(const WindowModel& model, const std::wstring& version) {
    std::wstring text = model.Text(TextId::UpToDate);
    if (!version.empty()) text += Sentence(model, TextId::OnlineVersionPrefix, version, TextId::OnlineVersionSuffix);
    return text;
}

/// What an event shows when nothing is said about its stage: what is there already.
StageDisplay Unchanged(const WindowModel& model) {
    return {MainText(model), L"", model.progress.percent, model.progress.indeterminate, false};
}

void DisplayTransfer(WindowModel& model, const StageEvent& event, StageDisplay& display) {
    if (event.stage == Stage::DownloadingBytes) LearnFromBytes(model.progress, event.completed, event.total);
    const bool isPackage = event.detail.starts_with(launcher_update::kPackageDetailPrefix);
    display.text = model.Text(isPackage ? TextId::UpdatingRequiredResources : TextId::Downloading);
    display.cancellable = true;
    ShowAggregate(model.progress, display);
}

void DisplayVerifying(WindowModel& model, const StageEvent& event, StageDisplay& display) {
    LearnFromVerification(model.progress, event.completed, event.total);
    display.text = model.Text(TextId::VerifyingDownload);
    ShowAggregate(model.progress, display);
}

void DisplayInstalling(WindowModel& model, const StageEvent& event, StageDisplay& display) {
    UpdateProgressModel& progress = model.progress;
    progress.installing = true;
    if (progress.aggregateKnown) progress.aggregateDone = progress.aggregateTotal;
    display.text = Sentence(model, TextId::InstallingPrefix, event.detail, TextId::InstallingSuffix);
    ShowAggregate(progress, display);
}

/// Learns what the event tells and says what it shows.
StageDisplay Display(WindowModel& model, const StageEvent& event) {
    StageDisplay display;
    switch (event.stage) {
        case Stage::Checking:
            return {model.Text(TextId::CheckingForUpdates), L"", 0, true, false};
        case Stage::Skipped:
            return {model.Text(TextId::RecentlyChecked), L"", 100, false, false};
        case Stage::UpToDate:
            return {UpToDateText(model, event.detail), L"", 100, false, false};
        case Stage::UpdateAvailable:
            return {Sentence(model, TextId::VersionWaitingPrefix, event.detail, TextId::AvailableWaitingSuffix), L"",
                    100, false, false};
        case Stage::Repairing:
            return {model.Text(TextId::Repairing), L"", 0, true, true};
        case Stage::Declined:
            return {Sentence(model, TextId::SkippedVersionPrefix, event.detail, TextId::SkippedVersionSuffix), L"", 100,
                    false, false};
        case Stage::Downloading:
        case Stage::DownloadingBytes:
            DisplayTransfer(model, event, display);
            return display;
        case Stage::Verifying:
            DisplayVerifying(model, event, display);
            return display;
        case Stage::Installing:
            DisplayInstalling(model, event, display);
            return display;
        case Stage::Completed:
            return {model.Text(TextId::CompletedPrefix) + event.detail, L"", 100, false, false};
        case Stage::Cancelled:
            return {model.Text(TextId::CancelledStarting), L"", 0, false, false};
        case Stage::Failed:
            return {model.Text(TextId::DidNotFinishChecking), L"", 100, false, false};
        case Stage::CheckingFiles:
            ShowFiles(model, event, TextId::CheckingFiles, display);
            return display;
        case Stage::VerifyingFiles:
            ShowFiles(model, event, TextId::VerifyingFiles, display);
            return display;
    }
    return Unchanged(model);
}

/// Whether the stage belongs to the progress view; opens that view if it does not stand open. A repair stays behind the
/// compact window, which is only brought to light.
bool ChooseView(WindowModel& model, Stage stage) {
    if (stage == Stage::Repairing) {
        model.progress.repairMode = true;
        model.shown = true;
        return true;
    }
    const bool progressView = IsFrom(stage, Stage::Downloading, Stage::Cancelled) ||
                              (stage == Stage::Failed && model.viewMode != ViewMode::compact);
    if (progressView && !model.progress.repairMode && model.viewMode != ViewMode::progress) OpenProgressView(model);
    return progressView;
}

/// A repair never speaks of downloads.
void SpeakOfRepair(const WindowModel& model, Stage stage, StageDisplay& display) {
    if (stage == Stage::Cancelled || stage == Stage::Failed) return;
    display.text = model.Text(stage == Stage::Completed ? TextId::UpToDate : TextId::Repairing);
}

void Publish(WindowModel& model, const StageDisplay& display) {
    SetMainText(model, display.text);
    if (model.viewMode != ViewMode::progress) return;
    model.At(Control::progressDetail).text = display.detail;
    model.At(Control::cancelButton).visible = true;
    model.At(Control::cancelButton).enabled = model.progress.cancelEnabled;
}

Colour BarColourOf(Stage stage) {
    switch (stage) {
        case Stage::Failed:
            return colour::kBarFailed;
        case Stage::UpdateAvailable:
            return colour::kBarOffering;
        case Stage::UpToDate:
        case Stage::Completed:
            return colour::kBarGood;
        default:
            return colour::kBarWorking;
    }
}

/// From the verification on there is no connection left to speak of.
void EndTransferFooter(WindowModel& model, Stage stage) {
    if (!IsFrom(stage, Stage::Verifying, Stage::Failed)) return;
    WithdrawReconnect(model);
    model.At(Control::footer).text =
        model.Text(stage == Stage::Verifying ? TextId::VerifyingDownload : TextId::SafetyNoteSwitching);
}

void MoveBar(UpdateProgressModel& progress, const StageDisplay& display) {
    progress.indeterminate = display.indeterminate;
    progress.percent = std::clamp(display.percent, 0, 100);
    progress.marqueeRuns = display.indeterminate;
    if (!display.indeterminate) progress.marqueeTick = 0;
}

std::wstring PhaseText(const WindowModel& model, const Progress& progress) {
    switch (progress.phase) {
        case Phase::connecting:
            return model.Text(TextId::ConnectingToServer);
        case Phase::slow:
            return model.Text(TextId::SlowConnection);
        case Phase::retrying:
            return model.Text(TextId::Reconnecting);
        case Phase::verifying:
            return model.Text(TextId::VerifyingDownload);
        case Phase::cached:
            return model.Text(TextId::ReusingVerifiedData);
        case Phase::switchingSource:
            return model.Text(progress.slow ? TextId::SlowSwitchingToBackup : TextId::SwitchingToBackup);
        case Phase::comparingSource:
            return model.Text(TextId::ComparingSources);
        default:
            return {};
    }
}

bool IsReceiving(Phase phase) {
    return phase == Phase::receiving || phase == Phase::slow;
}

bool IsBetweenConnections(Phase phase) {
    return phase == Phase::connecting || phase == Phase::retrying;
}

/// " · about 12 s", or nothing while the figures promise nothing.
std::wstring RemainingText(const WindowModel& model, const Progress& progress) {
    if (!(progress.bytesPerSecond > 0.0) || progress.elapsedMs < kSteadyAfterMs || progress.total <= progress.bytes) {
        return {};
    }
    const double seconds = static_cast<double>(progress.total - progress.bytes) / progress.bytesPerSecond;
    if (!(seconds < kLongestRemainingSeconds)) return {};
    return model.Text(TextId::RemainingPrefix) + std::to_wstring(static_cast<std::uint64_t>(seconds) + 1) + L" s";
}

std::wstring FooterText(const WindowModel& model, const Progress& progress) {
    std::wstring text = PhaseText(model, progress);
    if (IsReceiving(progress.phase)) {
        if (!text.empty()) text += L"\n";
        text += model.Text(TextId::SpeedPrefix) + launcher_download::FormatSpeed(progress.bytesPerSecond);
        text += RemainingText(model, progress);
    }
    if (IsBetweenConnections(progress.phase)) {
        text += L" (" + std::to_wstring(progress.attempt) + L"/" + std::to_wstring(progress.maxAttempts) + L")";
    }
    if (text.empty()) text = model.Text(TextId::SafetyNoteSwitching);
    // A switch names its source itself.
    if (progress.backup && progress.phase != Phase::switchingSource) {
        text = model.Text(TextId::SourceBackup) + (L"\n" + text);
    }
    return text;
}

void OfferReconnect(WindowModel& model, const Progress& progress) {
    UpdateProgressModel& known = model.progress;
    known.reconnectAvailable = IsReceiving(progress.phase) && progress.attempt < progress.maxAttempts;
    if (IsBetweenConnections(progress.phase)) known.reconnectRequested = false;
    ShowReconnect(model);
}

}  // namespace

void ApplyStage(WindowModel& model, Stage stage, const std::wstring& detail, std::uint64_t completed,
                std::uint64_t total) {
    if (stage == Stage::Repairing) ResetUpdateProgress(model);
    UpdateProgressModel& progress = model.progress;
    // The one guard against late events: nothing of them takes effect.
    if ((progress.installing || progress.terminal) && IsOfTransfer(stage)) return;
    const bool progressView = ChooseView(model, stage);
    StageDisplay display = Display(model, {stage, detail, completed, total});
    if (IsFrom(stage, Stage::Completed, Stage::Failed)) progress.terminal = true;
    if (progress.repairMode && progressView) SpeakOfRepair(model, stage, display);
    progress.cancelEnabled = display.cancellable && !progress.cancelRequested;
    progress.closeBlocked = progressView && (stage < Stage::Completed || stage >= Stage::CheckingFiles);
    Publish(model, display);
    progress.barColour = BarColourOf(stage);
    EndTransferFooter(model, stage);
    MoveBar(progress, display);
    progress.lastStage = stage;
}

void ApplyDownloadProgress(WindowModel& model, const Progress& progress, std::uint64_t nowTicks) {
    UpdateProgressModel& known = model.progress;
    if (known.installing || known.terminal || known.cancelRequested) return;
    known.progressSeen = true;
    known.lastProgressTicks = nowTicks;
    known.stallWatch = IsReceiving(progress.phase);
    // The retained bytes were really lost: the only way down. The bar itself follows with the next stage event.
    if (progress.restarted && progress.aggregateTotal == known.aggregateTotal) {
        known.aggregateDone = std::min(progress.aggregateBytes, known.aggregateTotal);
    }
    model.At(Control::footer).text = FooterText(model, progress);
    OfferReconnect(model, progress);
}

void ResetUpdateProgress(WindowModel& model) {
    UpdateProgressModel& progress = model.progress;
    progress.aggregateKnown = false;
    progress.aggregateDone = 0;
    progress.aggregateTotal = 0;
    progress.installing = false;
    progress.terminal = false;
    progress.lastStage = Stage::Checking;
    progress.progressSeen = false;
    progress.stallWatch = false;
    WithdrawReconnect(model);
    model.failureHeld = false;
    model.failureClosed = false;
    model.failureBlocking = false;
    model.At(Control::cancelButton).text = model.Text(TextId::Cancel);
    model.At(Control::footer).text = model.Text(TextId::SafetyNoteSwitching);
}

bool FormatAggregate(const UpdateProgressModel& progress, std::int32_t& percentOut, std::wstring& detailOut) {
    if (!progress.aggregateKnown || progress.aggregateTotal == 0) return false;
    const double percent =
        100.0 * static_cast<double>(progress.aggregateDone) / static_cast<double>(progress.aggregateTotal);
    percentOut = static_cast<std::int32_t>(percent);
    const bool justBegun = percentOut == 0 && progress.aggregateDone != 0;
    detailOut = FormatBytes(progress.aggregateDone) + L" / " + FormatBytes(progress.aggregateTotal) + L" · " +
                (justBegun ? WithOneDecimal(percent) : std::to_wstring(percentOut)) + L"%";
    return true;
}

void CheckStall(WindowModel& model, std::uint64_t nowTicks) {
    const UpdateProgressModel& progress = model.progress;
    if (!progress.stallWatch || progress.terminal || progress.cancelRequested) return;
    if (nowTicks - progress.lastProgressTicks < kStallMs) return;
    model.At(Control::footer).text =
        model.Text(TextId::SpeedPrefix) + (L"0.0 KB/s\n" + std::wstring(model.Text(TextId::WaitingForData)));
}

void StepMarquee(WindowModel& model) {
    if (model.progress.indeterminate) {
        ++model.progress.marqueeTick;
    } else {
        model.progress.marqueeRuns = false;
    }
}

}  // namespace launcher_ui
