#include "update/packages/archive.h"

#include <windows.h>

#include <bcrypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwctype>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/paths.h"
#include "update/files/trees.h"

namespace launcher_update {
namespace {

using test_support::ArchiveBuilder;
using test_support::BuildArchive;
using test_support::DescribeFile;
using test_support::DescribePackage;
using test_support::PackageContent;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

constexpr wchar_t kInventoryCount[] = L"資源包 inventory 數量不正確。";
constexpr wchar_t kCannotOpen[] = L"無法開啟已下載的資源包。";
constexpr wchar_t kEntryCount[] = L"資源包內容與 inventory 數量不符。";
constexpr wchar_t kTooLarge[] = L"資源包解壓後大小超過限制。";
constexpr wchar_t kInvalidEntry[] = L"資源包包含無效或重複的 ZIP 項目。";
constexpr wchar_t kInvalidManifest[] = L"資源包包含無效的 Runtime manifest。";
constexpr wchar_t kSizeDiffers[] = L"資源包 ZIP 項目的解壓大小與 inventory 不符。";
constexpr wchar_t kEntriesDiffer[] = L"資源包 ZIP 項目與 inventory 不符。";
constexpr wchar_t kPayload[] = L"資源包 payload 驗證失敗：";

// An archive, byte by byte (PKWARE's APPNOTE, 4.3 and 4.4): every field can lie.

void Append(std::string& bytes, std::uint64_t value, int width) {
    for (int at = 0; at < width; ++at)
        bytes.push_back(static_cast<char>(value >> (8 * at)));
}

std::uint32_t Crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

constexpr std::uint32_t kStored = 0;
constexpr std::uint32_t kDeflated = 8;
constexpr std::uint32_t kInZip64Extra = 0xFFFFFFFF;

/// One entry as the directory tells it. The local header says the same unless told otherwise.
struct RawEntry {
    std::string name;
    std::string packed;
    std::uint32_t method = kStored;
    std::uint32_t flags = 0;
    std::uint32_t crc = 0;
    std::uint32_t packedSize = 0;
    std::uint32_t unpackedSize = 0;
    std::uint32_t attributes = 0;
    std::string extra;
    std::string localSignature = "PK\x03\x04";
    std::string localName;
    std::uint32_t localCrc = 0;
    std::uint32_t localSizes = 0;  // added to both
};

RawEntry Stored(std::string name, std::string content) {
    RawEntry entry;
    entry.localName = entry.name = std::move(name);
    entry.localCrc = entry.crc = Crc32(content);
    entry.packedSize = entry.unpackedSize = static_cast<std::uint32_t>(content.size());
    entry.packed = std::move(content);
    return entry;
}

/// One stored block of RFC 1951: at most 65535 bytes.
RawEntry Deflated(std::string name, std::string content) {
    RawEntry entry = Stored(std::move(name), content);
    std::string packed = "\x01";
    Append(packed, content.size(), 2);
    Append(packed, ~content.size(), 2);
    entry.packed = packed + content;
    entry.packedSize = static_cast<std::uint32_t>(entry.packed.size());
    entry.method = kDeflated;
    return entry;
}

std::string Zip64Extra(std::uint64_t unpackedSize, std::uint64_t packedSize) {
    std::string extra;
    Append(extra, 1, 2);
    Append(extra, 16, 2);
    Append(extra, unpackedSize, 8);
    Append(extra, packedSize, 8);
    return extra;
}

void AppendLocal(std::string& archive, const RawEntry& entry) {
    archive += entry.localSignature;
    Append(archive, 20, 2);
    Append(archive, entry.flags, 2);
    Append(archive, entry.method, 2);
    Append(archive, 0x00210000, 4);  // midnight of the first day of 1980
    Append(archive, entry.localCrc, 4);
    Append(archive, entry.packedSize + entry.localSizes, 4);
    Append(archive, entry.unpackedSize + entry.localSizes, 4);
    Append(archive, entry.localName.size(), 2);
    Append(archive, 0, 2);
    archive += entry.localName + entry.packed;
}

void AppendCentral(std::string& archive, const RawEntry& entry, std::size_t offset) {
    archive += "PK\x01\x02";
    Append(archive, 20, 2);
    Append(archive, 20, 2);
    Append(archive, entry.flags, 2);
    Append(archive, entry.method, 2);
    Append(archive, 0x00210000, 4);
    Append(archive, entry.crc, 4);
    Append(archive, entry.packedSize, 4);
    Append(archive, entry.unpackedSize, 4);
    Append(archive, entry.name.size(), 2);
    Append(archive, entry.extra.size(), 2);
    Append(archive, 0, 6);  // comment, disk, internal attributes
    Append(archive, entry.attributes, 4);
    Append(archive, offset, 4);
    archive += entry.name + entry.extra;
}

/// `claimed` is how many entries the end record tells of.
std::string RawArchive(const std::vector<RawEntry>& entries, std::size_t claimed) {
    std::string archive;
    std::vector<std::size_t> offsets;
    for (const RawEntry& entry : entries) {
        offsets.push_back(archive.size());
        AppendLocal(archive, entry);
    }
    const std::size_t directory = archive.size();
    for (std::size_t at = 0; at < entries.size(); ++at)
        AppendCentral(archive, entries[at], offsets[at]);
    const std::size_t length = archive.size() - directory;
    archive += "PK\x05\x06";
    Append(archive, 0, 4);
    Append(archive, claimed, 2);
    Append(archive, claimed, 2);
    Append(archive, length, 4);
    Append(archive, directory, 4);
    Append(archive, 0, 2);
    return archive;
}

std::string RawArchive(const std::vector<RawEntry>& entries) {
    return RawArchive(entries, entries.size());
}

/// Content that does not repeat within any test.
std::string Bytes(std::size_t length) {
    std::string bytes(length, '\0');
    std::uint32_t state = 12345;
    for (char& byte : bytes)
        byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

const PackageContent kContent = {{L"a.bin", "content of a"}, {L"deep/b.bin", "and of b"}};

/// Verdicts on archives for one package, kContent unless told otherwise. Each verdict proves on the way that the
/// archive was closed, that success leaves the message alone, and that nothing was written.
class Verdicts {
  public:
    explicit Verdicts(const PackageContent& content = kContent) : package(DescribePackage(L"p", L"1.0.0.0", content)) {}

    /// The message; empty for a good archive.
    std::wstring Of(std::string_view archive) {
        WriteWholeFile(path, archive);
        std::wstring error = kBefore;
        bool good = false;
        {
            const test_support::MutationFaults count;  // seeking and closing count, though the stream only reads
            good = VerifyPackageArchive(path, package, error);
            for (const auto& call : count.Calls())
                EXPECT_TRUE(call.function == "fflush" || call.function == "fclose") << call.function;
        }
        EXPECT_TRUE(DeleteFileW(path.c_str())) << "the archive is still open";
        if (!good) {
            EXPECT_NE(error, kBefore);
            EXPECT_NE(error, L"");
            return error;
        }
        EXPECT_EQ(error, kBefore);
        return {};
    }

    std::wstring Of(const std::vector<RawEntry>& entries) { return Of(RawArchive(entries)); }

    static constexpr wchar_t kBefore[] = L"what stood here before";
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"p.vprpack";
    PackageDescriptor package;
};

const RawEntry kA = Stored("payload/a.bin", "content of a");
const RawEntry kB = Stored("payload/deep/b.bin", "and of b");
const RawEntry kManifest = Stored("runtime-manifest.json", "{}");

RawEntry Changed(RawEntry entry, const std::function<void(RawEntry&)>& change) {
    change(entry);
    return entry;
}

TEST(PackageArchive, ExactlyTheInventory_Passes) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of(BuildArchive(kContent)), L"");
    EXPECT_EQ(verdicts.Of({kA, kB}), L"");
    EXPECT_EQ(verdicts.Of({kB, kA}), L"");
    EXPECT_EQ(verdicts.Of({kA, Deflated(kB.name, kB.packed)}), L"");
}

TEST(PackageArchive, RuntimeManifestInAnyCaseAndPlace_Passes) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, kB, kManifest}), L"");
    EXPECT_EQ(verdicts.Of({Stored("Runtime-Manifest.JSON", "not even json"), kA, kB}), L"");
}

