#include "ui/notes_panel.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/stand_in.h"
#include "tests/window/window_fixture.h"

namespace window_tests {
namespace {

using launcher_ui::SetNotes;
using test_support::StandIn;

constexpr int kLine = 36;
constexpr int kNotch = 54;
constexpr int kPanelHeight = 290;
constexpr int kPage = kPanelHeight - kLine;

class NotesPanelTest : public WindowTest {
  protected:
    void OpenLong() {
        OpenPrompt(LongNotes());
        ASSERT_GT(Bottom(), 2 * kPage);
        SetFocus(Panel());
        Settle();
    }
    [[nodiscard]] HWND Panel() const { return At(Control::notesPanel); }
    [[nodiscard]] int Position() const { return status_.scrollPosition; }
    [[nodiscard]] int Bottom() const { return status_.notesLayout.contentHeight - kPanelHeight; }
    [[nodiscard]] SCROLLINFO ScrollBar() const {
        SCROLLINFO info = {};
        info.cbSize = sizeof info;
        info.fMask = SIF_ALL;
        GetScrollInfo(Panel(), SB_VERT, &info);
        return info;
    }
    void ScrollBarSays(int code) { SendMessageW(Panel(), WM_VSCROLL, static_cast<WPARAM>(code), 0); }
    [[nodiscard]] Picture PanelPicture() {
        Settle();
        return PictureOf(Panel());
    }
    [[nodiscard]] bool ShowsCue() { return PanelPicture().At(2, 100) == launcher_ui::colour::kPanelFocusCue; }
};

// Filling.

TEST_F(NotesPanelTest, Panel_Filled_StartsAtTheTopWithTheSummary) {
    OpenPrompt(LongNotes());
    EXPECT_EQ(Position(), 0);
    EXPECT_EQ(status_.noteCards.cards.size(), 13u);
    EXPECT_TRUE(status_.noteCards.hasSummaryCard);
    EXPECT_EQ(status_.notesLayout.cards[0].top, 14);
    EXPECT_EQ(status_.notesLayout.cards[0].left, 14);
    EXPECT_EQ(status_.notesLayout.cards[0].right, ClientSizeOf(Panel()).width - 14);
    EXPECT_EQ(status_.notesLayout.cards[0].Height(), 58);
    const Picture picture = PanelPicture();
    EXPECT_EQ(picture.At(2, 100), launcher_ui::colour::kPanel);
    EXPECT_EQ(picture.At(25, 20), launcher_ui::colour::kSummaryFill);
    EXPECT_EQ(picture.At(25, 88), launcher_ui::colour::kCardFill);
}

TEST_F(NotesPanelTest, Panel_FilledAnew_IsAtTheTopAgainAndPaintedAtOnce) {
    OpenLong();
    Press(VK_END);
    ASSERT_GT(Position(), 0);
    SetNotes(status_, LongNotes());
    EXPECT_EQ(Position(), 0);
    EXPECT_EQ(ScrollBar().nPos, 0);
    EXPECT_FALSE(GetUpdateRect(Panel(), nullptr, FALSE));
}

TEST_F(NotesPanelTest, Panel_WithoutNotes_ShowsOneOrdinaryCard) {
    OpenPrompt(ReleaseNotes{});
    ASSERT_EQ(status_.noteCards.cards.size(), 1u);
    EXPECT_EQ(status_.noteCards.cards[0].text, Text(TextId::NotesUnavailable));
    EXPECT_EQ(PanelPicture().At(25, 20), launcher_ui::colour::kCardFill);
}

TEST_F(NotesPanelTest, Text_ForThoseWhoDoNotSee_HoldsHeadingAndCards) {
    OpenPrompt(Notes(1));
    EXPECT_EQ(Narrow(TextOf(Panel())),
              Narrow(Text(TextId::WhatsNew) + L"\r\n\r\nWhat this release is about\r\n\r\nChange number 1"));
    Tell(Stage::Downloading, L"app.zip", 0, 1);
    EXPECT_NE(TextOf(Panel()), L"");
}

TEST_F(NotesPanelTest, EmphasisedCard_HasItsOwnLookByExactText) {
    ReleaseNotes notes = Notes(2);
    notes.emphasizedItems = {L"Change number 1", L"CHANGE NUMBER 2"};
    OpenPrompt(notes);
    const Picture picture = PanelPicture();
    EXPECT_EQ(picture.At(25, 88), launcher_ui::colour::kEmphasisFill);
    EXPECT_EQ(picture.At(25, 156), launcher_ui::colour::kCardFill);
}

TEST_F(NotesPanelTest, ScrollBar_KnowsContentPageAndPosition) {
    OpenLong();
    Press(VK_NEXT);
    const SCROLLINFO info = ScrollBar();
    EXPECT_EQ(info.nMin, 0);
    EXPECT_EQ(info.nMax, status_.notesLayout.contentHeight - 1);
    EXPECT_EQ(info.nPage, static_cast<UINT>(kPanelHeight));
    EXPECT_EQ(info.nPos, kPage);
}

// The wheel.

TEST_F(NotesPanelTest, Wheel_MovesByWholeNotches) {
    OpenLong();
    MoveOnto(Panel());
    Press(VK_NEXT);
    struct Turn {
        int delta;
        int moved;
    };
    for (const Turn turn :
         {Turn{-120, kNotch}, Turn{120, -kNotch}, Turn{-240, 2 * kNotch}, Turn{240, -2 * kNotch}, Turn{60, 0},
          Turn{-60, 0}, Turn{119, 0}, Turn{-119, 0}, Turn{180, -kNotch}, Turn{-239, kNotch}}) {
        SCOPED_TRACE(turn.delta);
        const int before = Position();
        Wheel(turn.delta);
        EXPECT_EQ(Position(), before + turn.moved);
        EXPECT_EQ(ScrollBar().nPos, Position());
    }
}

TEST_F(NotesPanelTest, Wheel_AtTheEnds_GoesNoFurther) {
    OpenLong();
    MoveOnto(Panel());
    Wheel(120);
    EXPECT_EQ(Position(), 0);
    Press(VK_END);
    Wheel(-1200);
    EXPECT_EQ(Position(), Bottom());
    Wheel(32760 / 120 * 120);
    EXPECT_EQ(Position(), 0);
}

// Keys.

TEST_F(NotesPanelTest, Keys_MoveByLinePageAndToTheEnds) {
    OpenLong();
    struct Step {
        WORD key;
        int position;
    };
    const int bottom = Bottom();
    for (const Step step :
         {Step{VK_DOWN, kLine}, Step{VK_DOWN, 2 * kLine}, Step{VK_UP, kLine}, Step{VK_NEXT, kLine + kPage},
          Step{VK_PRIOR, kLine}, Step{VK_PRIOR, 0}, Step{VK_UP, 0}, Step{VK_END, bottom}, Step{VK_DOWN, bottom},
          Step{VK_NEXT, bottom}, Step{VK_UP, bottom - kLine}, Step{VK_HOME, 0}}) {
        SCOPED_TRACE(step.key);
        Press(step.key);
        EXPECT_EQ(Position(), step.position);
        EXPECT_EQ(ScrollBar().nPos, step.position);
        EXPECT_TRUE(HasFocus(Control::notesPanel));
    }
}

TEST_F(NotesPanelTest, OtherKeys_MoveNothing) {
    OpenLong();
    Press(VK_NEXT);
    for (const WORD key : std::vector<WORD>{VK_LEFT, VK_RIGHT, VK_SPACE, 'A', VK_F5, VK_BACK}) {
        Press(key);
        EXPECT_EQ(Position(), kPage) << key;
    }
    EXPECT_TRUE(HasFocus(Control::notesPanel));
}

TEST_F(NotesPanelTest, Keys_WithTheFocusElsewhere_MoveNothing) {
    OpenPrompt(LongNotes());
    Press(VK_NEXT);
    Press(VK_END);
    EXPECT_EQ(Position(), 0);
}

// The scroll bar.

TEST_F(NotesPanelTest, ScrollBarMessages_MoveByLinePageAndToTheEnds) {
    OpenLong();
    struct Step {
        int code;
        int position;
    };
    const int bottom = Bottom();
    for (const Step step :
         {Step{SB_LINEDOWN, kLine}, Step{SB_LINEUP, 0}, Step{SB_PAGEDOWN, kPage}, Step{SB_PAGEUP, 0},
          Step{SB_BOTTOM, bottom}, Step{SB_ENDSCROLL, bottom}, Step{SB_LINEUP, bottom - kLine}, Step{SB_TOP, 0}}) {
        SCOPED_TRACE(step.code);
        ScrollBarSays(step.code);
        EXPECT_EQ(Position(), step.position);
    }
}

TEST_F(NotesPanelTest, Thumb_BeyondSixteenBits_IsFollowed) {
    OpenPrompt();
    SetNotes(status_, Notes(1500));
    ASSERT_GT(Bottom(), 0x10000 + 20000);
    int wanted = 0;
    UINT mask = 0;
    {
        using OnInfo = StandIn<"GetScrollInfo", decltype(GetScrollInfo)>;
        const OnInfo track([&](HWND window, INT bar, LPSCROLLINFO info) {
            mask = info->fMask;
            const BOOL known = OnInfo::Original(window, bar, info);
            info->nTrackPos = wanted;
            return known;
        });
        for (const int code : {SB_THUMBTRACK, SB_THUMBPOSITION}) {
            for (const int place : {90000 - code, 70000 + code, 300 + code, 0}) {
                wanted = place;
                SendMessageW(Panel(), WM_VSCROLL, MAKEWPARAM(code, place & 0xFFFF), 0);
                EXPECT_EQ(Position(), place);
            }
        }
    }
    EXPECT_EQ(mask, static_cast<UINT>(SIF_TRACKPOS));
    EXPECT_EQ(ScrollBar().nPos, 0);
}

TEST_F(NotesPanelTest, Thumb_WhosePlaceIsUnknown_MovesNothing) {
    OpenLong();
    Press(VK_NEXT);
    const StandIn<"GetScrollInfo", decltype(GetScrollInfo)> refuse([](auto...) { return FALSE; });
    SendMessageW(Panel(), WM_VSCROLL, MAKEWPARAM(SB_THUMBTRACK, 100), 0);
    EXPECT_EQ(Position(), kPage);
}

TEST_F(NotesPanelTest, Thumb_DraggedByThePointer_TakesTheContentAlong) {
    OpenLong();
    const launcher_ui::Rectangle place = PlaceOnScreen(Panel());
    const int x = place.right - 5;
    Drag({x, place.top + 30}, {x, place.top + 130});
    EXPECT_GT(Position(), kLine);
    EXPECT_EQ(ScrollBar().nPos, Position());
    Press(VK_HOME);
    Drag({x, place.top + 30}, {x, place.bottom - 3});
    EXPECT_EQ(Position(), Bottom());
}

TEST_F(NotesPanelTest, ScrollBar_PressedByThePointer_MovesByALine) {
    OpenLong();
    const launcher_ui::Rectangle place = PlaceOnScreen(Panel());
    const launcher_ui::Point arrow = {place.right - 5, place.bottom - 5};
    Drag(arrow, arrow);
    EXPECT_EQ(Position(), kLine);
}

// Content that fits, sizes that change.

TEST_F(NotesPanelTest, Content_ShorterThanThePanel_MovesByNothing) {
    OpenPrompt(Notes(1));
    ASSERT_LT(status_.notesLayout.contentHeight, kPanelHeight);
    SetFocus(Panel());
    MoveOnto(Panel());
    const Picture before = PanelPicture();
    for (const WORD key : std::vector<WORD>{VK_NEXT, VK_END, VK_DOWN, VK_UP, VK_PRIOR, VK_HOME})
        Press(key);
    Wheel(-120);
    Wheel(120);
    for (const int code : {SB_LINEDOWN, SB_PAGEDOWN, SB_BOTTOM, SB_TOP})
        ScrollBarSays(code);
    EXPECT_EQ(Position(), 0);
    EXPECT_EQ(PanelPicture(), before);
}

TEST_F(NotesPanelTest, Size_Changed_KeepsThePositionInTheNewRange) {
    OpenLong();
    Press(VK_END);
    const int before = Position();
    SetWindowPos(Panel(), nullptr, 0, 0, 654, 500, SWP_NOMOVE | SWP_NOZORDER);
    EXPECT_LT(Position(), before);
    EXPECT_EQ(Position(), status_.notesLayout.contentHeight - 500);
    EXPECT_EQ(ScrollBar().nPos, Position());
    EXPECT_EQ(ScrollBar().nPage, 500u);
    SetWindowPos(Panel(), nullptr, 0, 0, 654, 4000, SWP_NOMOVE | SWP_NOZORDER);
    EXPECT_EQ(Position(), 0);
}

TEST_F(NotesPanelTest, Width_Changed_BreaksTheTextAnew) {
    ReleaseNotes notes = Notes(1);
    notes.summary = std::wstring(300, L'w');
    for (std::size_t at = 5; at < notes.summary.size(); at += 6)
        notes.summary[at] = L' ';
    OpenPrompt(notes);
    const int before = status_.notesLayout.cards[0].Height();
    EXPECT_GT(before, 58);
    SetWindowPos(Panel(), nullptr, 0, 0, 300, kPanelHeight, SWP_NOMOVE | SWP_NOZORDER);
    EXPECT_GT(status_.notesLayout.cards[0].Height(), before);
}

// The focus.

TEST_F(NotesPanelTest, Click_TakesTheFocusWithoutCueAndTheFirstKeyShowsIt) {
    OpenPrompt(LongNotes());
    const FocusCueState cues(Main());
    MoveOnto(Panel());
    PressPointer();
    ReleasePointer();
    EXPECT_TRUE(HasFocus(Control::notesPanel));
    EXPECT_FALSE(ShowsCue());
    Press(VK_DOWN);
    EXPECT_TRUE(ShowsCue());
    EXPECT_FALSE(cues.Hidden());
    PressPointer();
    ReleasePointer();
    EXPECT_FALSE(ShowsCue());
    Press('Q');
    EXPECT_TRUE(ShowsCue());
}

TEST_F(NotesPanelTest, Tab_IntoThePanel_ShowsTheCueAndOutOfItHidesIt) {
    OpenPrompt(LongNotes());
    SetFocus(At(Control::laterButton));
    EXPECT_FALSE(ShowsCue());
    Press(VK_TAB);
    ASSERT_TRUE(HasFocus(Control::notesPanel));
    EXPECT_TRUE(ShowsCue());
    Press(VK_TAB);
    EXPECT_FALSE(ShowsCue());
}

TEST_F(NotesPanelTest, PageDownHomeAndAClick_GiveBackTheFirstPicture) {
    OpenPrompt(LongNotes());
    const FocusCueState cues(Main());
    const Picture first = PanelPicture();
    SetFocus(Panel());
    EXPECT_NE(PanelPicture(), first);
    Press(VK_NEXT);
    const Picture below = PanelPicture();
    EXPECT_NE(below, first);
    Press(VK_HOME);
    MoveOnto(Panel());
    PressPointer();
    ReleasePointer();
    EXPECT_EQ(Position(), 0);
    EXPECT_EQ(PanelPicture(), first);
}

// Painting.

TEST_F(NotesPanelTest, Buffer_Missing_DrawsTheSamePictureDirectly) {
    OpenLong();
    Press(VK_NEXT);
    const Picture buffered = PanelPicture();
    Press(VK_HOME);
    const Picture top = PanelPicture();
    ASSERT_NE(top, buffered);
    {
        const StandIn<"CreateCompatibleDC", decltype(CreateCompatibleDC)> missing([](auto...) { return nullptr; });
        Press(VK_NEXT);
        UpdateWindow(Panel());
    }
    EXPECT_EQ(PictureOf(Panel()), buffered);
    Press(VK_HOME);
    ASSERT_EQ(PanelPicture(), top);
    {
        const StandIn<"CreateCompatibleBitmap", decltype(CreateCompatibleBitmap)> missing(
            [](auto...) { return nullptr; });
        Press(VK_NEXT);
        UpdateWindow(Panel());
    }
    EXPECT_EQ(PictureOf(Panel()), buffered);
}

TEST_F(NotesPanelTest, Paint_OfABufferedPanel_CopiesOnce) {
    OpenLong();
    int copies = 0;
    using OnCopy = StandIn<"BitBlt", decltype(BitBlt)>;
    const OnCopy copy([&](auto... all) {
        ++copies;
        return OnCopy::Original(all...);
    });
    Press(VK_NEXT);
    EXPECT_EQ(copies, 1);
}

TEST_F(NotesPanelTest, Panel_WithoutAnySize_IsPaintedWithoutABuffer) {
    OpenLong();
    int buffers = 0;
    using OnBuffer = StandIn<"CreateCompatibleBitmap", decltype(CreateCompatibleBitmap)>;
    const OnBuffer buffer([&](auto... all) {
        ++buffers;
        return OnBuffer::Original(all...);
    });
    SetWindowPos(Panel(), nullptr, 0, 0, 654, 0, SWP_NOMOVE | SWP_NOZORDER);
    SendMessageW(Panel(), WM_PAINT, 0, 0);
    SetWindowPos(Panel(), nullptr, 0, 0, 0, 290, SWP_NOMOVE | SWP_NOZORDER);
    SendMessageW(Panel(), WM_PAINT, 0, 0);
    EXPECT_EQ(buffers, 0);
}

TEST_F(NotesPanelTest, DeviceContext_Missing_LeavesTheLayoutAsItWas) {
    OpenLong();
    Press(VK_NEXT);
    const auto cards = status_.notesLayout.cards;
    const int height = status_.notesLayout.contentHeight;
    {
        const StandIn<"GetDC", decltype(GetDC)> missing([](auto...) { return nullptr; });
        SetWindowPos(Panel(), nullptr, 0, 0, 300, 500, SWP_NOMOVE | SWP_NOZORDER);
        launcher_ui::LayoutNotes(status_);
    }
    EXPECT_EQ(status_.notesLayout.cards, cards);
    EXPECT_EQ(status_.notesLayout.contentHeight, height);
    EXPECT_EQ(Position(), kPage);
}

TEST_F(NotesPanelTest, Paint_DrawsOnlyTheCardsInViewAndMeasuresNothing) {
    OpenLong();
    int cards = 0;
    int measured = 0;
    using OnCard = StandIn<"RoundRect", decltype(RoundRect)>;
    using OnText = StandIn<"DrawTextW", decltype(DrawTextW)>;
    const OnCard card([&](auto... all) {
        ++cards;
        return OnCard::Original(all...);
    });
    const OnText text([&](HDC context, LPCWSTR words, int length, LPRECT place, UINT format) {
        measured += (format & DT_CALCRECT) != 0 ? 1 : 0;
        return OnText::Original(context, words, length, place, format);
    });
    Press(VK_NEXT);
    const auto& layout = status_.notesLayout.cards;
    const auto inView = std::count_if(layout.begin(), layout.end(), [&](const launcher_ui::Rectangle& one) {
        return one.bottom > Position() && one.top < Position() + kPanelHeight;
    });
    EXPECT_EQ(cards, inView);
    EXPECT_LT(cards, 7);
    EXPECT_EQ(measured, 0);
}

TEST_F(NotesPanelTest, Scrolling_ToWhereItIs_DrawsNothing) {
    OpenLong();
    Press(VK_NEXT);
    Settle();
    const MessageLog log(Panel());
    launcher_ui::ScrollNotesTo(status_, kPage);
    Settle();
    EXPECT_EQ(log.Count(WM_PAINT), 0);
    launcher_ui::ScrollNotesTo(status_, kPage + 1);
    Settle();
    EXPECT_EQ(log.Count(WM_PAINT), 1);
    EXPECT_EQ(log.Count(WM_ERASEBKGND), 0);
}

TEST_F(NotesPanelTest, Answers_OfThePanel_KeepArrowsAndBackground) {
    OpenPrompt();
    EXPECT_EQ(SendMessageW(Panel(), WM_GETDLGCODE, 0, 0), DLGC_WANTARROWS);
    // The class's own brush is for what Windows draws by itself; the panel never lets it erase.
    const HBRUSH white = static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH));
    const ULONG_PTR before = SetClassLongPtrW(Panel(), GCLP_HBRBACKGROUND, reinterpret_cast<LONG_PTR>(white));
    const HDC context = GetDC(Panel());
    EXPECT_EQ(SendMessageW(Panel(), WM_ERASEBKGND, reinterpret_cast<WPARAM>(context), 0), 1);
    EXPECT_EQ(GetPixel(context, 5, 5), launcher_ui::ToColorRef(launcher_ui::colour::kPanel));
    SetClassLongPtrW(Panel(), GCLP_HBRBACKGROUND, static_cast<LONG_PTR>(before));
    ReleaseDC(Panel(), context);
}

