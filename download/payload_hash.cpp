#include "download/payload_hash.h"

#include <vector>

#include "download/cache_file.h"
#include "platform/sha256.h"

namespace launcher_download {
namespace {

constexpr DWORD kBlockBytes = 65536;

std::wstring HashFile(HANDLE file, const Callbacks& callbacks) {
    if (!SeekTo(file, 0)) return {};
    platform::Sha256 digest;
    std::vector<unsigned char> block(kBlockBytes);
    for (;;) {
        if (callbacks.cancelled && callbacks.cancelled()) return {};
        DWORD read = 0;
        if (!ReadFile(file, block.data(), kBlockBytes, &read, nullptr)) return {};
        if (read == 0) break;
        if (!digest.Update(block.data(), read)) return {};
    }
    std::wstring hex;
    return digest.Finish(hex) ? hex : std::wstring();
}

}  // namespace

std::wstring HashFileOrBuffer(const void* buffer, std::size_t length, HANDLE file, const Callbacks& callbacks) {
    if (file != INVALID_HANDLE_VALUE) return HashFile(file, callbacks);
    std::wstring hex;
    return platform::Sha256OfMemory(buffer, length, hex) ? hex : std::wstring();
}

}  // namespace launcher_download
