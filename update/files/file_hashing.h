#pragma once

/// Digests of files, streamed in 64 KiB pieces through one SHA-256. Digests are written in lower case and compared
/// ignoring case. Memory is constant. Any thread.

#include <cstdint>
#include <functional>
#include <string>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// Bytes hashed so far: 0 before the first read, then the running total after each piece. May be empty.
using HashProgress = std::function<void(std::uint64_t)>;

/// Digest of a file through the long-path form. False on any failure.
[[nodiscard]] bool Sha256OfFile(const std::wstring& path, std::wstring& hex, const HashProgress& progress = {});

/// The same on the package code's path form.
[[nodiscard]] bool HashFileSha256(const std::wstring& path, std::wstring& hex, const HashProgress& progress = {});

/// Digest of memory; more than 4294967295 bytes are refused.
[[nodiscard]] bool Sha256OfBuffer(const void* data, std::size_t length, std::wstring& hex);

/// True when the file has the descriptor's size and digest. A wrong size costs no reading.
[[nodiscard]] bool FileMatchesDescriptor(const std::wstring& path, const PackageFileDescriptor& descriptor,
                                         const HashProgress& progress = {});

/// True when the file that the entry names is in place under `root`.
[[nodiscard]] bool ManifestFileIsCurrent(const std::wstring& root, const ManifestFileEntry& entry,
                                         const HashProgress& progress = {});

}  // namespace launcher_update
