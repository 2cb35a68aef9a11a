#include "update/transaction/journal_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/text.h"
#include "update/packages/support_files.h"

namespace launcher_update {
namespace {

constexpr wchar_t kInvalidJournal[] = L"上一次更新的交易紀錄無效；已保留備份並停止啟動。";
constexpr wchar_t kInvalidTarget[] = L"上一次更新的交易目標無效；已保留備份並停止啟動。";
constexpr wchar_t kRepeatedTarget[] = L"上一次更新的交易目標重複；已保留備份並停止啟動。";

UpdateManifest ManifestWithFiles(std::initializer_list<const wchar_t*> paths) {
    UpdateManifest manifest;
    for (const wchar_t* path : paths)
        manifest.files.push_back({L"application", path, L"", L"", 1});
    return manifest;
}

/// The message with which a journal of this text is refused; empty if it is accepted.
std::wstring Refusal(const std::string& text) {
    std::wstring name;
    TransactionTargets targets;
    std::wstring error;
    return ParseJournal(text, name, targets, error) ? std::wstring() : error;
}

std::string JournalWith(const std::string& targets, const std::string& backup = "backup-1",
                        const std::string& schema = "1") {
    return "{\"schemaVersion\": " + schema + ", \"backupDirectory\": \"" + backup + "\", \"targets\": [" + targets +
           "]}";
}

TEST(JournalTargets, ManifestWithoutFiles_StillCoversTheSettings) {
    TransactionTargets targets;
    std::wstring error;
    ASSERT_TRUE(BuildTransactionTargets(UpdateManifest{}, L"App", false, targets, error));
    EXPECT_EQ(targets, (TransactionTargets{{L"current.json", false}}));
}

TEST(JournalTargets, SettingsComeLast_AndSlashesAreTurned) {
    TransactionTargets targets;
    std::wstring error;
    ASSERT_TRUE(BuildTransactionTargets(ManifestWithFiles({L"App/x", L"App\\y"}), L"App", false, targets, error));
    EXPECT_EQ(targets, (TransactionTargets{{L"App\\x", false}, {L"App\\y", false}, {L"current.json", false}}));
}

TEST(JournalTargets, PathsThatDifferInCase_AreOneTarget) {
    TransactionTargets targets;
    std::wstring error;
    ASSERT_TRUE(BuildTransactionTargets(ManifestWithFiles({L"App/x", L"app/X", L"CURRENT.json"}), L"App", false,
                                        targets, error));
    EXPECT_EQ(targets.size(), 2u);
}

TEST(JournalTargets, UnsafePath_IsRefused) {
    TransactionTargets targets;
    std::wstring error;
    EXPECT_FALSE(BuildTransactionTargets(ManifestWithFiles({L".vpr-update/x"}), L"App", false, targets, error));
    EXPECT_EQ(error, L"更新交易包含不安全的目標路徑。");
}

TEST(JournalTargets, LimitCountsDistinctTargets) {
    TransactionTargets targets;
    std::wstring error;
    for (std::size_t index = 0; index < 256; ++index) {
        ASSERT_TRUE(AddTransactionTarget(targets, L"f" + std::to_wstring(index), error)) << index;
    }
    EXPECT_TRUE(AddTransactionTarget(targets, L"F7", error));
    EXPECT_EQ(targets.size(), 256u);
    EXPECT_FALSE(AddTransactionTarget(targets, L"f256", error));
    EXPECT_EQ(error, L"更新交易的目標檔案數量超過安全上限。");
}

TEST(JournalTargets, Packages_AddSupportFilesAndRuntimeState) {
    UpdateManifest manifest = ManifestWithFiles({L"App/x"});
    PackageDescriptor other;
    other.id = L"other";
    other.inventory = {{L"VPRAsioProbe.exe", L"", 1}};
    PackageDescriptor runtime;
    runtime.id = L"Application-Runtime";
    runtime.inventory = {{L"core.dll", L"", 1}, {L"vprasiobridge.EXE", L"", 1}, {L"Licenses/GPL-3.0.txt", L"", 1}};
    manifest.packages = {other, runtime};
    TransactionTargets targets;
    std::wstring error;
    ASSERT_TRUE(BuildTransactionTargets(manifest, L"App", true, targets, error));
    EXPECT_EQ(targets, (TransactionTargets{{L"App\\x", false},
                                           {L"App\\vprasiobridge.EXE", false},
                                           {L"App\\Licenses\\GPL-3.0.txt", false},
                                           {L"App\\Runtime\\current.json", false},
                                           {L"current.json", false}}));
}

TEST(SupportFiles, ListHas92DistinctEntries) {
    const auto files = ApplicationRuntimeSupportFiles();
    ASSERT_EQ(files.size(), 92u);
    for (const std::wstring_view file : files) {
        EXPECT_TRUE(IsApplicationRuntimeSupportFile(platform::ToLower(file)));
        EXPECT_EQ(std::count(files.begin(), files.end(), file), 1);
    }
    EXPECT_FALSE(IsApplicationRuntimeSupportFile(L"Licenses\\GPL-3.0.txt"));
    EXPECT_FALSE(IsApplicationRuntimeSupportFile(L""));
}

TEST(Journal, HasTheFixedForm) {
    const TransactionTargets targets = {{L"App\\a \"b\".txt", true}, {L"current.json", false}};
    EXPECT_EQ(RenderJournal(L"backup-1.0.0.0-1-2", targets),
              L"{\n"
              L"  \"schemaVersion\": 1,\n"
              L"  \"backupDirectory\": \"backup-1.0.0.0-1-2\",\n"
              L"  \"targets\": [\n"
              L"    {\"path\": \"App\\\\a \\\"b\\\".txt\", \"hadOriginal\": true},\n"
              L"    {\"path\": \"current.json\", \"hadOriginal\": false}\n"
              L"  ]\n"
              L"}\n");
}

TEST(Journal, WhatIsWritten_IsReadBack) {
    const TransactionTargets targets = {{L"App\\日本\\x.exe", true}, {L"App\\new", false}, {L"current.json", true}};
    std::wstring name;
    TransactionTargets read;
    std::wstring error;
    ASSERT_TRUE(ParseJournal(platform::EncodeUtf8(RenderJournal(L"Backup-é", targets)), name, read, error));
    EXPECT_EQ(name, L"Backup-é");
    EXPECT_EQ(read, targets);
}

TEST(Journal, SlashesInATarget_AreTurned) {
    std::wstring name;
    TransactionTargets read;
    std::wstring error;
    ASSERT_TRUE(ParseJournal(JournalWith("{\"path\": \"a/b\", \"hadOriginal\": true}"), name, read, error));
    EXPECT_EQ(read, (TransactionTargets{{L"a\\b", true}}));
}

TEST(Journal, BackupFolder_IsANameAlone) {
    for (const wchar_t* name : {L"backup-", L"backup-1.0.0.0-1-2", L"BACKUP-x", L"backup-.."})
        EXPECT_TRUE(IsBackupDirectoryName(name)) << name;
    for (const wchar_t* name : {L"", L"backup", L"xbackup-1", L" backup-1", L"backup-\\x", L"backup-/x", L"backup-1\\"})
        EXPECT_FALSE(IsBackupDirectoryName(name)) << name;
    // Windows would cut the name there and find another folder than was judged.
    EXPECT_FALSE(IsBackupDirectoryName(std::wstring_view(L"backup-\0x", 9)));
}

TEST(Journal, FaultsOfTheFrame_AreOneMessage) {
    const std::string target = "{\"path\": \"a\", \"hadOriginal\": true}";
    for (const std::string& text :
         {std::string(), std::string("\xFF"), std::string("{}"), JournalWith(target, "backup-1", "2"),
          JournalWith(target, "backup-1", "1.0"), JournalWith(target, "backup-1", "\"1\""),
          JournalWith(target, "old-1"), JournalWith(target, "backup-/../x"), JournalWith(target, "backup-\\\\..\\\\x"),
          JournalWith(""), JournalWith("7"), JournalWith(target + "; " + target),
          std::string("{\"schemaVersion\": 1, \"backupDirectory\": \"backup-1\"}"),
          "{\"schemaVersion\": 1, \"targets\": [" + target + "]}"}) {
        EXPECT_EQ(Refusal(text), kInvalidJournal) << text;
    }
}

TEST(Journal, FaultsOfATarget_AreAnotherMessage) {
    for (const char* target :
         {"{\"path\": \"a\"}", "{\"hadOriginal\": true}", "{\"path\": 7, \"hadOriginal\": true}",
          "{\"path\": \"a\", \"hadOriginal\": \"true\"}", "{\"path\": \"..\\\\a\", \"hadOriginal\": true}",
          "{\"path\": \".VPR-update/x\", \"hadOriginal\": true}", "{\"path\": \"C:\\\\a\", \"hadOriginal\": false}",
          "{\"path\": \"\", \"hadOriginal\": false}"}) {
        EXPECT_EQ(Refusal(JournalWith(target)), kInvalidTarget) << target;
    }
}

TEST(Journal, RepeatedTarget_IsAThirdMessage) {
    EXPECT_EQ(Refusal(JournalWith(
                  "{\"path\": \"a/b\", \"hadOriginal\": true}, {\"path\": \"A\\\\B\", \"hadOriginal\": true}")),
              kRepeatedTarget);
}

TEST(Journal, TargetCountIsBounded) {
    const auto targets = [](int count) {
        std::string text;
        for (int index = 0; index < count; ++index) {
            text += (index ? ", " : "") + ("{\"path\": \"f" + std::to_string(index)) + "\", \"hadOriginal\": true}";
        }
        return text;
    };
    EXPECT_EQ(Refusal(JournalWith(targets(256))), L"");
    EXPECT_EQ(Refusal(JournalWith(targets(257))), kInvalidJournal);
}

/// A journal that was cut off or damaged must be refused or mean the same; anything else would restore the wrong files.
TEST(Journal, EveryTruncation_IsRefusedOrMeansTheSame) {
    const TransactionTargets targets = {{L"App\\a", true}, {L"App\\b", false}, {L"current.json", true}};
    const std::string whole = platform::EncodeUtf8(RenderJournal(L"backup-1", targets));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        std::wstring name;
        TransactionTargets read;
        std::wstring error;
        if (!ParseJournal(whole.substr(0, length), name, read, error)) continue;
        EXPECT_EQ(name, L"backup-1") << length;
        EXPECT_EQ(read, targets) << length;
    }
}

TEST(Journal, EveryFlippedBit_KeepsTheRules) {
    const TransactionTargets targets = {{L"App\\a", true}, {L"App\\b", false}, {L"current.json", true}};
    const std::string whole = platform::EncodeUtf8(RenderJournal(L"backup-1", targets));
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string flipped = whole;
            flipped[at] = static_cast<char>(flipped[at] ^ (1 << bit));
            std::wstring name;
            TransactionTargets read;
            std::wstring error;
            if (!ParseJournal(flipped, name, read, error)) continue;
            EXPECT_TRUE(IsBackupDirectoryName(name));
            for (const TransactionTarget& target : read) {
                EXPECT_FALSE(target.path.empty() || target.path.starts_with(L".vpr-update\\")) << at;
            }
        }
    }
}

}  // namespace
}  // namespace launcher_update
