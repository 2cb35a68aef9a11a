// Throws any inventory with any directory of an archive at the judges of its shape. What they let pass and what they
// refuse is written down a second time here, as properties of the whole rather than as a walk.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"
#include "tests/fuzz/require.h"
#include "update/packages/archive_rules.h"

using namespace launcher_update;

namespace {

/// Sizes on both sides of every limit.
constexpr std::uint64_t kSizes[] = {0,          1,          2,          0x7FFFF,     0x80000,
                                    0x80001,    0x8000000,  0xFFFFFFF,  0x10000000,  0x17FFFFFF,
                                    0x18000000, 0x18000001, 0xFFFFFFFF, 0x100000001, 0xFFFFFFFFFFFFFFFF};
constexpr const char* kStarts[] = {"", "payload/", "Payload/", "runtime-manifest.json", "Runtime-Manifest.JSON"};

/// Records of a kind, a size, a length and that many bytes of a name.
class Records {
  public:
    Records(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
    unsigned Byte() {
        if (rest_.empty()) return 0;
        const auto byte = static_cast<unsigned char>(rest_.front());
        rest_.remove_prefix(1);
        return byte;
    }
    std::uint64_t Size() { return kSizes[Byte() % std::size(kSizes)]; }
    std::string Name() {
        const std::size_t length = std::min<std::size_t>(Byte() % 16, rest_.size());
        const std::string name(rest_.substr(0, length));
        rest_.remove_prefix(length);
        return name;
    }

  private:
    std::string_view rest_;
};

using Keys = std::vector<std::wstring>;

bool Contains(const Keys& keys, const std::wstring& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

bool IsGood(const std::vector<PackageFileDescriptor>& inventory, const std::vector<ArchiveEntry>& entries) {
    std::uint64_t total = 0;
    Keys wanted;
    for (const PackageFileDescriptor& file : inventory) {
        if (file.size > 0x18000000 || (total += file.size) > 0x18000000) return false;
        wanted.push_back(platform::ToLower(L"payload/" + file.path));
    }
    Keys found;
    for (const ArchiveEntry& entry : entries) {
        const auto name = platform::DecodeUtf8(entry.name);
        if (!entry.readable || entry.isDirectory || !name || name->empty()) return false;
        const std::wstring key = platform::ToLower(*name);
        if (Contains(found, key)) return false;
        found.push_back(key);
        if (key == L"runtime-manifest.json") {
            if (entry.unpackedSize == 0 || entry.unpackedSize > 0x80000) return false;
            continue;
        }
        const auto file = std::find(wanted.begin(), wanted.end(), key);
        if (file == wanted.end()) return false;
        if (inventory[static_cast<std::size_t>(file - wanted.begin())].size != entry.unpackedSize) return false;
    }
    const bool allThere =
        std::all_of(wanted.begin(), wanted.end(), [&](const auto& key) { return Contains(found, key); });
    return allThere && (entries.size() == inventory.size() || Contains(found, L"runtime-manifest.json"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Records records(data, size);
    std::vector<PackageFileDescriptor> inventory;
    std::vector<ArchiveEntry> entries;
    while (!records.AtEnd()) {
        const unsigned kind = records.Byte();
        const std::uint64_t bytes = records.Size();
        const std::string name = records.Name();
        if (kind % 3 != 2) {
            // A file, and mostly the entry that fits it.
            const auto path = platform::DecodeUtf8(name);
            if (path) inventory.push_back({*path, {}, bytes});
            if (kind % 3 == 0) entries.push_back({true, false, "payload/" + name, bytes});
        } else {
            entries.push_back({kind<250, kind> 240, kStarts[kind / 3 % std::size(kStarts)] + name, bytes});
        }
    }
    const bool counted = JudgeInventoryCount(inventory.size()) == nullptr &&
                         JudgeEntryCount(inventory.size(), entries.size()) == nullptr;
    VPR_REQUIRE(counted == (!inventory.empty() && inventory.size() <= 768 &&
                            (entries.size() == inventory.size() || entries.size() == inventory.size() + 1)));
    if (!counted) return 0;
    VPR_REQUIRE((JudgeArchiveShape(inventory, entries) == nullptr) == IsGood(inventory, entries));
    return 0;
}
