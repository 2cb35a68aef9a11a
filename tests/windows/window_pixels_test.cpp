#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/stand_in.h"
#include "tests/windows/window_views_fixture.h"

// What every state of the window looks like at every scale: the window's own painting, the bar, the colours of the
// texts, and that no pixel is left out or stands where nothing belongs.

namespace launcher_ui {
namespace {

using test_support::AllViews;
using test_support::ChangeScale;
using test_support::Difference;
using test_support::DrawEllipse;
using test_support::DrawFilled;
using test_support::DrawFrame;
using test_support::DrawStrokes;
using test_support::InkOf;
using test_support::InsideIn;
using test_support::kUnpainted;
using test_support::kWindowScales;
using test_support::Open;
using test_support::Picture;
using test_support::PictureOf;
using test_support::PictureOfOne;
using test_support::Pixel;
using test_support::PlaceIn;
using test_support::Px;
using test_support::ScaledWindow;
using test_support::SeenChildren;
using test_support::StandIn;
using test_support::View;
using test_support::ViewNamed;

constexpr Pixel kGround = 0x0F1318;
constexpr Pixel kStrong = 0xF4F7FA;
constexpr Pixel kQuiet = 0xA9B4C2;

std::string Named(const View& view, int dpi) {
    return view.name + ("-" + std::to_string(dpi));
}

bool Holds(const Rectangle& area, int x, int y) {
    return x >= area.left && x < area.right && y >= area.top && y < area.bottom;
}

Rectangle Grown(const Rectangle& area, int pixels) {
    return {area.left - pixels, area.top - pixels, area.right + pixels, area.bottom + pixels};
}

// --- The window's own painting ---

POINT Corner(int x, int y, int dpi) {
    return {Px(x, dpi), Px(y, dpi)};
}

Rectangle Box(int left, int top, int right, int bottom, int dpi) {
    return {Px(left, dpi), Px(top, dpi), Px(right, dpi), Px(bottom, dpi)};
}

/// The window's own painting as it must be; it has no icon.
Picture ExpectedGround(const Picture& actual, ViewMode mode, int dpi) {
    Picture expected(actual.Area().right, actual.Area().bottom);
    DrawFilled(expected, expected.Area(), kGround);
    if (mode == ViewMode::compact) return expected;
    DrawStrokes(expected, {Corner(52, 126, dpi), Corner(708, 126, dpi)}, 0x283A49, Px(1, dpi));
    DrawFrame(expected, Box(52, 176, 708, 468, dpi), 0x2B3E4F, std::max(1, Px(1, dpi)));
    if (mode == ViewMode::progress) return expected;
    DrawEllipse(expected, Box(52, 486, 70, 504, dpi), {0x153E31, 0x2D8B68, Px(1, dpi)});
    DrawStrokes(expected, {Corner(57, 495, dpi), Corner(60, 498, dpi), Corner(66, 491, dpi)}, 0x77D8AF, Px(2, dpi));
    return expected;
}

TEST(WindowPixels, EveryView_PaintsItsOwnPartsAndNothingElse) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        window.status.icon.Reset();
        for (const char* name :
             {"checking", "repair", "prompt", "prompt-without-link", "downloading", "safe-failure"}) {
            const View& view = ViewNamed(name);
            Open(window.status, view);
            const Picture actual = PictureOfOne(window.status.window);
            EXPECT_EQ(Difference(actual, ExpectedGround(actual, view.mode, dpi)), "") << Named(view, dpi);
        }
    }
}

