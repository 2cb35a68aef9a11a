#include "update/manifest/metadata_fetch.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <winhttp.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/loopback_server.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"

namespace launcher_update {
namespace {

using test_support::ClosedPort;
using test_support::LoopbackServer;
using test_support::Reply;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

constexpr wchar_t kMustBeHttps[] = L"更新網址必須使用 HTTPS。";
constexpr wchar_t kNoAnswer[] = L"更新伺服器沒有回應。";
constexpr wchar_t kLocalFileUnreadable[] = L"無法讀取本機測試更新檔。";

/// One call with what it left behind.
struct Fetch {
    std::string bytes = "left from before";
    std::wstring error = L"left from before";
    std::vector<std::pair<std::uint64_t, std::uint64_t>> progress;
    bool good = false;

    Fetch(const std::wstring& source, bool allowLocal, std::uint64_t limit, const FetchCancelled& cancelled = {}) {
        good = FetchBytes(
            source, allowLocal, limit, bytes, error,
            [this](const std::uint64_t& done, const std::uint64_t& total) { progress.emplace_back(done, total); },
            cancelled);
    }
};

TEST(MetadataFetch_Local, AFileWithinTheLimit_IsRead) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"manifest.json", std::string_view("{\0}", 3));
    const Fetch fetch(top / L"manifest.json", true, 10);
    EXPECT_TRUE(fetch.good);
    EXPECT_EQ(fetch.bytes, std::string("{\0}", 3));
    EXPECT_EQ(fetch.progress, (std::vector<std::pair<std::uint64_t, std::uint64_t>>{{3, 10}}));
}

TEST(MetadataFetch_Local, ExactlyTheLimit_Passes) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"file", std::string(10, 'x'));
    const Fetch fetch(top / L"file", true, 10);
    EXPECT_TRUE(fetch.good);
    EXPECT_EQ(fetch.bytes, std::string(10, 'x'));
}

TEST(MetadataFetch_Local, OneByteOverTheLimit_IsUnreadable) {
    const TemporaryDirectory top;
    for (const std::size_t length : {11u, 12u, 100000u}) {
        WriteWholeFile(top / L"file", std::string(length, 'x'));
        const Fetch fetch(top / L"file", true, 10);
        EXPECT_FALSE(fetch.good);
        EXPECT_EQ(fetch.error, kLocalFileUnreadable);
        EXPECT_TRUE(fetch.progress.empty());
    }
}

TEST(MetadataFetch_Local, AnEmptyMissingOrUnreadableFile_IsUnreadable) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"empty", "");
    const std::wstring sources[] = {top / L"empty", top / L"missing", top.Path(), L"\\", L"C:"};
    for (const std::wstring& source : sources) {
        const Fetch fetch(source, true, 10);
        EXPECT_FALSE(fetch.good) << platform::EncodeUtf8(source);
        EXPECT_EQ(fetch.error, kLocalFileUnreadable) << platform::EncodeUtf8(source);
    }
}

TEST(MetadataFetch_Local, ALimitBeyondOneRead_IsUnreadable) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"file", "x");
    EXPECT_EQ(Fetch(top / L"file", true, 0xFFFFFFFF).error, kLocalFileUnreadable);
    EXPECT_EQ(Fetch(top / L"file", true, 0xFFFFFFFFFFFFFFFF).error, kLocalFileUnreadable);
}

TEST(MetadataFetch_Local, WithoutPermission_IsTakenForAUrl) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"file", "x");
    const Fetch fetch(top / L"file", false, 10);
    EXPECT_FALSE(fetch.good);
    EXPECT_EQ(fetch.error, kMustBeHttps);
}

TEST(MetadataFetch_Local, RelativePathsAndUrls_AreTakenForUrls) {
    for (const wchar_t* source :
         {L"", L"file", L"folder/file", L"http://127.0.0.1:1/x", L"ftp://host/x", L"C:\\a://b", L"file:///C:/a"}) {
        const Fetch fetch(source, true, 10);
        EXPECT_FALSE(fetch.good) << platform::EncodeUtf8(source);
        EXPECT_EQ(fetch.error, kMustBeHttps) << platform::EncodeUtf8(source);
    }
}

