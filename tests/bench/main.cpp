// Runs the benchmarks and prints what they are for: ratios between two of them within this one run. Nothing is
// asserted; a machine that is busy with other things says little.

#include <windows.h>

#include <benchmark/benchmark.h>
#include <psapi.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

/// Prints as usual and keeps each benchmark's best time.
class KeepingReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const std::string name =
                run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
            const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
            const auto [at, isNew] = best_.try_emplace(name, seconds);
            if (!isNew && seconds < at->second) at->second = seconds;
        }
    }

    [[nodiscard]] double Best(const std::string& name) const {
        const auto at = best_.find(name);
        return at == best_.end() ? 0.0 : at->second;
    }

  private:
    std::map<std::string, double> best_;
};

/// Some runs of one benchmark, as a part of a sum.
struct Part {
    double runs = 1;
    const char* name = nullptr;
    Part(const char* once) : name(once) {}
    Part(double times, const char* each) : runs(times), name(each) {}
};

struct Ratio {
    const char* what;
    const char* numerator;
    std::vector<Part> denominator;
};

const Ratio kRatios[] = {
    {"hashing, speed of the product's operation beside a bare CNG loop (target 0.95 or better)",
     "HashBareCng",
     {"HashProduct"}},
    {"512 MiB through the engine, speed beside a bare loop that also writes and hashes (target 0.9 or better)",
     "TransferBareReadWriteHash",
     {"TransferEngine"}},
    {"512 MiB through the engine, speed beside a bare loop that reads into memory",
     "TransferBareRead",
     {"TransferEngine"}},
    {"the same beside a blocking loop that writes and hashes and that nothing can stop",
     "TransferBlockingReadWriteHash",
     {"TransferEngine"}},
    {"the same beside a blocking loop that reads into memory", "TransferBlockingRead", {"TransferEngine"}},
    {"full manifest, time of the parse beside a bare UTF-8 decode", "ManifestParse/524288", {"ManifestDecode/524288"}},
    {"manifest of 256 KiB beside one of 128 KiB (linear: 2)", "ManifestParse/262144", {"ManifestParse/131072"}},
    {"manifest of 512 KiB beside one of 256 KiB (linear: 2)", "ManifestParse/524288", {"ManifestParse/262144"}},
    {"256 MiB package in 300 files, archive to validated folder, beside the sum of three hashes, one inflate and one "
     "write with flush (target 1.15 or less)",
     "PackageInstall",
     {{2, "PackageBareHashMemory"}, "PackageBareHashFiles", "PackageBareInflate", "PackageBareWrite"}},
    {"validating the same folder, speed beside a bare hash loop (target 0.95 or better)",
     "PackageBareHashFiles",
     {"PackageValidate"}},
    {"seeing that 768 verified files have not changed, beside opening and asking alone (target 1.2 or less)",
     "InventoryShortcut",
     {"InventoryBareOpenAndQuery"}},
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    KeepingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");
    for (const Ratio& ratio : kRatios) {
        double denominator = 0;
        for (const Part& part : ratio.denominator)
            denominator += part.runs * reporter.Best(part.name);
        if (reporter.Best(ratio.numerator) > 0 && denominator > 0)
            std::printf("%8.3f  %s\n", reporter.Best(ratio.numerator) / denominator, ratio.what);
    }
    PROCESS_MEMORY_COUNTERS memory{};
    if (GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory))) {
        std::printf("%8.1f  MiB, peak memory of this program\n",
                    static_cast<double>(memory.PeakWorkingSetSize) / (1 << 20));
    }
    return 0;
}
