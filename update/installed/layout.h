#pragma once

/// The three shapes of an installation, and whether one of them holds. Nothing is changed and no lock is taken; every
/// answer is true or false, and a false leads to an installation. The update worker's thread.
///
/// Packages that the launcher manages lie in `Runtime\packs`, and the Runtime's `current.json` selects them. Where the
/// application was unpacked as a portable folder, the same files lie in the portable homes of their packages and there
/// is no such state. For a manifest without packages only its files count.

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "update/packages/validation.h"
#include "update/settings.h"

namespace launcher_update {

enum class InstalledLayout : std::uint32_t {
    files = 0,      // the manifest has no packages
    activated = 1,  // Runtime\packs, selected by the Runtime state
    portable = 2,   // in the application's folder, without a Runtime state
};

/// "files", "activated" or "portable". Pure.
[[nodiscard]] std::wstring_view LayoutText(InstalledLayout layout);

/// The layout of that text. Pure.
[[nodiscard]] std::optional<InstalledLayout> ParseLayoutText(std::wstring_view text);

/// Where a package lies in a portable installation, relative to the application's folder: empty for that folder
/// itself. Nothing for a package that cannot be portable. Only packages whose id and capability both are the name of a
/// home have one. Pure.
[[nodiscard]] std::optional<std::wstring_view> PortableHome(const PackageDescriptor& package);

/// The folder `PortableHome` of one application's folder. Pure.
[[nodiscard]] std::optional<std::wstring> PortableHomeFolder(const std::wstring& applicationRoot,
                                                             const PackageDescriptor& package);

/// The application's folder and the Runtime folder in it. Pure.
[[nodiscard]] std::wstring ApplicationRoot(const std::wstring& root, const Settings& settings);
[[nodiscard]] std::wstring RuntimeFolder(const std::wstring& applicationRoot);

/// True when the layout is known.
[[nodiscard]] bool DetectInstalledLayout(const std::wstring& root, const Settings& settings,
                                         const UpdateManifest& manifest, InstalledLayout& layout);

/// True when a `Runtime` folder is missing or real, and no state stands in it.
[[nodiscard]] bool IsPortableLayout(const std::wstring& applicationRoot);

/// True when every file of every package lies in its portable home with its size and SHA-256, and no Runtime state
/// exists. Other files in these folders do not matter.
[[nodiscard]] bool PortablePackageSetMatches(const std::wstring& applicationRoot,
                                             const std::vector<PackageDescriptor>& packages,
                                             const SetProgress& progress = {});

/// True when every version folder holds the files of its inventory by name and nothing else. Reads no content.
[[nodiscard]] bool ActivatedPackageFoldersExact(const std::wstring& applicationRoot,
                                                const std::vector<PackageDescriptor>& packages);

/// Every file below `current` as its key relative to `base`, which is it or lies above it: backslashes, lower case.
/// False when `current` is no real folder, for a link of any kind below, or a listing that breaks off.
[[nodiscard]] bool ListFilesUnder(const std::wstring& base, const std::wstring& current, std::set<std::wstring>& keys);

}  // namespace launcher_update
