#include "tests/windows/transfer_fixture.h"

#include <functional>
#include <map>

#include "download/cache_file.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"

namespace launcher_download {
namespace {

using test_support::FaultKind;
using test_support::MutationFaults;
using test_support::StandIn;
using Words = std::vector<std::string>;

const std::string kTag = "ETag: \"v1\"";

/// What `key` has in the head of a request; empty if it is not there.
std::string HeaderOf(const std::string& head, const std::string& key) {
    const std::size_t start = head.find("\r\n" + key + ": ");
    if (start == std::string::npos) return {};
    const std::size_t value = start + key.size() + 4;
    return head.substr(value, head.find("\r\n", value) - value);
}

class Transfer_Retry : public TransferTest {
  protected:
    /// A server whose answers are `replies` in turn, the last one for ever.
    static LoopbackServer::Script InTurn(std::vector<std::string> replies) {
        return
            [replies = std::move(replies), next = std::make_shared<std::atomic<std::size_t>>(0)](Exchange& exchange) {
                const std::size_t number = std::min<std::size_t>((*next)++, replies.size() - 1);
                exchange.Send(replies[number]);
            };
    }

    /// The whole payload is promised, and its first bytes come.
    [[nodiscard]] std::string CutAt(std::size_t length, const std::string& tag = kTag) const {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(payload_.size()) + "\r\n" + tag +
               (tag.empty() ? "" : "\r\n") + "\r\n" + payload_.substr(0, length);
    }

    /// The right answer to a range request from `offset` on.
    [[nodiscard]] Reply RestFrom(std::size_t offset, const std::string& tag = kTag) const {
        Reply reply = WithStatus(Whole(payload_.substr(offset)), "206 Partial Content");
        reply.headers = {tag, "Content-Range: bytes " + std::to_string(offset) + "-" +
                                  std::to_string(payload_.size() - 1) + "/" + std::to_string(payload_.size())};
        return reply;
    }

    [[nodiscard]] std::string Good() const { return WithHeader(Whole(payload_), kTag).Bytes(); }

    void ExpectRange(const LoopbackServer& server, std::size_t request, const std::string& range,
                     const std::string& tag = "\"v1\"") const {
        ASSERT_LT(request, server.Requests().size());
        const std::string head = server.Requests()[request];
        EXPECT_EQ(HeaderOf(head, "Range"), range) << head;
        EXPECT_EQ(HeaderOf(head, "If-Range"), range.empty() ? "" : tag) << head;
        EXPECT_EQ(HeaderOf(head, "Accept-Encoding"), "identity") << head;
    }
};

// The waits

TEST_F(Transfer_Retry, TransientStatuses_AreTriedThreeTimesWithGrowingWaits) {
    for (const char* status : {"408 Request Timeout", "429 Too Many Requests", "500 Internal Server Error",
                               "502 Bad Gateway", "503 Service Unavailable", "504 Gateway Timeout"}) {
        SCOPED_TRACE(status);
        const std::uint64_t before = clock_.SleptMs();
        LoopbackServer server(WithStatus(Whole("later"), status));
        const Result result = Fetch(server.Url());
        ExpectExhausted(result);
        EXPECT_EQ(server.Requests().size(), 3u);
        EXPECT_EQ(result.osError, 0u);
        EXPECT_EQ(std::to_string(result.httpStatus), std::string(status).substr(0, 3));
        EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::retrying, Phase::connecting, Phase::retrying,
                                         Phase::connecting, Phase::failed}));
        EXPECT_EQ(TraceWords(), (Words{"new-request", "bounded-retry", "new-request", "bounded-retry", "new-request",
                                       "retry-limit"}));
        EXPECT_EQ(clock_.SleptMs() - before, 1000u + 2000u);
    }
    EXPECT_LE(clock_.LongestSleepMs(), 50u);
}

