#include <windows.h>

#include <shellapi.h>
#include <shlwapi.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/stand_in.h"
#include "tests/window/touch_log.h"
#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

using launcher_ui::kOrdinaryButton;
using launcher_ui::kPrimaryButton;
using test_support::StandIn;

class ButtonTest : public WindowTest {};

// Looks.

TEST_F(ButtonTest, Button_Idle_HasItsIdleFace) {
    OpenPrompt();
    EXPECT_EQ(FaceOf(Control::updateButton), kPrimaryButton.idle);
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.idle);
    EXPECT_GT(PictureOf(At(Control::laterButton)).Count(launcher_ui::colour::kButtonEdge), 100);
}

TEST_F(ButtonTest, Pointer_OnAButton_ShowsHoverAndLeavingEndsIt) {
    OpenPrompt();
    for (const auto& [button, palette] :
         {std::pair{Control::updateButton, kPrimaryButton}, std::pair{Control::laterButton, kOrdinaryButton}}) {
        MoveOnto(button);
        EXPECT_EQ(status_.hoverButton, At(button));
        EXPECT_EQ(FaceOf(button), palette.hover);
        MoveAway();
        EXPECT_TRUE(Until([&] { return status_.hoverButton == nullptr; }));
        EXPECT_EQ(FaceOf(button), palette.idle);
    }
}

TEST_F(ButtonTest, Pointer_FromButtonToButton_TakesTheHoverAlong) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    MoveOnto(Control::updateButton);
    EXPECT_EQ(status_.hoverButton, At(Control::updateButton));
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.idle);
    EXPECT_EQ(FaceOf(Control::updateButton), kPrimaryButton.hover);
}

TEST_F(ButtonTest, Pointer_FromButtonToWindow_EndsTheHover) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    MoveOnto(Control::safetyNotice);
    EXPECT_TRUE(Until([&] { return status_.hoverButton == nullptr; }));
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.idle);
}

/// Themed buttons draw themselves when the pointer comes or goes; others do not.
TEST_F(ButtonTest, Hover_MovedOrEnded_AsksForTheDrawingItself) {
    OpenPrompt();
    TouchLog touched;
    // By messages alone and without a pump, so that the display's own pointer has no say.
    SendMessageW(At(Control::laterButton), WM_MOUSEMOVE, 0, MAKELPARAM(20, 20));
    EXPECT_EQ(status_.hoverButton, At(Control::laterButton));
    EXPECT_EQ(touched.Count("InvalidateRect", At(Control::laterButton)), 1);
    touched.Clear();
    // Straight to the next one, as when the message of the leaving comes late.
    SendMessageW(At(Control::updateButton), WM_MOUSEMOVE, 0, MAKELPARAM(20, 20));
    EXPECT_EQ(status_.hoverButton, At(Control::updateButton));
    EXPECT_EQ(touched.Count("InvalidateRect", At(Control::laterButton)), 1);
    EXPECT_EQ(touched.Count("InvalidateRect", At(Control::updateButton)), 1);
    touched.Clear();
    SendMessageW(At(Control::laterButton), WM_MOUSELEAVE, 0, 0);
    EXPECT_EQ(status_.hoverButton, At(Control::updateButton));
    SendMessageW(At(Control::updateButton), WM_MOUSELEAVE, 0, 0);
    EXPECT_EQ(status_.hoverButton, nullptr);
    EXPECT_EQ(touched.Count("InvalidateRect", At(Control::laterButton)), 0);
    EXPECT_EQ(touched.Count("InvalidateRect", At(Control::updateButton)), 1);
}

TEST_F(ButtonTest, Pointer_MovedWithinAButton_DrawsItOnce) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    const launcher_ui::Rectangle place = PlaceOnScreen(At(Control::laterButton));
    const MessageLog log(At(Control::laterButton));
    for (int step = 0; step < 5; ++step)
        MoveTo(place.left + 20 + step, place.top + 15);
    EXPECT_GE(log.Count(WM_MOUSEMOVE), 5);
    EXPECT_EQ(log.Count(WM_PAINT), 0);
    EXPECT_EQ(status_.hoverButton, At(Control::laterButton));
}

