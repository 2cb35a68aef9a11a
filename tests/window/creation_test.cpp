#include <windows.h>

#include <commctrl.h>
#include <uxtheme.h>
#undef CreateStatusWindow  // a macro for another control

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "product/locations.h"
#include "tests/support/stand_in.h"
#include "tests/window/gdi_ledger.h"
#include "tests/window/window_fixture.h"
#include "ui/notes_panel.h"

namespace window_tests {
namespace {

using launcher_ui::CreateStatusWindow;
using launcher_ui::DestroyStatusWindow;
using launcher_ui::Rectangle;
using test_support::StandIn;

class CreationTest : public WindowTest {
  protected:
    [[nodiscard]] bool Create() {
        return CreateStatusWindow(status_, GetModuleHandleW(nullptr), kInstalled, SW_SHOWNORMAL);
    }
    void ExpectNothingLeft() {
        EXPECT_EQ(status_.window, nullptr);
        EXPECT_EQ(status_.controls, (std::array<HWND, launcher_ui::kControlCount>{}));
        EXPECT_EQ(status_.hoverButton, nullptr);
        EXPECT_EQ(status_.icon.Get(), nullptr);
        for (const launcher_ui::FontSpec& font : launcher_ui::kFonts)
            EXPECT_EQ(status_.fonts.Get(font.role), nullptr);
        EXPECT_EQ(status_.backgroundBrush.Get(), nullptr);
        EXPECT_EQ(status_.panelBrush.Get(), nullptr);
        EXPECT_EQ(FindWindowW(kMainClass, nullptr), nullptr);
    }
};

struct ExpectedControl {
    Control control;
    const wchar_t* className;
    DWORD style;
    int id;
    const wchar_t* text;  // null: that of `textId`
    TextId textId = TextId::CurrentVersionPrefix;
};

constexpr DWORD kOwnDrawnButton = WS_CHILD | WS_TABSTOP | BS_OWNERDRAW;
const ExpectedControl kExpected[] = {
    {Control::title, L"Static", WS_CHILD | WS_VISIBLE, 0, L"Velmora Pine Relay"},
    {Control::versionLine, L"Static", WS_CHILD | WS_VISIBLE, 0, L"<version>"},
    {Control::statusLine, L"Static", WS_CHILD | WS_VISIBLE | SS_PATHELLIPSIS | SS_NOPREFIX, 0, nullptr,
     TextId::CheckingForUpdates},
    {Control::bar, L"Static", WS_CHILD | WS_VISIBLE | SS_OWNERDRAW, 1006, nullptr, TextId::CheckingForUpdates},
    {Control::versionBadge, L"Static", WS_CHILD | SS_OWNERDRAW, 1005, L""},
    {Control::notesHeading, L"Static", WS_CHILD, 0, nullptr, TextId::WhatsNew},
    {Control::scrollHint, L"Static", WS_CHILD | SS_RIGHT, 0, nullptr, TextId::ScrollForMore},
    {Control::notesPanel, L"VPRReleaseNotesPanel", WS_CHILD | WS_VSCROLL | WS_TABSTOP, 0, L""},
    {Control::safetyNotice, L"Static", WS_CHILD, 0, nullptr, TextId::SafetyNoteVerified},
    {Control::progressLine, L"Static", WS_CHILD | SS_PATHELLIPSIS | SS_NOPREFIX, 0, L""},
    {Control::progressDetail, L"Static", WS_CHILD | SS_RIGHT, 0, L""},
    {Control::footer, L"Static", WS_CHILD | WS_CLIPSIBLINGS, 0, nullptr, TextId::SafetyNoteSwitching},
    {Control::notesLink, L"Button", kOwnDrawnButton, 1003, nullptr, TextId::ViewFullNotes},
    {Control::updateButton, L"Button", kOwnDrawnButton, 1001, nullptr, TextId::UpdateNow},
    {Control::laterButton, L"Button", kOwnDrawnButton, 1002, nullptr, TextId::Later},
    {Control::cancelButton, L"Button", kOwnDrawnButton, 1004, nullptr, TextId::Cancel},
    {Control::reconnectButton, L"Button", kOwnDrawnButton, 1007, nullptr, TextId::Reconnect},
};

/// The scroll bar of an empty panel comes and goes with its content.
DWORD LastingStyle(HWND control) {
    return ClassOf(control) == L"VPRReleaseNotesPanel" ? StyleOf(control) | WS_VSCROLL : StyleOf(control);
}

struct Creation {
    std::wstring className;
    std::wstring text;
    DWORD style;
    DWORD extendedStyle;
    Rectangle place;
    HWND parent;
};

/// All windows that the program asks for, in order.
class CreationLog {
  public:
    std::vector<Creation> all;

