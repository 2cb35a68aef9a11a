#include "tests/support/import_hook.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace test_support {
namespace {

/// Finds the slot in the import table of this program ("PE Format", .idata section).
void** FindSlot(const char* function) {
    auto* base = reinterpret_cast<unsigned char*>(GetModuleHandleW(nullptr));
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* descriptor = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
    for (; descriptor->Name != 0; ++descriptor) {
        const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + descriptor->OriginalFirstThunk);
        auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++slot) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
            const auto* import = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(import->Name), function) == 0) {
                return reinterpret_cast<void**>(&slot->u1.Function);
            }
        }
    }
    return nullptr;
}

void* SwapSlot(void** slot, void* value) {
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    void* old = InterlockedExchangePointer(slot, value);
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
    return old;
}

template <typename Function>
void* AsPointer(Function* function) {
    return reinterpret_cast<void*>(function);
}

/// What the hooks of `MutationFaults` share.
struct FaultState {
    FaultKind kind = FaultKind::none;
    std::uint32_t at = 0;
    DWORD error = ERROR_ACCESS_DENIED;
    bool fromThenOn = false;
    std::string onlyFunction;
    std::wstring onlyPathPart;
    std::atomic<std::uint32_t> count{0};
    std::atomic<bool> reached{false};
    std::mutex callsMutex;
    std::vector<RecordedCall> calls;
    std::map<HANDLE, std::wstring> opened;  // a handle's number is given again after its close
};
FaultState* g_faults = nullptr;

void RememberOpened(HANDLE file, const wchar_t* path) {
    if (file == INVALID_HANDLE_VALUE) return;
    const std::lock_guard guard(g_faults->callsMutex);
    g_faults->opened[file] = path;
}

std::wstring PathOf(HANDLE file) {
    const std::lock_guard guard(g_faults->callsMutex);
    const auto found = g_faults->opened.find(file);
    return found == g_faults->opened.end() ? std::wstring() : found->second;
}

enum class Verdict { pass, fail, tearThenFail, tearThenKill };

[[noreturn]] void EndProcess() {
    TerminateProcess(GetCurrentProcess(), MutationFaults::kKilledExitCode);
    for (;;)
        Sleep(INFINITE);  // termination of the own process is not immediate by contract
}

/// Counts one call and says what is to become of it.
Verdict Judge(const char* function, const wchar_t* path, const wchar_t* second = nullptr) {
    FaultState& state = *g_faults;
    RecordedCall call{function, path ? path : L"", second ? second : L""};
    if (!state.onlyFunction.empty() &&
        (state.onlyFunction != call.function || call.path.find(state.onlyPathPart) == std::wstring::npos)) {
        return Verdict::pass;
    }
    {
        const std::lock_guard guard(state.callsMutex);
        state.calls.push_back(std::move(call));
    }
    const std::uint32_t number = ++state.count;
    const bool hit = state.fromThenOn ? number >= state.at && state.at != 0 : number == state.at;
    if (!hit || state.kind == FaultKind::none) return Verdict::pass;
    state.reached = true;
    if (state.kind == FaultKind::kill) EndProcess();
    if (state.kind == FaultKind::killTorn) return Verdict::tearThenKill;
    return state.kind == FaultKind::failTorn ? Verdict::tearThenFail : Verdict::fail;
}

/// For calls that have no half: torn means not done.
bool Refused(const char* function, const wchar_t* path, const wchar_t* second = nullptr) {
    const Verdict verdict = Judge(function, path, second);
    if (verdict == Verdict::pass) return false;
    if (verdict == Verdict::tearThenKill) EndProcess();
    SetLastError(g_faults->error);
    return true;
}

ImportHook* g_createFile;
ImportHook* g_writeFile;
ImportHook* g_flushFileBuffers;
ImportHook* g_moveFileEx;
ImportHook* g_copyFile;
ImportHook* g_deleteFile;
ImportHook* g_createDirectory;
ImportHook* g_removeDirectory;
ImportHook* g_setFileAttributes;
ImportHook* g_setEndOfFile;
ImportHook* g_setFileInformation;
ImportHook* g_wfopen;
ImportHook* g_fwrite;
ImportHook* g_fflush;
ImportHook* g_fclose;