TEST_F(Transfer_Retry, AServersOwnWait_TakesThePlaceOfTheDefault) {
    struct Row {
        const char* retryAfter;
        std::uint64_t waitMs;
    };
    for (const Row& row : {Row{"0", 0},
                           {"1", 1000},
                           {"3", 3000},
                           {"60", 60000},
                           {"Sun, 06 Nov 1994 08:49:37 GMT", 0},
                           {"Sunday, 06-Nov-94 08:49:37 GMT", 0},
                           {"Sun Nov  6 08:49:37 1994", 0}}) {
        SCOPED_TRACE(row.retryAfter);
        const std::uint64_t before = clock_.SleptMs();
        const Reply busy = WithHeader(WithStatus(Reply{}, "503 Busy"), std::string("Retry-After: ") + row.retryAfter);
        LoopbackServer server(InTurn({busy.Bytes(), Good()}));
        DeleteFileW(PartPath().c_str());
        const Result result = Fetch(server.Url());
        ExpectSuccess(result);
        EXPECT_EQ(result.attempts, 2u);
        EXPECT_EQ(clock_.SleptMs() - before, row.waitMs);
    }
}

TEST_F(Transfer_Retry, AWaitThatIsTooLongOrUnreadable_IsFinal) {
    for (const char* retryAfter : {"61", "3600", "18446744073709551616", "soon", "-1", "1.5",
                                   "Sun, 06 Nov 2994 08:49:37 GMT", "Sun, 31 Feb 1994 08:49:37 GMT"}) {
        SCOPED_TRACE(retryAfter);
        const Reply busy = WithHeader(WithStatus(Reply{}, "503 Busy"), std::string("Retry-After: ") + retryAfter);
        LoopbackServer server(busy);
        const Result result = Fetch(server.Url());
        ExpectFailure(result, L"server-requested-later-retry");
        EXPECT_EQ(result.httpStatus, 503u);
        EXPECT_EQ(server.Requests().size(), 1u);
        EXPECT_EQ(TraceWords().back(), "retry-after");
    }
    EXPECT_EQ(clock_.SleptMs(), 0u);
}

TEST_F(Transfer_Retry, ARefusedWaitAtTheLastAttempt_IsToldAsSuch) {
    const Reply busy = WithStatus(Reply{}, "503 Busy");
    LoopbackServer server(InTurn({busy.Bytes(), busy.Bytes(), WithHeader(busy, "Retry-After: 61").Bytes()}));
    ExpectFailure(Fetch(server.Url()), L"server-requested-later-retry", 3);
}

TEST_F(Transfer_Retry, AWaitIsAskedForByTransientStatusesOnly) {
    LoopbackServer server(InTurn({WithHeader(Whole(payload_.substr(0, 9)), "Retry-After: 61").Bytes(), Good()}));
    ExpectFailure(Fetch(server.Url()), L"content-length-mismatch");
    LoopbackServer cut(InTurn({CutAt(9, "Retry-After: 61"), Good()}));
    const std::uint64_t before = clock_.SleptMs();
    ExpectSuccess(Fetch(cut.Url()));
    EXPECT_EQ(clock_.SleptMs() - before, 1000u);
}

TEST_F(Transfer_Retry, AWaitOfOneAttempt_IsNotThatOfTheNext) {
    const Reply busy = WithHeader(WithStatus(Reply{}, "503 Busy"), "Retry-After: 0");
    LoopbackServer server(InTurn({busy.Bytes(), CutAt(10), Good()}));
    ExpectSuccess(Fetch(server.Url()));
    EXPECT_EQ(clock_.SleptMs(), 2000u);  // the second attempt's own
}

TEST_F(Transfer_Retry, ACancelWhileWaiting_EndsTheWait) {
    callbacks_.cancelled = [this] { return phase_ == Phase::retrying; };
    LoopbackServer server(WithStatus(Reply{}, "503 Busy"));
    const Result result = Fetch(server.Url());
    ExpectCancelled(result);
    EXPECT_EQ(result.attempts, 1u);
    EXPECT_EQ(clock_.SleptMs(), 0u);
    EXPECT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(TraceWords(), (Words{"new-request", "bounded-retry", "user"}));
}

