#pragma once

#include <windows.h>

#include <string>

#include "download/request.h"

namespace launcher_download {

/// SHA-256 as 64 lower-case hexadecimal characters; empty on any failure or cancellation.
/// With a file handle, opened for reading: of the whole file from its start, in blocks of 65536 bytes, asking
/// `cancelled` before each; the file pointer ends behind the last byte. With INVALID_HANDLE_VALUE: of `buffer`.
[[nodiscard]] std::wstring HashFileOrBuffer(const void* buffer, std::size_t length, HANDLE file,
                                            const Callbacks& callbacks);

}  // namespace launcher_download