/// Nobody looks into it, not even so far as its CRC.
TEST(PackageArchive, DamagedRuntimeManifest_Passes) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, kB, Changed(kManifest, [](RawEntry& entry) { entry.crc ^= 1; })}), L"");
}

TEST(PackageArchive, RuntimeManifest_HasOneTo524288Bytes) {
    Verdicts verdicts;
    const auto with = [&](std::size_t length) {
        return verdicts.Of(ArchiveBuilder().AddPayload(kContent).Add("runtime-manifest.json", Bytes(length)).Finish());
    };
    EXPECT_EQ(with(0), kInvalidManifest);
    EXPECT_EQ(with(1), L"");
    EXPECT_EQ(with(0x80000), L"");
    EXPECT_EQ(with(0x80001), kInvalidManifest);
}

TEST(PackageArchive, TwoRuntimeManifests_AreRefused) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, kManifest, kManifest}), kInvalidManifest);
    EXPECT_EQ(verdicts.Of({kManifest, kA, Stored("RUNTIME-manifest.json", "x")}), kInvalidManifest);
    EXPECT_EQ(verdicts.Of({kA, kB, kManifest, kManifest}), kEntryCount);
}

TEST(PackageArchive, RuntimeManifestInPlaceOfAFile_IsRefused) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, kManifest}), kEntriesDiffer);
}

TEST(PackageArchive, EmptyFile_Passes) {
    Verdicts verdicts({{L"empty", ""}, {L"full", "x"}});
    const RawEntry full = Stored("payload/full", "x");
    EXPECT_EQ(verdicts.Of({Stored("payload/empty", ""), full}), L"");
    EXPECT_EQ(verdicts.Of({Deflated("payload/empty", ""), full}), L"");
}

TEST(PackageArchive, LargeFiles_PassDeflatedAndStored) {
    const PackageContent content = {{L"noise", Bytes(3u << 20)}, {L"plain", std::string(5u << 20, 'x')}};
    Verdicts verdicts(content);
    EXPECT_EQ(verdicts.Of(BuildArchive(content)), L"");
    EXPECT_EQ(verdicts.Of(ArchiveBuilder()
                              .Add("payload/noise", content.at(L"noise"), ArchiveBuilder::Method::stored)
                              .Add("payload/plain", content.at(L"plain"), ArchiveBuilder::Method::stored)
                              .Finish()),
              L"");
}

PackageContent ManyFiles(std::size_t number) {
    PackageContent content;
    for (std::size_t at = 0; at < number; ++at)
        content[L"folder/f" + std::to_wstring(at)] = "file " + std::to_string(at);
    return content;
}

TEST(PackageArchive, SevenHundredSixtyEightFiles_Pass) {
    const PackageContent content = ManyFiles(768);
    Verdicts verdicts(content);
    EXPECT_EQ(verdicts.Of(BuildArchive(content)), L"");
    EXPECT_EQ(verdicts.Of(ArchiveBuilder().AddPayload(content).Add("runtime-manifest.json", "{}").Finish()), L"");
}

TEST(PackageArchive, OneFileMore_IsRefused) {
    const PackageContent content = ManyFiles(769);
    Verdicts verdicts(content);
    EXPECT_EQ(verdicts.Of(BuildArchive(content)), kInventoryCount);
}

TEST(PackageArchive, EmptyInventory_IsRefused) {
    Verdicts verdicts(PackageContent{});
    EXPECT_EQ(verdicts.Of(RawArchive({})), kInventoryCount);
    EXPECT_EQ(verdicts.Of({kManifest}), kInventoryCount);
}

TEST(PackageArchive, NumberOfTheInventory_IsJudgedBeforeTheArchiveIsOpened) {
    for (const std::size_t files : {std::size_t{0}, std::size_t{769}}) {
        Verdicts verdicts(ManyFiles(files));
        int opened = 0;
        const test_support::StandIn<"_wfopen_s", errno_t(FILE**, const wchar_t*, const wchar_t*)> open(
            [&](FILE**, const wchar_t*, const wchar_t*) {
                ++opened;
                return EACCES;
            });
        EXPECT_EQ(verdicts.Of("no archive"), kInventoryCount) << files;
        EXPECT_EQ(opened, 0) << files;
    }
}

TEST(PackageArchive, OtherNumberOfEntries_IsRefused) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of(RawArchive({})), kEntryCount);
    EXPECT_EQ(verdicts.Of({kA}), kEntryCount);
    EXPECT_EQ(verdicts.Of({kA, kB, kManifest, Stored("payload/c", "x")}), kEntryCount);
}

