#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/stand_in.h"
#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

using launcher_ui::PlaceOf;
using launcher_ui::Rectangle;
using launcher_ui::Scale;
using launcher_ui::Size;
using launcher_ui::WindowSize;
using test_support::StandIn;

constexpr std::array kViews = {ViewMode::compact, ViewMode::prompt, ViewMode::progress};
constexpr int kScreenWidth = 1600;
constexpr int kScreenHeight = 1200;

class ScaleTest : public WindowTest {
  protected:
    void ChangeScale(int dpi, const RECT& place) {
        SendMessageW(Main(), WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(&place));
    }
    /// With the place that Windows would suggest: the same corner, the new size.
    void ChangeScale(int dpi) {
        const Rectangle now = PlaceOnScreen(Main());
        const Size size = WindowSize(status_.model.viewMode, dpi);
        ChangeScale(dpi, {now.left, now.top, now.left + size.width, now.top + size.height});
    }
    void ExpectScaledFonts(int dpi) {
        for (int index = 0; index < launcher_ui::kControlCount; ++index) {
            const Control control = ControlAt(index);
            if (control == Control::notesPanel) continue;
            SCOPED_TRACE(index);
            const auto font = reinterpret_cast<HFONT>(SendMessageW(At(control), WM_GETFONT, 0, 0));
            const launcher_ui::FontRole role = launcher_ui::FontOf(control);
            EXPECT_EQ(font, status_.fonts.Get(role));
            LOGFONTW description = {};
            ASSERT_NE(GetObjectW(font, sizeof description, &description), 0);
            EXPECT_EQ(description.lfHeight, -Scale(launcher_ui::kFonts[static_cast<int>(role)].height, dpi));
        }
    }
    void ExpectScaledLayout(int dpi) {
        for (int index = 0; index < launcher_ui::kControlCount; ++index) {
            const Control control = ControlAt(index);
            const auto place = PlaceOf(control, status_.model.viewMode, status_.model.failureHeld, dpi);
            if (!place) continue;
            EXPECT_EQ(PlaceInParent(At(control)), *place) << index;
        }
    }
    void ExpectCentred(int dpi) {
        const Size size = WindowSize(status_.model.viewMode, dpi);
        const int left = (kScreenWidth - size.width) / 2;
        const int top = (kScreenHeight - size.height) / 2;
        EXPECT_EQ(PlaceOnScreen(Main()), (Rectangle{left, top, left + size.width, top + size.height}));
    }
    void ExpectTopmost() { EXPECT_NE(ExtendedStyleOf(Main()) & WS_EX_TOPMOST, 0u); }
    void SwitchTo(ViewMode view) {
        if (view == ViewMode::progress) {
            if (status_.model.viewMode == ViewMode::progress) SwitchTo(ViewMode::compact);
            status_.model.progress = {};
            Tell(Stage::Downloading, L"app.zip", 0, 1);
            return;
        }
        ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
        if (view == ViewMode::prompt) return;
        status_.model.promptChoice = PromptChoice::later;
        EXPECT_FALSE(launcher_ui::WaitForPromptChoice(status_));
    }
};

TEST_F(ScaleTest, ScaleChange_InEveryView_TakesTheSuggestedPlaceAndRebuildsAll) {
    for (const ViewMode view : kViews) {
        OpenView(view);
        for (const int dpi : {120, 144, 192, 96}) {
            SCOPED_TRACE(dpi);
            const RECT place = {31, 47, 31 + dpi * 8, 47 + dpi * 6};
            ChangeScale(dpi, place);
            EXPECT_EQ(status_.dpi, dpi);
            EXPECT_EQ(PlaceOnScreen(Main()), launcher_ui::FromRect(place));
            ExpectScaledFonts(dpi);
            ExpectScaledLayout(dpi);
            ExpectTopmost();
            EXPECT_EQ(status_.model.viewMode, view);
        }
        launcher_ui::DestroyStatusWindow(status_);
    }
}

