#include "tests/support/driver/watch.h"

#include <algorithm>
#include <optional>

#include "tests/support/report.h"

namespace driver {

namespace {

using test_support::JsonQuote;

constexpr wchar_t kDialogClass[] = L"#32770";
constexpr wchar_t kStatusWindowClass[] = L"VPRLauncherStatusWindow";
constexpr wchar_t kNotesPanelClass[] = L"VPRReleaseNotesPanel";

// Control numbers of the launcher's status window.
constexpr int kUpdateButton = 1001;
constexpr int kLaterButton = 1002;
constexpr int kCancelButton = 1004;  // reads "Close" in a failure view
constexpr int kVersionBadge = 1005;

constexpr DWORD64 kAnswerAgainMs = 2000;  // an answer that a window lost is given once more after this

const char* ViewName(View view) {
    constexpr const char* kNames[] = {"dialog", "compact", "prompt", "progress", "notice", "failure"};
    return kNames[static_cast<size_t>(view)];
}

std::wstring ClassName(HWND window) {
    wchar_t name[256] = L"";
    GetClassNameW(window, name, 256);
    return name;
}

std::wstring WindowText(HWND window) {
    std::wstring text(9216, L'\0');  // a failure's detail has at most 8192 units
    const int length = InternalGetWindowText(window, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<size_t>(std::max(length, 0)));
    return text;
}

const Control* FindControl(const Snapshot& snapshot, int id) {
    const auto found = std::find_if(snapshot.controls.begin(), snapshot.controls.end(),
                                    [id](const Control& control) { return control.id == id; });
    return found == snapshot.controls.end() ? nullptr : &*found;
}

bool IsEnabled(const Snapshot& snapshot, int id) {
    const Control* control = FindControl(snapshot, id);
    return control != nullptr && control->enabled;
}

View StatusView(const Snapshot& snapshot) {
    const bool panel = std::any_of(snapshot.controls.begin(), snapshot.controls.end(),
                                   [](const Control& control) { return control.className == kNotesPanelClass; });
    if (!panel) return View::compact;
    // The last control of the prompt: before it stands there, the view is still being arranged.
    if (FindControl(snapshot, kLaterButton) != nullptr) return View::prompt;
    if (FindControl(snapshot, kVersionBadge) != nullptr) return View::progress;
    return IsEnabled(snapshot, kCancelButton) ? View::failure : View::notice;
}

RECT PlaceOf(HWND window) {
    RECT place = {};
    GetWindowRect(window, &place);
    return place;
}

RECT InsideOf(HWND window) {
    RECT inside = {};
    GetClientRect(window, &inside);
    MapWindowPoints(window, nullptr, reinterpret_cast<POINT*>(&inside), 2);
    return inside;
}

BOOL CALLBACK CollectControl(HWND child, LPARAM snapshot) {
    if (!IsWindowVisible(child)) return TRUE;
    reinterpret_cast<Snapshot*>(snapshot)->controls.push_back(
        {GetDlgCtrlID(child), ClassName(child), WindowText(child), IsWindowEnabled(child) != FALSE, PlaceOf(child)});
    return TRUE;
}

Snapshot TakeSnapshot(HWND window, DWORD process) {
    Snapshot snapshot;
    snapshot.process = process;
    snapshot.title = WindowText(window);
    snapshot.place = PlaceOf(window);
    snapshot.inside = InsideOf(window);
    EnumChildWindows(window, CollectControl, reinterpret_cast<LPARAM>(&snapshot));
    if (ClassName(window) == kStatusWindowClass) snapshot.view = StatusView(snapshot);
    return snapshot;
}

std::string PlaceAsJson(const RECT& place) {
    return "[" + std::to_string(place.left) + ", " + std::to_string(place.top) + ", " + std::to_string(place.right) +
           ", " + std::to_string(place.bottom) + "]";
}

std::string ControlsAsJson(const Snapshot& snapshot) {
    std::string list;
    for (const Control& control : snapshot.controls) {
        if (!list.empty()) list += ", ";
        list += "{\"id\": " + std::to_string(control.id) + ", \"class\": " + JsonQuote(control.className) +
                ", \"text\": " + JsonQuote(control.text) + ", \"enabled\": " + (control.enabled ? "true" : "false") +
                ", \"place\": " + PlaceAsJson(control.place) + "}";
    }
    return "[" + list + "]";
}

std::string SnapshotAsJson(const Snapshot& snapshot) {
    return std::string("\"view\": \"") + ViewName(snapshot.view) + "\", \"pid\": " + std::to_string(snapshot.process) +
           ", \"title\": " + JsonQuote(snapshot.title) + ", \"place\": " + PlaceAsJson(snapshot.place) +
           ", \"inside\": " + PlaceAsJson(snapshot.inside) + ", \"controls\": " + ControlsAsJson(snapshot);
}

bool WantsAnswer(View view) {
    return view == View::dialog || view == View::prompt || view == View::failure;
}

/// The button that stands for an answer, or none if this window has no such choice.
std::optional<int> ButtonFor(const Snapshot& snapshot, Answer answer) {
    int id = 0;
    if (snapshot.view == View::prompt) {
        id = answer == Answer::yes ? kUpdateButton : answer == Answer::no ? kLaterButton : 0;
    } else if (snapshot.view == View::failure) {
        id = answer == Answer::ok ? kCancelButton : 0;
    } else {
        id = answer == Answer::yes ? IDYES : answer == Answer::no ? IDNO : IDOK;
    }
    if (id == 0 || !IsEnabled(snapshot, id)) return std::nullopt;
    return id;
}

/// A click as the window's own button would report it. Posted, because the window may be busy.
void PressButton(HWND window, int id) {
    const HWND button = GetDlgItem(window, id);
    PostMessageW(window, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED), reinterpret_cast<LPARAM>(button));
}

void PressCloseBox(HWND window) {
    PostMessageW(window, WM_CLOSE, 0, 0);
}

/// The way out that does least: no, cancel, ok, and else the close box (a Yes/No box ignores that one).
void Dismiss(HWND window, const Snapshot& snapshot) {
    if (snapshot.view != View::dialog) return PressCloseBox(window);
    for (const int id : {IDNO, IDCANCEL, IDOK}) {
        if (IsEnabled(snapshot, id)) return PressButton(window, id);
    }
    PressCloseBox(window);
}

const char* AnswerName(Answer answer) {
    constexpr const char* kNames[] = {"yes", "no", "ok", "close", "wait"};
    return kNames[static_cast<size_t>(answer)];
}

/// False if the window has no such choice.
bool Give(HWND window, const Snapshot& snapshot, Answer answer) {
    if (answer == Answer::wait) return true;
    if (answer == Answer::close) {
        PressCloseBox(window);
        return true;
    }
    const std::optional<int> button = ButtonFor(snapshot, answer);
    if (button) PressButton(window, *button);
    return button.has_value();
}

struct Enumeration {
    const std::set<DWORD>& processes;
    std::vector<std::pair<HWND, DWORD>> found;
};

BOOL CALLBACK CollectWindow(HWND window, LPARAM parameter) {
    auto& enumeration = *reinterpret_cast<Enumeration*>(parameter);
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    if (!enumeration.processes.contains(process) || !IsWindowVisible(window)) return TRUE;
    const std::wstring name = ClassName(window);
    if (name == kDialogClass || name == kStatusWindowClass) enumeration.found.emplace_back(window, process);
    return TRUE;
}

std::optional<WPARAM> KeyNamed(const std::wstring& name) {
    constexpr std::pair<const wchar_t*, WPARAM> kKeys[] = {
        {L"escape", VK_ESCAPE}, {L"enter", VK_RETURN}, {L"tab", VK_TAB}, {L"space", VK_SPACE}};
    for (const auto& [word, key] : kKeys) {
        if (name == word) return key;
    }
    return std::nullopt;
}

bool Click(HWND window, const std::wstring& number) {
    const HWND button = GetDlgItem(window, static_cast<int>(std::wcstol(number.c_str(), nullptr, 10)));
    if (button == nullptr || !IsWindowVisible(button) || !IsWindowEnabled(button)) return false;
    return PostMessageW(button, BM_CLICK, 0, 0) != FALSE;
}

bool PressKey(HWND window, const std::wstring& name) {
    const std::optional<WPARAM> key = KeyNamed(name);
    if (!key || !PostMessageW(window, WM_KEYDOWN, *key, 1)) return false;
    // The window may be gone by now, for good reason.
    PostMessageW(window, WM_KEYUP, *key, static_cast<LPARAM>(0xC0000001u));
    return true;
}

}  // namespace

