#include "download/trace_line.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "update/manifest/json_reader.h"

namespace launcher_download {
namespace {

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
constexpr auto kUnknownPhase = static_cast<Phase>(11);

constexpr std::pair<Phase, std::string_view> kPhaseWords[] = {
    {Phase::connecting, "connecting"},
    {Phase::receiving, "receiving"},
    {Phase::slow, "slow"},
    {Phase::retrying, "retrying"},
    {Phase::verifying, "verifying"},
    {Phase::cached, "cached"},
    {Phase::complete, "complete"},
    {Phase::failed, "failed"},
    {Phase::cancelled, "cancelled"},
    {Phase::switchingSource, "switching-source"},
    {Phase::comparingSource, "comparing-source"},
    {kUnknownPhase, "failed"},
    {static_cast<Phase>(0xFFFFFFFF), "failed"},
};

/// A line in which every value is another one.
struct Line {
    Request request;
    Progress progress;
    TraceFacts facts;

    Line() {
        request.url = L"https://example.invalid/secret";
        request.sha256 = L"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
        request.size = 777;
        request.component = 2;
        progress.phase = Phase::receiving;
        progress.bytes = 1001;
        progress.total = 1002;
        progress.networkBytes = 1003;
        progress.elapsedMs = 1004;
        progress.bytesPerSecond = 1006.75;
        progress.attempt = 2;
        progress.comparisonPrimarySpeed = 1007.5;
        progress.comparisonBackupSpeed = 1008.25;
        progress.aggregateBytes = 888;
        progress.aggregateTotal = 999;
        facts.utcSeconds = 1700000000;
        facts.endpoint = "github";
        facts.osError = 12002;
        facts.httpStatus = 206;
        facts.reason = "progress";
        facts.firstByteMs = 1005;
    }

    [[nodiscard]] std::string Text() const { return FormatTraceLine(request, progress, facts); }