TEST_F(Transfer_Retry, ACancelIsSeenWithinFiftyMilliseconds) {
    callbacks_.cancelled = [this] { return clock_.SleptMs() >= 500; };
    LoopbackServer server(WithStatus(Reply{}, "503 Busy"));
    ExpectCancelled(Fetch(server.Url()));
    EXPECT_EQ(clock_.SleptMs(), 500u);
}

// What an attempt begins with

TEST_F(Transfer_Retry, EachAttempt_HasASessionOfItsOwn) {
    using OnOpen = StandIn<"WinHttpOpen", decltype(WinHttpOpen)>;
    using OnClose = StandIn<"WinHttpCloseHandle", decltype(WinHttpCloseHandle)>;
    std::vector<std::string> course;
    const OnOpen open([&course](LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
        course.emplace_back("open");
        return OnOpen::Original(agent, access, proxy, bypass, flags);
    });
    const OnClose close([&course](HINTERNET handle) {
        course.emplace_back("close");
        return OnClose::Original(handle);
    });
    callbacks_.progress = [&course](const Progress& progress) {
        if (progress.phase == Phase::retrying) course.emplace_back("retrying");
    };
    LoopbackServer server(InTurn({CutAt(10), Good()}));
    ExpectSuccess(Fetch(server.Url()));
    EXPECT_EQ(course, (std::vector<std::string>{"open", "close", "close", "close", "retrying", "open", "close", "close",
                                                "close"}));
}

TEST_F(Transfer_Retry, AnEarlierAttemptsErrors_AreNotThoseOfTheLast) {
    using OnReceive = StandIn<"WinHttpReceiveResponse", decltype(WinHttpReceiveResponse)>;
    const OnReceive receive([broken = false](HINTERNET handle, LPVOID reserved) mutable {
        if (std::exchange(broken, true)) return OnReceive::Original(handle, reserved);
        SetLastError(ERROR_WINHTTP_CONNECTION_ERROR);
        return FALSE;
    });
    LoopbackServer server(InTurn({Good()}));
    const Result result = Fetch(server.Url());
    ExpectSuccess(result);
    EXPECT_EQ(result.osError, 0u);
    EXPECT_EQ(result.httpStatus, 200u);
    EXPECT_EQ(result.attempts, 2u);
    LoopbackServer busy(InTurn({WithStatus(Reply{}, "503 Busy").Bytes(), "no http at all\r\n\r\n"}));
    DeleteFileW(PartPath().c_str());
    const Result last = Fetch(busy.Url());
    ExpectFailure(last, L"connection-failed", 2);
    EXPECT_EQ(last.httpStatus, 0u);
    EXPECT_NE(last.osError, 0u);
}

TEST_F(Transfer_Retry, TheSpeedOfOneAttempt_IsUnknownInTheNext) {
    std::atomic<int> requests{0};
    LoopbackServer server([&](Exchange& exchange) {
        if (++requests > 1) {
            exchange.Send(RestFrom(600));
            return;
        }
        exchange.Send(CutAt(300));
        AwaitStored(exchange, 300);
        clock_.Advance(2000);
        exchange.Send(payload_.substr(300, 300));
    });
    ExpectSuccess(Fetch(server.Url()));
    bool measured = false;
    for (const Progress& progress : reports_) {
        measured = measured || progress.bytesPerSecond > 0.0;
        if (progress.phase != Phase::connecting) continue;
        EXPECT_EQ(progress.bytesPerSecond, -1.0) << progress.attempt;
    }
    EXPECT_TRUE(measured);
}

// Going on where the last attempt stopped

