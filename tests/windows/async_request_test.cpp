#include "download/async_request.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "download/http_conversation.h"
#include "download/retry_rules.h"
#include "tests/support/fake_clock.h"
#include "tests/support/loopback_server.h"
#include "tests/support/stand_in.h"

namespace launcher_download {
namespace {

using test_support::ClosedPort;
using test_support::FakeClock;
using test_support::LoopbackServer;
using test_support::Reply;
using test_support::Signal;
using test_support::StandIn;
using Exchange = LoopbackServer::Exchange;

// No test waits that long unless its server falls silent on purpose.
constexpr DWORD kHeaderWaitMs = 20000;

/// The handles under one wrapper, made by hand so that the wrapper alone is under test.
struct Handles {
    explicit Handles(unsigned short port, DWORD headerWaitMs = kHeaderWaitMs) {
        EXPECT_TRUE(session.Hold(WinHttpOpen(L"test", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                                             WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC)));
        EXPECT_TRUE(connection.Hold(WinHttpConnect(session.Get(), L"127.0.0.1", port, 0)));
        EXPECT_TRUE(request.Hold(WinHttpOpenRequest(connection.Get(), L"GET", L"/x", nullptr, WINHTTP_NO_REFERER,
                                                    WINHTTP_DEFAULT_ACCEPT_TYPES, 0)));
        EXPECT_TRUE(WinHttpSetTimeouts(request.Get(), 20000, 20000, 20000, static_cast<int>(headerWaitMs)));
        EXPECT_TRUE(WinHttpSetOption(request.Get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &headerWaitMs,
                                     sizeof(headerWaitMs)));
    }
    std::function<void()> Stop() {
        return [this] {
            ++stops;
            request.Close();
        };
    }

    SharedInternetHandle session;
    SharedInternetHandle connection;
    SharedInternetHandle request;
    int stops = 0;
};

using OnSetCallback = StandIn<"WinHttpSetStatusCallback", decltype(WinHttpSetStatusCallback)>;
using OnReceive = StandIn<"WinHttpReceiveResponse", decltype(WinHttpReceiveResponse)>;
using OnQueryAvailable = StandIn<"WinHttpQueryDataAvailable", decltype(WinHttpQueryDataAvailable)>;

/// Ends the program if `work` hangs: there is nothing left to join then.
void RunWithin(std::chrono::seconds limit, const std::function<void()>& work) {
    std::future<void> done = std::async(std::launch::async, work);
    if (done.wait_for(limit) == std::future_status::ready) return done.get();
    std::fprintf(stderr, "a wait without end\n");
    std::fflush(stderr);
    std::abort();
}

TEST(AsyncRequest, AnExchange_GivesTheBody) {
    Reply reply;
    reply.body = "the body";
    LoopbackServer server(reply);
    Handles handles(server.Port());
    AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), {});
    ASSERT_TRUE(request.Send(L"X-Test: 1\r\n", 11));
    ASSERT_TRUE(request.Receive());
    std::string body;
    for (;;) {
        DWORD count = 0;
        ASSERT_TRUE(request.QueryAvailable(count));
        if (count == 0) break;
        char block[64];
        ASSERT_TRUE(request.Read(block, std::min<DWORD>(count, sizeof(block)), count));
        body.append(block, count);
    }
    EXPECT_EQ(body, reply.body);
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_NE(server.Requests()[0].find("\r\nX-Test: 1\r\n"), std::string::npos);
}

TEST(AsyncRequest, ARead_GivesNoMoreThanItsBuffer) {
    Reply reply;
    reply.body = "0123456789";
    LoopbackServer server(reply);
    Handles handles(server.Port());
    AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), {});
    ASSERT_TRUE(request.Send(nullptr, 0));
    ASSERT_TRUE(request.Receive());
    char block[10] = {};
    DWORD count = 0;
    ASSERT_TRUE(request.Read(block, 4, count));
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(std::string(block), "0123");
}

