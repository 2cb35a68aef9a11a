#include "update/manifest/metadata_fetch.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/loopback_server.h"
#include "tests/support/temporary_directory.h"

namespace launcher_update {
namespace {

using test_support::LoopbackServer;
using test_support::Reply;
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
    const std::wstring url = L"https://127.0.0.1:" + std::to_wstring(LoopbackServer(Reply{}).Port()) + L"/x";
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

}  // namespace
}  // namespace launcher_update
