#include "ui/notes_layout.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/layout_fixture.h"

namespace launcher_ui {
namespace {

using test_support::kScales;
using test_support::Pixels;

using launcher_update::ReleaseNotes;

constexpr const wchar_t* kPlaceholder = L"No notes";

/// The panel's client area without a scroll bar.
Size PanelAt(int dpi) {
    return {Pixels(654, dpi), Pixels(290, dpi)};
}

ReleaseNotes Notes(const std::wstring& summary, const std::vector<std::wstring>& highlights,
                   const std::vector<std::wstring>& emphasized = {}) {
    ReleaseNotes notes;
    notes.summary = summary;
    notes.highlights = highlights;
    notes.emphasizedItems = emphasized;
    return notes;
}

NoteCards Cards(std::size_t count) {
    NoteCards notes;
    for (std::size_t index = 0; index < count; ++index) {
        notes.cards.push_back({L"card " + std::to_wstring(index), false});
    }
    return notes;
}

MeasureText Always(int height) {
    return [height](const NoteCard&, int) { return height; };
}

// --- Which cards ---

TEST(NoteCards, Summary_LeadsTheHighlightsInTheirOrder) {
    const NoteCards made = MakeNoteCards(Notes(L"S", {L"b", L"a", L"c"}), kPlaceholder);
    const std::vector<NoteCard> expected = {{L"S", false}, {L"b", false}, {L"a", false}, {L"c", false}};
    EXPECT_EQ(made.cards, expected);
    EXPECT_TRUE(made.hasSummaryCard);
}

TEST(NoteCards, HighlightsAlone_HaveNoSummaryCard) {
    const NoteCards made = MakeNoteCards(Notes(L"", {L"a", L"b"}), kPlaceholder);
    const std::vector<NoteCard> expected = {{L"a", false}, {L"b", false}};
    EXPECT_EQ(made.cards, expected);
    EXPECT_FALSE(made.hasSummaryCard);
}

TEST(NoteCards, SummaryAlone_IsOneCard) {
    const NoteCards made = MakeNoteCards(Notes(L"S", {}), kPlaceholder);
    EXPECT_EQ(made.cards, (std::vector<NoteCard>{{L"S", false}}));
    EXPECT_TRUE(made.hasSummaryCard);
}

TEST(NoteCards, NoNotes_AreOnePlaceholderWithoutTheSummarysLook) {
    const NoteCards made = MakeNoteCards(Notes(L"", {}), kPlaceholder);
    EXPECT_EQ(made.cards, (std::vector<NoteCard>{{kPlaceholder, false}}));
    EXPECT_FALSE(made.hasSummaryCard);
}

TEST(NoteCards, CardThatEqualsAnItem_IsEmphasised) {
    const NoteCards made = MakeNoteCards(Notes(L"S", {L"a", L"b", L"b"}, {L"b", L"S"}), kPlaceholder);
    const std::vector<NoteCard> expected = {{L"S", true}, {L"a", false}, {L"b", true}, {L"b", true}};
    EXPECT_EQ(made.cards, expected);
}

TEST(NoteCards, ItemThatDiffers_EmphasisesNothing) {
    for (const wchar_t* item : {L"Fast start", L"fast Start", L"FAST START", L"fast start ", L" fast start", L"fast",
                                L"fast start and more", L""}) {
        const NoteCards made = MakeNoteCards(Notes(L"", {L"fast start"}, {item}), kPlaceholder);
        EXPECT_FALSE(made.cards[0].emphasised) << testing::PrintToString(std::wstring(item));
    }
}

TEST(NotesAsText, Cards_FollowTheHeadingAfterEmptyLines) {
    const NoteCards made = MakeNoteCards(Notes(L"S", {L"a", L"b"}), kPlaceholder);
    EXPECT_EQ(NotesAsText(made, L"What's new"), L"What's new\r\n\r\nS\r\n\r\na\r\n\r\nb");
}

TEST(NotesAsText, NoNotes_SayThePlaceholder) {
    EXPECT_EQ(NotesAsText(MakeNoteCards({}, kPlaceholder), L"What's new"), L"What's new\r\n\r\nNo notes");
    EXPECT_EQ(NotesAsText({}, L"What's new"), L"What's new");
}

// --- Where they stand ---

TEST(NotesLayout, OneLine_IsACardOf58Units) {
    for (const int dpi : kScales) {
        for (const int height : {0, 1, Pixels(18, dpi), Pixels(29, dpi)}) {
            const NotesLayout layout = LayOutNotes(Cards(1), PanelAt(dpi), dpi, Always(height));
            EXPECT_EQ(layout.cards.at(0).Height(), Pixels(58, dpi)) << height << " at " << dpi;
        }
    }
}

TEST(NotesLayout, LongText_IsACardWithPaddingAboveAndBelow) {
    EXPECT_EQ(LayOutNotes(Cards(1), PanelAt(96), 96, Always(30)).cards.at(0).Height(), 58);
    EXPECT_EQ(LayOutNotes(Cards(1), PanelAt(96), 96, Always(31)).cards.at(0).Height(), 59);
    for (const int dpi : kScales) {
        const NotesLayout layout = LayOutNotes(Cards(1), PanelAt(dpi), dpi, Always(200));
        EXPECT_EQ(layout.cards.at(0).Height(), 200 + 2 * Pixels(14, dpi)) << dpi;
    }
}

TEST(NotesLayout, Stack_HasMarginsAndGaps) {
    for (const int dpi : kScales) {
        const Size panel = PanelAt(dpi);
        const NotesLayout layout = LayOutNotes(Cards(3), panel, dpi, Always(100));
        ASSERT_EQ(layout.cards.size(), 3u);
        int top = Pixels(14, dpi);
        for (const Rectangle& card : layout.cards) {
            const int height = 100 + 2 * Pixels(14, dpi);
            EXPECT_EQ(card, (Rectangle{Pixels(14, dpi), top, panel.width - Pixels(14, dpi), top + height})) << dpi;
            top += height + Pixels(10, dpi);
        }
        EXPECT_EQ(layout.contentHeight, layout.cards[2].bottom + Pixels(14, dpi)) << dpi;
    }
}

TEST(NotesLayout, EachCard_HasItsOwnHeight) {
    const NotesLayout layout = LayOutNotes(Cards(3), PanelAt(96), 96,
                                           [](const NoteCard& card, int) { return card.text == L"card 1" ? 100 : 10; });
    EXPECT_EQ(layout.cards, (std::vector<Rectangle>{{14, 14, 640, 72}, {14, 82, 640, 210}, {14, 220, 640, 278}}));
    EXPECT_EQ(layout.contentHeight, 292);
}

TEST(NotesLayout, NoCards_AreAsHighAsThePanel) {
    const NotesLayout layout = LayOutNotes({}, {654, 290}, 96, Always(100));
    EXPECT_TRUE(layout.cards.empty());
    EXPECT_EQ(layout.contentHeight, 290);
}

TEST(NotesLayout, Text_Is64UnitsNarrowerThanThePanel) {
    int measured = 0;
    const auto measure = [&](const NoteCard&, int width) {
        measured = width;
        return 10;
    };
    EXPECT_EQ(LayOutNotes(Cards(1), {654, 290}, 96, measure).cards.size(), 1u);
    EXPECT_EQ(measured, 590);
    EXPECT_EQ(LayOutNotes(Cards(1), {1308, 580}, 192, measure).cards.size(), 1u);
    EXPECT_EQ(measured, 1180);
}

TEST(NotesLayout, NarrowPanel_MeasuresAtOnePixel) {
    std::vector<int> widths;
    for (const int width : {66, 65, 64, 63, 0}) {
        const auto measure = [&](const NoteCard&, int given) {
            widths.push_back(given);
            return 10;
        };
        EXPECT_EQ(LayOutNotes(Cards(1), {width, 290}, 96, measure).cards.size(), 1u);
    }
    EXPECT_EQ(widths, (std::vector<int>{2, 1, 1, 1, 1}));
}

TEST(NotesLayout, Emphasis_IsToldToTheMeasure) {
    NoteCards notes = Cards(2);
    notes.cards[1].emphasised = true;
    std::vector<bool> emphasis;
    const auto measure = [&](const NoteCard& card, int) {
        emphasis.push_back(card.emphasised);
        return 10;
    };
    EXPECT_EQ(LayOutNotes(notes, PanelAt(96), 96, measure).cards.size(), 2u);
    EXPECT_EQ(emphasis, (std::vector<bool>{false, true}));
}

TEST(CardText, DrawnAsWideAndHighAsItWasMeasured) {
    for (const int dpi : kScales) {
        int measured = 0;
        const auto measure = [&](const NoteCard&, int width) {
            measured = width;
            return 300;
        };
        const NotesLayout layout = LayOutNotes(Cards(1), PanelAt(dpi), dpi, measure);
        const Rectangle text = CardTextPlace(layout.cards.at(0), dpi);
        EXPECT_EQ(text.Width(), measured) << dpi;
        EXPECT_EQ(text.Height(), 300) << dpi;
    }
}

TEST(CardText, StandsInsideTheCard) {
    for (const int dpi : kScales) {
        const int x = Pixels(18, dpi);
        const int y = Pixels(14, dpi);
        EXPECT_EQ(CardTextPlace({14, 100, 640, 400}, dpi), (Rectangle{14 + x, 100 + y, 640 - x, 400 - y})) << dpi;
    }
}

// --- How far they scroll ---

TEST(ClampScroll, Position_StaysBetweenTopAndLastPage) {
    EXPECT_EQ(ClampScroll(-1, 1000, 290), 0);
    EXPECT_EQ(ClampScroll(0, 1000, 290), 0);
    EXPECT_EQ(ClampScroll(1, 1000, 290), 1);
    EXPECT_EQ(ClampScroll(709, 1000, 290), 709);
    EXPECT_EQ(ClampScroll(710, 1000, 290), 710);
    EXPECT_EQ(ClampScroll(711, 1000, 290), 710);
    EXPECT_EQ(ClampScroll(std::numeric_limits<int>::max(), 1000, 290), 710);
    EXPECT_EQ(ClampScroll(std::numeric_limits<int>::min(), 1000, 290), 0);
}

TEST(ClampScroll, ShortContent_DoesNotMove) {
    for (const int contentHeight : {0, 100, 289, 290}) {
        for (const int position : {-50, 0, 1, 500}) {
            EXPECT_EQ(ClampScroll(position, contentHeight, 290), 0) << contentHeight << ", " << position;
        }
    }
    EXPECT_EQ(ClampScroll(1, 291, 290), 1);
}

struct StepRow {
    ScrollStep step;
    int target96;   // from 400, of 1000 in a client of 290
    int target144;  // from 400, of 1000 in a client of 435
};

constexpr StepRow kSteps[] = {
    {ScrollStep::lineUp, 364, 346},   {ScrollStep::lineDown, 436, 454}, {ScrollStep::pageUp, 146, 19},
    {ScrollStep::pageDown, 654, 781}, {ScrollStep::top, 0, 0},          {ScrollStep::bottom, 1000, 1000},
};

TEST(ScrollTarget, Step_LeadsToItsTarget) {
    for (const StepRow& row : kSteps) {
        EXPECT_EQ(ScrollTarget(row.step, 400, 1000, 290, 96), row.target96) << static_cast<int>(row.step);
        EXPECT_EQ(ScrollTarget(row.step, 400, 1000, 435, 144), row.target144) << static_cast<int>(row.step);
    }
}

TEST(ScrollTarget, LowPanel_MovesALinePerPage) {
    for (const int clientHeight : {0, 20, 71, 72}) {
        EXPECT_EQ(ScrollTarget(ScrollStep::pageDown, 400, 1000, clientHeight, 96), 436) << clientHeight;
        EXPECT_EQ(ScrollTarget(ScrollStep::pageUp, 400, 1000, clientHeight, 96), 364) << clientHeight;
    }
    EXPECT_EQ(ScrollTarget(ScrollStep::pageDown, 400, 1000, 73, 96), 437);
}

TEST(ScrollTarget, PageDownThenTop_IsTheFirstAppearance) {
    const int down = ClampScroll(ScrollTarget(ScrollStep::pageDown, 0, 1000, 290, 96), 1000, 290);
    EXPECT_EQ(down, 254);
    EXPECT_EQ(ScrollTarget(ScrollStep::top, down, 1000, 290, 96), 0);
}

TEST(ScrollTarget, UnknownStep_StaysWhereItIs) {
    EXPECT_EQ(ScrollTarget(static_cast<ScrollStep>(99), 400, 1000, 290, 96), 400);
}

struct WheelRow {
    int delta;
    int target96;  // from 500
    int target144;
};

constexpr WheelRow kWheel[] = {
    {0, 500, 500},    {1, 500, 500},    {119, 500, 500},        {120, 446, 419},         {239, 446, 419},
    {240, 392, 338},  {360, 338, 257},  {-1, 500, 500},         {-119, 500, 500},        {-120, 554, 581},
    {-239, 554, 581}, {-240, 608, 662}, {-32768, 15242, 22613}, {32767, -14242, -21613},
};

TEST(WheelTarget, WholeNotches_Move54UnitsEach) {
    for (const WheelRow& row : kWheel) {
        EXPECT_EQ(WheelTarget(row.delta, 500, 96), row.target96) << row.delta;
        EXPECT_EQ(WheelTarget(row.delta, 500, 144), row.target144) << row.delta;
    }
}

// --- How they look ---

void ExpectLook(const CardLook& look, Colour fill, Colour edge, Colour text, FontRole font) {
    EXPECT_EQ(look.fill, fill);
    EXPECT_EQ(look.edge, edge);
    EXPECT_EQ(look.text, text);
    EXPECT_EQ(look.font, font);
}

NoteCards ThreeCards(bool hasSummaryCard) {
    NoteCards notes = Cards(3);
    notes.hasSummaryCard = hasSummaryCard;
    return notes;
}

TEST(CardLook, Summary_IsTheFirstCardAlone) {
    const NoteCards notes = ThreeCards(true);
    ExpectLook(LookOf(notes, 0), 0x13212D, 0x2F4456, 0xCFDAE5, FontRole::body);
    ExpectLook(LookOf(notes, 1), 0x111B25, 0x2F4456, 0xA9B4C2, FontRole::body);
    ExpectLook(LookOf(notes, 2), 0x111B25, 0x2F4456, 0xA9B4C2, FontRole::body);
}

TEST(CardLook, FirstHighlightWithoutASummary_IsOrdinary) {
    ExpectLook(LookOf(ThreeCards(false), 0), 0x111B25, 0x2F4456, 0xA9B4C2, FontRole::body);
}

TEST(CardLook, EmphasisedCard_StandsOutWhereverItIs) {
    for (const bool hasSummaryCard : {false, true}) {
        for (std::size_t card = 0; card < 3; ++card) {
            NoteCards notes = ThreeCards(hasSummaryCard);
            notes.cards[card].emphasised = true;
            ExpectLook(LookOf(notes, card), 0x182B38, 0x41708E, 0xF4F7FA, FontRole::bodyStrong);
        }
    }
}

TEST(PanelFocusCue, RunsAlongTheLeftEdge) {
    for (const int dpi : kScales) {
        const int inset = Pixels(2, dpi);
        const Rectangle expected = {inset, inset, 2 * inset, Pixels(290, dpi) - inset};
        EXPECT_EQ(PlacePanelFocusCue(PanelAt(dpi), dpi), expected) << dpi;
    }
}

TEST(PanelFocusCue, SmallestScale_HasOnePixel) {
    EXPECT_EQ(PlacePanelFocusCue({100, 100}, 20).Width(), 1);
}

}  // namespace
}  // namespace launcher_ui
