#pragma once

/// When the network is asked again for a normal release. One small file beside the launcher, `update-state.json`,
/// records the last attempt that reached a conclusion. Every doubt is decided for checking.

#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_update {

[[nodiscard]] std::wstring UpdateStatePath(const std::wstring& root);

/// The file's text for an attempt at `unixSeconds`. Pure.
[[nodiscard]] std::string RenderUpdateState(std::int64_t unixSeconds);

/// Whether the interval has passed, by the file's bytes and the present time. A time in the future counts as due: a
/// clock that went backwards must not block updates. Pure.
[[nodiscard]] bool IsCheckDueAt(std::string_view stateBytes, std::int32_t intervalMinutes, std::int64_t nowUnixSeconds);

/// "recommended" and "hotfix" do not wait for the interval. Exact comparison. Pure.
[[nodiscard]] bool PriorityIgnoresSchedule(std::wstring_view priority);

[[nodiscard]] bool IsCheckDue(const std::wstring& statePath, std::int32_t intervalMinutes);

/// Does not read the file for a priority that ignores the schedule.
[[nodiscard]] bool IsReleaseDue(const std::wstring& statePath, std::int32_t intervalMinutes,
                                std::wstring_view priority);

/// Records the present time. A failure is ignored: the next start then checks again.
void WriteUpdateState(const std::wstring& statePath);

}  // namespace launcher_update