TEST(PackageArchive, ForeignFile_IsToldAsADifferenceInSize) {
    Verdicts verdicts;
    for (const char* name : {"payload/c", "readme.txt", "a.bin", "payload\\a.bin", "../payload/a.bin", "C:\\a.bin",
                             "/payload/a.bin", "payload/../payload/a.bin", "payload/runtime-manifest.json"})
        EXPECT_EQ(verdicts.Of({kA, kB, Stored(name, "content of a")}), kSizeDiffers) << name;
    EXPECT_EQ(verdicts.Of({kA, Stored("payload/c", "and of b")}), kSizeDiffers);
}

TEST(PackageArchive, Directory_IsRefusedEvenWhereTheNumberFits) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, kB, Stored("payload/", "")}), kInvalidEntry);
    EXPECT_EQ(verdicts.Of({kA, kB, Stored("payload/deep/", "")}), kInvalidEntry);
    EXPECT_EQ(verdicts.Of({kA, Stored("payload/deep/", "")}), kInvalidEntry);
}

/// A name without a slash at its end, and the attribute of a folder.
TEST(PackageArchive, EntryWithADirectorysAttribute_IsRefused) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, Changed(kB, [](RawEntry& entry) { entry.attributes = 0x10; })}), kInvalidEntry);
    EXPECT_EQ(verdicts.Of({kA, kB, Changed(kManifest, [](RawEntry& entry) { entry.attributes = 0x10; })}),
              kInvalidEntry);
}

TEST(PackageArchive, RepeatedEntry_IsRefused) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, kA}), kInvalidEntry);
    EXPECT_EQ(verdicts.Of({kA, kB, kA}), kInvalidEntry);
    EXPECT_EQ(verdicts.Of({kA, kB, Stored("payload/A.BIN", "content of a")}), kInvalidEntry);
}

TEST(PackageArchive, NameThatIsNoUtf8_IsRefused) {
    Verdicts verdicts;
    for (const char* name : {"payload/\xFF", "payload/\x82.bin", "payload/\xED\xA0\x80", "payload/\xC0\xAF"})
        EXPECT_EQ(verdicts.Of({kA, kB, Stored(name, "x")}), kInvalidEntry) << name;
}

TEST(PackageArchive, EntryWithoutName_IsRefused) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, kB, Stored("", "x")}), kInvalidEntry);
}

/// What stands behind a NUL belongs to the name, so that it is none that is looked for.
TEST(PackageArchive, NameWithNul_IsAnotherName) {
    Verdicts verdicts;
    const auto named = [](std::string name) { return Stored(std::move(name), "content of a"); };
    EXPECT_EQ(verdicts.Of({named(std::string("payload/a.bin\0", 14)), kB}), kSizeDiffers);
    EXPECT_EQ(verdicts.Of({named(std::string("payload/a.bin\0.exe", 18)), kB}), kSizeDiffers);
    EXPECT_EQ(verdicts.Of({kA, kB, named(std::string("payload/a.bin\0", 14))}), kSizeDiffers);
    EXPECT_EQ(verdicts.Of({kA, kB, named(std::string("runtime-manifest.json\0", 22))}), kSizeDiffers);
    EXPECT_EQ(verdicts.Of({kA, kB, named(std::string("\0", 1))}), kSizeDiffers);
}

/// The shape lets it pass, the look-up by bytes does not find it.
TEST(PackageArchive, NameInOtherCase_FailsAsThatFilesPayload) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({Stored("Payload/a.bin", "content of a"), kB}), std::wstring(kPayload) + L"a.bin");
    EXPECT_EQ(verdicts.Of({kA, Stored("payload/deep/B.bin", "and of b")}), std::wstring(kPayload) + L"deep/b.bin");
}

/// What lies in an archive is told by the directory alone.
TEST(PackageArchive, OtherNameInTheLocalHeader_DoesNotMatter) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({Changed(kA, [](RawEntry& entry) { entry.localName = "elsewhere/entirely"; }), kB}), L"");
    EXPECT_EQ(verdicts.Of({Changed(kA, [](RawEntry& entry) { entry.name = "payload/c"; }), kB}), kSizeDiffers);
}

TEST(PackageArchive, OtherCrcOrSizesInTheLocalHeader_DoNotMatter) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({Changed(kA, [](RawEntry& entry) { entry.localCrc ^= 1; }), kB}), L"");
    EXPECT_EQ(verdicts.Of({Changed(kA, [](RawEntry& entry) { entry.localSizes = 1; }), kB}), L"");
}

TEST(PackageArchive, NonAsciiNames_PassAsUtf8) {
    const std::wstring pair = {wchar_t(0xD83D), wchar_t(0xDE00)};
    const PackageContent content = {{L"\u65E5\u672C\u8A9E/\u00E9.bin", "one"}, {pair + L".bin", "two"}};
    Verdicts verdicts(content);
    EXPECT_EQ(verdicts.Of(BuildArchive(content)), L"");
    EXPECT_EQ(verdicts.Of({Stored("payload/\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E/\xC3\xA9.bin", "one"),
                           Stored("payload/\xF0\x9F\x98\x80.bin", "two")}),
              L"");
}

/// As a path of 260 units needs them: 780 bytes behind the prefix.
TEST(PackageArchive, LongNames_AreComparedToTheirEnd) {
    for (const std::size_t units : {164u, 167u, 168u, 171u, 200u, 260u}) {
        const std::wstring start(units - 1, L'\u65E5');
        const PackageContent content = {{start + L"1", "one"}, {start + L"2", "two"}};
        Verdicts verdicts(content);
        EXPECT_EQ(verdicts.Of(BuildArchive(content)), L"") << units;
        const std::string name = "payload/" + platform::EncodeUtf8(start);
        EXPECT_EQ(verdicts.Of({Stored(name + "1", "one"), Stored(name + "3", "two")}), kSizeDiffers) << units;
        EXPECT_EQ(verdicts.Of({Stored(name + "1", "one"), Stored(name + "1", "one")}), kInvalidEntry) << units;
    }
}

TEST(PackageArchive, NameOf65535Bytes_IsFound) {
    const std::wstring path(65535 - 8, L'n');
    Verdicts verdicts({{path, "x"}});
    EXPECT_EQ(verdicts.Of({Stored("payload/" + platform::EncodeUtf8(path), "x")}), L"");
}

