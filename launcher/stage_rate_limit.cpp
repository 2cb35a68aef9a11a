#include "launcher/stage_rate_limit.h"

namespace launcher_shell {

using launcher_update::Stage;

bool StageRateLimit::Passes(Stage stage, std::uint64_t completed, std::uint64_t total, std::uint64_t nowMs) {
    const bool repeated = previous_ == stage;
    previous_ = stage;
    if (stage != Stage::CheckingFiles && stage != Stage::VerifyingFiles) return true;
    const bool unfinished = total == 0 || completed < total;
    if (repeated && unfinished && nowMs - lastSentMs_ < kPeriodMs) return false;
    lastSentMs_ = nowMs;
    return true;
}

}  // namespace launcher_shell
