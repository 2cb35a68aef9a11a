#pragma once

#include <string>

#include "platform/url.h"

namespace launcher_download {

/// A URL that a payload may come from, judged and cut.
struct SourceUrl {
    platform::UrlParts parts;
    bool loopback = false;      // plain http to 127.0.0.1, for this program's own tests
    const char* endpoint = "";  // "test-loopback", "github", "r2" or "other-https", for the trace
};

/// Judges `url`: at most 8192 characters, no CR or LF, no user name or password, and https, or plain http to exactly
/// 127.0.0.1 where `allowLoopback` says so. Null if it may be used, else the refusal's reason. Any thread.
[[nodiscard]] const wchar_t* ReadSourceUrl(const std::wstring& url, bool allowLoopback, SourceUrl& source);

}  // namespace launcher_download
