#pragma once

#include <cstdint>
#include <string>

namespace launcher_download {

/// The wait in milliseconds that a Retry-After header (RFC 9110, section 10.2.3) asks for behind `attempt`, from 1:
/// seconds or a date. An empty value gives the attempt's default wait, a moment that is past gives 0, and what asks for
/// more than a minute or cannot be read gives `kWaitRefused`. Any thread.
[[nodiscard]] std::uint64_t ParseRetryAfter(const std::wstring& value, std::uint32_t attempt);

}  // namespace launcher_download
