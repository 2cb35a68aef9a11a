#include "tests/windows/transfer_fixture.h"

#include <functional>
#include <memory>

#include "download/probe.h"
#include "tests/support/stand_in.h"

namespace launcher_download {
namespace {

using test_support::StandIn;

constexpr std::size_t kPayloadBytes = 3 << 20;

bool IsProbe(const Exchange& exchange) {
    return exchange.Request().find("User-Agent: Velmora Pine Relay Source Comparison\r\n") != std::string::npos;
}

/// Two servers, each with an answer to probes and one to transfers, and the folders of both sources.
class Mirror : public TransferTest {
  protected:
    using Script = std::function<void(Exchange&)>;

    Mirror() {
        payload_ = MakePayload(kPayloadBytes);
        whole_ = [this](Exchange& exchange) { exchange.Send(WithHeader(Whole(payload_), "ETag: \"v1\"")); };
        missing_ = [](Exchange& exchange) { exchange.Send(WithStatus(Reply{}, "404 Not Found")); };
        primaryTransfer_ = backupTransfer_ = whole_;
        primaryProbe_ = backupProbe_ = [this](Exchange& exchange) { AnswerProbe(exchange); };
    }

    [[nodiscard]] Reply ProbeReply(std::size_t limit) const {
        Reply reply = WithStatus(Whole(payload_.substr(0, limit)), "206 Partial Content");
        reply.headers = {"Content-Range: bytes 0-" + std::to_string(limit - 1) + "/" + std::to_string(payload_.size())};
        return reply;
    }
    void AnswerProbe(Exchange& exchange) const {
        const std::string& head = exchange.Request();
        constexpr std::string_view kKey = "\r\nRange: bytes=0-";
        const std::size_t start = head.find(kKey) + kKey.size();
        exchange.Send(ProbeReply(std::stoul(head.substr(start)) + 1));
    }

    [[nodiscard]] Request TwoSources() const {
        Request request = RequestFor(primary_.Url());
        request.backupUrl = backup_.Url();
        request.session = session_;
        request.comparisonDelayMs = 1000;
        request.comparisonWindowMs = 2000;
        return request;
    }

    [[nodiscard]] std::wstring PartIn(const wchar_t* folder) const {
        return top_ / (std::wstring(L"cache\\") + folder + L"\\" + Sha256Of(payload_) + L".part");
    }
    void LeavePartIn(const wchar_t* folder, const std::string& bytes) const {
        CreateDirectoryW((top_ / L"cache").c_str(), nullptr);
        CreateDirectoryW((top_ / (std::wstring(L"cache\\") + folder)).c_str(), nullptr);
        WriteWholeFile(PartIn(folder), bytes);
    }

    static std::size_t Count(const LoopbackServer& server, bool probes) {
        std::size_t count = 0;
        for (const std::string& head : server.Requests())
            count += (head.find("Source Comparison") != std::string::npos) == probes ? 1u : 0u;
        return count;
    }

    void ExpectFrom(const Result& result, const wchar_t* folder) const {
        EXPECT_TRUE(result.success) << platform::EncodeUtf8(result.reason);
        EXPECT_EQ(result.path, PartIn(folder));
        EXPECT_TRUE(ReadWholeFile(result.path) == payload_);
        for (const Progress& progress : reports_)
            EXPECT_NE(progress.phase, Phase::failed);
    }

    [[nodiscard]] std::vector<Progress> OfPhase(Phase phase) const {
        std::vector<Progress> found;
        for (const Progress& progress : reports_)
            if (progress.phase == phase) found.push_back(progress);
        return found;
    }

    Script whole_, missing_;
    Script primaryTransfer_, primaryProbe_, backupTransfer_, backupProbe_;
    std::shared_ptr<SourceSession> session_ = std::make_shared<SourceSession>();
    LoopbackServer primary_{
        [this](Exchange& exchange) { (IsProbe(exchange) ? primaryProbe_ : primaryTransfer_)(exchange); }};
    LoopbackServer backup_{
        [this](Exchange& exchange) { (IsProbe(exchange) ? backupProbe_ : backupTransfer_)(exchange); }};
};

TEST_F(Mirror, WithoutPreference_ThePrimaryIsUsedAndPreferred) {
    ExpectFrom(Fetch(TwoSources()), L"github");
    EXPECT_EQ(session_->preference, 1);
    EXPECT_TRUE(backup_.Requests().empty());
    EXPECT_EQ(GetFileAttributesW((top_ / L"cache\\r2").c_str()), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::receiving, Phase::verifying, Phase::complete}));
}

