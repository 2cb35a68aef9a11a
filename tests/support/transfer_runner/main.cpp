// Fetches payloads through the engine's public entry, one after the other and with one shared session, and tells all
// that its callers hear:
//
//   transfer_runner REPORT (--get URL SHA256 SIZE CACHE [OPTION...])...
//     --backup URL              second source
//     --compare                 compare both before the first byte
//     --delay MS, --window MS   opening and length of the speed window (10000 each)
//     --backup-source           URL is the backup already
//     --component N             for the trace
//     --cancel-phase N          cancelled from the first report of this phase on
//     --cancel-bytes N          cancelled from the first report of so many bytes on
//     --cancel-file PATH        cancelled as soon as this file is there
//     --reconnect-file PATH     asks once for another connection as soon as this file is there
//
// The environment may ask for a fault as it does of fault_launcher: VPR_FAULT_KIND, VPR_FAULT_AT. A killed run leaves
// no report and exits with 177.

#include <windows.h>

#include <shellapi.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "download/mirror.h"
#include "download/trace_line.h"
#include "tests/support/fault_kind.h"
#include "tests/support/import_hook.h"
#include "tests/support/report.h"

namespace {

using launcher_download::Phase;
using launcher_download::Progress;

struct Errand {
    launcher_download::Request request;
    std::uint32_t cancelPhase = ~0u;
    std::uint64_t cancelBytes = ~std::uint64_t{0};
    std::wstring cancelFile;
    std::wstring reconnectFile;
};

std::uint64_t Number(const std::wstring& text) {
    wchar_t* end = nullptr;
    const std::uint64_t value = std::wcstoull(text.c_str(), &end, 10);
    if (text.empty() || *end != L'\0') std::abort();
    return value;
}

/// The arguments from the front; a missing one ends the program.
class Arguments {
  public:
    Arguments() {
        int count = 0;
        wchar_t** texts = CommandLineToArgvW(GetCommandLineW(), &count);
        for (int at = 1; at < count; ++at)
            texts_.emplace_back(texts[at]);
        LocalFree(texts);
    }
    [[nodiscard]] bool AtEnd() const { return next_ == texts_.size(); }
    std::wstring Take() {
        if (AtEnd()) std::abort();
        return texts_[next_++];
    }

