#pragma once

/// The shape of a package archive (`.vprpack`), judged from its directory before a single byte is unpacked.
///
/// An archive is a ZIP file. Each file of the inventory lies at "payload/" and its inventory path; one further entry,
/// "runtime-manifest.json" in any case, may stand at the root and is not read. There is nothing else: no folders, no
/// other file. The ceilings come from the inventory, never from what the archive says of itself.
///
/// Pure; any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

inline constexpr std::uint64_t kMaxRuntimeManifestBytes = 0x80000;  // 1 byte to this; it is never read

/// One entry of the archive's directory. A directory that cannot be read to its end gives an unreadable entry.
struct ArchiveEntry {
    bool readable = false;
    bool isDirectory = false;
    std::string name;  // as stored, neither decoded nor cut
    std::uint64_t unpackedSize = 0;
};

/// Where a file of the inventory lies in the archive, as the bytes of its entry's name.
[[nodiscard]] std::string PayloadEntryName(const PackageFileDescriptor& file);

/// The verdicts: null when the archive passes, otherwise the message for the user. They are asked in this order.

[[nodiscard]] const wchar_t* JudgeInventoryCount(std::size_t files);

[[nodiscard]] const wchar_t* JudgeEntryCount(std::size_t files, std::size_t entries);

/// The inventory's total size, then every entry's name, kind and size, then that nothing is missing.
[[nodiscard]] const wchar_t* JudgeArchiveShape(const std::vector<PackageFileDescriptor>& inventory,
                                               const std::vector<ArchiveEntry>& entries);

}  // namespace launcher_update