TEST_F(NotesPanelTest, FocusAndCueChanges_DrawThePanelAnew) {
    OpenPrompt(LongNotes());
    Settle();
    const MessageLog log(Panel());
    SetFocus(Panel());
    Settle();
    EXPECT_EQ(log.Count(WM_PAINT), 1);
    SetFocus(At(Control::updateButton));
    Settle();
    EXPECT_EQ(log.Count(WM_PAINT), 2);
    SendMessageW(Panel(), WM_UPDATEUISTATE, MAKEWPARAM(UIS_SET, UISF_HIDEFOCUS), 0);
    Settle();
    EXPECT_EQ(log.Count(WM_PAINT), 3);
}

/// What a window draws into a context that it is given.
Picture Printed(HWND window) {
    const HDC screen = GetDC(window);
    const HDC memory = CreateCompatibleDC(screen);
    Picture picture;
    picture.size = ClientSizeOf(window);
    const HBITMAP bitmap = CreateCompatibleBitmap(screen, picture.size.width, picture.size.height);
    const HGDIOBJ before = SelectObject(memory, bitmap);
    SendMessageW(window, WM_PRINTCLIENT, reinterpret_cast<WPARAM>(memory), PRF_CLIENT);
    for (int y = 0; y < picture.size.height; y += 8) {
        for (int x = 0; x < picture.size.width; x += 8) {
            const COLORREF colour = GetPixel(memory, x, y);
            picture.pixels.push_back(
                static_cast<std::uint32_t>(GetRValue(colour) << 16 | GetGValue(colour) << 8 | GetBValue(colour)));
        }
    }
    SelectObject(memory, before);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(window, screen);
    return picture;
}

