#include "update/packages/version_names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace launcher_update {
namespace {

using Names = std::vector<std::wstring>;

TEST(ResidueNames, PrefixesNameTheVersionAndEndInADash) {
    EXPECT_EQ(StagingResiduePrefix(L"1.0.0.0"), L".staging-1.0.0.0-");
    EXPECT_EQ(RepairBackupPrefix(L"1.0.0.0"), L".repair-backup-1.0.0.0-");
}

struct ResidueRow {
    const wchar_t* name;
    ResidueKind kind;
};

TEST(ResidueNames, KindIsToldByThePrefixAlone) {
    const ResidueRow rows[] = {
        {L".staging-1.0.0.0-123-456", ResidueKind::staging},
        {L".staging-1.0.0.0-x", ResidueKind::staging},
        {L".staging-1.0.0.0-", ResidueKind::staging},
        {L".STAGING-1.0.0.0-1-2", ResidueKind::staging},
        {L".repair-backup-1.0.0.0-123-456", ResidueKind::repairBackup},
        {L".repair-backup-1.0.0.0-", ResidueKind::repairBackup},
        {L".Repair-Backup-1.0.0.0-1-2", ResidueKind::repairBackup},
        {L".staging-2.0.0.0-1-2", ResidueKind::none},
        {L".repair-backup-2.0.0.0-1-2", ResidueKind::none},
        {L".staging-1.0.0.01-1-2", ResidueKind::none},
        {L".staging-11.0.0.0-1-2", ResidueKind::none},
        {L".staging-1.0.0.0", ResidueKind::none},
        {L".repair-backup-1.0.0.0", ResidueKind::none},
        {L"staging-1.0.0.0-1-2", ResidueKind::none},
        {L"x.staging-1.0.0.0-1-2", ResidueKind::none},
        {L".repair-1.0.0.0-1-2", ResidueKind::none},
        {L"1.0.0.0", ResidueKind::none},
        {L"", ResidueKind::none},
    };
    for (const ResidueRow& row : rows)
        EXPECT_EQ(ClassifyResidue(row.name, L"1.0.0.0"), row.kind) << testing::PrintToString(std::wstring(row.name));
}

TEST(ResidueNames, CaseOfTheVersion_DoesNotMatter) {
    EXPECT_EQ(ClassifyResidue(L".staging-1.0-RC-5", L"1.0-rc"), ResidueKind::staging);
    EXPECT_EQ(ClassifyResidue(L".repair-backup-1.0-rc-5", L"1.0-RC"), ResidueKind::repairBackup);
}

/// A staging folder and a backup of one version are told apart even where one version's text holds the other's.
TEST(ResidueNames, OnesOwnPrefixes_AreRecognised) {
    const std::wstring version = L"65535.0.1.2";
    EXPECT_EQ(ClassifyResidue(StagingResiduePrefix(version) + L"1-2", version), ResidueKind::staging);
    EXPECT_EQ(ClassifyResidue(RepairBackupPrefix(version) + L"1-2", version), ResidueKind::repairBackup);
}

TEST(SupersededVersions, HighestOtherVersion_IsKeptByNumberNotByText) {
    EXPECT_EQ(SupersededVersions({L"1.0.0.10", L"1.0.0.2", L"1.0.0.9", L"2.0.0.0"}, L"2.0.0.0"),
              (Names{L"1.0.0.9", L"1.0.0.2"}));
}

TEST(SupersededVersions, EveryFieldCounts_TheFirstMost) {
    const Names folders = {L"1.9.9.9", L"2.0.0.0", L"1.10.0.0", L"1.9.10.0", L"1.9.9.10", L"9.0.0.0"};
    EXPECT_EQ(SupersededVersions(folders, L"9.0.0.0"), (Names{L"1.10.0.0", L"1.9.10.0", L"1.9.9.10", L"1.9.9.9"}));
}

TEST(SupersededVersions, OneOtherVersionOrNone_LeavesNothingToRemove) {
    EXPECT_EQ(SupersededVersions({}, L"1.0.0.0"), Names{});
    EXPECT_EQ(SupersededVersions({L"1.0.0.0"}, L"1.0.0.0"), Names{});
    EXPECT_EQ(SupersededVersions({L"1.0.0.0", L"0.9.0.0"}, L"1.0.0.0"), Names{});
}

TEST(SupersededVersions, VersionAboveTheActiveOne_MayBeTheOneThatIsKept) {
    EXPECT_EQ(SupersededVersions({L"1.0.0.0", L"3.0.0.0", L"2.0.0.0"}, L"2.0.0.0"), Names{L"1.0.0.0"});
}

TEST(SupersededVersions, ActiveVersion_IsNeverRemoved) {
    EXPECT_EQ(SupersededVersions({L"1.0.0.0", L"3.0.0.0", L"2.0.0.0"}, L"1.0.0.0"), Names{L"2.0.0.0"});
}

TEST(SupersededVersions, MissingActiveVersion_ChangesNothing) {
    EXPECT_EQ(SupersededVersions({L"1.0.0.0", L"2.0.0.0"}, L"3.0.0.0"), Names{L"1.0.0.0"});
}

TEST(SupersededVersions, LargestFields_AreVersions) {
    EXPECT_EQ(SupersededVersions({L"65535.65535.65535.65535", L"65535.65535.65535.65534", L"0.0.0.0"}, L"1.0.0.0"),
              (Names{L"65535.65535.65535.65534", L"0.0.0.0"}));
}

TEST(SupersededVersions, NamesThatAreNoVersion_StayAndTakeNoPlace) {
    const Names others = {
        L"1.2.3",
        L"1.2.3.99999",
        L"1.2.3.65536",
        L"1.2.3.4.5",
        L"1.2.3.4.",
        L".1.2.3.4",
        L"1..3.4",
        L"1.2.3.",
        L"1.2.3.x",
        L"v1.2.3.4",
        L"1.2.3.4 ",
        L" 1.2.3.4",
        L"+1.2.3.4",
        L"-1.2.3.4",
        L"1,2,3,4",
        L"1.2.3.4-beta",
        L"1.2.3.4294967296",
        L"\uFF11.0.0.0",
        L"",
        L".staging-1.0.0.0-1-2",
        L".repair-backup-1.0.0.0-1-2",
        L"notes",
    };
    EXPECT_EQ(SupersededVersions(others, L"9.0.0.0"), Names{});
    Names folders = others;
    folders.insert(folders.begin(), L"1.0.0.0");
    folders.push_back(L"0.5.0.0");
    EXPECT_EQ(SupersededVersions(folders, L"9.0.0.0"), Names{L"0.5.0.0"});
}

/// Of two spellings of one number one is kept; which, nobody says. The active folder is known by its spelling.
TEST(SupersededVersions, LeadingZeros_MakeAnotherFolder) {
    EXPECT_EQ(SupersededVersions({L"1.0.0.0", L"01.0.0.0"}, L"2.0.0.0").size(), 1u);
    EXPECT_EQ(SupersededVersions({L"1.0.0.0", L"01.0.0.0", L"0.9.0.0"}, L"1.0.0.0"), Names{L"0.9.0.0"});
}

}  // namespace
}  // namespace launcher_update
