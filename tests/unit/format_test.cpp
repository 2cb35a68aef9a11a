#include "ui/format.h"

#include <gtest/gtest.h>

#include <limits>

namespace launcher_ui {
namespace {

constexpr std::uint64_t kKilobyte = 1024;
constexpr std::uint64_t kMegabyte = 1024 * kKilobyte;
constexpr std::uint64_t kGigabyte = 1024 * kMegabyte;

struct SizeRow {
    std::uint64_t bytes;
    const wchar_t* text;
};

constexpr SizeRow kSizes[] = {
    {0, L"0.0 KB"},
    {1, L"0.0 KB"},
    {52, L"0.1 KB"},
    {512, L"0.5 KB"},
    {kKilobyte, L"1.0 KB"},
    {1536, L"1.5 KB"},
    {kMegabyte - 1, L"1024.0 KB"},
    {kMegabyte, L"1.0 MB"},
    {kMegabyte + kMegabyte / 2, L"1.5 MB"},
    {kGigabyte - 1, L"1024.0 MB"},
    {kGigabyte, L"1.0 GB"},
    {kGigabyte * 5 / 2, L"2.5 GB"},
    {std::numeric_limits<std::uint64_t>::max(), L"17179869184.0 GB"},
};

TEST(FormatBytes, Size_HasItsUnitAndOneDecimal) {
    for (const SizeRow& row : kSizes) {
        EXPECT_EQ(FormatBytes(row.bytes), row.text) << row.bytes;
    }
}

TEST(WithOneDecimal, Value_IsRoundedToOneDecimal) {
    EXPECT_EQ(WithOneDecimal(0.0), L"0.0");
    EXPECT_EQ(WithOneDecimal(0.04), L"0.0");
    EXPECT_EQ(WithOneDecimal(0.06), L"0.1");
    EXPECT_EQ(WithOneDecimal(0.96), L"1.0");
    EXPECT_EQ(WithOneDecimal(12.34), L"12.3");
    EXPECT_EQ(WithOneDecimal(-1.26), L"-1.3");
}

TEST(WithOneDecimal, LargestSizeInKilobytes_IsWhole) {
    EXPECT_EQ(WithOneDecimal(18446744073709551615.0), L"18446744073709551616.0");
}

}  // namespace
}  // namespace launcher_ui
