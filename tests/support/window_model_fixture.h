#pragma once

/// What the tests of the status window's model share: windows in every state, events with good defaults, and a list of
/// all that an event changed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "platform/text.h"
#include "ui/failure_view.h"
#include "ui/progress_model.h"
#include "ui/prompt.h"
#include "ui/window_model.h"

namespace test_support {

using launcher_download::Phase;
using launcher_download::Progress;
using launcher_ui::Control;
using launcher_ui::ControlState;
using launcher_ui::UpdateProgressModel;
using launcher_ui::ViewMode;
using launcher_ui::WindowModel;
using launcher_update::Stage;
using product::Language;
using product::TextId;

inline constexpr std::array kLanguages = {Language::english, Language::traditionalChinese, Language::simplifiedChinese,
                                          Language::japanese, Language::korean};
inline constexpr std::array kViews = {ViewMode::compact, ViewMode::prompt, ViewMode::progress};
inline constexpr Stage kUnknownStage = static_cast<Stage>(15);
/// All stages, and two numbers that none has.
inline constexpr std::array kStages = {Stage::Checking,
                                       Stage::Skipped,
                                       Stage::UpToDate,
                                       Stage::UpdateAvailable,
                                       Stage::Repairing,
                                       Stage::Declined,
                                       Stage::Downloading,
                                       Stage::DownloadingBytes,
                                       Stage::Verifying,
                                       Stage::Installing,
                                       Stage::Completed,
                                       Stage::Cancelled,
                                       Stage::Failed,
                                       Stage::CheckingFiles,
                                       Stage::VerifyingFiles,
                                       kUnknownStage,
                                       static_cast<Stage>(0xFFFFFFFF)};
inline constexpr std::array kTransferStages = {Stage::Downloading, Stage::DownloadingBytes, Stage::Verifying,
                                               Stage::Installing};
/// All phases, and a number that none has.
inline constexpr std::array kPhases = {Phase::connecting,      Phase::receiving,       Phase::slow,
                                       Phase::retrying,        Phase::verifying,       Phase::cached,
                                       Phase::complete,        Phase::failed,          Phase::cancelled,
                                       Phase::switchingSource, Phase::comparingSource, static_cast<Phase>(11)};

inline constexpr const wchar_t* kInstalled = L"2.1.4.1";
inline constexpr const wchar_t* kOffered = L"2.1.4.2";
inline constexpr const wchar_t* kNotesUrl = L"https://notes.example/2.1.4.2";

template <typename Enumerator>
constexpr unsigned Number(Enumerator value) {
    return static_cast<unsigned>(value);
}

inline bool IsTransferStage(Stage stage) {
    for (const Stage known : kTransferStages) {
        if (known == stage) return true;
    }
    return false;
}

// --- Windows ---

inline WindowModel CompactWindow(Language language = Language::english) {
    WindowModel model = launcher_ui::MakeWindowModel(language, kInstalled);
    model.shown = true;
    return model;
}

inline WindowModel PromptWindow(Language language = Language::english) {
    WindowModel model = CompactWindow(language);
    launcher_ui::OpenPrompt(model, kOffered, {}, kNotesUrl);
    return model;
}

inline WindowModel ProgressWindow(Language language = Language::english) {
    WindowModel model = CompactWindow(language);
    launcher_ui::OpenProgressView(model);
    return model;
}

inline WindowModel WindowIn(ViewMode view, Language language = Language::english) {
    if (view == ViewMode::compact) return CompactWindow(language);
    return view == ViewMode::prompt ? PromptWindow(language) : ProgressWindow(language);
}

inline WindowModel RepairWindow(Language language = Language::english) {
    WindowModel model = CompactWindow(language);
    launcher_ui::ApplyStage(model, Stage::Repairing, L"", 0, 0);
    return model;
}

/// A window with a transfer of which `done` bytes of `total` have come.
inline WindowModel TransferWindow(std::uint64_t done, std::uint64_t total, Language language = Language::english) {
    WindowModel model = ProgressWindow(language);
    launcher_ui::ApplyStage(model, Stage::DownloadingBytes, L"app.zip", done, total);
    return model;
}

inline WindowModel FailureWindow(bool blocking, Language language = Language::english) {
    WindowModel model = CompactWindow(language);
    launcher_ui::OpenFailureView(model, L"It failed", L"Why it failed", blocking, true);
    return model;
}

// --- Events ---

inline void Apply(WindowModel& model, Stage stage, const std::wstring& detail = L"", std::uint64_t completed = 0,
                  std::uint64_t total = 0) {
    launcher_ui::ApplyStage(model, stage, detail, completed, total);
}

inline Progress ReportIn(Phase phase) {
    Progress progress;
    progress.phase = phase;
    progress.attempt = 1;
    return progress;
}

/// Bytes that arrive, at a speed that is steady enough to promise an end.
inline Progress Receiving(double bytesPerSecond) {
    Progress progress = ReportIn(Phase::receiving);
    progress.bytesPerSecond = bytesPerSecond;
    progress.elapsedMs = 3000;
    return progress;
}

inline Progress RestartAt(std::uint64_t done, std::uint64_t total) {
    Progress progress = ReportIn(Phase::connecting);
    progress.restarted = true;
    progress.aggregateBytes = done;
    progress.aggregateTotal = total;
    return progress;
}

inline void Report(WindowModel& model, const Progress& progress, std::uint64_t nowTicks = 1000) {
    launcher_ui::ApplyDownloadProgress(model, progress, nowTicks);
}

// --- Texts ---

using Piece = std::variant<TextId, const wchar_t*>;

inline std::wstring Joined(Language language, const std::vector<Piece>& pieces) {
    std::wstring text;
    for (const Piece& piece : pieces) {
        const auto* const id = std::get_if<TextId>(&piece);
        text += id != nullptr ? product::TextIn(language, *id) : std::get<const wchar_t*>(piece);
    }
    return text;
}

// --- What an event changed ---

template <typename Record, typename Value>
struct Field {
    const char* name;
    Value Record::*member;

