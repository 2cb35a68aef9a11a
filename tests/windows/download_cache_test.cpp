#include <windows.h>

#include <winioctl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "download/cache.h"
#include "download/cache_file.h"
#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"

namespace launcher_download {
namespace {

using test_support::FaultKind;
using test_support::FileLength;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;
using Names = std::set<std::wstring>;

using OnClock = StandIn<"GetSystemTimeAsFileTime", decltype(GetSystemTimeAsFileTime)>;
using OnFindFirst = StandIn<"FindFirstFileW", decltype(FindFirstFileW)>;
using OnFindNext = StandIn<"FindNextFileW", decltype(FindNextFileW)>;
using OnFindClose = StandIn<"FindClose", decltype(FindClose)>;
using OnCreateFile = StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;

constexpr std::uint64_t kNow = 133500000000000000;  // ticks of 100 ns since 1601: a day in January 2024
constexpr std::uint64_t kSecond = 10000000;
constexpr std::uint64_t kDay = 86400 * kSecond;
constexpr std::uint64_t kGiB = 1ull << 30;

std::uint64_t Ticks(const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

FILETIME ToFileTime(std::uint64_t ticks) {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

/// The stem of the payload with that number: the higher the number, the further back in the alphabet.
std::wstring Stem(unsigned number) {
    std::wstring digits = std::to_wstring(number);
    return std::wstring(64 - digits.size(), L'0') + digits;
}
std::wstring Part(unsigned number) {
    return Stem(number) + L".part";
}
std::wstring Resume(unsigned number) {
    return Stem(number) + L".resume";
}

const std::wstring kCurrent(64, L'c');

/// The names in a directory.
Names List(const std::wstring& directory) {
    Names names;
    WIN32_FIND_DATAW found{};
    const platform::FindHandle find(FindFirstFileW((directory + L"\\*").c_str(), &found));
    EXPECT_TRUE(static_cast<bool>(find));
    for (BOOL more = find ? TRUE : FALSE; more; more = FindNextFileW(find.Get(), &found)) {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L"..") names.insert(name);
    }
    return names;
}

/// One cache directory, and a clock that stands at `kNow` until `clockStands_` is false.
class Cache_Scan : public ::testing::Test {
  protected:
    /// Makes a file of `bytes` bytes without filling the disk, last written at `writtenTicks`.
    void Leave(const std::wstring& name, std::uint64_t writtenTicks, std::uint64_t bytes = 1) const {
        const platform::FileHandle file(
            CreateFileW((top_ / name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(static_cast<bool>(file)) << GetLastError();
        DWORD unused = 0;
        // Where this is unknown the file system leaves holes of its own accord.
        DeviceIoControl(file.Get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &unused, nullptr);
        ASSERT_TRUE(SeekTo(file.Get(), bytes) && SetEndOfFile(file.Get())) << GetLastError();
        FILE_STANDARD_INFO facts{};
        ASSERT_TRUE(GetFileInformationByHandleEx(file.Get(), FileStandardInfo, &facts, sizeof(facts)));
        ASSERT_EQ(facts.EndOfFile.QuadPart, static_cast<LONGLONG>(bytes));
        ASSERT_LT(facts.AllocationSize.QuadPart, 1 << 20) << "the disk would fill";
        const FILETIME written = ToFileTime(writtenTicks);
        ASSERT_TRUE(SetFileTime(file.Get(), nullptr, nullptr, &written));
    }

    /// Leaves the payload with that number, and its resume file.
    void LeavePayload(unsigned number, std::uint64_t writtenTicks, std::uint64_t bytes = 1) const {
        Leave(Part(number), writtenTicks, bytes);
        Leave(Resume(number), writtenTicks);
    }

    /// Leaves payloads `first` to `last`, each a second younger than the one before; the last is a second old.
    void LeavePayloads(unsigned first, unsigned last, std::uint64_t bytes = 1) const {
        for (unsigned number = first; number <= last; ++number)
            LeavePayload(number, kNow - (last + 1 - number) * kSecond, bytes);
    }

    [[nodiscard]] bool Scan(std::uint64_t requestSize = 1) const {
        return ScanCache(top_.Path(), kCurrent, requestSize);
    }

    /// The numbers of the payloads that are there; none may be without its resume file, nor the other way round.
    [[nodiscard]] std::vector<unsigned> Payloads() const {
        std::vector<unsigned> numbers;
        const Names names = List(top_.Path());
        for (unsigned number = 0; number < 300; ++number) {
            EXPECT_EQ(names.count(Part(number)), names.count(Resume(number))) << number;
            if (names.count(Part(number)) != 0) numbers.push_back(number);
        }
        return numbers;
    }

    [[nodiscard]] static std::vector<unsigned> Range(unsigned first, unsigned last) {
        std::vector<unsigned> numbers;
        for (unsigned number = first; number <= last; ++number)
            numbers.push_back(number);
        return numbers;
    }

    /// A scan must refuse and leave everything as it was.
    void ExpectRefusal(std::uint64_t requestSize = 1) const {
        const Names before = List(top_.Path());
        EXPECT_FALSE(Scan(requestSize));
        EXPECT_EQ(List(top_.Path()), before);
    }

    TemporaryDirectory top_;
    bool clockStands_ = true;

  private:
    OnClock clock_{[this](LPFILETIME time) {
        if (!clockStands_) return OnClock::Original(time);
        *time = ToFileTime(kNow);
    }};
};

TEST_F(Cache_Scan, AnEmptyDirectory_Passes) {
    EXPECT_TRUE(Scan());
    EXPECT_TRUE(Scan(0x80000000));
    EXPECT_EQ(List(top_.Path()), Names{});
}

TEST_F(Cache_Scan, AMissingDirectory_IsRefused) {
    EXPECT_FALSE(ScanCache(top_ / L"other", kCurrent, 1));
    EXPECT_EQ(List(top_.Path()), Names{});
}

// What is found

TEST_F(Cache_Scan, TheComingPayloadAlone_StaysWhateverItsAgeAndLength) {
    Leave(kCurrent + L".part", kNow - 100 * kDay, 5 * kGiB);
    Leave(kCurrent + L".resume", kNow - 100 * kDay);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(List(top_.Path()), (Names{kCurrent + L".part", kCurrent + L".resume"}));
}

TEST_F(Cache_Scan, TheComingPayload_CountsOnceAndByItsRequest) {
    Leave(kCurrent + L".part", kNow - 100 * kDay, 3 * kGiB);
    LeavePayloads(2, 15);
    LeavePayload(16, kNow - 60 * kSecond, 2 * kGiB);
    EXPECT_TRUE(Scan(2 * kGiB - 14));
    EXPECT_EQ(Payloads(), Range(2, 16));
    EXPECT_TRUE(Scan(2 * kGiB - 13));
    EXPECT_EQ(Payloads(), Range(2, 15));
    EXPECT_EQ(FileLength(top_ / (kCurrent + L".part")), static_cast<long long>(3 * kGiB));
}

TEST_F(Cache_Scan, AnUnknownPart_RefusesTheWholeCache) {
    std::vector<std::wstring> names;
    for (const wchar_t* name : {L".part", L"a.part", L"readme.part", L"download-trace.part", L"a.part.part"}) {
        names.emplace_back(name);
    }
    const std::wstring good(64, L'a');
    names.push_back(good.substr(1) + L".part");
    names.push_back(good + L"a.part");
    names.push_back(good + good + L".part");
    names.push_back(good.substr(1) + L"g.part");
    names.push_back(good.substr(1) + L"A.part");
    names.push_back(std::wstring(64, L'A') + L".part");
    names.push_back(std::wstring(64, L'C') + L".part");
    names.push_back(good.substr(1) + L" .part");
    names.push_back(L" " + good.substr(1) + L".part");
    names.push_back(good.substr(1) + L"\u00E9.part");
    names.push_back(good.substr(1) + L"\uFF11.part");
    names.push_back(good + L".PART");
    names.push_back(good + L".parT");
    names.push_back(good + L"..part");
    names.push_back(good + L".part.part");
    LeavePayload(0, kNow - 8 * kDay);
    for (const std::wstring& name : names) {
        SCOPED_TRACE(platform::EncodeUtf8(name));
        WriteWholeFile(top_ / name, "");
        ExpectRefusal();
        ASSERT_TRUE(DeleteFileW((top_ / name).c_str()));
    }
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), std::vector<unsigned>{});
}

TEST_F(Cache_Scan, ADirectoryNamedAsAPayload_RefusesTheWholeCache) {
    LeavePayload(0, kNow - 8 * kDay);
    for (const std::wstring& stem : {Stem(1), kCurrent}) {
        const std::wstring path = top_ / (stem + L".part");
        ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
        ExpectRefusal();
        ASSERT_TRUE(RemoveDirectoryW(path.c_str()));
    }
    EXPECT_TRUE(Scan());
}

TEST_F(Cache_Scan, ALinkNamedAsAPayload_RefusesTheWholeCache) {
    LeavePayload(0, kNow - 8 * kDay);
    LeavePayload(1, kNow);
    Leave(kCurrent + L".part", kNow);
    for (const std::wstring& name : {Part(0), Part(1), kCurrent + L".part"}) {
        SCOPED_TRACE(platform::EncodeUtf8(name));
        const ForcedAttributes forced(name, FILE_ATTRIBUTE_REPARSE_POINT);
        ExpectRefusal();
    }
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(1, 1));
}

TEST_F(Cache_Scan, OtherFiles_AreNotItsBusiness) {
    const Names others{Stem(1),
                       Stem(1) + L".resume",
                       Stem(1) + L".resume.tmp",
                       Stem(1) + L".partial",
                       Stem(1) + L".part.tmp",
                       Stem(1) + L".part~",
                       Stem(1) + L"part",
                       L"download-trace.jsonl",
                       L"download-trace.previous.jsonl",
                       L"x.partial",
                       L"x.parts",
                       L"x.par",
                       L"part"};
    for (const std::wstring& name : others)
        Leave(name, kNow - 100 * kDay, 3 * kGiB);
    ASSERT_TRUE(CreateDirectoryW((top_ / L"r2").c_str(), nullptr));
    Leave(L"r2\\" + Part(2), kNow - 100 * kDay);
    Leave(L"r2\\x.part", kNow);
    const Names before = List(top_.Path());
    EXPECT_TRUE(Scan());
    EXPECT_EQ(List(top_.Path()), before);
    EXPECT_EQ(List(top_ / L"r2"), (Names{Part(2), L"x.part"}));
}

TEST_F(Cache_Scan, TheLongestPayload_IsTaken) {
    LeavePayload(1, kNow, 0x80000000);
    EXPECT_TRUE(Scan(0x80000000));
    EXPECT_EQ(Payloads(), Range(1, 1));
}

TEST_F(Cache_Scan, ALongerPayload_RefusesTheWholeCache) {
    LeavePayload(0, kNow - 8 * kDay);
    // The lower halves of the last two lengths alone would pass.
    for (const std::uint64_t bytes : {0x80000001ull, 0xFFFFFFFFull, 0x100000000ull, 0x180000000ull}) {
        SCOPED_TRACE(bytes);
        LeavePayload(1, kNow - 9 * kDay, bytes);
        ExpectRefusal();
        ASSERT_TRUE(DeleteFileSafely(top_ / Part(1)) && DeleteFileSafely(top_ / Resume(1)));
    }
    EXPECT_TRUE(Scan());
}

TEST_F(Cache_Scan, ASumThatOverflows_RefusesBeforeAnythingGoes) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    LeavePayload(1, kNow - 8 * kDay, 100);
    ExpectRefusal(kMost - 99);
    ExpectRefusal(kMost);
    EXPECT_FALSE(Scan(kMost - 100));
    EXPECT_EQ(Payloads(), std::vector<unsigned>{}) << "the sum is just no overflow, and the limit asks for room";
}

// How many

TEST_F(Cache_Scan, SixteenWithTheComingOne_Stay) {
    LeavePayloads(1, 15);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(1, 15));
    Leave(kCurrent + L".part", kNow - 90 * kSecond);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(1, 15));
}

