#pragma once

/// Bringing the installed tree back to one known version after any interruption. A mixed version must never start: when
/// in doubt every backup is kept and the launch is refused, and no record is deleted to get past a refusal.

#include <string>

namespace launcher_update {

[[nodiscard]] std::wstring ControlDirectory(const std::wstring& root);

/// The entry at every start, before anything else is trusted: takes the lock for its own duration, then finishes or
/// restores. True means that no interrupted update stands in the way. False means that the application must not start;
/// `error` says why. Never waits for another launcher.
[[nodiscard]] bool PrepareUpdateFolder(const std::wstring& root, std::wstring& error);

/// The decision on what the records say, with the lock held by the caller: restores an interrupted update, finishes a
/// committed one, removes their folders. False keeps whatever the next attempt needs.
[[nodiscard]] bool FinishOrRecover(const std::wstring& root, const std::wstring& controlDirectory, std::wstring& error);

/// Rolls every target of a journal back, in journal order, after checking that all backups are there. Every step may be
/// repeated: a restore that dies half-way is begun anew at the next start. The journal's deletion is its last act.
[[nodiscard]] bool RestoreFromJournal(const std::wstring& root, const std::wstring& controlDirectory,
                                      const std::wstring& journalPath, std::wstring& error);

}  // namespace launcher_update
