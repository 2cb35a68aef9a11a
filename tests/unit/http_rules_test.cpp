#include "download/http_rules.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace launcher_download {
namespace {

const std::wstring kHash(64, L'a');

TEST(HttpRules_LowerHexSha256, AllSixteenDigits_AreTaken) {
    EXPECT_TRUE(IsLowerHexSha256(L"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"));
}

TEST(HttpRules_LowerHexSha256, AnyOtherLength_IsRefused) {
    EXPECT_FALSE(IsLowerHexSha256(L""));
    EXPECT_FALSE(IsLowerHexSha256(kHash.substr(1)));
    EXPECT_FALSE(IsLowerHexSha256(kHash + L'a'));
}

TEST(HttpRules_LowerHexSha256, EveryOtherCharacterAtEveryPlace_IsRefused) {
    for (std::size_t place = 0; place < kHash.size(); ++place) {
        for (const wchar_t unit : {L'A', L'F', L'g', L'`', L'/', L':', L' ', L'\0', L'\\', wchar_t{0xFF10}}) {
            std::wstring text = kHash;
            text[place] = unit;
            EXPECT_FALSE(IsLowerHexSha256(text)) << place << ' ' << static_cast<unsigned>(unit);
        }
    }
}

TEST(HttpRules_Decimal, PlainNumbers_AreRead) {
    EXPECT_EQ(ParseDecimal(L"0"), 0u);
    EXPECT_EQ(ParseDecimal(L"10"), 10u);
    EXPECT_EQ(ParseDecimal(L"0010"), 10u);
    EXPECT_EQ(ParseDecimal(L"4294967296"), 4294967296u);
    EXPECT_EQ(ParseDecimal(L"18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
}

TEST(HttpRules_Decimal, EverythingElse_IsRefused) {
    for (const wchar_t* text :
         {L"", L" ", L"10 ", L" 10", L"+10", L"-1", L"0x10", L"1,0", L"1.0", L"1e1", L"10\r", L"１０",
          L"18446744073709551616", L"18446744073709551620", L"99999999999999999999", L"184467440737095516150"}) {
        EXPECT_EQ(ParseDecimal(text), std::nullopt) << text;
    }
}

TEST(HttpRules_StrongEtag, QuotedVisibleAscii_IsStrong) {
    EXPECT_TRUE(IsStrongEtag(L"\"v1\""));
    EXPECT_TRUE(IsStrongEtag(L"\"\""));
    EXPECT_TRUE(IsStrongEtag(L"\"!#~\""));
    EXPECT_TRUE(IsStrongEtag(L"\"W/\""));
}

TEST(HttpRules_StrongEtag, LengthOf2To256_IsTaken) {
    EXPECT_FALSE(IsStrongEtag(L""));
    EXPECT_FALSE(IsStrongEtag(L"\""));
    EXPECT_TRUE(IsStrongEtag(L'"' + std::wstring(254, L'x') + L'"'));
    EXPECT_FALSE(IsStrongEtag(L'"' + std::wstring(255, L'x') + L'"'));
}

TEST(HttpRules_StrongEtag, WeakOrUnquoted_IsRefused) {
    for (const wchar_t* tag : {L"W/\"v1\"", L"v1", L"\"v1", L"v1\"", L" \"v1\"", L"\"v1\" ", L"'v1'"}) {
        EXPECT_FALSE(IsStrongEtag(tag)) << tag;
    }
}

TEST(HttpRules_StrongEtag, EveryUnitInside_IsJudged) {
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const std::wstring tag{L'"', L'a', static_cast<wchar_t>(unit), L'"'};
        ASSERT_EQ(IsStrongEtag(tag), unit >= 0x21 && unit <= 0x7E && unit != 0x22) << unit;
    }
}

TEST(HttpRules_ContentRange, FromTheOffsetToTheEnd_IsTaken) {
    EXPECT_TRUE(ParseContentRange(L"bytes 4-9/10", 4, 10));
    EXPECT_TRUE(ParseContentRange(L"bytes 0-0/1", 0, 1));
    EXPECT_TRUE(ParseContentRange(L"bytes 9-9/10", 9, 10));
    EXPECT_TRUE(ParseContentRange(L"bytes 2147483647-2147483647/2147483648", 0x7FFFFFFF, 0x80000000));
    EXPECT_TRUE(ParseContentRange(L"bytes 0-18446744073709551614/18446744073709551615", 0,
                                  std::numeric_limits<std::uint64_t>::max()));
}

TEST(HttpRules_ContentRange, EverythingElse_IsRefused) {
    for (const wchar_t* header : {L"",
                                  L"bytes",
                                  L"bytes ",
                                  L"bytes 4",
                                  L"bytes 4-",
                                  L"bytes 4-9",
                                  L"bytes 4-9/",
                                  L"bytes 0-9/10",
                                  L"bytes 5-9/10",
                                  L"bytes 4-10/10",
                                  L"bytes 4-8/10",
                                  L"bytes 4-9/11",
                                  L"bytes 4-9/9",
                                  L"bytes 4-9/*",
                                  L"bytes */10",
                                  L"bytes -9/10",
                                  L"bytes 4-/10",
                                  L"bytes 4-9/10 garbage",
                                  L"bytes 4-9/10 ",
                                  L"bytes  4-9/10",
                                  L" bytes 4-9/10",
                                  L"Bytes 4-9/10",
                                  L"bytes=4-9/10",
                                  L"bytes 4 -9/10",
                                  L"bytes 4- 9/10",
                                  L"bytes 4-9 /10",
                                  L"bytes 4-9/ 10",
                                  L"bytes +4-9/10",
                                  L"bytes 0x4-9/10",
                                  L"bytes 4-9,4-9/10",
                                  L"items 4-9/10",
                                  L"bytes 184467440737095516160-9/10",
                                  L"bytes 18446744073709551620-9/10",
                                  L"bytes 4-18446744073709551625/10",
                                  L"bytes 4-9/18446744073709551626"}) {
        EXPECT_FALSE(ParseContentRange(header, 4, 10)) << header;
    }
}

TEST(HttpRules_ContentRange, OffsetOutsideTheEntity_IsRefused) {
    EXPECT_FALSE(ParseContentRange(L"bytes 0-18446744073709551615/0", 0, 0));
    EXPECT_FALSE(ParseContentRange(L"bytes 10-9/10", 10, 10));
    EXPECT_FALSE(ParseContentRange(L"bytes 11-9/10", 11, 10));
}

}  // namespace
}  // namespace launcher_download
