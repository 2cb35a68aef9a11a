#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/transaction/journal.h"
#include "update/transaction/lock.h"
#include "update/transaction/recovery.h"
#include "update/transaction/stale_cleanup.h"

namespace launcher_update {
namespace {

using test_support::DebuggerTexts;
using test_support::FaultKind;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::ReadWholeFile;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WriteWholeFile;

using OnDeleteFile = test_support::StandIn<"DeleteFileW", decltype(DeleteFileW)>;
using OnSleep = test_support::StandIn<"Sleep", decltype(Sleep)>;

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// An installed tree with two files and the settings, and the folders of a run that is about to change it.
class Transaction : public testing::Test {
  protected:
    Transaction() {
        EXPECT_TRUE(EnsureDirectory(App()));
        EXPECT_TRUE(EnsureDirectory(backup));
        Put(L"App\\changed", "old changed");
        Put(L"App\\kept", "kept");
        Put(L"current.json", "old settings");
        manifest.files = {{L"application", L"App/changed", L"", L"", 1}, {L"theme", L"App/Themes/new", L"", L"", 1}};
    }

    std::wstring Root() const { return folder.Path(); }
    std::wstring App() const { return Root() + L"\\App"; }
    void Put(const std::wstring& path, const std::string& bytes) {
        EXPECT_TRUE(EnsureDirectory(*platform::ParentPath(Root() + L"\\" + path)));
        WriteWholeFile(Root() + L"\\" + path, bytes);
    }
    std::string Get(const std::wstring& path) const { return ReadWholeFile(Root() + L"\\" + path); }
    bool Has(const std::wstring& path) const { return Exists(Root() + L"\\" + path); }

    bool WriteJournal() { return WriteTransactionJournal(Root(), control, backup, manifest, L"App", false, error); }
    /// What an update does to the tree between journal and commit.
    void Apply() {
        Put(L"App\\changed", "new changed");
        Put(L"App\\Themes\\new", "new theme");
        Put(L"current.json", "new settings");
    }
    void ExpectOldTree() {
        EXPECT_EQ(Get(L"App\\changed"), "old changed");
        EXPECT_FALSE(Has(L"App\\Themes\\new"));
        EXPECT_EQ(Get(L"App\\kept"), "kept");
        EXPECT_EQ(Get(L"current.json"), "old settings");
    }
    bool Recover() {
        error.clear();
        return FinishOrRecover(Root(), control, error);
    }

