#include "download/comparison_window.h"

#include "download/source_rules.h"

namespace launcher_download {

void ComparisonWindow::Add(std::uint64_t chunkBytes, std::uint64_t nowMs) {
    if (!firstByteMs_) {
        firstByteMs_ = nowMs;
        Restart(nowMs);
    }
    if (nowMs - *firstByteMs_ < delayMs_) {
        Restart(nowMs);
    } else {
        bytes_ += chunkBytes;
    }
}

bool ComparisonWindow::ShouldCompare(std::uint64_t bytesHeld, std::uint64_t size, std::uint64_t nowMs) const {
    return firstByteMs_ &&
           ShouldCompareSources(nowMs - *firstByteMs_, nowMs - startMs_, bytes_, bytesHeld, size, delayMs_, lengthMs_);
}

double ComparisonWindow::Speed(std::uint64_t nowMs) const {
    return static_cast<double>(bytes_) * 1000.0 / static_cast<double>(nowMs - startMs_);
}

void ComparisonWindow::Tumble(std::uint64_t nowMs) {
    if (nowMs - startMs_ >= lengthMs_) Restart(nowMs);
}

void ComparisonWindow::Restart(std::uint64_t nowMs) {
    startMs_ = nowMs;
    bytes_ = 0;
}

}  // namespace launcher_download