TEST_F(Mirror, WithoutSession_AllIsTheSame) {
    Request request = TwoSources();
    request.session = nullptr;
    request.compareAtStart = true;
    primaryTransfer_ = missing_;
    ExpectFrom(Fetch(request), L"r2");
    EXPECT_EQ(Count(primary_, true), 1u);
}

TEST_F(Mirror, WhatIsWrongWithThePayload_IsToldBeforeAnythingIsMade) {
    Request request = TwoSources();
    request.size = 0;
    ExpectRefusal(Fetch(request), L"invalid-payload");
    request = TwoSources();
    request.sha256[0] = L'G';
    ExpectRefusal(Fetch(request), L"invalid-payload");
    EXPECT_EQ(GetFileAttributesW((top_ / L"cache").c_str()), INVALID_FILE_ATTRIBUTES);
    callbacks_.cancelled = [] { return true; };
    ExpectRefusal(Fetch(request), L"invalid-payload");
    ExpectRefusal(Fetch(TwoSources()), L"cancelled");
    EXPECT_EQ(GetFileAttributesW((top_ / L"cache").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Mirror, AnUnsafeFolderOfEitherSource_RefusesBoth) {
    for (const wchar_t* folder : {L"cache\\github", L"cache\\r2"}) {
        CreateDirectoryW((top_ / L"cache").c_str(), nullptr);
        RemoveDirectoryW((top_ / folder).c_str());
        WriteWholeFile(top_ / folder, "in the way");
        ExpectRefusal(Fetch(TwoSources()), L"unsafe-or-full-cache");
        DeleteFileW((top_ / folder).c_str());
    }
    EXPECT_TRUE(primary_.Requests().empty());
}

// Complete copies

TEST_F(Mirror, ACompleteCopyOfEitherSource_IsUsedWithoutNetwork) {
    for (const wchar_t* folder : {L"github", L"r2"}) {
        LeavePartIn(folder, payload_);
        Request request = TwoSources();
        request.compareAtStart = true;
        ExpectFrom(Fetch(request), folder);
        ASSERT_EQ(reports_.size(), 1u);
        EXPECT_EQ(reports_[0].phase, Phase::cached);
        EXPECT_EQ(reports_[0].bytes, payload_.size());
        EXPECT_EQ(reports_[0].total, payload_.size());
        EXPECT_EQ(reports_[0].backup, folder == std::wstring(L"r2"));
        EXPECT_EQ(session_->preference, 0);
        DeleteFileW(PartIn(folder).c_str());
    }
    EXPECT_TRUE(primary_.Requests().empty());
    EXPECT_TRUE(backup_.Requests().empty());
}

TEST_F(Mirror, ACopyThatIsWrongShortOrHeld_IsNotUsed) {
    std::string wrong = payload_;
    wrong[1] = static_cast<char>(wrong[1] ^ 1);
    for (const std::string& bytes : {wrong, payload_.substr(1)}) {
        LeavePartIn(L"r2", bytes);
        ExpectFrom(Fetch(TwoSources()), L"github");
        EXPECT_EQ(ReadWholeFile(PartIn(L"r2")), bytes);
        DeleteFileW(PartIn(L"github").c_str());
    }
    LeavePartIn(L"r2", payload_);
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), PartIn(L"r2").c_str(), nullptr));
    ExpectFrom(Fetch(TwoSources()), L"github");
}

TEST_F(Mirror, ACancelWhileACopyIsHashed_AsksNobody) {
    LeavePartIn(L"github", payload_);
    callbacks_.cancelled = [polls = 0]() mutable { return ++polls > 3; };
    const Result result = Fetch(TwoSources());
    EXPECT_TRUE(result.canceled);
    EXPECT_EQ(result.reason, L"cancelled");
    EXPECT_TRUE(reports_.empty());
    EXPECT_EQ(ReadWholeFile(PartIn(L"github")), payload_);
    EXPECT_TRUE(primary_.Requests().empty());
}

