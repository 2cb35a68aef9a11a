#include "launcher/verification/transfer_commands.h"

#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

#include "download/http_rules.h"
#include "download/mirror.h"
#include "download/speed.h"
#include "download/transfer.h"
#include "launcher/verification/command_table.h"
#include "launcher/verification/output.h"
#include "launcher/verification/result_line.h"
#include "update/workflow/payload_fetch.h"

namespace launcher_shell {

using launcher_download::Callbacks;
using launcher_download::Phase;
using launcher_download::Progress;
using launcher_download::Request;
using launcher_download::Result;

namespace {

constexpr int kContractBroken = 1310;
constexpr int kCancelled = 1313;
constexpr int kFailed = 1314;
constexpr std::uint64_t kShortDelayMs = 100;  // so that a small fixture is compared at all

int ExitCodeOf(const Result& result) {
    if (result.success) return 0;
    return result.canceled ? kCancelled : kFailed;
}

/// Listens to one transfer and stops it where it was told to.
class Observer {
  public:
    /// `cancelAt` in bytes; 0 never.
    explicit Observer(std::uint64_t cancelAt) : cancelAt_(cancelAt) {}

    [[nodiscard]] Callbacks Listen() {
        Callbacks callbacks;
        callbacks.cancelled = [this] { return cancelled_.load(); };
        callbacks.progress = [this](const Progress& progress) { Note(progress); };
        return callbacks;
    }

    /// One line for each report, in order.
    void Print(ResultLine (*render)(const Progress&)) const {
        std::string lines;
        for (const Progress& progress : reports_) {
            lines += render(progress).Text();
        }
        WriteOutput(lines);
    }

  private:
    void Note(const Progress& progress) {
        const std::scoped_lock lock(mutex_);  // a comparison of two sources asks on a second thread
        reports_.push_back(progress);
        if (cancelAt_ != 0 && progress.phase == Phase::receiving && progress.bytes >= cancelAt_) cancelled_ = true;
    }

    std::uint64_t cancelAt_;
    std::atomic<bool> cancelled_ = false;
    std::mutex mutex_;
    std::vector<Progress> reports_;
};

Request MakeRequest(const std::wstring& url, const std::wstring& size, const std::wstring& sha256,
                    const std::wstring& cacheDirectory) {
    Request request;
    request.url = url;
    request.size = NumberIn(size);
    request.sha256 = sha256;
    request.cacheDirectory = cacheDirectory;
    return request;
}

ResultLine RenderMirrorObservation(const Progress& progress) {
    return ResultLine("MIRROR_OBSERVATION")
        .Add("phase", static_cast<std::uint32_t>(progress.phase))
        .Add("bytes", progress.bytes)
        .Add("backup", progress.backup)
        .Add("slow", progress.slow);
}

ResultLine RenderDownloadObservation(const Progress& progress) {
    return ResultLine("DOWNLOAD_OBSERVATION")
        .Add("phase", static_cast<std::uint32_t>(progress.phase))
        .Add("bytes", progress.bytes)
        .Add("network", progress.networkBytes)
        .Add("attempt", progress.attempt)
        .AddRate("rate", progress.bytesPerSecond)
        .Add("restarted", progress.restarted);
}

// The contract of the engine's parsers.

struct RangeCheck {
    const wchar_t* header;
    bool accepted;  // for everything from the fourth byte to the end of ten
};
constexpr RangeCheck kRangeChecks[] = {
    {L"bytes 4-9/10", true},          {L"bytes 0-9/10", false},
    {L"bytes 4-10/10", false},        {L"bytes 4-8/10", false},
    {L"bytes 4-9/11", false},         {L"bytes 4-9/*", false},
    {L"bytes 4-9/10 garbage", false}, {L"bytes  4-9/10", false},
    {L"Bytes 4-9/10", false},         {L"bytes 184467440737095516160-9/10", false},
    {L"bytes */10", false},           {L"", false},
};

struct TagCheck {
    const wchar_t* tag;
    bool strong;
};
constexpr TagCheck kTagChecks[] = {
    {LR"("v1")", true},   {LR"("")", true},     {LR"(W/"v1")", false}, {L"v1", false}, {L"\"v\r\n1\"", false},
    {LR"("v 1")", false}, {LR"("v"1")", false}, {L"\"", false},        {L"", false},   {L"\"v\u00E91\"", false},
};

struct SpeedCheck {
    double bytesPerSecond;
    const wchar_t* words;
};
constexpr SpeedCheck kSpeedChecks[] = {
    {0.0, L"0.0 KB/s"},
    {512.0, L"0.5 KB/s"},
    {131072.0, L"128.0 KB/s"},
    {1048576.0, L"1.0 MB/s"},
    {2097152.0, L"2.0 MB/s"},
    {-1.0, L"—"},
    {2e15, L"—"},
    {std::numeric_limits<double>::infinity(), L"—"},
    {std::numeric_limits<double>::quiet_NaN(), L"—"},
};

struct Tally {
    std::uint32_t checks = 0;
    bool passed = true;

