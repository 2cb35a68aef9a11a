#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <winhttp.h>

#include <utility>

namespace platform {

/// Owns one system handle. `Policy` names the handle type, the value that means "none" and how to close:
/// `INVALID_HANDLE_VALUE` and null are different kinds. Closing keeps the thread's last error, so that a failing call's
/// error survives the clean-up behind it. Not shared between threads without outside order.
template <typename Policy>
class UniqueHandle {
  public:
    using Type = typename Policy::Type;

    UniqueHandle() = default;
    explicit UniqueHandle(Type handle) : handle_(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { Reset(); }

    [[nodiscard]] explicit operator bool() const { return handle_ != Policy::None(); }
    [[nodiscard]] Type Get() const { return handle_; }
    [[nodiscard]] Type Release() { return std::exchange(handle_, Policy::None()); }
    void Reset(Type handle = Policy::None()) {
        const Type old = std::exchange(handle_, handle);
        if (old == Policy::None()) return;
        const DWORD lastError = GetLastError();
        Policy::Close(old);
        SetLastError(lastError);
    }

    /// For functions that give a handle through an out-parameter; closes what was held.
    [[nodiscard]] Type* Receive() {
        Reset();
        return &handle_;
    }

  private:
    Type handle_ = Policy::None();
};

struct FilePolicy {
    using Type = HANDLE;
    static Type None() { return INVALID_HANDLE_VALUE; }
    static void Close(Type handle) { CloseHandle(handle); }
};

struct KernelPolicy {
    using Type = HANDLE;
    static Type None() { return nullptr; }
    static void Close(Type handle) { CloseHandle(handle); }
};

struct FindPolicy {
    using Type = HANDLE;
    static Type None() { return INVALID_HANDLE_VALUE; }
    static void Close(Type handle) { FindClose(handle); }
};

struct InternetPolicy {
    using Type = HINTERNET;
    static Type None() { return nullptr; }
    static void Close(Type handle) { WinHttpCloseHandle(handle); }
};

struct HashAlgorithmPolicy {
    using Type = BCRYPT_ALG_HANDLE;
    static Type None() { return nullptr; }
    static void Close(Type handle) { BCryptCloseAlgorithmProvider(handle, 0); }
};

struct HashPolicy {
    using Type = BCRYPT_HASH_HANDLE;
    static Type None() { return nullptr; }
    static void Close(Type handle) { BCryptDestroyHash(handle); }
};

using FileHandle = UniqueHandle<FilePolicy>;
using KernelHandle = UniqueHandle<KernelPolicy>;
using FindHandle = UniqueHandle<FindPolicy>;
using InternetHandle = UniqueHandle<InternetPolicy>;
using HashAlgorithmHandle = UniqueHandle<HashAlgorithmPolicy>;
using HashHandle = UniqueHandle<HashPolicy>;

}  // namespace platform