TEST_F(ButtonTest, Pointer_PressedAndReleased_ChangesTheLookAndBack) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    PressPointer();
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.pressed);
    MoveAway();  // the button keeps the mouse; letting it go out here is no click
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.idle);
    EXPECT_EQ(status_.hoverButton, nullptr);
    MoveOnto(Control::laterButton);
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.pressed);
    MoveAway();
    ReleasePointer();
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.idle);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
}

TEST_F(ButtonTest, PrimaryButton_Pressed_HasItsPressedFace) {
    OpenPrompt();
    MoveOnto(Control::updateButton);
    PressPointer();
    EXPECT_EQ(FaceOf(Control::updateButton), kPrimaryButton.pressed);
    MoveAway();
    ReleasePointer();
}

TEST_F(ButtonTest, Pointer_ReleasedOnThePressedButton_RestoresTheHover) {
    OpenTransfer();
    Tell(Receiving());
    MoveOnto(Control::reconnectButton);
    PressPointer();
    EXPECT_EQ(FaceOf(Control::reconnectButton), kOrdinaryButton.pressed);
    ReleasePointer();
    EXPECT_TRUE(status_.model.progress.reconnectRequested);
    EXPECT_EQ(FaceOf(Control::reconnectButton), launcher_ui::colour::kButtonDisabled);
}

TEST_F(ButtonTest, Button_DisabledWhileUnderThePointer_KeepsNoHover) {
    OpenFailure();
    const Control close = Control::cancelButton;
    MoveOnto(close);
    EXPECT_EQ(FaceOf(close), kOrdinaryButton.hover);
    EnableWindow(At(close), FALSE);
    EXPECT_EQ(status_.hoverButton, nullptr);
    EXPECT_EQ(FaceOf(close), launcher_ui::colour::kButtonDisabled);
    EnableWindow(At(close), TRUE);
    EXPECT_EQ(FaceOf(close), kOrdinaryButton.idle);
}

TEST_F(ButtonTest, Button_Disabled_TakesNoHover) {
    OpenTransfer();
    Tell(Stage::Verifying, L"app.zip", 1, 2);
    ASSERT_FALSE(IsWindowEnabled(At(Control::cancelButton)));
    MoveOnto(Control::cancelButton);
    EXPECT_EQ(status_.hoverButton, nullptr);
    EXPECT_EQ(FaceOf(Control::cancelButton), launcher_ui::colour::kButtonDisabled);
    // A disabled window gets no mouse messages; one that is sent all the same changes nothing.
    SendMessageW(At(Control::cancelButton), WM_MOUSEMOVE, 0, MAKELPARAM(5, 5));
    EXPECT_EQ(status_.hoverButton, nullptr);
}

TEST_F(ButtonTest, DrawRequest_StatesDecideTheFace) {
    OpenPrompt();
    struct Row {
        UINT state;
        std::uint32_t face;
    };
    const HWND button = At(Control::laterButton);
    for (const Row row : {Row{0, kOrdinaryButton.idle}, Row{ODS_HOTLIGHT, kOrdinaryButton.hover},
                          Row{ODS_SELECTED, kOrdinaryButton.pressed}, Row{ODS_FOCUS, kOrdinaryButton.idle},
                          Row{ODS_SELECTED | ODS_HOTLIGHT, kOrdinaryButton.pressed},
                          Row{ODS_DISABLED | ODS_HOTLIGHT | ODS_SELECTED, launcher_ui::colour::kButtonDisabled}}) {
        SCOPED_TRACE(row.state);
        const HDC context = GetDC(button);
        const DRAWITEMSTRUCT item = {ODT_BUTTON, 1002,           0, ODA_DRAWENTIRE, row.state, button,
                                     context,    {0, 0, 88, 40}, 0};
        EXPECT_EQ(SendMessageW(Main(), WM_DRAWITEM, 1002, reinterpret_cast<LPARAM>(&item)), TRUE);
        EXPECT_EQ(GetPixel(context, 8, 8), launcher_ui::ToColorRef(row.face));
        ReleaseDC(button, context);
    }
}

