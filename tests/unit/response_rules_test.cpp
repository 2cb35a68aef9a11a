#include "download/response_rules.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace launcher_download {
namespace {

constexpr std::uint64_t kSize = 10;

ResponseFacts Fresh(std::uint32_t status) {
    ResponseFacts facts;
    facts.status = status;
    facts.size = kSize;
    return facts;
}

/// A 206 that continues four retained bytes as it should.
ResponseFacts Continued() {
    ResponseFacts facts = Fresh(206);
    facts.retainedBytes = 4;
    facts.storedEtag = L"\"v1\"";
    facts.etag = L"\"v1\"";
    facts.contentRange = L"bytes 4-9/10";
    facts.contentLength = L"6";
    return facts;
}

/// The answer to a range request for everything behind four retained bytes.
ResponseFacts Retained(std::uint32_t status) {
    ResponseFacts facts = Fresh(status);
    facts.retainedBytes = 4;
    facts.storedEtag = L"\"v1\"";
    return facts;
}

void ExpectFailure(const ResponseFacts& facts, const Failure& failure, bool reset = false) {
    const ResponseDecision decision = DecideResponse(facts);
    EXPECT_EQ(decision.action, ResponseAction::fail) << facts.status;
    ASSERT_NE(decision.failure, nullptr) << facts.status;
    EXPECT_STREQ(decision.failure->reason, failure.reason) << facts.status;
    EXPECT_EQ(decision.reset, reset) << facts.status;
}

void ExpectAction(const ResponseFacts& facts, ResponseAction action, bool reset) {
    const ResponseDecision decision = DecideResponse(facts);
    EXPECT_EQ(decision.action, action) << facts.status;
    EXPECT_EQ(decision.reset, reset) << facts.status;
    EXPECT_EQ(decision.failure, nullptr) << facts.status;
}

TEST(ResponseRules, TransientStatus_IsTriedAgain) {
    for (const std::uint32_t status : {408u, 429u, 500u, 502u, 503u, 504u}) {
        ExpectAction(Fresh(status), ResponseAction::retry, false);
        ExpectAction(Retained(status), ResponseAction::retry, false);
    }
}

TEST(ResponseRules, TransientStatusWithARefusedWait_IsFinal) {
    for (const std::uint32_t status : {408u, 429u, 500u, 502u, 503u, 504u}) {
        ResponseFacts facts = Fresh(status);
        facts.retryAfterRefused = true;
        ExpectFailure(facts, failures::kServerRequestedLaterRetry);
    }
}

TEST(ResponseRules, ARefusedWait_MattersToTransientStatusesOnly) {
    ResponseFacts facts = Fresh(200);
    facts.retryAfterRefused = true;
    ExpectAction(facts, ResponseAction::accept, false);
    facts.status = 404;
    ExpectFailure(facts, failures::kHttpError);
}

TEST(ResponseRules, TransientStatusWithAHtmlPage_IsStillTransient) {
    ResponseFacts facts = Fresh(503);
    facts.contentType = L"text/html";
    facts.contentEncoding = L"gzip";
    ExpectAction(facts, ResponseAction::retry, false);
}

TEST(ResponseRules, UnsatisfiableWithoutRetainedBytes_IsAnHttpError) {
    ExpectFailure(Fresh(416), failures::kHttpError);
}

TEST(ResponseRules, UnsatisfiableWithRetainedBytes_DropsThemAndTriesAgain) {
    ExpectAction(Retained(416), ResponseAction::retry, true);
}

TEST(ResponseRules, EveryOtherStatus_IsAnHttpError) {
    for (const std::uint32_t status : {0u,   100u, 199u, 201u, 202u, 204u, 205u, 207u, 300u, 301u, 302u, 304u,
                                       307u, 400u, 401u, 403u, 404u, 410u, 415u, 417u, 501u, 505u, 599u, 4294967295u}) {
        ExpectFailure(Fresh(status), failures::kHttpError);
        ExpectFailure(Retained(status), failures::kHttpError);
    }
}

TEST(ResponseRules, HtmlInAnyCaseAndWithParameters_IsRefused) {
    for (const wchar_t* type : {L"text/html", L"TEXT/HTML", L"Text/Html; charset=utf-8", L"application/x, text/html"}) {
        ResponseFacts facts = Fresh(200);
        facts.contentType = type;
        ExpectFailure(facts, failures::kHtmlResponse);
        facts = Continued();
        facts.contentType = type;
        ExpectFailure(facts, failures::kHtmlResponse);
    }
}

TEST(ResponseRules, OtherContentTypes_AreAccepted) {
    for (const wchar_t* type :
         {L"", L"application/octet-stream", L"text/plain", L"application/xhtml+xml", L"text/ html"}) {
        ResponseFacts facts = Fresh(200);
        facts.contentType = type;
        ExpectAction(facts, ResponseAction::accept, false);
    }
}

TEST(ResponseRules, AnyEncodingButIdentity_IsRefused) {
    for (const wchar_t* encoding : {L"gzip", L"br", L"deflate", L"identity, gzip", L"identity ", L"none"}) {
        ResponseFacts facts = Fresh(200);
        facts.contentEncoding = encoding;
        ExpectFailure(facts, failures::kUnexpectedEncoding);
    }
    for (const wchar_t* encoding : {L"", L"identity", L"Identity", L"IDENTITY"}) {
        ResponseFacts facts = Fresh(200);
        facts.contentEncoding = encoding;
        ExpectAction(facts, ResponseAction::accept, false);
    }
}

TEST(ResponseRules, HtmlIsToldBeforeTheEncoding) {
    ResponseFacts facts = Fresh(200);
    facts.contentType = L"text/html";
    facts.contentEncoding = L"gzip";
    ExpectFailure(facts, failures::kHtmlResponse);
}

TEST(ResponseRules, EncodedPart_IsRefusedWithoutLosingTheRetainedBytes) {
    ResponseFacts facts = Continued();
    facts.contentEncoding = L"gzip";
    facts.etag = L"\"v2\"";
    ExpectFailure(facts, failures::kUnexpectedEncoding);
}

TEST(ResponseRules, ProvenPart_IsAccepted) {
    ExpectAction(Continued(), ResponseAction::accept, false);
    ResponseFacts facts = Continued();
    facts.contentLength.clear();
    ExpectAction(facts, ResponseAction::accept, false);
}

TEST(ResponseRules, EachMissingProofOfAPart_CostsTheRetainedBytesAndTheAttempt) {
    const std::pair<const char*, std::function<void(ResponseFacts&)>> flaws[] = {
        {"no retained bytes", [](ResponseFacts& facts) { facts.retainedBytes = 0; }},
        {"no stored tag", [](ResponseFacts& facts) { facts.storedEtag.clear(); }},
        {"two equal weak tags", [](ResponseFacts& facts) { facts.storedEtag = facts.etag = L"W/\"v1\""; }},
        {"no tag", [](ResponseFacts& facts) { facts.etag.clear(); }},
        {"another tag", [](ResponseFacts& facts) { facts.etag = L"\"v2\""; }},
        {"a tag in another case", [](ResponseFacts& facts) { facts.etag = L"\"V1\""; }},
        {"a weak tag", [](ResponseFacts& facts) { facts.etag = L"W/\"v1\""; }},
        {"no range", [](ResponseFacts& facts) { facts.contentRange.clear(); }},
        {"another start", [](ResponseFacts& facts) { facts.contentRange = L"bytes 3-9/10"; }},
        {"another end", [](ResponseFacts& facts) { facts.contentRange = L"bytes 4-8/10"; }},
        {"another total", [](ResponseFacts& facts) { facts.contentRange = L"bytes 4-9/11"; }},
        {"retained bytes beyond the size", [](ResponseFacts& facts) { facts.retainedBytes = 10; }},
    };
    for (const auto& [name, spoil] : flaws) {
        SCOPED_TRACE(name);
        ResponseFacts facts = Continued();
        spoil(facts);
        ExpectAction(facts, ResponseAction::retry, true);
    }
}

TEST(ResponseRules, PartWithoutHavingAskedForOne_IsTriedAgain) {
    ResponseFacts facts = Fresh(206);
    facts.contentRange = L"bytes 0-9/10";
    facts.etag = L"\"v1\"";
    ExpectAction(facts, ResponseAction::retry, true);
}

TEST(ResponseRules, ProvenPartOfWrongLength_IsRefused) {
    for (const wchar_t* length : {L"5", L"7", L"10", L"0"}) {
        ResponseFacts facts = Continued();
        facts.contentLength = length;
        ExpectFailure(facts, failures::kContentLengthMismatch);
    }
}

TEST(ResponseRules, WholeBodyToARangeRequest_StartsAfreshInTheSameAttempt) {
    ResponseFacts facts = Retained(200);
    ExpectAction(facts, ResponseAction::accept, true);
    facts.contentLength = L"10";
    ExpectAction(facts, ResponseAction::accept, true);
}

TEST(ResponseRules, WholeBodyToARangeRequest_IsMeasuredAgainstTheWholeSize) {
    ResponseFacts facts = Retained(200);
    facts.contentLength = L"6";
    ExpectFailure(facts, failures::kContentLengthMismatch, true);
}

TEST(ResponseRules, LengthThatIsNotThePayloads_IsRefused) {
    for (const wchar_t* length :
         {L"9", L"11", L"0", L"10 ", L" 10", L"0x10", L"+10", L"-10", L"10, 10", L"ten", L"18446744073709551626"}) {
        ResponseFacts facts = Fresh(200);
        facts.contentLength = length;
        ExpectFailure(facts, failures::kContentLengthMismatch);
    }
}

TEST(ResponseRules, RightOrMissingLength_IsAccepted) {
    for (const wchar_t* length : {L"", L"10", L"0000000010"}) {
        ResponseFacts facts = Fresh(200);
        facts.contentLength = length;
        ExpectAction(facts, ResponseAction::accept, false);
    }
}

TEST(ResponseRules, LastByteMissing_IsAskedForAndAccepted) {
    ResponseFacts facts = Continued();
    facts.retainedBytes = 9;
    facts.contentRange = L"bytes 9-9/10";
    facts.contentLength = L"1";
    ExpectAction(facts, ResponseAction::accept, false);
}

}  // namespace
}  // namespace launcher_download
