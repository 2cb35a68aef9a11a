#include <windows.h>

#include <bcrypt.h>
#include <benchmark/benchmark.h>
#include <miniz.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "tests/support/package_fixture.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/installed/expected_files.h"
#include "update/installed/verified_inventory.h"
#include "update/packages/install.h"
#include "update/packages/runtime_state.h"
#include "update/packages/validation.h"
#include "update/transaction/recovery.h"

// A package of 256 MiB in 300 files from archive to validated version folder, beside the parts that any implementation
// must do; and what it costs to see that nothing changed, beside opening and asking alone.

namespace {

using launcher_update::PackageDescriptor;
using launcher_update::PackageFileDescriptor;
using test_support::PackageContent;

constexpr std::size_t kFiles = 300;
constexpr std::uint64_t kPackageBytes = 256ull << 20;
constexpr std::size_t kInventoryFiles = 768;
constexpr std::size_t kPieceBytes = 0x10000;

void Require(bool condition) {
    if (!condition) std::abort();
}

/// Bytes that deflate to about half, as programs and models do: runs of noise between repeats.
std::string HalfNoise(std::size_t length, std::uint32_t seed) {
    std::string bytes(length, '\0');
    std::uint32_t state = seed * 2654435761u + 1;
    for (std::size_t at = 0; at < length; ++at) {
        state = state * 1664525u + 1013904223u;
        bytes[at] = (at / 48) % 2 == 0 ? static_cast<char>(state >> 24) : static_cast<char>(at / 96);
    }
    return bytes;
}

/// The package, its archive on disk and a folder with its files, for as long as the program runs.
struct Package {
    test_support::TemporaryDirectory folder;
    PackageDescriptor descriptor;
    std::wstring archive = folder / L"package.vprpack";
    std::wstring tree = folder / L"tree";
    std::size_t largestFile = 0;

    Package() {
        PackageContent content;
        for (std::size_t at = 0; at < kFiles; ++at) {
            // Sizes from a tenth to almost twice the mean, so that no buffer fits them all.
            const std::size_t size = kPackageBytes / kFiles * (1 + 2 * (at % 10)) / 10;
            content[L"part" + std::to_wstring(at % 12) + L"/file" + std::to_wstring(at) + L".bin"] =
                HalfNoise(size, static_cast<std::uint32_t>(at));
            largestFile = size > largestFile ? size : largestFile;
        }
        descriptor = test_support::DescribePackage(L"bench", L"1.0.0.0", content);
        test_support::WriteWholeFile(archive, test_support::BuildArchive(content));
        test_support::WritePackageTree(tree, content);
    }
    [[nodiscard]] std::uint64_t Bytes() const {
        std::uint64_t total = 0;
        for (const PackageFileDescriptor& file : descriptor.inventory)
            total += file.size;
        return total;
    }
};

const Package& ThePackage() {
    static const Package package;
    return package;
}

void CountBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(ThePackage().Bytes()) * state.iterations());
}

void PackageInstall(benchmark::State& state) {
    const Package& package = ThePackage();
    for (auto _ : state) {
        state.PauseTiming();
        const test_support::TemporaryDirectory root;
        state.ResumeTiming();
        std::wstring installed;
        std::wstring error;
        if (!InstallPackageInactive(package.archive, package.descriptor, root.Path(), installed, error))
            state.SkipWithError("the installation failed");
        state.PauseTiming();
        Require(launcher_update::RemoveTree(root / L"packs"));
        state.ResumeTiming();
    }
    CountBytes(state);
}

void PackageValidate(benchmark::State& state) {
    const Package& package = ThePackage();
    for (auto _ : state) {
        std::wstring error;
        if (!ValidateInstalledPackage(package.tree, package.descriptor, error))
            state.SkipWithError("the validation failed");
    }
    CountBytes(state);
}

/// One SHA-256 by nothing but CNG.
class BareHash {
  public:
    BareHash() {
        Require(BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(algorithm_.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0)));
        Require(BCRYPT_SUCCESS(BCryptCreateHash(algorithm_.Get(), hash_.Receive(), nullptr, 0, nullptr, 0, 0)));
    }
    void Add(const void* data, std::size_t length) {
        auto* bytes = static_cast<unsigned char*>(const_cast<void*>(data));
        BCryptHashData(hash_.Get(), bytes, static_cast<ULONG>(length), 0);
    }
    void Finish() {
        unsigned char digest[32];
        Require(BCRYPT_SUCCESS(BCryptFinishHash(hash_.Get(), digest, sizeof(digest), 0)));
        benchmark::DoNotOptimize(digest);
    }

  private:
    platform::HashAlgorithmHandle algorithm_;
    platform::HashHandle hash_;
};

