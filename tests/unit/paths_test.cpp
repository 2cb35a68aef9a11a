#include "update/files/paths.h"

#include <gtest/gtest.h>

#include <string>

#include "update/files/attributes.h"

namespace launcher_update {
namespace {

TEST(Paths, ToLongPath_PutsThePrefixInFront) {
    struct Row {
        const wchar_t* path;
        const wchar_t* expected;
    };
    for (const Row& row : {Row{L"C:\\a\\b", L"\\\\?\\C:\\a\\b"},
                           {L"C:/a/b", L"\\\\?\\C:\\a\\b"},
                           {L"C:\\", L"\\\\?\\C:\\"},
                           {L"?:\\a", L"\\\\?\\?:\\a"},
                           {L"\\\\server\\share\\a", L"\\\\?\\UNC\\server\\share\\a"},
                           {L"//server/share/a", L"\\\\?\\UNC\\server\\share\\a"},
                           {L"\\\\?\\C:\\a/b", L"\\\\?\\C:\\a\\b"},
                           {L"\\\\?\\UNC\\s\\t", L"\\\\?\\UNC\\s\\t"},
                           {L"a/b", L"a\\b"},
                           {L"C:", L"C:"},
                           {L"C:a", L"C:a"},
                           {L"", L""},
                           {L"\\a", L"\\a"}}) {
        EXPECT_EQ(ToLongPath(row.path), row.expected) << row.path;
    }
}

TEST(Paths, ToPackageLongPath_LeavesSlashes) {
    EXPECT_EQ(ToPackageLongPath(L"C:\\a/b"), L"\\\\?\\C:\\a/b");
    EXPECT_EQ(ToPackageLongPath(L"C:/"), L"\\\\?\\C:/");
    EXPECT_EQ(ToPackageLongPath(L"C:"), L"C:");
    EXPECT_EQ(ToPackageLongPath(L"C:/a/b"), L"\\\\?\\C:/a/b");
    EXPECT_EQ(ToPackageLongPath(L"\\\\s\\t/a"), L"\\\\?\\UNC\\s\\t/a");
    EXPECT_EQ(ToPackageLongPath(L"\\\\?\\C:\\a/b"), L"\\\\?\\C:\\a/b");
    EXPECT_EQ(ToPackageLongPath(L"a/b"), L"a/b");
    EXPECT_EQ(ToPackageLongPath(L"//s/t"), L"//s/t");
}

TEST(Paths, TransactionTarget_KeepsOutOfTheControlDirectory) {
    EXPECT_TRUE(IsSafeTransactionTarget(L"current.json"));
    EXPECT_TRUE(IsSafeTransactionTarget(L"a\\.vpr-update\\b"));
    EXPECT_TRUE(IsSafeTransactionTarget(L".vpr-updates\\b"));
    for (const wchar_t* path :
         {L".vpr-update\\a", L".VPR-Update/a", L".vpr-update/transaction.json", L"", L"..\\a", L"a:b"}) {
        EXPECT_FALSE(IsSafeTransactionTarget(path)) << path;
    }
}

TEST(Paths, TransactionTarget_HasAtMost512Units) {
    EXPECT_TRUE(IsSafeTransactionTarget(std::wstring(512, L'a')));
    EXPECT_FALSE(IsSafeTransactionTarget(std::wstring(513, L'a')));
}

TEST(Paths, Join_TurnsTheRightSideOnly) {
    EXPECT_EQ(JoinPath(L"C:/x", L"a/b"), L"C:/x\\a\\b");
}

TEST(Attributes, LinksAreNeitherFilesNorFolders) {
    EXPECT_TRUE(IsRealDirectory(0x10));
    EXPECT_TRUE(IsRealDirectory(0x12));
    EXPECT_FALSE(IsRealDirectory(0x410));
    EXPECT_FALSE(IsRealDirectory(0x20));
    EXPECT_FALSE(IsRealDirectory(kNoAttributes));
    EXPECT_TRUE(IsPlainFile(0x20));
    EXPECT_TRUE(IsPlainFile(0x80));
    EXPECT_FALSE(IsPlainFile(0x420));
    EXPECT_FALSE(IsPlainFile(0x10));
    EXPECT_FALSE(IsPlainFile(kNoAttributes));
}

}  // namespace
}  // namespace launcher_update
