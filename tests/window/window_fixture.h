#pragma once

/// What the tests of the status window share: a real window on this machine's own display, a user at its pointer and
/// keyboard, and eyes for its pixels. Everything runs on the thread of the test. Nothing here sleeps: it pumps until
/// something has come true, and fails when that takes too long.

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/text.h"
#include "ui/layout.h"
#include "ui/painting.h"
#include "ui/prompt.h"
#include "ui/status_window.h"

namespace window_tests {

using launcher_download::Phase;
using launcher_download::Progress;
using launcher_ui::Control;
using launcher_ui::PromptChoice;
using launcher_ui::StatusWindow;
using launcher_ui::ViewMode;
using launcher_update::ReleaseNotes;
using launcher_update::Stage;
using product::TextId;

inline constexpr wchar_t kInstalled[] = L"2.1.4.1";
inline constexpr wchar_t kOffered[] = L"2.1.4.2";
inline constexpr wchar_t kNotesUrl[] = L"https://notes.example/2.1.4.2";
inline constexpr wchar_t kMainClass[] = L"VPRLauncherStatusWindow";
inline constexpr std::array kButtons = {Control::notesLink, Control::updateButton, Control::laterButton,
                                        Control::cancelButton, Control::reconnectButton};

constexpr Control ControlAt(int index) {
    return static_cast<Control>(index);
}

inline std::string Narrow(const std::wstring& text) {
    return platform::EncodeUtf8(text);
}

// --- Looking ---

inline std::wstring TextOf(HWND window) {
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
    text.resize(static_cast<std::size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
    return text;
}

inline std::wstring ClassOf(HWND window) {
    std::array<wchar_t, 128> name = {};
    GetClassNameW(window, name.data(), static_cast<int>(name.size()));
    return name.data();
}

inline DWORD StyleOf(HWND window) {
    return static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE));
}

inline DWORD ExtendedStyleOf(HWND window) {
    return static_cast<DWORD>(GetWindowLongPtrW(window, GWL_EXSTYLE));
}

/// On the screen.
inline launcher_ui::Rectangle PlaceOnScreen(HWND window) {
    RECT place = {};
    GetWindowRect(window, &place);
    return launcher_ui::FromRect(place);
}

/// In its parent's client area.
inline launcher_ui::Rectangle PlaceInParent(HWND window) {
    RECT place = {};
    GetWindowRect(window, &place);
    MapWindowPoints(nullptr, GetParent(window), reinterpret_cast<POINT*>(&place), 2);
    return launcher_ui::FromRect(place);
}

inline launcher_ui::Size ClientSizeOf(HWND window) {
    RECT client = {};
    GetClientRect(window, &client);
    return {static_cast<int>(client.right), static_cast<int>(client.bottom)};
}

/// All visible windows of this program without a parent.
inline std::vector<HWND> OwnWindows() {
    std::vector<HWND> windows;
    EnumWindows(
        [](HWND window, LPARAM list) -> BOOL {
            DWORD process = 0;
            GetWindowThreadProcessId(window, &process);
            if (process == GetCurrentProcessId() && IsWindowVisible(window)) {
                reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
            }
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&windows));
    return windows;
}

/// The pixels of a window's client area as they stand on the screen, 0x00RRGGBB, row by row.
struct Picture {
    launcher_ui::Size size;
    std::vector<std::uint32_t> pixels;

    [[nodiscard]] std::uint32_t At(int x, int y) const {
        return pixels.at(static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width) +
                         static_cast<std::size_t>(x));
    }
    /// How many pixels have this colour.
    [[nodiscard]] int Count(std::uint32_t colour) const {
        int count = 0;
        for (const std::uint32_t pixel : pixels)
            count += pixel == colour ? 1 : 0;
        return count;
    }
    bool operator==(const Picture&) const = default;
};

inline Picture PictureOf(HWND window) {
    Picture picture;
    picture.size = ClientSizeOf(window);
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = picture.size.width;
    info.bmiHeader.biHeight = -picture.size.height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    void* bits = nullptr;
    const HDC screen = GetDC(window);
    const HDC memory = CreateCompatibleDC(screen);
    const HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    const HGDIOBJ before = SelectObject(memory, bitmap);
    BitBlt(memory, 0, 0, picture.size.width, picture.size.height, screen, 0, 0, SRCCOPY);
    GdiFlush();
    const auto* first = static_cast<const std::uint32_t*>(bits);
    const auto count = static_cast<std::size_t>(picture.size.width) * static_cast<std::size_t>(picture.size.height);
    picture.pixels.assign(first, first + count);
    for (std::uint32_t& pixel : picture.pixels)
        pixel &= 0xFFFFFF;
    SelectObject(memory, before);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(window, screen);
    return picture;
}

// --- Events ---

inline ReleaseNotes Notes(int highlights = 2, const std::wstring& url = kNotesUrl) {
    ReleaseNotes notes;
    notes.summary = L"What this release is about";
    for (int line = 1; line <= highlights; ++line)
        notes.highlights.push_back(L"Change number " + std::to_wstring(line));
    notes.url = url;
    return notes;
}

/// Enough to scroll in.
inline ReleaseNotes LongNotes() {
    return Notes(12);
}

inline Progress Receiving(double bytesPerSecond = 131072.0) {
    Progress progress;
    progress.phase = Phase::receiving;
    progress.attempt = 1;
    progress.bytesPerSecond = bytesPerSecond;
    return progress;
}