platform::FileHandle OpenForReading(const std::wstring& path) {
    platform::FileHandle file(CreateFileW(launcher_update::ToLongPath(path).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                          nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    Require(static_cast<bool>(file));
    return file;
}

/// Part: reading and hashing every file of a folder.
void PackageBareHashFiles(benchmark::State& state) {
    const Package& package = ThePackage();
    std::vector<unsigned char> piece(kPieceBytes);
    for (auto _ : state) {
        for (const PackageFileDescriptor& entry : package.descriptor.inventory) {
            BareHash hash;
            const platform::FileHandle file = OpenForReading(launcher_update::JoinPath(package.tree, entry.path));
            DWORD read = 0;
            while (ReadFile(file.Get(), piece.data(), static_cast<DWORD>(piece.size()), &read, nullptr) && read > 0)
                hash.Add(piece.data(), read);
            hash.Finish();
        }
    }
    CountBytes(state);
}

/// Part: hashing every file in memory.
void PackageBareHashMemory(benchmark::State& state) {
    const Package& package = ThePackage();
    const std::string bytes = HalfNoise(package.largestFile, 1);
    for (auto _ : state) {
        for (const PackageFileDescriptor& entry : package.descriptor.inventory) {
            BareHash hash;
            hash.Add(bytes.data(), static_cast<std::size_t>(entry.size));
            hash.Finish();
        }
    }
    CountBytes(state);
}

/// Part: unpacking every entry into memory, by the library alone.
void PackageBareInflate(benchmark::State& state) {
    const Package& package = ThePackage();
    const std::string path = platform::EncodeUtf8(package.archive);
    std::vector<char> buffer(package.largestFile);
    for (auto _ : state) {
        mz_zip_archive zip{};
        Require(mz_zip_reader_init_file(&zip, path.c_str(), 0));
        for (mz_uint index = 0; index < zip.m_total_files; ++index)
            Require(mz_zip_reader_extract_to_mem(&zip, index, buffer.data(), buffer.size(), 0));
        mz_zip_reader_end(&zip);
    }
    CountBytes(state);
}

/// Part: writing every file and forcing it out.
void PackageBareWrite(benchmark::State& state) {
    const Package& package = ThePackage();
    const std::string bytes = HalfNoise(package.largestFile, 1);
    for (auto _ : state) {
        state.PauseTiming();
        const test_support::TemporaryDirectory folder;
        state.ResumeTiming();
        std::size_t number = 0;
        for (const PackageFileDescriptor& entry : package.descriptor.inventory) {
            const platform::FileHandle file(CreateFileW((folder / std::to_wstring(number++)).c_str(), GENERIC_WRITE, 0,
                                                        nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
            DWORD written = 0;
            Require(WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(entry.size), &written, nullptr) &&
                    FlushFileBuffers(file.Get()));
        }
        state.PauseTiming();
        for (std::size_t at = 0; at < number; ++at)
            DeleteFileW((folder / std::to_wstring(at)).c_str());
        state.ResumeTiming();
    }
    CountBytes(state);
}

/// An activated installation of 768 files that was verified a moment ago.
struct Installation {
    test_support::TemporaryDirectory root;
    launcher_update::Settings settings;
    launcher_update::UpdateManifest manifest;
    std::wstring manifestDigest = std::wstring(64, L'a');
    std::vector<std::wstring> paths;

    Installation() {
        PackageContent content;
        for (std::size_t at = 0; at < kInventoryFiles; ++at)
            content[L"folder" + std::to_wstring(at / 48) + L"/file" + std::to_wstring(at) + L".bin"] =
                std::string(1, 'x');
        settings.applicationDirectory = L"Velmora Pine Relay";
        manifest.packages = {test_support::DescribePackage(L"bench", L"1.0.0.0", content)};
        const std::wstring runtime =
            launcher_update::RuntimeFolder(launcher_update::ApplicationRoot(root.Path(), settings));
        const std::wstring folder = launcher_update::VersionFolder(runtime, manifest.packages.front());
        test_support::WritePackageTree(folder, content);
        std::wstring error;
        Require(launcher_update::ActivatePackageSet(runtime, manifest.packages, error));
        std::wstring digest;
        Require(ComputeInventoryDigest(root.Path(), settings, manifest, launcher_update::InstalledLayout::activated,
                                       digest, launcher_update::InventoryProgress::silent));
        WriteVerifiedInventory(root.Path(), settings, manifest, manifestDigest,
                               launcher_update::InstalledLayout::activated, digest);
        for (const PackageFileDescriptor& file : manifest.packages.front().inventory)
            paths.push_back(launcher_update::ToLongPath(launcher_update::JoinPath(folder, file.path)));
    }
};

const Installation& TheInstallation() {
    static const Installation installation;
    return installation;
}

void InventoryShortcut(benchmark::State& state) {
    const Installation& installation = TheInstallation();
    for (auto _ : state) {
        if (!VerifiedInventoryIsFresh(installation.root.Path(), installation.settings, installation.manifest,
                                      installation.manifestDigest, launcher_update::InstalledLayout::activated))
            state.SkipWithError("the record does not count");
    }
}

void InventoryBareOpenAndQuery(benchmark::State& state) {
    const Installation& installation = TheInstallation();
    for (auto _ : state) {
        for (const std::wstring& path : installation.paths) {
            const platform::FileHandle file(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, 7, nullptr, OPEN_EXISTING,
                                                        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
            FILE_STANDARD_INFO standard{};
            FILE_BASIC_INFO basic{};
            FILE_ID_INFO id{};
            Require(GetFileInformationByHandleEx(file.Get(), FileStandardInfo, &standard, sizeof(standard)) &&
                    GetFileInformationByHandleEx(file.Get(), FileBasicInfo, &basic, sizeof(basic)) &&
                    GetFileInformationByHandleEx(file.Get(), FileIdInfo, &id, sizeof(id)));
            benchmark::DoNotOptimize(id);
        }
    }
}

BENCHMARK(PackageInstall)->Repetitions(5)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PackageBareInflate)->Repetitions(5)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PackageBareWrite)->Repetitions(5)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PackageBareHashMemory)->Repetitions(5)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PackageValidate)->Repetitions(5)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PackageBareHashFiles)->Repetitions(5)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(InventoryShortcut)->Repetitions(5)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(InventoryBareOpenAndQuery)->Repetitions(5)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