/// A program that does not import the function has no hook on it, and may still call it from here.
template <typename Function>
Function* OriginalOf(const ImportHook* hook, Function* function) {
    return hook != nullptr ? reinterpret_cast<Function*>(hook->Original()) : function;
}

HANDLE WINAPI HookCreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                              DWORD disposition, DWORD flags, HANDLE other) {
    constexpr DWORD kWriting =
        GENERIC_WRITE | GENERIC_ALL | DELETE | FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES;
    const bool mutating = (access & kWriting) != 0 || disposition != OPEN_EXISTING;
    if (mutating && Refused("CreateFileW", path)) return INVALID_HANDLE_VALUE;
    const HANDLE file =
        OriginalOf(g_createFile, &CreateFileW)(path, access, share, security, disposition, flags, other);
    RememberOpened(file, path);
    return file;
}

BOOL WINAPI HookWriteFile(HANDLE file, LPCVOID data, DWORD length, LPDWORD written, LPOVERLAPPED overlapped) {
    const auto original = OriginalOf(g_writeFile, &WriteFile);
    if (GetFileType(file) != FILE_TYPE_DISK) return original(file, data, length, written, overlapped);
    const Verdict verdict = Judge("WriteFile", PathOf(file).c_str());
    if (verdict == Verdict::pass) return original(file, data, length, written, overlapped);
    if (verdict != Verdict::fail) original(file, data, length / 2, written, overlapped);
    if (verdict == Verdict::tearThenKill) EndProcess();
    SetLastError(g_faults->error);
    return FALSE;
}

BOOL WINAPI HookFlushFileBuffers(HANDLE file) {
    return Refused("FlushFileBuffers", PathOf(file).c_str()) ? FALSE
                                                             : OriginalOf(g_flushFileBuffers, &FlushFileBuffers)(file);
}

BOOL WINAPI HookMoveFileExW(LPCWSTR from, LPCWSTR to, DWORD flags) {
    return Refused("MoveFileExW", from, to) ? FALSE : OriginalOf(g_moveFileEx, &MoveFileExW)(from, to, flags);
}

/// Leaves the first half of a copy behind, as a full disk or a dying process does.
void TearFile(const wchar_t* path) {
    const HANDLE file =
        OriginalOf(g_createFile, &CreateFileW)(path, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    LARGE_INTEGER size{};
    if (file == INVALID_HANDLE_VALUE || !GetFileSizeEx(file, &size)) return;
    size.QuadPart /= 2;
    SetFilePointerEx(file, size, nullptr, FILE_BEGIN);
    OriginalOf(g_setEndOfFile, &SetEndOfFile)(file);
    CloseHandle(file);
}

BOOL WINAPI HookCopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
    const auto original = OriginalOf(g_copyFile, &CopyFileW);
    const Verdict verdict = Judge("CopyFileW", from, to);
    if (verdict == Verdict::pass) return original(from, to, failIfExists);
    if (verdict != Verdict::fail && original(from, to, failIfExists)) TearFile(to);
    if (verdict == Verdict::tearThenKill) EndProcess();
    SetLastError(g_faults->error);
    return FALSE;
}

BOOL WINAPI HookDeleteFileW(LPCWSTR path) {
    return Refused("DeleteFileW", path) ? FALSE : OriginalOf(g_deleteFile, &DeleteFileW)(path);
}

BOOL WINAPI HookCreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
    return Refused("CreateDirectoryW", path) ? FALSE : OriginalOf(g_createDirectory, &CreateDirectoryW)(path, security);
}

BOOL WINAPI HookRemoveDirectoryW(LPCWSTR path) {
    return Refused("RemoveDirectoryW", path) ? FALSE : OriginalOf(g_removeDirectory, &RemoveDirectoryW)(path);
}

BOOL WINAPI HookSetFileAttributesW(LPCWSTR path, DWORD attributes) {
    return Refused("SetFileAttributesW", path) ? FALSE
                                               : OriginalOf(g_setFileAttributes, &SetFileAttributesW)(path, attributes);
}

BOOL WINAPI HookSetEndOfFile(HANDLE file) {
    return Refused("SetEndOfFile", PathOf(file).c_str()) ? FALSE : OriginalOf(g_setEndOfFile, &SetEndOfFile)(file);
}

BOOL WINAPI HookSetFileInformationByHandle(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD length) {
    if (Refused("SetFileInformationByHandle", PathOf(file).c_str())) return FALSE;
    return OriginalOf(g_setFileInformation, &SetFileInformationByHandle)(file, kind, data, length);
}

