#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

#include "platform/sha256.h"

namespace platform {

/// The SHA-256 of a block of memory that is still being filled from its beginning: the digest follows on a thread of
/// its own, so that unpacking and hashing share two processors. A small block, and any block where no thread can be
/// had, is hashed at the end instead. Owned and called by the thread that fills the block, which must outlive the
/// object.
class FollowingDigest {
  public:
    /// `length` is the size of the whole block.
    FollowingDigest(const void* block, std::size_t length);
    FollowingDigest(const FollowingDigest&) = delete;
    FollowingDigest& operator=(const FollowingDigest&) = delete;
    ~FollowingDigest();

    /// The first `bytes` of the block stand and will not change.
    void Advance(std::size_t bytes);

    /// Waits for the digest of what stands, as 64 lower-case hexadecimal characters. Once.
    [[nodiscard]] bool Finish(std::wstring& hex);

  private:
    void Follow();
    void EndThread();

    const unsigned char* const block_;
    Sha256 digest_;  // the follower's while it runs
    bool good_ = true;
    std::size_t hashed_ = 0;
    std::size_t filled_ = 0;  // the filler's own count; the follower is told in steps

    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t told_ = 0;
    bool complete_ = false;
    std::thread thread_;
};

}  // namespace platform
