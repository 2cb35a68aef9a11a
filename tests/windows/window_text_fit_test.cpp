#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/windows/window_views_fixture.h"

// Whether every text fits where it stands, in every language and at every scale, measured with the window's own fonts.
// A text that is too long for its control would be cut without a word.

namespace launcher_ui {
namespace {

using launcher_download::Phase;
using launcher_download::Progress;
using launcher_update::ReleaseNotes;
using launcher_update::Stage;
using product::Language;
using product::TextId;
using product::TextIn;
using test_support::Difference;
using test_support::Downloads;
using test_support::DrawFilled;
using test_support::DrawWords;
using test_support::kNotesUrl;
using test_support::kOffered;
using test_support::kWindowScales;
using test_support::MeasureLine;
using test_support::MeasureWords;
using test_support::Px;
using test_support::ScaledWindow;
using test_support::Stages;
using test_support::StartAnew;

constexpr std::array kLanguages = {Language::english, Language::traditionalChinese, Language::simplifiedChinese,
                                   Language::japanese, Language::korean};

constexpr wchar_t kLongestVersion[] = L"65535.65535.65535.65535";
constexpr double kFastest = 1023.9 * 1048576.0;

// --- What is said where ---

/// A state in which a control says something; `ids` are the texts it is made of.
struct Saying {
    const char* name;
    Control control;
    std::vector<TextId> ids;
    std::function<void(WindowModel&)> say;
    const wchar_t* installed = test_support::kInstalled;
};

void Fails(WindowModel& model, TextId text, const std::wstring& detail, bool blocking) {
    OpenFailureView(model, model.Text(text), detail, blocking, true);
}

/// A transfer whose footer is at its longest: the highest attempt, the fastest speed, the most seconds.
void Transfers(WindowModel& model, Phase phase, bool backup, bool slow = false) {
    Downloads(model, 37);
    Progress progress;
    progress.phase = phase;
    progress.attempt = 2;
    progress.backup = backup;
    progress.slow = slow;
    progress.bytesPerSecond = kFastest;
    progress.elapsedMs = 3000;
    progress.total = static_cast<std::uint64_t>(kFastest) * 86399;
    launcher_ui::ApplyDownloadProgress(model, progress, 1000);
}

void Stalls(WindowModel& model) {
    Transfers(model, Phase::receiving, false);
    CheckStall(model, 9000);
}

std::function<void(WindowModel&)> Says(Stage stage, const wchar_t* detail = L"", std::uint64_t completed = 0,
                                       std::uint64_t total = 0) {
    return [=](WindowModel& model) { Stages(model, stage, detail, completed, total); };
}

std::function<void(WindowModel&)> SaysInRepair(Stage stage) {
    return [=](WindowModel& model) {
        Stages(model, Stage::Repairing);
        Stages(model, stage);
    };
}

std::function<void(WindowModel&)> SaysInProgress(Stage stage, const wchar_t* detail = L"", std::uint64_t completed = 0,
                                                 std::uint64_t total = 0) {
    return [=](WindowModel& model) {
        OpenProgressView(model);
        Stages(model, stage, detail, completed, total);
    };
}

std::function<void(WindowModel&)> OffersWith(const wchar_t* priority) {
    return [=](WindowModel& model) { test_support::Offers(model, priority, kNotesUrl); };
}

std::function<void(WindowModel&)> FooterIn(Phase phase, bool backup, bool slow = false) {
    return [=](WindowModel& model) { Transfers(model, phase, backup, slow); };
}

std::function<void(WindowModel&)> FailureOf(TextId text, bool blocking, const std::wstring& detail = L"") {
    return [=](WindowModel& model) { Fails(model, text, detail, blocking); };
}

/// A failure whose detail is made of texts, too.
std::function<void(WindowModel&)> FailureWith(std::vector<TextId> texts) {
    return [=](WindowModel& model) {
        std::wstring detail;
        for (const TextId text : texts) {
            detail += model.Text(text);
        }
        Fails(model, TextId::DidNotFinishStarting, detail + L" (server-requested-later-retry)", false);
    };
}

const std::vector<Saying>& AllSayings() {
    using Ids = TextId;
    static const std::vector<Saying> sayings = {
        // The compact window.
        {"version", Control::versionLine, {Ids::CurrentVersionPrefix}, Says(Stage::Checking), kLongestVersion},
        {"no version",
         Control::versionLine,
         {Ids::CurrentVersionPrefix, Ids::UnknownVersion},
         Says(Stage::Checking),
         L""},
        {"preparing", Control::statusLine, {Ids::PreparingCheck}, [](WindowModel&) {}},
        {"title", Control::title, {}, Says(Stage::Checking)},
        {"checking", Control::statusLine, {Ids::CheckingForUpdates}, Says(Stage::Checking)},
        {"skipped", Control::statusLine, {Ids::RecentlyChecked}, Says(Stage::Skipped)},
        {"up to date", Control::statusLine, {Ids::UpToDate}, Says(Stage::UpToDate)},
        {"up to date with",
         Control::statusLine,
         {Ids::UpToDate, Ids::OnlineVersionPrefix, Ids::OnlineVersionSuffix},
         Says(Stage::UpToDate, kOffered)},
        {"available",
         Control::statusLine,
         {Ids::VersionWaitingPrefix, Ids::AvailableWaitingSuffix},
         Says(Stage::UpdateAvailable, kOffered)},
        {"declined",
         Control::statusLine,
         {Ids::SkippedVersionPrefix, Ids::SkippedVersionSuffix},
         Says(Stage::Declined, kOffered)},
        {"repairing", Control::statusLine, {Ids::Repairing}, Says(Stage::Repairing)},
        {"repaired", Control::statusLine, {Ids::UpToDate}, SaysInRepair(Stage::Completed)},
        {"repair cancelled", Control::statusLine, {Ids::CancelledStarting}, SaysInRepair(Stage::Cancelled)},
        {"repair cancelling",
         Control::statusLine,
         {Ids::CancellingSafely},
         [](WindowModel& model) {
             Stages(model, Stage::Repairing);
             RequestCancel(model);
         }},
        {"repair failed", Control::statusLine, {Ids::DidNotFinishChecking}, SaysInRepair(Stage::Failed)},
        {"checking files", Control::statusLine, {Ids::CheckingFiles}, Says(Stage::CheckingFiles, L"", 1, 1)},
        {"verifying files", Control::statusLine, {Ids::VerifyingFiles}, Says(Stage::VerifyingFiles, L"", 1, 1)},
        // The prompt.
        {"offer", Control::statusLine, {Ids::NewVersionAvailable}, OffersWith(L"normal")},
        {"hotfix", Control::statusLine, {Ids::HotfixAvailable}, OffersWith(L"hotfix")},
        {"recommended", Control::statusLine, {Ids::RecommendedAvailable}, OffersWith(L"recommended")},
        {"heading", Control::notesHeading, {Ids::WhatsNew}, OffersWith(L"normal")},
        {"title in prompt", Control::title, {}, OffersWith(L"normal")},
        {"hint", Control::scrollHint, {Ids::ScrollForMore}, OffersWith(L"normal")},
        {"safety", Control::safetyNotice, {Ids::SafetyNoteVerified}, OffersWith(L"normal")},
        {"link", Control::notesLink, {Ids::ViewFullNotes}, OffersWith(L"normal")},
        {"update", Control::updateButton, {Ids::UpdateNow}, OffersWith(L"normal")},
        {"later", Control::laterButton, {Ids::Later}, OffersWith(L"normal")},
        {"badge", Control::versionBadge, {Ids::UnknownVersion}, OffersWith(L"normal"), L""},
        {"no notes",
         Control::notesPanel,
         {Ids::WhatsNew, Ids::NotesUnavailable},
         [](WindowModel& model) { OpenPrompt(model, kOffered, {}, kNotesUrl); }},
        // The progress view.
        {"accepted", Control::progressLine, {Ids::PreparingCheck}, OpenProgressView},
        {"resources", Control::progressLine, {Ids::UpdatingRequiredResources}, Says(Stage::Downloading, L"package:a")},
        {"downloading", Control::progressLine, {Ids::Downloading}, Says(Stage::Downloading, L"app.zip")},
        {"verifying", Control::progressLine, {Ids::VerifyingDownload}, Says(Stage::Verifying, L"app.zip")},
        {"installing",
         Control::progressLine,
         {Ids::InstallingPrefix, Ids::InstallingSuffix},
         Says(Stage::Installing, kOffered)},
        {"completed", Control::progressLine, {Ids::CompletedPrefix}, Says(Stage::Completed, kOffered)},
        {"cancelled", Control::progressLine, {Ids::CancelledStarting}, Says(Stage::Cancelled)},
        {"cancelling",
         Control::progressLine,
         {Ids::CancellingSafely},
         [](WindowModel& model) {
             Downloads(model, 37);
             RequestCancel(model);
         }},
        {"failed", Control::progressLine, {Ids::DidNotFinishChecking}, SaysInProgress(Stage::Failed)},
        {"checking files in progress",
         Control::progressLine,
         {Ids::CheckingFiles},
         SaysInProgress(Stage::CheckingFiles, L"", 1, 1)},
        {"verifying files in progress",
         Control::progressLine,
         {Ids::VerifyingFiles},
         SaysInProgress(Stage::VerifyingFiles, L"", 1, 1)},
        {"skip", Control::cancelButton, {Ids::SkipUpdateAndOpen}, OpenProgressView},
        {"cancel",
         Control::cancelButton,
         {Ids::Cancel},
         [](WindowModel& model) {
             OpenProgressView(model);
             Stages(model, Stage::Repairing);
         }},
        {"sizes",
         Control::progressDetail,
         {},
         [](WindowModel& model) {
             Stages(model, Stage::DownloadingBytes, L"app.zip", (1024ull << 20) - 60000, (2048ull << 30));
         }},
        {"full sizes",
         Control::progressDetail,
         {},
         [](WindowModel& model) {
             Stages(model, Stage::DownloadingBytes, L"app.zip", (2048ull << 30), (2048ull << 30));
         }},
        {"reconnect", Control::reconnectButton, {Ids::Reconnect}, FooterIn(Phase::receiving, false)},
        // The footer.
        {"footer", Control::footer, {Ids::SafetyNoteSwitching}, OpenProgressView},
        {"footer verifying", Control::footer, {Ids::VerifyingDownload}, Says(Stage::Verifying, L"app.zip")},
        {"connecting", Control::footer, {Ids::ConnectingToServer}, FooterIn(Phase::connecting, false)},
        {"receiving", Control::footer, {Ids::SpeedPrefix, Ids::RemainingPrefix}, FooterIn(Phase::receiving, false)},
        {"slow",
         Control::footer,
         {Ids::SlowConnection, Ids::SpeedPrefix, Ids::RemainingPrefix},
         FooterIn(Phase::slow, false)},
        {"retrying", Control::footer, {Ids::Reconnecting}, FooterIn(Phase::retrying, false)},
        {"verifying", Control::footer, {Ids::VerifyingDownload}, FooterIn(Phase::verifying, false)},
        {"cached", Control::footer, {Ids::ReusingVerifiedData}, FooterIn(Phase::cached, false)},
        {"complete", Control::footer, {Ids::SafetyNoteSwitching}, FooterIn(Phase::complete, false)},
        {"switching", Control::footer, {Ids::SwitchingToBackup}, FooterIn(Phase::switchingSource, false)},
        {"switching when slow",
         Control::footer,
         {Ids::SlowSwitchingToBackup},
         FooterIn(Phase::switchingSource, false, true)},
        {"comparing", Control::footer, {Ids::ComparingSources}, FooterIn(Phase::comparingSource, false)},
        {"stalled", Control::footer, {Ids::SpeedPrefix, Ids::WaitingForData}, Stalls},
        {"backup connecting",
         Control::footer,
         {Ids::SourceBackup, Ids::ConnectingToServer},
         FooterIn(Phase::connecting, true)},
        {"backup receiving",
         Control::footer,
         {Ids::SourceBackup, Ids::SpeedPrefix, Ids::RemainingPrefix},
         FooterIn(Phase::receiving, true)},
        {"backup slow",
         Control::footer,
         {Ids::SourceBackup, Ids::SlowConnection, Ids::SpeedPrefix, Ids::RemainingPrefix},
         FooterIn(Phase::slow, true)},
        {"backup retrying", Control::footer, {Ids::SourceBackup, Ids::Reconnecting}, FooterIn(Phase::retrying, true)},
        {"backup verifying",
         Control::footer,
         {Ids::SourceBackup, Ids::VerifyingDownload},
         FooterIn(Phase::verifying, true)},
        {"backup cached",
         Control::footer,
         {Ids::SourceBackup, Ids::ReusingVerifiedData},
         FooterIn(Phase::cached, true)},
        {"backup complete",
         Control::footer,
         {Ids::SourceBackup, Ids::SafetyNoteSwitching},
         FooterIn(Phase::complete, true)},
        {"backup comparing",
         Control::footer,
         {Ids::SourceBackup, Ids::ComparingSources},
         FooterIn(Phase::comparingSource, true)},
        // Failures and notices.
        {"status details", Control::notesHeading, {Ids::StatusDetails}, FailureOf(Ids::RecoveryNeedsAttention, true)},
        {"stopped", Control::footer, {Ids::LaunchStopped}, FailureOf(Ids::RecoveryNeedsAttention, true)},
        {"starts by itself", Control::footer, {Ids::AutoStartNote}, FailureOf(Ids::DidNotFinishStarting, false)},
        {"close", Control::cancelButton, {Ids::Close}, FailureOf(Ids::RecoveryNeedsAttention, true)},
        {"recovery, status",
         Control::statusLine,
         {Ids::RecoveryNeedsAttention},
         FailureOf(Ids::RecoveryNeedsAttention, true)},
        {"recovery",
         Control::progressLine,
         {Ids::RecoveryNeedsAttention},
         FailureOf(Ids::RecoveryNeedsAttention, true)},
        {"unfinished, status",
         Control::statusLine,
         {Ids::DidNotFinishStarting},
         FailureOf(Ids::DidNotFinishStarting, false)},
        {"unfinished", Control::progressLine, {Ids::DidNotFinishStarting}, FailureOf(Ids::DidNotFinishStarting, false)},
        {"too old, status", Control::statusLine, {Ids::LauncherTooOld}, FailureOf(Ids::LauncherTooOld, false)},
        {"too old", Control::progressLine, {Ids::LauncherTooOld}, FailureOf(Ids::LauncherTooOld, false)},
        {"latest, status", Control::statusLine, {Ids::AlreadyLatest}, FailureOf(Ids::AlreadyLatest, false)},
        {"latest", Control::progressLine, {Ids::AlreadyLatest}, FailureOf(Ids::AlreadyLatest, false)},
        {"incomplete",
         Control::notesPanel,
         {Ids::DidNotFinishStarting, Ids::DownloadIncomplete},
         FailureWith({Ids::DownloadIncomplete})},
        {"copy failed",
         Control::notesPanel,
         {Ids::DidNotFinishStarting, Ids::StagingCopyFailed},
         FailureWith({Ids::StagingCopyFailed})},
        {"older",
         Control::notesPanel,
         {Ids::DidNotFinishStarting, Ids::BackupMetadataOlder},
         FailureWith({Ids::BackupMetadataOlder})},
        {"start failed",
         Control::notesPanel,
         {Ids::StartFailedPrefix, Ids::StartFailedSuffix},
         [](WindowModel& model) {
             const std::wstring path = L"C:\\Program Files\\" + std::wstring(180, L'x') + L"\\Velmora Pine Relay.exe";
             OpenFailure(
                 model, false,
                 model.Text(Ids::StartFailedPrefix) + (L"4294967295" + (model.Text(Ids::StartFailedSuffix) + path)));
         }},
    };
    return sayings;
}

// --- How much room there is ---

std::wstring TextOf(HWND control) {
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(control)) + 1, L'\0');
    text.resize(static_cast<std::size_t>(GetWindowTextW(control, text.data(), static_cast<int>(text.size()))));
    return text;
}