TEST_F(ButtonTest, OtherButton_DisabledOrHidden_LeavesTheHover) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    EnableWindow(At(Control::updateButton), FALSE);
    EnableWindow(At(Control::updateButton), TRUE);
    ShowWindow(At(Control::updateButton), SW_HIDE);
    ShowWindow(At(Control::updateButton), SW_SHOWNOACTIVATE);
    SendMessageW(At(Control::laterButton), WM_ENABLE, TRUE, 0);
    SendMessageW(At(Control::laterButton), WM_SHOWWINDOW, TRUE, 0);
    EXPECT_EQ(status_.hoverButton, At(Control::laterButton));
}

TEST_F(ButtonTest, Button_HiddenWhileUnderThePointer_KeepsNoHover) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    EXPECT_EQ(status_.hoverButton, At(Control::laterButton));
    ShowWindow(At(Control::laterButton), SW_HIDE);
    EXPECT_EQ(status_.hoverButton, nullptr);
}

TEST_F(ButtonTest, Capture_LostWhilePressed_EndsTheHover) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    PressPointer();
    EXPECT_EQ(GetCapture(), At(Control::laterButton));
    ReleaseCapture();
    EXPECT_EQ(status_.hoverButton, nullptr);
    MoveAway();
    ReleasePointer();
    EXPECT_EQ(FaceOf(Control::laterButton), kOrdinaryButton.idle);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
}

TEST_F(ButtonTest, Button_DestroyedWhileUnderThePointer_KeepsNoHover) {
    OpenPrompt();
    MoveOnto(Control::laterButton);
    DestroyWindow(At(Control::laterButton));
    EXPECT_EQ(status_.hoverButton, nullptr);
}

TEST_F(ButtonTest, Close_OfABlockingFailure_HoversLikeAnyButton) {
    OpenFailure();
    const HWND window = Main();
    const Control close = Control::cancelButton;
    MoveOnto(close);
    EXPECT_EQ(status_.hoverButton, At(close));
    MoveAway();
    EXPECT_TRUE(Until([&] { return status_.hoverButton == nullptr; }));
    MoveOnto(close);
    EXPECT_EQ(status_.hoverButton, At(close));
    EnableWindow(At(close), FALSE);
    EXPECT_EQ(status_.hoverButton, nullptr);
    EnableWindow(At(close), TRUE);
    Click(close);
    EXPECT_TRUE(status_.model.failureClosed);
    EXPECT_FALSE(IsWindowVisible(Main()));
    EXPECT_EQ(Main(), window);
}

// The cursor.

class CursorLog {
  public:
    HCURSOR last = nullptr;

  private:
    using OnCursor = StandIn<"SetCursor", decltype(SetCursor)>;
    OnCursor onCursor_{[this](HCURSOR cursor) {
        last = cursor;
        return OnCursor::Original(cursor);
    }};
};

TEST_F(ButtonTest, Cursor_OverAButton_IsAHandOnlyWhereItCanBePressed) {
    OpenFailure();
    CursorLog cursor;
    const HWND close = At(Control::cancelButton);
    MoveOnto(close);
    EXPECT_EQ(cursor.last, LoadCursorW(nullptr, IDC_HAND));
    EnableWindow(close, FALSE);
    cursor.last = nullptr;
    EXPECT_EQ(SendMessageW(close, WM_SETCURSOR, reinterpret_cast<WPARAM>(close), MAKELPARAM(HTCLIENT, WM_MOUSEMOVE)),
              1);
    EXPECT_EQ(cursor.last, LoadCursorW(nullptr, IDC_ARROW));
}