    TemporaryDirectory folder;
    std::wstring control = ControlDirectory(folder.Path());
    std::wstring backup = control + L"\\backup-1.0.0.0-1-2";
    UpdateManifest manifest;
    std::wstring error;
};

TEST_F(Transaction, Journal_StandsOnCompleteBackups) {
    ASSERT_TRUE(WriteJournal());
    EXPECT_EQ(ReadWholeFile(backup + L"\\App\\changed"), "old changed");
    EXPECT_EQ(ReadWholeFile(backup + L"\\current.json"), "old settings");
    EXPECT_FALSE(Exists(backup + L"\\App\\Themes\\new"));
    std::wstring name;
    TransactionTargets targets;
    ASSERT_TRUE(ReadTransactionJournal(JournalPath(control), name, targets, error));
    EXPECT_EQ(name, L"backup-1.0.0.0-1-2");
    EXPECT_EQ(targets,
              (TransactionTargets{{L"App\\changed", true}, {L"App\\Themes\\new", false}, {L"current.json", true}}));
}

TEST_F(Transaction, Journal_IsTheLastThingWritten) {
    MutationFaults faults;
    ASSERT_TRUE(WriteJournal());
    const auto calls = faults.Calls();
    std::size_t lastBackup = 0;
    std::size_t firstOfJournal = calls.size();
    for (std::size_t at = 0; at < calls.size(); ++at) {
        if (calls[at].function == "FlushFileBuffers" && at < firstOfJournal) lastBackup = at;
        if (calls[at].path.ends_with(L"transaction.json.tmp") && at < firstOfJournal) firstOfJournal = at;
        if (calls[at].function == "CopyFileW") {
            EXPECT_LT(at, firstOfJournal);
        }
    }
    EXPECT_GT(lastBackup, 0u);
    EXPECT_LT(lastBackup, firstOfJournal);
    EXPECT_EQ(calls.back().function, "MoveFileExW");
}

TEST_F(Transaction, Journal_UnreadableTarget_IsItsOwnMessage) {
    const UnreadableAttributes unreadable(L"App\\changed", ERROR_ACCESS_DENIED);
    EXPECT_FALSE(WriteJournal());
    EXPECT_EQ(error, L"無法檢查更新目標的既有內容。");
    EXPECT_FALSE(Exists(JournalPath(control)));
}

TEST_F(Transaction, Journal_TargetThatIsAFolderOrLink_IsRefused) {
    {
        const ForcedAttributes forced(L"App\\changed", FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(WriteJournal());
        EXPECT_EQ(error, L"更新目標不是安全的一般檔案。");
    }
    ASSERT_TRUE(RemoveTree(backup));
    ASSERT_TRUE(EnsureDirectory(Root() + L"\\App\\Themes\\new"));
    EXPECT_FALSE(WriteJournal());
    EXPECT_EQ(error, L"更新目標不是安全的一般檔案。");
    EXPECT_FALSE(Exists(JournalPath(control)));
}

TEST_F(Transaction, Journal_FailedBackup_IsItsOwnMessage) {
    WriteWholeFile(backup + L"\\current.json", "a backup never overwrites");
    EXPECT_FALSE(WriteJournal());
    EXPECT_EQ(error, L"無法建立可持久化的更新回復備份。");
    EXPECT_FALSE(Exists(JournalPath(control)));
}

TEST_F(Transaction, Journal_BackupFolderNeedsItsPrefix) {
    backup = control + L"\\other";
    EXPECT_FALSE(WriteJournal());
    EXPECT_EQ(error, L"更新回復備份資料夾名稱不安全。");
}

TEST_F(Transaction, Journal_ThatCannotBeWritten_IsItsOwnMessage) {
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"transaction.json.tmp");
    EXPECT_FALSE(WriteJournal());
    EXPECT_EQ(error, L"無法寫入可持久化的更新交易紀錄。");
    EXPECT_TRUE(faults.Reached());
    EXPECT_FALSE(Exists(JournalPath(control)));
}

TEST_F(Transaction, Commit_LeavesNeitherRecord) {
    ASSERT_TRUE(WriteJournal());
    WriteWholeFile(CommittedMarkerPath(control), "left over");
    ASSERT_TRUE(CommitTransaction(control, error));
    EXPECT_FALSE(Exists(JournalPath(control)));
    EXPECT_FALSE(Exists(CommittedMarkerPath(control)));
}

TEST_F(Transaction, Commit_ThatFails_LeavesTheJournalInForce) {
    ASSERT_TRUE(WriteJournal());
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"transaction.json");
    EXPECT_FALSE(CommitTransaction(control, error));
    EXPECT_EQ(error, L"無法提交更新交易；將回復更新前版本。");
    EXPECT_TRUE(Exists(JournalPath(control)));
}

TEST_F(Transaction, Commit_MarkerThatStays_IsNoFailure) {
    ASSERT_TRUE(WriteJournal());
    MutationFaults faults(FaultKind::fail, 2);
    faults.CountOnly("DeleteFileW", L"transaction-committed.json");
    EXPECT_TRUE(CommitTransaction(control, error));
    EXPECT_TRUE(faults.Reached());
    EXPECT_TRUE(Exists(CommittedMarkerPath(control)));
}

TEST_F(Transaction, Recovery_BeforeAnythingChanged_KeepsTheOldTree) {
    ASSERT_TRUE(WriteJournal());
    EXPECT_TRUE(Recover());
    ExpectOldTree();
    EXPECT_FALSE(Exists(JournalPath(control)));
    EXPECT_FALSE(Exists(backup));
}

TEST_F(Transaction, Recovery_AfterEverythingChanged_BringsTheOldTreeBack) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    EXPECT_TRUE(Recover());
    ExpectOldTree();
}

TEST_F(Transaction, Recovery_RemovesEveryKindOfSibling) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    for (const wchar_t* suffix : {L".update-recovery", L".update-new", L".tmp", L".new"}) {
        Put(std::wstring(L"App\\changed") + suffix, "left over");
        Put(std::wstring(L"App\\Themes\\new") + suffix, "left over");
        Put(std::wstring(L"current.json") + suffix, "left over");
    }
    WriteWholeFile(JournalPath(control) + L".tmp", "left over");
    WriteWholeFile(CommittedMarkerPath(control) + L".tmp", "left over");
    EXPECT_TRUE(Recover());
    ExpectOldTree();
    for (const wchar_t* suffix : {L".update-recovery", L".update-new", L".tmp", L".new"}) {
        for (const wchar_t* target : {L"App\\changed", L"App\\Themes\\new", L"current.json"}) {
            EXPECT_FALSE(Has(std::wstring(target) + suffix))
                << platform::EncodeUtf8(target) << platform::EncodeUtf8(suffix);
        }
    }
    EXPECT_FALSE(Exists(JournalPath(control) + L".tmp"));
    EXPECT_FALSE(Exists(CommittedMarkerPath(control) + L".tmp"));
}

