// Stands in for the application that the launcher installs and starts. It tells a test how it was started.
// Environment variables steer it, since the command line belongs to the test:
//   VPR_SAMPLE_REPORT  file that receives the report
//   VPR_SAMPLE_DIALOG  text of a message box with Yes and No, shown before the report is written
//   VPR_SAMPLE_WAIT    file whose appearance ends the program; without it the program ends at once
//   VPR_SAMPLE_EXIT    exit code, 32 bits unsigned
//   VPR_SAMPLE_PRINT   text for standard output

#include <windows.h>

#include <shellapi.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/report.h"

namespace {

using test_support::EnvironmentText;
using test_support::JsonQuote;

constexpr DWORD kReportFailed = 111;
constexpr DWORD kWaitSliceMs = 10;

/// Reads the version block of the loaded image, so that a patched copy tells its own version at any path length.
std::wstring OwnFileVersion() {
    const HRSRC place = FindResourceW(nullptr, MAKEINTRESOURCEW(1), RT_VERSION);
    const HGLOBAL loaded = place != nullptr ? LoadResource(nullptr, place) : nullptr;
    const auto* bytes = loaded != nullptr ? static_cast<const unsigned char*>(LockResource(loaded)) : nullptr;
    // Three 16-bit numbers and the key "VS_VERSION_INFO" with its zero, rounded up to a multiple of four.
    constexpr DWORD kFixedOffset = 40;
    VS_FIXEDFILEINFO fixed = {};
    if (bytes == nullptr || SizeofResource(nullptr, place) < kFixedOffset + sizeof fixed) return {};
    std::memcpy(&fixed, bytes + kFixedOffset, sizeof fixed);
    std::wstring version;
    for (const int part : {HIWORD(fixed.dwFileVersionMS), LOWORD(fixed.dwFileVersionMS), HIWORD(fixed.dwFileVersionLS),
                           LOWORD(fixed.dwFileVersionLS)}) {
        if (!version.empty()) version += L'.';
        version += std::to_wstring(part);
    }
    return version;
}

std::wstring WorkingDirectory() {
    std::wstring path(32768, L'\0');
    path.resize(GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data()));
    return path;
}

std::string ArgumentsAsJson() {
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    std::string list;
    for (int index = 1; index < count; ++index) {
        if (!list.empty()) list += ", ";
        list += JsonQuote(arguments[index]);
    }
    LocalFree(arguments);
    return "[" + list + "]";
}

std::string Describe(int dialogAnswer) {
    std::string text = "{\"version\": " + JsonQuote(OwnFileVersion());
    text += ", \"path\": " + JsonQuote(test_support::ModulePath());
    text += ", \"cwd\": " + JsonQuote(WorkingDirectory());
    text += ", \"command_line\": " + JsonQuote(GetCommandLineW());
    text += ", \"args\": " + ArgumentsAsJson();
    text += ", \"dialog_answer\": " + std::to_string(dialogAnswer);
    return text + ", \"pid\": " + std::to_string(GetCurrentProcessId()) + "}\n";
}

int AskIfWanted() {
    const std::wstring text = EnvironmentText(L"VPR_SAMPLE_DIALOG");
    return text.empty() ? 0 : MessageBoxW(nullptr, text.c_str(), L"Sample application", MB_YESNO);
}

void PrintIfWanted() {
    const std::wstring text = EnvironmentText(L"VPR_SAMPLE_PRINT");
    DWORD written = 0;
    for (const wchar_t unit : text) {
        const char byte = static_cast<char>(unit);
        WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), &byte, 1, &written, nullptr);
    }
}

void WaitIfWanted() {
    const std::wstring path = EnvironmentText(L"VPR_SAMPLE_WAIT");
    while (!path.empty() && GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        Sleep(kWaitSliceMs);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    const std::wstring report = EnvironmentText(L"VPR_SAMPLE_REPORT");
    const int answer = AskIfWanted();
    PrintIfWanted();
    if (!report.empty() && !test_support::WriteReport(report, Describe(answer))) return kReportFailed;
    WaitIfWanted();
    const std::wstring exitCode = EnvironmentText(L"VPR_SAMPLE_EXIT");
    return exitCode.empty() ? 0 : static_cast<int>(std::wcstoul(exitCode.c_str(), nullptr, 0));
}
