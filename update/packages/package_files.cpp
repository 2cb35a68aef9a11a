#include "update/packages/package_files.h"

#include <windows.h>

#include <string_view>

#include "platform/text.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/files/trees.h"

namespace launcher_update {
namespace {

constexpr std::size_t kDriveUnits = 3;  // "C:\", where the walk upwards ends

bool MakeParent(const std::wstring& path) {
    const auto folder = platform::ParentPath(path);
    return !folder || CreateDirectoryChain(*folder);
}

}  // namespace

bool ReadFileSize(const std::wstring& path, std::uint64_t& size) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(ToPackageLongPath(path).c_str(), GetFileExInfoStandard, &data)) return false;
    size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    return true;
}

bool WriteFileThroughNew(const std::wstring& path, const void* bytes, std::size_t length) {
    return MakeParent(path) && WriteStateAtomically(path, {static_cast<const char*>(bytes), length});
}

bool SourceFileIsSafe(const std::wstring& path) {
    std::wstring_view level = path;
    for (bool isFile = true;; isFile = false) {
        const DWORD attributes = GetFileAttributesW(ToPackageLongPath(level).c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & kReparsePointBit) != 0) return false;
        if (isFile && (attributes & kDirectoryBit) != 0) return false;
        const std::size_t separator = level.find_last_of(L"\\/");
        if (separator == std::wstring_view::npos || separator < kDriveUnits) return true;
        level = level.substr(0, separator);
    }
}

bool CopySourceFile(const std::wstring& sourceFolder, const PackageFileDescriptor& file,
                    const std::wstring& destination) {
    const std::wstring source = PackageFilePath(sourceFolder, file);
    return SourceFileIsSafe(source) && MakeParent(destination) &&
           CopyFileW(ToPackageLongPath(source).c_str(), ToPackageLongPath(destination).c_str(), TRUE) &&
           ForceCopyOut(destination);
}

}  // namespace launcher_update
