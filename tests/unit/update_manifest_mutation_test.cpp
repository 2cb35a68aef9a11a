// Broken documents at EVERY length and EVERY byte. The reader does not validate, so some broken documents are accepted
// by design; what must hold is that a broken byte never changes what would be installed beyond what that byte itself
// spells.

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/manifest_builder.h"
#include "tests/support/manifest_rules.h"
#include "update/manifest/json_reader.h"
#include "update/manifest/update_manifest.h"

namespace launcher_update {
namespace {

using test_support::BrokenRule;
using test_support::FullManifest;
using test_support::JsonObject;

/// What would be installed, leaf by leaf: the name of a field and its value. Notes and priority are no part of it.
using Payload = std::map<std::string, std::wstring>;

void AddFile(Payload& payload, const std::string& name, const PackageFileDescriptor& file) {
    payload[name + ".path"] = file.path;
    payload[name + ".sha256"] = file.sha256;
    payload[name + ".size"] = std::to_wstring(file.size);
}

void AddPatch(Payload& payload, const std::string& name, const PackageDescriptor::Patch& patch) {
    if (patch.files.empty()) return;
    payload[name + ".baseVersion"] = patch.baseVersion;
    payload[name + ".url"] = patch.url;
    payload[name + ".sha256"] = patch.sha256;
    payload[name + ".size"] = std::to_wstring(patch.size);
    for (std::size_t n = 0; n < patch.files.size(); ++n)
        AddFile(payload, name + ".files" + std::to_string(n), patch.files[n]);
}

void AddPackage(Payload& payload, const std::string& name, const PackageDescriptor& package) {
    payload[name + ".id"] = package.id;
    payload[name + ".version"] = package.version;
    payload[name + ".url"] = package.url;
    payload[name + ".sha256"] = package.sha256;
    payload[name + ".size"] = std::to_wstring(package.size);
    payload[name + ".requiredForStartup"] = package.requiredForStartup ? L"true" : L"false";
    payload[name + ".capability"] = package.capability;
    for (std::size_t n = 0; n < package.inventory.size(); ++n) {
        AddFile(payload, name + ".inventory" + std::to_string(n), package.inventory[n]);
    }
    AddPatch(payload, name + ".patch", package.patch);
}

Payload PayloadOf(const UpdateManifest& manifest) {
    Payload payload = {{".version", manifest.version}, {".minimumLauncherVersion", manifest.minimumLauncherVersion}};
    for (std::size_t n = 0; n < manifest.files.size(); ++n) {
        const ManifestFileEntry& file = manifest.files[n];
        const std::string name = "file" + std::to_string(n);
        payload[name + ".component"] = file.component;
        payload[name + ".url"] = file.url;
        AddFile(payload, name, {file.path, file.sha256, file.size});
    }
    for (std::size_t n = 0; n < manifest.packages.size(); ++n) {
        AddPackage(payload, "package" + std::to_string(n), manifest.packages[n]);
    }
    return payload;
}

/// The names of the leaves in which the two differ or which only one has.
std::set<std::string> Differences(const Payload& left, const Payload& right) {
    std::set<std::string> names;
    for (const auto& [name, value] : left) {
        const auto other = right.find(name);
        if (other == right.end() || other->second != value) names.insert(name);
    }
    for (const auto& [name, value] : right) {
        if (left.count(name) == 0) names.insert(name);
    }
    return names;
}

Payload Without(Payload payload, const std::string& prefix) {
    std::erase_if(payload, [&prefix](const auto& leaf) { return leaf.first.starts_with(prefix); });
    return payload;
}

std::optional<UpdateManifest> Accepted(std::string_view bytes) {
    std::wstring text;
    UpdateManifest manifest;
    std::wstring error;
    if (!DecodeUtf8Document(bytes, text) || !ParseUpdateManifest(text, manifest, error, false)) return std::nullopt;
    return manifest;
}

/// The bytes [first, last) of a document, and the leaves that a broken byte among them may change.
struct Range {
    std::size_t first;
    std::size_t last;
    std::set<std::string> leaves;
};

/// The range of the one place where `text` stands.
Range RangeOf(const std::string& document, const std::string& text, std::set<std::string> leaves) {
    const std::size_t at = document.find(text);
    EXPECT_NE(at, std::string::npos) << text;
    EXPECT_EQ(document.find(text, at + 1), std::string::npos) << text << " is not unique";
    return {at, at + text.size(), std::move(leaves)};
}

bool IsNumber(const std::string& leaf) {
    return leaf.ends_with(".size");
}

/// The value as it stands behind its key. A number ends at the byte behind it, so that byte belongs to its range: a
/// digit in its place makes a longer number.
Range RangeOfLeaf(const std::string& document, const std::string& leaf, const std::wstring& value) {
    const std::string key = "\"" + leaf.substr(leaf.rfind('.') + 1) + "\":";
    const bool bare = IsNumber(leaf) || value == L"true" || value == L"false";
    Range range = RangeOf(document, key + EncodeUtf8(bare ? value : test_support::Quoted(value)), {leaf});
    range.first += key.size();
    if (IsNumber(leaf)) ++range.last;
    return range;
}

/// Leaves that are copies: the files of a patch come from the inventory.
std::set<std::string> CopiesOf(const std::string& leaf) {
    const std::string source = "package0.inventory0";
    if (!leaf.starts_with(source)) return {};
    return {"package0.patch.files0" + leaf.substr(source.size())};
}

/// The document of the tests below and what each of its bytes may change.
struct Subject {
    std::string document = EncodeUtf8(FullManifest().Text());
    Payload payload;
    std::vector<Range> ranges;

