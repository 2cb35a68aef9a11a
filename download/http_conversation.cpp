#include "download/http_conversation.h"

#include <utility>

namespace launcher_download {
namespace {

constexpr DWORD kMinHeaderBytes = 2;     // the terminator alone
constexpr DWORD kMaxHeaderBytes = 8192;  // 4095 characters and the terminator

bool Fail(ConversationFault& fault, ConversationStep step) {
    fault.error = GetLastError();
    fault.step = step;
    return false;
}

bool SetTimeouts(HINTERNET handle, const Timeouts& timeouts) {
    return WinHttpSetTimeouts(handle, timeouts.resolveMs, timeouts.connectMs, timeouts.sendMs, timeouts.receiveMs) !=
           FALSE;
}

bool SetOption(HINTERNET handle, DWORD option, DWORD value) {
    return WinHttpSetOption(handle, option, &value, sizeof(value)) != FALSE;
}

std::wstring ObjectName(const platform::UrlParts& url) {
    const std::wstring name = url.path + url.extra;
    return name.empty() ? L"/" : name;
}

}  // namespace

bool SharedInternetHandle::Hold(HINTERNET handle) {
    handle_.exchange(handle);
    return handle != nullptr;
}

void SharedInternetHandle::Close() {
    const HINTERNET handle = handle_.exchange(nullptr);
    if (!handle) return;
    const DWORD lastError = GetLastError();
    WinHttpCloseHandle(handle);
    SetLastError(lastError);
}

HttpConversation::HttpConversation(std::function<bool()> abort, std::uint64_t timeLimitMs)
    : abort_(std::move(abort)), timeLimitMs_(timeLimitMs) {}

bool HttpConversation::Open(const platform::UrlParts& url, const ConversationPolicy& policy, ConversationFault& fault) {
    if (!OpenSession(policy, fault)) return false;
    if (!connection_.Hold(WinHttpConnect(session_.Get(), url.host.c_str(), url.port, 0))) {
        return Fail(fault, ConversationStep::connect);
    }
    return OpenRequest(url, policy, fault);
}

bool HttpConversation::OpenSession(const ConversationPolicy& policy, ConversationFault& fault) {
    if (!session_.Hold(WinHttpOpen(policy.userAgent, WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, WINHTTP_NO_PROXY_NAME,
                                   WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC))) {
        return Fail(fault, ConversationStep::session);
    }
    if (!SetTimeouts(session_.Get(), policy.session) && policy.mustHoldPolicy) {
        return Fail(fault, ConversationStep::sessionTimeouts);
    }
    if (!SetOption(session_.Get(), WINHTTP_OPTION_REDIRECT_POLICY, static_cast<DWORD>(policy.redirects)) &&
        policy.mustHoldPolicy) {
        return Fail(fault, ConversationStep::redirects);
    }
    return true;
}

bool HttpConversation::OpenRequest(const platform::UrlParts& url, const ConversationPolicy& policy,
                                   ConversationFault& fault) {
    const std::wstring object = ObjectName(url);
    if (!request_.Hold(WinHttpOpenRequest(connection_.Get(), L"GET", object.c_str(), nullptr, WINHTTP_NO_REFERER,
                                          WINHTTP_DEFAULT_ACCEPT_TYPES, policy.secure ? WINHTTP_FLAG_SECURE : 0))) {
        return Fail(fault, ConversationStep::request);
    }
    startMs_ = GetTickCount64();
    wrapper_.emplace(
        request_.Get(), [this] { request_.Close(); }, abort_, timeLimitMs_ == 0 ? 0 : startMs_ + timeLimitMs_);
    const bool timed = (!policy.request || SetTimeouts(request_.Get(), *policy.request)) &&
                       SetOption(request_.Get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, policy.headerWaitMs);
    if (!timed && policy.mustHoldPolicy) return Fail(fault, ConversationStep::requestTimeouts);
    // Nothing is ever asked twice within a session but along a redirect, so a refusal here costs little.
    if (!policy.cookies) (void)SetOption(request_.Get(), WINHTTP_OPTION_DISABLE_FEATURE, WINHTTP_DISABLE_COOKIES);
    return true;
}

bool HttpConversation::Ask(const std::wstring& headers, ConversationFault& fault) {
    if (!wrapper_->Send(headers.c_str(), static_cast<DWORD>(headers.size()))) {
        return Fail(fault, ConversationStep::send);
    }
    return wrapper_->Receive() || Fail(fault, ConversationStep::receive);
}

bool HttpConversation::ReadStatus(std::uint32_t& status) const {
    DWORD value = 0;
    DWORD length = sizeof(value);
    if (!WinHttpQueryHeaders(request_.Get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &value, &length, WINHTTP_NO_HEADER_INDEX)) {
        return false;
    }
    status = value;
    return true;
}

std::wstring HttpConversation::HeaderText(DWORD queryFlag) const {
    return QueryHeaderText(request_.Get(), queryFlag);
}

bool HttpConversation::SetRequestTimeouts(const Timeouts& timeouts) const {
    return SetTimeouts(request_.Get(), timeouts);
}

std::wstring QueryHeaderText(HINTERNET request, DWORD queryFlag) {
    DWORD needed = 0;
    WinHttpQueryHeaders(request, queryFlag, WINHTTP_HEADER_NAME_BY_INDEX, nullptr, &needed, WINHTTP_NO_HEADER_INDEX);
    if (needed < kMinHeaderBytes || needed > kMaxHeaderBytes) return {};
    std::wstring text(needed / sizeof(wchar_t), L'\0');
    if (!WinHttpQueryHeaders(request, queryFlag, WINHTTP_HEADER_NAME_BY_INDEX, text.data(), &needed,
                             WINHTTP_NO_HEADER_INDEX)) {
        return {};
    }
    text.resize(needed / sizeof(wchar_t));  // on success the count leaves the terminator out
    return text;
}

}  // namespace launcher_download
