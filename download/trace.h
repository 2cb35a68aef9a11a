#pragma once

#include <cstdint>
#include <string>

#include "download/request.h"

namespace launcher_download {

/// Appends one line to "download-trace.jsonl" of a prepared cache directory. A file above 262144 bytes first becomes
/// "download-trace.previous.jsonl", whose place it takes; so there are at most two. Every failure is silent and costs
/// this line, or with a torn write the next one too: a trace must never touch the download. The file is opened and
/// closed for each line, so that a crash loses none. One thread per directory.
void AppendTrace(const std::wstring& directory, const Request& request, const Progress& progress, const char* endpoint,
                 std::uint32_t osError, std::uint32_t httpStatus, const char* reasonWord, std::uint64_t firstByteMs);

}  // namespace launcher_download
