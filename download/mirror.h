#pragma once

#include "download/request.h"

namespace launcher_download {

/// Fetches one payload into the cache and proves it. Blocks the calling thread; the callbacks are called on it.
/// On success `Result::path` names a file of exactly the requested size and digest. On failure `reason` says why, and
/// what was received stays in the cache unless it was proved wrong.
[[nodiscard]] Result Download(const Request& request, const Callbacks& callbacks);

/// As `Download`, and takes plain http from 127.0.0.1 as well. For this program's own tests only.
[[nodiscard]] Result DownloadAllowingLoopback(const Request& request, const Callbacks& callbacks);

}  // namespace launcher_download