  private:
    std::vector<std::wstring> texts_;
    std::size_t next_ = 0;
};

void TakeOption(const std::wstring& option, Arguments& arguments, Errand& errand) {
    if (option == L"--backup") {
        errand.request.backupUrl = arguments.Take();
    } else if (option == L"--compare") {
        errand.request.compareAtStart = true;
    } else if (option == L"--delay") {
        errand.request.comparisonDelayMs = Number(arguments.Take());
    } else if (option == L"--window") {
        errand.request.comparisonWindowMs = Number(arguments.Take());
    } else if (option == L"--backup-source") {
        errand.request.backupSource = true;
    } else if (option == L"--component") {
        errand.request.component = static_cast<std::uint32_t>(Number(arguments.Take()));
    } else if (option == L"--cancel-phase") {
        errand.cancelPhase = static_cast<std::uint32_t>(Number(arguments.Take()));
    } else if (option == L"--cancel-bytes") {
        errand.cancelBytes = Number(arguments.Take());
    } else if (option == L"--cancel-file") {
        errand.cancelFile = arguments.Take();
    } else if (option == L"--reconnect-file") {
        errand.reconnectFile = arguments.Take();
    } else {
        std::abort();
    }
}

std::vector<Errand> TakeErrands(Arguments& arguments) {
    std::vector<Errand> errands;
    while (!arguments.AtEnd()) {
        const std::wstring word = arguments.Take();
        if (word != L"--get") {
            if (errands.empty()) std::abort();
            TakeOption(word, arguments, errands.back());
            continue;
        }
        Errand errand;
        errand.request.url = arguments.Take();
        errand.request.sha256 = arguments.Take();
        errand.request.size = Number(arguments.Take());
        errand.request.cacheDirectory = arguments.Take();
        errand.request.comparisonDelayMs = 10000;
        errand.request.comparisonWindowMs = 10000;
        errand.request.component = 2;
        errands.push_back(std::move(errand));
    }
    return errands;
}

bool Exists(const std::wstring& path) {
    return !path.empty() && GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// Members of one JSON object.
class Object {
  public:
    Object& Text(std::string_view key, std::wstring_view value) { return Raw(key, test_support::JsonQuote(value)); }
    Object& Flag(std::string_view key, bool value) { return Raw(key, value ? "true" : "false"); }
    template <typename Value>
    Object& Number(std::string_view key, Value value) {
        return Raw(key, std::to_string(value));
    }
    Object& Raw(std::string_view key, std::string_view value) {
        text_ += text_.empty() ? "{\"" : ", \"";
        text_.append(key).append("\": ").append(value);
        return *this;
    }
    [[nodiscard]] std::string End() const { return text_ + "}"; }

  private:
    std::string text_;
};

std::string JoinList(const std::vector<std::string>& items) {
    std::string text = "[";
    for (const std::string& item : items)
        text += (text.size() > 1 ? ", " : "") + item;
    return text + "]";
}

std::string Render(const Progress& progress, std::uint64_t ms) {
    const std::string_view word = launcher_download::PhaseWord(progress.phase);
    return Object()
        .Text("phase", std::wstring(word.begin(), word.end()))
        .Number("ms", ms)
        .Number("bytes", progress.bytes)
        .Number("total", progress.total)
        .Number("network_bytes", progress.networkBytes)
        .Number("bytes_per_second", progress.bytesPerSecond)
        .Number("attempt", progress.attempt)
        .Flag("restarted", progress.restarted)
        .Flag("backup", progress.backup)
        .Flag("slow", progress.slow)
        .Number("primary_speed", progress.comparisonPrimarySpeed)
        .Number("backup_speed", progress.comparisonBackupSpeed)
        .End();
}

/// One download and what was heard of it. The callbacks may run on two threads at once.
std::string Run(Errand& errand, const std::shared_ptr<launcher_download::SourceSession>& session) {
    errand.request.session = session;
    const std::uint64_t startMs = GetTickCount64();
    std::vector<std::string> reports;
    std::atomic<bool> cancelSeen{false};
    std::atomic<std::uint64_t> cancelledMs{0};
    bool reconnected = false;
    launcher_download::Callbacks callbacks;
    callbacks.cancelled = [&] {
        const bool cancelled = cancelSeen || Exists(errand.cancelFile);
        std::uint64_t none = 0;
        if (cancelled) cancelledMs.compare_exchange_strong(none, GetTickCount64());
        return cancelled;
    };
    callbacks.reconnect = [&] { return !reconnected && Exists(errand.reconnectFile) && (reconnected = true); };
    callbacks.progress = [&](const Progress& progress) {
        reports.push_back(Render(progress, GetTickCount64() - startMs));
        const bool enough = progress.bytes >= errand.cancelBytes;
        if (enough || static_cast<std::uint32_t>(progress.phase) == errand.cancelPhase) cancelSeen = true;
    };
    const launcher_download::Result result = launcher_download::Download(errand.request, callbacks);
    const std::uint64_t endMs = GetTickCount64();
    return Object()
        .Flag("success", result.success)
        .Flag("canceled", result.canceled)
        .Text("path", result.path)
        .Text("reason", result.reason)
        .Number("os_error", result.osError)
        .Number("http_status", result.httpStatus)
        .Number("attempts", result.attempts)
        .Number("elapsed_ms", endMs - startMs)
        .Number("cancel_ms", cancelledMs == 0 ? -1 : static_cast<std::int64_t>(endMs - cancelledMs))
        .Raw("reports", JoinList(reports))
        .End();
}

std::string RunAll(std::vector<Errand>& errands) {
    const test_support::MutationFaults faults(test_support::FaultKindOfEnvironment(),
                                              test_support::FaultNumberOfEnvironment(), ERROR_DISK_FULL);
    const auto session = std::make_shared<launcher_download::SourceSession>();
    std::vector<std::string> results;
    for (Errand& errand : errands)
        results.push_back(Run(errand, session));
    return Object()
               .Number("preference", session->preference)
               .Flag("reached", faults.Reached())
               .Raw("calls", test_support::RenderCalls(faults))
               .Raw("results", JoinList(results))
               .End() +
           "\n";
}

}  // namespace

int wmain() {
    Arguments arguments;
    const std::wstring report = arguments.Take();
    std::vector<Errand> errands = TakeErrands(arguments);
    const std::string text = RunAll(errands);
    if (!test_support::WriteReport(report, text)) std::abort();
    return 0;
}
