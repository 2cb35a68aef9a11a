#include <windows.h>

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "tests/windows/window_views_fixture.h"

// Where the controls of the real window stand, which of them are to be seen and with which fonts, in every state and at
// every scale. The tables are the measures of the window, written down a second time.

namespace launcher_ui {
namespace {

using test_support::AllViews;
using test_support::ChangeScale;
using test_support::kWindowScales;
using test_support::Open;
using test_support::PlaceIn;
using test_support::Px;
using test_support::ScaledWindow;
using test_support::SeenChildren;
using test_support::View;
using test_support::ViewNamed;

/// x, y, width and height in units; no width: no place in this view.
struct Units {
    int x;
    int y;
    int width;
    int height;
};

struct Measures {
    Control control;
    const char* name;
    Units compact;
    Units large;
    int fontHeight;
    int fontWeight;
};

constexpr Measures kMeasures[] = {
    {Control::title, "title", {24, 18, 410, 28}, {102, 47, 370, 30}, 22, 600},
    {Control::versionLine, "version line", {24, 53, 410, 22}, {}, 14, 400},
    {Control::statusLine, "status line", {24, 80, 410, 22}, {102, 82, 360, 24}, 14, 400},
    {Control::bar, "bar", {24, 112, 410, 10}, {52, 510, 656, 8}, 14, 400},
    {Control::versionBadge, "version badge", {}, {527, 58, 181, 39}, 14, 400},
    {Control::notesHeading, "notes heading", {}, {52, 142, 320, 26}, 16, 600},
    {Control::scrollHint, "scroll hint", {}, {548, 145, 160, 22}, 12, 400},
    {Control::notesPanel, "notes panel", {}, {53, 177, 654, 290}, 14, 400},
    {Control::safetyNotice, "safety notice", {}, {79, 484, 560, 24}, 12, 400},
    {Control::progressLine, "progress line", {}, {52, 484, 390, 24}, 14, 400},
    {Control::progressDetail, "progress detail", {}, {448, 484, 260, 24}, 12, 400},
    {Control::footer, "footer", {}, {52, 526, 418, 48}, 12, 400},
    {Control::notesLink, "full notes link", {}, {52, 515, 220, 40}, 14, 400},
    {Control::updateButton, "Update", {}, {598, 515, 110, 40}, 14, 400},
    {Control::laterButton, "Later", {}, {498, 515, 88, 40}, 14, 400},
    {Control::cancelButton, "Cancel", {}, {492, 528, 216, 32}, 12, 400},
    {Control::reconnectButton, "Reconnect", {}, {352, 528, 128, 32}, 12, 400},
};

// While a failure or a notice is held, the label of 216 units is gone.
constexpr Units kCloseButton = {620, 528, 88, 32};
constexpr Units kReconnectBesideClose = {480, 528, 128, 32};

Units PlaceInUnits(const Measures& row, const View& view) {
    if (view.mode == ViewMode::compact) return row.compact;
    if (view.held && row.control == Control::cancelButton) return kCloseButton;
    if (view.held && row.control == Control::reconnectButton) return kReconnectBesideClose;
    return row.large;
}

bool IsSeen(Control control, const View& view) {
    const bool prompt = view.mode == ViewMode::prompt;
    const bool progress = view.mode == ViewMode::progress;
    switch (control) {
        case Control::title:
        case Control::statusLine:
            return true;
        case Control::versionLine:
            return view.mode == ViewMode::compact;
        case Control::bar:
            return !prompt;
        case Control::versionBadge:
            return (prompt || progress) && view.badge;
        case Control::notesHeading:
        case Control::scrollHint:
        case Control::notesPanel:
            return prompt || progress;
        case Control::safetyNotice:
        case Control::updateButton:
        case Control::laterButton:
            return prompt;
        case Control::notesLink:
            return prompt && view.link;
        case Control::progressLine:
        case Control::progressDetail:
        case Control::footer:
            return progress;
        case Control::cancelButton:
            return progress && view.cancel;
        case Control::reconnectButton:
            return progress && view.reconnect;
    }
    return false;
}

bool HasVisibleStyle(HWND control) {
    return (GetWindowLongPtrW(control, GWL_STYLE) & WS_VISIBLE) != 0;
}

Rectangle InPixels(const Units& units, int dpi) {
    const int left = Px(units.x, dpi);
    const int top = Px(units.y, dpi);
    return {left, top, left + Px(units.width, dpi), top + Px(units.height, dpi)};
}

Rectangle OnScreen(HWND window) {
    RECT rect = {};
    GetWindowRect(window, &rect);
    return FromRect(rect);
}

/// What is wrong with the places in a view, one line for each control.
std::string WrongPlaces(const StatusWindow& status, const View& view) {
    std::ostringstream wrong;
    for (const Measures& row : kMeasures) {
        const Units units = PlaceInUnits(row, view);
        if (units.width == 0) continue;
        const Rectangle place = PlaceIn(status.window, status.At(row.control));
        const Rectangle expected = InPixels(units, status.dpi);
        if (!(place == expected)) wrong << row.name << " at " << place << " instead of " << expected << "\n";
    }
    return wrong.str();
}

TEST(WindowPlaces, EveryView_HasItsControlsInTheirPlaces) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        ASSERT_EQ(window.status.dpi, dpi);
        for (const View& view : AllViews()) {
            Open(window.status, view);
            EXPECT_EQ(WrongPlaces(window.status, view), "") << view.name << " at " << dpi;
        }
    }
}