using Room = std::array<Size, kControlCount>;

/// The client areas of all controls in the kinds of view that place them differently. Read from a real window once for
/// each scale: what is measured in them is the text of thousands of models.
struct Rooms {
    explicit Rooms(StatusWindow& status) {
        for (const auto& [name, room] :
             {std::pair{"checking", &compact}, std::pair{"prompt", &large}, std::pair{"blocking-failure", &held}}) {
            test_support::Open(status, test_support::ViewNamed(name));
            for (std::size_t index = 0; index < room->size(); ++index) {
                RECT client = {};
                GetClientRect(status.controls[index], &client);
                (*room)[index] = {static_cast<int>(client.right), static_cast<int>(client.bottom)};
            }
        }
        test_support::Open(status, test_support::ViewNamed("receiving"));  // places the buttons of a transfer
        for (const Control button : {Control::cancelButton, Control::reconnectButton, Control::footer}) {
            RECT client = {};
            GetClientRect(status.At(button), &client);
            large[static_cast<std::size_t>(button)] = {static_cast<int>(client.right), static_cast<int>(client.bottom)};
        }
        footerLeftOfReconnect = test_support::PlaceIn(status.window, status.At(Control::reconnectButton)).left -
                                test_support::PlaceIn(status.window, status.At(Control::footer)).left;
    }

