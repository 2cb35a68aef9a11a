#pragma once

/// Sizes as the window says them: one decimal place, powers of 1024, a full stop in every language. Pure.

#include <cstdint>
#include <string>

namespace launcher_ui {

/// `1.5 GB` from 2^30 on, `1.5 MB` from 2^20 on, `0.5 KB` below: a size is never said in bytes.
[[nodiscard]] std::wstring FormatBytes(std::uint64_t value);

/// `value` with one decimal place.
[[nodiscard]] std::wstring WithOneDecimal(double value);

}  // namespace launcher_ui
