#pragma once

/// One manifest entry becomes one verified file in the staging folder. A file in staging has passed everything; nothing
/// looks at a download's result again.

#include <cstdint>
#include <functional>
#include <string>

#include "update/manifest/update_manifest.h"
#include "update/settings.h"

namespace launcher_update {

/// When and for how long the engine measures a payload's source before it may look at the other one, in milliseconds.
inline constexpr std::uint64_t kComparisonDelayMs = 10000;
inline constexpr std::uint64_t kComparisonWindowMs = 10000;

/// What a transfer is told about the run around it.
struct PayloadContext {
    const Settings& settings;
    bool verificationMode = false;
    std::wstring cacheDirectory;
    std::uint64_t completedBytes = 0;  // of the payloads before this one
    std::uint64_t totalBytes = 0;      // of all payloads
    std::function<void(std::uint64_t bytes, std::uint64_t total)> onProgress;
    std::function<void()> onVerifying;
};

/// What the payload behind `url` is, for the download trace: by the first match of fixed words inside the URL. Pure.
[[nodiscard]] std::uint32_t ClassifyPayload(std::wstring_view url);

/// Downloads one payload through the engine's cache and copies it to `target`, which must not exist. The cache keeps
/// its copy. False with a message; the message stays empty when the user cancelled.
[[nodiscard]] bool FetchPayload(const std::wstring& url, std::uint64_t size, const std::wstring& sha256,
                                const std::wstring& target, const PayloadContext& context, std::wstring& error);

/// `FetchPayload`, then a second digest over the staged copy: the engine judged its cache file, not this one. False
/// with a message; a cancel is told from a failure by asking `shouldCancel`.
[[nodiscard]] bool FetchVerifiedFile(const ManifestFileEntry& entry, const std::wstring& target,
                                     const PayloadContext& context, std::wstring& error);

/// The same for a package archive, whose content is then verified against `descriptor.inventory` as well.
[[nodiscard]] bool FetchVerifiedPackage(const PackageDescriptor& descriptor, const std::wstring& target,
                                        const PayloadContext& context, std::wstring& error);

}  // namespace launcher_update
