#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace launcher_ui {

/// Pixels row by row, the uppermost first; 0x00RRGGBB, the highest byte is of no account.
struct PixelPicture {
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> pixels;
};

/// A Windows bitmap file of 24 bits to a pixel, uncompressed ("Bitmap Storage"). Pure.
[[nodiscard]] std::string EncodeBitmapFile(const PixelPicture& picture);

}  // namespace launcher_ui