TEST_F(Cache_Scan, TheSeventeenth_MakesTheOldestGoHoweverYoung) {
    LeavePayloads(1, 16);
    Leave(kCurrent + L".part", kNow - 90 * kSecond);
    Leave(Stem(99) + L".resume", kNow - 100 * kDay);
    EXPECT_TRUE(Scan());
    const Names left = List(top_.Path());
    EXPECT_EQ(left.count(Stem(99) + L".resume"), 1u) << "nobody looks for a resume file without its payload";
    EXPECT_EQ(left.count(kCurrent + L".part"), 1u) << "the coming payload is the oldest file of all, and stays";
    EXPECT_EQ(left.size(), 2u + 2 * 15);
    ASSERT_TRUE(DeleteFileSafely(top_ / (Stem(99) + L".resume")));
    EXPECT_EQ(Payloads(), Range(2, 16));
}

TEST_F(Cache_Scan, Age_GoesByTheLastWriteAndNotByTheName) {
    // Number 12 is the oldest, 4 the next, and so on.
    const unsigned order[] = {12, 4, 17, 1, 9, 18, 3, 14, 6, 10, 2, 16, 8, 13, 5, 11, 7, 15};
    for (unsigned at = 0; at < std::size(order); ++at)
        LeavePayload(order[at], kNow - (std::size(order) - at) * kSecond);
    EXPECT_TRUE(Scan());
    std::vector<unsigned> left(std::begin(order) + 3, std::end(order));
    std::sort(left.begin(), left.end());
    EXPECT_EQ(Payloads(), left);
}