  private:
    using OnCreate = StandIn<"CreateWindowExW", decltype(CreateWindowExW)>;
    OnCreate onCreate_{[this](DWORD extended, LPCWSTR name, LPCWSTR text, DWORD style, int x, int y, int width,
                              int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter) {
        all.push_back({name, text, style, extended, {x, y, x + width, y + height}, parent});
        return OnCreate::Original(extended, name, text, style, x, y, width, height, parent, menu, instance, parameter);
    }};
};

TEST_F(CreationTest, Window_Created_HasItsClassStyleTitleAndPlace) {
    Open();
    EXPECT_EQ(ClassOf(Main()), kMainClass);
    EXPECT_EQ(TextOf(Main()), L"Velmora Pine Relay");
    EXPECT_EQ(StyleOf(Main()) & ~static_cast<DWORD>(WS_CLIPSIBLINGS),
              WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN | WS_VISIBLE);
    EXPECT_NE(ExtendedStyleOf(Main()) & WS_EX_TOPMOST, 0u);
    EXPECT_EQ(PlaceOnScreen(Main()), (Rectangle{565, 512, 565 + 470, 512 + 176}));
    EXPECT_EQ(status_.ownerThreadId, GetCurrentThreadId());
    EXPECT_EQ(status_.dpi, 96);
}

TEST_F(CreationTest, Classes_Registered_HaveCursorIconAndBrushOfTheirOwn) {
    Open();
    WNDCLASSW main = {};
    ASSERT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), kMainClass, &main));
    EXPECT_EQ(main.style, 0u);
    EXPECT_NE(main.hIcon, nullptr);
    EXPECT_EQ(main.hCursor, LoadCursorW(nullptr, IDC_ARROW));
    EXPECT_NE(main.hbrBackground, nullptr);
    WNDCLASSW panel = {};
    ASSERT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"VPRReleaseNotesPanel", &panel));
    EXPECT_EQ(panel.style, 0u);
    EXPECT_EQ(panel.hIcon, nullptr);
    EXPECT_EQ(panel.hCursor, LoadCursorW(nullptr, IDC_ARROW));
    EXPECT_NE(panel.hbrBackground, nullptr);
    EXPECT_NE(panel.hbrBackground, main.hbrBackground);
}

TEST_F(CreationTest, Controls_Created_StandInTheirOrderWithClassStyleIdAndText) {
    Open();
    for (const ExpectedControl& expected : kExpected) {
        SCOPED_TRACE(static_cast<int>(expected.control));
        const HWND child = At(expected.control);
        EXPECT_EQ(ClassOf(child), expected.className);
        EXPECT_EQ(LastingStyle(child), expected.style);
        EXPECT_EQ(GetDlgCtrlID(child), expected.id);
        std::wstring text = expected.text != nullptr ? expected.text : Text(expected.textId);
        if (text == L"<version>") text = Text(TextId::CurrentVersionPrefix) + kInstalled;
        EXPECT_EQ(Narrow(TextOf(child)), Narrow(text));
        EXPECT_TRUE(IsWindowEnabled(child));
    }
}

