#pragma once

#include "launcher/verification/command_run.h"
#include "update/manifest/update_manifest.h"

/// Commands that judge files of the update: schedule, notes, priority, the rules of manifests, sums of sizes.
/// command_table.h tells what each takes; each returns the exit code of the process. Main thread.

namespace launcher_shell {

int CheckUpdateSchedule(const CommandRun& run);
int CheckReleaseNotes(const CommandRun& run);
int CheckUpdateMetadata(const CommandRun& run);
int CheckProductionManifest(const CommandRun& run);
int CheckAggregate(const CommandRun& run);

/// Reads a manifest out of a file as the update workflow reads one; with `allowLocalFiles` a fixture of a test.
[[nodiscard]] bool ReadManifestFile(const std::wstring& path, bool allowLocalFiles,
                                    launcher_update::UpdateManifest& manifest);

}  // namespace launcher_shell
