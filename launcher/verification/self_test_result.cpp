#include "launcher/verification/self_test_result.h"

#include <iterator>
#include <utility>

#include "update/manifest/json_reader.h"

namespace launcher_shell {

using launcher_update::Outcome;
using launcher_update::QuoteJsonText;
using launcher_update::Stage;

namespace {

constexpr const wchar_t* kStageNames[] = {
    L"Checking",  L"Skipped",     L"UpToDate",         L"UpdateAvailable", L"Repairing",
    L"Declined",  L"Downloading", L"DownloadingBytes", L"Verifying",       L"Installing",
    L"Completed", L"Cancelled",   L"Failed",           L"CheckingFiles",   L"VerifyingFiles",
};
static_assert(std::size(kStageNames) == static_cast<std::size_t>(Stage::VerifyingFiles) + 1);

constexpr const wchar_t* kOutcomeNames[] = {
    L"Skipped", L"UpToDate", L"Declined", L"Cancelled", L"Applied", L"LauncherTooOld", L"Failed",
};
static_assert(std::size(kOutcomeNames) == static_cast<std::size_t>(Outcome::Failed) + 1);

template <typename Number, std::size_t count>
std::wstring NameOf(const wchar_t* const (&names)[count], Number number) {
    const auto index = static_cast<std::size_t>(number);
    return index < count ? names[index] : L"Unknown";
}

std::wstring Literal(bool value) {
    return value ? L"true" : L"false";
}

std::wstring RenderStage(const TracedStage& stage) {
    return L"{\"stage\":" + QuoteJsonText(NameOf(kStageNames, stage.stage)) + L",\"detail\":" +
           QuoteJsonText(stage.detail) + L",\"completed\":" + std::to_wstring(stage.completed) + L",\"total\":" +
           std::to_wstring(stage.total) + L'}';
}

}  // namespace

void TraceStage(SelfTestResult& result, TracedStage stage) {
    if (result.stages.size() < kMaxTracedStages) {
        result.stages.push_back(std::move(stage));
    } else {
        result.traceTruncated = true;
    }
}

std::wstring RenderSelfTestResult(const SelfTestResult& result) {
    std::wstring text = L"{\"schemaVersion\":1,\"outcome\":" + QuoteJsonText(NameOf(kOutcomeNames, result.outcome)) +
                        L",\"safeToLaunch\":" + Literal(result.safeToLaunch) + L",\"error\":" +
                        QuoteJsonText(result.error) + L",\"verificationMutationAttempted\":" +
                        Literal(result.mutationAttempted) + L",\"verificationMutationSucceeded\":" +
                        Literal(result.mutationSucceeded) + L",\"traceTruncated\":" + Literal(result.traceTruncated) +
                        L",\"stages\":[";
    for (std::size_t index = 0; index < result.stages.size(); ++index) {
        if (index != 0) text += L',';
        text += RenderStage(result.stages[index]);
    }
    return text + L"]}\n";
}

}  // namespace launcher_shell