// The comparison at the start

TEST_F(Mirror, EqualSources_BeginWithThePrimary) {
    Request request = TwoSources();
    request.compareAtStart = true;
    ExpectFrom(Fetch(request), L"github");
    EXPECT_EQ(Count(primary_, true), 1u);
    EXPECT_EQ(Count(backup_, true), 1u);
    EXPECT_NE(primary_.Requests()[0].find("\r\nRange: bytes=0-524287\r\n"), std::string::npos);
    EXPECT_NE(primary_.Requests()[0].find("\r\nAccept-Encoding: identity\r\n"), std::string::npos);
    EXPECT_EQ(reports_[0].phase, Phase::comparingSource);
    EXPECT_EQ(reports_[0].total, payload_.size());
    EXPECT_EQ(reports_[0].bytes, 0u);
    EXPECT_EQ(reports_[0].attempt, 0u);
    EXPECT_EQ(reports_[0].networkBytes, 0u);
    EXPECT_EQ(reports_[1].networkBytes, 2u * 0x80000);
    EXPECT_EQ(reports_.back().networkBytes, payload_.size() + 2u * 0x80000);
}

TEST_F(Mirror, AProbeThatDoesNotAnswerTheQuestion_HasNoSpeed) {
    const Reply good = ProbeReply(0x80000);
    Reply total = good;
    total.headers[0] = "Content-Range: bytes 0-524287/*";
    Reply longer = good;
    longer.headers[0] = "Content-Range: bytes 0-524288/" + std::to_string(payload_.size());
    const Reply bad[] = {WithStatus(good, "200 OK"),
                         WithStatus(good, "503 Busy"),
                         total,
                         longer,
                         WithHeader(good, "Content-Type: application/XHTML+xml"),
                         WithHeader(good, "Content-Encoding: gzip")};
    Request request = TwoSources();
    request.compareAtStart = true;
    for (const Reply& reply : bad) {
        SCOPED_TRACE(reply.status + " " + reply.headers.back());
        session_->preference = 0;
        primaryProbe_ = [&reply](Exchange& exchange) { exchange.Send(reply); };
        ExpectFrom(Fetch(request), L"r2");
        EXPECT_EQ(session_->preference, 2);
        EXPECT_EQ(reports_[1].networkBytes, 0x80000u) << "only the backup's probe took anything";
        DeleteFileW(PartIn(L"r2").c_str());
        session_->preference = 0;
        std::swap(primaryProbe_, backupProbe_);
        ExpectFrom(Fetch(request), L"github");
        std::swap(primaryProbe_, backupProbe_);
        DeleteFileW(PartIn(L"github").c_str());
    }
}

TEST_F(Mirror, APayloadTooSmallToMeasure_BeginsWithThePrimary) {
    payload_ = MakePayload(0x1FFFF);
    Request request = TwoSources();
    request.compareAtStart = true;
    primaryProbe_ = missing_;
    ExpectFrom(Fetch(request), L"github");
    EXPECT_NE(backup_.Requests()[0].find("\r\nRange: bytes=0-131070\r\n"), std::string::npos);
}

TEST_F(Mirror, AKnownPreference_IsNotMeasuredAgain) {
    Request request = TwoSources();
    request.compareAtStart = true;
    for (const std::int32_t preference : {1, 2}) {
        session_->preference = preference;
        ExpectFrom(Fetch(request), preference == 2 ? L"r2" : L"github");
        EXPECT_EQ(session_->preference, preference);
        DeleteFileW(PartIn(preference == 2 ? L"r2" : L"github").c_str());
    }
    EXPECT_EQ(Count(primary_, true) + Count(backup_, true), 0u);
}