TEST(PackageArchive, OtherSizeInTheDirectory_IsRefusedBeforeAnythingIsUnpacked) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, Stored("payload/deep/b.bin", "and of B!")}), kSizeDiffers);
    EXPECT_EQ(verdicts.Of({kA, Stored("payload/deep/b.bin", "")}), kSizeDiffers);
    EXPECT_EQ(
        verdicts.Of({kA, Changed(Deflated(kB.name, kB.packed), [](RawEntry& b) { b.unpackedSize = 0xFFFFFFF0; })}),
        kSizeDiffers);
}

TEST(PackageArchive, SumOfTheInventory_MayReachTheLimitAndNotPassIt) {
    Verdicts verdicts;
    verdicts.package.inventory[0].size = 0x18000000 - 8;  // the other has 8
    EXPECT_EQ(verdicts.Of({kA, kB}), kSizeDiffers);
    verdicts.package.inventory[0].size += 1;
    EXPECT_EQ(verdicts.Of({kA, kB}), kTooLarge);
}

struct DamageRow {
    const char* name;
    std::function<void(RawEntry&)> change;
};

/// The shape is right and the content is not to be had.
TEST(PackageArchive, DamagedEntry_FailsAsItsFilesPayload) {
    const DamageRow rows[] = {
        {"data", [](RawEntry& b) { b.packed.back() = static_cast<char>(b.packed.back() ^ 1); }},
        {"CRC of the directory", [](RawEntry& b) { b.crc ^= 1; }},
        {"encrypted", [](RawEntry& b) { b.flags = 0x1; }},
        {"strongly encrypted", [](RawEntry& b) { b.flags = 0x40; }},
        {"a patch", [](RawEntry& b) { b.flags = 0x20; }},
        {"method 9", [](RawEntry& b) { b.method = 9; }},
        {"method 12", [](RawEntry& b) { b.method = 12; }},
        {"method 14", [](RawEntry& b) { b.method = 14; }},
        {"method 93", [](RawEntry& b) { b.method = 93; }},
        {"local signature", [](RawEntry& b) { b.localSignature = "PK\x03\x05"; }},
        {"local name pushes the data away",
         [](RawEntry& b) {
             b.localName += "\x01";
             b.packed = b.packed.substr(1);
             b.packedSize -= 1;
         }},
    };
    for (const auto make : {&Stored, &Deflated}) {
        for (const DamageRow& row : rows) {
            Verdicts verdicts;
            RawEntry b = Changed(make("payload/deep/b.bin", "and of b"), row.change);
            if (b.method == kStored) b.packedSize = b.unpackedSize;  // or it is refused on opening
            EXPECT_EQ(verdicts.Of({kA, b}), std::wstring(kPayload) + L"deep/b.bin") << row.name;
            EXPECT_EQ(verdicts.Of({b, kA}), std::wstring(kPayload) + L"deep/b.bin") << row.name;
        }
    }
}

/// CRC, sizes and unpacking are all in order: the digest alone tells.
TEST(PackageArchive, OtherContentOfTheSameSize_FailsAsThatFilesPayload) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({Stored("payload/a.bin", "content of A"), kB}), std::wstring(kPayload) + L"a.bin");
    EXPECT_EQ(verdicts.Of({kA, Deflated("payload/deep/b.bin", "and of B")}), std::wstring(kPayload) + L"deep/b.bin");
}

/// The very content, and a CRC that denies it.
TEST(PackageArchive, CrcIsCheckedBesideTheDigest) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({Changed(Deflated(kA.name, kA.packed), [](RawEntry& a) { a.crc = ~a.crc; }), kB}),
              std::wstring(kPayload) + L"a.bin");
}

TEST(PackageArchive, UnpackedDataLongerOrShorterThanTold_FailsAsPayload) {
    const std::wstring expected = std::wstring(kPayload) + L"deep/b.bin";
    for (const char* content : {"and of b and much more", "and of", ""}) {
        Verdicts verdicts;
        RawEntry b = Deflated("payload/deep/b.bin", content);
        b.unpackedSize = 8;
        EXPECT_EQ(verdicts.Of({kA, b}), expected) << content;
    }
}

TEST(PackageArchive, DeflatedDataCutOff_FailsAsPayload) {
    const std::string content = Bytes(500);
    Verdicts verdicts({{L"f", content}});
    const RawEntry whole = Deflated("payload/f", content);
    for (std::uint32_t length = 1; length < whole.packedSize; ++length) {
        const RawEntry cut = Changed(whole, [&](RawEntry& entry) { entry.packedSize = length; });
        ASSERT_EQ(verdicts.Of({cut}), std::wstring(kPayload) + L"f") << length;
    }
}

/// The sizes of a directory entry may stand in its extra field (APPNOTE 4.5.3).
TEST(PackageArchive, SizesInTheZip64Field_Pass) {
    Verdicts verdicts;
    const auto moved = [](RawEntry entry, std::uint64_t unpackedSize, std::uint64_t packedSize) {
        entry.extra = Zip64Extra(unpackedSize, packedSize);
        entry.unpackedSize = entry.packedSize = kInZip64Extra;
        return entry;
    };
    EXPECT_EQ(verdicts.Of({moved(kA, 12, 12), kB}), L"");
    EXPECT_EQ(verdicts.Of({moved(kA, 0x10000000C, 12), kB}), kSizeDiffers);
    EXPECT_EQ(verdicts.Of({moved(kA, 13, 13), kB}), kSizeDiffers);
}

/// Nothing is read then, and the memory holds whatever it held.
TEST(PackageArchive, EntryOfNoPackedBytes_FailsAsPayload) {
    Verdicts verdicts;
    const RawEntry a = Changed(kA, [](RawEntry& entry) {
        entry.extra = Zip64Extra(12, 0);
        entry.unpackedSize = entry.packedSize = kInZip64Extra;
    });
    EXPECT_EQ(verdicts.Of({a, kB}), std::wstring(kPayload) + L"a.bin");
    EXPECT_EQ(verdicts.Of({Changed(kA, [](RawEntry& entry) { entry.packedSize = 0; }), kB}), kCannotOpen);
    // Nor does it help to ask for the digest of nothing.
    verdicts.package.inventory[0].sha256 = DescribeFile(L"a.bin", "").sha256;
    EXPECT_EQ(verdicts.Of({a, kB}), std::wstring(kPayload) + L"a.bin");
}

