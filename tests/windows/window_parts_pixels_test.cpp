#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/stand_in.h"
#include "tests/windows/window_views_fixture.h"
#include "ui/painting.h"

// The parts that the window draws by itself, in every state they have: bar, version badge, filled buttons and link; as
// the real window draws them when it is asked to, and straight into bitmaps.

namespace launcher_ui {
namespace {

using test_support::Difference;
using test_support::DrawFilled;
using test_support::DrawRounded;
using test_support::DrawStrokes;
using test_support::DrawWords;
using test_support::FocusCues;
using test_support::InkOf;
using test_support::kInstalled;
using test_support::kOffered;
using test_support::kUnpainted;
using test_support::kWindowScales;
using test_support::MeasureLine;
using test_support::Open;
using test_support::Picture;
using test_support::PictureOfOne;
using test_support::Pixel;
using test_support::Px;
using test_support::ScaledWindow;
using test_support::StandIn;
using test_support::ViewNamed;
using test_support::WindowFont;

constexpr Pixel kGround = 0x0F1318;
constexpr UINT kLine = DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX;
constexpr int kMargin = 9;  // around a part in its bitmap

Rectangle PartIn(const Picture& picture) {
    return {kMargin, kMargin, picture.Area().right - kMargin, picture.Area().bottom - kMargin};
}

/// Lets the window draw one of its own controls with its origin moved, as it would into any context.
Picture DrawnItem(const StatusWindow& status, Control control, UINT state) {
    RECT client = {};
    GetClientRect(status.At(control), &client);
    Picture picture(client.right + 2 * kMargin, client.bottom + 2 * kMargin);
    DRAWITEMSTRUCT item = {};
    item.itemState = state;
    item.hwndItem = status.At(control);
    item.hDC = picture.Context();
    item.rcItem = ToRect(PartIn(picture));
    EXPECT_EQ(SendMessageW(status.window, WM_DRAWITEM, 0, reinterpret_cast<LPARAM>(&item)), TRUE);
    return picture;
}

std::wstring TextOf(HWND control) {
    wchar_t text[256] = {};
    GetWindowTextW(control, text, 256);
    return text;
}

// --- Filled buttons ---

using OnGetFocus = StandIn<"GetFocus", decltype(GetFocus)>;

struct ButtonCase {
    const char* name;
    UINT state;      // of the item
    bool pointer;    // stands over it
    LRESULT cues;    // what is hidden
    Pixel primary;   // fill of Update
    Pixel ordinary;  // fill of the others
    bool cue = false;
};

constexpr ButtonCase kButtonCases[] = {
    {"idle", 0, false, 0, 0x1D6B9B, 0x151E27},
    {"under the pointer", 0, true, 0, 0x268FDA, 0x2A343F},
    {"hot", ODS_HOTLIGHT, false, 0, 0x268FDA, 0x2A343F},
    {"pressed", ODS_SELECTED, false, 0, 0x185880, 0x212B36},
    {"pressed under the pointer", ODS_SELECTED, true, 0, 0x185880, 0x212B36},
    {"focused", ODS_FOCUS, false, 0, 0x1D6B9B, 0x151E27, true},
    {"focused by a click", ODS_FOCUS, false, UISF_HIDEFOCUS, 0x1D6B9B, 0x151E27},
    {"focused with hidden accelerators", ODS_FOCUS, false, UISF_HIDEACCEL, 0x1D6B9B, 0x151E27, true},
    {"focused and pressed", ODS_FOCUS | ODS_SELECTED, false, 0, 0x185880, 0x212B36, true},
    {"focused under the pointer", ODS_FOCUS, true, 0, 0x268FDA, 0x2A343F, true},
    {"disabled", ODS_DISABLED, false, 0, 0x272D36, 0x272D36},
    {"disabled under the pointer", ODS_DISABLED, true, 0, 0x272D36, 0x272D36},
    {"disabled, hot and pressed", ODS_DISABLED | ODS_HOTLIGHT | ODS_SELECTED, false, 0, 0x272D36, 0x272D36},
    {"disabled and focused", ODS_DISABLED | ODS_FOCUS, false, 0, 0x272D36, 0x272D36},
};

struct FilledButton {
    Control control;
    const char* name;
    const char* view;
    int fontHeight;
    bool primary;
};

constexpr FilledButton kFilledButtons[] = {
    {Control::updateButton, "Update", "prompt", 14, true},
    {Control::laterButton, "Later", "prompt", 14, false},
    {Control::cancelButton, "Cancel", "receiving", 12, false},
    {Control::reconnectButton, "Reconnect", "receiving", 12, false},
    {Control::cancelButton, "Close", "blocking-failure", 12, false},
};

void DrawExpectedButton(const Picture& picture, const FilledButton& button, const ButtonCase& look,
                        const std::wstring& text, int dpi) {
    const Rectangle place = PartIn(picture);
    const WindowFont font(Px(button.fontHeight, dpi), 400);
    const Pixel fill = button.primary ? look.primary : look.ordinary;
    DrawFilled(picture, place, kGround);
    DrawRounded(picture, place, {fill, button.primary ? fill : 0x40566A, 1}, 8);
    DrawWords(picture, font, text, place, (look.state & ODS_DISABLED) != 0 ? 0x77828F : 0xF4F7FA, kLine | DT_CENTER);
    if (!look.cue) return;
    const LONG y = place.bottom - Px(5, dpi);
    DrawStrokes(picture, {{place.left + Px(12, dpi), y}, {place.right - Px(12, dpi), y}}, 0xAADCFA,
                std::max(1, Px(1, dpi)));
}

TEST(WindowButtons, EveryStateAtEveryScale_LooksAsItMust) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        for (const FilledButton& button : kFilledButtons) {
            Open(window.status, ViewNamed(button.view));
            const HWND handle = window.status.At(button.control);
            const OnGetFocus focus([handle] { return handle; });
            for (const ButtonCase& look : kButtonCases) {
                window.status.hoverButton = look.pointer ? handle : nullptr;
                const FocusCues cues(handle, look.cues);
                const Picture actual = DrawnItem(window.status, button.control, look.state);
                const Picture expected(actual.Area().right, actual.Area().bottom);
                DrawExpectedButton(expected, button, look, TextOf(handle), dpi);
                EXPECT_EQ(Difference(actual, expected), "") << button.name << " " << look.name << " at " << dpi;
            }
            window.status.hoverButton = nullptr;
        }
    }
}