TEST_F(Mirror, ACancelDuringTheProbes_BeginsNoTransfer) {
    callbacks_.cancelled = [this] { return phase_ == Phase::comparingSource; };
    Request request = TwoSources();
    request.compareAtStart = true;
    const Result result = Fetch(request);
    EXPECT_TRUE(result.canceled);
    EXPECT_EQ(result.reason, L"cancelled");
    EXPECT_EQ(result.attempts, 0u);
    EXPECT_EQ(Course(), (std::vector{Phase::comparingSource}));
    EXPECT_EQ(Count(primary_, false) + Count(backup_, false), 0u);
    EXPECT_EQ(session_->preference, 0);
}

TEST_F(Mirror, TheProbe_KeepsItsTerms) {
    using OnOpen = StandIn<"WinHttpOpen", decltype(WinHttpOpen)>;
    using OnSetTimeouts = StandIn<"WinHttpSetTimeouts", decltype(WinHttpSetTimeouts)>;
    using OnSetOption = StandIn<"WinHttpSetOption", decltype(WinHttpSetOption)>;
    std::wstring agent;
    std::vector<int> waits;
    std::vector<std::pair<DWORD, DWORD>> options;
    const OnOpen open([&](LPCWSTR name, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
        agent = name;
        EXPECT_EQ(access, 4u);
        EXPECT_EQ(flags, 0x10000000u);
        return OnOpen::Original(name, access, proxy, bypass, flags);
    });
    const OnSetTimeouts timeouts([&](HINTERNET handle, int resolve, int connect, int send, int receive) {
        waits.insert(waits.end(), {resolve, connect, send, receive});
        return OnSetTimeouts::Original(handle, resolve, connect, send, receive);
    });
    const OnSetOption option([&](HINTERNET handle, DWORD number, LPVOID value, DWORD length) {
        if (length == sizeof(DWORD)) options.emplace_back(number, *static_cast<const DWORD*>(value));
        return OnSetOption::Original(handle, number, value, length);
    });
    const Probe probe = compareBackup(TwoSources(), callbacks_, true, {0x20000, 2000});
    EXPECT_EQ(probe.bytes, 0x20000u);
    EXPECT_EQ(probe.bytesPerSecond, 0x20000 * 10.0) << "a tenth of a second is the least that counts";
    EXPECT_EQ(agent, L"Velmora Pine Relay Source Comparison");
    EXPECT_EQ(waits, (std::vector{1000, 1000, 1000, 1000}));
    EXPECT_EQ(options, (std::vector<std::pair<DWORD, DWORD>>{{88, 0}, {7, 1000}, {63, 1}}));
    EXPECT_EQ(GetFileAttributesW((top_ / L"cache").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Mirror, AProbeOfNothingOrOfABadUrl_SendsNothing) {
    Request request = TwoSources();
    EXPECT_EQ(compareBackup(request, callbacks_, true, {0, 2000}).bytes, 0u);
    request.size = 0;
    EXPECT_EQ(compareBackup(request, callbacks_, true, kStartProbe).bytes, 0u);
    request = TwoSources();
    EXPECT_EQ(compareBackup(request, callbacks_, false, kStartProbe).bytes, 0u);
    for (const wchar_t* url : {L"", L"http://u@127.0.0.1/x", L"http://localhost/x", L"nonsense"}) {
        request.backupUrl = url;
        EXPECT_EQ(compareBackup(request, callbacks_, true, kStartProbe).bytes, 0u);
    }
    EXPECT_TRUE(backup_.Requests().empty());
}

std::atomic<std::size_t> g_bytesRead;
WINHTTP_STATUS_CALLBACK g_readersCallback;

void CALLBACK CountReads(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID information, DWORD length) {
    if (status == WINHTTP_CALLBACK_STATUS_READ_COMPLETE) g_bytesRead += length;
    g_readersCallback(handle, context, status, information, length);
}

/// A backup that falls silent in the middle of a probe.
class Mirror_HalfAProbe : public Mirror {
  protected:
    static constexpr std::size_t kHalf = 0x40000;

    Mirror_HalfAProbe() {
        backupProbe_ = [this](Exchange& exchange) {
            const std::string bytes = ProbeReply(2 * kHalf).Bytes();
            exchange.Send(std::string_view(bytes).substr(0, bytes.size() - kHalf));
            exchange.AwaitClientClose();
        };
    }

    /// What the probe tells if `interrupt` comes in its wait for the second half.
    Probe Compare(const std::function<void()>& interrupt) {
        g_bytesRead = 0;
        const OnSetCallback callback([](HINTERNET handle, WINHTTP_STATUS_CALLBACK wanted, DWORD mask, DWORD_PTR last) {
            g_readersCallback = wanted;
            return OnSetCallback::Original(handle, CountReads, mask, last);
        });
        const OnQueryAvailable available([&](HINTERNET handle, LPDWORD count) {
            const BOOL begun = OnQueryAvailable::Original(handle, count);
            if (g_bytesRead == kHalf) interrupt();
            return begun;
        });
        return compareBackup(TwoSources(), callbacks_, true, kStartProbe);
    }

  private:
    using OnSetCallback = StandIn<"WinHttpSetStatusCallback", decltype(WinHttpSetStatusCallback)>;
    using OnQueryAvailable = StandIn<"WinHttpQueryDataAvailable", decltype(WinHttpQueryDataAvailable)>;
};

TEST_F(Mirror_HalfAProbe, OutOfTime_TellsWhatCame) {
    const Probe probe = Compare([this] { clock_.Advance(5000); });
    EXPECT_EQ(probe.bytes, kHalf);
    EXPECT_EQ(probe.bytesPerSecond, static_cast<double>(kHalf) / 5.0);
}

TEST_F(Mirror_HalfAProbe, Cancelled_HasNoSpeed) {
    bool cancelled = false;
    callbacks_.cancelled = [&] { return cancelled; };
    const Probe probe = Compare([&] { cancelled = true; });
    EXPECT_EQ(probe.bytes, kHalf);
    EXPECT_EQ(probe.bytesPerSecond, 0.0);
}

// Failure of one source

TEST_F(Mirror, AFailureThatAnotherServerCanCure_SwitchesOnce) {
    primaryTransfer_ = missing_;
    ExpectFrom(Fetch(TwoSources()), L"r2");
    EXPECT_EQ(session_->preference, 2);
    const std::vector<Progress> switches = OfPhase(Phase::switchingSource);
    ASSERT_EQ(switches.size(), 1u);
    EXPECT_EQ(switches[0].bytes, 0u);
    EXPECT_EQ(switches[0].total, payload_.size());
    EXPECT_TRUE(switches[0].restarted);
    EXPECT_TRUE(switches[0].backup);
    EXPECT_FALSE(switches[0].slow);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::switchingSource, Phase::connecting, Phase::receiving,
                                     Phase::verifying, Phase::complete}));
    EXPECT_TRUE(reports_.back().backup);
}

