#include "update/workflow/schedule.h"

#include <ctime>

#include "update/files/durable_write.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"

namespace launcher_update {
namespace {

constexpr std::size_t kMaxStateBytes = 16384;  // the file has about 60

}  // namespace

std::wstring UpdateStatePath(const std::wstring& root) {
    return JoinPath(root, L"update-state.json");
}

bool IsCheckDue(const std::wstring& statePath, std::int32_t intervalMinutes) {
    std::string bytes;
    return !ReadFileLimited(statePath, kMaxStateBytes, bytes) || IsCheckDueAt(bytes, intervalMinutes, _time64(nullptr));
}

bool IsReleaseDue(const std::wstring& statePath, std::int32_t intervalMinutes, std::wstring_view priority) {
    return PriorityIgnoresSchedule(priority) || IsCheckDue(statePath, intervalMinutes);
}

void WriteUpdateState(const std::wstring& statePath) {
    // Whatever goes wrong, the next start checks again, which is what a missing record means.
    static_cast<void>(WriteStateAtomically(statePath, RenderUpdateState(_time64(nullptr))));
}

}  // namespace launcher_update