    void Add(bool holds) {
        ++checks;
        passed = passed && holds;
    }
};

Tally CheckParsers() {
    constexpr std::uint64_t kOffset = 4;
    constexpr std::uint64_t kTotal = 10;
    Tally tally;
    for (const RangeCheck& check : kRangeChecks) {
        tally.Add(launcher_download::ParseContentRange(check.header, kOffset, kTotal) == check.accepted);
    }
    for (const TagCheck& check : kTagChecks) {
        tally.Add(launcher_download::IsStrongEtag(check.tag) == check.strong);
    }
    for (const SpeedCheck& check : kSpeedChecks) {
        tally.Add(launcher_download::FormatSpeed(check.bytesPerSecond) == check.words);
    }
    return tally;
}

}  // namespace

int CheckDownloadContract(const CommandRun&) {
    const Tally tally = CheckParsers();
    const std::string name = std::string("LAUNCHER_DOWNLOAD_CONTRACT_") + (tally.passed ? "PASS" : "FAIL");
    WriteOutput(ResultLine(name).Add("checks", tally.checks).Text());
    return tally.passed ? 0 : kContractBroken;
}

int RunSourceSession(const CommandRun& run) {
    constexpr std::uint32_t kTransfers = 2;
    const auto session = std::make_shared<launcher_download::SourceSession>();
    for (std::uint32_t file = 0; file < kTransfers; ++file) {
        const std::wstring cache = run.values[6] + L"\\payload-" + std::to_wstring(file);
        Request request = MakeRequest(run.values[2 * file], run.values[4], run.values[5], cache);
        request.backupUrl = run.values[2 * file + 1];
        request.session = session;
        request.compareAtStart = true;  // as the files of an update
        Observer observer(NumberIn(run.values[7]));
        const Result result = launcher_download::DownloadAllowingLoopback(request, observer.Listen());
        WriteOutput(ResultLine("SESSION_RESULT")
                        .Add("file", file)
                        .Add("success", result.success)
                        .Add("canceled", result.canceled)
                        .Add("preference", session->preference)
                        .Text());
        if (!result.success) return ExitCodeOf(result);
    }
    return 0;
}

int RunMirrorTransfer(const CommandRun& run) {
    Request request = MakeRequest(run.values[0], run.values[2], run.values[3], run.values[4]);
    request.backupUrl = run.values[1];
    const std::uint64_t window = NumberIn(run.values[6]);
    request.comparisonDelayMs = window != 0 ? kShortDelayMs : launcher_update::kComparisonDelayMs;
    request.comparisonWindowMs = window != 0 ? window : launcher_update::kComparisonWindowMs;
    Observer observer(NumberIn(run.values[5]));
    const Result result = launcher_download::DownloadAllowingLoopback(request, observer.Listen());
    WriteOutput(ResultLine("MIRROR_RESULT")
                    .Add("success", result.success)
                    .Add("canceled", result.canceled)
                    .Add("http", result.httpStatus)
                    .Text());
    observer.Print(RenderMirrorObservation);
    return ExitCodeOf(result);
}

int RunLoopbackTransfer(const CommandRun& run) {
    const Request request = MakeRequest(run.values[0], run.values[1], run.values[2], run.values[3]);
    Observer observer(NumberIn(run.values[4]));
    const Result result = launcher_download::run(request, observer.Listen(), true);
    WriteOutput(ResultLine("DOWNLOAD_RESULT")
                    .Add("success", result.success)
                    .Add("canceled", result.canceled)
                    .Add("attempts", result.attempts)
                    .Add("http", result.httpStatus)
                    .Add("os", result.osError)
                    .Text());
    observer.Print(RenderDownloadObservation);
    return ExitCodeOf(result);
}

}  // namespace launcher_shell
