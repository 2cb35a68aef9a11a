#include "update/transaction/stale_cleanup.h"

#include <windows.h>

#include <new>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/transaction/journal_text.h"

namespace launcher_update {
namespace {

bool HasSweptPrefix(std::wstring_view name) {
    return platform::StartsWithIgnoringCase(name, kStagingPrefix) ||
           platform::StartsWithIgnoringCase(name, kBackupPrefix);
}

void RemoveOrTellDebugger(const std::wstring& directory) {
    if (RemoveTreeRetry(directory)) return;
    OutputDebugStringW((L"Velmora Pine Relay update cleanup: " + directory + L"\n").c_str());
}

}  // namespace

bool CleanStaleUpdateWork(const std::wstring& controlDirectory) {
    std::vector<DirectoryEntry> entries;
    if (!ListDirectory(controlDirectory, entries)) return false;
    std::vector<std::wstring> stale;
    for (const DirectoryEntry& entry : entries) {
        if (!HasSweptPrefix(entry.name)) continue;
        if (!IsRealDirectory(entry.attributes)) return false;
        stale.push_back(JoinPath(controlDirectory, entry.name));
    }
    for (const std::wstring& directory : stale) {
        if (!RemoveTreeRetry(directory)) return false;
    }
    return true;
}

StagingCleanupGuard::StagingCleanupGuard(std::wstring stagingDirectory, std::wstring backupDirectory,
                                         std::wstring journalPath)
    : stagingDirectory_(std::move(stagingDirectory)),
      backupDirectory_(std::move(backupDirectory)),
      journalPath_(std::move(journalPath)) {}

StagingCleanupGuard::~StagingCleanupGuard() {
    try {
        // A journal that cannot be looked at may exist: only a sure "absent" frees the backups.
        if (LookAt(journalPath_).presence != Presence::absent) return;
        RemoveOrTellDebugger(stagingDirectory_);
        RemoveOrTellDebugger(backupDirectory_);
    } catch (const std::bad_alloc&) {
        // The next run's sweep removes what stays.
    }
}

}  // namespace launcher_update
