#include "update/manifest/metadata_fetch.h"

#include <windows.h>

#include <limits>
#include <optional>

#include "download/http_conversation.h"
#include "download/http_rules.h"
#include "platform/crack_url.h"
#include "platform/relative_path.h"
#include "platform/unique_handle.h"

namespace launcher_update {
namespace {

using launcher_download::ConversationFault;
using launcher_download::ConversationPolicy;
using launcher_download::ConversationStep;
using launcher_download::HttpConversation;

constexpr wchar_t kMustBeHttps[] = L"更新網址必須使用 HTTPS。";
constexpr wchar_t kNoSession[] = L"無法建立更新連線。";
constexpr wchar_t kNoConnection[] = L"無法連線到更新伺服器。";
constexpr wchar_t kNoRequest[] = L"無法建立更新要求。";
constexpr wchar_t kNoAnswer[] = L"更新伺服器沒有回應。";
constexpr wchar_t kServerErrorStart[] = L"更新伺服器回傳錯誤（HTTP ";
constexpr wchar_t kServerErrorEnd[] = L"）。";
constexpr wchar_t kQueryFailed[] = L"讀取更新資料時發生錯誤。";
constexpr wchar_t kTooLarge[] = L"更新資料超過允許大小。";
constexpr wchar_t kReadFailed[] = L"下載更新資料時發生錯誤。";
constexpr wchar_t kLocalFileUnreadable[] = L"無法讀取本機測試更新檔。";

constexpr std::uint32_t kOk = 200;

// Short on purpose: this stands between the user's click and the application.
constexpr int kReachMs = 1500;
constexpr int kAnswerMs = 2500;

constexpr ConversationPolicy kPolicy{
    .userAgent = L"Velmora Pine Relay Launcher/1.0",
    .session = {kReachMs, kReachMs, kAnswerMs, kAnswerMs},
    .request = std::nullopt,
    .headerWaitMs = kAnswerMs,
    .redirects = launcher_download::Redirects::neverToHttp,
    .secure = true,
    .cookies = true,
    .mustHoldPolicy = false,
};

bool Fail(std::wstring& error, const std::wstring& message) {
    error = message;
    return false;
}

bool FailCancelled(std::string& bytes, std::wstring& error) {
    bytes.clear();
    error.clear();
    return false;
}

const wchar_t* MessageOf(ConversationStep step) {
    switch (step) {
        case ConversationStep::session:
        case ConversationStep::sessionTimeouts:
        case ConversationStep::redirects:
            return kNoSession;
        case ConversationStep::connect:
            return kNoConnection;
        case ConversationStep::request:
        case ConversationStep::requestTimeouts:
            return kNoRequest;
        case ConversationStep::send:
        case ConversationStep::receive:
            break;
    }
    return kNoAnswer;
}

/// The body of one response, as it grows.
struct Body {
    HttpConversation& conversation;
    std::string& bytes;
    std::uint64_t limit;
    std::wstring& error;
    const FetchProgress& progress;
    const FetchCancelled& cancelled;

    [[nodiscard]] bool IsCancelled() const { return cancelled && cancelled(); }
    void Tell() const {
        if (progress) progress(bytes.size(), limit);
    }
};

/// A wait that the user ended comes back as a failed call.
bool FailUnlessCancelled(const Body& body, const wchar_t* message) {
    if (body.IsCancelled()) return FailCancelled(body.bytes, body.error);
    return Fail(body.error, message);
}

/// WinHTTP is to report a body that ends before its announced length; not every implementation does.
bool IsShort(const Body& body) {
    const std::wstring text = body.conversation.HeaderText(WINHTTP_QUERY_CONTENT_LENGTH);
    const std::optional<std::uint64_t> announced = launcher_download::ParseDecimal(text);
    return announced && body.bytes.size() < *announced;
}

bool EndBody(const Body& body) {
    if (body.IsCancelled()) return FailCancelled(body.bytes, body.error);
    if (IsShort(body)) return Fail(body.error, kQueryFailed);
    return !body.bytes.empty();
}

bool AppendChunk(const Body& body, DWORD count) {
    const std::size_t held = body.bytes.size();
    body.bytes.resize(held + count);
    DWORD read = 0;
    if (!body.conversation.Read(body.bytes.data() + held, count, read)) {
        body.bytes.resize(held);
        return FailUnlessCancelled(body, kReadFailed);
    }
    body.bytes.resize(held + read);
    body.Tell();
    return true;
}

bool ReceiveBody(const Body& body) {
    body.bytes.clear();
    body.Tell();
    for (;;) {
        if (body.IsCancelled()) return FailCancelled(body.bytes, body.error);
        DWORD count = 0;
        if (!body.conversation.QueryAvailable(count)) return FailUnlessCancelled(body, kQueryFailed);
        if (count == 0) return EndBody(body);
        // Judged before a byte of the chunk is asked for.
        if (body.bytes.size() + std::uint64_t{count} > body.limit) return Fail(body.error, kTooLarge);
        if (!AppendChunk(body, count)) return false;
    }
}

/// One read into a buffer that has room for one byte too many, so that a file over the limit shows.
bool ReadLocalFile(const std::wstring& path, std::uint64_t limit, std::string& bytes) {
    if (limit >= std::numeric_limits<DWORD>::max()) return false;
    const platform::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    bytes.resize(limit + 1);
    DWORD read = 0;
    const bool good = ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) != FALSE;
    bytes.resize(good ? read : 0);
    return good && read > 0 && read <= limit;
}

bool FetchLocal(const std::wstring& path, std::uint64_t limit, std::string& bytes, std::wstring& error,
                const FetchProgress& progress, const FetchCancelled& cancelled) {
    if (!ReadLocalFile(path, limit, bytes)) return Fail(error, kLocalFileUnreadable);
    if (progress) progress(bytes.size(), limit);
    if (cancelled && cancelled()) return FailCancelled(bytes, error);
    return true;
}

bool IsLocalPath(const std::wstring& source) {
    return !platform::PathIsRelative(source) && source.find(L"://") == std::wstring::npos;
}

}  // namespace

bool DownloadHttps(const std::wstring& url, std::string& bytes, std::uint64_t limit, std::wstring& error,
                   const FetchProgress& progress, const FetchCancelled& cancelled) {
    platform::UrlParts parts;
    if (!platform::CrackUrl(url, parts) || !parts.https) return Fail(error, kMustBeHttps);
    HttpConversation conversation(cancelled);
    ConversationFault fault;
    if (!conversation.Open(parts, kPolicy, fault) ||
        !conversation.Ask(L"Cache-Control: no-cache\r\nAccept-Encoding: identity\r\n", fault)) {
        return Fail(error, MessageOf(fault.step));
    }
    std::uint32_t status = 0;
    if (!conversation.ReadStatus(status) || status != kOk) {
        return Fail(error, kServerErrorStart + std::to_wstring(status) + kServerErrorEnd);
    }
    return ReceiveBody({conversation, bytes, limit, error, progress, cancelled});
}

bool FetchBytes(const std::wstring& source, bool allowLocal, std::uint64_t limit, std::string& bytes,
                std::wstring& error, const FetchProgress& progress, const FetchCancelled& cancelled) {
    if (cancelled && cancelled()) return FailCancelled(bytes, error);
    if (allowLocal && IsLocalPath(source)) return FetchLocal(source, limit, bytes, error, progress, cancelled);
    return DownloadHttps(source, bytes, limit, error, progress, cancelled);
}

}  // namespace launcher_update
