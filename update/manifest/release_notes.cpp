#include "update/manifest/release_notes.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/text.h"
#include "update/manifest/json_reader.h"

namespace launcher_update {
namespace {

using platform::EqualsIgnoringCase;

/// One line on the panel: a tab is the only control character.
bool IsNoteLine(std::wstring_view text) {
    return !text.empty() && text.size() <= kMaxNoteUnits &&
           std::all_of(text.begin(), text.end(), [](wchar_t unit) { return unit >= 0x20 || unit == L'\t'; });
}

bool ReadStringArray(std::wstring_view text, std::wstring_view key, std::vector<std::wstring>& values) {
    std::uint64_t position = kNotFound;
    return FindTopLevelValue(text, key, position) && ParseStringArrayAt(text, position, values);
}

const ReleaseNotesLocalization* FindLocale(const std::vector<ReleaseNotesLocalization>& localizations,
                                           std::wstring_view locale) {
    const auto found = std::find_if(
        localizations.begin(), localizations.end(),
        [locale](const ReleaseNotesLocalization& entry) { return EqualsIgnoringCase(entry.locale, locale); });
    return found == localizations.end() ? nullptr : &*found;
}

bool ReadHighlights(std::wstring_view text, std::vector<std::wstring>& highlights) {
    return ReadStringArray(text, L"highlights", highlights) && !highlights.empty() &&
           highlights.size() <= kMaxHighlights && std::all_of(highlights.begin(), highlights.end(), IsNoteLine);
}

/// Emphasis is decoration of decoration: what cannot be read or matches no line is left out.
void ReadEmphasis(std::wstring_view text, ReleaseNotesLocalization& entry) {
    std::vector<std::wstring> items;
    if (!ReadStringArray(text, L"emphasizedItems", items) || items.size() > kMaxEmphasizedItems) return;
    for (std::wstring& item : items) {
        const bool isHighlight =
            std::find(entry.highlights.begin(), entry.highlights.end(), item) != entry.highlights.end();
        if (isHighlight || item == entry.summary) entry.emphasizedItems.push_back(std::move(item));
    }
}

bool ReadLocalization(std::wstring_view text, const std::vector<ReleaseNotesLocalization>& earlier,
                      ReleaseNotesLocalization& entry) {
    if (!ReadJsonString(text, L"locale", entry.locale) || !ReadJsonString(text, L"summary", entry.summary))
        return false;
    if (entry.locale.empty() || entry.locale.size() > kMaxLocaleUnits || !IsNoteLine(entry.summary)) return false;
    if (!ReadHighlights(text, entry.highlights)) return false;
    if (FindLocale(earlier, entry.locale) != nullptr) return false;
    ReadEmphasis(text, entry);
    return true;
}

/// All localizations or none.
bool ReadLocalizations(std::wstring_view notes, std::vector<ReleaseNotesLocalization>& localizations) {
    std::vector<std::wstring> elements;
    if (!ExtractObjectArrayByKey(notes, L"localizations", elements)) return false;
    if (elements.empty() || elements.size() > kMaxLocalizations) return false;
    for (const std::wstring& element : elements) {
        ReleaseNotesLocalization entry;
        if (!ReadLocalization(element, localizations, entry)) return false;
        localizations.push_back(std::move(entry));
    }
    return true;
}

const ReleaseNotesLocalization* ChooseLocalization(const UpdateManifest& manifest, std::wstring_view locale) {
    for (const std::wstring_view wanted :
         {locale, std::wstring_view(manifest.defaultLocale), std::wstring_view(L"en")}) {
        if (const auto* entry = FindLocale(manifest.localizations, wanted)) return entry;
    }
    return manifest.localizations.empty() ? nullptr : &manifest.localizations.front();
}

}  // namespace

void ParseReleaseNotes(std::wstring_view text, UpdateManifest& manifest) {
    std::uint64_t position = kNotFound;
    std::wstring notes;
    std::wstring defaultLocale;
    std::vector<ReleaseNotesLocalization> localizations;
    if (!FindTopLevelValue(text, L"releaseNotes", position) || !ExtractObjectAt(text, position, notes)) return;
    if (!ReadJsonString(notes, L"defaultLocale", defaultLocale)) return;
    if (!ReadLocalizations(notes, localizations)) {
        manifest.defaultLocale.clear();
        manifest.localizations.clear();
        return;
    }
    manifest.defaultLocale = std::move(defaultLocale);
    manifest.localizations = std::move(localizations);
}

ReleaseNotes SelectReleaseNotes(const UpdateManifest& manifest, std::wstring_view locale) {
    ReleaseNotes notes;
    notes.priority = manifest.updatePriority;
    notes.url = manifest.releaseNotesUrl;
    if (const ReleaseNotesLocalization* entry = ChooseLocalization(manifest, locale)) {
        notes.summary = entry->summary;
        notes.highlights = entry->highlights;
        notes.emphasizedItems = entry->emphasizedItems;
    }
    return notes;
}

std::vector<std::wstring> ReleaseNotesLines(const ReleaseNotes& notes, std::wstring_view placeholder) {
    std::vector<std::wstring> lines;
    if (!notes.summary.empty()) lines.push_back(notes.summary);
    lines.insert(lines.end(), notes.highlights.begin(), notes.highlights.end());
    if (lines.empty()) lines.emplace_back(placeholder);
    return lines;
}

}  // namespace launcher_update
