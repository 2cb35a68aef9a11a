#include "launcher/configuration.h"

#include <windows.h>

#include <utility>
#include <vector>

#include "platform/unique_handle.h"
#include "product/locations.h"
#include "update/files/durable_write.h"
#include "update/workflow/settings_file.h"

namespace launcher_shell {
namespace {

constexpr wchar_t kCannotRead[] = L"無法讀取 current.json。";
constexpr wchar_t kVersionsUnknown[] = L"current.json 遺失，且無法從現有程式重建版本資訊。";
constexpr wchar_t kCannotRecreate[] = L"current.json 遺失，且無法在程式資料夾中重新建立。";
constexpr UINT kFixedBlockBytes = 52;  // sizeof(VS_FIXEDFILEINFO), as every version of Windows has it

std::string ReadAtMost(HANDLE file, std::size_t limitBytes) {
    std::string bytes(limitBytes, '\0');
    DWORD read = 0;
    if (!ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) read = 0;
    bytes.resize(read);
    return bytes;
}

bool FileIsMissing(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES && GetLastError() == ERROR_FILE_NOT_FOUND;
}

std::wstring JoinVersion(const VS_FIXEDFILEINFO& info) {
    const auto part = [](WORD value) { return std::to_wstring(value); };
    return part(HIWORD(info.dwFileVersionMS)) + L'.' + part(LOWORD(info.dwFileVersionMS)) + L'.' +
           part(HIWORD(info.dwFileVersionLS)) + L'.' + part(LOWORD(info.dwFileVersionLS));
}

}  // namespace

ConfigurationStatus ReadLauncherConfiguration(const std::wstring& path, LauncherConfiguration& configuration,
                                              std::wstring& error) {
    const platform::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        if (FileIsMissing(path)) return ConfigurationStatus::missing;
        error = kCannotRead;
        return ConfigurationStatus::unusable;
    }
    const std::string bytes = ReadAtMost(file.Get(), launcher_update::kMaxSettingsBytes + 1);
    return ParseLauncherConfiguration(bytes, configuration, error) ? ConfigurationStatus::read
                                                                   : ConfigurationStatus::unusable;
}

bool RebuildLauncherConfiguration(const std::wstring& launcherDirectory, const std::wstring& launcherPath,
                                  const std::wstring& path, LauncherConfiguration& configuration, std::wstring& error) {
    LauncherConfiguration rebuilt;
    rebuilt.productVersion = ReadFileVersion(launcherDirectory + L'\\' + product::kApplicationDirectory + L'\\' +
                                             product::kApplicationExecutable);
    rebuilt.launcherVersion = ReadFileVersion(launcherPath);
    rebuilt.updateManifestUrl = product::kPrimaryManifestUrl;
    if (!IsDottedVersion(rebuilt.productVersion) || !IsDottedVersion(rebuilt.launcherVersion)) {
        error = kVersionsUnknown;
        return false;
    }
    if (!launcher_update::WriteLauncherFileAtomically(path, RenderLauncherConfiguration(rebuilt))) {
        error = kCannotRecreate;
        return false;
    }
    configuration = std::move(rebuilt);
    return true;
}

std::wstring ReadFileVersion(const std::wstring& path) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0) return {};
    std::vector<unsigned char> block(size);
    if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data())) return {};
    void* fixed = nullptr;
    UINT fixedBytes = 0;
    if (!VerQueryValueW(block.data(), L"\\", &fixed, &fixedBytes) || fixed == nullptr || fixedBytes < kFixedBlockBytes)
        return {};
    return JoinVersion(*static_cast<const VS_FIXEDFILEINFO*>(fixed));
}

}  // namespace launcher_shell
