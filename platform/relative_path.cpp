#include "platform/relative_path.h"

#include <algorithm>

#include "platform/text.h"

namespace platform {

bool IsSafeRelativePath(std::wstring_view path) {
    if (path.empty() || !PathIsRelative(path)) return false;
    if (path.find(L':') != std::wstring_view::npos || path.find(L'\0') != std::wstring_view::npos) return false;
    const auto pieces = SplitPath(path);
    return std::none_of(pieces.begin(), pieces.end(),
                        [](std::wstring_view piece) { return piece.empty() || piece == L"." || piece == L".."; });
}

}  // namespace platform
