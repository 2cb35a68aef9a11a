#include "download/http_conversation.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/loopback_server.h"
#include "tests/support/stand_in.h"

namespace launcher_download {
namespace {

using test_support::ClosedPort;
using test_support::LoopbackServer;
using test_support::Reply;
using Exchange = LoopbackServer::Exchange;

constexpr int kPatienceMs = 20000;  // no test waits that long unless its server falls silent on purpose

ConversationPolicy PlainPolicy() {
    return {
        .userAgent = L"Conversation Test",
        .session = {kPatienceMs, kPatienceMs, kPatienceMs, kPatienceMs},
        .request = Timeouts{kPatienceMs, kPatienceMs, kPatienceMs, kPatienceMs},
        .headerWaitMs = kPatienceMs,
        .redirects = Redirects::never,
        .secure = false,
        .cookies = false,
        .mustHoldPolicy = true,
    };
}

platform::UrlParts At(const LoopbackServer& server, const std::wstring& path) {
    platform::UrlParts url;
    url.host = L"127.0.0.1";
    url.port = server.Port();
    url.path = path;
    return url;
}

/// Asks and gives the status; 0 if there was no answer.
std::uint32_t Ask(HttpConversation& conversation, const platform::UrlParts& url, const ConversationPolicy& policy) {
    ConversationFault fault;
    std::uint32_t status = 0;
    EXPECT_TRUE(conversation.Open(url, policy, fault)) << fault.error;
    if (conversation.Ask(L"X-Marked: yes\r\n", fault)) {
        EXPECT_TRUE(conversation.ReadStatus(status));
    }
    return status;
}

TEST(HttpConversation, TheRequest_IsAGetWithAgentAndHeaders) {
    LoopbackServer server(Reply{});
    platform::UrlParts url = At(server, L"/a/b");
    url.extra = L"?c=d";
    HttpConversation conversation({});
    ASSERT_EQ(Ask(conversation, url, PlainPolicy()), 200u);
    ASSERT_EQ(server.Requests().size(), 1u);
    const std::string head = server.Requests()[0];
    EXPECT_TRUE(head.starts_with("GET /a/b?c=d HTTP/1.1\r\n")) << head;
    EXPECT_NE(head.find("\r\nUser-Agent: Conversation Test\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nX-Marked: yes\r\n"), std::string::npos) << head;
}

TEST(HttpConversation, AnEmptyPath_IsTheRoot) {
    LoopbackServer server(Reply{});
    HttpConversation conversation({});
    ASSERT_EQ(Ask(conversation, At(server, L""), PlainPolicy()), 200u);
    EXPECT_TRUE(server.Requests()[0].starts_with("GET / HTTP/1.1\r\n")) << server.Requests()[0];
}

TEST(HttpConversation, HeaderText_GivesTheValueAsItStands) {
    Reply reply;
    reply.headers = {"Content-Type: Text/HTML; Charset=x", "ETag: \"a b\"", "Content-Encoding: z"};
    LoopbackServer server(reply);
    HttpConversation conversation({});
    ASSERT_EQ(Ask(conversation, At(server, L"/"), PlainPolicy()), 200u);
    EXPECT_EQ(conversation.HeaderText(WINHTTP_QUERY_CONTENT_TYPE), L"Text/HTML; Charset=x");
    EXPECT_EQ(conversation.HeaderText(WINHTTP_QUERY_ETAG), L"\"a b\"");
    EXPECT_EQ(conversation.HeaderText(WINHTTP_QUERY_CONTENT_ENCODING), L"z");
    EXPECT_EQ(conversation.HeaderText(WINHTTP_QUERY_CONTENT_LENGTH), L"0");
    EXPECT_EQ(conversation.HeaderText(WINHTTP_QUERY_CONTENT_RANGE), L"");
    EXPECT_EQ(conversation.HeaderText(WINHTTP_QUERY_RETRY_AFTER), L"");
}

/// Length of the raw head that a server sends with as many characters of padding, over several header lines.
std::size_t RawHeadLength(std::size_t padding) {
    Reply reply;
    for (int line = 0; line < 3; ++line)
        reply.headers.push_back("X-Pad: " + std::string(1000, 'x'));
    reply.headers.push_back("X-Rest: " + std::string(padding, 'x'));
    LoopbackServer server(reply);
    HttpConversation conversation({});
    EXPECT_EQ(Ask(conversation, At(server, L"/"), PlainPolicy()), 200u);
    return conversation.HeaderText(WINHTTP_QUERY_RAW_HEADERS_CRLF).size();
}

TEST(HttpConversation, TextOver8192Bytes_CountsAsMissing) {
    constexpr std::size_t kMostUnits = 4095;  // 8192 bytes with the terminator
    // Systems differ in how the raw head ends, so its length is measured first.
    const std::size_t base = RawHeadLength(1) - 1;
    ASSERT_GT(base, 3000u);
    ASSERT_LT(base, kMostUnits);
    EXPECT_EQ(RawHeadLength(kMostUnits - base), kMostUnits);
    EXPECT_EQ(RawHeadLength(kMostUnits - base + 1), 0u);
}

TEST(HttpConversation, ALengthBeyond32Bits_IsToldWhole) {
    Reply reply;
    reply.headers = {"Content-Length: 18446744073709551615"};
    reply.announceLength = false;
    LoopbackServer server(reply);
    HttpConversation conversation({});
    ASSERT_EQ(Ask(conversation, At(server, L"/"), PlainPolicy()), 200u);
    EXPECT_EQ(conversation.HeaderText(WINHTTP_QUERY_CONTENT_LENGTH), L"18446744073709551615");
}

/// Sends the first request elsewhere on the same server, with a cookie for the way.
LoopbackServer::Script RedirectWithCookie() {
    return [](Exchange& exchange) {
        Reply reply;
        if (exchange.Request().starts_with("GET /first ")) {
            reply.status = "302 Found";
            reply.headers = {"Location: /second", "Set-Cookie: taste=sweet; Path=/"};
        }
        exchange.Send(reply);
    };
}

TEST(HttpConversation, Redirects_AreNotFollowedWhereThePolicyForbids) {
    LoopbackServer server(RedirectWithCookie());
    HttpConversation conversation({});
    EXPECT_EQ(Ask(conversation, At(server, L"/first"), PlainPolicy()), 302u);
    EXPECT_EQ(server.Requests().size(), 1u);
}

TEST(HttpConversation, Cookies_AreSentBackOnlyWhereThePolicyAllows) {
    for (const bool cookies : {false, true}) {
        LoopbackServer server(RedirectWithCookie());
        ConversationPolicy policy = PlainPolicy();
        policy.redirects = Redirects::neverToHttp;
        policy.cookies = cookies;
        HttpConversation conversation({});
        EXPECT_EQ(Ask(conversation, At(server, L"/first"), policy), 200u);
        ASSERT_EQ(server.Requests().size(), 2u);
        EXPECT_EQ(server.Requests()[1].find("taste=sweet") != std::string::npos, cookies) << server.Requests()[1];
    }
}

TEST(HttpConversation, AStalledHeader_EndsAtThePolicysWait) {
    LoopbackServer server([](Exchange& exchange) { exchange.AwaitClientClose(); });
    ConversationPolicy policy = PlainPolicy();
    policy.headerWaitMs = 1000;
    HttpConversation conversation({});
    const std::uint64_t start = GetTickCount64();
    EXPECT_EQ(Ask(conversation, At(server, L"/"), policy), 0u);
    EXPECT_LT(GetTickCount64() - start, 5000u);
}

TEST(HttpConversation, Faults_NameTheirStep) {
    ConversationFault fault;
    platform::UrlParts url;
    url.host = L"127.0.0.1";
    url.path = L"/";
    const ClosedPort port;
    url.port = port.Number();
    ConversationPolicy policy = PlainPolicy();
    policy.session.receiveMs = -2;
    HttpConversation timeouts({});
    EXPECT_FALSE(timeouts.Open(url, policy, fault));
    EXPECT_EQ(fault.step, ConversationStep::sessionTimeouts);
    EXPECT_NE(fault.error, 0u);

    policy = PlainPolicy();
    policy.request->receiveMs = -2;
    HttpConversation requestTimeouts({});
    EXPECT_FALSE(requestTimeouts.Open(url, policy, fault));
    EXPECT_EQ(fault.step, ConversationStep::requestTimeouts);

    policy.mustHoldPolicy = false;
    HttpConversation lenient({});
    EXPECT_TRUE(lenient.Open(url, policy, fault));

    HttpConversation closed({});
    ASSERT_TRUE(closed.Open(url, PlainPolicy(), fault));
    EXPECT_FALSE(closed.Ask(L"", fault));
    EXPECT_TRUE(fault.step == ConversationStep::send || fault.step == ConversationStep::receive);
    EXPECT_EQ(fault.error, 12029u);
}

TEST(HttpConversation, ClosingAHandle_HappensOnceAndKeepsTheLastError) {
    using OnClose = test_support::StandIn<"WinHttpCloseHandle", decltype(WinHttpCloseHandle)>;
    int closes = 0;
    const OnClose close([&closes](HINTERNET) {
        ++closes;
        SetLastError(1);
        return TRUE;
    });
    {
        SharedInternetHandle handle;
        SetLastError(4711);
        EXPECT_FALSE(handle.Hold(nullptr));
        handle.Close();
        EXPECT_EQ(closes, 0);
        EXPECT_TRUE(handle.Hold(&closes));
        EXPECT_EQ(handle.Get(), &closes);
        handle.Close();
        EXPECT_EQ(GetLastError(), 4711u);
        EXPECT_EQ(handle.Get(), nullptr);
        handle.Close();
    }
    EXPECT_EQ(closes, 1);
}

TEST(HttpConversation, NeverOpened_IsDestroyedQuietly) {
    const HttpConversation conversation({});
}

}  // namespace
}  // namespace launcher_download