TEST(WindowButtons, PointerOverAnother_LeavesAButtonIdle) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    window.status.hoverButton = window.status.At(Control::laterButton);
    EXPECT_EQ(DrawnItem(window.status, Control::updateButton, 0).At(kMargin + 5, kMargin + 5), 0x1D6B9Bu);
    EXPECT_EQ(DrawnItem(window.status, Control::laterButton, 0).At(kMargin + 5, kMargin + 5), 0x2A343Fu);
    window.status.hoverButton = nullptr;
}

/// Fill of a button that paints itself, beside its text.
Pixel FillOf(HWND button) {
    const Picture picture = PictureOfOne(button);
    return picture.At(5, picture.Area().bottom / 2);
}

TEST(WindowButtons, PointerPressAndRelease_ChangeTheRealButton) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const HWND update = window.status.At(Control::updateButton);
    EXPECT_EQ(FillOf(update), 0x1D6B9Bu);
    SendMessageW(update, WM_MOUSEMOVE, 0, MAKELPARAM(20, 20));
    EXPECT_EQ(FillOf(update), 0x268FDAu);
    SendMessageW(update, BM_SETSTATE, TRUE, 0);
    EXPECT_EQ(FillOf(update), 0x185880u);
    SendMessageW(update, BM_SETSTATE, FALSE, 0);
    EXPECT_EQ(FillOf(update), 0x268FDAu);
    SendMessageW(update, WM_MOUSELEAVE, 0, 0);
    EXPECT_EQ(FillOf(update), 0x1D6B9Bu);
}

TEST(WindowButtons, ButtonDisabledUnderThePointer_KeepsNoHoverColour) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("blocking-failure"));
    const HWND close = window.status.At(Control::cancelButton);
    SendMessageW(close, WM_MOUSEMOVE, 0, MAKELPARAM(20, 20));
    EXPECT_EQ(FillOf(close), 0x2A343Fu);
    EnableWindow(close, FALSE);
    EXPECT_EQ(FillOf(close), 0x272D36u);
    EnableWindow(close, TRUE);
    EXPECT_EQ(FillOf(close), 0x151E27u) << "the pointer has not moved since";
}