TEST_F(CreationTest, Controls_Created_StandInTheOrderOfTabAndTheFooterBelowAll) {
    Open();
    std::vector<HWND> expected;
    for (const ExpectedControl& control : kExpected) {
        if (control.control != Control::footer) expected.push_back(At(control.control));
    }
    expected.push_back(At(Control::footer));
    std::vector<HWND> children;
    for (HWND child = GetWindow(Main(), GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        children.push_back(child);
    }
    EXPECT_EQ(children, expected);
}

TEST_F(CreationTest, Footer_DrawnAnew_LeavesReconnectAsItIs) {
    OpenTransfer();
    Tell(Receiving());
    Settle();
    const Picture before = PictureOf(At(Control::reconnectButton));
    EXPECT_EQ(before.At(8, 8), launcher_ui::kOrdinaryButton.idle);
    Tell(Receiving(2097152.0));
    InvalidateRect(At(Control::footer), nullptr, TRUE);
    Settle();
    EXPECT_EQ(PictureOf(At(Control::reconnectButton)), before);
}

TEST_F(CreationTest, Controls_Created_AreMadeWithoutSizeAndWithTheirFirstTexts) {
    CreationLog log;
    Open();
    ASSERT_EQ(log.all.size(), std::size(kExpected) + 1);
    EXPECT_EQ(log.all[0].extendedStyle, static_cast<DWORD>(WS_EX_TOPMOST));
    EXPECT_EQ(log.all[0].style, WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN);
    EXPECT_EQ(log.all[0].parent, nullptr);
    EXPECT_EQ(log.all[0].place, (Rectangle{565, 512, 565 + 470, 512 + 176}));
    for (std::size_t index = 1; index < log.all.size(); ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(log.all[index].place, Rectangle{});
        EXPECT_EQ(log.all[index].extendedStyle, 0u);
        EXPECT_EQ(log.all[index].parent, Main());
        EXPECT_EQ(log.all[index].style, kExpected[index - 1].style);
        EXPECT_STRCASEEQ(Narrow(log.all[index].className).c_str(), Narrow(kExpected[index - 1].className).c_str());
    }
    EXPECT_EQ(log.all[3].text, Text(TextId::PreparingCheck));
    EXPECT_EQ(log.all[4].text, L"");
    EXPECT_EQ(log.all[17].text, Text(TextId::Reconnect));
}

TEST_F(CreationTest, VersionLine_WithoutVersion_SaysUnknown) {
    Open(SW_SHOWNORMAL, L"");
    EXPECT_EQ(TextOf(At(Control::versionLine)), Text(TextId::CurrentVersionPrefix) + Text(TextId::UnknownVersion));
}

TEST_F(CreationTest, Controls_Created_HaveTheirFonts) {
    Open();
    for (int index = 0; index < launcher_ui::kControlCount; ++index) {
        const Control control = ControlAt(index);
        if (control == Control::notesPanel) continue;  // draws its cards with two fonts of its own choice
        SCOPED_TRACE(index);
        const auto font = reinterpret_cast<HFONT>(SendMessageW(At(control), WM_GETFONT, 0, 0));
        EXPECT_NE(font, nullptr);
        EXPECT_EQ(font, status_.fonts.Get(launcher_ui::FontOf(control)));
        LOGFONTW description = {};
        ASSERT_NE(GetObjectW(font, sizeof description, &description), 0);
        const auto& spec = launcher_ui::kFonts[static_cast<int>(launcher_ui::FontOf(control))];
        EXPECT_EQ(description.lfHeight, -spec.height);
        EXPECT_EQ(description.lfWeight, spec.weight);
        EXPECT_STREQ(description.lfFaceName, L"Segoe UI");
        EXPECT_EQ(description.lfQuality, CLEARTYPE_QUALITY);
        EXPECT_EQ(description.lfItalic, 0);
    }
}

TEST_F(CreationTest, Controls_Created_StandInTheCompactView) {
    Open();
    for (int index = 0; index < launcher_ui::kControlCount; ++index) {
        const Control control = ControlAt(index);
        SCOPED_TRACE(index);
        const auto place = launcher_ui::PlaceOf(control, ViewMode::compact, false, 96);
        EXPECT_EQ(IsWindowVisible(At(control)) != FALSE, launcher_ui::IsPartOf(control, ViewMode::compact));
        if (place) {
            EXPECT_EQ(PlaceInParent(At(control)), *place);
        }
    }
}

TEST_F(CreationTest, Window_Created_ShowsTheCheckAndABarInMotion) {
    Open();
    EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::CheckingForUpdates));
    EXPECT_TRUE(status_.model.progress.indeterminate);
    EXPECT_EQ(status_.model.progress.lastStage, Stage::Checking);
    EXPECT_EQ(PictureOf(Main()).At(2, 2), launcher_ui::colour::kBackground);
}

