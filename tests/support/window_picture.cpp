#include "tests/support/window_picture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "ui/gdi_handles.h"

namespace test_support {

using launcher_ui::BrushHandle;
using launcher_ui::PenHandle;
using launcher_ui::Rectangle;
using launcher_ui::Selection;

namespace {

constexpr Pixel kColourBits = 0xFFFFFF;  // what painting leaves in the fourth byte is of no account

BITMAPINFO TopDown(int width, int height) {
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    return info;
}

Rectangle Mapped(HWND from, HWND to, RECT rect) {
    MapWindowPoints(from, to, reinterpret_cast<POINT*>(&rect), 2);
    return {static_cast<int>(rect.left), static_cast<int>(rect.top), static_cast<int>(rect.right),
            static_cast<int>(rect.bottom)};
}

RECT ClientOf(HWND window) {
    RECT client = {};
    GetClientRect(window, &client);
    return client;
}

Picture EmptyPictureFor(HWND window) {
    const RECT client = ClientOf(window);
    return Picture(static_cast<int>(client.right), static_cast<int>(client.bottom));
}

COLORREF Reference(Pixel colour) {
    return RGB((colour >> 16) & 0xFF, (colour >> 8) & 0xFF, colour & 0xFF);
}

/// Pen and brush of a shape, selected for the life of this.
struct Tools {
    Tools(const Picture& picture, const Shape& shape)
        : brush(CreateSolidBrush(Reference(shape.fill))),
          pen(CreatePen(PS_SOLID, shape.penWidth, Reference(shape.edge))),
          withBrush(picture.Context(), brush.Get()),
          withPen(picture.Context(), pen.Get()) {}

    BrushHandle brush;
    PenHandle pen;
    Selection withBrush;
    Selection withPen;
};

/// As Windows paints a child: over its siblings, unless it asks to be kept off those above it.
void PaintChild(Picture& picture, HWND parent, HWND child, const std::vector<HWND>& above) {
    const int saved = SaveDC(picture.Context());
    if ((GetWindowLongPtrW(child, GWL_STYLE) & WS_CLIPSIBLINGS) != 0) {
        for (const HWND sibling : above) {
            const Rectangle kept = PlaceIn(parent, sibling);
            ExcludeClipRect(picture.Context(), kept.left, kept.top, kept.right, kept.bottom);
        }
    }
    // A picture of its own for each: some of Windows' controls paint nothing where the origin was moved.
    const Picture part = PictureOfOne(child);
    const Rectangle place = InsideIn(parent, child);
    BitBlt(picture.Context(), place.left, place.top, place.Width(), place.Height(), part.Context(), 0, 0, SRCCOPY);
    RestoreDC(picture.Context(), saved);
}

}  // namespace

Picture::Picture(int width, int height) : width_(width), height_(height), context_(CreateCompatibleDC(nullptr)) {
    GdiSetBatchLimit(1);  // the pixels are read behind GDI's back
    const BITMAPINFO info = TopDown(std::max(1, width), std::max(1, height));
    void* pixels = nullptr;
    bitmap_ = CreateDIBSection(context_, &info, DIB_RGB_COLORS, &pixels, nullptr, 0);
    before_ = SelectObject(context_, bitmap_);
    pixels_ = static_cast<Pixel*>(pixels);
    std::fill_n(pixels_, static_cast<std::size_t>(std::max(1, width)) * static_cast<std::size_t>(std::max(1, height)),
                kUnpainted);
}

Picture::Picture(Picture&& other) noexcept
    : width_(other.width_),
      height_(other.height_),
      context_(std::exchange(other.context_, nullptr)),
      bitmap_(std::exchange(other.bitmap_, nullptr)),
      before_(std::exchange(other.before_, nullptr)),
      pixels_(std::exchange(other.pixels_, nullptr)) {}

Picture::~Picture() {
    if (context_ == nullptr) return;
    SelectObject(context_, before_);
    DeleteObject(bitmap_);
    DeleteDC(context_);
}

Pixel Picture::At(int x, int y) const {
    if (x < 0 || y < 0 || x >= width_ || y >= height_) return kUnpainted;
    return pixels_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)] &
           kColourBits;
}

