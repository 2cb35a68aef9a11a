#pragma once

/// The update journal on disk, in the control directory `.vpr-update`. What the two records mean at a start:
///
/// | transaction.json | transaction-committed.json | meaning                                            |
/// |------------------|----------------------------|----------------------------------------------------|
/// | absent           | absent                     | no update in flight, or none that reached a journal |
/// | present          | absent                     | interrupted before the commit: restore             |
/// | absent           | present                    | committed; only the clean-up was interrupted       |
/// | present          | present                    | no crash explains this: nothing is touched         |
///
/// All functions expect the caller to hold the `TransactionLock`. One thread at a time.

#include <string>

#include "update/manifest/update_manifest.h"
#include "update/transaction/journal_text.h"

namespace launcher_update {

[[nodiscard]] std::wstring JournalPath(std::wstring_view controlDirectory);
[[nodiscard]] std::wstring CommittedMarkerPath(std::wstring_view controlDirectory);

/// Copies every previous version into `backupDirectory`, each durable, and only then writes the journal: a journal on
/// disk always has a complete set of backups behind it. On failure nothing of the installed tree has changed, no
/// journal stands, and `error` holds the message.
[[nodiscard]] bool WriteTransactionJournal(const std::wstring& root, const std::wstring& controlDirectory,
                                           const std::wstring& backupDirectory, const UpdateManifest& manifest,
                                           const std::wstring& applicationDirectory, bool needPackages,
                                           std::wstring& error);

/// Reads a journal back. Failures carry `ParseJournal`'s messages.
[[nodiscard]] bool ReadTransactionJournal(const std::wstring& journalPath, std::wstring& backupDirectoryName,
                                          TransactionTargets& targets, std::wstring& error);

/// The commit point of an update: one rename of the journal to the marker. False leaves the journal in force.
[[nodiscard]] bool CommitTransaction(const std::wstring& controlDirectory, std::wstring& error);

}  // namespace launcher_update