    [[nodiscard]] Size Of(Control control, const WindowModel& model) const {
        const Room& room = model.viewMode == ViewMode::compact ? compact : model.failureHeld ? held : large;
        return room[static_cast<std::size_t>(control)];
    }

    Room compact;
    Room large;
    Room held;
    int footerLeftOfReconnect = 0;
};

// --- How much room a text takes ---

/// One line that may end in an ellipsis.
bool IsEllipsisLine(Control control) {
    return control == Control::statusLine || control == Control::progressLine;
}

/// What a control needs for its text, drawn as it draws it.
Size Need(const StatusWindow& status, Control control, const WindowModel& model, const Size& room) {
    const HFONT font = status.fonts.Get(FontOf(control));
    const std::wstring& text = model.At(control).text;
    switch (control) {
        case Control::statusLine:
        case Control::progressLine:
            return MeasureLine(font, text);
        case Control::notesLink:
            return MeasureLine(font, text + L"  →");
        case Control::versionBadge:
            return MeasureLine(font, model.CurrentVersionText());
        case Control::updateButton:
        case Control::laterButton:
        case Control::cancelButton:
        case Control::reconnectButton: {
            const Size line = MeasureLine(font, text);
            return {line.width + 2 * Px(4, status.dpi), line.height};  // clear of the round corners
        }
        default:
            return MeasureWords(font, text, room.width, DT_WORDBREAK | DT_EXPANDTABS);
    }
}

