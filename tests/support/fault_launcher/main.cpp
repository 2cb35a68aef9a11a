// One run of the launcher with one fault in it, asked for as `fault_kind.h` tells. VPR_FAULT_REPORT names a file for
// {"calls": [...], "reached": ...}; a killed run writes none and exits with 177 instead. With VPR_FAULT_UNSEEN the
// status window cannot be made, so that thousands of runs need not let it stand to be read.

#include <windows.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "launcher/run.h"
#include "tests/support/fault_kind.h"
#include "tests/support/import_hook.h"
#include "tests/support/report.h"
#include "tests/support/stand_in.h"

namespace {

using OnCreateWindow = test_support::StandIn<"CreateWindowExW", decltype(CreateWindowExW)>;

HWND CreateAllButTheStatusWindow(DWORD extended, LPCWSTR name, LPCWSTR title, DWORD style, int x, int y, int width,
                                 int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter) {
    if (!IS_INTRESOURCE(name) && std::wstring_view(name) == L"VPRLauncherStatusWindow") return nullptr;
    return OnCreateWindow::Original(extended, name, title, style, x, y, width, height, parent, menu, instance,
                                    parameter);
}

std::string Render(const test_support::MutationFaults& faults) {
    return "{\"calls\": " + test_support::RenderCalls(faults) +
           ", \"reached\": " + (faults.Reached() ? "true" : "false") + "}\n";
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    std::string report;
    int exitCode = 0;
    std::optional<OnCreateWindow> unseen;
    if (!test_support::EnvironmentText(L"VPR_FAULT_UNSEEN").empty()) unseen.emplace(CreateAllButTheStatusWindow);
    {
        const test_support::MutationFaults faults(test_support::FaultKindOfEnvironment(),
                                                  test_support::FaultNumberOfEnvironment(), ERROR_DISK_FULL);
        exitCode = launcher_shell::RunLauncher();
        report = Render(faults);
    }
    if (!test_support::WriteReport(test_support::EnvironmentText(L"VPR_FAULT_REPORT"), report)) std::abort();
    return exitCode;
}
