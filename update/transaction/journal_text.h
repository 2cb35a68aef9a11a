#pragma once

/// The update journal as text: which paths an update is about to change, and where their previous versions lie.
/// Pure; the reading and writing at the edge is `transaction/journal.h`. Any thread.
///
///     {
///       "schemaVersion": 1,
///       "backupDirectory": "backup-1.0.0.0-4711-123456",
///       "targets": [
///         {"path": "Velmora Pine Relay\\Velmora Pine Relay.exe", "hadOriginal": true},
///         {"path": "current.json", "hadOriginal": true}
///       ]
///     }

#include <string>
#include <string_view>
#include <vector>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

// Ceilings on what a journal may say; it is read back after a crash and judged like any outside data.
inline constexpr std::size_t kMaxTransactionTargets = 256;
inline constexpr std::size_t kMaxJournalBytes = 524288;  // 256 targets of 512 units, escaped, fit well below

inline constexpr std::wstring_view kBackupPrefix = L"backup-";
inline constexpr std::wstring_view kStagingPrefix = L"staging-";

struct TransactionTarget {
    std::wstring path;         // relative to the root, backslashes
    bool hadOriginal = false;  // a previous version stands in the backup directory

    friend bool operator==(const TransactionTarget&, const TransactionTarget&) = default;
};

using TransactionTargets = std::vector<TransactionTarget>;

/// Adds `path` with `hadOriginal` false. A path that is there already, ignoring case, is folded into it. False with a
/// message for an unsafe path, or for one target too many.
[[nodiscard]] bool AddTransactionTarget(TransactionTargets& targets, std::wstring_view path, std::wstring& error);

/// Every path an update of this manifest may change: its files; with `needPackages` the support files of the runtime
/// package and the runtime's state file; always, and last, the launcher's own `current.json`.
[[nodiscard]] bool BuildTransactionTargets(const UpdateManifest& manifest, std::wstring_view applicationDirectory,
                                           bool needPackages, TransactionTargets& targets, std::wstring& error);

/// A folder name of this transaction's backups: begins with "backup-", ignoring case, and holds no separator.
[[nodiscard]] bool IsBackupDirectoryName(std::wstring_view name);

[[nodiscard]] std::wstring RenderJournal(std::wstring_view backupDirectoryName, const TransactionTargets& targets);

/// Reads a journal's bytes under the same rules that writing keeps. False with a message; the outputs are then
/// unspecified and must not be used.
[[nodiscard]] bool ParseJournal(std::string_view bytes, std::wstring& backupDirectoryName, TransactionTargets& targets,
                                std::wstring& error);

}  // namespace launcher_update
