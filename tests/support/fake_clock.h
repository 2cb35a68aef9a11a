#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "tests/support/stand_in.h"

namespace test_support {

/// Time as this program sees it, for the life of the object: `Sleep` returns at once and moves the clock that
/// `GetTickCount64` shows, which otherwise stands still, so that no busy machine adds to what a test measures. Waits on
/// events and the network's own time-outs stay real. At most one object at a time.
class FakeClock {
  public:
    /// Moves the clock ahead. Any thread.
    void Advance(std::uint64_t ms) { ahead_ += ms; }

    /// Milliseconds given to `Sleep` so far.
    [[nodiscard]] std::uint64_t SleptMs() const { return slept_; }

    /// The longest of them.
    [[nodiscard]] std::uint64_t LongestSleepMs() const { return longest_; }

  private:
    using OnSleep = StandIn<"Sleep", decltype(Sleep)>;
    using OnTick = StandIn<"GetTickCount64", decltype(GetTickCount64)>;

    void Skip(std::uint64_t ms) {
        ahead_ += ms;
        slept_ += ms;
        if (ms > longest_) longest_ = ms;
    }

    const std::uint64_t startMs_ = GetTickCount64();
    std::atomic<std::uint64_t> ahead_{0};
    std::atomic<std::uint64_t> slept_{0};
    std::atomic<std::uint64_t> longest_{0};
    OnSleep onSleep_{[this](DWORD ms) { Skip(ms); }};
    OnTick onTick_{[this] { return startMs_ + ahead_; }};
};

}  // namespace test_support