TEST_F(Mirror, BytesOfTheFirstSource_AreCountedInTheSecond) {
    primaryTransfer_ = [this](Exchange& exchange) {
        std::string wrong = payload_;
        wrong.back() = static_cast<char>(wrong.back() ^ 1);
        exchange.Send(Whole(wrong));
    };
    ExpectFrom(Fetch(TwoSources()), L"r2");
    EXPECT_EQ(OfPhase(Phase::switchingSource)[0].networkBytes, payload_.size());
    EXPECT_EQ(reports_.back().networkBytes, 2 * payload_.size());
}

TEST_F(Mirror, AFailureThatAnyServerWouldMeet_IsFinal) {
    primaryTransfer_ = [this](Exchange& exchange) {
        exchange.Send(WithHeader(Whole(payload_), "Content-Encoding: gzip"));
    };
    const Result result = Fetch(TwoSources());
    EXPECT_EQ(result.reason, L"unexpected-encoding");
    EXPECT_TRUE(backup_.Requests().empty());
    EXPECT_EQ(session_->preference, 0);
    EXPECT_TRUE(OfPhase(Phase::switchingSource).empty());
    EXPECT_TRUE(OfPhase(Phase::failed).empty());
}

TEST_F(Mirror, TheSecondSourcesFailure_IsFinalAndShown) {
    primaryTransfer_ = backupTransfer_ = missing_;
    for (const std::int32_t preference : {0, 1}) {
        session_->preference = preference;
        const Result result = Fetch(TwoSources());
        EXPECT_EQ(result.reason, L"http-error");
        EXPECT_EQ(session_->preference, preference);
        EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::switchingSource, Phase::connecting, Phase::failed}));
    }
}

