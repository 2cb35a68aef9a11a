#include "launcher/verification/result_line.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace launcher_shell {
namespace {

std::string Rate(double value) {
    return ResultLine("LINE").AddRate("rate", value).Text();
}

TEST(ResultLine, NameAlone_EndsWithALineFeed) {
    EXPECT_EQ(ResultLine("LINE").Text(), "LINE\n");
}

TEST(ResultLine, Values_StandBehindOneBlankInTheirOrder) {
    EXPECT_EQ(ResultLine("LINE").Add("b", 2).Add("a", 1).AddRate("rate", 0.5).Add("c", true).Text(),
              "LINE b=2 a=1 rate=0.500 c=1\n");
}

TEST(ResultLine, Booleans_AreOneAndZero) {
    EXPECT_EQ(ResultLine("LINE").Add("yes", true).Add("no", false).Text(), "LINE yes=1 no=0\n");
}

TEST(ResultLine, Numbers_AreWrittenInFull) {
    EXPECT_EQ(ResultLine("LINE").Add("n", std::numeric_limits<std::uint64_t>::max()).Text(),
              "LINE n=18446744073709551615\n");
    EXPECT_EQ(ResultLine("LINE").Add("n", std::numeric_limits<std::size_t>::min()).Text(), "LINE n=0\n");
    EXPECT_EQ(ResultLine("LINE").Add("n", std::numeric_limits<std::int32_t>::min()).Text(), "LINE n=-2147483648\n");
    EXPECT_EQ(ResultLine("LINE").Add("n", std::numeric_limits<std::uint32_t>::max()).Text(), "LINE n=4294967295\n");
}

TEST(ResultLine, Rates_HaveThreeDecimalPlaces) {
    EXPECT_EQ(Rate(-1.0), "LINE rate=-1.000\n");
    EXPECT_EQ(Rate(0.0), "LINE rate=0.000\n");
    EXPECT_EQ(Rate(131072.0), "LINE rate=131072.000\n");
    EXPECT_EQ(Rate(0.0004), "LINE rate=0.000\n");
    EXPECT_EQ(Rate(0.0006), "LINE rate=0.001\n");
    EXPECT_EQ(Rate(1234567.8915), "LINE rate=1234567.891\n");
    EXPECT_EQ(Rate(1e15), "LINE rate=1000000000000000.000\n");
}

/// The longest text that a rate can have is neither cut nor written past its end.
TEST(ResultLine, LargestRates_AreWrittenInFull) {
    for (const double largest : {std::numeric_limits<double>::max(), -std::numeric_limits<double>::max()}) {
        const std::string line = Rate(largest);
        const std::size_t sign = largest < 0 ? 1 : 0;
        EXPECT_EQ(line.size(), std::string("LINE rate=").size() + sign + 309 + std::string(".000\n").size());
        EXPECT_TRUE(line.ends_with(".000\n")) << line;
    }
}

}  // namespace
}  // namespace launcher_shell
