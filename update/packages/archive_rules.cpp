#include "update/packages/archive_rules.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "platform/text.h"

namespace launcher_update {
namespace {

constexpr wchar_t kInventoryCount[] = L"資源包 inventory 數量不正確。";
constexpr wchar_t kEntryCount[] = L"資源包內容與 inventory 數量不符。";
constexpr wchar_t kUnpackedTooLarge[] = L"資源包解壓後大小超過限制。";
constexpr wchar_t kInvalidEntry[] = L"資源包包含無效或重複的 ZIP 項目。";
constexpr wchar_t kInvalidRuntimeManifest[] = L"資源包包含無效的 Runtime manifest。";
constexpr wchar_t kSizeDiffers[] = L"資源包 ZIP 項目的解壓大小與 inventory 不符。";
constexpr wchar_t kEntriesDiffer[] = L"資源包 ZIP 項目與 inventory 不符。";

constexpr wchar_t kPayloadPrefix[] = L"payload/";
constexpr wchar_t kRuntimeManifest[] = L"runtime-manifest.json";

/// Names in lower case, with the sizes that the inventory gives them.
using ExpectedSizes = std::map<std::wstring, std::uint64_t>;

const wchar_t* CollectExpected(const std::vector<PackageFileDescriptor>& inventory, ExpectedSizes& expected) {
    std::uint64_t total = 0;
    for (const PackageFileDescriptor& file : inventory) {
        if (file.size > kMaxPackageBytes || total > kMaxPackageBytes - file.size) return kUnpackedTooLarge;
        total += file.size;
        expected.emplace(platform::ToLower(kPayloadPrefix + file.path), file.size);  // the first of two twins counts
    }
    return nullptr;
}

/// What has been met while walking over the entries.
struct Walk {
    const ExpectedSizes& expected;
    std::set<std::wstring> seen;  // payload entries, in lower case
    bool manifestSeen = false;

    const wchar_t* Judge(const ArchiveEntry& entry) {
        if (!entry.readable || entry.isDirectory) return kInvalidEntry;
        const std::optional<std::wstring> name = platform::DecodeUtf8(entry.name);
        if (!name || name->empty()) return kInvalidEntry;
        const auto [place, isNew] = seen.insert(platform::ToLower(*name));
        if (!isNew) return kInvalidEntry;
        if (platform::EqualsIgnoringCase(*name, kRuntimeManifest)) {
            seen.erase(place);  // it is no payload
            return JudgeRuntimeManifest(entry);
        }
        const auto wanted = expected.find(*place);
        return wanted != expected.end() && wanted->second == entry.unpackedSize ? nullptr : kSizeDiffers;
    }

    const wchar_t* JudgeRuntimeManifest(const ArchiveEntry& entry) {
        const bool sizeFits = entry.unpackedSize >= 1 && entry.unpackedSize <= kMaxRuntimeManifestBytes;
        if (manifestSeen || !sizeFits) return kInvalidRuntimeManifest;
        manifestSeen = true;
        return nullptr;
    }

    /// Every name that was seen is an expected one, so that equal numbers mean equal sets.
    [[nodiscard]] bool NothingMissing() const { return seen.size() == expected.size(); }
};

}  // namespace

std::string PayloadEntryName(const PackageFileDescriptor& file) {
    return platform::EncodeUtf8(kPayloadPrefix + file.path);
}

const wchar_t* JudgeInventoryCount(std::size_t files) {
    return files >= 1 && files <= kMaxInventoryEntries ? nullptr : kInventoryCount;
}

const wchar_t* JudgeEntryCount(std::size_t files, std::size_t entries) {
    return entries == files || entries == files + 1 ? nullptr : kEntryCount;
}

const wchar_t* JudgeArchiveShape(const std::vector<PackageFileDescriptor>& inventory,
                                 const std::vector<ArchiveEntry>& entries) {
    ExpectedSizes expected;
    if (const wchar_t* message = CollectExpected(inventory, expected)) return message;
    Walk walk{expected, {}, false};
    for (const ArchiveEntry& entry : entries) {
        if (const wchar_t* message = walk.Judge(entry)) return message;
    }
    const bool extraIsManifest = entries.size() == inventory.size() || walk.manifestSeen;
    return walk.NothingMissing() && extraIsManifest ? nullptr : kEntriesDiffer;
}

}  // namespace launcher_update