TEST_F(Transfer_Retry, ABodyCutAtAnyByte_IsContinuedThere) {
    payload_ = MakePayload(60);
    for (std::size_t length = 0; length < payload_.size(); ++length) {
        SCOPED_TRACE(length);
        DeleteFileW(PartPath().c_str());
        DeleteFileW(ResumePath().c_str());
        LoopbackServer server(InTurn({CutAt(length), length == 0 ? Good() : RestFrom(length).Bytes()}));
        const Result result = Fetch(server.Url());
        ExpectSuccess(result);
        EXPECT_EQ(result.attempts, 2u);
        ExpectRange(server, 0, "");
        ExpectRange(server, 1, length == 0 ? "" : "bytes=" + std::to_string(length) + "-");
        EXPECT_EQ(reports_.back().networkBytes, payload_.size());
        EXPECT_EQ(TraceWords(),
                  (Words{"new-request", "headers-accepted", "bounded-retry", length == 0 ? "new-request" : "resume",
                         "headers-accepted", "payload", "sha256-verified"}));
        for (const Progress& progress : reports_)
            EXPECT_FALSE(progress.restarted);
    }
}

TEST_F(Transfer_Retry, ABodyCutTwice_IsContinuedTwice) {
    const std::string second = RestFrom(100).Bytes();
    LoopbackServer server(InTurn({CutAt(100), second.substr(0, second.size() - 500), RestFrom(500).Bytes()}));
    const Result result = Fetch(server.Url());
    ExpectSuccess(result);
    EXPECT_EQ(result.attempts, 3u);
    ExpectRange(server, 1, "bytes=100-");
    ExpectRange(server, 2, "bytes=500-");
    EXPECT_EQ(reports_.back().networkBytes, payload_.size());
}

TEST_F(Transfer_Retry, AConnectionThatDiesThreeTimes_EndsTheRunHoweverMuchCame) {
    const std::string second = RestFrom(300).Bytes();
    const std::string third = RestFrom(600).Bytes();
    LoopbackServer server(
        InTurn({CutAt(300), second.substr(0, second.size() - 400), third.substr(0, third.size() - 100), Good()}));
    ExpectExhausted(Fetch(server.Url()));
    EXPECT_EQ(server.Requests().size(), 3u);
    EXPECT_EQ(ReadWholeFile(PartPath()), payload_.substr(0, 900));
    EXPECT_EQ(ReadResume(), (ResumeState{HashUrl(server.Url()), L"\"v1\"", payload_.size()}));
}

TEST_F(Transfer_Retry, TheNextRun_TakesUpWhereTheLastOneStopped) {
    std::atomic<bool> whole{false};
    LoopbackServer server([&](Exchange& exchange) {
        if (whole) {
            exchange.Send(RestFrom(500));
        } else if (HeaderOf(exchange.Request(), "Range").empty()) {
            exchange.Send(CutAt(500));
        }
    });
    EXPECT_FALSE(Fetch(server.Url()).success);
    whole = true;
    const Result result = Fetch(server.Url());
    ExpectSuccess(result);
    EXPECT_EQ(result.attempts, 1u);
    ExpectRange(server, server.Requests().size() - 1, "bytes=500-");
    EXPECT_EQ(reports_.front().bytes, 500u);
    EXPECT_EQ(reports_.back().networkBytes, 500u);
    EXPECT_EQ(TraceWords(), (Words{"resume", "headers-accepted", "payload", "sha256-verified"}));
}

TEST_F(Transfer_Retry, APartOfAnotherUrlSizeOrTag_IsDropped) {
    const std::wstring url = L"http://127.0.0.1:1/x";
    const ResumeState good{HashUrl(url), L"\"v1\"", payload_.size()};
    struct Row {
        const char* name;
        std::string file;
    };
    ResumeState otherUrl = good;
    otherUrl.urlHash = HashUrl(url + L"?");
    ResumeState otherSize = good;
    otherSize.size = payload_.size() + 1;
    std::string weak = EncodeResumeState(good);
    weak.insert(weak.size() - 5, "W/");
    for (const Row& row : {Row{"other url", EncodeResumeState(otherUrl)},
                           {"other size", EncodeResumeState(otherSize)},
                           {"weak tag", weak},
                           {"torn", EncodeResumeState(good).substr(0, 80)},
                           {"empty", ""}}) {
        SCOPED_TRACE(row.name);
        LeavePart(payload_.substr(0, 400));
        WriteWholeFile(ResumePath(), row.file);
        ExpectExhausted(Fetch(url));
        EXPECT_EQ(reports_.front().bytes, 0u);
        EXPECT_EQ(FileLength(PartPath()), 0);
        EXPECT_EQ(ReadWholeFile(ResumePath()), row.file);  // until a response is accepted
    }
    LeaveResumable(url, 400);
    ExpectExhausted(Fetch(url));
    EXPECT_EQ(reports_.front().bytes, 400u);
    EXPECT_EQ(FileLength(PartPath()), 400);
}

