#include "update/installed/verified_inventory.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/stage_report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/trees.h"
#include "update/packages/runtime_state.h"

namespace launcher_update {
namespace {

using test_support::DescribePackage;
using test_support::FaultKind;
using test_support::FileLength;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::PackageContent;
using test_support::ReadWholeFile;
using test_support::StageReport;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::UnreadableAttributes;
using test_support::WritePackageTree;
using test_support::WriteWholeFile;

using OnOpen = StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnInformation = StandIn<"GetFileInformationByHandleEx", decltype(GetFileInformationByHandleEx)>;
using OnTickCount = StandIn<"GetTickCount64", decltype(GetTickCount64)>;
using OnTime = StandIn<"_time64", decltype(_time64)>;

constexpr std::int64_t kNow = 1700000000;
const std::wstring kManifestDigest = L"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

/// The six lines of one file, asked of Windows here.
std::wstring IdentityLines(const std::wstring& root, const std::wstring& key, std::uint64_t size) {
    const HANDLE file = CreateFileW((root + L"\\" + key).c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    FILE_BASIC_INFO basic{};
    FILE_ID_INFO id{};
    EXPECT_TRUE(GetFileInformationByHandleEx(file, FileBasicInfo, &basic, sizeof(basic)));
    EXPECT_TRUE(GetFileInformationByHandleEx(file, FileIdInfo, &id, sizeof(id)));
    CloseHandle(file);
    std::wstring text = key + L"\n" + std::to_wstring(size) + L"\n";
    text += std::to_wstring(basic.LastWriteTime.QuadPart) + L"\n" + std::to_wstring(basic.ChangeTime.QuadPart) + L"\n";
    text += std::to_wstring(id.VolumeSerialNumber) + L"\n";
    for (const unsigned char byte : id.FileId.Identifier) {
        text.push_back(L"0123456789abcdef"[byte / 16]);
        text.push_back(L"0123456789abcdef"[byte % 16]);
    }
    return text + L"\n";
}

std::wstring DigestOfText(const std::wstring& text) {
    const std::string utf8 = platform::EncodeUtf8(text);
    std::wstring hex;
    EXPECT_TRUE(Sha256OfBuffer(utf8.data(), utf8.size(), hex));
    return hex;
}

/// Two files of a release without packages. Tests of packages call `AddPackages`.
class VerifiedInventory : public testing::Test {
  protected:
    VerifiedInventory() {
        settings.applicationDirectory = L"app";
        settings.onStage = [this](Stage stage, const std::wstring& detail, std::uint64_t completed,
                                  std::uint64_t total) {
            reports.push_back({stage, detail, completed, total});
        };
        WritePackageTree(Application(), {{L"Two.txt", "second"}, {L"sub/one.txt", "one"}});
        manifest.files = {{L"", L"app/Two.txt", L"", L"", 6}, {L"", L"app/sub/one.txt", L"", L"", 3}};
    }

    std::wstring Application() const { return root / L"app"; }
    std::wstring Control() const { return root / L".vpr-update"; }
    std::wstring RecordPath() const { return Control() + L"\\verified-inventory-v1.txt"; }
    std::wstring VersionFolder() const { return Application() + L"\\Runtime\\packs\\uvr-mdx\\2.0.0.0"; }
    std::wstring StatePath() const { return Application() + L"\\Runtime\\current.json"; }

    /// One package, installed in the given layout, which is then the layout of all that is asked.
    void AddPackages(InstalledLayout where) {
        layout = where;
        const PackageContent content{{L"Model.onnx", "model"}};
        manifest.packages = {DescribePackage(L"uvr-mdx", L"2.0.0.0", content)};
        if (where == InstalledLayout::portable) return WritePackageTree(Application() + L"\\uvr-mdx", content);
        WritePackageTree(VersionFolder(), content);
        WriteWholeFile(StatePath(), RenderRuntimeState(manifest.packages));
    }

    std::optional<std::wstring> Digest(InventoryProgress progress = InventoryProgress::silent) {
        std::wstring digest;
        if (!ComputeInventoryDigest(root.Path(), settings, manifest, layout, digest, progress)) return std::nullopt;
        return digest;
    }
    std::wstring TextOfRecord(const std::wstring& digest, const std::wstring& time) const {
        return L"VPR_VERIFIED_INVENTORY_V1\nmanifest=" + kManifestDigest + L"\nlayout=" +
               std::wstring(LayoutText(layout)) + L"\nverified=" + time + L"\ninventory=" + digest + L"\n";
    }
    void WriteRecord(const std::wstring& text) {
        ASSERT_TRUE(EnsureDirectory(Control()));
        WriteWholeFile(RecordPath(), platform::EncodeUtf8(text));
    }
    void WriteSoundRecord(std::int64_t time = kNow) { WriteRecord(TextOfRecord(*Digest(), std::to_wstring(time))); }
    bool Fresh() { return VerifiedInventoryIsFresh(root.Path(), settings, manifest, kManifestDigest, layout); }
    void Write(const std::wstring& prior) {
        WriteVerifiedInventory(root.Path(), settings, manifest, kManifestDigest, layout, prior);
    }

    TemporaryDirectory root;
    Settings settings;
    UpdateManifest manifest;
    InstalledLayout layout = InstalledLayout::files;
    std::vector<StageReport> reports;
    std::int64_t now = kNow;
    OnTime clock{[this](__time64_t*) { return now; }};
};

using InventoryDigest = VerifiedInventory;
using InventoryRecord = VerifiedInventory;
using InventoryWriting = VerifiedInventory;
using InventoryRemoval = VerifiedInventory;

TEST_F(InventoryDigest, IsOfTheIdentitiesInTheOrderOfTheKeys) {
    const std::wstring text = L"files\n" + IdentityLines(root.Path(), L"app\\sub\\one.txt", 3) +
                              IdentityLines(root.Path(), L"app\\two.txt", 6);
    EXPECT_EQ(Digest(), DigestOfText(text));
}

TEST_F(InventoryDigest, NamesItsLayoutAndCoversThePackages) {
    struct Row {
        InstalledLayout layout;
        const wchar_t* head;
        const wchar_t* model;
    };
    for (const Row& row :
         {Row{InstalledLayout::activated, L"activated\n", L"app\\runtime\\packs\\uvr-mdx\\2.0.0.0\\model.onnx"},
          Row{InstalledLayout::portable, L"portable\n", L"app\\uvr-mdx\\model.onnx"}}) {
        AddPackages(row.layout);
        std::vector<std::wstring> lines = {IdentityLines(root.Path(), L"app\\sub\\one.txt", 3),
                                           IdentityLines(root.Path(), L"app\\two.txt", 6),
                                           IdentityLines(root.Path(), row.model, 5)};
        std::sort(lines.begin(), lines.end());
        EXPECT_EQ(Digest(), DigestOfText(row.head + lines[0] + lines[1] + lines[2]));
        ASSERT_TRUE(RemoveTree(Application() + L"\\Runtime"));
    }
}

TEST_F(InventoryDigest, IsAnotherForAnotherLayout) {
    const auto files = Digest();
    layout = InstalledLayout::portable;
    const auto portable = Digest();
    ASSERT_TRUE(files && portable);
    EXPECT_NE(files, portable);
}

/// How a file was opened.
struct Open {
    std::wstring path;
    DWORD access;
    DWORD share;
    DWORD disposition;
    DWORD flags;
    friend bool operator==(const Open&, const Open&) = default;
};

TEST_F(InventoryDigest, OpensEachFileOnceForItsAttributesAlone) {
    WriteSoundRecord();
    std::vector<Open> opens;
    {
        const OnOpen open([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                              DWORD disposition, DWORD flags, HANDLE model) {
            if (std::wstring_view(path).find(L"\\app\\") != std::wstring_view::npos)
                opens.push_back({path, access, share, disposition, flags});
            return OnOpen::Original(path, access, share, security, disposition, flags, model);
        });
        EXPECT_TRUE(Fresh());
    }
    const std::wstring base = L"\\\\?\\" + root.Path();
    EXPECT_EQ(opens, (std::vector<Open>{{base + L"\\app\\sub\\one.txt", 128, 7, OPEN_EXISTING, 0x200080},
                                        {base + L"\\app\\two.txt", 128, 7, OPEN_EXISTING, 0x200080}}));
}

TEST_F(InventoryDigest, AsksThreeThingsOfEachFile) {
    std::vector<int> classes;
    {
        const OnInformation information([&](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD length) {
            classes.push_back(kind);
            return OnInformation::Original(file, kind, data, length);
        });
        EXPECT_TRUE(Digest());
    }
    EXPECT_EQ(classes, (std::vector<int>{1, 0, 18, 1, 0, 18}));
}

TEST_F(InventoryDigest, NeedsAllThreeAnswers) {
    for (const int refused : {0, 1, 18}) {
        const OnInformation information([&](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD length) {
            return kind != refused && OnInformation::Original(file, kind, data, length);
        });
        EXPECT_FALSE(Digest()) << refused;
    }
}

/// Lets one answer of Windows about every file be changed.
class ChangedAnswer {
  public:
    template <typename Information>
    static OnInformation Of(FILE_INFO_BY_HANDLE_CLASS which, std::function<void(Information&)> change) {
        return OnInformation([which, change](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD length) {
            const BOOL answered = OnInformation::Original(file, kind, data, length);
            if (answered && kind == which) change(*static_cast<Information*>(data));
            return answered;
        });
    }
};

TEST_F(InventoryDigest, OfWhatIsNoFileOfTheSize_IsRefused) {
    const std::vector<std::function<void(FILE_STANDARD_INFO&)>> changes = {
        [](FILE_STANDARD_INFO& standard) { standard.Directory = TRUE; },
        [](FILE_STANDARD_INFO& standard) { standard.EndOfFile.QuadPart = -1; },
        [](FILE_STANDARD_INFO& standard) { ++standard.EndOfFile.QuadPart; },
        [](FILE_STANDARD_INFO& standard) { --standard.EndOfFile.QuadPart; },
        [](FILE_STANDARD_INFO& standard) { standard.EndOfFile.QuadPart += 1ll << 32; }};
    for (std::size_t at = 0; at < changes.size(); ++at) {
        const OnInformation information = ChangedAnswer::Of<FILE_STANDARD_INFO>(FileStandardInfo, changes[at]);
        EXPECT_FALSE(Digest()) << at;
    }
    EXPECT_TRUE(Digest());
}

TEST_F(InventoryDigest, NegativeSize_IsRefusedEvenIfTheManifestSaysItsBits) {
    manifest.files = {{L"", L"app/Two.txt", L"", L"", ~std::uint64_t{0}}};
    const OnInformation information = ChangedAnswer::Of<FILE_STANDARD_INFO>(
        FileStandardInfo, [](FILE_STANDARD_INFO& standard) { standard.EndOfFile.QuadPart = -1; });
    EXPECT_FALSE(Digest());
}

TEST_F(InventoryDigest, ChangesWithBothTimes) {
    const auto before = Digest();
    const std::vector<std::function<void(FILE_BASIC_INFO&)>> changes = {
        [](FILE_BASIC_INFO& basic) { ++basic.LastWriteTime.QuadPart; },
        [](FILE_BASIC_INFO& basic) { ++basic.ChangeTime.QuadPart; },
        [](FILE_BASIC_INFO& basic) { basic.ChangeTime.QuadPart = -basic.ChangeTime.QuadPart; }};
    for (std::size_t at = 0; at < changes.size(); ++at) {
        const OnInformation information = ChangedAnswer::Of<FILE_BASIC_INFO>(FileBasicInfo, changes[at]);
        const auto after = Digest();
        EXPECT_TRUE(after);
        EXPECT_NE(after, before) << at;
    }
    const OnInformation others = ChangedAnswer::Of<FILE_BASIC_INFO>(FileBasicInfo, [](FILE_BASIC_INFO& basic) {
        ++basic.CreationTime.QuadPart;
        ++basic.LastAccessTime.QuadPart;
        basic.FileAttributes ^= FILE_ATTRIBUTE_ARCHIVE;
    });
    EXPECT_EQ(Digest(), before) << "nothing else of it counts";
}

TEST_F(InventoryDigest, ChangesWithTheVolumeAndEveryByteOfTheIdentifier) {
    const auto before = Digest();
    {
        const OnInformation information = ChangedAnswer::Of<FILE_ID_INFO>(
            FileIdInfo, [](FILE_ID_INFO& id) { id.VolumeSerialNumber ^= 0x8000000000000000ull; });
        const auto after = Digest();
        EXPECT_TRUE(after);
        EXPECT_NE(after, before);
    }
    for (std::size_t at = 0; at < 16; ++at) {
        const OnInformation information =
            ChangedAnswer::Of<FILE_ID_INFO>(FileIdInfo, [at](FILE_ID_INFO& id) { id.FileId.Identifier[at] ^= 1; });
        const auto after = Digest();
        EXPECT_TRUE(after);
        EXPECT_NE(after, before) << at;
    }
}

TEST_F(InventoryDigest, OfACopy_IsAnother) {
    const auto before = Digest();
    const std::wstring file = Application() + L"\\Two.txt";
    ASSERT_TRUE(CopyFileW(file.c_str(), (root / L"copy").c_str(), TRUE));
    ASSERT_TRUE(MoveFileExW((root / L"copy").c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING));
    const auto after = Digest();
    EXPECT_TRUE(after);
    EXPECT_NE(after, before);
}

TEST_F(InventoryDigest, NeedsEveryFileInPlace) {
    const std::wstring file = Application() + L"\\sub\\one.txt";
    WriteWholeFile(file, "one and more");
    EXPECT_FALSE(Digest()) << "another size";
    ASSERT_TRUE(DeleteFileW(file.c_str()));
    EXPECT_FALSE(Digest()) << "missing";
    ASSERT_TRUE(EnsureDirectory(file));
    EXPECT_FALSE(Digest()) << "a folder in its place";
    ASSERT_TRUE(RemoveTree(Application() + L"\\sub"));
    WriteWholeFile(Application() + L"\\sub", "a file in place of the folder");
    EXPECT_FALSE(Digest());
}

TEST_F(InventoryDigest, LinkAnywhereOnTheWay_IsRefused) {
    for (const wchar_t* link : {L"\\app", L"\\sub"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(Digest()) << platform::EncodeUtf8(link);
    }
}

/// A file is judged by its handle, which was opened without following a link.
TEST_F(InventoryDigest, FileThatIsALinkOrAFolder_IsRefused) {
    for (const DWORD bit : {DWORD{FILE_ATTRIBUTE_REPARSE_POINT}, DWORD{FILE_ATTRIBUTE_DIRECTORY}}) {
        for (const int which : {1, 2}) {  // of the files, in their order
            int asked = 0;
            const OnInformation linked([&](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD length) {
                const BOOL answered = OnInformation::Original(file, kind, data, length);
                if (kind == FileBasicInfo && ++asked == which)
                    static_cast<FILE_BASIC_INFO*>(data)->FileAttributes |= bit;
                return answered;
            });
            EXPECT_FALSE(Digest()) << bit << " at file " << which;
            EXPECT_EQ(asked, which);
        }
    }
}

TEST_F(InventoryDigest, ConflictingClaims_AreRefused) {
    manifest.files.push_back({L"", L"APP/two.txt", L"", L"", 7});
    EXPECT_FALSE(Digest());
}

TEST_F(InventoryDigest, OfFilesAlone_DoesNotLookAtPackageFolders) {
    const auto before = Digest();
    WritePackageTree(VersionFolder(), {{L"stray.log", "x"}});
    WriteWholeFile(StatePath(), "anything");
    const ForcedAttributes linked(L"\\Runtime", FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_EQ(Digest(), before);
}

TEST_F(InventoryDigest, Activated_NeedsTheStateAndExactFolders) {
    AddPackages(InstalledLayout::activated);
    const auto before = Digest();
    EXPECT_TRUE(before);
    WriteWholeFile(VersionFolder() + L"\\stray.log", "");
    EXPECT_FALSE(Digest());
    ASSERT_TRUE(DeleteFileW((VersionFolder() + L"\\stray.log").c_str()));
    EXPECT_EQ(Digest(), before);
    WriteWholeFile(StatePath(), RenderRuntimeState(manifest.packages) + " ");
    EXPECT_FALSE(Digest());
    ASSERT_TRUE(DeleteFileW(StatePath().c_str()));
    EXPECT_FALSE(Digest());
}

TEST_F(InventoryDigest, Portable_NeedsTheAbsenceOfAState) {
    AddPackages(InstalledLayout::portable);
    const auto before = Digest();
    EXPECT_TRUE(before);
    WriteWholeFile(Application() + L"\\uvr-mdx\\stray.log", "");
    EXPECT_EQ(Digest(), before) << "a portable folder may hold more";
    ASSERT_TRUE(EnsureDirectory(Application() + L"\\Runtime"));
    WriteWholeFile(StatePath(), RenderRuntimeState(manifest.packages));
    EXPECT_FALSE(Digest());
}

TEST_F(InventoryDigest, Portable_RefusesAPackageWithoutAHome) {
    AddPackages(InstalledLayout::portable);
    manifest.packages[0].capability = L"separation";
    EXPECT_FALSE(Digest());
    Write(std::wstring(64, L'0'));
    EXPECT_EQ(FileLength(RecordPath()), -1);
}

TEST_F(InventoryDigest, ThatIsRefused_ReportsNothingBeforeTheCount) {
    AddPackages(InstalledLayout::activated);
    WriteWholeFile(StatePath(), "");
    EXPECT_FALSE(Digest(InventoryProgress::reported));
    EXPECT_TRUE(reports.empty());
}

TEST_F(InventoryDigest, Silent_ReportsNothing) {
    EXPECT_TRUE(Digest());
    EXPECT_TRUE(reports.empty());
}

/// The clock stands at the time that belongs to the file opened last.
TEST_F(InventoryDigest, ReportsAtTheStartThenEvery100MillisecondsAndAtTheEnd) {
    manifest.files.clear();
    std::vector<std::wstring> keys;
    for (const wchar_t* name : {L"a", L"b", L"c", L"d", L"e", L"f"}) {
        WriteWholeFile(Application() + L"\\" + name, "x");
        manifest.files.push_back({L"", std::wstring(L"app/") + name, L"", L"", 1});
        keys.push_back(std::wstring(L"app\\") + name);
    }
    const std::vector<std::uint64_t> times = {7099, 7100, 7199, 7200, 7250, 7251};
    std::size_t opened = 0;
    const OnTickCount tick([&] { return opened == 0 ? 7000ull : times.at(opened - 1); });
    const OnOpen open([&](LPCWSTR path, auto... rest) {
        ++opened;
        return OnOpen::Original(path, rest...);
    });
    EXPECT_TRUE(Digest(InventoryProgress::reported));
    EXPECT_EQ(opened, 6u);
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::CheckingFiles, L"", 0, 6},
                                                 {Stage::CheckingFiles, keys[1], 2, 6},
                                                 {Stage::CheckingFiles, keys[3], 4, 6},
                                                 {Stage::CheckingFiles, keys[5], 6, 6}}));
    EXPECT_EQ(static_cast<unsigned>(reports[0].stage), 13u);
}

TEST_F(InventoryRecord, StandsInForTheVerification) {
    WriteSoundRecord();
    EXPECT_TRUE(Fresh());
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0], (StageReport{Stage::CheckingFiles, L"", 0, 2}));
    EXPECT_EQ(reports[1], (StageReport{Stage::CheckingFiles, L"app\\two.txt", 2, 2}));
}

