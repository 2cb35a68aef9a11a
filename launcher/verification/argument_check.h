#pragma once

#include <span>
#include <string>

#include "launcher/verification/command_table.h"

namespace launcher_shell {

/// Whether a value is what the table says, as far as text and Windows tell. Any thread.
[[nodiscard]] bool AcceptValue(const Argument& argument, const std::wstring& value);

/// The same for all values of a command.
[[nodiscard]] bool AcceptValues(const Command& command, std::span<const std::wstring> values);

}  // namespace launcher_shell
