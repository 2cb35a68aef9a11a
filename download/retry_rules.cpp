#include "download/retry_rules.h"

#include <algorithm>
#include <iterator>

namespace launcher_download {
namespace {

constexpr std::uint64_t kFirstWaitMs = 1000;

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

}  // namespace launcher_download