std::vector<std::uint32_t> EveryEighth(const Picture& picture) {
    std::vector<std::uint32_t> pixels;
    for (int y = 0; y < picture.size.height; y += 8) {
        for (int x = 0; x < picture.size.width; x += 8)
            pixels.push_back(picture.At(x, y));
    }
    return pixels;
}

TEST_F(NotesPanelTest, Print_IntoAContext_GivesThePictureOfTheScreen) {
    OpenLong();
    Press(VK_NEXT);
    EXPECT_EQ(Printed(Panel()).pixels, EveryEighth(PanelPicture()));
}

TEST_F(NotesPanelTest, Print_OfTheWindow_GivesItsOwnArea) {
    OpenPrompt();
    ShowWindow(Panel(), SW_HIDE);
    Settle();
    const Picture printed = Printed(Main());
    const std::vector<std::uint32_t> screen = EveryEighth(PictureOf(Main()));
    const std::size_t columns = static_cast<std::size_t>((ClientSizeOf(Main()).width + 7) / 8);
    // The icon and the rule; no child is drawn there.
    for (const auto& [x, y] : {std::pair{56u, 56u}, std::pair{64u, 64u}, std::pair{80u, 72u}, std::pair{104u, 128u}}) {
        EXPECT_EQ(printed.pixels[y / 8 * columns + x / 8], screen[y / 8 * columns + x / 8]);
    }
    EXPECT_NE(printed.pixels[64 / 8 * columns + 64 / 8], launcher_ui::colour::kBackground);
}

}  // namespace
}  // namespace window_tests