TEST_F(CreationTest, ShowCommand_Hide_LeavesTheWindowHidden) {
    Open(SW_HIDE);
    EXPECT_FALSE(IsWindowVisible(Main()));
    EXPECT_FALSE(status_.model.shown);
    EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::CheckingForUpdates));
}

TEST_F(CreationTest, ShowCommand_ShowNormal_ShowsAndActivates) {
    Open(SW_SHOWNORMAL);
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_EQ(GetActiveWindow(), Main());
    EXPECT_TRUE(status_.model.shown);
}

TEST_F(CreationTest, ShowCommand_ShowNoActivate_ShowsWithoutTakingTheActivation) {
    const OtherWindow other;
    other.Activate();
    Open(SW_SHOWNOACTIVATE);
    EXPECT_TRUE(IsWindowVisible(Main()));
    EXPECT_EQ(GetActiveWindow(), other.Handle());
}

TEST_F(CreationTest, Window_Refused_GivesFalseAndLeavesNothing) {
    const GdiLedger ledger;
    {
        const StandIn<"CreateWindowExW", decltype(CreateWindowExW)> refuse([](auto...) { return nullptr; });
        EXPECT_FALSE(Create());
    }
    ExpectNothingLeft();
    EXPECT_EQ(ledger.Open(), "");
    EXPECT_TRUE(OwnWindows().empty());
}

TEST_F(CreationTest, Button_Refused_GivesFalseAndLeavesNothing) {
    for (const Control button : kButtons) {
        SCOPED_TRACE(static_cast<int>(button));
        const GdiLedger ledger;
        int windows = 0;
        {
            using OnCreate = StandIn<"CreateWindowExW", decltype(CreateWindowExW)>;
            const OnCreate refuse([&](auto... all) -> HWND {
                return windows++ == 1 + static_cast<int>(button) ? nullptr : OnCreate::Original(all...);
            });
            EXPECT_FALSE(Create());
        }
        EXPECT_EQ(windows, 2 + static_cast<int>(button));
        ExpectNothingLeft();
        EXPECT_EQ(ledger.Open(), "");
        EXPECT_GT(ledger.Taken(), 0);
    }
}

TEST_F(CreationTest, Subclassing_Refused_GivesFalseAndLeavesNothing) {
    for (int refused = 0; refused < static_cast<int>(kButtons.size()); ++refused) {
        SCOPED_TRACE(refused);
        const GdiLedger ledger;
        int calls = 0;
        {
            using OnSubclass = StandIn<"SetWindowSubclass", decltype(SetWindowSubclass)>;
            const OnSubclass refuse(
                [&](auto... all) -> BOOL { return calls++ == refused ? FALSE : OnSubclass::Original(all...); });
            EXPECT_FALSE(Create());
        }
        EXPECT_EQ(calls, refused + 1);
        ExpectNothingLeft();
        EXPECT_EQ(ledger.Open(), "");
    }
}

TEST_F(CreationTest, Buttons_Created_AreSubclassedByNumberOne) {
    std::vector<UINT_PTR> ids;
    using OnSubclass = StandIn<"SetWindowSubclass", decltype(SetWindowSubclass)>;
    const OnSubclass watch([&](HWND window, SUBCLASSPROC procedure, UINT_PTR id, DWORD_PTR reference) {
        ids.push_back(id);
        return OnSubclass::Original(window, procedure, id, reference);
    });
    Open();
    EXPECT_EQ(ids, (std::vector<UINT_PTR>{1, 1, 1, 1, 1}));
}

