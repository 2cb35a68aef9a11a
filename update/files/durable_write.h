#pragma once

/// Replacing a small text file so that after any crash or power cut the old or the new file is whole.
///
/// One mechanism under four names: write a sibling named by a suffix, force it out, rename it over the target with
/// `MoveFileExW` and the flags replace-existing and write-through ("MoveFileExW function"). On any failure the sibling
/// is deleted and the target is as it was. Texts are written as UTF-8 and may be empty. Any thread; two writers of one
/// target must not run at once, since the sibling's name is fixed.
///
/// | operation                   | sibling            | opened by            | forced out | long path |
/// |-----------------------------|--------------------|----------------------|------------|-----------|
/// | WriteTextDurable            | .tmp               | C library, "wb"      | yes        | yes       |
/// | WriteStateAtomically        | .new               | C library, "wb"      | yes        | yes       |
/// | WriteJournalDurable         | .tmp               | new, hidden, through | yes        | yes       |
/// | WriteLauncherFileAtomically | .launcher-update   | C library, "wb"      | no         | no        |

#include <string>
#include <string_view>

namespace launcher_update {

/// For the launcher's `current.json`, when an update records its version.
[[nodiscard]] bool WriteTextDurable(const std::wstring& path, std::wstring_view text);

/// For small state files: the schedule, the watermark.
[[nodiscard]] bool WriteStateAtomically(const std::wstring& path, std::string_view bytes);

/// For the journal: a stale sibling is removed first, and the sibling is created new, unshared, hidden, write-through.
[[nodiscard]] bool WriteJournalDurable(const std::wstring& path, std::wstring_view text);

/// For the launcher's own settings file outside a transaction: whole or absent, but not forced out. An empty text is a
/// failure.
[[nodiscard]] bool WriteLauncherFileAtomically(const std::wstring& path, std::wstring_view text);

}  // namespace launcher_update
