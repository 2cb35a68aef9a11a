// launcher_driver REQUEST: runs one program in a job, watches and answers its windows, and writes what happened.
//
// It exists because a shell of another system sees only the low eight bits of an exit code, cannot hand over an exact
// command line, and cannot press a button. Exit codes: 0 the result file tells the run, 2 bad request, 3 the driver
// itself failed. The result file:
//   {"started", "start_error", "launcher_exited", "exit_code", "launcher_ms", "job_ms", "timed_out", "stopped",
//    "job_empty", "answers_left", "events": [...]}
// Times are milliseconds since the program was let go. `job_ms` is when its last process ended, whichever that was. A
// look at the windows comes some time after what it finds: `look_before_ms` is when it was not there yet.

#include <windows.h>

#include <set>
#include <string>
#include <vector>

#include "platform/unique_handle.h"
#include "tests/support/driver/deep_start.h"
#include "tests/support/driver/request.h"
#include "tests/support/driver/watch.h"
#include "tests/support/report.h"

namespace driver {
namespace {

using platform::FileHandle;
using platform::KernelHandle;
using test_support::JsonQuote;

constexpr int kBadRequest = 2;
constexpr int kDriverFailed = 3;
constexpr UINT kStoppedExitCode = 77;
constexpr UINT kTimedOutExitCode = 124;
constexpr double kEndingMs = 10000;  // what a terminated job may take to be gone

class Stopwatch {
  public:
    Stopwatch() {
        QueryPerformanceFrequency(&frequency_);
        QueryPerformanceCounter(&start_);
    }
    [[nodiscard]] double Ms() const {
        LARGE_INTEGER now;
        QueryPerformanceCounter(&now);
        return 1000.0 * static_cast<double>(now.QuadPart - start_.QuadPart) / static_cast<double>(frequency_.QuadPart);
    }

