#include "update/workflow/package_plan.h"

#include <optional>

#include "update/installed/layout.h"
#include "update/packages/patch.h"
#include "update/packages/validation.h"

namespace launcher_update {
namespace {

/// The base version among the launcher's own packages, else the portable home.
std::wstring FindPatchBase(const std::wstring& applicationRoot, const PackageDescriptor& package) {
    if (package.patch.files.empty()) return {};
    PackageDescriptor base = package;
    base.version = package.patch.baseVersion;
    std::wstring managed = VersionFolder(RuntimeFolder(applicationRoot), base);
    if (PackagePatchBaseMatches(managed, package)) return managed;
    const std::optional<std::wstring> home = PortableHomeFolder(applicationRoot, package);
    return home && PackagePatchBaseMatches(*home, package) ? *home : std::wstring();
}

PackageDescriptor PatchPayload(const PackageDescriptor& package) {
    PackageDescriptor payload = package;
    payload.url = package.patch.url;
    payload.sha256 = package.patch.sha256;
    payload.size = package.patch.size;
    payload.inventory = package.patch.files;
    return payload;
}

}  // namespace

PackagePlan PlanPackage(const std::wstring& applicationRoot, const PackageDescriptor& package) {
    PackagePlan plan;
    std::wstring dropped;
    if (ValidateInstalledPackage(VersionFolder(RuntimeFolder(applicationRoot), package), package, dropped)) return plan;
    if (PortablePackageSetMatches(applicationRoot, {package})) {
        plan.localSource = PortableHomeFolder(applicationRoot, package).value_or(std::wstring());
        return plan;
    }
    plan.needsPayload = true;
    plan.patchBase = FindPatchBase(applicationRoot, package);
    plan.payloadDescriptor = plan.patchBase.empty() ? package : PatchPayload(package);
    return plan;
}

}  // namespace launcher_update
