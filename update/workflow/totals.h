#pragma once

#include <cstdint>
#include <limits>

namespace launcher_update {

/// `sum` becomes `left` plus `right`. False, with `sum` untouched, when 64 bits do not hold it. Pure.
[[nodiscard]] constexpr bool AddWithoutOverflow(std::uint64_t left, std::uint64_t right, std::uint64_t& sum) {
    if (right > std::numeric_limits<std::uint64_t>::max() - left) return false;
    sum = left + right;
    return true;
}

}  // namespace launcher_update
