#include "download/response_rules.h"

#include <iterator>

#include "download/http_rules.h"
#include "download/retry_rules.h"
#include "platform/text.h"

namespace launcher_download {
namespace {

constexpr std::uint32_t kOk = 200;
constexpr std::uint32_t kPartialContent = 206;
constexpr std::uint32_t kRangeNotSatisfiable = 416;

bool IsTransient(const ResponseFacts& facts) {
    return IsTransientStatus(facts.status);
}

bool IsTransientWithRefusedWait(const ResponseFacts& facts) {
    return IsTransient(facts) && facts.retryAfterRefused;
}

bool IsUnsatisfiable(const ResponseFacts& facts) {
    return facts.status == kRangeNotSatisfiable;
}

bool IsUnsatisfiableWithoutRange(const ResponseFacts& facts) {
    return IsUnsatisfiable(facts) && facts.retainedBytes == 0;
}

bool HasNoBodyForUs(const ResponseFacts& facts) {
    return facts.status != kOk && facts.status != kPartialContent;
}

/// A login page of a network's portal, say.
bool IsHtml(const ResponseFacts& facts) {
    return platform::ToLower(facts.contentType).find(L"text/html") != std::wstring::npos;
}

bool IsEncoded(const ResponseFacts& facts) {
    return !facts.contentEncoding.empty() && !platform::EqualsIgnoringCase(facts.contentEncoding, L"identity");
}

bool ContinuesTheRetainedBytes(const ResponseFacts& facts) {
    return facts.retainedBytes > 0 && IsStrongEtag(facts.storedEtag) && facts.etag == facts.storedEtag &&
           ParseContentRange(facts.contentRange, facts.retainedBytes, facts.size);
}

bool IsUnprovenPart(const ResponseFacts& facts) {
    return facts.status == kPartialContent && !ContinuesTheRetainedBytes(facts);
}

bool IsWholeBodyToRangeRequest(const ResponseFacts& facts) {
    return facts.status == kOk && facts.retainedBytes > 0;
}

bool HasWrongLength(const ResponseFacts& facts) {
    if (facts.contentLength.empty()) return false;
    const std::optional<std::uint64_t> length = ParseDecimal(facts.contentLength);
    return !length || *length != facts.size - facts.retainedBytes;
}

bool Always(const ResponseFacts&) {
    return true;
}

struct Row {
    bool (*applies)(const ResponseFacts&);
    ResponseDecision decision;
};

constexpr ResponseDecision Fail(const Failure& failure) {
    return {ResponseAction::fail, false, &failure};
}
constexpr ResponseDecision kRetry{ResponseAction::retry, false, nullptr};
constexpr ResponseDecision kResetAndRetry{ResponseAction::retry, true, nullptr};
constexpr ResponseDecision kResetAndGoOn{ResponseAction::accept, true, nullptr};
constexpr ResponseDecision kAccept{ResponseAction::accept, false, nullptr};

constexpr Row kRows[] = {
    {IsTransientWithRefusedWait, Fail(failures::kServerRequestedLaterRetry)},
    {IsTransient, kRetry},
    {IsUnsatisfiableWithoutRange, Fail(failures::kHttpError)},
    {IsUnsatisfiable, kResetAndRetry},
    {HasNoBodyForUs, Fail(failures::kHttpError)},
    {IsHtml, Fail(failures::kHtmlResponse)},
    {IsEncoded, Fail(failures::kUnexpectedEncoding)},
    {IsUnprovenPart, kResetAndRetry},
    {IsWholeBodyToRangeRequest, kResetAndGoOn},
    {HasWrongLength, Fail(failures::kContentLengthMismatch)},
    {Always, kAccept},
};
constexpr std::size_t kRowCount = std::size(kRows);

static_assert(kRows[kRowCount - 1].applies == Always, "the table must answer every response");
static_assert(kRows[kRowCount - 2].decision.failure == &failures::kContentLengthMismatch,
              "a length is judged last: a whole body to a range request has its own length");
static_assert(kRows[0].applies == IsTransientWithRefusedWait && kRows[1].applies == IsTransient,
              "a refused wait must be seen before the retry that would make it");

const ResponseDecision& FirstMatch(const ResponseFacts& facts) {
    const Row* row = kRows;
    while (!row->applies(facts))
        ++row;
    return row->decision;
}

}  // namespace

ResponseDecision DecideResponse(const ResponseFacts& facts) {
    const ResponseDecision decision = FirstMatch(facts);
    if (!decision.reset || decision.action != ResponseAction::accept) return decision;
    // The rest of the table sees a fresh download, as it is once the retained bytes are gone.
    ResponseFacts fresh = facts;
    fresh.retainedBytes = 0;
    ResponseDecision freshDecision = FirstMatch(fresh);
    freshDecision.reset = true;
    return freshDecision;
}

}  // namespace launcher_download
