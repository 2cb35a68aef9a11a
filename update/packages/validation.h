#pragma once

/// Is a folder exactly the version that an inventory describes? The same files and nothing more, no link in the tree,
/// every size and every SHA-256. Cheap before dear: names, then sizes, then bytes. Nothing on disk is changed; a file
/// that changes while it is read is judged by its digest. Memory is constant. Any thread; progress comes on the
/// caller's.

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "update/manifest/update_manifest.h"
#include "update/packages/package_paths.h"

namespace launcher_update {

/// Bytes read so far of one file of a package: 0 before its first read. May be empty.
using FileProgress = std::function<void(const PackageFileDescriptor&, std::uint64_t)>;

/// The same over several packages.
using SetProgress = std::function<void(const PackageDescriptor&, const PackageFileDescriptor&, std::uint64_t)>;

/// Every file below `directory` as its path relative to `folder`, which is it or lies above it: lower case, forward
/// slashes; folders do not appear. False for a link of any kind, a name that occurs twice, or a listing that breaks
/// off.
[[nodiscard]] bool ListPackageFiles(const std::wstring& folder, const std::wstring& directory,
                                    std::set<std::wstring>& files);

/// True when the file below `folder` has its size and its SHA-256. A wrong size costs no reading.
[[nodiscard]] bool PackageFileMatches(const std::wstring& folder, const PackageFileDescriptor& file,
                                      const FileProgress& progress);

/// False with a message.
[[nodiscard]] bool ValidateInstalledPackage(const std::wstring& folder, const PackageDescriptor& descriptor,
                                            std::wstring& error, const FileProgress& progress = {});

/// True when the Runtime state names exactly these packages and every one of them validates. An empty list is active
/// whatever the state holds.
[[nodiscard]] bool PackageSetIsActive(const std::wstring& root, const std::vector<PackageDescriptor>& packages,
                                      const SetProgress& progress = {});

}  // namespace launcher_update
