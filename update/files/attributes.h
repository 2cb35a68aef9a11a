#pragma once

/// What a path is, judged from attributes alone. A link, junction or mount point is neither a real directory nor a
/// plain file, whatever it points at: the update core never follows one on purpose.

#include <cstdint>
#include <string>

namespace launcher_update {

inline constexpr std::uint32_t kNoAttributes = 0xFFFFFFFF;  // INVALID_FILE_ATTRIBUTES
inline constexpr std::uint32_t kDirectoryBit = 0x10;
inline constexpr std::uint32_t kReparsePointBit = 0x400;

[[nodiscard]] constexpr bool IsRealDirectory(std::uint32_t attributes) {
    return attributes != kNoAttributes && (attributes & (kDirectoryBit | kReparsePointBit)) == kDirectoryBit;
}

[[nodiscard]] constexpr bool IsPlainFile(std::uint32_t attributes) {
    return attributes != kNoAttributes && (attributes & (kDirectoryBit | kReparsePointBit)) == 0;
}

/// What stands at a path. `unknown` is a failed look: neither there nor absent may be concluded from it.
enum class Presence { absent, present, unknown };

struct PathFacts {
    Presence presence = Presence::unknown;
    std::uint32_t attributes = kNoAttributes;
};

/// Reads the attributes through the long-path form. Absent only for file-not-found and path-not-found (2 and 3).
/// Any thread.
[[nodiscard]] PathFacts LookAt(const std::wstring& path);

}  // namespace launcher_update
