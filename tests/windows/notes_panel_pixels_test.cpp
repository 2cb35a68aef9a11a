#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/stand_in.h"
#include "tests/windows/window_views_fixture.h"
#include "ui/notes_panel.h"
#include "ui/painting.h"

// What the notes panel looks like: its cards at every scale and position, its focus bar, and how it gets to the screen.

namespace launcher_ui {
namespace {

using launcher_update::ReleaseNotes;
using test_support::Difference;
using test_support::DrawFilled;
using test_support::DrawRounded;
using test_support::DrawWords;
using test_support::FocusCues;
using test_support::InkOf;
using test_support::InsideIn;
using test_support::kUnpainted;
using test_support::kWindowScales;
using test_support::MeasureWords;
using test_support::Open;
using test_support::Picture;
using test_support::PictureOfOne;
using test_support::Pixel;
using test_support::PlaceIn;
using test_support::Px;
using test_support::ScaledWindow;
using test_support::StandIn;
using test_support::ViewNamed;
using test_support::WindowFont;

constexpr Pixel kPanel = 0x0B1118;
constexpr UINT kCardText = DT_WORDBREAK | DT_NOPREFIX | DT_EDITCONTROL;

struct Look {
    Pixel fill;
    Pixel edge;
    Pixel text;
    int weight;
};
constexpr Look kEmphasised = {0x182B38, 0x41708E, 0xF4F7FA, 600};
constexpr Look kSummary = {0x13212D, 0x2F4456, 0xCFDAE5, 400};
constexpr Look kOrdinary = {0x111B25, 0x2F4456, 0xA9B4C2, 400};

struct ExpectedCard {
    std::wstring text;
    Look look;
};

const std::wstring kLong =
    L"A lost connection is found again & the transfer goes on where it stopped, also after the computer has slept for "
    L"a night, and also where the server has forgotten the transfer in the meantime and begins it anew by itself.";
const std::wstring kUnbroken = std::wstring(150, L'W');

/// Notes with one card of every look, one of several lines and one without a place to break.
ReleaseNotes AllLooks() {
    ReleaseNotes notes;
    notes.summary = L"A calmer release.";
    notes.highlights = {L"Less noise at start.", kLong, L"less noise at start.", kUnbroken};
    notes.emphasizedItems = {L"Less noise at start."};
    return notes;
}

std::vector<ExpectedCard> AllLooksAsCards() {
    return {{L"A calmer release.", kSummary},
            {L"Less noise at start.", kEmphasised},
            {kLong, kOrdinary},
            {L"less noise at start.", kOrdinary},
            {kUnbroken, kOrdinary}};
}

void Fill(StatusWindow& status, const ReleaseNotes& notes) {
    Open(status, ViewNamed("prompt"));
    SetNotes(status, notes);
}

/// Where the cards stand in the content: the rules of the stack, calculated anew.
std::vector<Rectangle> ExpectedPlaces(const std::vector<ExpectedCard>& cards, int clientWidth, int dpi) {
    std::vector<Rectangle> places;
    int top = Px(14, dpi);
    for (const ExpectedCard& card : cards) {
        const WindowFont font(Px(14, dpi), card.look.weight);
        const int textWidth = clientWidth - 2 * Px(14, dpi) - 2 * Px(18, dpi);
        const int textHeight = MeasureWords(font.Get(), card.text, textWidth, kCardText).height;
        const int height = std::max(Px(58, dpi), textHeight + 2 * Px(14, dpi));
        places.push_back({Px(14, dpi), top, clientWidth - Px(14, dpi), top + height});
        top += height + Px(10, dpi);
    }
    return places;
}

Rectangle Moved(const Rectangle& place, int down) {
    return {place.left, place.top + down, place.right, place.bottom + down};
}

void DrawExpectedPanel(const Picture& picture, const std::vector<ExpectedCard>& cards, int scroll, int dpi) {
    DrawFilled(picture, picture.Area(), kPanel);
    const std::vector<Rectangle> places = ExpectedPlaces(cards, picture.Area().right, dpi);
    for (std::size_t index = 0; index < cards.size(); ++index) {
        const Look& look = cards[index].look;
        const Rectangle card = Moved(places[index], -scroll);
        const WindowFont font(Px(14, dpi), look.weight);
        DrawRounded(picture, card, {look.fill, look.edge, std::max(1, Px(1, dpi))}, Px(8, dpi));
        const Rectangle inside = {card.left + Px(18, dpi), card.top + Px(14, dpi), card.right - Px(18, dpi),
                                  card.bottom - Px(14, dpi)};
        DrawWords(picture, font, cards[index].text, inside, look.text, kCardText);
    }
}

TEST(NotesPanelPixels, CardsOfEveryLook_AreAsTheyMustBeAtEveryPosition) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Fill(window.status, AllLooks());
        const int content = window.status.notesLayout.contentHeight;
        for (const int position : {0, 1, Px(36, dpi), content / 3, content}) {
            ScrollNotesTo(window.status, position);
            const Picture actual = PictureOfOne(window.status.At(Control::notesPanel));
            const Picture expected(actual.Area().right, actual.Area().bottom);
            DrawExpectedPanel(expected, AllLooksAsCards(), std::min(position, content - actual.Area().bottom), dpi);
            EXPECT_EQ(Difference(actual, expected), "") << position << " at " << dpi;
        }
    }
}