TEST(MetadataFetch_Cancel, BeforeAnything_LeavesNothing) {
    for (const wchar_t* source : {L"https://127.0.0.1:1/x", L"C:\\missing", L"not a url"}) {
        const Fetch fetch(source, true, 10, [] { return true; });
        EXPECT_FALSE(fetch.good);
        EXPECT_EQ(fetch.bytes, "");
        EXPECT_EQ(fetch.error, L"");
        EXPECT_TRUE(fetch.progress.empty());
    }
}

TEST(MetadataFetch_Cancel, BehindALocalRead_LeavesNothing) {
    const TemporaryDirectory top;
    WriteWholeFile(top / L"file", "abc");
    int polls = 0;
    const Fetch fetch(top / L"file", true, 10, [&polls] { return ++polls > 1; });
    EXPECT_FALSE(fetch.good);
    EXPECT_EQ(fetch.bytes, "");
    EXPECT_EQ(fetch.error, L"");
    EXPECT_EQ(fetch.progress.size(), 1u);
}

TEST(MetadataFetch_Cancel, DuringTheAnswer_ReadsAsNoAnswer) {
    int polls = 0;
    const Fetch fetch(L"https://127.0.0.1:1/x", false, 10, [&polls] { return ++polls > 1; });
    EXPECT_FALSE(fetch.good);
    EXPECT_EQ(fetch.error, kNoAnswer);
}

TEST(MetadataFetch_Https, EveryOtherScheme_IsRefused) {
    LoopbackServer server(Reply{});
    for (const std::wstring& url :
         {server.Url(), std::wstring(L"http://host.example/x"), std::wstring(L"HTTP://127.0.0.1/x"),
          std::wstring(L"ftp://host/x"), std::wstring(L"https:/host"), std::wstring(L"https:///x"), std::wstring()}) {
        const Fetch fetch(url, false, 10);
        EXPECT_FALSE(fetch.good) << platform::EncodeUtf8(url);
        EXPECT_EQ(fetch.error, kMustBeHttps) << platform::EncodeUtf8(url);
        EXPECT_TRUE(fetch.progress.empty());
    }
    EXPECT_TRUE(server.Requests().empty());
}

TEST(MetadataFetch_Https, AServerThatIsNotThere_DoesNotAnswer) {
    const ClosedPort port;
    const std::wstring url = L"https://127.0.0.1:" + std::to_wstring(port.Number()) + L"/x";
    const Fetch fetch(url, false, 10);
    EXPECT_FALSE(fetch.good);
    EXPECT_EQ(fetch.error, kNoAnswer);
    EXPECT_TRUE(fetch.progress.empty());
}

TEST(MetadataFetch_Https, AServerWithoutTls_DoesNotAnswer) {
    LoopbackServer server([](LoopbackServer::Exchange& exchange) { exchange.Send(Reply{}); });
    const std::wstring url = L"https://127.0.0.1:" + std::to_wstring(server.Port()) + L"/x";
    const std::uint64_t start = GetTickCount64();
    const Fetch fetch(url, false, 10);
    EXPECT_FALSE(fetch.good);
    EXPECT_EQ(fetch.error, kNoAnswer);
    // It waits for the end of a head that never comes, so what ends this is the client's own time-out.
    EXPECT_LT(GetTickCount64() - start, 8000u);
}

using OnOpen = StandIn<"WinHttpOpen", decltype(WinHttpOpen)>;
using OnConnect = StandIn<"WinHttpConnect", decltype(WinHttpConnect)>;
using OnOpenRequest = StandIn<"WinHttpOpenRequest", decltype(WinHttpOpenRequest)>;
using OnSetTimeouts = StandIn<"WinHttpSetTimeouts", decltype(WinHttpSetTimeouts)>;
using OnSetOption = StandIn<"WinHttpSetOption", decltype(WinHttpSetOption)>;
using OnQueryHeaders = StandIn<"WinHttpQueryHeaders", decltype(WinHttpQueryHeaders)>;
using OnQueryAvailable = StandIn<"WinHttpQueryDataAvailable", decltype(WinHttpQueryDataAvailable)>;
using OnRead = StandIn<"WinHttpReadData", decltype(WinHttpReadData)>;
using OnCloseInternet = StandIn<"WinHttpCloseHandle", decltype(WinHttpCloseHandle)>;