TEST(PackageArchive, FieldThatEndsInItsMidst_IsRefused) {
    Verdicts verdicts;
    const RawEntry a = Changed(kA, [](RawEntry& entry) {
        entry.unpackedSize = entry.packedSize = kInZip64Extra;
        entry.extra = Zip64Extra(12, 12).substr(0, 10);
    });
    EXPECT_EQ(verdicts.Of({a, kB}), kCannotOpen);
}

/// Once one entry has such a field, the others' are looked at when they are described.
TEST(PackageArchive, LaterFieldThatEndsInItsMidst_IsAnInvalidEntry) {
    Verdicts verdicts;
    const auto moved = [](const RawEntry& entry, std::size_t length) {
        return Changed(entry, [&](RawEntry& changed) {
            changed.extra = Zip64Extra(entry.unpackedSize, entry.packedSize).substr(0, length);
            changed.unpackedSize = changed.packedSize = kInZip64Extra;
        });
    };
    EXPECT_EQ(verdicts.Of({moved(kA, 20), moved(kB, 20)}), L"");
    for (const std::size_t length : {1u, 4u, 10u, 19u})
        EXPECT_EQ(verdicts.Of({moved(kA, 20), moved(kB, length)}), kInvalidEntry) << length;
}

TEST(PackageArchive, FirstBadFileOfTheInventory_IsTold) {
    Verdicts verdicts;
    const RawEntry a = Stored("payload/a.bin", "content of A");
    const RawEntry b = Stored("payload/deep/b.bin", "and of B");
    EXPECT_EQ(verdicts.Of({b, a}), std::wstring(kPayload) + L"a.bin");
    std::reverse(verdicts.package.inventory.begin(), verdicts.package.inventory.end());
    EXPECT_EQ(verdicts.Of({a, b}), std::wstring(kPayload) + L"deep/b.bin");
}

TEST(PackageArchive, DigestInUpperOrMixedCase_Passes) {
    Verdicts verdicts;
    std::wstring& digest = verdicts.package.inventory[0].sha256;
    std::transform(digest.begin(), digest.end(), digest.begin(), [](wchar_t unit) { return std::towupper(unit); });
    EXPECT_EQ(verdicts.Of({kA, kB}), L"");
    std::transform(digest.begin(), digest.begin() + 32, digest.begin(),
                   [](wchar_t unit) { return std::towlower(unit); });
    EXPECT_EQ(verdicts.Of({kA, kB}), L"");
}

TEST(PackageArchive, OtherDigest_FailsAsPayload) {
    Verdicts verdicts;
    const std::wstring right = verdicts.package.inventory[1].sha256;
    for (std::size_t at = 0; at < right.size(); ++at) {
        std::wstring& digest = verdicts.package.inventory[1].sha256;
        digest = right;
        digest[at] = digest[at] == L'0' ? L'1' : L'0';
        EXPECT_EQ(verdicts.Of({kA, kB}), std::wstring(kPayload) + L"deep/b.bin") << at;
    }
    for (const std::wstring& digest : {std::wstring(), right.substr(1), right + L"0"}) {
        verdicts.package.inventory[1].sha256 = digest;
        EXPECT_EQ(verdicts.Of({kA, kB}), std::wstring(kPayload) + L"deep/b.bin") << digest.size();
    }
}

/// Only the inventory counts: what a patch would carry does not.
TEST(PackageArchive, OtherFieldsOfTheDescriptor_AreNotRead) {
    Verdicts verdicts;
    verdicts.package.id = L"..\\x";
    verdicts.package.sha256 = L"00";
    verdicts.package.size = 1;
    verdicts.package.patch.files = {{L"nowhere", L"00", 0x20000000}};
    EXPECT_EQ(verdicts.Of({kA, kB}), L"");
}

/// The reader of manifests refuses such an inventory; here the same entry serves both.
TEST(PackageArchive, PathThatStandsTwice_IsVerifiedTwice) {
    Verdicts verdicts({{L"a.bin", "content of a"}});
    verdicts.package.inventory.push_back(verdicts.package.inventory[0]);
    EXPECT_EQ(verdicts.Of({kA, kManifest}), L"");
    EXPECT_EQ(verdicts.Of({kA}), kEntryCount);
    verdicts.package.inventory[1].size += 1;
    EXPECT_EQ(verdicts.Of({kA, kManifest}), std::wstring(kPayload) + L"a.bin");
    verdicts.package.inventory[1] = DescribeFile(L"A.bin", "content of a");
    EXPECT_EQ(verdicts.Of({kA, kManifest}), std::wstring(kPayload) + L"A.bin");
}

// What is no archive.

TEST(PackageArchive, CutOffAnywhere_CannotBeOpened) {
    Verdicts verdicts;
    const std::string whole = ArchiveBuilder().AddPayload(kContent).Add("runtime-manifest.json", "{}").Finish();
    ASSERT_EQ(verdicts.Of(whole), L"");
    for (std::size_t length = 0; length < whole.size(); ++length)
        ASSERT_EQ(verdicts.Of(std::string_view(whole).substr(0, length)), kCannotOpen) << length;
}

TEST(PackageArchive, FrontCutOffAnywhere_CannotBeOpened) {
    Verdicts verdicts;
    const std::string whole = BuildArchive(kContent);
    for (std::size_t length = 1; length <= whole.size(); ++length)
        ASSERT_EQ(verdicts.Of(std::string_view(whole).substr(length)), kCannotOpen) << length;
}

TEST(PackageArchive, JunkInFront_CannotBeOpened) {
    Verdicts verdicts;
    for (const std::size_t length : {1u, 4u, 512u, 100000u})
        EXPECT_EQ(verdicts.Of(std::string(length, 'x') + BuildArchive(kContent)), kCannotOpen) << length;
}

TEST(PackageArchive, JunkBehind_DoesNotMatter) {
    Verdicts verdicts;
    for (const std::size_t length : {1u, 4u, 512u, 3000u})
        EXPECT_EQ(verdicts.Of(BuildArchive(kContent) + std::string(length, 'x')), L"") << length;
}

TEST(PackageArchive, OtherFiles_CannotBeOpened) {
    Verdicts verdicts;
    for (const std::string& bytes : {std::string(), std::string("PK"), std::string(22, '\0'), std::string(100000, 'P'),
                                     std::string("<html>sign in</html>"), std::string("PK\x05\x06")})
        EXPECT_EQ(verdicts.Of(bytes), kCannotOpen) << bytes.substr(0, 30);
}

