// A stand-in for the launcher's status window, for the tests of the driver: same window class, same control numbers.
//   window_double prompt    waits for Update or Later
//   window_double failure   a failure that blocks until it is closed
//   window_double progress  waits for Cancel
//   window_double notice    a passing notice, gone after 300 ms
// Exit code: the control pressed, 2000 for the close box, 2001 for Escape, 0 for none.

#include <windows.h>

#include <string_view>

namespace {

constexpr int kClosed = 2000;
constexpr int kEscaped = 2001;
constexpr UINT_PTR kNoticeTimer = 1;
constexpr UINT kNoticeMs = 300;

struct Child {
    const wchar_t* className;
    const wchar_t* text;
    int id;
    std::wstring_view views;  // the views in which it is visible
};

constexpr Child kChildren[] = {
    {L"STATIC", L"Velmora Pine Relay", 0, L"prompt failure progress notice"},
    {L"STATIC", L"状態 – Ünïcode \U0001F333", 0, L"prompt failure progress notice"},
    {L"STATIC", L"", 1006, L"failure progress notice"},
    {L"STATIC", L"1.0.0.0 → 1.1.0.0", 1005, L"prompt progress"},
    {L"VPRReleaseNotesPanel", L"notes", 0, L"prompt failure progress notice"},
    {L"BUTTON", L"Update now", 1001, L"prompt"},
    {L"BUTTON", L"Later", 1002, L"prompt"},
    {L"BUTTON", L"Cancel", 1004, L"failure progress"},
};

LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    switch (message) {
        case WM_COMMAND:
            if (HIWORD(first) == BN_CLICKED) PostQuitMessage(LOWORD(first));
            return 0;
        case WM_CLOSE:
            PostQuitMessage(kClosed);
            return 0;
        case WM_TIMER:
            PostQuitMessage(0);
            return 0;
        default:
            return DefWindowProcW(window, message, first, second);
    }
}

void RegisterClasses() {
    WNDCLASSW window = {};
    window.lpfnWndProc = WindowProcedure;
    window.lpszClassName = L"VPRLauncherStatusWindow";
    RegisterClassW(&window);
    window.lpfnWndProc = DefWindowProcW;
    window.lpszClassName = L"VPRReleaseNotesPanel";
    RegisterClassW(&window);
}

void CreateChildren(HWND parent, std::wstring_view view) {
    for (const Child& child : kChildren) {
        const DWORD visible = child.views.find(view) != std::wstring_view::npos ? WS_VISIBLE : 0;
        CreateWindowExW(0, child.className, child.text, WS_CHILD | visible, 0, 0, 40, 20, parent,
                        reinterpret_cast<HMENU>(static_cast<INT_PTR>(child.id)), nullptr, nullptr);
    }
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR commandLine, int) {
    RegisterClasses();
    const HWND window = CreateWindowExW(0, L"VPRLauncherStatusWindow", L"Velmora Pine Relay", WS_POPUP | WS_CAPTION, 0,
                                        0, 400, 300, nullptr, nullptr, nullptr, nullptr);
    if (window == nullptr) return 1;
    CreateChildren(window, commandLine);
    ShowWindow(window, SW_SHOWNORMAL);
    if (std::wstring_view(commandLine) == L"notice") SetTimer(window, kNoticeTimer, kNoticeMs, nullptr);
    MSG message = {};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (message.message == WM_KEYDOWN && message.wParam == VK_ESCAPE) return kEscaped;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return static_cast<int>(message.wParam);
}
