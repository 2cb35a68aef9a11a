#include "ui/layout.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace launcher_ui {
namespace {

constexpr Size kCompactWindow = {470, 176};
constexpr Size kLargeWindow = {780, 620};

constexpr int kCancelWidth = 216;  // takes "Skip update and open app"
constexpr int kCloseWidth = 88;    // the same button while it reads "Close"
constexpr int kButtonsRight = 708;
constexpr int kReconnectRight = 568;

/// Units; `width` 0 means: no place in this view.
struct Place {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

constexpr bool kSeen = true;

struct Row {
    Control control;
    FontRole font;
    Place compact;
    Place large;
    bool inCompact;
    bool inPrompt;
    bool inProgress;
};

constexpr Row kRows[kControlCount] = {
    {Control::title, FontRole::title, {24, 18, 410, 28}, {102, 47, 370, 30}, kSeen, kSeen, kSeen},
    {Control::versionLine, FontRole::body, {24, 53, 410, 22}, {}, kSeen, false, false},
    {Control::statusLine, FontRole::body, {24, 80, 410, 22}, {102, 82, 360, 24}, kSeen, kSeen, kSeen},
    {Control::bar, FontRole::body, {24, 112, 410, 10}, {52, 510, 656, 8}, kSeen, false, kSeen},
    {Control::versionBadge, FontRole::body, {}, {527, 58, 181, 39}, false, kSeen, kSeen},
    {Control::notesHeading, FontRole::heading, {}, {52, 142, 320, 26}, false, kSeen, kSeen},
    {Control::scrollHint, FontRole::small, {}, {548, 145, 160, 22}, false, kSeen, kSeen},
    {Control::notesPanel, FontRole::body, {}, {53, 177, 654, 290}, false, kSeen, kSeen},
    {Control::safetyNotice, FontRole::small, {}, {79, 484, 560, 24}, false, kSeen, false},
    {Control::progressLine, FontRole::body, {}, {52, 484, 390, 24}, false, false, kSeen},
    {Control::progressDetail, FontRole::small, {}, {448, 484, 260, 24}, false, false, kSeen},
    {Control::footer, FontRole::small, {}, {52, 526, 418, 48}, false, false, kSeen},
    {Control::notesLink, FontRole::body, {}, {52, 515, 220, 40}, false, false, false},
    {Control::updateButton, FontRole::body, {}, {598, 515, 110, 40}, false, kSeen, false},
    {Control::laterButton, FontRole::body, {}, {498, 515, 88, 40}, false, kSeen, false},
    {Control::cancelButton,
     FontRole::small,
     {},
     {kButtonsRight - kCancelWidth, 528, kCancelWidth, 32},
     false,
     false,
     kSeen},
    {Control::reconnectButton,
     FontRole::small,
     {},
     {kReconnectRight - kCancelWidth, 528, 128, 32},
     false,
     false,
     false},
};

constexpr bool RowsAreInOrder() {
    for (std::size_t row = 0; row < kControlCount; ++row) {
        if (static_cast<std::size_t>(kRows[row].control) != row) return false;
    }
    return true;
}
static_assert(RowsAreInOrder(), "a control has no row, or a row is out of place");

constexpr const Row& RowOf(Control control) {
    return kRows[static_cast<std::size_t>(control)];
}

Place PlaceInUnits(Control control, ViewMode view, bool failureHeld) {
    const Row& row = RowOf(control);
    if (view == ViewMode::compact) return row.compact;
    Place place = row.large;
    if (!failureHeld) return place;
    if (control == Control::cancelButton) place = {kButtonsRight - kCloseWidth, place.y, kCloseWidth, place.height};
    if (control == Control::reconnectButton) place.x = kReconnectRight - kCloseWidth;
    return place;
}

/// Position and size are scaled each by itself, as every other length is.
Rectangle Scaled(const Place& place, int dpi) {
    const int left = Scale(place.x, dpi);
    const int top = Scale(place.y, dpi);
    return {left, top, left + Scale(place.width, dpi), top + Scale(place.height, dpi)};
}

Rectangle ScaledCorners(int left, int top, int right, int bottom, int dpi) {
    return {Scale(left, dpi), Scale(top, dpi), Scale(right, dpi), Scale(bottom, dpi)};
}

}  // namespace

Size WindowSize(ViewMode view, int dpi) {
    const Size units = view == ViewMode::compact ? kCompactWindow : kLargeWindow;
    return {Scale(units.width, dpi), Scale(units.height, dpi)};
}

std::optional<Rectangle> PlaceOf(Control control, ViewMode view, bool failureHeld, int dpi) {
    const Place place = PlaceInUnits(control, view, failureHeld);
    if (place.width == 0) return std::nullopt;
    return Scaled(place, dpi);
}

bool IsPartOf(Control control, ViewMode view) {
    const Row& row = RowOf(control);
    return view == ViewMode::compact ? row.inCompact : view == ViewMode::prompt ? row.inPrompt : row.inProgress;
}

FontRole FontOf(Control control) {
    return RowOf(control).font;
}

Ornaments PlaceOrnaments(int dpi) {
    return {
        Scaled({52, 48, kIconUnits, kIconUnits}, dpi),
        ScaledCorners(52, 126, 708, 126, dpi),
        ScaledCorners(52, 176, 708, 468, dpi),
        ScaledCorners(52, 486, 70, 504, dpi),
    };
}

Tick PlaceTick(int dpi) {
    return {{{Scale(57, dpi), Scale(495, dpi)}, {Scale(60, dpi), Scale(498, dpi)}, {Scale(66, dpi), Scale(491, dpi)}}};
}

std::optional<Rectangle> PlaceBarFill(const Rectangle& track, const BarFill& fill, int dpi) {
    const int edge = Scale(1, dpi);
    Rectangle inner = {track.left + edge, track.top + edge, track.right - edge, track.bottom - edge};
    if (inner.Width() <= 0 || inner.Height() <= 0) return std::nullopt;
    if (fill.indeterminate) {
        const int segment = std::max(Scale(34, dpi), inner.Width() / 4);
        const auto way = static_cast<std::uint64_t>(segment) + static_cast<std::uint64_t>(inner.Width());
        const auto travel = static_cast<int>(static_cast<std::uint64_t>(Scale(4, dpi)) * fill.tick % way);
        const int innerLeft = inner.left;
        inner.left = std::max(innerLeft, innerLeft + travel - segment);
        inner.right = std::min(innerLeft + travel, inner.right);
    } else {
        inner.right = inner.left + (inner.Width() * fill.percent + 50) / 100;  // rounded as `MulDiv` rounds
    }
    if (inner.Width() <= 0) return std::nullopt;
    return inner;
}

BadgeBoxes PlaceBadge(const Rectangle& badge, int dpi) {
    const auto from = [&](int units) { return badge.left + Scale(units, dpi); };
    return {
        {from(5), badge.top, from(5) + Scale(62, dpi), badge.bottom},
        {from(71), badge.top, from(71) + Scale(26, dpi), badge.bottom},
        {from(103), badge.top, badge.right - Scale(2, dpi), badge.bottom},
    };
}

}  // namespace launcher_ui