/// The same parts looked at one by one, where a line is one pixel thick.
TEST(WindowPixels, Prompt_HasRuleFrameAndCheckAtTheirPixels) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const Picture picture = PictureOf(window.status.window);
    const Rectangle all = picture.Area();
    EXPECT_EQ(picture.BoundsOf(all, 0x283A49), (Rectangle{52, 126, 708, 127}));
    EXPECT_EQ(picture.Count(all, 0x283A49), 656u) << "without a gap";
    EXPECT_EQ(picture.BoundsOf(all, 0x2B3E4F), (Rectangle{52, 176, 708, 468}));
    EXPECT_EQ(picture.Count(all, 0x2B3E4F), 2u * 656 + 2u * 290) << "a frame of one pixel, not covered by the panel";
    EXPECT_EQ(picture.BoundsOf(all, 0x2D8B68), (Rectangle{52, 486, 70, 504}));
    EXPECT_EQ(picture.At(54, 495), 0x153E31u);
    EXPECT_EQ(picture.At(68, 495), 0x153E31u);
    EXPECT_EQ(picture.BoundsOf(all, 0x77D8AF), (Rectangle{56, 490, 67, 499}));
    for (const POINT corner : {POINT{57, 495}, POINT{60, 498}, POINT{66, 491}}) {
        EXPECT_EQ(picture.At(corner.x, corner.y), 0x77D8AFu) << corner.x;
    }
    EXPECT_NE(picture.At(60, 493), 0x77D8AFu) << "the tick has two strokes, not three";
}

TEST(WindowPixels, Lines_GrowWithTheScale) {
    struct Row {
        int dpi;
        int thickness;
    };
    for (const Row row : {Row{96, 1}, Row{120, 1}, Row{144, 2}, Row{192, 2}}) {
        ScaledWindow window(row.dpi);
        ASSERT_TRUE(window.created);
        Open(window.status, ViewNamed("downloading"));
        const Picture picture = PictureOfOne(window.status.window);
        const auto rule = picture.BoundsOf(picture.Area(), 0x283A49);
        ASSERT_TRUE(rule.has_value()) << row.dpi;
        EXPECT_EQ(rule->Height(), row.thickness) << row.dpi;
        const Rectangle frameRow = {Px(52, row.dpi) + 20, Px(170, row.dpi), Px(52, row.dpi) + 21, Px(200, row.dpi)};
        EXPECT_EQ(picture.Count(frameRow, 0x2B3E4F), static_cast<std::size_t>(row.thickness)) << row.dpi;
    }
}

/// A cross-shaped icon would hide a wrong place; a full one of a colour that nothing else has does not.
HICON FullIcon(int size, COLORREF colour) {
    const HDC screen = GetDC(nullptr);
    const HDC context = CreateCompatibleDC(screen);
    const HBITMAP colours = CreateCompatibleBitmap(screen, size, size);
    const HBITMAP mask = CreateBitmap(size, size, 1, 1, nullptr);
    const RECT all = {0, 0, size, size};
    const HBRUSH brush = CreateSolidBrush(colour);
    const HGDIOBJ before = SelectObject(context, colours);
    FillRect(context, &all, brush);
    SelectObject(context, mask);
    PatBlt(context, 0, 0, size, size, BLACKNESS);
    SelectObject(context, before);
    ICONINFO info = {TRUE, 0, 0, mask, colours};
    const HICON icon = CreateIconIndirect(&info);
    DeleteObject(brush);
    DeleteObject(mask);
    DeleteObject(colours);
    DeleteDC(context);
    ReleaseDC(nullptr, screen);
    return icon;
}

using OnLoadImage = StandIn<"LoadImageW", decltype(LoadImageW)>;

TEST(WindowPixels, Icon_IsLoadedForTheScaleAndStandsBesideTheTitle) {
    constexpr Pixel kIconColour = 0x20E010;
    std::vector<int> sizes;
    const OnLoadImage load([&](HINSTANCE, LPCWSTR name, UINT type, int width, int height, UINT) -> HANDLE {
        EXPECT_EQ(name, MAKEINTRESOURCEW(101));
        EXPECT_EQ(type, static_cast<UINT>(IMAGE_ICON));
        EXPECT_EQ(width, height);
        sizes.push_back(width);
        return FullIcon(width, RGB(0x20, 0xE0, 0x10));
    });
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    for (const int dpi : kWindowScales) {
        ChangeScale(window.status, dpi);
        EXPECT_EQ(sizes.back(), Px(36, dpi)) << dpi;
        Open(window.status, ViewNamed("checking"));
        const Picture compact = PictureOfOne(window.status.window);
        EXPECT_EQ(compact.Count(compact.Area(), kIconColour), 0u) << dpi;
        for (const char* name : {"prompt", "downloading"}) {
            Open(window.status, ViewNamed(name));
            const Picture picture = PictureOfOne(window.status.window);
            const Rectangle place = {Px(52, dpi), Px(48, dpi), Px(52, dpi) + Px(36, dpi), Px(48, dpi) + Px(36, dpi)};
            EXPECT_EQ(picture.BoundsOf(picture.Area(), kIconColour), place) << name << " at " << dpi;
            EXPECT_EQ(picture.Count(place, kIconColour), static_cast<std::size_t>(place.Width() * place.Height()));
        }
    }
}

