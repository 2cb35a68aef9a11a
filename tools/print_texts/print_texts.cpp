/// print_texts: writes every text of the product side by side into one Markdown table, for people who read and
/// translate.
///
///   print_texts <path>            writes the table; a file that is current already is left alone
///   print_texts --check <path>    says whether the file is current, and where not; writes nothing
///
/// Exit code 0 when the file is (now) current, 1 when it is not, 2 for wrong arguments.

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "platform/text.h"
#include "product/text_table.h"

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

Every text that a window shows. `./dev texts` makes this file from `product/text_table.cpp`; do not edit it by hand.

To change a text, change its cell in `product/text_table.cpp`, then run `./dev texts` and `./dev test native`. A test
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

std::string Document() {
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

std::optional<std::string> ReadAll(const char* path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

bool WriteAll(const char* path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    return file.good();
}

std::string_view TakeLine(std::string_view& rest) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    return line;
}

/// Both texts differ.
void PrintFirstDifference(const char* path, std::string_view found, std::string_view wanted) {
    for (int number = 1;; ++number) {
        const bool one_ends = found.empty() || wanted.empty();
        const std::string is(TakeLine(found));
        const std::string should(TakeLine(wanted));
        if (is == should && !one_ends) continue;
        std::fprintf(stderr, "%s:%d: not what the table says; run ./dev texts\n  is:     %s\n  should: %s\n", path,
                     number, is.c_str(), should.c_str());
        return;
    }
}

int Check(const char* path) {
    const std::string wanted = Document();
    const std::optional<std::string> found = ReadAll(path);
    if (found == wanted) return 0;
    PrintFirstDifference(path, found.value_or(""), wanted);
    return 1;
}

int Write(const char* path) {
    const std::string wanted = Document();
    if (ReadAll(path) == wanted) return 0;
    if (WriteAll(path, wanted)) return 0;
    std::fprintf(stderr, "%s: cannot be written\n", path);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string_view(argv[1]).substr(0, 2) != "--") return Write(argv[1]);
    if (argc == 3 && std::string_view(argv[1]) == "--check") return Check(argv[2]);
    std::fprintf(stderr, "usage: print_texts [--check] <path>\n");
    return 2;
}
