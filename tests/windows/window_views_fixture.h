#pragma once

/// What the tests of the real status window share: every state that the user can see, at every scale, and the measures
/// of the window written down a second time.

#include <windows.h>

#include <commctrl.h>
#undef CreateStatusWindow  // a macro for another control, of the same name as our function

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/layout_fixture.h"
#include "tests/support/window_picture.h"
#include "ui/failure_view.h"
#include "ui/progress_model.h"
#include "ui/prompt.h"
#include "ui/status_window.h"

namespace test_support {

using launcher_download::Phase;
using launcher_download::Progress;
using launcher_ui::BarFill;
using launcher_ui::Control;
using launcher_ui::Rectangle;
using launcher_ui::StatusWindow;
using launcher_ui::ViewMode;
using launcher_ui::WindowModel;
using launcher_update::ReleaseNotes;
using launcher_update::Stage;
using product::Language;
using product::TextId;

inline constexpr const wchar_t* kInstalled = L"2.1.4.1";
inline constexpr const wchar_t* kOffered = L"2.1.4.2";
inline constexpr const wchar_t* kNotesUrl = L"https://notes.example/2.1.4.2";

/// The scales at which the window is looked at: 100, 125, 150 and 200 percent.
inline constexpr std::array kWindowScales = {96, 120, 144, 192};

/// Units to pixels by the very function of Windows that the measures are defined with.
inline int Px(int units, int dpi) {
    return MulDiv(units, dpi, 96);
}

// --- A window at a scale ---

/// Tells a window that it stands on a screen of another scale now.
inline void ChangeScale(StatusWindow& status, int dpi) {
    const bool compact = status.model.viewMode == ViewMode::compact;
    const int width = Px(compact ? 470 : 780, dpi);
    const int height = Px(compact ? 176 : 620, dpi);
    RECT suggested = {10, 20, 10 + width, 20 + height};
    SendMessageW(status.window, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(&suggested));
}

/// The model of a window just created, in a language of the caller's choice. It is shown with the next `ShowModel`;
/// nothing is pumped, so no timer moves a bar.
inline void StartAnew(StatusWindow& status, Language language, const wchar_t* version = kInstalled) {
    WindowModel model = launcher_ui::MakeWindowModel(language, version);
    model.arrangement = status.shown.arrangement + 1;
    model.notesRevision = status.shown.notesRevision;
    status.model = model;
}

/// A real window, in English until told otherwise.
struct ScaledWindow {
    explicit ScaledWindow(int dpi) {
        created = launcher_ui::CreateStatusWindow(status, GetModuleHandleW(nullptr), kInstalled, SW_HIDE);
        if (!created) return;
        ChangeScale(status, dpi);
    }

    StatusWindow status;
    bool created = false;
};

/// Lets a control answer the question for its state of focus cues, which Wine does not keep: `UISF_HIDEFOCUS` after a
/// click, 0 after a key.
class FocusCues {
  public:
    FocusCues(HWND control, LRESULT state) : control_(control) {
        SetWindowSubclass(control_, Answer, kSubclassId, static_cast<DWORD_PTR>(state));
    }
    FocusCues(const FocusCues&) = delete;
    FocusCues& operator=(const FocusCues&) = delete;
    ~FocusCues() { RemoveWindowSubclass(control_, Answer, kSubclassId); }

  private:
    static constexpr UINT_PTR kSubclassId = 77;

    static LRESULT CALLBACK Answer(HWND control, UINT message, WPARAM first, LPARAM second, UINT_PTR, DWORD_PTR state) {
        if (message == WM_QUERYUISTATE) return static_cast<LRESULT>(state);
        return DefSubclassProc(control, message, first, second);
    }

