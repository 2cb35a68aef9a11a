#include "update/manifest/release_identity.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "product/locations.h"
#include "tests/support/manifest_builder.h"

namespace launcher_update {
namespace {

using test_support::Digest;

std::wstring OnBackup(std::wstring_view name) {
    return std::wstring(product::kBackupReleasePrefix).append(name);
}

UpdateManifest Parsed(const test_support::JsonObject& object) {
    UpdateManifest manifest;
    std::wstring error;
    EXPECT_TRUE(ParseUpdateManifest(object.Text(), manifest, error, false));
    return manifest;
}

UpdateManifest FullOnBackup() {
    UpdateManifest manifest = Parsed(test_support::FullManifest());
    for (auto& file : manifest.files)
        file.url = OnBackup(L"f");
    for (auto& package : manifest.packages)
        package.url = OnBackup(L"p");
    manifest.packages.front().patch.url = OnBackup(L"d");
    return manifest;
}

TEST(ReleaseIdentity, CanonicalText_HoldsEveryLineInOrder) {
    const std::wstring expected =
        L"1.2.3.4\n1.0.0.0\n"
        L"application\nVelmora Pine Relay/Velmora Pine Relay.exe\n" +
        Digest(L'a') +
        L"\n1001\n"
        L"theme\nVelmora Pine Relay/Themes/Dusk.vprtheme\n" +
        Digest(L'b') +
        L"\n2002\n"
        L"core\n2.0.0.1\n" +
        Digest(L'c') +
        L"\n5005\naudio-engine\nrequired\n"
        L"bin/1.dll\n" +
        Digest(L'd') +
        L"\n3003\n"
        L"bin/3.dll\n" +
        Digest(L'e') +
        L"\n3004\n"
        L"2.0.0.0\n" +
        Digest(L'f') +
        L"\n404\n"
        L"bin/1.dll\n" +
        Digest(L'd') +
        L"\n3003\n"
        L"lyrics\n3.0.0.7\n" +
        Digest(L'0') +
        L"\n6006\nreading\noptional\n"
        L"data.bin\n" +
        Digest(L'1') +
        L"\n7007\n"
        L"\n\n0\n";
    EXPECT_EQ(ReleaseIdentityText(Parsed(test_support::FullManifest())), expected);
}

TEST(ReleaseIdentity, ReleaseOfNothing_IsItsTwoVersions) {
    EXPECT_EQ(ReleaseIdentityText(Parsed(test_support::BareManifest())), L"1.2.3.4\n1.0.0.0\n");
}

TEST(ReleaseIdentity, LargestSize_IsWrittenInFull) {
    UpdateManifest manifest;
    manifest.files.push_back({L"c", L"p", L"u", L"d", ~std::uint64_t{0}});
    EXPECT_EQ(ReleaseIdentityText(manifest), L"\n\nc\np\nd\n18446744073709551615\n");
}

TEST(ReleaseIdentity, PlacesNotesAndPriority_DoNotEnter) {
    const UpdateManifest manifest = Parsed(test_support::FullManifest());
    UpdateManifest elsewhere = FullOnBackup();
    elsewhere.updatePriority = L"normal";
    elsewhere.releaseNotesUrl = L"https://other.example/";
    elsewhere.defaultLocale = L"ja";
    elsewhere.localizations.clear();
    EXPECT_EQ(ReleaseIdentityText(elsewhere), ReleaseIdentityText(manifest));
}

TEST(ReleaseIdentity, EveryOtherField_Enters) {
    const std::function<void(UpdateManifest&)> changes[] = {
        [](UpdateManifest& m) { m.version = L"1.2.3.5"; },
        [](UpdateManifest& m) { m.minimumLauncherVersion = L"1.0.0.1"; },
        [](UpdateManifest& m) { m.files[1].component = L"x"; },
        [](UpdateManifest& m) { m.files[1].path = L"x"; },
        [](UpdateManifest& m) { m.files[1].sha256 = L"x"; },
        [](UpdateManifest& m) { m.files[1].size = 9; },
        [](UpdateManifest& m) { std::swap(m.files[0], m.files[1]); },
        [](UpdateManifest& m) { m.packages[0].id = L"x"; },
        [](UpdateManifest& m) { m.packages[0].version = L"x"; },
        [](UpdateManifest& m) { m.packages[0].sha256 = L"x"; },
        [](UpdateManifest& m) { m.packages[0].size = 9; },
        [](UpdateManifest& m) { m.packages[0].capability = L"x"; },
        [](UpdateManifest& m) { m.packages[0].requiredForStartup = false; },
        [](UpdateManifest& m) { m.packages[0].inventory[1].path = L"x"; },
        [](UpdateManifest& m) { m.packages[0].inventory[1].sha256 = L"x"; },
        [](UpdateManifest& m) { m.packages[0].inventory[1].size = 9; },
        [](UpdateManifest& m) { m.packages[0].patch.baseVersion = L"x"; },
        [](UpdateManifest& m) { m.packages[0].patch.sha256 = L"x"; },
        [](UpdateManifest& m) { m.packages[0].patch.size = 9; },
        [](UpdateManifest& m) { m.packages[0].patch.files[0].path = L"x"; },
        [](UpdateManifest& m) { m.packages[0].patch.files[0].sha256 = L"x"; },
        [](UpdateManifest& m) { m.packages[0].patch.files[0].size = 9; },
        [](UpdateManifest& m) { m.packages.pop_back(); },
    };
    const UpdateManifest manifest = Parsed(test_support::FullManifest());
    int row = 0;
    for (const auto& change : changes) {
        UpdateManifest changed = manifest;
        change(changed);
        EXPECT_NE(ReleaseIdentityText(changed), ReleaseIdentityText(manifest)) << "row " << row;
        ++row;
    }
}

TEST(BackupReleaseUrl, PrefixIsLiteral) {
    const std::wstring prefix(product::kBackupReleasePrefix);
    EXPECT_TRUE(IsBackupReleaseUrl(prefix));
    EXPECT_TRUE(IsBackupReleaseUrl(prefix + L"1.2.3.4/app.exe"));
    EXPECT_FALSE(IsBackupReleaseUrl(prefix.substr(0, prefix.size() - 1)));
    EXPECT_FALSE(IsBackupReleaseUrl(L""));
    EXPECT_FALSE(IsBackupReleaseUrl(L" " + prefix));
    EXPECT_FALSE(IsBackupReleaseUrl(L"HTTPS" + prefix.substr(5)));
    EXPECT_FALSE(IsBackupReleaseUrl(L"http" + prefix.substr(5) + L"app.exe"));
    EXPECT_FALSE(IsBackupReleaseUrl(L"https://other.example/releases/app.exe"));
    EXPECT_FALSE(IsBackupReleaseUrl(L"https://user@" + prefix.substr(8)));
    EXPECT_FALSE(IsBackupReleaseUrl(std::wstring(product::kBackupManifestUrl)));
}

TEST(BackupIndependence, EverythingOnTheBackup_IsIndependent) {
    EXPECT_TRUE(PointsOnlyAtBackup(FullOnBackup()));
    EXPECT_TRUE(PointsOnlyAtBackup(UpdateManifest{}));
}

TEST(BackupIndependence, OnePayloadElsewhere_IsNot) {
    const std::wstring elsewhere = L"https://github.com/releases/x";
    const std::function<void(UpdateManifest&)> changes[] = {
        [&](UpdateManifest& m) { m.files[0].url = elsewhere; },
        [&](UpdateManifest& m) { m.files[1].url = elsewhere; },
        [&](UpdateManifest& m) { m.packages[0].url = elsewhere; },
        [&](UpdateManifest& m) { m.packages[1].url = elsewhere; },
        [&](UpdateManifest& m) { m.packages[0].patch.url = elsewhere; },
        [&](UpdateManifest& m) { m.packages[1].patch.url = elsewhere; },
        [&](UpdateManifest& m) { m.files[0].url.clear(); },
        [&](UpdateManifest& m) { m.packages[0].url.clear(); },
    };
    int row = 0;
    for (const auto& change : changes) {
        UpdateManifest manifest = FullOnBackup();
        change(manifest);
        EXPECT_FALSE(PointsOnlyAtBackup(manifest)) << "row " << row;
        ++row;
    }
}

TEST(BackupIndependence, NotesMayLieAnywhere) {
    UpdateManifest manifest = FullOnBackup();
    manifest.releaseNotesUrl = L"https://github.com/notes";
    EXPECT_TRUE(PointsOnlyAtBackup(manifest));
}

using Action = WatermarkDecision::Action;

TEST(ReleaseWatermark, EveryStandingOfARelease) {
    struct Row {
        const char* name;
        std::wstring watermark;
        const wchar_t* version;
        Action primary;
        Action backup;
    };
    const Row rows[] = {
        {"no record", L"", L"2.0.0.0", Action::write, Action::write},
        {"no record, no version either", L"", L"x", Action::write, Action::write},
        {"record without a version", L"\nother", L"2.0.0.0", Action::write, Action::write},
        {"newer", L"1.0.0.0\nother", L"2.0.0.0", Action::write, Action::write},
        {"same version, same content", L"2.0.0.0\nid", L"2.0.0.0", Action::write, Action::write},
        {"same version written otherwise, same content", L"02.0.0.0\nid", L"2.0.0.0", Action::write, Action::write},
        {"same version, other content", L"2.0.0.0\nother", L"2.0.0.0", Action::write, Action::refuse},
        {"same version, content differs in case", L"2.0.0.0\nID", L"2.0.0.0", Action::write, Action::refuse},
        {"same version, line feed behind the content", L"2.0.0.0\nid\n", L"2.0.0.0", Action::write, Action::refuse},
        {"same version, empty content", L"2.0.0.0\n", L"2.0.0.0", Action::write, Action::write},
        {"same version, no line feed", L"2.0.0.0", L"2.0.0.0", Action::write, Action::write},
        {"older", L"3.0.0.0\nid", L"2.0.0.0", Action::leave, Action::refuse},
        {"older, no line feed", L"3.0.0.0", L"2.0.0.0", Action::leave, Action::refuse},
        {"record that does not parse", L"garbage\nid", L"2.0.0.0", Action::leave, Action::leave},
        {"record with a carriage return", L"3.0.0.0\r\nid", L"2.0.0.0", Action::leave, Action::leave},
        {"release that does not parse", L"3.0.0.0\nid", L"x", Action::leave, Action::leave},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const WatermarkDecision primary = JudgeReleaseWatermark(row.watermark, row.version, L"id", false);
        const WatermarkDecision backup = JudgeReleaseWatermark(row.watermark, row.version, L"id", true);
        EXPECT_EQ(primary.action, row.primary);
        EXPECT_EQ(backup.action, row.backup);
        const std::wstring written = std::wstring(row.version) + L"\nid";
        EXPECT_EQ(primary.text, row.primary == Action::write ? written : L"");
        EXPECT_EQ(backup.text, row.backup == Action::write ? written : L"");
    }
}

TEST(ReleaseWatermark, WhatIsWritten_IsAcceptedAgain) {
    const WatermarkDecision first = JudgeReleaseWatermark(L"", L"1.2.3.4", Digest(L'a'), true);
    ASSERT_EQ(first.action, Action::write);
    EXPECT_EQ(JudgeReleaseWatermark(first.text, L"1.2.3.4", Digest(L'a'), true), first);
    EXPECT_EQ(JudgeReleaseWatermark(first.text, L"1.2.3.4", Digest(L'b'), true).action, Action::refuse);
}

}  // namespace
}  // namespace launcher_update