TEST_F(ButtonTest, Cursor_OutsideTheClientArea_IsLeftToWindows) {
    OpenFailure();
    CursorLog cursor;
    const HWND close = At(Control::cancelButton);
    SendMessageW(close, WM_SETCURSOR, reinterpret_cast<WPARAM>(close), MAKELPARAM(HTCAPTION, WM_MOUSEMOVE));
    EXPECT_NE(cursor.last, LoadCursorW(nullptr, IDC_HAND));
}

TEST_F(ButtonTest, Pointer_OnAButton_AsksToBeToldOfItsLeaving) {
    OpenPrompt();
    std::vector<TRACKMOUSEEVENT> asked;
    using OnTrack = StandIn<"TrackMouseEvent", decltype(TrackMouseEvent)>;
    const OnTrack track([&](LPTRACKMOUSEEVENT event) {
        asked.push_back(*event);
        return OnTrack::Original(event);
    });
    MoveOnto(Control::laterButton);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].dwFlags, static_cast<DWORD>(TME_LEAVE));
    EXPECT_EQ(asked[0].hwndTrack, At(Control::laterButton));
    EXPECT_EQ(asked[0].cbSize, sizeof(TRACKMOUSEEVENT));
}

// Clicks.

TEST_F(ButtonTest, Click_OnUpdate_Chooses) {
    OpenPrompt();
    Click(Control::updateButton);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::update);
}

TEST_F(ButtonTest, Click_OnLater_Chooses) {
    OpenPrompt();
    Click(Control::laterButton);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::later);
}

TEST_F(ButtonTest, Click_OnCancel_AsksForTheCancel) {
    OpenTransfer();
    Click(Control::cancelButton);
    EXPECT_TRUE(status_.model.progress.cancelRequested);
    EXPECT_FALSE(IsWindowEnabled(At(Control::cancelButton)));
    EXPECT_EQ(TextOf(At(Control::progressLine)), Text(TextId::CancellingSafely));
    EXPECT_EQ(TextOf(At(Control::progressDetail)), L"");
    EXPECT_TRUE(Until([&] { return status_.model.progress.marqueeTick > 1; }));
}

TEST_F(ButtonTest, Click_OnReconnect_AsksOnceAndDisablesIt) {
    OpenTransfer();
    Tell(Receiving());
    Settle();
    ASSERT_TRUE(IsWindowVisible(At(Control::reconnectButton)));
    ASSERT_TRUE(IsWindowEnabled(At(Control::reconnectButton)));
    Click(Control::reconnectButton);
    EXPECT_TRUE(status_.model.progress.reconnectRequested);
    EXPECT_FALSE(IsWindowEnabled(At(Control::reconnectButton)));
}

TEST_F(ButtonTest, Notification_OtherThanAClick_DoesNothing) {
    OpenPrompt();
    for (const int code : {BN_SETFOCUS, BN_KILLFOCUS, BN_DBLCLK, BN_PAINT}) {
        SendMessageW(Main(), WM_COMMAND, MAKEWPARAM(1001, code), reinterpret_cast<LPARAM>(At(Control::updateButton)));
        EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
    }
}

TEST_F(ButtonTest, Click_LeavesNoFocusCueAndTheIdleLook) {
    OpenPrompt();
    const FocusCueState cues(Main());
    const Picture idle = PictureOf(At(Control::laterButton));
    MoveOnto(Control::laterButton);
    PressPointer();
    MoveAway();
    ReleasePointer();
    Settle();
    EXPECT_TRUE(HasFocus(Control::laterButton));
    EXPECT_FALSE(ShowsFocus(Control::laterButton));
    EXPECT_EQ(PictureOf(At(Control::laterButton)), idle);
}

TEST_F(ButtonTest, Tab_AfterAClick_ShowsTheFocusAgain) {
    OpenPrompt();
    const FocusCueState cues(Main());
    MoveOnto(Control::laterButton);
    PressPointer();
    MoveAway();
    ReleasePointer();
    EXPECT_TRUE(cues.Hidden());
    cues.KeyboardIsUsed();
    PressWith(VK_SHIFT, VK_TAB);
    EXPECT_TRUE(HasFocus(Control::updateButton));
    EXPECT_TRUE(ShowsFocus(Control::updateButton));
    Press(VK_TAB);
    EXPECT_TRUE(HasFocus(Control::laterButton));
    EXPECT_TRUE(ShowsFocus(Control::laterButton));
    EXPECT_FALSE(ShowsFocus(Control::updateButton));
}