BOOL Refuse() {
    SetLastError(ERROR_WINHTTP_CONNECTION_ERROR);
    return FALSE;
}

/// Takes the TLS off what the fetch asks for, so that the loopback server can answer it; the rest is the fetch's own.
class MetadataFetch_Answer : public ::testing::Test {
  protected:
    static std::wstring Secure(const LoopbackServer& server) {
        return L"https://127.0.0.1:" + std::to_wstring(server.Port()) + L"/manifest?x=1";
    }
    static Fetch From(const LoopbackServer& server, std::uint64_t limit = 1000, const FetchCancelled& cancelled = {}) {
        return Fetch(Secure(server), false, limit, cancelled);
    }
    static Fetch From(const Reply& reply, std::uint64_t limit = 1000) {
        LoopbackServer server(reply);
        return From(server, limit);
    }
    static Reply Whole(const std::string& body) {
        Reply reply;
        reply.body = body;
        return reply;
    }

    DWORD requestFlags_ = 0;
    std::wstring verb_;
    OnOpenRequest onOpenRequest_{[this](HINTERNET owner, LPCWSTR verb, LPCWSTR object, LPCWSTR version,
                                        LPCWSTR referrer, LPCWSTR* types, DWORD flags) {
        requestFlags_ = flags;
        verb_ = verb;
        return OnOpenRequest::Original(owner, verb, object, version, referrer, types,
                                       flags & ~static_cast<DWORD>(WINHTTP_FLAG_SECURE));
    }};
};

TEST_F(MetadataFetch_Answer, AWholeBody_IsGiven) {
    LoopbackServer server(Whole(std::string("{\0}", 3)));
    const Fetch fetch = From(server);
    EXPECT_TRUE(fetch.good);
    EXPECT_EQ(fetch.bytes, std::string("{\0}", 3));
    EXPECT_EQ(fetch.error, L"left from before");
    ASSERT_GE(fetch.progress.size(), 2u);
    EXPECT_EQ(fetch.progress.front(), (std::pair<std::uint64_t, std::uint64_t>{0, 1000}));
    EXPECT_EQ(fetch.progress.back(), (std::pair<std::uint64_t, std::uint64_t>{3, 1000}));
    EXPECT_EQ(requestFlags_, 0x800000u);
    EXPECT_EQ(verb_, L"GET");
    ASSERT_EQ(server.Requests().size(), 1u);
    const std::string head = server.Requests()[0];
    EXPECT_TRUE(head.starts_with("GET /manifest?x=1 HTTP/1.1\r\n")) << head;
    EXPECT_NE(head.find("\r\nUser-Agent: Velmora Pine Relay Launcher/1.0\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nCache-Control: no-cache\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nAccept-Encoding: identity\r\n"), std::string::npos) << head;
}

TEST_F(MetadataFetch_Answer, TheTerms_AreShortAndWithinHttps) {
    LoopbackServer server(Whole("x"));
    std::vector<std::vector<int>> waits;
    std::vector<std::pair<DWORD, DWORD>> options;
    std::vector<HINTERNET> opened;
    std::vector<HINTERNET> closed;
    const OnSetTimeouts timeouts([&](HINTERNET handle, int resolve, int connect, int send, int receive) {
        waits.push_back({resolve, connect, send, receive});
        return OnSetTimeouts::Original(handle, resolve, connect, send, receive);
    });
    const OnSetOption option([&](HINTERNET handle, DWORD number, LPVOID value, DWORD length) {
        if (number != WINHTTP_OPTION_CONTEXT_VALUE) options.emplace_back(number, *static_cast<DWORD*>(value));
        if (number == WINHTTP_OPTION_CONTEXT_VALUE) opened.push_back(handle);
        return OnSetOption::Original(handle, number, value, length);
    });
    const OnConnect connect([&](HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
        const HINTERNET connection = OnConnect::Original(session, host, port, reserved);
        opened = {session, connection};
        return connection;
    });
    const OnCloseInternet close([&](HINTERNET handle) {
        closed.push_back(handle);
        return OnCloseInternet::Original(handle);
    });
    EXPECT_TRUE(From(server).good);
    EXPECT_EQ(waits, (std::vector<std::vector<int>>{{1500, 1500, 2500, 2500}}));
    EXPECT_EQ(options, (std::vector<std::pair<DWORD, DWORD>>{{88, 1}, {7, 2500}}));
    EXPECT_EQ(closed, std::vector<HINTERNET>(opened.rbegin(), opened.rend())) << "request, connection, session";
    EXPECT_EQ(closed.size(), 3u);
}

