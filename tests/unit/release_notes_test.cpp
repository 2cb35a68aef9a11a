#include "update/manifest/release_notes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/text.h"
#include "tests/support/manifest_builder.h"

namespace launcher_update {
namespace {

using test_support::Array;
using test_support::BareManifest;
using test_support::JsonObject;
using test_support::LocalizationElement;
using test_support::NotesElement;
using test_support::Quoted;
using test_support::TextArray;

using Lines = std::vector<std::wstring>;

UpdateManifest Read(const std::wstring& notes) {
    UpdateManifest manifest;
    ParseReleaseNotes(BareManifest().Set(L"releaseNotes", notes).Text(), manifest);
    return manifest;
}

UpdateManifest ReadEntries(const std::vector<JsonObject>& entries) {
    return Read(NotesElement().Set(L"localizations", Array(entries)).Text());
}

UpdateManifest ReadEntry(const JsonObject& entry) {
    return ReadEntries({entry});
}

bool HasNotes(const UpdateManifest& manifest) {
    EXPECT_EQ(manifest.localizations.empty(), manifest.defaultLocale.empty()) << "both or none";
    return !manifest.localizations.empty();
}

std::vector<JsonObject> Entries(std::size_t count) {
    std::vector<JsonObject> entries;
    for (std::size_t n = 0; n < count; ++n)
        entries.push_back(LocalizationElement(L"l" + std::to_wstring(n)));
    return entries;
}

Lines Numbered(std::size_t count) {
    Lines lines;
    for (std::size_t n = 0; n < count; ++n)
        lines.push_back(L"line " + std::to_wstring(n));
    return lines;
}

TEST(ReleaseNotes, AreReadWithAllFields) {
    const UpdateManifest manifest = Read(NotesElement().Text());
    EXPECT_EQ(manifest.defaultLocale, L"en");
    ASSERT_EQ(manifest.localizations.size(), 1u);
    const ReleaseNotesLocalization expected = {L"en", L"Quieter start.", {L"Faster.", L"更小。"}, {L"Faster."}};
    EXPECT_EQ(manifest.localizations.front(), expected);
}

TEST(ReleaseNotes, ManifestWithoutNotes_StillHasPriorityAndUrl) {
    UpdateManifest manifest;
    std::wstring error;
    const JsonObject object =
        BareManifest().SetText(L"updatePriority", L"hotfix").SetText(L"releaseNotesUrl", L"https://h.example/n");
    ASSERT_TRUE(ParseUpdateManifest(object.Text(), manifest, error, false));
    const ReleaseNotes notes = SelectReleaseNotes(manifest, L"en");
    EXPECT_EQ(notes, (ReleaseNotes{{}, {}, {}, L"hotfix", L"https://h.example/n"}));
}

TEST(ReleaseNotes, RefusedNotes_NeverRefuseTheManifest) {
    for (const wchar_t* notes : {L"{}", L"null", L"[]", L"\"text\"", L"7", L"{\"defaultLocale\":\"en\"}",
                                 L"{\"defaultLocale\":\"en\",\"localizations\":[{}]}"}) {
        SCOPED_TRACE(platform::EncodeUtf8(notes));
        UpdateManifest manifest;
        std::wstring error;
        EXPECT_TRUE(ParseUpdateManifest(BareManifest().Set(L"releaseNotes", notes).Text(), manifest, error, false));
        EXPECT_FALSE(HasNotes(manifest));
    }
}

TEST(ReleaseNotes, NoObjectOrNoDefaultLocale_LeavesTheFieldsUntouched) {
    for (const wchar_t* text :
         {L"{}", L"{\"releaseNotes\":null}", L"{\"releaseNotes\":{\"defaultLocale\":\"en\"", L"{\"releaseNotes\":{}}",
          L"{\"releaseNotes\":{\"defaultLocale\":7}}", L"[{\"releaseNotes\":{}}]"}) {
        SCOPED_TRACE(platform::EncodeUtf8(text));
        UpdateManifest manifest;
        manifest.defaultLocale = L"before";
        manifest.localizations.emplace_back();
        ParseReleaseNotes(text, manifest);
        EXPECT_EQ(manifest.defaultLocale, L"before");
        EXPECT_EQ(manifest.localizations.size(), 1u);
    }
}

TEST(ReleaseNotes, BadLocalizations_ClearTheDefaultLocale) {
    for (const wchar_t* list : {L"null", L"{}", L"[]", L"[7]", L"[{}", L"\"x\""}) {
        SCOPED_TRACE(platform::EncodeUtf8(list));
        UpdateManifest manifest;
        manifest.defaultLocale = L"before";
        const std::wstring notes = NotesElement().Set(L"localizations", list).Text();
        ParseReleaseNotes(BareManifest().Set(L"releaseNotes", notes).Text(), manifest);
        EXPECT_EQ(manifest.defaultLocale, L"");
        EXPECT_TRUE(manifest.localizations.empty());
    }
}

TEST(ReleaseNotes, DefaultLocale_IsAnyString) {
    const UpdateManifest manifest = Read(NotesElement().SetText(L"defaultLocale", std::wstring(100, L'x')).Text());
    EXPECT_EQ(manifest.defaultLocale, std::wstring(100, L'x'));
    EXPECT_EQ(manifest.localizations.size(), 1u);
}

TEST(ReleaseNotes, LocalizationList_IsWalkedLeniently) {
    const std::wstring list =
        L"[7,\"between\"," + LocalizationElement(L"en").Text() + L" null " + LocalizationElement(L"ja").Text() + L",]";
    EXPECT_EQ(Read(NotesElement().Set(L"localizations", list).Text()).localizations.size(), 2u);
}

TEST(ReleaseNotes, EightLocalizationsPass_NineDropAll) {
    EXPECT_EQ(ReadEntries(Entries(8)).localizations.size(), 8u);
    EXPECT_FALSE(HasNotes(ReadEntries(Entries(9))));
}

TEST(ReleaseNotes, OneBadLocalization_DropsAll) {
    for (const std::size_t bad : {0u, 1u, 2u}) {
        std::vector<JsonObject> entries = Entries(3);
        ASSERT_TRUE(HasNotes(ReadEntries(entries)));
        entries[bad].Remove(L"summary");
        EXPECT_FALSE(HasNotes(ReadEntries(entries))) << bad;
    }
}

TEST(ReleaseNotes, EveryRequiredKey_MustBeThereAndOfItsType) {
    for (const wchar_t* key : {L"locale", L"summary", L"highlights"}) {
        SCOPED_TRACE(platform::EncodeUtf8(key));
        EXPECT_FALSE(HasNotes(ReadEntry(LocalizationElement(L"en").Remove(key))));
        for (const wchar_t* value : {L"7", L"null", L"true", L"{}", L"[7]", L"\"\\q\""}) {
            EXPECT_FALSE(HasNotes(ReadEntry(LocalizationElement(L"en").Set(key, value))))
                << platform::EncodeUtf8(value);
        }
    }
}

TEST(ReleaseNotes, LocaleHasOneToSixteenUnits) {
    EXPECT_FALSE(HasNotes(ReadEntry(LocalizationElement(L""))));
    EXPECT_TRUE(HasNotes(ReadEntry(LocalizationElement(L"x"))));
    EXPECT_TRUE(HasNotes(ReadEntry(LocalizationElement(std::wstring(16, L'x')))));
    EXPECT_FALSE(HasNotes(ReadEntry(LocalizationElement(std::wstring(17, L'x')))));
}

TEST(ReleaseNotes, LocalesThatDifferInCaseAlone_DropAll) {
    EXPECT_FALSE(HasNotes(ReadEntries({LocalizationElement(L"en"), LocalizationElement(L"EN")})));
    EXPECT_FALSE(
        HasNotes(ReadEntries({LocalizationElement(L"en"), LocalizationElement(L"ja"), LocalizationElement(L"en")})));
    EXPECT_TRUE(HasNotes(ReadEntries({LocalizationElement(L"en"), LocalizationElement(L"en-US")})));
}

TEST(ReleaseNotes, NoteLines) {
    struct Row {
        std::wstring json;
        bool accepted;
    };
    const Row rows[] = {
        {Quoted(L"x"), true},
        {Quoted(std::wstring(500, L'x')), true},
        {Quoted(L" "), true},
        {L"\"a\tb\"", true},
        {L"\"a\\tb\"", true},
        {L"\"\\u0020\"", true},
        {L"\"\x7F\"", true},
        {L"\"\"", false},
        {Quoted(std::wstring(501, L'x')), false},
        {L"\"a\nb\"", false},
        {L"\"a\\nb\"", false},
        {L"\"a\\rb\"", false},
        {L"\"a\\u000ab\"", false},
        {L"\"a\\u0000b\"", false},
        {L"\"a\\u001fb\"", false},
        {L"\"a\\bb\"", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(platform::EncodeUtf8(row.json.substr(0, 40)));
        EXPECT_EQ(HasNotes(ReadEntry(LocalizationElement(L"en").Set(L"summary", row.json))), row.accepted);
        const std::wstring highlights = Array({Quoted(L"first"), row.json});
        EXPECT_EQ(HasNotes(ReadEntry(LocalizationElement(L"en").Set(L"highlights", highlights))), row.accepted);
    }
}

TEST(ReleaseNotes, OneToTwelveHighlights) {
    for (const auto& [count, accepted] :
         {std::pair(0u, false), std::pair(1u, true), std::pair(12u, true), std::pair(13u, false)}) {
        const JsonObject entry = LocalizationElement(L"en").Set(L"highlights", TextArray(Numbered(count)));
        EXPECT_EQ(HasNotes(ReadEntry(entry)), accepted) << count;
    }
}

TEST(ReleaseNotes, FirstKeyWins_AndNestedOnesAreNotSeen) {
    UpdateManifest manifest;
    ParseReleaseNotes(
        L"{\"x\":{\"releaseNotes\":null},\"releaseNotes\":" + NotesElement().Text() + L",\"releaseNotes\":null}",
        manifest);
    EXPECT_TRUE(HasNotes(manifest));
}

Lines Emphasis(const std::wstring& items) {
    const UpdateManifest manifest = ReadEntry(LocalizationElement(L"en").Set(L"emphasizedItems", items));
    EXPECT_TRUE(HasNotes(manifest)) << "emphasis can never refuse the notes";
    return manifest.localizations.empty() ? Lines{} : manifest.localizations.front().emphasizedItems;
}

TEST(ReleaseNotesEmphasis, KeepsWhatEqualsALine) {
    EXPECT_EQ(Emphasis(TextArray({L"更小。", L"Quieter start.", L"nothing", L"Faster."})),
              (Lines{L"更小。", L"Quieter start.", L"Faster."}));
    EXPECT_EQ(Emphasis(TextArray({L"Faster.", L"Faster."})), (Lines{L"Faster.", L"Faster."})) << "repeats are kept";
    EXPECT_EQ(Emphasis(TextArray({L"faster.", L"Faster", L" Faster."})), Lines{}) << "exactly, in case too";
    EXPECT_EQ(Emphasis(TextArray({L"", L"Faster."})), (Lines{L"Faster."}));
}

TEST(ReleaseNotesEmphasis, MissingOrUnreadable_IsNoEmphasis) {
    const UpdateManifest manifest = ReadEntry(LocalizationElement(L"en").Remove(L"emphasizedItems"));
    ASSERT_TRUE(HasNotes(manifest));
    EXPECT_TRUE(manifest.localizations.front().emphasizedItems.empty());
    for (const wchar_t* items :
         {L"[]", L"null", L"\"Faster.\"", L"[\"Faster.\" \"Faster.\"]", L"[\"Faster.\",7]", L"[\"\\q\"]"}) {
        EXPECT_EQ(Emphasis(items), Lines{}) << platform::EncodeUtf8(items);
    }
}

TEST(ReleaseNotesEmphasis, ThirteenItemsAreFiltered_FourteenAreNone) {
    EXPECT_EQ(Emphasis(TextArray(Lines(13, L"Faster."))), Lines(13, L"Faster."));
    EXPECT_EQ(Emphasis(TextArray(Lines(14, L"Faster."))), Lines{});
}

UpdateManifest WithLocales(const std::wstring& defaultLocale, const Lines& locales) {
    UpdateManifest manifest;
    manifest.defaultLocale = defaultLocale;
    for (const std::wstring& locale : locales)
        manifest.localizations.push_back({locale, L"in " + locale, {L"h"}, {L"h"}});
    return manifest;
}

TEST(ReleaseNotesSelection, RequestedThenDefaultThenEnglishThenFirst) {
    struct Row {
        const wchar_t* requested;
        UpdateManifest manifest;
        const wchar_t* summary;
    };
    const Row rows[] = {
        {L"ja", WithLocales(L"ko", {L"en", L"ko", L"ja"}), L"in ja"},
        {L"JA", WithLocales(L"ko", {L"en", L"ko", L"ja"}), L"in ja"},
        {L"fr", WithLocales(L"ko", {L"en", L"ko", L"ja"}), L"in ko"},
        {L"fr", WithLocales(L"KO", {L"en", L"ko", L"ja"}), L"in ko"},
        {L"fr", WithLocales(L"de", {L"ko", L"ja", L"EN"}), L"in EN"},
        {L"fr", WithLocales(L"de", {L"ko", L"ja"}), L"in ko"},
        {L"zh-TW", WithLocales(L"de", {L"ko", L"zh"}), L"in ko"},
        {L"zh", WithLocales(L"de", {L"ko", L"zh-TW"}), L"in ko"},
        {L"", WithLocales(L"", {L"ko", L"en"}), L"in en"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(platform::EncodeUtf8(row.requested));
        const ReleaseNotes notes = SelectReleaseNotes(row.manifest, row.requested);
        EXPECT_EQ(notes.summary, row.summary);
        EXPECT_EQ(notes.highlights, Lines{L"h"});
        EXPECT_EQ(notes.emphasizedItems, Lines{L"h"});
        EXPECT_EQ(notes.priority, L"normal");
    }
}

TEST(ReleaseNotesSelection, NoEntries_GivePriorityAndUrlAlone) {
    UpdateManifest manifest;
    manifest.updatePriority = L"recommended";
    manifest.releaseNotesUrl = L"u";
    EXPECT_EQ(SelectReleaseNotes(manifest, L"en"), (ReleaseNotes{{}, {}, {}, L"recommended", L"u"}));
}

TEST(ReleaseNotesLines, SummaryThenHighlights_ElseThePlaceholder) {
    EXPECT_EQ(ReleaseNotesLines({L"s", {L"a", L"b"}, {L"a"}, L"normal", L""}, L"none"), (Lines{L"s", L"a", L"b"}));
    EXPECT_EQ(ReleaseNotesLines({L"", {L"a"}, {}, L"normal", L""}, L"none"), Lines{L"a"});
    EXPECT_EQ(ReleaseNotesLines({L"s", {}, {}, L"normal", L""}, L"none"), Lines{L"s"});
    EXPECT_EQ(ReleaseNotesLines({}, L"none"), Lines{L"none"});
    EXPECT_EQ(ReleaseNotesLines({}, L""), Lines{L""});
}

}  // namespace
}  // namespace launcher_update
