#pragma once

/// What keeps a backup manifest from taking an installation backwards or elsewhere. The backup host is a second source
/// of truth that could be stale or misused, so:
///
///   - a manifest from the backup may name payloads on the backup alone;
///   - a release has an identity that does not depend on where its payloads lie;
///   - the highest release ever seen is recorded, and the backup may offer neither an older one nor another content
///     under the same version. The primary source is trusted and may do both.
///
/// The record is the watermark: the text `<version>` LF `<identity>`, with nothing behind it.
///
/// Pure; any thread. Hashing, reading and writing are done at the edge.

#include <cstdint>
#include <string>
#include <string_view>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

inline constexpr std::uint64_t kMaxWatermarkBytes = 256;  // a version and 64 digits need fewer than 100

/// The canonical text whose digest (over its UTF-16 little-endian bytes, without a terminator) is the identity of the
/// release. One line, ended by a line feed, for each of:
///
///     version, minimumLauncherVersion
///     per file:        component, path, sha256, size
///     per package:     id, version, sha256, size, capability, "required" or "optional"
///       per inventory: path, sha256, size
///       the patch:     baseVersion, sha256, size; these three also if there is no patch (empty, empty, 0)
///         per file:    path, sha256, size
///
/// No URL, no notes and no priority enter it: primary and backup publish one identity at different places.
[[nodiscard]] std::wstring ReleaseIdentityText(const UpdateManifest& manifest);

/// Whether `url` begins, literally, with the prefix under which every payload of the backup lies.
[[nodiscard]] bool IsBackupReleaseUrl(std::wstring_view url);

/// Whether every file, package and patch of the release lies on the backup.
[[nodiscard]] bool PointsOnlyAtBackup(const UpdateManifest& manifest);

struct WatermarkDecision {
    enum class Action {
        refuse,  // the release must not be installed
        leave,   // go on; the record stays as it is
        write,   // go on after `text` has replaced the record
    };

    Action action = Action::leave;
    std::wstring text;  // for `write` alone

    bool operator==(const WatermarkDecision&) const = default;
};

/// Judges a release against the record. `watermark` is the decoded record, empty if there is none that can be read. A
/// record whose version does not parse is left alone: it neither guards nor gives way.
[[nodiscard]] WatermarkDecision JudgeReleaseWatermark(std::wstring_view watermark, std::wstring_view version,
                                                      std::wstring_view identity, bool fromBackup);

}  // namespace launcher_update
