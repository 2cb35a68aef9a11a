#include "update/transaction/journal.h"

#include <windows.h>

#include "platform/text.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotExamineTarget[] = L"無法檢查更新目標的既有內容。";
constexpr wchar_t kTargetNotPlain[] = L"更新目標不是安全的一般檔案。";
constexpr wchar_t kCannotBackUp[] = L"無法建立可持久化的更新回復備份。";
constexpr wchar_t kUnsafeBackupName[] = L"更新回復備份資料夾名稱不安全。";
constexpr wchar_t kCannotWriteJournal[] = L"無法寫入可持久化的更新交易紀錄。";
constexpr wchar_t kCannotCommit[] = L"無法提交更新交易；將回復更新前版本。";

/// Saves one target's previous version, if it has one.
bool BackUpTarget(const std::wstring& root, const std::wstring& backupDirectory, TransactionTarget& target,
                  std::wstring& error) {
    const std::wstring path = JoinPath(root, target.path);
    const PathFacts facts = LookAt(path);
    if (facts.presence == Presence::absent) return true;
    if (facts.presence == Presence::unknown) {
        error = kCannotExamineTarget;
        return false;
    }
    if (!IsPlainFile(facts.attributes)) {
        error = kTargetNotPlain;
        return false;
    }
    target.hadOriginal = true;
    if (!CopyFileDurable(path, JoinPath(backupDirectory, target.path), false)) {
        error = kCannotBackUp;
        return false;
    }
    return true;
}

}  // namespace

std::wstring JournalPath(std::wstring_view controlDirectory) {
    return JoinPath(controlDirectory, L"transaction.json");
}

std::wstring CommittedMarkerPath(std::wstring_view controlDirectory) {
    return JoinPath(controlDirectory, L"transaction-committed.json");
}

bool WriteTransactionJournal(const std::wstring& root, const std::wstring& controlDirectory,
                             const std::wstring& backupDirectory, const UpdateManifest& manifest,
                             const std::wstring& applicationDirectory, bool needPackages, std::wstring& error) {
    TransactionTargets targets;
    if (!BuildTransactionTargets(manifest, applicationDirectory, needPackages, targets, error)) return false;
    for (TransactionTarget& target : targets) {
        if (!BackUpTarget(root, backupDirectory, target, error)) return false;
    }
    const std::wstring_view name = platform::LastPathComponent(backupDirectory);
    if (!IsBackupDirectoryName(name)) {
        error = kUnsafeBackupName;
        return false;
    }
    if (!WriteJournalDurable(JournalPath(controlDirectory), RenderJournal(name, targets))) {
        error = kCannotWriteJournal;
        return false;
    }
    return true;
}

bool ReadTransactionJournal(const std::wstring& journalPath, std::wstring& backupDirectoryName,
                            TransactionTargets& targets, std::wstring& error) {
    std::string bytes;
    if (!ReadFileLimited(journalPath, kMaxJournalBytes, bytes)) bytes.clear();  // no bytes are no valid journal either
    return ParseJournal(bytes, backupDirectoryName, targets, error);
}

bool CommitTransaction(const std::wstring& controlDirectory, std::wstring& error) {
    const std::wstring journal = ToLongPath(JournalPath(controlDirectory));
    const std::wstring marker = ToLongPath(CommittedMarkerPath(controlDirectory));
    DeleteFileW(marker.c_str());
    if (!MoveFileExW(journal.c_str(), marker.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        error = kCannotCommit;
        return false;
    }
    // The update stands. A marker that stays behind is cleaned up at the next start.
    DeleteFileW(marker.c_str());
    return true;
}

}  // namespace launcher_update
