#include "download/transfer.h"

#include <windows.h>

#include <winhttp.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "download/cache.h"
#include "download/cache_file.h"
#include "download/failures.h"
#include "download/http_conversation.h"
#include "download/http_rules.h"
#include "download/payload_hash.h"
#include "download/reporter.h"
#include "download/response_rules.h"
#include "download/retry_rules.h"
#include "download/source_url.h"
#include "download/speed.h"
#include "platform/unique_handle.h"

namespace launcher_download {
namespace {

constexpr DWORD kBufferBytes = 65536;

constexpr int kStepTimeoutMs = 5000;     // every step of the conversation, and a silent body
constexpr int kHeaderTimeoutMs = 10000;  // a server may think for longer before it answers
constexpr Timeouts kBodyTimeouts{kStepTimeoutMs, kStepTimeoutMs, kStepTimeoutMs, kStepTimeoutMs};
constexpr Timeouts kHeaderTimeouts{kStepTimeoutMs, kStepTimeoutMs, kStepTimeoutMs, kHeaderTimeoutMs};

ConversationPolicy TransferPolicy(bool loopback) {
    return {
        .userAgent = L"Velmora Pine Relay Launcher",
        .session = kBodyTimeouts,
        .request = kHeaderTimeouts,
        .headerWaitMs = kHeaderTimeoutMs,
        .redirects = loopback ? Redirects::never : Redirects::neverToHttp,
        .secure = !loopback,
        .cookies = false,
        .mustHoldPolicy = true,
    };
}

const Failure& FailureOf(ConversationStep step) {
    switch (step) {
        case ConversationStep::session:
            return failures::kSessionFailed;
        case ConversationStep::sessionTimeouts:
        case ConversationStep::requestTimeouts:
            return failures::kTimeoutPolicyFailed;
        case ConversationStep::redirects:
            return failures::kRedirectPolicyFailed;
        case ConversationStep::connect:
            return failures::kConnectFailed;
        case ConversationStep::request:
            return failures::kRequestFailed;
        case ConversationStep::send:
        case ConversationStep::receive:
            break;
    }
    return failures::kConnectionFailed;
}

/// A policy that was refused has no error of its own to tell.
bool IsPolicyStep(ConversationStep step) {
    return step == ConversationStep::sessionTimeouts || step == ConversationStep::redirects ||
           step == ConversationStep::requestTimeouts;
}

/// What a step of the transfer leads to.
enum class Next {
    goOn,
    retry,  // this attempt is over; another one may do better
    leave   // the result is written
};

/// Why the receive loop ended, as far as it is not final.
enum class BodyEnd {
    finished,    // the server has no more
    readFailed,  // the last error is recorded
    reconnect,   // the user asked for another connection
    leave        // the result is written
};

bool Ask(const std::function<bool()>& question) {
    return question && question();
}

/// One transfer with its open cache file. Lives within `run`, on its thread.
class Transfer {
  public:
    Transfer(const Request& request, const Callbacks& callbacks, SourceUrl source, std::wstring path,
             platform::FileHandle file)
        : request_(request),
          callbacks_(callbacks),
          source_(std::move(source)),
          path_(std::move(path)),
          file_(std::move(file)),
          reporter_(callbacks.progress, Reporter::TraceLine(), GetTickCount64()),
          progress_(reporter_.Counters()),
          buffer_(kBufferBytes) {
        progress_.total = request.size;
        progress_.backup = request.backupSource;
    }

    [[nodiscard]] Result Run();

  private:
    [[nodiscard]] Next TakeUpCacheFile();
    [[nodiscard]] Next ServeFromCache();
    [[nodiscard]] Next MakeAttempt(std::uint32_t attempt);
    [[nodiscard]] Next Connect(HttpConversation& conversation);
    [[nodiscard]] Next JudgeResponse(HttpConversation& conversation);
    [[nodiscard]] Next PrepareBody();
    [[nodiscard]] Next ReceiveBody(HttpConversation& conversation);
    [[nodiscard]] BodyEnd ReceiveChunks(HttpConversation& conversation);
    [[nodiscard]] bool StoreChunk(DWORD count);
    [[nodiscard]] Next Verify();

    [[nodiscard]] bool Cancelled() const { return Ask(callbacks_.cancelled); }
    [[nodiscard]] bool ResetPayload();
    [[nodiscard]] Next Fail(const Failure& failure);
    [[nodiscard]] Next Succeed(Phase phase);
    void Report(Phase phase, const char* traceWord, Delivery delivery) {
        reporter_.Report(phase, traceWord, delivery, GetTickCount64());
    }