int HeightOf(const std::wstring& text, int weight, int width, int dpi) {
    const WindowFont font(Px(14, dpi), weight);
    return MeasureWords(font.Get(), text, width, kCardText).height;
}

/// A text that takes a line more in bolder letters.
std::wstring TextAtTheBreak(int width, int dpi) {
    std::wstring text = kLong;
    for (int words = 0; words < 200; ++words) {
        if (HeightOf(text, 600, width, dpi) != HeightOf(text, 400, width, dpi)) return text;
        text += L" ab";
    }
    ADD_FAILURE() << "bolder letters take no more room";
    return text;
}

TEST(NotesPanelPixels, EmphasisedCardOfSeveralLines_IsAsHighAsItsBolderText) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Open(window.status, ViewNamed("prompt"));
        const int width = PictureOfOne(window.status.At(Control::notesPanel)).Area().right;
        const std::wstring text = TextAtTheBreak(width - 2 * (Px(14, dpi) + Px(18, dpi)), dpi);
        ReleaseNotes notes;
        notes.highlights = {text};
        notes.emphasizedItems = {text};
        Fill(window.status, notes);
        const Picture actual = PictureOfOne(window.status.At(Control::notesPanel));
        const Picture expected(actual.Area().right, actual.Area().bottom);
        DrawExpectedPanel(expected, {{text, kEmphasised}}, 0, dpi);
        EXPECT_EQ(Difference(actual, expected), "") << dpi;
    }
}

TEST(NotesPanelPixels, NotesWithoutSummary_HaveNoSummaryCard) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    ReleaseNotes notes;
    notes.highlights = {L"First.", L"Second."};
    Fill(window.status, notes);
    const Picture actual = PictureOfOne(window.status.At(Control::notesPanel));
    const Picture expected(actual.Area().right, actual.Area().bottom);
    DrawExpectedPanel(expected, {{L"First.", kOrdinary}, {L"Second.", kOrdinary}}, 0, 96);
    EXPECT_EQ(Difference(actual, expected), "");
}

TEST(NotesPanelPixels, EmphasisedSummary_LooksEmphasised) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    ReleaseNotes notes;
    notes.summary = L"Urgent.";
    notes.highlights = {L"Second."};
    notes.emphasizedItems = {L"Urgent."};
    Fill(window.status, notes);
    const Picture actual = PictureOfOne(window.status.At(Control::notesPanel));
    const Picture expected(actual.Area().right, actual.Area().bottom);
    DrawExpectedPanel(expected, {{L"Urgent.", kEmphasised}, {L"Second.", kOrdinary}}, 0, 96);
    EXPECT_EQ(Difference(actual, expected), "");
}

TEST(NotesPanelPixels, NoNotes_SaySoOnOneOrdinaryCard) {
    ScaledWindow window(144);
    ASSERT_TRUE(window.created);
    Fill(window.status, {});
    const Picture actual = PictureOfOne(window.status.At(Control::notesPanel));
    const Picture expected(actual.Area().right, actual.Area().bottom);
    DrawExpectedPanel(expected, {{L"Release notes are not available for this version.", kOrdinary}}, 0, 144);
    EXPECT_EQ(Difference(actual, expected), "");
}

