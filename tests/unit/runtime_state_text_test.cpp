#include "update/packages/runtime_state_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace launcher_update {
namespace {

PackageDescriptor Package(std::wstring id, std::wstring version, std::wstring capability, bool requiredForStartup) {
    PackageDescriptor package;
    package.id = std::move(id);
    package.version = std::move(version);
    package.capability = std::move(capability);
    package.requiredForStartup = requiredForStartup;
    return package;
}

/// The state of packages whose lines are these.
std::string StateWith(const std::string& lines) {
    return "{\n"
           "  \"schemaVersion\": 1,\n"
           "  \"packages\": [\n" +
           lines +
           "  ]\n"
           "}\n";
}

TEST(RuntimeStateText, OnePackage_HasTheFixedForm) {
    EXPECT_EQ(RenderRuntimeState({Package(L"stem-model", L"1.0.0.12", L"separation", true)}),
              "{\n"
              "  \"schemaVersion\": 1,\n"
              "  \"packages\": [\n"
              "    {\"id\": \"stem-model\", \"version\": \"1.0.0.12\", \"path\": \"packs/stem-model/1.0.0.12\", "
              "\"capability\": \"separation\", \"requiredForStartup\": true}\n"
              "  ]\n"
              "}\n");
}

TEST(RuntimeStateText, Commas_StandBetweenPackagesOnly) {
    EXPECT_EQ(RenderRuntimeState({Package(L"a", L"1.0.0.0", L"x", true), Package(L"b", L"2.0.0.0", L"y", false),
                                  Package(L"c", L"3.0.0.0", L"z", true)}),
              StateWith("    {\"id\": \"a\", \"version\": \"1.0.0.0\", \"path\": \"packs/a/1.0.0.0\", "
                        "\"capability\": \"x\", \"requiredForStartup\": true},\n"
                        "    {\"id\": \"b\", \"version\": \"2.0.0.0\", \"path\": \"packs/b/2.0.0.0\", "
                        "\"capability\": \"y\", \"requiredForStartup\": false},\n"
                        "    {\"id\": \"c\", \"version\": \"3.0.0.0\", \"path\": \"packs/c/3.0.0.0\", "
                        "\"capability\": \"z\", \"requiredForStartup\": true}\n"));
}

TEST(RuntimeStateText, NoPackages_GiveAnEmptyList) {
    EXPECT_EQ(RenderRuntimeState({}), StateWith(""));
}

TEST(RuntimeStateText, OrderOfTheList_IsKept) {
    const PackageDescriptor a = Package(L"a", L"1.0.0.0", L"x", true);
    const PackageDescriptor b = Package(L"b", L"1.0.0.0", L"x", true);
    EXPECT_NE(RenderRuntimeState({a, b}), RenderRuntimeState({b, a}));
}

TEST(RuntimeStateText, QuoteAndBackslash_AreEscapedWhereverTheyStand) {
    EXPECT_EQ(RenderRuntimeState({Package(L"a\"b", L"1\\2", L"\\\"", false)}),
              StateWith("    {\"id\": \"a\\\"b\", \"version\": \"1\\\\2\", \"path\": \"packs/a\\\"b/1\\\\2\", "
                        "\"capability\": \"\\\\\\\"\", \"requiredForStartup\": false}\n"));
}

TEST(RuntimeStateText, NothingElse_IsEscaped) {
    EXPECT_EQ(RenderRuntimeState({Package(L"a/b'", L"\t\n\x01\x7F", L"<&>", false)}),
              StateWith("    {\"id\": \"a/b'\", \"version\": \"\t\n\x01\x7F\", \"path\": \"packs/a/b'/\t\n\x01\x7F\", "
                        "\"capability\": \"<&>\", \"requiredForStartup\": false}\n"));
}

TEST(RuntimeStateText, IsUtf8WithoutMark) {
    const std::wstring pair = {wchar_t(0xD83D), wchar_t(0xDE00)};
    EXPECT_EQ(RenderRuntimeState({Package(L"\u65E5", L"\u00E9", pair, true)}),
              StateWith("    {\"id\": \"\xE6\x97\xA5\", \"version\": \"\xC3\xA9\", "
                        "\"path\": \"packs/\xE6\x97\xA5/\xC3\xA9\", "
                        "\"capability\": \"\xF0\x9F\x98\x80\", \"requiredForStartup\": true}\n"));
}

TEST(RuntimeStateText, OtherFieldsOfThePackage_DoNotShow) {
    PackageDescriptor package = Package(L"a", L"1.0.0.0", L"x", true);
    const std::string plain = RenderRuntimeState({package});
    package.url = L"https://x.example/a";
    package.sha256 = L"00";
    package.size = 7;
    package.patch.baseVersion = L"0.9.0.0";
    package.inventory = {{L"f", L"00", 1}};
    EXPECT_EQ(RenderRuntimeState({package}), plain);
}

}  // namespace
}  // namespace launcher_update
