#include "update/workflow/file_swap.h"

#include <windows.h>

#include "platform/text.h"
#include "update/files/attributes.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/files/trees.h"

namespace launcher_update {
namespace {

SwapStep Replace(const std::wstring& source, const std::wstring& temporary, const std::wstring& target) {
    const std::wstring longTemporary = ToLongPath(temporary);
    DeleteFileW(longTemporary.c_str());  // of a run that was killed
    if (!CopyFileW(ToLongPath(source).c_str(), longTemporary.c_str(), FALSE)) return SwapStep::copy;
    if (!FlushFileToDisk(temporary)) return SwapStep::flush;
    const bool moved = MoveFileExW(longTemporary.c_str(), ToLongPath(target).c_str(),
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
    return moved ? SwapStep::done : SwapStep::move;
}

}  // namespace

SwapResult SwapIn(const std::wstring& source, AppliedFile& file) {
    const auto folder = platform::ParentPath(file.targetPath);
    if (!folder || !CreateDirectoryChain(*folder)) return {SwapStep::folder, 0};
    // A target that cannot be looked at may exist, and then it needs its backup too.
    file.existed = LookAt(file.targetPath).presence != Presence::absent;
    if (file.existed && !IsPlainFile(LookAt(file.backupPath).attributes)) return {SwapStep::backup, 0};
    const std::wstring temporary = file.targetPath + L".update-new";
    const SwapStep step = Replace(source, temporary, file.targetPath);
    if (step == SwapStep::done) return {};
    const DWORD windowsError = GetLastError();
    DeleteFileW(ToLongPath(temporary).c_str());
    return {step, windowsError};
}

}  // namespace launcher_update
