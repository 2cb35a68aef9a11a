#include "update/manifest/json_reader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cwchar>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_update {
namespace {

using namespace std::string_view_literals;

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

/// The text from the value on, or "(none)".
std::wstring ValueOf(std::wstring_view text, std::wstring_view key) {
    std::uint64_t position = 0;
    if (FindTopLevelValue(text, key, position)) {
        EXPECT_LT(position, text.size());
        return std::wstring(text.substr(position));
    }
    EXPECT_EQ(position, kNotFound);
    return L"(none)";
}

/// The decoded string at the start of `text`, or "(none)".
std::wstring StringOf(std::wstring_view text) {
    std::wstring value = L"stale";
    std::uint64_t next = 0;
    if (!ParseJsonStringAt(text, 0, value, next)) return L"(none)";
    EXPECT_LE(next, text.size());
    EXPECT_EQ(text[next - 1], L'"');
    return value;
}

std::string Shown(std::wstring_view text) {
    return platform::EncodeUtf8(text.substr(0, 60));
}

TEST(JsonDecode, ByteOrderMark_IsSkippedAndNotRequired) {
    std::wstring text;
    ASSERT_TRUE(DecodeUtf8Document("\xEF\xBB\xBF{}", text));
    EXPECT_EQ(text, L"{}");
    ASSERT_TRUE(DecodeUtf8Document("{}", text));
    EXPECT_EQ(text, L"{}");
    ASSERT_TRUE(DecodeUtf8Document("\xEF\xBB\xBF\xEF\xBB\xBF", text)) << "only the first is a mark";
    EXPECT_EQ(text, L"\xFEFF");
}

TEST(JsonDecode, NothingToRead_IsRefused) {
    std::wstring text = L"stale";
    EXPECT_FALSE(DecodeUtf8Document("", text));
    EXPECT_FALSE(DecodeUtf8Document("\xEF\xBB\xBF", text));
}

TEST(JsonDecode, InvalidBytes_AreRefused) {
    std::wstring text;
    for (const char* bytes :
         {"\xFF\xFE{", "\xFE\xFF{", "\xEF\xBB", "{\"a\":\"\xC3\"}", "{\x80}", "\xED\xA0\x80", "\xC0\x80"}) {
        EXPECT_FALSE(DecodeUtf8Document(bytes, text)) << testing::PrintToString(std::string(bytes));
    }
}

TEST(JsonDecode, NulAndSupplementary_AreKept) {
    std::wstring text;
    ASSERT_TRUE(DecodeUtf8Document("a\0b\xF0\x9F\x8E\xB5"sv, text));
    ASSERT_EQ(text.size(), 5u);
    EXPECT_EQ(text.substr(0, 3), L"a\0b"sv);
    EXPECT_EQ(static_cast<unsigned>(text[3]), 0xD83Cu);
    EXPECT_EQ(static_cast<unsigned>(text[4]), 0xDFB5u);
}

TEST(JsonEncode, EmptyText_GivesNoBytes) {
    EXPECT_EQ(EncodeUtf8(L""), "");
}

TEST(JsonFind, Table) {
    struct Row {
        std::wstring_view text;
        std::wstring_view value;  // of the key "a"
    };
    constexpr Row kRows[] = {
        // Where a value starts.
        {L"{\"a\":1}", L"1}"},
        {L"{\"a\" \t\r\n:\n\r\t 1}", L"1}"},
        {L"  {\"b\":0,\"a\":1}", L"1}"},
        {L"{\"a\":}", L"}"},
        {L"{\"a\":1", L"1"},
        // The first key wins; keys are compared unescaped, whole and in their case.
        {L"{\"a\":1,\"a\":2}", L"1,\"a\":2}"},
        {L"{\"\\u0061\":1}", L"1}"},
        {L"{\"A\":1}", L"(none)"},
        {L"{\"aa\":1}", L"(none)"},
        {L"{\"\":1}", L"(none)"},
        {L"{\"a\\u0000\":1}", L"(none)"},
        // Only the top level is seen.
        {L"{\"b\":{\"a\":1}}", L"(none)"},
        {L"{\"b\":{\"a\":1},\"a\":2}", L"2}"},
        {L"{\"b\":[\"a\",1],\"a\":2}", L"2}"},
        {L"{\"b\":[{\"a\":1}]}", L"(none)"},
        {L"[{\"a\":1}]", L"(none)"},
        {L"[\"a\":1]", L"(none)"},
        {L"\"a\":1", L"(none)"},
        {L"{{\"a\":1}}", L"(none)"},
        {L"{[\"a\":1]}", L"(none)"},
        // Counting only: what closes too much is no error.
        {L"}{{\"a\":1", L"1"},
        {L"][{\"a\":1", L"1"},
        {L"}{\"a\":1", L"(none)"},
        {L"]{\"a\":1", L"(none)"},
        {L"]{\"b\":[0,\"a\":1", L"1"},
        {L"{}{\"a\":1}", L"1}"},
        {L"{}\"x\"{\"a\":1}", L"1}"},
        {L"junk {\"a\":1} junk", L"1} junk"},
        {L"{\"a\":1]]}}}{[", L"1]]}}}{["},
        // Strings keep their brackets and braces to themselves.
        {L"{\"b\":\"}{\",\"a\":1}", L"1}"},
        {L"{\"b\":\"}\",\"a\":1}", L"1}"},
        {L"{\"b\":\"[[[\",\"a\":1}", L"1}"},
        {L"{\"b\":\"\\\"}\",\"a\":1}", L"1}"},
        // A value that equals the key is no key.
        {L"{\"b\":\"a\"}", L"(none)"},
        {L"{\"b\":\"a\",\"a\":1}", L"1}"},
        {L"{\"a\",\"a\":1}", L"1}"},
        {L"{\"b\":\"a\":1}", L"1}"},
        // Nothing behind the colon, or no colon.
        {L"{\"a\":", L"(none)"},
        {L"{\"a\": \t\r\n", L"(none)"},
        {L"{\"a\"", L"(none)"},
        {L"{\"a\" ", L"(none)"},
        {L"{\"a\"=1}", L"(none)"},
        {L"{\"a\"\v:1}", L"(none)"},
        // A string that cannot be read hides what follows it, and only that.
        {L"{\"b\":\"\\q\",\"a\":1}", L"(none)"},
        {L"{\"a\":1,\"b\":\"\\q\"}", L"1,\"b\":\"\\q\"}"},
        {L"{\"a\":\"\\q\"}", L"\"\\q\"}"},
        {L"{\"b\":{\"c\":\"\\uD800\"},\"a\":1}", L"(none)"},
        {L"{\"b\":\"\\q\\\"\",\"a\":1}", L"(none)"},
        {L"{\"b\":\"open,\"a\":1}", L"(none)"},
        // Nothing at all.
        {L"", L"(none)"},
        {L" ", L"(none)"},
        {L"{", L"(none)"},
        {L"\"", L"(none)"},
        {L"null", L"(none)"},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(ValueOf(row.text, L"a"), row.value) << Shown(row.text);
    }
}

TEST(JsonFind, VersionIsSeenAtTheTopOnly) {
    EXPECT_EQ(ValueOf(L"{\"x\":{\"version\":\"n\"},\"version\":\"t\"}", L"version"), L"\"t\"}");
    EXPECT_EQ(ValueOf(L"{\"x\":{\"version\":\"n\"}}", L"version"), L"(none)");
}

TEST(JsonFind, KeysMayBeEmptyOrHoldNul) {
    EXPECT_EQ(ValueOf(L"{\"\":1}", L""), L"1}");
    EXPECT_EQ(ValueOf(L"{\"x\\u0000y\":1}", L"x\0y"sv), L"1}");
    EXPECT_EQ(ValueOf(L"{\"x\0y\":1}"sv, L"x\0y"sv), L"1}");
}

TEST(JsonString, Table) {
    struct Row {
        std::wstring_view text;
        std::wstring_view value;
    };
    constexpr Row kRows[] = {
        {L"\"\"", L""},
        {L"\"abc\" tail", L"abc"},
        {L"\"\\\"\\/\\\\\\b\\f\\n\\r\\t\"", L"\"/\\\b\f\n\r\t"},
        {L"\"a\nb\tc\x01\"", L"a\nb\tc\x01"},
        {L"\"\\u0041\\u00e9\\u00E9\\uFFFF\"", L"A\xE9\xE9\xFFFF"},
        {L"\"a\\u0000b\"", L"a\0b"sv},
        {L"\"\\u00410\"", L"A0"},
        {L"\"日本\"", L"日本"},
        // Refused.
        {L"", L"(none)"},
        {L"abc", L"(none)"},
        {L" \"abc\"", L"(none)"},
        {L"'abc'", L"(none)"},
        {L"\"", L"(none)"},
        {L"\"abc", L"(none)"},
        {L"\"abc\\", L"(none)"},
        {L"\"abc\\\"", L"(none)"},
        {L"\"\\q\"", L"(none)"},
        {L"\"\\N\"", L"(none)"},
        {L"\"\\'\"", L"(none)"},
        {L"\"\\\n\"", L"(none)"},
        {L"\"\\\0\""sv, L"(none)"},
        {L"\"\\U0041\"", L"(none)"},
        {L"\"\\u\"", L"(none)"},
        {L"\"\\u004\"", L"(none)"},
        {L"\"\\u004g\"", L"(none)"},
        {L"\"\\u+041\"", L"(none)"},
        {L"\"\\u 041\"", L"(none)"},
        {L"\"\\u0041", L"(none)"},
        {L"\"\\u004", L"(none)"},
        {L"\"\\u", L"(none)"},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(StringOf(row.text), row.value) << Shown(row.text);
    }
}

TEST(JsonString, EscapedSurrogates) {
    const std::wstring pair = StringOf(L"\"\\uD83C\\udfb5\"");
    ASSERT_EQ(pair.size(), 2u);
    EXPECT_EQ(static_cast<unsigned>(pair[0]), 0xD83Cu);
    EXPECT_EQ(static_cast<unsigned>(pair[1]), 0xDFB5u);
    for (const wchar_t* text : {L"\"\\uD800\\uDC00\"", L"\"\\uDBFF\\uDFFF\""})
        EXPECT_EQ(StringOf(text).size(), 2u);
    for (const wchar_t* text : {L"\"\\uD7FF\"", L"\"\\uE000\""})
        EXPECT_EQ(StringOf(text).size(), 1u) << Shown(text);
    for (const wchar_t* text :
         {L"\"\\uD800\"", L"\"\\uDBFF\"", L"\"\\uDC00\"", L"\"\\uDFFF\"", L"\"\\uD800x\"", L"\"\\uD800\\n\"",
          L"\"\\uD800\\u0041\"", L"\"\\uD800\\uD800\"", L"\"\\uD800\\uE000\"", L"\"\\uD800\\uDBFF\"",
          L"\"\\uD800 \\uDC00\"", L"\"\\uDC00\\uD800\"", L"\"\\uD800\\uDC0\"", L"\"\\uD800\\uDC00\\uDC00\"",
          L"\"\\uD800\\", L"\"\\uD800\\u", L"\"\\uD800"}) {
        EXPECT_EQ(StringOf(text), L"(none)") << Shown(text);
    }
}

TEST(JsonString, RawSurrogatesAreCopied) {
    const std::wstring lone(1, static_cast<wchar_t>(0xDC00));
    EXPECT_EQ(StringOf(L"\"" + lone + L"\""), lone);
}

TEST(JsonString, NextIsBehindTheClosingQuote) {
    std::wstring value;
    std::uint64_t next = 0;
    ASSERT_TRUE(ParseJsonStringAt(L"xx\"a\\\"b\"yy", 2, value, next));
    EXPECT_EQ(value, L"a\"b");
    EXPECT_EQ(next, 8u);
    ASSERT_TRUE(ParseJsonStringAt(L"\"\"", 0, value, next));
    EXPECT_EQ(next, 2u);
}

TEST(JsonString, PositionOutsideTheText_IsRefused) {
    std::wstring value;
    std::uint64_t next = 0;
    for (const std::uint64_t position : {std::uint64_t{3}, std::uint64_t{4}, kNotFound - 1, kNotFound}) {
        EXPECT_FALSE(ParseJsonStringAt(L"\"a\"", position, value, next)) << position;
    }
}

TEST(JsonString, ReadByKey) {
    std::wstring value;
    ASSERT_TRUE(ReadJsonString(L"{\"a\": \"x\\ty\"}", L"a", value));
    EXPECT_EQ(value, L"x\ty");
    for (const wchar_t* text :
         {L"{}", L"{\"a\":1}", L"{\"a\":null}", L"{\"a\":[\"x\"]}", L"{\"a\":\"x", L"{\"a\":\"\\q\"}"}) {
        EXPECT_FALSE(ReadJsonString(text, L"a", value)) << Shown(text);
    }
}

TEST(JsonBool, Table) {
    struct Row {
        const wchar_t* text;
        int value;  // -1: refused
    };
    constexpr Row kRows[] = {
        {L"{\"a\":true}", 1},         {L"{\"a\":false}", 0},      {L"{\"a\":true,", 1},      {L"{\"a\":false]", 0},
        {L"{\"a\": true \r\n\t}", 1}, {L"{\"a\":true", 1},        {L"{\"a\":false", 0},      {L"{\"a\":true \n", 1},
        {L"{\"a\":truex}", -1},       {L"{\"a\":falsex}", -1},    {L"{\"a\":true x}", -1},   {L"{\"a\":true\v}", -1},
        {L"{\"a\":True}", -1},        {L"{\"a\":TRUE}", -1},      {L"{\"a\":\"true\"}", -1}, {L"{\"a\":1}", -1},
        {L"{\"a\":null}", -1},        {L"{\"a\":tru}", -1},       {L"{\"a\":tru", -1},       {L"{\"a\":fals", -1},
        {L"{\"a\":truefalse}", -1},   {L"{\"a\":true\"b\"}", -1}, {L"{\"b\":true}", -1},     {L"{\"a\":true:", -1},
    };
    for (const Row& row : kRows) {
        bool value = row.value == 0;
        EXPECT_EQ(ReadJsonBool(row.text, L"a", value), row.value >= 0) << Shown(row.text);
        if (row.value >= 0) {
            EXPECT_EQ(value, row.value == 1) << Shown(row.text);
        }
    }
}

struct NumberRow {
    const wchar_t* value;
    bool strict;
    bool loose;
    std::uint64_t number;
};

constexpr NumberRow kNumberRows[] = {
    {L"0", true, true, 0},
    {L"7", true, true, 7},
    {L"007", true, true, 7},
    {L" 42 \t\r\n", true, true, 42},
    {L"18446744073709551615", true, true, kLargest},
    {L"18446744073709551616", true, true, kLargest},
    {L"99999999999999999999999999", true, true, kLargest},
    {L"000000000000000000000000001", true, true, 1},
    // A fraction, an exponent, letters: only the loose rule looks away.
    {L"1.9", false, true, 1},
    {L"1e3", false, true, 1},
    {L"12x", false, true, 12},
    {L"12 x", false, true, 12},
    {L"1\"", false, true, 1},
    {L"1\v", false, true, 1},
    {L"0x10", false, true, 0},
    // Signs and the library's own blanks.
    {L"+1", false, true, 1},
    {L"-0", false, true, 0},
    {L"-1", false, true, kLargest},
    {L"-18446744073709551615", false, true, 1},
    {L"-18446744073709551616", false, true, kLargest},
    {L"\v\f 5", false, true, 5},
    // Nothing that either takes.
    {L"\"1\"", false, false, 0},
    {L"null", false, false, 0},
    {L"true", false, false, 0},
    {L".5", false, false, 0},
    {L"-", false, false, 0},
    {L"+-1", false, false, 0},
    {L"- 1", false, false, 0},
    {L"x1", false, false, 0},
    {L"\u0661", false, false, 0},
    {L"\uFF11", false, false, 0},
    {L"\u00A01", false, false, 0},
    {L"\u30001", false, false, 0},
    {L"[1]", false, false, 0},
};

TEST(JsonNumber, StrictAndLoose) {
    for (const NumberRow& row : kNumberRows) {
        const std::wstring text = std::wstring(L"{\"a\":") + row.value + L"}";
        SCOPED_TRACE(Shown(text));
        std::uint64_t number = 99;
        ASSERT_EQ(ReadJsonUnsigned(text, L"a", number), row.strict);
        if (row.strict) {
            EXPECT_EQ(number, row.number);
        }
        number = 99;
        ASSERT_EQ(ReadJsonUnsignedLoose(text, L"a", number), row.loose);
        if (row.loose) {
            EXPECT_EQ(number, row.number);
        }
    }
}

TEST(JsonNumber, StrictNumber_EndsAtADelimiterOrTheEnd) {
    std::uint64_t number = 0;
    for (const wchar_t* text :
         {L"{\"a\":5,", L"{\"a\":5}", L"{\"a\":5]", L"{\"a\":5", L"{\"a\":5 \t", L"{\"a\": 5 ,"}) {
        EXPECT_TRUE(ReadJsonUnsigned(text, L"a", number)) << Shown(text);
        EXPECT_EQ(number, 5u);
    }
    for (const wchar_t* text : {L"{\"b\":5}", L"{\"a\":5:", L"{\"a\":5{", L"{\"a\":5[", L"{\"a\":5 5}", L"{\"a\":"}) {
        EXPECT_FALSE(ReadJsonUnsigned(text, L"a", number)) << Shown(text);
    }
}

/// Holds the conversion against the library's.
void ExpectAsLibrary(const std::wstring& text) {
    wchar_t* end = nullptr;
    const std::uint64_t expected = std::wcstoull(text.c_str(), &end, 10);
    std::uint64_t next = kNotFound;
    ASSERT_EQ(ConvertUnsigned(text, 0, next), expected) << Shown(text);
    ASSERT_EQ(next, static_cast<std::uint64_t>(end - text.c_str())) << Shown(text);
}

TEST(JsonNumber, ConversionIsTheLibrarys) {
    constexpr std::wstring_view kAlphabet = L" \v+-019.";
    constexpr unsigned kMaxUnits = 5;
    std::vector<std::wstring> texts = {L""};
    for (std::size_t at = 0; at < texts.size(); ++at) {
        const std::wstring text = texts[at];
        ExpectAsLibrary(text);
        for (const wchar_t unit : text.size() < kMaxUnits ? kAlphabet : L""sv)
            texts.push_back(text + unit);
    }
    EXPECT_GT(texts.size(), 30000u);
}

TEST(JsonNumber, ConversionIsTheLibrarys_AroundTheLargest) {
    for (const wchar_t* digits : {L"1844674407370955160", L"1844674407370955161", L"1844674407370955162",
                                  L"9999999999999999999", L"922337203685477580"}) {
        for (const wchar_t* last : {L"", L"0", L"1", L"4", L"5", L"6", L"7", L"9", L"50", L"66"}) {
            for (const wchar_t* sign : {L"", L"+", L"-", L" -", L"\n\t\r\f+"}) {
                for (const wchar_t* tail : {L"", L" ", L"x", L".5"}) {
                    ExpectAsLibrary(std::wstring(sign) + digits + last + tail);
                }
            }
        }
    }
}

TEST(JsonNumber, ConversionStartsAtItsPosition) {
    std::uint64_t next = 0;
    EXPECT_EQ(ConvertUnsigned(L"12345", 2, next), 345u);
    EXPECT_EQ(next, 5u);
    EXPECT_EQ(ConvertUnsigned(L"12345", 5, next), 0u);
    EXPECT_EQ(next, 5u);
    EXPECT_EQ(ConvertUnsigned(L"12345", kNotFound, next), 0u);
    EXPECT_EQ(next, kNotFound);
}

using Objects = std::vector<std::wstring>;

constexpr const wchar_t* kRefused = L"(refused)";

Objects StrictObjects(std::wstring_view text) {
    Objects objects = {L"stale"};
    return ExtractObjectArrayAt(text, 0, objects) ? objects : Objects{kRefused};
}

Objects LenientObjects(std::wstring_view array) {
    Objects objects = {L"stale"};
    return ExtractObjectArrayByKey(std::wstring(L"{\"a\":").append(array), L"a", objects) ? objects : Objects{kRefused};
}

TEST(JsonObjectArray, BothWalks_CopyOutWholeObjects) {
    struct Row {
        const wchar_t* array;
        Objects objects;
    };
    const Row rows[] = {
        {L"[]", {}},
        {L"[ \t\r\n]", {}},
        {L"[{}]", {L"{}"}},
        {L"[{\"x\":1},{\"y\":2}] tail", {L"{\"x\":1}", L"{\"y\":2}"}},
        {L"[{\"x\":{\"y\":{}}}]", {L"{\"x\":{\"y\":{}}}"}},
        {L"[{\"x\":\"}]{[\"}]", {L"{\"x\":\"}]{[\"}"}},
        {L"[{\"x\":\"\\\"}\"}]", {L"{\"x\":\"\\\"}\"}"}},
        {L"[{\"x\":\"\\\\\"},{}]", {L"{\"x\":\"\\\\\"}", L"{}"}},
        {L"[{\"x\":\"\\q\"}]", {L"{\"x\":\"\\q\"}"}},
        {L"[{]]][[}]", {L"{]]][[}"}},
        {L"[,,{},,{},]", {L"{}", L"{}"}},
        {L"[{}{}]", {L"{}", L"{}"}},
        {L"[", {kRefused}},
        {L"[{}", {kRefused}},
        {L"[{},", {kRefused}},
        {L"[{]", {kRefused}},
        {L"[{{}]", {kRefused}},
        {L"[}]", {kRefused}},
        {L"[{}}]", {kRefused}},
        {L"[{\"x}]", {kRefused}},
        {L"[{\"x\\\"}]", {kRefused}},
        {L"[{\"x\\", {kRefused}},
        {L"{}", {kRefused}},
        {L"\"[]\"", {kRefused}},
        {L"x[]", {kRefused}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(StrictObjects(row.array), row.objects) << Shown(row.array);
        EXPECT_EQ(LenientObjects(row.array), row.objects) << Shown(row.array);
    }
}

TEST(JsonObjectArray, OnlyTheLenientWalk_PassesOverWhatStandsBetween) {
    struct Row {
        const wchar_t* array;
        Objects lenient;
    };
    const Row rows[] = {
        {L"[1,{},2]", {L"{}"}},       {L"[null{}x]", {L"{}"}},
        {L"[\"s\",{}]", {L"{}"}},     {L"[\"]\",{},\"}\"]", {L"{}"}},
        {L"[\"\\\"]\",{}]", {L"{}"}}, {L"[\v{}]", {L"{}"}},
        {L"[[{}]", {L"{}"}},          {L"[[1],{}]", {}},
        {L"[:{}]", {L"{}"}},          {L"[\"open,{}]", {kRefused}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(StrictObjects(row.array), Objects{kRefused}) << Shown(row.array);
        EXPECT_EQ(LenientObjects(row.array), row.lenient) << Shown(row.array);
    }
}

TEST(JsonObjectArray, PositionOutsideOrMissingKey_IsRefused) {
    Objects objects;
    EXPECT_FALSE(ExtractObjectArrayAt(L"[]", 2, objects));
    EXPECT_FALSE(ExtractObjectArrayAt(L"[]", kNotFound, objects));
    EXPECT_FALSE(ExtractObjectArrayAt(L"", 0, objects));
    EXPECT_FALSE(ExtractObjectArrayAt(L"x[", 1, objects)) << "the last character";
    EXPECT_FALSE(ExtractObjectArrayByKey(L"{\"b\":[{}]}", L"a", objects));
    EXPECT_FALSE(ExtractObjectArrayByKey(L"{\"a\":[", L"a", objects));
}

TEST(JsonObjectArray, SubDocumentsAreReadLikeWholeOnes) {
    Objects objects;
    ASSERT_TRUE(ExtractObjectArrayAt(L"[{\"n\":{\"a\":1},\"a\":2}]", 0, objects));
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(ValueOf(objects.front(), L"a"), L"2}");
}

TEST(JsonObject, IsCopiedOutWhole) {
    std::wstring object;
    ASSERT_TRUE(ExtractObjectAt(L"xx{\"a\":[{\"b\":\"}\"}]}yy", 2, object));
    EXPECT_EQ(object, L"{\"a\":[{\"b\":\"}\"}]}");
    ASSERT_TRUE(ExtractObjectAt(L"{]]}", 0, object)) << "only braces count";
    EXPECT_EQ(object, L"{]]}");
    for (const wchar_t* text : {L"", L"{", L"{{}", L"{\"}", L"{\"\\\"}", L"[{}]", L" {}", L"null", L"}"}) {
        EXPECT_FALSE(ExtractObjectAt(text, 0, object)) << Shown(text);
    }
    EXPECT_FALSE(ExtractObjectAt(L"{}", 2, object));
    EXPECT_FALSE(ExtractObjectAt(L"{}", kNotFound, object));
}

TEST(JsonStringArray, Table) {
    struct Row {
        const wchar_t* text;
        Objects values;
    };
    const Row rows[] = {
        {L"[]", {}},
        {L"[ \t\r\n]", {}},
        {L"[\"a\"]", {L"a"}},
        {L"[ \"a\" , \"b\" ] tail", {L"a", L"b"}},
        {L"[\"a\",]", {L"a"}},
        {L"[\"a\", ]", {L"a"}},
        {L"[\"\",\"\\n\",\"]\"]", {L"", L"\n", L"]"}},
        {L"[", {kRefused}},
        {L"[ ", {kRefused}},
        {L"[\"a\"", {kRefused}},
        {L"[\"a\" ", {kRefused}},
        {L"[\"a\",", {kRefused}},
        {L"[\"a\", ", {kRefused}},
        {L"[\"a\" \"b\"]", {kRefused}},
        {L"[\"a\",,\"b\"]", {kRefused}},
        {L"[,\"a\"]", {kRefused}},
        {L"[,]", {kRefused}},
        {L"[1]", {kRefused}},
        {L"[\"a\",1]", {kRefused}},
        {L"[\"a\";\"b\"]", {kRefused}},
        {L"[[\"a\"]]", {kRefused}},
        {L"[\"\\q\"]", {kRefused}},
        {L"[\"a]", {kRefused}},
        {L"[\"a\"}", {kRefused}},
        {L"\"a\"", {kRefused}},
        {L"", {kRefused}},
    };
    for (const Row& row : rows) {
        Objects values = {L"stale"};
        const bool read = ParseStringArrayAt(row.text, 0, values);
        EXPECT_EQ(read ? values : Objects{kRefused}, row.values) << Shown(row.text);
    }
    Objects values;
    EXPECT_FALSE(ParseStringArrayAt(L"[]", 2, values));
    EXPECT_FALSE(ParseStringArrayAt(L"[]", kNotFound, values));
    EXPECT_FALSE(ParseStringArrayAt(L"x[", 1, values)) << "the last character";
}

TEST(JsonEscape, TemplateValues) {
    EXPECT_EQ(EscapeJsonText(L""), L"");
    EXPECT_EQ(EscapeJsonText(L"a\tb\nc\rd\"e\\f/g"), L"a\\tb\\nc\\rd\\\"e\\\\f/g");
    EXPECT_EQ(EscapeJsonText(L"\x01\b\f\0日"sv), L"\x01\b\f\0日"sv) << "other control characters stay";
}

TEST(JsonEscape, WholeStrings) {
    EXPECT_EQ(QuoteJsonText(L""), L"\"\"");
    EXPECT_EQ(QuoteJsonText(L"a\"b\\c/d日"), L"\"a\\\"b\\\\c/d日\"");
    EXPECT_EQ(QuoteJsonText(L"\0\x01\t\n\r\x1F\x20\x7F"sv), L"\"\\u0000\\u0001\\u0009\\u000a\\u000d\\u001f\x20\x7F\"");
}

TEST(JsonEscape, BothReadBack) {
    std::wstring all;
    for (unsigned unit = 0; unit < 0x10000; unit += unit < 0x200 ? 1 : 97)
        all.push_back(static_cast<wchar_t>(unit));
    EXPECT_EQ(StringOf(QuoteJsonText(all)), all);
    EXPECT_EQ(StringOf(L"\"" + EscapeJsonText(all) + L"\""), all);
}

/// Every function on `text` as it stands in memory, whatever it makes of it.
void ReadEverything(std::wstring_view text) {
    bool flag = false;
    std::uint64_t number = 0;
    std::wstring value;
    Objects values;
    for (std::uint64_t at = 0; at <= text.size(); ++at) {
        static_cast<void>(ParseJsonStringAt(text, at, value, number));
        static_cast<void>(ConvertUnsigned(text, at, number));
        static_cast<void>(ExtractObjectArrayAt(text, at, values));
        static_cast<void>(ExtractObjectAt(text, at, value));
        static_cast<void>(ParseStringArrayAt(text, at, values));
    }
    for (const wchar_t* key : {L"t", L"n", L"o", L"s", L"z"}) {
        static_cast<void>(ReadJsonString(text, key, value));
        static_cast<void>(ReadJsonBool(text, key, flag));
        static_cast<void>(ReadJsonUnsigned(text, key, number));
        static_cast<void>(ReadJsonUnsignedLoose(text, key, number));
        static_cast<void>(ExtractObjectArrayByKey(text, key, values));
    }
}

/// Each beginning of the document stands alone in memory of exactly its size, without the terminator of a string, so
/// that the sanitizer sees a look beyond it.
TEST(JsonBounds, NothingBehindTheTextIsRead) {
    constexpr std::wstring_view kDocument =
        L"{\"t\" : true ,\"n\": +12 ,\"o\":[{\"x\":\"\\\"}\"} , {}],\"s\":[\"\\uD83C\\uDFB5\", \"\\n\" "
        L",\"\\u0041\"],\"z\":false}";
    for (std::size_t length = 1; length <= kDocument.size(); ++length) {
        const std::vector<wchar_t> exact(kDocument.begin(), kDocument.begin() + static_cast<std::ptrdiff_t>(length));
        ReadEverything({exact.data(), exact.size()});
    }
}

std::wstring Repeated(std::wstring_view piece, std::size_t units) {
    std::wstring text;
    text.reserve(units + piece.size());
    while (text.size() < units)
        text.append(piece);
    return text;
}

/// Half a million units take milliseconds when every unit is looked at a few times, and minutes when a walk starts
/// again at every one of them.
TEST(JsonPace, HostileTexts_TakeLinearTime) {
    constexpr std::size_t kUnits = 512 << 10;
    const std::wstring texts[] = {
        Repeated(L"\"", kUnits),
        Repeated(L"{\"a\"", kUnits),
        L"{" + Repeated(L"\"a\"", kUnits),
        L"{\"a\"" + Repeated(L" ", kUnits),
        L"{" + Repeated(L"\"a\"  ", kUnits),
        Repeated(L"{", kUnits),
        L"[" + Repeated(L"{", kUnits),
        L"[" + Repeated(L"{}", kUnits),
        L"[" + Repeated(L"{\"", kUnits),
        L"[" + Repeated(L"\"\",", kUnits),
        L"[" + Repeated(L"[", kUnits),
        L"\"" + Repeated(L"\\u0000", kUnits),
        L"\"" + Repeated(L"\\", kUnits),
        L"{\"a\":" + Repeated(L"9", kUnits),
        L"{\"a\":" + Repeated(L" ", kUnits),
        L"{\"b\":" + Repeated(L"[", kUnits),
    };
    const auto start = std::chrono::steady_clock::now();
    for (const std::wstring& text : texts) {
        std::uint64_t number = 0;
        bool flag = false;
        std::wstring value;
        Objects objects;
        static_cast<void>(FindTopLevelValue(text, L"z", number));
        static_cast<void>(ParseJsonStringAt(text, 0, value, number));
        static_cast<void>(ReadJsonBool(text, L"a", flag));
        static_cast<void>(ReadJsonUnsigned(text, L"a", number));
        static_cast<void>(ExtractObjectArrayAt(text, 0, objects));
        static_cast<void>(ExtractObjectArrayByKey(L"{\"a\":" + text, L"a", objects));
        static_cast<void>(ExtractObjectAt(text, 0, value));
        static_cast<void>(ParseStringArrayAt(text, 0, objects));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace launcher_update
