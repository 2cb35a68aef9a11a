#include "update/files/attributes.h"

#include <windows.h>

#include "update/files/paths.h"

namespace launcher_update {

static_assert(kNoAttributes == INVALID_FILE_ATTRIBUTES);
static_assert(kDirectoryBit == FILE_ATTRIBUTE_DIRECTORY && kReparsePointBit == FILE_ATTRIBUTE_REPARSE_POINT);

PathFacts LookAt(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(ToLongPath(path).c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) return {Presence::present, attributes};
    const DWORD error = GetLastError();
    const bool absent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return {absent ? Presence::absent : Presence::unknown, kNoAttributes};
}

}  // namespace launcher_update
