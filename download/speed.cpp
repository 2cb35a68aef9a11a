#include "download/speed.h"

#include <cmath>
#include <cstdio>

#include "platform/text.h"

namespace launcher_download {
namespace {

constexpr double kKilobyte = 1024.0;
constexpr double kMegabyte = 1048576.0;
constexpr double kFastestBelievable = 1e15;

}  // namespace

std::optional<double> SpeedMeter::Add(std::uint64_t chunkBytes, std::uint64_t nowMs) {
    sampleBytes_ += chunkBytes;
    const std::uint64_t sampleMs = nowMs - sampleStartMs_;
    if (sampleMs < kSpeedSampleMs) return std::nullopt;
    const double bytesPerSecond = static_cast<double>(sampleBytes_) * 1000.0 / static_cast<double>(sampleMs);
    Restart(nowMs);
    RunSlowTimer(bytesPerSecond, nowMs);
    return bytesPerSecond;
}

void SpeedMeter::Restart(std::uint64_t nowMs) {
    sampleStartMs_ = nowMs;
    sampleBytes_ = 0;
}

void SpeedMeter::RunSlowTimer(double bytesPerSecond, std::uint64_t nowMs) {
    if (bytesPerSecond >= kSlowBelowBytesPerSecond) {
        slowSinceMs_.reset();
    } else if (!slowSinceMs_) {
        slowSinceMs_ = nowMs;
    }
}

bool SpeedMeter::IsSlow(std::uint64_t nowMs) const {
    return slowSinceMs_ && nowMs - *slowSinceMs_ >= kSlowAfterMs;
}

std::wstring FormatSpeed(double bytesPerSecond) {
    if (!std::isfinite(bytesPerSecond) || bytesPerSecond < 0.0 || bytesPerSecond > kFastestBelievable) return L"—";
    const bool mega = bytesPerSecond >= kMegabyte;
    char text[32];  // "953674316.4 MB/s" is the longest
    std::snprintf(text, sizeof(text), mega ? "%.1f MB/s" : "%.1f KB/s",
                  bytesPerSecond / (mega ? kMegabyte : kKilobyte));
    return platform::WidenAscii(text);
}

}  // namespace launcher_download