TEST(PackageArchive, EndRecordThatClaimsMoreEntries_CannotBeOpened) {
    Verdicts verdicts;
    for (const std::size_t claimed : {3u, 4u, 769u, 65535u})
        EXPECT_EQ(verdicts.Of(RawArchive({kA, kB}, claimed)), kCannotOpen) << claimed;
}

TEST(PackageArchive, MaskedDirectory_CannotBeOpened) {
    Verdicts verdicts;
    EXPECT_EQ(verdicts.Of({kA, Changed(kB, [](RawEntry& entry) { entry.flags = 0x2000; })}), kCannotOpen);
}

/// Any damage in one byte: a message, or the very content, as a second look at it proves.
TEST(PackageArchive, EveryByteTurned_GivesAMessageOrTheVeryContent) {
    Verdicts verdicts;
    const std::string whole = ArchiveBuilder().AddPayload(kContent).Add("runtime-manifest.json", "{}").Finish();
    const std::wstring messages[] = {kCannotOpen,
                                     kEntryCount,
                                     kInvalidEntry,
                                     kInvalidManifest,
                                     kSizeDiffers,
                                     kEntriesDiffer,
                                     std::wstring(kPayload) + L"a.bin",
                                     std::wstring(kPayload) + L"deep/b.bin"};
    std::size_t refused = 0;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const unsigned turned : {0x01u, 0x80u, 0xFFu}) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(static_cast<unsigned char>(damaged[at]) ^ turned);
            const std::wstring message = verdicts.Of(damaged);
            if (!message.empty()) ++refused;
            const bool known = std::find(std::begin(messages), std::end(messages), message) != std::end(messages);
            ASSERT_TRUE(message.empty() || known) << at;
        }
    }
    // The names alone, which stand in the directory as well, have more bytes than may be turned unnoticed elsewhere.
    EXPECT_GT(refused, whole.size());
}

// The file.

TEST(PackageArchive, WhatIsNoFile_CannotBeOpened) {
    const Verdicts verdicts;
    for (const std::wstring& path : {std::wstring(), verdicts.folder / L"missing.vprpack", verdicts.folder.Path(),
                                     verdicts.folder / L"no\\such\\folder.vprpack"}) {
        std::wstring error;
        EXPECT_FALSE(VerifyPackageArchive(path, verdicts.package, error));
        EXPECT_EQ(error, kCannotOpen);
    }
}

/// Under Wine a path without the long form works as well, so the form itself is looked at.
TEST(PackageArchive, IsOpenedForReadingByItsLongForm) {
    Verdicts verdicts;
    std::vector<std::wstring> seen;
    const test_support::StandIn<"_wfopen_s", errno_t(FILE**, const wchar_t*, const wchar_t*)> open(
        [&](FILE** file, const wchar_t* path, const wchar_t* mode) {
            seen.push_back(std::wstring(mode) + L" " + path);
            return decltype(open)::Original(file, path, mode);
        });
    EXPECT_EQ(verdicts.Of({kA, kB}), L"");
    EXPECT_EQ(seen, (std::vector<std::wstring>{L"rb \\\\?\\" + verdicts.path}));
}

TEST(PackageArchive, PathBeyond260UnitsAndAscii_Passes) {
    const TemporaryDirectory folder;
    std::wstring path = folder.Path();
    while (path.size() < 320)
        path += L"\\\u65E5\u672C\u8A9E folder \u00E9 " + std::wstring(40, L'd');
    ASSERT_TRUE(EnsureDirectory(path));
    path += L"\\\u8CC7\u6E90\u5305.vprpack";
    WriteWholeFile(ToPackageLongPath(path), BuildArchive(kContent));
    std::wstring error;
    EXPECT_TRUE(VerifyPackageArchive(path, DescribePackage(L"p", L"1.0.0.0", kContent), error));
    EXPECT_EQ(error, L"");
    EXPECT_TRUE(RemoveTreeNoLinks(folder.Path()));
}

TEST(PackageArchive, ReadOnlyArchive_Passes) {
    const Verdicts verdicts;
    WriteWholeFile(verdicts.path, BuildArchive(kContent));
    ASSERT_TRUE(SetFileAttributesW(verdicts.path.c_str(), FILE_ATTRIBUTE_READONLY));
    std::wstring error;
    EXPECT_TRUE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
}

// Memory. What the program asks of `malloc` passes through its import table.

/// Counts the blocks of one size that are taken and given back, sees whether anything was written behind one, and
/// refuses them if told so. It must not take memory itself, and may be asked from any thread.
class BlocksOf {
  public:
    BlocksOf(std::size_t size, bool refuse)
        : size_(size),
          refuse_(refuse),
          malloc_([this](std::size_t bytes) { return Take(bytes); }),
          free_([this](void* block) { Give(block); }) {}

    [[nodiscard]] int Taken() const { return taken_; }
    [[nodiscard]] int Held() const { return held_; }
    [[nodiscard]] int MostHeld() const { return mostHeld_; }
    [[nodiscard]] bool Overrun() const { return overrun_; }

  private:
    void* Take(std::size_t bytes) {
        if (bytes != size_) return decltype(malloc_)::Original(bytes);
        ++taken_;
        if (refuse_) return nullptr;
        void* const block = decltype(malloc_)::Original(bytes + std::size_t{kGuardBytes});
        std::memset(static_cast<char*>(block) + bytes, kGuard, std::size_t{kGuardBytes});
        for (std::atomic<void*>& place : blocks_) {
            void* none = nullptr;
            if (place.compare_exchange_strong(none, block)) break;
        }
        mostHeld_ = std::max<int>(mostHeld_, ++held_);
        return block;
    }
    void Give(void* block) {
        for (std::atomic<void*>& place : blocks_) {
            void* same = block;
            if (block == nullptr || !place.compare_exchange_strong(same, nullptr)) continue;
            --held_;
            const char* const behind = static_cast<char*>(block) + size_;
            if (std::count(behind, behind + kGuardBytes, kGuard) != kGuardBytes) overrun_ = true;
        }
        decltype(free_)::Original(block);
    }

    static constexpr char kGuard = 0x5A;
    static constexpr std::ptrdiff_t kGuardBytes = 1 << 18;

