#include "ui/window_model.h"

#include "product/locations.h"

namespace launcher_ui {

using product::TextId;

namespace {

struct FirstText {
    Control control;
    TextId text;
};

constexpr FirstText kFirstTexts[] = {
    {Control::statusLine, TextId::PreparingCheck},  {Control::notesHeading, TextId::WhatsNew},
    {Control::scrollHint, TextId::ScrollForMore},   {Control::safetyNotice, TextId::SafetyNoteVerified},
    {Control::footer, TextId::SafetyNoteSwitching}, {Control::notesLink, TextId::ViewFullNotes},
    {Control::updateButton, TextId::UpdateNow},     {Control::laterButton, TextId::Later},
    {Control::cancelButton, TextId::Cancel},        {Control::reconnectButton, TextId::Reconnect},
};

Control MainLine(const WindowModel& model) {
    return model.viewMode == ViewMode::progress ? Control::progressLine : Control::statusLine;
}

}  // namespace

std::wstring WindowModel::CurrentVersionText() const {
    return currentVersion.empty() ? Text(TextId::UnknownVersion) : currentVersion;
}

WindowModel MakeWindowModel(product::Language language, const std::wstring& currentVersion) {
    WindowModel model;
    model.language = language;
    model.currentVersion = currentVersion;
    model.At(Control::title).text = product::kProductName;
    model.At(Control::versionLine).text = model.Text(TextId::CurrentVersionPrefix) + model.CurrentVersionText();
    for (const FirstText& first : kFirstTexts) {
        model.At(first.control).text = model.Text(first.text);
    }
    OpenView(model, ViewMode::compact);
    model.shown = false;  // the creator shows it
    return model;
}

void OpenView(WindowModel& model, ViewMode view) {
    model.viewMode = view;
    model.shown = true;
    ++model.arrangement;
    for (int index = 0; index < kControlCount; ++index) {
        const auto control = static_cast<Control>(index);
        model.At(control).visible = IsPartOf(control, view);
    }
    if (view == ViewMode::prompt) model.At(Control::notesLink).visible = !model.fullNotesUrl.empty();
}

void OpenProgressView(WindowModel& model) {
    model.At(Control::cancelButton).text = model.Text(TextId::SkipUpdateAndOpen);
    model.At(Control::cancelButton).enabled = false;
    model.progress.cancelEnabled = false;
    model.progress.closeBlocked = true;
    OpenView(model, ViewMode::progress);
    SetMainText(model, model.Text(TextId::PreparingCheck));
    model.At(Control::progressDetail).text.clear();
}

void OpenCompactView(WindowModel& model) {
    model.progress.cancelEnabled = false;
    model.progress.closeBlocked = false;
    OpenView(model, ViewMode::compact);
}

void ShowReconnect(WindowModel& model) {
    const UpdateProgressModel& progress = model.progress;
    ControlState& button = model.At(Control::reconnectButton);
    button.visible = progress.reconnectAvailable && model.viewMode == ViewMode::progress;
    button.enabled = progress.reconnectAvailable && !progress.reconnectRequested;
}

void WithdrawReconnect(WindowModel& model) {
    model.progress.reconnectAvailable = false;
    model.progress.reconnectRequested = false;
    ShowReconnect(model);
}

void SetMainText(WindowModel& model, const std::wstring& text) {
    model.At(MainLine(model)).text = text;
    model.At(Control::bar).text = text;
}

const std::wstring& MainText(const WindowModel& model) {
    return model.At(MainLine(model)).text;
}

}  // namespace launcher_ui
