#include "download/source_rules.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "download/failures.h"
#include "product/build_constants.h"
#include "product/locations.h"

namespace launcher_download {
namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kMiB = 1024 * kKiB;

const std::wstring kPrefix(product::kPrimaryReleasePrefix);

std::wstring DerivedOfPath(std::wstring_view path) {
    return DeriveBackupUrl(kPrefix + std::wstring(path));
}

bool IsAsciiAlphanumeric(wchar_t unit) {
    return (unit >= L'0' && unit <= L'9') || (unit >= L'A' && unit <= L'Z') || (unit >= L'a' && unit <= L'z');
}

TEST(SourceRules_BackupUrl, AReleaseOfThePrimary_HasTheSamePathAtTheBackup) {
    const std::wstring releases = L"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/releases/download/";
    const std::wstring primary = L"https://" VPR_PRIMARY_RELEASE_HOST + releases;
    EXPECT_EQ(DeriveBackupUrl(primary + L"v1.2.3.4/Setup.exe"),
              L"https://" VPR_BACKUP_HOST L"/releases/v1.2.3.4/Setup.exe");
    EXPECT_EQ(DeriveBackupUrl(primary + L"launcher-v10.0.20.345/a-b_c.d.zip"),
              L"https://" VPR_BACKUP_HOST L"/releases/launcher-v10.0.20.345/a-b_c.d.zip");
}

TEST(SourceRules_BackupUrl, EveryPathOfTheReleaseForm_IsKept) {
    for (const wchar_t* path : {L"v1.2.3.4/f", L"v0.0.0.0/f", L"v01.002.3.4/f", L"v1.2.3.18446744073709551616/f",
                                L"launcher-v1.2.3.4/f", L"v1.2.3.4/v1.2.3.4", L"v1.2.3.4/-", L"v1.2.3.4/_",
                                L"v1.2.3.4/A.Z.a.z.0.9", L"v1.2.3.4/.f", L"v1.2.3.4/f."}) {
        EXPECT_EQ(DerivedOfPath(path), std::wstring(product::kBackupReleasePrefix) + path) << path;
    }
}

TEST(SourceRules_BackupUrl, OtherSchemeHostOrFolder_HasNoBackup) {
    const std::wstring folder = L"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/releases/download/";
    const std::wstring host(product::kPrimaryReleaseHost);
    const std::wstring path = L"v1.2.3.4/f";
    ASSERT_FALSE(DeriveBackupUrl(L"https://" + host + folder + path).empty());
    const std::wstring urls[] = {
        L"http://" + host + folder + path,
        L"HTTPS://" + host + folder + path,
        L"Https://" + host + folder + path,
        L"ftp://" + host + folder + path,
        L"//" + host + folder + path,
        host + folder + path,
        L" https://" + host + folder + path,
        L"https:/" + host + folder + path,
        L"https:///" + host + folder + path,
        L"https://www." + host + folder + path,
        L"https://" + host + L"." + folder + path,
        L"https://" + host + L".evil.example" + folder + path,
        L"https://" + host + L":443" + folder + path,
        L"https://user@" + host + folder + path,
        L"https://" VPR_BACKUP_HOST + folder + path,
        L"https://127.0.0.1" + folder + path,
        L"https://" + host + L"/" + folder + path,
        L"https://" + host + L"/Other/Velmora-Pine-Relay-Updates/releases/download/" + path,
        L"https://" + host + L"/QuillFarrowWorks/Velmora-Pine-Relay/releases/download/" + path,
        L"https://" + host + L"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/releases/" + path,
        L"https://" + host + L"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/releases/download" + path,
        L"https://" + host + L"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/archive/download/" + path,
        std::wstring(product::kBackupReleasePrefix) + path,
        path,
    };
    for (const std::wstring& url : urls) {
        EXPECT_EQ(DeriveBackupUrl(url), L"") << url;
    }
}

TEST(SourceRules_BackupUrl, EveryChangeOfThePrefix_HasNoBackup) {
    const std::wstring url = kPrefix + L"v1.2.3.4/f";
    for (std::size_t place = 0; place < kPrefix.size(); ++place) {
        for (wchar_t unit = 0; unit < 0x80; ++unit) {
            std::wstring changed = url;
            changed[place] = unit;
            if (changed == url) continue;
            EXPECT_EQ(DeriveBackupUrl(changed), L"") << place << ' ' << static_cast<unsigned>(unit);
        }
    }
}

TEST(SourceRules_BackupUrl, EveryTruncation_HasNoBackupUntilAFileIsNamed) {
    const std::wstring path = L"launcher-v1.2.3.4/f.exe";
    const std::size_t firstWhole = kPrefix.size() + path.find(L'/') + 2;
    const std::wstring url = kPrefix + path;
    for (std::size_t length = 0; length <= url.size(); ++length) {
        const std::wstring expected = length < firstWhole ? L""
                                                          : std::wstring(product::kBackupReleasePrefix) +
                                                                url.substr(kPrefix.size(), length - kPrefix.size());
        EXPECT_EQ(DeriveBackupUrl(url.substr(0, length)), expected) << length;
    }
}

TEST(SourceRules_BackupUrl, AnyOtherNumberOfSlashesOrPlaceOfTheSlash_HasNoBackup) {
    for (const wchar_t* path :
         {L"", L"/", L"//", L"f", L"v1.2.3.4", L"v1.2.3.4/", L"/f", L"/v1.2.3.4", L"v1.2.3.4//f", L"v1.2.3.4//",
          L"/v1.2.3.4/f", L"v1.2.3.4/f/", L"v1.2.3.4/a/f", L"x/v1.2.3.4/f", L"v1.2.3.4f"}) {
        EXPECT_EQ(DerivedOfPath(path), L"") << path;
    }
}

TEST(SourceRules_BackupUrl, EveryUnitInAFileName_IsJudged) {
    for (unsigned number = 0; number < 0x10000; ++number) {
        const auto unit = static_cast<wchar_t>(number);
        const bool allowed = IsAsciiAlphanumeric(unit) || unit == L'-' || unit == L'.' || unit == L'_';
        const std::wstring path = std::wstring(L"v1.2.3.4/a") + unit + L'b';
        const std::wstring expected = allowed ? std::wstring(product::kBackupReleasePrefix) + path : L"";
        ASSERT_EQ(DerivedOfPath(path), expected) << number;
        const std::wstring last = std::wstring(L"v1.2.3.4/a") + unit;
        ASSERT_EQ(DerivedOfPath(last).empty(), !allowed) << number;
    }
}

TEST(SourceRules_BackupUrl, CharactersThatWouldLeaveTheFolder_HaveNoBackup) {
    for (const wchar_t* path :
         {L"v1.2.3.4/f%2e",   L"v1.2.3.4/f?x", L"v1.2.3.4/f#x", L"v1.2.3.4/f x",    L"v1.2.3.4/f:x",
          L"v1.2.3.4/f\\x",   L"v1.2.3.4/f@x", L"v1.2.3.4/f+x", L"v1.2.3.4/f~x",    L"v1.2.3.4/f\r\nx",
          L"v1.2.3.4/\x00E4", L"v1.2.3.4\\f",  L"v1.2.3.4%2Ff", L"v1.2.3.4/f/../g", L"v1.2.3.4/..",
          L"v1.2.3.4/a..b",   L"v1.2.3.4/..a", L"v1.2.3.4/a..", L"v1.2.3.4/...",    L"v1.2..3.4/f",
          L"../v1.2.3.4",     L"v1.2.3.4../f"}) {
        EXPECT_EQ(DerivedOfPath(path), L"") << path;
    }
}

TEST(SourceRules_BackupUrl, ATagOfAnotherForm_HasNoBackup) {
    for (const wchar_t* tag : {L"v",
                               L"v1",
                               L"v1.2",
                               L"v1.2.3",
                               L"v1.2.3.",
                               L"v1.2.3.4.",
                               L"v1.2.3.4.5",
                               L"v.1.2.3",
                               L"v.1.2.3.4",
                               L"v1..2.3",
                               L"v1.2..4",
                               L"V1.2.3.4",
                               L"1.2.3.4",
                               L"launcher-1.2.3.4",
                               L"launcher-V1.2.3.4",
                               L"Launcher-v1.2.3.4",
                               L"LAUNCHER-v1.2.3.4",
                               L"launcher-v",
                               L"launcher-v1.2.3",
                               L"launcher-v1.2.3.4.5",
                               L"launcher-",
                               L"launcherv1.2.3.4",
                               L"launcher_v1.2.3.4",
                               L"vlauncher-v1.2.3.4",
                               L"launcher-vv1.2.3.4",
                               L"launcher-launcher-v1.2.3.4",
                               L"vv1.2.3.4",
                               L"xv1.2.3.4",
                               L"-v1.2.3.4",
                               L"v-1.2.3.4",
                               L"v1.2.3.-4",
                               L"v1.2.3.4-rc1",
                               L"v1.2.3.4a",
                               L"v1.2.3.4_",
                               L"v1.2.3.4-",
                               L"va.2.3.4",
                               L"v1.2.3.a",
                               L"v1.a.3.4",
                               L"v1_2_3_4",
                               L"v1-2-3-4",
                               L"v1.2.3.0x4",
                               L"latest"}) {
        EXPECT_EQ(DerivedOfPath(std::wstring(tag) + L"/f"), L"") << tag;
    }
}

TEST(SourceRules_ProbeRange, NamesTheFirstBytesAndTheWholeSize) {
    EXPECT_EQ(ProbeContentRange(0x80000, 1000000), L"bytes 0-524287/1000000");
    EXPECT_EQ(ProbeContentRange(1, 1), L"bytes 0-0/1");
    EXPECT_EQ(ProbeContentRange(0x80000000, 0x80000000), L"bytes 0-2147483647/2147483648");
    EXPECT_EQ(ProbeContentRange(4194304, kLargest), L"bytes 0-4194303/18446744073709551615");
}

TEST(SourceRules_ProbeLimits, AreWhatAMeasurementMayCost) {
    EXPECT_EQ(kStartProbe.bytes, 512 * kKiB);
    EXPECT_EQ(kStartProbe.timeMs, 2000u);
    EXPECT_EQ(kInRunProbe.bytes, 4 * kMiB);
    EXPECT_EQ(kInRunProbe.timeMs, 4000u);
    EXPECT_EQ(kUsableProbeBytes, 128 * kKiB);
}

TEST(SourceRules_ProbeSpeed, TooFewBytes_SayNothing) {
    EXPECT_EQ(ProbeSpeed(0, 0), 0.0);
    EXPECT_EQ(ProbeSpeed(0, 1000), 0.0);
    EXPECT_EQ(ProbeSpeed(131071, 0), 0.0);
    EXPECT_EQ(ProbeSpeed(131071, 1000), 0.0);
    EXPECT_EQ(ProbeSpeed(131072, 1000), 131072.0);
}

TEST(SourceRules_ProbeSpeed, LessThanAHundredMilliseconds_CountAsAHundred) {
    EXPECT_EQ(ProbeSpeed(131072, 0), 1310720.0);
    EXPECT_EQ(ProbeSpeed(131072, 1), 1310720.0);
    EXPECT_EQ(ProbeSpeed(131072, 99), 1310720.0);
    EXPECT_EQ(ProbeSpeed(131072, 100), 1310720.0);
    EXPECT_EQ(ProbeSpeed(131072, 101), 131072.0 * 1000.0 / 101.0);
    EXPECT_EQ(ProbeSpeed(524288, 2000), 262144.0);
}

TEST(SourceRules_Start, TheBackupNeedsOneAndAHalfTimesTheSpeed) {
    EXPECT_FALSE(BackupWinsAtStart(1000000.0, 1490000.0));
    EXPECT_FALSE(BackupWinsAtStart(1000000.0, std::nextafter(1500000.0, 0.0)));
    EXPECT_TRUE(BackupWinsAtStart(1000000.0, 1500000.0));
    EXPECT_TRUE(BackupWinsAtStart(1000000.0, 9000000.0));
    EXPECT_FALSE(BackupWinsAtStart(1000000.0, 1000000.0));
    EXPECT_FALSE(BackupWinsAtStart(1500000.0, 1000000.0));
}

TEST(SourceRules_Start, ASourceThatDidNotAnswer_Loses) {
    EXPECT_FALSE(BackupWinsAtStart(0.0, 0.0));
    EXPECT_FALSE(BackupWinsAtStart(1.0, 0.0));
    EXPECT_FALSE(BackupWinsAtStart(1000000.0, 0.0));
    EXPECT_TRUE(BackupWinsAtStart(0.0, 1.0));
    EXPECT_TRUE(BackupWinsAtStart(0.0, std::numeric_limits<double>::denorm_min()));
}

TEST(SourceRules_Start, ABackupSpeedThatIsNone_Loses) {
    EXPECT_FALSE(BackupWinsAtStart(0.0, kNotANumber));
    EXPECT_FALSE(BackupWinsAtStart(1.0, kNotANumber));
    EXPECT_FALSE(BackupWinsAtStart(0.0, -1.0));
}

/// A download for which a look at the other source is due: 20 of 100 MiB held, 1 MB/s over a full window.
struct Running {
    std::uint64_t sinceFirstByteMs = 20000;
    std::uint64_t windowMs = 10000;
    std::uint64_t windowBytes = 1000000;
    std::uint64_t bytesHeld = 20 * kMiB;
    std::uint64_t size = 100 * kMiB;
    std::uint64_t delayMs = 10000;
    std::uint64_t windowLengthMs = 10000;

