#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_shell {

/// One line of a command's output: a name, then `key=value` behind blanks, ended by a line feed. Pure.
class ResultLine {
  public:
    explicit ResultLine(std::string_view name) : text_(name) {}

    /// A whole number; a boolean is 1 or 0.
    template <std::integral Value>
    ResultLine& Add(std::string_view key, Value value) {
        return AddText(key, std::to_string(value));
    }

    /// With three decimal places.
    ResultLine& AddRate(std::string_view key, double value);

    [[nodiscard]] std::string Text() const { return text_ + '\n'; }

  private:
    ResultLine& AddText(std::string_view key, std::string_view value);

    std::string text_;
};

}  // namespace launcher_shell