TEST_F(Cache_Scan, Age_GoesByBothHalvesOfTheTime) {
    // By their lower halves alone the first would be the youngest of all.
    constexpr std::uint64_t kEdge = kNow >> 32 << 32;
    LeavePayload(1, kEdge - 1);
    for (unsigned number = 2; number <= 16; ++number)
        LeavePayload(number, kEdge + number);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(2, 16));
}

TEST_F(Cache_Scan, Age_GoesByNoOtherTimeOfTheFile) {
    const auto swap = [](LPWIN32_FIND_DATAW found) {
        found->ftCreationTime = ToFileTime(2 * kNow - Ticks(found->ftLastWriteTime) - 10 * kDay);
        found->ftLastAccessTime = found->ftCreationTime;
    };
    const OnFindFirst first([&swap](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
        const HANDLE find = OnFindFirst::Original(pattern, found);
        if (find != INVALID_HANDLE_VALUE) swap(found);
        return find;
    });
    const OnFindNext next([&swap](HANDLE find, LPWIN32_FIND_DATAW found) {
        const BOOL more = OnFindNext::Original(find, found);
        if (more) swap(found);
        return more;
    });
    LeavePayload(0, kNow - 9 * kDay);
    LeavePayloads(1, 16);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(2, 16));
}

TEST_F(Cache_Scan, ATick_MakesOneFileOlderThanAnother) {
    for (unsigned number = 1; number <= 16; ++number)
        LeavePayload(number, kNow - kSecond + (number == 11 ? 0 : 1));
    EXPECT_TRUE(Scan());
    std::vector<unsigned> left = Range(1, 16);
    left.erase(left.begin() + 10);
    EXPECT_EQ(Payloads(), left);
}

