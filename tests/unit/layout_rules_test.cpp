#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/text.h"
#include "update/installed/layout.h"

namespace launcher_update {
namespace {

PackageDescriptor Package(const std::wstring& id, const std::wstring& capability) {
    PackageDescriptor package;
    package.id = id;
    package.capability = capability;
    return package;
}

TEST(InstalledLayoutValues, HaveTheirNumbersAndTexts) {
    struct Row {
        InstalledLayout layout;
        std::uint32_t number;
        std::wstring_view text;
    };
    for (const Row& row : {Row{InstalledLayout::files, 0, L"files"}, Row{InstalledLayout::activated, 1, L"activated"},
                           Row{InstalledLayout::portable, 2, L"portable"}}) {
        EXPECT_EQ(static_cast<std::uint32_t>(row.layout), row.number);
        EXPECT_EQ(LayoutText(row.layout), row.text);
        EXPECT_EQ(ParseLayoutText(row.text), row.layout);
    }
}

TEST(InstalledLayoutValues, NoOtherTextIsALayout) {
    for (const std::wstring_view text : {L"", L"Files", L"file", L"files ", L" files", L"files\n", L"ACTIVATED",
                                         L"activate", L"portable1", L"0", L"filesactivated"}) {
        EXPECT_FALSE(ParseLayoutText(text)) << platform::EncodeUtf8(text);
    }
}

TEST(PortableHomes, AreOfThreePackages) {
    struct Row {
        const wchar_t* package;
        std::wstring_view home;
        const wchar_t* folder;
    };
    for (const Row& row :
         {Row{L"application-runtime", L"", L"C:\\tree\\app"}, Row{L"uvr-mdx", L"uvr-mdx", L"C:\\tree\\app\\uvr-mdx"},
          Row{L"uvr-hp-models", L"uvr-hp-models", L"C:\\tree\\app\\uvr-hp-models"}}) {
        const PackageDescriptor package = Package(row.package, row.package);
        EXPECT_EQ(PortableHome(package), row.home);
        EXPECT_EQ(PortableHomeFolder(L"C:\\tree\\app", package), row.folder);
    }
}

TEST(PortableHomes, NeedIdAndCapabilityToBeTheSameName) {
    struct Row {
        const wchar_t* id;
        const wchar_t* capability;
    };
    for (const Row& row : {Row{L"core", L"core"}, Row{L"uvr-mdx", L"separation"}, Row{L"separation", L"uvr-mdx"},
                           Row{L"uvr-mdx", L"uvr-hp-models"}, Row{L"uvr-mdx", L"UVR-MDX"}, Row{L"Uvr-mdx", L"Uvr-mdx"},
                           Row{L"application-runtime", L""}, Row{L"application-runtime", L"runtime"}, Row{L"", L""}}) {
        const PackageDescriptor package = Package(row.id, row.capability);
        EXPECT_FALSE(PortableHome(package)) << platform::EncodeUtf8(row.id);
        EXPECT_FALSE(PortableHomeFolder(L"C:\\tree\\app", package)) << platform::EncodeUtf8(row.id);
    }
}

TEST(ApplicationFolders, AreBelowTheRoot) {
    Settings settings;
    settings.applicationDirectory = L"Velmora Pine Relay";
    EXPECT_EQ(ApplicationRoot(L"C:\\tree", settings), L"C:\\tree\\Velmora Pine Relay");
    EXPECT_EQ(RuntimeFolder(L"C:\\tree\\Velmora Pine Relay"), L"C:\\tree\\Velmora Pine Relay\\Runtime");
}

}  // namespace
}  // namespace launcher_update