/// The pieces looked at one by one, where a line is one pixel thick.
TEST(NotesPanelPixels, OneLineCards_StandAtTheirPixels) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));  // three cards, one line each; the stack needs no scroll bar
    const Picture picture = PictureOfOne(window.status.At(Control::notesPanel));
    ASSERT_EQ(picture.Area(), (Rectangle{0, 0, 654, 290}));
    const Rectangle summary = {14, 14, 640, 72};
    const Rectangle emphasised = {14, 82, 640, 140};
    const Rectangle ordinary = {14, 150, 640, 208};
    EXPECT_EQ(picture.BoundsOf(picture.Area(), 0x41708E), emphasised);
    EXPECT_EQ(picture.BoundsOf({0, 0, 654, 75}, 0x2F4456), summary);
    EXPECT_EQ(picture.BoundsOf({0, 145, 654, 290}, 0x2F4456), ordinary);
    for (const Rectangle& card : {summary, emphasised, ordinary}) {
        for (const int x : {card.left, card.right - 1}) {
            for (const int y : {card.top, card.bottom - 1}) {
                EXPECT_EQ(picture.At(x, y), kPanel) << "the corners are round";
            }
        }
    }
    const std::pair<Rectangle, Look> looks[] = {{summary, kSummary}, {emphasised, kEmphasised}, {ordinary, kOrdinary}};
    for (const auto& [card, look] : looks) {
        EXPECT_EQ(picture.At(card.left + 5, card.top + 5), look.fill);
        const Rectangle inside = {card.left + 2, card.top + 2, card.right - 2, card.bottom - 2};
        EXPECT_EQ(InkOf(picture, inside), look.text);
        const auto words = picture.BoundsOfOther(inside, look.fill);
        ASSERT_TRUE(words.has_value());
        EXPECT_GE(words->left, card.left + 18);
        EXPECT_LE(words->left, card.left + 21);
        EXPECT_GE(words->top, card.top + 14);
        EXPECT_LE(words->bottom, card.bottom - 14);
    }
}

TEST(NotesPanelPixels, EveryPixel_IsThePanels) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const ReleaseNotes& notes : {ReleaseNotes(), AllLooks()}) {
            Fill(window.status, notes);
            const Picture picture = PictureOfOne(window.status.At(Control::notesPanel));
            EXPECT_EQ(picture.Count(picture.Area(), kUnpainted), 0u) << dpi;
        }
    }
}

TEST(NotesPanelPixels, MoreThanFits_TakesRoomForAScrollBarAndLayOutAnew) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Fill(window.status, {});
        const HWND panel = window.status.At(Control::notesPanel);
        const Rectangle place = PlaceIn(window.status.window, panel);
        EXPECT_EQ(InsideIn(window.status.window, panel), place) << dpi;
        SetNotes(window.status, AllLooks());
        const Rectangle inside = InsideIn(window.status.window, panel);
        EXPECT_EQ(place.right - inside.right, GetSystemMetrics(SM_CXVSCROLL)) << dpi;
        EXPECT_EQ(window.status.notesLayout.cards.front().right, inside.Width() - Px(14, dpi)) << dpi;
        SetNotes(window.status, {});
        EXPECT_EQ(InsideIn(window.status.window, panel), place) << dpi;
    }
}

// --- Focus ---

using OnGetFocus = StandIn<"GetFocus", decltype(GetFocus)>;

struct FocusCase {
    const char* name;
    bool focused;
    LRESULT hidden;
    bool cue;
};

constexpr FocusCase kFocusCases[] = {
    {"focus elsewhere", false, 0, false},
    {"focus by a key", true, 0, true},
    {"focus by a click", true, UISF_HIDEFOCUS, false},
    {"only accelerators hidden", true, UISF_HIDEACCEL, true},
};

TEST(NotesPanelPixels, Focus_IsShownByABarAtTheLeftEdge) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Open(window.status, ViewNamed("prompt"));
        const HWND panel = window.status.At(Control::notesPanel);
        for (const FocusCase& row : kFocusCases) {
            const OnGetFocus focus([&] { return row.focused ? panel : window.status.At(Control::laterButton); });
            const FocusCues cues(panel, row.hidden);
            const Picture picture = PictureOfOne(panel);
            const Rectangle bar = {Px(2, dpi), Px(2, dpi), Px(2, dpi) + Px(2, dpi), picture.Area().bottom - Px(2, dpi)};
            const auto expected = row.cue ? std::optional(bar) : std::nullopt;
            EXPECT_EQ(picture.BoundsOf(picture.Area(), 0x2997FF), expected) << row.name << " at " << dpi;
            if (!row.cue) continue;
            EXPECT_EQ(picture.Count(bar, 0x2997FF), static_cast<std::size_t>(bar.Width() * bar.Height())) << row.name;
        }
    }
}

// --- Only what is in sight ---

using OnRoundRect = StandIn<"RoundRect", decltype(RoundRect)>;
using OnDrawText = StandIn<"DrawTextW", decltype(DrawTextW)>;

