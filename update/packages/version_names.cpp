#include "update/packages/version_names.h"

#include <algorithm>

#include "platform/text.h"
#include "update/manifest/version.h"

namespace launcher_update {
namespace {

std::wstring Prefix(std::wstring_view kind, std::wstring_view version) {
    return std::wstring(kind).append(version).append(L"-");
}

struct FoundVersion {
    Version number{};
    std::wstring folder;
};

}  // namespace

std::wstring StagingResiduePrefix(std::wstring_view version) {
    return Prefix(L".staging-", version);
}

std::wstring RepairBackupPrefix(std::wstring_view version) {
    return Prefix(L".repair-backup-", version);
}

ResidueKind ClassifyResidue(std::wstring_view name, std::wstring_view version) {
    if (platform::StartsWithIgnoringCase(name, StagingResiduePrefix(version))) return ResidueKind::staging;
    if (platform::StartsWithIgnoringCase(name, RepairBackupPrefix(version))) return ResidueKind::repairBackup;
    return ResidueKind::none;
}

std::vector<std::wstring> SupersededVersions(const std::vector<std::wstring>& folders,
                                             std::wstring_view activeVersion) {
    std::vector<FoundVersion> others;
    for (const std::wstring& folder : folders) {
        bool parsed = false;
        const Version number = ParseVersion(folder, parsed);
        if (parsed && !platform::EqualsIgnoringCase(folder, activeVersion)) others.push_back({number, folder});
    }
    std::stable_sort(others.begin(), others.end(),
                     [](const FoundVersion& left, const FoundVersion& right) { return left.number > right.number; });
    std::vector<std::wstring> superseded;
    for (std::size_t at = 1; at < others.size(); ++at) {  // the first is kept for a rollback to go to
        superseded.push_back(others[at].folder);
    }
    return superseded;
}

}  // namespace launcher_update