Size RoomFor(const Rooms& rooms, Control control, const WindowModel& model, int dpi) {
    Size room = rooms.Of(control, model);
    if (control == Control::versionBadge) room.width = Px(62, dpi);  // the installed version's part of it
    if (control == Control::footer && model.At(Control::reconnectButton).visible) {
        room.width = rooms.footerLeftOfReconnect;
    }
    return room;
}

bool Fits(const Size& need, const Size& room) {
    return need.width <= room.width && need.height <= room.height;
}

WindowModel ModelOf(const Saying& saying, Language language) {
    WindowModel model = MakeWindowModel(language, saying.installed);
    saying.say(model);
    return model;
}

std::string Tag(Language language) {
    return platform::EncodeUtf8(product::LanguageTag(language));
}

/// A saying that does not fit, as "name, language, dpi".
std::string RowOf(const Saying& saying, Language language, int dpi) {
    return std::string(saying.name) + ", " + Tag(language) + ", " + std::to_string(dpi);
}

template <typename Visit>
void ForEverySaying(const Visit& visit) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        const Rooms rooms(window.status);
        for (const Language language : kLanguages) {
            for (const Saying& saying : AllSayings()) {
                if (saying.control == Control::notesPanel) continue;  // grows with its text
                const WindowModel model = ModelOf(saying, language);
                const Size room = RoomFor(rooms, saying.control, model, dpi);
                visit(saying, language, dpi, Need(window.status, saying.control, model, room), room);
            }
        }
    }
}