NotesLayout StackOf(std::vector<Rectangle> cards) {
    NotesLayout layout;
    layout.contentHeight = cards.back().bottom + 10;
    layout.cards = std::move(cards);
    return layout;
}

std::vector<int> TopsDrawnAt(int scroll) {
    const NoteCards notes = {{{L"a", false}, {L"b", true}, {L"c", false}}, false};
    const NotesLayout layout = StackOf({{10, 10, 190, 60}, {10, 70, 190, 120}, {10, 130, 190, 180}});
    FontSet fonts;
    fonts.Build(96);
    std::vector<int> tops;
    int texts = 0;
    const OnRoundRect rounded([&](HDC context, int left, int top, int right, int bottom, int width, int height) {
        tops.push_back(top);
        return OnRoundRect::Original(context, left, top, right, bottom, width, height);
    });
    const OnDrawText words([&](HDC context, LPCWSTR text, int length, LPRECT place, UINT format) {
        ++texts;
        return OnDrawText::Original(context, text, length, place, format);
    });
    const Picture picture(200, 100);
    PaintNotes(picture.Context(), {0, 0, 200, 100}, notes, layout, scroll, fonts, false, 96);
    EXPECT_EQ(texts, static_cast<int>(tops.size())) << "a card is drawn with its text or not at all";
    EXPECT_EQ(picture.Count(picture.Area(), kUnpainted), 0u);
    return tops;
}

TEST(NotesPanelPixels, CardsOutOfSight_AreNotDrawn) {
    using Tops = std::vector<int>;
    EXPECT_EQ(TopsDrawnAt(0), (Tops{10, 70})) << "the third begins below the panel";
    EXPECT_EQ(TopsDrawnAt(30), (Tops{-20, 40})) << "the third begins just behind the last row";
    EXPECT_EQ(TopsDrawnAt(31), (Tops{-21, 39, 99})) << "the third has its first row in sight";
    EXPECT_EQ(TopsDrawnAt(59), (Tops{-49, 11, 71})) << "the first has its last row in sight";
    EXPECT_EQ(TopsDrawnAt(60), (Tops{10, 70})) << "the first ends just before the first row";
    EXPECT_EQ(TopsDrawnAt(500), Tops{});
}

TEST(NotesPanelPixels, NoCardsAtAll_LeaveAnEmptyPanel) {
    FontSet fonts;
    const Picture picture(60, 40);
    PaintNotes(picture.Context(), {5, 6, 50, 30}, {}, {}, 0, fonts, false, 96);
    EXPECT_EQ(picture.BoundsOf(picture.Area(), kPanel), (Rectangle{5, 6, 50, 30}));
    EXPECT_EQ(picture.Count(picture.Area(), kPanel), 45u * 24);
}

TEST(NotesPanelPixels, TinyScale_KeepsEdgeAndFocusBar) {
    constexpr int kTinyDpi = 20;  // two units are less than half a pixel
    FontSet fonts;
    const Picture picture(200, 100);
    PaintNotes(picture.Context(), {0, 0, 200, 100}, {{{L"a", true}}, false}, StackOf({{10, 10, 190, 60}}), 0, fonts,
               true, kTinyDpi);
    EXPECT_EQ(picture.BoundsOf(picture.Area(), 0x41708E), (Rectangle{10, 10, 190, 60}));
    EXPECT_EQ(picture.BoundsOf(picture.Area(), 0x2997FF), (Rectangle{0, 0, 1, 100}));
}

// --- To the screen ---

using OnBitBlt = StandIn<"BitBlt", decltype(BitBlt)>;
using OnCreateContext = StandIn<"CreateCompatibleDC", decltype(CreateCompatibleDC)>;
using OnCreateBitmap = StandIn<"CreateCompatibleBitmap", decltype(CreateCompatibleBitmap)>;
using OnBeginPaint = StandIn<"BeginPaint", decltype(BeginPaint)>;
using OnEndPaint = StandIn<"EndPaint", decltype(EndPaint)>;

/// One WM_PAINT of the panel: what was copied to the screen's context, and whether cards were drawn straight into it.
struct Painting {
    int copies = 0;
    int ends = 0;  // without one the screen's context would be lost
    bool sizeIsTheClients = false;
    std::string difference;  // between what was copied and what the panel prints
    int cardsStraight = 0;
    int cardsBuffered = 0;
};

