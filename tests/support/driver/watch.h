#pragma once

#include <windows.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/driver/request.h"

namespace driver {

/// What a watched window shows. The last three and `prompt` are states of the launcher's one status window, told apart
/// by which of its controls are visible, never by texts, so every language works.
enum class View { dialog, compact, prompt, progress, notice, failure };

struct Control {
    int id = 0;
    std::wstring className;
    std::wstring text;
    bool enabled = false;
    RECT place = {};  // on the screen
};

/// One look at one visible window.
struct Snapshot {
    View view = View::dialog;
    DWORD process = 0;
    std::wstring title;
    RECT place = {};                // on the screen, with its frame
    RECT inside = {};               // the same without
    std::vector<Control> controls;  // the visible ones, in the order of their creation
};

/// Watches the top-level windows of a set of processes and answers those that want an answer.
///
/// Message boxes (class "#32770") and two views of the status window want one: `prompt` (yes, no, close) and `failure`,
/// which blocks until it is closed (ok, close). A window that wants an answer when none is left, or one that it cannot
/// give, is told as unexpected and closed, so that no run hangs on it.
///
/// A window is acted on when two looks in a row saw the same: a window that is just being rearranged is left alone.
/// Texts are read without sending messages, so a busy or hung program is watched all the same.
class Watch {
  public:
    /// `tell` receives JSON objects without their closing brace, for the caller to add the time and close them.
    Watch(std::deque<Answer> answers, std::function<void(std::string)> tell);

    /// Looks at all windows once.
    void Look(const std::set<DWORD>& processes);

    /// Obeys one control line, on the topmost message box or else the status window:
    /// `click ID`, `close`, `key escape|enter|tab|space`. False if there was no such window or enabled button.
    [[nodiscard]] bool Obey(const std::wstring& line);

    [[nodiscard]] size_t AnswersLeft() const { return answers_.size(); }

  private:
    struct Seen {
        std::string last;  // the latest look
        std::string told;  // the look told last
        View view = View::compact;
        bool answered = false;         // the present view has its answer, or was dismissed
        std::optional<Answer> answer;  // none: dismissed
        DWORD64 answeredAt = 0;
    };

    void LookAt(HWND window, DWORD process);
    void AnswerIfWanted(HWND window, const Snapshot& snapshot, Seen& seen);
    void AnswerFirstTime(HWND window, const Snapshot& snapshot, Seen& seen);
    void TellAnswer(const Snapshot& snapshot, const char* answer, bool expected);

    std::deque<Answer> answers_;
    std::function<void(std::string)> tell_;
    std::map<HWND, Seen> seen_;
    std::vector<HWND> visible_;  // of the latest look: message boxes, topmost first, then the status window
};

}  // namespace driver
