#include "platform/following_digest.h"

#include <system_error>

namespace platform {
namespace {

constexpr std::size_t kWorthAThread = 256u << 10;  // below, starting one costs more than it spares
constexpr std::size_t kStepBytes = 256u << 10;     // the follower is woken this seldom: a wake-up costs too

}  // namespace

FollowingDigest::FollowingDigest(const void* block, std::size_t length)
    : block_(static_cast<const unsigned char*>(block)) {
    if (length < kWorthAThread) return;
    try {
        thread_ = std::thread([this] { Follow(); });
    } catch (const std::system_error&) {
        // No thread to be had: all is hashed at the end.
    }
}

FollowingDigest::~FollowingDigest() {
    EndThread();
}

void FollowingDigest::Advance(std::size_t bytes) {
    filled_ = bytes;
    if (!thread_.joinable() || filled_ - told_ < kStepBytes) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        told_ = filled_;
    }
    changed_.notify_one();
}

bool FollowingDigest::Finish(std::wstring& hex) {
    EndThread();
    good_ = good_ && digest_.Update(block_ + hashed_, filled_ - hashed_);
    return good_ && digest_.Finish(hex);
}

void FollowingDigest::Follow() {
    for (;;) {
        std::size_t upTo = 0;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [this] { return complete_ || told_ > hashed_; });
            if (complete_) return;  // the rest is hashed by the filler
            upTo = told_;
        }
        good_ = good_ && digest_.Update(block_ + hashed_, upTo - hashed_);
        hashed_ = upTo;
    }
}

void FollowingDigest::EndThread() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        complete_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

}  // namespace platform
