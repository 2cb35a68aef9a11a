#pragma once

#include "download/request.h"

namespace launcher_download {

/// True if the size is one that a payload may have and the digest is written as one.
[[nodiscard]] bool IsValidPayload(const Request& request);

/// Fetches one payload from one source, `request.url`, into `<cacheDirectory>\<sha256>.part` and proves it there, in at
/// most three attempts. Private to the engine; callers use `download/mirror.h`. Blocks; the calling thread is told and
/// asked, and during the comparison with `request.backupUrl` it alone too.
///
/// A payload that lies complete in the cache is served without network. A part of one is continued if a resume file
/// vouches for it and the server still holds the same entity; else it is dropped:
///
///     event                                                     .part          .resume
///     final failure, cancel, change to a faster source          kept, flushed  kept
///     wrong digest of the received payload                      emptied        deleted
///     wrong digest of a complete file at the start              emptied        replaced with the next response
///     no valid resume file at the start                         emptied        replaced with the next response
///     416 to a range, another entity, the whole body instead    emptied        replaced with the next response
///     another attempt without a strong entity tag               emptied        none exists
///     response without a strong entity tag                      as it stands   deleted
///     success                                                   kept: `path`   kept
///
/// The resume file is written before the first byte of its entity is stored, so it never vouches for another one's. The
/// cache file is held open without sharing until the return. Each report leaves a line in the directory's trace.
[[nodiscard]] Result run(const Request& request, const Callbacks& callbacks, bool allowLoopback);

}  // namespace launcher_download