TEST(WindowPixels, EraseBackground_FillsTheClientAndSaysSo) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    RECT client = {};
    GetClientRect(window.status.window, &client);
    const Picture picture(client.right + 7, client.bottom + 7);
    const LRESULT answer =
        SendMessageW(window.status.window, WM_ERASEBKGND, reinterpret_cast<WPARAM>(picture.Context()), 0);
    EXPECT_EQ(answer, 1);
    EXPECT_EQ(picture.BoundsOf(picture.Area(), kGround), FromRect(client));
    EXPECT_EQ(picture.Count(FromRect(client), kGround), static_cast<std::size_t>(client.right * client.bottom));
}

// --- Every pixel ---

/// The parts of the window's own painting, wide enough for the half of a line that stands outside.
std::vector<Rectangle> OwnParts(ViewMode mode, int dpi) {
    if (mode == ViewMode::compact) return {};
    const int half = Px(1, dpi);
    std::vector<Rectangle> parts = {Grown(Box(52, 126, 708, 127, dpi), half), Grown(Box(52, 176, 708, 468, dpi), half),
                                    Box(52, 48, 88, 84, dpi)};
    if (mode == ViewMode::prompt) parts.push_back(Grown(Box(52, 486, 70, 504, dpi), half));
    return parts;
}

struct Stray {
    std::size_t unpainted = 0;
    std::size_t outside = 0;  // of all parts, and not the window's background
};

Stray StrayPixels(const Picture& picture, const std::vector<Rectangle>& parts) {
    Stray stray;
    for (int y = 0; y < picture.Area().bottom; ++y) {
        for (int x = 0; x < picture.Area().right; ++x) {
            const Pixel pixel = picture.At(x, y);
            if (pixel == kGround) continue;
            if (pixel == kUnpainted) ++stray.unpainted;
            if (std::none_of(parts.begin(), parts.end(), [&](const Rectangle& part) { return Holds(part, x, y); })) {
                ++stray.outside;
            }
        }
    }
    return stray;
}

TEST(WindowPixels, EveryView_PaintsEveryPixelAndNoneAstray) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const View& view : AllViews()) {
            Open(window.status, view);
            const Picture picture = PictureOf(window.status.window);
            picture.Save(Named(view, dpi));
            std::vector<Rectangle> parts = OwnParts(view.mode, dpi);
            for (const HWND child : SeenChildren(window.status.window)) {
                parts.push_back(PlaceIn(window.status.window, child));
            }
            const Stray stray = StrayPixels(picture, parts);
            EXPECT_EQ(stray.unpainted, 0u) << Named(view, dpi);
            EXPECT_EQ(stray.outside, 0u) << Named(view, dpi);
        }
    }
}

/// The footer ends under it.
TEST(WindowPixels, Reconnect_IsWholeInThePictureOfTheWindow) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const char* name : {"receiving", "reconnect-asked"}) {
            Open(window.status, ViewNamed(name));
            const HWND reconnect = window.status.At(Control::reconnectButton);
            const Picture whole = PictureOf(window.status.window);
            const Picture button = PictureOfOne(reconnect);
            const Picture part(button.Area().right, button.Area().bottom);
            const Rectangle place = PlaceIn(window.status.window, reconnect);
            BitBlt(part.Context(), 0, 0, place.Width(), place.Height(), whole.Context(), place.left, place.top,
                   SRCCOPY);
            EXPECT_EQ(Difference(part, button), "") << name << " at " << dpi;
        }
    }
}

// --- The bar ---

struct BarLook {
    int percent;  // -1: in motion
    unsigned tick;
    Pixel colour;
};

