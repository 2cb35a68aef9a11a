// Judges and installs package archives, one after the other, and tells what came of each:
//
//   package_runner REPORT JOBS
//
// JOBS is a file of UTF-8 lines whose fields are divided by tabs. The files behind a job are its inventory:
//
//   verify   ARCHIVE
//   install  ARCHIVE  RUNTIME_FOLDER  ID  VERSION
//   file     PATH  SHA256  SIZE
//
// REPORT gets one JSON object per job and line: ok, message, installed_path, and the process's peak working set in
// bytes, as it was before the job and after it. A job file with a mistake ends the program without a report.

#include <windows.h>

#include <psapi.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"
#include "tests/support/report.h"
#include "update/files/file_io.h"
#include "update/packages/archive.h"
#include "update/packages/install.h"

namespace {

struct Job {
    bool install = false;
    std::wstring archive;
    std::wstring root;
    launcher_update::PackageDescriptor package;
};

void Require(bool condition) {
    if (!condition) std::abort();
}

std::vector<std::wstring> Split(std::wstring_view text, wchar_t separator) {
    std::vector<std::wstring> pieces(1);
    for (const wchar_t unit : text) {
        if (unit == separator) {
            pieces.emplace_back();
        } else {
            pieces.back().push_back(unit);
        }
    }
    return pieces;
}

std::uint64_t Number(const std::wstring& text) {
    wchar_t* end = nullptr;
    const std::uint64_t value = std::wcstoull(text.c_str(), &end, 10);
    Require(!text.empty() && *end == L'\0');
    return value;
}

void TakeLine(const std::vector<std::wstring>& fields, std::vector<Job>& jobs) {
    if (fields[0] == L"verify" && fields.size() == 2) {
        jobs.push_back({false, fields[1], {}, {}});
    } else if (fields[0] == L"install" && fields.size() == 5) {
        jobs.push_back({true, fields[1], fields[2], {}});
        jobs.back().package.id = fields[3];
        jobs.back().package.version = fields[4];
    } else {
        Require(fields[0] == L"file" && fields.size() == 4 && !jobs.empty());
        jobs.back().package.inventory.push_back({fields[1], fields[2], Number(fields[3])});
    }
}

std::vector<Job> ReadJobs(const wchar_t* path) {
    std::string bytes;
    Require(launcher_update::ReadFileLimited(path, 4u << 20, bytes));
    const auto text = platform::DecodeUtf8(bytes);
    Require(text && text->ends_with(L'\n'));
    std::vector<Job> jobs;
    for (const std::wstring& line : Split(std::wstring_view(*text).substr(0, text->size() - 1), L'\n'))
        TakeLine(Split(line, L'\t'), jobs);
    return jobs;
}

std::string PeakBytes() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof(counters);
    Require(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)));
    return std::to_string(counters.PeakWorkingSetSize);
}

std::string Run(const Job& job) {
    const std::string before = PeakBytes();
    std::wstring installed;
    std::wstring message;
    const bool good =
        job.install ? launcher_update::InstallPackageInactive(job.archive, job.package, job.root, installed, message)
                    : launcher_update::VerifyPackageArchive(job.archive, job.package, message);
    return std::string("{\"ok\": ") + (good ? "true" : "false") + ", \"message\": " + test_support::JsonQuote(message) +
           ", \"installed_path\": " + test_support::JsonQuote(installed) + ", \"peak_before\": " + before +
           ", \"peak_after\": " + PeakBytes() + "}\n";
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
    Require(count == 3);
    std::string report;
    for (const Job& job : ReadJobs(arguments[2]))
        report += Run(job);
    Require(test_support::WriteReport(arguments[1], report));
    return 0;
}