TEST_F(MetadataFetch_Answer, RefusedTerms_AreNoHindrance) {
    LoopbackServer server(Whole("x"));
    const OnSetTimeouts timeouts([](auto...) { return Refuse(); });
    const OnSetOption option([](HINTERNET handle, DWORD number, LPVOID value, DWORD length) {
        if (number == 88 || number == 7) return Refuse();
        return OnSetOption::Original(handle, number, value, length);
    });
    EXPECT_TRUE(From(server).good);
}

TEST_F(MetadataFetch_Answer, EachHandleThatCannotBeMade_HasItsMessage) {
    LoopbackServer server(Whole("x"));
    {
        const OnOpen open([](auto...) { return nullptr; });
        EXPECT_EQ(From(server).error, L"無法建立更新連線。");
    }
    const OnConnect connect([](auto...) { return nullptr; });
    EXPECT_EQ(From(server).error, L"無法連線到更新伺服器。");
    EXPECT_TRUE(server.Requests().empty());
}

TEST(MetadataFetch_Https, ARequestThatCannotBeMade_HasItsMessage) {
    const OnOpenRequest request([](auto...) { return nullptr; });
    const Fetch fetch(L"https://127.0.0.1:1/x", false, 10);
    EXPECT_FALSE(fetch.good);
    EXPECT_EQ(fetch.error, L"無法建立更新要求。");
}

TEST_F(MetadataFetch_Answer, EveryOtherStatus_IsTold) {
    for (const char* status : {"206 Partial Content", "304 Not Modified", "404 Not Found", "500 Oops", "201 Created"}) {
        Reply reply = Whole("{}");
        reply.status = status;
        const Fetch fetch = From(reply);
        EXPECT_FALSE(fetch.good);
        const std::wstring number = platform::WidenAscii(std::string(status, 3));
        EXPECT_EQ(fetch.error, L"更新伺服器回傳錯誤（HTTP " + number + L"）。");
        EXPECT_TRUE(fetch.progress.empty());
        EXPECT_EQ(fetch.bytes, "left from before");
    }
}

TEST_F(MetadataFetch_Answer, AStatusThatCannotBeRead_IsToldAsZero) {
    const OnQueryHeaders headers(
        [](HINTERNET handle, DWORD flags, LPCWSTR name, LPVOID value, LPDWORD length, LPDWORD index) {
            if (flags == 0x20000013) return Refuse();
            return OnQueryHeaders::Original(handle, flags, name, value, length, index);
        });
    EXPECT_EQ(From(Whole("{}")).error, L"更新伺服器回傳錯誤（HTTP 0）。");
}

TEST_F(MetadataFetch_Answer, AnEmptyBody_IsAFailureWithoutAMessage) {
    const Fetch fetch = From(Whole(""));
    EXPECT_FALSE(fetch.good);
    EXPECT_EQ(fetch.bytes, "");
    EXPECT_EQ(fetch.error, L"left from before");
    EXPECT_EQ(fetch.progress, (std::vector<std::pair<std::uint64_t, std::uint64_t>>{{0, 1000}}));
}