TEST_F(Cache_Scan, AHundredAndTwentyEightOthers_AreCutDownToTheLimit) {
    LeavePayloads(0, 127);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(113, 127));
}

TEST_F(Cache_Scan, AHundredAndTwentyNineOthers_AreRefused) {
    LeavePayloads(0, 128);
    ExpectRefusal();
}

TEST_F(Cache_Scan, TheComingPayload_IsOneEntryTooManyBehindAHundredAndTwentyEight) {
    LeavePayloads(0, 127);
    // The names come in alphabetical order: the current one behind all others, then in front of them.
    Leave(kCurrent + L".part", kNow);
    ExpectRefusal();
    ASSERT_TRUE(DeleteFileSafely(top_ / (kCurrent + L".part")));
    const std::wstring first(64, L'0');
    EXPECT_TRUE(ScanCache(top_.Path(), first, 1));
    EXPECT_EQ(List(top_.Path()).count(first + L".part"), 1u);
    EXPECT_EQ(Payloads().size(), 16u) << "127 others, of which 15 may stay beside the coming one";
}

// How much

TEST_F(Cache_Scan, ThreeGibibytesHeldAndTwoComing_MakeTheOldestGo) {
    LeavePayloads(1, 6, kGiB / 2);
    EXPECT_TRUE(Scan(2 * kGiB));
    EXPECT_EQ(Payloads(), Range(3, 6));
}

