#include "update/workflow/runtime_support_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/packages/support_files.h"

namespace launcher_update {
namespace {

using test_support::DescribePackage;
using test_support::FaultKind;
using test_support::FileLength;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::ReadPackageTree;
using test_support::ReadWholeFile;
using test_support::TemporaryDirectory;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

/// Written down a second time: what ships next to the application must not change by accident.
constexpr const wchar_t* kSupportFiles[] = {
    L"VPRAsioBridge.exe",
    L"VPRAsioProbe.exe",
    L"VPRAudioDeviceScanner.exe",
    L"VPRPluginScanHelper.exe",
    L"Licenses/Apache-2.0.txt",
    L"Licenses/Aromanize-MIT.txt",
    L"Licenses/Bodoni-Moda-OFL-1.1.txt",
    L"Licenses/Core-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/CPython-3.13.15-LICENSE.txt",
    L"Licenses/CPython-3.13.9-LICENSE.txt",
    L"Licenses/Distribution-Components-NOTICE.txt",
    L"Licenses/Expat-2.7.3-COPYING.txt",
    L"Licenses/Expat-2.8.2-COPYING.txt",
    L"Licenses/FFmpeg-Application-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/FFmpeg-LGPL-2.1.txt",
    L"Licenses/FFmpeg-LGPL-3.0.txt",
    L"Licenses/FFmpeg-N-121567-Build-Information.txt",
    L"Licenses/FFmpeg-Qt-7.1.1-SPDX.json",
    L"Licenses/FFmpeg-Source-Manifest.json",
    L"Licenses/GPL-3.0.txt",
    L"Licenses/HP-DirectML-1.15.4-CODE-MIT.txt",
    L"Licenses/HP-DirectML-1.15.4-LICENSE.txt",
    L"Licenses/HP-DirectML-1.15.4-ThirdPartyNotices.txt",
    L"Licenses/HP-mpdecimal-4.0.0-COPYRIGHT.txt",
    L"Licenses/HP-PyInstaller-6.21.0-COPYING.txt",
    L"Licenses/HP-XZ-5.2.5-COPYING.txt",
    L"Licenses/HP-zlib-1.3.1-LICENSE.txt",
    L"Licenses/Japanese-Reading-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/Kuromoji-Apache-2.0.txt",
    L"Licenses/Kuromoji-NOTICE.txt",
    L"Licenses/Kuroshiro-analyzer-kuromoji-MIT.txt",
    L"Licenses/Kuroshiro-MIT.txt",
    L"Licenses/LGPL-Relink-Kit-NOTICE.txt",
    L"Licenses/LGPL-Relink-Source-Manifest.json",
    L"Licenses/libsamplerate-0.2.2-COPYING.txt",
    L"Licenses/LXGW-WenKai-TC-OFL-1.1.txt",
    L"Licenses/Microsoft-DirectML-1.15.2-LICENSE.txt",
    L"Licenses/Microsoft-DirectML-MIT.txt",
    L"Licenses/Microsoft-DirectML-ThirdPartyNotices.txt",
    L"Licenses/Microsoft-Windows-SDK-10.0.22621.0-License.rtf",
    L"Licenses/mpdecimal-4.0.0-COPYRIGHT.txt",
    L"Licenses/Noto-CJK-OFL-1.1.txt",
    L"Licenses/Noto-Serif-TC-OFL-1.1.txt",
    L"Licenses/NumPy-2.2.6-LICENSE.txt",
    L"Licenses/ONNX-Runtime-MIT.txt",
    L"Licenses/ONNX-Runtime-ThirdPartyNotices-1.24.4.txt",
    L"Licenses/ONNX-Runtime-ThirdPartyNotices-1.27.1.txt",
    L"Licenses/OpenCC-Apache-2.0.txt",
    L"Licenses/OpenCC-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/OpenSSL-3.0.18-LICENSE.txt",
    L"Licenses/OpenSSL-3.0.21-LICENSE.txt",
    L"Licenses/pybind11-3.0.1-LICENSE.txt",
    L"Licenses/PyInstaller-6.21.0-COPYING.txt",
    L"Licenses/Qt-6.9.2-Mesa-llvmpipe.html",
    L"Licenses/Qt-6.9.2-NOTICE.txt",
    L"Licenses/Qt-6.9.2-Open-Source-Licenses.txt",
    L"Licenses/Qt-6.9.2-SBOM/qtbase-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtdeclarative-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtmultimedia-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtpositioning-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtserialport-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtsvg-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qttranslations-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebchannel-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebengine-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebengine-chromium-pdf-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebengine-chromium-webengine-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebsockets-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-Source-Manifest.json",
    L"Licenses/Qt-GPL-Exception-1.0.txt",
    L"Licenses/samplerate-0.2.3-LICENSE.txt",
    L"Licenses/SciPy-1.15.3-LICENSE.txt",
    L"Licenses/Sherpa-ONNX-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/Signalsmith-Linear-MIT.txt",
    L"Licenses/Signalsmith-Stretch-MIT.txt",
    L"Licenses/SoundTouch-2.4.0-VPR.patch",
    L"Licenses/SoundTouch-LGPL-2.1.txt",
    L"Licenses/Steinberg-ASIO-SDK-GPL-or-Proprietary.txt",
    L"Licenses/Steinberg-VST3-SDK-MIT.txt",
    L"Licenses/TagLib-LGPL-2.1.txt",
    L"Licenses/TagLib-MPL-1.1.txt",
    L"Licenses/THIRD_PARTY_NOTICES.txt",
    L"Licenses/Ultimate-Vocal-Remover-MIT.txt",
    L"Licenses/UVR-HP-Models-NOTICE.txt",
    L"Licenses/UVR-HP-Runtime-Inventory.json",
    L"Licenses/UVR-HP-Runtime-NOTICE.txt",
    L"Licenses/UVR-MDX-Models-NOTICE.txt",
    L"Licenses/XZ-5.2.5-COPYING.txt",
    L"Licenses/yt-dlp-2026.7.4-Unlicense.txt",
    L"Licenses/YtDlp-Helper-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/YtDlp-Helper-Runtime-Inventory.json",
    L"Licenses/zlib-1.3.1-LICENSE.txt",
};
static_assert(std::size(kSupportFiles) == 92);

TEST(SupportFileList, HasFourProgramsAnd88NoticesInOrder) {
    const auto list = ApplicationRuntimeSupportFiles();
    ASSERT_EQ(list.size(), 92u);
    for (std::size_t at = 0; at < 92; ++at) {
        EXPECT_EQ(list[at], kSupportFiles[at]);
        EXPECT_EQ(list[at].starts_with(L"Licenses/"), at >= 4);
    }
}

TEST(SupportFileList, IsAskedIgnoringCaseAndByTheWholePath) {
    for (const wchar_t* path : kSupportFiles) {
        EXPECT_TRUE(IsApplicationRuntimeSupportFile(path));
        std::wstring other = path;
        EXPECT_FALSE(IsApplicationRuntimeSupportFile(other + L"x"));
        EXPECT_FALSE(IsApplicationRuntimeSupportFile(L"x" + other));
        EXPECT_FALSE(IsApplicationRuntimeSupportFile(other.substr(1)));
        std::transform(other.begin(), other.end(), other.begin(), [](wchar_t unit) {
            return unit >= L'a' && unit <= L'z' ? static_cast<wchar_t>(unit - 32) : unit;
        });
        EXPECT_TRUE(IsApplicationRuntimeSupportFile(other));
    }
    for (const wchar_t* path :
         {L"", L"Licenses", L"Licenses/", L"Apache-2.0.txt", L"Licenses\\Apache-2.0.txt", L"lib/VPRAsioProbe.exe"}) {
        EXPECT_FALSE(IsApplicationRuntimeSupportFile(path)) << platform::EncodeUtf8(path);
    }
}

/// A version of the package with three support files and one other, installed but not yet copied out.
class SupportFiles : public testing::Test {
  protected:
    SupportFiles() { WritePackageTree(VersionFolder(), content); }