TEST(AsyncRequest, WithoutAHandle_EveryOperationIsAnInternalError) {
    int stops = 0;
    AsyncWinHttpRequest request(nullptr, [&stops] { ++stops; }, {});
    DWORD count = 7;
    char block[1];
    SetLastError(0);
    EXPECT_FALSE(request.Send(nullptr, 0));
    EXPECT_EQ(GetLastError(), 12004u);
    EXPECT_FALSE(request.Receive());
    EXPECT_FALSE(request.QueryAvailable(count));
    EXPECT_EQ(count, 0u);
    SetLastError(0);
    EXPECT_FALSE(request.Read(block, 1, count));
    EXPECT_EQ(GetLastError(), 12004u);
}

TEST(AsyncRequest, AbortedBeforeItsStart_SendsNothing) {
    LoopbackServer server(Reply{});
    {
        Handles handles(server.Port());
        AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), [] { return true; });
        EXPECT_FALSE(request.Send(nullptr, 0));
        EXPECT_EQ(GetLastError(), 12017u);
        EXPECT_EQ(handles.stops, 0);
    }
    EXPECT_TRUE(server.Requests().empty());
}

TEST(AsyncRequest, APassedDeadline_SendsNothing) {
    LoopbackServer server(Reply{});
    {
        Handles handles(server.Port());
        AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), {}, GetTickCount64());
        EXPECT_FALSE(request.Send(nullptr, 0));
        EXPECT_EQ(GetLastError(), 12017u);
    }
    EXPECT_TRUE(server.Requests().empty());
}

/// A server that falls silent, and a clock that passes any deadline as soon as a wait for that server has begun.
class DeadlineInWait {
  public:
    [[nodiscard]] unsigned short Port() const { return server_.Port(); }
    /// Lets the server close, which ends whatever the client cannot.
    void Release() { released_.Set(); }

  private:
    using OnWait = StandIn<"WaitForSingleObject", decltype(WaitForSingleObject)>;

    Signal asked_;
    Signal released_;
    FakeClock clock_;
    LoopbackServer server_{[this](Exchange& exchange) {
        asked_.Set();
        exchange.Await(released_.Get());
    }};
    OnWait onWait_{[this, mine = GetCurrentThreadId()](HANDLE handle, DWORD milliseconds) {
        const DWORD woken = OnWait::Original(handle, milliseconds);
        const bool waits = woken == WAIT_TIMEOUT && GetCurrentThreadId() == mine;
        if (waits && OnWait::Original(asked_.Get(), 0) == WAIT_OBJECT_0) clock_.Advance(60000);
        return woken;
    }};
};

TEST(AsyncRequest, ADeadlineInAWait_EndsItAndClosesOnce) {
    DeadlineInWait silence;
    Handles handles(silence.Port());
    {
        const auto stop = [&silence, close = handles.Stop()] {
            close();
            silence.Release();
        };
        AsyncWinHttpRequest request(handles.request.Get(), stop, {}, GetTickCount64() + 100);
        const bool received = request.Send(nullptr, 0) && request.Receive();
        const DWORD error = GetLastError();
        EXPECT_FALSE(received);
        EXPECT_EQ(error, 12017u);
        EXPECT_EQ(handles.stops, 1);
        EXPECT_EQ(handles.request.Get(), nullptr);
    }
    EXPECT_EQ(handles.stops, 2);  // the destructor's, which finds nothing to close
}

