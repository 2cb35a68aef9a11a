#include "update/files/durable_write.h"

#include <windows.h>

#include <io.h>

#include <cstdio>
#include <memory>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "update/files/paths.h"

namespace launcher_update {
namespace {

struct CloseStream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

enum class Force { out, no };

/// How one of the operations writes its sibling. `opened` tells the caller whether there may be a sibling to delete.
using WriteSibling = bool (*)(const std::wstring& sibling, std::string_view bytes, bool& opened);

template <Force force>
bool WriteThroughLibrary(const std::wstring& sibling, std::string_view bytes, bool& opened) {
    Stream stream(_wfopen(sibling.c_str(), L"wb"));
    opened = stream != nullptr;
    if (!opened) return false;
    if (std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) != bytes.size()) return false;
    if (std::fflush(stream.get()) != 0) return false;
    if constexpr (force == Force::out) {
        // The library's flush only reaches the system's cache; the rename behind it must not overtake the data.
        const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream.get())));
        if (!FlushFileBuffers(handle)) return false;
    }
    return std::fclose(stream.release()) == 0;
}

bool WriteHiddenThrough(const std::wstring& sibling, std::string_view bytes, bool& opened) {
    DeleteFileW(sibling.c_str());  // a crash may have left one; create-new below judges whether it is gone
    const platform::FileHandle file(CreateFileW(sibling.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                                FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_WRITE_THROUGH, nullptr));
    opened = static_cast<bool>(file);
    if (!opened) return false;
    while (!bytes.empty()) {
        const auto piece = static_cast<DWORD>(bytes.size() < (1u << 20) ? bytes.size() : (1u << 20));
        DWORD written = 0;
        if (!WriteFile(file.Get(), bytes.data(), piece, &written, nullptr) || written != piece) return false;
        bytes.remove_prefix(piece);
    }
    return FlushFileBuffers(file.Get()) != FALSE;
}

bool ReplaceBySibling(const std::wstring& target, const wchar_t* suffix, WriteSibling write, std::string_view bytes) {
    const std::wstring sibling = target + suffix;
    bool opened = false;
    if (write(sibling, bytes, opened) &&
        MoveFileExW(sibling.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return true;
    }
    if (opened) DeleteFileW(sibling.c_str());
    return false;
}

}  // namespace

bool WriteTextDurable(const std::wstring& path, std::wstring_view text) {
    return ReplaceBySibling(ToLongPath(path), L".tmp", WriteThroughLibrary<Force::out>, platform::EncodeUtf8(text));
}

bool WriteStateAtomically(const std::wstring& path, std::string_view bytes) {
    return ReplaceBySibling(ToLongPath(path), L".new", WriteThroughLibrary<Force::out>, bytes);
}

bool WriteJournalDurable(const std::wstring& path, std::wstring_view text) {
    return ReplaceBySibling(ToLongPath(path), L".tmp", WriteHiddenThrough, platform::EncodeUtf8(text));
}

bool WriteLauncherFileAtomically(const std::wstring& path, std::wstring_view text) {
    const std::string bytes = platform::EncodeUtf8(text);
    return !bytes.empty() && ReplaceBySibling(path, L".launcher-update", WriteThroughLibrary<Force::no>, bytes);
}

}  // namespace launcher_update