TEST(WindowButtons, EveryViewsButtons_PaintTheStateTheyAreIn) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    for (const char* name : {"accepted", "downloading", "receiving", "connecting", "installing", "blocking-failure"}) {
        const auto& view = ViewNamed(name);
        Open(window.status, view);
        EXPECT_EQ(FillOf(window.status.At(Control::cancelButton)), view.cancelWorks ? 0x151E27u : 0x272D36u) << name;
        if (!view.reconnect) continue;
        EXPECT_EQ(FillOf(window.status.At(Control::reconnectButton)), view.reconnectWorks ? 0x151E27u : 0x272D36u)
            << name;
    }
}

TEST(WindowButtons, FocusElsewhere_ShowsNoCue) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const OnGetFocus focus([&] { return window.status.At(Control::laterButton); });
    const FocusCues cues(window.status.At(Control::updateButton), 0);
    const Picture picture = DrawnItem(window.status, Control::updateButton, ODS_FOCUS);
    EXPECT_EQ(picture.Count(picture.Area(), 0xAADCFA), 0u);
}

TEST(WindowButtons, ItemWithoutFocus_ShowsNoCue) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const HWND update = window.status.At(Control::updateButton);
    const OnGetFocus focus([update] { return update; });
    const FocusCues cues(update, 0);
    const Picture picture = DrawnItem(window.status, Control::updateButton, 0);
    EXPECT_EQ(picture.Count(picture.Area(), 0xAADCFA), 0u);
}

/// The pieces looked at one by one, where a line is one pixel thick.
TEST(WindowButtons, FocusedLater_HasEdgeFillCornersAndCueAtTheirPixels) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const HWND later = window.status.At(Control::laterButton);
    const OnGetFocus focus([later] { return later; });
    const FocusCues cues(later, 0);
    const Picture picture = DrawnItem(window.status, Control::laterButton, ODS_FOCUS);
    const Rectangle place = PartIn(picture);
    ASSERT_EQ(place.Width(), 88);
    ASSERT_EQ(place.Height(), 40);
    EXPECT_EQ(picture.BoundsOf(picture.Area(), 0x40566A), place);
    for (const int x : {place.left, place.right - 1}) {
        for (const int y : {place.top, place.bottom - 1}) {
            EXPECT_EQ(picture.At(x, y), kGround) << "the corners are round";
        }
    }
    for (int x = place.left + 4; x < place.right - 4; ++x) {
        ASSERT_EQ(picture.At(x, place.top), 0x40566Au) << x;
        ASSERT_EQ(picture.At(x, place.top + 1), 0x151E27u) << x;
    }
    const Rectangle cue = {place.left + 12, place.bottom - 5, place.right - 12, place.bottom - 4};
    EXPECT_EQ(picture.BoundsOf(picture.Area(), 0xAADCFA), cue);
    EXPECT_EQ(picture.Count(cue, 0xAADCFA), static_cast<std::size_t>(cue.Width())) << "without a gap";
}

TEST(WindowButtons, Corners_DoNotGrowWithTheScale) {
    constexpr int kCorner = 8;
    const auto corner = [](int dpi) {
        ScaledWindow window(dpi);
        Open(window.status, ViewNamed("prompt"));
        const Picture picture = DrawnItem(window.status, Control::laterButton, 0);
        std::vector<Pixel> pixels;
        for (int y = 0; y < kCorner; ++y) {
            for (int x = 0; x < kCorner; ++x) {
                pixels.push_back(picture.At(kMargin + x, kMargin + y));
            }
        }
        return pixels;
    };
    const std::vector<Pixel> first = corner(96);
    ASSERT_EQ(first.front(), kGround);
    for (const int dpi : {120, 144, 192}) {
        EXPECT_EQ(corner(dpi), first) << dpi;
    }
}

