#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/text.h"
#include "tests/support/manifest_builder.h"
#include "update/manifest/json_reader.h"
#include "update/manifest/update_manifest.h"

namespace {

using test_support::Array;
using test_support::JsonObject;

constexpr std::size_t kPackages = 16;
constexpr std::size_t kMostEntries = 768;

JsonObject Package(std::size_t number, std::size_t entries) {
    std::vector<JsonObject> inventory;
    for (std::size_t at = 0; at < entries; ++at) {
        inventory.push_back(
            test_support::InventoryElement(L"bin/module-" + std::to_wstring(at) + L".dll", L'd', 1000 + at));
    }
    JsonObject package = test_support::PackageElement();
    package.SetText(L"id", L"package-" + std::to_wstring(number)).Set(L"files", Array(inventory));
    return package;
}

/// A manifest of exactly `bytes` bytes: 16 packages, filled one after the other with as many inventory entries as fit,
/// and blanks for the rest.
std::string ManifestOf(std::size_t bytes) {
    const std::size_t entryBytes = test_support::InventoryElement(L"bin/module-000.dll", L'd', 1000).Text().size() + 1;
    std::size_t budget = bytes - kPackages * 400 - 2000;  // the packages' own keys and everything else
    std::vector<JsonObject> packages;
    for (std::size_t number = 0; number < kPackages; ++number) {
        const std::size_t fitting = budget / entryBytes - (kPackages - number - 1);  // one is left for each of the rest
        const std::size_t entries = std::min(kMostEntries, fitting);
        packages.push_back(Package(number, entries));
        budget -= entries * entryBytes;
    }
    std::string text = platform::EncodeUtf8(test_support::FullManifest().Set(L"packages", Array(packages)).Text());
    if (text.size() > bytes) std::abort();
    return text.append(bytes - text.size(), ' ');
}

void ManifestParse(benchmark::State& state) {
    const std::string bytes = ManifestOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::wstring text;
        std::wstring error;
        launcher_update::UpdateManifest manifest;
        if (!launcher_update::DecodeUtf8Document(bytes, text) ||
            !launcher_update::ParseUpdateManifest(text, manifest, error, false)) {
            state.SkipWithError("the manifest was refused");
        }
        benchmark::DoNotOptimize(manifest);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

void ManifestDecode(benchmark::State& state) {
    const std::string bytes = ManifestOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::wstring text;
        if (!launcher_update::DecodeUtf8Document(bytes, text)) state.SkipWithError("no UTF-8");
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(state.range(0) * state.iterations());
}

BENCHMARK(ManifestDecode)->Arg(524288)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ManifestParse)
    ->Arg(65536)
    ->Arg(131072)
    ->Arg(262144)
    ->Arg(524288)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
