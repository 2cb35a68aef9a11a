#include "platform/following_digest.h"

#include <system_error>

namespace platform {
namespace {

constexpr std::size_t kWorthAThread = 128u << 10;  // below, waking it costs more than it spares
constexpr std::size_t kStepBytes = 64u << 10;      // the thread is woken this seldom

class Locked {
  public:
    explicit Locked(SRWLOCK& lock) : lock_(lock) { AcquireSRWLockExclusive(&lock_); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    ~Locked() { ReleaseSRWLockExclusive(&lock_); }

  private:
    SRWLOCK& lock_;
};

}  // namespace

FollowingDigest::~FollowingDigest() {
    if (!thread_.joinable()) return;
    {
        const Locked locked(lock_);
        ending_ = true;
    }
    WakeConditionVariable(&toldChanged_);
    thread_.join();
}

void FollowingDigest::Begin(const void* block, std::size_t length) {
    HoldThread();
    {
        const Locked locked(lock_);
        hashed_ = 0;
    }
    block_ = static_cast<const unsigned char*>(block);
    digest_.emplace();
    good_ = true;
    filled_ = 0;
    following_ = length >= kWorthAThread;
    if (following_ && !thread_.joinable()) StartThread();
}

void FollowingDigest::Advance(std::size_t bytes) {
    filled_ = bytes;
    if (!following_ || !thread_.joinable() || filled_ - told_ < kStepBytes) return;
    {
        const Locked locked(lock_);
        told_ = filled_;
    }
    WakeConditionVariable(&toldChanged_);
}

bool FollowingDigest::Finish(std::wstring& hex) {
    HoldThread();
    hex.clear();
    good_ = good_ && digest_->Update(block_ + hashed_, filled_ - hashed_) && digest_->Finish(hex);
    return good_;
}

void FollowingDigest::StartThread() {
    try {
        thread_ = std::thread([this] { Follow(); });
    } catch (const std::system_error&) {
        // None to be had: blocks are hashed when they are whole.
    }
}

void FollowingDigest::Follow() {
    const Locked locked(lock_);
    for (;;) {
        while (!ending_ && told_ <= hashed_)
            SleepConditionVariableSRW(&toldChanged_, &lock_, INFINITE, 0);
        if (ending_) return;
        const std::size_t upTo = told_;
        busy_ = true;
        ReleaseSRWLockExclusive(&lock_);
        good_ = good_ && digest_->Update(block_ + hashed_, upTo - hashed_);
        AcquireSRWLockExclusive(&lock_);
        hashed_ = upTo;
        busy_ = false;
        WakeConditionVariable(&busyChanged_);
    }
}

/// From here on the thread rests until it is told of more; what it has hashed stands in `hashed_`.
void FollowingDigest::HoldThread() {
    const Locked locked(lock_);
    told_ = 0;
    while (busy_)
        SleepConditionVariableSRW(&busyChanged_, &lock_, INFINITE, 0);
}

}  // namespace platform
