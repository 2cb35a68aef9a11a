#include "ui/failure_view.h"

#include "ui/progress_model.h"

namespace launcher_ui {

using product::TextId;

namespace {

launcher_update::ReleaseNotes AsNotes(const std::wstring& text, const std::wstring& detail) {
    launcher_update::ReleaseNotes notes;
    notes.summary = text;
    if (!detail.empty()) notes.highlights.push_back(detail.substr(0, kMaxFailureDetailUnits));
    return notes;
}

/// The bar stands full and still, in the colour of what happened.
void StopBar(UpdateProgressModel& progress, bool isError) {
    progress.terminal = true;
    progress.stallWatch = false;
    progress.marqueeRuns = false;
    progress.indeterminate = false;
    progress.percent = 100;
    progress.barColour = isError ? colour::kBarFailed : colour::kBarWorking;
}

void OfferClose(WindowModel& model, bool blocking) {
    ControlState& button = model.At(Control::cancelButton);
    button.text = model.Text(TextId::Close);
    button.visible = blocking;
    button.enabled = blocking;
}

}  // namespace

void OpenFailureView(WindowModel& model, const std::wstring& text, const std::wstring& detail, bool blocking,
                     bool isError) {
    ResetUpdateProgress(model);
    model.promptOpen = false;
    model.failureHeld = true;  // before the view is opened: its button is narrow
    model.failureBlocking = blocking;
    OpenProgressView(model);
    model.progress.cancelEnabled = false;
    model.progress.closeBlocked = false;
    StopBar(model.progress, isError);
    model.notes = AsNotes(text, detail);
    ++model.notesRevision;
    model.At(Control::notesHeading).text = model.Text(TextId::StatusDetails);
    model.At(Control::statusLine).text = text;
    SetMainText(model, text);
    model.At(Control::footer).text = model.Text(blocking ? TextId::LaunchStopped : TextId::AutoStartNote);
    model.At(Control::versionBadge).visible = false;
    OfferClose(model, blocking);
}

void OpenFailure(WindowModel& model, bool safe, const std::wstring& detail) {
    OpenFailureView(model, model.Text(safe ? TextId::DidNotFinishStarting : TextId::RecoveryNeedsAttention), detail,
                    !safe, true);
}

bool FailureIsHeld(const WindowModel& model) {
    return model.failureHeld && model.failureBlocking && !model.failureClosed;
}

}  // namespace launcher_ui