    Subject() {
        payload = PayloadOf(Accepted(document).value());
        for (const auto& [leaf, value] : payload) {
            if (leaf.find(".patch.files") != std::string::npos) continue;
            ranges.push_back(RangeOfLeaf(document, leaf, value));
            ranges.back().leaves.merge(CopiesOf(leaf));
        }
        const std::string copy = "package0.patch.files0";
        ranges.push_back(RangeOf(document, "[\"bin/1.dll\"]", {copy + ".path", copy + ".sha256", copy + ".size"}));
    }

    [[nodiscard]] std::set<std::string> MayChange(std::size_t byte) const {
        std::set<std::string> leaves;
        for (const Range& range : ranges) {
            if (byte >= range.first && byte < range.last) leaves.insert(range.leaves.begin(), range.leaves.end());
        }
        return leaves;
    }

    /// A key that may be missing is as good as missing when one of its bytes, or the colon behind it, is broken.
    [[nodiscard]] Payload WhenBrokenInOptionalKey(std::size_t byte) const {
        for (const auto& [key, prefix] :
             {std::pair("\"patch\":", "package0.patch"), std::pair("\"packages\":", "package")}) {
            const Range range = RangeOf(document, key, {});
            if (byte >= range.first && byte < range.last) return Without(payload, prefix);
        }
        return payload;
    }
};

/// Fails unless the broken document is refused, or accepted with a sound record that differs where it may; with
/// `mayLose`, entries may also be missing. True if it was accepted.
bool ExpectNothingUnnoticed(const Subject& subject, std::size_t byte, char replacement, bool mayLose) {
    std::string broken = subject.document;
    broken[byte] = replacement;
    const std::optional<UpdateManifest> manifest = Accepted(broken);
    if (!manifest) return false;
    EXPECT_EQ(BrokenRule(*manifest), "");
    const Payload payload = PayloadOf(*manifest);
    if (payload == subject.WhenBrokenInOptionalKey(byte)) return true;
    const std::set<std::string> allowed = subject.MayChange(byte);
    for (const std::string& leaf : Differences(payload, subject.payload)) {
        const bool lost = mayLose && payload.count(leaf) == 0;
        EXPECT_TRUE(lost || allowed.count(leaf) == 1)
            << leaf << " changed by byte " << byte << ": " << broken.substr(byte < 30 ? 0 : byte - 30, 60);
    }
    return true;
}

TEST(UpdateManifestMutation, EveryLeafHasItsRange) {
    const Subject subject;
    std::set<std::string> covered;
    for (const Range& range : subject.ranges)
        covered.insert(range.leaves.begin(), range.leaves.end());
    for (const auto& [leaf, value] : subject.payload)
        EXPECT_EQ(covered.count(leaf), 1u) << leaf;
    EXPECT_EQ(subject.payload.size(), 42u);
}

TEST(UpdateManifestMutation, EverySingleBitFlip) {
    const Subject subject;
    std::size_t accepted = 0;
    for (std::size_t byte = 0; byte < subject.document.size(); ++byte) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            const auto flipped = static_cast<unsigned char>(subject.document[byte]) ^ (1u << bit);
            if (ExpectNothingUnnoticed(subject, byte, static_cast<char>(flipped), false)) ++accepted;
        }
    }
    EXPECT_GT(accepted, 100u) << "otherwise this test saw no accepted document at all";
}

