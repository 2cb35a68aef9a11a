#pragma once

#include <windows.h>

#include <string>

namespace driver {

/// Starts a program whose path is too long for CreateProcessW under Wine, which cuts image paths at 260 units. Goes to
/// the same system call by the native interface. Fills the handles and numbers of `process`, the
/// first thread suspended, as CreateProcessW with CREATE_SUSPENDED does. False with the thread's last error set.
[[nodiscard]] bool StartDeepProgram(const std::wstring& exe, const std::wstring& commandLine, const std::wstring& cwd,
                                    const STARTUPINFOW& startup, PROCESS_INFORMATION& process);

}  // namespace driver