    std::size_t size_;
    bool refuse_;
    std::atomic<bool> overrun_ = false;
    std::atomic<int> taken_ = 0;
    std::atomic<int> held_ = 0;
    std::atomic<int> mostHeld_ = 0;
    std::atomic<void*> blocks_[16] = {};
    test_support::StandIn<"malloc", void*(std::size_t)> malloc_;
    test_support::StandIn<"free", void(void*)> free_;
};

constexpr std::size_t kOddSize = 123457;  // nothing else has it

PackageContent ThreeOfTheOddSize() {
    const std::string bytes = Bytes(kOddSize);
    return {{L"1.bin", bytes}, {L"2.bin", bytes}, {L"3.bin", bytes}};
}

TEST(PackageArchiveMemory, OneFileAtATime_InExactlyItsSize) {
    const PackageContent content = ThreeOfTheOddSize();
    const Verdicts verdicts(content);
    WriteWholeFile(verdicts.path, BuildArchive(content));
    std::wstring error;
    const BlocksOf blocks(kOddSize, false);
    EXPECT_TRUE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
    EXPECT_EQ(blocks.Taken(), 3);
    EXPECT_EQ(blocks.Held(), 0);
    EXPECT_EQ(blocks.MostHeld(), 1);
}

TEST(PackageArchiveMemory, NoMemoryForAFile_FailsAsItsPayload) {
    const PackageContent content = {{L"1.bin", "x"}, {L"2.bin", Bytes(kOddSize)}};
    const Verdicts verdicts(content);
    WriteWholeFile(verdicts.path, BuildArchive(content));
    std::wstring error;
    {
        const BlocksOf blocks(kOddSize, true);
        EXPECT_FALSE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
        EXPECT_EQ(blocks.Taken(), 1);
    }
    EXPECT_EQ(error, std::wstring(kPayload) + L"2.bin");
    EXPECT_TRUE(DeleteFileW(verdicts.path.c_str()));
}

/// An archive of the wrong shape costs no unpacking, wherever in the directory its fault stands.
TEST(PackageArchiveMemory, WrongShape_UnpacksNothing) {
    const PackageContent content = ThreeOfTheOddSize();
    const Verdicts verdicts(content);
    for (const char* last : {"payload/4.bin", "payload/", "payload/3.BIN", "payload/\xFF"}) {
        WriteWholeFile(verdicts.path, ArchiveBuilder().AddPayload(content).Add(last, "").Finish());
        std::wstring error;
        const BlocksOf blocks(kOddSize, false);
        EXPECT_FALSE(VerifyPackageArchive(verdicts.path, verdicts.package, error)) << last;
        EXPECT_EQ(blocks.Taken(), 0) << last;
    }
}

/// The inventory's size is what is taken, not the one that the archive claims.
TEST(PackageArchiveMemory, ClaimedSize_IsNeverTaken) {
    Verdicts verdicts;
    const RawEntry b = Changed(Deflated(kB.name, kB.packed), [](RawEntry& entry) { entry.unpackedSize = kOddSize; });
    WriteWholeFile(verdicts.path, RawArchive({kA, b}));
    std::wstring error;
    const BlocksOf blocks(kOddSize, false);
    EXPECT_FALSE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
    PackageArchive archive;
    ASSERT_TRUE(archive.Open(verdicts.path));
    PackageArchive::Bytes bytes;
    EXPECT_FALSE(archive.ExtractVerified(verdicts.package.inventory[1], bytes));
    EXPECT_EQ(blocks.Taken(), 0);
}

TEST(PackageArchiveMemory, FailingHash_FailsAsPayloadAndGivesTheBlockBack) {
    const PackageContent content = {{L"1.bin", Bytes(kOddSize)}};
    Verdicts verdicts(content);
    WriteWholeFile(verdicts.path, BuildArchive(content));
    const test_support::StandIn<"BCryptFinishHash", LONG(void*, unsigned char*, ULONG, ULONG)> finish(
        [](auto...) { return LONG{-1}; });
    // The digest that was not made is no digest, not even an empty one.
    for (const std::wstring& digest : {verdicts.package.inventory[0].sha256, std::wstring()}) {
        verdicts.package.inventory[0].sha256 = digest;
        std::wstring error;
        const BlocksOf blocks(kOddSize, false);
        EXPECT_FALSE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
        EXPECT_EQ(blocks.Taken(), 1);
        EXPECT_EQ(blocks.Held(), 0);
        EXPECT_EQ(error, std::wstring(kPayload) + L"1.bin");
    }
}

/// The directory tells the inventory's size, and there is more than that.
TEST(PackageArchiveMemory, MoreDataThanTold_StaysInsideItsBlock) {
    const std::string longer = Bytes(kOddSize + 200000);
    const Verdicts verdicts({{L"1.bin", longer.substr(0, kOddSize)}});
    for (const auto method : {ArchiveBuilder::Method::stored, ArchiveBuilder::Method::deflated}) {
        std::string archive = ArchiveBuilder().Add("payload/1.bin", longer, method).Finish();
        const std::size_t entry = archive.rfind("PK\x01\x02");
        ASSERT_NE(entry, std::string::npos);
        archive[entry + 12] = 1;  // the time of day: a stored entry of none would be refused for its two sizes
        std::string size;
        Append(size, kOddSize, 4);
        archive.replace(entry + 24, 4, size);
        WriteWholeFile(verdicts.path, archive);
        std::wstring error;
        const BlocksOf blocks(kOddSize, false);
        EXPECT_FALSE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
        EXPECT_EQ(error, std::wstring(kPayload) + L"1.bin");
        EXPECT_EQ(blocks.Taken(), 1);
        EXPECT_EQ(blocks.Held(), 0);
        EXPECT_FALSE(blocks.Overrun());
    }
}

/// Some allocators have no block of no bytes.
TEST(PackageArchiveMemory, EmptyFile_NeedsNoBlockOfNoBytes) {
    const PackageContent content = {{L"empty", ""}};
    const Verdicts verdicts(content);
    WriteWholeFile(verdicts.path, BuildArchive(content));
    std::wstring error;
    const BlocksOf blocks(0, true);
    EXPECT_TRUE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
}