TEST_F(Cache_Scan, ExactlyFourGibibytes_Stay) {
    LeavePayloads(1, 3, kGiB);
    EXPECT_TRUE(Scan(kGiB));
    EXPECT_EQ(Payloads(), Range(1, 3));
    EXPECT_TRUE(Scan(kGiB + 1));
    EXPECT_EQ(Payloads(), Range(2, 3));
}

TEST_F(Cache_Scan, SmallFiles_GoBeforeALargeYoungerOne) {
    LeavePayloads(1, 3);
    LeavePayload(4, kNow, 2 * kGiB);
    LeavePayload(5, kNow, kGiB);
    EXPECT_TRUE(Scan(kGiB));
    EXPECT_EQ(Payloads(), Range(4, 5)) << "three bytes were too many";
}

TEST_F(Cache_Scan, EveryOther_GoesForARequestThatFillsTheCacheAlone) {
    LeavePayloads(1, 3);
    EXPECT_TRUE(Scan(4 * kGiB));
    EXPECT_EQ(Payloads(), std::vector<unsigned>{});
    LeavePayloads(1, 3);
    EXPECT_FALSE(Scan(4 * kGiB + 1));
    EXPECT_EQ(Payloads(), std::vector<unsigned>{});
}

// How old

TEST_F(Cache_Scan, EightDays_AreTooOldWithRoomToSpare) {
    LeavePayload(1, kNow - kDay);
    LeavePayload(2, kNow - 8 * kDay);
    LeavePayload(3, kNow - 6 * kDay);
    LeavePayload(4, kNow - 400 * kDay);
    Leave(Stem(99) + L".resume", kNow - 8 * kDay);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(List(top_.Path()), (Names{Part(1), Resume(1), Part(3), Resume(3), Stem(99) + L".resume"}));
}

TEST_F(Cache_Scan, SevenDays_AreTheLimitToTheTick) {
    LeavePayload(1, kNow - 6048000000000);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(1, 1));
    LeavePayload(2, kNow - 6048000000001);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(1, 1));
}

TEST_F(Cache_Scan, TheClock_IsTheSystems) {
    clockStands_ = false;
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    LeavePayload(1, Ticks(now) - 7 * kDay - 60 * kSecond);
    LeavePayload(2, Ticks(now) - 7 * kDay + 600 * kSecond);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(2, 2));
}

TEST_F(Cache_Scan, TheFuture_IsYoung) {
    LeavePayload(1, kNow + 1);
    LeavePayload(2, kNow + 8 * kDay);
    LeavePayload(3, kNow + 10000 * kDay);
    LeavePayload(4, kNow - 8 * kDay);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), Range(1, 3));
}

TEST_F(Cache_Scan, TheFuture_GoesOnlyUnderPressureAndLast) {
    LeavePayload(1, kNow + 20 * kDay);
    LeavePayload(2, kNow + 10 * kDay);
    LeavePayload(3, kNow + 30 * kDay);
    LeavePayloads(4, 16);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), [] {
        std::vector<unsigned> left = Range(1, 16);
        left.erase(left.begin() + 3);
        return left;
    }());
    EXPECT_TRUE(Scan(4 * kGiB - 2));
    EXPECT_EQ(Payloads(), (std::vector<unsigned>{1, 3}));
}

// What cannot go

TEST_F(Cache_Scan, AFileThatIsHeldOpen_MakesTheNextOneGo) {
    LeavePayloads(1, 16);
    {
        const platform::FileHandle held(CreateFileW((top_ / Part(1)).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                                    FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(static_cast<bool>(held));
        EXPECT_TRUE(Scan());
    }
    std::vector<unsigned> left = Range(1, 16);
    left.erase(left.begin() + 1);
    EXPECT_EQ(Payloads(), left) << "the resume file of what stays, stays";
}

TEST_F(Cache_Scan, AFileWithASecondName_MakesTheNextOneGo) {
    LeavePayloads(1, 16);
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), (top_ / Part(1)).c_str(), nullptr));
    EXPECT_TRUE(Scan());
    std::vector<unsigned> left = Range(1, 16);
    left.erase(left.begin() + 1);
    EXPECT_EQ(Payloads(), left);
}