TEST(WindowPlaces, ChangeOfScaleInAnOpenView_MovesItsControls) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    for (const char* name : {"checking", "prompt", "receiving", "blocking-failure"}) {
        const View& view = ViewNamed(name);
        Open(window.status, view);
        for (const int dpi : {192, 120, 144, 96}) {
            ChangeScale(window.status, dpi);
            EXPECT_EQ(WrongPlaces(window.status, view), "") << name << " at " << dpi;
        }
    }
}

TEST(WindowPlaces, ChangeOfScale_TakesTheSuggestedPlace) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    RECT suggested = {37, 41, 37 + 901, 41 + 333};
    SendMessageW(window.status.window, WM_DPICHANGED, MAKEWPARAM(120, 144), reinterpret_cast<LPARAM>(&suggested));
    EXPECT_EQ(OnScreen(window.status.window), FromRect(suggested));
    EXPECT_EQ(window.status.dpi, 144) << "the high word counts";
}

TEST(WindowPlaces, EveryView_IsCentredOnTheScreenWithItsSize) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const char* name : {"checking", "prompt", "downloading", "blocking-failure"}) {
            const View& view = ViewNamed(name);
            Open(window.status, view);
            const int width = Px(view.mode == ViewMode::compact ? 470 : 780, dpi);
            const int height = Px(view.mode == ViewMode::compact ? 176 : 620, dpi);
            const int left = (GetSystemMetrics(SM_CXSCREEN) - width) / 2;
            const int top = (GetSystemMetrics(SM_CYSCREEN) - height) / 2;
            EXPECT_EQ(OnScreen(window.status.window), (Rectangle{left, top, left + width, top + height}))
                << name << " at " << dpi;
            EXPECT_NE(GetWindowLongPtrW(window.status.window, GWL_EXSTYLE) & WS_EX_TOPMOST, 0) << name;
        }
    }
}

TEST(WindowPlaces, EveryView_ShowsItsControlsAndNoOthers) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    for (const View& view : AllViews()) {
        Open(window.status, view);
        for (const Measures& row : kMeasures) {
            EXPECT_EQ(HasVisibleStyle(window.status.At(row.control)), IsSeen(row.control, view))
                << row.name << " in " << view.name;
        }
    }
}

