#include "platform/crack_url.h"

#include <windows.h>
#include <winhttp.h>

namespace platform {
namespace {

std::wstring Piece(const wchar_t* start, DWORD length) {
    return start ? std::wstring(start, length) : std::wstring();
}

}  // namespace

bool CrackUrl(const std::wstring& url, UrlParts& parts) {
    UrlParts judged;
    // A NUL would end the URL early for WinHTTP alone.
    if (url.find(L'\0') != std::wstring::npos || !SplitUrl(url, judged)) return false;
    URL_COMPONENTSW components{};
    components.dwStructSize = sizeof(components);
    const auto pointIntoUrl = static_cast<DWORD>(-1);
    components.dwSchemeLength = components.dwHostNameLength = components.dwUserNameLength = pointIntoUrl;
    components.dwPasswordLength = components.dwUrlPathLength = components.dwExtraInfoLength = pointIntoUrl;
    if (!WinHttpCrackUrl(url.c_str(), 0, 0, &components)) return false;
    parts.https = components.nScheme == INTERNET_SCHEME_HTTPS;
    parts.host = Piece(components.lpszHostName, components.dwHostNameLength);
    parts.port = components.nPort;
    parts.userName = Piece(components.lpszUserName, components.dwUserNameLength);
    parts.password = Piece(components.lpszPassword, components.dwPasswordLength);
    parts.path = Piece(components.lpszUrlPath, components.dwUrlPathLength);
    parts.extra = Piece(components.lpszExtraInfo, components.dwExtraInfoLength);
    return parts.https == judged.https && parts.host == judged.host && parts.port == judged.port &&
           parts.userName == judged.userName && parts.password == judged.password;
}

}  // namespace platform
