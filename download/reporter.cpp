#include "download/reporter.h"

#include <utility>

namespace launcher_download {
namespace {

constexpr std::uint64_t kProgressIntervalMs = 250;  // each delivery is a message that the window must answer
constexpr std::uint64_t kTraceIntervalMs = 5000;    // keeps the trace of a long transfer short

}  // namespace

bool Throttle::Pass(bool force, std::uint64_t nowMs) {
    if (!force && lastMs_ && nowMs - *lastMs_ < intervalMs_) return false;
    lastMs_ = nowMs;
    return true;
}

Reporter::Reporter(std::function<void(const Progress&)> deliver, TraceLine trace, std::uint64_t nowMs)
    : deliver_(std::move(deliver)),
      trace_(std::move(trace)),
      startMs_(nowMs),
      deliverThrottle_(kProgressIntervalMs),
      traceThrottle_(kTraceIntervalMs) {}

void Reporter::Report(Phase phase, const char* traceWord, Delivery delivery, std::uint64_t nowMs) {
    const bool force = delivery == Delivery::forced;
    progress_.phase = phase;
    progress_.elapsedMs = nowMs - startMs_;
    if (deliverThrottle_.Pass(force, nowMs) && deliver_) deliver_(progress_);
    if (traceThrottle_.Pass(force, nowMs) && trace_) trace_(progress_, traceWord);
}

}  // namespace launcher_download