Watch::Watch(std::deque<Answer> answers, std::function<void(std::string)> tell)
    : answers_(std::move(answers)), tell_(std::move(tell)) {}

void Watch::Look(const std::set<DWORD>& processes) {
    Enumeration enumeration{processes, {}};
    EnumWindows(CollectWindow, reinterpret_cast<LPARAM>(&enumeration));
    std::stable_partition(enumeration.found.begin(), enumeration.found.end(),
                          [](const auto& found) { return ClassName(found.first) == kDialogClass; });
    visible_.clear();
    for (const auto& [window, process] : enumeration.found) {
        visible_.push_back(window);
        LookAt(window, process);
    }
    // A window that went away and comes back is a new one.
    const auto gone = std::erase_if(seen_, [this](const auto& entry) {
        return std::find(visible_.begin(), visible_.end(), entry.first) == visible_.end();
    });
    if (gone != 0 && visible_.empty()) tell_("{\"event\": \"no window\"");
}

void Watch::LookAt(HWND window, DWORD process) {
    const Snapshot snapshot = TakeSnapshot(window, process);
    std::string text = SnapshotAsJson(snapshot);
    Seen& seen = seen_[window];
    const bool steady = text == seen.last;
    seen.last = std::move(text);
    if (!steady) return;
    if (seen.told != seen.last) {
        seen.told = seen.last;
        tell_("{\"event\": \"window\", " + seen.told);
    }
    AnswerIfWanted(window, snapshot, seen);
}

