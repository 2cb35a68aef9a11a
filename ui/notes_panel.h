#pragma once

/// The scrolling stack of cards in the status window: a window class of its own, painted by hand with double buffering.
/// The window's thread.

#include <windows.h>

#include "update/manifest/release_notes.h"

namespace launcher_ui {

struct StatusWindow;

inline constexpr wchar_t kNotesPanelClass[] = L"VPRReleaseNotesPanel";

/// The panel takes its `StatusWindow` from the create parameters.
void RegisterNotesPanel(HINSTANCE instance, HBRUSH background);

/// Where Windows has no such theme, the bar stays light.
void DarkenScrollBar(HWND panel);

/// Fills the panel and scrolls to its top.
void SetNotes(StatusWindow& status, const launcher_update::ReleaseNotes& notes);

/// Measures and places the cards for the present size and scale; without a device context the layout stays as it was.
void LayoutNotes(StatusWindow& status);

/// Scrolls as near to `position` as the content allows.
void ScrollNotesTo(StatusWindow& status, int position);

}  // namespace launcher_ui