Painting PaintOnce(const StatusWindow& status) {
    const HWND panel = status.At(Control::notesPanel);
    const Picture printed = PictureOfOne(panel);
    const Picture copied(printed.Area().right, printed.Area().bottom);
    Painting painting;
    HDC screen = nullptr;
    const OnBeginPaint begin([&](HWND window, LPPAINTSTRUCT paint) {
        const HDC context = OnBeginPaint::Original(window, paint);
        if (window == panel) screen = context;
        return context;
    });
    const OnRoundRect rounded([&](HDC context, int left, int top, int right, int bottom, int width, int height) {
        ++(context == screen ? painting.cardsStraight : painting.cardsBuffered);
        return OnRoundRect::Original(context, left, top, right, bottom, width, height);
    });
    const OnBitBlt copy([&](HDC to, int x, int y, int width, int height, HDC from, int fromX, int fromY, DWORD how) {
        ++painting.copies;
        painting.sizeIsTheClients = to == screen && x == 0 && y == 0 && width == copied.Area().right &&
                                    height == copied.Area().bottom && how == SRCCOPY;
        return OnBitBlt::Original(copied.Context(), 0, 0, width, height, from, fromX, fromY, how);
    });
    const OnEndPaint end([&](HWND window, const PAINTSTRUCT* paint) {
        if (window == panel && paint->hdc == screen) ++painting.ends;
        return OnEndPaint::Original(window, paint);
    });
    InvalidateRect(panel, nullptr, FALSE);
    UpdateWindow(panel);
    EXPECT_NE(screen, nullptr);
    EXPECT_EQ(GetUpdateRect(panel, nullptr, FALSE), FALSE) << "nothing is left to be painted";
    painting.difference = Difference(copied, printed);
    return painting;
}

TEST(NotesPanelPixels, Paint_CopiesOneBufferedPicture) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const Painting painting = PaintOnce(window.status);
    EXPECT_EQ(painting.copies, 1);
    EXPECT_EQ(painting.ends, 1);
    EXPECT_TRUE(painting.sizeIsTheClients);
    EXPECT_EQ(painting.difference, "");
    EXPECT_EQ(painting.cardsBuffered, 3);
    EXPECT_EQ(painting.cardsStraight, 0);
}

TEST(NotesPanelPixels, PaintWithoutABuffer_DrawsStraight) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    bool refuse = false;
    const OnCreateContext context([&](HDC like) { return refuse ? nullptr : OnCreateContext::Original(like); });
    // The pictures of the test itself are made before the window paints.
    const OnBeginPaint begin([&](HWND panel, LPPAINTSTRUCT paint) {
        refuse = true;
        return OnBeginPaint::Original(panel, paint);
    });
    int straight = 0;
    const OnRoundRect rounded([&](HDC, int, int, int, int, int, int) { return ++straight; });
    int copies = 0;
    const OnBitBlt copy([&](auto...) { return ++copies; });
    SendMessageW(window.status.At(Control::notesPanel), WM_PAINT, 0, 0);
    EXPECT_TRUE(refuse);
    EXPECT_EQ(straight, 3);
    EXPECT_EQ(copies, 0);
}

TEST(NotesPanelPixels, PaintWithoutABitmap_DrawsStraight) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    int asked = 0;
    const OnCreateBitmap bitmap([&](HDC, int, int) -> HBITMAP {
        ++asked;
        return nullptr;
    });
    int straight = 0;
    const OnRoundRect rounded([&](HDC, int, int, int, int, int, int) { return ++straight; });
    int copies = 0;
    const OnBitBlt copy([&](auto...) { return ++copies; });
    SendMessageW(window.status.At(Control::notesPanel), WM_PAINT, 0, 0);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(straight, 3);
    EXPECT_EQ(copies, 0);
}

TEST(NotesPanelPixels, PaintOfAnEmptyClient_MakesNoBuffer) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const HWND panel = window.status.At(Control::notesPanel);
    for (const Size size : {Size{0, 100}, Size{100, 0}}) {
        MoveWindow(panel, 10, 10, size.width, size.height, FALSE);
        int asked = 0;
        const OnCreateBitmap bitmap([&](HDC like, int width, int height) {
            ++asked;
            return OnCreateBitmap::Original(like, width, height);
        });
        SendMessageW(panel, WM_PAINT, 0, 0);
        EXPECT_EQ(asked, 0) << size;
    }
}

TEST(NotesPanelPixels, Erase_SaysThatItIsDoneAndPaintsNothing) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    const Picture picture(50, 50);
    EXPECT_EQ(SendMessageW(window.status.At(Control::notesPanel), WM_ERASEBKGND,
                           reinterpret_cast<WPARAM>(picture.Context()), 0),
              1);
    EXPECT_EQ(picture.Count(picture.Area(), kUnpainted), 2500u);
}

}  // namespace
}  // namespace launcher_ui