TEST_F(CreationTest, Buttons_Destroyed_AreRidOfTheirSubclass) {
    Open();
    std::vector<HWND> expected;
    for (const Control button : kButtons) {
        expected.push_back(At(button));
    }
    std::vector<HWND> removed;
    using OnRemove = StandIn<"RemoveWindowSubclass", decltype(RemoveWindowSubclass)>;
    const OnRemove watch([&](HWND window, SUBCLASSPROC procedure, UINT_PTR id) {
        removed.push_back(window);
        EXPECT_EQ(id, 1u);
        return OnRemove::Original(window, procedure, id);
    });
    launcher_ui::DestroyStatusWindow(status_);
    std::sort(removed.begin(), removed.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(removed, expected);
}

/// A call that means one window means all of the desktop when it is given none.
TEST_F(CreationTest, OtherControl_Refused_IsDoneWithoutTouchingTheDesktop) {
    using OnInvalidate = StandIn<"InvalidateRect", decltype(InvalidateRect)>;
    const OnInvalidate invalidate([](HWND window, const RECT* area, BOOL erase) {
        EXPECT_NE(window, nullptr) << "InvalidateRect";
        return OnInvalidate::Original(window, area, erase);
    });
    using OnContext = StandIn<"GetDC", decltype(GetDC)>;
    const OnContext context([](HWND window) {
        EXPECT_NE(window, nullptr) << "GetDC";
        return OnContext::Original(window);
    });
    for (int index = 0; index < static_cast<int>(Control::notesLink); ++index) {
        const Control control = ControlAt(index);
        SCOPED_TRACE(index);
        int windows = 0;
        {
            using OnCreate = StandIn<"CreateWindowExW", decltype(CreateWindowExW)>;
            const OnCreate refuse([&](auto... all) -> HWND {
                return windows++ == 1 + static_cast<int>(control) ? nullptr : OnCreate::Original(all...);
            });
            EXPECT_TRUE(Create());
        }
        EXPECT_EQ(At(control), nullptr);
        Tell(Stage::Downloading, L"app.zip", 0, 1);
        launcher_ui::ShowFailure(status_, true, L"Why");
        Settle();
        DestroyStatusWindow(status_);
    }
}

// The frame.

struct FrameCall {
    HWND window;
    DWORD attribute;
    BOOL value;
    DWORD size;
    bool operator==(const FrameCall&) const = default;
};
std::vector<FrameCall> frameCalls;
DWORD refusedUpTo = 0;

HRESULT WINAPI NoteAttribute(HWND window, DWORD attribute, const void* value, DWORD size) {
    frameCalls.push_back({window, attribute, *static_cast<const BOOL*>(value), size});
    return frameCalls.size() <= refusedUpTo ? E_INVALIDARG : S_OK;
}

class FrameTest : public CreationTest {
  protected:
    FrameTest() { frameCalls.clear(); }

    void OpenWithRefusals(DWORD refusals) {
        refusedUpTo = refusals;
        using OnAddress = StandIn<"GetProcAddress", decltype(GetProcAddress)>;
        const OnAddress address([](HMODULE library, LPCSTR name) {
            return std::string(name) == "DwmSetWindowAttribute"
                       ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&NoteAttribute))
                       : OnAddress::Original(library, name);
        });
        Open();
    }
};

TEST_F(FrameTest, Attribute_Taken_IsSetOnce) {
    OpenWithRefusals(0);
    EXPECT_EQ(frameCalls, (std::vector<FrameCall>{{Main(), 20, TRUE, sizeof(BOOL)}}));
}

TEST_F(FrameTest, Attribute_Refused_IsTriedByItsOldNumber) {
    OpenWithRefusals(1);
    EXPECT_EQ(frameCalls, (std::vector<FrameCall>{{Main(), 20, TRUE, sizeof(BOOL)}, {Main(), 19, TRUE, sizeof(BOOL)}}));
}

