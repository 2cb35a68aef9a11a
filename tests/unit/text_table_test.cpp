#include "product/text_table.h"

#include <gtest/gtest.h>

#include <string>

#include "product/locations.h"

namespace product {
namespace {

TEST(Language, LocaleNames_AreClassifiedByPrefix) {
    for (const wchar_t* name : {L"zh-TW", L"ZH-tw", L"zh-HK", L"zh-MO", L"zh-mo-x"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::traditionalChinese) << name;
    }
    for (const wchar_t* name : {L"zh", L"zh-CN", L"zh-SG", L"zh-Hant-TW"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::simplifiedChinese) << name;
    }
    EXPECT_EQ(ClassifyLocaleName(L"ja-JP"), Language::japanese);
    EXPECT_EQ(ClassifyLocaleName(L"KO"), Language::korean);
    for (const wchar_t* name : {L"en-US", L"fr-FR", L"", L"z"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::english) << name;
    }
}

TEST(Language, TagsMatchTheFiveLanguages) {
    EXPECT_STREQ(LanguageTag(Language::english), L"en");
    EXPECT_STREQ(LanguageTag(Language::traditionalChinese), L"zh-TW");
    EXPECT_STREQ(LanguageTag(Language::simplifiedChinese), L"zh-CN");
    EXPECT_STREQ(LanguageTag(Language::japanese), L"ja");
    EXPECT_STREQ(LanguageTag(Language::korean), L"ko");
}

TEST(TextTable, UnknownId_GivesAnEmptyText) {
    EXPECT_STREQ(TextIn(Language::english, static_cast<TextId>(68)), L"");
    EXPECT_STREQ(TextIn(Language::korean, static_cast<TextId>(4000000000u)), L"");
}

TEST(TextTable, FixedRows) {
    EXPECT_STREQ(TextIn(Language::english, TextId::AlreadyLatest), L"You already have the latest version.");
    EXPECT_STREQ(TextIn(Language::english, TextId::StartFailedPrefix), L"Failed to start the app (error code ");
    EXPECT_STREQ(TextIn(Language::english, TextId::StartFailedSuffix), L"):\n");
    EXPECT_STREQ(TextIn(Language::japanese, TextId::StartFailedSuffix), L"）：\n");
    EXPECT_STREQ(TextIn(Language::english, TextId::NotesUnavailable),
                 L"Release notes are not available for this version.");
    EXPECT_STREQ(TextIn(Language::english, TextId::DownloadIncomplete),
                 L"Download could not finish. You can retry later; eligible partial data is retained and the installed "
                 L"version is unchanged.");
    EXPECT_STREQ(TextIn(Language::english, TextId::StagingCopyFailed),
                 L"Could not copy verified data into update staging.");
    EXPECT_STREQ(TextIn(Language::english, TextId::DidNotFinishStarting),
                 L"Update did not finish. Starting the installed version…");
    EXPECT_STREQ(TextIn(Language::english, TextId::RecoveryNeedsAttention),
                 L"Update recovery needs attention. Launch stopped.");
    EXPECT_STREQ(TextIn(Language::english, TextId::LauncherTooOld),
                 L"This update requires a newer launcher. Please download the latest full package.");
    EXPECT_STREQ(TextIn(Language::english, TextId::BackupMetadataOlder),
                 L"Backup update information is older than the version already checked. Please retry later.");
    EXPECT_STREQ(TextIn(Language::traditionalChinese, TextId::BackupMetadataOlder),
                 L"備援更新資訊比已確認的版本舊，請稍後重試。");
}

TEST(Locations, BackupPrefix_HasSchemeHostAndFolder) {
    EXPECT_EQ(kBackupReleasePrefix, L"https://" + std::wstring(kBackupHost) + L"/releases/");
    EXPECT_EQ(kBackupReleasePrefix.size(), kBackupHost.size() + 18);
}

}  // namespace
}  // namespace product