    [[nodiscard]] bool IsDue() const {
        return ShouldCompareSources(sinceFirstByteMs, windowMs, windowBytes, bytesHeld, size, delayMs, windowLengthMs);
    }
};

TEST(SourceRules_Compare, EachCondition_HoldsAtItsBoundary) {
    struct Row {
        const char* name;
        std::function<void(Running&)> change;
        bool due;
    };
    const Row rows[] = {
        {"as it is", [](Running&) {}, true},
        {"window without time", [](Running& r) { r.windowMs = r.windowLengthMs = 0; }, false},
        {"window of one millisecond", [](Running& r) { r.windowMs = r.windowLengthMs = r.windowBytes = 1; }, true},
        {"window without bytes", [](Running& r) { r.windowBytes = 0; }, false},
        {"window of one byte", [](Running& r) { r.windowBytes = 1; }, true},
        {"first byte a window ago, less one", [](Running& r) { r.sinceFirstByteMs = 19999; }, false},
        {"first byte a delay ago", [](Running& r) { r.sinceFirstByteMs = 10000; }, false},
        {"first byte less than a delay ago", [](Running& r) { r.sinceFirstByteMs = 9999; }, false},
        {"first byte now", [](Running& r) { r.sinceFirstByteMs = 0; }, false},
        {"first byte long ago", [](Running& r) { r.sinceFirstByteMs = kLargest; }, true},
        {"longer delay", [](Running& r) { r.delayMs = 10001; }, false},
        {"window too short", [](Running& r) { r.windowMs = 9999; }, false},
        {"window longer", [](Running& r) { r.windowMs = 10001; }, true},
        {"longer window wanted", [](Running& r) { r.windowLengthMs = 10001, r.sinceFirstByteMs = 30000; }, false},
        {"no delay and no length", [](Running& r) { r.delayMs = r.windowLengthMs = 0; }, true},
        {"least held", [](Running& r) { r.bytesHeld = 0x20000; }, true},
        {"less than the least held", [](Running& r) { r.bytesHeld = 0x1FFFF; }, false},
        {"nothing held", [](Running& r) { r.bytesHeld = 0; }, false},
        {"all held", [](Running& r) { r.bytesHeld = r.size; }, false},
        {"more than all held", [](Running& r) { r.bytesHeld = r.size + 1; }, false},
        {"far more than all held", [](Running& r) { r.bytesHeld = kLargest; }, false},
        {"least left", [](Running& r) { r.windowBytes = 1, r.size = r.bytesHeld + 0x100000; }, false},
        {"least left, early", [](Running& r) { r.windowBytes = 1, r.bytesHeld = 4 * kMiB, r.size = 5 * kMiB; }, true},
        {"one byte less left", [](Running& r) { r.windowBytes = 1, r.bytesHeld = 4 * kMiB, r.size = 5 * kMiB - 1; },
         false},
        {"19 of 20 parts done", [](Running& r) { r.windowBytes = 1, r.bytesHeld = 95 * kMiB; }, false},
        {"one byte before that", [](Running& r) { r.windowBytes = 1, r.bytesHeld = 95 * kMiB - 1; }, true},
    };
    for (const Row& row : rows) {
        Running running;
        row.change(running);
        EXPECT_EQ(running.IsDue(), row.due) << row.name;
    }
}

TEST(SourceRules_Compare, TenSecondsLeft_AreNotEnough) {
    Running running;
    running.windowBytes = 10000000;
    running.bytesHeld = 20000000;
    running.size = 30000000;
    EXPECT_FALSE(running.IsDue());
    ++running.size;
    EXPECT_TRUE(running.IsDue());
    --running.size;
    --running.windowBytes;
    EXPECT_TRUE(running.IsDue());
    ++running.windowBytes;
    ++running.windowMs;
    EXPECT_TRUE(running.IsDue());
    --running.windowMs;
    ++running.bytesHeld;
    EXPECT_FALSE(running.IsDue());
}

TEST(SourceRules_Compare, DelayAndLengthThatOverflowTogether_AreNeverReached) {
    Running running;
    running.delayMs = kLargest;
    running.windowLengthMs = 10000;
    running.sinceFirstByteMs = kLargest;
    EXPECT_FALSE(running.IsDue());
    running.sinceFirstByteMs = 20000;
    EXPECT_FALSE(running.IsDue());
    running.delayMs = 10000;
    running.windowLengthMs = running.windowMs = kLargest;
    running.sinceFirstByteMs = kLargest;
    EXPECT_FALSE(running.IsDue());
    running.delayMs = 0;
    EXPECT_TRUE(running.IsDue());
}

/// A measurement that says: change. 10 of 100 MB held at 1 MB/s; the backup has ten times that.
struct Measured {
    double primarySpeed = 1000000.0;
    double backupSpeed = 10000000.0;
    std::uint64_t bytesHeld = 10000000;
    std::uint64_t size = 100000000;

