#pragma once

/// Which package versions are in use. Writing `<root>\current.json` is the single act that activates a set; as one
/// atomic replacement it shows the whole old set or the whole new one. `root` is the Runtime folder. It is not the
/// launcher's own `current.json`. Under the update lock, with the application not running; the update worker's thread.

#include <string>
#include <vector>

#include "update/manifest/update_manifest.h"
#include "update/packages/runtime_state_text.h"

namespace launcher_update {

/// Where the state of the Runtime folder stands.
[[nodiscard]] std::wstring RuntimeStatePath(const std::wstring& root);

/// True for an empty list; otherwise when the file's bytes are exactly the rendering of `packages`.
[[nodiscard]] bool RuntimeStateMatches(const std::wstring& root, const std::vector<PackageDescriptor>& packages);

/// Validates every version folder, then names them all, then reads back what was written; what does not read back is
/// taken back. False with a message. A set with one damaged member is never named.
[[nodiscard]] bool ActivatePackageSet(const std::wstring& root, const std::vector<PackageDescriptor>& packages,
                                      std::wstring& error);

/// Keeps, per package, the active version and the highest of the others, and removes the other versions. Stops at the
/// first failure, with a message; what was not reached stays.
[[nodiscard]] bool PruneOldPackageVersions(const std::wstring& root, const std::vector<PackageDescriptor>& packages,
                                           std::wstring& error);

/// The whole file, at most 0x40000 bytes, empty or not.
[[nodiscard]] bool ReadStateBytes(const std::wstring& path, std::string& bytes);

}  // namespace launcher_update
