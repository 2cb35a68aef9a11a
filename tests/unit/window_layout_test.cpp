#include "ui/layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/layout_fixture.h"
#include "ui/theme.h"

namespace launcher_ui {
namespace {

using test_support::kScales;
using test_support::Pixels;

constexpr std::array kViews = {ViewMode::compact, ViewMode::prompt, ViewMode::progress};

/// x, y, width and height in units.
struct Units {
    int x;
    int y;
    int width;
    int height;
};

Rectangle InPixels(const Units& units, int dpi) {
    const int left = Pixels(units.x, dpi);
    const int top = Pixels(units.y, dpi);
    return {left, top, left + Pixels(units.width, dpi), top + Pixels(units.height, dpi)};
}

struct PlaceRow {
    Control control;
    const char* name;
    Units place;
};

constexpr PlaceRow kCompactPlaces[] = {
    {Control::title, "title", {24, 18, 410, 28}},
    {Control::versionLine, "version line", {24, 53, 410, 22}},
    {Control::statusLine, "status line", {24, 80, 410, 22}},
    {Control::bar, "bar", {24, 112, 410, 10}},
};

constexpr PlaceRow kLargePlaces[] = {
    {Control::title, "title", {102, 47, 370, 30}},
    {Control::statusLine, "status line", {102, 82, 360, 24}},
    {Control::versionBadge, "version badge", {527, 58, 181, 39}},
    {Control::notesHeading, "notes heading", {52, 142, 320, 26}},
    {Control::scrollHint, "scroll hint", {548, 145, 160, 22}},
    {Control::notesPanel, "notes panel", {53, 177, 654, 290}},
    {Control::safetyNotice, "safety notice", {79, 484, 560, 24}},
    {Control::notesLink, "full notes link", {52, 515, 220, 40}},
    {Control::laterButton, "Later", {498, 515, 88, 40}},
    {Control::updateButton, "Update", {598, 515, 110, 40}},
    {Control::progressLine, "progress line", {52, 484, 390, 24}},
    {Control::progressDetail, "progress detail", {448, 484, 260, 24}},
    {Control::bar, "bar", {52, 510, 656, 8}},
    {Control::footer, "footer", {52, 526, 418, 48}},
    {Control::reconnectButton, "Reconnect", {352, 528, 128, 32}},
    {Control::cancelButton, "Cancel", {492, 528, 216, 32}},
};

constexpr PlaceRow kPlacesWhileAFailureIsHeld[] = {
    {Control::reconnectButton, "Reconnect", {480, 528, 128, 32}},
    {Control::cancelButton, "Close", {620, 528, 88, 32}},
};

template <typename Rows>
bool Has(const Rows& rows, Control control) {
    for (const PlaceRow& row : rows) {
        if (row.control == control) return true;
    }
    return false;
}

TEST(Scale, Units_AreRoundedHalfUp) {
    EXPECT_EQ(Scale(1, 96), 1);
    EXPECT_EQ(Scale(1, 120), 1) << "1.25";
    EXPECT_EQ(Scale(2, 120), 3) << "2.5";
    EXPECT_EQ(Scale(3, 120), 4) << "3.75";
    EXPECT_EQ(Scale(1, 144), 2) << "1.5";
    EXPECT_EQ(Scale(0, 192), 0);
    for (const int dpi : kScales) {
        for (int units = 0; units < 800; ++units) {
            ASSERT_EQ(Scale(units, dpi), Pixels(units, dpi)) << units << " at " << dpi;
        }
    }
}

TEST(Scale, ThinLine_DoesNotVanish) {
    EXPECT_EQ(ScaleAtLeastOne(1, 96), 1);
    EXPECT_EQ(ScaleAtLeastOne(1, 40), 1) << "0.42";
    EXPECT_EQ(ScaleAtLeastOne(0, 96), 1);
    EXPECT_EQ(ScaleAtLeastOne(2, 192), 4);
}

TEST(PlaceOf, CompactView_HoldsItsTable) {
    for (const int dpi : kScales) {
        for (const PlaceRow& row : kCompactPlaces) {
            const auto place = PlaceOf(row.control, ViewMode::compact, false, dpi);
            ASSERT_TRUE(place.has_value()) << row.name;
            EXPECT_EQ(*place, InPixels(row.place, dpi)) << row.name << " at " << dpi;
            EXPECT_EQ(PlaceOf(row.control, ViewMode::compact, true, dpi), place) << row.name << " at " << dpi;
        }
    }
}

TEST(PlaceOf, LargeViews_HoldTheirTable) {
    for (const int dpi : kScales) {
        for (const PlaceRow& row : kLargePlaces) {
            for (const ViewMode view : {ViewMode::prompt, ViewMode::progress}) {
                const auto place = PlaceOf(row.control, view, false, dpi);
                ASSERT_TRUE(place.has_value()) << row.name;
                EXPECT_EQ(*place, InPixels(row.place, dpi)) << row.name << " at " << dpi;
            }
        }
    }
}

TEST(PlaceOf, HeldFailure_MovesTwoButtonsAndNothingElse) {
    for (const int dpi : kScales) {
        for (const PlaceRow& row : kPlacesWhileAFailureIsHeld) {
            const auto place = PlaceOf(row.control, ViewMode::progress, true, dpi);
            ASSERT_TRUE(place.has_value()) << row.name;
            EXPECT_EQ(*place, InPixels(row.place, dpi)) << row.name << " at " << dpi;
        }
        for (const PlaceRow& row : kLargePlaces) {
            if (Has(kPlacesWhileAFailureIsHeld, row.control)) continue;
            EXPECT_EQ(PlaceOf(row.control, ViewMode::progress, true, dpi),
                      PlaceOf(row.control, ViewMode::progress, false, dpi))
                << row.name << " at " << dpi;
        }
    }
}

TEST(PlaceOf, ControlOfAnotherView_HasNoPlace) {
    for (int index = 0; index < kControlCount; ++index) {
        const auto control = static_cast<Control>(index);
        for (const bool failureHeld : {false, true}) {
            EXPECT_EQ(PlaceOf(control, ViewMode::compact, failureHeld, 96).has_value(), Has(kCompactPlaces, control))
                << index;
            EXPECT_EQ(PlaceOf(control, ViewMode::progress, failureHeld, 96).has_value(), Has(kLargePlaces, control))
                << index;
        }
    }
}

TEST(WindowSize, View_HasItsSizeAtEveryScale) {
    for (const int dpi : kScales) {
        EXPECT_EQ(WindowSize(ViewMode::compact, dpi), (Size{Pixels(470, dpi), Pixels(176, dpi)})) << dpi;
        EXPECT_EQ(WindowSize(ViewMode::prompt, dpi), (Size{Pixels(780, dpi), Pixels(620, dpi)})) << dpi;
        EXPECT_EQ(WindowSize(ViewMode::progress, dpi), (Size{Pixels(780, dpi), Pixels(620, dpi)})) << dpi;
    }
}

TEST(WindowSize, EveryVisiblePlace_IsInsideTheWindow) {
    for (const int dpi : kScales) {
        for (const ViewMode view : kViews) {
            const Size window = WindowSize(view, dpi);
            for (int index = 0; index < kControlCount; ++index) {
                const auto control = static_cast<Control>(index);
                if (!IsPartOf(control, view)) continue;
                const auto place = PlaceOf(control, view, false, dpi);
                ASSERT_TRUE(place.has_value()) << index << " is to be seen but has no place";
                EXPECT_LE(place->right, window.width) << index << " at " << dpi;
                EXPECT_LE(place->bottom, window.height) << index << " at " << dpi;
            }
        }
    }
}

struct PartRow {
    Control control;
    bool compact;
    bool prompt;
    bool progress;
};

constexpr PartRow kParts[kControlCount] = {
    {Control::title, true, true, true},
    {Control::statusLine, true, true, true},
    {Control::versionLine, true, false, false},
    {Control::bar, true, false, true},
    {Control::versionBadge, false, true, true},
    {Control::notesHeading, false, true, true},
    {Control::scrollHint, false, true, true},
    {Control::notesPanel, false, true, true},
    {Control::safetyNotice, false, true, false},
    {Control::notesLink, false, false, false},
    {Control::updateButton, false, true, false},
    {Control::laterButton, false, true, false},
    {Control::progressLine, false, false, true},
    {Control::progressDetail, false, false, true},
    {Control::footer, false, false, true},
    {Control::cancelButton, false, false, true},
    {Control::reconnectButton, false, false, false},
};

TEST(IsPartOf, Control_IsSeenInItsViews) {
    for (const PartRow& row : kParts) {
        const int index = static_cast<int>(row.control);
        EXPECT_EQ(IsPartOf(row.control, ViewMode::compact), row.compact) << index;
        EXPECT_EQ(IsPartOf(row.control, ViewMode::prompt), row.prompt) << index;
        EXPECT_EQ(IsPartOf(row.control, ViewMode::progress), row.progress) << index;
    }
}

struct FontRow {
    FontRole font;
    std::vector<Control> controls;
};

TEST(FontOf, Control_HasItsFont) {
    const FontRow rows[] = {
        {FontRole::title, {Control::title}},
        {FontRole::heading, {Control::notesHeading}},
        {FontRole::body,
         {Control::versionLine, Control::statusLine, Control::versionBadge, Control::progressLine, Control::notesLink,
          Control::updateButton, Control::laterButton}},
        {FontRole::small,
         {Control::safetyNotice, Control::scrollHint, Control::progressDetail, Control::footer, Control::cancelButton,
          Control::reconnectButton}},
    };
    for (const FontRow& row : rows) {
        for (const Control control : row.controls) {
            EXPECT_EQ(FontOf(control), row.font) << static_cast<int>(control);
        }
    }
}

TEST(Fonts, Role_HasItsHeightAndWeight) {
    struct Expected {
        FontRole role;
        int height;
        int weight;
    };
    constexpr Expected kExpected[] = {
        {FontRole::title, 22, 600}, {FontRole::heading, 16, 600},    {FontRole::body, 14, 400},
        {FontRole::small, 12, 400}, {FontRole::bodyStrong, 14, 600},
    };
    for (std::size_t index = 0; index < kFontCount; ++index) {
        EXPECT_EQ(kFonts[index].role, kExpected[index].role) << index;
        EXPECT_EQ(static_cast<std::size_t>(kFonts[index].role), index) << "found by its number";
        EXPECT_EQ(kFonts[index].height, kExpected[index].height) << index;
        EXPECT_EQ(kFonts[index].weight, kExpected[index].weight) << index;
    }
    EXPECT_EQ(std::wstring(kFontName), L"Segoe UI");
}

TEST(Controls, Number_IsTheOrderOfCreation) {
    const Control order[kControlCount] = {Control::title,        Control::versionLine,    Control::statusLine,
                                          Control::bar,          Control::versionBadge,   Control::notesHeading,
                                          Control::scrollHint,   Control::notesPanel,     Control::safetyNotice,
                                          Control::progressLine, Control::progressDetail, Control::footer,
                                          Control::notesLink,    Control::updateButton,   Control::laterButton,
                                          Control::cancelButton, Control::reconnectButton};
    for (int index = 0; index < kControlCount; ++index) {
        EXPECT_EQ(static_cast<int>(order[index]), index);
    }
}

TEST(PlaceOrnaments, EveryScale_HasEachOrnamentInItsPlace) {
    for (const int dpi : kScales) {
        const auto at = [dpi](int left, int top, int right, int bottom) {
            return Rectangle{Pixels(left, dpi), Pixels(top, dpi), Pixels(right, dpi), Pixels(bottom, dpi)};
        };
        const Ornaments ornaments = PlaceOrnaments(dpi);
        EXPECT_EQ(ornaments.icon, InPixels({52, 48, 36, 36}, dpi)) << dpi;
        EXPECT_EQ(ornaments.rule, at(52, 126, 708, 126)) << dpi;
        EXPECT_EQ(ornaments.panelFrame, at(52, 176, 708, 468)) << dpi;
        EXPECT_EQ(ornaments.check, at(52, 486, 70, 504)) << dpi;
    }
}

TEST(PlaceTick, EveryScale_HasThreeCorners) {
    for (const int dpi : kScales) {
        const Tick tick = PlaceTick(dpi);
        EXPECT_EQ(tick.corners[0], (Point{Pixels(57, dpi), Pixels(495, dpi)})) << dpi;
        EXPECT_EQ(tick.corners[1], (Point{Pixels(60, dpi), Pixels(498, dpi)})) << dpi;
        EXPECT_EQ(tick.corners[2], (Point{Pixels(66, dpi), Pixels(491, dpi)})) << dpi;
    }
}

TEST(PlaceBadge, EveryScale_HasThreeBoxes) {
    for (const int dpi : kScales) {
        const Rectangle badge = {0, 0, Pixels(181, dpi), Pixels(39, dpi)};
        const BadgeBoxes boxes = PlaceBadge(badge, dpi);
        const auto box = [&](int left, int right) { return Rectangle{left, badge.top, right, badge.bottom}; };
        EXPECT_EQ(boxes.current, box(Pixels(5, dpi), Pixels(5, dpi) + Pixels(62, dpi))) << dpi;
        EXPECT_EQ(boxes.arrow, box(Pixels(71, dpi), Pixels(71, dpi) + Pixels(26, dpi))) << dpi;
        EXPECT_EQ(boxes.offered, box(Pixels(103, dpi), badge.right - Pixels(2, dpi))) << dpi;
    }
}

TEST(PlaceBadge, BadgeThatStandsElsewhere_TakesItsBoxesAlong) {
    const BadgeBoxes boxes = PlaceBadge({100, 30, 281, 69}, 96);
    EXPECT_EQ(boxes.current, (Rectangle{105, 30, 167, 69}));
    EXPECT_EQ(boxes.arrow, (Rectangle{171, 30, 197, 69}));
    EXPECT_EQ(boxes.offered, (Rectangle{203, 30, 279, 69}));
}

// --- The bar ---

Rectangle TrackAt(ViewMode view, int dpi) {
    return PlaceOf(Control::bar, view, false, dpi).value();
}

Rectangle InsideOf(const Rectangle& track, int dpi) {
    const int edge = Pixels(1, dpi);
    return {track.left + edge, track.top + edge, track.right - edge, track.bottom - edge};
}

BarFill Percent(int percent) {
    return {percent, false, 0};
}

/// A bar in motion; its percentage is of no account.
BarFill Motion(unsigned tick) {
    return {37, true, tick};
}

TEST(BarFill, EveryPercentage_FillsItsShareFromTheLeft) {
    for (const int dpi : kScales) {
        for (const ViewMode view : {ViewMode::compact, ViewMode::progress}) {
            const Rectangle track = TrackAt(view, dpi);
            const Rectangle inside = InsideOf(track, dpi);
            for (int percent = 1; percent <= 100; ++percent) {
                const auto width = static_cast<int>(std::lround(inside.Width() * percent / 100.0));
                const Rectangle expected = {inside.left, inside.top, inside.left + width, inside.bottom};
                const auto fill = PlaceBarFill(track, Percent(percent), dpi);
                ASSERT_TRUE(fill.has_value()) << percent;
                EXPECT_EQ(*fill, expected) << percent << "% at " << dpi;
            }
        }
    }
}

TEST(BarFill, NoPercent_FillsNothing) {
    for (const int dpi : kScales) {
        EXPECT_EQ(PlaceBarFill(TrackAt(ViewMode::progress, dpi), Percent(0), dpi), std::nullopt) << dpi;
    }
}

TEST(BarFill, AllPercent_FillsTheInside) {
    for (const int dpi : kScales) {
        const Rectangle track = TrackAt(ViewMode::compact, dpi);
        EXPECT_EQ(PlaceBarFill(track, Percent(100), dpi), InsideOf(track, dpi)) << dpi;
    }
}

TEST(BarFill, Share_IsRoundedHalfUp) {
    const Rectangle track = {0, 0, 7, 5};  // five pixels inside
    EXPECT_EQ(PlaceBarFill(track, Percent(9), 96), std::nullopt) << "0.45";
    EXPECT_EQ(PlaceBarFill(track, Percent(10), 96), (Rectangle{1, 1, 2, 4})) << "0.5";
    EXPECT_EQ(PlaceBarFill(track, Percent(29), 96), (Rectangle{1, 1, 2, 4})) << "1.45";
    EXPECT_EQ(PlaceBarFill(track, Percent(30), 96), (Rectangle{1, 1, 3, 4})) << "1.5";
}

TEST(BarFill, TrackWithoutAnInside_HasNoFill) {
    const Rectangle tracks[] = {{0, 0, 0, 0},     {10, 10, 10, 18},  {10, 10, 12, 18},
                                {10, 10, 11, 18}, {10, 10, 400, 12}, {10, 10, 400, 10},
                                {50, 50, 40, 60}, {50, 50, 18, 60},  {50, 50, 60, 40}};
    for (const Rectangle& track : tracks) {
        EXPECT_EQ(PlaceBarFill(track, Percent(100), 96), std::nullopt) << track;
        EXPECT_EQ(PlaceBarFill(track, Motion(5), 96), std::nullopt) << track;
    }
}

TEST(BarFill, TrackWithOnePixelInside_HasAFill) {
    EXPECT_EQ(PlaceBarFill({10, 10, 13, 13}, Percent(100), 96), (Rectangle{11, 11, 12, 12}));
    EXPECT_EQ(PlaceBarFill({10, 10, 13, 13}, Motion(1), 96), (Rectangle{11, 11, 12, 12}));
}

/// The moving segment written down anew: where it would reach if the bar had no ends.
struct Segment {
    int width;
    int cycle;   // pixels until it starts again
    int inside;  // width of the bar's inside

