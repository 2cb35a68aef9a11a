#pragma once

/// What the user does: the offer of an update, cancel, close, the keys and the buttons. Pure; the window's thread.
///
///     | the close box meets       | and does                                        |
///     |---------------------------|-------------------------------------------------|
///     | a failure view or notice  | closes it                                       |
///     | an open prompt            | means "later"                                   |
///     | something that may stop   | asks for the cancel                             |
///     | something that may not    | nothing                                         |
///     | none of these             | hides the window; the launcher goes on          |

#include <string>
#include <string_view>

#include "ui/window_model.h"
#include "update/manifest/release_notes.h"

namespace launcher_ui {

/// The numbers by which the buttons report.
inline constexpr int kUpdateButtonId = 1001;
inline constexpr int kLaterButtonId = 1002;
inline constexpr int kNotesLinkId = 1003;
inline constexpr int kCancelButtonId = 1004;
inline constexpr int kVersionBadgeId = 1005;
inline constexpr int kBarId = 1006;
inline constexpr int kReconnectButtonId = 1007;

inline constexpr std::size_t kMaxNotesUrlUnits = 2048;

/// Whether an address may be handed to the shell as far as its text tells: https, not too long, one line.
[[nodiscard]] bool IsSafeNotesUrl(std::wstring_view url);

/// Offers a version. `fullNotesUrl` is an address that may be opened, or empty.
void OpenPrompt(WindowModel& model, const std::wstring& version, const launcher_update::ReleaseNotes& notes,
                const std::wstring& fullNotesUrl);

/// Ends the prompt by its choice: true and the progress view for an update, else false and the compact view.
[[nodiscard]] bool ClosePrompt(WindowModel& model);

/// Asks for the end of the update, once, and only while that has an effect. The workflow hears of it when it next asks.
void RequestCancel(WindowModel& model);

/// The close box.
void PressCloseBox(WindowModel& model);

/// Escape: as the close box, but it never hides a window that just works. False if it had no effect here and is an
/// ordinary key.
[[nodiscard]] bool PressEscape(WindowModel& model);

/// Enter: "update" while the prompt is open, wherever the focus is. False if it is an ordinary key.
[[nodiscard]] bool PressEnter(WindowModel& model);

enum class ButtonEffect { none, openFullNotes };

/// A button by its number.
[[nodiscard]] ButtonEffect PressButton(WindowModel& model, int id);

/// The workflow's question whether to connect anew. A wish is told once, and dropped when a cancel is pending.
[[nodiscard]] bool TakeReconnectRequest(WindowModel& model);

}  // namespace launcher_ui