TEST(WindowPlaces, EveryView_AnswersOnlyWithButtonsThatWork) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    for (const View& view : AllViews()) {
        Open(window.status, view);
        const auto works = [&](Control control) { return IsWindowEnabled(window.status.At(control)) != FALSE; };
        if (view.mode == ViewMode::progress && view.cancel) {
            EXPECT_EQ(works(Control::cancelButton), view.cancelWorks) << view.name;
        }
        if (view.reconnect) {
            EXPECT_EQ(works(Control::reconnectButton), view.reconnectWorks) << view.name;
        }
        for (const Control always : {Control::updateButton, Control::laterButton, Control::notesLink}) {
            EXPECT_TRUE(works(always)) << view.name;
        }
    }
}

TEST(WindowPlaces, EveryControlInSight_StandsInsideTheClientArea) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const char* name : {"checking", "prompt", "receiving", "blocking-failure"}) {
            Open(window.status, ViewNamed(name));
            RECT client = {};
            GetClientRect(window.status.window, &client);
            for (const HWND child : SeenChildren(window.status.window)) {
                const Rectangle place = PlaceIn(window.status.window, child);
                EXPECT_TRUE(place.left >= 0 && place.top >= 0 && place.right <= client.right &&
                            place.bottom <= client.bottom)
                    << place << " in " << name << " at " << dpi;
            }
        }
    }
}

using Pair = std::pair<std::string, std::string>;

std::set<Pair> OverlappingControls(const StatusWindow& status) {
    std::set<Pair> pairs;
    for (const Measures& first : kMeasures) {
        for (const Measures& second : kMeasures) {
            if (second.control <= first.control) continue;
            if (!HasVisibleStyle(status.At(first.control)) || !HasVisibleStyle(status.At(second.control))) continue;
            const RECT a = ToRect(PlaceIn(status.window, status.At(first.control)));
            const RECT b = ToRect(PlaceIn(status.window, status.At(second.control)));
            RECT common = {};
            if (IntersectRect(&common, &a, &b)) pairs.insert({first.name, second.name});
        }
    }
    return pairs;
}

TEST(WindowPlaces, ControlsInSight_KeepApartButForReconnectOverTheFootersEnd) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const View& view : AllViews()) {
            Open(window.status, view);
            std::set<Pair> expected;
            if (view.reconnect) expected.insert({"footer", "Reconnect"});
            EXPECT_EQ(OverlappingControls(window.status), expected) << view.name << " at " << dpi;
        }
    }
}

bool StandsAbove(HWND upper, HWND lower) {
    for (HWND next = GetWindow(upper, GW_HWNDNEXT); next != nullptr; next = GetWindow(next, GW_HWNDNEXT)) {
        if (next == lower) return true;
    }
    return false;
}

/// The footer changes with every report of a transfer and paints itself at once, over whatever it overlaps.
TEST(WindowPlaces, Footer_KeepsOffTheButtonThatStandsOverItsEnd) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    const StatusWindow& status = window.status;
    EXPECT_NE(GetWindowLongPtrW(status.At(Control::footer), GWL_STYLE) & WS_CLIPSIBLINGS, 0);
    EXPECT_TRUE(StandsAbove(status.At(Control::reconnectButton), status.At(Control::footer)));
}

TEST(WindowPlaces, EveryControl_HasItsFontAtEveryScale) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const Measures& row : kMeasures) {
            if (row.control == Control::notesPanel) continue;  // draws with two fonts of its own
            const HWND control = window.status.At(row.control);
            LOGFONTW font = {};
            // A control that draws by itself may keep no font; what it draws is looked at elsewhere.
            const auto given = reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0));
            ASSERT_NE(GetObjectW(given, sizeof font, &font), 0) << row.name;
            EXPECT_EQ(font.lfHeight, -Px(row.fontHeight, dpi)) << row.name << " at " << dpi;
            EXPECT_EQ(font.lfWeight, row.fontWeight) << row.name;
            EXPECT_EQ(font.lfItalic, FALSE) << row.name;
            EXPECT_EQ(font.lfCharSet, DEFAULT_CHARSET) << row.name;
            EXPECT_EQ(font.lfQuality, CLEARTYPE_QUALITY) << row.name;
            EXPECT_STREQ(font.lfFaceName, L"Segoe UI") << row.name;
        }
    }
}

}  // namespace
}  // namespace launcher_ui