  private:
    LARGE_INTEGER frequency_{};
    LARGE_INTEGER start_{};
};

/// What is told, in the order in which it was seen; each line also goes to the events file at once.
class Journal {
  public:
    explicit Journal(const std::wstring& path) {
        if (path.empty()) return;
        live_.Reset(CreateFileW(test_support::LongPath(path).c_str(), FILE_APPEND_DATA,
                                FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                nullptr));
    }
    void Tell(std::string openObject, double ms) {
        lines_.push_back(std::move(openObject) + ", \"ms\": " + std::to_string(ms) + "}");
        const std::string line = lines_.back() + "\n";
        DWORD written = 0;
        if (live_) WriteFile(live_.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    }
    [[nodiscard]] std::string AsJson() const {
        std::string list;
        for (const std::string& line : lines_)
            list += (list.empty() ? "\n" : ",\n") + line;
        return "[" + list + "]";
    }

  private:
    FileHandle live_;
    std::vector<std::string> lines_;
};

struct Outcome {
    bool started = false;
    DWORD startError = 0;
    bool launcherExited = false;
    DWORD exitCode = 0;
    double launcherMs = 0;
    bool jobEmpty = false;
    double jobMs = 0;
    bool timedOut = false;
    bool stopped = false;
};

/// The job, its completion port and the one process started in it.
struct Job {
    KernelHandle job;
    KernelHandle port;
    KernelHandle launcher;
    DWORD launcherId = 0;
    std::set<DWORD> processes;
};

bool MakeJob(Job& job) {
    job.job.Reset(CreateJobObjectW(nullptr, nullptr));
    job.port.Reset(CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1));
    if (!job.job || !job.port) return false;
    JOBOBJECT_ASSOCIATE_COMPLETION_PORT association = {job.job.Get(), job.port.Get()};
    return SetInformationJobObject(job.job.Get(), JobObjectAssociateCompletionPortInformation, &association,
                                   sizeof association) != FALSE;
}

HANDLE OpenForChild(const wchar_t* path, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherited, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

void ApplyEnvironment(const Request& request) {
    for (const auto& [name, value] : request.environment)
        SetEnvironmentVariableW(name.c_str(), value.c_str());
}

bool CreateSuspended(const Request& request, STARTUPINFOW& startup, PROCESS_INFORMATION& process) {
    if (request.exe.size() >= MAX_PATH) {
        return StartDeepProgram(request.exe, request.commandLine, request.cwd, startup, process);
    }
    std::wstring commandLine = request.commandLine;
    commandLine.push_back(L'\0');
    return CreateProcessW(request.exe.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                          request.cwd.empty() ? nullptr : request.cwd.c_str(), &startup, &process) != FALSE;
}

/// Starts suspended and lets go only inside the job, so that nothing the program starts can be missed.
bool StartLauncher(const Request& request, Job& job) {
    const std::wstring outputPath = request.output.empty() ? L"NUL" : test_support::LongPath(request.output);
    const FileHandle input(OpenForChild(L"NUL", GENERIC_READ, OPEN_EXISTING));
    const FileHandle output(
        OpenForChild(outputPath.c_str(), FILE_APPEND_DATA, request.output.empty() ? OPEN_EXISTING : CREATE_ALWAYS));
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.Get();
    startup.hStdOutput = output.Get();
    startup.hStdError = output.Get();
    PROCESS_INFORMATION process = {};
    if (!CreateSuspended(request, startup, process)) return false;
    const KernelHandle thread(process.hThread);
    job.launcher.Reset(process.hProcess);
    job.launcherId = process.dwProcessId;
    job.processes.insert(process.dwProcessId);
    if (!AssignProcessToJobObject(job.job.Get(), process.hProcess)) {
        const DWORD error = GetLastError();
        TerminateProcess(process.hProcess, kDriverFailed);
        SetLastError(error);
        return false;
    }
    ResumeThread(thread.Get());
    return true;
}

/// Lines that others append to the control file, each given out once.
class ControlFile {
  public:
    explicit ControlFile(std::wstring path) : path_(std::move(path)) {}
    bool NextLine(std::wstring& line) {
        std::string bytes;
        if (path_.empty() || !ReadSmallFile(path_, bytes)) return false;
        const size_t end = bytes.find('\n', done_);
        if (end == std::string::npos) return false;
        line = test_support::WideFromUtf8(std::string_view(bytes).substr(done_, end - done_));
        done_ = end + 1;
        return true;
    }

  private:
    std::wstring path_;
    size_t done_ = 0;
};

class Run {
  public:
    explicit Run(Request request)
        : request_(std::move(request)),
          journal_(request_.events),
          control_(request_.control),
          watch_(request_.answers, [this](const std::string& line) { TellLook(line); }) {}

    bool Perform() {
        if (!MakeJob(job_)) return false;
        // Wine starts the process behind the desktop for whoever asks first, as its child: were that the program, the
        // desktop would belong to the job, which then never becomes empty.
        GetDesktopWindow();
        ApplyEnvironment(request_);
        clock_ = Stopwatch();
        outcome_.started = StartLauncher(request_, job_);
        if (!outcome_.started) outcome_.startError = GetLastError();
        if (outcome_.started) Follow();
        return WriteResult();
    }

  private:
    void Follow() {
        while (!outcome_.jobEmpty && clock_.Ms() < request_.timeoutMs) {
            TakeJobMessages(request_.pollMs);
            if (outcome_.jobEmpty) break;
            Look();
            ObeyControl();
            StopIfAsked();
        }
        if (!outcome_.jobEmpty) EndOverdueJob();
    }

    void Look() {
        const double begun = clock_.Ms();
        watch_.Look(job_.processes);
        lookBeforeMs_ = begun;
    }

    void TellLook(const std::string& line) {
        journal_.Tell(line + ", \"look_before_ms\": " + std::to_string(lookBeforeMs_), clock_.Ms());
    }

    /// Waits for one message of the job, then takes all that are there.
    void TakeJobMessages(DWORD waitMs) {
        DWORD message = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* detail = nullptr;
        while (GetQueuedCompletionStatus(job_.port.Get(), &message, &key, &detail, waitMs)) {
            waitMs = 0;
            const auto process = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(detail));
            if (message == JOB_OBJECT_MSG_NEW_PROCESS) job_.processes.insert(process);
            if (message == JOB_OBJECT_MSG_EXIT_PROCESS || message == JOB_OBJECT_MSG_ABNORMAL_EXIT_PROCESS) {
                job_.processes.erase(process);
                if (process == job_.launcherId) NoteLauncherExit();
            }
            if (message == JOB_OBJECT_MSG_ACTIVE_PROCESS_ZERO) {
                NoteLauncherExit();
                outcome_.jobEmpty = true;
                outcome_.jobMs = clock_.Ms();
            }
        }
    }

    void NoteLauncherExit() {
        if (outcome_.launcherExited || WaitForSingleObject(job_.launcher.Get(), 1000) != WAIT_OBJECT_0) return;
        outcome_.launcherExited = GetExitCodeProcess(job_.launcher.Get(), &outcome_.exitCode) != FALSE;
        outcome_.launcherMs = clock_.Ms();
        journal_.Tell("{\"event\": \"exit\", \"exit_code\": " + std::to_string(outcome_.exitCode), clock_.Ms());
    }

    void ObeyControl() {
        std::wstring line;
        while (control_.NextLine(line)) {
            const bool done = ObeyLine(line);
            journal_.Tell(
                "{\"event\": \"control\", \"line\": " + JsonQuote(line) + ", \"done\": " + (done ? "true" : "false"),
                clock_.Ms());
        }
    }

    bool ObeyLine(const std::wstring& line) {
        if (line == L"stop") return Stop();
        if (line == L"end") return TerminateJobObject(job_.job.Get(), kStoppedExitCode) != FALSE;
        return watch_.Obey(line);
    }

    void StopIfAsked() {
        if (request_.stopFile.empty() || outcome_.stopped) return;
        if (GetFileAttributesW(test_support::LongPath(request_.stopFile).c_str()) != INVALID_FILE_ATTRIBUTES) Stop();
    }

    /// Ends the launcher alone, as a crash or a user's task manager would.
    bool Stop() {
        if (!outcome_.launcherExited) {
            outcome_.stopped = TerminateProcess(job_.launcher.Get(), kStoppedExitCode) != FALSE;
        }
        return outcome_.stopped;
    }

    void EndOverdueJob() {
        outcome_.timedOut = true;
        TerminateJobObject(job_.job.Get(), kTimedOutExitCode);
        const double deadline = clock_.Ms() + kEndingMs;
        while (!outcome_.jobEmpty && clock_.Ms() < deadline)
            TakeJobMessages(request_.pollMs);
    }

    bool WriteResult() {
        const auto flag = [](bool value) { return value ? "true" : "false"; };
        std::string text = std::string("{\"started\": ") + flag(outcome_.started);
        text += ", \"start_error\": " + std::to_string(outcome_.startError);
        text += std::string(", \"launcher_exited\": ") + flag(outcome_.launcherExited);
        text += ", \"exit_code\": " + std::to_string(outcome_.exitCode);
        text += ", \"launcher_ms\": " + std::to_string(outcome_.launcherMs);
        text += std::string(", \"job_empty\": ") + flag(outcome_.jobEmpty);
        text += ", \"job_ms\": " + std::to_string(outcome_.jobMs);
        text += std::string(", \"timed_out\": ") + flag(outcome_.timedOut);
        text += std::string(", \"stopped\": ") + flag(outcome_.stopped);
        text += ", \"answers_left\": " + std::to_string(watch_.AnswersLeft());
        text += ", \"events\": " + journal_.AsJson() + "}\n";
        return test_support::WriteReport(request_.result, text);
    }

    Request request_;
    Stopwatch clock_;
    Journal journal_;
    ControlFile control_;
    Watch watch_;
    double lookBeforeMs_ = 0;
    Job job_;
    Outcome outcome_;
};

void Complain(const std::wstring& message) {
    const std::string line = "launcher_driver: " + JsonQuote(message) + "\n";
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

}  // namespace
}  // namespace driver

int wmain(int count, wchar_t** arguments) {
    driver::Request request;
    std::wstring error = L"usage: launcher_driver REQUEST";
    if (count != 2 || !driver::ReadRequest(arguments[1], request, error)) {
        driver::Complain(error);
        return driver::kBadRequest;
    }
    driver::Run run(std::move(request));
    if (run.Perform()) return 0;
    driver::Complain(L"no job or no result, error " + std::to_wstring(GetLastError()));
    return driver::kDriverFailed;
}
