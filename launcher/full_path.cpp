#include "launcher/full_path.h"

#include <windows.h>

namespace launcher_shell {

bool FullPath(const std::wstring& path, std::wstring& full) {
    full.resize(kPathUnits);
    const DWORD length = GetFullPathNameW(path.c_str(), kPathUnits, full.data(), nullptr);
    if (length == 0 || length >= kPathUnits) return false;
    full.resize(length);
    return true;
}

}  // namespace launcher_shell
