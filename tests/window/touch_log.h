#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <utility>

#include "tests/support/stand_in.h"

namespace window_tests {

/// Counts what the program does to its windows by name of the function, for the life of the object.
class TouchLog {
  public:
    [[nodiscard]] int Count(const std::string& function) const { return Sum(function, nullptr, false); }
    [[nodiscard]] int Count(const std::string& function, HWND window) const { return Sum(function, window, true); }
    /// All calls, with how often; empty if nothing was touched.
    [[nodiscard]] std::string All() const {
        std::map<std::string, int> byName;
        for (const auto& [call, count] : calls_)
            byName[call.first] += count;
        std::string text;
        for (const auto& [name, count] : byName)
            text += name + " " + std::to_string(count) + "\n";
        return text;
    }
    void Clear() { calls_.clear(); }

  private:
    template <test_support::FixedText name, typename Signature>
    using For = test_support::StandIn<name, Signature>;

    [[nodiscard]] int Sum(const std::string& function, HWND window, bool only) const {
        int sum = 0;
        for (const auto& [call, count] : calls_) {
            if (call.first == function && (!only || call.second == window)) sum += count;
        }
        return sum;
    }
    void Note(const char* function, HWND window) { ++calls_[{function, window}]; }

    std::map<std::pair<std::string, HWND>, int> calls_;

    using Text = For<"SetWindowTextW", decltype(SetWindowTextW)>;
    using Enable = For<"EnableWindow", decltype(EnableWindow)>;
    using Show = For<"ShowWindow", decltype(ShowWindow)>;
    using Place = For<"SetWindowPos", decltype(SetWindowPos)>;
    using Invalidate = For<"InvalidateRect", decltype(InvalidateRect)>;
    using Start = For<"SetTimer", decltype(SetTimer)>;
    using Stop = For<"KillTimer", decltype(KillTimer)>;
    using Focus = For<"SetFocus", decltype(SetFocus)>;

    Text text_{[this](HWND window, auto... rest) {
        Note("SetWindowTextW", window);
        return Text::Original(window, rest...);
    }};
    Enable enable_{[this](HWND window, auto... rest) {
        Note("EnableWindow", window);
        return Enable::Original(window, rest...);
    }};
    Show show_{[this](HWND window, auto... rest) {
        Note("ShowWindow", window);
        return Show::Original(window, rest...);
    }};
    Place place_{[this](HWND window, auto... rest) {
        Note("SetWindowPos", window);
        return Place::Original(window, rest...);
    }};
    Invalidate invalidate_{[this](HWND window, auto... rest) {
        Note("InvalidateRect", window);
        return Invalidate::Original(window, rest...);
    }};
    Start start_{[this](HWND window, auto... rest) {
        Note("SetTimer", window);
        return Start::Original(window, rest...);
    }};
    Stop stop_{[this](HWND window, auto... rest) {
        Note("KillTimer", window);
        return Stop::Original(window, rest...);
    }};
    Focus focus_{[this](HWND window, auto... rest) {
        Note("SetFocus", window);
        return Focus::Original(window, rest...);
    }};
};

}  // namespace window_tests
