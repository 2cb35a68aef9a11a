#include "download/reporter.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace launcher_download {
namespace {

/// Keeps what was told, in order.
struct Listener {
    std::vector<Progress> delivered;
    std::vector<std::pair<std::string, Phase>> traced;

    Reporter Make(std::uint64_t nowMs) {
        return Reporter(
            [this](const Progress& progress) { delivered.push_back(progress); },
            [this](const Progress& progress, const char* word) { traced.emplace_back(word, progress.phase); }, nowMs);
    }
};

TEST(Reporter, TheFirstReport_IsAlwaysDueOnBothSides) {
    Listener listener;
    Reporter reporter = listener.Make(7000);
    reporter.Report(Phase::verifying, "cached-payload", Delivery::whenDue, 7000);
    ASSERT_EQ(listener.delivered.size(), 1u);
    EXPECT_EQ(listener.delivered[0].phase, Phase::verifying);
    ASSERT_EQ(listener.traced.size(), 1u);
    EXPECT_EQ(listener.traced[0].first, "cached-payload");
}

TEST(Reporter, ProgressIsDelivered_OncePer250Milliseconds) {
    Listener listener;
    Reporter reporter = listener.Make(1000);
    for (std::uint64_t now = 1000; now <= 2000; ++now) {
        reporter.Report(Phase::receiving, "progress", Delivery::whenDue, now);
    }
    std::vector<std::uint64_t> times;
    for (const Progress& progress : listener.delivered)
        times.push_back(progress.elapsedMs);
    EXPECT_EQ(times, (std::vector<std::uint64_t>{0, 250, 500, 750, 1000}));
}

TEST(Reporter, TraceIsWritten_OncePer5000Milliseconds) {
    Listener listener;
    Reporter reporter = listener.Make(0);
    reporter.Report(Phase::receiving, "first", Delivery::whenDue, 0);
    reporter.Report(Phase::receiving, "early", Delivery::whenDue, 4999);
    reporter.Report(Phase::receiving, "second", Delivery::whenDue, 5000);
    ASSERT_EQ(listener.traced.size(), 2u);
    EXPECT_EQ(listener.traced[1].first, "second");
}

TEST(Reporter, ForcedReports_AlwaysPassAndHoldBackTheNextOne) {
    Listener listener;
    Reporter reporter = listener.Make(0);
    reporter.Report(Phase::connecting, "new-request", Delivery::forced, 100);
    reporter.Report(Phase::receiving, "headers-accepted", Delivery::forced, 100);
    reporter.Report(Phase::receiving, "progress", Delivery::whenDue, 349);
    EXPECT_EQ(listener.delivered.size(), 2u);
    EXPECT_EQ(listener.traced.size(), 2u);
    reporter.Report(Phase::receiving, "progress", Delivery::whenDue, 350);
    EXPECT_EQ(listener.delivered.size(), 3u);
    EXPECT_EQ(listener.traced.size(), 2u);
}

TEST(Reporter, AReportHeldBack_StillSetsThePhase) {
    Listener listener;
    Reporter reporter = listener.Make(0);
    reporter.Report(Phase::connecting, "new-request", Delivery::forced, 0);
    reporter.Counters().bytes = 5;
    reporter.Report(Phase::slow, "progress", Delivery::whenDue, 10);
    EXPECT_EQ(listener.delivered.size(), 1u);
    EXPECT_EQ(reporter.Counters().phase, Phase::slow);
    EXPECT_EQ(reporter.Counters().elapsedMs, 10u);
}

TEST(Reporter, WithoutListeners_NothingHappens) {
    Reporter reporter({}, {}, 0);
    reporter.Report(Phase::failed, "disk", Delivery::forced, 1);
    EXPECT_EQ(reporter.Counters().phase, Phase::failed);
}

TEST(Progress, Phases_HaveTheirNumbers) {
    const Phase phases[] = {Phase::connecting, Phase::receiving,       Phase::slow,           Phase::retrying,
                            Phase::verifying,  Phase::cached,          Phase::complete,       Phase::failed,
                            Phase::cancelled,  Phase::switchingSource, Phase::comparingSource};
    std::uint32_t number = 0;
    for (const Phase phase : phases)
        EXPECT_EQ(static_cast<std::uint32_t>(phase), number++);
}

}  // namespace
}  // namespace launcher_download
