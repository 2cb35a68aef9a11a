#include "download/source_url.h"

#include "download/failures.h"
#include "platform/crack_url.h"
#include "platform/text.h"
#include "product/locations.h"

namespace launcher_download {
namespace {

constexpr std::size_t kMaxUrlLength = 8192;  // characters

const char* Endpoint(const SourceUrl& source) {
    if (source.loopback) return "test-loopback";
    if (platform::EqualsIgnoringCase(source.parts.host, product::kPrimaryReleaseHost)) return "github";
    if (platform::EqualsIgnoringCase(source.parts.host, product::kBackupHost)) return "r2";
    return "other-https";
}

}  // namespace

const wchar_t* ReadSourceUrl(const std::wstring& url, bool allowLoopback, SourceUrl& source) {
    // CR and LF are looked for before the URL is cut: behind a cut they could end up in any piece.
    if (url.size() > kMaxUrlLength || url.find_first_of(L"\r\n") != std::wstring::npos) return refusals::kInvalidUrl;
    if (!platform::CrackUrl(url, source.parts)) return refusals::kInvalidUrl;
    if (!source.parts.userName.empty() || !source.parts.password.empty()) return refusals::kInvalidUrl;
    source.loopback = allowLoopback && !source.parts.https && source.parts.host == L"127.0.0.1";
    if (!source.loopback && !source.parts.https) return refusals::kHttpsRequired;
    source.endpoint = Endpoint(source);
    return nullptr;
}

}  // namespace launcher_download