TEST_F(Cache_Scan, AFailedDeletion_MakesTheNextOneGo) {
    LeavePayloads(1, 16);
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("SetFileInformationByHandle", L"");
    EXPECT_TRUE(Scan());
    EXPECT_TRUE(faults.Reached());
    EXPECT_EQ(faults.Count(), 3u) << "the failed one, the next one, and that one's resume file";
    std::vector<unsigned> left = Range(1, 16);
    left.erase(left.begin() + 1);
    EXPECT_EQ(Payloads(), left);
}

TEST_F(Cache_Scan, BytesThatCannotGo_StillCount) {
    LeavePayloads(1, 3, kGiB);
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("SetFileInformationByHandle", L"");
    EXPECT_TRUE(Scan(2 * kGiB));
    EXPECT_TRUE(faults.Reached());
    EXPECT_EQ(Payloads(), (std::vector<unsigned>{1, 3}));
}

TEST_F(Cache_Scan, TooManyThatCannotGo_AreRefused) {
    LeavePayloads(1, 16);
    {
        MutationFaults faults(FaultKind::fail, 1, ERROR_ACCESS_DENIED, true);
        faults.CountOnly("SetFileInformationByHandle", L"");
        EXPECT_FALSE(Scan());
        EXPECT_EQ(faults.Count(), 16u) << "each was tried once, and no resume file of what stayed";
    }
    EXPECT_EQ(Payloads(), Range(1, 16));
}

TEST_F(Cache_Scan, TooMuchThatCannotGo_IsRefused) {
    LeavePayloads(1, 2, 2 * kGiB);
    ASSERT_TRUE(CreateHardLinkW((top_ / L"first").c_str(), (top_ / Part(1)).c_str(), nullptr));
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), (top_ / Part(2)).c_str(), nullptr));
    EXPECT_FALSE(Scan(1));
    EXPECT_EQ(Payloads(), Range(1, 2));
    ASSERT_TRUE(DeleteFileW((top_ / L"second").c_str()));
    EXPECT_TRUE(Scan(1));
    EXPECT_EQ(Payloads(), Range(1, 1));
}

TEST_F(Cache_Scan, AnOldFileThatCannotGo_IsBorneWithinTheLimits) {
    LeavePayload(1, kNow - 9 * kDay);
    LeavePayload(2, kNow - 8 * kDay);
    LeavePayload(3, kNow);
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), (top_ / Part(1)).c_str(), nullptr));
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), (std::vector<unsigned>{1, 3}));
}

TEST_F(Cache_Scan, OldFilesThatCannotGo_AreBorneAlone) {
    LeavePayload(1, kNow - 9 * kDay);
    ASSERT_TRUE(CreateHardLinkW((top_ / L"second").c_str(), (top_ / Part(1)).c_str(), nullptr));
    EXPECT_TRUE(Scan(4 * kGiB - 1));
    EXPECT_FALSE(Scan(4 * kGiB));
    EXPECT_EQ(Payloads(), Range(1, 1));
}

TEST_F(Cache_Scan, AResumeFileThatCannotGo_IsNoHindrance) {
    LeavePayloads(3, 16);
    Leave(Part(1), kNow - kDay);
    ASSERT_TRUE(CreateDirectoryW((top_ / Resume(1)).c_str(), nullptr));
    LeavePayload(2, kNow - kSecond);
    EXPECT_TRUE(Scan());
    const Names left = List(top_.Path());
    EXPECT_EQ(left.count(Part(1)), 0u);
    EXPECT_EQ(left.count(Resume(1)), 1u);
    EXPECT_EQ(left.size(), 1u + 2 * 15);
}

TEST_F(Cache_Scan, APayloadWithoutAResumeFile_Goes) {
    Leave(Part(1), kNow - 8 * kDay);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(List(top_.Path()), Names{});
}

// What Windows says

