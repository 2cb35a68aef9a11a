#include "ui/capture.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "platform/unique_handle.h"
#include "ui/gdi_handles.h"

namespace launcher_ui {
namespace {

RECT ClientOf(HWND window) {
    RECT client = {};
    GetClientRect(window, &client);
    return client;
}

/// A memory bitmap whose pixels can be read.
class Canvas {
  public:
    explicit Canvas(const RECT& client)
        : width_(client.right),
          height_(client.bottom),
          context_(CreateCompatibleDC(nullptr)),
          bitmap_(MakeBitmap()),
          selected_(context_.Get(), bitmap_.Get()) {}

    [[nodiscard]] bool Usable() const { return context_ && bitmap_ && pixels_ != nullptr; }
    [[nodiscard]] HDC Context() const { return context_.Get(); }
    [[nodiscard]] LONG Width() const { return width_; }
    [[nodiscard]] LONG Height() const { return height_; }

    void Read(PixelPicture& picture) const {
        GdiFlush();  // drawing is batched, and the pixels are read behind its back
        picture.width = static_cast<int>(width_);
        picture.height = static_cast<int>(height_);
        picture.pixels.assign(pixels_, pixels_ + static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));
    }

  private:
    HBITMAP MakeBitmap() {
        BITMAPINFO info = {};
        info.bmiHeader.biSize = sizeof info.bmiHeader;
        info.bmiHeader.biWidth = width_;
        info.bmiHeader.biHeight = -height_;  // the uppermost row first
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = BI_RGB;
        void* pixels = nullptr;
        const HBITMAP bitmap = CreateDIBSection(context_.Get(), &info, DIB_RGB_COLORS, &pixels, nullptr, 0);
        pixels_ = static_cast<std::uint32_t*>(pixels);
        return bitmap;
    }

    LONG width_;
    LONG height_;
    std::uint32_t* pixels_ = nullptr;
    MemoryContext context_;
    BitmapHandle bitmap_;
    Selection selected_;
};

bool PaintOne(HWND window, const Canvas& canvas) {
    if (!canvas.Usable()) return false;
    SendMessageW(window, WM_PRINTCLIENT, reinterpret_cast<WPARAM>(canvas.Context()), PRF_CLIENT | PRF_ERASEBKGND);
    return true;
}

/// The lowest first, as the eye sees them lie upon each other.
std::vector<HWND> ShownChildren(HWND window) {
    std::vector<HWND> children;
    for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        if ((GetWindowLongPtrW(child, GWL_STYLE) & WS_VISIBLE) != 0) children.push_back(child);
    }
    std::reverse(children.begin(), children.end());
    return children;
}

/// On a canvas of its own: some of Windows' controls paint nothing where the origin of the context was moved.
bool PaintChild(HWND window, HWND child, const Canvas& whole) {
    const Canvas part(ClientOf(child));
    if (part.Width() == 0 || part.Height() == 0) return true;
    if (!PaintOne(child, part)) return false;
    POINT place = {0, 0};
    MapWindowPoints(child, window, &place, 1);
    return BitBlt(whole.Context(), place.x, place.y, part.Width(), part.Height(), part.Context(), 0, 0, SRCCOPY) !=
           FALSE;
}

bool WriteNewFile(const std::wstring& path, const std::string& bytes) {
    platform::FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    DWORD written = 0;
    const bool whole = WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
                       written == bytes.size();
    file.Reset();
    if (!whole) DeleteFileW(path.c_str());
    return whole;
}

}  // namespace

bool CaptureWindow(HWND window, PixelPicture& picture) {
    const Canvas canvas(ClientOf(window));
    if (!PaintOne(window, canvas)) return false;
    for (const HWND child : ShownChildren(window)) {
        if (!PaintChild(window, child, canvas)) return false;
    }
    canvas.Read(picture);
    return true;
}

bool SaveWindowPicture(HWND window, const std::wstring& path) {
    PixelPicture picture;
    return CaptureWindow(window, picture) && WriteNewFile(path, EncodeBitmapFile(picture));
}

}  // namespace launcher_ui
