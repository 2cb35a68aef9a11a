#pragma once

/// The end of an update that did not go well, and short notices, in the same large view. A safe failure passes by
/// itself and the installed version starts; an unsafe one blocks the start and stays until the user closes it. Pure;
/// the window's thread.

#include <cstddef>
#include <string>

#include "ui/window_model.h"

namespace launcher_ui {

inline constexpr std::size_t kMaxFailureDetailUnits = 8192;  // the panel stays quick to lay out

/// Shows `text`, and `detail` where notes are read. From here on no late event can change what is shown.
void OpenFailureView(WindowModel& model, const std::wstring& text, const std::wstring& detail, bool blocking,
                     bool isError);

/// A failure of an update: safe, after which the installed version starts, or not.
void OpenFailure(WindowModel& model, bool safe, const std::wstring& detail);

/// Whether the view still waits for the user.
[[nodiscard]] bool FailureIsHeld(const WindowModel& model);

}  // namespace launcher_ui