std::size_t Picture::Count(const Rectangle& area, const PixelTest& fits) const {
    std::size_t count = 0;
    for (int y = area.top; y < area.bottom; ++y) {
        for (int x = area.left; x < area.right; ++x) {
            if (fits(At(x, y))) ++count;
        }
    }
    return count;
}

std::size_t Picture::Count(const Rectangle& area, Pixel colour) const {
    return Count(area, [colour](Pixel pixel) { return pixel == colour; });
}

std::optional<Rectangle> Picture::Bounds(const Rectangle& area, const PixelTest& fits) const {
    std::optional<Rectangle> bounds;
    for (int y = area.top; y < area.bottom; ++y) {
        for (int x = area.left; x < area.right; ++x) {
            if (!fits(At(x, y))) continue;
            if (!bounds) bounds = Rectangle{x, y, x + 1, y + 1};
            bounds->left = std::min(bounds->left, x);
            bounds->right = std::max(bounds->right, x + 1);
            bounds->bottom = y + 1;
        }
    }
    return bounds;
}

std::optional<Rectangle> Picture::BoundsOf(const Rectangle& area, Pixel colour) const {
    return Bounds(area, [colour](Pixel pixel) { return pixel == colour; });
}

std::optional<Rectangle> Picture::BoundsOfOther(const Rectangle& area, Pixel ground) const {
    return Bounds(area, [ground](Pixel pixel) { return pixel != ground; });
}

void Picture::Save(const std::string& name) const {
    const char* const folder = std::getenv("VPR_PICTURES");
    if (folder == nullptr) return;
    std::FILE* const file = std::fopen((std::string(folder) + "/" + name + ".bmp").c_str(), "wb");
    if (file == nullptr) return;
    const BITMAPINFO info = TopDown(width_, height_);
    const auto bytes = static_cast<DWORD>(width_ * height_) * static_cast<DWORD>(sizeof(Pixel));
    BITMAPFILEHEADER header = {};
    header.bfType = 0x4D42;  // "BM"
    header.bfOffBits = sizeof header + sizeof info.bmiHeader;
    header.bfSize = header.bfOffBits + bytes;
    std::fwrite(&header, sizeof header, 1, file);
    std::fwrite(&info.bmiHeader, sizeof info.bmiHeader, 1, file);
    std::fwrite(pixels_, 1, bytes, file);
    std::fclose(file);
}

std::string Difference(const Picture& actual, const Picture& expected) {
    if (!(actual.Area() == expected.Area())) return "the sizes differ";
    std::string first;
    std::size_t count = 0;
    for (int y = 0; y < actual.Area().bottom; ++y) {
        for (int x = 0; x < actual.Area().right; ++x) {
            if (actual.At(x, y) == expected.At(x, y)) continue;
            if (count++ != 0) continue;
            char text[96];
            std::snprintf(text, sizeof text, "(%d, %d) is #%06X instead of #%06X", x, y, actual.At(x, y),
                          expected.At(x, y));
            first = text;
        }
    }
    return count == 0 ? std::string() : first + ", " + std::to_string(count) + " pixels differ";
}

Pixel InkOf(const Picture& picture, const Rectangle& area) {
    Pixel ink = 0;
    for (int y = area.top; y < area.bottom; ++y) {
        for (int x = area.left; x < area.right; ++x) {
            const Pixel pixel = picture.At(x, y);
            for (const Pixel channel : {0xFF0000u, 0x00FF00u, 0x0000FFu}) {
                ink = (ink & ~channel) | std::max(ink & channel, pixel & channel);
            }
        }
    }
    return ink;
}

void DrawFilled(const Picture& picture, const Rectangle& place, Pixel colour) {
    const RECT rect = {place.left, place.top, place.right, place.bottom};
    const BrushHandle brush(CreateSolidBrush(Reference(colour)));
    FillRect(picture.Context(), &rect, brush.Get());
}