TEST_F(ButtonTest, FocusCue_OfAFilledButton_StandsInsideItsLowerEdge) {
    OpenPrompt();
    Press(VK_TAB);
    ASSERT_TRUE(HasFocus(Control::laterButton));
    Settle();
    const Picture picture = PictureOf(At(Control::laterButton));
    for (int x = 12; x < 88 - 12; ++x)
        EXPECT_EQ(picture.At(x, 40 - 5), launcher_ui::colour::kButtonFocusCue) << x;
    EXPECT_NE(picture.At(11, 35), launcher_ui::colour::kButtonFocusCue);
    EXPECT_NE(picture.At(76, 35), launcher_ui::colour::kButtonFocusCue);
}

/// A button with another label.
class LabelTest : public ButtonTest {
  protected:
    Picture Draw(Control button, const std::wstring& label) {
        status_.model.At(button).text = label;
        launcher_ui::ShowModel(status_);
        Settle();
        return PictureOf(At(button));
    }
};

TEST_F(LabelTest, Label_LongerThanItsLimit_IsCut) {
    OpenPrompt();
    const std::wstring longest(64, L'.');
    const Picture full = Draw(Control::laterButton, longest);
    EXPECT_EQ(Draw(Control::laterButton, longest + std::wstring(20, L'W')), full);
    EXPECT_NE(Draw(Control::laterButton, longest.substr(1)), full);
}

TEST_F(LabelTest, LinkText_LongerThanItsLimit_IsCut) {
    OpenPrompt();
    // Letters without width, so that the limit is reached inside the control.
    const std::wstring longest = L"a" + std::wstring(90, L'\u200B') + L"bcdef";
    const Picture full = Draw(Control::notesLink, longest);
    EXPECT_EQ(Draw(Control::notesLink, longest + L"WWW"), full);
    EXPECT_NE(Draw(Control::notesLink, longest.substr(0, 95)), full);
}

// The link.

class LinkTest : public ButtonTest {
  protected:
    struct Execution {
        HWND window;
        std::wstring verb;
        std::wstring file;
        bool hasParameters;
        bool hasFolder;
        int show;
    };
    std::vector<Execution> executions_;

  private:
    StandIn<"ShellExecuteW", decltype(ShellExecuteW)> onExecute_{
        [this](HWND window, LPCWSTR verb, LPCWSTR file, LPCWSTR parameters, LPCWSTR folder, INT show) {
            executions_.push_back({window, verb, file, parameters != nullptr, folder != nullptr, show});
            return reinterpret_cast<HINSTANCE>(INT_PTR{33});
        }};
};

TEST_F(LinkTest, Click_OpensTheAddressOnce) {
    OpenPrompt();
    ASSERT_TRUE(IsWindowVisible(At(Control::notesLink)));
    Click(Control::notesLink);
    ASSERT_EQ(executions_.size(), 1u);
    EXPECT_EQ(executions_[0].window, Main());
    EXPECT_EQ(executions_[0].verb, L"open");
    EXPECT_EQ(executions_[0].file, kNotesUrl);
    EXPECT_FALSE(executions_[0].hasParameters);
    EXPECT_FALSE(executions_[0].hasFolder);
    EXPECT_EQ(executions_[0].show, SW_SHOWNORMAL);
    MoveTo(PlaceOnScreen(At(Control::notesLink)).left + 10, PlaceOnScreen(At(Control::notesLink)).top + 10);
    PressPointer();
    ReleasePointer();
    EXPECT_EQ(executions_.size(), 2u);
    EXPECT_EQ(status_.model.promptChoice, PromptChoice::none);
}