/// Without a font for the three scripts of the far east their texts would be measured as narrow boxes.
TEST(WindowTextFit, Fonts_HaveTheLettersOfAllLanguages) {
    const test_support::WindowFont font(100, 400);
    for (const wchar_t* letters : {L"更新", L"驗證", L"档案", L"アプ", L"업데"}) {
        EXPECT_GE(MeasureLine(font.Get(), letters).width, 170) << platform::EncodeUtf8(letters);
    }
}

TEST(WindowTextFit, EverySaying_IsMadeOfItsTexts) {
    for (const Language language : kLanguages) {
        for (const Saying& saying : AllSayings()) {
            if (saying.control == Control::notesPanel) continue;  // has the texts of its cards, see below
            const WindowModel model = ModelOf(saying, language);
            EXPECT_TRUE(model.At(saying.control).visible) << saying.name;
            for (const TextId id : saying.ids) {
                EXPECT_NE(model.At(saying.control).text.find(TextIn(language, id)), std::wstring::npos)
                    << "text " << static_cast<unsigned>(id) << " in " << saying.name << ", " << Tag(language);
            }
        }
    }
}

/// Everything but the two lines and the badge, which end in an ellipsis by design.
TEST(WindowTextFit, EveryTextInEveryLanguage_FitsItsControl) {
    std::size_t measured = 0;
    ForEverySaying([&](const Saying& saying, Language language, int dpi, const Size& need, const Size& room) {
        if (IsEllipsisLine(saying.control) || saying.control == Control::versionBadge) return;
        ++measured;
        EXPECT_TRUE(Fits(need, room)) << RowOf(saying, language, dpi) << " needs " << need << " and has " << room;
    });
    EXPECT_GT(measured, 39u * kLanguages.size() * kWindowScales.size());
}

