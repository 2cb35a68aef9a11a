#include "ui/window_procedure.h"

#include <shellapi.h>

#include "ui/buttons.h"
#include "ui/progress_model.h"
#include "ui/prompt.h"
#include "ui/status_window.h"
#include "ui/window_messages.h"

namespace launcher_ui {
namespace {

void CountWorkerMessage(StatusWindow& status) {
    if (!status.counters.enabled) return;
    ++status.counters.workerMessages;
    if (GetCurrentThreadId() != status.ownerThreadId) status.counters.allOnOwnerThread = false;
}

void CountFileStage(StatusWindow& status, launcher_update::Stage stage) {
    using launcher_update::Stage;
    if (!status.counters.enabled || (stage != Stage::CheckingFiles && stage != Stage::VerifyingFiles)) return;
    ++status.counters.fileStageUpdates;
    const int percent = status.model.progress.percent;
    if (percent > 0 && percent < 100) ++status.counters.intermediatePercents;
}

// Messages of the worker.

LRESULT OnStage(StatusWindow& status, WPARAM, LPARAM parameter) {
    CountWorkerMessage(status);
    const auto& record = *reinterpret_cast<const StageRecord*>(parameter);
    ApplyStage(status, record.stage, record.detail, record.completed, record.total);
    CountFileStage(status, record.stage);
    return 0;
}

LRESULT OnPrompt(StatusWindow& status, WPARAM, LPARAM parameter) {
    CountWorkerMessage(status);
    if (status.model.autoAcceptPrompt) return 1;
    const auto& record = *reinterpret_cast<const PromptRecord*>(parameter);
    return ShowPrompt(status, record.version, record.notes) && WaitForPromptChoice(status) ? 1 : 0;
}

LRESULT OnCancelQuery(StatusWindow& status, WPARAM, LPARAM) {
    CountWorkerMessage(status);
    return status.model.progress.cancelRequested ? 1 : 0;
}

LRESULT OnDownloadProgress(StatusWindow& status, WPARAM, LPARAM parameter) {
    CountWorkerMessage(status);
    ApplyDownloadProgress(status, *reinterpret_cast<const launcher_download::Progress*>(parameter));
    return 0;
}

LRESULT OnReconnectQuery(StatusWindow& status, WPARAM, LPARAM) {
    CountWorkerMessage(status);
    return TakeReconnectRequest(status.model) ? 1 : 0;
}

// Painting.

void PaintInto(const StatusWindow& status, HDC context) {
    RECT client = {};
    GetClientRect(status.window, &client);
    PaintWindow(context, client, status.model.viewMode, status.dpi, status.icon.Get());
}

LRESULT OnPaint(StatusWindow& status, WPARAM, LPARAM) {
    if (status.counters.enabled) ++status.counters.windowPaints;
    PAINTSTRUCT paint = {};
    const HDC context = BeginPaint(status.window, &paint);
    if (context != nullptr) PaintInto(status, context);
    EndPaint(status.window, &paint);
    return 0;
}

LRESULT OnPrintClient(StatusWindow& status, WPARAM context, LPARAM) {
    PaintInto(status, reinterpret_cast<HDC>(context));
    return 0;
}

LRESULT OnEraseBackground(StatusWindow& status, WPARAM context, LPARAM) {
    RECT client = {};
    GetClientRect(status.window, &client);
    FillRect(reinterpret_cast<HDC>(context), &client, status.backgroundBrush.Get());
    return 1;
}

LRESULT PanelColours(const StatusWindow& status, HDC context) {
    SetTextColor(context, ToColorRef(colour::kStrongText));
    SetBkColor(context, ToColorRef(colour::kPanel));
    return reinterpret_cast<LRESULT>(status.panelBrush.Get());
}

LRESULT OnStaticColours(StatusWindow& status, WPARAM first, LPARAM second) {
    const auto context = reinterpret_cast<HDC>(first);
    const auto control = reinterpret_cast<HWND>(second);
    if (control == status.At(Control::notesPanel)) return PanelColours(status, context);
    const bool strong = control == status.At(Control::title) || control == status.At(Control::notesHeading) ||
                        control == status.At(Control::progressLine);
    SetBkMode(context, TRANSPARENT);
    SetTextColor(context, ToColorRef(strong ? colour::kStrongText : colour::kQuietText));
    return reinterpret_cast<LRESULT>(status.backgroundBrush.Get());
}

LRESULT OnEditColours(StatusWindow& status, WPARAM first, LPARAM) {
    return PanelColours(status, reinterpret_cast<HDC>(first));
}

void DrawBar(StatusWindow& status, const DRAWITEMSTRUCT& item) {
    if (status.counters.enabled) ++status.counters.barPaints;
    const UpdateProgressModel& progress = status.model.progress;
    PaintBar(item.hDC, item.rcItem, {progress.percent, progress.indeterminate, progress.marqueeTick},
             progress.barColour, status.dpi);
}

void DrawBadge(const StatusWindow& status, const DRAWITEMSTRUCT& item) {
    PaintVersionBadge(item.hDC, item.rcItem, status.model.CurrentVersionText(), status.model.offeredVersion,
                      status.fonts.Get(FontOf(Control::versionBadge)), status.dpi);
}

LRESULT OnDrawItem(StatusWindow& status, WPARAM, LPARAM parameter) {
    const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(parameter);
    for (int index = 0; index < kControlCount; ++index) {
        const auto control = static_cast<Control>(index);
        if (status.At(control) != item.hwndItem) continue;
        if (control == Control::bar) {
            DrawBar(status, item);
        } else if (control == Control::versionBadge) {
            DrawBadge(status, item);
        } else {
            DrawButton(status, control, item);
        }
    }
    return TRUE;
}

// The user.

/// Enter, where the prompt does not take it, presses the button that has the focus, as in any dialog.
void PressFocusedButton(const StatusWindow& status) {
    const HWND focus = GetFocus();
    for (int index = static_cast<int>(Control::notesLink); index < kControlCount; ++index) {
        if (status.At(static_cast<Control>(index)) == focus) SendMessageW(focus, BM_CLICK, 0, 0);
    }
}

LRESULT OnCommand(StatusWindow& status, WPARAM first, LPARAM) {
    if (HIWORD(first) != BN_CLICKED) return 0;
    if (LOWORD(first) == IDOK) {
        PressFocusedButton(status);
        return 0;
    }
    const ButtonEffect effect = PressButton(status.model, LOWORD(first));
    ShowModel(status);
    if (effect == ButtonEffect::openFullNotes) {
        ShellExecuteW(status.window, L"open", status.model.fullNotesUrl.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
    }
    return 0;
}

LRESULT OnClose(StatusWindow& status, WPARAM, LPARAM) {
    PressCloseBox(status.model);
    ShowModel(status);
    return 0;
}

LRESULT OnTimer(StatusWindow& status, WPARAM id, LPARAM) {
    if (id == kMarqueeTimerId) StepMarquee(status.model);
    if (id == kStallTimerId) CheckStall(status.model, GetTickCount64());
    ShowModel(status);
    return 0;
}

/// Windows gives the focus to the window itself when it is activated; the user left it in a control.
LRESULT OnActivate(StatusWindow& status, WPARAM first, LPARAM second) {
    if (LOWORD(first) == WA_INACTIVE) {
        const HWND focus = GetFocus();
        status.lastFocus = IsChild(status.window, focus) ? focus : nullptr;
        return 0;
    }
    DefWindowProcW(status.window, WM_ACTIVATE, first, second);
    if (status.lastFocus != nullptr && IsWindowVisible(status.lastFocus) && IsWindowEnabled(status.lastFocus)) {
        SetFocus(status.lastFocus);
    }
    return 0;
}

LRESULT OnDpiChanged(StatusWindow& status, WPARAM first, LPARAM second) {
    status.dpi = HIWORD(first);
    const auto& place = *reinterpret_cast<const RECT*>(second);
    SetWindowPos(status.window, nullptr, place.left, place.top, place.right - place.left, place.bottom - place.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    BuildScaledObjects(status);
    ShowScale(status);
    InvalidateRect(status.window, nullptr, TRUE);
    return 0;
}

struct Handler {
    UINT message;
    LRESULT (*handle)(StatusWindow&, WPARAM, LPARAM);
};

constexpr Handler kHandlers[] = {
    {kStageMessage, OnStage},
    {kPromptMessage, OnPrompt},
    {kCancelQueryMessage, OnCancelQuery},
    {kDownloadProgressMessage, OnDownloadProgress},
    {kReconnectQueryMessage, OnReconnectQuery},
    {WM_PAINT, OnPaint},
    {WM_PRINTCLIENT, OnPrintClient},
    {WM_ERASEBKGND, OnEraseBackground},
    {WM_CTLCOLORSTATIC, OnStaticColours},
    {WM_CTLCOLOREDIT, OnEditColours},
    {WM_DRAWITEM, OnDrawItem},
    {WM_COMMAND, OnCommand},
    {WM_CLOSE, OnClose},
    {WM_TIMER, OnTimer},
    {WM_ACTIVATE, OnActivate},
    {WM_DPICHANGED, OnDpiChanged},
};

LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message == WM_NCCREATE) {
        auto* created = static_cast<StatusWindow*>(reinterpret_cast<CREATESTRUCTW*>(second)->lpCreateParams);
        created->window = window;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(created));
    }
    auto* status = reinterpret_cast<StatusWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == WM_NCDESTROY && status != nullptr) {
        SetWindowLongPtrW(window, GWLP_USERDATA, 0);
        status->window = nullptr;
        status = nullptr;
    }
    if (status == nullptr) return DefWindowProcW(window, message, first, second);
    for (const Handler& handler : kHandlers) {
        if (handler.message == message) return handler.handle(*status, first, second);
    }
    return DefWindowProcW(window, message, first, second);
}

}  // namespace

void RegisterStatusWindow(HINSTANCE instance, HBRUSH background) {
    WNDCLASSW window = {};
    window.lpfnWndProc = WindowProcedure;
    window.hInstance = instance;
    window.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(kIconResource));
    window.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    window.hbrBackground = background;
    window.lpszClassName = kStatusWindowClass;
    RegisterClassW(&window);  // a second window finds it registered
}

}  // namespace launcher_ui
