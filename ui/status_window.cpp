#include "ui/status_window.h"

#include <shlwapi.h>

#include "product/locations.h"
#include "ui/buttons.h"
#include "ui/failure_view.h"
#include "ui/notes_panel.h"
#include "ui/progress_model.h"
#include "ui/prompt.h"
#include "ui/window_procedure.h"

namespace launcher_ui {
namespace {

constexpr DWORD kWindowStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN;
constexpr DWORD kPromptWaitMs = 50;

struct ControlSpec {
    Control control;
    const wchar_t* className;
    DWORD style;  // WS_CHILD is added
    int id;
};

/// Names of files come to these lines: a long path is shortened, and an ampersand in it is no accelerator.
constexpr DWORD kFileLine = SS_PATHELLIPSIS | SS_NOPREFIX;

constexpr ControlSpec kControls[kControlCount] = {
    {Control::title, L"STATIC", WS_VISIBLE, 0},
    {Control::versionLine, L"STATIC", WS_VISIBLE, 0},
    {Control::statusLine, L"STATIC", WS_VISIBLE | kFileLine, 0},
    {Control::bar, L"STATIC", WS_VISIBLE | SS_OWNERDRAW, kBarId},
    {Control::versionBadge, L"STATIC", SS_OWNERDRAW, kVersionBadgeId},
    {Control::notesHeading, L"STATIC", 0, 0},
    {Control::scrollHint, L"STATIC", SS_RIGHT, 0},
    {Control::notesPanel, kNotesPanelClass, WS_VSCROLL | WS_TABSTOP, 0},
    {Control::safetyNotice, L"STATIC", 0, 0},
    {Control::progressLine, L"STATIC", kFileLine, 0},
    {Control::progressDetail, L"STATIC", SS_RIGHT, 0},
    {Control::footer, L"STATIC", WS_CLIPSIBLINGS, 0},  // see KeepFooterBelow
    {Control::notesLink, L"BUTTON", WS_TABSTOP | BS_OWNERDRAW, kNotesLinkId},
    {Control::updateButton, L"BUTTON", WS_TABSTOP | BS_OWNERDRAW, kUpdateButtonId},
    {Control::laterButton, L"BUTTON", WS_TABSTOP | BS_OWNERDRAW, kLaterButtonId},
    {Control::cancelButton, L"BUTTON", WS_TABSTOP | BS_OWNERDRAW, kCancelButtonId},
    {Control::reconnectButton, L"BUTTON", WS_TABSTOP | BS_OWNERDRAW, kReconnectButtonId},
};

constexpr bool ControlsAreInOrder() {
    for (std::size_t index = 0; index < kControlCount; ++index) {
        if (static_cast<std::size_t>(kControls[index].control) != index) return false;
    }
    return true;
}
static_assert(ControlsAreInOrder(), "a control is out of place");

bool CreateMainWindow(StatusWindow& status) {
    RegisterStatusWindow(status.instance, status.backgroundBrush.Get());
    RegisterNotesPanel(status.instance, status.panelBrush.Get());
    const Size size = WindowSize(ViewMode::compact, status.dpi);
    CreateWindowExW(WS_EX_TOPMOST, kStatusWindowClass, product::kProductName, kWindowStyle,
                    (GetSystemMetrics(SM_CXSCREEN) - size.width) / 2, (GetSystemMetrics(SM_CYSCREEN) - size.height) / 2,
                    size.width, size.height, nullptr, nullptr, status.instance, &status);
    return status.window != nullptr;  // noted by its procedure
}

/// The attribute's number changed between releases of Windows. Without it the frame stays light.
void DarkenFrame(HWND window) {
    constexpr DWORD kUseImmersiveDarkMode = 20;
    constexpr DWORD kUseImmersiveDarkModeBefore = 19;
    using SetAttribute = HRESULT(WINAPI*)(HWND, DWORD, const void*, DWORD);
    const HMODULE library = LoadLibraryW(L"dwmapi.dll");
    if (library == nullptr) return;
    const auto set =
        reinterpret_cast<SetAttribute>(reinterpret_cast<void*>(GetProcAddress(library, "DwmSetWindowAttribute")));
    const BOOL dark = TRUE;
    if (set != nullptr && set(window, kUseImmersiveDarkMode, &dark, sizeof dark) < 0) {
        set(window, kUseImmersiveDarkModeBefore, &dark, sizeof dark);
    }
    FreeLibrary(library);
}

bool IsButton(Control control) {
    return control >= Control::notesLink;
}

bool CreateControls(StatusWindow& status) {
    for (const ControlSpec& spec : kControls) {
        const HWND control = CreateWindowExW(
            0, spec.className, status.model.At(spec.control).text.c_str(), WS_CHILD | spec.style, 0, 0, 0, 0,
            status.window, reinterpret_cast<HMENU>(static_cast<INT_PTR>(spec.id)), status.instance, &status);
        status.controls[static_cast<std::size_t>(spec.control)] = control;
        if (IsButton(spec.control) && (control == nullptr || !SubclassButton(status, control))) return false;
    }
    return true;
}

/// Reconnect stands over the end of the footer, which must not paint over it. The order of the others is the order of
/// Tab.
void KeepFooterBelow(const StatusWindow& status) {
    SetWindowPos(status.At(Control::footer), HWND_BOTTOM, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
}

/// The steps of a creation that may fail.
bool CreateAll(StatusWindow& status) {
    if (!CreateMainWindow(status)) return false;
    status.dpi = static_cast<int>(GetDpiForWindow(status.window));
    DarkenFrame(status.window);
    BuildScaledObjects(status);
    return CreateControls(status);
}

/// The model begins in the compact view, which is how the window was created.
void ShowFirst(StatusWindow& status, int showCommand) {
    DarkenScrollBar(status.At(Control::notesPanel));
    KeepFooterBelow(status);
    ShowScale(status);
    status.shown.arrangement = status.model.arrangement;
    status.shown.barColour = status.model.progress.barColour;
    status.model.shown = showCommand != SW_HIDE;
    status.shown.window = status.model.shown;
    ShowModel(status);
    ShowWindow(status.window, showCommand);
    UpdateWindow(status.window);
}

bool TakeKey(StatusWindow& status, const MSG& message) {
    if (message.message != WM_KEYDOWN) return false;
    if (message.hwnd != status.window && !IsChild(status.window, message.hwnd)) return false;
    bool taken = false;
    if (message.wParam == VK_ESCAPE) taken = PressEscape(status.model);
    if (message.wParam == VK_RETURN) taken = PressEnter(status.model);
    if (taken) ShowModel(status);
    return taken;
}

void ShowOpenedFailure(StatusWindow& status) {
    ShowModel(status);
    if (status.model.failureBlocking) SetFocus(status.At(Control::cancelButton));
}

std::wstring UrlToOffer(const std::wstring& url) {
    return IsSafeNotesUrl(url) && UrlIsW(url.c_str(), URLIS_URL) ? url : std::wstring();
}

}  // namespace

StatusWindow::~StatusWindow() {
    DestroyStatusWindow(*this);
}

bool CreateStatusWindow(StatusWindow& status, HINSTANCE instance, const std::wstring& currentVersion, int showCommand,
                        product::Language language) {
    status.instance = instance;
    status.ownerThreadId = GetCurrentThreadId();
    status.model = MakeWindowModel(language, currentVersion);
    status.shown = ShownState();
    status.backgroundBrush.Reset(CreateSolidBrush(ToColorRef(colour::kBackground)));
    status.panelBrush.Reset(CreateSolidBrush(ToColorRef(colour::kPanel)));
    PrepareCommonControls();
    status.dpi = static_cast<int>(GetDpiForSystem());
    if (!CreateAll(status)) {
        DestroyStatusWindow(status);
        return false;
    }
    ShowFirst(status, showCommand);
    ApplyStage(status, launcher_update::Stage::Checking, L"", 0, 0);
    return true;
}

void DestroyStatusWindow(StatusWindow& status) {
    if (status.window != nullptr) DestroyWindow(status.window);
    status.window = nullptr;
    status.controls = {};
    status.hoverButton = nullptr;
    status.lastFocus = nullptr;
    status.icon.Reset();
    status.fonts.Clear();
    // The classes go on naming these brushes, which does no harm: both windows erase by themselves.
    status.backgroundBrush.Reset();
    status.panelBrush.Reset();
    status.noteCards = {};
    status.notesLayout = {};
    status.scrollPosition = 0;
}

void BuildScaledObjects(StatusWindow& status) {
    const int size = Scale(kIconUnits, status.dpi);
    status.icon.Reset(static_cast<HICON>(
        LoadImageW(status.instance, MAKEINTRESOURCEW(kIconResource), IMAGE_ICON, size, size, LR_DEFAULTCOLOR)));
    status.fonts.Build(status.dpi);
}

void HideStatusWindow(StatusWindow& status) {
    if (status.window == nullptr) return;
    status.model.progress.stallWatch = false;
    status.model.progress.marqueeRuns = false;
    status.model.shown = false;
    ShowModel(status);
}

void PumpMessages(StatusWindow& status) {
    MSG message = {};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (TakeKey(status, message)) continue;
        if (status.window != nullptr && IsDialogMessageW(status.window, &message)) continue;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

void WaitAndPump(StatusWindow& status, DWORD milliseconds) {
    MsgWaitForMultipleObjects(0, nullptr, FALSE, milliseconds, kWakeMask);
    PumpMessages(status);
}

void ApplyStage(StatusWindow& status, launcher_update::Stage stage, const std::wstring& detail, std::uint64_t completed,
                std::uint64_t total) {
    if (status.window == nullptr) return;
    ApplyStage(status.model, stage, detail, completed, total);
    ShowModel(status);
    PumpMessages(status);
}

void ApplyDownloadProgress(StatusWindow& status, const launcher_download::Progress& progress) {
    if (status.window == nullptr) return;
    ApplyDownloadProgress(status.model, progress, GetTickCount64());
    ShowModel(status);
}

bool ShowPrompt(StatusWindow& status, const std::wstring& version, const launcher_update::ReleaseNotes& notes) {
    if (status.window == nullptr) return false;
    OpenPrompt(status.model, version, notes, UrlToOffer(notes.url));
    ShowModel(status);
    ShowWindow(status.window, SW_SHOWNORMAL);
    SetForegroundWindow(status.window);
    SetActiveWindow(status.window);
    SetFocus(status.At(Control::updateButton));
    return true;
}

bool WaitForPromptChoice(StatusWindow& status) {
    while (status.window != nullptr && status.model.promptChoice == PromptChoice::none) {
        PumpMessages(status);
        if (status.model.promptChoice != PromptChoice::none) break;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, kPromptWaitMs, kWakeMask);
    }
    const bool accepted = ClosePrompt(status.model);
    ShowModel(status);
    return accepted;
}

void ShowFailureView(StatusWindow& status, const std::wstring& text, const std::wstring& detail, bool blocking,
                     bool isError) {
    if (status.window == nullptr) return;
    OpenFailureView(status.model, text, detail, blocking, isError);
    ShowOpenedFailure(status);
}

void ShowFailure(StatusWindow& status, bool safe, const std::wstring& detail) {
    if (status.window == nullptr) return;
    OpenFailure(status.model, safe, detail);
    ShowOpenedFailure(status);
}

void HoldFailureView(StatusWindow& status) {
    while (status.window != nullptr && FailureIsHeld(status.model)) {
        PumpMessages(status);
        if (FailureIsHeld(status.model)) MsgWaitForMultipleObjects(0, nullptr, FALSE, kPromptWaitMs, kWakeMask);
    }
}

}  // namespace launcher_ui