    std::wstring Application() const { return root / L"app"; }
    std::wstring Runtime() const { return Application() + L"\\Runtime"; }
    std::wstring VersionFolder() const { return Runtime() + L"\\packs\\application-runtime\\1.1.0.0"; }
    std::wstring Backup() const { return root / L".vpr-update\\backup-1"; }

    void CopyOut(const PackageContent& files) { WritePackageTree(Application(), files); }
    /// An older file in place, with the backup that the journal made.
    void InstallOld(const std::wstring& path) {
        WritePackageTree(Application(), {{path, "old " + platform::EncodeUtf8(path)}});
        WritePackageTree(Backup() + L"\\app", {{path, "old " + platform::EncodeUtf8(path)}});
    }

    bool Match(const FileProgress& progress = {}) const {
        return ApplicationRuntimeSupportFilesMatch(root.Path(), L"app", packages, progress);
    }
    bool Install() {
        counts.clear();
        error.clear();
        return InstallApplicationRuntimeSupportFiles(root.Path(), L"app", Runtime(), Backup(), packages, applied, error,
                                                     [this](std::uint64_t count) {
                                                         counts.push_back(count);
                                                         if (onApplied) onApplied();
                                                     });
    }
    /// What stands next to the application.
    PackageContent CopiedOut() const {
        PackageContent tree = ReadPackageTree(Application());
        std::erase_if(tree, [](const auto& file) { return file.first.starts_with(L"Runtime/"); });
        return tree;
    }

