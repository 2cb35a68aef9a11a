#include <windows.h>

#include <bcrypt.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/unique_handle.h"
#include "update/files/file_hashing.h"

namespace {

constexpr std::uint64_t kFileBytes = 256ull << 20;
constexpr std::size_t kPieceBytes = 0x10000;

/// A file of 256 MiB that exists while the program runs.
const std::wstring& BigFile() {
    static const struct File {
        std::wstring path = L"bench-256MiB.bin";
        File() {
            const platform::FileHandle file(
                CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
            std::vector<unsigned char> piece(1 << 20);
            for (std::size_t at = 0; at < piece.size(); ++at)
                piece[at] = static_cast<unsigned char>(at * 131 + at / 257);
            for (std::uint64_t written = 0; written < kFileBytes; written += piece.size()) {
                DWORD count = 0;
                if (!WriteFile(file.Get(), piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr))
                    std::abort();
            }
        }
        ~File() { DeleteFileW(path.c_str()); }
        File(const File&) = delete;
        File& operator=(const File&) = delete;
    } file;
    return file.path;
}

void HashProduct(benchmark::State& state) {
    const std::wstring& path = BigFile();
    for (auto _ : state) {
        std::wstring hex;
        if (!launcher_update::Sha256OfFile(path, hex)) state.SkipWithError("hashing failed");
        benchmark::DoNotOptimize(hex);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kFileBytes) * state.iterations());
}

/// Nothing but the reads and the hash calls that any implementation has to make.
void HashBareCng(benchmark::State& state) {
    const std::wstring& path = BigFile();
    std::vector<unsigned char> piece(kPieceBytes);
    for (auto _ : state) {
        platform::HashAlgorithmHandle algorithm;
        platform::HashHandle hash;
        BCryptOpenAlgorithmProvider(algorithm.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0);
        BCryptCreateHash(algorithm.Get(), hash.Receive(), nullptr, 0, nullptr, 0, 0);
        const platform::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                    FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        DWORD read = 0;
        while (ReadFile(file.Get(), piece.data(), static_cast<DWORD>(piece.size()), &read, nullptr) && read > 0) {
            BCryptHashData(hash.Get(), piece.data(), read, 0);
        }
        unsigned char digest[32];
        if (!BCRYPT_SUCCESS(BCryptFinishHash(hash.Get(), digest, sizeof(digest), 0)))
            state.SkipWithError("hashing failed");
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kFileBytes) * state.iterations());
}

// In turns, so that a machine that gets busier does not favour one of them.
BENCHMARK(HashProduct)->Repetitions(5)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(HashBareCng)->Repetitions(5)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
