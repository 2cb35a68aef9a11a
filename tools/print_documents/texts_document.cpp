#include "tools/print_documents/documents.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "platform/text.h"
#include "product/text_table.h"

namespace print_documents {
namespace {

using product::kTextCount;
using product::Language;
using product::TextId;

struct NamedText {
    TextId id;
    const char* name;
};

#define NAMED(id) (NamedText{TextId::id, #id})
constexpr NamedText kNames[] = {
    NAMED(CurrentVersionPrefix),
    NAMED(UnknownVersion),
    NAMED(PreparingCheck),
    NAMED(UpdateNow),
    NAMED(Later),
    NAMED(VersionAvailablePrefix),
    NAMED(AvailableInstallSuffix),
    NAMED(CheckingForUpdates),
    NAMED(RecentlyChecked),
    NAMED(UpToDate),
    NAMED(OnlineVersionPrefix),
    NAMED(OnlineVersionSuffix),
    NAMED(VersionWaitingPrefix),
    NAMED(AvailableWaitingSuffix),
    NAMED(SkippedVersionPrefix),
    NAMED(SkippedVersionSuffix),
    NAMED(UpdatingRequiredResources),
    NAMED(Repairing),
    NAMED(Downloading),
    NAMED(DownloadedPrefix),
    NAMED(DownloadedSuffix),
    NAMED(InstallingPrefix),
    NAMED(InstallingSuffix),
    NAMED(CompletedPrefix),
    NAMED(CheckFailedStarting),
    NAMED(AlreadyLatest),
    NAMED(CheckFailedPrefix),
    NAMED(LauncherTooOld),
    NAMED(StartFailedPrefix),
    NAMED(StartFailedSuffix),
    NAMED(WhatsNew),
    NAMED(NotesUnavailable),
    NAMED(ViewFullNotes),
    NAMED(NewVersionAvailable),
    NAMED(HotfixAvailable),
    NAMED(RecommendedAvailable),
    NAMED(ScrollForMore),
    NAMED(SafetyNoteVerified),
    NAMED(SafetyNoteSwitching),
    NAMED(Cancel),
    NAMED(SkipUpdateAndOpen),
    NAMED(CancellingSafely),
    NAMED(VerifyingDownload),
    NAMED(CancelledStarting),
    NAMED(CheckingFiles),
    NAMED(VerifyingFiles),
    NAMED(Reconnect),
    NAMED(ConnectingToServer),
    NAMED(Reconnecting),
    NAMED(SlowConnection),
    NAMED(SpeedPrefix),
    NAMED(RemainingPrefix),
    NAMED(ReusingVerifiedData),
    NAMED(DownloadIncomplete),
    NAMED(StagingCopyFailed),
    NAMED(DidNotFinishChecking),
    NAMED(DidNotFinishStarting),
    NAMED(RecoveryNeedsAttention),
    NAMED(WaitingForData),
    NAMED(Close),
    NAMED(StatusDetails),
    NAMED(LaunchStopped),
    NAMED(AutoStartNote),
    NAMED(SwitchingToBackup),
    NAMED(SlowSwitchingToBackup),
    NAMED(SourceBackup),
    NAMED(BackupMetadataOlder),
    NAMED(ComparingSources),
};
#undef NAMED

constexpr bool EveryIdIsNamedInOrder() {
    for (std::size_t number = 0; number < std::size(kNames); ++number) {
        if (static_cast<std::size_t>(kNames[number].id) != number) return false;
    }
    return std::size(kNames) == kTextCount;
}
static_assert(EveryIdIsNamedInOrder(), "name a new text here");

constexpr std::array kLanguages = {Language::english, Language::traditionalChinese, Language::simplifiedChinese,
                                   Language::japanese, Language::korean};
static_assert(kLanguages.size() == product::kLanguageCount);

constexpr std::string_view kIntroduction = R"(# Texts

Every text that a window shows. `./dev documents` makes this file from `product/text_table.cpp`; do not edit it by hand.

To change a text, change its cell in `product/text_table.cpp`, then run `./dev documents` and `./dev test native`. A test
fails while this file and the table differ, so that each change of wording is read here, side by side, before it goes
out. `tests/unit/text_table_test.cpp` holds the whole English column, the wording that is fixed in the other languages,
and the rules for all of them: punctuation, spaces, names, terms and script.

`␣` is a space at the beginning or the end of a text, `\n` a line feed. Many texts are pieces of a sentence around a
value and are joined exactly as they stand; `product/text_table.h` lists which pieces belong together.

)";

/// A text as a Markdown cell: spaces at the ends and line feeds made visible, column bars escaped.
std::string Cell(std::wstring_view text) {
    const std::string bytes = platform::EncodeUtf8(text);
    const std::size_t first = std::min(bytes.find_first_not_of(' '), bytes.size());
    const std::size_t behind_last = bytes.find_last_not_of(' ') + 1;
    std::string cell;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (bytes[at] == ' ' && (at < first || at >= behind_last)) {
            cell += "␣";
        } else if (bytes[at] == '\n') {
            cell += "`\\n`";
        } else if (bytes[at] == '|') {
            cell += "\\|";
        } else {
            cell += bytes[at];
        }
    }
    return cell;
}

}  // namespace

std::string TextsDocument() {
    std::string text(kIntroduction);
    text += "| id | name |";
    for (const Language language : kLanguages) {
        text += ' ' + platform::EncodeUtf8(product::LanguageTag(language)) + " |";
    }
    text += "\n|---|---|---|---|---|---|---|\n";
    for (const NamedText& named : kNames) {
        text += "| " + std::to_string(static_cast<unsigned>(named.id)) + " | `" + named.name + "` |";
        for (const Language language : kLanguages) {
            text += ' ' + Cell(product::TextIn(language, named.id)) + " |";
        }
        text += '\n';
    }
    return text;
}

}  // namespace print_documents
