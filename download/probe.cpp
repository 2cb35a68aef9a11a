#include "download/probe.h"

#include <windows.h>

#include <winhttp.h>

#include <algorithm>
#include <string>
#include <vector>

#include "download/http_conversation.h"
#include "download/source_url.h"
#include "platform/text.h"

namespace launcher_download {
namespace {

constexpr DWORD kBlockBytes = 65536;
constexpr std::uint32_t kPartialContent = 206;
constexpr int kStepTimeoutMs = 1000;  // a source that needs longer for any one step has lost already

ConversationPolicy ProbePolicy(bool loopback) {
    return {
        .userAgent = L"Velmora Pine Relay Source Comparison",
        .session = {kStepTimeoutMs, kStepTimeoutMs, kStepTimeoutMs, kStepTimeoutMs},
        .request = std::nullopt,
        .headerWaitMs = kStepTimeoutMs,
        .redirects = loopback ? Redirects::never : Redirects::neverToHttp,
        .secure = !loopback,
        .cookies = false,
        .mustHoldPolicy = true,
    };
}

/// True only for the very bytes that were asked for, as they are.
bool IsAnswer(const HttpConversation& conversation, std::uint64_t limit, std::uint64_t size) {
    std::uint32_t status = 0;
    if (!conversation.ReadStatus(status) || status != kPartialContent) return false;
    if (conversation.HeaderText(WINHTTP_QUERY_CONTENT_RANGE) != ProbeContentRange(limit, size)) return false;
    const std::wstring type = platform::ToLower(conversation.HeaderText(WINHTTP_QUERY_CONTENT_TYPE));
    if (type.find(L"html") != std::wstring::npos) return false;
    const std::wstring encoding = conversation.HeaderText(WINHTTP_QUERY_CONTENT_ENCODING);
    return encoding.empty() || platform::EqualsIgnoringCase(encoding, L"identity");
}

/// Reads and drops up to `limit` bytes; how many came.
std::uint64_t Drain(HttpConversation& conversation, std::uint64_t limit) {
    std::vector<unsigned char> block(kBlockBytes);
    std::uint64_t bytes = 0;
    while (bytes < limit) {
        DWORD count = 0;
        if (!conversation.QueryAvailable(count) || count == 0) break;
        const std::uint64_t wanted = std::min<std::uint64_t>({count, kBlockBytes, limit - bytes});
        if (!conversation.Read(block.data(), static_cast<DWORD>(wanted), count) || count == 0) break;
        bytes += count;
    }
    return bytes;
}

std::wstring RangeHeaders(std::uint64_t limit) {
    return L"Accept-Encoding: identity\r\nRange: bytes=0-" + std::to_wstring(limit - 1) + L"\r\n";
}

}  // namespace

Probe compareBackup(const Request& request, const Callbacks& callbacks, bool allowLoopback, const ProbeLimits& limits) {
    Probe probe;
    SourceUrl source;
    const std::uint64_t limit = std::min(limits.bytes, request.size);
    if (limit == 0 || ReadSourceUrl(request.backupUrl, allowLoopback, source)) return probe;

    const auto cancelled = [&callbacks] { return callbacks.cancelled && callbacks.cancelled(); };
    HttpConversation conversation(cancelled, limits.timeMs);
    ConversationFault fault;
    if (!conversation.Open(source.parts, ProbePolicy(source.loopback), fault)) return probe;
    if (!conversation.Ask(RangeHeaders(limit), fault) || !IsAnswer(conversation, limit, request.size)) return probe;
    probe.bytes = Drain(conversation, limit);
    if (!cancelled()) probe.bytesPerSecond = ProbeSpeed(probe.bytes, GetTickCount64() - conversation.StartMs());
    return probe;
}

}  // namespace launcher_download