void Watch::AnswerIfWanted(HWND window, const Snapshot& snapshot, Seen& seen) {
    if (seen.view != snapshot.view) seen.answered = false;
    seen.view = snapshot.view;
    if (!WantsAnswer(snapshot.view)) return;
    if (!seen.answered) return AnswerFirstTime(window, snapshot, seen);
    if (GetTickCount64() - seen.answeredAt < kAnswerAgainMs) return;
    // Only the same once more: a slow window must not get another answer than the scripted one.
    seen.answeredAt = GetTickCount64();
    if (!seen.answer || !Give(window, snapshot, *seen.answer)) Dismiss(window, snapshot);
}

void Watch::AnswerFirstTime(HWND window, const Snapshot& snapshot, Seen& seen) {
    seen.answered = true;
    seen.answeredAt = GetTickCount64();
    seen.answer.reset();
    const char* name = "none";
    if (!answers_.empty()) {
        name = AnswerName(answers_.front());
        if (Give(window, snapshot, answers_.front())) seen.answer = answers_.front();
        answers_.pop_front();
    }
    TellAnswer(snapshot, name, seen.answer.has_value());
    if (!seen.answer) Dismiss(window, snapshot);
}

void Watch::TellAnswer(const Snapshot& snapshot, const char* answer, bool expected) {
    tell_(std::string("{\"event\": \"answer\", \"answer\": \"") + answer +
          "\", \"expected\": " + (expected ? "true" : "false") + ", " + SnapshotAsJson(snapshot));
}

bool Watch::Obey(const std::wstring& line) {
    if (visible_.empty()) return false;
    const HWND window = visible_.front();
    if (line == L"close") return PostMessageW(window, WM_CLOSE, 0, 0) != FALSE;
    if (line.starts_with(L"click ")) return Click(window, line.substr(6));
    if (line.starts_with(L"key ")) return PressKey(window, line.substr(4));
    return false;
}

}  // namespace driver