    TemporaryDirectory root;
    PackageContent content{{L"VPRAsioProbe.exe", "new probe"},
                           {L"Licenses/GPL-3.0.txt", "new licence"},
                           {L"Licenses/Qt-6.9.2-SBOM/qtsvg-6.9.2.spdx.json", "new bill"},
                           {L"lib/core.dll", "core"}};
    const PackageContent supportFiles{{L"VPRAsioProbe.exe", "new probe"},
                                      {L"Licenses/GPL-3.0.txt", "new licence"},
                                      {L"Licenses/Qt-6.9.2-SBOM/qtsvg-6.9.2.spdx.json", "new bill"}};
    std::vector<PackageDescriptor> packages{DescribePackage(L"application-runtime", L"1.1.0.0", content)};
    std::vector<AppliedFile> applied;
    std::vector<std::uint64_t> counts;
    std::function<void()> onApplied;
    std::wstring error;
};

using SupportFilesInPlace = SupportFiles;
using SupportFilesInstallation = SupportFiles;

TEST_F(SupportFilesInPlace, MatchWhenEveryOneStands) {
    EXPECT_FALSE(Match());
    CopyOut(supportFiles);
    EXPECT_TRUE(Match()) << "what is not on the list is not asked for";
}

TEST_F(SupportFilesInPlace, MatchWithoutTheirPackage) {
    packages.clear();
    EXPECT_TRUE(Match());
    packages = {DescribePackage(L"uvr-mdx", L"1.0.0.0", content)};
    EXPECT_TRUE(Match()) << "a support file's name in another package is just a name";
}

TEST_F(SupportFilesInPlace, DoNotMatchWithOneMissingOrOther) {
    for (const auto& [path, bytes] : supportFiles) {
        CopyOut(supportFiles);
        const std::wstring file = Application() + L"\\" + platform::WithBackslashes(path);
        std::string other = bytes;
        other[0] ^= 1;
        for (const std::string& instead : {other, bytes + "x", std::string()}) {
            WriteWholeFile(file, instead);
            EXPECT_FALSE(Match()) << platform::EncodeUtf8(path) << ": " << instead;
        }
        ASSERT_TRUE(DeleteFileW(file.c_str()));
        EXPECT_FALSE(Match()) << platform::EncodeUtf8(path);
    }
}

TEST_F(SupportFilesInPlace, AreFoundBehindAnyPackageInTheList) {
    packages.insert(packages.begin(), DescribePackage(L"uvr-mdx", L"1.0.0.0", {{L"a", "a"}}));
    EXPECT_FALSE(Match());
    CopyOut(supportFiles);
    EXPECT_TRUE(Match());
}

TEST_F(SupportFilesInPlace, TellWhatIsReadInInventoryOrder) {
    CopyOut(supportFiles);
    std::vector<std::pair<std::wstring, std::uint64_t>> told;
    EXPECT_TRUE(
        Match([&](const PackageFileDescriptor& file, std::uint64_t bytes) { told.emplace_back(file.path, bytes); }));
    EXPECT_EQ(told,
              (std::vector<std::pair<std::wstring, std::uint64_t>>{{L"Licenses/GPL-3.0.txt", 0},
                                                                   {L"Licenses/GPL-3.0.txt", 11},
                                                                   {L"Licenses/Qt-6.9.2-SBOM/qtsvg-6.9.2.spdx.json", 0},
                                                                   {L"Licenses/Qt-6.9.2-SBOM/qtsvg-6.9.2.spdx.json", 8},
                                                                   {L"VPRAsioProbe.exe", 0},
                                                                   {L"VPRAsioProbe.exe", 9}}));
}

TEST_F(SupportFilesInPlace, EndAtTheFirstMismatch) {
    CopyOut(supportFiles);
    WriteWholeFile(Application() + L"\\Licenses\\GPL-3.0.txt", "wen licence");
    std::vector<std::wstring> told;
    EXPECT_FALSE(Match([&](const PackageFileDescriptor& file, std::uint64_t) { told.push_back(file.path); }));
    EXPECT_EQ(told, (std::vector<std::wstring>{L"Licenses/GPL-3.0.txt", L"Licenses/GPL-3.0.txt"}));
}

TEST_F(SupportFilesInstallation, CopiesTheListedFilesAndNothingElse) {
    ASSERT_TRUE(Install()) << platform::EncodeUtf8(error);
    EXPECT_EQ(CopiedOut(), supportFiles);
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{1, 2, 3}));
    EXPECT_TRUE(Match());
}

