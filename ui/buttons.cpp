#include "ui/buttons.h"

#include <commctrl.h>
#undef CreateStatusWindow  // a macro for another control, of the same name as our function

#include <string>

#include "ui/painting.h"
#include "ui/status_window.h"

namespace launcher_ui {
namespace {

constexpr UINT_PTR kSubclassId = 1;
constexpr int kFilledTextUnits = 64;  // longer labels are cut; none of ours is
constexpr int kLinkTextUnits = 96;

std::wstring LabelOf(HWND button, int units) {
    std::wstring text(static_cast<std::size_t>(units), L'\0');
    text.resize(static_cast<std::size_t>(GetWindowTextW(button, text.data(), units)));
    return text;
}

void Hover(StatusWindow& status, HWND button) {
    if (status.hoverButton == button) return;
    if (status.hoverButton != nullptr) InvalidateRect(status.hoverButton, nullptr, FALSE);
    status.hoverButton = button;
    InvalidateRect(button, nullptr, FALSE);
    TRACKMOUSEEVENT track = {sizeof track, TME_LEAVE, button, 0};
    TrackMouseEvent(&track);
}

void EndHover(StatusWindow& status, HWND button) {
    if (status.hoverButton != button) return;
    status.hoverButton = nullptr;
    InvalidateRect(button, nullptr, FALSE);
}

void OnMouseMove(StatusWindow& status, HWND button, LPARAM position) {
    if (!IsWindowEnabled(button)) return;
    RECT client = {};
    GetClientRect(button, &client);
    // A pressed button has the mouse also outside of it.
    const POINT pointer = {static_cast<short>(LOWORD(position)), static_cast<short>(HIWORD(position))};
    if (PtInRect(&client, pointer)) {
        Hover(status, button);
    } else {
        EndHover(status, button);
    }
}

LRESULT ShowCursorOf(HWND button) {
    SetCursor(LoadCursorW(nullptr, IsWindowEnabled(button) ? IDC_HAND : IDC_ARROW));
    return 1;
}

LRESULT CALLBACK ButtonProcedure(HWND button, UINT message, WPARAM first, LPARAM second, UINT_PTR,
                                 DWORD_PTR reference) {
    auto& status = *reinterpret_cast<StatusWindow*>(reference);
    switch (message) {
        case WM_MOUSEMOVE:
            OnMouseMove(status, button, second);
            break;
        case WM_LBUTTONDOWN:
            SendMessageW(button, WM_CHANGEUISTATE, MAKEWPARAM(UIS_SET, UISF_HIDEFOCUS), 0);
            break;
        case WM_MOUSELEAVE:
        case WM_CAPTURECHANGED:
            EndHover(status, button);
            break;
        case WM_ENABLE:
        case WM_SHOWWINDOW:
            if (first == 0) EndHover(status, button);
            break;
        case WM_SETCURSOR:
            if (LOWORD(second) == HTCLIENT) return ShowCursorOf(button);
            break;
        case WM_NCDESTROY:
            EndHover(status, button);
            RemoveWindowSubclass(button, ButtonProcedure, kSubclassId);
            break;
        default:
            break;
    }
    return DefSubclassProc(button, message, first, second);
}

}  // namespace

void PrepareCommonControls() {
    const INITCOMMONCONTROLSEX classes = {sizeof classes, ICC_PROGRESS_CLASS};
    InitCommonControlsEx(&classes);
}

bool SubclassButton(StatusWindow& status, HWND button) {
    return SetWindowSubclass(button, ButtonProcedure, kSubclassId, reinterpret_cast<DWORD_PTR>(&status)) != FALSE;
}

bool FocusIsToBeSeen(HWND control) {
    return GetFocus() == control && (SendMessageW(control, WM_QUERYUISTATE, 0, 0) & UISF_HIDEFOCUS) == 0;
}

void DrawButton(const StatusWindow& status, Control control, const DRAWITEMSTRUCT& item) {
    ButtonState state;
    state.disabled = (item.itemState & ODS_DISABLED) != 0;
    state.pressed = (item.itemState & ODS_SELECTED) != 0;
    state.hover = status.hoverButton == item.hwndItem || (item.itemState & ODS_HOTLIGHT) != 0;
    state.focusCue = (item.itemState & ODS_FOCUS) != 0 && FocusIsToBeSeen(item.hwndItem);
    const HFONT font = status.fonts.Get(FontOf(control));
    if (control == Control::notesLink) {
        PaintLink(item.hDC, item.rcItem, state, LabelOf(item.hwndItem, kLinkTextUnits + 1), font, status.dpi);
        return;
    }
    const ButtonPalette& palette = control == Control::updateButton ? kPrimaryButton : kOrdinaryButton;
    PaintFilledButton(item.hDC, item.rcItem, palette, state, LabelOf(item.hwndItem, kFilledTextUnits + 1), font,
                      status.dpi);
}

}  // namespace launcher_ui
