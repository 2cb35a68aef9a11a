#pragma once

#include <windows.h>

#include <cstddef>
#include <optional>
#include <string>
#include <thread>

#include "platform/sha256.h"

namespace platform {

/// The SHA-256 of blocks of memory that are still being filled from their beginning: the digest follows on a thread of
/// its own, so that unpacking and hashing share two processors. One block after the other; the thread is begun with the
/// first block that is worth it and ends with the object. Small blocks, and all where no thread can be had, are hashed
/// when they are whole. Owned and called by the thread that fills the blocks.
class FollowingDigest {
  public:
    FollowingDigest() = default;
    FollowingDigest(const FollowingDigest&) = delete;
    FollowingDigest& operator=(const FollowingDigest&) = delete;
    ~FollowingDigest();

    /// A new block, of which nothing stands yet and whose whole size is `length`. It must stay until `Finish`, the next
    /// block or the end of the object: until then the thread may read it.
    void Begin(const void* block, std::size_t length);

    /// The first `bytes` of the block stand and will not change.
    void Advance(std::size_t bytes);

    /// Waits for the digest of what stands, as 64 lower-case hexadecimal characters. Once for each block, also for one
    /// that never became whole and is to be given back.
    [[nodiscard]] bool Finish(std::wstring& hex);

  private:
    void StartThread();
    void Follow();
    void HoldThread();

    const unsigned char* block_ = nullptr;
    std::optional<Sha256> digest_;
    bool good_ = false;
    bool following_ = false;  // the present block is worth the thread
    std::size_t filled_ = 0;

    // The thread hashes from `hashed_` to `told_`; while it is at it, `busy_`, all above belongs to it.
    SRWLOCK lock_ = SRWLOCK_INIT;
    CONDITION_VARIABLE toldChanged_ = CONDITION_VARIABLE_INIT;
    CONDITION_VARIABLE busyChanged_ = CONDITION_VARIABLE_INIT;
    std::size_t told_ = 0;
    std::size_t hashed_ = 0;
    bool busy_ = false;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace platform
