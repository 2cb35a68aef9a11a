#include "update/workflow/totals.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace launcher_update {
namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

TEST(Sums, MayFill64BitsAndNoMore) {
    std::uint64_t sum = 7;
    EXPECT_TRUE(AddWithoutOverflow(kMost - 5, 5, sum));
    EXPECT_EQ(sum, kMost);
    EXPECT_TRUE(AddWithoutOverflow(kMost, 0, sum));
    EXPECT_TRUE(AddWithoutOverflow(0, kMost, sum));
    EXPECT_EQ(sum, kMost);
    EXPECT_TRUE(AddWithoutOverflow(2, 3, sum));
    EXPECT_EQ(sum, 5u);
    for (const std::uint64_t more : {std::uint64_t{1}, kMost}) {
        EXPECT_FALSE(AddWithoutOverflow(kMost, more, sum));
        EXPECT_FALSE(AddWithoutOverflow(more, kMost, sum));
    }
    EXPECT_FALSE(AddWithoutOverflow(kMost - 5, 6, sum));
    EXPECT_EQ(sum, 5u);
}

/// Files of 1 and 2 bytes; packages with 10, 20 (a support file) and 100 (one by name, in another package) bytes.
UpdateManifest Release() {
    UpdateManifest manifest;
    manifest.files = {{L"", L"a", L"", L"", 1}, {L"", L"b", L"", L"", 2}};
    PackageDescriptor runtime;
    runtime.id = L"application-runtime";
    runtime.size = 5000;
    runtime.inventory = {{L"core.dll", L"", 10}, {L"licenses/gpl-3.0.TXT", L"", 20}};
    runtime.patch.files = {{L"core.dll", L"", 10}};
    PackageDescriptor models;
    models.id = L"uvr-mdx";
    models.inventory = {{L"VPRAsioProbe.exe", L"", 100}};
    manifest.packages = {runtime, models};
    return manifest;
}

TEST(BytesToHash, AreAllFilesAndAllInventories) {
    EXPECT_EQ(BytesToHash(Release(), false), 133u);
    EXPECT_EQ(BytesToHash({}, false), 0u);
}

TEST(BytesToHash, CountSupportFilesOfTheirPackageTwiceWhenAsked) {
    EXPECT_EQ(BytesToHash(Release(), true), 153u);
}

TEST(BytesToHash, ThatDoNotFit_AreAllOnes) {
    UpdateManifest manifest = Release();
    manifest.files[0].size = kMost - 132;
    EXPECT_EQ(BytesToHash(manifest, false), kMost) << "still exact";
    EXPECT_EQ(BytesToHash(manifest, true), kMost);
    manifest.files[0].size = kMost - 133;
    EXPECT_EQ(BytesToHash(manifest, false), kMost - 1);
    manifest.files[0].size = kMost - 152;
    EXPECT_EQ(BytesToHash(manifest, false), kMost - 20);
    manifest.files[0].size = kMost;
    EXPECT_EQ(BytesToHash(manifest, false), kMost);
    manifest.files = {{L"", L"a", L"", L"", kMost}, {L"", L"b", L"", L"", 5}, {L"", L"c", L"", L"", 6}};
    EXPECT_EQ(BytesToHash(manifest, false), kMost) << "a sum that went round must not count";
    manifest.files = {{L"", L"a", L"", L"", 10}, {L"", L"b", L"", L"", kMost}, {L"", L"c", L"", L"", 1}};
    EXPECT_EQ(BytesToHash(manifest, false), kMost) << "what fits behind it makes nothing good";
}

}  // namespace
}  // namespace launcher_update
