#include "update/packages/archive_rules.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_update {
namespace {

constexpr wchar_t kInventoryCount[] = L"資源包 inventory 數量不正確。";
constexpr wchar_t kEntryCount[] = L"資源包內容與 inventory 數量不符。";
constexpr wchar_t kTooLarge[] = L"資源包解壓後大小超過限制。";
constexpr wchar_t kInvalidEntry[] = L"資源包包含無效或重複的 ZIP 項目。";
constexpr wchar_t kInvalidManifest[] = L"資源包包含無效的 Runtime manifest。";
constexpr wchar_t kSizeDiffers[] = L"資源包 ZIP 項目的解壓大小與 inventory 不符。";
constexpr wchar_t kEntriesDiffer[] = L"資源包 ZIP 項目與 inventory 不符。";

using Inventory = std::vector<PackageFileDescriptor>;
using Entries = std::vector<ArchiveEntry>;

PackageFileDescriptor File(std::wstring path, std::uint64_t size) {
    return {std::move(path), {}, size};
}

ArchiveEntry Entry(std::string name, std::uint64_t size) {
    return {true, false, std::move(name), size};
}

ArchiveEntry Directory(std::string name, std::uint64_t size) {
    return {true, true, std::move(name), size};
}

/// A verdict as text; empty where the archive passes.
std::wstring Text(const wchar_t* message) {
    return message == nullptr ? std::wstring() : message;
}

std::wstring Judge(const Inventory& inventory, const Entries& entries) {
    return Text(JudgeArchiveShape(inventory, entries));
}

/// Two files and the entries that fit them.
const Inventory kTwoFiles = {File(L"a.bin", 5), File(L"deep/b.bin", 7)};
const ArchiveEntry kA = Entry("payload/a.bin", 5);
const ArchiveEntry kB = Entry("payload/deep/b.bin", 7);

/// The verdict on an archive that fits but for this entry, which comes behind the two files.
std::wstring JudgeExtra(const ArchiveEntry& extra) {
    return Judge(kTwoFiles, {kA, kB, extra});
}

TEST(InventoryCount, OneTo768FilesPass) {
    EXPECT_EQ(Text(JudgeInventoryCount(0)), kInventoryCount);
    EXPECT_EQ(Text(JudgeInventoryCount(1)), L"");
    EXPECT_EQ(Text(JudgeInventoryCount(768)), L"");
    EXPECT_EQ(Text(JudgeInventoryCount(769)), kInventoryCount);
    EXPECT_EQ(Text(JudgeInventoryCount(std::numeric_limits<std::size_t>::max())), kInventoryCount);
}

TEST(EntryCount, MustBeTheInventorysOrOneMore) {
    for (const std::size_t files : {std::size_t{1}, std::size_t{2}, std::size_t{767}, std::size_t{768}}) {
        EXPECT_EQ(Text(JudgeEntryCount(files, 0)), kEntryCount) << files;
        EXPECT_EQ(Text(JudgeEntryCount(files, files - 1)), kEntryCount) << files;
        EXPECT_EQ(Text(JudgeEntryCount(files, files)), L"") << files;
        EXPECT_EQ(Text(JudgeEntryCount(files, files + 1)), L"") << files;
        EXPECT_EQ(Text(JudgeEntryCount(files, files + 2)), kEntryCount) << files;
        EXPECT_EQ(Text(JudgeEntryCount(files, 0xFFFFFFFF)), kEntryCount) << files;
    }
}

TEST(PayloadEntryName, IsThePrefixAndThePathAsUtf8) {
    EXPECT_EQ(PayloadEntryName(File(L"a.bin", 1)), "payload/a.bin");
    EXPECT_EQ(PayloadEntryName(File(L"Deep/Er/b.bin", 1)), "payload/Deep/Er/b.bin");
    EXPECT_EQ(PayloadEntryName(File(L"\u65E5\u672C/\u00E9", 1)), "payload/\xE6\x97\xA5\xE6\x9C\xAC/\xC3\xA9");
    const std::wstring pair = {wchar_t(0xD83D), wchar_t(0xDE00)};
    EXPECT_EQ(PayloadEntryName(File(pair, 1)), "payload/\xF0\x9F\x98\x80");
    EXPECT_EQ(PayloadEntryName(File(L"", 1)), "payload/");
}

TEST(ArchiveShape, ExactlyTheInventory_Passes) {
    EXPECT_EQ(Judge(kTwoFiles, {kA, kB}), L"");
}

TEST(ArchiveShape, OrderOfTheEntries_DoesNotMatter) {
    const ArchiveEntry manifest = Entry("runtime-manifest.json", 1);
    EXPECT_EQ(Judge(kTwoFiles, {kB, kA}), L"");
    EXPECT_EQ(Judge(kTwoFiles, {manifest, kB, kA}), L"");
    EXPECT_EQ(Judge(kTwoFiles, {kB, manifest, kA}), L"");
}

TEST(ArchiveShape, EmptyFile_Passes) {
    EXPECT_EQ(Judge({File(L"empty", 0)}, {Entry("payload/empty", 0)}), L"");
}

/// Whether they are the very same files is decided when they are looked up by their bytes.
TEST(ArchiveShape, NamesInOtherCase_Pass) {
    EXPECT_EQ(Judge(kTwoFiles, {Entry("Payload/a.bin", 5), kB}), L"");
    EXPECT_EQ(Judge(kTwoFiles, {kA, Entry("payload/DEEP/B.bin", 7)}), L"");
    EXPECT_EQ(Judge({File(L"UPPER.BIN", 3)}, {Entry("payload/upper.bin", 3)}), L"");
}

TEST(ArchiveShape, FullInventory_PassesWithAndWithoutManifest) {
    Inventory inventory;
    Entries entries;
    for (std::size_t at = 0; at < 768; ++at) {
        inventory.push_back(File(L"f" + std::to_wstring(at), at));
        entries.push_back(Entry("payload/f" + std::to_string(at), at));
    }
    EXPECT_EQ(Judge(inventory, entries), L"");
    entries.push_back(Entry("runtime-manifest.json", 10));
    EXPECT_EQ(Judge(inventory, entries), L"");
}

struct SumRow {
    const char* name;
    std::vector<std::uint64_t> sizes;
    bool passes;
};

TEST(ArchiveShape, SumOfTheInventory_MayReachTheLimitAndNotPassIt) {
    const SumRow rows[] = {
        {"one at the limit", {0x18000000}, true},
        {"one beyond", {0x18000001}, false},
        {"three of the largest", {0x8000000, 0x8000000, 0x8000000}, true},
        {"and one byte", {0x8000000, 0x8000000, 0x8000000, 1}, false},
        {"one byte first", {1, 0x8000000, 0x8000000, 0x8000000}, false},
        {"full, then empty files", {0x18000000, 0, 0}, true},
        {"a byte less, then a byte", {0x17FFFFFF, 1}, true},
        {"a byte less, then two", {0x17FFFFFF, 2}, false},
        {"beyond 32 bits", {0x8000000, 0x100000000}, false},
        {"sum wraps round", {0x8000000, 0xFFFFFFFFFFFFFFFF}, false},
    };
    for (const SumRow& row : rows) {
        Inventory inventory;
        Entries entries;
        for (std::size_t at = 0; at < row.sizes.size(); ++at) {
            inventory.push_back(File(std::to_wstring(at), row.sizes[at]));
            entries.push_back(Entry("payload/" + std::to_string(at), row.sizes[at]));
        }
        EXPECT_EQ(Judge(inventory, entries), row.passes ? L"" : kTooLarge) << row.name;
    }
}

TEST(ArchiveShape, SumIsJudgedBeforeAnyEntry) {
    EXPECT_EQ(Judge({File(L"a.bin", 0x18000000), File(L"b.bin", 1)}, {ArchiveEntry{}, kA}), kTooLarge);
    EXPECT_EQ(Judge({File(L"a.bin", 0x18000000), File(L"b.bin", 1)}, {}), kTooLarge);
}

/// A path that stands there twice is unpacked twice.
TEST(ArchiveShape, SumCountsTwinsInTheInventory) {
    EXPECT_EQ(Judge({File(L"a.bin", 0xC000000), File(L"A.bin", 0xC000000), File(L"c", 1)}, {}), kTooLarge);
    EXPECT_EQ(Judge({File(L"a.bin", 0xC000000), File(L"A.bin", 0xC000000), File(L"c", 0)}, {}), kEntriesDiffer);
}

TEST(ArchiveShape, UnreadableEntry_IsInvalid) {
    EXPECT_EQ(JudgeExtra({false, false, "runtime-manifest.json", 5}), kInvalidEntry);
    EXPECT_EQ(Judge(kTwoFiles, {kA, {false, false, "payload/deep/b.bin", 7}}), kInvalidEntry);
}

TEST(ArchiveShape, Directory_IsInvalidWhateverItsName) {
    EXPECT_EQ(JudgeExtra(Directory("payload/", 0)), kInvalidEntry);
    EXPECT_EQ(JudgeExtra(Directory("payload/deep/", 0)), kInvalidEntry);
    EXPECT_EQ(JudgeExtra(Directory("runtime-manifest.json", 5)), kInvalidEntry);
    EXPECT_EQ(Judge(kTwoFiles, {kA, Directory("payload/deep/b.bin", 7)}), kInvalidEntry);
}

TEST(ArchiveShape, NameThatIsNoUtf8_IsInvalid) {
    const std::string_view names[] = {
        "payload/\xFF",
        "payload/\x80",
        "payload/\xC0\xAF",
        "payload/\xED\xA0\x80",
        "payload/\xF5\x80\x80\x80",
        "\xE9.bin",
        "payload/\xE6\x97.bin",
        "payload/\xE6\x97",
        "runtime-manifest.js\xF6n",
    };
    for (const std::string_view name : names)
        EXPECT_EQ(JudgeExtra(Entry(std::string(name), 5)), kInvalidEntry) << name;
}

TEST(ArchiveShape, EmptyName_IsInvalid) {
    EXPECT_EQ(JudgeExtra(Entry("", 5)), kInvalidEntry);
}

TEST(ArchiveShape, NameThatWasThereBefore_IsInvalid) {
    EXPECT_EQ(Judge(kTwoFiles, {kA, kA}), kInvalidEntry);
    EXPECT_EQ(JudgeExtra(kA), kInvalidEntry);
    EXPECT_EQ(JudgeExtra(Entry("PAYLOAD/A.BIN", 5)), kInvalidEntry);
    EXPECT_EQ(JudgeExtra(Entry("payload/Deep/b.bin", 7)), kInvalidEntry);
}

TEST(ArchiveShape, RepeatedName_IsJudgedBeforeItsSize) {
    EXPECT_EQ(JudgeExtra(Entry("payload/a.bin", 6)), kInvalidEntry);
}

/// Case is folded for A to Z alone, here as everywhere.
TEST(ArchiveShape, NamesThatDifferInTheCaseOfAnotherLetter_AreTwo) {
    EXPECT_EQ(
        Judge({File(L"\u00C9", 1), File(L"\u00E9", 2)}, {Entry("payload/\xC3\x89", 1), Entry("payload/\xC3\xA9", 2)}),
        L"");
}

TEST(ArchiveShape, EntriesAreJudgedInTheirOrder_AndTheFirstFaultIsTold) {
    const ArchiveEntry foreign = Entry("payload/other", 1);
    EXPECT_EQ(Judge(kTwoFiles, {foreign, Directory("payload/", 0)}), kSizeDiffers);
    EXPECT_EQ(Judge(kTwoFiles, {Directory("payload/", 0), foreign}), kInvalidEntry);
    EXPECT_EQ(Judge(kTwoFiles, {Entry("runtime-manifest.json", 0), foreign}), kInvalidManifest);
    EXPECT_EQ(Judge(kTwoFiles, {foreign, Entry("runtime-manifest.json", 0)}), kSizeDiffers);
}

TEST(RuntimeManifestEntry, IsKnownInAnyCase) {
    for (const char* name : {"runtime-manifest.json", "Runtime-Manifest.JSON", "RUNTIME-MANIFEST.JSON"})
        EXPECT_EQ(JudgeExtra(Entry(name, 5)), L"") << name;
}

TEST(RuntimeManifestEntry, HasOneTo524288Bytes) {
    EXPECT_EQ(JudgeExtra(Entry("runtime-manifest.json", 0)), kInvalidManifest);
    EXPECT_EQ(JudgeExtra(Entry("runtime-manifest.json", 1)), L"");
    EXPECT_EQ(JudgeExtra(Entry("runtime-manifest.json", 0x80000)), L"");
    EXPECT_EQ(JudgeExtra(Entry("runtime-manifest.json", 0x80001)), kInvalidManifest);
    EXPECT_EQ(JudgeExtra(Entry("Runtime-Manifest.json", 0x100000001)), kInvalidManifest);
    EXPECT_EQ(JudgeExtra(Entry("runtime-manifest.json", 0xFFFFFFFFFFFFFFFF)), kInvalidManifest);
}

TEST(RuntimeManifestEntry, SecondOne_IsInvalid) {
    const Inventory three = {File(L"a.bin", 5), File(L"deep/b.bin", 7), File(L"c", 1)};
    for (const char* second : {"runtime-manifest.json", "Runtime-Manifest.JSON"}) {
        const Entries entries = {kA, kB, Entry("runtime-manifest.json", 5), Entry(second, 5)};
        EXPECT_EQ(Judge(three, entries), kInvalidManifest) << second;
    }
}

TEST(RuntimeManifestEntry, InPlaceOfAFile_LeavesOneMissing) {
    EXPECT_EQ(Judge(kTwoFiles, {kA, Entry("runtime-manifest.json", 5)}), kEntriesDiffer);
    EXPECT_EQ(Judge({File(L"a.bin", 5)}, {Entry("runtime-manifest.json", 5)}), kEntriesDiffer);
}

/// Only the one at the root is the archive's own.
TEST(RuntimeManifestEntry, BelowPayload_IsAFileLikeAnyOther) {
    EXPECT_EQ(JudgeExtra(Entry("payload/runtime-manifest.json", 5)), kSizeDiffers);
    EXPECT_EQ(Judge({File(L"runtime-manifest.json", 0)},
                    {Entry("payload/runtime-manifest.json", 0), Entry("runtime-manifest.json", 5)}),
              L"");
}

TEST(ArchiveShape, MissingFile_IsToldOnceAllEntriesAreJudged) {
    EXPECT_EQ(Judge(kTwoFiles, {kA}), kEntriesDiffer);
    EXPECT_EQ(Judge(kTwoFiles, {}), kEntriesDiffer);
}

TEST(ArchiveShape, ForeignEntry_IsToldAsADifferenceInSize) {
    const std::string names[] = {
        "payload/other",
        "a.bin",
        "payload",
        "payload/a.bin/",
        "/payload/a.bin",
        "payload//a.bin",
        "payload\\a.bin",
        "payload/../payload/a.bin",
        "../a.bin",
        "C:\\a.bin",
        "C:/a.bin",
        "\\\\server\\share\\a.bin",
        "payload/a.bin ",
        " payload/a.bin",
        "payload/a",
        "payload/a.binary",
        "payload/deep",
        "payload/deep/a.bin",
        "manifest.json",
        "./runtime-manifest.json",
        "x/runtime-manifest.json",
        "runtime-manifest.json.bak",
        "runtime-manifest.jso",
        std::string("payload/a.bin\0", 14),
        std::string("runtime-manifest.json\0x", 23),
        std::string("\0", 1),
    };
    for (const std::string& name : names)
        EXPECT_EQ(JudgeExtra(Entry(name, 5)), kSizeDiffers) << name;
}

TEST(ArchiveShape, OtherSize_IsTold) {
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{4}, std::uint64_t{6}, std::uint64_t{7},
                                     std::uint64_t{0x100000005}, std::uint64_t{0xFFFFFFFFFFFFFFFF}})
        EXPECT_EQ(Judge(kTwoFiles, {Entry("payload/a.bin", size), kB}), kSizeDiffers) << size;
}

/// Nobody makes such an inventory: its reader refuses it. Here the first of two twins tells the size, and a manifest
/// may fill the number.
TEST(ArchiveShape, TwinsInTheInventory_AreOneEntryOfTheFirstsSize) {
    const ArchiveEntry manifest = Entry("runtime-manifest.json", 1);
    for (const wchar_t* twin : {L"a.bin", L"A.bin"}) {
        const Inventory inventory = {File(L"a.bin", 5), File(twin, 7)};
        EXPECT_EQ(Judge(inventory, {kA, manifest}), L"") << twin;
        EXPECT_EQ(Judge(inventory, {Entry("payload/a.bin", 7), manifest}), kSizeDiffers) << twin;
    }
}

}  // namespace
}  // namespace launcher_update
