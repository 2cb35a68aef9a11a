#include "update/files/file_hashing.h"

#include <windows.h>

#include <array>

#include "platform/sha256.h"
#include "platform/text.h"
#include "platform/unique_handle.h"
#include "update/files/attributes.h"
#include "update/files/paths.h"

namespace launcher_update {
namespace {

constexpr std::size_t kPieceBytes = 0x10000;  // fits the stack, and is large enough that calls do not show

bool HashOpenedPath(const std::wstring& longPath, std::wstring& hex, const HashProgress& progress) {
    hex.clear();
    platform::Sha256 digest;
    const platform::FileHandle file(CreateFileW(longPath.c_str(), GENERIC_READ,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) return false;
    if (progress) progress(0);
    std::array<unsigned char, kPieceBytes> piece;
    std::uint64_t total = 0;
    DWORD read = 0;
    do {
        if (!ReadFile(file.Get(), piece.data(), static_cast<DWORD>(piece.size()), &read, nullptr)) return false;
        if (!digest.Update(piece.data(), read)) return false;
        total += read;
        if (progress && read > 0) progress(total);
    } while (read == piece.size());
    return digest.Finish(hex);
}

}  // namespace

bool Sha256OfFile(const std::wstring& path, std::wstring& hex, const HashProgress& progress) {
    return HashOpenedPath(ToLongPath(path), hex, progress);
}

bool HashFileSha256(const std::wstring& path, std::wstring& hex, const HashProgress& progress) {
    return HashOpenedPath(ToPackageLongPath(path), hex, progress);
}

bool Sha256OfBuffer(const void* data, std::size_t length, std::wstring& hex) {
    return platform::Sha256OfMemory(data, length, hex);
}

bool FileMatchesDescriptor(const std::wstring& path, const PackageFileDescriptor& descriptor,
                           const HashProgress& progress) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(ToLongPath(path).c_str(), GetFileExInfoStandard, &data)) return false;
    const std::uint64_t size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    if ((data.dwFileAttributes & kDirectoryBit) != 0 || size != descriptor.size) return false;
    std::wstring hex;
    return Sha256OfFile(path, hex, progress) && platform::EqualsIgnoringCase(hex, descriptor.sha256);
}

bool ManifestFileIsCurrent(const std::wstring& root, const ManifestFileEntry& entry, const HashProgress& progress) {
    return FileMatchesDescriptor(JoinPath(root, entry.path), {entry.path, entry.sha256, entry.size}, progress);
}

}  // namespace launcher_update
