#pragma once

/// Faults at the border to Windows, for tests: slots of this program's own import table are pointed at functions that
/// count, refuse or end the process. Whatever the product calls by name goes through these slots; what other modules
/// call among themselves does not. One thread arranges hooks; the hooked functions may be called from any.

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace test_support {

/// Points the import slot of `function` at `replacement` for the life of the object. Aborts if the program does not
/// import it: a hook that cannot fire must not look like a test.
class ImportHook {
  public:
    ImportHook(const char* function, void* replacement);
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;
    ~ImportHook();

    [[nodiscard]] void* Original() const { return original_; }

  private:
    void** slot_ = nullptr;
    void* original_ = nullptr;
};

enum class FaultKind {
    none,      // count only
    fail,      // the call does nothing and reports failure
    failTorn,  // a write or copy does half of its work and reports failure
    kill,      // the process ends instead of the call
    killTorn   // the process ends after half of a write or copy
};

/// What a call was about, for tests that look at paths and order.
struct RecordedCall {
    std::string function;
    std::wstring path;  // the file written, the source of a move or copy; of a handle, the path it was opened by
    std::wstring second;
};

/// Counts every call that changes a disk: creating or opening for writing, writing, flushing, renaming, copying,
/// deleting, making and removing folders, setting attributes, sizes and dispositions; by Windows' functions and by the
/// C library's. The call with number `at` (from 1) meets the fault. Streams that the tests themselves print to are not
/// counted. At most one object at a time.
class MutationFaults {
  public:
    explicit MutationFaults(FaultKind kind = FaultKind::none, std::uint32_t at = 0, DWORD error = ERROR_ACCESS_DENIED,
                            bool fromThenOn = false);
    MutationFaults(const MutationFaults&) = delete;
    MutationFaults& operator=(const MutationFaults&) = delete;
    ~MutationFaults();

    /// Only calls whose function is `function` and whose path contains `pathPart` count from now on.
    void CountOnly(std::string function, std::wstring pathPart);

    [[nodiscard]] std::uint32_t Count() const;
    [[nodiscard]] bool Reached() const;
    [[nodiscard]] std::vector<RecordedCall> Calls() const;

    /// The exit code with which a fault ends the process.
    static constexpr UINT kKilledExitCode = 177;

  private:
    std::vector<ImportHook*> hooks_;
};

/// Answers for attributes: while an object lives, `GetFileAttributesW` and `FindFirstFileW`/`FindNextFileW` add the
/// given bits to every path or entry that ends in `suffix`. For links, which cannot be made everywhere.
class ForcedAttributes {
  public:
    ForcedAttributes(std::wstring suffix, DWORD bits);
    ForcedAttributes(const ForcedAttributes&) = delete;
    ForcedAttributes& operator=(const ForcedAttributes&) = delete;
    ~ForcedAttributes();

  private:
    std::vector<ImportHook*> hooks_;
};

/// While an object lives, `GetFileAttributesW` fails with `error` for every path that ends in `suffix`.
class UnreadableAttributes {
  public:
    UnreadableAttributes(std::wstring suffix, DWORD error);
    UnreadableAttributes(const UnreadableAttributes&) = delete;
    UnreadableAttributes& operator=(const UnreadableAttributes&) = delete;
    ~UnreadableAttributes();

  private:
    ImportHook* hook_ = nullptr;
};

/// Records the long texts given to `OutputDebugStringW`.
class DebuggerTexts {
  public:
    DebuggerTexts();
    DebuggerTexts(const DebuggerTexts&) = delete;
    DebuggerTexts& operator=(const DebuggerTexts&) = delete;
    ~DebuggerTexts();

    [[nodiscard]] const std::vector<std::wstring>& Texts() const;

  private:
    ImportHook* hook_ = nullptr;
};

}  // namespace test_support
