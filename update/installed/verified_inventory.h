#pragma once

/// Checking a whole installation means hashing every byte of it. After a full verification a small record says: this
/// manifest was verified on this layout at this time, and the identities of the files hashed to this value. For a day,
/// the same manifest and unchanged identities stand in for the hashing. Identities cost one small open per file and no
/// content is read.
///
/// Nothing here reports a failure to anybody: a record that is stale, unreadable or missing just means that the full
/// verification runs. The update worker's thread, outside the update lock.

#include <string>
#include <string_view>

#include "update/installed/layout.h"
#include "update/installed/verified_inventory_text.h"
#include "update/manifest/update_manifest.h"
#include "update/settings.h"

namespace launcher_update {

enum class InventoryProgress { silent, reported };

/// The digest over the identities of all files that the layout must contain. False when anything of it is missing, is
/// a link, has another size, or when the packages' folders are not exact. `reported` sends `CheckingFiles`, counted in
/// files, at most every 100 ms.
[[nodiscard]] bool ComputeInventoryDigest(const std::wstring& root, const Settings& settings,
                                          const UpdateManifest& manifest, InstalledLayout layout, std::wstring& digest,
                                          InventoryProgress progress);

/// True when the record stands in for a full verification.
[[nodiscard]] bool VerifiedInventoryIsFresh(const std::wstring& root, const Settings& settings,
                                            const UpdateManifest& manifest, std::wstring_view manifestDigest,
                                            InstalledLayout layout);

/// Writes the record, if the identities still are what they were before the verification began (`priorDigest`; empty
/// when they could not be taken): a file that changed while it was verified must not be recorded.
void WriteVerifiedInventory(const std::wstring& root, const Settings& settings, const UpdateManifest& manifest,
                            std::wstring_view manifestDigest, InstalledLayout layout, std::wstring_view priorDigest);

/// Before the tree changes.
void RemoveVerifiedInventory(const std::wstring& root);

}  // namespace launcher_update
