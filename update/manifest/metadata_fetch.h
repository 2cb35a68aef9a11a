#pragma once

/// The simple way for small things: one request, no cache, no repeat, the body in memory under a hard limit.

#include <cstdint>
#include <functional>
#include <string>

namespace launcher_update {

/// Bytes so far and the limit.
using FetchProgress = std::function<void(const std::uint64_t& bytes, const std::uint64_t& limit)>;
using FetchCancelled = std::function<bool()>;

/// Fetches `url`, https only, into `bytes`, at most `limit` bytes. Redirects are followed within https.
///
/// False with a message for the user's window in `error`; false with an empty `error` for a cancel seen while the body
/// arrives (a cancel before that reads as a server without answer, so the caller asks its own flag before it shows a
/// message); false with `error` as it was for an empty body. `bytes` is empty after a cancel and unspecified after any
/// other failure. Blocks; both callbacks, either of which may be empty, run on the calling thread, `cancelled` every
/// 25 ms. A dead network costs 1.5 seconds until connected and 2.5 seconds for each answer.
[[nodiscard]] bool DownloadHttps(const std::wstring& url, std::string& bytes, std::uint64_t limit, std::wstring& error,
                                 const FetchProgress& progress, const FetchCancelled& cancelled);

/// As `DownloadHttps`; with `allowLocal`, which only runs against local test sources set, an absolute path without
/// "://" is read as a file of 1 to `limit` bytes instead.
[[nodiscard]] bool FetchBytes(const std::wstring& source, bool allowLocal, std::uint64_t limit, std::string& bytes,
                              std::wstring& error, const FetchProgress& progress, const FetchCancelled& cancelled);

}  // namespace launcher_update
