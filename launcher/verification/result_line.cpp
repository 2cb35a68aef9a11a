#include "launcher/verification/result_line.h"

#include <array>
#include <cstdio>

namespace launcher_shell {

ResultLine& ResultLine::AddRate(std::string_view key, double value) {
    std::array<char, 400> digits;  // the largest double has 309 before its point
    std::snprintf(digits.data(), digits.size(), "%.3f", value);
    return AddText(key, digits.data());
}

ResultLine& ResultLine::AddText(std::string_view key, std::string_view value) {
    text_ += ' ';
    text_ += key;
    text_ += '=';
    text_ += value;
    return *this;
}

}  // namespace launcher_shell
