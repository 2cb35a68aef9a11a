#pragma once

/// The support files of the package "application-runtime" (`packages/support_files.h`), copied out of its verified
/// version folder next to the application, inside the transaction: the journal names them all, so a failure is left to
/// the recovery. The update worker's thread.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "update/manifest/update_manifest.h"
#include "update/packages/validation.h"
#include "update/workflow/file_swap.h"

namespace launcher_update {

/// True when every support file of the package stands next to the application with its size and SHA-256, and when
/// there is no such package.
[[nodiscard]] bool ApplicationRuntimeSupportFilesMatch(const std::wstring& root,
                                                       const std::wstring& applicationDirectory,
                                                       const std::vector<PackageDescriptor>& packages,
                                                       const FileProgress& onProgress);

/// Validates the version folder, then replaces each support file that differs. Appends to `appliedFiles`, whose count
/// `onFileApplied` gets. False with a message.
[[nodiscard]] bool InstallApplicationRuntimeSupportFiles(const std::wstring& root,
                                                         const std::wstring& applicationDirectory,
                                                         const std::wstring& runtimeDirectory,
                                                         const std::wstring& backupDirectory,
                                                         const std::vector<PackageDescriptor>& packages,
                                                         std::vector<AppliedFile>& appliedFiles, std::wstring& error,
                                                         const std::function<void(std::uint64_t)>& onFileApplied);

}  // namespace launcher_update
