#pragma once

/// Names inside a package's root folder: versions, what a killed installation leaves, and which old versions go.
/// Pure; any thread.

#include <string>
#include <string_view>
#include <vector>

namespace launcher_update {

/// `.staging-<version>-`: where a version folder is assembled; ticks and process id follow.
[[nodiscard]] std::wstring StagingResiduePrefix(std::wstring_view version);

/// `.repair-backup-<version>-`: where a damaged version folder stands while its replacement is committed.
[[nodiscard]] std::wstring RepairBackupPrefix(std::wstring_view version);

enum class ResidueKind { none, staging, repairBackup };

/// What a name in the package root means to an installation of `version`; case does not matter. Residue of other
/// versions is none of its business.
[[nodiscard]] ResidueKind ClassifyResidue(std::wstring_view name, std::wstring_view version);

/// Of the folders in a package root, those to remove, in the order of removal: all versions but the active one and the
/// highest of the others, highest first. Names that are no four-field version are passed over.
[[nodiscard]] std::vector<std::wstring> SupersededVersions(const std::vector<std::wstring>& folders,
                                                           std::wstring_view activeVersion);

}  // namespace launcher_update
