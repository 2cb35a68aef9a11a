#include "update/workflow/file_replacement.h"

#include <utility>

#include "update/failure.h"
#include "update/files/paths.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotCreateFolder[] = L"無法建立更新目標資料夾。";
constexpr wchar_t kBackupMissing[] = L"更新交易的既有檔案備份遺失。";
constexpr wchar_t kCannotReplace[] = L"無法替換更新檔案。";

const wchar_t* MessageFor(SwapStep failedAt) {
    switch (failedAt) {
        case SwapStep::done:
            return nullptr;
        case SwapStep::folder:
            return kCannotCreateFolder;
        case SwapStep::backup:
            return kBackupMissing;
        case SwapStep::copy:
        case SwapStep::flush:
        case SwapStep::move:
            break;
    }
    return kCannotReplace;
}

}  // namespace

bool ApplyStagedFiles(const std::wstring& root, const std::wstring& stagingDirectory,
                      const std::wstring& backupDirectory, const UpdateManifest& manifest,
                      std::vector<AppliedFile>& appliedFiles, std::wstring& error,
                      const std::function<void(std::uint64_t)>& onFileApplied) {
    for (const ManifestFileEntry& entry : manifest.files) {
        AppliedFile file{JoinPath(root, entry.path), JoinPath(backupDirectory, entry.path), false};
        const SwapResult result = SwapIn(JoinPath(stagingDirectory, entry.path), file);
        if (const wchar_t* message = MessageFor(result.failedAt)) return Fail(error, message);
        appliedFiles.push_back(std::move(file));
        if (onFileApplied) onFileApplied(appliedFiles.size());
    }
    return true;
}

}  // namespace launcher_update
