#pragma once

/// The update manifest, `stable.json`: the one document that says what the latest release is.
///
/// Everything that is installed afterwards is named in this record with a digest and an exact size, so this parser is
/// the gate of the whole update path: what passes may point only at the places and targets that these rules allow.
///
///     { "schemaVersion": 1, "version": "1.2.3.4", "minimumLauncherVersion": "1.0.0.0",
///       "releaseNotesUrl": "...", "updatePriority": "normal" | "recommended" | "hotfix", "releaseNotes": { ... },
///       "files": [ { "component", "path", "url", "sha256", "size" } ... ],
///       "packages" or "packagesV2": [ { "id", "version", "url", "sha256", "size", "requiredForStartup", "capability",
///                       "files": [ { "path", "sha256", "size" } ... ],
///                       "patch": { "baseVersion", "url", "sha256", "size", "files": [ "path" ... ] } } ... ] }
///
/// It is read by key (json_reader.h): the order of keys does not matter, the first of two equal keys wins, unknown keys
/// are ignored. A document that is cut off behind its file list and before its package list is therefore a release
/// without packages; whoever fetches it must know that the body is whole.
///
/// Pure; any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_update {

// The ceilings are the defence against a hostile or broken manifest. What a release needs lies far below each of them.
inline constexpr std::uint64_t kMaxManifestBytes = 512ull << 10;       // the document; a few thousand entries fit
inline constexpr std::uint64_t kMaxDownloadBytes = 512ull << 20;       // one archive or one manifest file, on the wire
inline constexpr std::uint64_t kMaxInventoryFileBytes = 128ull << 20;  // one unpacked file; it is held in memory whole
inline constexpr std::uint64_t kMaxPackageBytes = 384ull << 20;  // one package unpacked: three of the largest files
inline constexpr std::size_t kMaxPackages = 16;                  // far above the components that exist
inline constexpr std::size_t kMaxInventoryEntries = 768;         // far above the files of the largest component
inline constexpr std::size_t kMaxIdentifierUnits = 64;           // an identifier becomes a folder name
inline constexpr std::size_t kMaxInventoryPathUnits = 260;       // MAX_PATH, so that other programs can open the file

/// One file of an installed package. `path` is relative, with forward slashes.
struct PackageFileDescriptor {
    std::wstring path;
    std::wstring sha256;
    std::uint64_t size = 0;

    bool operator==(const PackageFileDescriptor&) const = default;
};

/// One component that is delivered as an archive.
struct PackageDescriptor {
    /// A smaller download that turns `baseVersion` into this version. No files means that there is no patch. `files`
    /// holds copies from the inventory, so that a patched file is verified exactly as a freshly installed one.
    struct Patch {
        std::wstring baseVersion;
        std::wstring url;
        std::wstring sha256;
        std::uint64_t size = 0;
        std::vector<PackageFileDescriptor> files;

        bool operator==(const Patch&) const = default;
    };

    std::wstring id;
    std::wstring version;
    std::wstring url;
    std::wstring sha256;
    std::wstring capability;
    std::uint64_t size = 0;
    bool requiredForStartup = false;
    Patch patch;
    std::vector<PackageFileDescriptor> inventory;

    bool operator==(const PackageDescriptor&) const = default;
};

/// One whole file to replace.
struct ManifestFileEntry {
    std::wstring component;
    std::wstring path;
    std::wstring url;
    std::wstring sha256;  // 64 units of any kind: a wrong one can never match the digest of a download
    std::uint64_t size = 0;

    bool operator==(const ManifestFileEntry&) const = default;
};

/// Release notes in one language; release_notes.h reads and selects them.
struct ReleaseNotesLocalization {
    std::wstring locale;
    std::wstring summary;
    std::vector<std::wstring> highlights;
    std::vector<std::wstring> emphasizedItems;

    bool operator==(const ReleaseNotesLocalization&) const = default;
};

struct UpdateManifest {
    std::wstring updatePriority = L"normal";  // or "recommended", or "hotfix"
    std::wstring version;                     // as written
    std::wstring minimumLauncherVersion;      // as written and not judged here
    std::wstring releaseNotesUrl;             // empty if absent
    std::wstring defaultLocale;
    std::vector<ReleaseNotesLocalization> localizations;
    std::vector<ManifestFileEntry> files;
    std::vector<PackageDescriptor> packages;

    bool operator==(const UpdateManifest&) const = default;
};

/// Reads a whole manifest. On failure `error` is one fixed message for the user, chosen by the first check that failed,
/// and `manifest` is to be discarded; on success `error` is not touched. `allowLocalFiles` lets the fixtures of local
/// tests name payloads by absolute path; without it every source is HTTPS.
[[nodiscard]] bool ParseUpdateManifest(std::wstring_view text, UpdateManifest& manifest, std::wstring& error,
                                       bool allowLocalFiles);

/// Whether a payload may be fetched from `url`: HTTPS with a host and a path; with `allowLocalFiles` also an absolute
/// path in one line. A NUL is never accepted: Windows would cut the text there and ask for another thing than was
/// judged.
[[nodiscard]] bool IsAcceptedSourceUrl(std::wstring_view url, bool allowLocalFiles);

/// Whether a manifest may deliver this file: only the application, its themes and its reading runtime, each under its
/// own component name. Judges `component` and `path` alone; that the path is safe is judged elsewhere.
[[nodiscard]] bool IsAllowedManifestFile(const ManifestFileEntry& entry);

/// 1 to 64 of a to z, 0 to 9 and `-`, with no `-` at either end.
[[nodiscard]] bool IsSafeIdentifier(std::wstring_view text);

}  // namespace launcher_update
