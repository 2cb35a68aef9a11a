#pragma once

/// The short text that a manifest may carry for the user, in several languages.
///
///     "releaseNotes": { "defaultLocale": "en", "localizations": [
///         { "locale": "en", "summary": "...", "highlights": [ "..." ], "emphasizedItems": [ "..." ] } ... ] }
///
/// Notes are decoration: they never make an update fail. One fault anywhere drops all of them, silently. Pure; any
/// thread.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

// The ceilings keep the panel readable and its layout cheap; a release that needs more text has a page for it.
inline constexpr std::size_t kMaxLocalizations = 8;         // the program itself speaks five languages
inline constexpr std::size_t kMaxLocaleUnits = 16;          // "zh-Hant-TW" has ten
inline constexpr std::size_t kMaxNoteUnits = 500;           // one line of notes
inline constexpr std::size_t kMaxHighlights = 12;           // lines under the summary
inline constexpr std::size_t kMaxEmphasizedItems = 1 + 12;  // the summary and every highlight

/// What the user is shown, by value.
struct ReleaseNotes {
    std::wstring summary;  // empty, as are the lists, if the release has no notes
    std::vector<std::wstring> highlights;
    std::vector<std::wstring> emphasizedItems;  // equal to the summary or to a highlight; those lines are emphasised
    std::wstring priority = L"normal";
    std::wstring url;  // may be empty

    bool operator==(const ReleaseNotes&) const = default;
};

/// Fills `defaultLocale` and `localizations` of `manifest` from the text of a whole manifest. Notes that are missing or
/// refused leave both fields empty in a manifest whose fields were empty; nothing else tells.
void ParseReleaseNotes(std::wstring_view text, UpdateManifest& manifest);

/// The notes for `locale`, else for the manifest's default, else English, else the first there is, by whole names and
/// ignoring case: "zh-TW" is not "zh". `priority` and `url` are set even if there are no notes.
[[nodiscard]] ReleaseNotes SelectReleaseNotes(const UpdateManifest& manifest, std::wstring_view locale);

/// The lines to show: the summary and the highlights, or `placeholder` alone if there are none. The caller brings the
/// placeholder because it is a text in the user's language, and what language that is, is a fact of the machine that
/// pure code does not ask for.
[[nodiscard]] std::vector<std::wstring> ReleaseNotesLines(const ReleaseNotes& notes, std::wstring_view placeholder);

}  // namespace launcher_update
