#pragma once

/// The edge of release identity and watermark (`manifest/release_identity.h` holds the rules). The worker's thread.

#include <string>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// The release's identity, lower-case hexadecimal. False only if hashing fails.
[[nodiscard]] bool ComputeReleaseIdentity(const UpdateManifest& manifest, std::wstring& identity);

/// Holds a release against the highest one ever seen and raises that mark. Makes the control directory. False with a
/// message; nothing but the watermark file is ever touched.
[[nodiscard]] bool CheckReleaseWatermark(const std::wstring& controlDirectory, const UpdateManifest& manifest,
                                         const std::wstring& identity, bool fromBackup, std::wstring& error);

}  // namespace launcher_update