TEST_F(Transfer_Retry, AnEmptyTag_IsATag) {
    LoopbackServer server(InTurn({CutAt(10, "ETag: \"\""), RestFrom(10, "ETag: \"\"").Bytes()}));
    ExpectSuccess(Fetch(server.Url()));
    ExpectRange(server, 1, "bytes=10-", "\"\"");
}

// Entities that are not the same

TEST_F(Transfer_Retry, WithoutAStrongTag_NothingIsKeptForTheNextAttempt) {
    for (const std::string& tag : {std::string(), std::string("ETag: W/\"v1\""), std::string("ETag: v1"),
                                   "ETag: \"" + std::string(255, 'x') + "\""}) {
        SCOPED_TRACE(tag);
        DeleteFileW(PartPath().c_str());
        LoopbackServer server(InTurn({CutAt(500, tag), CutAt(400, tag), WithHeader(Whole(payload_), "X: y").Bytes()}));
        ExpectSuccess(Fetch(server.Url()));
        ExpectRange(server, 1, "");
        ExpectRange(server, 2, "");
        EXPECT_EQ(reports_.back().networkBytes, payload_.size() + 900);
        EXPECT_EQ(GetFileAttributesW(ResumePath().c_str()), INVALID_FILE_ATTRIBUTES);
        for (const Progress& progress : reports_) {
            if (progress.phase != Phase::retrying) continue;
            EXPECT_EQ(progress.bytes, 0u);
            EXPECT_TRUE(progress.restarted);
        }
    }
}

TEST_F(Transfer_Retry, TheWholeBodyToARangeRequest_RestartsInTheSameAttempt) {
    const std::wstring url = L"/payload";
    for (const char* tag : {"ETag: \"v1\"", "ETag: \"v2\"", "X-None: 1"}) {
        SCOPED_TRACE(tag);
        LoopbackServer server(WithHeader(Whole(payload_), tag));
        LeaveResumable(server.Url(url), 400);
        const Result result = Fetch(server.Url(url));
        ExpectSuccess(result);
        EXPECT_EQ(result.attempts, 1u);
        ExpectRange(server, 0, "bytes=400-");
        ASSERT_GE(reports_.size(), 3u);
        EXPECT_EQ(reports_[0].bytes, 400u);
        EXPECT_FALSE(reports_[0].restarted);
        EXPECT_EQ(reports_[1].phase, Phase::receiving);
        EXPECT_EQ(reports_[1].bytes, 0u);
        EXPECT_TRUE(reports_[1].restarted);
        EXPECT_FALSE(reports_[2].restarted);
        EXPECT_EQ(reports_.back().networkBytes, payload_.size());
    }
}