TEST(AsyncRequest, AnAbortWhileTheBodyStalls_EndsTheWait) {
    Signal aborting;
    LoopbackServer server([&aborting](Exchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
        exchange.Await(aborting.Get());
    });
    Handles handles(server.Port());
    bool allRead = false;
    bool stalled = false;
    // The wait behind the ten bytes has nothing to find; the abort comes when it has begun.
    const OnQueryAvailable available([&](HINTERNET handle, LPDWORD count) {
        const BOOL begun = OnQueryAvailable::Original(handle, count);
        stalled = allRead;
        return begun;
    });
    AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), [&] {
        if (stalled) aborting.Set();
        return stalled;
    });
    ASSERT_TRUE(request.Send(nullptr, 0));
    ASSERT_TRUE(request.Receive());
    std::string body(100, '\0');
    DWORD count = 0;
    ASSERT_TRUE(request.QueryAvailable(count));
    ASSERT_TRUE(request.Read(body.data(), count, count));
    ASSERT_EQ(count, 10u);
    allRead = true;
    EXPECT_FALSE(request.QueryAvailable(count));
    EXPECT_EQ(GetLastError(), 12017u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(handles.stops, 1);
}

TEST(AsyncRequest, AStalledHeader_EndsAtItsTimeoutAsATimeout) {
    LoopbackServer server([](Exchange& exchange) { exchange.AwaitClientClose(); });
    Handles handles(server.Port(), 400);
    AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), {});
    const std::uint64_t start = GetTickCount64();
    const bool received = request.Send(nullptr, 0) && request.Receive();
    const DWORD error = GetLastError();
    EXPECT_FALSE(received);
    EXPECT_EQ(error, 12002u);
    EXPECT_LT(GetTickCount64() - start, 5000u);
}

TEST(AsyncRequest, ARefusedConnection_IsToldAsSuch) {
    const ClosedPort port;
    Handles handles(port.Number());
    AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), {});
    const bool received = request.Send(nullptr, 0) && request.Receive();
    const DWORD error = GetLastError();
    EXPECT_FALSE(received);
    EXPECT_EQ(error, 12029u);
}

TEST(AsyncRequest, AResetConnection_IsATransientError) {
    int attempt = 0;
    LoopbackServer server([&attempt](Exchange& exchange) {
        exchange.Pause(static_cast<DWORD>(attempt) * 20);
        exchange.Reset();
    });
    // Wine tells a reset only to a receive that is already waiting when it comes; to a later one it is a plain end, and
    // then the next connection waits longer.
    DWORD error = ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
    for (; attempt < 50 && error == ERROR_WINHTTP_INVALID_SERVER_RESPONSE; ++attempt) {
        Handles handles(server.Port());
        AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), {});
        const bool received = request.Send(nullptr, 0) && request.Receive();
        error = GetLastError();
        EXPECT_FALSE(received);
    }
    EXPECT_TRUE(IsTransientWinHttpError(error)) << error;
}

TEST(AsyncRequest, DestroyedAtOnce_DoesNotHang) {
    LoopbackServer server(Reply{});
    RunWithin(std::chrono::seconds(30), [&server] {
        for (int i = 0; i < 50; ++i) {
            Handles handles(server.Port());
            const AsyncWinHttpRequest request(handles.request.Get(), handles.Stop(), {});
        }
    });
}

/// Closes a request from another thread and late, as a `stop` may; what has come to an end before is then visible.
class LateStop {
  public:
    LateStop(SharedInternetHandle& request, std::function<void()> closed)
        : request_(request), closed_(std::move(closed)) {}
    ~LateStop() {
        if (closer_.joinable()) closer_.join();
    }
    void operator()() {
        if (closer_.joinable()) return;
        closer_ = std::thread([this] {
            WaitForSingleObject(GetCurrentThread(), 100);  // real, whatever the test's clock says
            request_.Close();
            closed_();
        });
    }

  private:
    SharedInternetHandle& request_;
    std::function<void()> closed_;
    std::thread closer_;
};

TEST(AsyncRequest, Destruction_WaitsUntilTheHandleIsClosed) {
    LoopbackServer server(Reply{});
    Handles handles(server.Port());
    LateStop stop(handles.request, [] {});
    {
        const AsyncWinHttpRequest request(handles.request.Get(), [&stop] { stop(); }, {});
    }
    EXPECT_EQ(handles.request.Get(), nullptr);
}