    /// The text of a value from behind its colon to the next comma or the object's end.
    [[nodiscard]] std::string Value(std::string_view key) const {
        const std::string text = Text();
        const std::string quoted = '"' + std::string(key) + "\":";
        const std::size_t found = text.find(quoted);
        if (found == std::string::npos || text.find(quoted, found + 1) != std::string::npos) return "(not once)";
        const std::size_t start = found + quoted.size();
        return text.substr(start, text.find_first_of(",}", start) - start);
    }
};

TEST(TraceLine_Whole, HasEveryKeyInItsPlace) {
    EXPECT_EQ(Line().Text(),
              "{\"schema\":1,\"utc\":1700000000,\"component\":\"application\",\"phase\":\"receiving\","
              "\"endpoint\":\"github\",\"payload\":\"0123456789ab\",\"attempt\":2,\"bytes\":1001,\"total\":1002,"
              "\"networkBytes\":1003,\"elapsedMs\":1004,\"firstByteMs\":1005,\"bytesPerSecond\":1006,"
              "\"comparisonPrimarySpeed\":1007.500000,\"comparisonBackupSpeed\":1008.250000,\"httpStatus\":206,"
              "\"osError\":12002,\"sha256Verified\":false,\"reason\":\"progress\"}\n");
}

TEST(TraceLine_Whole, OfAnEmptyRecord_HasEveryKeyToo) {
    EXPECT_EQ(FormatTraceLine({}, {}, {}),
              "{\"schema\":1,\"utc\":0,\"component\":\"payload\",\"phase\":\"connecting\",\"endpoint\":\"\","
              "\"payload\":\"\",\"attempt\":0,\"bytes\":0,\"total\":0,\"networkBytes\":0,\"elapsedMs\":0,"
              "\"firstByteMs\":0,\"bytesPerSecond\":0,\"comparisonPrimarySpeed\":0.000000,"
              "\"comparisonBackupSpeed\":0.000000,\"httpStatus\":0,\"osError\":0,\"sha256Verified\":false,"
              "\"reason\":\"\"}\n");
}

TEST(TraceLine_Whole, OfLargestNumbers_KeepsEveryDigit) {
    Line line;
    line.facts.utcSeconds = std::numeric_limits<std::int64_t>::max();
    line.facts.osError = line.facts.httpStatus = line.progress.attempt = 0xFFFFFFFF;
    line.facts.firstByteMs = line.progress.bytes = line.progress.total = kLargest;
    line.progress.networkBytes = line.progress.elapsedMs = kLargest;
    EXPECT_EQ(line.Value("utc"), "9223372036854775807");
    for (const char* key : {"osError", "httpStatus", "attempt"})
        EXPECT_EQ(line.Value(key), "4294967295") << key;
    for (const char* key : {"firstByteMs", "bytes", "total", "networkBytes", "elapsedMs"})
        EXPECT_EQ(line.Value(key), "18446744073709551615") << key;
}

TEST(TraceLine_Whole, EndsWithItsOnlyLineEnd) {
    for (const auto& [phase, word] : kPhaseWords) {
        Line line;
        line.progress.phase = phase;
        const std::string text = line.Text();
        EXPECT_EQ(text.find('\n'), text.size() - 1) << word;
        EXPECT_EQ(text.find('\r'), std::string::npos) << word;
        EXPECT_EQ(text.find(' '), std::string::npos) << word;
    }
}

TEST(TraceLine_Whole, IsReadAsJson) {
    const Line line;
    std::wstring document;
    ASSERT_TRUE(launcher_update::DecodeUtf8Document(line.Text(), document));
    for (const auto& [key, expected] :
         {std::pair(L"component", L"application"), std::pair(L"phase", L"receiving"), std::pair(L"endpoint", L"github"),
          std::pair(L"payload", L"0123456789ab"), std::pair(L"reason", L"progress")}) {
        std::wstring value;
        EXPECT_TRUE(launcher_update::ReadJsonString(document, key, value)) << key;
        EXPECT_EQ(value, expected) << key;
    }
    for (const auto& [key, expected] :
         {std::pair(L"schema", 1u), std::pair(L"utc", 1700000000u), std::pair(L"attempt", 2u),
          std::pair(L"bytes", 1001u), std::pair(L"total", 1002u), std::pair(L"networkBytes", 1003u),
          std::pair(L"elapsedMs", 1004u), std::pair(L"firstByteMs", 1005u), std::pair(L"bytesPerSecond", 1006u),
          std::pair(L"httpStatus", 206u), std::pair(L"osError", 12002u)}) {
        std::uint64_t value = 0;
        EXPECT_TRUE(launcher_update::ReadJsonUnsigned(document, key, value)) << key;
        EXPECT_EQ(value, expected) << key;
    }
    bool verified = true;
    EXPECT_TRUE(launcher_update::ReadJsonBool(document, L"sha256Verified", verified));
    EXPECT_FALSE(verified);
    std::wstring object;
    ASSERT_TRUE(launcher_update::ExtractObjectAt(document, 0, object));
    EXPECT_EQ(object + L'\n', document) << "one object and nothing else";
}

TEST(TraceLine_Phase, EveryPhase_HasItsWord) {
    for (const auto& [phase, word] : kPhaseWords) {
        EXPECT_EQ(PhaseWord(phase), word);
        Line line;
        line.progress.phase = phase;
        EXPECT_EQ(line.Value("phase"), '"' + std::string(word) + '"');
    }
}

TEST(TraceLine_Phase, OnlyAProvenPayload_IsVerified) {
    for (const auto& [phase, word] : kPhaseWords) {
        Line line;
        line.progress.phase = phase;
        EXPECT_EQ(line.Value("sha256Verified"), phase == Phase::cached || phase == Phase::complete ? "true" : "false")
            << word;
    }
}

TEST(TraceLine_Component, EveryComponent_HasItsWord) {
    const std::pair<std::uint32_t, std::string_view> rows[] = {
        {0, "payload"}, {1, "launcher"}, {2, "application"}, {3, "runtime"},          {4, "theme"},
        {5, "package"}, {6, "payload"},  {7, "payload"},     {0xFFFFFFFF, "payload"},
    };
    for (const auto& [component, word] : rows) {
        EXPECT_EQ(ComponentWord(component), word) << component;
        Line line;
        line.request.component = component;
        EXPECT_EQ(line.Value("component"), '"' + std::string(word) + '"') << component;
    }
}

TEST(TraceLine_Speed, IsAWholeNumber_OrZeroIfUnknown) {
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    const std::pair<double, std::string_view> rows[] = {
        {-1.0, "0"},
        {-0.5, "0"},
        {-1e300, "0"},
        {std::nan(""), "0"},
        {kInfinite, "0"},
        {-kInfinite, "0"},
        {0.0, "0"},
        {0.9, "0"},
        {1.0, "1"},
        {1234.5, "1234"},
        {1234.9, "1234"},
        {1235.5, "1235"},
        {16383.999, "16383"},
        {4294967296.7, "4294967296"},
        {9007199254740993.0, "9007199254740992"},
        {1e15, "1000000000000000"},
        {18446744073709551616.0, "18446744073709551616"},
    };
    for (const auto& [speed, text] : rows) {
        Line line;
        line.progress.bytesPerSecond = speed;
        EXPECT_EQ(line.Value("bytesPerSecond"), text) << speed;
    }
}

TEST(TraceLine_Speed, OfAnySize_IsPlainDigits) {
    for (const auto& [speed, digits] : {std::pair(1e300, 301u), std::pair(std::numeric_limits<double>::max(), 309u)}) {
        Line line;
        line.progress.bytesPerSecond = speed;
        const std::string value = line.Value("bytesPerSecond");
        EXPECT_EQ(value.size(), digits) << speed;
        EXPECT_EQ(value.find_first_not_of("0123456789"), std::string::npos) << value;
        EXPECT_EQ(std::stod(value), speed);
    }
}

TEST(TraceLine_Comparison, HasSixDecimals) {
    const std::pair<double, std::string_view> rows[] = {
        {0.0, "0.000000"},
        {0.1234567, "0.123457"},
        {0.0000001, "0.000000"},
        {1.0, "1.000000"},
        {1234.5, "1234.500000"},
        {1310720.0, "1310720.000000"},
        {131072.0 * 1000.0 / 101.0, "1297742.574257"},
        {1e15, "1000000000000000.000000"},
    };
    for (const auto& [speed, text] : rows) {
        Line line;
        line.progress.comparisonPrimarySpeed = speed;
        EXPECT_EQ(line.Value("comparisonPrimarySpeed"), text) << speed;
        EXPECT_EQ(line.Value("comparisonBackupSpeed"), "1008.250000") << speed;
        line = Line();
        line.progress.comparisonBackupSpeed = speed;
        EXPECT_EQ(line.Value("comparisonBackupSpeed"), text) << speed;
        EXPECT_EQ(line.Value("comparisonPrimarySpeed"), "1007.500000") << speed;
    }
}

TEST(TraceLine_Payload, IsTheFirstTwelveCharactersOfTheDigest) {
    Line line;
    line.request.sha256 = L"fedcba987654" + std::wstring(52, L'0');
    EXPECT_EQ(line.Value("payload"), "\"fedcba987654\"");
    line.request.sha256 = L"fedcba987654";
    EXPECT_EQ(line.Value("payload"), "\"fedcba987654\"");
    line.request.sha256 = L"fedcba98765";
    EXPECT_EQ(line.Value("payload"), "\"fedcba98765\"");
}

TEST(TraceLine_Texts, StandAsTheyAre) {
    for (const char* endpoint : {"github", "r2", "other-https", "test-loopback"}) {
        for (const char* reason : {"new-request", "resume", "cached-payload", "retry-after", "user"}) {
            Line line;
            line.facts.endpoint = endpoint;
            line.facts.reason = reason;
            EXPECT_EQ(line.Value("endpoint"), '"' + std::string(endpoint) + '"');
            EXPECT_EQ(line.Value("reason"), '"' + std::string(reason) + '"');
        }
    }
}

TEST(TraceLine_Texts, NeverTellTheAddress) {
    EXPECT_EQ(Line().Text().find("secret"), std::string::npos);
    EXPECT_EQ(Line().Text().find("example.invalid"), std::string::npos);
}

}  // namespace
}  // namespace launcher_download