TEST_F(Transaction, Recovery_OfACommittedUpdate_KeepsTheNewTree) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    ASSERT_TRUE(MoveFileExW(JournalPath(control).c_str(), CommittedMarkerPath(control).c_str(), 0));
    EXPECT_TRUE(Recover());
    EXPECT_EQ(Get(L"App\\changed"), "new changed");
    EXPECT_EQ(Get(L"current.json"), "new settings");
    EXPECT_FALSE(Exists(CommittedMarkerPath(control)));
    EXPECT_FALSE(Exists(backup));
}

TEST_F(Transaction, Recovery_WithBothRecords_TouchesNothing) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    WriteWholeFile(CommittedMarkerPath(control), "x");
    for (int start = 0; start < 2; ++start) {
        MutationFaults faults;
        EXPECT_FALSE(Recover());
        EXPECT_EQ(error, L"偵測到衝突的更新交易紀錄；已保留備份並停止啟動。");
        EXPECT_EQ(faults.Count(), 0u);
    }
    EXPECT_EQ(Get(L"App\\changed"), "new changed");
    EXPECT_TRUE(Exists(backup));
}

TEST_F(Transaction, Recovery_RecordThatCannotBeLookedAt_IsNotTakenForAbsent) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    for (const wchar_t* record : {L"transaction.json", L"transaction-committed.json"}) {
        const UnreadableAttributes unreadable(record, ERROR_ACCESS_DENIED);
        MutationFaults faults;
        EXPECT_FALSE(Recover());
        EXPECT_EQ(error, L"無法檢查上一次更新的交易狀態。");
        EXPECT_EQ(faults.Count(), 0u);
    }
    EXPECT_TRUE(Recover());
    ExpectOldTree();
}

TEST_F(Transaction, Recovery_InvalidJournal_KeepsEverything) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    WriteWholeFile(JournalPath(control), "{}");
    MutationFaults faults;
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"上一次更新的交易紀錄無效；已保留備份並停止啟動。");
    EXPECT_EQ(faults.Count(), 0u);
    EXPECT_TRUE(Exists(backup));
}

TEST_F(Transaction, Recovery_WithoutItsBackupFolder_StopsTheLaunch) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    {
        const ForcedAttributes forced(L"backup-1.0.0.0-1-2", FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(Recover());
        EXPECT_EQ(error, L"上一次更新的回復備份遺失；已停止啟動以避免混合版本。");
    }
    ASSERT_TRUE(RemoveTree(backup));
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"上一次更新的回復備份遺失；已停止啟動以避免混合版本。");
    EXPECT_EQ(Get(L"App\\changed"), "new changed");
    EXPECT_TRUE(Exists(JournalPath(control)));
}

TEST_F(Transaction, Recovery_WithAMissingBackup_ChangesNothing) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    ASSERT_TRUE(DeleteFileW((backup + L"\\current.json").c_str()));
    MutationFaults faults;
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"上一次更新的回復檔案不完整；已停止啟動。");
    EXPECT_EQ(faults.Count(), 0u);
}

TEST_F(Transaction, Recovery_BackupThatIsNoPlainFile_ChangesNothing) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    {
        const ForcedAttributes forced(L"backup-1.0.0.0-1-2\\current.json", FILE_ATTRIBUTE_REPARSE_POINT);
        MutationFaults faults;
        EXPECT_FALSE(Recover());
        EXPECT_EQ(error, L"上一次更新的回復檔案不完整；已停止啟動。");
        EXPECT_EQ(faults.Count(), 0u);
    }
    ASSERT_TRUE(DeleteFileW((backup + L"\\current.json").c_str()));
    ASSERT_TRUE(EnsureDirectory(backup + L"\\current.json"));
    MutationFaults faults;
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"上一次更新的回復檔案不完整；已停止啟動。");
    EXPECT_EQ(faults.Count(), 0u);
    EXPECT_EQ(Get(L"App\\changed"), "new changed");
}

