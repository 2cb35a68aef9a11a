#pragma once

/// Pictures of windows without a screen: every window is asked to paint itself into a bitmap, whose pixels can then be
/// read. A pixel that nobody painted keeps a colour that no window has.
///
/// With an environment variable `VPR_PICTURES` that names a folder, `Save` leaves the pictures there for a look.

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ui/layout.h"

namespace test_support {

/// 0x00RRGGBB.
using Pixel = std::uint32_t;

inline constexpr Pixel kUnpainted = 0xFF00FF;

/// Whether a pixel fits.
using PixelTest = std::function<bool(Pixel)>;

/// A bitmap that is painted through `Context()` and read pixel by pixel; row 0 is the uppermost.
class Picture {
  public:
    Picture(int width, int height);
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    Picture(Picture&& other) noexcept;
    ~Picture();

    [[nodiscard]] HDC Context() const { return context_; }
    [[nodiscard]] launcher_ui::Rectangle Area() const { return {0, 0, width_, height_}; }

    /// A place outside is `kUnpainted`.
    [[nodiscard]] Pixel At(int x, int y) const;

    [[nodiscard]] std::size_t Count(const launcher_ui::Rectangle& area, const PixelTest& fits) const;
    [[nodiscard]] std::size_t Count(const launcher_ui::Rectangle& area, Pixel colour) const;

    /// The smallest rectangle around all pixels of `area` that fit, or nothing.
    [[nodiscard]] std::optional<launcher_ui::Rectangle> Bounds(const launcher_ui::Rectangle& area,
                                                               const PixelTest& fits) const;
    [[nodiscard]] std::optional<launcher_ui::Rectangle> BoundsOf(const launcher_ui::Rectangle& area,
                                                                 Pixel colour) const;
    /// Around all that is not `ground`.
    [[nodiscard]] std::optional<launcher_ui::Rectangle> BoundsOfOther(const launcher_ui::Rectangle& area,
                                                                      Pixel ground) const;

    /// Writes `name`.bmp into the folder for pictures, if there is one.
    void Save(const std::string& name) const;

  private:
    int width_;
    int height_;
    HDC context_;
    HBITMAP bitmap_;
    HGDIOBJ before_;
    Pixel* pixels_ = nullptr;
};

/// Where the first pixel differs, row by row, and how many do; empty if none does and both are of one size.
[[nodiscard]] std::string Difference(const Picture& actual, const Picture& expected);

/// The strongest of what was painted on a dark ground, channel by channel: the colour of a text, however its edges are
/// smoothed.
[[nodiscard]] Pixel InkOf(const Picture& picture, const launcher_ui::Rectangle& area);

// What a part of a window must look like, drawn by the plain calls with the test's own numbers. Widths in pixels.

void DrawFilled(const Picture& picture, const launcher_ui::Rectangle& place, Pixel colour);

struct Shape {
    Pixel fill;
    Pixel edge;
    int penWidth;
};
void DrawRounded(const Picture& picture, const launcher_ui::Rectangle& place, const Shape& shape, int corner);
void DrawEllipse(const Picture& picture, const launcher_ui::Rectangle& place, const Shape& shape);
void DrawFrame(const Picture& picture, const launcher_ui::Rectangle& place, Pixel edge, int penWidth);
void DrawStrokes(const Picture& picture, const std::vector<POINT>& corners, Pixel colour, int penWidth);

/// A font as the window has them: "Segoe UI" of a height in pixels.
class WindowFont {
  public:
    WindowFont(int height, int weight);
    WindowFont(const WindowFont&) = delete;
    WindowFont& operator=(const WindowFont&) = delete;
    ~WindowFont();
    [[nodiscard]] HFONT Get() const { return font_; }

  private:
    HFONT font_;
};

void DrawWords(const Picture& picture, const WindowFont& font, const std::wstring& text,
               const launcher_ui::Rectangle& place, Pixel colour, UINT format);

/// Size of a text broken to `width` pixels.
[[nodiscard]] launcher_ui::Size MeasureWords(HFONT font, const std::wstring& text, int width, UINT format);

/// Size of a text on one line.
[[nodiscard]] launcher_ui::Size MeasureLine(HFONT font, const std::wstring& text);

/// The client area of one window without its children.
[[nodiscard]] Picture PictureOfOne(HWND window);

/// The client area of a window with all children that are to be seen in it, whether or not the window itself is; as it
/// looks when all of it is painted at once, the uppermost child first.
[[nodiscard]] Picture PictureOf(HWND window);

/// The children that `PictureOf` paints, the uppermost first.
[[nodiscard]] std::vector<HWND> SeenChildren(HWND window);

/// A child's place in its parent's client area, its own frame included.
[[nodiscard]] launcher_ui::Rectangle PlaceIn(HWND parent, HWND child);

/// The client area of `child`, without its frame and scroll bar, in its parent's client area.
[[nodiscard]] launcher_ui::Rectangle InsideIn(HWND parent, HWND child);

}  // namespace test_support
