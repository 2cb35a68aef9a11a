#pragma once

/// The record of a full verification and the text that stands for the identities of the verified files. Pure; any
/// thread.
///
/// `verified-inventory-v1.txt`, plain bytes without mark, five lines each ended by one line feed:
///
///     VPR_VERIFIED_INVENTORY_V1
///     manifest=<SHA-256 of the manifest as received>
///     layout=files|activated|portable
///     verified=<seconds since 1970>
///     inventory=<SHA-256 of the identities' text>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "update/installed/layout.h"

namespace launcher_update {

inline constexpr std::size_t kMaxVerifiedInventoryBytes = 1024;
inline constexpr std::int64_t kVerifiedInventorySeconds = 86400;  // a record counts for less than this

/// What the file system says of one opened file. A copy of the file has another identifier.
struct FileIdentity {
    std::int64_t lastWriteTime = 0;  // 100-nanosecond ticks of the file system
    std::int64_t changeTime = 0;
    std::uint64_t volumeSerialNumber = 0;
    std::array<std::uint8_t, 16> fileId{};
};

/// Six lines: key, size, both times, volume, identifier in lower-case hexadecimal.
void AppendFileIdentity(std::wstring& text, std::wstring_view key, std::uint64_t size, const FileIdentity& identity);

/// The record's text.
[[nodiscard]] std::wstring RenderVerifiedInventory(std::wstring_view manifestDigest, InstalledLayout layout,
                                                   std::int64_t verifiedTime, std::wstring_view inventoryDigest);

/// Reads a record as strictly as it is written: both digests in lower case, a known layout, nothing behind the fifth
/// line. On false the outputs are unspecified.
[[nodiscard]] bool ParseVerifiedInventory(std::string_view bytes, std::wstring& manifestDigest,
                                          std::wstring& layoutText, std::int64_t& verifiedTime,
                                          std::wstring& inventoryDigest);

/// Whether a verification at `verifiedTime` still counts `now`; both in seconds since 1970.
[[nodiscard]] constexpr bool VerificationIsRecent(std::int64_t verifiedTime, std::int64_t now) {
    return now >= 0 && verifiedTime >= 0 && verifiedTime <= now && now - verifiedTime < kVerifiedInventorySeconds;
}

}  // namespace launcher_update