TEST(AsyncRequest, AnAbortedWait_EndsOnlyWhenTheHandleIsClosed) {
    DeadlineInWait silence;
    Handles handles(silence.Port());
    LateStop stop(handles.request, [&silence] { silence.Release(); });
    AsyncWinHttpRequest request(
        handles.request.Get(), [&stop] { stop(); }, {}, GetTickCount64() + 50);
    const bool received = request.Send(nullptr, 0) && request.Receive();
    EXPECT_EQ(handles.request.Get(), nullptr);
    EXPECT_FALSE(received);
}

/// A wrapper whose callback the test calls in WinHTTP's place, from within the call that it answers.
class AsyncRequest_Callback : public ::testing::Test {
  protected:
    void Report(DWORD status, void* information = nullptr, DWORD length = 0) {
        callback_(handles_.request.Get(), reinterpret_cast<DWORD_PTR>(&*request_), status, information, length);
    }
    /// Makes the wait for headers, during which `reports` runs; its success or the error it leaves.
    DWORD ReceiveDuring(const std::function<BOOL()>& reports) {
        const OnReceive receive([&reports](HINTERNET, LPVOID) { return reports(); });
        SetLastError(0);
        return request_->Receive() ? 0 : GetLastError();
    }
    DWORD ReceiveAfterError(DWORD error) {
        return ReceiveDuring([&] {
            WINHTTP_ASYNC_RESULT result{};
            result.dwError = error;
            Report(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, &result, sizeof(result));
            return TRUE;
        });
    }

    WINHTTP_STATUS_CALLBACK callback_ = nullptr;
    OnSetCallback onSetCallback_{
        [this](HINTERNET handle, WINHTTP_STATUS_CALLBACK callback, DWORD mask, DWORD_PTR reserved) {
            callback_ = callback;
            return OnSetCallback::Original(handle, callback, mask, reserved);
        }};
    ClosedPort port_;
    Handles handles_{port_.Number()};
    std::optional<AsyncWinHttpRequest> request_{std::in_place, handles_.request.Get(), handles_.Stop(),
                                                [this] { return --pollsLeft_ < 0; }};
    int pollsLeft_ = 100;
};

TEST_F(AsyncRequest_Callback, AnErrorWithoutInformation_IsAnInternalError) {
    EXPECT_EQ(ReceiveDuring([&] {
                  Report(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR);
                  return TRUE;
              }),
              12004u);
}

TEST_F(AsyncRequest_Callback, AnErrorOfTheSocket_IsToldAsWinHttpWouldTellIt) {
    EXPECT_EQ(ReceiveAfterError(WSAETIMEDOUT), 12002u);
    EXPECT_EQ(ReceiveAfterError(WSAECONNABORTED), 12030u);
    EXPECT_EQ(ReceiveAfterError(WSAECONNRESET), 12030u);
    EXPECT_EQ(ReceiveAfterError(12175), 12175u);
    EXPECT_EQ(ReceiveDuring([] {
                  SetLastError(WSAECONNRESET);
                  return FALSE;
              }),
              12030u);
}

TEST_F(AsyncRequest_Callback, AnErrorOfAnEarlierCall_IsNotTheNextOnes) {
    EXPECT_EQ(ReceiveAfterError(12152), 12152u);
    EXPECT_EQ(ReceiveDuring([&] {
                  Report(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE);
                  return TRUE;
              }),
              0u);
}

TEST_F(AsyncRequest_Callback, EveryOtherStatus_EndsNoWait) {
    pollsLeft_ = 3;
    EXPECT_EQ(ReceiveDuring([&] {
                  for (DWORD bit = 1; bit != 0; bit <<= 1) {
                      const bool meant = bit == WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE ||
                                         bit == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR ||
                                         bit == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING;
                      if (!meant) Report(bit);
                  }
                  return TRUE;
              }),
              12017u);
}