TEST(WindowButtons, LongLabel_EndsWithItsSixtyFourthCharacter) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("receiving"));
    const FilledButton& cancel = kFilledButtons[2];
    for (const std::size_t length : {63u, 64u, 65u, 80u}) {
        const std::wstring text(length, L'i');
        SetWindowTextW(window.status.At(cancel.control), text.c_str());
        const Picture actual = DrawnItem(window.status, cancel.control, 0);
        const Picture expected(actual.Area().right, actual.Area().bottom);
        const WindowFont narrow(Px(12, 96), 400);
        ASSERT_GT(MeasureLine(narrow.Get(), text).width, MeasureLine(narrow.Get(), text.substr(1)).width);
        DrawExpectedButton(expected, cancel, kButtonCases[0], text.substr(0, 64), 96);
        EXPECT_EQ(Difference(actual, expected), "") << length;
    }
}

TEST(WindowButtons, Ampersand_IsALetterLikeAnyOther) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const FilledButton& later = kFilledButtons[1];
    SetWindowTextW(window.status.At(later.control), L"A&B");
    const Picture actual = DrawnItem(window.status, later.control, 0);
    const Picture expected(actual.Area().right, actual.Area().bottom);
    DrawExpectedButton(expected, later, kButtonCases[0], L"A&B", 96);
    EXPECT_EQ(Difference(actual, expected), "");
}

// --- The link ---

struct LinkCase {
    const char* name;
    UINT state;
    bool pointer;
    LRESULT cues;  // what is hidden
    Pixel ink;
    bool underlined;
};

constexpr LinkCase kLinkCases[] = {
    {"idle", 0, false, 0, 0x6FAED5, false},
    {"under the pointer", 0, true, 0, 0x91D2FA, true},
    {"hot", ODS_HOTLIGHT, false, 0, 0x91D2FA, true},
    {"pressed", ODS_SELECTED, false, 0, 0x6FAED5, false},
    {"focused", ODS_FOCUS, false, 0, 0x6FAED5, true},
    {"focused by a click", ODS_FOCUS, false, UISF_HIDEFOCUS, 0x6FAED5, false},
    {"disabled", ODS_DISABLED, false, 0, 0x77828F, false},
    {"disabled under the pointer", ODS_DISABLED, true, 0, 0x77828F, false},
    {"disabled and focused", ODS_DISABLED | ODS_FOCUS, false, 0, 0x77828F, false},
};

Rectangle UnderlineOf(const Rectangle& place, const Size& text, int dpi) {
    const int top = (place.top + place.bottom + text.height) / 2 + Px(1, dpi);
    return {place.left, top, std::min(place.left + text.width, place.right), top + Px(2, dpi)};
}

void DrawExpectedLink(const Picture& picture, const LinkCase& look, const std::wstring& text, int dpi) {
    const Rectangle place = PartIn(picture);
    const WindowFont font(Px(14, dpi), 400);
    DrawFilled(picture, place, kGround);
    DrawWords(picture, font, text + L"  →", place, look.ink, kLine);
    if (look.underlined) {
        DrawFilled(picture, UnderlineOf(place, MeasureLine(font.Get(), text + L"  →"), dpi), 0x91D2FA);
    }
}

TEST(WindowLink, EveryStateAtEveryScale_LooksAsItMust) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Open(window.status, ViewNamed("prompt"));
        const HWND link = window.status.At(Control::notesLink);
        const OnGetFocus focus([link] { return link; });
        for (const LinkCase& look : kLinkCases) {
            window.status.hoverButton = look.pointer ? link : nullptr;
            const FocusCues cues(link, look.cues);
            const Picture actual = DrawnItem(window.status, Control::notesLink, look.state);
            const Picture expected(actual.Area().right, actual.Area().bottom);
            DrawExpectedLink(expected, look, TextOf(link), dpi);
            EXPECT_EQ(Difference(actual, expected), "") << look.name << " at " << dpi;
        }
        window.status.hoverButton = nullptr;
    }
}

TEST(WindowLink, UnderThePointer_IsUnderlinedAsFarAsItsArrowReaches) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    const Picture picture = DrawnItem(window.status, Control::notesLink, ODS_HOTLIGHT);
    const Rectangle place = PartIn(picture);
    const Picture idle = DrawnItem(window.status, Control::notesLink, 0);
    const auto words = idle.BoundsOfOther(place, kGround);
    ASSERT_TRUE(words.has_value());
    const Rectangle lower = {place.left, words->bottom + 1, place.right, place.bottom};
    const auto line = picture.BoundsOf(lower, 0x91D2FA);
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->left, place.left);
    EXPECT_EQ(line->Height(), 2);
    EXPECT_GE(line->right, words->right);
    EXPECT_LE(line->right, words->right + 4) << "only the arrow's own space is beyond";
    EXPECT_EQ(picture.Count(*line, 0x91D2FA), static_cast<std::size_t>(2 * line->Width()));
    EXPECT_EQ(idle.Count(lower, kGround), static_cast<std::size_t>(lower.Width() * lower.Height()));
}

