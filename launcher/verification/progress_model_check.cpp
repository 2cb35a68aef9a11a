#include "launcher/verification/progress_model_check.h"

#include <vector>

#include "launcher/verification/result_line.h"
#include "ui/progress_model.h"
#include "ui/prompt.h"

namespace launcher_shell {

using launcher_ui::Control;
using launcher_ui::ViewMode;
using launcher_ui::WindowModel;
using launcher_update::Stage;
using product::TextId;

namespace {

struct Event {
    Stage stage;
    const wchar_t* detail;
    std::uint64_t completed;
    std::uint64_t total;
};

/// A number, or motion at 0.
struct Bar {
    int percent;
    bool indeterminate;
};
constexpr Bar kMotion = {0, true};
constexpr Bar At(int percent) {
    return {percent, false};
}

using Verdict = ProgressModelVerdict;
using Groups = std::vector<bool Verdict::*>;

/// One event, what the bar shows afterwards, and the groups that it speaks for.
struct Step {
    Event event;
    Bar bar;
    Groups groups;
};

WindowModel NewModel() {
    WindowModel model = launcher_ui::MakeWindowModel(product::Language::english, L"2.1.4.1");
    launcher_ui::OpenProgressView(model);
    return model;
}

void Note(Verdict& verdict, const Groups& groups, bool holds) {
    for (bool Verdict::*const group : groups) {
        verdict.*group = verdict.*group && holds;
    }
}

class Player {
  public:
    Player(const StageApplier& apply, Verdict& verdict) : apply_(apply), verdict_(verdict) {}

    void Play(WindowModel& model, const Step& step) {
        apply_(model, step.event.stage, step.event.detail, step.event.completed, step.event.total);
        const auto& progress = model.progress;
        Note(verdict_, step.groups,
             progress.percent == step.bar.percent && progress.indeterminate == step.bar.indeterminate);
    }

    void Expect(const Groups& groups, bool holds) { Note(verdict_, groups, holds); }

