#pragma once

/// All that the status window shows and knows, without a window: events go in, and the record says what is to be seen.
/// The window compares the record with its controls and changes what differs. Pure; one thread, the window's.
///
///     event ──► function of this header, progress_model.h, prompt.h or failure_view.h ──► WindowModel ──► window

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "product/text_table.h"
#include "ui/layout.h"
#include "update/manifest/release_notes.h"
#include "update/settings.h"

namespace launcher_ui {

/// What the streams of one update have come to.
struct UpdateProgressModel {
    bool aggregateKnown = false;  // a total for the whole transfer has been learned
    std::uint64_t aggregateDone = 0;
    std::uint64_t aggregateTotal = 0;
    bool installing = false;       // the transfer is over
    bool terminal = false;         // the update has ended, or a failure view is up
    bool cancelRequested = false;  // by the user
    bool cancelEnabled = false;    // cancel has an effect right now
    bool closeBlocked = false;     // the close box does nothing right now
    bool repairMode = false;       // a repair runs behind the compact window
    std::int32_t percent = 0;      // 0 to 100, what the bar shows
    bool indeterminate = true;     // the bar shows motion, not a number
    Colour barColour = colour::kBarWorking;
    launcher_update::Stage lastStage = launcher_update::Stage::Checking;  // the last that was not dropped
    bool reconnectAvailable = false;
    bool reconnectRequested = false;
    bool progressSeen = false;
    bool stallWatch = false;              // bytes are awaited: silence is worth telling
    std::uint64_t lastProgressTicks = 0;  // milliseconds since the system started
    bool marqueeRuns = false;             // the timer of the bar's motion
    unsigned marqueeTick = 0;
};

struct ControlState {
    std::wstring text;
    bool visible = false;
    bool enabled = true;
};

enum class PromptChoice : std::uint32_t { none = 0, update = 6, later = 7 };

struct WindowModel {
    product::Language language = product::Language::english;
    UpdateProgressModel progress;

    bool shown = false;  // the window itself
    ViewMode viewMode = ViewMode::compact;
    unsigned arrangement = 0;  // grows whenever a view is opened: size, place and layout are then made anew
    std::array<ControlState, kControlCount> controls;

    std::wstring currentVersion;
    std::wstring offeredVersion;
    std::wstring fullNotesUrl;  // empty: no link
    launcher_update::ReleaseNotes notes;
    unsigned notesRevision = 0;  // grows whenever the notes panel is to be filled anew

    PromptChoice promptChoice = PromptChoice::none;
    bool promptOpen = false;
    bool autoAcceptPrompt = false;  // for self-tests: the prompt answers yes at once

    bool failureHeld = false;      // a failure view or a notice is up
    bool failureClosed = false;    // the user closed it
    bool failureBlocking = false;  // it keeps the application from being started

    [[nodiscard]] ControlState& At(Control control) { return controls[static_cast<std::size_t>(control)]; }
    [[nodiscard]] const ControlState& At(Control control) const { return controls[static_cast<std::size_t>(control)]; }
    [[nodiscard]] const wchar_t* Text(product::TextId id) const { return product::TextIn(language, id); }

    /// The version line's value: the installed version, or "Unknown".
    [[nodiscard]] std::wstring CurrentVersionText() const;
};

/// A window just created: compact, all controls with their first texts.
[[nodiscard]] WindowModel MakeWindowModel(product::Language language, const std::wstring& currentVersion);

/// Opens a view: what belongs to it is shown and all else hidden.
void OpenView(WindowModel& model, ViewMode view);

/// The large view with the bar. Cancel is shown but has no effect until a stage allows it.
void OpenProgressView(WindowModel& model);

/// The small view. Nothing can be cancelled in it and its close box works, until a stage says otherwise.
void OpenCompactView(WindowModel& model);

/// Makes the Reconnect button agree with its two flags. It stands over the end of the footer, so it is to be seen only
/// while it is on offer, when the footer's lines are short; pressed, it stays and is dead until the next report.
void ShowReconnect(WindowModel& model);

/// Ends the offer to connect anew and forgets a wish.
void WithdrawReconnect(WindowModel& model);

/// The text that says what is going on: on the line that the view has for it, and as the bar's own text for those who
/// do not see the bar.
void SetMainText(WindowModel& model, const std::wstring& text);
[[nodiscard]] const std::wstring& MainText(const WindowModel& model);

}  // namespace launcher_ui
