#include "launcher/configuration_text.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>

#include "platform/text.h"
#include "product/locations.h"

namespace launcher_shell {
namespace {

constexpr wchar_t kEmptyOrTooLarge[] = L"current.json 為空、過大或讀取失敗。";
constexpr wchar_t kNotUtf8[] = L"current.json 不是有效的 UTF-8。";
constexpr wchar_t kFieldMissing[] = L"current.json 缺少必要欄位或使用不支援的格式。";
constexpr wchar_t kUnsafePath[] = L"current.json 包含不安全的程式路徑。";

LauncherConfiguration Sample() {
    LauncherConfiguration configuration;
    configuration.productVersion = L"1.2.3.4";
    configuration.launcherVersion = L"2.0.0.0";
    configuration.updateManifestUrl = product::kPrimaryManifestUrl;
    return configuration;
}

std::string Written(const LauncherConfiguration& configuration = Sample()) {
    return platform::EncodeUtf8(RenderLauncherConfiguration(configuration));
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    if (at == std::string::npos) ADD_FAILURE() << "nothing to replace: " << from;
    return text.replace(at, from.size(), to);
}

std::wstring Refusal(const std::string& bytes) {
    LauncherConfiguration configuration = Sample();
    std::wstring error;
    if (ParseLauncherConfiguration(bytes, configuration, error)) return {};
    EXPECT_EQ(configuration, Sample()) << "a refused file must not change the record";
    return error;
}

LauncherConfiguration Parsed(const std::string& bytes) {
    LauncherConfiguration configuration;
    std::wstring error;
    EXPECT_TRUE(ParseLauncherConfiguration(bytes, configuration, error)) << platform::EncodeUtf8(error);
    return configuration;
}

TEST(Configuration, IsWrittenInTheFixedForm) {
    EXPECT_EQ(Written(),
              "{\n"
              "  \"schemaVersion\": 1,\n"
              "  \"product\": \"Velmora Pine Relay\",\n"
              "  \"productVersion\": \"1.2.3.4\",\n"
              "  \"launcherVersion\": \"2.0.0.0\",\n"
              "  \"applicationDirectory\": \"Velmora Pine Relay\",\n"
              "  \"applicationExecutable\": \"Velmora Pine Relay.exe\",\n"
              "  \"updateManifestUrl\": \"" +
                  platform::EncodeUtf8(product::kPrimaryManifestUrl) +
                  "\",\n"
                  "  \"updateCheckIntervalMinutes\": 15\n"
                  "}\n");
}

TEST(Configuration, WhatIsWritten_IsReadBack) {
    LauncherConfiguration configuration = Sample();
    configuration.productVersion = L"1.0 \" \\ /\t";
    configuration.applicationDirectory = L"sub/日本 b";
    configuration.updateCheckIntervalMinutes = 60;
    EXPECT_EQ(Parsed(Written(configuration)), configuration);
    EXPECT_EQ(Parsed("\xEF\xBB\xBF" + Written(configuration)), configuration);
}

TEST(Configuration, SizeIsBounded) {
    const std::string whole = Written();
    EXPECT_EQ(Refusal(whole + std::string(65536 - whole.size(), ' ')), L"");
    EXPECT_EQ(Refusal(whole + std::string(65537 - whole.size(), ' ')), kEmptyOrTooLarge);
    EXPECT_EQ(Refusal(""), kEmptyOrTooLarge);
}

TEST(Configuration, InvalidUtf8_IsRefused) {
    EXPECT_EQ(Refusal(Written() + "\xFF"), kNotUtf8);
    EXPECT_EQ(Refusal("\xEF\xBB\xBF"), kNotUtf8);
}

TEST(Configuration, SchemaMustBeOne) {
    for (const char* schema : {"2", "0", "-1", "\"1\"", "null", "11"}) {
        EXPECT_EQ(Refusal(Replaced(Written(), "\"schemaVersion\": 1", std::string("\"schemaVersion\": ") + schema)),
                  kFieldMissing)
            << schema;
    }
    for (const char* schema : {"1.9", "+1", "1x", "001"}) {
        EXPECT_EQ(Refusal(Replaced(Written(), "\"schemaVersion\": 1", std::string("\"schemaVersion\": ") + schema)),
                  L"")
            << schema;
    }
    EXPECT_EQ(Refusal(Replaced(Written(), "\"schemaVersion\"", "\"schemaversion\"")), kFieldMissing);
}

TEST(Configuration, ApplicationFields_AreRequiredStrings) {
    for (const char* key : {"applicationDirectory", "applicationExecutable"}) {
        EXPECT_EQ(Refusal(Replaced(Written(), std::string("\"") + key, "\"x")), kFieldMissing) << key;
    }
    EXPECT_EQ(Refusal(Replaced(Written(), "\"Velmora Pine Relay.exe\"", "7")), kFieldMissing);
    EXPECT_EQ(Refusal(Replaced(Written(), "\"Velmora Pine Relay.exe\"", "\"a\\u0041.exe\"")), kFieldMissing);
    EXPECT_EQ(Refusal(Replaced(Written(), "\"Velmora Pine Relay.exe\"", "\"a\\q.exe\"")), kFieldMissing);
    EXPECT_EQ(Refusal("{\"schemaVersion\": 1, \"applicationDirectory\": \"a\", \"applicationExecutable\": \"b"),
              kFieldMissing);
}

TEST(Configuration, UnsafePrograms_AreRefused) {
    for (const char* executable :
         {"sub/a.exe", "sub\\\\a.exe", "..", ".", "", "C:a.exe", "a.exe:stream", "\\\\a.exe"}) {
        EXPECT_EQ(Refusal(Replaced(Written(), "\"Velmora Pine Relay.exe\"", std::string("\"") + executable + "\"")),
                  kUnsafePath)
            << executable;
    }
    for (const char* folder : {"..", "a/../b", "a//b", "/a", "C:\\\\a", "a/", ""}) {
        EXPECT_EQ(Refusal(Replaced(Written(), "\"applicationDirectory\": \"Velmora Pine Relay\"",
                                   std::string("\"applicationDirectory\": \"") + folder + "\"")),
                  kUnsafePath)
            << folder;
    }
    EXPECT_EQ(Refusal(Replaced(Written(), "\"applicationDirectory\": \"Velmora Pine Relay\"",
                               "\"applicationDirectory\": \"a/b\"")),
              L"");
}

TEST(Configuration, Interval_FallsBackTo15) {
    const auto interval = [](const char* value) {
        return Parsed(Replaced(Written(), "\"updateCheckIntervalMinutes\": 15",
                               std::string("\"updateCheckIntervalMinutes\": ") + value))
            .updateCheckIntervalMinutes;
    };
    EXPECT_EQ(interval("0"), 15);
    EXPECT_EQ(interval("-5"), 15);
    EXPECT_EQ(interval("43201"), 15);
    EXPECT_EQ(interval("43200"), 43200);
    EXPECT_EQ(interval("1"), 1);
    EXPECT_EQ(interval("\"60\""), 15);
    EXPECT_EQ(interval("99999999999999999999"), 15);
    EXPECT_EQ(Parsed(Replaced(Written(), "updateCheckIntervalMinutes", "x")).updateCheckIntervalMinutes, 15);
}

TEST(Configuration, OptionalTexts_AreForgiving) {
    EXPECT_EQ(Parsed(Replaced(Written(), "\"1.2.3.4\"", "\"1.2\\q3.4\"")).productVersion, L"1.2");
    EXPECT_EQ(Parsed(Replaced(Written(), "\"1.2.3.4\"", "7")).productVersion, L"");
    EXPECT_EQ(Parsed(Replaced(Written(), "\"productVersion\"", "\"x\"")).productVersion, L"");
    EXPECT_EQ(Parsed(Replaced(Written(), "\"launcherVersion\"", "\"x\"")).launcherVersion, L"");
    EXPECT_EQ(Parsed(Replaced(Written(), "\"updateManifestUrl\"", "\"x\"")).updateManifestUrl, L"");
    const std::string cutOff =
        "{\"schemaVersion\": 1, \"applicationDirectory\": \"a\", \"applicationExecutable\": \"b\", \"productVersion\": "
        "\"1.0";
    EXPECT_EQ(Parsed(cutOff).productVersion, L"1.0");
}

TEST(FlatReader, FindsTheFirstQuotedKeyAnywhere) {
    std::size_t at = 0;
    EXPECT_TRUE(FlatFindValue(L"{\"a\": {\"key\" \t: \r\n 7}, \"key\": 8}", L"key", at));
    EXPECT_EQ(at, 19u);
    EXPECT_TRUE(FlatFindValue(L"\"x \"key\" y\" : 1", L"key", at));
    EXPECT_FALSE(FlatFindValue(L"{\"key\"}", L"key", at));
    EXPECT_FALSE(FlatFindValue(L"{\"key\":  ", L"key", at));
    EXPECT_FALSE(FlatFindValue(L"{key: 1}", L"key", at));
    EXPECT_FALSE(FlatFindValue(L"", L"key", at));
}

TEST(FlatReader, KnowsEightEscapes) {
    std::wstring value;
    EXPECT_TRUE(FlatReadString(L"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", 0, value));
    EXPECT_EQ(value, L"\"\\/\b\f\n\r\t");
    EXPECT_FALSE(FlatReadString(L"\"ab\\u0041\"", 0, value));
    EXPECT_EQ(value, L"ab");
    EXPECT_FALSE(FlatReadString(L"\"ab\\", 0, value));
    EXPECT_FALSE(FlatReadString(L"x", 0, value));
    EXPECT_FALSE(FlatReadString(L"", 0, value));
}

TEST(FlatReader, NumbersSaturate) {
    const auto read = [](const wchar_t* text) {
        std::int32_t value = 4711;
        return FlatReadInt(text, 0, value) ? value : 4711;
    };
    EXPECT_EQ(read(L"42x"), 42);
    EXPECT_EQ(read(L"-7"), -7);
    EXPECT_EQ(read(L"+7"), 7);
    EXPECT_EQ(read(L" \t\n\v\f\r8"), 8);
    EXPECT_EQ(read(L"2147483647"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(read(L"2147483648"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(read(L"-2147483648"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(read(L"-99999999999999999999999"), std::numeric_limits<std::int32_t>::min());
    for (const wchar_t* text : {L"", L"-", L"+", L"x", L"\"1\"", L" ", L"- 1", L"+-1"})
        EXPECT_EQ(read(text), 4711) << text;
}

// --- The launcher's own version

/// The text with 2.0.0.7 for the launcher's version, or nothing where it is refused.
std::wstring WithVersion2007(std::wstring_view text) {
    std::wstring replaced;
    return ReplaceLauncherVersion(text, L"2.0.0.7", replaced) ? replaced : std::wstring();
}

TEST(ConfigurationVersion, IsReplacedAndNothingElse) {
    LauncherConfiguration expected = Sample();
    expected.launcherVersion = L"2.0.0.7";
    EXPECT_EQ(WithVersion2007(RenderLauncherConfiguration(Sample())), RenderLauncherConfiguration(expected));
}

TEST(ConfigurationVersion, EveryUnitAroundItStays) {
    const std::wstring before =
        L" \uFEFF\t{ \"x\":[1 ,\r\n2], \"日本\": \"\\u00e9\\q\", \"launcherVersion\"\r\n\t :\n  ";
    const std::wstring after = L"\t,\"launcherVersions\" : \"1.0.0.0\",}}\r\r\n \U0001F3B5";
    EXPECT_EQ(WithVersion2007(before + L"\"1.0.0.0\"" + after), before + L"\"2.0.0.7\"" + after);
}

TEST(ConfigurationVersion, WhateverTheOldStringHeld_IsReplacedWhole) {
    struct Row {
        const wchar_t* text;
        const wchar_t* replaced;
    };
    for (const Row& row : {
             Row{L"\"launcherVersion\":\"\"", L"\"launcherVersion\":\"2.0.0.7\""},
             Row{L"\"launcherVersion\":\"2.0.0.7\"", L"\"launcherVersion\":\"2.0.0.7\""},
             Row{L"\"launcherVersion\":\"no version, 日本: at all\"x", L"\"launcherVersion\":\"2.0.0.7\"x"},
             Row{L"\"launcherVersion\":\"\\\"\"x", L"\"launcherVersion\":\"2.0.0.7\"x"},
             Row{L"\"launcherVersion\":\"a\\\"b\\\\\"x\"y\"", L"\"launcherVersion\":\"2.0.0.7\"x\"y\""},
             Row{L"\"launcherVersion\":\"\\\\\\/\\b\\f\\n\\r\\t\"x", L"\"launcherVersion\":\"2.0.0.7\"x"},
         }) {
        EXPECT_EQ(WithVersion2007(row.text), row.replaced) << platform::EncodeUtf8(row.text);
    }
}

TEST(ConfigurationVersion, FirstQuotedKeyWins) {
    EXPECT_EQ(WithVersion2007(L"{\"launcherVersion\": \"1\", \"launcherVersion\": \"1\"}"),
              L"{\"launcherVersion\": \"2.0.0.7\", \"launcherVersion\": \"1\"}");
    EXPECT_EQ(WithVersion2007(L"{\"a\": {\"launcherVersion\": \"1\"}, \"launcherVersion\": \"1\"}"),
              L"{\"a\": {\"launcherVersion\": \"2.0.0.7\"}, \"launcherVersion\": \"1\"}");
    EXPECT_EQ(WithVersion2007(L"{\"launcherVersion\": 1, \"launcherVersion\": \"1\"}"), L"")
        << "the second is no way out for the first";
}

TEST(ConfigurationVersion, KeyOfOtherLettersOrWithoutQuotes_IsNoKey) {
    for (const wchar_t* text :
         {L"{\"LauncherVersion\": \"1\"}", L"{\"launcherVersion \": \"1\"}", L"{\"xlauncherVersion\": \"1\"}",
          L"{launcherVersion: \"1\"}", L"{'launcherVersion': \"1\"}", L"{}", L""}) {
        EXPECT_EQ(WithVersion2007(text), L"") << platform::EncodeUtf8(text);
    }
}

TEST(ConfigurationVersion, ValueThatIsNoWholeString_IsRefused) {
    for (const wchar_t* value :
         {L"", L" \"1\"", L":", L": ", L": 1", L": null", L": {\"a\": \"1\"}", L": [\"1\"]", L": x\"1\"", L": \"",
          L": \"1", L": \"1\\", L": \"1\\\"", L": \"1\\u0031\"", L": \"1\\q\", \"b\": \"2\""}) {
        EXPECT_EQ(WithVersion2007(std::wstring(L"{\"launcherVersion\"") + value), L"") << platform::EncodeUtf8(value);
    }
}

/// The text may end at any unit: what is cut off before the string's end is refused, and never read past.
TEST(ConfigurationVersion, TextCutAnywhere_IsReplacedOnlyWithAWholeString) {
    const std::wstring text = L"{\"launcherVersion\" : \"1.\\\"\\\\0\", \"b\": 2}";
    const std::size_t end = text.find(L"\", \"b\"") + 1;
    for (std::size_t length = 0; length <= text.size(); ++length) {
        const std::wstring cut = text.substr(0, length);
        const std::wstring expected =
            length < end ? std::wstring() : L"{\"launcherVersion\" : \"2.0.0.7\"" + cut.substr(end);
        EXPECT_EQ(WithVersion2007(cut), expected) << length;
    }
}

TEST(DottedVersion, HasFourNumbersUpTo65535) {
    for (const wchar_t* text : {L"0.0.0.0", L"1.2.3.4", L"65535.65535.65535.65535", L"01.002.0003.00004"}) {
        EXPECT_TRUE(IsDottedVersion(text)) << text;
    }
    for (const wchar_t* text : {L"", L"1.2.3", L"1.2.3.4.5", L"1.2.3.", L".1.2.3", L"1..2.3", L"1.2.3.65536",
                                L"1.2.3.-4", L"1.2.3.4 ", L"a.b.c.d"}) {
        EXPECT_FALSE(IsDottedVersion(text)) << text;
    }
}

}  // namespace
}  // namespace launcher_shell