TEST_F(InventoryRecord, StandsInForEachLayoutOfPackages) {
    for (const InstalledLayout where : {InstalledLayout::portable, InstalledLayout::activated}) {
        AddPackages(where);
        WriteSoundRecord();
        EXPECT_TRUE(Fresh());
    }
}

TEST_F(InventoryRecord, CountsForLessThanADayAndNeverFromTheFuture) {
    struct Row {
        std::int64_t verified;
        std::int64_t now;
        bool fresh;
    };
    for (const Row& row :
         {Row{kNow, kNow, true}, Row{kNow - 86399, kNow, true}, Row{kNow - 86400, kNow, false},
          Row{kNow - 86401, kNow, false}, Row{kNow + 1, kNow, false}, Row{0, -1, false}, Row{0, 0, true}}) {
        WriteSoundRecord(row.verified);
        now = row.now;
        reports.clear();
        EXPECT_EQ(Fresh(), row.fresh) << row.verified << " at " << row.now;
        EXPECT_EQ(reports.empty(), !row.fresh) << "files are looked at behind the age only";
    }
}

TEST_F(InventoryRecord, MayHave1024BytesAndNoMore) {
    const std::wstring digest = *Digest();
    const std::wstring time = std::to_wstring(kNow);
    const std::size_t room = 1024 - TextOfRecord(digest, time).size();
    WriteRecord(TextOfRecord(digest, std::wstring(room, L'0') + time));
    ASSERT_EQ(FileLength(RecordPath()), 1024);
    EXPECT_TRUE(Fresh());
    WriteRecord(TextOfRecord(digest, std::wstring(room + 1, L'0') + time));
    ASSERT_EQ(FileLength(RecordPath()), 1025);
    EXPECT_FALSE(Fresh());
}