TEST_F(AsyncRequest_Callback, WithoutAContext_NothingIsTouched) {
    pollsLeft_ = 3;
    EXPECT_EQ(ReceiveDuring([&] {
                  callback_(handles_.request.Get(), 0, WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE, nullptr, 0);
                  callback_(handles_.request.Get(), 0, WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, nullptr, 0);
                  return TRUE;
              }),
              12017u);
}

TEST_F(AsyncRequest_Callback, ACount_IsTheOneOfItsOwnStatus) {
    DWORD announced = 4711;
    const OnQueryAvailable available([&](HINTERNET, LPDWORD) {
        Report(WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE, announced != 0 ? &announced : nullptr, sizeof(announced));
        return TRUE;
    });
    DWORD count = 0;
    ASSERT_TRUE(request_->QueryAvailable(count));
    EXPECT_EQ(count, 4711u);
    announced = 0;
    ASSERT_TRUE(request_->QueryAvailable(count));
    EXPECT_EQ(count, 0u) << "no information is no count";
}

/// A server that answers in pieces, at random moments, and sometimes not at all.
void AnswerAtRandom(Exchange& exchange) {
    thread_local std::mt19937 random(std::random_device{}());
    exchange.Pause(random() % 8);
    if (random() % 8 == 0) exchange.Reset();
    if (random() % 4 == 0) return;
    exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 30000\r\n\r\n");
    for (int piece = 0; piece < 3; ++piece) {
        exchange.Pause(random() % 8);
        if (!exchange.Send(std::string(10000, 'x'))) return;
    }
}

/// One request that is given up at a random moment, or not, by a patient one never; the count of body bytes, or none if
/// it failed.
std::optional<std::size_t> AskAtRandom(unsigned short port, std::mt19937& random, bool patient) {
    Handles handles(port);
    unsigned pollsLeft = patient ? 0 : random() % 60;
    const std::uint64_t deadline = patient || random() % 3 == 0 ? 0 : GetTickCount64() + 1 + random() % 40;
    AsyncWinHttpRequest request(
        handles.request.Get(), handles.Stop(), [&pollsLeft] { return pollsLeft != 0 && --pollsLeft == 0; }, deadline);
    if (!request.Send(nullptr, 0) || !request.Receive()) return std::nullopt;
    std::size_t held = 0;
    std::vector<char> block(4096);
    for (;;) {
        DWORD count = 0;
        if (!request.QueryAvailable(count)) return std::nullopt;
        if (count == 0) return held;
        if (!request.Read(block.data(), std::min<DWORD>(count, 4096), count)) return std::nullopt;
        held += count;
    }
}

TEST(AsyncRequest, ManyGivenUpAtRandomMomentsOnFourThreads_AllEnd) {
    constexpr int kThreads = 4;
    constexpr int kRequestsEach = 150;
    LoopbackServer server(AnswerAtRandom);
    std::atomic<int> whole{0};
    std::atomic<int> givenUp{0};
    RunWithin(std::chrono::seconds(120), [&] {
        std::vector<std::thread> threads;
        for (unsigned seed = 0; seed < kThreads; ++seed) {
            threads.emplace_back([&, seed] {
                std::mt19937 random(seed);
                for (int i = 0; i < kRequestsEach; ++i) {
                    // The patient ones get something whole of however slow a machine.
                    const std::optional<std::size_t> bytes = AskAtRandom(server.Port(), random, i % 5 == 0);
                    ++(bytes == 30000u ? whole : givenUp);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    });
    // Both kinds must have happened, or the schedule tried nothing.
    EXPECT_EQ(whole + givenUp, kThreads * kRequestsEach);
    EXPECT_GT(whole, 10);
    EXPECT_GT(givenUp, 10);
}

}  // namespace
}  // namespace launcher_download