    Segment(const Rectangle& track, int dpi)
        : width(std::max(Pixels(34, dpi), InsideOf(track, dpi).Width() / 4)),
          cycle(width + InsideOf(track, dpi).Width()),
          inside(InsideOf(track, dpi).Width()) {}

    /// The fill after `travel` pixels, from the inside's left edge, or nothing.
    [[nodiscard]] std::optional<std::pair<int, int>> After(int travel) const {
        const int left = travel < width ? 0 : travel - width;
        const int right = travel > inside ? inside : travel;
        if (left >= right) return std::nullopt;
        return std::pair{left, right};
    }
};

TEST(BarInMotion, EveryTickOfTwoCycles_MovesFourUnitsInsideTheBar) {
    for (const int dpi : kScales) {
        for (const ViewMode view : {ViewMode::compact, ViewMode::progress}) {
            const Rectangle track = TrackAt(view, dpi);
            const Rectangle inside = InsideOf(track, dpi);
            const Segment segment(track, dpi);
            int travel = 0;
            for (int tick = 0; tick * Pixels(4, dpi) < 2 * segment.cycle; ++tick) {
                const auto expected = segment.After(travel);
                const auto fill = PlaceBarFill(track, Motion(static_cast<unsigned>(tick)), dpi);
                ASSERT_EQ(fill.has_value(), expected.has_value()) << "tick " << tick << " at " << dpi;
                if (fill) {
                    const Rectangle place = {inside.left + expected->first, inside.top, inside.left + expected->second,
                                             inside.bottom};
                    ASSERT_EQ(*fill, place) << "tick " << tick << " at " << dpi;
                }
                travel += Pixels(4, dpi);
                if (travel >= segment.cycle) travel -= segment.cycle;
            }
        }
    }
}

TEST(BarInMotion, Segment_IsAQuarterOfTheBarButNoLessThan34Units) {
    const Rectangle wide = {0, 0, 402, 10};  // 400 pixels inside: a quarter is 100
    EXPECT_EQ(PlaceBarFill(wide, Motion(30), 96), (Rectangle{21, 1, 121, 9}));
    const Rectangle narrow = {0, 0, 122, 10};  // 120 pixels inside: a quarter is 30
    EXPECT_EQ(PlaceBarFill(narrow, Motion(10), 96), (Rectangle{7, 1, 41, 9}));
    EXPECT_EQ(PlaceBarFill(narrow, Motion(10), 192), (Rectangle{14, 2, 82, 8})) << "68 of 118 pixels";
}

TEST(BarInMotion, FirstTick_ShowsNothing) {
    EXPECT_EQ(PlaceBarFill({0, 0, 402, 10}, Motion(0), 96), std::nullopt);
    EXPECT_EQ(PlaceBarFill({0, 0, 402, 10}, Motion(1), 96), (Rectangle{1, 1, 5, 9}));
}

TEST(BarInMotion, EndOfTheCycle_LeavesAtTheRightAndComesInAtTheLeft) {
    const Rectangle track = {0, 0, 402, 10};  // a cycle is 500 pixels, 125 ticks
    EXPECT_EQ(PlaceBarFill(track, Motion(100), 96), (Rectangle{301, 1, 401, 9}));
    EXPECT_EQ(PlaceBarFill(track, Motion(101), 96), (Rectangle{305, 1, 401, 9}));
    EXPECT_EQ(PlaceBarFill(track, Motion(124), 96), (Rectangle{397, 1, 401, 9}));
    EXPECT_EQ(PlaceBarFill(track, Motion(125), 96), std::nullopt);
    EXPECT_EQ(PlaceBarFill(track, Motion(126), 96), (Rectangle{1, 1, 5, 9}));
}

TEST(BarInMotion, HugeTick_StaysInsideTheBar) {
    constexpr unsigned kLargest = std::numeric_limits<unsigned>::max();
    for (const int dpi : kScales) {
        const Rectangle track = TrackAt(ViewMode::progress, dpi);
        const Rectangle inside = InsideOf(track, dpi);
        const Segment segment(track, dpi);
        for (const unsigned tick : {kLargest, kLargest - 1, kLargest - 7, kLargest / 2, kLargest / 2 + 1,
                                    kLargest / 4 + 1, kLargest / 8 + 1}) {
            const auto travel = static_cast<int>(static_cast<unsigned long long>(tick) *
                                                 static_cast<unsigned long long>(Pixels(4, dpi)) %
                                                 static_cast<unsigned long long>(segment.cycle));
            const auto expected = segment.After(travel);
            const auto fill = PlaceBarFill(track, Motion(tick), dpi);
            ASSERT_EQ(fill.has_value(), expected.has_value()) << tick << " at " << dpi;
            if (!fill) continue;
            EXPECT_EQ(fill->left, inside.left + expected->first) << tick << " at " << dpi;
            EXPECT_EQ(fill->right, inside.left + expected->second) << tick << " at " << dpi;
        }
    }
}

// --- Colours ---

TEST(Palette, Button_HasAColourForEachState) {
    EXPECT_EQ(kPrimaryButton.idle, 0x1D6B9Bu);
    EXPECT_EQ(kPrimaryButton.hover, 0x268FDAu);
    EXPECT_EQ(kPrimaryButton.pressed, 0x185880u);
    EXPECT_TRUE(kPrimaryButton.edgeHasFillColour);
    EXPECT_EQ(kOrdinaryButton.idle, 0x151E27u);
    EXPECT_EQ(kOrdinaryButton.hover, 0x2A343Fu);
    EXPECT_EQ(kOrdinaryButton.pressed, 0x212B36u);
    EXPECT_FALSE(kOrdinaryButton.edgeHasFillColour);
    EXPECT_EQ(colour::kButtonDisabled, 0x272D36u);
    EXPECT_EQ(colour::kButtonEdge, 0x40566Au);
    EXPECT_EQ(colour::kButtonFocusCue, 0xAADCFAu);
    EXPECT_EQ(colour::kDisabledText, 0x77828Fu);
}

TEST(Palette, WindowAndItsTexts_HaveTheirColours) {
    EXPECT_EQ(colour::kBackground, 0x0F1318u);
    EXPECT_EQ(colour::kPanel, 0x0B1118u);
    EXPECT_EQ(colour::kStrongText, 0xF4F7FAu);
    EXPECT_EQ(colour::kQuietText, 0xA9B4C2u);
    EXPECT_EQ(colour::kLink, 0x6FAED5u);
    EXPECT_EQ(colour::kLinkHover, 0x91D2FAu);
    EXPECT_EQ(colour::kBadgeArrow, 0x668BA8u);
    EXPECT_EQ(colour::kBadgeOffered, 0x91D2FAu);
}

TEST(Palette, Ornaments_HaveTheirColours) {
    EXPECT_EQ(colour::kRule, 0x283A49u);
    EXPECT_EQ(colour::kPanelFrame, 0x2B3E4Fu);
    EXPECT_EQ(colour::kCheckFill, 0x153E31u);
    EXPECT_EQ(colour::kCheckEdge, 0x2D8B68u);
    EXPECT_EQ(colour::kCheckTick, 0x77D8AFu);
    EXPECT_EQ(colour::kBarTrack, 0x2A333Fu);
    EXPECT_EQ(colour::kBarTrackEdge, 0x374B5Cu);
    EXPECT_EQ(colour::kPanelFocusCue, 0x2997FFu);
}

}  // namespace
}  // namespace launcher_ui
