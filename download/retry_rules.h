#pragma once

/// What is worth another attempt, and how long to wait for it. Pure; any thread.

#include <cstdint>

namespace launcher_download {

/// WinHTTP's error numbers as far as the engine decides by them ("Error Messages (Winhttp.h)").
namespace winhttp_error {

inline constexpr std::uint32_t kTimeout = 12002;
inline constexpr std::uint32_t kInternalError = 12004;
inline constexpr std::uint32_t kNameNotResolved = 12007;
inline constexpr std::uint32_t kOperationCancelled = 12017;
inline constexpr std::uint32_t kCannotConnect = 12029;
inline constexpr std::uint32_t kConnectionError = 12030;
inline constexpr std::uint32_t kResendRequest = 12032;

}  // namespace winhttp_error

/// Statuses by which a server says "not now". 501 and 505 say "not ever".
[[nodiscard]] bool IsTransientStatus(std::uint32_t status);

/// Failures of the road rather than of the request. A refused certificate is not among them, nor a cancelled call.
[[nodiscard]] bool IsTransientWinHttpError(std::uint32_t error);

/// The wait after `attempt`, from 1, in milliseconds: 1000, doubled with each further attempt.
[[nodiscard]] std::uint64_t DefaultWaitMs(std::uint32_t attempt);

/// Instead of a wait in milliseconds: the server asks for more patience than anybody in front of a window has.
inline constexpr std::uint64_t kWaitRefused = ~std::uint64_t{0};

/// Milliseconds of a wait that a server asks for in seconds; above 60 refused.
[[nodiscard]] std::uint64_t WaitOfSeconds(std::uint64_t seconds);

/// Milliseconds until `dueTicks`, 0 if that is not ahead of `nowTicks`; more than 60 seconds ahead is refused. Ticks of
/// 100 ns, both from the same start.
[[nodiscard]] std::uint64_t WaitUntil(std::uint64_t dueTicks, std::uint64_t nowTicks);

}  // namespace launcher_download
