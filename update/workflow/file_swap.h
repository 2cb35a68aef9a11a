#pragma once

/// One file of the installed tree gives way to another, while the journal stands: copy to a sibling, force it out,
/// rename it over the target. The target is a whole file at every moment, and nothing is replaced that has no backup.

#include <cstdint>
#include <string>

namespace launcher_update {

/// One target of the running transaction.
struct AppliedFile {
    std::wstring targetPath;
    std::wstring backupPath;
    bool existed = false;
};

enum class SwapStep {
    done,
    folder,  // the target's folder could not be made
    backup,  // the target exists and its backup does not stand as a plain file
    copy,
    flush,
    move,
};

/// `failedAt` is `done` for a success. The Windows error is that of copy, flush or move.
struct SwapResult {
    SwapStep failedAt = SwapStep::done;
    std::uint32_t windowsError = 0;
};

/// Sets `file.existed` and replaces or makes the target. A failure leaves the target as it was and no sibling
/// (`<target>.update-new`).
[[nodiscard]] SwapResult SwapIn(const std::wstring& source, AppliedFile& file);

}  // namespace launcher_update