TEST_F(Mirror, ABackupThatFailsFirst_HandsOverToThePrimaryForGood) {
    session_->preference = 2;
    backupTransfer_ = missing_;
    ExpectFrom(Fetch(TwoSources()), L"github");
    EXPECT_EQ(session_->preference, 1);
    ASSERT_EQ(OfPhase(Phase::switchingSource).size(), 1u);
    EXPECT_FALSE(OfPhase(Phase::switchingSource)[0].backup);
    EXPECT_TRUE(OfPhase(Phase::switchingSource)[0].restarted);
    EXPECT_FALSE(reports_.back().backup);

    session_->preference = 2;
    primaryTransfer_ = missing_;
    DeleteFileW(PartIn(L"github").c_str());
    EXPECT_EQ(Fetch(TwoSources()).reason, L"http-error");
    EXPECT_EQ(session_->preference, 1) << "the backup has failed, whatever the primary does";
}

TEST_F(Mirror, ACancelAtTheSwitch_BeginsNoSecondTransfer) {
    primaryTransfer_ = missing_;
    callbacks_.cancelled = [this] { return phase_ == Phase::switchingSource; };
    const Result result = Fetch(TwoSources());
    EXPECT_TRUE(result.canceled);
    EXPECT_EQ(result.reason, L"cancelled");
    EXPECT_TRUE(backup_.Requests().empty());
}

TEST_F(Mirror, ACancelInTheFirstTransfer_DoesNotSwitch) {
    callbacks_.cancelled = [this] { return phase_ == Phase::receiving; };
    const Result result = Fetch(TwoSources());
    EXPECT_TRUE(result.canceled);
    EXPECT_TRUE(OfPhase(Phase::switchingSource).empty());
    EXPECT_EQ(OfPhase(Phase::cancelled).size(), 1u);
    EXPECT_TRUE(backup_.Requests().empty());
}

// The comparison during a download

class Mirror_InRun : public Mirror {
  protected:
    Mirror_InRun() {
        // 128 KiB at once, and 64 KiB in each second from then on.
        primaryTransfer_ = [this](Exchange& exchange) { SendSlowly(exchange, 0); };
    }

    void SendSlowly(Exchange& exchange, std::size_t from) {
        const bool part = from > 0;
        exchange.Send("HTTP/1.1 " + std::string(part ? "206 Partial Content" : "200 OK") +
                      "\r\nContent-Length: " + std::to_string(payload_.size() - from) + "\r\nETag: \"v1\"\r\n" +
                      (part ? "Content-Range: bytes " + std::to_string(from) + "-" +
                                  std::to_string(payload_.size() - 1) + "/" + std::to_string(payload_.size()) + "\r\n"
                            : "") +
                      "\r\n");
        std::size_t at = from;
        for (std::size_t next = at + 0x20000; at < payload_.size(); next += 0x10000) {
            if (at >= cutAt_) return;
            next = std::min(next, payload_.size());
            exchange.Send(payload_.substr(at, next - at));
            at = next;
            exchange.AwaitUntil([&] { return FileLength(PartIn(L"github")) >= static_cast<long long>(at); });
            clock_.Advance(1000);
        }
    }

    [[nodiscard]] std::string GithubTrace() const {
        return ReadWholeFile(top_ / L"cache\\github\\download-trace.jsonl");
    }

    std::size_t cutAt_ = kPayloadBytes;
};

