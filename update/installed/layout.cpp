#include "update/installed/layout.h"

#include <algorithm>

#include "platform/text.h"
#include "update/files/attributes.h"
#include "update/files/file_hashing.h"
#include "update/files/paths.h"
#include "update/files/plain_path.h"
#include "update/files/trees.h"
#include "update/packages/runtime_state.h"

namespace launcher_update {
namespace {

bool PortableFileMatches(const std::wstring& home, const std::wstring& applicationRoot,
                         const PackageDescriptor& package, const PackageFileDescriptor& file,
                         const SetProgress& progress) {
    const std::wstring relative = home.empty() ? file.path : JoinPath(home, file.path);
    std::wstring path;
    if (!PlainPathWalk(applicationRoot).Reach(relative, path)) return false;
    HashProgress perFile;
    if (progress) perFile = [&](std::uint64_t bytes) { progress(package, file, bytes); };
    return FileMatchesDescriptor(path, file, perFile);
}

bool PortablePackageMatches(const std::wstring& applicationRoot, const PackageDescriptor& package,
                            const SetProgress& progress) {
    const std::optional<std::wstring_view> home = PortableHome(package);
    return home &&
           std::all_of(package.inventory.begin(), package.inventory.end(), [&](const PackageFileDescriptor& file) {
               return PortableFileMatches(std::wstring(*home), applicationRoot, package, file, progress);
           });
}

std::wstring KeyOf(std::wstring_view relative) {
    return platform::ToLower(platform::WithBackslashes(relative));
}

bool FolderIsExact(const std::wstring& folder, const PackageDescriptor& package) {
    std::set<std::wstring> onDisk;
    if (!ListFilesUnder(folder, folder, onDisk)) return false;
    std::set<std::wstring> expected;
    for (const PackageFileDescriptor& file : package.inventory) {
        expected.insert(KeyOf(file.path));
    }
    return onDisk == expected;
}

}  // namespace

bool DetectInstalledLayout(const std::wstring& root, const Settings& settings, const UpdateManifest& manifest,
                           InstalledLayout& layout) {
    layout = InstalledLayout::files;
    if (manifest.packages.empty()) return true;
    const std::wstring applicationRoot = ApplicationRoot(root, settings);
    if (RuntimeStateMatches(RuntimeFolder(applicationRoot), manifest.packages)) {
        layout = InstalledLayout::activated;
        return true;
    }
    layout = InstalledLayout::portable;
    return IsPortableLayout(applicationRoot);
}

bool IsPortableLayout(const std::wstring& applicationRoot) {
    const std::wstring runtime = RuntimeFolder(applicationRoot);
    const PathFacts facts = LookAt(runtime);
    // Only a sure "absent" counts: what cannot be looked at may be there.
    if (facts.presence != Presence::absent && !IsRealDirectory(facts.attributes)) return false;
    return LookAt(RuntimeStatePath(runtime)).presence == Presence::absent;
}

bool PortablePackageSetMatches(const std::wstring& applicationRoot, const std::vector<PackageDescriptor>& packages,
                               const SetProgress& progress) {
    return IsPortableLayout(applicationRoot) &&
           std::all_of(packages.begin(), packages.end(), [&](const PackageDescriptor& package) {
               return PortablePackageMatches(applicationRoot, package, progress);
           });
}

bool ActivatedPackageFoldersExact(const std::wstring& applicationRoot, const std::vector<PackageDescriptor>& packages) {
    const std::wstring runtime = RuntimeFolder(applicationRoot);
    return std::all_of(packages.begin(), packages.end(), [&](const PackageDescriptor& package) {
        return FolderIsExact(VersionFolder(runtime, package), package);
    });
}

bool ListFilesUnder(const std::wstring& base, const std::wstring& current, std::set<std::wstring>& keys) {
    std::vector<std::wstring> files;
    if (!IsRealDirectory(LookAt(current).attributes) || !ListTreeNoLinks(current, files)) return false;
    for (const std::wstring& file : files) {
        keys.insert(KeyOf(JoinPath(current, file).substr(base.size() + 1)));
    }
    return true;
}

}  // namespace launcher_update
