#pragma once

#include <cstdint>
#include <optional>

#include "update/settings.h"

namespace launcher_shell {

/// Holds back what a window cannot show anyway: a check of files raises thousands of events in a second. Used by the
/// sender, so that a dropped event costs no message. Pure; the worker's thread alone.
class StageRateLimit {
  public:
    static constexpr std::uint64_t kPeriodMs = 100;

    /// Whether an event is to be sent. Only checks of files are ever held back, never the first of its kind in a row
    /// and never one that reaches its total. `nowMs` does not go back.
    [[nodiscard]] bool Passes(launcher_update::Stage stage, std::uint64_t completed, std::uint64_t total,
                              std::uint64_t nowMs);

  private:
    std::optional<launcher_update::Stage> previous_;
    std::uint64_t lastSentMs_ = 0;  // of a check of files
};

}  // namespace launcher_shell