bool IsStandardStream(std::FILE* stream) {
    return stream == stdout || stream == stderr || stream == nullptr;
}

std::FILE* __cdecl HookWfopen(const wchar_t* path, const wchar_t* mode) {
    if (mode[0] != L'r' && Refused("_wfopen", path)) return nullptr;
    return OriginalOf(g_wfopen, &_wfopen)(path, mode);
}

std::size_t __cdecl HookFwrite(const void* data, std::size_t size, std::size_t count, std::FILE* stream) {
    const auto original = OriginalOf(g_fwrite, &std::fwrite);
    if (IsStandardStream(stream)) return original(data, size, count, stream);
    const Verdict verdict = Judge("fwrite", nullptr);
    if (verdict == Verdict::pass) return original(data, size, count, stream);
    if (verdict != Verdict::fail) {
        original(data, size, count / 2, stream);
        OriginalOf(g_fflush, &std::fflush)(stream);
    }
    if (verdict == Verdict::tearThenKill) EndProcess();
    return 0;
}

int __cdecl HookFflush(std::FILE* stream) {
    if (!IsStandardStream(stream) && Refused("fflush", nullptr)) return EOF;
    return OriginalOf(g_fflush, &std::fflush)(stream);
}

/// A close that fails has still closed.
int __cdecl HookFclose(std::FILE* stream) {
    const auto original = OriginalOf(g_fclose, &std::fclose);
    if (IsStandardStream(stream) || !Refused("fclose", nullptr)) return original(stream);
    original(stream);
    return EOF;
}

// The hooks of the attribute helpers; each helper may exist once at a time.
std::wstring g_forcedSuffix;
DWORD g_forcedBits = 0;
std::wstring g_unreadableSuffix;
DWORD g_unreadableError = 0;
ImportHook* g_forcedGetAttributes;
ImportHook* g_forcedFindFirst;
ImportHook* g_forcedFindNext;
ImportHook* g_unreadableGetAttributes;
std::vector<std::wstring> g_debuggerTexts;

DWORD WINAPI HookForcedGetFileAttributesW(LPCWSTR path) {
    const DWORD attributes = OriginalOf(g_forcedGetAttributes, &GetFileAttributesW)(path);
    const bool forced = attributes != INVALID_FILE_ATTRIBUTES && std::wstring_view(path).ends_with(g_forcedSuffix);
    return forced ? attributes | g_forcedBits : attributes;
}

void ForceEntry(WIN32_FIND_DATAW& found) {
    if (std::wstring_view(found.cFileName).ends_with(g_forcedSuffix)) found.dwFileAttributes |= g_forcedBits;
}

HANDLE WINAPI HookForcedFindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
    const HANDLE find = OriginalOf(g_forcedFindFirst, &FindFirstFileW)(pattern, found);
    if (find != INVALID_HANDLE_VALUE) ForceEntry(*found);
    return find;
}

BOOL WINAPI HookForcedFindNextFileW(HANDLE find, LPWIN32_FIND_DATAW found) {
    const BOOL more = OriginalOf(g_forcedFindNext, &FindNextFileW)(find, found);
    if (more) ForceEntry(*found);
    return more;
}

DWORD WINAPI HookUnreadableGetFileAttributesW(LPCWSTR path) {
    if (!std::wstring_view(path).ends_with(g_unreadableSuffix)) {
        return OriginalOf(g_unreadableGetAttributes, &GetFileAttributesW)(path);
    }
    SetLastError(g_unreadableError);
    return INVALID_FILE_ATTRIBUTES;
}

void WINAPI HookOutputDebugStringW(LPCWSTR text) {
    g_debuggerTexts.emplace_back(text);
}

void DeleteAll(std::vector<ImportHook*>& hooks) {
    for (ImportHook* hook : hooks)
        delete hook;
    hooks.clear();
}

}  // namespace

ImportHook::ImportHook(const char* function, void* replacement) : slot_(FindSlot(function)) {
    if (slot_ == nullptr) {
        std::fprintf(stderr, "import hook: this program does not import %s\n", function);
        std::abort();
    }
    original_ = SwapSlot(slot_, replacement);
}

ImportHook::~ImportHook() {
    SwapSlot(slot_, original_);
}