TEST_F(LinkTest, Space_OnTheLink_OpensTheAddress) {
    OpenPrompt();
    SetFocus(At(Control::notesLink));
    Press(VK_SPACE);
    EXPECT_EQ(executions_.size(), 1u);
}

TEST_F(LinkTest, Hover_OnTheLink_UnderlinesItsText) {
    OpenPrompt();
    const int before = PictureOf(At(Control::notesLink)).Count(launcher_ui::colour::kLinkHover);
    MoveOnto(Control::notesLink);
    Settle();
    const Picture hovered = PictureOf(At(Control::notesLink));
    EXPECT_EQ(before, 0);
    EXPECT_GT(hovered.Count(launcher_ui::colour::kLinkHover), 100);
    EXPECT_EQ(hovered.Count(launcher_ui::colour::kBackground) > 4000, true);
}

TEST_F(LinkTest, Focus_OnTheLink_UnderlinesItWhenItIsToBeSeen) {
    OpenPrompt();
    const FocusCueState cues(Main());
    PressWith(VK_SHIFT, VK_TAB);
    ASSERT_TRUE(HasFocus(Control::notesLink));
    Settle();
    EXPECT_GT(PictureOf(At(Control::notesLink)).Count(launcher_ui::colour::kLinkHover), 50);
    MoveOnto(Control::notesLink);
    PressPointer();
    MoveAway();
    ReleasePointer();
    Settle();
    EXPECT_EQ(PictureOf(At(Control::notesLink)).Count(launcher_ui::colour::kLinkHover), 0);
    EXPECT_TRUE(executions_.empty());
}

struct Address {
    const char* what;
    std::wstring url;
    bool offered;
};

TEST_F(LinkTest, Address_DecidesWhetherTheLinkIsOffered) {
    const std::wstring longest = L"https://a.example/" + std::wstring(2048 - 18, L'x');
    const Address addresses[] = {
        {"plain", L"https://notes.example/a", true},
        {"capitals", L"HTTPS://notes.example/a", true},
        {"longest", longest, true},
        {"one too long", longest + L"x", false},
        {"http", L"http://notes.example/a", false},
        {"file", L"file:///c:/windows", false},
        {"return", L"https://notes.example/\ra", false},
        {"feed", L"https://notes.example/\na", false},
        {"feed at the end", L"https://notes.example/a\n", false},
        {"none", L"", false},
        {"program", L"calc.exe", false},
    };
    Open();
    for (const Address& address : addresses) {
        SCOPED_TRACE(address.what);
        executions_.clear();
        ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes(2, address.url)));
        Settle();
        EXPECT_EQ(IsWindowVisible(At(Control::notesLink)) != FALSE, address.offered);
        EXPECT_EQ(status_.model.fullNotesUrl, address.offered ? address.url : std::wstring());
        SendMessageW(Main(), WM_COMMAND, 1003, reinterpret_cast<LPARAM>(At(Control::notesLink)));
        ASSERT_EQ(executions_.size(), address.offered ? 1u : 0u);
        if (address.offered) {
            EXPECT_EQ(executions_[0].file, address.url);
        }
    }
}

TEST_F(LinkTest, Address_RefusedByTheSystem_HidesTheLink) {
    std::vector<std::pair<std::wstring, URLIS>> asked;
    const StandIn<"UrlIsW", decltype(UrlIsW)> refuse([&](LPCWSTR url, URLIS kind) {
        asked.emplace_back(url, kind);
        return FALSE;
    });
    OpenPrompt();
    EXPECT_FALSE(IsWindowVisible(At(Control::notesLink)));
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].first, kNotesUrl);
    EXPECT_EQ(asked[0].second, URLIS_URL);
}

TEST_F(LinkTest, Address_OfAnEarlierPrompt_IsForgotten) {
    OpenPrompt();
    EXPECT_TRUE(IsWindowVisible(At(Control::notesLink)));
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes(2, L"")));
    Settle();
    EXPECT_FALSE(IsWindowVisible(At(Control::notesLink)));
}

}  // namespace
}  // namespace window_tests