/// The filled part inside a bar at `place`: the rules of the bar, calculated anew.
std::optional<Rectangle> ExpectedFill(const Rectangle& place, const BarLook& look, int dpi) {
    const int edge = Px(1, dpi);
    const Rectangle inner = {place.left + edge, place.top + edge, place.right - edge, place.bottom - edge};
    Rectangle fill = inner;
    if (look.percent >= 0) {
        fill.right = inner.left + MulDiv(inner.Width(), look.percent, 100);
    } else {
        const int segment = std::max(Px(34, dpi), inner.Width() / 4);
        const int travel = static_cast<int>(look.tick) * Px(4, dpi) % (segment + inner.Width());
        fill.left = std::max(inner.left, inner.left + travel - segment);
        fill.right = std::min(inner.left + travel, place.right - edge);
    }
    if (fill.left >= fill.right) return std::nullopt;
    return fill;
}

void ExpectBar(const Picture& picture, const Rectangle& place, const BarLook& look, int dpi, const std::string& name) {
    const auto fill = ExpectedFill(place, look, dpi);
    EXPECT_EQ(picture.BoundsOf(place, look.colour), fill) << name;
    if (fill) {
        EXPECT_EQ(picture.Count(*fill, look.colour), static_cast<std::size_t>(fill->Width() * fill->Height())) << name;
    }
    EXPECT_EQ(picture.BoundsOf(place, 0x374B5C), place) << "edge of " << name;
    const int middle = (place.top + place.bottom) / 2;
    for (int x = place.left + Px(2, dpi); x < place.right - Px(2, dpi); ++x) {
        const bool filled = fill && Holds(*fill, x, middle);
        ASSERT_EQ(picture.At(x, middle), filled ? look.colour : 0x2A333Fu) << name << ", column " << x;
    }
}

TEST(WindowPixels, EveryView_HasItsBar) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const View& view : AllViews()) {
            if (view.mode == ViewMode::prompt) continue;
            Open(window.status, view);
            const Picture picture = PictureOfOne(window.status.At(Control::bar));
            const int height = Px(view.mode == ViewMode::compact ? 10 : 8, dpi);
            ASSERT_EQ(picture.Area().bottom, height);
            ExpectBar(picture, picture.Area(), {view.percent, test_support::kSomeTick, view.barColour}, dpi,
                      Named(view, dpi));
        }
    }
}

TEST(WindowPixels, BarInBothSizes_ShowsItsShare) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const char* name : {"files", "downloading"}) {
            Open(window.status, ViewNamed(name));
            for (const int percent : {0, 1, 50, 99, 100}) {
                window.status.model.progress.percent = percent;
                const Picture picture = PictureOfOne(window.status.At(Control::bar));
                ExpectBar(picture, picture.Area(), {percent, 0, 0x2997FF}, dpi,
                          std::to_string(percent) + "% at " + std::to_string(dpi));
            }
        }
    }
}

TEST(WindowPixels, BarInMotion_ShowsItsSegmentAtEveryTick) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const char* name : {"checking", "accepted"}) {
            Open(window.status, ViewNamed(name));
            // Not yet in sight, just in, whole, at the right end, leaving, gone, in again.
            for (const unsigned tick : {0u, 1u, 25u, 26u, 41u, 60u, 102u, 103u, 110u, 127u, 128u, 163u, 164u, 205u}) {
                window.status.model.progress.marqueeTick = tick;
                const Picture picture = PictureOfOne(window.status.At(Control::bar));
                ExpectBar(picture, picture.Area(), {-1, tick, 0x2997FF}, dpi,
                          "tick " + std::to_string(tick) + " at " + std::to_string(dpi));
            }
        }
    }
}

// --- Only what changed is painted again ---

/// Brings all that is due onto the screen, so that what is due afterwards has a reason.
void PaintAll(const StatusWindow& status) {
    RedrawWindow(status.window, nullptr, nullptr, RDW_INVALIDATE | RDW_ALLCHILDREN | RDW_UPDATENOW);
}

bool IsDue(HWND window) {
    return GetUpdateRect(window, nullptr, FALSE) != FALSE;
}

