#include "update/manifest/update_manifest.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "platform/text.h"
#include "tests/support/manifest_builder.h"
#include "update/manifest/sha256_text.h"

namespace launcher_update {
namespace {

using test_support::Array;
using test_support::BareManifest;
using test_support::Digest;
using test_support::FileElement;
using test_support::FullManifest;
using test_support::InventoryElement;
using test_support::JsonObject;
using test_support::PackageElement;
using test_support::PatchElement;
using test_support::Quoted;
using test_support::TextArray;
using test_support::ThemeElement;

constexpr const wchar_t* kAccepted = L"";
constexpr const wchar_t* kFormat = L"更新清單格式不正確。";
constexpr const wchar_t* kReleaseVersion = L"更新清單的版本號格式不正確。";
constexpr const wchar_t* kFileList = L"更新清單缺少檔案列表。";
constexpr const wchar_t* kFile = L"更新清單包含無效或不允許的檔案。";
constexpr const wchar_t* kTwoLists = L"更新清單不可同時包含兩種資源包列表。";
constexpr const wchar_t* kPackageList = L"更新清單的資源包列表格式不正確。";
constexpr const wchar_t* kPackage = L"更新清單包含無效的資源包描述。";
constexpr const wchar_t* kPackageVersion = L"更新清單包含重複或版本無效的資源包。";
constexpr const wchar_t* kInventory = L"資源包缺少有效的 inventory。";
constexpr const wchar_t* kInventoryFile = L"資源包 inventory 包含無效的檔案。";

/// The message of a refused text, or the empty text.
std::wstring Message(std::wstring_view text, bool allowLocalFiles = false) {
    UpdateManifest manifest;
    std::wstring error;
    const bool accepted = ParseUpdateManifest(text, manifest, error, allowLocalFiles);
    EXPECT_EQ(accepted, error.empty()) << platform::EncodeUtf8(error);
    return error;
}

std::wstring MessageOf(const JsonObject& manifest) {
    return Message(manifest.Text());
}

std::wstring MessageOfFile(const JsonObject& file) {
    return MessageOf(BareManifest().Set(L"files", Array({file})));
}

JsonObject WithPackages(const std::vector<JsonObject>& packages) {
    return BareManifest().Set(L"packages", Array(packages));
}

std::wstring MessageOfPackage(const JsonObject& package) {
    return MessageOf(WithPackages({package}));
}

std::wstring MessageOfInventory(const std::vector<JsonObject>& inventory) {
    return MessageOfPackage(PackageElement().Set(L"files", Array(inventory)));
}

std::wstring MessageOfPatch(const JsonObject& patch) {
    return MessageOfPackage(PackageElement().Set(L"patch", patch));
}

std::vector<JsonObject> InventoryOf(std::size_t count) {
    std::vector<JsonObject> files;
    files.reserve(count + 1);
    for (std::size_t n = 0; n < count; ++n)
        files.push_back(InventoryElement(L"f" + std::to_wstring(n), L'a', 1));
    return files;
}

UpdateManifest Parsed(const JsonObject& object) {
    UpdateManifest manifest;
    std::wstring error;
    EXPECT_TRUE(ParseUpdateManifest(object.Text(), manifest, error, false)) << platform::EncodeUtf8(error);
    return manifest;
}

std::string Shown(std::wstring_view text) {
    return platform::EncodeUtf8(text.substr(0, 80));
}

/// One raw JSON value per row, put under `key` of a default element.
struct ValueRow {
    std::wstring raw;
    const wchar_t* message;
};

void ExpectMessages(const wchar_t* key, const std::vector<ValueRow>& rows,
                    const std::function<std::wstring(const wchar_t*, const std::wstring&)>& messageOf) {
    for (const ValueRow& row : rows) {
        EXPECT_EQ(messageOf(key, row.raw), row.message) << Shown(key) << " : " << Shown(row.raw);
    }
}

const std::function<std::wstring(const wchar_t*, const std::wstring&)> kInHead =
    [](const wchar_t* key, const std::wstring& raw) { return MessageOf(BareManifest().Set(key, raw)); };
const std::function<std::wstring(const wchar_t*, const std::wstring&)> kInFile =
    [](const wchar_t* key, const std::wstring& raw) { return MessageOfFile(FileElement().Set(key, raw)); };
const std::function<std::wstring(const wchar_t*, const std::wstring&)> kInPackage =
    [](const wchar_t* key, const std::wstring& raw) { return MessageOfPackage(PackageElement().Set(key, raw)); };
const std::function<std::wstring(const wchar_t*, const std::wstring&)> kInInventory = [](const wchar_t* key,
                                                                                         const std::wstring& raw) {
    return MessageOfInventory({InventoryElement(L"other", L'a', 1), InventoryElement(L"x", L'b', 1).Set(key, raw)});
};
const std::function<std::wstring(const wchar_t*, const std::wstring&)> kInPatch =
    [](const wchar_t* key, const std::wstring& raw) { return MessageOfPatch(PatchElement().Set(key, raw)); };

// ---------------------------------------------------------------------------------------------- the whole record

TEST(UpdateManifest, EverythingIsRead) {
    const UpdateManifest manifest = Parsed(FullManifest());
    UpdateManifest expected;
    expected.updatePriority = L"hotfix";
    expected.version = L"1.2.3.4";
    expected.minimumLauncherVersion = L"1.0.0.0";
    expected.releaseNotesUrl = L"https://h.example/notes";
    expected.defaultLocale = L"en";
    expected.localizations = {{L"en", L"Quieter start.", {L"Faster.", L"更小。"}, {L"Faster."}}};
    expected.files = {
        {L"application", L"Velmora Pine Relay/Velmora Pine Relay.exe", L"https://h.example/app", Digest(L'a'), 1001},
        {L"theme", L"Velmora Pine Relay/Themes/Dusk.vprtheme", L"https://h.example/dusk", Digest(L'b'), 2002}};
    PackageDescriptor core;
    core.id = L"core";
    core.version = L"2.0.0.1";
    core.url = L"https://h.example/core";
    core.sha256 = Digest(L'c');
    core.capability = L"audio-engine";
    core.size = 5005;
    core.requiredForStartup = true;
    core.inventory = {{L"bin/1.dll", Digest(L'd'), 3003}, {L"bin/3.dll", Digest(L'e'), 3004}};
    core.patch = {L"2.0.0.0", L"https://h.example/patch", Digest(L'f'), 404, {core.inventory[0]}};
    PackageDescriptor lyrics;
    lyrics.id = L"lyrics";
    lyrics.version = L"3.0.0.7";
    lyrics.url = L"https://h.example/lyrics";
    lyrics.sha256 = Digest(L'0');
    lyrics.capability = L"reading";
    lyrics.size = 6006;
    lyrics.inventory = {{L"data.bin", Digest(L'1'), 7007}};
    expected.packages = {core, lyrics};
    EXPECT_EQ(manifest, expected);
}

TEST(UpdateManifest, OrderOfKeysDoesNotMatter) {
    JsonObject turned;
    turned.Set(L"packages", Array({PackageElement()})).Set(L"files", Array({FileElement()}));
    turned.Set(L"unknown", L"{\"files\":[],\"packages\":null,\"packagesV2\":[]}");
    turned.SetText(L"minimumLauncherVersion", L"1.0.0.0").SetText(L"version", L"1.2.3.4").Set(L"schemaVersion", L"1");
    EXPECT_EQ(Parsed(turned),
              Parsed(BareManifest().Set(L"files", Array({FileElement()})).Set(L"packages", Array({PackageElement()}))));
}

TEST(UpdateManifest, ReleaseOfNothing_IsAccepted) {
    const UpdateManifest manifest = Parsed(BareManifest());
    EXPECT_TRUE(manifest.files.empty());
    EXPECT_TRUE(manifest.packages.empty());
    EXPECT_EQ(manifest.updatePriority, L"normal");
    EXPECT_EQ(manifest.releaseNotesUrl, L"");
}

TEST(UpdateManifest, NothingOfAnEarlierParseRemains) {
    UpdateManifest manifest = Parsed(FullManifest());
    std::wstring error = L"untouched";
    ASSERT_TRUE(ParseUpdateManifest(BareManifest().Text(), manifest, error, false));
    EXPECT_EQ(manifest, Parsed(BareManifest()));
    EXPECT_EQ(error, L"untouched");
}

TEST(UpdateManifest, FirstOfTwoEqualKeysWins) {
    const std::wstring text = BareManifest().Text();
    EXPECT_EQ(Message(L"{\"schemaVersion\":2," + text.substr(1)), kFormat);
    EXPECT_EQ(Message(text.substr(0, text.size() - 1) + L",\"schemaVersion\":2}"), kAccepted);
}

TEST(UpdateManifest, RootThatIsNoObject_IsRefused) {
    for (const wchar_t* text : {L"", L"null", L"[]", L"<html>captive portal</html>"})
        EXPECT_EQ(Message(text), kFormat) << Shown(text);
    EXPECT_EQ(Message(L"[" + BareManifest().Text() + L"]"), kFormat);
}

// ---------------------------------------------------------------------------------------------- the head

TEST(UpdateManifest, EachRequiredTopLevelKey) {
    EXPECT_EQ(MessageOf(FullManifest().Remove(L"schemaVersion")), kFormat);
    EXPECT_EQ(MessageOf(FullManifest().Remove(L"version")), kFormat);
    EXPECT_EQ(MessageOf(FullManifest().Remove(L"minimumLauncherVersion")), kFormat);
    EXPECT_EQ(MessageOf(FullManifest().Remove(L"files")), kFileList);
    for (const wchar_t* key : {L"releaseNotesUrl", L"updatePriority", L"releaseNotes", L"packages"}) {
        EXPECT_EQ(MessageOf(FullManifest().Remove(key)), kAccepted) << Shown(key);
    }
}

TEST(UpdateManifest, SchemaVersion) {
    ExpectMessages(L"schemaVersion",
                   {{L"1", kAccepted},
                    {L"1.9", kAccepted},
                    {L"1x", kAccepted},
                    {L"+1", kAccepted},
                    {L"001", kAccepted},
                    {L"-18446744073709551615", kAccepted},
                    {L"2", kFormat},
                    {L"0", kFormat},
                    {L"-1", kFormat},
                    {L"11", kFormat},
                    {L"18446744073709551617", kFormat},
                    {L"\"1\"", kFormat},
                    {L"null", kFormat},
                    {L"true", kFormat},
                    {L"[1]", kFormat}},
                   kInHead);
}

TEST(UpdateManifest, ReleaseVersion) {
    ExpectMessages(L"version",
                   {{L"\"65535.0.0.1\"", kAccepted},
                    {L"\"65536.0.0.1\"", kReleaseVersion},
                    {L"\"1.2.3\"", kReleaseVersion},
                    {L"\"1.2.3.4.5\"", kReleaseVersion},
                    {L"\"\"", kReleaseVersion},
                    {L"\"1.2.3.4 \"", kReleaseVersion},
                    {L"\"1.2.3.4\\u0000\"", kReleaseVersion},
                    {L"1", kFormat},
                    {L"null", kFormat},
                    {L"\"\\q\"", kFormat}},
                   kInHead);
    EXPECT_EQ(Parsed(BareManifest().SetText(L"version", L"01.002.3.4")).version, L"01.002.3.4") << "kept as written";
}

TEST(UpdateManifest, MinimumLauncherVersion_IsAnyString) {
    ExpectMessages(L"minimumLauncherVersion",
                   {{L"\"\"", kAccepted}, {L"\"soon\"", kAccepted}, {L"1", kFormat}, {L"null", kFormat}}, kInHead);
    EXPECT_EQ(Parsed(BareManifest().SetText(L"minimumLauncherVersion", L"soon")).minimumLauncherVersion, L"soon");
}

TEST(UpdateManifest, ReleaseNotesUrl_MayBeMissingButNotSomethingElse) {
    ExpectMessages(
        L"releaseNotesUrl",
        {{L"\"\"", kAccepted}, {L"\"javascript:x\"", kAccepted}, {L"null", kFormat}, {L"7", kFormat}, {L"{}", kFormat}},
        kInHead);
    EXPECT_EQ(Parsed(BareManifest().SetText(L"releaseNotesUrl", L"javascript:x")).releaseNotesUrl, L"javascript:x");
}

TEST(UpdateManifest, Priority) {
    struct Row {
        const wchar_t* raw;
        const wchar_t* priority;
    };
    constexpr Row kRows[] = {
        {L"\"normal\"", L"normal"},
        {L"\"recommended\"", L"recommended"},
        {L"\"hotfix\"", L"hotfix"},
        {L"\"Hotfix\"", L"normal"},
        {L"\"RECOMMENDED\"", L"normal"},
        {L"\"hotfix \"", L"normal"},
        {L"\"\"", L"normal"},
        {L"\"urgent\"", L"normal"},
        {L"7", L"normal"},
        {L"null", L"normal"},
        {L"{}", L"normal"},
        {L"[\"hotfix\"]", L"normal"},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(Parsed(BareManifest().Set(L"updatePriority", row.raw)).updatePriority, row.priority)
            << Shown(row.raw);
    }
}

TEST(UpdateManifest, UnreadablePriorityHidesWhatFollows) {
    // A bad escape hides every later key; the priority itself is no failure, the missing file list is.
    const std::wstring text =
        L"{\"schemaVersion\":1,\"version\":\"1.2.3.4\",\"minimumLauncherVersion\":\"\",\"updatePriority\":\"\\q\"";
    EXPECT_EQ(Message(text + L"}"), kFileList);
    EXPECT_EQ(Message(text + L",\"files\":[]}"), kFileList);
}

// ---------------------------------------------------------------------------------------------- files

TEST(UpdateManifestFiles, ListMustBeAStrictArray) {
    ExpectMessages(L"files",
                   {{L"[]", kAccepted},
                    {L"[,]", kAccepted},
                    {L"null", kFileList},
                    {L"{}", kFileList},
                    {L"\"[]\"", kFileList},
                    {L"[1]", kFileList},
                    {L"[\"x\"]", kFileList},
                    {L"[[]]", kFileList},
                    {L"[{]", kFileList},
                    {L"[{}]", kFile}},
                   kInHead);
    EXPECT_EQ(MessageOf(FullManifest().Remove(L"files")), kFileList) << "even when there are packages";
}

TEST(UpdateManifestFiles, EveryKeyIsRequired) {
    for (const wchar_t* key : {L"component", L"path", L"url", L"sha256", L"size"}) {
        EXPECT_EQ(MessageOfFile(FileElement()), kAccepted);
        EXPECT_EQ(MessageOfFile(FileElement().Remove(key)), kFile) << Shown(key);
        ExpectMessages(key, {{L"null", kFile}, {L"{}", kFile}, {L"true", kFile}}, kInFile);
    }
    for (const wchar_t* key : {L"component", L"path", L"url", L"sha256"})
        ExpectMessages(key, {{L"7", kFile}, {L"\"\"", kFile}}, kInFile);
}

TEST(UpdateManifestFiles, Size) {
    ExpectMessages(L"size",
                   {{L"1", kAccepted},
                    {L"536870912", kAccepted},
                    {L"1.9", kAccepted},
                    {L"12x", kAccepted},
                    {L"+5", kAccepted},
                    {L"0", kFile},
                    {L"536870913", kFile},
                    {L"-1", kFile},
                    {L"99999999999999999999", kFile},
                    {L"0.9", kFile},
                    {L"\"5\"", kFile}},
                   kInFile);
    EXPECT_EQ(Parsed(BareManifest().Set(L"files", Array({FileElement().Set(L"size", L"1.9")}))).files.front().size, 1u);
}

TEST(UpdateManifestFiles, DigestIsJudgedByLengthAlone) {
    ExpectMessages(L"sha256",
                   {{Quoted(std::wstring(64, L'g')), kAccepted},
                    {Quoted(Digest(L'A')), kAccepted},
                    {Quoted(std::wstring(63, L'a')), kFile},
                    {Quoted(std::wstring(65, L'a')), kFile}},
                   kInFile);
}

TEST(UpdateManifestFiles, UnsafePaths) {
    const std::wstring folder = L"Velmora Pine Relay";
    for (const std::wstring& path :
         {L"C:/" + folder, L"C:\\" + folder, L"/" + folder + L"/Velmora Pine Relay.exe", L"\\" + folder, folder + L"/",
          folder + L"//Velmora Pine Relay.exe", folder + L"/./Velmora Pine Relay.exe",
          folder + L"/../Velmora Pine Relay.exe", folder + L"/Velmora Pine Relay.exe/",
          folder + L"/Velmora Pine Relay.exe:stream", std::wstring(L"..")}) {
        EXPECT_EQ(MessageOfFile(FileElement().SetText(L"path", path)), kFile) << Shown(path);
    }
    // Allowed as a target, so that nothing but the path rule can refuse it.
    EXPECT_EQ(MessageOfFile(ThemeElement().SetText(L"path", folder + L"/Themes/a:b.vprtheme")), kFile);
    EXPECT_EQ(MessageOfFile(ThemeElement().Set(L"path", L"\"Velmora Pine Relay/Themes/a\\u0000.vprtheme\"")), kFile);
    EXPECT_EQ(MessageOfFile(ThemeElement().SetText(L"path", folder + L"/Themes/..a.vprtheme")), kAccepted);
    EXPECT_EQ(MessageOfFile(ThemeElement().SetText(L"path", folder + L"\\Themes\\a.vprtheme")), kAccepted);
}

TEST(UpdateManifestFiles, SourceMustBeHttps) {
    ExpectMessages(L"url",
                   {{L"\"https://h/x\"", kAccepted},
                    {L"\"http://h/x\"", kFile},
                    {L"\"https://h\"", kFile},
                    {L"\"C:\\\\x\"", kFile},
                    {L"\"x\"", kFile}},
                   kInFile);
}

TEST(UpdateManifestFiles, EveryElementIsJudged) {
    const JsonObject good = FileElement();
    const JsonObject bad = FileElement().Set(L"size", L"0");
    EXPECT_EQ(MessageOf(BareManifest().Set(L"files", Array({good, good, bad}))), kFile);
    EXPECT_EQ(MessageOf(BareManifest().Set(L"files", Array({bad, good, good}))), kFile);
    EXPECT_EQ(MessageOf(BareManifest().Set(L"files", Array({good, good}))), kAccepted)
        << "duplicates are judged elsewhere";
}

TEST(UpdateManifestFiles, AllowedTargets) {
    struct Row {
        const wchar_t* component;
        const wchar_t* path;
        bool allowed;
    };
    constexpr Row kRows[] = {
        {L"application", L"Velmora Pine Relay/Velmora Pine Relay.exe", true},
        {L"application", L"Velmora Pine Relay\\Velmora Pine Relay.exe", true},
        {L"application", L"VELMORA PINE RELAY/velmora pine relay.EXE", true},
        {L"Application", L"Velmora Pine Relay/Velmora Pine Relay.exe", false},
        {L"theme", L"Velmora Pine Relay/Velmora Pine Relay.exe", false},
        {L"", L"Velmora Pine Relay/Velmora Pine Relay.exe", false},
        {L"application", L"Velmora Pine Relay.exe", false},
        {L"application", L"Velmora Pine Relay", false},
        {L"application", L"Velmora Pine Relay/", false},
        {L"application", L"", false},
        {L"application", L"Velmora Pine Relay/other.exe", false},
        {L"application", L"Velmora Pine Relay/sub/Velmora Pine Relay.exe", false},
        {L"application", L"Velmora Pine RelayX/Velmora Pine Relay.exe", false},
        {L"application", L"Other/Velmora Pine Relay.exe", false},
        {L"application", L"Velmora Pine Relay/Velmora Pine Relay.exe.config", false},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/aromanize.js", true},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/LICENSE-aromanize.txt", true},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/lyrics-reading-engine.js", true},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/runtime-version.txt", true},
        {L"reading-runtime", L"velmora pine relay\\japanesereading\\license-AROMANIZE.TXT", true},
        {L"Reading-Runtime", L"Velmora Pine Relay/JapaneseReading/aromanize.js", false},
        {L"theme", L"Velmora Pine Relay/JapaneseReading/aromanize.js", false},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/other.js", false},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/", false},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/sub/aromanize.js", false},
        {L"reading-runtime", L"Velmora Pine Relay/JapaneseReading/aromanize.js ", false},
        {L"reading-runtime", L"Velmora Pine Relay/aromanize.js", false},
        {L"theme", L"Velmora Pine Relay/JapaneseReading/x.vprtheme", false},
        {L"theme", L"Velmora Pine Relay/Themes/x.vprtheme", true},
        {L"theme", L"Velmora Pine Relay\\themes\\LONG name.VprTheme", true},
        {L"theme", L"Velmora Pine Relay/Themes/.vprtheme", false},
        {L"theme", L"Velmora Pine Relay/Themes/", false},
        {L"theme", L"Velmora Pine Relay/Themes/sub/x.vprtheme", false},
        {L"theme", L"Velmora Pine Relay/Themes/sub\\x.vprtheme", false},
        {L"theme", L"Velmora Pine Relay/Themes/x.vprtheme.exe", false},
        {L"theme", L"Velmora Pine Relay/Themes/xvprtheme0", false},
        {L"Theme", L"Velmora Pine Relay/Themes/x.vprtheme", false},
        {L"application", L"Velmora Pine Relay/Themes/x.vprtheme", false},
        {L"theme", L"Velmora Pine Relay/x.vprtheme", false},
        {L"theme", L"Themes/x.vprtheme", false},
        {L"theme", L"Velmora Pine Relay/Themes2/x.vprtheme", false},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(Shown(row.component) + " " + Shown(row.path));
        EXPECT_EQ(IsAllowedManifestFile({row.component, row.path, L"", L"", 0}), row.allowed);
        const JsonObject file = FileElement().SetText(L"component", row.component).SetText(L"path", row.path);
        EXPECT_EQ(MessageOfFile(file), row.allowed ? kAccepted : kFile);
    }
}

