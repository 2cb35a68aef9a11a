#pragma once

/// Where packages lie. `root` is the Runtime folder. Pure; any thread.

#include <string>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// The folder of all versions of one package: `<root>\packs\<id>`.
[[nodiscard]] std::wstring PackageRoot(const std::wstring& root, const PackageDescriptor& package);

/// The folder of its one version: `<root>\packs\<id>\<version>`.
[[nodiscard]] std::wstring VersionFolder(const std::wstring& root, const PackageDescriptor& package);

/// Where one file of an inventory lies below a folder.
[[nodiscard]] std::wstring PackageFilePath(const std::wstring& folder, const PackageFileDescriptor& file);

}  // namespace launcher_update
