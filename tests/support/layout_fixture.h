#pragma once

/// What the tests of layout share: the scales, the rounding written down a second time, and how places are printed.

#include <array>
#include <cmath>
#include <ostream>

#include "ui/layout.h"

namespace launcher_ui {

inline std::ostream& operator<<(std::ostream& stream, const Rectangle& place) {
    return stream << "[" << place.left << ", " << place.top << ", " << place.right << ", " << place.bottom << "]";
}

inline std::ostream& operator<<(std::ostream& stream, const Size& size) {
    return stream << size.width << " by " << size.height;
}

inline std::ostream& operator<<(std::ostream& stream, const Point& point) {
    return stream << "(" << point.x << ", " << point.y << ")";
}

}  // namespace launcher_ui

namespace test_support {

inline constexpr std::array kScales = {96, 120, 144, 168, 192};

/// Units to pixels as `MulDiv(units, dpi, 96)` does it: the exact quotient, rounded to the nearest, a half upwards.
inline int Pixels(int units, int dpi) {
    return static_cast<int>(std::lround(static_cast<double>(units) * dpi / 96.0));
}

}  // namespace test_support
