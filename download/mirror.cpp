#include "download/mirror.h"

#include "download/transfer.h"

namespace launcher_download {
namespace {

/// The driver over the sources of a payload.
Result withMirror(const Request& request, const Callbacks& callbacks, bool allowLoopback) {
    return run(request, callbacks, allowLoopback);
}

}  // namespace

Result Download(const Request& request, const Callbacks& callbacks) {
    return withMirror(request, callbacks, false);
}

Result DownloadAllowingLoopback(const Request& request, const Callbacks& callbacks) {
    return withMirror(request, callbacks, true);
}

}  // namespace launcher_download
