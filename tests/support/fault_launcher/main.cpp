// One run of the launcher with one fault in it. The environment says which:
//   VPR_FAULT_KIND     count | fail | fail-torn | kill | kill-torn
//   VPR_FAULT_AT       number of the mutating call that meets it, from 1
//   VPR_FAULT_REPORT   file for {"calls": [...], "reached": ...}; a killed run writes none and exits with 177 instead

#include <windows.h>

#include <cstdlib>
#include <string>

#include "launcher/run.h"
#include "tests/support/import_hook.h"
#include "tests/support/report.h"

namespace {

using test_support::FaultKind;

FaultKind KindFrom(const std::wstring& word) {
    struct Row {
        const wchar_t* word;
        FaultKind kind;
    };
    for (const Row& row :
         {Row{L"count", FaultKind::none}, Row{L"fail", FaultKind::fail}, Row{L"fail-torn", FaultKind::failTorn},
          Row{L"kill", FaultKind::kill}, Row{L"kill-torn", FaultKind::killTorn}}) {
        if (word == row.word) return row.kind;
    }
    std::abort();  // a fault that nobody asked for must not pass for a run without one
}

std::string Render(const test_support::MutationFaults& faults) {
    std::string text = "{\"calls\": [";
    for (const test_support::RecordedCall& call : faults.Calls()) {
        if (text.back() != '[') text += ", ";
        text += "[" + test_support::JsonQuote(std::wstring(call.function.begin(), call.function.end())) + ", " +
                test_support::JsonQuote(call.path) + "]";
    }
    return text + "], \"reached\": " + (faults.Reached() ? "true" : "false") + "}\n";
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    const std::wstring at = test_support::EnvironmentText(L"VPR_FAULT_AT");
    std::string report;
    int exitCode = 0;
    {
        const test_support::MutationFaults faults(KindFrom(test_support::EnvironmentText(L"VPR_FAULT_KIND")),
                                                  static_cast<std::uint32_t>(std::wcstoul(at.c_str(), nullptr, 10)),
                                                  ERROR_DISK_FULL);
        exitCode = launcher_shell::RunLauncher();
        report = Render(faults);
    }
    if (!test_support::WriteReport(test_support::EnvironmentText(L"VPR_FAULT_REPORT"), report)) std::abort();
    return exitCode;
}
