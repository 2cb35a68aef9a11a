#include "download/speed.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace launcher_download {
namespace {

TEST(Speed_Text, BelowOneMegabyte_IsInKilobytes) {
    EXPECT_EQ(FormatSpeed(0.0), L"0.0 KB/s");
    EXPECT_EQ(FormatSpeed(1024.0), L"1.0 KB/s");
    EXPECT_EQ(FormatSpeed(1536.0), L"1.5 KB/s");
    EXPECT_EQ(FormatSpeed(131072.0), L"128.0 KB/s");
    EXPECT_EQ(FormatSpeed(1048575.0), L"1024.0 KB/s");
    EXPECT_EQ(FormatSpeed(std::nextafter(1048576.0, 0.0)), L"1024.0 KB/s");
}

TEST(Speed_Text, FromOneMegabyteOn_IsInMegabytes) {
    EXPECT_EQ(FormatSpeed(1048576.0), L"1.0 MB/s");
    EXPECT_EQ(FormatSpeed(12.34 * 1048576.0), L"12.3 MB/s");
    EXPECT_EQ(FormatSpeed(1e15), L"953674316.4 MB/s");
}

TEST(Speed_Text, ValuesThatNoTransferHas_AreADash) {
    const double infinite = std::numeric_limits<double>::infinity();
    for (const double value : {-1.0, -0.1, -infinite, infinite, std::nan(""), std::nextafter(1e15, 2e15), 1e300}) {
        EXPECT_EQ(FormatSpeed(value), L"\x2014") << value;
    }
}

TEST(Speed_Sample, ShorterThanASecond_IsUnknown) {
    SpeedMeter meter(5000);
    EXPECT_EQ(meter.Add(65536, 5000), std::nullopt);
    EXPECT_EQ(meter.Add(65536, 5999), std::nullopt);
}

TEST(Speed_Sample, CountsEveryChunkOfItsTime_AndStartsAnew) {
    SpeedMeter meter(5000);
    EXPECT_EQ(meter.Add(1000, 5500), std::nullopt);
    EXPECT_EQ(meter.Add(1000, 6000), 2000.0);
    EXPECT_EQ(meter.Add(300, 6999), std::nullopt);
    EXPECT_EQ(meter.Add(300, 8000), 300.0);
}

TEST(Speed_Sample, ALateChunk_IsSpreadOverTheWholeTime) {
    SpeedMeter meter(0);
    EXPECT_EQ(meter.Add(5000, 4000), 1250.0);
}

TEST(Speed_Restart, ASample_StartsAnew) {
    SpeedMeter meter(5000);
    EXPECT_EQ(meter.Add(90000, 5900), std::nullopt);
    meter.Restart(8000);
    EXPECT_EQ(meter.Add(1000, 8000), std::nullopt) << "the time before does not count";
    EXPECT_EQ(meter.Add(1000, 8999), std::nullopt);
    EXPECT_EQ(meter.Add(1000, 9000), 3000.0) << "nor do the bytes";
}

TEST(Speed_Restart, TheSlowTimer_GoesOn) {
    SpeedMeter meter(0);
    ASSERT_EQ(meter.Add(10, 1000), 10.0);
    meter.Restart(20000);
    EXPECT_FALSE(meter.IsSlow(30999));
    EXPECT_TRUE(meter.IsSlow(31000));
    ASSERT_EQ(meter.Add(10, 21000), 10.0) << "a further slow sample does not start it again";
    EXPECT_TRUE(meter.IsSlow(31000));
}

TEST(Speed_Restart, ATimerThatDoesNotRun_IsNotStarted) {
    SpeedMeter meter(0);
    meter.Restart(1000);
    EXPECT_FALSE(meter.IsSlow(100000));
    ASSERT_EQ(meter.Add(20000, 2000), 20000.0);
    meter.Restart(3000);
    EXPECT_FALSE(meter.IsSlow(100000));
}

TEST(Speed_Restart, AFastSampleBehindIt_StillStopsTheTimer) {
    SpeedMeter meter(0);
    ASSERT_EQ(meter.Add(10, 1000), 10.0);
    meter.Restart(5000);
    ASSERT_EQ(meter.Add(20000, 6000), 20000.0);
    EXPECT_FALSE(meter.IsSlow(100000));
}

TEST(Speed_Slow, ShowsThirtySecondsAfterTheFirstSlowSample) {
    SpeedMeter meter(0);
    EXPECT_EQ(meter.Add(16383, 1000), 16383.0);
    EXPECT_FALSE(meter.IsSlow(1000));
    EXPECT_FALSE(meter.IsSlow(30999));
    EXPECT_TRUE(meter.IsSlow(31000));
}

TEST(Speed_Slow, TheThresholdItself_IsNotSlow) {
    SpeedMeter meter(0);
    EXPECT_EQ(meter.Add(16384, 1000), 16384.0);
    EXPECT_FALSE(meter.IsSlow(100000));
}

TEST(Speed_Slow, FurtherSlowSamples_DoNotRestartTheTimer) {
    SpeedMeter meter(0);
    for (std::uint64_t second = 1; second <= 31; ++second) {
        ASSERT_EQ(meter.Add(10, second * 1000), 10.0);
    }
    EXPECT_TRUE(meter.IsSlow(31000));
}

TEST(Speed_Slow, ARecoveryAfter29Seconds_StartsTheTimerFromZero) {
    SpeedMeter meter(0);
    ASSERT_EQ(meter.Add(10, 1000), 10.0);
    ASSERT_EQ(meter.Add(29 * 20000, 30000), 20000.0);
    EXPECT_FALSE(meter.IsSlow(40000));
    ASSERT_EQ(meter.Add(10, 31000), 10.0);
    EXPECT_FALSE(meter.IsSlow(60999));
    EXPECT_TRUE(meter.IsSlow(61000));
}

}  // namespace
}  // namespace launcher_download
