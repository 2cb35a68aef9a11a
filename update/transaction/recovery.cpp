#include "update/transaction/recovery.h"

#include <windows.h>

#include <algorithm>

#include "update/failure.h"
#include "update/files/attributes.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/transaction/journal.h"
#include "update/transaction/lock.h"
#include "update/transaction/stale_cleanup.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotExamineState[] = L"無法檢查上一次更新的交易狀態。";
constexpr wchar_t kUnsafeLocation[] = L"更新交易位置不是安全的一般資料夾。";
constexpr wchar_t kLockTaken[] = L"另一個啟動器仍在處理更新；已停止啟動以避免混合版本。";
constexpr wchar_t kConflict[] = L"偵測到衝突的更新交易紀錄；已保留備份並停止啟動。";
constexpr wchar_t kCannotClean[] = L"無法清理已完成或已回復的更新暫存資料。";
constexpr wchar_t kCannotRemoveMarker[] = L"無法清理已提交的更新交易標記。";
constexpr wchar_t kBackupMissing[] = L"上一次更新的回復備份遺失；已停止啟動以避免混合版本。";
constexpr wchar_t kBackupIncomplete[] = L"上一次更新的回復檔案不完整；已停止啟動。";
constexpr wchar_t kCannotRemoveAdded[] = L"無法移除中斷更新新增的檔案；備份已保留。";
constexpr wchar_t kCannotRestore[] = L"無法完整回復上一次中斷的更新；備份已保留。";
constexpr wchar_t kCannotRemoveJournal[] = L"更新已回復，但交易紀錄無法提交；下次將再次安全回復。";

void DeleteIgnoringResult(const std::wstring& path) {
    DeleteFileW(ToLongPath(path).c_str());
}

/// All is checked before anything is changed: a rollback never begins unless it can finish from what is on disk.
bool BackupsAreComplete(const std::wstring& backupDirectory, const TransactionTargets& targets) {
    return std::all_of(targets.begin(), targets.end(), [&](const TransactionTarget& target) {
        return !target.hadOriginal || IsPlainFile(LookAt(JoinPath(backupDirectory, target.path)).attributes);
    });
}

bool RemoveAddedFile(const std::wstring& target) {
    const PathFacts facts = LookAt(target);
    if (facts.presence == Presence::absent) return true;
    if (facts.presence == Presence::unknown || (facts.attributes & kDirectoryBit) != 0) return false;
    return DeleteFileW(ToLongPath(target).c_str()) != FALSE;
}

/// Through a sibling and a rename, so that the target is at every moment the whole new or the whole old file.
bool PutOriginalBack(const std::wstring& backup, const std::wstring& sibling, const std::wstring& target) {
    if (CopyFileDurable(backup, sibling, true) && MoveFileExW(ToLongPath(sibling).c_str(), ToLongPath(target).c_str(),
                                                              MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return true;
    }
    DeleteIgnoringResult(sibling);
    return false;
}

bool RestoreTarget(const std::wstring& root, const std::wstring& backupDirectory, const TransactionTarget& target,
                   std::wstring& error) {
    const std::wstring path = JoinPath(root, target.path);
    const std::wstring sibling = path + L".update-recovery";
    DeleteIgnoringResult(sibling);
    if (!target.hadOriginal && !RemoveAddedFile(path)) return Fail(error, kCannotRemoveAdded);
    if (target.hadOriginal && !PutOriginalBack(JoinPath(backupDirectory, target.path), sibling, path)) {
        return Fail(error, kCannotRestore);
    }
    for (const wchar_t* leftover : {L".update-new", L".tmp", L".new"}) {
        DeleteIgnoringResult(path + leftover);
    }
    return true;
}

}  // namespace

std::wstring ControlDirectory(const std::wstring& root) {
    return JoinPath(root, kControlDirectoryName);
}

bool PrepareUpdateFolder(const std::wstring& root, std::wstring& error) {
    const std::wstring controlDirectory = ControlDirectory(root);
    const PathFacts facts = LookAt(controlDirectory);
    if (facts.presence == Presence::absent) return true;
    if (facts.presence == Presence::unknown) return Fail(error, kCannotExamineState);
    if (!IsRealDirectory(facts.attributes)) return Fail(error, kUnsafeLocation);
    const TransactionLock lock(controlDirectory);
    if (!lock.Held()) return Fail(error, kLockTaken);
    return FinishOrRecover(root, controlDirectory, error);
}

bool FinishOrRecover(const std::wstring& root, const std::wstring& controlDirectory, std::wstring& error) {
    const std::wstring journal = JournalPath(controlDirectory);
    const std::wstring marker = CommittedMarkerPath(controlDirectory);
    const Presence journalPresence = LookAt(journal).presence;
    const Presence markerPresence = LookAt(marker).presence;
    // A record that cannot be looked at may exist. Taking it for absent would sweep away the backups it needs.
    if (journalPresence == Presence::unknown || markerPresence == Presence::unknown)
        return Fail(error, kCannotExamineState);
    if (journalPresence == Presence::present && markerPresence == Presence::present) return Fail(error, kConflict);
    if (journalPresence == Presence::present && !RestoreFromJournal(root, controlDirectory, journal, error))
        return false;
    DeleteIgnoringResult(journal + L".tmp");
    DeleteIgnoringResult(marker + L".tmp");
    if (!CleanStaleUpdateWork(controlDirectory)) return Fail(error, kCannotClean);
    if (markerPresence == Presence::present && !DeleteFileW(ToLongPath(marker).c_str()))
        return Fail(error, kCannotRemoveMarker);
    return true;
}

bool RestoreFromJournal(const std::wstring& root, const std::wstring& controlDirectory, const std::wstring& journalPath,
                        std::wstring& error) {
    std::wstring backupName;
    TransactionTargets targets;
    if (!ReadTransactionJournal(journalPath, backupName, targets, error)) return false;
    const std::wstring backupDirectory = JoinPath(controlDirectory, backupName);
    if (!IsRealDirectory(LookAt(backupDirectory).attributes)) return Fail(error, kBackupMissing);
    if (!BackupsAreComplete(backupDirectory, targets)) return Fail(error, kBackupIncomplete);
    for (const TransactionTarget& target : targets) {
        if (!RestoreTarget(root, backupDirectory, target, error)) return false;
    }
    if (!DeleteFileW(ToLongPath(journalPath).c_str())) return Fail(error, kCannotRemoveJournal);
    return true;
}

}  // namespace launcher_update