TEST_F(FrameTest, Attribute_RefusedByBothNumbers_IsDoneWithout) {
    OpenWithRefusals(2);
    EXPECT_EQ(frameCalls.size(), 2u);
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_F(FrameTest, Attribute_AfterAChangeOfScale_IsNotSetAnew) {
    refusedUpTo = 0;
    OpenWithRefusals(0);
    const RECT place = {100, 100, 900, 400};
    SendMessageW(Main(), WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(&place));
    EXPECT_EQ(frameCalls.size(), 1u);
}

TEST_F(FrameTest, Library_Missing_IsDoneWithout) {
    std::vector<std::wstring> asked;
    const StandIn<"LoadLibraryW", decltype(LoadLibraryW)> missing([&](LPCWSTR name) -> HMODULE {
        asked.emplace_back(name);
        return nullptr;
    });
    Open();
    EXPECT_EQ(asked, (std::vector<std::wstring>{L"dwmapi.dll"}));
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_F(FrameTest, Function_Missing_IsDoneWithout) {
    const StandIn<"GetProcAddress", decltype(GetProcAddress)> missing([](auto...) { return nullptr; });
    Open();
    EXPECT_TRUE(IsWindowVisible(Main()));
}

// What is done without.

TEST_F(CreationTest, Icon_Missing_IsDoneWithoutInEveryView) {
    const StandIn<"LoadImageW", decltype(LoadImageW)> missing([](auto...) { return nullptr; });
    OpenPrompt();
    EXPECT_EQ(status_.icon.Get(), nullptr);
    EXPECT_EQ(PictureOf(Main()).At(60, 60), launcher_ui::colour::kBackground);
}

TEST_F(CreationTest, Icon_Found_IsDrawnWhereTheViewIsLarge) {
    OpenPrompt();
    EXPECT_NE(status_.icon.Get(), nullptr);
    const Picture picture = PictureOf(Main());
    int drawn = 0;
    for (int y = 48; y < 84; ++y) {
        for (int x = 52; x < 88; ++x)
            drawn += picture.At(x, y) != launcher_ui::colour::kBackground ? 1 : 0;
    }
    EXPECT_GT(drawn, 300);
}

TEST_F(CreationTest, Fonts_Missing_AreDoneWithoutInEveryView) {
    const StandIn<"CreateFontW", decltype(CreateFontW)> missing([](auto...) { return nullptr; });
    OpenPrompt();
    EXPECT_EQ(status_.fonts.Get(launcher_ui::FontRole::body), nullptr);
    EXPECT_GT(status_.notesLayout.contentHeight, 0);
    Tell(Stage::Downloading, L"app.zip", 0, 1);
    Settle();
    EXPECT_EQ(TextOf(At(Control::progressLine)), Text(TextId::Downloading));
}

TEST_F(CreationTest, Brushes_Missing_AreDoneWithout) {
    const StandIn<"CreateSolidBrush", decltype(CreateSolidBrush)> missing([](auto...) { return nullptr; });
    OpenPrompt();
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_F(CreationTest, Pens_Missing_AreDoneWithout) {
    const StandIn<"CreatePen", decltype(CreatePen)> missing([](auto...) { return nullptr; });
    OpenPrompt();
    MoveOnto(Control::updateButton);
    EXPECT_TRUE(IsWindowVisible(Main()));
}

TEST_F(CreationTest, ScrollBar_OfThePanel_GetsTheDarkTheme) {
    std::vector<std::pair<HWND, std::wstring>> themes;
    const StandIn<"SetWindowTheme", decltype(SetWindowTheme)> watch([&](HWND window, LPCWSTR theme, LPCWSTR) {
        themes.emplace_back(window, theme);
        return S_OK;
    });
    Open();
    ASSERT_EQ(themes.size(), 1u);
    EXPECT_EQ(themes[0].first, At(Control::notesPanel));
    EXPECT_EQ(themes[0].second, L"DarkMode_Explorer");
}

// The end.

TEST_F(CreationTest, Destruction_Repeated_IsHarmless) {
    Open();
    const HWND window = Main();
    DestroyStatusWindow(status_);
    EXPECT_FALSE(IsWindow(window));
    ExpectNothingLeft();
    DestroyStatusWindow(status_);
    ExpectNothingLeft();
}

TEST_F(CreationTest, Destruction_WithoutAWindow_IsHarmless) {
    DestroyStatusWindow(status_);
    ExpectNothingLeft();
}

TEST_F(CreationTest, Record_AtTheEndOfItsLife_DestroysItsWindow) {
    HWND window = nullptr;
    {
        StatusWindow status;
        ASSERT_TRUE(CreateStatusWindow(status, GetModuleHandleW(nullptr), kInstalled, SW_SHOWNORMAL));
        window = status.window;
        EXPECT_TRUE(IsWindow(window));
    }
    EXPECT_FALSE(IsWindow(window));
}

TEST_F(CreationTest, Window_DestroyedFromOutside_LeavesARecordThatIsHarmless) {
    OpenPrompt();
    DestroyWindow(Main());
    EXPECT_EQ(Main(), nullptr);
    Tell(Stage::Downloading);
    Tell(Receiving());
    launcher_ui::ShowFailure(status_, false, L"Why");
    launcher_ui::HoldFailureView(status_);
    launcher_ui::HideStatusWindow(status_);
    EXPECT_FALSE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
}

TEST_F(CreationTest, Notes_AfterTheDestruction_AreCleared) {
    OpenPrompt(LongNotes());
    launcher_ui::ScrollNotesTo(status_, 100);
    launcher_ui::DestroyStatusWindow(status_);
    EXPECT_TRUE(status_.noteCards.cards.empty());
    EXPECT_TRUE(status_.notesLayout.cards.empty());
    EXPECT_EQ(status_.scrollPosition, 0);
}

TEST_F(CreationTest, SecondWindow_AfterAFirst_WorksAsTheFirst) {
    OpenPrompt(LongNotes());
    launcher_ui::DestroyStatusWindow(status_);
    Open();
    EXPECT_EQ(status_.model.viewMode, ViewMode::compact);
    EXPECT_EQ(TextOf(At(Control::statusLine)), Text(TextId::CheckingForUpdates));
    EXPECT_EQ(PictureOf(Main()).At(2, 2), launcher_ui::colour::kBackground);
    EXPECT_TRUE(Until([&] { return status_.model.progress.marqueeTick > 0; }));
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes()));
    Settle();
    EXPECT_EQ(status_.noteCards.cards.size(), 3u);
    EXPECT_EQ(PictureOf(At(Control::notesPanel)).At(2, 200), launcher_ui::colour::kPanel);
}

/// Nothing that the first had been told counts for the second.
TEST_F(CreationTest, SecondWindow_AfterAFirstAtWork_StartsItsOwnTimersAndNotes) {
    OpenPrompt(LongNotes());
    Tell(Stage::Checking);
    ASSERT_TRUE(status_.shown.marqueeTimer);
    launcher_ui::DestroyStatusWindow(status_);
    Open();
    EXPECT_TRUE(Until([&] { return status_.model.progress.marqueeTick > 0; }));
    ASSERT_TRUE(launcher_ui::ShowPrompt(status_, kOffered, Notes(1)));
    EXPECT_EQ(status_.noteCards.cards.size(), 2u);
}

TEST_F(CreationTest, ManyWindows_OneAfterTheOther_GiveBackAllTheyTook) {
    const GdiLedger ledger;
    for (int round = 0; round < 10; ++round) {
        OpenPrompt(LongNotes());
        MoveOnto(Control::updateButton);
        Press(VK_NEXT);
        Tell(Stage::DownloadingBytes, L"app.zip", 20, 100);
        launcher_ui::ShowFailure(status_, true, L"Why");
        const RECT place = {100, 100, 1200, 900};
        SendMessageW(Main(), WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(&place));
        Settle();
        launcher_ui::DestroyStatusWindow(status_);
        MoveAway();
    }
    EXPECT_EQ(ledger.Open(), "");
    EXPECT_GT(ledger.Taken(), 1000);
    EXPECT_TRUE(OwnWindows().empty());
}

}  // namespace
}  // namespace window_tests
