#pragma once

/// What the files of the status window share among themselves. Not for other rooms.

#include <windows.h>

namespace launcher_ui {

struct StatusWindow;

inline constexpr wchar_t kStatusWindowClass[] = L"VPRLauncherStatusWindow";

inline constexpr int kIconResource = 101;  // in the program's resources; without it there is no icon

/// The window takes its `StatusWindow` from the create parameters.
void RegisterStatusWindow(HINSTANCE instance, HBRUSH background);

/// Fonts and icon for the present scale.
void BuildScaledObjects(StatusWindow& status);

/// Gives the controls their fonts and places them, for the present scale.
void ShowScale(StatusWindow& status);

}  // namespace launcher_ui