// ---------------------------------------------------------------------------------------------- sources

TEST(SourceUrl, HttpsWithHostAndPath) {
    struct Row {
        std::wstring url;
        bool https;
        bool local;
    };
    const Row rows[] = {
        {L"https://h/x", true, true},
        {L"HTTPS://H.example:8443/x?y=1#z", true, true},
        {L"https://h/", true, true},
        {L"https://h", false, false},
        {L"https://h?x", false, false},
        {L"https:///x", false, false},
        {L"https://", false, false},
        {L"http://h/x", false, false},
        {L"ftp://h/x", false, false},
        {L"h/x", false, false},
        {L"", false, false},
        {L"C:\\fixtures\\app.exe", false, true},
        {L"C:/fixtures/app.exe", false, true},
        {L"\\\\server\\share\\app.exe", false, true},
        {L"\\rooted", false, true},
        {L"/rooted", false, false},
        {L"fixtures\\app.exe", false, false},
        {L"C:\\a\nb", false, false},
        {L"C:\\a\rb", false, false},
        {L"C:\\a\tb", false, true},
        {std::wstring(L"https://h/a\0b", 13), false, false},
        {std::wstring(L"C:\\a\0b", 6), false, false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(IsAcceptedSourceUrl(row.url, false), row.https) << Shown(row.url);
        EXPECT_EQ(IsAcceptedSourceUrl(row.url, true), row.local) << Shown(row.url);
    }
}

TEST(SourceUrl, LocalFilesPassOnlyWhenTheyAreAllowed) {
    const std::wstring local = L"C:\\fixtures\\x";
    const JsonObject manifests[] = {
        BareManifest().Set(L"files", Array({FileElement().SetText(L"url", local)})),
        WithPackages({PackageElement().SetText(L"url", local)}),
        WithPackages({PackageElement().Set(L"patch", PatchElement().SetText(L"url", local))}),
    };
    for (const JsonObject& manifest : manifests) {
        EXPECT_NE(Message(manifest.Text(), false), kAccepted);
        EXPECT_EQ(Message(manifest.Text(), true), kAccepted);
    }
}

// ---------------------------------------------------------------------------------------------- package lists

TEST(UpdateManifestPackages, EitherNameOfTheList) {
    const std::wstring list = Array({PackageElement()});
    EXPECT_EQ(Parsed(BareManifest().Set(L"packagesV2", list)), Parsed(BareManifest().Set(L"packages", list)));
    EXPECT_EQ(Parsed(BareManifest().Set(L"packagesV2", list)).packages.size(), 1u);
}

TEST(UpdateManifestPackages, BothNames_AreRefused) {
    EXPECT_EQ(MessageOf(BareManifest().Set(L"packages", L"[]").Set(L"packagesV2", L"[]")), kTwoLists);
    EXPECT_EQ(MessageOf(BareManifest().Set(L"packagesV2", L"null").Set(L"packages", L"null")), kTwoLists);
    EXPECT_EQ(MessageOf(FullManifest().Set(L"packagesV2", L"[]")), kTwoLists);
}

TEST(UpdateManifestPackages, ListMustBeAStrictArray) {
    for (const wchar_t* key : {L"packages", L"packagesV2"}) {
        ExpectMessages(key,
                       {{L"[]", kAccepted},
                        {L"[,]", kAccepted},
                        {L"null", kPackageList},
                        {L"{}", kPackageList},
                        {L"[1]", kPackageList},
                        {L"[null]", kPackageList},
                        {L"[\"x\"]", kPackageList},
                        {L"[{]", kPackageList},
                        {L"[{}]", kPackage}},
                       kInHead);
    }
}

TEST(UpdateManifestPackages, AtMostSixteen) {
    std::vector<JsonObject> packages;
    packages.reserve(17);
    for (int n = 0; n < 16; ++n)
        packages.push_back(PackageElement().SetText(L"id", L"p" + std::to_wstring(n)));
    EXPECT_EQ(Parsed(WithPackages(packages)).packages.size(), 16u);
    packages.push_back(PackageElement().SetText(L"id", L"p16"));
    EXPECT_EQ(MessageOf(WithPackages(packages)), kPackageList);
}

TEST(UpdateManifestPackages, EveryKeyIsRequired) {
    ASSERT_EQ(MessageOfPackage(PackageElement()), kAccepted);
    for (const wchar_t* key : {L"id", L"version", L"url", L"sha256", L"size", L"requiredForStartup", L"capability"}) {
        EXPECT_EQ(MessageOfPackage(PackageElement().Remove(key)), kPackage) << Shown(key);
        ExpectMessages(key, {{L"null", kPackage}, {L"{}", kPackage}, {L"[]", kPackage}}, kInPackage);
    }
    for (const wchar_t* key : {L"id", L"version", L"url", L"sha256", L"capability"}) {
        ExpectMessages(key, {{L"7", kPackage}, {L"true", kPackage}, {L"\"\\q\"", kPackage}}, kInPackage);
    }
    EXPECT_EQ(MessageOfPackage(PackageElement().Remove(L"files")), kInventory);
}

TEST(UpdateManifestPackages, Identifiers) {
    const std::vector<ValueRow> rows = {
        {L"\"a\"", kAccepted},
        {L"\"0\"", kAccepted},
        {L"\"a-0-z\"", kAccepted},
        {L"\"a--b\"", kAccepted},
        {Quoted(std::wstring(64, L'a')), kAccepted},
        {Quoted(std::wstring(65, L'a')), kPackage},
        {L"\"\"", kPackage},
        {L"\"-\"", kPackage},
        {L"\"-a\"", kPackage},
        {L"\"a-\"", kPackage},
        {L"\"A\"", kPackage},
        {L"\"aB\"", kPackage},
        {L"\"a_b\"", kPackage},
        {L"\"a.b\"", kPackage},
        {L"\"a b\"", kPackage},
        {L"\"a/b\"", kPackage},
        {L"\"é\"", kPackage},
        {L"\"a\\u0000\"", kPackage},
        {L"\"..\"", kPackage},
    };
    ExpectMessages(L"id", rows, kInPackage);
    ExpectMessages(L"capability", rows, kInPackage);
}

TEST(UpdateManifestPackages, Version) {
    ExpectMessages(L"version",
                   {{L"\"0.0.0.0\"", kAccepted},
                    {L"\"1.2.3\"", kPackageVersion},
                    {L"\"\"", kPackageVersion},
                    {L"\"65536.0.0.0\"", kPackageVersion}},
                   kInPackage);
}

TEST(UpdateManifestPackages, Digest) {
    const std::vector<std::pair<std::wstring, bool>> rows = {{Digest(L'0'), true},
                                                             {Digest(L'f'), true},
                                                             {Digest(L'F'), true},
                                                             {Digest(L'9'), true},
                                                             {Digest(L'g'), false},
                                                             {Digest(L'G'), false},
                                                             {Digest(L'/'), false},
                                                             {Digest(L':'), false},
                                                             {Digest(L'@'), false},
                                                             {Digest(L'`'), false},
                                                             {Digest(L'Ａ'), false},
                                                             {std::wstring(63, L'a'), false},
                                                             {std::wstring(65, L'a'), false},
                                                             {L"", false},
                                                             {std::wstring(63, L'a') + L"x", false}};
    for (const auto& [digest, accepted] : rows) {
        SCOPED_TRACE(Shown(digest));
        EXPECT_EQ(IsSha256Hex(digest), accepted);
        EXPECT_EQ(kInPackage(L"sha256", Quoted(digest)), accepted ? kAccepted : kPackage);
        EXPECT_EQ(kInInventory(L"sha256", Quoted(digest)), accepted ? kAccepted : kInventoryFile);
        EXPECT_EQ(kInPatch(L"sha256", Quoted(digest)), accepted ? kAccepted : kPackage);
    }
}

TEST(UpdateManifestPackages, Size) {
    ExpectMessages(L"size",
                   {{L"1", kAccepted},
                    {L"007", kAccepted},
                    {L"536870912", kAccepted},
                    {L"536870913", kPackage},
                    {L"0", kPackage},
                    {L"1.9", kPackage},
                    {L"1e3", kPackage},
                    {L"12x", kPackage},
                    {L"+5", kPackage},
                    {L"-5", kPackage},
                    {L"\"5\"", kPackage},
                    {L"99999999999999999999", kPackage}},
                   kInPackage);
}

TEST(UpdateManifestPackages, RequiredForStartup_IsALiteral) {
    ExpectMessages(
        L"requiredForStartup",
        {{L"true", kAccepted}, {L"false", kAccepted}, {L"\"true\"", kPackage}, {L"1", kPackage}, {L"truest", kPackage}},
        kInPackage);
    EXPECT_FALSE(Parsed(WithPackages({PackageElement().Set(L"requiredForStartup", L"false")}))
                     .packages.front()
                     .requiredForStartup);
    EXPECT_TRUE(Parsed(WithPackages({PackageElement()})).packages.front().requiredForStartup);
}

TEST(UpdateManifestPackages, Source) {
    ExpectMessages(L"url", {{L"\"https://h/x\"", kAccepted}, {L"\"http://h/x\"", kPackage}, {L"\"C:\\\\x\"", kPackage}},
                   kInPackage);
}

TEST(UpdateManifestPackages, TwoPackagesWithOneId_AreRefused) {
    const JsonObject other = PackageElement().SetText(L"id", L"other");
    EXPECT_EQ(MessageOf(WithPackages({PackageElement(), other})), kAccepted);
    EXPECT_EQ(MessageOf(WithPackages({PackageElement(), PackageElement()})), kPackageVersion);
    EXPECT_EQ(MessageOf(WithPackages({PackageElement(), other, PackageElement()})), kPackageVersion);
}

TEST(UpdateManifestPackages, EveryPackageIsJudged) {
    const JsonObject other = PackageElement().SetText(L"id", L"other").Set(L"size", L"0");
    EXPECT_EQ(MessageOf(WithPackages({PackageElement(), other})), kPackage);
    EXPECT_EQ(MessageOf(WithPackages({other, PackageElement()})), kPackage);
}

// ---------------------------------------------------------------------------------------------- inventory

TEST(UpdateManifestInventory, ListIsWalkedLeniently) {
    const std::wstring file = InventoryElement(L"x", L'a', 1).Text();
    ExpectMessages(L"files",
                   {{L"[" + file + L"]", kAccepted},
                    {L"[7,\"s\"," + file + L" null]", kAccepted},
                    {L"[]", kInventory},
                    {L"[7]", kInventory},
                    {L"null", kInventory},
                    {L"{}", kInventory},
                    {L"\"x\"", kInventory},
                    {L"[}]", kInventory},
                    {L"[{}]", kInventoryFile}},
                   kInPackage);
    EXPECT_EQ(Parsed(WithPackages({PackageElement().Set(L"files", L"[7,\"s\"," + file + L" null]")}))
                  .packages.front()
                  .inventory.size(),
              1u);
}

TEST(UpdateManifestInventory, OneToSevenHundredAndSixtyEight) {
    std::vector<JsonObject> files = InventoryOf(768);
    EXPECT_EQ(MessageOfInventory(files), kAccepted);
    files.push_back(InventoryElement(L"f768", L'a', 1));
    EXPECT_EQ(MessageOfInventory(files), kInventory);
}

TEST(UpdateManifestInventory, EveryKeyIsRequired) {
    for (const wchar_t* key : {L"path", L"sha256", L"size"}) {
        const JsonObject broken = InventoryElement(L"x", L'a', 1).Remove(key);
        EXPECT_EQ(MessageOfInventory({broken}), kInventoryFile) << Shown(key);
        EXPECT_EQ(MessageOfInventory({InventoryElement(L"y", L'a', 1), broken}), kInventoryFile) << Shown(key);
        ExpectMessages(key, {{L"null", kInventoryFile}, {L"{}", kInventoryFile}, {L"true", kInventoryFile}},
                       kInInventory);
    }
}

TEST(UpdateManifestInventory, Paths) {
    ExpectMessages(L"path",
                   {{L"\"a\"", kAccepted},
                    {L"\"a/b.dll\"", kAccepted},
                    {L"\"..a/b..\"", kAccepted},
                    {Quoted(std::wstring(260, L'a')), kAccepted},
                    {Quoted(std::wstring(261, L'a')), kInventoryFile},
                    {L"\"a\\\\b\"", kInventoryFile},
                    {L"\"\"", kInventoryFile},
                    {L"\"/a\"", kInventoryFile},
                    {L"\"a/\"", kInventoryFile},
                    {L"\"a//b\"", kInventoryFile},
                    {L"\"a/../b\"", kInventoryFile},
                    {L"\"./a\"", kInventoryFile},
                    {L"\"C:/a\"", kInventoryFile},
                    {L"\"a:b\"", kInventoryFile},
                    {L"\"a\\u0000b\"", kInventoryFile},
                    {L"7", kInventoryFile}},
                   kInInventory);
}

TEST(UpdateManifestInventory, Size) {
    ExpectMessages(L"size",
                   {{L"1", kAccepted},
                    {L"134217728", kAccepted},
                    {L"134217729", kInventoryFile},
                    {L"0", kInventoryFile},
                    {L"1.9", kInventoryFile},
                    {L"-1", kInventoryFile},
                    {L"+1", kInventoryFile},
                    {L"99999999999999999999", kInventoryFile}},
                   kInInventory);
}

TEST(UpdateManifestInventory, SumOfSizes) {
    constexpr unsigned long long kLargestFile = 134217728;
    std::vector<JsonObject> files = {InventoryElement(L"a", L'a', kLargestFile),
                                     InventoryElement(L"b", L'a', kLargestFile),
                                     InventoryElement(L"c", L'a', kLargestFile)};
    EXPECT_EQ(MessageOfInventory(files), kAccepted) << "exactly 402653184";
    files.push_back(InventoryElement(L"d", L'a', 1));
    EXPECT_EQ(MessageOfInventory(files), kInventoryFile);
    files[2] = InventoryElement(L"c", L'a', kLargestFile - 1);
    EXPECT_EQ(MessageOfInventory(files), kAccepted);
}

TEST(UpdateManifestInventory, SumIsCountedPerPackage) {
    const std::wstring full = Array({InventoryElement(L"a", L'a', 134217728), InventoryElement(L"b", L'a', 134217728),
                                     InventoryElement(L"c", L'a', 134217728)});
    const JsonObject first = PackageElement().Set(L"files", full);
    EXPECT_EQ(MessageOf(WithPackages({first, PackageElement().SetText(L"id", L"other").Set(L"files", full)})),
              kAccepted);
}

TEST(UpdateManifestInventory, DuplicatePaths_IgnoringCase_AreRefused) {
    const auto file = [](const wchar_t* path) { return InventoryElement(path, L'a', 1); };
    EXPECT_EQ(MessageOfInventory({file(L"a/b"), file(L"a/c")}), kAccepted);
    EXPECT_EQ(MessageOfInventory({file(L"a/b"), file(L"a/b")}), kInventoryFile);
    EXPECT_EQ(MessageOfInventory({file(L"a/b"), file(L"x"), file(L"A/B")}), kInventoryFile);
}

// ---------------------------------------------------------------------------------------------- patch

TEST(UpdateManifestPatch, MustBeAnObjectIfItIsThere) {
    ASSERT_EQ(MessageOfPatch(PatchElement()), kAccepted);
    ExpectMessages(L"patch",
                   {{L"null", kPackage},
                    {L"[]", kPackage},
                    {L"\"x\"", kPackage},
                    {L"7", kPackage},
                    {L"false", kPackage},
                    {L"{}", kPackage}},
                   kInPackage);
    EXPECT_TRUE(Parsed(WithPackages({PackageElement()})).packages.front().patch.files.empty());
}

TEST(UpdateManifestPatch, EveryKeyIsRequired) {
    for (const wchar_t* key : {L"baseVersion", L"url", L"sha256", L"size", L"files"}) {
        EXPECT_EQ(MessageOfPatch(PatchElement().Remove(key)), kPackage) << Shown(key);
        ExpectMessages(key, {{L"null", kPackage}, {L"{}", kPackage}, {L"true", kPackage}}, kInPatch);
    }
}

TEST(UpdateManifestPatch, BaseVersion) {
    ExpectMessages(L"baseVersion",
                   {{L"\"1.0.0.0\"", kAccepted},
                    {L"\"9.0.0.0\"", kAccepted},
                    {L"\"2.0.0.1\"", kPackageVersion},
                    {L"\"2.0.0.01\"", kAccepted},
                    {L"\"2.0.0\"", kPackageVersion},
                    {L"\"\"", kPackageVersion},
                    {L"7", kPackage}},
                   kInPatch);
}

TEST(UpdateManifestPatch, SizeIsLessThanThePackages) {
    ExpectMessages(L"size",
                   {{L"1", kAccepted},
                    {L"5004", kAccepted},
                    {L"5005", kPackage},
                    {L"5006", kPackage},
                    {L"0", kPackage},
                    {L"1.9", kPackage},
                    {L"-1", kPackage},
                    {L"\"1\"", kPackage}},
                   kInPatch);
    EXPECT_EQ(MessageOfPackage(PackageElement().Set(L"size", L"1").Set(L"patch", PatchElement().Set(L"size", L"1"))),
              kPackage);
}

TEST(UpdateManifestPatch, Source) {
    ExpectMessages(L"url", {{L"\"https://h/x\"", kAccepted}, {L"\"http://h/x\"", kPackage}, {L"\"\"", kPackage}},
                   kInPatch);
}

TEST(UpdateManifestPatch, Files) {
    ExpectMessages(L"files",
                   {{L"[\"bin/1.dll\"]", kAccepted},
                    {L"[\"bin/3.dll\"]", kAccepted},
                    {L"[\"bin/1.dll\",]", kAccepted},
                    {L"[]", kPackage},
                    {L"[\"bin/1.dll\",\"bin/3.dll\"]", kPackage},
                    {L"[7]", kPackage},
                    {L"[\"bin/1.dll\"", kPackage},
                    {L"[{}]", kPackage},
                    {L"\"bin/1.dll\"", kPackage},
                    {L"[\"BIN/1.dll\"]", kInventoryFile},
                    {L"[\"bin\\\\1.dll\"]", kInventoryFile},
                    {L"[\"bin/2.dll\"]", kInventoryFile},
                    {L"[\"\"]", kInventoryFile}},
                   kInPatch);
}

TEST(UpdateManifestPatch, RepeatedName_IsRefused) {
    const std::wstring inventory =
        Array({InventoryElement(L"a", L'1', 1), InventoryElement(L"b", L'2', 2), InventoryElement(L"c", L'3', 3)});
    const auto message = [&inventory](const std::vector<std::wstring>& names) {
        const JsonObject patch = PatchElement().Set(L"files", TextArray(names));
        return MessageOfPackage(PackageElement().Set(L"files", inventory).Set(L"patch", patch));
    };
    EXPECT_EQ(message({L"c", L"a"}), kAccepted);
    EXPECT_EQ(message({L"a", L"a"}), kInventoryFile);
    EXPECT_EQ(message({L"a", L"b", L"c"}), kPackage) << "a patch leaves at least one file untouched";
}

TEST(UpdateManifestPatch, FilesAreCopiedFromTheInventory_InTheOrderOfThePatch) {
    const std::wstring inventory =
        Array({InventoryElement(L"a", L'1', 1), InventoryElement(L"b", L'2', 2), InventoryElement(L"c", L'3', 3)});
    const JsonObject patch = PatchElement().Set(L"files", TextArray({L"c", L"a"}));
    const PackageDescriptor package =
        Parsed(WithPackages({PackageElement().Set(L"files", inventory).Set(L"patch", patch)})).packages.front();
    EXPECT_EQ(package.patch.files, (std::vector<PackageFileDescriptor>{package.inventory[2], package.inventory[0]}));
}

/// The keys of the package are read with the patch cut out: neither a key of the patch nor a string in it that cannot
/// be read gets in their way, wherever the patch stands.
TEST(UpdateManifestPatch, DoesNotDisturbThePackagesOwnKeys) {
    const std::wstring package = PackageElement().Text();
    const std::wstring patch = PatchElement().Text();
    const std::wstring unreadable = patch.substr(0, patch.size() - 1) + L",\"note\":\"\\q\"}";
    const std::wstring first = L"{\"patch\":" + unreadable + L"," + package.substr(1);
    const std::wstring manifest = BareManifest().Set(L"packages", L"[" + first + L"]").Text();
    UpdateManifest read;
    std::wstring error;
    ASSERT_TRUE(ParseUpdateManifest(manifest, read, error, false)) << platform::EncodeUtf8(error);
    EXPECT_EQ(read, Parsed(WithPackages({PackageElement().Set(L"patch", PatchElement())})));
}

TEST(UpdateManifestPatch, KeyInsideAnotherObject_IsNoPatch) {
    EXPECT_TRUE(Parsed(WithPackages({PackageElement().Set(L"extra", L"{\"patch\":null}")}))
                    .packages.front()
                    .patch.files.empty());
}

// ---------------------------------------------------------------------------------------------- order of the checks

/// Faults in the order in which they are looked for. A manifest that has any two of them gets the message of the first.
TEST(UpdateManifestOrder, FirstFaultChoosesTheMessage) {
    struct Fault {
        const char* name;
        const wchar_t* message;
        std::function<void(JsonObject& head, JsonObject& file, JsonObject& package, JsonObject& inventory,
                           JsonObject& patch)>
            apply;
    };
    const std::vector<Fault> faults = {
        {"schema", kFormat, [](auto& head, auto&, auto&, auto&, auto&) { head.Set(L"schemaVersion", L"2"); }},
        {"notes url", kFormat, [](auto& head, auto&, auto&, auto&, auto&) { head.Set(L"releaseNotesUrl", L"7"); }},
        {"version", kReleaseVersion, [](auto& head, auto&, auto&, auto&, auto&) { head.SetText(L"version", L"1"); }},
        {"file size", kFile, [](auto&, auto& file, auto&, auto&, auto&) { file.Set(L"size", L"0"); }},
        {"two lists", kTwoLists, [](auto& head, auto&, auto&, auto&, auto&) { head.Set(L"packagesV2", L"[]"); }},
        {"patch is no object", kPackage,
         [](auto&, auto&, auto& package, auto&, auto&) { package.Set(L"patch", L"null"); }},
        {"package id", kPackage, [](auto&, auto&, auto& package, auto&, auto&) { package.SetText(L"id", L"A"); }},
        {"package version", kPackageVersion,
         [](auto&, auto&, auto& package, auto&, auto&) { package.SetText(L"version", L"1"); }},
        {"inventory", kInventory, [](auto&, auto&, auto& package, auto&, auto&) { package.Set(L"files", L"[]"); }},
        {"inventory file", kInventoryFile,
         [](auto&, auto&, auto&, auto& inventory, auto&) { inventory.Set(L"size", L"0"); }},
        {"patch size", kPackage, [](auto&, auto&, auto&, auto&, auto& patch) { patch.Set(L"size", L"0"); }},
        {"patch list", kPackage, [](auto&, auto&, auto&, auto&, auto& patch) { patch.Set(L"files", L"[]"); }},
        {"patch base", kPackageVersion,
         [](auto&, auto&, auto&, auto&, auto& patch) { patch.SetText(L"baseVersion", L"1"); }},
        {"patch name", kInventoryFile,
         [](auto&, auto&, auto&, auto&, auto& patch) { patch.Set(L"files", TextArray({L"z"})); }},
    };
    for (std::size_t first = 0; first < faults.size(); ++first) {
        for (std::size_t second = first; second < faults.size(); ++second) {
            JsonObject head = BareManifest();
            JsonObject file = FileElement();
            JsonObject inventory = InventoryElement(L"bin/1.dll", L'd', 3003);
            JsonObject patch = PatchElement();
            JsonObject package = PackageElement().Set(L"files", L"INVENTORY").Set(L"patch", L"PATCH");
            // The earlier fault goes last, so that it wins where both set one key.
            faults[second].apply(head, file, package, inventory, patch);
            faults[first].apply(head, file, package, inventory, patch);
            std::wstring packageText = package.Text();
            const auto fill = [&packageText](const std::wstring& name, const std::wstring& text) {
                if (const auto at = packageText.find(name); at != std::wstring::npos)
                    packageText.replace(at, name.size(), text);
            };
            fill(L"INVENTORY", Array({inventory, InventoryElement(L"bin/3.dll", L'e', 3004)}));
            fill(L"PATCH", patch.Text());
            head.Set(L"files", Array({file})).Set(L"packages", L"[" + packageText + L"]");
            EXPECT_EQ(MessageOf(head), faults[first].message) << faults[first].name << " and " << faults[second].name;
        }
    }
}

TEST(UpdateManifestOrder, FileListBeforeThePackageLists) {
    EXPECT_EQ(MessageOf(FullManifest().Set(L"files", L"null").Set(L"packagesV2", L"[]")), kFileList);
    EXPECT_EQ(MessageOf(FullManifest().SetText(L"version", L"x").Set(L"files", L"null")), kReleaseVersion);
}

TEST(UpdateManifestOrder, EarlierPackageBeforeLaterOne) {
    const JsonObject badInventory = PackageElement().Set(L"files", L"[]");
    const JsonObject badId = PackageElement().SetText(L"id", L"A");
    EXPECT_EQ(MessageOf(WithPackages({badInventory, badId})), kInventory);
    EXPECT_EQ(MessageOf(WithPackages({badId, badInventory})), kPackage);
}

// ---------------------------------------------------------------------------------------------- pace

/// The largest document, full of entries that pass one by one, is parsed in a moment: nothing starts again per entry.
TEST(UpdateManifestPace, LargestDocuments) {
    constexpr std::size_t kUnits = kMaxManifestBytes;
    const std::wstring files = Array(InventoryOf(768));
    std::vector<JsonObject> packages;
    packages.reserve(4);
    for (int p = 0; p < 4; ++p) {
        packages.push_back(PackageElement().SetText(L"id", L"p" + std::to_wstring(p)).Set(L"files", files));
    }
    const std::wstring full = WithPackages(packages).Text();
    ASSERT_LT(full.size(), kUnits);
    std::wstring braces =
        L"{\"schemaVersion\":1,\"version\":\"1.0.0.0\",\"minimumLauncherVersion\":\"\",\"files\":[],\"packages\":[";
    while (braces.size() < kUnits)
        braces += L"{},";
    const std::wstring blanks = BareManifest().Set(L"x", std::wstring(kUnits, L' ')).Text();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Message(full), kAccepted);
    EXPECT_EQ(Message(braces + L"]}"), kPackageList);
    EXPECT_EQ(Message(blanks), kAccepted);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace launcher_update
