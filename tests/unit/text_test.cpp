#include "platform/text.h"

#include <gtest/gtest.h>

#include <string>

namespace platform {
namespace {

TEST(Text_Utf8, PlainTextsRoundTrip) {
    for (const std::string& bytes :
         {std::string(), std::string("abc"), std::string("\xC3\xA9"), std::string("\xE6\x97\xA5"),
          std::string("\xF0\x9F\x8E\xB5"), std::string("a\0b", 3), std::string("\xEF\xBB\xBF")}) {
        const auto text = DecodeUtf8(bytes);
        ASSERT_TRUE(text.has_value());
        EXPECT_EQ(EncodeUtf8(*text), bytes);
    }
}

TEST(Text_Utf8, SupplementaryCharacter_IsASurrogatePair) {
    const auto text = DecodeUtf8("\xF0\x9F\x8E\xB5");
    ASSERT_TRUE(text.has_value());
    ASSERT_EQ(text->size(), 2u);
    EXPECT_EQ(static_cast<unsigned>((*text)[0]), 0xD83Cu);
    EXPECT_EQ(static_cast<unsigned>((*text)[1]), 0xDFB5u);
}

TEST(Text_Utf8, InvalidSequences_AreRefused) {
    for (const char* bytes :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xE6\x97",
          "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x80\x80\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF0\x9F\x8E",
          "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFE", "\xFF"}) {
        EXPECT_FALSE(DecodeUtf8(bytes).has_value()) << testing::PrintToString(std::string(bytes));
        EXPECT_FALSE(DecodeUtf8(std::string("ok ") + bytes).has_value()) << testing::PrintToString(std::string(bytes));
    }
}

TEST(Text_Utf8, EdgesOfEveryLength_AreAccepted) {
    for (const char* bytes : {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                              "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        const auto text = DecodeUtf8(bytes);
        ASSERT_TRUE(text.has_value()) << testing::PrintToString(std::string(bytes));
        EXPECT_EQ(EncodeUtf8(*text), bytes);
    }
}

TEST(Text_Utf8, UnpairedSurrogate_IsWrittenAsTheReplacement) {
    const std::wstring high(1, static_cast<wchar_t>(0xD800));
    const std::wstring low(1, static_cast<wchar_t>(0xDC00));
    EXPECT_EQ(EncodeUtf8(high), "\xEF\xBF\xBD");
    EXPECT_EQ(EncodeUtf8(low), "\xEF\xBF\xBD");
    EXPECT_EQ(EncodeUtf8(high + L"x"), "\xEF\xBF\xBDx");
    EXPECT_EQ(EncodeUtf8(low + high), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Text_Case, FoldsAsciiOnly) {
    EXPECT_TRUE(EqualsIgnoringCase(L"ABC\\z", L"abc\\Z"));
    EXPECT_FALSE(EqualsIgnoringCase(L"É", L"é"));
    EXPECT_FALSE(EqualsIgnoringCase(L"abc", L"abcd"));
    EXPECT_EQ(ToLower(L"AZ[`@É"), L"az[`@É");
}

TEST(Text_Case, PrefixAndSuffix) {
    EXPECT_TRUE(StartsWithIgnoringCase(L"STAGING-1", L"staging-"));
    EXPECT_FALSE(StartsWithIgnoringCase(L"stag", L"staging-"));
    EXPECT_TRUE(EndsWithIgnoringCase(L"a.VprTheme", L".vprtheme"));
    EXPECT_FALSE(EndsWithIgnoringCase(L"theme", L".vprtheme"));
}

TEST(Text_Paths, AreCutAtBothSeparators) {
    EXPECT_EQ(SplitPath(L"a\\b/c"), (std::vector<std::wstring_view>{L"a", L"b", L"c"}));
    EXPECT_EQ(SplitPath(L"\\a/"), (std::vector<std::wstring_view>{L"", L"a", L""}));
    EXPECT_EQ(SplitPath(L""), (std::vector<std::wstring_view>{L""}));
    EXPECT_EQ(ParentPath(L"C:\\x/y"), L"C:\\x");
    EXPECT_EQ(ParentPath(L"name"), std::nullopt);
    EXPECT_EQ(LastPathComponent(L"C:\\x/y"), L"y");
    EXPECT_EQ(LastPathComponent(L"name"), L"name");
    EXPECT_EQ(WithBackslashes(L"a/b\\c/"), L"a\\b\\c\\");
}

}  // namespace
}  // namespace platform
