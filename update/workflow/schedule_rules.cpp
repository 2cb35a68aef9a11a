#include <algorithm>

#include "update/manifest/json_reader.h"
#include "update/workflow/schedule.h"

namespace launcher_update {

std::string RenderUpdateState(std::int64_t unixSeconds) {
    return "{\n  \"schemaVersion\": 1,\n  \"lastAttemptUnix\": " + std::to_string(unixSeconds) + "\n}\n";
}

bool IsCheckDueAt(std::string_view stateBytes, std::int32_t intervalMinutes, std::int64_t nowUnixSeconds) {
    std::wstring text;
    std::uint64_t lastAttempt = 0;
    if (!DecodeUtf8Document(stateBytes, text) || !ReadJsonUnsignedLoose(text, L"lastAttemptUnix", lastAttempt))
        return true;
    const auto now = static_cast<std::uint64_t>(std::max<std::int64_t>(nowUnixSeconds, 0));
    if (lastAttempt > now) return true;
    const auto interval = static_cast<std::uint64_t>(std::max(intervalMinutes, 1));
    return now - lastAttempt >= interval * 60;
}

bool PriorityIgnoresSchedule(std::wstring_view priority) {
    return priority == L"recommended" || priority == L"hotfix";
}

}  // namespace launcher_update