/// A bracket or brace in a wrong place can end a list early or sink what follows to another depth, out of sight.
/// Entries are then missing, which is the price of not validating; none is altered, moved or added.
TEST(UpdateManifestMutation, EveryByteReplacedByAStructuralOne) {
    const Subject subject;
    std::size_t accepted = 0;
    for (std::size_t byte = 0; byte < subject.document.size(); ++byte) {
        for (const char replacement : {'{', '}', '[', ']', '"', '\\', ',', ':', ' ', '\n', '0', '9', '-', '/', '\0'}) {
            if (replacement == subject.document[byte]) continue;
            const bool mayLose = std::string_view("{}[]\"\\").find(replacement) != std::string_view::npos;
            if (ExpectNothingUnnoticed(subject, byte, replacement, mayLose)) ++accepted;
        }
    }
    EXPECT_GT(accepted, 100u);
}

TEST(UpdateManifestMutation, EveryByteLeftOutOrDoubled_GivesASoundRecord) {
    const Subject subject;
    for (std::size_t byte = 0; byte < subject.document.size(); ++byte) {
        std::string shorter = subject.document;
        shorter.erase(byte, 1);
        std::string longer = subject.document;
        longer.insert(byte, 1, subject.document[byte]);
        for (const std::string& broken : {shorter, longer}) {
            const auto manifest = Accepted(broken);
            EXPECT_EQ(manifest ? BrokenRule(*manifest) : "", "") << "byte " << byte;
        }
    }
}

/// Packages before files: what is cut off anywhere is refused, or it was nothing that would be installed.
TEST(UpdateManifestTruncation, FileListLast_IsWholeOrRefused) {
    const JsonObject full = FullManifest();
    const std::string files =
        EncodeUtf8(L"\"files\":" + test_support::Array({test_support::FileElement(), test_support::ThemeElement()}));
    std::string document = EncodeUtf8(JsonObject(full).Remove(L"files").Text());
    document.back() = ',';
    document += files + "}";
    const auto whole = Accepted(document);
    ASSERT_TRUE(whole.has_value());
    ASSERT_EQ(*whole, Accepted(EncodeUtf8(full.Text())).value());
    std::size_t accepted = 0;
    for (std::size_t length = 0; length < document.size(); ++length) {
        const auto cut = Accepted(document.substr(0, length));
        if (!cut) continue;
        ++accepted;
        EXPECT_EQ(*cut, *whole) << length;
        EXPECT_EQ(length, document.size() - 1) << "only the last brace may be missing";
    }
    EXPECT_EQ(accepted, 1u);
}

/// Files before packages: a document that is cut off between the two lists reads as a release without packages. That is
/// the price of a reader that does not validate; the fetch has to know that the body is whole. Nothing else gets
/// through.
TEST(UpdateManifestTruncation, PackageListLast_IsWholeOrMissingAltogether) {
    const std::string document = EncodeUtf8(FullManifest().Text());
    const auto whole = Accepted(document);
    const auto withoutPackages = Accepted(EncodeUtf8(FullManifest().Remove(L"packages").Text()));
    ASSERT_TRUE(whole.has_value() && withoutPackages.has_value());
    const std::size_t filesEnd = document.find(",\"packages\":");
    const std::size_t packagesBegin = document.find('[', filesEnd);
    ASSERT_NE(packagesBegin, std::string::npos);
    for (std::size_t length = 0; length < document.size(); ++length) {
        SCOPED_TRACE(length);
        const auto cut = Accepted(document.substr(0, length));
        const bool betweenTheLists = length >= filesEnd && length <= packagesBegin;
        const bool onlyTheLastBrace = length == document.size() - 1;
        ASSERT_EQ(cut.has_value(), betweenTheLists || onlyTheLastBrace);
        if (cut) {
            EXPECT_EQ(*cut, betweenTheLists ? *withoutPackages : *whole);
        }
    }
}

TEST(UpdateManifestTruncation, EveryEndAfterEveryCut) {
    const std::string document = EncodeUtf8(FullManifest().Text());
    for (std::size_t length = 0; length < document.size(); ++length) {
        for (const char* end : {"\"", "}", "]", "\"}]}", "\"}]}]}", "]}]}", "\\", "\"]}}]}"}) {
            const auto manifest = Accepted(document.substr(0, length) + end);
            EXPECT_EQ(manifest ? BrokenRule(*manifest) : "", "") << length << " " << end;
        }
    }
}

