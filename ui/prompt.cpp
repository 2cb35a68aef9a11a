#include "ui/prompt.h"

#include "platform/text.h"
#include "ui/progress_model.h"

namespace launcher_ui {

using product::TextId;

namespace {

TextId HeadlineFor(std::wstring_view priority) {
    if (priority == L"hotfix") return TextId::HotfixAvailable;
    if (priority == L"recommended") return TextId::RecommendedAvailable;
    return TextId::NewVersionAvailable;
}

void CloseFailure(WindowModel& model) {
    model.failureClosed = true;
    model.shown = false;
}

void RequestReconnect(WindowModel& model) {
    if (!model.progress.reconnectAvailable || model.progress.cancelRequested) return;
    model.progress.reconnectRequested = true;
    ShowReconnect(model);
}

/// The bar still stands full in the colour of the offer; what comes now has no figures yet.
void StartBarAnew(UpdateProgressModel& progress) {
    progress.percent = 0;
    progress.indeterminate = true;
    progress.marqueeRuns = true;
    progress.barColour = colour::kBarWorking;
}

/// The states in which closing means something, in order of precedence. False if none of them holds.
bool CloseWhatIsOpen(WindowModel& model) {
    if (model.failureHeld) {
        CloseFailure(model);
    } else if (model.promptOpen) {
        model.promptChoice = PromptChoice::later;
    } else if (model.progress.cancelEnabled) {
        RequestCancel(model);
    } else {
        return model.progress.closeBlocked;
    }
    return true;
}

}  // namespace

bool IsSafeNotesUrl(std::wstring_view url) {
    return url.size() <= kMaxNotesUrlUnits && url.find_first_of(L"\r\n") == std::wstring_view::npos &&
           platform::StartsWithIgnoringCase(url, L"https://");
}

void OpenPrompt(WindowModel& model, const std::wstring& version, const launcher_update::ReleaseNotes& notes,
                const std::wstring& fullNotesUrl) {
    ResetUpdateProgress(model);  // an earlier failure view ends here, too
    model.offeredVersion = version;
    model.fullNotesUrl = fullNotesUrl;
    model.notes = notes;
    ++model.notesRevision;
    model.promptChoice = PromptChoice::none;
    model.promptOpen = true;
    model.progress.cancelRequested = false;
    model.progress.cancelEnabled = false;
    model.progress.closeBlocked = false;
    model.At(Control::notesHeading).text = model.Text(TextId::WhatsNew);
    model.At(Control::statusLine).text = model.Text(HeadlineFor(notes.priority));
    model.At(Control::versionBadge).text = model.CurrentVersionText() + L" → " + version;
    OpenView(model, ViewMode::prompt);
}

bool ClosePrompt(WindowModel& model) {
    model.promptOpen = false;
    if (model.promptChoice == PromptChoice::update) {
        OpenProgressView(model);
        StartBarAnew(model.progress);
        return true;
    }
    OpenCompactView(model);
    return false;
}

void RequestCancel(WindowModel& model) {
    UpdateProgressModel& progress = model.progress;
    if (!progress.cancelEnabled || progress.cancelRequested) return;
    progress.cancelRequested = true;
    progress.cancelEnabled = false;
    WithdrawReconnect(model);
    model.At(Control::cancelButton).enabled = false;
    SetMainText(model, model.Text(TextId::CancellingSafely));
    model.At(Control::progressDetail).text.clear();
    progress.indeterminate = true;
    progress.marqueeRuns = true;
}

void PressCloseBox(WindowModel& model) {
    if (!CloseWhatIsOpen(model)) model.shown = false;
}

bool PressEscape(WindowModel& model) {
    return CloseWhatIsOpen(model);
}

bool PressEnter(WindowModel& model) {
    if (!model.promptOpen) return false;
    model.promptChoice = PromptChoice::update;
    return true;
}

ButtonEffect PressButton(WindowModel& model, int id) {
    if (model.failureHeld) {
        if (id == kCancelButtonId && model.failureBlocking) CloseFailure(model);
        return ButtonEffect::none;
    }
    switch (id) {
        case kUpdateButtonId:
            model.promptChoice = PromptChoice::update;
            break;
        case kLaterButtonId:
            model.promptChoice = PromptChoice::later;
            break;
        case kNotesLinkId:
            return model.fullNotesUrl.empty() ? ButtonEffect::none : ButtonEffect::openFullNotes;
        case kCancelButtonId:
            RequestCancel(model);
            break;
        case kReconnectButtonId:
            RequestReconnect(model);
            break;
        default:
            break;
    }
    return ButtonEffect::none;
}

bool TakeReconnectRequest(WindowModel& model) {
    const bool wanted = model.progress.reconnectRequested && !model.progress.cancelRequested;
    model.progress.reconnectRequested = false;
    return wanted;
}

}  // namespace launcher_ui