    const Request& request_;
    const Callbacks& callbacks_;
    const SourceUrl source_;
    const std::wstring path_;
    platform::FileHandle file_;
    Reporter reporter_;
    Progress& progress_;
    Result result_;
    std::uint64_t retainedBytes_ = 0;  // at the start of an attempt, in the file and vouched for
    std::vector<unsigned char> buffer_;
};

/// The order of a transfer.
Result Transfer::Run() {
    Next next = TakeUpCacheFile();
    if (next == Next::goOn) next = MakeAttempt(1);
    if (next == Next::retry) next = Fail(failures::kRetriesExhausted);
    result_.attempts = progress_.attempt;
    return std::move(result_);
}

Next Transfer::TakeUpCacheFile() {
    std::uint64_t length = 0;
    if (!ReadLength(file_.Get(), length) || length > request_.size) {
        if (!ResetFile(file_.Get())) return Fail(failures::kCacheResetFailed);
        length = 0;
    }
    if (length == request_.size) return ServeFromCache();
    // Nothing vouches for a part of a payload, so it is dropped.
    if (length > 0 && !ResetFile(file_.Get())) return Fail(failures::kCacheResetFailed);
    return Next::goOn;
}

Next Transfer::ServeFromCache() {
    progress_.bytes = request_.size;
    Report(Phase::verifying, "cached-payload", Delivery::whenDue);
    if (HashFileOrBuffer(nullptr, 0, file_.Get(), callbacks_) == request_.sha256) return Succeed(Phase::cached);
    // A cancelled digest is empty and must not cost the file.
    if (Cancelled()) return Fail(failures::kCancelled);
    if (!ResetFile(file_.Get())) return Fail(failures::kCacheResetFailed);
    progress_.bytes = 0;
    return Next::goOn;
}

/// The order of an attempt. The conversation closes on the way out, before any wait for the next attempt.
Next Transfer::MakeAttempt(std::uint32_t attempt) {
    progress_.attempt = attempt;
    progress_.bytesPerSecond = -1.0;
    result_.osError = 0;
    result_.httpStatus = 0;
    if (Cancelled()) return Fail(failures::kCancelled);
    Report(Phase::connecting, retainedBytes_ > 0 ? "resume" : "new-request", Delivery::forced);
    progress_.restarted = false;

    HttpConversation conversation(callbacks_.cancelled);
    Next next = Connect(conversation);
    if (next == Next::goOn) next = JudgeResponse(conversation);
    if (next == Next::goOn) next = PrepareBody();
    if (next == Next::goOn) next = ReceiveBody(conversation);
    return next;
}

Next Transfer::Connect(HttpConversation& conversation) {
    ConversationFault fault;
    if (!conversation.Open(source_.parts, TransferPolicy(source_.loopback), fault)) {
        if (!IsPolicyStep(fault.step)) result_.osError = fault.error;
        return Fail(FailureOf(fault.step));
    }
    if (!conversation.Ask(L"Accept-Encoding: identity\r\n", fault)) {
        result_.osError = fault.error;
        return IsTransientWinHttpError(fault.error) ? Next::retry : Fail(FailureOf(fault.step));
    }
    return Next::goOn;
}

Next Transfer::JudgeResponse(HttpConversation& conversation) {
    ResponseFacts facts;
    if (!conversation.ReadStatus(facts.status)) return Fail(failures::kInvalidResponse);
    result_.httpStatus = facts.status;
    if (!conversation.SetRequestTimeouts(kBodyTimeouts)) return Fail(failures::kTimeoutPolicyFailed);
    if (Cancelled()) return Fail(failures::kCancelled);

    facts.retainedBytes = retainedBytes_;
    facts.size = request_.size;
    facts.etag = conversation.HeaderText(WINHTTP_QUERY_ETAG);
    facts.contentType = conversation.HeaderText(WINHTTP_QUERY_CONTENT_TYPE);
    facts.contentLength = conversation.HeaderText(WINHTTP_QUERY_CONTENT_LENGTH);
    facts.contentEncoding = conversation.HeaderText(WINHTTP_QUERY_CONTENT_ENCODING);
    facts.contentRange = conversation.HeaderText(WINHTTP_QUERY_CONTENT_RANGE);
    const ResponseDecision decision = DecideResponse(facts);
    if (decision.reset && !ResetPayload()) return Fail(failures::kCacheResetFailed);
    switch (decision.action) {
        case ResponseAction::accept:
            return Next::goOn;
        case ResponseAction::retry:
            return Next::retry;
        case ResponseAction::fail:
            break;
    }
    return Fail(*decision.failure);
}

Next Transfer::PrepareBody() {
    if (!SeekTo(file_.Get(), retainedBytes_)) return Fail(failures::kCacheSeekFailed);
    Report(Phase::receiving, "headers-accepted", Delivery::forced);
    progress_.restarted = false;
    return Next::goOn;
}

Next Transfer::ReceiveBody(HttpConversation& conversation) {
    const BodyEnd end = ReceiveChunks(conversation);
    if (end == BodyEnd::leave) return Next::leave;
    if (end == BodyEnd::readFailed && !IsTransientWinHttpError(result_.osError)) return Fail(failures::kReceiveFailed);
    if (!FlushFileBuffers(file_.Get())) return Fail(failures::kFlushFailed);
    if (end == BodyEnd::finished && progress_.bytes == request_.size) return Verify();
    return Next::retry;
}

BodyEnd Transfer::ReceiveChunks(HttpConversation& conversation) {
    SpeedMeter speed(GetTickCount64());
    for (;;) {
        if (Cancelled()) {
            (void)Fail(failures::kCancelled);
            return BodyEnd::leave;
        }
        if (Ask(callbacks_.reconnect)) return BodyEnd::reconnect;
        DWORD count = 0;
        const bool received = conversation.QueryAvailable(count) &&
                              (count == 0 || conversation.Read(buffer_.data(), std::min(count, kBufferBytes), count));
        if (!received) {
            result_.osError = GetLastError();
            return BodyEnd::readFailed;
        }
        if (count == 0) return BodyEnd::finished;
        if (!StoreChunk(count)) return BodyEnd::leave;
        const std::uint64_t now = GetTickCount64();
        progress_.bytesPerSecond = speed.Add(count, now).value_or(progress_.bytesPerSecond);
        reporter_.Report(speed.IsSlow(now) ? Phase::slow : Phase::receiving, "progress", Delivery::whenDue, now);
    }
}

/// False if that ended the transfer.
bool Transfer::StoreChunk(DWORD count) {
    if (progress_.bytes > request_.size || count > request_.size - progress_.bytes) {
        (void)Fail(failures::kPayloadTooLarge);
        return false;
    }
    if (!WriteAll(file_.Get(), buffer_.data(), count)) {
        result_.osError = GetLastError();
        (void)Fail(failures::kWriteFailed);
        return false;
    }
    progress_.bytes += count;
    progress_.networkBytes += count;
    return true;
}

Next Transfer::Verify() {
    Report(Phase::verifying, "payload", Delivery::forced);
    if (HashFileOrBuffer(nullptr, 0, file_.Get(), callbacks_) == request_.sha256) return Succeed(Phase::complete);
    if (Cancelled()) return Fail(failures::kCancelled);
    // Wrong bytes are of no use to any later transfer. What matters is told below, whether or not this succeeds.
    (void)ResetFile(file_.Get());
    return Fail(failures::kSha256Mismatch);
}

/// Drops the retained bytes because the server's entity is another one.
bool Transfer::ResetPayload() {
    if (!ResetFile(file_.Get())) return false;
    retainedBytes_ = 0;
    progress_.bytes = 0;
    progress_.restarted = true;
    return true;
}

/// Every final failure comes through here. One that races with a cancel reads as a cancel.
Next Transfer::Fail(const Failure& failure) {
    result_.canceled = &failure == &failures::kCancelled || Cancelled();
    const Failure& told = result_.canceled ? failures::kCancelled : failure;
    result_.reason = told.reason;
    Report(result_.canceled ? Phase::cancelled : Phase::failed, told.traceWord, Delivery::forced);
    FlushFileBuffers(file_.Get());
    return Next::leave;
}

Next Transfer::Succeed(Phase phase) {
    result_.success = true;
    result_.path = path_;
    Report(phase, "sha256-verified", Delivery::forced);
    return Next::leave;
}

/// The checks before the cache file is open, in their order. Null if the transfer may start, else the reason.
const wchar_t* CheckStart(const Request& request, const Callbacks& callbacks, bool allowLoopback, SourceUrl& source,
                          std::wstring& directory) {
    if (request.size < kMinPayloadBytes || request.size > kMaxPayloadBytes) return refusals::kInvalidPayload;
    if (!IsLowerHexSha256(request.sha256)) return refusals::kInvalidPayload;
    if (const wchar_t* refusal = ReadSourceUrl(request.url, allowLoopback, source)) return refusal;
    if (Ask(callbacks.cancelled)) return refusals::kCancelled;
    if (!PrepareSafeDirectory(request.cacheDirectory, directory)) return refusals::kUnsafeOrFullCache;
    return nullptr;
}

Result Refuse(const wchar_t* reason) {
    Result result;
    result.reason = reason;
    result.canceled = reason == refusals::kCancelled;
    return result;
}

}  // namespace

Result run(const Request& request, const Callbacks& callbacks, bool allowLoopback) {
    SourceUrl source;
    std::wstring directory;
    if (const wchar_t* refusal = CheckStart(request, callbacks, allowLoopback, source, directory)) {
        return Refuse(refusal);
    }
    std::wstring path = CachePath(directory, request.sha256 + L".part");
    platform::FileHandle file = OpenCacheFile(path);
    if (!file) return Refuse(refusals::kCacheFileUnavailable);
    return Transfer(request, callbacks, std::move(source), std::move(path), std::move(file)).Run();
}

}  // namespace launcher_download