TEST(WindowLink, TextThatIsTooWide_IsUnderlinedToTheRightEdge) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    SetWindowTextW(window.status.At(Control::notesLink), std::wstring(60, L'W').c_str());
    const Picture picture = DrawnItem(window.status, Control::notesLink, ODS_HOTLIGHT);
    const Rectangle place = PartIn(picture);
    const WindowFont font(14, 400);
    const Rectangle line = UnderlineOf(place, MeasureLine(font.Get(), std::wstring(60, L'W') + L"  →"), 96);
    ASSERT_EQ(line.right, place.right);
    EXPECT_EQ(picture.BoundsOf({0, line.top, picture.Area().right, line.bottom}, 0x91D2FA), line);
    const std::size_t around =
        static_cast<std::size_t>(picture.Area().right * picture.Area().bottom - place.Width() * place.Height());
    EXPECT_EQ(picture.Count(picture.Area(), kUnpainted), around);
}

TEST(WindowLink, LongLabel_EndsWithItsNinetySixthCharacter) {
    ScaledWindow window(192);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    for (const std::size_t length : {95u, 96u, 97u, 120u}) {
        const std::wstring text(length, L'\'');
        SetWindowTextW(window.status.At(Control::notesLink), text.c_str());
        MoveWindow(window.status.At(Control::notesLink), 0, 0, 1400, 80, FALSE);  // wide enough for all of it
        const Picture actual = DrawnItem(window.status, Control::notesLink, 0);
        const Picture expected(actual.Area().right, actual.Area().bottom);
        DrawExpectedLink(expected, kLinkCases[0], text.substr(0, 96), 192);
        EXPECT_EQ(Difference(actual, expected), "") << length;
    }
}

// --- The version badge ---

struct BadgeParts {
    Rectangle current;
    Rectangle arrow;
    Rectangle offered;
};

BadgeParts BoxesOf(const Rectangle& badge, int dpi) {
    const auto box = [&](int left, int right) { return Rectangle{left, badge.top, right, badge.bottom}; };
    const int current = badge.left + Px(5, dpi);
    const int arrow = badge.left + Px(71, dpi);
    return {box(current, current + Px(62, dpi)), box(arrow, arrow + Px(26, dpi)),
            box(badge.left + Px(103, dpi), badge.right - Px(2, dpi))};
}

struct BadgeCase {
    const wchar_t* current;
    const wchar_t* offered;
};

constexpr BadgeCase kBadgeCases[] = {{L"2.1.4.1", L"2.1.4.2"},
                                     {L"Unknown", L"10.20.30.40"},
                                     {L"65535.65535.65535.65535", L"65535.65535.65535.65535"},
                                     {L"1", L""}};

void DrawExpectedBadge(const Picture& picture, const BadgeCase& versions, int dpi) {
    const Rectangle place = PartIn(picture);
    const WindowFont font(Px(14, dpi), 400);
    const BadgeParts boxes = BoxesOf(place, dpi);
    DrawFilled(picture, place, kGround);
    DrawWords(picture, font, versions.current, boxes.current, 0xA9B4C2, kLine | DT_END_ELLIPSIS);
    DrawWords(picture, font, L"→", boxes.arrow, 0x668BA8, kLine | DT_CENTER);
    DrawWords(picture, font, versions.offered, boxes.offered, 0x91D2FA, kLine | DT_END_ELLIPSIS);
}

TEST(WindowBadge, EveryPairOfVersions_LooksAsItMust) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Open(window.status, ViewNamed("prompt"));
        for (const BadgeCase& versions : kBadgeCases) {
            window.status.model.currentVersion = versions.current;
            window.status.model.offeredVersion = versions.offered;
            const Picture actual = DrawnItem(window.status, Control::versionBadge, 0);
            const Picture expected(actual.Area().right, actual.Area().bottom);
            DrawExpectedBadge(expected, versions, dpi);
            EXPECT_EQ(Difference(actual, expected), "") << dpi;
        }
    }
}

