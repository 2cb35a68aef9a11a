#pragma once

#include <windows.h>

#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace driver {

/// Answers to windows that want one, used up in order.
///   yes, no, ok   the button of that meaning; a window without it counts as unexpected
///   close         the window's close box
///   wait          leaves the window to the control file
enum class Answer { yes, no, ok, close, wait };

/// One run, as read from the request file.
struct Request {
    std::wstring exe;          // full path, handed to CreateProcessW as it stands
    std::wstring commandLine;  // raw, never requoted
    std::wstring cwd;          // empty: the driver's own
    std::wstring result;       // receives the result at the end
    std::wstring events;       // optional: one JSON line per thing seen, while it happens
    std::wstring control;      // optional: lines appended to it are obeyed: stop, end (of the job), or see watch.h
    std::wstring stopFile;     // optional: its appearance ends the launcher with code 77
    std::wstring output;       // optional: receives the standard output and error of the launcher
    std::deque<Answer> answers;
    DWORD timeoutMs = 60000;
    DWORD pollMs = 10;  // pause between two looks at the windows
    std::vector<std::pair<std::wstring, std::wstring>> environment;
};

/// Reads `key=value` records, UTF-8, ended by NUL if the file holds one and else by line feeds. Every unknown key,
/// missing `=` or bad number is refused with a message, so that a misspelt request cannot pass for a run.
[[nodiscard]] bool ReadRequest(const std::wstring& path, Request& request, std::wstring& error);

/// The whole file, or false. For the small files of a run only.
[[nodiscard]] bool ReadSmallFile(const std::wstring& path, std::string& bytes);

}  // namespace driver
