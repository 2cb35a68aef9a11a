#pragma once

/// From where each package of a release comes. Made under the update lock, before anything is fetched.

#include <string>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// The plan for one package. With neither a payload nor a local source its version folder stands already.
struct PackagePlan {
    bool needsPayload = false;            // something must be fetched
    std::wstring localSource;             // a folder that holds this version; it is copied, nothing is fetched
    std::wstring patchBase;               // a folder that the patch can start from; the patch is fetched
    PackageDescriptor payloadDescriptor;  // what is fetched: the package, or it with the patch's archive and files
};

/// The cheapest source that will do: the version folder itself, the portable home, a patch, the full archive.
[[nodiscard]] PackagePlan PlanPackage(const std::wstring& applicationRoot, const PackageDescriptor& package);

}  // namespace launcher_update
