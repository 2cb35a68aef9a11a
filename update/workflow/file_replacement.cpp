#include "update/workflow/file_replacement.h"

#include <windows.h>

#include "platform/text.h"
#include "update/files/attributes.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/files/trees.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotCreateFolder[] = L"無法建立更新目標資料夾。";
constexpr wchar_t kBackupMissing[] = L"更新交易的既有檔案備份遺失。";
constexpr wchar_t kCannotReplace[] = L"無法替換更新檔案。";

/// Copy to a sibling, force it out, rename it over the target: the target is always a whole file.
bool SwapIn(const std::wstring& staged, const std::wstring& target) {
    const std::wstring temporary = target + L".update-new";
    const std::wstring longTemporary = ToLongPath(temporary);
    DeleteFileW(longTemporary.c_str());
    if (CopyFileW(ToLongPath(staged).c_str(), longTemporary.c_str(), FALSE) && FlushFileToDisk(temporary) &&
        MoveFileExW(longTemporary.c_str(), ToLongPath(target).c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return true;
    }
    DeleteFileW(longTemporary.c_str());
    return false;
}

const wchar_t* ApplyOne(const std::wstring& stagedPath, AppliedFile& file) {
    const auto folder = platform::ParentPath(file.targetPath);
    if (!folder || !CreateDirectoryChain(*folder)) return kCannotCreateFolder;
    // A target that cannot be looked at may exist, and then it needs its backup too.
    file.existed = LookAt(file.targetPath).presence != Presence::absent;
    if (file.existed && !IsPlainFile(LookAt(file.backupPath).attributes)) return kBackupMissing;
    return SwapIn(stagedPath, file.targetPath) ? nullptr : kCannotReplace;
}

}  // namespace

bool ApplyStagedFiles(const std::wstring& root, const std::wstring& stagingDirectory,
                      const std::wstring& backupDirectory, const UpdateManifest& manifest,
                      std::vector<AppliedFile>& appliedFiles, std::wstring& error,
                      const std::function<void(std::uint64_t)>& onFileApplied) {
    for (const ManifestFileEntry& entry : manifest.files) {
        AppliedFile file{JoinPath(root, entry.path), JoinPath(backupDirectory, entry.path), false};
        if (const wchar_t* message = ApplyOne(JoinPath(stagingDirectory, entry.path), file)) {
            error = message;
            return false;
        }
        appliedFiles.push_back(std::move(file));
        if (onFileApplied) onFileApplied(appliedFiles.size());
    }
    return true;
}

}  // namespace launcher_update