    HWND control_;
};

// --- What the user can see ---

inline ReleaseNotes SomeNotes() {
    ReleaseNotes notes;
    notes.summary = L"A calmer release.";
    notes.highlights = {L"Less noise at start.", L"Fixed: a lost connection is found again."};
    notes.emphasizedItems = {L"Less noise at start."};
    return notes;
}

inline void Stages(WindowModel& model, Stage stage, const std::wstring& detail = L"", std::uint64_t completed = 0,
                   std::uint64_t total = 0) {
    launcher_ui::ApplyStage(model, stage, detail, completed, total);
}

inline void Reports(WindowModel& model, Phase phase) {
    Progress progress;
    progress.phase = phase;
    progress.attempt = 1;
    progress.bytesPerSecond = 131072.0;
    launcher_ui::ApplyDownloadProgress(model, progress, 1000);
}

inline void Downloads(WindowModel& model, int percent) {
    Stages(model, Stage::DownloadingBytes, L"app.zip", static_cast<std::uint64_t>(percent) << 20, 100ull << 20);
}

inline void Offers(WindowModel& model, const wchar_t* priority, const wchar_t* url) {
    ReleaseNotes notes = SomeNotes();
    notes.priority = priority;
    launcher_ui::OpenPrompt(model, kOffered, notes, url);
}

/// A state of the window and what of it is to be seen beside the parts that every state of its view has.
struct View {
    const char* name;
    ViewMode mode;
    void (*open)(WindowModel& model);
    bool held = false;  // a failure view or a notice
    bool badge = true;  // in the large views
    bool link = false;
    bool reconnect = false;
    bool cancel = true;  // in the progress view
    bool cancelWorks = false;
    bool reconnectWorks = false;
    int percent = -1;  // of the bar; -1: in motion
    Pixel barColour = 0x2997FF;
};

inline const std::vector<View>& AllViews() {
    constexpr auto compact = ViewMode::compact;
    constexpr auto prompt = ViewMode::prompt;
    constexpr auto progress = ViewMode::progress;
    static const std::vector<View> views = {
        {.name = "checking", .mode = compact, .open = [](WindowModel& model) { Stages(model, Stage::Checking); }},
        {.name = "recently-checked",
         .mode = compact,
         .open = [](WindowModel& model) { Stages(model, Stage::Skipped); },
         .percent = 100},
        {.name = "up-to-date",
         .mode = compact,
         .open = [](WindowModel& model) { Stages(model, Stage::UpToDate, kInstalled); },
         .percent = 100,
         .barColour = 0x30BE7A},
        {.name = "offering",
         .mode = compact,
         .open = [](WindowModel& model) { Stages(model, Stage::UpdateAvailable, kOffered); },
         .percent = 100,
         .barColour = 0xF0AE3A},
        {.name = "files",
         .mode = compact,
         .open = [](WindowModel& model) { Stages(model, Stage::CheckingFiles, L"", 53, 100); },
         .percent = 53},
        {.name = "repair", .mode = compact, .open = [](WindowModel& model) { Stages(model, Stage::Repairing); }},
        {.name = "repair-bytes",
         .mode = compact,
         .open =
             [](WindowModel& model) {
                 Stages(model, Stage::Repairing);
                 Stages(model, Stage::DownloadingBytes, L"package:application-runtime", 1, 100);
             },
         .percent = 1},
        {.name = "repair-failed",
         .mode = compact,
         .open =
             [](WindowModel& model) {
                 Stages(model, Stage::Repairing);
                 Stages(model, Stage::Failed);
             },
         .percent = 100,
         .barColour = 0xE85454},
        {.name = "prompt",
         .mode = prompt,
         .open = [](WindowModel& model) { Offers(model, L"normal", kNotesUrl); },
         .link = true},
        {.name = "prompt-without-link",
         .mode = prompt,
         .open = [](WindowModel& model) { Offers(model, L"normal", L""); }},
        {.name = "prompt-hotfix",
         .mode = prompt,
         .open = [](WindowModel& model) { Offers(model, L"hotfix", kNotesUrl); },
         .link = true},
        {.name = "prompt-recommended",
         .mode = prompt,
         .open = [](WindowModel& model) { Offers(model, L"recommended", kNotesUrl); },
         .link = true},
        {.name = "accepted",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 Offers(model, L"normal", kNotesUrl);
                 launcher_ui::OpenProgressView(model);
             }},
        {.name = "downloading",
         .mode = progress,
         .open = [](WindowModel& model) { Downloads(model, 37); },
         .cancelWorks = true,
         .percent = 37},
        {.name = "receiving",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 Downloads(model, 99);
                 Reports(model, Phase::receiving);
             },
         .reconnect = true,
         .cancelWorks = true,
         .reconnectWorks = true,
         .percent = 99},
        {.name = "connecting",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 Stages(model, Stage::Downloading, L"app.zip", 0, 1);
                 Reports(model, Phase::connecting);
             },
         .cancelWorks = true},
        {.name = "reconnect-asked",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 Downloads(model, 37);
                 Reports(model, Phase::slow);
                 (void)launcher_ui::PressButton(model, launcher_ui::kReconnectButtonId);
             },
         .reconnect = true,
         .cancelWorks = true,
         .percent = 37},
        {.name = "verifying",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 Downloads(model, 50);
                 Stages(model, Stage::Verifying, L"app.zip", 50, 100);
             },
         .percent = 50},
        {.name = "installing",
         .mode = progress,
         .open = [](WindowModel& model) { Stages(model, Stage::Installing, kOffered); }},
        {.name = "completed",
         .mode = progress,
         .open = [](WindowModel& model) { Stages(model, Stage::Completed, kOffered); },
         .percent = 100,
         .barColour = 0x30BE7A},
        {.name = "cancelling",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 Downloads(model, 37);
                 launcher_ui::RequestCancel(model);
             }},
        {.name = "cancelled",
         .mode = progress,
         .open = [](WindowModel& model) { Stages(model, Stage::Cancelled); },
         .percent = 0},
        {.name = "failed",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 Downloads(model, 37);
                 Stages(model, Stage::Failed);
             },
         .percent = 100,
         .barColour = 0xE85454},
        {.name = "blocking-failure",
         .mode = progress,
         .open = [](WindowModel& model) { launcher_ui::OpenFailure(model, false, L"Recovery remains incomplete."); },
         .held = true,
         .badge = false,
         .cancelWorks = true,
         .percent = 100,
         .barColour = 0xE85454},
        {.name = "safe-failure",
         .mode = progress,
         .open = [](WindowModel& model) { launcher_ui::OpenFailure(model, true, L"A download was interrupted."); },
         .held = true,
         .badge = false,
         .cancel = false,
         .percent = 100,
         .barColour = 0xE85454},
        {.name = "notice",
         .mode = progress,
         .open =
             [](WindowModel& model) {
                 launcher_ui::OpenFailureView(model, model.Text(TextId::AlreadyLatest), L"", false, false);
             },
         .held = true,
         .badge = false,
         .cancel = false,
         .percent = 100},
    };
    return views;
}

inline const View& ViewNamed(const std::string& name) {
    for (const View& view : AllViews()) {
        if (view.name == name) return view;
    }
    throw std::invalid_argument(name);
}

inline constexpr unsigned kSomeTick = 60;  // a bar in motion with its segment in the middle

/// Brings a window into a state. A bar in motion stands still at `tick`.
inline void Open(StatusWindow& status, const View& view, unsigned tick = kSomeTick) {
    StartAnew(status, Language::english);
    view.open(status.model);
    if (status.model.progress.indeterminate) status.model.progress.marqueeTick = tick;
    launcher_ui::ShowModel(status);
}

}  // namespace test_support