TEST_F(Transaction, Recovery_AddedFileThatBecameAFolder_StopsTheLaunch) {
    ASSERT_TRUE(WriteJournal());
    ASSERT_TRUE(EnsureDirectory(Root() + L"\\App\\Themes\\new"));
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"無法移除中斷更新新增的檔案；備份已保留。");
    EXPECT_TRUE(Exists(JournalPath(control)));
}

TEST_F(Transaction, Recovery_AddedFileThatCannotBeDeleted_StopsTheLaunch) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    {
        // The first deletion there is the sibling's, whose result means nothing; the second is the file's own.
        MutationFaults faults(FaultKind::fail, 2);
        faults.CountOnly("DeleteFileW", L"Themes\\new");
        EXPECT_FALSE(Recover());
        EXPECT_EQ(error, L"無法移除中斷更新新增的檔案；備份已保留。");
        EXPECT_TRUE(faults.Reached());
    }
    EXPECT_TRUE(Exists(JournalPath(control)));
    EXPECT_TRUE(Recover());
    ExpectOldTree();
}

TEST_F(Transaction, Recovery_JournalThatCannotBeDeleted_RepeatsTheRestore) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    {
        MutationFaults faults(FaultKind::fail, 1);
        faults.CountOnly("DeleteFileW", L"transaction.json");
        EXPECT_FALSE(Recover());
        EXPECT_EQ(error, L"更新已回復，但交易紀錄無法提交；下次將再次安全回復。");
    }
    ExpectOldTree();
    EXPECT_TRUE(Exists(backup));
    EXPECT_TRUE(Recover());
    ExpectOldTree();
    EXPECT_FALSE(Exists(backup));
}

TEST_F(Transaction, Recovery_StaleFoldersThatCannotGo_StopTheLaunch) {
    WriteWholeFile(control + L"\\staging-file", "a file with a folder's name");
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"無法清理已完成或已回復的更新暫存資料。");
}

TEST_F(Transaction, Recovery_MarkerThatCannotBeDeleted_StopsTheLaunch) {
    WriteWholeFile(CommittedMarkerPath(control), "x");
    const HANDLE holder =
        CreateFileW(CommittedMarkerPath(control).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"無法清理已提交的更新交易標記。");
    CloseHandle(holder);
    EXPECT_TRUE(Recover());
}

TEST_F(Transaction, Recovery_RestoreThatFails_KeepsJournalAndBackups) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"changed.update-recovery");
    EXPECT_FALSE(Recover());
    EXPECT_EQ(error, L"無法完整回復上一次中斷的更新；備份已保留。");
    EXPECT_FALSE(Has(L"App\\changed.update-recovery"));
    EXPECT_TRUE(Exists(JournalPath(control)));
    EXPECT_TRUE(Exists(backup));
}

/// Every mutating call of the rollback fails once, wholly and half done. What is left then is restored by the next
/// start.
TEST_F(Transaction, Recovery_AnyFailingCall_IsRepairedByTheNextStart) {
    for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
        std::uint32_t points = 0;
        for (std::uint32_t at = 1; at <= 300; ++at) {
            ASSERT_TRUE(EnsureDirectory(backup));
            ASSERT_TRUE(WriteJournal());
            Apply();
            bool reached = false;
            {
                MutationFaults faults(kind, at, ERROR_DISK_FULL);
                const bool recovered = Recover();
                reached = faults.Reached();
                if (recovered) ExpectOldTree();
            }
            ASSERT_TRUE(Recover()) << at << platform::EncodeUtf8(error);
            ExpectOldTree();
            EXPECT_FALSE(Exists(backup)) << at;
            if (!reached) break;
            ++points;
        }
        EXPECT_GT(points, 20u);
    }
}

TEST_F(Transaction, PrepareUpdateFolder_WithoutAFolder_HasNothingToDo) {
    ASSERT_TRUE(RemoveTree(control));
    MutationFaults faults;
    EXPECT_TRUE(PrepareUpdateFolder(Root(), error));
    EXPECT_EQ(faults.Count(), 0u);
}

