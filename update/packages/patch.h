#pragma once

/// Patches: an archive with only the files that changed since a base version, the others being copied from the base.
/// There is no difference inside a file. The outcome is an ordinary version folder (`InstallPackagePatchInactive` in
/// `install.h`).

#include <string>

#include "update/manifest/update_manifest.h"
#include "update/packages/validation.h"

namespace launcher_update {

/// Whether the patch archive holds this file; exact comparison of paths. Pure.
[[nodiscard]] bool PatchCarries(const PackageDescriptor& descriptor, const PackageFileDescriptor& file);

/// True when `baseFolder` holds every file that the patch does not carry, unchanged and behind no link. Files that the
/// patch replaces are not looked at, nor is what else lies there. A package without a patch matches nothing.
[[nodiscard]] bool PackagePatchBaseMatches(const std::wstring& baseFolder, const PackageDescriptor& descriptor,
                                           const FileProgress& progress = {});

}  // namespace launcher_update