/// The rules that judge the records above are able to refuse.
TEST(UpdateManifestRules, EachRefusesItsBreach) {
    struct Row {
        const char* rule;
        void (*breach)(UpdateManifest&);
    };
    const Row rows[] = {
        {"version", [](UpdateManifest& m) { m.version = L"1.2.3"; }},
        {"version", [](UpdateManifest& m) { m.version = L"1.2.3.65536"; }},
        {"priority", [](UpdateManifest& m) { m.updatePriority = L"urgent"; }},
        {"locale", [](UpdateManifest& m) { m.localizations.push_back(m.localizations[0]); }},
        {"note line", [](UpdateManifest& m) { m.localizations[0].summary = L"a\nb"; }},
        {"emphasis of no line", [](UpdateManifest& m) { m.localizations[0].emphasizedItems = {L"x"}; }},
        {"default locale of no notes", [](UpdateManifest& m) { m.localizations.clear(); }},
        {"file size", [](UpdateManifest& m) { m.files[1].size = 0; }},
        {"file digest", [](UpdateManifest& m) { m.files[1].sha256 += L"a"; }},
        {"file path", [](UpdateManifest& m) { m.files[1].path += L"/.."; }},
        {"file target", [](UpdateManifest& m) { m.files[1].component = L"application"; }},
        {"file target", [](UpdateManifest& m) { m.files[1].path = L"Velmora Pine Relay/Themes/x.exe"; }},
        {"file url", [](UpdateManifest& m) { m.files[1].url = L"http://h/x"; }},
        {"file url", [](UpdateManifest& m) { m.files[1].url = L"https://h"; }},
        {"file url", [](UpdateManifest& m) { m.files[1].url = L"https:///x"; }},
        {"package count", [](UpdateManifest& m) { m.packages.resize(17); }},
        {"package id", [](UpdateManifest& m) { m.packages[1].id = L"A"; }},
        {"package duplicate", [](UpdateManifest& m) { m.packages[1].id = m.packages[0].id; }},
        {"package capability", [](UpdateManifest& m) { m.packages[1].capability = L""; }},
        {"package version", [](UpdateManifest& m) { m.packages[1].version = L""; }},
        {"package url", [](UpdateManifest& m) { m.packages[1].url = L"x"; }},
        {"package digest", [](UpdateManifest& m) { m.packages[1].sha256[3] = L'g'; }},
        {"package size", [](UpdateManifest& m) { m.packages[1].size = 536870913; }},
        {"inventory length", [](UpdateManifest& m) { m.packages[1].inventory.clear(); }},
        {"inventory path", [](UpdateManifest& m) { m.packages[1].inventory[0].path = L"a\\b"; }},
        {"inventory path", [](UpdateManifest& m) { m.packages[1].inventory[0].path = L"/a"; }},
        {"inventory digest", [](UpdateManifest& m) { m.packages[1].inventory[0].sha256.clear(); }},
        {"inventory size", [](UpdateManifest& m) { m.packages[1].inventory[0].size = 134217729; }},
        {"inventory duplicate", [](UpdateManifest& m) { m.packages[0].inventory[1].path = L"BIN/1.dll"; }},
        {"patch base", [](UpdateManifest& m) { m.packages[0].patch.baseVersion = m.packages[0].version; }},
        {"patch url", [](UpdateManifest& m) { m.packages[0].patch.url = L""; }},
        {"patch digest", [](UpdateManifest& m) { m.packages[0].patch.sha256 = L""; }},
        {"patch size", [](UpdateManifest& m) { m.packages[0].patch.size = 5005; }},
        {"patch length", [](UpdateManifest& m) { m.packages[0].patch.files = m.packages[0].inventory; }},
        {"patch file not in the inventory", [](UpdateManifest& m) { m.packages[0].patch.files[0].size = 1; }},
        {"patch leftovers", [](UpdateManifest& m) { m.packages[0].patch.files.clear(); }},
    };
    const UpdateManifest sound = Accepted(EncodeUtf8(FullManifest().Text())).value();
    ASSERT_EQ(BrokenRule(sound), "");
    for (const Row& row : rows) {
        UpdateManifest broken = sound;
        row.breach(broken);
        EXPECT_EQ(BrokenRule(broken), row.rule);
    }
}

}  // namespace
}  // namespace launcher_update
