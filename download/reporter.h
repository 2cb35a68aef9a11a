#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "download/request.h"

namespace launcher_download {

/// Lets one through per interval; a forced one always passes, and counts as the last.
class Throttle {
  public:
    explicit Throttle(std::uint64_t intervalMs) : intervalMs_(intervalMs) {}

    [[nodiscard]] bool Pass(bool force, std::uint64_t nowMs);

  private:
    std::uint64_t intervalMs_;
    std::optional<std::uint64_t> lastMs_;
};

enum class Delivery { whenDue, forced };

/// Tells a transfer's course to the user's window and to the trace, each at its own pace: progress once per 250 ms, a
/// trace line once per 5000 ms, forced reports always. Lives on the transfer's thread and calls both callbacks there.
class Reporter {
  public:
    /// Receives a copy of what was told and the word for it.
    using TraceLine = std::function<void(const Progress&, const char* word)>;

    /// `nowMs` is the moment from which `Progress::elapsedMs` counts. Either callback may be empty.
    Reporter(std::function<void(const Progress&)> deliver, TraceLine trace, std::uint64_t nowMs);

    /// The counters of the next report; the transfer keeps them here.
    [[nodiscard]] Progress& Counters() { return progress_; }

    void Report(Phase phase, const char* traceWord, Delivery delivery, std::uint64_t nowMs);

  private:
    std::function<void(const Progress&)> deliver_;
    TraceLine trace_;
    std::uint64_t startMs_;
    Progress progress_;
    Throttle deliverThrottle_;
    Throttle traceThrottle_;
};

}  // namespace launcher_download