TEST_F(InventoryRecord, ThatSaysSomethingElse_DoesNotCount) {
    const std::wstring digest = *Digest();
    const std::wstring sound = TextOfRecord(digest, std::to_wstring(kNow));
    const auto with = [&sound](const std::wstring& what, const std::wstring& instead) {
        std::wstring text = sound;
        return text.replace(text.find(what), what.size(), instead);
    };
    std::wstring upper = digest;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](wchar_t unit) { return unit >= L'a' ? static_cast<wchar_t>(unit - 32) : unit; });
    ASSERT_NE(upper, digest);
    for (const std::wstring& text :
         {std::wstring(), with(kManifestDigest, std::wstring(64, L'1')), with(L"layout=files", L"layout=portable"),
          with(digest, std::wstring(64, L'1')), with(digest, upper), with(L"aabbccddeeff", L"AABBCCDDEEFF"),
          sound + L"\n", sound + L"sixth=1\n", sound.substr(0, sound.size() - 1), L"\ufeff" + sound,
          with(L"_V1", L"_V2")}) {
        WriteRecord(text);
        EXPECT_FALSE(Fresh()) << platform::EncodeUtf8(text);
    }
    WriteRecord(sound);
    EXPECT_TRUE(Fresh());
}

TEST_F(InventoryRecord, OfAnotherManifestOrLayout_IsRefusedWithoutLookingAtFiles) {
    WriteSoundRecord();
    EXPECT_FALSE(VerifiedInventoryIsFresh(root.Path(), settings, manifest, std::wstring(64, L'1'), layout));
    EXPECT_FALSE(VerifiedInventoryIsFresh(root.Path(), settings, manifest, kManifestDigest, InstalledLayout::portable));
    EXPECT_TRUE(reports.empty());
}

