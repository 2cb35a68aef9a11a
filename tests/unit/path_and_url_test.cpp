#include <gtest/gtest.h>

#include <string>

#include "platform/relative_path.h"
#include "platform/url.h"

namespace platform {
namespace {

TEST(RelativePath, SafeOnes) {
    for (const wchar_t* path : {L"a", L"a/b", L"a\\b", L"..a", L"a..", L"a/..b", L"a b/日本", L".a", L"a."}) {
        EXPECT_TRUE(IsSafeRelativePath(path)) << path;
    }
}

TEST(RelativePath, UnsafeOnes) {
    for (const wchar_t* path :
         {L"", L"\\a", L"/a", L"a/", L"a\\", L"a//b", L"a\\/b", L".", L"..", L"a/.", L"a/..", L"../a", L"./a", L"C:\\a",
          L"C:a", L"a:b", L"a/b:stream", L"\\\\server\\share", L"\\\\?\\C:\\a"}) {
        EXPECT_FALSE(IsSafeRelativePath(path)) << path;
    }
}

TEST(RelativePath, NulInside_IsUnsafe) {
    EXPECT_FALSE(IsSafeRelativePath(std::wstring_view(L"a\0b", 3)));
}

TEST(Url, PiecesAreKeptAsWritten) {
    UrlParts parts;
    ASSERT_TRUE(SplitUrl(L"HTTPS://user:pw@Host.example:8443/a%20b/c?d=e#f", parts));
    EXPECT_TRUE(parts.https);
    EXPECT_EQ(parts.userName, L"user");
    EXPECT_EQ(parts.password, L"pw");
    EXPECT_EQ(parts.host, L"Host.example");
    EXPECT_EQ(parts.port, 8443);
    EXPECT_EQ(parts.path, L"/a%20b/c");
    EXPECT_EQ(parts.extra, L"?d=e#f");
}

TEST(Url, DefaultPortsAndEmptyPaths) {
    UrlParts parts;
    ASSERT_TRUE(SplitUrl(L"https://h", parts));
    EXPECT_EQ(parts.port, 443);
    EXPECT_EQ(parts.path, L"");
    ASSERT_TRUE(SplitUrl(L"http://h?x", parts));
    EXPECT_FALSE(parts.https);
    EXPECT_EQ(parts.port, 80);
    EXPECT_EQ(parts.path, L"");
    EXPECT_EQ(parts.extra, L"?x");
    ASSERT_TRUE(SplitUrl(L"https://[::1]:444/x", parts));
    EXPECT_EQ(parts.host, L"[::1]");
    EXPECT_EQ(parts.port, 444);
}

TEST(Url, RefusedOnes) {
    UrlParts parts;
    for (const wchar_t* url : {L"",
                               L"https:",
                               L"https:/h/x",
                               L"https:///x",
                               L"ftp://h/x",
                               L"file:///c:/x",
                               L"//h/x",
                               L"h/x",
                               L" https://h/x",
                               L"https://:443/x",
                               L"https://h:0/x",
                               L"https://h:65536/x",
                               L"https://h:/x",
                               L"https://h:12a/x",
                               L"https://h:999999/x",
                               L"https://a b/x",
                               L"https://a\\b/x",
                               L"https://a\r\nb/x",
                               L"https://user@/x",
                               L"https://evil\\@h/x"}) {
        EXPECT_FALSE(SplitUrl(url, parts)) << url;
    }
}

}  // namespace
}  // namespace platform