  private:
    const StageApplier& apply_;
    Verdict& verdict_;
};

bool StandsAt(const WindowModel& model, Stage stage, bool cancelEnabled, bool closeBlocked) {
    return model.progress.lastStage == stage && model.progress.cancelEnabled == cancelEnabled &&
           model.progress.closeBlocked == closeBlocked;
}

/// Two packages, from the first byte to the end, with events that come too late.
void PlayWholeUpdate(Player& player) {
    const Groups kPhase = {&Verdict::phaseChanges};
    WindowModel model = NewModel();
    player.Play(model, {{Stage::Downloading, L"package:first", 0, 2}, kMotion, kPhase});
    player.Expect(kPhase, model.progress.cancelEnabled);
    player.Play(model, {{Stage::DownloadingBytes, L"package:first", 20, 100}, At(20), kPhase});
    player.Play(model, {{Stage::Verifying, L"package:first/file", 5, 20}, At(20), {&Verdict::perFileVerification}});
    player.Play(model, {{Stage::Verifying, L"package:first", 40, 100}, At(40), {&Verdict::extraction}});
    player.Play(model, {{Stage::Downloading, L"package:second", 1, 2}, At(40), {&Verdict::multipleAssets}});
    player.Play(model, {{Stage::DownloadingBytes, L"package:second", 30, 100}, At(40), {&Verdict::multipleAssets}});
    player.Play(model, {{Stage::DownloadingBytes, L"package:second", 80, 100}, At(80), {&Verdict::multipleAssets}});
    player.Play(model, {{Stage::Verifying, L"package:second", 100, 100}, At(100), {&Verdict::extraction}});
    player.Play(model, {{Stage::Installing, L"2.1.4.2", 0, 0}, At(100), kPhase});
    player.Expect(kPhase, StandsAt(model, Stage::Installing, false, true));
    player.Play(model, {{Stage::DownloadingBytes, L"stale", 60, 100}, At(100), {&Verdict::staleEvents}});
    player.Expect({&Verdict::staleEvents}, StandsAt(model, Stage::Installing, false, true));
    player.Play(model, {{Stage::Completed, L"2.1.4.2", 0, 0}, At(100), kPhase});
    player.Expect(kPhase, model.progress.lastStage == Stage::Completed);
    player.Play(model, {{Stage::Verifying, L"stale", 70, 100}, At(100), {&Verdict::staleEvents}});
    player.Expect({&Verdict::staleEvents}, model.progress.lastStage == Stage::Completed);
}

void PlayUnknownFigures(Player& player) {
    WindowModel model = NewModel();
    player.Play(model, {{Stage::Verifying, L"candidate-a", 90, 100}, kMotion, {&Verdict::mixedTotal}});
    player.Play(model, {{Stage::Verifying, L"candidate-b", 10, 100}, kMotion, {&Verdict::mixedTotal}});
    player.Expect({&Verdict::mixedTotal}, !model.progress.aggregateKnown);
    launcher_ui::ResetUpdateProgress(model);
    player.Play(model, {{Stage::DownloadingBytes, L"unknown", 5, 0}, kMotion, {&Verdict::unknownTotal}});
    player.Expect({&Verdict::unknownTotal}, !model.progress.aggregateKnown);
    launcher_ui::ResetUpdateProgress(model);
    player.Play(model, {{Stage::DownloadingBytes, L"one scale", 20, 100}, At(20), {&Verdict::mixedTotal}});
    player.Play(model, {{Stage::DownloadingBytes, L"another", 150, 200}, At(20), {&Verdict::mixedTotal}});
    player.Expect({&Verdict::mixedTotal}, model.progress.aggregateTotal == 100);
}

void PlayInstallWithoutTransfer(Player& player) {
    WindowModel model = NewModel();
    player.Play(model, {{Stage::Installing, L"2.1.4.2", 0, 0}, kMotion, {&Verdict::noTransferInstall}});
    player.Expect({&Verdict::noTransferInstall}, StandsAt(model, Stage::Installing, false, true));
}

void PlayCancel(Player& player) {
    WindowModel model = NewModel();
    model.progress.cancelRequested = true;
    player.Play(model, {{Stage::Cancelled, L"", 0, 0}, At(0), {&Verdict::cancelTerminal}});
    player.Play(model, {{Stage::DownloadingBytes, L"stale-after-cancel", 10, 100}, At(0), {&Verdict::cancelTerminal}});
    player.Expect({&Verdict::cancelTerminal},
                  model.progress.terminal && StandsAt(model, Stage::Cancelled, false, false));
}

/// A repair works behind the compact window, which it brings up, and can be stopped by the close box.
void PlayRepair(Player& player) {
    const Groups kPhase = {&Verdict::phaseChanges};
    WindowModel model = launcher_ui::MakeWindowModel(product::Language::english, L"2.1.4.2");
    player.Play(model, {{Stage::Repairing, L"2.1.4.2", 0, 0}, kMotion, kPhase});
    player.Expect(kPhase,
                  model.shown && model.viewMode == ViewMode::compact && StandsAt(model, Stage::Repairing, true, true));
    player.Play(model, {{Stage::DownloadingBytes, L"package:application-runtime", 53, 100}, At(53), kPhase});
    player.Expect(kPhase, model.viewMode == ViewMode::compact && !model.At(Control::notesPanel).visible &&
                              !model.At(Control::updateButton).visible);
    launcher_ui::PressCloseBox(model);
    player.Expect(kPhase, model.progress.cancelRequested &&
                              model.At(Control::statusLine).text == model.Text(TextId::CancellingSafely));
}

}  // namespace

bool ProgressModelVerdict::Passed() const {
    return phaseChanges && multipleAssets && unknownTotal && staleEvents && extraction && perFileVerification &&
           noTransferInstall && cancelTerminal && mixedTotal;
}

ProgressModelVerdict CheckProgressModel(const StageApplier& apply) {
    ProgressModelVerdict verdict;
    Player player(apply, verdict);
    PlayWholeUpdate(player);
    PlayUnknownFigures(player);
    PlayInstallWithoutTransfer(player);
    PlayCancel(player);
    PlayRepair(player);
    return verdict;
}

std::string RenderProgressModelVerdict(const ProgressModelVerdict& verdict) {
    return ResultLine("UPDATE_PROGRESS_MODEL")
        .Add("phase_changes", verdict.phaseChanges)
        .Add("multiple_assets", verdict.multipleAssets)
        .Add("unknown_total", verdict.unknownTotal)
        .Add("stale_events", verdict.staleEvents)
        .Add("extraction", verdict.extraction)
        .Add("per_file_verification", verdict.perFileVerification)
        .Add("no_transfer_install", verdict.noTransferInstall)
        .Add("cancel_terminal", verdict.cancelTerminal)
        .Add("mixed_total", verdict.mixedTotal)
        .Add("passed", verdict.Passed())
        .Text();
}

}  // namespace launcher_shell
