#include "launcher/verification/manifest_commands.h"

#include <algorithm>
#include <vector>

#include "launcher/verification/command_table.h"
#include "product/text_table.h"
#include "ui/notes_layout.h"
#include "update/files/file_io.h"
#include "update/manifest/json_reader.h"
#include "update/manifest/release_notes.h"
#include "update/workflow/schedule.h"
#include "update/workflow/totals.h"

namespace launcher_shell {

using launcher_update::ReleaseNotes;
using launcher_update::UpdateManifest;

namespace {

constexpr int kScheduledOtherwise = 30;
constexpr int kOtherNotes = 31;
constexpr int kOtherVerdict = 37;
constexpr int kOtherMetadata = 38;
constexpr int kOtherSum = 38;

constexpr int ExitCode(bool passed, int failure) {
    return passed ? 0 : failure;
}

/// False if the manifest cannot be read.
bool ReadNotes(const std::wstring& path, const std::wstring& language, ReleaseNotes& notes) {
    UpdateManifest manifest;
    if (!ReadManifestFile(path, true, manifest)) return false;
    notes = launcher_update::SelectReleaseNotes(manifest, language);
    return true;
}

bool TitleFits(const ReleaseNotes& notes, const std::wstring& expected) {
    if (expected == L"--none") return notes.summary.empty() && notes.highlights.empty();
    return notes.summary == expected;
}

std::wstring EmphasisOf(const ReleaseNotes& notes) {
    std::wstring flags;
    const wchar_t* const placeholder = product::TextIn(product::Language::english, product::TextId::NotesUnavailable);
    for (const launcher_ui::NoteCard& card : launcher_ui::MakeNoteCards(notes, placeholder).cards) {
        flags += card.emphasised ? L'1' : L'0';
    }
    return flags;
}

}  // namespace

bool ReadManifestFile(const std::wstring& path, bool allowLocalFiles, UpdateManifest& manifest) {
    std::string bytes;
    std::wstring text;
    std::wstring error;
    return launcher_update::ReadFileLimited(path, launcher_update::kMaxManifestBytes, bytes) &&
           launcher_update::DecodeUtf8Document(bytes, text) &&
           launcher_update::ParseUpdateManifest(text, manifest, error, allowLocalFiles);
}

int CheckUpdateSchedule(const CommandRun& run) {
    const auto minutes = static_cast<std::int32_t>(NumberIn(run.values[1]));
    const std::wstring priority = run.values.size() > 3 ? run.values[3] : L"normal";
    const bool due = launcher_update::IsReleaseDue(run.values[0], minutes, priority);
    return ExitCode(due == (run.values[2] == L"due"), kScheduledOtherwise);
}

int CheckReleaseNotes(const CommandRun& run) {
    ReleaseNotes notes;
    if (!ReadNotes(run.values[0], run.values[1], notes)) return kOtherNotes;
    const auto bullets = run.values.subspan(3);
    const bool bulletsFit =
        bullets.empty() || std::equal(bullets.begin(), bullets.end(), notes.highlights.begin(), notes.highlights.end());
    return ExitCode(TitleFits(notes, run.values[2]) && bulletsFit, kOtherNotes);
}

int CheckUpdateMetadata(const CommandRun& run) {
    ReleaseNotes notes;
    if (!ReadNotes(run.values[0], run.values[1], notes)) return kOtherMetadata;
    return ExitCode(notes.priority == run.values[2] && EmphasisOf(notes) == run.values[3], kOtherMetadata);
}

int CheckProductionManifest(const CommandRun& run) {
    UpdateManifest manifest;
    const bool valid = ReadManifestFile(run.values[0], false, manifest);
    return ExitCode(valid == (run.values[1] == L"valid"), kOtherVerdict);
}

int CheckAggregate(const CommandRun& run) {
    std::uint64_t sum = 0;
    const bool holds = launcher_update::AddWithoutOverflow(NumberIn(run.values[0]), NumberIn(run.values[1]), sum);
    return ExitCode(holds == (run.values[2] == L"ok"), kOtherSum);
}

}  // namespace launcher_shell