TEST_F(ScaleTest, ScaleChange_TakesTheVerticalScale) {
    Open();
    const RECT place = {0, 0, 800, 400};
    SendMessageW(Main(), WM_DPICHANGED, MAKEWPARAM(96, 144), reinterpret_cast<LPARAM>(&place));
    EXPECT_EQ(status_.dpi, 144);
}

TEST_F(ScaleTest, Icon_IsLoadedAtTheSizeOfEveryScale) {
    struct Load {
        int width;
        int height;
        WORD resource;
        UINT kind;
    };
    std::vector<Load> loads;
    using OnLoad = StandIn<"LoadImageW", decltype(LoadImageW)>;
    const OnLoad load([&](HINSTANCE instance, LPCWSTR name, UINT kind, int width, int height, UINT flags) {
        loads.push_back({width, height, static_cast<WORD>(reinterpret_cast<ULONG_PTR>(name)), kind});
        return OnLoad::Original(instance, name, kind, width, height, flags);
    });
    OpenPrompt();
    for (const int dpi : {120, 144, 192})
        ChangeScale(dpi);
    ASSERT_EQ(loads.size(), 4u);
    const int sizes[] = {36, 45, 54, 72};
    for (std::size_t index = 0; index < loads.size(); ++index) {
        EXPECT_EQ(loads[index].width, sizes[index]);
        EXPECT_EQ(loads[index].height, sizes[index]);
        EXPECT_EQ(loads[index].resource, 101);
        EXPECT_EQ(loads[index].kind, static_cast<UINT>(IMAGE_ICON));
    }
    EXPECT_NE(status_.icon.Get(), nullptr);
}

TEST_F(ScaleTest, ScaleChange_ThereAndBack_GivesTheSamePicture) {
    OpenPrompt(LongNotes());
    const Picture before = PictureOf(Main());
    const Rectangle place = PlaceOnScreen(Main());
    ChangeScale(144);
    Settle();
    EXPECT_NE(PictureOf(Main()).size, before.size);
    ChangeScale(96, {place.left, place.top, place.right, place.bottom});
    Settle();
    EXPECT_EQ(PictureOf(Main()), before);
}

TEST_F(ScaleTest, ScaleChange_WithTheSameSizes_StillPaintsAllAnew) {
    OpenPrompt();
    Settle();
    const MessageLog log(Main());
    ChangeScale(96);
    Settle();
    EXPECT_EQ(log.Count(WM_PAINT), 1);
    EXPECT_GE(log.Count(WM_ERASEBKGND), 1);
}

TEST_F(ScaleTest, Notes_AfterAScaleChange_AreMeasuredAnew) {
    OpenPrompt(LongNotes());
    SetFocus(At(Control::notesPanel));
    Press(VK_END);
    ChangeScale(192);
    EXPECT_EQ(status_.notesLayout.cards[0].left, 28);
    EXPECT_EQ(status_.notesLayout.cards[0].Height(), 116);
    EXPECT_LE(status_.scrollPosition, status_.notesLayout.contentHeight - 580);
    Press(VK_HOME);
    Press(VK_DOWN);
    EXPECT_EQ(status_.scrollPosition, 72);
    MoveOnto(At(Control::notesPanel));
    Wheel(-120);
    EXPECT_EQ(status_.scrollPosition, 72 + 108);
    ChangeScale(96);
    EXPECT_EQ(status_.notesLayout.cards[0].Height(), 58);
}

/// The panel's size stays, its fonts do not.
TEST_F(ScaleTest, Notes_AfterAScaleChangeWithoutASizeChange_AreMeasuredAnew) {
    OpenPrompt(LongNotes());
    const HWND panel = At(Control::notesPanel);
    const auto place = PlaceOf(Control::notesPanel, ViewMode::prompt, false, 144);
    SetWindowPos(panel, nullptr, place->left, place->top, place->Width(), place->Height(), SWP_NOZORDER);
    ChangeScale(144);
    EXPECT_EQ(status_.notesLayout.cards[0].Height(), 87);
}

