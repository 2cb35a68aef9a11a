#include "tests/support/driver/deep_start.h"

#include <winternl.h>

namespace driver {

namespace {

struct ProcessInformation {  // RTL_USER_PROCESS_INFORMATION
    ULONG length;
    HANDLE process;
    HANDLE thread;
    CLIENT_ID client;
    unsigned char image[64];  // SECTION_IMAGE_INFORMATION
};

using CreateParameters = NTSTATUS(NTAPI*)(RTL_USER_PROCESS_PARAMETERS**, const UNICODE_STRING*, const UNICODE_STRING*,
                                          const UNICODE_STRING*, const UNICODE_STRING*, void*, const UNICODE_STRING*,
                                          const UNICODE_STRING*, const UNICODE_STRING*, const UNICODE_STRING*, ULONG);
using DestroyParameters = void(NTAPI*)(RTL_USER_PROCESS_PARAMETERS*);
using CreateUserProcess = NTSTATUS(NTAPI*)(UNICODE_STRING*, ULONG, RTL_USER_PROCESS_PARAMETERS*, void*, void*, HANDLE,
                                           BOOLEAN, HANDLE, HANDLE, ProcessInformation*);

constexpr ULONG kNormalized = 1;

// Places of the standard handles in RTL_USER_PROCESS_PARAMETERS, counted in pointers behind its first 16 bytes.
constexpr size_t kInput = 2;
constexpr size_t kOutput = 3;
constexpr size_t kError = 4;

template <typename Function>
Function Native(const char* name) {
    // Through void*, the compiler rightly doubts a direct cast between function types.
    void* address = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name));
    return reinterpret_cast<Function>(address);
}

UNICODE_STRING Borrow(const std::wstring& text) {
    UNICODE_STRING borrowed = {};
    borrowed.Buffer = const_cast<wchar_t*>(text.c_str());
    borrowed.Length = static_cast<USHORT>(text.size() * sizeof(wchar_t));
    borrowed.MaximumLength = static_cast<USHORT>(borrowed.Length + sizeof(wchar_t));
    return borrowed;
}

}  // namespace

bool StartDeepProgram(const std::wstring& exe, const std::wstring& commandLine, const std::wstring& cwd,
                      const STARTUPINFOW& startup, PROCESS_INFORMATION& process) {
    const auto createParameters = Native<CreateParameters>("RtlCreateProcessParametersEx");
    const auto destroyParameters = Native<DestroyParameters>("RtlDestroyProcessParameters");
    const auto createProcess = Native<CreateUserProcess>("RtlCreateUserProcess");
    SetLastError(ERROR_PROC_NOT_FOUND);
    if (createParameters == nullptr || destroyParameters == nullptr || createProcess == nullptr) return false;

    const std::wstring nativePath = L"\\??\\" + exe;
    const UNICODE_STRING image = Borrow(exe);
    const UNICODE_STRING line = Borrow(commandLine);
    const UNICODE_STRING directory = Borrow(cwd);
    UNICODE_STRING native = Borrow(nativePath);
    RTL_USER_PROCESS_PARAMETERS* parameters = nullptr;
    SetLastError(ERROR_INVALID_PARAMETER);
    if (createParameters(&parameters, &image, nullptr, cwd.empty() ? nullptr : &directory, &line, nullptr, nullptr,
                         nullptr, nullptr, nullptr, kNormalized) < 0) {
        return false;
    }
    parameters->Reserved2[kInput] = startup.hStdInput;
    parameters->Reserved2[kOutput] = startup.hStdOutput;
    parameters->Reserved2[kError] = startup.hStdError;
    ProcessInformation made = {};
    made.length = sizeof made;
    const NTSTATUS status = createProcess(&native, OBJ_CASE_INSENSITIVE, parameters, nullptr, nullptr, nullptr, TRUE,
                                          nullptr, nullptr, &made);
    destroyParameters(parameters);
    SetLastError(RtlNtStatusToDosError(status));
    if (status < 0) return false;
    process.hProcess = made.process;
    process.hThread = made.thread;
    process.dwProcessId = HandleToULong(made.client.UniqueProcess);
    process.dwThreadId = HandleToULong(made.client.UniqueThread);
    return true;
}

}  // namespace driver
