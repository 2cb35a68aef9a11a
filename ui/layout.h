#pragma once

/// Where everything of the status window stands, and what of it is to be seen: functions of view and dpi. Pure.

#include <optional>

#include "ui/theme.h"

namespace launcher_ui {

inline constexpr int kBaseDpi = 96;

/// Units to pixels, rounded half up as `MulDiv` rounds (Windows documentation, "MulDiv function"); `value` and `dpi`
/// are not negative.
[[nodiscard]] constexpr int Scale(int value, int dpi) {
    return (value * dpi + kBaseDpi / 2) / kBaseDpi;
}

/// A pen or a line that must not vanish at a small scale.
[[nodiscard]] constexpr int ScaleAtLeastOne(int value, int dpi) {
    const int scaled = Scale(value, dpi);
    return scaled < 1 ? 1 : scaled;
}

/// Pixels, the right and bottom edges outside, as Windows' RECT.
struct Rectangle {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    [[nodiscard]] constexpr int Width() const { return right - left; }
    [[nodiscard]] constexpr int Height() const { return bottom - top; }
    bool operator==(const Rectangle&) const = default;
};

enum class ViewMode { compact = 0, prompt = 1, progress = 2 };

/// The controls, in the order of their creation, which is also the order of Tab.
enum class Control {
    title,
    versionLine,
    statusLine,
    bar,
    versionBadge,
    notesHeading,
    scrollHint,
    notesPanel,
    safetyNotice,
    progressLine,
    progressDetail,
    footer,
    notesLink,
    updateButton,
    laterButton,
    cancelButton,
    reconnectButton,
};
inline constexpr int kControlCount = 17;

struct Size {
    int width = 0;
    int height = 0;
    bool operator==(const Size&) const = default;
};

/// The whole window with its frame, in pixels.
[[nodiscard]] Size WindowSize(ViewMode view, int dpi);

/// A control's place in the client area, or nothing if this view has no place for it. While a failure is held, the
/// cancel button reads "Close" and is narrow.
[[nodiscard]] std::optional<Rectangle> PlaceOf(Control control, ViewMode view, bool failureHeld, int dpi);

/// Whether a control is to be seen in a view as soon as that view is opened. The link also needs an address to lead to,
/// and Reconnect comes with the first report of a transfer; both are hidden here.
[[nodiscard]] bool IsPartOf(Control control, ViewMode view);

[[nodiscard]] FontRole FontOf(Control control);

/// The painted parts of the large views that are no controls.
struct Ornaments {
    Rectangle icon;
    Rectangle rule;        // a line: from its left top to its right top
    Rectangle panelFrame;  // around the notes panel
    Rectangle check;       // the ellipse before the safety notice, prompt view only
};
[[nodiscard]] Ornaments PlaceOrnaments(int dpi);

/// The three corners of the tick in the check badge.
struct Point {
    int x = 0;
    int y = 0;
    bool operator==(const Point&) const = default;
};
struct Tick {
    Point corners[3];
};
[[nodiscard]] Tick PlaceTick(int dpi);

/// The part of a bar's inside that is filled, or nothing if it would have no width. `inner` is the track without its
/// edge. `tick` counts the steps of a bar that shows motion.
struct BarFill {
    int percent = 0;
    bool indeterminate = false;
    unsigned tick = 0;
};
[[nodiscard]] std::optional<Rectangle> PlaceBarFill(const Rectangle& track, const BarFill& fill, int dpi);

/// The three boxes of the version badge.
struct BadgeBoxes {
    Rectangle current;
    Rectangle arrow;
    Rectangle offered;
};
[[nodiscard]] BadgeBoxes PlaceBadge(const Rectangle& badge, int dpi);

}  // namespace launcher_ui