TEST(WindowBadge, NoInstalledVersion_SaysUnknown) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    Open(window.status, ViewNamed("prompt"));
    window.status.model.currentVersion.clear();
    const Picture actual = DrawnItem(window.status, Control::versionBadge, 0);
    const Picture expected(actual.Area().right, actual.Area().bottom);
    DrawExpectedBadge(expected, {L"Unknown", kOffered}, 96);
    EXPECT_EQ(Difference(actual, expected), "");
}

TEST(WindowBadge, EveryPart_KeepsInsideItsBoxInItsColour) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        Open(window.status, ViewNamed("prompt"));
        window.status.model.currentVersion = window.status.model.offeredVersion = L"65535.65535.65535.65535";
        const Picture picture = DrawnItem(window.status, Control::versionBadge, 0);
        const Rectangle place = PartIn(picture);
        const BadgeParts boxes = BoxesOf(place, dpi);
        EXPECT_EQ(InkOf(picture, boxes.current), 0xA9B4C2u) << dpi;
        EXPECT_EQ(InkOf(picture, boxes.offered), 0x91D2FAu) << dpi;
        const Pixel arrow = InkOf(picture, boxes.arrow);
        EXPECT_TRUE(arrow > 0x507090 && arrow <= 0x668BA8) << dpi << ": " << std::hex << arrow;
        for (const Rectangle& gap : {Rectangle{place.left, place.top, boxes.current.left, place.bottom},
                                     Rectangle{boxes.current.right, place.top, boxes.arrow.left, place.bottom},
                                     Rectangle{boxes.arrow.right, place.top, boxes.offered.left, place.bottom},
                                     Rectangle{boxes.offered.right, place.top, place.right, place.bottom}}) {
            EXPECT_EQ(picture.BoundsOfOther(gap, kGround), std::nullopt) << gap << " at " << dpi;
        }
    }
}

// --- Straight into bitmaps ---

/// Bounds of all that was painted, or an empty place.
Rectangle Painted(const Picture& picture) {
    return picture.BoundsOfOther(picture.Area(), kUnpainted).value_or(Rectangle{});
}

/// A pen thicker than a pixel stands with its first half outside of the shape it goes around.
Rectangle WithPen(const Rectangle& place, int dpi) {
    const int half = Px(1, dpi) / 2;
    return {place.left - half, place.top - half, place.right, place.bottom};
}

constexpr Rectangle kOddPlaces[] = {{13, 17, 113, 57}, {-20, -5, 60, 21}, {100, 60, 180, 140}, {30, 30, 47, 34},
                                    {30, 30, 36, 80},  {40, 40, 43, 43},  {40, 40, 42, 42}};

bool Contains(const Rectangle& outer, const Rectangle& inner) {
    return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
           inner.bottom <= outer.bottom;
}

TEST(WindowParts, PaintedAnywhere_StayInsideTheirPlaces) {
    for (const int dpi : kWindowScales) {
        FontSet fonts;
        fonts.Build(dpi);
        const HFONT font = fonts.Get(FontRole::body);
        for (const Rectangle& place : kOddPlaces) {
            const RECT rect = ToRect(place);
            const Picture bar(150, 100);
            PaintBar(bar.Context(), rect, {50, false, 0}, 0x2997FF, dpi);
            EXPECT_TRUE(Contains(WithPen(place, dpi), Painted(bar))) << place << " " << Painted(bar) << " at " << dpi;
            const Picture button(150, 100);
            PaintFilledButton(button.Context(), rect, kOrdinaryButton, {}, L"Later", font, dpi);
            EXPECT_TRUE(Contains(place, Painted(button))) << place << " " << Painted(button) << " at " << dpi;
            const Picture link(150, 100);
            PaintLink(link.Context(), rect, {}, L"Notes", font, dpi);
            EXPECT_TRUE(Contains(place, Painted(link))) << place << " " << Painted(link) << " at " << dpi;
            for (const Picture* picture : {&bar, &button, &link}) {
                EXPECT_FALSE(Painted(*picture) == Rectangle{}) << place;
            }
        }
    }
}

