#pragma once

#include <string>

#include "platform/url.h"

namespace platform {

/// Splits a URL with `WinHttpCrackUrl`, the reader whose idea of the host is the one that will be connected to.
/// Judged before by `SplitUrl` and compared with it after: a URL that the two cut differently is refused, since what
/// was judged would not be what is asked. False on any refusal. Any thread.
[[nodiscard]] bool CrackUrl(const std::wstring& url, UrlParts& parts);

}  // namespace platform