TEST_F(SupportFilesInstallation, RecordsWhatItDidInInventoryOrder) {
    std::reverse(packages[0].inventory.begin(), packages[0].inventory.end());
    InstallOld(L"Licenses/GPL-3.0.txt");
    applied = {{L"one", L"before", true}};
    ASSERT_TRUE(Install()) << platform::EncodeUtf8(error);
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{2, 3, 4})) << "behind what was replaced before";
    ASSERT_EQ(applied.size(), 4u);
    struct Row {
        const wchar_t* path;
        bool existed;
    };
    const Row rows[] = {{L"\\VPRAsioProbe.exe", false},
                        {L"\\Licenses\\Qt-6.9.2-SBOM\\qtsvg-6.9.2.spdx.json", false},
                        {L"\\Licenses\\GPL-3.0.txt", true}};
    for (std::size_t at = 0; at < 3; ++at) {
        EXPECT_EQ(applied[at + 1].targetPath, Application() + rows[at].path);
        EXPECT_EQ(applied[at + 1].backupPath, Backup() + L"\\app" + rows[at].path);
        EXPECT_EQ(applied[at + 1].existed, rows[at].existed);
    }
}

TEST_F(SupportFilesInstallation, WithoutTheirPackage_DoesNothing) {
    WriteWholeFile(VersionFolder() + L"\\stray", "x");  // would be refused if it were looked at
    for (const auto& others : {std::vector<PackageDescriptor>{},
                               std::vector<PackageDescriptor>{DescribePackage(L"uvr-mdx", L"1.1.0.0", content)}}) {
        packages = others;
        MutationFaults faults;
        EXPECT_TRUE(Install());
        EXPECT_EQ(faults.Count(), 0u);
    }
    EXPECT_TRUE(applied.empty());
}

TEST_F(SupportFilesInstallation, FileThatIsRightAlready_IsNeitherCopiedNorCounted) {
    CopyOut({{L"Licenses/GPL-3.0.txt", "new licence"}});
    ASSERT_TRUE(Install()) << "it needs no backup either: " << platform::EncodeUtf8(error);
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(CopiedOut(), supportFiles);
}

