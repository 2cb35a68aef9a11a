#include "download/retry_rules.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace launcher_download {
namespace {

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kNowTicks = 134000000000000000;

TEST(RetryRules_Status, ExactlySix_AreTransient) {
    const std::set<std::uint32_t> transient = {408, 429, 500, 502, 503, 504};
    for (std::uint32_t status = 0; status < 1000; ++status) {
        EXPECT_EQ(IsTransientStatus(status), transient.count(status) == 1) << status;
    }
}

TEST(RetryRules_WinHttpError, ExactlyFive_AreTransient) {
    const std::set<std::uint32_t> transient = {12002, 12007, 12029, 12030, 12032};
    for (std::uint32_t error = 0; error < 13000; ++error) {
        EXPECT_EQ(IsTransientWinHttpError(error), transient.count(error) == 1) << error;
    }
}

TEST(RetryRules_Wait, DoublesFromOneSecond) {
    EXPECT_EQ(DefaultWaitMs(1), 1000u);
    EXPECT_EQ(DefaultWaitMs(2), 2000u);
    EXPECT_EQ(DefaultWaitMs(3), 4000u);
}

TEST(RetryRules_Wait, ARefusal_IsNoWaitThatAnybodyCouldMean) {
    EXPECT_EQ(kWaitRefused, std::numeric_limits<std::uint64_t>::max());
}

TEST(RetryRules_Wait, OfUpToSixtySeconds_IsGranted) {
    for (std::uint64_t seconds = 0; seconds <= 60; ++seconds) {
        EXPECT_EQ(WaitOfSeconds(seconds), seconds * 1000);
    }
}

TEST(RetryRules_Wait, OfMoreThanSixtySeconds_IsRefused) {
    for (const std::uint64_t seconds :
         {std::uint64_t{61}, std::uint64_t{120}, std::uint64_t{60000}, std::uint64_t{4294967296},
          std::uint64_t{18446744073709552}, std::uint64_t{18446744073709551}, kLargest - 1, kLargest}) {
        EXPECT_EQ(WaitOfSeconds(seconds), kWaitRefused) << seconds;
    }
}

TEST(RetryRules_WaitUntil, ATimeThatIsNotAhead_IsNoWait) {
    EXPECT_EQ(WaitUntil(kNowTicks, kNowTicks), 0u);
    EXPECT_EQ(WaitUntil(kNowTicks - 1, kNowTicks), 0u);
    EXPECT_EQ(WaitUntil(0, kNowTicks), 0u);
    EXPECT_EQ(WaitUntil(0, 0), 0u);
    EXPECT_EQ(WaitUntil(0, kLargest), 0u);
    EXPECT_EQ(WaitUntil(kLargest, kLargest), 0u);
}

TEST(RetryRules_WaitUntil, ATimeAhead_IsCountedInWholeMilliseconds) {
    EXPECT_EQ(WaitUntil(kNowTicks + 1, kNowTicks), 0u);
    EXPECT_EQ(WaitUntil(kNowTicks + 9999, kNowTicks), 0u);
    EXPECT_EQ(WaitUntil(kNowTicks + 10000, kNowTicks), 1u);
    EXPECT_EQ(WaitUntil(kNowTicks + 19999, kNowTicks), 1u);
    EXPECT_EQ(WaitUntil(kNowTicks + 30000000, kNowTicks), 3000u);
    EXPECT_EQ(WaitUntil(kNowTicks + 599999999, kNowTicks), 59999u);
    EXPECT_EQ(WaitUntil(kNowTicks + 600000000, kNowTicks), 60000u);
    EXPECT_EQ(WaitUntil(kLargest, kLargest - 600000000), 60000u);
}

TEST(RetryRules_WaitUntil, ATimeMoreThanSixtySecondsAhead_IsRefused) {
    EXPECT_EQ(WaitUntil(kNowTicks + 600000001, kNowTicks), kWaitRefused);
    EXPECT_EQ(WaitUntil(kNowTicks + 610000000, kNowTicks), kWaitRefused) << "61 seconds";
    EXPECT_EQ(WaitUntil(kLargest, kNowTicks), kWaitRefused);
    EXPECT_EQ(WaitUntil(kLargest, 0), kWaitRefused);
}

}  // namespace
}  // namespace launcher_download
