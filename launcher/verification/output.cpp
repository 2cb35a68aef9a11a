#include "launcher/verification/output.h"

#include <windows.h>

namespace launcher_shell {

void WriteOutput(std::string_view line) {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    if (output == nullptr || output == INVALID_HANDLE_VALUE) return;
    // A process without a console may hold a number here that was never given to it.
    const DWORD type = GetFileType(output);
    if (type != FILE_TYPE_PIPE && type != FILE_TYPE_DISK) return;
    DWORD written = 0;
    WriteFile(output, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

}  // namespace launcher_shell
