#pragma once

namespace launcher_download {

/// One way in which a transfer ends without its payload: the reason that the caller gets and the word of the trace
/// line.
struct Failure {
    const wchar_t* reason;
    const char* traceWord;
};

/// Every final failure of a transfer. A failure is one of these objects, so reason and trace word cannot drift apart.
namespace failures {

inline constexpr Failure kSessionFailed{L"session-failed", "session"};
inline constexpr Failure kTimeoutPolicyFailed{L"timeout-policy-failed", "policy"};
inline constexpr Failure kRedirectPolicyFailed{L"redirect-policy-failed", "policy"};
inline constexpr Failure kConnectFailed{L"connect-failed", "connect"};
inline constexpr Failure kRequestFailed{L"request-failed", "request"};
inline constexpr Failure kConnectionFailed{L"connection-failed", "connection"};
inline constexpr Failure kInvalidResponse{L"invalid-response", "headers"};
inline constexpr Failure kHttpError{L"http-error", "http"};
inline constexpr Failure kHtmlResponse{L"html-response", "html"};
inline constexpr Failure kUnexpectedEncoding{L"unexpected-encoding", "encoding"};
inline constexpr Failure kContentLengthMismatch{L"content-length-mismatch", "length"};
inline constexpr Failure kServerRequestedLaterRetry{L"server-requested-later-retry", "retry-after"};
inline constexpr Failure kBackupMeasuredFaster{L"backup-measured-faster", "backup-measured-faster"};
inline constexpr Failure kPayloadTooLarge{L"payload-too-large", "size"};
inline constexpr Failure kWriteFailed{L"write-failed", "disk"};
inline constexpr Failure kFlushFailed{L"flush-failed", "disk"};
inline constexpr Failure kCacheSeekFailed{L"cache-seek-failed", "disk"};
inline constexpr Failure kCacheResetFailed{L"cache-reset-failed", "disk"};
inline constexpr Failure kResumeStateWriteFailed{L"resume-state-write-failed", "disk"};
inline constexpr Failure kReceiveFailed{L"receive-failed", "receive"};
inline constexpr Failure kSha256Mismatch{L"sha256-mismatch", "hash"};
inline constexpr Failure kRetriesExhausted{L"download-retries-exhausted", "retry-limit"};
inline constexpr Failure kDownloadFailed{L"download-failed", "unknown"};  // a guard that no path reaches
inline constexpr Failure kCancelled{L"cancelled", "user"};

}  // namespace failures

/// Ends before the cache file is open: returned at once, told to nobody, so they have no trace word.
namespace refusals {

inline constexpr wchar_t kInvalidPayload[] = L"invalid-payload";
inline constexpr wchar_t kInvalidUrl[] = L"invalid-url";
inline constexpr wchar_t kHttpsRequired[] = L"https-required";
inline constexpr wchar_t kCancelled[] = L"cancelled";
inline constexpr wchar_t kUnsafeOrFullCache[] = L"unsafe-or-full-cache";
inline constexpr wchar_t kCacheFileUnavailable[] = L"cache-file-unavailable";

}  // namespace refusals
}  // namespace launcher_download