TEST_F(SupportFilesInstallation, SecondTime_ReplacesNothing) {
    ASSERT_TRUE(Install());
    applied.clear();
    MutationFaults faults;
    EXPECT_TRUE(Install());
    EXPECT_EQ(faults.Count(), 0u);
    EXPECT_TRUE(counts.empty());
    EXPECT_TRUE(applied.empty());
}

TEST_F(SupportFilesInstallation, ReplacesAnOlderFileThroughASiblingThatIsForcedOut) {
    InstallOld(L"VPRAsioProbe.exe");
    const std::wstring target = Application() + L"\\VPRAsioProbe.exe";
    WriteWholeFile(target + L".update-new", "stale, and longer than what is copied");
    MutationFaults faults;
    ASSERT_TRUE(Install()) << platform::EncodeUtf8(error);
    EXPECT_EQ(ReadWholeFile(target), "new probe");
    EXPECT_EQ(FileLength(target + L".update-new"), -1);
    std::vector<std::string> order;
    for (const auto& call : faults.Calls()) {
        const std::wstring sibling = L"\\\\?\\" + target + L".update-new";
        if (call.path == sibling || call.second == sibling) order.push_back(call.function);
    }
    EXPECT_EQ(order,
              (std::vector<std::string>{"DeleteFileW", "CopyFileW", "CreateFileW", "FlushFileBuffers", "MoveFileExW"}));
}

TEST_F(SupportFilesInstallation, RenamesOverTheTargetWithWriteThrough) {
    InstallOld(L"VPRAsioProbe.exe");
    std::vector<DWORD> flags;
    using OnMove = test_support::StandIn<"MoveFileExW", decltype(MoveFileExW)>;
    const OnMove move([&](LPCWSTR from, LPCWSTR to, DWORD how) {
        flags.push_back(how);
        return OnMove::Original(from, to, how);
    });
    ASSERT_TRUE(Install()) << platform::EncodeUtf8(error);
    EXPECT_EQ(flags, (std::vector<DWORD>{9, 9, 9}));
}

TEST_F(SupportFilesInstallation, PackageThatIsNotValid_StopsAll) {
    WriteWholeFile(VersionFolder() + L"\\lib\\core.dll", "eroc");
    EXPECT_FALSE(Install());
    EXPECT_EQ(error, L"應用程式支援資源包在安裝前驗證失敗：資源包落地內容驗證失敗：lib/core.dll");
    ASSERT_TRUE(RemoveTree(VersionFolder()));
    EXPECT_FALSE(Install());
    EXPECT_EQ(error, L"應用程式支援資源包在安裝前驗證失敗：資源包版本資料夾不存在或不安全。");
    EXPECT_TRUE(CopiedOut().empty());
    EXPECT_TRUE(applied.empty());
}

TEST_F(SupportFilesInstallation, SourceThatChangedSinceItsValidation_IsNotCopied) {
    onApplied = [this] { WriteWholeFile(VersionFolder() + L"\\VPRAsioProbe.exe", "new evil!"); };
    EXPECT_FALSE(Install());
    EXPECT_EQ(error, L"應用程式支援檔案在替換前驗證失敗：VPRAsioProbe.exe");
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(FileLength(Application() + L"\\VPRAsioProbe.exe"), -1);
}

TEST_F(SupportFilesInstallation, SourceIsJudgedEvenIfTheTargetIsRight) {
    CopyOut({{L"VPRAsioProbe.exe", "new probe"}});
    onApplied = [this] { WriteWholeFile(VersionFolder() + L"\\VPRAsioProbe.exe", "new evil!"); };
    EXPECT_FALSE(Install());
    EXPECT_EQ(error, L"應用程式支援檔案在替換前驗證失敗：VPRAsioProbe.exe");
}

TEST_F(SupportFilesInstallation, FolderThatCannotBeMade_IsItsOwnMessage) {
    WriteWholeFile(Application() + L"\\Licenses", "a file in its place");
    EXPECT_FALSE(Install());
    EXPECT_EQ(error, L"無法建立應用程式支援檔案的目標資料夾。");
    EXPECT_TRUE(applied.empty());
}

