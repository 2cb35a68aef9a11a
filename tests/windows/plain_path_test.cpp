#include "update/files/plain_path.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"

namespace launcher_update {
namespace {

using test_support::ForcedAttributes;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;

using OnAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;

/// `top`, `a\one`, `a\two`, `a\b\deep` and `ab\one` below a folder.
class PlainPath : public testing::Test {
  protected:
    PlainPath() {
        test_support::WritePackageTree(
            folder.Path(), {{L"top", ""}, {L"a/one", ""}, {L"a/two", ""}, {L"a/b/deep", ""}, {L"ab/one", ""}});
    }

    bool Reaches(std::wstring_view relative) {
        std::wstring path;
        return PlainPathWalk(folder.Path()).Reach(relative, path);
    }

    TemporaryDirectory folder;
};

TEST_F(PlainPath, LeadsToPlainFilesBehindRealFolders) {
    PlainPathWalk walk(folder.Path());
    for (const wchar_t* relative : {L"top", L"a\\one", L"a/two", L"a\\b/deep", L"a\\one", L"top", L"ab\\one"}) {
        std::wstring path;
        EXPECT_TRUE(walk.Reach(relative, path)) << platform::EncodeUtf8(relative);
        EXPECT_EQ(path, folder.Path() + L"\\" + platform::WithBackslashes(relative));
    }
}

TEST_F(PlainPath, EndsAtNothingElse) {
    PlainPathWalk walk(folder.Path());
    std::wstring path;
    for (const wchar_t* relative :
         {L"a\\missing", L"missing", L"missing\\one", L"a", L"a\\b", L"top\\one", L"a\\one\\x"}) {
        EXPECT_FALSE(walk.Reach(relative, path)) << platform::EncodeUtf8(relative);
        EXPECT_TRUE(walk.Reach(L"a\\one", path)) << "after " << platform::EncodeUtf8(relative);
    }
}

TEST_F(PlainPath, LinkAnywhereOnTheWay_IsRefused) {
    for (const wchar_t* link : {L"\\a", L"\\b", L"\\deep"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(Reaches(L"a\\b\\deep")) << platform::EncodeUtf8(link);
    }
    EXPECT_TRUE(Reaches(L"a\\b\\deep"));
}

TEST_F(PlainPath, WhatCannotBeLookedAt_IsRefused) {
    for (const wchar_t* unreadable : {L"\\a", L"\\b", L"\\deep"}) {
        const UnreadableAttributes refused(unreadable, ERROR_ACCESS_DENIED);
        EXPECT_FALSE(Reaches(L"a\\b\\deep")) << platform::EncodeUtf8(unreadable);
    }
}

/// Who opens the file judges it by its handle.
TEST_F(PlainPath, EnteringLooksAtFoldersAlone) {
    PlainPathWalk walk(folder.Path());
    std::wstring path;
    for (const wchar_t* relative : {L"a\\b\\deep", L"a\\missing", L"a\\b", L"top"}) {
        EXPECT_TRUE(walk.Enter(relative, path)) << platform::EncodeUtf8(relative);
        EXPECT_EQ(path, folder.Path() + L"\\" + relative);
    }
    EXPECT_FALSE(walk.Enter(L"top\\one", path));
    EXPECT_FALSE(walk.Enter(L"missing\\one", path));
    const ForcedAttributes linked(L"\\b", FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_FALSE(PlainPathWalk(folder.Path()).Enter(L"a\\b\\deep", path));
}

TEST_F(PlainPath, RefusedFolder_IsRefusedForEveryFileInIt) {
    const ForcedAttributes linked(L"\\a", FILE_ATTRIBUTE_REPARSE_POINT);
    PlainPathWalk walk(folder.Path());
    std::wstring path;
    EXPECT_TRUE(walk.Reach(L"ab\\one", path));
    EXPECT_FALSE(walk.Reach(L"a\\one", path));
    EXPECT_FALSE(walk.Reach(L"a\\two", path));
    EXPECT_FALSE(walk.Reach(L"a\\b\\deep", path));
    EXPECT_FALSE(walk.Reach(L"a\\b\\deep", path));
    EXPECT_TRUE(walk.Reach(L"ab\\one", path));
}

/// What is known of one folder says nothing of its neighbours and of what lies in it.
TEST_F(PlainPath, FolderBesideOrBelowAKnownOne_IsLookedAt) {
    struct Row {
        const wchar_t* link;
        const wchar_t* relative;
    };
    for (const Row& row : {Row{L"\\ab", L"ab\\one"}, Row{L"\\b", L"a\\b\\deep"}}) {
        const ForcedAttributes linked(row.link, FILE_ATTRIBUTE_REPARSE_POINT);
        PlainPathWalk walk(folder.Path());
        std::wstring path;
        EXPECT_TRUE(walk.Reach(L"top", path));
        EXPECT_TRUE(walk.Reach(L"a\\one", path));
        EXPECT_FALSE(walk.Reach(row.relative, path)) << platform::EncodeUtf8(row.relative);
    }
}

TEST_F(PlainPath, FolderItself_IsTrusted) {
    const ForcedAttributes linked(folder.Path().substr(folder.Path().rfind(L'\\')), FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_TRUE(Reaches(L"a\\one"));
}

TEST_F(PlainPath, RealFolder_IsAskedOnceForNeighbours) {
    std::vector<std::wstring> asked;
    const OnAttributes attributes([&](LPCWSTR path) {
        asked.emplace_back(path);
        return OnAttributes::Original(path);
    });
    PlainPathWalk walk(folder.Path());
    std::wstring path;
    EXPECT_TRUE(walk.Reach(L"a\\one", path));
    EXPECT_TRUE(walk.Reach(L"a\\two", path));
    const std::wstring base = L"\\\\?\\" + folder.Path();
    EXPECT_EQ(asked, (std::vector<std::wstring>{base + L"\\a", base + L"\\a\\one", base + L"\\a\\two"}));
}

}  // namespace
}  // namespace launcher_update
