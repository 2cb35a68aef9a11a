#include "tests/windows/transfer_fixture.h"

#include "tests/support/stand_in.h"

namespace launcher_download {
namespace {

using OnQueryAvailable = test_support::StandIn<"WinHttpQueryDataAvailable", decltype(WinHttpQueryDataAvailable)>;

using Transfer_Cancel = TransferTest;

TEST_F(Transfer_Cancel, WhileConnecting_AsksNobody) {
    callbacks_.cancelled = [this] { return !reports_.empty() && phase_ == Phase::connecting; };
    LoopbackServer server(Whole(payload_));
    const Result result = Fetch(server.Url());
    ExpectCancelled(result);
    EXPECT_EQ(result.attempts, 1u);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::cancelled}));
    EXPECT_TRUE(server.Requests().empty());
}

TEST_F(Transfer_Cancel, WhileTheHeadersAreAwaited_EndsTheWait) {
    Signal asked;
    Signal cancelled;
    // The close is all that the client will ever get, and it has cancelled by then.
    LoopbackServer server([&](Exchange& exchange) {
        asked.Set();
        exchange.Await(cancelled.Get());
    });
    callbacks_.cancelled = [&] {
        const bool wanted = asked.IsSet();
        if (wanted) cancelled.Set();
        return wanted;
    };
    const Result result = Fetch(server.Url());
    ExpectCancelled(result);
    EXPECT_EQ(result.httpStatus, 0u);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::cancelled}));
}

TEST_F(Transfer_Cancel, AsTheHeadersAreAccepted_StoresNothing) {
    callbacks_.cancelled = [this] { return phase_ == Phase::receiving; };
    ExpectCancelled(Fetch(Whole(payload_)));
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::receiving, Phase::cancelled}));
    EXPECT_EQ(FileLength(PartPath()), 0);
}

TEST_F(Transfer_Cancel, WhileTheBodyStalls_EndsTheWaitAndKeepsTheBytes) {
    bool waiting = false;
    const OnQueryAvailable available([&](HINTERNET handle, LPDWORD count) {
        const BOOL begun = OnQueryAvailable::Original(handle, count);
        waiting = FileLength(PartPath()) == 500;
        return begun;
    });
    Signal cancelled;
    LoopbackServer server([&](Exchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + payload_.substr(0, 500));
        exchange.Await(cancelled.Get());
    });
    callbacks_.cancelled = [&] {
        if (waiting) cancelled.Set();
        return waiting;
    };
    ExpectCancelled(Fetch(server.Url()));
    EXPECT_EQ(ReadWholeFile(PartPath()), payload_.substr(0, 500));
}

TEST_F(Transfer_Cancel, WhileVerifying_KeepsTheCompleteFile) {
    callbacks_.cancelled = [this] { return phase_ == Phase::verifying; };
    ExpectCancelled(Fetch(Whole(payload_)));
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::receiving, Phase::verifying, Phase::cancelled}));
    EXPECT_EQ(ReadWholeFile(PartPath()), payload_);
}

/// Makes the answer to the poll of the given number, and to all behind it, a cancel; the number of polls asked.
struct CancelFromPoll {
    int number;
    int polls = 0;
    bool operator()() { return ++polls >= number; }
};

TEST_F(Transfer_Cancel, AtEveryPollOfASuccess_IsACancelOrASuccess) {
    LoopbackServer server(Whole(payload_));
    int cancels = 0;
    for (int number = 1; number < 1000; ++number) {
        DeleteFileW(PartPath().c_str());
        CancelFromPoll poll{number};
        callbacks_.cancelled = [&poll] { return poll(); };
        const Result result = Fetch(server.Url());
        SCOPED_TRACE(number);
        if (result.success) {
            ExpectSuccess(result);
            EXPECT_LT(poll.polls, number);
            break;
        }
        ++cancels;
        EXPECT_TRUE(result.canceled);
        EXPECT_EQ(result.reason, L"cancelled");
        EXPECT_TRUE(reports_.empty() || reports_.back().phase == Phase::cancelled);
    }
    // The polls of the start, the head of the attempt, each step of the conversation and the digest.
    EXPECT_GT(cancels, 8);
}

TEST_F(Transfer_Cancel, RacingWithAFailure_AlwaysReadsAsACancel) {
    LoopbackServer server(WithStatus(Reply{}, "404 Not Found"));
    int cancels = 0;
    for (int number = 1; number < 1000; ++number) {
        CancelFromPoll poll{number};
        callbacks_.cancelled = [&poll] { return poll(); };
        const Result result = Fetch(server.Url());
        SCOPED_TRACE(number);
        EXPECT_FALSE(result.success);
        if (!result.canceled) {
            ExpectFailure(result, L"http-error");
            EXPECT_LT(poll.polls, number);
            break;
        }
        ++cancels;
        EXPECT_EQ(result.reason, L"cancelled");
        EXPECT_TRUE(reports_.empty() || reports_.back().phase == Phase::cancelled);
    }
    EXPECT_GT(cancels, 4);
}

}  // namespace
}  // namespace launcher_download
