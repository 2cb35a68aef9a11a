#include "download/retry_after.h"

#include <windows.h>

#include <winhttp.h>

#include <optional>

#include "download/http_date.h"
#include "download/http_rules.h"
#include "download/retry_rules.h"

namespace launcher_download {
namespace {

std::uint64_t Ticks(const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

std::optional<std::uint64_t> ReadHttpDate(const std::wstring& value) {
    SYSTEMTIME time{};
    GetSystemTime(&time);
    const std::optional<std::wstring> date = NormaliseHttpDate(value, time.wYear);
    FILETIME moment{};
    if (!date || !WinHttpTimeToSystemTime(date->c_str(), &time) || !SystemTimeToFileTime(&time, &moment)) {
        return std::nullopt;
    }
    return Ticks(moment);
}

}  // namespace

std::uint64_t ParseRetryAfter(const std::wstring& value, std::uint32_t attempt) {
    if (value.empty()) return DefaultWaitMs(attempt);
    if (const std::optional<std::uint64_t> seconds = ParseDecimal(value)) return WaitOfSeconds(*seconds);
    const std::optional<std::uint64_t> due = ReadHttpDate(value);
    if (!due) return kWaitRefused;
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return WaitUntil(*due, Ticks(now));
}

}  // namespace launcher_download
