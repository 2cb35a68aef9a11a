#pragma once

/// Puts one complete, verified version folder on disk without making it active. Either the folder stands whole and
/// valid at the end, or the disk is as it was; what a killed installation leaves is settled by the next one:
///
/// | found on entry                            | what the next installation does                               |
/// |-------------------------------------------|---------------------------------------------------------------|
/// | nothing                                   | assembles in `.staging-...`, validates, renames               |
/// | valid version folder                      | writes nothing, removes residue                               |
/// | damaged version folder                    | moves it to `.repair-backup-...`, renames the new one, removes |
/// | version path is a file or a link          | refuses                                                       |
/// | `.staging-...` only                       | removes it, starts anew                                       |
/// | no version folder, valid `.repair-backup` | renames it back, writes nothing                               |
/// | residue that is a file or a link          | refuses, touches nothing                                      |
///
/// Only residue of the version that is installed counts. Runs under the update lock, on one thread. All functions give
/// the version folder in `installedPath`, or false and a message.

#include <functional>
#include <string>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// Writes one file of the inventory to `destination`, which does not exist. The only thing in which sources differ.
using PackageFileWriter = std::function<bool(const PackageFileDescriptor&, const std::wstring& destination)>;

/// The one transaction under all three sources. `root` is the Runtime folder.
[[nodiscard]] bool InstallVersionFolder(const PackageDescriptor& descriptor, const std::wstring& root,
                                        std::wstring& installedPath, std::wstring& error,
                                        const PackageFileWriter& writer);

/// From a `.vprpack`, which is verified first: it has lain on disk since its download. Each file is verified again on
/// its way out, so that nothing rests on the archive's staying as it was.
[[nodiscard]] bool InstallPackageInactive(const std::wstring& archivePath, const PackageDescriptor& descriptor,
                                          const std::wstring& root, std::wstring& installedPath, std::wstring& error);

/// By copying from a folder that holds the files of this version. The assembled folder is validated, not each copy.
[[nodiscard]] bool InstallPackageFromLocalFiles(const std::wstring& sourceFolder, const PackageDescriptor& descriptor,
                                                const std::wstring& root, std::wstring& installedPath,
                                                std::wstring& error);

/// From a patch archive, which carries only the changed files, and a base folder for the others.
[[nodiscard]] bool InstallPackagePatchInactive(const std::wstring& archivePath, const std::wstring& baseFolder,
                                               const PackageDescriptor& descriptor, const std::wstring& root,
                                               std::wstring& installedPath, std::wstring& error);

}  // namespace launcher_update
