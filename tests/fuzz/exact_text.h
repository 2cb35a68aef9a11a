#pragma once

#include <string_view>
#include <vector>

/// A text in memory of exactly its size. A string has a terminator and often room behind it, where a look beyond the
/// end goes unnoticed; here the sanitizer reports it.
class ExactText {
  public:
    explicit ExactText(std::wstring_view text) : units_(text.begin(), text.end()) {}

    [[nodiscard]] std::wstring_view View() const { return {units_.data(), units_.size()}; }

  private:
    std::vector<wchar_t> units_;
};
