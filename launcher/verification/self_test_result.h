#pragma once

/// What a workflow command leaves behind in `launcher-update-self-test-result.json`: one line of JSON. Pure.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "update/settings.h"

namespace launcher_shell {

/// A longer course is cut here, and the result says so.
inline constexpr std::size_t kMaxTracedStages = 4096;

struct TracedStage {
    launcher_update::Stage stage;
    std::wstring detail;
    std::uint64_t completed;
    std::uint64_t total;
};

struct SelfTestResult {
    launcher_update::Outcome outcome = launcher_update::Outcome::Skipped;
    bool safeToLaunch = true;
    std::wstring error;
    bool mutationAttempted = false;
    bool mutationSucceeded = false;
    bool traceTruncated = false;
    std::vector<TracedStage> stages;
};

/// Adds a report, or notes that there was no more room for it.
void TraceStage(SelfTestResult& result, TracedStage stage);

[[nodiscard]] std::wstring RenderSelfTestResult(const SelfTestResult& result);

}  // namespace launcher_shell
