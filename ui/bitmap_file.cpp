#include "ui/bitmap_file.h"

#include <cstddef>

namespace launcher_ui {
namespace {

constexpr std::uint32_t kFileHeaderBytes = 14;
constexpr std::uint32_t kInfoHeaderBytes = 40;
constexpr std::size_t kBytesPerPixel = 3;
constexpr std::size_t kRowAlignment = 4;

void Append(std::string& bytes, std::uint32_t value, int count) {
    for (int index = 0; index < count; ++index) {
        bytes.push_back(static_cast<char>((value >> (8 * index)) & 0xFF));
    }
}

void AppendRow(std::string& bytes, const std::uint32_t* pixels, std::size_t width, std::size_t rowBytes) {
    const std::size_t end = bytes.size() + rowBytes;
    for (std::size_t x = 0; x < width; ++x) {
        Append(bytes, pixels[x], static_cast<int>(kBytesPerPixel));  // blue, green, red
    }
    bytes.resize(end, '\0');
}

}  // namespace

std::string EncodeBitmapFile(const PixelPicture& picture) {
    const auto width = static_cast<std::size_t>(picture.width);
    const auto height = static_cast<std::size_t>(picture.height);
    const std::size_t rowBytes = (width * kBytesPerPixel + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    const auto imageBytes = static_cast<std::uint32_t>(rowBytes * height);
    std::string bytes = "BM";
    Append(bytes, kFileHeaderBytes + kInfoHeaderBytes + imageBytes, 4);
    Append(bytes, 0, 4);
    Append(bytes, kFileHeaderBytes + kInfoHeaderBytes, 4);
    Append(bytes, kInfoHeaderBytes, 4);
    Append(bytes, static_cast<std::uint32_t>(picture.width), 4);
    Append(bytes, static_cast<std::uint32_t>(picture.height), 4);  // positive: the lowest row comes first
    Append(bytes, 1, 2);                                           // plane
    Append(bytes, 8 * kBytesPerPixel, 2);
    Append(bytes, 0, 4);  // not compressed
    Append(bytes, imageBytes, 4);
    Append(bytes, 0, 4);  // no resolution, no palette
    Append(bytes, 0, 4);
    Append(bytes, 0, 4);
    Append(bytes, 0, 4);
    for (std::size_t row = height; row-- > 0;) {
        AppendRow(bytes, picture.pixels.data() + row * width, width, rowBytes);
    }
    return bytes;
}

}  // namespace launcher_ui
