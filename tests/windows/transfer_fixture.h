#pragma once

/// What the tests of a transfer share.

#include "tests/support/loopback_server.h"
// loopback_server.h brings winsock2.h, which must come before windows.h
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "download/mirror.h"
#include "download/resume_state.h"
#include "platform/sha256.h"
#include "platform/text.h"
#include "tests/support/fake_clock.h"
#include "tests/support/temporary_directory.h"

namespace launcher_download {

using test_support::ClosedPort;
using test_support::FakeClock;
using test_support::FileLength;
using test_support::LoopbackServer;
using test_support::ReadWholeFile;
using test_support::Reply;
using test_support::Signal;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;
using Exchange = LoopbackServer::Exchange;

inline std::string MakePayload(std::size_t length) {
    std::string bytes(length, '\0');
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(i * 31 + i / 257);
    return bytes;
}

inline std::wstring Sha256Of(const std::string& bytes) {
    std::wstring hex;
    EXPECT_TRUE(platform::Sha256OfMemory(bytes.data(), bytes.size(), hex));
    return hex;
}

inline Reply Whole(const std::string& body) {
    Reply reply;
    reply.body = body;
    return reply;
}

inline Reply WithHeader(Reply reply, const std::string& header) {
    reply.headers.push_back(header);
    return reply;
}

inline Reply WithStatus(Reply reply, const std::string& status) {
    reply.status = status;
    return reply;
}

/// `header` in place of the right Content-Length; none if it is empty.
inline Reply WithLength(Reply reply, const std::string& header) {
    reply.announceLength = false;
    if (!header.empty()) reply.headers.push_back(header);
    return reply;
}

/// One payload, one folder for its cache, and the course of the last transfer.
class TransferTest : public ::testing::Test {
  protected:
    [[nodiscard]] Request RequestFor(const std::wstring& url) const {
        Request request;
        request.url = url;
        request.sha256 = Sha256Of(payload_);
        request.cacheDirectory = top_ / L"cache";
        request.size = payload_.size();
        return request;
    }

    [[nodiscard]] std::wstring PartPath() const { return top_ / (L"cache\\" + Sha256Of(payload_) + L".part"); }
    [[nodiscard]] std::wstring ResumePath() const { return top_ / (L"cache\\" + Sha256Of(payload_) + L".resume"); }
    [[nodiscard]] ResumeState ReadResume() const { return ReadResumeState(ResumePath()); }

    /// Waits until the client has that many bytes behind it: their count shows as the cache file's length.
    void AwaitStored(Exchange& exchange, std::size_t length) const {
        exchange.AwaitUntil([&] { return FileLength(PartPath()) == static_cast<long long>(length); });
    }

    /// Puts a file where the cache file will be.
    void LeavePart(const std::string& bytes) const {
        CreateDirectoryW((top_ / L"cache").c_str(), nullptr);
        WriteWholeFile(PartPath(), bytes);
    }

    /// Puts the payload's first bytes there with the resume file that vouches for them.
    void LeaveResumable(const std::wstring& url, std::size_t length, const std::wstring& etag = L"\"v1\"") const {
        LeavePart(payload_.substr(0, length));
        ASSERT_TRUE(WriteResumeState(ResumePath(), {HashUrl(url), etag, payload_.size()}));
    }

    /// The trace's lines so far.
    [[nodiscard]] std::vector<std::string> Trace() const {
        std::vector<std::string> lines;
        std::istringstream text(ReadWholeFile(top_ / L"cache\\download-trace.jsonl"));
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }
    /// The trace's words so far.
    [[nodiscard]] std::vector<std::string> TraceWords() const {
        constexpr std::string_view kKey = "\"reason\":\"";
        std::vector<std::string> words;
        for (const std::string& line : Trace()) {
            const std::size_t start = line.find(kKey) + kKey.size();
            words.push_back(line.substr(start, line.find('"', start) - start));
        }
        return words;
    }

    Result Fetch(const Request& request) {
        reports_.clear();
        DeleteFileW((top_ / L"cache\\download-trace.jsonl").c_str());
        Callbacks callbacks = callbacks_;
        callbacks.progress = [this](const Progress& progress) {
            reports_.push_back(progress);
            phase_ = progress.phase;
            if (callbacks_.progress) callbacks_.progress(progress);
        };
        return DownloadAllowingLoopback(request, callbacks);
    }
    Result Fetch(const std::wstring& url) { return Fetch(RequestFor(url)); }
    Result Fetch(const Reply& reply) {
        LoopbackServer server(reply);
        return Fetch(server.Url());
    }

    /// The course of phases, each repetition told once.
    [[nodiscard]] std::vector<Phase> Course() const {
        std::vector<Phase> course;
        for (const Progress& progress : reports_) {
            if (course.empty() || course.back() != progress.phase) course.push_back(progress.phase);
        }
        return course;
    }

    void ExpectSuccess(const Result& result) const {
        EXPECT_TRUE(result.success);
        EXPECT_FALSE(result.canceled);
        EXPECT_EQ(result.reason, L"");
        EXPECT_EQ(result.path, PartPath());
        EXPECT_EQ(ReadWholeFile(PartPath()), payload_);
    }

    void ExpectEndedWithout(const Result& result, const wchar_t* reason, Phase lastPhase) const {
        EXPECT_FALSE(result.success);
        EXPECT_EQ(result.path, L"");
        EXPECT_EQ(result.reason, reason) << platform::EncodeUtf8(result.reason);
        ASSERT_FALSE(reports_.empty());
        EXPECT_EQ(reports_.back().phase, lastPhase);
        for (std::size_t i = 0; i + 1 < reports_.size(); ++i) {
            EXPECT_LT(reports_[i].phase, Phase::cached) << "a final report before the last one";
        }
    }
    void ExpectFailure(const Result& result, const wchar_t* reason, std::uint32_t attempts = 1) const {
        ExpectEndedWithout(result, reason, Phase::failed);
        EXPECT_FALSE(result.canceled);
        EXPECT_EQ(result.attempts, attempts);
    }
    void ExpectExhausted(const Result& result) const {
        ExpectFailure(result, L"download-retries-exhausted", kMaxAttempts);
    }
    void ExpectCancelled(const Result& result) const {
        ExpectEndedWithout(result, L"cancelled", Phase::cancelled);
        EXPECT_TRUE(result.canceled);
    }
    void ExpectRefusal(const Result& result, const wchar_t* reason) const {
        EXPECT_FALSE(result.success);
        EXPECT_EQ(result.path, L"");
        EXPECT_EQ(result.reason, reason) << platform::EncodeUtf8(result.reason);
        EXPECT_EQ(result.canceled, result.reason == L"cancelled");
        EXPECT_EQ(result.attempts, 0u);
        EXPECT_EQ(result.httpStatus, 0u);
        EXPECT_TRUE(reports_.empty());
    }

    TemporaryDirectory top_;
    std::string payload_ = MakePayload(1000);
    FakeClock clock_;  // no test waits for the next attempt
    Callbacks callbacks_;
    std::vector<Progress> reports_;
    std::atomic<Phase> phase_{Phase::connecting};
};

}  // namespace launcher_download
