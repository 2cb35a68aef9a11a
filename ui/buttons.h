#pragma once

/// What owner-drawn buttons do beside pressing: hover, cursor, focus cue. The window's thread.

#include <windows.h>

#include "ui/layout.h"

namespace launcher_ui {

struct StatusWindow;

/// Before the first control is created; does no harm when repeated.
void PrepareCommonControls();

/// False if the button cannot be subclassed.
[[nodiscard]] bool SubclassButton(StatusWindow& status, HWND button);

/// Draws one of the five buttons as WM_DRAWITEM asks for it.
void DrawButton(const StatusWindow& status, Control control, const DRAWITEMSTRUCT& item);

/// Whether a control that has the focus is to show it; `UISF_HIDEFOCUS` says no.
[[nodiscard]] bool FocusIsToBeSeen(HWND control);

}  // namespace launcher_ui