// --- What ends in an ellipsis ---

constexpr const char* kEllipsisRows[] = {
    // The installed version's box is narrow; the version line of the compact window says the same in full.
    "badge, en, 96",
    "badge, en, 120",
    "badge, en, 144",
    "badge, en, 192",
    "badge, ko, 120",
    // Two sentences made of fixed pieces.
    "declined, ja, 96",
    "declined, ja, 120",
    "declined, ja, 144",
    "declined, ja, 192",
    "installing, ja, 96",
    "installing, ja, 120",
    "installing, ja, 144",
    "installing, ja, 192",
    // What the first card of the same view says in full.
    "recovery, status, en, 120",
    "unfinished, status, en, 96",
    "unfinished, status, en, 120",
    "unfinished, status, en, 144",
    "unfinished, status, en, 192",
    "unfinished, status, ko, 120",
    "too old, status, en, 96",
    "too old, status, en, 120",
    "too old, status, en, 144",
    "too old, status, en, 192",
    "too old, status, ja, 96",
    "too old, status, ja, 120",
    "too old, status, ja, 144",
    "too old, status, ja, 192",
    "too old, status, ko, 96",
    "too old, status, ko, 120",
    "too old, status, ko, 144",
    "too old, status, ko, 192",
    "too old, en, 96",
    "too old, en, 120",
    "too old, en, 144",
    "too old, en, 192",
    "too old, ja, 96",
    "too old, ja, 120",
    "too old, ja, 144",
    "too old, ja, 192",
    "too old, ko, 96",
    "too old, ko, 120",
    "too old, ko, 144",
    "too old, ko, 192",
};

TEST(WindowTextFit, LinesThatEndInAnEllipsis_AreThese) {
    std::set<std::string> rows;
    std::ostringstream widths;
    ForEverySaying([&](const Saying& saying, Language language, int dpi, const Size& need, const Size& room) {
        if (!IsEllipsisLine(saying.control) && saying.control != Control::versionBadge) return;
        EXPECT_LE(need.height, room.height) << RowOf(saying, language, dpi);
        if (Fits(need, room)) return;
        rows.insert(RowOf(saying, language, dpi));
        widths << RowOf(saying, language, dpi) << " needs " << need.width << " of " << room.width << "\n";
    });
    EXPECT_EQ(rows, std::set<std::string>(std::begin(kEllipsisRows), std::end(kEllipsisRows))) << widths.str();
}

bool IsSomewhereShortened(const Saying& saying) {
    const std::string begin = std::string(saying.name) + ", ";
    return std::any_of(std::begin(kEllipsisRows), std::end(kEllipsisRows), [&](const std::string& row) {
        return row.starts_with(begin) &&
               std::count(row.begin() + static_cast<std::ptrdiff_t>(begin.size()), row.end(), ',') == 1;
    });
}

TEST(WindowTextFit, ShortenedLine_IsWholeForWhoeverReadsTheWindow) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    StatusWindow& status = window.status;
    int shortened = 0;
    for (const Saying& saying : AllSayings()) {
        if (!IsSomewhereShortened(saying)) continue;
        ++shortened;
        for (const Language language : kLanguages) {
            StartAnew(status, language, saying.installed);
            saying.say(status.model);
            ShowModel(status);
            const std::wstring text = TextOf(status.At(saying.control));
            std::size_t found = 0;
            for (const TextId id : saying.ids) {
                found = text.find(TextIn(language, id), found);
                EXPECT_NE(found, std::wstring::npos) << saying.name << ", " << Tag(language);
            }
            if (IsEllipsisLine(saying.control)) {
                EXPECT_NE(GetWindowLongPtrW(status.At(saying.control), GWL_STYLE) & SS_PATHELLIPSIS, 0) << saying.name;
            }
            if (!status.model.failureHeld) continue;
            EXPECT_EQ(status.noteCards.cards.front().text, text) << "in full on a card: " << saying.name;
        }
    }
    EXPECT_EQ(shortened, 7);
}

