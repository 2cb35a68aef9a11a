#pragma once

#include <cstdint>
#include <limits>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// `sum` becomes `left` plus `right`. False, with `sum` untouched, when 64 bits do not hold it. Pure.
[[nodiscard]] constexpr bool AddWithoutOverflow(std::uint64_t left, std::uint64_t right, std::uint64_t& sum) {
    if (right > std::numeric_limits<std::uint64_t>::max() - left) return false;
    sum = left + right;
    return true;
}

/// Bytes to read for a full verification; support files lie in two places of an activated installation and are then
/// counted in both. All ones when 64 bits do not hold the sum: progress loses its total, nothing else. Pure.
[[nodiscard]] std::uint64_t BytesToHash(const UpdateManifest& manifest, bool countSupportTwice);

}  // namespace launcher_update
