#include "tests/window/window_fixture.h"

#include <commctrl.h>
#undef CreateStatusWindow  // a macro for another control

#include <atomic>
#include <thread>
#include <utility>

namespace window_tests {
namespace {

constexpr UINT_PTR kLogId = 4711;
constexpr UINT_PTR kCueId = 4712;
constexpr wchar_t kOtherClass[] = L"VPRWindowTestsOther";

LRESULT CALLBACK LogProcedure(HWND window, UINT message, WPARAM first, LPARAM second, UINT_PTR, DWORD_PTR reference) {
    reinterpret_cast<std::vector<Received>*>(reference)->push_back({message, first, second});
    return DefSubclassProc(window, message, first, second);
}

LRESULT ChangeCue(HWND window, WPARAM change) {
    const bool top = (GetWindowLongPtrW(window, GWL_STYLE) & WS_CHILD) == 0;
    SendMessageW(top ? window : GetParent(window), top ? WM_UPDATEUISTATE : WM_CHANGEUISTATE, change, 0);
    return 0;
}

void PassCueToChildren(HWND window, WPARAM change) {
    for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        SendMessageW(child, WM_UPDATEUISTATE, change, 0);
    }
}

LRESULT CALLBACK CueProcedure(HWND window, UINT message, WPARAM first, LPARAM second, UINT_PTR, DWORD_PTR reference) {
    auto& state = *reinterpret_cast<DWORD*>(reference);
    if (message == WM_QUERYUISTATE) return static_cast<LRESULT>(state);
    if (message == WM_CHANGEUISTATE) return ChangeCue(window, first);
    if (message == WM_UPDATEUISTATE) {
        state = LOWORD(first) == UIS_SET ? state | HIWORD(first) : state & ~static_cast<DWORD>(HIWORD(first));
        PassCueToChildren(window, first);
    }
    return DefSubclassProc(window, message, first, second);
}

bool SystemKeepsCues(HWND top) {
    SendMessageW(top, WM_UPDATEUISTATE, MAKEWPARAM(UIS_SET, UISF_HIDEFOCUS), 0);
    const bool kept = SendMessageW(top, WM_QUERYUISTATE, 0, 0) != 0;
    SendMessageW(top, WM_UPDATEUISTATE, MAKEWPARAM(UIS_CLEAR, UISF_HIDEFOCUS), 0);
    return kept;
}

void SendPointer(DWORD flags, int x = 0, int y = 0, int data = 0) {
    INPUT input = {};
    input.type = INPUT_MOUSE;
    input.mi.dwFlags = flags;
    input.mi.mouseData = static_cast<DWORD>(data);
    if ((flags & MOUSEEVENTF_ABSOLUTE) != 0) {
        const int width = GetSystemMetrics(SM_CXSCREEN);
        const int height = GetSystemMetrics(SM_CYSCREEN);
        input.mi.dx = (x * 65536 + width - 1) / width;
        input.mi.dy = (y * 65536 + height - 1) / height;
    }
    SendInput(1, &input, sizeof input);
}

/// Until Windows' own loop follows the pointer, or for some seconds.
void WaitForCapture(DWORD thread) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < end) {
        GUITHREADINFO info = {};
        info.cbSize = sizeof info;
        if (GetGUIThreadInfo(thread, &info) && info.hwndCapture != nullptr) return;
        std::this_thread::yield();
    }
}

INPUT KeyInput(WORD key, bool down) {
    INPUT input = {};
    input.type = INPUT_KEYBOARD;
    input.ki.wVk = key;
    input.ki.wScan = static_cast<WORD>(MapVirtualKeyW(key, MAPVK_VK_TO_VSC));
    input.ki.dwFlags = down ? 0 : KEYEVENTF_KEYUP;
    return input;
}

void SendKey(WORD key, bool down) {
    INPUT input = KeyInput(key, down);
    SendInput(1, &input, sizeof input);
}

}  // namespace

MessageLog::MessageLog(HWND window) : window_(window) {
    SetWindowSubclass(window_, LogProcedure, kLogId, reinterpret_cast<DWORD_PTR>(&received_));
}

MessageLog::~MessageLog() {
    RemoveWindowSubclass(window_, LogProcedure, kLogId);
}

FocusCueState::FocusCueState(HWND top) : windows_{top} {
    if (SystemKeepsCues(top)) return;
    for (HWND child = GetWindow(top, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        windows_.push_back(child);
    }
    for (const HWND window : windows_) {
        SetWindowSubclass(window, CueProcedure, kCueId, reinterpret_cast<DWORD_PTR>(&state_));
    }
}

FocusCueState::~FocusCueState() {
    for (const HWND window : windows_)
        RemoveWindowSubclass(window, CueProcedure, kCueId);
}

OtherWindow::OtherWindow() {
    WNDCLASSW other = {};
    other.lpfnWndProc = DefWindowProcW;
    other.hInstance = GetModuleHandleW(nullptr);
    other.lpszClassName = kOtherClass;
    RegisterClassW(&other);
    window_ =
        CreateWindowExW(0, kOtherClass, L"", WS_POPUP, 10, 10, 60, 60, nullptr, nullptr, other.hInstance, nullptr);
    ShowWindow(window_, SW_SHOWNA);
}

OtherWindow::~OtherWindow() {
    DestroyWindow(window_);
}

void OtherWindow::Activate() const {
    SetForegroundWindow(window_);
    SetActiveWindow(window_);
}

void WindowTest::SetUp() {
    ASSERT_GE(GetSystemMetrics(SM_CXSCREEN), 1600) << "these tests need a screen";
    MoveAway();
}

void WindowTest::TearDown() {
    EXPECT_TRUE(plans_.empty()) << "the user never came to act";
    plans_.clear();
    if ((GetKeyState(VK_LBUTTON) & 0x8000) != 0) ReleasePointer();
    launcher_ui::DestroyStatusWindow(status_);
    launcher_ui::PumpMessages(status_);
}

void WindowTest::Open(int showCommand, const std::wstring& version) {
    ASSERT_TRUE(launcher_ui::CreateStatusWindow(status_, GetModuleHandleW(nullptr), version, showCommand));
    Settle();
}

void WindowTest::OpenPrompt(const ReleaseNotes& notes) {
    Open();
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, notes));
    Settle();
}

