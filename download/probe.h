#pragma once

#include <cstdint>

#include "download/request.h"
#include "download/source_rules.h"

namespace launcher_download {

/// What a measurement of a source gave.
struct Probe {
    std::uint64_t bytes = 0;      // of the body, taken from the network
    double bytesPerSecond = 0.0;  // 0 if no speed could be measured
};

/// Measures the source at `request.backupUrl` by reading the payload's first bytes and dropping them, within `limits`.
/// Blocks the calling thread; only `cancelled` is called. It cannot fail: a source that refuses, answers another
/// question or is too slow to measure simply has no speed. No report, no trace, no file of the cache is touched.
[[nodiscard]] Probe compareBackup(const Request& request, const Callbacks& callbacks, bool allowLoopback,
                                  const ProbeLimits& limits);

}  // namespace launcher_download
