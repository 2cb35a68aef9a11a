#include "update/manifest/version.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/text.h"

namespace launcher_update {
namespace {

TEST(Version, FourNumbers_AreRead) {
    struct Row {
        std::wstring text;
        Version version;
    };
    const Row rows[] = {
        {L"0.0.0.0", {0, 0, 0, 0}},
        {L"1.2.3.4", {1, 2, 3, 4}},
        {L"65535.65535.65535.65535", {65535, 65535, 65535, 65535}},
        {L"007.00.01.010", {7, 0, 1, 10}},
        {std::wstring(100, L'0') + L"65535.0.0.1", {65535, 0, 0, 1}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(platform::EncodeUtf8(row.text));
        bool parsed = false;
        EXPECT_EQ(ParseVersion(row.text, parsed), row.version);
        EXPECT_TRUE(parsed);
        EXPECT_TRUE(IsVersion(row.text));
    }
}

TEST(Version, AnythingElse_IsNone) {
    for (const wchar_t* text : {L"",
                                L"1",
                                L"1.2",
                                L"1.2.3",
                                L"1.2.3.4.5",
                                L"1.2.3.",
                                L".1.2.3",
                                L"1..2.3",
                                L"1.2.3.4.",
                                L"...",
                                L"....",
                                L" 1.2.3.4",
                                L"1.2.3.4 ",
                                L"1. 2.3.4",
                                L"+1.2.3.4",
                                L"1.-2.3.4",
                                L"1.2.3.4a",
                                L"a.2.3.4",
                                L"1.2.0x3.4",
                                L"1,2,3,4",
                                L"65536.0.0.0",
                                L"0.65536.0.0",
                                L"0.0.65536.0",
                                L"0.0.0.65536",
                                L"4294967296.0.0.0",
                                L"4294967297.0.0.0",
                                L"99999999999999999999.0.0.0",
                                L"1.2.3.4\n",
                                L"１.2.3.4",
                                L"1.2.3.\u0664"}) {
        SCOPED_TRACE(platform::EncodeUtf8(text));
        bool parsed = true;
        EXPECT_EQ(ParseVersion(text, parsed), Version{});
        EXPECT_FALSE(parsed);
        EXPECT_FALSE(IsVersion(text));
    }
}

TEST(Version, NulInside_IsNoVersion) {
    EXPECT_FALSE(IsVersion(std::wstring_view(L"1.2.3.4\0", 8)));
}

TEST(Version, ComparisonIsByNumberFromTheLeft) {
    struct Row {
        const wchar_t* left;
        const wchar_t* right;
        int order;
    };
    constexpr Row kRows[] = {
        {L"1.2.3.4", L"1.2.3.4", 0},   {L"1.2.3.4", L"01.002.3.4", 0}, {L"1.2.3.4", L"1.2.3.5", -1},
        {L"1.2.3.4", L"1.2.4.0", -1},  {L"1.2.3.4", L"1.3.0.0", -1},   {L"1.2.3.4", L"2.0.0.0", -1},
        {L"1.9.0.0", L"1.10.0.0", -1}, {L"0.0.0.9", L"0.0.0.10", -1},  {L"1.0.0.65535", L"1.0.1.0", -1},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(platform::EncodeUtf8(row.left) + " and " + platform::EncodeUtf8(row.right));
        bool compared = false;
        EXPECT_EQ(CompareVersions(row.left, row.right, compared), row.order);
        EXPECT_TRUE(compared);
        compared = false;
        EXPECT_EQ(CompareVersions(row.right, row.left, compared), -row.order);
        EXPECT_TRUE(compared);
    }
}

TEST(Version, ComparisonWithNoVersion_IsNone) {
    for (const auto& [left, right] :
         {std::pair(L"1.2.3", L"1.2.3.4"), std::pair(L"1.2.3.4", L""), std::pair(L"x", L"x")}) {
        bool compared = true;
        EXPECT_EQ(CompareVersions(left, right, compared), 0);
        EXPECT_FALSE(compared);
    }
}

}  // namespace
}  // namespace launcher_update
