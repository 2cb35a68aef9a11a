#include "tests/support/loopback_server.h"
// loopback_server.h brings winsock2.h, which must come before windows.h
#include <windows.h>

#include <benchmark/benchmark.h>
#include <psapi.h>
#include <winhttp.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "download/mirror.h"
#include "platform/sha256.h"
#include "platform/unique_handle.h"

// A payload of 512 MiB from this machine: through the engine, and through nothing but the calls that any engine makes.

namespace {

using test_support::LoopbackServer;

constexpr std::uint64_t kPayloadBytes = 512ull << 20;
constexpr std::size_t kPieceBytes = 1u << 20;
constexpr DWORD kBufferBytes = 65536;

const std::string& Piece() {
    static const std::string piece = [] {
        std::string bytes(kPieceBytes, '\0');
        for (std::size_t at = 0; at < bytes.size(); ++at)
            bytes[at] = static_cast<char>(at * 131 + at / 257);
        return bytes;
    }();
    return piece;
}

const std::wstring& Digest() {
    static const std::wstring digest = [] {
        platform::Sha256 hash;
        std::wstring hex;
        for (std::uint64_t at = 0; at < kPayloadBytes; at += kPieceBytes) {
            if (!hash.Update(Piece().data(), Piece().size())) std::abort();
        }
        if (!hash.Finish(hex)) std::abort();
        return hex;
    }();
    return digest;
}

LoopbackServer& Server() {
    static LoopbackServer server([](LoopbackServer::Exchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kPayloadBytes) +
                      "\r\nETag: \"v1\"\r\n\r\n");
        for (std::uint64_t at = 0; at < kPayloadBytes && exchange.Send(Piece()); at += kPieceBytes) {
        }
    });
    return server;
}

/// What the process used between construction and the call of `Tell`.
class Usage {
  public:
    Usage() : cpuSeconds_(CpuSeconds()) {}

    void Tell(benchmark::State& state) const {
        const auto runs = static_cast<double>(state.iterations());
        state.counters["cpu_s"] = (CpuSeconds() - cpuSeconds_) / runs;
        state.counters["peak_MiB"] = static_cast<double>(PeakBytes()) / (1 << 20);
    }

  private:
    static double Seconds(const FILETIME& time) {
        return static_cast<double>(static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime) * 1e-7;
    }
    /// Of all threads, the server's among them: it is the same one for each benchmark.
    static double CpuSeconds() {
        FILETIME created, ended, kernel, user;
        if (!GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user)) std::abort();
        return Seconds(kernel) + Seconds(user);
    }
    static std::size_t PeakBytes() {
        PROCESS_MEMORY_COUNTERS memory{};
        if (!GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory))) std::abort();
        return memory.PeakWorkingSetSize;
    }

    double cpuSeconds_;
};

void Told(benchmark::State& state, const Usage& usage) {
    usage.Tell(state);
    state.SetBytesProcessed(static_cast<std::int64_t>(kPayloadBytes) * state.iterations());
}

std::wstring CurrentDirectory() {
    std::wstring path(MAX_PATH, L'\0');
    path.resize(GetCurrentDirectoryW(MAX_PATH, path.data()));
    return path;
}

void TransferEngine(benchmark::State& state) {
    launcher_download::Request request;
    request.url = Server().Url();
    request.sha256 = Digest();
    request.size = kPayloadBytes;
    request.cacheDirectory = CurrentDirectory() + L"\\bench-cache";
    const std::wstring part = request.cacheDirectory + L"\\" + Digest() + L".part";
    const Usage usage;
    for (auto _ : state) {
        const launcher_download::Result result = launcher_download::DownloadAllowingLoopback(request, {});
        if (!result.success || result.attempts != 1) state.SkipWithError("the transfer failed");
        state.PauseTiming();
        DeleteFileW(part.c_str());
        state.ResumeTiming();
    }
    Told(state, usage);
}

using Take = std::function<bool(const unsigned char*, DWORD)>;

platform::InternetHandle OpenSession(DWORD flags) {
    return platform::InternetHandle(
        WinHttpOpen(L"bench", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, flags));
}

platform::InternetHandle OpenRequest(HINTERNET connection) {
    return platform::InternetHandle(WinHttpOpenRequest(connection, L"GET", L"/payload", nullptr, WINHTTP_NO_REFERER,
                                                       WINHTTP_DEFAULT_ACCEPT_TYPES, 0));
}

BOOL Send(HINTERNET request) {
    return WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 1);
}