/// A message that a window received.
struct Received {
    UINT message = 0;
    WPARAM first = 0;
    LPARAM second = 0;
};

/// Writes down what one window of this thread receives, before the window does, for the life of the object.
class MessageLog {
  public:
    explicit MessageLog(HWND window);
    MessageLog(const MessageLog&) = delete;
    MessageLog& operator=(const MessageLog&) = delete;
    ~MessageLog();

    [[nodiscard]] const std::vector<Received>& All() const { return received_; }
    [[nodiscard]] int Count(UINT message) const {
        int count = 0;
        for (const Received& one : received_)
            count += one.message == message ? 1 : 0;
        return count;
    }
    void Clear() { received_.clear(); }

  private:
    HWND window_;
    std::vector<Received> received_;
};

/// Another window of this program, which can have the activation.
class OtherWindow {
  public:
    OtherWindow();
    OtherWindow(const OtherWindow&) = delete;
    OtherWindow& operator=(const OtherWindow&) = delete;
    ~OtherWindow();

    [[nodiscard]] HWND Handle() const { return window_; }
    void Activate() const;

  private:
    HWND window_;
};

/// The state "focus is to be seen" of a window and its children, as Windows keeps it (Windows documentation,
/// "WM_CHANGEUISTATE message"): a change asked for anywhere goes up to the top, and from there to every child. Wine
/// knows the messages only; there this object keeps the state, for its life.
class FocusCueState {
  public:
    explicit FocusCueState(HWND top);
    FocusCueState(const FocusCueState&) = delete;
    FocusCueState& operator=(const FocusCueState&) = delete;
    ~FocusCueState();

    /// What Windows' own handling of Tab and arrows in a dialog begins with; Wine's does not.
    void KeyboardIsUsed() const {
        SendMessageW(windows_[0], WM_CHANGEUISTATE, MAKEWPARAM(UIS_CLEAR, UISF_HIDEFOCUS), 0);
    }
    [[nodiscard]] bool Hidden() const {
        return (SendMessageW(windows_[0], WM_QUERYUISTATE, 0, 0) & UISF_HIDEFOCUS) != 0;
    }

  private:
    std::vector<HWND> windows_;
    DWORD state_ = 0;
};

using Condition = std::function<bool()>;

/// A window and its user. The window is made by `Open`; before that and after a destruction, `status` has none.
class WindowTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    void Open(int showCommand = SW_SHOWNORMAL, const std::wstring& version = kInstalled);
    /// The window with its prompt open.
    void OpenPrompt(const ReleaseNotes& notes = Notes());
    /// The window in its progress view, with a transfer that may be cancelled.
    void OpenTransfer();
    void OpenFailure(bool blocking = true);
    /// The window with a prompt, a transfer or neither.
    void OpenView(ViewMode view);

    [[nodiscard]] HWND At(Control control) const { return status_.At(control); }
    [[nodiscard]] HWND Main() const { return status_.window; }
    [[nodiscard]] std::wstring Text(TextId id) const { return status_.model.Text(id); }
    /// The control that has the focus, or nothing.
    [[nodiscard]] std::optional<Control> Focused() const;
    [[nodiscard]] bool HasFocus(Control control) const { return GetFocus() == At(control); }

    void Tell(Stage stage, const std::wstring& detail = L"", std::uint64_t completed = 0, std::uint64_t total = 0);
    void Tell(const Progress& progress) { launcher_ui::ApplyDownloadProgress(status_, progress); }

    /// Pumps until the condition holds; false if it does not come true in time.
    [[nodiscard]] bool Until(const Condition& condition, int milliseconds = 5000);
    /// Pumps until nothing is left to do, painting included.
    void Settle();

    /// Lets the user act as soon as the condition holds, also while the program waits inside one of its own loops.
    /// Where it does not come true the test fails and the user acts all the same, so that the loop may end.
    void Later(Condition condition, std::function<void()> action);
    /// Runs `work` on another thread while this one pumps; returns when it has ended.
    void OnWorker(const std::function<void()>& work);

    void MoveTo(int x, int y);
    void MoveOnto(HWND control);
    void MoveOnto(Control control) { MoveOnto(At(control)); }
    void MoveAway() { MoveTo(3, 3); }
    void PressPointer();
    void ReleasePointer();
    void Click(Control control);
    /// From place to place on the screen in one go: Windows keeps the program inside its own loop from press to
    /// release.
    void Drag(launcher_ui::Point from, launcher_ui::Point to);
    void Wheel(int delta);
    void KeyDown(WORD key);
    void KeyUp(WORD key);
    void Press(WORD key);
    void PressWith(WORD modifier, WORD key);

    /// Colour of a button's face, beside its label.
    [[nodiscard]] std::uint32_t FaceOf(Control button);
    /// Whether the button shows the line that says where the keyboard is.
    [[nodiscard]] bool ShowsFocus(Control button);

    StatusWindow status_;

  private:
    struct Plan {
        Condition condition;
        std::function<void()> action;
        std::chrono::steady_clock::time_point patience;
    };
    static void CALLBACK CarryOut(HWND window, UINT message, UINT_PTR id, DWORD now);

    inline static std::vector<Plan> plans_;
};

}  // namespace window_tests