std::vector<Control> ControlsThatAreDue(const StatusWindow& status) {
    std::vector<Control> due;
    for (std::size_t index = 0; index < status.controls.size(); ++index) {
        if (IsDue(status.controls[index])) due.push_back(static_cast<Control>(index));
    }
    return due;
}

TEST(WindowPixels, BarThatMoved_IsDueAloneToBePainted) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    StatusWindow& status = window.status;
    Open(status, ViewNamed("downloading"));
    PaintAll(status);
    ShowModel(status);
    EXPECT_EQ(ControlsThatAreDue(status), std::vector<Control>{}) << "nothing has changed";

    status.model.progress.percent = 38;
    ShowModel(status);
    EXPECT_EQ(ControlsThatAreDue(status), std::vector{Control::bar});
    EXPECT_FALSE(IsDue(status.window));

    PaintAll(status);
    status.model.progress.barColour = 0x30BE7A;
    ShowModel(status);
    EXPECT_EQ(ControlsThatAreDue(status), std::vector{Control::bar});
}

TEST(WindowPixels, PartWithAnotherText_IsDueAloneToBePainted) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    StatusWindow& status = window.status;
    Open(status, ViewNamed("prompt"));
    for (const Control control :
         {Control::versionBadge, Control::notesLink, Control::updateButton, Control::laterButton}) {
        PaintAll(status);
        status.model.At(control).text += L".";
        ShowModel(status);
        EXPECT_EQ(ControlsThatAreDue(status), std::vector{control});
    }
}

using OnBeginPaint = StandIn<"BeginPaint", decltype(BeginPaint)>;

/// What the view before it left on the same area must go.
TEST(WindowPixels, ViewOfTheSameSize_IsPaintedAnewAsAWhole) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    const StatusWindow& status = window.status;
    Open(window.status, ViewNamed("prompt"));
    PaintAll(status);
    std::vector<Rectangle> painted;
    const OnBeginPaint begin([&](HWND painting, LPPAINTSTRUCT paint) {
        const HDC context = OnBeginPaint::Original(painting, paint);
        if (painting == status.window) painted.push_back(FromRect(paint->rcPaint));
        return context;
    });
    Open(window.status, ViewNamed("downloading"));
    RECT client = {};
    GetClientRect(status.window, &client);
    ASSERT_FALSE(painted.empty());
    EXPECT_EQ(painted.back(), FromRect(client));
}

// --- The texts of the statics ---

struct TextRow {
    Control control;
    const char* name;
    Pixel ink;
};

constexpr TextRow kTexts[] = {
    {Control::title, "title", kStrong},
    {Control::versionLine, "version line", kQuiet},
    {Control::statusLine, "status line", kQuiet},
    {Control::notesHeading, "notes heading", kStrong},
    {Control::scrollHint, "scroll hint", kQuiet},
    {Control::safetyNotice, "safety notice", kQuiet},
    {Control::progressLine, "progress line", kStrong},
    {Control::progressDetail, "progress detail", kQuiet},
    {Control::footer, "footer", kQuiet},
};

/// The strongest channel of a smoothed text may stay a little behind; it never goes beyond.
bool IsInk(Pixel actual, Pixel expected) {
    for (const int shift : {0, 8, 16}) {
        const int painted = static_cast<int>(actual >> shift & 0xFF);
        const int meant = static_cast<int>(expected >> shift & 0xFF);
        if (painted > meant || painted < meant - 8) return false;
    }
    return true;
}

TEST(WindowPixels, EveryText_HasItsColourOnTheBackground) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const char* name : {"checking", "prompt", "downloading", "blocking-failure"}) {
            Open(window.status, ViewNamed(name));
            for (const TextRow& row : kTexts) {
                const HWND control = window.status.At(row.control);
                if ((GetWindowLongPtrW(control, GWL_STYLE) & WS_VISIBLE) == 0) continue;
                if (GetWindowTextLengthW(control) == 0) continue;
                const Picture picture = PictureOfOne(control);
                EXPECT_TRUE(IsInk(InkOf(picture, picture.Area()), row.ink))
                    << row.name << " in " << name << " at " << dpi << ": " << std::hex
                    << InkOf(picture, picture.Area());
                const Rectangle edge = {0, picture.Area().bottom - 1, picture.Area().right, picture.Area().bottom};
                EXPECT_EQ(picture.Count(edge, kGround), static_cast<std::size_t>(edge.Width())) << row.name;
            }
        }
    }
}

