#include "ui/format.h"

#include <cstdio>

#include "platform/text.h"

namespace launcher_ui {
namespace {

constexpr double kKilobyte = 1024.0;
constexpr double kMegabyte = 1048576.0;
constexpr double kGigabyte = 1073741824.0;

}  // namespace

std::wstring WithOneDecimal(double value) {
    char text[32];  // 2^64 KB has 19 characters
    std::snprintf(text, sizeof(text), "%.1f", value);
    return platform::WidenAscii(text);
}

std::wstring FormatBytes(std::uint64_t value) {
    const auto bytes = static_cast<double>(value);
    if (value >= 1ull << 30) return WithOneDecimal(bytes / kGigabyte) + L" GB";
    if (value >= 1ull << 20) return WithOneDecimal(bytes / kMegabyte) + L" MB";
    return WithOneDecimal(bytes / kKilobyte) + L" KB";
}

}  // namespace launcher_ui
