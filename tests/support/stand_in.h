#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>

#include "tests/support/import_hook.h"

namespace test_support {

/// A text that can be a template argument.
template <std::size_t length>
struct FixedText {
    char text[length] = {};
    constexpr FixedText(const char (&from)[length]) { std::copy_n(from, length, text); }
};

/// Lets anything callable stand in for one function that this program imports, for the life of the object:
///
///     StandIn<"WinHttpOpen", decltype(WinHttpOpen)> open([](auto...) { return nullptr; });
///
/// The callable may run on any thread that calls the function, and reaches the function itself by `Original`. At most
/// one object per function at a time, made and ended while nobody else calls the function.
template <FixedText name, typename Signature>
class StandIn;

template <FixedText name, typename Answer, typename... Arguments>
class StandIn<name, Answer(Arguments...)> {
  public:
    using Body = std::function<Answer(Arguments...)>;

    explicit StandIn(Body body) : hook_(name.text, Arrange(std::move(body))) {
        original_ = reinterpret_cast<Answer (*)(Arguments...)>(hook_.Original());
    }

    static Answer Original(Arguments... arguments) { return original_(arguments...); }

  private:
    /// The body must stand before the first call can come.
    static void* Arrange(Body body) {
        body_ = std::move(body);
        return reinterpret_cast<void*>(&Enter);
    }
    static Answer Enter(Arguments... arguments) { return body_(arguments...); }

    inline static Body body_;
    inline static Answer (*original_)(Arguments...) = nullptr;
    ImportHook hook_;
};

}  // namespace test_support