TEST_F(Transaction, PrepareUpdateFolder_RefusesWhatIsNoPlainFolder) {
    {
        const UnreadableAttributes unreadable(L".vpr-update", ERROR_ACCESS_DENIED);
        EXPECT_FALSE(PrepareUpdateFolder(Root(), error));
        EXPECT_EQ(error, L"無法檢查上一次更新的交易狀態。");
    }
    {
        const ForcedAttributes forced(L".vpr-update", FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(PrepareUpdateFolder(Root(), error));
        EXPECT_EQ(error, L"更新交易位置不是安全的一般資料夾。");
    }
    ASSERT_TRUE(RemoveTree(control));
    WriteWholeFile(control, "a file");
    EXPECT_FALSE(PrepareUpdateFolder(Root(), error));
    EXPECT_EQ(error, L"更新交易位置不是安全的一般資料夾。");
}

TEST_F(Transaction, PrepareUpdateFolder_IsRefusedWhileAnotherHoldsTheLock) {
    ASSERT_TRUE(WriteJournal());
    Apply();
    {
        const TransactionLock other(control);
        ASSERT_TRUE(other.Held());
        EXPECT_FALSE(PrepareUpdateFolder(Root(), error));
        EXPECT_EQ(error, L"另一個啟動器仍在處理更新；已停止啟動以避免混合版本。");
        EXPECT_EQ(Get(L"App\\changed"), "new changed");
    }
    EXPECT_TRUE(PrepareUpdateFolder(Root(), error));
    ExpectOldTree();
    EXPECT_FALSE(Exists(control + L"\\transaction.lock"));
}

TEST_F(Transaction, Lock_IsExclusiveHiddenAndLeavesNoFile) {
    auto first = std::make_unique<TransactionLock>(control);
    EXPECT_TRUE(first->Held());
    EXPECT_NE(GetFileAttributesW((control + L"\\transaction.lock").c_str()) & FILE_ATTRIBUTE_HIDDEN, 0u);
    {
        const TransactionLock second(control);
        EXPECT_FALSE(second.Held());
    }
    EXPECT_TRUE(Exists(control + L"\\transaction.lock")) << "a lock that was refused must not delete the holder's file";
    first.reset();
    EXPECT_FALSE(Exists(control + L"\\transaction.lock"));
}

TEST_F(Transaction, Lock_ThatWasRefused_DeletesNothing) {
    const TransactionLock first(control);
    ASSERT_TRUE(first.Held());
    MutationFaults faults;
    {
        const TransactionLock second(control);
        ASSERT_FALSE(second.Held());
    }
    ASSERT_EQ(faults.Count(), 1u);
    EXPECT_EQ(faults.Calls()[0].function, "CreateFileW");
}

TEST_F(Transaction, Lock_FileLeftByACrash_MeansNothing) {
    WriteWholeFile(control + L"\\transaction.lock", "");
    ASSERT_TRUE(SetFileAttributesW((control + L"\\transaction.lock").c_str(), FILE_ATTRIBUTE_HIDDEN));
    const TransactionLock lock(control);
    EXPECT_TRUE(lock.Held());
}

TEST_F(Transaction, Sweep_TakesOnlyItsTwoPrefixes) {
    for (const wchar_t* name : {L"STAGING-1", L"staging-", L"Backup-x", L"other", L"stagin", L"downloads-v1"}) {
        ASSERT_TRUE(EnsureDirectory(control + L"\\" + name + L"\\deep"));
    }
    WriteWholeFile(control + L"\\release-watermark.txt", "x");
    EXPECT_TRUE(CleanStaleUpdateWork(control));
    for (const wchar_t* name : {L"STAGING-1", L"staging-", L"Backup-x", L"backup-1.0.0.0-1-2"}) {
        EXPECT_FALSE(Exists(control + L"\\" + name));
    }
    for (const wchar_t* name : {L"other", L"stagin", L"downloads-v1", L"release-watermark.txt"}) {
        EXPECT_TRUE(Exists(control + L"\\" + name));
    }
    EXPECT_TRUE(CleanStaleUpdateWork(control));
}

TEST_F(Transaction, Sweep_OfAnEmptyFolder_IsSuccess) {
    ASSERT_TRUE(RemoveTree(backup));
    EXPECT_TRUE(CleanStaleUpdateWork(control));
    EXPECT_FALSE(CleanStaleUpdateWork(control + L"\\missing"));
}

TEST_F(Transaction, Sweep_FileOrLinkWithAPrefix_RemovesNothing) {
    WriteWholeFile(control + L"\\staging-z", "a file");
    EXPECT_FALSE(CleanStaleUpdateWork(control));
    EXPECT_TRUE(Exists(backup));
    ASSERT_TRUE(DeleteFileW((control + L"\\staging-z").c_str()));
    ASSERT_TRUE(EnsureDirectory(control + L"\\staging-z"));
    const ForcedAttributes forced(L"staging-z", FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_FALSE(CleanStaleUpdateWork(control));
    EXPECT_TRUE(Exists(backup));
}

/// A folder whose file another program holds for a while is tried six times. What comes behind it is left for later.
TEST_F(Transaction, Sweep_HeldFolder_IsTriedSixTimesAndLeavesTheRest) {
    for (const unsigned failures : {5u, 6u}) {
        SCOPED_TRACE(failures);
        ASSERT_TRUE(EnsureDirectory(control + L"\\backup-a"));
        ASSERT_TRUE(EnsureDirectory(control + L"\\staging-z"));
        WriteWholeFile(control + L"\\backup-a\\held", "x");
        unsigned attempts = 0;
        std::vector<DWORD> pauses;
        const OnSleep sleep([&pauses](DWORD milliseconds) { pauses.push_back(milliseconds); });
        const OnDeleteFile remove([&](LPCWSTR path) -> BOOL {
            if (!std::wstring_view(path).ends_with(L"held") || ++attempts > failures) {
                return OnDeleteFile::Original(path);
            }
            SetLastError(ERROR_SHARING_VIOLATION);
            return FALSE;
        });
        EXPECT_EQ(CleanStaleUpdateWork(control), failures == 5u);
        EXPECT_EQ(attempts, 6u);
        EXPECT_EQ(pauses, std::vector<DWORD>(5, 100));
        EXPECT_EQ(Exists(control + L"\\backup-a"), failures == 6u);
        EXPECT_EQ(Exists(control + L"\\staging-z"), failures == 6u);
    }
}

TEST_F(Transaction, Guard_RemovesBothFolders) {
    const std::wstring staging = control + L"\\staging-1";
    ASSERT_TRUE(EnsureDirectory(staging + L"\\deep"));
    const DebuggerTexts texts;
    { const StagingCleanupGuard guard(staging, backup, JournalPath(control)); }
    EXPECT_FALSE(Exists(staging));
    EXPECT_FALSE(Exists(backup));
    { const StagingCleanupGuard guard(staging, backup, JournalPath(control)); }
    EXPECT_TRUE(texts.Texts().empty());
}

TEST_F(Transaction, Guard_TakesTheStagedFilesFirst) {
    const std::wstring staging = control + L"\\staging-1";
    ASSERT_TRUE(EnsureDirectory(staging));
    MutationFaults faults;
    { const StagingCleanupGuard guard(staging, backup, JournalPath(control)); }
    std::vector<std::wstring> removed;
    for (const auto& call : faults.Calls()) {
        if (call.function == "RemoveDirectoryW") removed.push_back(call.path);
    }
    EXPECT_EQ(removed, (std::vector<std::wstring>{ToLongPath(staging), ToLongPath(backup)}));
}

TEST_F(Transaction, Guard_LeavesWhatAJournalNeeds) {
    const std::wstring staging = control + L"\\staging-1";
    ASSERT_TRUE(EnsureDirectory(staging));
    {
        const UnreadableAttributes unreadable(L"transaction.json", ERROR_ACCESS_DENIED);
        const StagingCleanupGuard guard(staging, backup, JournalPath(control));
    }
    EXPECT_TRUE(Exists(backup));
    ASSERT_TRUE(WriteJournal());
    { const StagingCleanupGuard guard(staging, backup, JournalPath(control)); }
    EXPECT_TRUE(Exists(staging));
    EXPECT_TRUE(Exists(backup));
}

TEST_F(Transaction, Guard_TellsTheDebuggerWhatStays) {
    const std::wstring staging = control + L"\\staging-1";
    ASSERT_TRUE(EnsureDirectory(staging));
    WriteWholeFile(staging + L"\\held", "x");
    const HANDLE holder =
        CreateFileW((staging + L"\\held").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const DebuggerTexts texts;
    { const StagingCleanupGuard guard(staging, backup, JournalPath(control)); }
    CloseHandle(holder);
    EXPECT_EQ(texts.Texts(), std::vector<std::wstring>{L"Velmora Pine Relay update cleanup: " + staging + L"\n"});
    EXPECT_FALSE(Exists(backup));
}

}  // namespace
}  // namespace launcher_update
