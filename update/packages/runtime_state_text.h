#pragma once

/// The Runtime folder's `current.json`, which names the version in use of each package. Its exact bytes matter: the
/// state is compared with a fresh rendering, so the order of the list and every blank count.
///
///     {
///       "schemaVersion": 1,
///       "packages": [
///         {"id": "uvr-mdx", "version": "1.0.0.0", "path": "packs/uvr-mdx/1.0.0.0", "capability": "uvr-mdx",
///          "requiredForStartup": true}                                 (one line per package)
///       ]
///     }
///
/// Pure; any thread.

#include <string>
#include <vector>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// UTF-8 without mark, line feeds. In id, version and capability a quote and a backslash get a backslash in front;
/// nothing else is escaped.
[[nodiscard]] std::string RenderRuntimeState(const std::vector<PackageDescriptor>& packages);

}  // namespace launcher_update