TEST_F(Cache_Scan, ASearchThatCannotBegin_IsRefused) {
    for (const DWORD error : std::initializer_list<DWORD>{ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND,
                                                          ERROR_NO_MORE_FILES, ERROR_NOT_READY, ERROR_SUCCESS}) {
        const OnFindFirst first([error](auto...) {
            SetLastError(error);
            return INVALID_HANDLE_VALUE;
        });
        EXPECT_FALSE(Scan()) << error;
    }
    const OnFindFirst first([](auto...) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    });
    EXPECT_TRUE(Scan());
}

TEST_F(Cache_Scan, ASearchThatBreaksOff_IsRefusedBeforeAnythingGoes) {
    LeavePayload(1, kNow - 9 * kDay);
    LeavePayload(2, kNow - 8 * kDay);
    LeavePayload(3, kNow - 8 * kDay);
    for (int good = 0; good <= 2; ++good) {
        SCOPED_TRACE(good);
        int calls = 0;
        {
            const OnFindNext next([&](HANDLE find, LPWIN32_FIND_DATAW found) {
                if (++calls <= good) return OnFindNext::Original(find, found);
                SetLastError(ERROR_ACCESS_DENIED);
                return FALSE;
            });
            EXPECT_FALSE(Scan());
        }
        EXPECT_EQ(calls, good + 1);
        EXPECT_EQ(Payloads(), Range(1, 3));
    }
    EXPECT_TRUE(Scan());
    EXPECT_EQ(Payloads(), std::vector<unsigned>{});
}

TEST_F(Cache_Scan, TheSearch_IsEndedWhateverItFinds) {
    int begun = 0;
    int ended = 0;
    const OnFindFirst first([&begun](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
        const HANDLE find = OnFindFirst::Original(pattern, found);
        if (find != INVALID_HANDLE_VALUE) ++begun;
        return find;
    });
    const OnFindClose close([&ended](HANDLE find) {
        ++ended;
        return OnFindClose::Original(find);
    });
    EXPECT_TRUE(Scan());
    EXPECT_EQ(ended, 0);
    LeavePayload(1, kNow);
    EXPECT_TRUE(Scan());
    EXPECT_EQ(begun, 1);
    EXPECT_EQ(ended, 1);
    Leave(L"x.part", kNow);
    EXPECT_FALSE(Scan());
    EXPECT_EQ(begun, 2);
    EXPECT_EQ(ended, 2);
}

TEST_F(Cache_Scan, TheDirectory_IsReachedByTheLongForm) {
    LeavePayload(1, kNow - 8 * kDay);
    std::vector<std::wstring> patterns;
    std::vector<std::wstring> paths;
    {
        const OnFindFirst first([&patterns](LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
            patterns.emplace_back(pattern);
            return OnFindFirst::Original(pattern, found);
        });
        const OnGetAttributes attributes([&paths](LPCWSTR path) {
            paths.emplace_back(path);
            return OnGetAttributes::Original(path);
        });
        const OnCreateFile create([&paths](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                           DWORD disposition, DWORD flags, HANDLE other) {
            paths.emplace_back(path);
            return OnCreateFile::Original(path, access, sharing, security, disposition, flags, other);
        });
        EXPECT_TRUE(Scan());
    }
    const std::wstring directory = L"\\\\?\\" + top_.Path() + L'\\';
    EXPECT_EQ(patterns, (std::vector{directory + L"*.part"}));
    const std::vector<std::wstring> wanted{directory + Part(1), directory + Part(1), directory + Resume(1),
                                           directory + Resume(1)};
    EXPECT_EQ(paths, wanted) << "each is looked at and opened, the payload first";
}

TEST_F(Cache_Scan, ADeepDirectory_IsScanned) {
    std::wstring directory = top_.Path();
    while (directory.size() < 400) {
        directory += L'\\' + std::wstring(40, L'd');
        ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + directory).c_str(), nullptr));
    }
    const std::wstring below = directory.substr(top_.Path().size() + 1) + L'\\';
    Leave(below + Part(1), kNow - 8 * kDay);
    Leave(below + Part(2), kNow);
    EXPECT_TRUE(ScanCache(directory, kCurrent, 1));
    EXPECT_EQ(List(directory), Names{Part(2)});
}

}  // namespace
}  // namespace launcher_download
