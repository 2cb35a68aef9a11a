#pragma once

/// How fast a body arrives, and how that is said. Pure: the caller brings the time.

#include <cstdint>
#include <optional>
#include <string>

namespace launcher_download {

inline constexpr std::uint64_t kSpeedSampleMs = 1000;        // a shorter sample would show the network's bursts
inline constexpr double kSlowBelowBytesPerSecond = 16384.0;  // 16 KiB/s
inline constexpr std::uint64_t kSlowAfterMs = 30000;         // slow for this long is worth telling the user

/// Speed of one attempt, in samples of at least one second, and the timer of a body that stays slow. It sees only
/// chunks that arrive: a connection that is silent gives no new value and ends by its time-out. One thread.
class SpeedMeter {
  public:
    explicit SpeedMeter(std::uint64_t nowMs) : sampleStartMs_(nowMs) {}

    /// Counts a chunk; bytes per second if it completed a sample.
    [[nodiscard]] std::optional<double> Add(std::uint64_t chunkBytes, std::uint64_t nowMs);

    /// Begins the sample anew, for a body that could not arrive meanwhile. The slow timer goes on.
    void Restart(std::uint64_t nowMs);

    /// True once every sample of the last `kSlowAfterMs` was below `kSlowBelowBytesPerSecond`.
    [[nodiscard]] bool IsSlow(std::uint64_t nowMs) const;

  private:
    void RunSlowTimer(double bytesPerSecond, std::uint64_t nowMs);

    std::uint64_t sampleStartMs_;
    std::uint64_t sampleBytes_ = 0;
    std::optional<std::uint64_t> slowSinceMs_;
};

/// `12.3 MB/s` from 1048576 bytes per second on, `12.3 KB/s` below; a dash for a value that no transfer can have:
/// not a number, infinite, negative or above 1e15.
[[nodiscard]] std::wstring FormatSpeed(double bytesPerSecond);

}  // namespace launcher_download
