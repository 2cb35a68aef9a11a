#include "download/transfer.h"

#include <windows.h>

#include <winhttp.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "download/cache.h"
#include "download/cache_file.h"
#include "download/comparison_window.h"
#include "download/failures.h"
#include "download/http_conversation.h"
#include "download/http_rules.h"
#include "download/payload_hash.h"
#include "download/probe.h"
#include "download/reporter.h"
#include "download/response_rules.h"
#include "download/resume_state.h"
#include "download/retry_after.h"
#include "download/retry_rules.h"
#include "download/source_rules.h"
#include "download/source_url.h"
#include "download/speed.h"
#include "download/trace.h"
#include "platform/unique_handle.h"

namespace launcher_download {
namespace {

constexpr DWORD kBufferBytes = 65536;
constexpr std::uint64_t kCancelPollMs = 50;  // while waiting for the next attempt

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

/// Where one transfer keeps its bytes.
struct CachePlace {
    std::wstring directory;  // prepared
    std::wstring part;
    std::wstring resume;
};

CachePlace PlaceOf(std::wstring directory, const std::wstring& sha256) {
    CachePlace place;
    place.part = CachePath(directory, sha256 + L".part");
    place.resume = CachePath(directory, sha256 + L".resume");
    place.directory = std::move(directory);
    return place;
}

/// The clocks of one body, all of which begin when its headers are accepted.
struct BodyClocks {
    SpeedMeter speed;
    ComparisonWindow window;
};

/// One transfer with its open cache file. Lives within `run`, on its thread.
class Transfer {
  public:
    Transfer(const Request& request, const Callbacks& callbacks, bool allowLoopback, SourceUrl source, CachePlace place,
             platform::FileHandle file)
        : request_(request),
          callbacks_(callbacks),
          allowLoopback_(allowLoopback),
          source_(std::move(source)),
          place_(std::move(place)),
          file_(std::move(file)),
          reporter_(
              callbacks.progress, [this](const Progress& progress, const char* word) { Trace(progress, word); },
              GetTickCount64()),
          progress_(reporter_.Counters()),
          buffer_(kBufferBytes) {
        progress_.total = request.size;
        progress_.backup = request.backupSource;
    }

    [[nodiscard]] Result Run();

  private:
    [[nodiscard]] Next TakeUpCacheFile();
    [[nodiscard]] Next ServeFromCache();
    [[nodiscard]] Next TakeUpPart(std::uint64_t length);
    [[nodiscard]] Next MakeAttempt(std::uint32_t attempt);
    [[nodiscard]] Next PrepareRetry();
    [[nodiscard]] Next AwaitRetry();
    [[nodiscard]] Next Connect(HttpConversation& conversation);
    [[nodiscard]] Next JudgeResponse(HttpConversation& conversation);
    [[nodiscard]] Next PrepareBody();
    [[nodiscard]] Next ReceiveBody(HttpConversation& conversation);
    [[nodiscard]] BodyEnd ReceiveChunks(HttpConversation& conversation);
    [[nodiscard]] bool StoreChunk(DWORD count);
    [[nodiscard]] bool KeepTime(DWORD count, BodyClocks& clocks);
    [[nodiscard]] bool CompareSources(std::uint64_t nowMs, BodyClocks& clocks);
    [[nodiscard]] Next Verify();

    [[nodiscard]] bool Cancelled() const { return Ask(callbacks_.cancelled); }
    [[nodiscard]] std::wstring RequestHeaders() const;
    [[nodiscard]] ResponseFacts ReadFacts(const HttpConversation& conversation, std::uint32_t status);
    [[nodiscard]] bool ResetPayload();
    [[nodiscard]] bool KeepResumeState() const;
    void Trace(const Progress& progress, const char* word) const {
        AppendTrace(place_.directory, request_, progress, source_.endpoint, result_.osError, result_.httpStatus, word,
                    firstByteMs_);
    }
    [[nodiscard]] Next Fail(const Failure& failure);
    [[nodiscard]] Next Succeed(Phase phase);
    void Report(Phase phase, const char* traceWord, Delivery delivery) {
        reporter_.Report(phase, traceWord, delivery, GetTickCount64());
    }

