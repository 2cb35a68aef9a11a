#pragma once

#include <cstdint>
#include <optional>

namespace launcher_download {

/// The speed of a body over the last window of a fixed length, which opens some time behind the first byte: what came
/// in one burst at the start says little. The window tumbles: once full it begins anew. Pure; one thread.
class ComparisonWindow {
  public:
    ComparisonWindow(std::uint64_t delayMs, std::uint64_t lengthMs) : delayMs_(delayMs), lengthMs_(lengthMs) {}

    /// Counts a chunk that arrived at `nowMs`; the first one opens the delay.
    void Add(std::uint64_t chunkBytes, std::uint64_t nowMs);

    /// True if what is held tells that a look at the other source is due, by `ShouldCompareSources`.
    [[nodiscard]] bool ShouldCompare(std::uint64_t bytesHeld, std::uint64_t size, std::uint64_t nowMs) const;

    /// Bytes per second in the window; it must not be empty.
    [[nodiscard]] double Speed(std::uint64_t nowMs) const;

    /// Empties a window that has reached its length. Comes behind the judgement of the same chunk.
    void Tumble(std::uint64_t nowMs);

    /// Empties the window.
    void Restart(std::uint64_t nowMs);

  private:
    std::uint64_t delayMs_;
    std::uint64_t lengthMs_;
    std::optional<std::uint64_t> firstByteMs_;
    std::uint64_t startMs_ = 0;
    std::uint64_t bytes_ = 0;
};

}  // namespace launcher_download
