#include "download/comparison_window.h"

#include <gtest/gtest.h>

namespace launcher_download {
namespace {

constexpr std::uint64_t kDelayMs = 1000;
constexpr std::uint64_t kLengthMs = 500;

// A payload of which enough is held and enough is left for a comparison at almost any speed.
constexpr std::uint64_t kHeld = 0x20000;
constexpr std::uint64_t kSize = 0x80000000;

TEST(ComparisonWindow_Delay, BeforeAnyChunk_NothingIsDue) {
    EXPECT_FALSE(ComparisonWindow(kDelayMs, kLengthMs).ShouldCompare(kHeld, kSize, 1000000));
    EXPECT_FALSE(ComparisonWindow(0, 0).ShouldCompare(kHeld, kSize, 0));
    EXPECT_FALSE(ComparisonWindow(0, 0).ShouldCompare(kHeld, kSize, 1000000));
}

TEST(ComparisonWindow_Delay, KeepsTheWindowEmpty) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(70000, 5000);
    EXPECT_EQ(window.Speed(5500), 0.0);
    window.Add(70000, 5400);
    EXPECT_EQ(window.Speed(5900), 0.0);
    window.Add(70000, 5999);
    EXPECT_EQ(window.Speed(6499), 0.0);
}

TEST(ComparisonWindow_Delay, RunsFromTheFirstChunk) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(70000, 1000000);
    window.Add(70000, 1000999);
    EXPECT_EQ(window.Speed(1001999), 0.0);
    window.Add(70000, 1001000);
    EXPECT_EQ(window.Speed(1001999), 70000.0);
}

TEST(ComparisonWindow_Delay, RunsFromTheFirstChunk_EvenAtTheClocksStart) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(100, 0);
    window.Add(100, 999);
    window.Add(100, 1000);
    window.Add(100, 1500);
    EXPECT_EQ(window.Speed(1999), 200.0);
}

TEST(ComparisonWindow_Delay, TheChunkAtItsVeryEnd_OpensTheWindow) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(1, 5000);
    window.Add(20, 5999);
    window.Add(300, 6000);
    EXPECT_EQ(window.Speed(6999), 300.0) << "the window began with the last chunk inside the delay";
    window.Add(4000, 6999);
    EXPECT_EQ(window.Speed(6999), 4300.0);
}

TEST(ComparisonWindow_Delay, WithoutOne_TheFirstChunkCounts) {
    ComparisonWindow window(0, kLengthMs);
    window.Add(300, 5000);
    EXPECT_EQ(window.Speed(6000), 300.0);
    window.Add(300, 5500);
    EXPECT_EQ(window.Speed(6000), 600.0);
}

TEST(ComparisonWindow_Delay, ASilenceThroughTheDelay_MakesALongWindow) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(1, 5000);
    window.Add(4000, 9000);
    EXPECT_EQ(window.Speed(9000), 1000.0);
    EXPECT_TRUE(window.ShouldCompare(kHeld, kSize, 9000));
}

TEST(ComparisonWindow_Speed, IsOfTheWindowsBytesAndTime) {
    ComparisonWindow window(0, 10000);
    window.Add(1000, 100000);
    window.Add(500, 102000);
    EXPECT_EQ(window.Speed(104000), 375.0);
    EXPECT_EQ(window.Speed(100001), 1500000.0);
}

TEST(ComparisonWindow_Due, OnceAWindowBehindTheDelayIsFull) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(1, 5000);
    window.Add(1, 5900);
    window.Add(1, 6000);
    EXPECT_FALSE(window.ShouldCompare(kHeld, kSize, 6399)) << "499 ms of window";
    EXPECT_FALSE(window.ShouldCompare(kHeld, kSize, 6499)) << "the window began 100 ms inside the delay";
    EXPECT_TRUE(window.ShouldCompare(kHeld, kSize, 6500));
}

TEST(ComparisonWindow_Due, WaitsForItsFullLength) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(1, 5000);
    window.Restart(6300);
    window.Add(1, 6300);
    EXPECT_FALSE(window.ShouldCompare(kHeld, kSize, 6799));
    EXPECT_TRUE(window.ShouldCompare(kHeld, kSize, 6800));
}

TEST(ComparisonWindow_Due, NotWithoutBytesInTheWindow) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(70000, 5000);
    EXPECT_FALSE(window.ShouldCompare(kHeld, kSize, 6500));
    EXPECT_FALSE(window.ShouldCompare(kHeld, kSize, 60000));
}

TEST(ComparisonWindow_Due, IsAboutThePayload) {
    ComparisonWindow window(0, 1000);
    window.Add(1000000, 0);
    EXPECT_TRUE(window.ShouldCompare(20000000, 30000001, 1000)) << "more than ten seconds left at 1 MB/s";
    EXPECT_FALSE(window.ShouldCompare(20000000, 30000000, 1000));
    EXPECT_FALSE(window.ShouldCompare(0x1FFFF, kSize, 1000));
    EXPECT_TRUE(window.ShouldCompare(0x20000, kSize, 1000));
    EXPECT_FALSE(window.ShouldCompare(kSize, kSize, 1000));
}

TEST(ComparisonWindow_Tumble, AFullWindow_BeginsAnew) {
    ComparisonWindow window(0, kLengthMs);
    window.Add(300, 5000);
    window.Tumble(5499);
    EXPECT_EQ(window.Speed(6000), 300.0) << "not full yet";
    window.Tumble(5500);
    EXPECT_EQ(window.Speed(6000), 0.0);
    window.Add(70, 5600);
    EXPECT_EQ(window.Speed(6500), 70.0) << "counted from 5500 on";
}

TEST(ComparisonWindow_Tumble, IsLateByWhatTheChunkWasLate) {
    ComparisonWindow window(0, kLengthMs);
    window.Add(300, 5000);
    window.Tumble(5900);
    window.Add(70, 6000);
    window.Tumble(6399);
    EXPECT_EQ(window.Speed(6900), 70.0) << "the new window runs from 5900, not from 5500";
}

TEST(ComparisonWindow_Tumble, DoesNotOpenTheDelayAgain) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(1, 5000);
    window.Add(1, 6500);
    window.Tumble(6500);
    window.Add(70, 6600);
    EXPECT_EQ(window.Speed(7500), 70.0);
}

TEST(ComparisonWindow_Restart, EmptiesTheWindowAndLeavesTheDelayBehind) {
    ComparisonWindow window(kDelayMs, kLengthMs);
    window.Add(1, 5000);
    window.Add(300, 6100);
    window.Restart(7000);
    EXPECT_EQ(window.Speed(8000), 0.0);
    window.Add(70, 7100);
    EXPECT_EQ(window.Speed(8000), 70.0);
    EXPECT_FALSE(window.ShouldCompare(kHeld, kSize, 7499));
    EXPECT_TRUE(window.ShouldCompare(kHeld, kSize, 7500));
}

}  // namespace
}  // namespace launcher_download
