#include "platform/following_digest.h"

#include <windows.h>

#include <process.h>

#include <bcrypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "platform/sha256.h"
#include "tests/support/stand_in.h"

namespace platform {
namespace {

using test_support::StandIn;
using OnHash = StandIn<"BCryptHashData", decltype(BCryptHashData)>;

std::string Noise(std::size_t length) {
    std::string bytes(length, '\0');
    for (std::size_t at = 0; at < length; ++at)
        bytes[at] = static_cast<char>(at * 31 + at / 251);
    return bytes;
}

std::wstring DigestAtOnce(const std::string& bytes) {
    std::wstring hex;
    EXPECT_TRUE(Sha256OfMemory(bytes.data(), bytes.size(), hex));
    return hex;
}

/// The digest of a block that comes to stand `step` bytes at a time; before its time each byte is another one.
std::wstring DigestWhileFilled(const std::string& bytes, std::size_t step) {
    std::string block(bytes.size(), '\xEE');
    FollowingDigest digest;
    digest.Begin(block.data(), block.size());
    for (std::size_t filled = 0; filled < bytes.size();) {
        const std::size_t next = std::min(filled + step, bytes.size());
        std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(filled),
                  bytes.begin() + static_cast<std::ptrdiff_t>(next),
                  block.begin() + static_cast<std::ptrdiff_t>(filled));
        digest.Advance(next);
        filled = next;
    }
    std::wstring hex;
    EXPECT_TRUE(digest.Finish(hex));
    return hex;
}

TEST(FollowingDigest, AnyLengthInAnySteps_IsTheDigestOfTheWhole) {
    for (const std::size_t length : {0u, 1u, 1000u, 262143u, 262144u, 262145u, 524288u, 1048577u, 5000000u}) {
        const std::string bytes = Noise(length);
        for (const std::size_t step : {4099u, 32768u, 262144u, 9000000u})
            EXPECT_EQ(DigestWhileFilled(bytes, step), DigestAtOnce(bytes)) << length << " in steps of " << step;
    }
}

TEST(FollowingDigest, LargeBlock_IsHashedOnAnotherThreadBeforeItIsWhole) {
    const std::string bytes = Noise(4u << 20);
    const DWORD mine = GetCurrentThreadId();
    const KernelHandle begun(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const OnHash note([&](BCRYPT_HASH_HANDLE hash, PUCHAR data, ULONG length, ULONG flags) {
        if (GetCurrentThreadId() != mine) SetEvent(begun.Get());
        return OnHash::Original(hash, data, length, flags);
    });
    FollowingDigest digest;
    digest.Begin(bytes.data(), bytes.size());
    digest.Advance(2u << 20);
    EXPECT_EQ(WaitForSingleObject(begun.Get(), 30000), WAIT_OBJECT_0) << "half of the block stands";
    digest.Advance(bytes.size());
    std::wstring hex;
    ASSERT_TRUE(digest.Finish(hex));
    EXPECT_EQ(hex, DigestAtOnce(bytes));
}

TEST(FollowingDigest, BlocksOneAfterTheOther_HaveTheirOwnDigestsFromOneThread) {
    std::set<DWORD> threads;
    const OnHash note([&](BCRYPT_HASH_HANDLE hash, PUCHAR data, ULONG length, ULONG flags) {
        threads.insert(GetCurrentThreadId());
        return OnHash::Original(hash, data, length, flags);
    });
    FollowingDigest digest;
    std::wstring hex;
    for (const std::size_t length : {700000u, 300u, 2000000u, 0u, 131072u}) {
        const std::string bytes = Noise(length);
        digest.Begin(bytes.data(), bytes.size());
        for (std::size_t filled = 0; filled < length;)
            digest.Advance(filled = std::min<std::size_t>(filled + 50000, length));
        ASSERT_TRUE(digest.Finish(hex));
        threads.erase(GetCurrentThreadId());
        EXPECT_EQ(hex, DigestAtOnce(bytes)) << length;
    }
    threads.erase(GetCurrentThreadId());
    EXPECT_LE(threads.size(), 1u);
}

/// What was begun and never became whole leaves no trace in the next digest.
TEST(FollowingDigest, BlockThatIsGivenUp_IsForgotten) {
    const std::string bytes = Noise(1u << 20);
    FollowingDigest digest;
    std::wstring hex;
    for (const bool finish : {false, true}) {
        digest.Begin(bytes.data(), bytes.size());
        digest.Advance(600000);
        if (finish) {
            EXPECT_TRUE(digest.Finish(hex));
        }
        digest.Begin(bytes.data() + 1, 500000);
        digest.Advance(500000);
        EXPECT_TRUE(digest.Finish(hex));
        EXPECT_EQ(hex, DigestAtOnce(bytes.substr(1, 500000)));
    }
}

TEST(FollowingDigest, WithoutAThread_HashesAllAtTheEnd) {
    const StandIn<"_beginthreadex", decltype(_beginthreadex)> refuse([](auto...) { return uintptr_t{0}; });
    const std::string bytes = Noise(1u << 20);
    EXPECT_EQ(DigestWhileFilled(bytes, 100000), DigestAtOnce(bytes));
}

TEST(FollowingDigest, HashThatFailsOnEitherThread_GivesNoDigest) {
    // What the thread is told of last leaves too little to wake it again: the rest is hashed by whoever finishes.
    constexpr std::size_t kFollowed = 600000;
    const std::string bytes = Noise(kFollowed + 1000);
    const DWORD mine = GetCurrentThreadId();
    for (const bool failHere : {false, true}) {
        const KernelHandle followed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const OnHash fail([&](BCRYPT_HASH_HANDLE hash, PUCHAR data, ULONG length, ULONG flags) {
            const bool here = GetCurrentThreadId() == mine;
            const NTSTATUS status =
                here == failHere ? static_cast<NTSTATUS>(0xC0000001) : OnHash::Original(hash, data, length, flags);
            if (!here) SetEvent(followed.Get());
            return status;
        });
        FollowingDigest digest;
        digest.Begin(bytes.data(), bytes.size());
        digest.Advance(kFollowed);
        ASSERT_EQ(WaitForSingleObject(followed.Get(), 30000), WAIT_OBJECT_0);
        digest.Advance(bytes.size());
        std::wstring hex;
        EXPECT_FALSE(digest.Finish(hex)) << failHere;
        EXPECT_EQ(hex, L"");
    }
}

TEST(FollowingDigest, LeftUnfinished_EndsItsThread) {
    const std::string bytes = Noise(1u << 20);
    const KernelHandle begun(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    KernelHandle follower;
    const OnHash note([&](BCRYPT_HASH_HANDLE hash, PUCHAR data, ULONG length, ULONG flags) {
        follower.Reset(OpenThread(SYNCHRONIZE, FALSE, GetCurrentThreadId()));
        SetEvent(begun.Get());
        return OnHash::Original(hash, data, length, flags);
    });
    {
        FollowingDigest digest;
        digest.Begin(bytes.data(), bytes.size());
        digest.Advance(600000);
        ASSERT_EQ(WaitForSingleObject(begun.Get(), 30000), WAIT_OBJECT_0);
    }
    // Joined: what remains of the thread is its very end.
    EXPECT_EQ(WaitForSingleObject(follower.Get(), 30000), WAIT_OBJECT_0);
}

}  // namespace
}  // namespace platform
