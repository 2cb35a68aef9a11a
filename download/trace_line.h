#pragma once

/// One line of a download's trace: a JSON object (RFC 8259) for people who look into a failed update. Pure; any thread.

#include <cstdint>
#include <string>
#include <string_view>

#include "download/request.h"

namespace launcher_download {

/// What a line tells beside the request and its progress.
struct TraceFacts {
    std::int64_t utcSeconds = 0;    // since 1970
    std::string_view endpoint;      // "github", "r2", "other-https" or "test-loopback"
    std::uint32_t osError = 0;      // of the result so far
    std::uint32_t httpStatus = 0;   // of the result so far
    std::string_view reason;        // the trace word
    std::uint64_t firstByteMs = 0;  // from an attempt's start to its first body byte; 0 until one arrived
};

/// The word for a phase; "failed" for a value that none has.
[[nodiscard]] std::string_view PhaseWord(Phase phase);

/// The word for `Request::component`; "payload" for a value that none has.
[[nodiscard]] std::string_view ComponentWord(std::uint32_t component);

/// The line with its LF. Texts stand as they are: all of them are words of this program or digits of a digest.
[[nodiscard]] std::string FormatTraceLine(const Request& request, const Progress& progress, const TraceFacts& facts);

}  // namespace launcher_download
