#include "ui/notes_panel.h"

#include <uxtheme.h>

#include <algorithm>
#include <optional>

#include "product/text_table.h"
#include "ui/buttons.h"
#include "ui/status_window.h"

namespace launcher_ui {
namespace {

HWND Panel(const StatusWindow& status) {
    return status.At(Control::notesPanel);
}

Size ClientSize(HWND window) {
    RECT client = {};
    GetClientRect(window, &client);
    return {static_cast<int>(client.right), static_cast<int>(client.bottom)};
}

void SetScrollBar(const StatusWindow& status, Size client) {
    SCROLLINFO info = {};
    info.cbSize = sizeof info;
    info.fMask = SIF_RANGE | SIF_PAGE | SIF_POS;
    info.nMax = std::max(0, status.notesLayout.contentHeight - 1);
    info.nPage = static_cast<UINT>(client.height);
    info.nPos = status.scrollPosition;
    SetScrollInfo(Panel(status), SB_VERT, &info, TRUE);
}

void Scroll(StatusWindow& status, ScrollStep step) {
    ScrollNotesTo(status, ScrollTarget(step, status.scrollPosition, status.notesLayout.contentHeight,
                                       ClientSize(Panel(status)).height, status.dpi));
}

void Draw(const StatusWindow& status, HDC context) {
    const Size client = ClientSize(Panel(status));
    PaintNotes(context, {0, 0, client.width, client.height}, status.noteCards, status.notesLayout,
               status.scrollPosition, status.fonts, FocusIsToBeSeen(Panel(status)), status.dpi);
}

/// Draws into a bitmap first, so that scrolling does not flicker. False if there is none to be had.
bool DrawBuffered(const StatusWindow& status, HDC context) {
    const Size client = ClientSize(Panel(status));
    if (client.width <= 0 || client.height <= 0) return false;
    const MemoryContext buffer(CreateCompatibleDC(context));
    const BitmapHandle bitmap(CreateCompatibleBitmap(context, client.width, client.height));
    if (!buffer || !bitmap) return false;
    const Selection selected(buffer.Get(), bitmap.Get());
    Draw(status, buffer.Get());
    BitBlt(context, 0, 0, client.width, client.height, buffer.Get(), 0, 0, SRCCOPY);
    return true;
}

std::optional<ScrollStep> StepOfKey(WPARAM key) {
    switch (key) {
        case VK_PRIOR:
            return ScrollStep::pageUp;
        case VK_NEXT:
            return ScrollStep::pageDown;
        case VK_HOME:
            return ScrollStep::top;
        case VK_END:
            return ScrollStep::bottom;
        case VK_UP:
            return ScrollStep::lineUp;
        case VK_DOWN:
            return ScrollStep::lineDown;
        default:
            return std::nullopt;
    }
}

std::optional<ScrollStep> StepOfScrollBar(int code) {
    switch (code) {
        case SB_LINEUP:
            return ScrollStep::lineUp;
        case SB_LINEDOWN:
            return ScrollStep::lineDown;
        case SB_PAGEUP:
            return ScrollStep::pageUp;
        case SB_PAGEDOWN:
            return ScrollStep::pageDown;
        case SB_TOP:
            return ScrollStep::top;
        case SB_BOTTOM:
            return ScrollStep::bottom;
        default:
            return std::nullopt;
    }
}

LRESULT OnPaint(StatusWindow& status, HWND panel) {
    PAINTSTRUCT paint = {};
    const HDC context = BeginPaint(panel, &paint);
    if (context != nullptr && !DrawBuffered(status, context)) Draw(status, context);
    EndPaint(panel, &paint);
    return 0;
}

LRESULT OnScrollBar(StatusWindow& status, HWND panel, int code) {
    if (code == SB_THUMBPOSITION || code == SB_THUMBTRACK) {
        SCROLLINFO info = {};
        info.cbSize = sizeof info;
        info.fMask = SIF_TRACKPOS;  // the message itself carries 16 bits only
        if (GetScrollInfo(panel, SB_VERT, &info)) ScrollNotesTo(status, info.nTrackPos);
    } else if (const auto step = StepOfScrollBar(code)) {
        Scroll(status, *step);
    }
    return 0;
}

LRESULT OnKey(StatusWindow& status, HWND panel, WPARAM key, LPARAM detail) {
    SendMessageW(panel, WM_CHANGEUISTATE, MAKEWPARAM(UIS_CLEAR, UISF_HIDEFOCUS), 0);
    const auto step = StepOfKey(key);
    if (!step) return DefWindowProcW(panel, WM_KEYDOWN, key, detail);
    Scroll(status, *step);
    return 0;
}

LRESULT OnClick(HWND panel) {
    SendMessageW(panel, WM_CHANGEUISTATE, MAKEWPARAM(UIS_SET, UISF_HIDEFOCUS), 0);
    SetFocus(panel);
    return 0;
}

LRESULT OnUiState(HWND panel, WPARAM first, LPARAM second) {
    const LRESULT answer = DefWindowProcW(panel, WM_UPDATEUISTATE, first, second);
    InvalidateRect(panel, nullptr, FALSE);
    return answer;
}

LRESULT Dispatch(StatusWindow& status, HWND panel, UINT message, WPARAM first, LPARAM second) {
    switch (message) {
        case WM_PAINT:
            return OnPaint(status, panel);
        case WM_PRINTCLIENT:
            Draw(status, reinterpret_cast<HDC>(first));
            return 0;
        case WM_ERASEBKGND:
            return 1;
        case WM_SIZE:
            LayoutNotes(status);
            return 0;
        case WM_SETFOCUS:
        case WM_KILLFOCUS:
            InvalidateRect(panel, nullptr, FALSE);
            return 0;
        case WM_GETDLGCODE:
            return DLGC_WANTARROWS;
        case WM_UPDATEUISTATE:
            return OnUiState(panel, first, second);
        case WM_LBUTTONDOWN:
            return OnClick(panel);
        case WM_MOUSEWHEEL:
            ScrollNotesTo(status, WheelTarget(GET_WHEEL_DELTA_WPARAM(first), status.scrollPosition, status.dpi));
            return 0;
        case WM_VSCROLL:
            return OnScrollBar(status, panel, LOWORD(first));
        case WM_KEYDOWN:
            return OnKey(status, panel, first, second);
        default:
            return DefWindowProcW(panel, message, first, second);
    }
}

LRESULT CALLBACK PanelProcedure(HWND panel, UINT message, WPARAM first, LPARAM second) {
    if (message == WM_NCCREATE) {
        auto* status = static_cast<StatusWindow*>(reinterpret_cast<CREATESTRUCTW*>(second)->lpCreateParams);
        SetWindowLongPtrW(panel, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(status));
        // Before its creation has returned: a size comes first.
        if (status != nullptr) status->controls[static_cast<std::size_t>(Control::notesPanel)] = panel;
    }
    auto* status = reinterpret_cast<StatusWindow*>(GetWindowLongPtrW(panel, GWLP_USERDATA));
    if (status == nullptr) return DefWindowProcW(panel, message, first, second);
    return Dispatch(*status, panel, message, first, second);
}

}  // namespace

void RegisterNotesPanel(HINSTANCE instance, HBRUSH background) {
    WNDCLASSW panel = {};
    panel.lpfnWndProc = PanelProcedure;
    panel.hInstance = instance;
    panel.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    panel.hbrBackground = background;
    panel.lpszClassName = kNotesPanelClass;
    RegisterClassW(&panel);  // a second window finds it registered
}

void DarkenScrollBar(HWND panel) {
    SetWindowTheme(panel, L"DarkMode_Explorer", nullptr);
}

void SetNotes(StatusWindow& status, const launcher_update::ReleaseNotes& notes) {
    const WindowModel& model = status.model;
    status.noteCards = MakeNoteCards(notes, model.Text(product::TextId::NotesUnavailable));
    const std::wstring text = NotesAsText(status.noteCards, model.Text(product::TextId::WhatsNew));
    SetWindowTextW(Panel(status), text.c_str());
    status.scrollPosition = 0;
    LayoutNotes(status);
    UpdateWindow(Panel(status));
}

void LayoutNotes(StatusWindow& status) {
    const HWND panel = Panel(status);
    if (panel == nullptr) return;  // the calls below would mean the whole desktop
    const HDC context = GetDC(panel);
    if (context == nullptr) return;
    const Size client = ClientSize(panel);
    status.notesLayout = LayOutNotes(status.noteCards, client, status.dpi, [&](const NoteCard& card, int width) {
        return MeasureCardText(context, card, width, status.fonts);
    });
    ReleaseDC(panel, context);
    status.scrollPosition = ClampScroll(status.scrollPosition, status.notesLayout.contentHeight, client.height);
    SetScrollBar(status, client);
    InvalidateRect(panel, nullptr, FALSE);
}

void ScrollNotesTo(StatusWindow& status, int position) {
    const HWND panel = Panel(status);
    const int target = ClampScroll(position, status.notesLayout.contentHeight, ClientSize(panel).height);
    if (target == status.scrollPosition) return;
    status.scrollPosition = target;
    SetScrollPos(panel, SB_VERT, target, TRUE);
    InvalidateRect(panel, nullptr, FALSE);
}

}  // namespace launcher_ui