    constexpr Field(const char* fieldName, Value Record::*fieldMember) : name(fieldName), member(fieldMember) {}
};

inline constexpr auto kProgressFields = std::tuple{
    Field{"aggregateKnown", &UpdateProgressModel::aggregateKnown},
    Field{"aggregateDone", &UpdateProgressModel::aggregateDone},
    Field{"aggregateTotal", &UpdateProgressModel::aggregateTotal},
    Field{"installing", &UpdateProgressModel::installing},
    Field{"terminal", &UpdateProgressModel::terminal},
    Field{"cancelRequested", &UpdateProgressModel::cancelRequested},
    Field{"cancelEnabled", &UpdateProgressModel::cancelEnabled},
    Field{"closeBlocked", &UpdateProgressModel::closeBlocked},
    Field{"repairMode", &UpdateProgressModel::repairMode},
    Field{"percent", &UpdateProgressModel::percent},
    Field{"indeterminate", &UpdateProgressModel::indeterminate},
    Field{"barColour", &UpdateProgressModel::barColour},
    Field{"lastStage", &UpdateProgressModel::lastStage},
    Field{"reconnectAvailable", &UpdateProgressModel::reconnectAvailable},
    Field{"reconnectRequested", &UpdateProgressModel::reconnectRequested},
    Field{"progressSeen", &UpdateProgressModel::progressSeen},
    Field{"stallWatch", &UpdateProgressModel::stallWatch},
    Field{"lastProgressTicks", &UpdateProgressModel::lastProgressTicks},
    Field{"marqueeRuns", &UpdateProgressModel::marqueeRuns},
    Field{"marqueeTick", &UpdateProgressModel::marqueeTick},
};

inline constexpr auto kWindowFields = std::tuple{
    Field{"language", &WindowModel::language},
    Field{"shown", &WindowModel::shown},
    Field{"viewMode", &WindowModel::viewMode},
    Field{"arrangement", &WindowModel::arrangement},
    Field{"currentVersion", &WindowModel::currentVersion},
    Field{"offeredVersion", &WindowModel::offeredVersion},
    Field{"fullNotesUrl", &WindowModel::fullNotesUrl},
    Field{"notes", &WindowModel::notes},
    Field{"notesRevision", &WindowModel::notesRevision},
    Field{"promptChoice", &WindowModel::promptChoice},
    Field{"promptOpen", &WindowModel::promptOpen},
    Field{"autoAcceptPrompt", &WindowModel::autoAcceptPrompt},
    Field{"failureHeld", &WindowModel::failureHeld},
    Field{"failureClosed", &WindowModel::failureClosed},
    Field{"failureBlocking", &WindowModel::failureBlocking},
};

inline constexpr auto kControlFields = std::tuple{
    Field{"text", &ControlState::text},
    Field{"visible", &ControlState::visible},
    Field{"enabled", &ControlState::enabled},
};

inline constexpr std::array<const char*, launcher_ui::kControlCount> kControlNames = {
    "title",      "versionLine",  "statusLine",   "bar",          "versionBadge",   "notesHeading",
    "scrollHint", "notesPanel",   "safetyNotice", "progressLine", "progressDetail", "footer",
    "notesLink",  "updateButton", "laterButton",  "cancelButton", "reconnectButton"};

using Names = std::set<std::string>;

template <typename Record, typename Fields>
void CollectChanged(const Record& before, const Record& after, const Fields& fields, const char* prefix, Names& names) {
    const auto compare = [&](const auto& field) {
        if (before.*field.member == after.*field.member) return;
        names.insert(std::string(prefix) + (*prefix == '\0' ? "" : ".") + field.name);
    };
    std::apply([&](const auto&... field) { (compare(field), ...); }, fields);
}

/// Names of all fields that differ, such as "percent", "viewMode" or "footer.text".
inline Names Changed(const WindowModel& before, const WindowModel& after) {
    Names names;
    CollectChanged(before.progress, after.progress, kProgressFields, "", names);
    CollectChanged(before, after, kWindowFields, "", names);
    for (std::size_t index = 0; index < kControlNames.size(); ++index) {
        CollectChanged(before.controls[index], after.controls[index], kControlFields, kControlNames[index], names);
    }
    return names;
}

inline Names VisibleControls(const WindowModel& model) {
    Names names;
    for (std::size_t index = 0; index < kControlNames.size(); ++index) {
        if (model.controls[index].visible) names.insert(kControlNames[index]);
    }
    return names;
}

inline std::string Narrow(const std::wstring& text) {
    return platform::EncodeUtf8(text);
}

}  // namespace test_support
