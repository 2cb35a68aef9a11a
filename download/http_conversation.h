#pragma once

#include <windows.h>

#include <winhttp.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "download/async_request.h"
#include "platform/unique_handle.h"
#include "platform/url.h"

namespace launcher_download {

/// The four waits of `WinHttpSetTimeouts`, in milliseconds.
struct Timeouts {
    int resolveMs;
    int connectMs;
    int sendMs;
    int receiveMs;
};

/// Who is to follow a redirect.
enum class Redirects : DWORD {
    never = WINHTTP_OPTION_REDIRECT_POLICY_NEVER,
    neverToHttp = WINHTTP_OPTION_REDIRECT_POLICY_DISALLOW_HTTPS_TO_HTTP
};

/// How one kind of request talks; each user of the conversation declares its own.
struct ConversationPolicy {
    const wchar_t* userAgent;
    Timeouts session;
    std::optional<Timeouts> request;  // until the headers have come; none keeps the session's
    /// Bound of the wait for the whole header block, in milliseconds. Set on its own since the receive time-out bounds
    /// only the gap between two packets there, and the system's default of 90 seconds would let a server drip.
    DWORD headerWaitMs;
    Redirects redirects;
    bool secure;
    bool cookies;         // false: none kept, none sent
    bool mustHoldPolicy;  // a refused time-out or redirect policy ends the conversation
};

/// The steps of a conversation that can fail, in their order.
enum class ConversationStep { session, sessionTimeouts, redirects, connect, request, requestTimeouts, send, receive };

struct ConversationFault {
    ConversationStep step = ConversationStep::session;
    DWORD error = 0;  // last error of that step
};

/// An `HINTERNET` that two paths may close, only one of which then does.
class SharedInternetHandle {
  public:
    SharedInternetHandle() = default;
    SharedInternetHandle(const SharedInternetHandle&) = delete;
    SharedInternetHandle& operator=(const SharedInternetHandle&) = delete;
    ~SharedInternetHandle() { Close(); }

    /// Takes ownership, once. False if there is nothing to own; the last error is kept.
    [[nodiscard]] bool Hold(HINTERNET handle);
    [[nodiscard]] HINTERNET Get() const { return handle_.load(); }
    void Close();

  private:
    std::atomic<HINTERNET> handle_{nullptr};
};

/// One GET: session, connection, request and the wrapper that waits, in this order of life. Transfers, probes and
/// metadata differ only in their `ConversationPolicy` and in what they make of a fault. One object makes one request.
/// One thread; destruction follows the rules of `AsyncWinHttpRequest` and may wait for a time-out of the policy.
class HttpConversation {
  public:
    /// `abort` ends any wait when it returns true; `timeLimitMs` likewise once that much time has passed since
    /// `StartMs`, 0 for never.
    explicit HttpConversation(std::function<bool()> abort, std::uint64_t timeLimitMs = 0);

    /// Makes the handles and sets the policy. False with the step that failed.
    [[nodiscard]] bool Open(const platform::UrlParts& url, const ConversationPolicy& policy, ConversationFault& fault);

    /// The `GetTickCount64` value at which the request stood ready, before anything was sent. Needs a true `Open`.
    [[nodiscard]] std::uint64_t StartMs() const { return startMs_; }

    /// Sends the request with `headers`, each ended by CR LF, and waits for the response's headers.
    [[nodiscard]] bool Ask(const std::wstring& headers, ConversationFault& fault);

    /// The three below need a conversation that `Ask` has brought to its headers.
    [[nodiscard]] bool ReadStatus(std::uint32_t& status) const;
    [[nodiscard]] std::wstring HeaderText(DWORD queryFlag) const;
    [[nodiscard]] bool SetRequestTimeouts(const Timeouts& timeouts) const;

    /// As the operations of the same names of `AsyncWinHttpRequest`.
    [[nodiscard]] bool QueryAvailable(DWORD& count) { return wrapper_->QueryAvailable(count); }
    [[nodiscard]] bool Read(void* buffer, DWORD capacity, DWORD& count) {
        return wrapper_->Read(buffer, capacity, count);
    }

  private:
    [[nodiscard]] bool OpenSession(const ConversationPolicy& policy, ConversationFault& fault);
    [[nodiscard]] bool OpenRequest(const platform::UrlParts& url, const ConversationPolicy& policy,
                                   ConversationFault& fault);

    std::function<bool()> abort_;
    std::uint64_t timeLimitMs_;
    std::uint64_t startMs_ = 0;
    // Members end in reverse order: the wrapper waits for the request's last report, then the rest may close.
    SharedInternetHandle session_;
    SharedInternetHandle connection_;
    SharedInternetHandle request_;
    std::optional<AsyncWinHttpRequest> wrapper_;
};

/// Text of one response header, `queryFlag` being one of WINHTTP_QUERY_*. Empty if the header is missing, or if its
/// value needs fewer than 2 or more than 8192 bytes: no header that is believed is longer.
[[nodiscard]] std::wstring QueryHeaderText(HINTERNET request, DWORD queryFlag);

}  // namespace launcher_download
