#pragma once

/// Swapping staged files into the installed tree, one atomic rename each, after the journal exists. Does not roll back:
/// it stops at the first failure and leaves what it did to the recovery.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "update/manifest/update_manifest.h"
#include "update/workflow/file_swap.h"

namespace launcher_update {

/// Applies `manifest.files` in order. Appends to `appliedFiles`; `onFileApplied`, if set, gets the count so far. A
/// target that exists is only replaced if its backup stands as a plain file. False with a message.
[[nodiscard]] bool ApplyStagedFiles(const std::wstring& root, const std::wstring& stagingDirectory,
                                    const std::wstring& backupDirectory, const UpdateManifest& manifest,
                                    std::vector<AppliedFile>& appliedFiles, std::wstring& error,
                                    const std::function<void(std::uint64_t)>& onFileApplied);

}  // namespace launcher_update
