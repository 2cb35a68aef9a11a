#pragma once

/// The one window of the launcher, painted dark with plain GDI. It makes what `WindowModel` says visible and turns what
/// the user does into events for the model. Everything runs on the thread that creates it; the worker reaches it only
/// through the messages of window_messages.h.
///
/// Handlers of worker messages pump the queue before they return, so that a busy worker cannot starve the window. While
/// one pumps, another handler may run: the model is complete before each pump, and nothing kept from before it is used
/// behind it.

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "download/request.h"
#include "product/language.h"
#include "ui/gdi_handles.h"
#include "ui/layout.h"
#include "ui/notes_layout.h"
#include "ui/painting.h"
#include "ui/window_model.h"
#include "update/manifest/release_notes.h"
#include "update/settings.h"

namespace launcher_ui {

/// Wakes a wait for everything that a window can get: QS_ALLINPUT of Windows 8 and later, touch and pen included.
inline constexpr DWORD kWakeMask = 0x1CFF;

inline constexpr UINT_PTR kMarqueeTimerId = 41;
inline constexpr UINT kMarqueePeriodMs = 45;
inline constexpr UINT_PTR kStallTimerId = 74;
inline constexpr UINT kStallPeriodMs = 500;

/// What happened to a window, for tests and self-tests; counts only while `enabled`.
struct WindowCounters {
    std::atomic<bool> enabled = false;
    std::atomic<std::uint32_t> fileStageSends = 0;  // by the worker, those held back included
    std::uint32_t workerMessages = 0;
    bool allOnOwnerThread = true;
    std::uint32_t fileStageUpdates = 0;
    std::uint32_t intermediatePercents = 0;  // of these updates, above 0 and below 100
    std::uint32_t barPaints = 0;
    std::uint32_t windowPaints = 0;
};

/// What the controls have been told already, so that only what differs is told again.
struct ShownState {
    bool window = false;
    unsigned arrangement = 0;
    unsigned notesRevision = 0;
    bool marqueeTimer = false;
    bool stallTimer = false;
    BarFill bar;
    Colour barColour = 0;
};

/// The record behind the window, reached through GWLP_USERDATA. It owns every handle in it. It stays where it is.
struct StatusWindow {
    StatusWindow() = default;
    StatusWindow(const StatusWindow&) = delete;
    StatusWindow& operator=(const StatusWindow&) = delete;
    ~StatusWindow();

    HINSTANCE instance = nullptr;
    HWND window = nullptr;
    std::array<HWND, kControlCount> controls = {};
    HWND hoverButton = nullptr;  // the button under the pointer
    HWND lastFocus = nullptr;    // to be given back when the window is activated again
    FontSet fonts;
    IconHandle icon;
    BrushHandle backgroundBrush;
    BrushHandle panelBrush;
    int dpi = kBaseDpi;
    DWORD ownerThreadId = 0;

    WindowModel model;
    ShownState shown;

    // The notes panel.
    NoteCards noteCards;
    NotesLayout notesLayout;
    int scrollPosition = 0;

    WindowCounters counters;

    [[nodiscard]] HWND At(Control control) const { return controls[static_cast<std::size_t>(control)]; }
};

/// Creates the window in its compact view, shows it as `showCommand` says and applies the stage `Checking`. False if
/// the window or a button cannot be made; nothing is left then. What else is missing, a font, the icon or the dark
/// frame, is done without. One window at a time. It speaks the user's language unless told another.
[[nodiscard]] bool CreateStatusWindow(StatusWindow& status, HINSTANCE instance, const std::wstring& currentVersion,
                                      int showCommand, product::Language language = product::CurrentLanguage());

/// Ends the window and frees all that the record owns. Harmless without a window.
void DestroyStatusWindow(StatusWindow& status);

/// Stops the timers and hides the window, before the application is started.
void HideStatusWindow(StatusWindow& status);

/// Handles all messages that are queued for this thread.
void PumpMessages(StatusWindow& status);

/// Waits for input, at most `milliseconds`, and pumps.
void WaitAndPump(StatusWindow& status, DWORD milliseconds);

// Events, as in progress_model.h; without a window they do nothing.
void ApplyStage(StatusWindow& status, launcher_update::Stage stage, const std::wstring& detail, std::uint64_t completed,
                std::uint64_t total);
void ApplyDownloadProgress(StatusWindow& status, const launcher_download::Progress& progress);

/// Offers a version and gives its button the focus. False if there is no window.
[[nodiscard]] bool ShowPrompt(StatusWindow& status, const std::wstring& version,
                              const launcher_update::ReleaseNotes& notes);

/// Pumps until the user has chosen. True for the update; the window is then in its progress view, else compact.
[[nodiscard]] bool WaitForPromptChoice(StatusWindow& status);

/// As `OpenFailureView` and `OpenFailure`; no effect without a window.
void ShowFailureView(StatusWindow& status, const std::wstring& text, const std::wstring& detail, bool blocking,
                     bool isError);
void ShowFailure(StatusWindow& status, bool safe, const std::wstring& detail);

/// Pumps until the user has closed a blocking failure view; returns at once in any other state.
void HoldFailureView(StatusWindow& status);

/// Makes the controls agree with the model; changes only what differs.
void ShowModel(StatusWindow& status);

}  // namespace launcher_ui
