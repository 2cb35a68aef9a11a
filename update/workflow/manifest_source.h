#pragma once

#include "update/workflow/update_run.h"

namespace launcher_update {

enum class ManifestReading { read, cancelled, failed };

/// Reads and parses the manifest: the primary source twice, then the backup, if there is one, twice; in verification
/// mode once each. The first attempt that is fetched, decoded and parsed ends it. Fills `manifestBytes`, `manifest` and
/// `fromBackup`; `error` holds the last message and may be empty.
[[nodiscard]] ManifestReading ReadManifest(UpdateRun& run, std::wstring& error);

}  // namespace launcher_update
