#pragma once

#include <string>

#include "platform/unique_handle.h"

namespace launcher_update {

/// Mutual exclusion of update runs across processes: one handle to `transaction.lock`, opened without sharing. The file
/// alone means nothing, since a crash leaves it behind; the open handle is the lock. A second launcher is refused and
/// never waits. Destruction closes the handle and deletes the file if the lock was held.
class TransactionLock {
  public:
    explicit TransactionLock(const std::wstring& controlDirectory);
    TransactionLock(const TransactionLock&) = delete;
    TransactionLock& operator=(const TransactionLock&) = delete;
    ~TransactionLock();

    [[nodiscard]] bool Held() const { return static_cast<bool>(handle_); }

  private:
    std::wstring path_;
    platform::FileHandle handle_;
};

}  // namespace launcher_update