TEST(PackageArchiveMemory, EveryFailure_GivesAllBlocksBack) {
    const std::string bytes = Bytes(kOddSize);
    const PackageContent content = {{L"1.bin", bytes}, {L"2.bin", bytes}};
    const Verdicts verdicts(content);
    std::string other = bytes;
    other.back() = static_cast<char>(other.back() ^ 1);
    WriteWholeFile(verdicts.path, ArchiveBuilder().Add("payload/1.bin", bytes).Add("payload/2.bin", other).Finish());
    std::wstring error;
    const BlocksOf blocks(kOddSize, false);
    EXPECT_FALSE(VerifyPackageArchive(verdicts.path, verdicts.package, error));
    EXPECT_EQ(blocks.Taken(), 2);
    EXPECT_EQ(blocks.Held(), 0);
}

// One open archive.

std::string Text(const PackageArchive::Bytes& bytes) {
    return {static_cast<const char*>(bytes.Data()), bytes.Length()};
}

TEST(OpenPackageArchive, FilesAreUnpackedInAnyOrderAndAgain) {
    const Verdicts verdicts;
    WriteWholeFile(verdicts.path, BuildArchive(kContent));
    PackageArchive archive;
    ASSERT_TRUE(archive.Open(verdicts.path));
    PackageArchive::Bytes bytes;
    for (const std::size_t at : {1u, 0u, 1u}) {
        const PackageFileDescriptor& file = verdicts.package.inventory[at];
        ASSERT_TRUE(archive.ExtractVerified(file, bytes));
        EXPECT_EQ(Text(bytes), kContent.at(file.path));
    }
}

TEST(OpenPackageArchive, FailedUnpacking_LeavesNothingInTheBytes) {
    const Verdicts verdicts;
    WriteWholeFile(verdicts.path, BuildArchive(kContent));
    PackageArchive archive;
    ASSERT_TRUE(archive.Open(verdicts.path));
    const PackageFileDescriptor& good = verdicts.package.inventory[0];
    PackageFileDescriptor wrongSize = good;
    wrongSize.size += 1;
    PackageFileDescriptor wrongDigest = good;
    wrongDigest.sha256[0] = wrongDigest.sha256[0] == L'0' ? L'1' : L'0';
    const PackageFileDescriptor missing = DescribeFile(L"missing", "x");
    const PackageFileDescriptor otherCase = DescribeFile(L"A.bin", "content of a");
    const PackageFileDescriptor partOfTheName = DescribeFile(L"a.bi", "content of a");
    const PackageFileDescriptor noName = DescribeFile(L"", "content of a");
    const PackageFileDescriptor endless = DescribeFile(std::wstring(65536, L'n'), "content of a");
    for (const PackageFileDescriptor& file :
         {wrongSize, wrongDigest, missing, otherCase, partOfTheName, noName, endless}) {
        PackageArchive::Bytes bytes;
        ASSERT_TRUE(archive.ExtractVerified(good, bytes));
        EXPECT_FALSE(archive.ExtractVerified(file, bytes));
        EXPECT_EQ(bytes.Data(), nullptr);
        EXPECT_EQ(bytes.Length(), 0u);
    }
}

/// The first of two entries of one name is the one that counts.
TEST(OpenPackageArchive, FirstOfTwinEntries_IsFound) {
    const Verdicts verdicts;
    WriteWholeFile(verdicts.path, RawArchive({Stored("payload/x", "one"), Stored("payload/x", "two")}));
    PackageArchive archive;
    ASSERT_TRUE(archive.Open(verdicts.path));
    PackageArchive::Bytes bytes;
    EXPECT_TRUE(archive.ExtractVerified(DescribeFile(L"x", "one"), bytes));
    EXPECT_FALSE(archive.ExtractVerified(DescribeFile(L"x", "two"), bytes));
}

TEST(OpenPackageArchive, ThatCouldNotBeOpened_HoldsNothing) {
    PackageArchive never;
    PackageArchive failed;
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"x", "no archive");
    EXPECT_FALSE(failed.Open(folder / L"x"));
    PackageArchive::Bytes bytes;
    EXPECT_FALSE(never.ExtractVerified(DescribeFile(L"x", "x"), bytes));
    EXPECT_FALSE(failed.ExtractVerified(DescribeFile(L"x", "x"), bytes));
}

TEST(OpenPackageArchive, IsClosedWithTheObject) {
    const Verdicts verdicts;
    WriteWholeFile(verdicts.path, BuildArchive(kContent));
    PackageArchive::Bytes bytes;
    {
        PackageArchive archive;
        ASSERT_TRUE(archive.Open(verdicts.path));
        ASSERT_TRUE(archive.ExtractVerified(verdicts.package.inventory[0], bytes));
        EXPECT_FALSE(DeleteFileW(verdicts.path.c_str()));
    }
    EXPECT_TRUE(DeleteFileW(verdicts.path.c_str()));
    EXPECT_EQ(Text(bytes), "content of a");  // unpacked bytes stand on their own
}

// The digest follows the unpacking on another thread, and the block of a refused entry is given back at once.

TEST(PackageArchive, RefusedEntry_IsNotReadAnyMoreByTheThreadThatHashesIt) {
    using OnHash = test_support::StandIn<"BCryptHashData", decltype(BCryptHashData)>;
    const TemporaryDirectory folder;
    const std::string content(4u << 20, 'x');
    std::string archive = BuildArchive({{L"a", content}});
    archive[archive.rfind("PK\1\2") + 16] ^= 1;  // its CRC, so that it is refused when all of it has been unpacked
    WriteWholeFile(folder / L"archive", archive);
    PackageArchive opened;
    ASSERT_TRUE(opened.Open(folder / L"archive"));
    const DWORD mine = GetCurrentThreadId();
    const platform::KernelHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<int> reading{0};
    std::atomic<int> calls{0};
    const OnHash linger([&](BCRYPT_HASH_HANDLE hash, PUCHAR data, ULONG length, ULONG flags) {
        if (GetCurrentThreadId() == mine) return OnHash::Original(hash, data, length, flags);
        ++reading;
        ++calls;
        WaitForSingleObject(never.Get(), 300);  // long enough that whoever does not wait is gone by then
        const NTSTATUS status = OnHash::Original(hash, data, length, flags);
        --reading;
        return status;
    });
    PackageArchive::Bytes bytes;
    // Again, should the unpacking be over before the thread has had a turn.
    for (int attempt = 0; attempt < 100 && calls == 0; ++attempt) {
        EXPECT_FALSE(opened.ExtractVerified(DescribeFile(L"a", content), bytes));
        EXPECT_EQ(reading, 0);
    }
    EXPECT_GT(calls, 0);
}

}  // namespace
}  // namespace launcher_update
