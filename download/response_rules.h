#pragma once

/// What to do with a response, decided from a plain record of its facts. Pure; any thread.

#include <cstdint>
#include <string>

#include "download/failures.h"

namespace launcher_download {

struct ResponseFacts {
    std::uint32_t status = 0;
    bool retryAfterRefused = false;   // Retry-After asks for a wait that the engine will not make
    std::uint64_t retainedBytes = 0;  // in the cache file, and asked to be continued
    std::uint64_t size = 0;           // of the whole payload
    std::wstring storedEtag;          // of the entity that the retained bytes came from; empty if unknown
    // The response's headers, each empty if missing.
    std::wstring etag;
    std::wstring contentType;
    std::wstring contentLength;
    std::wstring contentEncoding;
    std::wstring contentRange;
};

enum class ResponseAction {
    accept,  // receive the body
    retry,   // this attempt is spent; another may help
    fail     // final
};

/// `reset` comes before `action`: the retained bytes are thrown away first, and `action` then holds without them.
struct ResponseDecision {
    ResponseAction action = ResponseAction::fail;
    bool reset = false;
    const Failure* failure = nullptr;  // set exactly with ResponseAction::fail
};

/// First matching row of the table in the source file. Only the entity tag identifies an entity (RFC 9110, section
/// 13.1.5): a 206 counts only with the tag that the retained bytes came with. A missing Content-Length is accepted,
/// since the receive loop counts and the digest decides.
[[nodiscard]] ResponseDecision DecideResponse(const ResponseFacts& facts);

}  // namespace launcher_download