/// A shortened line is one line with an ellipsis, not a text that breaks into a second line or ends in half a letter.
TEST(WindowTextFit, ShortenedLine_IsPaintedWithAnEllipsis) {
    ScaledWindow window(96);
    ASSERT_TRUE(window.created);
    StatusWindow& status = window.status;
    StartAnew(status, Language::japanese);
    OpenFailureView(status.model, status.model.Text(TextId::LauncherTooOld), L"", false, false);
    ShowModel(status);
    for (const Control control : {Control::statusLine, Control::progressLine}) {
        const test_support::Picture actual = test_support::PictureOfOne(status.At(control));
        const test_support::Picture cut(actual.Area().right, actual.Area().bottom);
        const test_support::WindowFont font(14, 400);
        DrawFilled(cut, cut.Area(), 0x0F1318);
        DrawWords(cut, font, status.model.At(control).text, cut.Area(),
                  control == Control::statusLine ? 0xA9B4C2 : 0xF4F7FA, DT_SINGLELINE | DT_NOPREFIX);
        EXPECT_NE(Difference(actual, cut), "") << "the end of the text is cut off";
        const auto ink = actual.BoundsOfOther(actual.Area(), 0x0F1318);
        ASSERT_TRUE(ink.has_value());
        EXPECT_LE(ink->Height(), MeasureLine(font.Get(), L"更").height);
    }
}

// --- Cards ---

TEST(WindowTextFit, EveryCard_HoldsAllOfItsText) {
    for (const int dpi : kWindowScales) {
        ScaledWindow window(dpi);
        ASSERT_TRUE(window.created);
        StatusWindow& status = window.status;
        for (const Language language : kLanguages) {
            for (const Saying& saying : AllSayings()) {
                if (saying.control != Control::notesPanel) continue;
                StartAnew(status, language, saying.installed);
                saying.say(status.model);
                ShowModel(status);
                const std::wstring all = TextOf(status.At(Control::notesPanel));
                for (const TextId id : saying.ids) {
                    EXPECT_NE(all.find(TextIn(language, id)), std::wstring::npos) << RowOf(saying, language, dpi);
                }
                ASSERT_EQ(status.noteCards.cards.size(), status.notesLayout.cards.size());
                for (std::size_t index = 0; index < status.noteCards.cards.size(); ++index) {
                    const Rectangle& card = status.notesLayout.cards[index];
                    const Size room = {card.Width() - 2 * Px(18, dpi), card.Height() - 2 * Px(14, dpi)};
                    const Size need = MeasureWords(status.fonts.Get(FontRole::body), status.noteCards.cards[index].text,
                                                   room.width, DT_WORDBREAK | DT_NOPREFIX | DT_EDITCONTROL);
                    EXPECT_TRUE(Fits(need, room)) << RowOf(saying, language, dpi) << ", card " << index << " needs "
                                                  << need << " and has " << room;
                }
            }
        }
    }
}

// --- All of the texts ---

struct Unsaid {
    TextId id;
    const char* reason;
};

constexpr Unsaid kUnsaid[] = {
    {TextId::VersionAvailablePrefix, "a version is offered by the prompt's own headline; the words are those of 12"},
    {TextId::AvailableInstallSuffix, "the prompt asks with its buttons"},
    {TextId::DownloadedPrefix, "the progress detail says the sizes without words"},
    {TextId::DownloadedSuffix, "the progress detail says the sizes without words"},
    {TextId::CheckFailedStarting, "a check that fails safely ends in the failure view with DidNotFinishStarting"},
    {TextId::CheckFailedPrefix, "the error stands on a card of its own, without a prefix"},
};

TEST(WindowTextFit, EveryText_IsMeasuredOrHasAReasonNotToBe) {
    std::set<unsigned> measured;
    for (const Saying& saying : AllSayings()) {
        for (const TextId id : saying.ids) {
            measured.insert(static_cast<unsigned>(id));
        }
    }
    std::set<unsigned> unsaid;
    for (const Unsaid& row : kUnsaid) {
        EXPECT_FALSE(std::string(row.reason).empty());
        unsaid.insert(static_cast<unsigned>(row.id));
    }
    for (unsigned id = 0; id < product::kTextCount; ++id) {
        EXPECT_EQ(measured.count(id) + unsaid.count(id), 1u) << "text " << id;
    }
}

}  // namespace
}  // namespace launcher_ui