/// Ink that begins at the left edge or ends at the right one, but for the space that a letter has of its own.
TEST(WindowPixels, Texts_StandAtTheirSideOfTheControl) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Open(window.status, ViewNamed("downloading"));
        for (const TextRow& row : kTexts) {
            const HWND control = window.status.At(row.control);
            if ((GetWindowLongPtrW(control, GWL_STYLE) & WS_VISIBLE) == 0) continue;
            const Picture picture = PictureOfOne(control);
            const auto ink = picture.BoundsOfOther(picture.Area(), kGround);
            ASSERT_TRUE(ink.has_value()) << row.name;
            const bool right = row.control == Control::scrollHint || row.control == Control::progressDetail;
            const int gap = right ? picture.Area().right - ink->right : ink->left;
            EXPECT_LE(gap, Px(3, dpi)) << row.name << " at " << dpi;
        }
    }
}

struct StaticColours {
    COLORREF text;
    COLORREF ground;
    int mode;
    Pixel brush;
};

StaticColours ColoursFor(const StatusWindow& status, UINT message, Control control) {
    const Picture paper(1, 1);
    SetBkMode(paper.Context(), OPAQUE);
    SetBkColor(paper.Context(), RGB(1, 2, 3));
    const auto brush =
        reinterpret_cast<HBRUSH>(SendMessageW(status.window, message, reinterpret_cast<WPARAM>(paper.Context()),
                                              reinterpret_cast<LPARAM>(status.At(control))));
    LOGBRUSH look = {};
    GetObjectW(brush, sizeof look, &look);
    const COLORREF fill = look.lbColor;
    return {GetTextColor(paper.Context()), GetBkColor(paper.Context()), GetBkMode(paper.Context()),
            static_cast<Pixel>(GetRValue(fill) << 16 | GetGValue(fill) << 8 | GetBValue(fill))};
}

TEST(WindowPixels, Statics_AreToldTheirColours) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    for (const TextRow& row : kTexts) {
        const StaticColours colours = ColoursFor(window.status, WM_CTLCOLORSTATIC, row.control);
        EXPECT_EQ(colours.text, ToColorRef(row.ink)) << row.name;
        EXPECT_EQ(colours.mode, TRANSPARENT) << row.name;
        EXPECT_EQ(colours.brush, kGround) << row.name;
    }
}

TEST(WindowPixels, PanelAndEdits_AreToldThePanelsColours) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    for (const UINT message : {static_cast<UINT>(WM_CTLCOLORSTATIC), static_cast<UINT>(WM_CTLCOLOREDIT)}) {
        const StaticColours colours = ColoursFor(window.status, message, Control::notesPanel);
        EXPECT_EQ(colours.text, RGB(0xF4, 0xF7, 0xFA)) << message;
        EXPECT_EQ(colours.ground, RGB(0x0B, 0x11, 0x18)) << message;
        EXPECT_EQ(colours.brush, 0x0B1118u) << message;
    }
}

// --- Straight into a bitmap ---

TEST(WindowPixels, PaintWindowIntoAPartOfABitmap_StaysInside) {
    const Picture picture(90, 70);
    PaintWindow(picture.Context(), {11, 13, 51, 43}, ViewMode::compact, 96, nullptr);
    EXPECT_EQ(picture.BoundsOf(picture.Area(), kGround), (Rectangle{11, 13, 51, 43}));
    EXPECT_EQ(picture.Count(picture.Area(), kGround), 40u * 30);
    EXPECT_EQ(picture.Count(picture.Area(), kUnpainted), 90u * 70 - 40u * 30);
}

TEST(WindowPixels, PaintWindowIntoNothing_LeavesNothing) {
    const Picture picture(40, 40);
    PaintWindow(picture.Context(), {20, 20, 20, 20}, ViewMode::compact, 192, nullptr);
    EXPECT_EQ(picture.Count(picture.Area(), kUnpainted), 40u * 40);
}

}  // namespace
}  // namespace launcher_ui