TEST_F(Transfer_Retry, APartThatIsNotProvedToContinue_CostsAnAttemptAndTheBytes) {
    std::map<std::string, Reply> doubtful;
    doubtful["other tag"] = RestFrom(400, "ETag: \"v2\"");
    doubtful["no tag"] = RestFrom(400, "X-None: 1");
    doubtful["weak tag"] = RestFrom(400, "ETag: W/\"v1\"");
    for (const char* range : {"bytes 399-999/1000", "bytes 400-998/1000", "bytes 400-999/1001", "bytes 400-999/*",
                              "Bytes 400-999/1000", "bytes 0-999/1000"}) {
        doubtful[range] = RestFrom(400);
        doubtful[range].headers[1] = std::string("Content-Range: ") + range;
    }
    doubtful["no range"] = RestFrom(400);
    doubtful["no range"].headers.pop_back();
    for (const auto& [name, reply] : doubtful) {
        SCOPED_TRACE(name);
        LoopbackServer server(InTurn({reply.Bytes(), Good()}));
        LeaveResumable(server.Url(), 400);
        const Result result = Fetch(server.Url());
        ExpectSuccess(result);
        EXPECT_EQ(result.attempts, 2u);
        ExpectRange(server, 0, "bytes=400-");
        ExpectRange(server, 1, "");
        EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::retrying, Phase::connecting, Phase::receiving,
                                         Phase::verifying, Phase::complete}));
        EXPECT_EQ(reports_[1].bytes, 0u);
        EXPECT_TRUE(reports_[1].restarted);
        EXPECT_EQ(reports_.back().networkBytes, payload_.size());
    }
}

TEST_F(Transfer_Retry, AnUnsatisfiableRange_CostsAnAttemptAndTheBytes) {
    LoopbackServer server(InTurn({WithStatus(Reply{}, "416 Range Not Satisfiable").Bytes(), Good()}));
    LeaveResumable(server.Url(), 400);
    const Result result = Fetch(server.Url());
    ExpectSuccess(result);
    EXPECT_EQ(result.attempts, 2u);
    ExpectRange(server, 1, "");
    EXPECT_EQ(reports_[1].bytes, 0u);
    EXPECT_TRUE(reports_[1].restarted);
}

TEST_F(Transfer_Retry, APartWithoutAsking_CostsAnAttemptEachTime) {
    LoopbackServer server(
        WithHeader(WithStatus(Whole(payload_), "206 Partial Content"), "Content-Range: bytes 0-999/1000"));
    const Result result = Fetch(server.Url());
    ExpectExhausted(result);
    EXPECT_EQ(result.httpStatus, 206u);
    EXPECT_TRUE(reports_.back().restarted);
    EXPECT_EQ(reports_.back().bytes, 0u);
    EXPECT_EQ(FileLength(PartPath()), 0);
    for (std::size_t request = 0; request < 3; ++request)
        ExpectRange(server, request, "");
}

TEST_F(Transfer_Retry, ARestOfTheWrongLength_IsFinalAndKeepsTheBytes) {
    Reply reply = WithLength(RestFrom(400), "Content-Length: 599");
    LoopbackServer server(reply);
    LeaveResumable(server.Url(), 400);
    ExpectFailure(Fetch(server.Url()), L"content-length-mismatch");
    EXPECT_EQ(ReadWholeFile(PartPath()), payload_.substr(0, 400));
    EXPECT_EQ(ReadResume().etag, L"\"v1\"");
}

TEST_F(Transfer_Retry, ATransientStatusToARangeRequest_KeepsTheBytes) {
    LoopbackServer server(InTurn({WithStatus(Reply{}, "503 Busy").Bytes(), RestFrom(400).Bytes()}));
    LeaveResumable(server.Url(), 400);
    ExpectSuccess(Fetch(server.Url()));
    ExpectRange(server, 1, "bytes=400-");
    EXPECT_EQ(reports_.back().networkBytes, 600u);
}

TEST_F(Transfer_Retry, FinalFailures_KeepTheBytesAndTheirState) {
    for (const char* status : {"404 Not Found", "501 Not Implemented", "302 Found"}) {
        LoopbackServer server(WithStatus(Reply{}, status));
        LeaveResumable(server.Url(), 400);
        ExpectFailure(Fetch(server.Url()), L"http-error");
        EXPECT_EQ(ReadWholeFile(PartPath()), payload_.substr(0, 400));
        EXPECT_EQ(ReadResume().etag, L"\"v1\"");
    }
}