    const Request& request_;
    const Callbacks& callbacks_;
    const bool allowLoopback_;
    const SourceUrl source_;
    const CachePlace place_;
    platform::FileHandle file_;
    Reporter reporter_;
    Progress& progress_;  // between attempts its `bytes` are the retained ones: in the file and vouched for
    Result result_;
    std::wstring urlHash_;
    ResumeState resume_;             // of the entity that the file's bytes came from
    std::uint64_t retryWaitMs_ = 0;  // before the attempt behind this one
    std::uint64_t attemptStartMs_ = 0;
    std::uint64_t firstByteMs_ = 0;  // from an attempt's start to its first chunk; of the last attempt that had one
    bool compared_ = false;          // the sources are compared once, whatever the number of attempts
    std::vector<unsigned char> buffer_;
};

/// The order of a transfer.
Result Transfer::Run() {
    Next next = TakeUpCacheFile();
    for (std::uint32_t attempt = 1; next != Next::leave; ++attempt) {
        next = attempt > kMaxAttempts ? Fail(failures::kDownloadFailed) : MakeAttempt(attempt);
        if (next == Next::retry) next = PrepareRetry();
    }
    result_.attempts = progress_.attempt;
    return std::move(result_);
}

Next Transfer::TakeUpCacheFile() {
    std::uint64_t length = 0;
    if (!ReadLength(file_.Get(), length) || length > request_.size) {
        if (!ResetFile(file_.Get())) return Fail(failures::kCacheResetFailed);
        length = 0;
    }
    if (length < request_.size) return TakeUpPart(length);
    const Next next = ServeFromCache();
    return next == Next::goOn ? TakeUpPart(0) : next;
}

Next Transfer::ServeFromCache() {
    progress_.bytes = request_.size;
    Report(Phase::verifying, "cached-payload", Delivery::whenDue);
    if (HashFileOrBuffer(nullptr, 0, file_.Get(), callbacks_) == request_.sha256) return Succeed(Phase::cached);
    // A cancelled digest is empty and must not cost the file.
    if (Cancelled()) return Fail(failures::kCancelled);
    if (!ResetFile(file_.Get())) return Fail(failures::kCacheResetFailed);
    return Next::goOn;
}

/// A part counts only if a resume file of the same URL and size vouches for it.
Next Transfer::TakeUpPart(std::uint64_t length) {
    progress_.bytes = 0;
    urlHash_ = HashUrl(request_.url);
    resume_ = ReadResumeState(place_.resume);
    const bool valid = resume_.size == request_.size && resume_.urlHash == urlHash_ && IsStrongEtag(resume_.etag);
    if (valid) {
        progress_.bytes = length;
        return Next::goOn;
    }
    resume_ = {};
    return length == 0 || ResetFile(file_.Get()) ? Next::goOn : Fail(failures::kCacheResetFailed);
}

/// The order of an attempt. The conversation closes on the way out, before any wait for the next attempt.
Next Transfer::MakeAttempt(std::uint32_t attempt) {
    progress_.attempt = attempt;
    progress_.bytesPerSecond = -1.0;
    result_.osError = 0;
    result_.httpStatus = 0;
    if (Cancelled()) return Fail(failures::kCancelled);
    Report(Phase::connecting, progress_.bytes > 0 ? "resume" : "new-request", Delivery::forced);
    progress_.restarted = false;
    retryWaitMs_ = DefaultWaitMs(attempt);
    attemptStartMs_ = GetTickCount64();

    HttpConversation conversation(callbacks_.cancelled);
    Next next = Connect(conversation);
    if (next == Next::goOn) next = JudgeResponse(conversation);
    if (next == Next::goOn) next = PrepareBody();
    if (next == Next::goOn) next = ReceiveBody(conversation);
    return next;
}

/// The order between two attempts; the conversation has closed.
Next Transfer::PrepareRetry() {
    if (progress_.attempt == kMaxAttempts) return Fail(failures::kRetriesExhausted);
    // Bytes without a tag cannot be continued.
    if (progress_.bytes > 0 && !IsStrongEtag(resume_.etag) && !ResetPayload()) return Fail(failures::kCacheResetFailed);
    if (!FlushFileBuffers(file_.Get())) return Fail(failures::kFlushFailed);
    Report(Phase::retrying, "bounded-retry", Delivery::forced);
    return AwaitRetry();
}

Next Transfer::AwaitRetry() {
    const std::uint64_t endMs = GetTickCount64() + retryWaitMs_;
    for (std::uint64_t nowMs = GetTickCount64(); nowMs < endMs; nowMs = GetTickCount64()) {
        if (Cancelled()) return Fail(failures::kCancelled);
        Sleep(static_cast<DWORD>(std::min(kCancelPollMs, endMs - nowMs)));
    }
    return Next::goOn;
}

std::wstring Transfer::RequestHeaders() const {
    std::wstring headers = L"Accept-Encoding: identity\r\n";
    if (progress_.bytes > 0 && IsStrongEtag(resume_.etag)) {
        headers += L"Range: bytes=" + std::to_wstring(progress_.bytes) + L"-\r\nIf-Range: " + resume_.etag + L"\r\n";
    }
    return headers;
}

Next Transfer::Connect(HttpConversation& conversation) {
    ConversationFault fault;
    if (!conversation.Open(source_.parts, TransferPolicy(source_.loopback), fault)) {
        if (!IsPolicyStep(fault.step)) result_.osError = fault.error;
        return Fail(FailureOf(fault.step));
    }
    if (!conversation.Ask(RequestHeaders(), fault)) {
        result_.osError = fault.error;
        return IsTransientWinHttpError(fault.error) ? Next::retry : Fail(FailureOf(fault.step));
    }
    return Next::goOn;
}

Next Transfer::JudgeResponse(HttpConversation& conversation) {
    std::uint32_t status = 0;
    if (!conversation.ReadStatus(status)) return Fail(failures::kInvalidResponse);
    result_.httpStatus = status;
    if (!conversation.SetRequestTimeouts(kBodyTimeouts)) return Fail(failures::kTimeoutPolicyFailed);
    if (Cancelled()) return Fail(failures::kCancelled);

    const ResponseFacts facts = ReadFacts(conversation, status);
    const ResponseDecision decision = DecideResponse(facts);
    if (decision.reset && !ResetPayload()) return Fail(failures::kCacheResetFailed);
    switch (decision.action) {
        case ResponseAction::accept:
            resume_ = {urlHash_, IsStrongEtag(facts.etag) ? facts.etag : std::wstring(), request_.size};
            return Next::goOn;
        case ResponseAction::retry:
            return Next::retry;
        case ResponseAction::fail:
            break;
    }
    return Fail(*decision.failure);
}

/// What the response says, beside what is held. A transient status may ask for a wait of its own.
ResponseFacts Transfer::ReadFacts(const HttpConversation& conversation, std::uint32_t status) {
    ResponseFacts facts;
    facts.status = status;
    if (IsTransientStatus(status)) {
        retryWaitMs_ = ParseRetryAfter(conversation.HeaderText(WINHTTP_QUERY_RETRY_AFTER), progress_.attempt);
        facts.retryAfterRefused = retryWaitMs_ == kWaitRefused;
    }
    facts.retainedBytes = progress_.bytes;
    facts.size = request_.size;
    facts.storedEtag = resume_.etag;
    facts.etag = conversation.HeaderText(WINHTTP_QUERY_ETAG);
    facts.contentType = conversation.HeaderText(WINHTTP_QUERY_CONTENT_TYPE);
    facts.contentLength = conversation.HeaderText(WINHTTP_QUERY_CONTENT_LENGTH);
    facts.contentEncoding = conversation.HeaderText(WINHTTP_QUERY_CONTENT_ENCODING);
    facts.contentRange = conversation.HeaderText(WINHTTP_QUERY_CONTENT_RANGE);
    return facts;
}

Next Transfer::PrepareBody() {
    // Before any byte of this entity is stored: after a crash the file must not vouch for another entity's bytes.
    if (!KeepResumeState()) return Fail(failures::kResumeStateWriteFailed);
    if (!SeekTo(file_.Get(), progress_.bytes)) return Fail(failures::kCacheSeekFailed);
    Report(Phase::receiving, "headers-accepted", Delivery::forced);
    progress_.restarted = false;
    return Next::goOn;
}

/// Brings the resume file in step with the state in hand. A file that cannot be removed is as bad as one that cannot be
/// written: it would vouch for bytes that came from another entity.
bool Transfer::KeepResumeState() const {
    return resume_.etag.empty() ? DeleteFileSafely(place_.resume) : WriteResumeState(place_.resume, resume_);
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
    BodyClocks clocks{SpeedMeter(GetTickCount64()),
                      ComparisonWindow(request_.comparisonDelayMs, request_.comparisonWindowMs)};
    bool first = true;
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
        if (std::exchange(first, false)) firstByteMs_ = GetTickCount64() - attemptStartMs_;
        if (!KeepTime(count, clocks)) return BodyEnd::leave;
    }
}

/// What a stored chunk says about the speed, told and acted upon. False if that ended the transfer.
bool Transfer::KeepTime(DWORD count, BodyClocks& clocks) {
    std::uint64_t nowMs = GetTickCount64();
    clocks.window.Add(count, nowMs);
    const bool mayCompare = !compared_ && !request_.backupUrl.empty() && !request_.backupSource;
    if (mayCompare && clocks.window.ShouldCompare(progress_.bytes, request_.size, nowMs)) {
        if (!CompareSources(nowMs, clocks)) return false;
        nowMs = GetTickCount64();
    }
    clocks.window.Tumble(nowMs);
    progress_.bytesPerSecond = clocks.speed.Add(count, nowMs).value_or(progress_.bytesPerSecond);
    reporter_.Report(clocks.speed.IsSlow(nowMs) ? Phase::slow : Phase::receiving, "progress", Delivery::whenDue, nowMs);
    return true;
}

/// Looks whether the backup would be done sooner; this request stays open and unread meanwhile. False if that ended the
/// transfer.
bool Transfer::CompareSources(std::uint64_t nowMs, BodyClocks& clocks) {
    compared_ = true;
    progress_.comparisonPrimarySpeed = clocks.window.Speed(nowMs);
    Report(Phase::comparingSource, "bounded-comparison", Delivery::forced);
    const Probe probe = compareBackup(request_, callbacks_, allowLoopback_, kInRunProbe);
    progress_.networkBytes += probe.bytes;
    progress_.comparisonBackupSpeed = probe.bytesPerSecond;
    if (Cancelled()) {
        (void)Fail(failures::kCancelled);
        return false;
    }
    if (BackupMeasuredFaster(progress_.comparisonPrimarySpeed, progress_.comparisonBackupSpeed, progress_.bytes,
                             request_.size)) {
        (void)Fail(failures::kBackupMeasuredFaster);
        return false;
    }
    Report(Phase::receiving, "comparison-keep-primary", Delivery::forced);
    clocks.window.Restart(GetTickCount64());
    clocks.speed.Restart(GetTickCount64());
    return true;
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
    (void)DeleteFileSafely(place_.resume);
    return Fail(failures::kSha256Mismatch);
}

/// Drops the retained bytes because nothing can continue them.
bool Transfer::ResetPayload() {
    if (!ResetFile(file_.Get())) return false;
    resume_ = {};
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
    result_.path = place_.part;
    Report(phase, "sha256-verified", Delivery::forced);
    return Next::leave;
}

/// The checks before the cache file is open, in their order. Null if the transfer may start, else the reason.
const wchar_t* CheckStart(const Request& request, const Callbacks& callbacks, bool allowLoopback, SourceUrl& source,
                          std::wstring& directory) {
    if (!IsValidPayload(request)) return refusals::kInvalidPayload;
    if (const wchar_t* refusal = ReadSourceUrl(request.url, allowLoopback, source)) return refusal;
    if (Ask(callbacks.cancelled)) return refusals::kCancelled;
    const bool usable =
        PrepareSafeDirectory(request.cacheDirectory, directory) && ScanCache(directory, request.sha256, request.size);
    return usable ? nullptr : refusals::kUnsafeOrFullCache;
}

Result Refuse(const wchar_t* reason) {
    Result result;
    result.reason = reason;
    result.canceled = reason == refusals::kCancelled;
    return result;
}

}  // namespace

bool IsValidPayload(const Request& request) {
    return request.size >= kMinPayloadBytes && request.size <= kMaxPayloadBytes && IsLowerHexSha256(request.sha256);
}

Result run(const Request& request, const Callbacks& callbacks, bool allowLoopback) {
    SourceUrl source;
    std::wstring directory;
    if (const wchar_t* refusal = CheckStart(request, callbacks, allowLoopback, source, directory)) {
        return Refuse(refusal);
    }
    CachePlace place = PlaceOf(std::move(directory), request.sha256);
    platform::FileHandle file = OpenCacheFile(place.part);
    if (!file) return Refuse(refusals::kCacheFileUnavailable);
    return Transfer(request, callbacks, allowLoopback, std::move(source), std::move(place), std::move(file)).Run();
}

}  // namespace launcher_download