TEST_F(InventoryRecord, EndsWithAnyChangeOfAFile) {
    WriteSoundRecord();
    const std::wstring file = Application() + L"\\Two.txt";
    const HANDLE handle = CreateFileW(file.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const FILETIME touched{1, 0x01D00000};
    EXPECT_TRUE(SetFileTime(handle, nullptr, nullptr, &touched));
    CloseHandle(handle);
    EXPECT_FALSE(Fresh()) << "touched, with the same content";
}

TEST_F(InventoryRecord, EndsWithALinkOnTheWay) {
    WriteSoundRecord();
    for (const wchar_t* link : {L"\\app", L"\\sub"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(Fresh()) << platform::EncodeUtf8(link);
    }
    EXPECT_TRUE(Fresh());
}

TEST_F(InventoryRecord, IsReadFromAPlainFileInARealFolderAlone) {
    EXPECT_FALSE(Fresh()) << "there is none";
    WriteSoundRecord();
    for (const wchar_t* link : {L"\\.vpr-update", L"\\verified-inventory-v1.txt"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_FALSE(Fresh()) << platform::EncodeUtf8(link);
        const UnreadableAttributes unreadable(link, ERROR_ACCESS_DENIED);
        EXPECT_FALSE(Fresh()) << platform::EncodeUtf8(link);
    }
    const HANDLE held = CreateFileW(RecordPath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(Fresh()) << "somebody holds it";
    CloseHandle(held);
    EXPECT_TRUE(Fresh());
    ASSERT_TRUE(DeleteFileW(RecordPath().c_str()));
    ASSERT_TRUE(EnsureDirectory(RecordPath()));
    EXPECT_FALSE(Fresh());
}

TEST_F(InventoryWriting, LeavesFiveLines) {
    const std::wstring digest = *Digest();
    Write(digest);
    EXPECT_EQ(ReadWholeFile(RecordPath()), platform::EncodeUtf8(TextOfRecord(digest, std::to_wstring(kNow))));
    EXPECT_TRUE(reports.empty());
    EXPECT_TRUE(Fresh());
}

TEST_F(InventoryWriting, ReplacesAnOlderRecord) {
    WriteRecord(L"an older record");
    Write(*Digest());
    EXPECT_TRUE(Fresh());
}

TEST_F(InventoryWriting, ForcesTheRecordOutBeforeItsRename) {
    const std::wstring digest = *Digest();
    MutationFaults faults;
    Write(digest);
    const auto calls = faults.Calls();
    const auto flush =
        std::find_if(calls.begin(), calls.end(), [](const auto& call) { return call.function == "FlushFileBuffers"; });
    const auto move =
        std::find_if(calls.begin(), calls.end(), [](const auto& call) { return call.function == "MoveFileExW"; });
    ASSERT_NE(move, calls.end());
    EXPECT_LT(flush, move);
    EXPECT_TRUE(flush->path.ends_with(L"verified-inventory-v1.txt.tmp"));
    EXPECT_TRUE(move->path.ends_with(L"verified-inventory-v1.txt.tmp"));
    EXPECT_TRUE(move->second.ends_with(L"verified-inventory-v1.txt"));
}

TEST_F(InventoryWriting, WithoutAPriorDigest_DoesNothing) {
    std::vector<std::wstring> asked;
    const StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)> attributes([&](LPCWSTR path) {
        asked.emplace_back(path);
        return INVALID_FILE_ATTRIBUTES;
    });
    Write(L"");
    EXPECT_TRUE(asked.empty());
    EXPECT_EQ(FileLength(RecordPath()), -1);
}

TEST_F(InventoryWriting, AfterAnyChangeSinceThePriorDigest_DoesNothing) {
    const std::wstring prior = *Digest();
    WriteWholeFile(Application() + L"\\Two.txt", "SECOND");
    const OnInformation information = ChangedAnswer::Of<FILE_BASIC_INFO>(
        FileBasicInfo, [](FILE_BASIC_INFO& basic) { ++basic.LastWriteTime.QuadPart; });
    Write(prior);
    EXPECT_EQ(FileLength(Control()), -1);
    EXPECT_EQ(FileLength(RecordPath()), -1);
}

TEST_F(InventoryWriting, WithAFileGone_DoesNothing) {
    const std::wstring prior = *Digest();
    WriteRecord(L"an older record");
    ASSERT_TRUE(DeleteFileW((Application() + L"\\Two.txt").c_str()));
    Write(prior);
    EXPECT_EQ(ReadWholeFile(RecordPath()), "an older record");
}

TEST_F(InventoryWriting, BeforeTheEpoch_DoesNothing) {
    now = -1;
    Write(*Digest());
    EXPECT_EQ(FileLength(RecordPath()), -1);
    now = 0;
    Write(*Digest());
    EXPECT_TRUE(Fresh());
}

TEST_F(InventoryWriting, ReplacesNothingButAPlainFile) {
    const std::wstring prior = *Digest();
    WriteRecord(L"an older record");
    for (const wchar_t* link : {L"\\.vpr-update", L"\\verified-inventory-v1.txt"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        Write(prior);
        EXPECT_EQ(ReadWholeFile(RecordPath()), "an older record") << platform::EncodeUtf8(link);
    }
    ASSERT_TRUE(DeleteFileW(RecordPath().c_str()));
    ASSERT_TRUE(EnsureDirectory(RecordPath()));
    Write(prior);
    EXPECT_EQ(ReadWholeFile(RecordPath()), "");
    ASSERT_TRUE(RemoveTree(Control()));
    WriteWholeFile(Control(), "a file in place of the folder");
    Write(prior);
    EXPECT_EQ(ReadWholeFile(Control()), "a file in place of the folder");
}

TEST_F(InventoryWriting, ThatFails_IsSilentAndKeepsTheOlderRecord) {
    const std::wstring prior = *Digest();
    for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
        std::uint32_t points = 0;
        for (std::uint32_t at = 1;; ++at) {
            WriteRecord(L"an older record");
            MutationFaults faults(kind, at, ERROR_DISK_FULL);
            Write(prior);
            if (!faults.Reached()) break;
            ++points;
            const std::string record = ReadWholeFile(RecordPath());
            EXPECT_TRUE(record == "an older record" ||
                        record == platform::EncodeUtf8(TextOfRecord(prior, std::to_wstring(kNow))))
                << at << ": " << record;
        }
        EXPECT_GE(points, 4u) << "open, write, flush and rename";
    }
    EXPECT_TRUE(reports.empty());
}

TEST_F(InventoryRemoval, TakesTheRecord) {
    WriteRecord(L"whatever it says");
    RemoveVerifiedInventory(root.Path());
    EXPECT_EQ(FileLength(RecordPath()), -1);
    RemoveVerifiedInventory(root.Path());
}

TEST_F(InventoryRemoval, TouchesNothingButAPlainFileInARealFolder) {
    WriteRecord(L"a record");
    for (const wchar_t* link : {L"\\.vpr-update", L"\\verified-inventory-v1.txt"}) {
        const ForcedAttributes linked(link, FILE_ATTRIBUTE_REPARSE_POINT);
        MutationFaults faults;
        RemoveVerifiedInventory(root.Path());
        EXPECT_EQ(faults.Count(), 0u) << platform::EncodeUtf8(link);
    }
    ASSERT_TRUE(DeleteFileW(RecordPath().c_str()));
    ASSERT_TRUE(EnsureDirectory(RecordPath()));
    MutationFaults faults;
    RemoveVerifiedInventory(root.Path());
    EXPECT_EQ(faults.Count(), 0u);
}

TEST_F(InventoryRemoval, ThatFails_IsSilent) {
    WriteRecord(L"a record");
    const MutationFaults faults(FaultKind::fail, 1);
    RemoveVerifiedInventory(root.Path());
    EXPECT_TRUE(faults.Reached());
    EXPECT_EQ(ReadWholeFile(RecordPath()), "a record");
}

}  // namespace
}  // namespace launcher_update