/// Its boxes have fixed widths, so it has a size of its own.
TEST(WindowParts, BadgePaintedAnywhere_StaysInsideItsPlace) {
    for (const int dpi : kWindowScales) {
        FontSet fonts;
        fonts.Build(dpi);
        for (const Point corner : {Point{13, 17}, Point{-20, -5}, Point{100, 60}}) {
            const Rectangle place = {corner.x, corner.y, corner.x + Px(181, dpi), corner.y + Px(39, dpi)};
            const Picture picture(600, 200);
            PaintVersionBadge(picture.Context(), ToRect(place), L"65535.65535.65535.65535", L"65535.65535.65535.65535",
                              fonts.Get(FontRole::body), dpi);
            const Rectangle seen = {std::max<int>(0, place.left), std::max<int>(0, place.top), place.right,
                                    place.bottom};
            EXPECT_EQ(Painted(picture), seen) << dpi;
        }
    }
}

TEST(WindowParts, BarOutsideItsOrigin_IsTheSameBar) {
    const Picture here(240, 60);
    const Picture there(240, 60);
    PaintBar(here.Context(), {0, 0, 200, 8}, {37, false, 0}, 0xE85454, 96);
    PaintBar(there.Context(), {31, 40, 231, 48}, {37, false, 0}, 0xE85454, 96);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 200; ++x) {
            ASSERT_EQ(here.At(x, y), there.At(x + 31, y + 40)) << x << ", " << y;
        }
    }
}

TEST(WindowParts, BarTrack_IsRoundedByTheScale) {
    for (const int dpi : kWindowScales) {
        const Picture actual(240, 60);
        PaintBar(actual.Context(), {20, 20, 220, 44}, {0, false, 0}, 0x2997FF, dpi);
        const Picture expected(240, 60);
        DrawFilled(expected, {20, 20, 220, 44}, kGround);
        DrawRounded(expected, {20, 20, 220, 44}, {0x2A333F, 0x374B5C, std::max(1, Px(1, dpi))}, Px(5, dpi));
        EXPECT_EQ(Difference(actual, expected), "") << dpi;
    }
}

/// In a bar so short that a quarter of it is less, the segment is 34 units wide.
TEST(WindowParts, ShortBarInMotion_HasASegmentThatCanBeSeen) {
    for (const int dpi : kWindowScales) {
        const Picture picture(240, 60);
        const Rectangle track = {20, 20, 20 + Px(100, dpi), 20 + Px(10, dpi)};
        PaintBar(picture.Context(), ToRect(track), {0, true, 15}, 0x2997FF, dpi);
        const int end = track.left + Px(1, dpi) + 15 * Px(4, dpi);
        EXPECT_EQ(picture.BoundsOf(picture.Area(), 0x2997FF),
                  (Rectangle{end - Px(34, dpi), track.top + Px(1, dpi), end, track.bottom - Px(1, dpi)}))
            << dpi;
    }
}

TEST(WindowParts, BarWithoutAnInside_IsTrackOnly) {
    for (const Rectangle& place : {Rectangle{10, 10, 90, 12}, Rectangle{10, 10, 12, 40}, Rectangle{10, 10, 11, 11}}) {
        const Picture picture(100, 50);
        PaintBar(picture.Context(), ToRect(place), {100, false, 0}, 0x2997FF, 96);
        EXPECT_EQ(picture.Count(picture.Area(), 0x2997FF), 0u) << place;
    }
}

/// At a scale so small that a unit is less than half a pixel, lines that must not vanish are still there.
TEST(WindowParts, TinyScale_KeepsItsThinnestLines) {
    constexpr int kTinyDpi = 40;
    const Picture bar(100, 30);
    PaintBar(bar.Context(), {10, 10, 90, 20}, {0, false, 0}, 0x2997FF, kTinyDpi);
    EXPECT_EQ(bar.BoundsOf(bar.Area(), 0x374B5C), (Rectangle{10, 10, 90, 20}));
    const Picture button(100, 40);
    PaintFilledButton(button.Context(), {10, 5, 90, 35}, kOrdinaryButton, {.focusCue = true}, L"", nullptr, kTinyDpi);
    EXPECT_EQ(button.BoundsOf(button.Area(), 0xAADCFA), (Rectangle{15, 33, 85, 34}));
}

}  // namespace
}  // namespace launcher_ui