TEST_F(MetadataFetch_Answer, ExactlyTheLimit_Passes_OneByteMoreIsNotEvenRead) {
    EXPECT_EQ(From(Whole(std::string(1000, 'x'))).bytes, std::string(1000, 'x'));
    std::size_t asked = 0;
    const OnRead read([&asked](HINTERNET handle, LPVOID buffer, DWORD capacity, LPDWORD count) {
        asked += capacity;
        return OnRead::Original(handle, buffer, capacity, count);
    });
    for (const bool announced : {true, false}) {
        asked = 0;
        Reply reply = Whole(std::string(1001, 'x'));
        reply.announceLength = announced;
        const Fetch fetch = From(reply);
        EXPECT_FALSE(fetch.good);
        EXPECT_EQ(fetch.error, L"更新資料超過允許大小。");
        EXPECT_LE(asked, 1000u);
        EXPECT_LE(fetch.progress.back().first, 1000u);
    }
}

TEST_F(MetadataFetch_Answer, ABodyThatIsCutOff_IsAnError) {
    LoopbackServer server([](LoopbackServer::Exchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
    });
    const Fetch fetch = From(server);
    EXPECT_FALSE(fetch.good);
    EXPECT_TRUE(fetch.error == L"讀取更新資料時發生錯誤。" || fetch.error == L"下載更新資料時發生錯誤。")
        << platform::EncodeUtf8(fetch.error);
}

TEST_F(MetadataFetch_Answer, EachFailingStepOfTheBody_HasItsMessage) {
    {
        const OnQueryAvailable available([](auto...) { return Refuse(); });
        EXPECT_EQ(From(Whole("{}")).error, L"讀取更新資料時發生錯誤。");
    }
    const OnRead read([](auto...) { return Refuse(); });
    EXPECT_EQ(From(Whole("{}")).error, L"下載更新資料時發生錯誤。");
}

TEST_F(MetadataFetch_Answer, AReadThatGivesLessThanAnnounced_LeavesNoGap) {
    const std::string body = "0123456789abcdefghijklmnopqrstuvwxyz";
    const OnRead read([](HINTERNET handle, LPVOID buffer, DWORD capacity, LPDWORD count) {
        return OnRead::Original(handle, buffer, std::min<DWORD>(capacity, 7), count);
    });
    const Fetch fetch = From(Whole(body));
    EXPECT_TRUE(fetch.good);
    EXPECT_EQ(fetch.bytes, body);
    EXPECT_GT(fetch.progress.size(), 5u);
}

TEST_F(MetadataFetch_Answer, ACancelAtAnyPoll_LeavesNothingBehind) {
    LoopbackServer server(Whole(std::string(1000, 'x')));
    for (int number = 1; number < 1000; ++number) {
        int polls = 0;
        const Fetch fetch = From(server, 1000, [&] { return ++polls >= number; });
        SCOPED_TRACE(number);
        if (fetch.good) {
            EXPECT_LT(polls, number);
            EXPECT_EQ(fetch.bytes.size(), 1000u);
            break;
        }
        EXPECT_TRUE(fetch.error.empty() || (fetch.progress.empty() && fetch.error == kNoAnswer));
        if (!fetch.progress.empty()) {
            EXPECT_EQ(fetch.bytes, "");
        }
    }
}

/// Counted from the body on: how often the wait for the headers polls is up to the machine.
TEST_F(MetadataFetch_Answer, ACancelAtAnyPollOfTheBody_LeavesNothingBehind) {
    LoopbackServer server(Whole(std::string(1000, 'x')));
    bool answered = false;
    const OnQueryHeaders headers(
        [&](HINTERNET handle, DWORD flags, LPCWSTR name, LPVOID value, LPDWORD length, LPDWORD index) {
            answered = true;
            return OnQueryHeaders::Original(handle, flags, name, value, length, index);
        });
    int inTheBody = 0;
    for (int number = 1; number < 1000; ++number) {
        int polls = 0;
        answered = false;
        const Fetch fetch = From(server, 1000, [&] { return answered && ++polls >= number; });
        SCOPED_TRACE(number);
        if (fetch.good) {
            EXPECT_LT(polls, number);
            break;
        }
        ++inTheBody;
        EXPECT_EQ(fetch.bytes, "");
        EXPECT_EQ(fetch.error, L"");
    }
    EXPECT_GE(inTheBody, 4);
}

}  // namespace
}  // namespace launcher_update