TEST_F(ScaleTest, FailureView_AfterAScaleChange_KeepsItsNarrowButton) {
    OpenFailure();
    ChangeScale(144);
    EXPECT_EQ(PlaceInParent(At(Control::cancelButton)).Width(), 132);
    EXPECT_EQ(PlaceInParent(At(Control::cancelButton)).left, 930);
    EXPECT_EQ(PlaceInParent(At(Control::reconnectButton)).left, 720);
}

TEST_F(ScaleTest, ButtonCorners_DoNotGrow) {
    std::vector<int> corners;
    using OnCorner = StandIn<"RoundRect", decltype(RoundRect)>;
    OpenPrompt();
    ChangeScale(192);
    Settle();
    const OnCorner corner([&](HDC context, int left, int top, int right, int bottom, int width, int height) {
        corners.push_back(width);
        EXPECT_EQ(width, height);
        return OnCorner::Original(context, left, top, right, bottom, width, height);
    });
    InvalidateRect(At(Control::laterButton), nullptr, FALSE);
    UpdateWindow(At(Control::laterButton));
    EXPECT_EQ(corners, (std::vector<int>{8}));
}

TEST_F(ScaleTest, ViewSwitches_AfterAScaleChange_UseTheNewScale) {
    Open();
    for (const int dpi : {144, 192, 120, 96}) {
        ChangeScale(dpi);
        for (const ViewMode view : {ViewMode::prompt, ViewMode::progress, ViewMode::compact, ViewMode::progress}) {
            SCOPED_TRACE(dpi * 10 + static_cast<int>(view));
            SwitchTo(view);
            ASSERT_EQ(status_.model.viewMode, view);
            ExpectCentred(dpi);
            ExpectScaledLayout(dpi);
            ExpectTopmost();
        }
    }
}