    [[nodiscard]] bool IsFaster() const { return BackupMeasuredFaster(primarySpeed, backupSpeed, bytesHeld, size); }
};

TEST(SourceRules_Change, EachCondition_HoldsAtItsBoundary) {
    struct Row {
        const char* name;
        std::function<void(Measured&)> change;
        bool faster;
    };
    const Row rows[] = {
        {"as it is", [](Measured&) {}, true},
        {"primary not a number", [](Measured& m) { m.primarySpeed = kNotANumber; }, false},
        {"primary infinite", [](Measured& m) { m.primarySpeed = kInfinite; }, false},
        {"primary minus infinite", [](Measured& m) { m.primarySpeed = -kInfinite; }, false},
        {"primary zero", [](Measured& m) { m.primarySpeed = 0.0; }, false},
        {"primary minus zero", [](Measured& m) { m.primarySpeed = -0.0; }, false},
        {"primary negative", [](Measured& m) { m.primarySpeed = -1.0; }, false},
        {"primary hardly moving", [](Measured& m) { m.primarySpeed = 1e-300; }, true},
        {"primary as fast as a number goes", [](Measured& m) { m.primarySpeed = 1.7e308; }, false},
        {"backup not a number", [](Measured& m) { m.backupSpeed = kNotANumber; }, false},
        {"backup infinite", [](Measured& m) { m.backupSpeed = kInfinite; }, false},
        {"backup minus infinite", [](Measured& m) { m.backupSpeed = -kInfinite; }, false},
        {"backup zero", [](Measured& m) { m.backupSpeed = 0.0; }, false},
        {"backup negative", [](Measured& m) { m.backupSpeed = -10000000.0; }, false},
        {"both not a number", [](Measured& m) { m.primarySpeed = m.backupSpeed = kNotANumber; }, false},
        {"both infinite", [](Measured& m) { m.primarySpeed = m.backupSpeed = kInfinite; }, false},
        {"backup twice as fast, nothing held", [](Measured& m) { m.backupSpeed = 2000000.0, m.bytesHeld = 0; }, true},
        {"backup not quite twice as fast, nothing held",
         [](Measured& m) { m.backupSpeed = std::nextafter(2000000.0, 0.0), m.bytesHeld = 0; }, false},
        {"sources change places", [](Measured& m) { std::swap(m.primarySpeed, m.backupSpeed); }, false},
        {"all held", [](Measured& m) { m.bytesHeld = m.size; }, false},
        {"more than all held", [](Measured& m) { m.bytesHeld = m.size + 1; }, false},
        {"far more than all held", [](Measured& m) { m.bytesHeld = kLargest; }, false},
        {"nothing at all", [](Measured& m) { m.bytesHeld = m.size = 0; }, false},
        {"least left", [](Measured& m) { m.primarySpeed = 1.0, m.bytesHeld = 4 * kMiB, m.size = 5 * kMiB; }, true},
        {"one byte less left", [](Measured& m) { m.primarySpeed = 1.0, m.bytesHeld = 4 * kMiB, m.size = 5 * kMiB - 1; },
         false},
        {"19 of 20 parts done", [](Measured& m) { m.primarySpeed = 1.0, m.bytesHeld = 95000000; }, false},
        {"one byte before that", [](Measured& m) { m.primarySpeed = 1.0, m.bytesHeld = 94999999; }, true},
    };
    for (const Row& row : rows) {
        Measured measured;
        row.change(measured);
        EXPECT_EQ(measured.IsFaster(), row.faster) << row.name;
    }
}

TEST(SourceRules_Change, EightSecondsMore_AreNotEnough) {
    Measured measured{1000000.0, 2000000.0, 2000000, 20000000};  // 18 s left; 10 s from the backup
    EXPECT_FALSE(measured.IsFaster());
    --measured.bytesHeld;
    EXPECT_TRUE(measured.IsFaster());
    ++measured.bytesHeld;
    measured.primarySpeed = 999999.0;
    EXPECT_TRUE(measured.IsFaster());
    measured.primarySpeed = 1000000.0;
    measured.backupSpeed = 2000001.0;
    EXPECT_TRUE(measured.IsFaster());
}

TEST(SourceRules_Change, TheBackupIsChargedTheWholePayload) {
    // 50 of 100 MB held, 50 s left; the backup at 2.4 MB/s would need 20.8 s for the rest but 41.7 s for all of it.
    const Measured measured{1000000.0, 2400000.0, 50000000, 100000000};
    EXPECT_TRUE(measured.IsFaster());
    // At 2.3 MB/s all of it takes 43.5 s.
    const Measured slower{1000000.0, 2300000.0, 50000000, 100000000};
    EXPECT_FALSE(slower.IsFaster());
}

TEST(SourceRules_Failover, HappensForWhatAnotherServerMayCure) {
    const std::pair<const Failure*, bool> rows[] = {
        {&failures::kSessionFailed, false},
        {&failures::kTimeoutPolicyFailed, false},
        {&failures::kRedirectPolicyFailed, false},
        {&failures::kConnectFailed, true},
        {&failures::kRequestFailed, false},
        {&failures::kConnectionFailed, true},
        {&failures::kInvalidResponse, true},
        {&failures::kHttpError, true},
        {&failures::kHtmlResponse, true},
        {&failures::kUnexpectedEncoding, false},
        {&failures::kContentLengthMismatch, true},
        {&failures::kServerRequestedLaterRetry, true},
        {&failures::kBackupMeasuredFaster, true},
        {&failures::kPayloadTooLarge, true},
        {&failures::kWriteFailed, false},
        {&failures::kFlushFailed, false},
        {&failures::kCacheSeekFailed, false},
        {&failures::kCacheResetFailed, false},
        {&failures::kResumeStateWriteFailed, false},
        {&failures::kReceiveFailed, true},
        {&failures::kSha256Mismatch, true},
        {&failures::kRetriesExhausted, true},
        {&failures::kDownloadFailed, false},
        {&failures::kCancelled, false},
    };
    for (const auto& [failure, eligible] : rows) {
        Result result;
        result.reason = failure->reason;
        EXPECT_EQ(IsFailoverEligible(result), eligible) << result.reason;
    }
}

TEST(SourceRules_Failover, HappensForExactlyTheseTwelveTexts) {
    for (const wchar_t* reason :
         {L"backup-measured-faster", L"http-error", L"connection-failed", L"connect-failed", L"receive-failed",
          L"download-retries-exhausted", L"server-requested-later-retry", L"html-response", L"content-length-mismatch",
          L"payload-too-large", L"sha256-mismatch", L"invalid-response"}) {
        Result result;
        result.reason = reason;
        EXPECT_TRUE(IsFailoverEligible(result)) << reason;
        result.reason += L' ';
        EXPECT_FALSE(IsFailoverEligible(result)) << reason;
        result.reason = std::wstring_view(reason).substr(1);
        EXPECT_FALSE(IsFailoverEligible(result)) << reason;
        result.reason = reason;
        result.reason.pop_back();
        EXPECT_FALSE(IsFailoverEligible(result)) << reason;
        result.reason = reason;
        result.reason[0] = static_cast<wchar_t>(result.reason[0] - L'a' + L'A');
        EXPECT_FALSE(IsFailoverEligible(result)) << reason;
    }
}

TEST(SourceRules_Failover, NeverHappensForARefusalOrASuccess) {
    for (const wchar_t* reason :
         {refusals::kInvalidPayload, refusals::kInvalidUrl, refusals::kHttpsRequired, refusals::kCancelled,
          refusals::kUnsafeOrFullCache, refusals::kCacheFileUnavailable, L""}) {
        Result result;
        result.reason = reason;
        EXPECT_FALSE(IsFailoverEligible(result)) << reason;
    }
    Result success;
    success.success = true;
    EXPECT_FALSE(IsFailoverEligible(success));
}

}  // namespace
}  // namespace launcher_download
