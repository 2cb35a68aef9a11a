#include "update/files/paths.h"

#include "platform/text.h"

namespace launcher_update {
namespace {

constexpr std::wstring_view kLongPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongUncPrefix = L"\\\\?\\UNC\\";

enum class DriveSeparator { backslashOnly, slashToo };

std::wstring WithLongPrefix(std::wstring_view path, DriveSeparator accepted) {
    if (path.starts_with(kLongPrefix)) return std::wstring(path);
    if (path.starts_with(L"\\\\")) return std::wstring(kLongUncPrefix).append(path.substr(2));
    const bool drive = path.size() > 2 && path[1] == L':' &&
                       (path[2] == L'\\' || (accepted == DriveSeparator::slashToo && path[2] == L'/'));
    return drive ? std::wstring(kLongPrefix).append(path) : std::wstring(path);
}

}  // namespace

std::wstring ToLongPath(std::wstring_view path) {
    return WithLongPrefix(platform::WithBackslashes(path), DriveSeparator::backslashOnly);
}

std::wstring ToPackageLongPath(std::wstring_view path) {
    return WithLongPrefix(path, DriveSeparator::slashToo);
}

bool IsSafeTransactionTarget(std::wstring_view path) {
    if (path.size() > kMaxTargetPathUnits || !IsSafeRelativePath(path)) return false;
    return !platform::StartsWithIgnoringCase(platform::WithBackslashes(path),
                                             std::wstring(kControlDirectoryName) + L'\\');
}

std::wstring JoinPath(std::wstring_view left, std::wstring_view right) {
    std::wstring joined(left);
    joined.push_back(L'\\');
    return joined.append(platform::WithBackslashes(right));
}

}  // namespace launcher_update