TEST_F(ScaleTest, View_Opened_RecentresAMovedWindow) {
    Open();
    for (const ViewMode view : {ViewMode::prompt, ViewMode::progress, ViewMode::compact}) {
        SetWindowPos(Main(), nullptr, 5, 9, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
        SwitchTo(view);
        ExpectCentred(96);
    }
}

/// Windows changes the scale while the window is on its way from another screen.
TEST_F(ScaleTest, View_OpenedWhileTheWindowComesFromAScreenOfAnotherScale_IsCentredAtTheNewOne) {
    Open();
    ChangeScale(144);
    bool arrived = false;
    using OnPlace = StandIn<"SetWindowPos", decltype(SetWindowPos)>;
    const OnPlace place([&](HWND window, HWND after, int x, int y, int width, int height, UINT flags) {
        const BOOL placed = OnPlace::Original(window, after, x, y, width, height, flags);
        if (window != Main() || arrived) return placed;
        arrived = true;
        ChangeScale(96, {x, y, x + width, y + height});
        return placed;
    });
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
    EXPECT_TRUE(arrived);
    ExpectCentred(96);
    ExpectScaledLayout(96);
    ExpectScaledFonts(96);
}

TEST_F(ScaleTest, View_Opened_PutsTheWindowAboveAllOthersAgain) {
    Open();
    for (const ViewMode view : {ViewMode::prompt, ViewMode::progress, ViewMode::compact}) {
        SetWindowPos(Main(), HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_NOACTIVATE);
        EXPECT_EQ(ExtendedStyleOf(Main()) & WS_EX_TOPMOST, 0u);
        SwitchTo(view);
        ExpectTopmost();
    }
}

TEST_F(ScaleTest, View_LargerThanTheScreen_IsCentredAllTheSame) {
    Open();
    ChangeScale(288);
    SwitchTo(ViewMode::prompt);
    ExpectCentred(288);
    EXPECT_LT(PlaceOnScreen(Main()).left, 0);
    EXPECT_LT(PlaceOnScreen(Main()).top, 0);
    ExpectScaledLayout(288);
}

TEST_F(ScaleTest, View_OpenedTwice_StaysAsItStands) {
    OpenTransfer();
    SetWindowPos(Main(), nullptr, 5, 9, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    const MessageLog log(Main());
    Tell(Stage::DownloadingBytes, L"app.zip", 40, 100);
    EXPECT_EQ(PlaceOnScreen(Main()).left, 5);
    EXPECT_EQ(log.Count(WM_WINDOWPOSCHANGED), 0);
}

// The activation.

TEST_F(ScaleTest, ViewSwitch_ToProgress_DoesNotActivate) {
    Open();
    const OtherWindow other;
    other.Activate();
    Tell(Stage::Downloading, L"app.zip", 0, 1);
    EXPECT_EQ(GetActiveWindow(), other.Handle());
    EXPECT_EQ(GetForegroundWindow(), other.Handle());
    EXPECT_TRUE(IsWindowVisible(Main()));
    ExpectTopmost();
}

TEST_F(ScaleTest, ViewSwitch_ToCompact_DoesNotActivate) {
    OpenPrompt();
    const OtherWindow other;
    other.Activate();
    status_.model.promptChoice = PromptChoice::later;
    EXPECT_FALSE(launcher_ui::WaitForPromptChoice(status_));
    EXPECT_EQ(GetActiveWindow(), other.Handle());
    EXPECT_EQ(GetForegroundWindow(), other.Handle());
}

TEST_F(ScaleTest, ViewSwitch_OfAHiddenWindow_ShowsItWithoutActivating) {
    const OtherWindow other;
    Open(SW_HIDE);
    other.Activate();
    Tell(Stage::Downloading, L"app.zip", 0, 1);
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_EQ(GetActiveWindow(), other.Handle());
}

TEST_F(ScaleTest, Prompt_Activates) {
    Open();
    const OtherWindow other;
    other.Activate();
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
    EXPECT_EQ(GetForegroundWindow(), Main());
    EXPECT_EQ(GetActiveWindow(), Main());
    EXPECT_TRUE(HasFocus(Control::updateButton));
}

/// Each of the three may be refused or be without effect where another program has the foreground.
TEST_F(ScaleTest, Prompt_AsksForForegroundActivationAndFocus) {
    Open();
    std::vector<std::string> asked;
    using OnForeground = StandIn<"SetForegroundWindow", decltype(SetForegroundWindow)>;
    using OnActive = StandIn<"SetActiveWindow", decltype(SetActiveWindow)>;
    using OnFocus = StandIn<"SetFocus", decltype(SetFocus)>;
    const OnForeground foreground([&](HWND window) {
        asked.emplace_back(window == Main() ? "foreground" : "foreground of another");
        return OnForeground::Original(window);
    });
    const OnActive active([&](HWND window) {
        asked.emplace_back(window == Main() ? "active" : "active of another");
        return OnActive::Original(window);
    });
    const OnFocus focus([&](HWND window) {
        asked.emplace_back(window == At(Control::updateButton) ? "focus" : "focus of another");
        return OnFocus::Original(window);
    });
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
    EXPECT_EQ(asked, (std::vector<std::string>{"foreground", "active", "focus"}));
}

TEST_F(ScaleTest, Prompt_OfAHiddenWindow_ShowsAndActivatesIt) {
    const OtherWindow other;
    Open(SW_HIDE);
    other.Activate();
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_EQ(GetActiveWindow(), Main());
    EXPECT_TRUE(HasFocus(Control::updateButton));
}

TEST_F(ScaleTest, FailureView_DoesNotActivate) {
    Open();
    const OtherWindow other;
    other.Activate();
    launcher_ui::ShowFailure(status_, true, L"Why");
    EXPECT_EQ(GetForegroundWindow(), other.Handle());
}

}  // namespace
}  // namespace window_tests