TEST_F(Transfer_Retry, ContinuedBytesThatDoNotFit_AreAllDropped) {
    std::string other = payload_;
    other[0] = static_cast<char>(other[0] ^ 1);
    LoopbackServer server(RestFrom(400));
    LeaveResumable(server.Url(), 400);
    WriteWholeFile(PartPath(), other.substr(0, 400));
    ExpectFailure(Fetch(server.Url()), L"sha256-mismatch");
    EXPECT_EQ(FileLength(PartPath()), 0);
    EXPECT_EQ(GetFileAttributesW(ResumePath().c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Transfer_Retry, ACompleteButWrongFile_IsEmptiedAndItsStateLeftUntilTheNextResponse) {
    LoopbackServer server(WithStatus(Reply{}, "404 Not Found"));
    LeaveResumable(server.Url(), 0);
    WriteWholeFile(PartPath(), std::string(payload_.size(), 'x'));
    ExpectFailure(Fetch(server.Url()), L"http-error");
    EXPECT_EQ(FileLength(PartPath()), 0);
    EXPECT_EQ(ReadResume().etag, L"\"v1\"");
    ExpectRange(server, 0, "");
    EXPECT_EQ(TraceWords(), (Words{"cached-payload", "new-request", "http"}));
}

TEST_F(Transfer_Retry, Success_KeepsTheState) {
    LoopbackServer server(InTurn({Good()}));
    ExpectSuccess(Fetch(server.Url()));
    EXPECT_EQ(ReadResume(), (ResumeState{HashUrl(server.Url()), L"\"v1\"", payload_.size()}));
}

// The resume file

TEST_F(Transfer_Retry, TheState_IsWrittenBeforeTheFirstByte) {
    std::wstring tagAtFirstByte = L"none";
    using OnWrite = StandIn<"WriteFile", decltype(WriteFile)>;
    const OnWrite write([&](HANDLE file, LPCVOID bytes, DWORD length, LPDWORD written, LPOVERLAPPED overlapped) {
        if (std::string_view(static_cast<const char*>(bytes), length).starts_with(payload_.substr(0, 8))) {
            tagAtFirstByte = ReadResume().etag;
        }
        return OnWrite::Original(file, bytes, length, written, overlapped);
    });
    LoopbackServer server(WithHeader(Whole(payload_), "ETag: \"v2\""));
    LeaveResumable(server.Url(), 0);
    ExpectSuccess(Fetch(server.Url()));
    EXPECT_EQ(tagAtFirstByte, L"\"v2\"");
}

TEST_F(Transfer_Retry, AStateOfAnotherEntity_IsGoneBeforeTheFirstByteOfOneWithoutTag) {
    LoopbackServer server([this](Exchange& exchange) { exchange.Send(CutAt(300, "")); });
    LeaveResumable(server.Url(), 0);
    ExpectExhausted(Fetch(server.Url()));
    EXPECT_EQ(FileLength(PartPath()), 300);
    EXPECT_EQ(GetFileAttributesW(ResumePath().c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Transfer_Retry, AStateThatCannotBeWrittenOrRemoved_IsFinal) {
    CreateDirectoryW((top_ / L"cache").c_str(), nullptr);
    ASSERT_TRUE(CreateDirectoryW(ResumePath().c_str(), nullptr));
    for (const std::string& reply : {Good(), Whole(payload_).Bytes()}) {
        LoopbackServer server(InTurn({reply}));
        const Result result = Fetch(server.Url());
        ExpectFailure(result, L"resume-state-write-failed");
        EXPECT_EQ(FileLength(PartPath()), 0);
        EXPECT_EQ(TraceWords().back(), "disk");
    }
}

TEST_F(Transfer_Retry, EveryStepOfWritingTheState_CanFailTheTransfer) {
    for (const char* function : {"CreateFileW", "WriteFile", "FlushFileBuffers"}) {
        SCOPED_TRACE(function);
        LoopbackServer server(InTurn({Good()}));
        MutationFaults faults(FaultKind::fail, 1, ERROR_DISK_FULL);
        faults.CountOnly(function, L".resume.tmp");
        ExpectFailure(Fetch(server.Url()), L"resume-state-write-failed");
        EXPECT_TRUE(faults.Reached());
    }
    LoopbackServer server(InTurn({Good()}));
    MutationFaults faults(FaultKind::fail, 1, ERROR_DISK_FULL);
    faults.CountOnly("MoveFileExW", L".resume.tmp");
    ExpectFailure(Fetch(server.Url()), L"resume-state-write-failed");
    EXPECT_TRUE(faults.Reached());
}

// Between two attempts

TEST_F(Transfer_Retry, BytesThatCannotBeForcedOut_EndTheRun) {
    LoopbackServer server(InTurn({WithStatus(Reply{}, "503 Busy").Bytes(), Good()}));
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("FlushFileBuffers", L".part");
    ExpectFailure(Fetch(server.Url()), L"flush-failed");
    EXPECT_TRUE(faults.Reached());
}

TEST_F(Transfer_Retry, BytesThatCannotBeDropped_EndTheRun) {
    LoopbackServer server(InTurn({CutAt(300, ""), Good()}));
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("SetEndOfFile", L".part");
    ExpectFailure(Fetch(server.Url()), L"cache-reset-failed");
    EXPECT_TRUE(faults.Reached());
}

TEST_F(Transfer_Retry, AResetThatFails_EndsTheRunWhateverCalledForIt) {
    for (const std::string& reply :
         {WithStatus(Reply{}, "416 Range Not Satisfiable").Bytes(), Good(), RestFrom(400, "ETag: \"v2\"").Bytes()}) {
        LoopbackServer server(InTurn({reply}));
        LeaveResumable(server.Url(), 400);
        MutationFaults faults(FaultKind::fail, 1);
        faults.CountOnly("SetEndOfFile", L".part");
        ExpectFailure(Fetch(server.Url()), L"cache-reset-failed");
        EXPECT_TRUE(faults.Reached());
        EXPECT_FALSE(reports_.back().restarted);
    }
}

TEST_F(Transfer_Retry, TheUsersWishForAnotherConnection_KeepsTheBytes) {
    Signal wanted;
    std::atomic<int> requests{0};
    LoopbackServer server([&](Exchange& exchange) {
        if (++requests > 1) {
            exchange.Send(RestFrom(std::stoul(HeaderOf(exchange.Request(), "Range").substr(6))));
            return;
        }
        exchange.Send(CutAt(500));
        AwaitStored(exchange, 500);
        wanted.Set();
        exchange.Send(payload_.substr(500, 1));
        exchange.AwaitClientClose();
    });
    callbacks_.reconnect = [&, used = false]() mutable { return wanted.IsSet() && !std::exchange(used, true); };
    const Result result = Fetch(server.Url());
    ExpectSuccess(result);
    EXPECT_EQ(result.attempts, 2u);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::receiving, Phase::retrying, Phase::connecting,
                                     Phase::receiving, Phase::verifying, Phase::complete}));
}

// The slow phase

TEST_F(Transfer_Retry, ABodyThatStaysSlow_IsToldAsSlowAndGoesOn) {
    LoopbackServer server([&](Exchange& exchange) {
        exchange.Send(CutAt(0));
        for (std::size_t at = 0; at < payload_.size(); at += 10) {
            exchange.Send(payload_.substr(at, 10));
            AwaitStored(exchange, at + 10);
            clock_.Advance(1000);
        }
    });
    ExpectSuccess(Fetch(server.Url()));
    EXPECT_EQ(Course(),
              (std::vector{Phase::connecting, Phase::receiving, Phase::slow, Phase::verifying, Phase::complete}));
    const Words words = TraceWords();
    EXPECT_GT(std::count(words.begin(), words.end(), "progress"), 5);
}

}  // namespace
}  // namespace launcher_download