TEST_F(Mirror_InRun, AMuchFasterBackup_TakesOver) {
    ExpectFrom(Fetch(TwoSources()), L"r2");
    EXPECT_EQ(session_->preference, 2);
    EXPECT_EQ(Count(backup_, true), 1u);
    EXPECT_NE(backup_.Requests()[0].find("\r\nRange: bytes=0-3145727\r\n"), std::string::npos);
    const std::vector<Progress> comparing = OfPhase(Phase::comparingSource);
    ASSERT_EQ(comparing.size(), 1u);
    // In two seconds 64 KiB, and with them a block each of those before and behind, by when the server moves the clock.
    EXPECT_GE(comparing[0].comparisonPrimarySpeed, 0x10000 / 2.0);
    EXPECT_LE(comparing[0].comparisonPrimarySpeed, 3 * 0x10000 / 2.0);
    EXPECT_EQ(comparing[0].comparisonBackupSpeed, 0.0);
    const std::vector<Progress> switches = OfPhase(Phase::switchingSource);
    ASSERT_EQ(switches.size(), 1u);
    EXPECT_TRUE(switches[0].slow);
    EXPECT_TRUE(switches[0].backup);
    EXPECT_GT(switches[0].comparisonBackupSpeed, 1e6);
    EXPECT_GE(switches[0].networkBytes, payload_.size());
    EXPECT_FALSE(reports_.back().slow);
    EXPECT_GT(FileLength(PartIn(L"github")), 0) << "what came from the primary stays for another day";
    EXPECT_NE(GithubTrace().find("\"reason\":\"backup-measured-faster\""), std::string::npos);
}

TEST_F(Mirror_InRun, ABackupThatCannotBeMeasured_LeavesThePrimary) {
    backupProbe_ = missing_;
    ExpectFrom(Fetch(TwoSources()), L"github");
    EXPECT_EQ(session_->preference, 1);
    EXPECT_EQ(Count(backup_, true), 1u);
    EXPECT_NE(GithubTrace().find("\"reason\":\"comparison-keep-primary\""), std::string::npos);
    EXPECT_EQ(OfPhase(Phase::comparingSource).size(), 1u);
}

TEST_F(Mirror_InRun, SeveralAttempts_CompareOnce) {
    backupProbe_ = missing_;
    cutAt_ = 0x80000;
    std::atomic<int> requests{0};
    primaryTransfer_ = [&](Exchange& exchange) {
        if (++requests == 1) {
            SendSlowly(exchange, 0);
            cutAt_ = kPayloadBytes;
        } else {
            SendSlowly(exchange, 0x80000);
        }
    };
    ExpectFrom(Fetch(TwoSources()), L"github");
    EXPECT_EQ(requests, 2);
    EXPECT_EQ(Count(backup_, true), 1u);
}

TEST_F(Mirror_InRun, ACancelDuringTheProbe_Ends) {
    callbacks_.cancelled = [this] { return phase_ == Phase::comparingSource; };
    const Result result = Fetch(TwoSources());
    EXPECT_TRUE(result.canceled);
    EXPECT_EQ(reports_.back().phase, Phase::cancelled);
    EXPECT_EQ(Count(backup_, false), 0u);
}

TEST_F(Mirror_InRun, BeforeDelayAndWindow_NothingIsCompared) {
    Request request = TwoSources();
    request.comparisonDelayMs = 60000;
    ExpectFrom(Fetch(request), L"github");
    request.comparisonDelayMs = 1000;
    request.comparisonWindowMs = 60000;
    DeleteFileW(PartIn(L"github").c_str());
    ExpectFrom(Fetch(request), L"github");
    EXPECT_TRUE(backup_.Requests().empty());
}

TEST_F(Mirror_InRun, APrimaryThatStandsInForTheBackup_HasNothingToCompareWith) {
    session_->preference = 2;
    backupTransfer_ = missing_;
    ExpectFrom(Fetch(TwoSources()), L"github");
    EXPECT_EQ(Count(backup_, true), 0u);
}

TEST_F(Mirror_InRun, ABackupThatComesFirst_IsNotCompared) {
    session_->preference = 2;
    backupTransfer_ = [this](Exchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(payload_.size()) + "\r\n\r\n");
        for (std::size_t at = 0; at < payload_.size(); at += 0x20000) {
            exchange.Send(payload_.substr(at, 0x20000));
            exchange.AwaitUntil([&] { return FileLength(PartIn(L"r2")) >= static_cast<long long>(at + 0x20000); });
            clock_.Advance(1000);
        }
    };
    ExpectFrom(Fetch(TwoSources()), L"r2");
    EXPECT_TRUE(primary_.Requests().empty());
    EXPECT_EQ(Count(backup_, true), 0u);
}

}  // namespace
}  // namespace launcher_download
