#pragma once

#include <string>

#include "update/manifest/release_notes.h"

namespace launcher_update {

/// The text of the plain prompt: the version on offer, then the notes or, without notes, where to read them. Pure.
[[nodiscard]] std::wstring PromptBoxText(const std::wstring& version, const ReleaseNotes& notes);

/// Asks with a message box on the calling thread when nobody else prompts. True only for the yes button.
[[nodiscard]] bool PromptWithMessageBox(const std::wstring& version, const ReleaseNotes& notes);

}  // namespace launcher_update