TEST_F(SupportFilesInstallation, WithoutAPlainBackup_ReplacesNothing) {
    const std::wstring target = Application() + L"\\Licenses\\GPL-3.0.txt";
    const std::wstring backup = Backup() + L"\\app\\Licenses\\GPL-3.0.txt";
    InstallOld(L"Licenses/GPL-3.0.txt");
    const auto refused = [&](const char* why) {
        EXPECT_FALSE(Install()) << why;
        EXPECT_EQ(error, L"應用程式支援檔案的交易備份遺失。") << why;
        EXPECT_EQ(ReadWholeFile(target), "old Licenses/GPL-3.0.txt") << why;
        EXPECT_EQ(FileLength(target + L".update-new"), -1) << why;
    };
    {
        const ForcedAttributes linked(L"\\backup-1\\app\\Licenses\\GPL-3.0.txt", FILE_ATTRIBUTE_REPARSE_POINT);
        refused("a link");
    }
    ASSERT_TRUE(DeleteFileW(backup.c_str()));
    refused("missing");
    ASSERT_TRUE(EnsureDirectory(backup));
    refused("a folder");
    EXPECT_TRUE(applied.empty());
}

TEST_F(SupportFilesInstallation, EachFailingStep_HasItsMessageAndCode) {
    struct Row {
        const char* function;
        const wchar_t* path;
        const wchar_t* message;
    };
    for (const Row& row :
         {Row{"CopyFileW", L"\\Licenses\\GPL-3.0.txt", L"無法複製應用程式支援檔案："},
          Row{"CreateFileW", L"\\Licenses\\GPL-3.0.txt.update-new", L"無法同步應用程式支援檔案："},
          Row{"FlushFileBuffers", L"\\Licenses\\GPL-3.0.txt.update-new", L"無法同步應用程式支援檔案："},
          Row{"MoveFileExW", L"\\Licenses\\GPL-3.0.txt.update-new", L"無法提交應用程式支援檔案："}}) {
        for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
            InstallOld(L"Licenses/GPL-3.0.txt");
            const std::wstring target = Application() + L"\\Licenses\\GPL-3.0.txt";
            MutationFaults faults(kind, 1, ERROR_DISK_FULL);
            faults.CountOnly(row.function, row.path);
            EXPECT_FALSE(Install()) << row.function;
            EXPECT_TRUE(faults.Reached()) << row.function;
            EXPECT_EQ(error, std::wstring(row.message) + L"Licenses/GPL-3.0.txt（Windows 錯誤 112）") << row.function;
            EXPECT_EQ(ReadWholeFile(target), "old Licenses/GPL-3.0.txt") << row.function;
            EXPECT_EQ(FileLength(target + L".update-new"), -1) << row.function;
            EXPECT_TRUE(applied.empty()) << row.function;
            EXPECT_TRUE(counts.empty()) << row.function;
        }
    }
}

TEST_F(SupportFilesInstallation, StopsAtTheFirstFailureAndLeavesWhatItDid) {
    MutationFaults faults(FaultKind::fail, 1, ERROR_SHARING_VIOLATION);
    faults.CountOnly("MoveFileExW", L"qtsvg-6.9.2.spdx.json.update-new");
    EXPECT_FALSE(Install());
    EXPECT_EQ(error, L"無法提交應用程式支援檔案：Licenses/Qt-6.9.2-SBOM/qtsvg-6.9.2.spdx.json（Windows 錯誤 32）");
    EXPECT_EQ(CopiedOut(), (PackageContent{{L"Licenses/GPL-3.0.txt", "new licence"}}));
    EXPECT_EQ(applied.size(), 1u);
}

TEST_F(SupportFilesInstallation, NeedsNobodyWhoCounts) {
    EXPECT_TRUE(
        InstallApplicationRuntimeSupportFiles(root.Path(), L"app", Runtime(), Backup(), packages, applied, error, {}));
    EXPECT_EQ(applied.size(), 3u);
}

}  // namespace
}  // namespace launcher_update
