#include "download/retry_rules.h"

#include <gtest/gtest.h>

#include <set>

namespace launcher_download {
namespace {

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

}  // namespace
}  // namespace launcher_download