MutationFaults::MutationFaults(FaultKind kind, std::uint32_t at, DWORD error, bool fromThenOn) {
    if (g_faults != nullptr) std::abort();
    g_faults = new FaultState;
    g_faults->kind = kind;
    g_faults->at = at;
    g_faults->error = error;
    g_faults->fromThenOn = fromThenOn;
    struct Row {
        const char* function;
        void* replacement;
        ImportHook*& hook;
    };
    const Row rows[] = {
        {"CreateFileW", AsPointer(HookCreateFileW), g_createFile},
        {"WriteFile", AsPointer(HookWriteFile), g_writeFile},
        {"FlushFileBuffers", AsPointer(HookFlushFileBuffers), g_flushFileBuffers},
        {"MoveFileExW", AsPointer(HookMoveFileExW), g_moveFileEx},
        {"CopyFileW", AsPointer(HookCopyFileW), g_copyFile},
        {"DeleteFileW", AsPointer(HookDeleteFileW), g_deleteFile},
        {"CreateDirectoryW", AsPointer(HookCreateDirectoryW), g_createDirectory},
        {"RemoveDirectoryW", AsPointer(HookRemoveDirectoryW), g_removeDirectory},
        {"SetFileAttributesW", AsPointer(HookSetFileAttributesW), g_setFileAttributes},
        {"SetEndOfFile", AsPointer(HookSetEndOfFile), g_setEndOfFile},
        {"SetFileInformationByHandle", AsPointer(HookSetFileInformationByHandle), g_setFileInformation},
        {"_wfopen", AsPointer(HookWfopen), g_wfopen},
        {"fwrite", AsPointer(HookFwrite), g_fwrite},
        {"fflush", AsPointer(HookFflush), g_fflush},
        {"fclose", AsPointer(HookFclose), g_fclose},
    };
    for (const Row& row : rows) {
        if (FindSlot(row.function) == nullptr) continue;  // a program that cannot call it cannot be faulted there
        row.hook = new ImportHook(row.function, row.replacement);
        hooks_.push_back(row.hook);
    }
}

MutationFaults::~MutationFaults() {
    DeleteAll(hooks_);
    delete g_faults;
    g_faults = nullptr;
}

void MutationFaults::CountOnly(std::string function, std::wstring pathPart) {
    g_faults->onlyFunction = std::move(function);
    g_faults->onlyPathPart = std::move(pathPart);
}

std::uint32_t MutationFaults::Count() const {
    return g_faults->count;
}

bool MutationFaults::Reached() const {
    return g_faults->reached;
}

std::vector<RecordedCall> MutationFaults::Calls() const {
    const std::lock_guard guard(g_faults->callsMutex);
    return g_faults->calls;
}

ForcedAttributes::ForcedAttributes(std::wstring suffix, DWORD bits) {
    g_forcedSuffix = std::move(suffix);
    g_forcedBits = bits;
    g_forcedGetAttributes = new ImportHook("GetFileAttributesW", AsPointer(HookForcedGetFileAttributesW));
    g_forcedFindFirst = new ImportHook("FindFirstFileW", AsPointer(HookForcedFindFirstFileW));
    g_forcedFindNext = new ImportHook("FindNextFileW", AsPointer(HookForcedFindNextFileW));
    hooks_ = {g_forcedGetAttributes, g_forcedFindFirst, g_forcedFindNext};
}

ForcedAttributes::~ForcedAttributes() {
    DeleteAll(hooks_);
}

UnreadableAttributes::UnreadableAttributes(std::wstring suffix, DWORD error) {
    g_unreadableSuffix = std::move(suffix);
    g_unreadableError = error;
    g_unreadableGetAttributes = new ImportHook("GetFileAttributesW", AsPointer(HookUnreadableGetFileAttributesW));
    hook_ = g_unreadableGetAttributes;
}

UnreadableAttributes::~UnreadableAttributes() {
    delete hook_;
}

DebuggerTexts::DebuggerTexts() : hook_(new ImportHook("OutputDebugStringW", AsPointer(HookOutputDebugStringW))) {
    g_debuggerTexts.clear();
}

DebuggerTexts::~DebuggerTexts() {
    delete hook_;
}

const std::vector<std::wstring>& DebuggerTexts::Texts() const {
    return g_debuggerTexts;
}

}  // namespace test_support
