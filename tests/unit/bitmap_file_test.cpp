#include "ui/bitmap_file.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_ui {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kHeaderBytes = 54;

/// Every pixel has a colour of its own.
PixelPicture Coloured(int width, int height) {
    PixelPicture picture{width, height, {}};
    const auto count = static_cast<std::uint32_t>(width * height);
    for (std::uint32_t pixel = 0; pixel < count; ++pixel)
        picture.pixels.push_back(0x010203 + pixel * 0x010101);
    return picture;
}

std::string Colour(std::uint32_t pixel) {
    return {static_cast<char>(pixel & 0xFF), static_cast<char>((pixel >> 8) & 0xFF),
            static_cast<char>((pixel >> 16) & 0xFF)};
}

std::string Number(std::size_t value) {
    return {static_cast<char>(value & 0xFF), static_cast<char>((value >> 8) & 0xFF),
            static_cast<char>((value >> 16) & 0xFF), static_cast<char>(value >> 24)};
}

std::string Hex(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4];
        text += kDigits[static_cast<unsigned char>(byte) & 15];
        text += ' ';
    }
    return text;
}

TEST(BitmapFile, TwoByTwo_IsTheseBytes) {
    const PixelPicture picture = {2, 2, {0x112233, 0x445566, 0x778899, 0xAABBCC}};
    EXPECT_EQ(Hex(EncodeBitmapFile(picture)),
              Hex("BM\x46\0\0\0\0\0\0\0\x36\0\0\0"                      // 70 bytes, pixels at 54
                  "\x28\0\0\0\x02\0\0\0\x02\0\0\0\x01\0\x18\0"          // header of 40, 2 by 2, 1 plane, 24 bits
                  "\0\0\0\0\x10\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"  // plain, 16 bytes of pixels
                  "\x99\x88\x77\xCC\xBB\xAA\0\0"                        // the lower row
                  "\x33\x22\x11\x66\x55\x44\0\0"sv));
}

TEST(BitmapFile, EveryWidth_HasRowsOfWholeFours) {
    constexpr int kHeight = 3;
    constexpr std::size_t kRowBytes[] = {4, 8, 12, 12, 16};
    for (int width = 1; width <= 5; ++width) {
        const PixelPicture picture = Coloured(width, kHeight);
        const std::size_t rowBytes = kRowBytes[width - 1];
        std::string rows;
        for (int y = kHeight; y-- > 0;) {
            std::string row;
            for (int x = 0; x < width; ++x)
                row += Colour(picture.pixels[static_cast<std::size_t>(y * width + x)]);
            row.resize(rowBytes, '\0');
            rows += row;
        }
        const std::string file = EncodeBitmapFile(picture);
        EXPECT_EQ(Hex(file.substr(kHeaderBytes)), Hex(rows)) << width;
        EXPECT_EQ(Hex(file.substr(2, 4)), Hex(Number(kHeaderBytes + rowBytes * kHeight))) << width;
        EXPECT_EQ(Hex(file.substr(18, 8)), Hex(Number(static_cast<std::size_t>(width)) + Number(kHeight))) << width;
        EXPECT_EQ(Hex(file.substr(34, 4)), Hex(Number(rowBytes * kHeight))) << width;
    }
}

TEST(BitmapFile, HighestByteOfAPixel_IsLeftOut) {
    const std::string plain = EncodeBitmapFile({1, 1, {0x00123456}});
    EXPECT_EQ(Hex(EncodeBitmapFile({1, 1, {0xFF123456}})), Hex(plain));
    EXPECT_EQ(Hex(plain.substr(kHeaderBytes)), Hex("\x56\x34\x12\0"sv));
}

TEST(BitmapFile, SizesBeyondOneByte_AreLittleEndian) {
    constexpr int kWidth = 774;
    constexpr int kHeight = 591;
    const std::string file = EncodeBitmapFile({kWidth, kHeight, std::vector<std::uint32_t>(kWidth * kHeight)});
    const std::size_t imageBytes = 2324 * kHeight;  // 774 pixels are 2322 bytes
    ASSERT_EQ(file.size(), kHeaderBytes + imageBytes);
    EXPECT_EQ(Hex(file.substr(2, 4)), Hex(Number(file.size())));
    EXPECT_EQ(Hex(file.substr(18, 4)), Hex(Number(kWidth)));
    EXPECT_EQ(Hex(file.substr(22, 4)), Hex(Number(kHeight)));
    EXPECT_EQ(Hex(file.substr(34, 4)), Hex(Number(imageBytes)));
}

TEST(BitmapFile, EmptyPicture_IsItsHeaders) {
    const std::string file = EncodeBitmapFile({});
    EXPECT_EQ(file.size(), kHeaderBytes);
    EXPECT_EQ(Hex(file.substr(0, 6)), Hex("BM\x36\0\0\0"sv));
}

}  // namespace
}  // namespace launcher_ui
