#include "download/retry_rules.h"

#include <algorithm>
#include <iterator>

namespace launcher_download {
namespace {

constexpr std::uint64_t kFirstWaitMs = 1000;
constexpr std::uint64_t kMaxWaitSeconds = 60;  // the longest wait that a server may ask for
constexpr std::uint64_t kTicksPerMs = 10000;
constexpr std::uint64_t kMaxWaitTicks = kMaxWaitSeconds * 1000 * kTicksPerMs;

constexpr std::uint32_t kTransientStatuses[] = {408, 429, 500, 502, 503, 504};

constexpr std::uint32_t kTransientErrors[] = {winhttp_error::kTimeout, winhttp_error::kNameNotResolved,
                                              winhttp_error::kCannotConnect, winhttp_error::kConnectionError,
                                              winhttp_error::kResendRequest};

}  // namespace

bool IsTransientStatus(std::uint32_t status) {
    return std::find(std::begin(kTransientStatuses), std::end(kTransientStatuses), status) !=
           std::end(kTransientStatuses);
}

bool IsTransientWinHttpError(std::uint32_t error) {
    return std::find(std::begin(kTransientErrors), std::end(kTransientErrors), error) != std::end(kTransientErrors);
}

std::uint64_t DefaultWaitMs(std::uint32_t attempt) {
    return kFirstWaitMs << (attempt - 1);
}

std::uint64_t WaitOfSeconds(std::uint64_t seconds) {
    return seconds > kMaxWaitSeconds ? kWaitRefused : seconds * 1000;
}

std::uint64_t WaitUntil(std::uint64_t dueTicks, std::uint64_t nowTicks) {
    if (dueTicks <= nowTicks) return 0;
    const std::uint64_t ahead = dueTicks - nowTicks;
    return ahead > kMaxWaitTicks ? kWaitRefused : ahead / kTicksPerMs;
}

}  // namespace launcher_download
