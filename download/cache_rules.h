#pragma once

/// What a cache directory may hold. Pure; any thread.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "download/request.h"

namespace launcher_download {

inline constexpr std::size_t kMaxScannedPayloads = 128;              // more are not ours to sort out
inline constexpr std::size_t kMaxKeptPayloads = 16;                  // the coming payload counted
inline constexpr std::uint64_t kMaxKeptBytes = 0x100000000;          // 4 GiB, the coming payload counted in full
inline constexpr std::uint64_t kMaxPayloadAgeTicks = 6048000000000;  // 7 days x 86400 s x 10000000 ticks of 100 ns

/// Ending of a payload's name, behind its 64 lower-case hexadecimal characters.
inline constexpr std::wstring_view kPayloadSuffix = L".part";

/// True for exactly the name that a payload has here.
[[nodiscard]] bool IsPayloadName(std::wstring_view name);

/// What a directory holds, the coming payload counted from the start.
class CacheTally {
  public:
    explicit CacheTally(std::uint64_t comingBytes) : bytes_(comingBytes) {}

    /// Counts one more payload. False if it is larger than any payload or the sum overflows.
    [[nodiscard]] bool Add(std::uint64_t bytes);
    void Remove(std::uint64_t bytes);
    [[nodiscard]] bool Fits() const { return count_ <= kMaxKeptPayloads && bytes_ <= kMaxKeptBytes; }

  private:
    std::size_t count_ = 1;
    std::uint64_t bytes_;
};

/// True for a payload written at most seven days before `nowTicks`; one from the future is young.
[[nodiscard]] bool IsYoung(std::uint64_t writtenTicks, std::uint64_t nowTicks);

}  // namespace launcher_download