/// The whole body by the library's blocking calls, which nothing can interrupt.
bool ReadBlocking(const Take& take) {
    const platform::InternetHandle session = OpenSession(0);
    const platform::InternetHandle connection(WinHttpConnect(session.Get(), L"127.0.0.1", Server().Port(), 0));
    const platform::InternetHandle request = OpenRequest(connection.Get());
    if (!Send(request.Get()) || !WinHttpReceiveResponse(request.Get(), nullptr)) return false;
    std::vector<unsigned char> buffer(kBufferBytes);
    std::uint64_t total = 0;
    for (DWORD count = 0; WinHttpReadData(request.Get(), buffer.data(), kBufferBytes, &count) && count > 0;) {
        if (!take(buffer.data(), count)) return false;
        total += count;
    }
    return total == kPayloadBytes;
}

// One transfer at a time, so that the callback finds them here.
platform::KernelHandle g_done;
std::atomic<DWORD> g_count;

void CALLBACK OnStatus(HINTERNET, DWORD_PTR, DWORD status, LPVOID information, DWORD length) {
    if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) return;
    g_count = status == WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE ? *static_cast<const DWORD*>(information) : length;
    SetEvent(g_done.Get());
}

bool Await(BOOL begun) {
    return begun && WaitForSingleObject(g_done.Get(), INFINITE) == WAIT_OBJECT_0;
}

/// The whole body by the library's asynchronous calls, as anybody must read who wants to be able to stop.
bool ReadAsynchronously(const Take& take) {
    g_done = platform::KernelHandle(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const platform::InternetHandle session = OpenSession(WINHTTP_FLAG_ASYNC);
    const platform::InternetHandle connection(WinHttpConnect(session.Get(), L"127.0.0.1", Server().Port(), 0));
    const platform::InternetHandle request = OpenRequest(connection.Get());
    WinHttpSetStatusCallback(request.Get(), OnStatus, WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS, 0);
    if (!Await(Send(request.Get())) || !Await(WinHttpReceiveResponse(request.Get(), nullptr))) return false;
    std::vector<unsigned char> buffer(kBufferBytes);
    std::uint64_t total = 0;
    while (Await(WinHttpQueryDataAvailable(request.Get(), nullptr)) && g_count > 0) {
        if (!Await(WinHttpReadData(request.Get(), buffer.data(), std::min(g_count.load(), kBufferBytes), nullptr)))
            break;
        if (g_count == 0 || !take(buffer.data(), g_count)) break;
        total += g_count;
    }
    return total == kPayloadBytes;
}

using Read = bool (*)(const Take&);

/// Into memory and no further.
void JustRead(benchmark::State& state, Read read) {
    const Usage usage;
    for (auto _ : state) {
        if (!read([](const unsigned char*, DWORD) { return true; })) state.SkipWithError("the read failed");
    }
    Told(state, usage);
}
void TransferBlockingRead(benchmark::State& state) {
    JustRead(state, ReadBlocking);
}
void TransferBareRead(benchmark::State& state) {
    JustRead(state, ReadAsynchronously);
}

bool HashBack(HANDLE file) {
    std::vector<unsigned char> buffer(kBufferBytes);
    platform::Sha256 hash;
    std::wstring hex;
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    for (DWORD count = 0; ReadFile(file, buffer.data(), kBufferBytes, &count, nullptr) && count > 0;) {
        if (!hash.Update(buffer.data(), count)) return false;
    }
    return hash.Finish(hex) && hex == Digest();
}

/// Also writes and forces out what came, and hashes the file: what a proved payload cannot do without.
void ReadWriteHash(benchmark::State& state, Read read) {
    const Usage usage;
    for (auto _ : state) {
        const platform::FileHandle file(CreateFileW(L"bench-bare.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                                    CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
        const bool whole = read([&file](const unsigned char* bytes, DWORD count) {
            DWORD written = 0;
            return WriteFile(file.Get(), bytes, count, &written, nullptr) && written == count;
        });
        if (!whole || !FlushFileBuffers(file.Get()) || !HashBack(file.Get())) state.SkipWithError("the read failed");
    }
    Told(state, usage);
}
void TransferBlockingReadWriteHash(benchmark::State& state) {
    ReadWriteHash(state, ReadBlocking);
}
void TransferBareReadWriteHash(benchmark::State& state) {
    ReadWriteHash(state, ReadAsynchronously);
}

void Registered(benchmark::internal::Benchmark* one) {
    one->Iterations(1)->Repetitions(5)->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(TransferBlockingRead)->Apply(Registered);
BENCHMARK(TransferBlockingReadWriteHash)->Apply(Registered);
BENCHMARK(TransferBareRead)->Apply(Registered);
BENCHMARK(TransferBareReadWriteHash)->Apply(Registered);
BENCHMARK(TransferEngine)->Apply(Registered);

}  // namespace
