#pragma once

/// Single files of package folders: written whole, or copied from a folder that holds them already. Paths are in
/// ordinary form and reach Windows in their long form. Any thread.

#include <cstddef>
#include <string>

#include "update/manifest/update_manifest.h"
#include "update/packages/package_paths.h"

namespace launcher_update {

/// Size of a file in bytes. False when it cannot be asked.
[[nodiscard]] bool ReadFileSize(const std::wstring& path, std::uint64_t& size);

/// Makes the folder of `path` and writes the bytes through `<path>.new`, forced out and renamed. A failed write leaves
/// no sibling.
[[nodiscard]] bool WriteFileThroughNew(const std::wstring& path, const void* bytes, std::size_t length);

/// True when `path` is a file and neither it nor any folder above it, up to the drive, is a link.
[[nodiscard]] bool SourceFileIsSafe(const std::wstring& path);

/// Copies one file of a package out of `sourceFolder`, refusing links on the way and an existing destination, and
/// forces the copy out: the folder is renamed into its place soon, and a power cut must not leave it with empty files.
/// What was copied is not verified: whoever assembles a folder validates it whole.
[[nodiscard]] bool CopySourceFile(const std::wstring& sourceFolder, const PackageFileDescriptor& file,
                                  const std::wstring& destination);

}  // namespace launcher_update
