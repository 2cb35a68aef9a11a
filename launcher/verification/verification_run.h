#pragma once

/// Runs of the real update workflow under observation: what a verification switch adds to a normal run. The workflow's
/// callbacks run on the worker's thread, everything else on the main thread before and after it.

#include <atomic>
#include <string>

#include "launcher/command_line.h"
#include "launcher/verification/self_test_result.h"
#include "update/settings.h"

namespace launcher_shell {

class VerificationRun {
  public:
    VerificationRun(WorkflowVerification wanted, std::wstring launcherDirectory);
    VerificationRun(const VerificationRun&) = delete;
    VerificationRun& operator=(const VerificationRun&) = delete;

    /// Whether the paths that were given can be used.
    [[nodiscard]] bool ArgumentsAreGood() const;

    /// Fills the hooks of `settings`; this must outlive every call of them.
    void Observe(launcher_update::Settings& settings);

    /// What a test-only change behind the verification makes of the result.
    void Judge(launcher_update::Result& result) const;

    /// Writes the result files beside the launcher; the exit code of the process.
    [[nodiscard]] int Leave(const launcher_update::Result& result);

  private:
    void OnStage(launcher_update::Stage stage, const std::wstring& detail, std::uint64_t completed,
                 std::uint64_t total);
    void OnFileApplied(std::uint64_t count) const;
    [[nodiscard]] std::wstring Beside(const wchar_t* name) const;

    WorkflowVerification wanted_;
    std::wstring launcherDirectory_;
    bool mutationWanted_;
    std::atomic<bool> cancelled_ = false;
    SelfTestResult told_;
};

/// Exit codes of the workflow commands that write a result.
inline constexpr int kSelfTestFailed = 20;
inline constexpr int kSelfTestResultLost = 21;

}  // namespace launcher_shell