void WindowTest::OpenTransfer() {
    Open();
    Tell(Stage::DownloadingBytes, L"app.zip", 20, 100);
    Settle();
}

void WindowTest::OpenFailure(bool blocking) {
    Open();
    launcher_ui::ShowFailure(status_, !blocking, L"Why it failed");
    Settle();
}

void WindowTest::OpenView(ViewMode view) {
    if (view == ViewMode::prompt) {
        OpenPrompt();
    } else if (view == ViewMode::progress) {
        OpenTransfer();
    } else {
        Open();
    }
}

std::optional<Control> WindowTest::Focused() const {
    for (int index = 0; index < launcher_ui::kControlCount; ++index) {
        if (HasFocus(ControlAt(index))) return ControlAt(index);
    }
    return std::nullopt;
}

void WindowTest::Tell(Stage stage, const std::wstring& detail, std::uint64_t completed, std::uint64_t total) {
    launcher_ui::ApplyStage(status_, stage, detail, completed, total);
}

bool WindowTest::Until(const Condition& condition, int milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        launcher_ui::PumpMessages(status_);
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
    }
}

void WindowTest::Settle() {
    EXPECT_TRUE(Until([] { return GetQueueStatus(QS_ALLINPUT & ~QS_TIMER) == 0; }));
    GdiFlush();
}

void CALLBACK WindowTest::CarryOut(HWND, UINT, UINT_PTR id, DWORD) {
    if (plans_.empty()) {
        KillTimer(nullptr, id);
        return;
    }
    const Plan plan = plans_.front();
    const bool inTime = plan.condition();
    if (!inTime && std::chrono::steady_clock::now() < plan.patience) return;
    EXPECT_TRUE(inTime) << "what the user waited for did not come";
    plans_.erase(plans_.begin());
    plan.action();
}

void WindowTest::Later(Condition condition, std::function<void()> action) {
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    plans_.push_back({std::move(condition), std::move(action), patience});
    if (plans_.size() == 1) SetTimer(nullptr, 0, 10, CarryOut);
}

void WindowTest::OnWorker(const std::function<void()>& work) {
    std::atomic<bool> ended = false;
    std::thread worker([&] {
        work();
        ended = true;
    });
    EXPECT_TRUE(Until([&] { return ended.load(); }, 20000));
    worker.join();
}

void WindowTest::MoveTo(int x, int y) {
    SendPointer(MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE, x, y);
    POINT reached = {};
    GetCursorPos(&reached);
    EXPECT_EQ(reached.x, x);
    EXPECT_EQ(reached.y, y);
    Settle();
}

void WindowTest::MoveOnto(HWND control) {
    const launcher_ui::Rectangle place = PlaceOnScreen(control);
    MoveTo((place.left + place.right) / 2, (place.top + place.bottom) / 2);
}

void WindowTest::PressPointer() {
    SendPointer(MOUSEEVENTF_LEFTDOWN);
    Settle();
}

void WindowTest::ReleasePointer() {
    SendPointer(MOUSEEVENTF_LEFTUP);
    Settle();
}

void WindowTest::Click(Control control) {
    MoveOnto(control);
    PressPointer();
    ReleasePointer();
}

void WindowTest::Drag(launcher_ui::Point from, launcher_ui::Point to) {
    MoveTo(from.x, from.y);
    std::thread hand([to, main = GetCurrentThreadId()] {
        WaitForCapture(main);
        SendPointer(MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE, to.x, to.y);
        SendPointer(MOUSEEVENTF_LEFTUP);
    });
    PressPointer();
    hand.join();
    Settle();
}

void WindowTest::Wheel(int delta) {
    SendPointer(MOUSEEVENTF_WHEEL, 0, 0, delta);
    Settle();
}

void WindowTest::KeyDown(WORD key) {
    SendKey(key, true);
    Settle();
}

void WindowTest::KeyUp(WORD key) {
    SendKey(key, false);
    Settle();
}

void WindowTest::Press(WORD key) {
    KeyDown(key);
    KeyUp(key);
}

/// At once: the display's own keyboard knows nothing of these keys, and its next report would release the modifier.
void WindowTest::PressWith(WORD modifier, WORD key) {
    std::array inputs = {KeyInput(modifier, true), KeyInput(key, true), KeyInput(key, false),
                         KeyInput(modifier, false)};
    SendInput(inputs.size(), inputs.data(), sizeof(INPUT));
    Settle();
}

std::uint32_t WindowTest::FaceOf(Control button) {
    Settle();
    return PictureOf(At(button)).At(8, 8);
}

bool WindowTest::ShowsFocus(Control button) {
    Settle();
    return PictureOf(At(button)).Count(launcher_ui::colour::kButtonFocusCue) > 20;
}

}  // namespace window_tests
