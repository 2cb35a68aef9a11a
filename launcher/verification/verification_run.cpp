#include "launcher/verification/verification_run.h"

#include <windows.h>

#include <string_view>
#include <utility>

#include "launcher/verification/argument_check.h"
#include "platform/unique_handle.h"
#include "product/locations.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/paths.h"

namespace launcher_shell {

using launcher_update::Outcome;
using launcher_update::Result;
using launcher_update::Settings;
using launcher_update::Stage;

namespace {

constexpr wchar_t kMutationVariable[] = L"VPR_TEST_MUTATE_AFTER_FULL_VERIFY";
constexpr wchar_t kMutationFailed[] = L"Test-only post-verification mutation failed.";
constexpr std::string_view kMarker = "first-target-applied";
constexpr char kFlippedBit = 32;

/// Set to exactly `1`: the buffer has no room for more.
bool MutationIsWanted() {
    wchar_t value[2] = L"";
    return GetEnvironmentVariableW(kMutationVariable, value, 2) == 1 && value[0] == L'1';
}

bool FlipFirstByte(HANDLE file) {
    char byte = 0;
    DWORD count = 0;
    if (!ReadFile(file, &byte, 1, &count, nullptr) || count != 1) return false;
    byte = static_cast<char>(byte ^ kFlippedBit);
    return SetFilePointer(file, 0, nullptr, FILE_BEGIN) == 0 && WriteFile(file, &byte, 1, &count, nullptr) &&
           count == 1;
}

/// Changes a file so that only its bytes tell: size and time of the last writing stay.
bool MutateFile(const std::wstring& path) {
    if (!launcher_update::IsPlainFile(launcher_update::LookAt(path).attributes)) return false;
    const platform::FileHandle file(CreateFileW(launcher_update::ToLongPath(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                                                FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!file) return false;
    FILETIME lastWrite = {};
    return GetFileTime(file.Get(), nullptr, nullptr, &lastWrite) && FlipFirstByte(file.Get()) &&
           SetFileTime(file.Get(), nullptr, nullptr, &lastWrite) && FlushFileBuffers(file.Get());
}

void WriteMarker(const std::wstring& path) {
    const platform::FileHandle file(CreateFileW(launcher_update::ToLongPath(path).c_str(), GENERIC_WRITE,
                                                FILE_SHARE_READ, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return;
    DWORD written = 0;
    WriteFile(file.Get(), kMarker.data(), static_cast<DWORD>(kMarker.size()), &written, nullptr);
}

}  // namespace

VerificationRun::VerificationRun(WorkflowVerification wanted, std::wstring launcherDirectory)
    : wanted_(std::move(wanted)),
      launcherDirectory_(std::move(launcherDirectory)),
      mutationWanted_(MutationIsWanted()) {}

bool VerificationRun::ArgumentsAreGood() const {
    return !wanted_.crashMarker || AcceptValue({"marker", ArgumentKind::localPath}, *wanted_.crashMarker);
}

void VerificationRun::Observe(Settings& settings) {
    settings.onStage = [this](Stage stage, const std::wstring& detail, std::uint64_t completed, std::uint64_t total) {
        OnStage(stage, detail, completed, total);
    };
    settings.shouldCancel = [this] { return cancelled_.load(); };
    settings.onFileApplied = [this](std::uint64_t count) { OnFileApplied(count); };
}

void VerificationRun::Judge(Result& result) const {
    if (!told_.mutationAttempted || told_.mutationSucceeded) return;
    result.outcome = Outcome::Failed;
    result.safeToLaunch = false;
    result.error = kMutationFailed;
}

int VerificationRun::Leave(const Result& result) {
    told_.outcome = result.outcome;
    told_.safeToLaunch = result.safeToLaunch;
    told_.error = result.error;
    const bool passed = result.outcome == (wanted_.cancels ? Outcome::Cancelled : Outcome::Applied);
    const std::wstring errorPath = Beside(L"launcher-update-self-test-error.txt");
    if (passed) {
        DeleteFileW(launcher_update::ToLongPath(errorPath).c_str());
    } else if (!result.error.empty()) {
        // The exit code tells, whether or not the text can be kept.
        static_cast<void>(launcher_update::WriteTextDurable(errorPath, result.error + L'\n'));
    }
    const std::wstring resultPath = Beside(L"launcher-update-self-test-result.json");
    if (!launcher_update::WriteTextDurable(resultPath, RenderSelfTestResult(told_))) return kSelfTestResultLost;
    return passed ? 0 : kSelfTestFailed;
}

void VerificationRun::OnStage(Stage stage, const std::wstring& detail, std::uint64_t completed, std::uint64_t total) {
    TraceStage(told_, {stage, detail, completed, total});
    if (wanted_.cancels && stage == Stage::DownloadingBytes && completed > 0) cancelled_ = true;
    const bool verified = stage == Stage::VerifyingFiles && total > 0 && completed == total;
    if (!mutationWanted_ || !verified || told_.mutationAttempted) return;
    told_.mutationAttempted = true;
    told_.mutationSucceeded = MutateFile(launcherDirectory_ + L'\\' + product::kApplicationDirectory + L'\\' +
                                         product::kApplicationExecutable);
}

/// The installed tree is mixed now and its journal durable: the moment at which a death is worth trying.
void VerificationRun::OnFileApplied(std::uint64_t count) const {
    if (!wanted_.crashMarker || count != 1) return;
    WriteMarker(*wanted_.crashMarker);
    Sleep(INFINITE);
}

std::wstring VerificationRun::Beside(const wchar_t* name) const {
    return launcherDirectory_ + L'\\' + name;
}

}  // namespace launcher_shell
