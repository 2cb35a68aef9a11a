#include "launcher/stage_rate_limit.h"

#include <gtest/gtest.h>

namespace launcher_shell {
namespace {

using launcher_update::Stage;

constexpr Stage kFileStages[] = {Stage::CheckingFiles, Stage::VerifyingFiles};
constexpr std::uint64_t kNow = 5000;

Stage OtherFileStage(Stage stage) {
    return stage == Stage::CheckingFiles ? Stage::VerifyingFiles : Stage::CheckingFiles;
}

/// A limit that has sent one unfinished event of `stage` at `kNow`.
StageRateLimit LimitAfter(Stage stage) {
    StageRateLimit limit;
    EXPECT_TRUE(limit.Passes(stage, 1, 1000, kNow));
    return limit;
}

TEST(StageRateLimit, FirstEvent_Passes) {
    for (const Stage stage : kFileStages) {
        for (const std::uint64_t now : {0u, 1u, 99u, 5000u}) {
            StageRateLimit limit;
            EXPECT_TRUE(limit.Passes(stage, 0, 1000, now)) << now;
        }
    }
}

TEST(StageRateLimit, SameStageWithinAHundredMilliseconds_IsDropped) {
    for (const Stage stage : kFileStages) {
        for (const std::uint64_t later : {0u, 1u, 50u, 99u}) {
            StageRateLimit limit = LimitAfter(stage);
            EXPECT_FALSE(limit.Passes(stage, 2, 1000, kNow + later)) << later;
        }
    }
}

TEST(StageRateLimit, SameStageAfterAHundredMilliseconds_Passes) {
    for (const Stage stage : kFileStages) {
        for (const std::uint64_t later : {100u, 101u, 100000u}) {
            StageRateLimit limit = LimitAfter(stage);
            EXPECT_TRUE(limit.Passes(stage, 2, 1000, kNow + later)) << later;
        }
    }
}

TEST(StageRateLimit, Period_RunsFromTheLastEventThatWasSent) {
    StageRateLimit limit = LimitAfter(Stage::CheckingFiles);
    EXPECT_FALSE(limit.Passes(Stage::CheckingFiles, 2, 1000, kNow + 60));
    EXPECT_TRUE(limit.Passes(Stage::CheckingFiles, 3, 1000, kNow + 100)) << "a dropped event does not prolong";
    EXPECT_FALSE(limit.Passes(Stage::CheckingFiles, 4, 1000, kNow + 199));
    EXPECT_TRUE(limit.Passes(Stage::CheckingFiles, 5, 1000, kNow + 200));
}

TEST(StageRateLimit, EventThatReachesItsTotal_Passes) {
    for (const Stage stage : kFileStages) {
        StageRateLimit limit = LimitAfter(stage);
        EXPECT_FALSE(limit.Passes(stage, 999, 1000, kNow));
        EXPECT_TRUE(limit.Passes(stage, 1000, 1000, kNow));
        EXPECT_TRUE(limit.Passes(stage, 1000, 1000, kNow)) << "again";
        EXPECT_TRUE(limit.Passes(stage, 1001, 1000, kNow)) << "beyond the total";
    }
}

TEST(StageRateLimit, EventThatReachesItsTotal_StartsThePeriod) {
    StageRateLimit limit = LimitAfter(Stage::CheckingFiles);
    EXPECT_TRUE(limit.Passes(Stage::CheckingFiles, 10, 10, kNow + 90));
    EXPECT_FALSE(limit.Passes(Stage::CheckingFiles, 1, 1000, kNow + 189));
    EXPECT_TRUE(limit.Passes(Stage::CheckingFiles, 1, 1000, kNow + 190));
}

TEST(StageRateLimit, UnknownTotal_IsNeverReached) {
    for (const Stage stage : kFileStages) {
        StageRateLimit limit = LimitAfter(stage);
        EXPECT_FALSE(limit.Passes(stage, 0, 0, kNow + 99));
        EXPECT_FALSE(limit.Passes(stage, 5, 0, kNow + 99));
        EXPECT_TRUE(limit.Passes(stage, 5, 0, kNow + 100));
    }
}

TEST(StageRateLimit, ChangeBetweenTheFileStages_Passes) {
    for (const Stage stage : kFileStages) {
        StageRateLimit limit = LimitAfter(stage);
        EXPECT_TRUE(limit.Passes(OtherFileStage(stage), 1, 1000, kNow));
        EXPECT_FALSE(limit.Passes(OtherFileStage(stage), 2, 1000, kNow));
        EXPECT_TRUE(limit.Passes(stage, 2, 1000, kNow)) << "and back";
    }
}

TEST(StageRateLimit, AnotherStageInBetween_LetsTheNextPass) {
    for (const Stage stage : kFileStages) {
        StageRateLimit limit = LimitAfter(stage);
        EXPECT_TRUE(limit.Passes(Stage::Downloading, 0, 2, kNow));
        EXPECT_TRUE(limit.Passes(stage, 2, 1000, kNow));
        EXPECT_FALSE(limit.Passes(stage, 3, 1000, kNow));
    }
}

TEST(StageRateLimit, OtherStages_AlwaysPass) {
    for (unsigned number = 0; number < 20; ++number) {
        const auto stage = static_cast<Stage>(number);
        if (stage == Stage::CheckingFiles || stage == Stage::VerifyingFiles) continue;
        StageRateLimit limit;
        for (int repeat = 0; repeat < 3; ++repeat) {
            EXPECT_TRUE(limit.Passes(stage, 0, 0, kNow)) << number;
            EXPECT_TRUE(limit.Passes(stage, 1, 1000, kNow)) << number;
        }
    }
}

TEST(StageRateLimit, OtherStages_DoNotMoveThePeriod) {
    StageRateLimit limit = LimitAfter(Stage::CheckingFiles);
    EXPECT_TRUE(limit.Passes(Stage::Downloading, 0, 2, kNow + 90));
    EXPECT_TRUE(limit.Passes(Stage::CheckingFiles, 2, 1000, kNow + 95));
    EXPECT_FALSE(limit.Passes(Stage::CheckingFiles, 3, 1000, kNow + 194));
    EXPECT_TRUE(limit.Passes(Stage::CheckingFiles, 4, 1000, kNow + 195));
}

struct BurstCount {
    int attempts = 0;
    int sent = 0;
    int amid = 0;  // neither 0 nor the whole
    bool endedWhole = false;
};

/// Bursts of a hundred events per stage, one pair of bursts every `stepMs` for 900 ms, and one event for the end.
BurstCount CountBursts(std::uint64_t stepMs) {
    StageRateLimit limit;
    BurstCount count;
    const auto offer = [&](Stage stage, std::uint64_t completed, std::uint64_t now) {
        ++count.attempts;
        if (!limit.Passes(stage, completed, 1000, now)) return;
        ++count.sent;
        count.endedWhole = completed == 1000;
        if (completed != 0 && completed != 1000) ++count.amid;
    };
    for (const Stage stage : kFileStages) {
        for (std::uint64_t elapsed = 0; elapsed < 900; elapsed += stepMs) {
            for (int repeat = 0; repeat < 100; ++repeat) {
                offer(stage, elapsed, kNow + elapsed + (stage == Stage::VerifyingFiles ? 900 : 0));
            }
        }
    }
    offer(Stage::VerifyingFiles, 1000, kNow + 1800);
    return count;
}

TEST(StageRateLimit, Bursts_AreSentTenTimesASecond) {
    for (const std::uint64_t stepMs : {1u, 10u, 50u, 90u}) {
        const BurstCount count = CountBursts(stepMs);
        EXPECT_GE(count.attempts, 2000) << stepMs;
        EXPECT_GE(count.sent, 6) << stepMs;
        EXPECT_LE(count.sent, 35) << stepMs;
        EXPECT_GE(count.amid, 4) << stepMs;
        EXPECT_TRUE(count.endedWhole) << stepMs;
    }
}

TEST(StageRateLimit, BurstsEveryMillisecond_SendOneEventEachPeriod) {
    const BurstCount count = CountBursts(1);
    EXPECT_EQ(count.attempts, 180001);
    EXPECT_EQ(count.sent, 9 + 9 + 1) << "each stage at 0, 100 ... 800 ms, and the end";
}

}  // namespace
}  // namespace launcher_shell
