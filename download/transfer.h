#pragma once

#include "download/request.h"

namespace launcher_download {

/// Fetches one payload from one source, `request.url`, into `<cacheDirectory>\<sha256>.part` and proves it there.
/// Private to the engine; callers use `download/mirror.h`.
///
/// A payload that lies complete in the cache is served without network. Else the file is emptied and one attempt is
/// made; an attempt that another could cure ends as the last of several would, with "download-retries-exhausted".
/// The cache file is held open without sharing until the return, and is flushed on every final failure.
[[nodiscard]] Result run(const Request& request, const Callbacks& callbacks, bool allowLoopback);

}  // namespace launcher_download
