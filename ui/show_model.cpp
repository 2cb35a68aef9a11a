#include <windows.h>

#include "ui/notes_panel.h"
#include "ui/status_window.h"

namespace launcher_ui {
namespace {

bool IsDrawnByUs(Control control) {
    return control == Control::bar || control == Control::versionBadge || control >= Control::notesLink;
}

std::wstring TextOf(HWND control) {
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(control)) + 1, L'\0');
    text.resize(static_cast<std::size_t>(GetWindowTextW(control, text.data(), static_cast<int>(text.size()))));
    return text;
}

/// Setting a text redraws the control, also with the text that it has.
void ShowText(HWND control, const std::wstring& text, bool drawnByUs) {
    if (TextOf(control) == text) return;
    SetWindowTextW(control, text.c_str());
    if (drawnByUs) InvalidateRect(control, nullptr, FALSE);
}

/// The keyboard would be dead in a control that cannot be seen or used.
void MoveFocusAwayFrom(const StatusWindow& status, HWND control) {
    if (GetFocus() == control) SetFocus(status.window);
}

void ShowEnabled(const StatusWindow& status, HWND control, bool enabled) {
    if ((IsWindowEnabled(control) != FALSE) == enabled) return;
    if (!enabled) MoveFocusAwayFrom(status, control);
    EnableWindow(control, enabled ? TRUE : FALSE);
}

/// The control's own style, whatever the window's visibility is.
bool IsShown(HWND control) {
    return (GetWindowLongPtrW(control, GWL_STYLE) & WS_VISIBLE) != 0;
}

void ShowVisible(const StatusWindow& status, HWND control, bool visible) {
    if (IsShown(control) == visible) return;
    if (!visible) MoveFocusAwayFrom(status, control);
    ShowWindow(control, visible ? SW_SHOWNOACTIVATE : SW_HIDE);
}

void ShowControls(StatusWindow& status) {
    for (int index = 0; index < kControlCount; ++index) {
        const auto control = static_cast<Control>(index);
        const HWND handle = status.At(control);
        if (handle == nullptr) continue;  // could not be made and is done without
        const ControlState& state = status.model.At(control);
        if (control != Control::notesPanel) ShowText(handle, state.text, IsDrawnByUs(control));  // has its own text
        ShowEnabled(status, handle, state.enabled);
        ShowVisible(status, handle, state.visible);
    }
}

void LayOutControls(StatusWindow& status) {
    const WindowModel& model = status.model;
    for (int index = 0; index < kControlCount; ++index) {
        const auto control = static_cast<Control>(index);
        const auto place = PlaceOf(control, model.viewMode, model.failureHeld, status.dpi);
        if (!place) continue;
        SetWindowPos(status.At(control), nullptr, place->left, place->top, place->Width(), place->Height(),
                     SWP_NOZORDER | SWP_NOACTIVATE);
    }
}

/// Centred on the primary screen, also where the window is larger than that.
void PlaceWindow(const StatusWindow& status) {
    const Size size = WindowSize(status.model.viewMode, status.dpi);
    SetWindowPos(status.window, HWND_TOPMOST, (GetSystemMetrics(SM_CXSCREEN) - size.width) / 2,
                 (GetSystemMetrics(SM_CYSCREEN) - size.height) / 2, size.width, size.height,
                 SWP_SHOWWINDOW | SWP_NOACTIVATE);
}

void ShowTimer(const StatusWindow& status, bool& runs, bool wanted, UINT_PTR id, UINT periodMs) {
    if (runs == wanted) return;
    runs = wanted;
    if (wanted) {
        SetTimer(status.window, id, periodMs, nullptr);
    } else {
        KillTimer(status.window, id);
    }
}

bool SameBar(const BarFill& left, const BarFill& right) {
    if (left.indeterminate != right.indeterminate) return false;
    return left.indeterminate ? left.tick == right.tick : left.percent == right.percent;
}

void ShowBar(StatusWindow& status) {
    const UpdateProgressModel& progress = status.model.progress;
    const BarFill bar = {progress.percent, progress.indeterminate, progress.marqueeTick};
    if (SameBar(bar, status.shown.bar) && progress.barColour == status.shown.barColour) return;
    status.shown.bar = bar;
    status.shown.barColour = progress.barColour;
    const HWND control = status.At(Control::bar);
    if (control != nullptr) InvalidateRect(control, nullptr, FALSE);  // without a window: the whole desktop
}

void ShowNotes(StatusWindow& status) {
    if (status.shown.notesRevision == status.model.notesRevision) return;
    status.shown.notesRevision = status.model.notesRevision;
    SetNotes(status, status.model.notes);
}

void ShowItself(StatusWindow& status) {
    if (status.shown.window == status.model.shown) return;
    status.shown.window = status.model.shown;
    ShowWindow(status.window, status.model.shown ? SW_SHOWNOACTIVATE : SW_HIDE);
}

/// True if the view was opened anew and all of it is to be painted.
bool ShowArrangement(StatusWindow& status) {
    if (status.shown.arrangement == status.model.arrangement) return false;
    status.shown.arrangement = status.model.arrangement;
    status.shown.window = true;
    const int dpi = status.dpi;
    PlaceWindow(status);
    // Coming home from a screen of another scale changes the scale, and with it the size, on the way.
    if (status.dpi != dpi) PlaceWindow(status);
    LayOutControls(status);
    return true;
}

}  // namespace

void ShowModel(StatusWindow& status) {
    if (status.window == nullptr) return;
    const bool rearranged = ShowArrangement(status);
    ShowNotes(status);  // before the panel is seen
    ShowControls(status);
    const UpdateProgressModel& progress = status.model.progress;
    ShowTimer(status, status.shown.marqueeTimer, progress.marqueeRuns, kMarqueeTimerId, kMarqueePeriodMs);
    ShowTimer(status, status.shown.stallTimer, progress.stallWatch, kStallTimerId, kStallPeriodMs);
    ShowBar(status);
    ShowItself(status);
    if (!rearranged) return;
    InvalidateRect(status.window, nullptr, TRUE);
    UpdateWindow(status.window);
}

void ShowScale(StatusWindow& status) {
    for (int index = 0; index < kControlCount; ++index) {
        const auto control = static_cast<Control>(index);
        SendMessageW(status.At(control), WM_SETFONT, reinterpret_cast<WPARAM>(status.fonts.Get(FontOf(control))), TRUE);
    }
    LayOutControls(status);
    LayoutNotes(status);  // its size may be the same, its fonts are not
}

}  // namespace launcher_ui
