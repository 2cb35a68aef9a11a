#pragma once

/// Which files a layout must contain, by name and size. Pure; any thread.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "update/installed/layout.h"
#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// Sizes by key: the path relative to the root, with backslashes, in lower case; in code-unit order.
using ExpectedFiles = std::map<std::wstring, std::uint64_t>;

/// Adds one path. One that is there already with the same size counts once; with another size, or an unsafe path, the
/// answer is false.
[[nodiscard]] bool AddExpectedFile(ExpectedFiles& files, std::wstring_view path, std::uint64_t size);

/// All files of the manifest and, in the given layout, of its packages. False when the layout cannot hold a package, or
/// two claims about one path disagree.
[[nodiscard]] bool CollectExpectedInventory(const std::wstring& applicationDirectory, const UpdateManifest& manifest,
                                            InstalledLayout layout, ExpectedFiles& files);

}  // namespace launcher_update
