#pragma once

#include <string_view>

namespace launcher_shell {

/// Writes a line to the standard output if the launcher was given a pipe or a file as such; a program with a window has
/// none otherwise, and the line is dropped. Any thread.
void WriteOutput(std::string_view line);

}  // namespace launcher_shell