void DrawRounded(const Picture& picture, const Rectangle& place, const Shape& shape, int corner) {
    const Tools tools(picture, shape);
    RoundRect(picture.Context(), place.left, place.top, place.right, place.bottom, corner, corner);
}

void DrawEllipse(const Picture& picture, const Rectangle& place, const Shape& shape) {
    const Tools tools(picture, shape);
    Ellipse(picture.Context(), place.left, place.top, place.right, place.bottom);
}

void DrawFrame(const Picture& picture, const Rectangle& place, Pixel edge, int penWidth) {
    const PenHandle pen(CreatePen(PS_SOLID, penWidth, Reference(edge)));
    const Selection withPen(picture.Context(), pen.Get());
    const Selection hollow(picture.Context(), GetStockObject(HOLLOW_BRUSH));
    ::Rectangle(picture.Context(), place.left, place.top, place.right, place.bottom);
}

void DrawStrokes(const Picture& picture, const std::vector<POINT>& corners, Pixel colour, int penWidth) {
    const PenHandle pen(CreatePen(PS_SOLID, penWidth, Reference(colour)));
    const Selection withPen(picture.Context(), pen.Get());
    MoveToEx(picture.Context(), corners.front().x, corners.front().y, nullptr);
    for (std::size_t index = 1; index < corners.size(); ++index) {
        LineTo(picture.Context(), corners[index].x, corners[index].y);
    }
}

WindowFont::WindowFont(int height, int weight)
    : font_(CreateFontW(-height, 0, 0, 0, weight, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS,
                        CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, DEFAULT_PITCH, L"Segoe UI")) {}

WindowFont::~WindowFont() {
    DeleteObject(font_);
}

void DrawWords(const Picture& picture, const WindowFont& font, const std::wstring& text, const Rectangle& place,
               Pixel colour, UINT format) {
    RECT rect = {place.left, place.top, place.right, place.bottom};
    const Selection withFont(picture.Context(), font.Get());
    SetBkMode(picture.Context(), TRANSPARENT);
    SetTextColor(picture.Context(), Reference(colour));
    DrawTextW(picture.Context(), text.c_str(), -1, &rect, format);
}

launcher_ui::Size MeasureWords(HFONT font, const std::wstring& text, int width, UINT format) {
    const Picture paper(1, 1);
    const Selection withFont(paper.Context(), font);
    RECT rect = {0, 0, width, 0};
    DrawTextW(paper.Context(), text.c_str(), -1, &rect, format | DT_CALCRECT);
    return {static_cast<int>(rect.right - rect.left), static_cast<int>(rect.bottom - rect.top)};
}

launcher_ui::Size MeasureLine(HFONT font, const std::wstring& text) {
    const Picture paper(1, 1);
    const Selection withFont(paper.Context(), font);
    SIZE size = {};
    GetTextExtentPoint32W(paper.Context(), text.c_str(), static_cast<int>(text.size()), &size);
    return {static_cast<int>(size.cx), static_cast<int>(size.cy)};
}

Picture PictureOfOne(HWND window) {
    Picture picture = EmptyPictureFor(window);
    SendMessageW(window, WM_PRINTCLIENT, reinterpret_cast<WPARAM>(picture.Context()), PRF_CLIENT);
    return picture;
}

Picture PictureOf(HWND window) {
    Picture picture = PictureOfOne(window);
    const std::vector<HWND> children = SeenChildren(window);
    for (auto child = children.begin(); child != children.end(); ++child) {
        PaintChild(picture, window, *child, {children.begin(), child});
    }
    return picture;
}

std::vector<HWND> SeenChildren(HWND window) {
    std::vector<HWND> children;
    for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        if ((GetWindowLongPtrW(child, GWL_STYLE) & WS_VISIBLE) != 0) children.push_back(child);
    }
    return children;
}

Rectangle PlaceIn(HWND parent, HWND child) {
    RECT rect = {};
    GetWindowRect(child, &rect);
    return Mapped(nullptr, parent, rect);
}

Rectangle InsideIn(HWND parent, HWND child) {
    return Mapped(child, parent, ClientOf(child));
}

}  // namespace test_support
