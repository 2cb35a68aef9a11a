#pragma once

/// A window's picture without a screen: the window and its controls are asked to paint themselves into a bitmap
/// ("WM_PRINTCLIENT message"), so that nothing that lies over it, and no state of the desktop, comes into the picture.
/// The window's thread.

#include <windows.h>

#include <string>

#include "ui/bitmap_file.h"

namespace launcher_ui {

/// The client area of a window with all controls that are shown in it; frames and scroll bars are left out. False if a
/// bitmap cannot be made.
[[nodiscard]] bool CaptureWindow(HWND window, PixelPicture& picture);

/// Writes the picture into a new file. False if the window cannot be captured, the file exists or it cannot be written;
/// a part of one is removed.
[[nodiscard]] bool SaveWindowPicture(HWND window, const std::wstring& path);

}  // namespace launcher_ui
