#include "update/workflow/totals.h"

#include "update/packages/support_files.h"

namespace launcher_update {
namespace {

/// A sum that says when 64 bits no longer hold it.
struct Total {
    std::uint64_t bytes = 0;
    bool holds = true;

    void Add(std::uint64_t size) { holds = holds && AddWithoutOverflow(bytes, size, bytes); }
};

}  // namespace

std::uint64_t BytesToHash(const UpdateManifest& manifest, bool countSupportTwice) {
    Total total;
    for (const ManifestFileEntry& file : manifest.files) {
        total.Add(file.size);
    }
    for (const PackageDescriptor& package : manifest.packages) {
        const bool copiesOut = countSupportTwice && package.id == kApplicationRuntimePackage;
        for (const PackageFileDescriptor& file : package.inventory) {
            total.Add(file.size);
            if (copiesOut && IsApplicationRuntimeSupportFile(file.path)) total.Add(file.size);
        }
    }
    return total.holds ? total.bytes : std::numeric_limits<std::uint64_t>::max();
}

}  // namespace launcher_update
