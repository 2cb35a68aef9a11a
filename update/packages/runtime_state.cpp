#include "update/packages/runtime_state.h"

#include <windows.h>

#include "platform/unique_handle.h"
#include "update/failure.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/packages/validation.h"
#include "update/packages/version_names.h"

namespace launcher_update {
namespace {

constexpr wchar_t kNothingToActivate[] = L"沒有可啟用的資源包或 Runtime 目錄無法建立。";
constexpr wchar_t kCannotCommitState[] = L"無法原子提交 Runtime/current.json。";
constexpr wchar_t kReadBackFailed[] = L"Runtime state 回讀失敗，已回復上一版。";
constexpr wchar_t kRollbackFailed[] = L"Runtime state 回讀失敗且無法回復上一版。";
constexpr wchar_t kPackageRootUnsafe[] = L"資源包目錄不是安全的一般資料夾，已略過舊版本清理。";
constexpr wchar_t kCannotRemoveVersion[] = L"無法清除未使用的舊資源包版本：";

constexpr LONGLONG kMaxStateBytes = 0x40000;  // 16 packages fill a few kilobytes

/// What is written must be what is read: a file system that answers otherwise must not keep half a state.
bool TakeBack(const std::wstring& path, bool hadPrevious, const std::string& previous) {
    return hadPrevious ? WriteStateAtomically(path, previous) : DeleteFileW(ToLongPath(path).c_str()) != FALSE;
}

bool PrunePackage(const std::wstring& root, const PackageDescriptor& package, std::wstring& error) {
    const std::wstring packageRoot = PackageRoot(root, package);
    const PathFacts facts = LookAt(packageRoot);
    if (facts.presence == Presence::absent) return true;
    if (!IsRealDirectory(facts.attributes)) return Fail(error, kPackageRootUnsafe);
    std::vector<DirectoryEntry> entries;
    static_cast<void>(ListDirectory(packageRoot, entries));  // what is not listed is not removed
    std::vector<std::wstring> folders;
    for (const DirectoryEntry& entry : entries) {
        if (IsRealDirectory(entry.attributes)) folders.push_back(entry.name);
    }
    for (const std::wstring& folder : SupersededVersions(folders, package.version)) {
        if (!RemoveTreeNoLinks(JoinPath(packageRoot, folder))) return Fail(error, kCannotRemoveVersion + folder);
    }
    return true;
}

}  // namespace

std::wstring RuntimeStatePath(const std::wstring& root) {
    return JoinPath(root, L"current.json");
}

bool ReadStateBytes(const std::wstring& path, std::string& bytes) {
    const platform::FileHandle file(CreateFileW(ToLongPath(path).c_str(), GENERIC_READ,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER length{};
    if (!file || !GetFileSizeEx(file.Get(), &length) || length.QuadPart > kMaxStateBytes) return false;
    bytes.resize(static_cast<std::size_t>(length.QuadPart));
    DWORD read = 0;
    return ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) && read == bytes.size();
}

bool RuntimeStateMatches(const std::wstring& root, const std::vector<PackageDescriptor>& packages) {
    std::string bytes;
    return packages.empty() || (ReadStateBytes(RuntimeStatePath(root), bytes) && bytes == RenderRuntimeState(packages));
}

bool ActivatePackageSet(const std::wstring& root, const std::vector<PackageDescriptor>& packages, std::wstring& error) {
    if (packages.empty() || !CreateDirectoryChain(root)) return Fail(error, kNothingToActivate);
    for (const PackageDescriptor& package : packages) {
        if (!ValidateInstalledPackage(VersionFolder(root, package), package, error)) return false;
    }
    const std::wstring path = RuntimeStatePath(root);
    const std::string wanted = RenderRuntimeState(packages);
    std::string previous;
    const bool hadPrevious = ReadStateBytes(path, previous);
    if (!WriteStateAtomically(path, wanted)) return Fail(error, kCannotCommitState);
    std::string found;
    if (ReadStateBytes(path, found) && found == wanted) return true;
    return Fail(error, TakeBack(path, hadPrevious, previous) ? kReadBackFailed : kRollbackFailed);
}

bool PruneOldPackageVersions(const std::wstring& root, const std::vector<PackageDescriptor>& packages,
                             std::wstring& error) {
    for (const PackageDescriptor& package : packages) {
        if (!PrunePackage(root, package, error)) return false;
    }
    return true;
}

}  // namespace launcher_update
