#pragma once

/// Removal of the staging and backup folders of update runs. Runs only under the `TransactionLock`: another launcher's
/// live folders would look stale.

#include <string>

namespace launcher_update {

/// Removes every folder of the control directory whose name begins with "staging-" or "backup-", ignoring case. A file
/// or link with such a name refuses the whole sweep before anything is removed. False also when a folder still stands
/// after its last attempt; the rest is then left. Everything else in the control directory is not looked at.
[[nodiscard]] bool CleanStaleUpdateWork(const std::wstring& controlDirectory);

/// Removes one run's folders when it is left, unless a journal exists: the backups are then still needed to restore.
/// What cannot be removed is told to the debugger and left for the next run's sweep. Destruction does not throw.
class StagingCleanupGuard {
  public:
    StagingCleanupGuard(std::wstring stagingDirectory, std::wstring backupDirectory, std::wstring journalPath);
    StagingCleanupGuard(const StagingCleanupGuard&) = delete;
    StagingCleanupGuard& operator=(const StagingCleanupGuard&) = delete;
    ~StagingCleanupGuard();

  private:
    std::wstring stagingDirectory_;
    std::wstring backupDirectory_;
    std::wstring journalPath_;
};

}  // namespace launcher_update
