// One run of the launcher with one fault in it, asked for as `fault_kind.h` tells. VPR_FAULT_REPORT names a file for
// {"calls": [...], "reached": ...}; a killed run writes none and exits with 177 instead.

#include <windows.h>

#include <cstdlib>
#include <string>

#include "launcher/run.h"
#include "tests/support/fault_kind.h"
#include "tests/support/import_hook.h"
#include "tests/support/report.h"

namespace {

std::string Render(const test_support::MutationFaults& faults) {
    return "{\"calls\": " + test_support::RenderCalls(faults) +
           ", \"reached\": " + (faults.Reached() ? "true" : "false") + "}\n";
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    std::string report;
    int exitCode = 0;
    {
        const test_support::MutationFaults faults(test_support::FaultKindOfEnvironment(),
                                                  test_support::FaultNumberOfEnvironment(), ERROR_DISK_FULL);
        exitCode = launcher_shell::RunLauncher();
        report = Render(faults);
    }
    if (!test_support::WriteReport(test_support::EnvironmentText(L"VPR_FAULT_REPORT"), report)) std::abort();
    return exitCode;
}
