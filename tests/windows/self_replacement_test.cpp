#include "launcher/self_replacement.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "tests/support/call_faults.h"
#include "tests/support/import_hook.h"
#include "tests/support/package_fixture.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/trees.h"

namespace launcher_shell {
namespace {

using platform::FileHandle;
using test_support::FaultKind;
using test_support::MutationFaults;
using test_support::ReadPackageTree;
using test_support::ReadWholeFile;
using test_support::RecordedCall;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnCopyFile = StandIn<"CopyFileW", decltype(CopyFileW)>;
using OnFullPath = StandIn<"GetFullPathNameW", decltype(GetFullPathNameW)>;
using OnMoveFile = StandIn<"MoveFileExW", decltype(MoveFileExW)>;
using OnSleep = StandIn<"Sleep", decltype(Sleep)>;

using Files = std::map<std::string, std::string>;  // content by path with forward slashes

constexpr char kTarget[] = "Velmora Pine Relay.exe";
constexpr char kSettings[] = "current.json";
constexpr char kSelf[] = "Velmora Pine Relay/Updater/Launcher 2.exe";
constexpr char kBackup[] = "Velmora Pine Relay/Updater/launcher-backup.exe";
constexpr char kReplacement[] = "Velmora Pine Relay/Updater/launcher-replacement.exe";
constexpr char kOld[] = "the old launcher";
constexpr char kNew[] = "(the new launcher)";  // stands for its bytes, which nobody wants to read
constexpr DWORD kMoveFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;

/// A small library of the system, which carries a version, under another one.
std::string ProgramOfVersion(WORD first, WORD second, WORD third, WORD fourth) {
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    std::string image = ReadWholeFile(std::wstring(system) + L"\\lz32.dll");
    const DWORD start[] = {0xFEEF04BD, 0x00010000};  // dwSignature, dwStrucVersion; the file version follows
    const DWORD version[] = {DWORD{first} << 16 | second, DWORD{third} << 16 | fourth};
    const std::size_t at = image.find(std::string(reinterpret_cast<const char*>(start), sizeof(start)));
    if (at == std::string::npos) {
        ADD_FAILURE() << "a program without a version";
        return image;
    }
    std::memcpy(&image[at + sizeof(start)], version, sizeof(version));
    return image;
}

const std::string& NewLauncher() {
    static const std::string image = ProgramOfVersion(2, 0, 0, 7);
    return image;
}

std::wstring DigestOf(const std::string& bytes) {
    std::wstring digest;
    EXPECT_TRUE(launcher_update::Sha256OfBuffer(bytes.data(), bytes.size(), digest));
    return digest;
}

/// Settings as some older launcher may have left them.
std::string SettingsWith(const std::string& launcherVersion) {
    return "{\r\n\t\"schemaVersion\": 1, \"note\": \"日本 \\u00e9\",\r\n\t\"launcherVersion\" :  " + launcherVersion +
           ",\r\n\t\"applicationDirectory\": \"Velmora Pine Relay\", \"productVersion\": \"1.0.0.0\",\r\n"
           "\t\"applicationExecutable\": \"Velmora Pine Relay.exe\"\r\n}\r\n\r\n";
}

const std::string& OldSettings() {
    static const std::string text = SettingsWith("\"1.0.0.0\"");
    return text;
}

const std::string& NewSettings() {
    static const std::string text = SettingsWith("\"2.0.0.7\"");
    return text;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    if (at == std::string::npos) {
        ADD_FAILURE() << "nothing to replace: " << from;
        return text;
    }
    return text.replace(at, from.size(), to);
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// Open with the given sharing until it is let go.
FileHandle Hold(const std::wstring& path, DWORD share) {
    FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(static_cast<bool>(file));
    return file;
}

std::string Readable(const std::string& bytes) {
    if (bytes == NewLauncher()) return kNew;
    return bytes.size() > 4096 ? "(" + std::to_string(bytes.size()) + " other bytes)" : bytes;
}

struct Move {
    std::wstring from;
    std::wstring to;
    DWORD flags;
};

/// An old launcher, its settings, its application, and the new launcher in its place, with a request that all checks
/// accept. No pause is really made.
struct Scene {
    Scene() {
        test_support::WritePackageTree(folder.Path(), {{L"Velmora Pine Relay.exe", kOld},
                                                       {L"current.json", OldSettings()},
                                                       {L"update-state.json", "{}"},
                                                       {L"Velmora Pine Relay/Velmora Pine Relay.exe", "a program"},
                                                       {L"Velmora Pine Relay/current.json", "not these settings"},
                                                       {L"Velmora Pine Relay/Updater/other.exe", "another file"}});
        WriteWholeFile(selfPath, NewLauncher());
        before = Now();
    }

    int Run() const { return ReplaceLauncher(selfPath, request); }

    Files Now() const {
        Files files;
        for (const auto& [path, bytes] : ReadPackageTree(folder.Path()))
            files[platform::EncodeUtf8(path)] = Readable(bytes);
        return files;
    }
    /// The files as they were, but for these; an empty content means that there is none.
    Files BeforeBut(const Files& changes) const {
        Files files = before;
        for (const auto& [path, content] : changes) {
            if (content.empty())
                files.erase(path);
            else
                files[path] = content;
        }
        return files;
    }

    /// The new launcher comes from elsewhere.
    void StartFrom(const std::wstring& path) {
        EXPECT_TRUE(launcher_update::EnsureDirectory(*platform::ParentPath(path)));
        WriteWholeFile(path, NewLauncher());
        selfPath = path;
        before = Now();
    }
    void PutSelf(const std::string& bytes) {
        WriteWholeFile(selfPath, bytes);
        before = Now();
    }
    void Put(const std::wstring& name, const std::string& bytes) {
        WriteWholeFile(folder / name, bytes);
        before = Now();
    }
    void PutSettings(const std::string& text) { Put(L"current.json", text); }

    void ExpectReplaced(int code) const {
        EXPECT_EQ(code, 0);
        EXPECT_EQ(Now(), BeforeBut({{kTarget, kNew}, {kSettings, NewSettings()}}));
    }
    /// The old launcher stands, and so do its settings and its copy.
    void ExpectOldWithBackup() const { EXPECT_EQ(Now(), BeforeBut({{kBackup, kOld}})); }

    [[nodiscard]] std::vector<Move> MovesOnto(std::wstring_view end) const {
        std::vector<Move> found;
        std::copy_if(moves.begin(), moves.end(), std::back_inserter(found),
                     [end](const Move& move) { return move.to.ends_with(end); });
        return found;
    }

    TemporaryDirectory folder;
    std::wstring target = folder / L"Velmora Pine Relay.exe";
    std::wstring settings = folder / L"current.json";
    std::wstring updater = folder / L"Velmora Pine Relay\\Updater";
    std::wstring selfPath = updater + L"\\Launcher 2.exe";
    LauncherReplacement request{target, settings, L"2.0.0.7", DigestOf(NewLauncher())};
    Files before;

    std::vector<DWORD> pauses;
    std::function<void()> onPause = [] {};
    OnSleep onSleep{[this](DWORD milliseconds) {
        pauses.push_back(milliseconds);
        onPause();
    }};
    std::vector<Move> moves;
    std::function<DWORD(const Move&)> refusal = [](const Move&) { return DWORD{ERROR_SUCCESS}; };
    std::function<void(const Move&)> onMoved = [](const Move&) {};
    OnMoveFile onMoveFile{[this](LPCWSTR from, LPCWSTR to, DWORD flags) {
        moves.push_back({from, to, flags});
        const Move move = moves.back();
        if (const DWORD error = refusal(move)) {
            SetLastError(error);
            return FALSE;
        }
        const BOOL moved = OnMoveFile::Original(from, to, flags);
        const DWORD error = GetLastError();
        if (moved) onMoved(move);
        SetLastError(error);
        return moved;
    }};
};

constexpr wchar_t kTargetEnd[] = L"Velmora Pine Relay.exe";

/// One thing that is wrong with the scene.
struct Spoiled {
    const char* what;
    void (*spoil)(Scene&);
};

/// Each of them ends the run with this code, before anything is changed.
void ExpectEachLeavesAllAlone(int code, std::initializer_list<Spoiled> rows) {
    for (const Spoiled& row : rows) {
        SCOPED_TRACE(row.what);
        Scene scene;
        row.spoil(scene);
        const Files before = scene.Now();
        const MutationFaults faults;
        EXPECT_EQ(scene.Run(), code);
        EXPECT_EQ(faults.Count(), 0u) << (faults.Calls().empty() ? "" : faults.Calls()[0].function);
        EXPECT_EQ(scene.Now(), before);
    }
}

// --- Success

TEST(SelfReplacement, PutsItselfInPlaceAndRecordsItsVersion) {
    Scene scene;
    scene.ExpectReplaced(scene.Run());
    EXPECT_TRUE(scene.pauses.empty());
    const std::vector<Move> moves = scene.MovesOnto(kTargetEnd);
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_EQ(moves[0].from, L"\\\\?\\" + scene.updater + L"\\launcher-replacement.exe");
    EXPECT_EQ(moves[0].to, L"\\\\?\\" + scene.target);
    EXPECT_EQ(moves[0].flags, kMoveFlags);
}

/// A launcher is never written in place: it is copied beside itself, forced out, and only then renamed.
TEST(SelfReplacement, TheTargetIsChangedByOneRenameOfAForcedCopy) {
    Scene scene;
    const MutationFaults faults;
    EXPECT_EQ(scene.Run(), 0);
    bool forced = false;
    int renames = 0;
    for (const RecordedCall& call : faults.Calls()) {
        const bool ofTarget = call.path.ends_with(L"\\" + std::wstring(kTargetEnd)) && call.second.empty();
        EXPECT_FALSE(ofTarget) << call.function << " on the target itself";
        if (call.function == "CopyFileW") {
            EXPECT_FALSE(call.second.ends_with(kTargetEnd));
        }
        forced |= call.function == "FlushFileBuffers" && call.path.ends_with(L"launcher-replacement.exe");
        if (call.function != "MoveFileExW" || !call.second.ends_with(kTargetEnd)) continue;
        EXPECT_TRUE(forced);
        ++renames;
    }
    EXPECT_EQ(renames, 1);
}

/// Below a deep folder Windows finds them by no other.
TEST(SelfReplacement, LaunchersAndCopiesAreReachedByTheirLongForm) {
    for (const char* version : {"\"1.0.0.0\"", "1"}) {
        Scene scene;
        scene.PutSettings(SettingsWith(version));
        const MutationFaults faults;
        static_cast<void>(scene.Run());
        int looked = 0;
        for (const RecordedCall& call : faults.Calls()) {
            for (const std::wstring& path : {call.path, call.second}) {
                if (!path.ends_with(L".exe")) continue;
                EXPECT_TRUE(path.starts_with(L"\\\\?\\")) << call.function << ' ' << platform::EncodeUtf8(path);
                ++looked;
            }
        }
        EXPECT_GT(looked, 0);
    }
}

TEST(SelfReplacement, DigestInAnyLetterCase_IsAccepted) {
    Scene scene;
    for (wchar_t& unit : scene.request.sha256)
        if (unit >= L'a') unit = static_cast<wchar_t>(unit - L'a' + L'A');
    scene.ExpectReplaced(scene.Run());
}

TEST(SelfReplacement, PathsAreMadeFull) {
    Scene scene;
    scene.selfPath = scene.folder.Path() + L"/Velmora Pine Relay/x/..\\Updater/./Launcher 2.exe";
    scene.request.targetPath = scene.updater + L"\\..\\..\\Velmora Pine Relay.exe";
    scene.request.configurationPath = scene.folder.Path() + L"\\.\\current.json";
    scene.ExpectReplaced(scene.Run());
}

/// While it lives, relative paths begin at this folder.
class CurrentFolder {
  public:
    explicit CurrentFolder(const std::wstring& path) {
        wchar_t old[MAX_PATH] = {};
        GetCurrentDirectoryW(MAX_PATH, old);
        old_ = old;
        EXPECT_TRUE(SetCurrentDirectoryW(path.c_str()));
    }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;
    ~CurrentFolder() { SetCurrentDirectoryW(old_.c_str()); }

  private:
    std::wstring old_;
};

TEST(SelfReplacement, RelativePaths_BeginAtTheCurrentFolder) {
    Scene scene;
    scene.selfPath = L"Velmora Pine Relay\\Updater\\Launcher 2.exe";
    scene.request.targetPath = L"Velmora Pine Relay.exe";
    scene.request.configurationPath = L"current.json";
    {
        const CurrentFolder elsewhere(scene.folder / L"Velmora Pine Relay");
        EXPECT_EQ(scene.Run(), 42) << "the settings of that folder are another program's";
        EXPECT_EQ(scene.Now(), scene.before);
    }
    const CurrentFolder there(scene.folder.Path());
    scene.ExpectReplaced(scene.Run());
}

TEST(SelfReplacement, PathsInAnyLetterCase_AreAccepted) {
    const auto upper = [](std::wstring text) {
        CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
        return text;
    };
    for (const auto pick : {+[](Scene& scene) -> std::wstring& { return scene.selfPath; },
                            +[](Scene& scene) -> std::wstring& { return scene.request.targetPath; },
                            +[](Scene& scene) -> std::wstring& { return scene.request.configurationPath; }}) {
        Scene scene;
        pick(scene) = upper(pick(scene));
        EXPECT_EQ(scene.Run(), 0) << platform::EncodeUtf8(pick(scene));
        EXPECT_EQ(ReadWholeFile(scene.target), NewLauncher());
        EXPECT_EQ(ReadWholeFile(scene.settings), NewSettings());
    }
}

TEST(SelfReplacement, MarkOfTheSettings_IsDroppedAndNothingElse) {
    Scene scene;
    scene.PutSettings("\xEF\xBB\xBF" + OldSettings());
    scene.ExpectReplaced(scene.Run());
}

TEST(SelfReplacement, ReadOnlyNewLauncher_LeavesNoReadOnlyTarget) {
    Scene scene;
    ASSERT_TRUE(SetFileAttributesW(scene.selfPath.c_str(), FILE_ATTRIBUTE_READONLY));
    scene.ExpectReplaced(scene.Run());
    EXPECT_EQ(GetFileAttributesW(scene.target.c_str()) & FILE_ATTRIBUTE_READONLY, 0u)
        << "the next launcher could not replace it";
}

TEST(SelfReplacement, CopiesOfAnEarlierRun_AreReplaced) {
    constexpr DWORD kReadOnly = FILE_ATTRIBUTE_READONLY;
    for (const DWORD attributes : {DWORD{FILE_ATTRIBUTE_NORMAL}, kReadOnly, kReadOnly | FILE_ATTRIBUTE_HIDDEN}) {
        for (const wchar_t* name : {L"launcher-replacement.exe", L"launcher-backup.exe"}) {
            SCOPED_TRACE(platform::EncodeUtf8(name) + ", " + std::to_string(attributes));
            Scene scene;
            const std::wstring stale = scene.updater + L"\\" + name;
            WriteWholeFile(stale, std::string(100000, 's'));
            ASSERT_TRUE(SetFileAttributesW(stale.c_str(), attributes));
            scene.ExpectReplaced(scene.Run());
            EXPECT_TRUE(scene.pauses.empty());
        }
    }
}

// --- Refused before anything is changed

TEST(SelfReplacement, RefusedArguments_ExitWith40) {
    ExpectEachLeavesAllAlone(
        40, {
                {"no own path", [](Scene& scene) { scene.selfPath.clear(); }},
                {"no target", [](Scene& scene) { scene.request.targetPath.clear(); }},
                {"no settings", [](Scene& scene) { scene.request.configurationPath.clear(); }},
                {"target is itself",
                 [](Scene& scene) {
                     scene.StartFrom(scene.updater + L"\\Velmora Pine Relay.exe");
                     scene.request.targetPath = scene.selfPath;
                 }},
                {"target is itself in other letters",
                 [](Scene& scene) { scene.selfPath = scene.folder / L"VELMORA Pine RELAY.EXE"; }},
                {"target is itself by another way",
                 [](Scene& scene) { scene.selfPath = scene.updater + L"\\../..\\Velmora Pine Relay.exe"; }},
                {"name of the target longer at its end",
                 [](Scene& scene) {
                     scene.Put(L"Velmora Pine Relay.exe2", kOld);
                     scene.request.targetPath += L"2";
                 }},
                {"name of the target longer at its beginning",
                 [](Scene& scene) {
                     scene.Put(L"xVelmora Pine Relay.exe", kOld);
                     scene.request.targetPath = scene.folder / L"xVelmora Pine Relay.exe";
                 }},
                {"name of the target shorter",
                 [](Scene& scene) {
                     scene.Put(L"Velmora Pine Relay.ex", kOld);
                     scene.request.targetPath.pop_back();
                 }},
                {"target is the folder", [](Scene& scene) { scene.request.targetPath = scene.folder.Path(); }},
                {"name of the settings",
                 [](Scene& scene) {
                     scene.Put(L"settings.json", OldSettings());
                     scene.request.configurationPath = scene.folder / L"settings.json";
                 }},
                {"name of the settings longer",
                 [](Scene& scene) {
                     scene.Put(L"xcurrent.json", OldSettings());
                     scene.request.configurationPath = scene.folder / L"xcurrent.json";
                 }},
                {"settings below the target's folder",
                 [](Scene& scene) {
                     scene.request.configurationPath = scene.folder / L"Velmora Pine Relay\\current.json";
                     WriteWholeFile(scene.request.configurationPath, OldSettings());
                 }},
                {"settings above the target's folder",
                 [](Scene& scene) {
                     scene.request.targetPath = scene.folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe";
                     scene.StartFrom(scene.folder / L"Velmora Pine Relay\\Velmora Pine Relay\\Updater\\a.exe");
                 }},
                {"no version", [](Scene& scene) { scene.request.version.clear(); }},
                {"version of three parts", [](Scene& scene) { scene.request.version = L"2.0.7"; }},
                {"version of five parts", [](Scene& scene) { scene.request.version = L"2.0.0.7.0"; }},
                {"version beyond 65535", [](Scene& scene) { scene.request.version = L"2.0.0.65536"; }},
                {"version with a letter", [](Scene& scene) { scene.request.version = L"2.0.0.7a"; }},
                {"version with a blank", [](Scene& scene) { scene.request.version = L" 2.0.0.7"; }},
                {"no digest", [](Scene& scene) { scene.request.sha256.clear(); }},
                {"digest of 63", [](Scene& scene) { scene.request.sha256.pop_back(); }},
                {"digest of 65", [](Scene& scene) { scene.request.sha256 += L'0'; }},
                {"digest with a g", [](Scene& scene) { scene.request.sha256[0] = L'g'; }},
                {"digest with a G at its end", [](Scene& scene) { scene.request.sha256[63] = L'G'; }},
                {"digest with a full-width digit", [](Scene& scene) { scene.request.sha256[31] = L'０'; }},
                {"digest with a blank", [](Scene& scene) { scene.request.sha256[63] = L' '; }},
            });
}

/// Each of the three paths, in the order in which they are made full or not.
TEST(SelfReplacement, PathThatCannotBeMadeFull_ExitsWith40) {
    for (const DWORD length : {0u, 32768u, 40000u}) {
        for (const auto pick : {+[](Scene& scene) -> std::wstring& { return scene.selfPath; },
                                +[](Scene& scene) -> std::wstring& { return scene.request.targetPath; },
                                +[](Scene& scene) -> std::wstring& { return scene.request.configurationPath; }}) {
            Scene scene;
            const std::wstring refused = pick(scene);
            SCOPED_TRACE(platform::EncodeUtf8(refused) + ", " + std::to_string(length));
            const OnFullPath onFullPath([&](LPCWSTR path, DWORD units, LPWSTR buffer, LPWSTR* file) {
                EXPECT_EQ(units, 32768u);
                const DWORD written = OnFullPath::Original(path, units, buffer, file);
                return path == refused ? length : written;
            });
            const MutationFaults faults;
            EXPECT_EQ(scene.Run(), 40);
            EXPECT_EQ(faults.Count(), 0u);
        }
    }
}

/// Up to the longest path of all the next check decides.
TEST(SelfReplacement, FullPathsOf32767Units_AreNotTooLong) {
    Scene scene;
    const std::wstring deep = L"C:\\" + std::wstring(32767 - 4 - std::wcslen(kTargetEnd), L'a') + L"\\";
    const OnFullPath onFullPath([&](LPCWSTR path, DWORD units, LPWSTR buffer, LPWSTR* file) -> DWORD {
        if (path == scene.selfPath) return OnFullPath::Original(path, units, buffer, file);
        const std::wstring full = deep + (path == scene.target ? kTargetEnd : L"current.json");
        full.copy(buffer, full.size());
        buffer[full.size()] = L'\0';
        return static_cast<DWORD>(full.size());
    });
    ASSERT_EQ((deep + kTargetEnd).size(), 32767u);
    EXPECT_EQ(scene.Run(), 41);
}

TEST(SelfReplacement, AnotherFolderThanUpdater_ExitsWith41) {
    ExpectEachLeavesAllAlone(
        41, {
                {"beside the target", [](Scene& scene) { scene.StartFrom(scene.folder / L"a.exe"); }},
                {"Updater beside the target", [](Scene& scene) { scene.StartFrom(scene.folder / L"Updater\\a.exe"); }},
                {"beside the application",
                 [](Scene& scene) { scene.StartFrom(scene.folder / L"Velmora Pine Relay\\a.exe"); }},
                {"below Updater", [](Scene& scene) { scene.StartFrom(scene.updater + L"\\Updater\\a.exe"); }},
                {"a longer name", [](Scene& scene) { scene.StartFrom(scene.updater + L"2\\a.exe"); }},
                {"another application", [](Scene& scene) { scene.StartFrom(scene.folder / L"Other\\Updater\\a.exe"); }},
                {"another tree",
                 [](Scene& scene) { scene.StartFrom(scene.folder / L"x\\Velmora Pine Relay\\Updater\\a.exe"); }},
            });
}

TEST(SelfReplacement, SettingsOfAnotherProgramOrNone_ExitWith42) {
    ExpectEachLeavesAllAlone(
        42, {
                {"missing", [](Scene& scene) { EXPECT_TRUE(DeleteFileW(scene.settings.c_str())); }},
                {"empty", [](Scene& scene) { scene.PutSettings(""); }},
                {"no fields", [](Scene& scene) { scene.PutSettings("{}"); }},
                {"not UTF-8", [](Scene& scene) { scene.PutSettings(OldSettings() + "\xFF"); }},
                {"too large", [](Scene& scene) { scene.PutSettings(OldSettings() + std::string(65536, ' ')); }},
                {"a folder",
                 [](Scene& scene) {
                     EXPECT_TRUE(DeleteFileW(scene.settings.c_str()));
                     EXPECT_TRUE(launcher_update::EnsureDirectory(scene.settings));
                 }},
                {"another folder",
                 [](Scene& scene) {
                     scene.PutSettings(
                         Replaced(OldSettings(), "Directory\": \"Velmora Pine Relay\"", "Directory\": \"Other\""));
                 }},
                {"the folder in other letters",
                 [](Scene& scene) {
                     scene.PutSettings(Replaced(OldSettings(), "Directory\": \"Velmora Pine Relay\"",
                                                "Directory\": \"velmora pine relay\""));
                 }},
                {"a folder below",
                 [](Scene& scene) {
                     scene.PutSettings(Replaced(OldSettings(), "Directory\": \"Velmora Pine Relay\"",
                                                "Directory\": \"Velmora Pine Relay/Updater\""));
                 }},
                {"another program",
                 [](Scene& scene) { scene.PutSettings(Replaced(OldSettings(), "Relay.exe", "Relay2.exe")); }},
                {"the program in other letters",
                 [](Scene& scene) { scene.PutSettings(Replaced(OldSettings(), "Relay.exe", "Relay.EXE")); }},
            });
}

TEST(SelfReplacement, AnotherLauncherThanAnnounced_ExitsWith43) {
    ExpectEachLeavesAllAlone(
        43, {
                {"another digest",
                 [](Scene& scene) { scene.request.sha256[0] = scene.request.sha256[0] == L'0' ? L'1' : L'0'; }},
                {"one byte more", [](Scene& scene) { scene.PutSelf(NewLauncher() + "x"); }},
                {"another version", [](Scene& scene) { scene.request.version = L"2.0.0.8"; }},
                {"the version written otherwise", [](Scene& scene) { scene.request.version = L"2.0.0.07"; }},
                {"the halves of the version exchanged", [](Scene& scene) { scene.request.version = L"0.7.2.0"; }},
                {"a program of another version",
                 [](Scene& scene) {
                     const std::string other = ProgramOfVersion(2, 0, 1, 7);
                     scene.PutSelf(other);
                     scene.request.sha256 = DigestOf(other);
                 }},
                {"a program without a version",
                 [](Scene& scene) {
                     scene.PutSelf("no version");
                     scene.request.sha256 = DigestOf("no version");
                 }},
                {"no program", [](Scene& scene) { EXPECT_TRUE(DeleteFileW(scene.selfPath.c_str())); }},
            });
}

TEST(SelfReplacement, ChecksComeInTheirOrder) {
    Scene scene;
    const LauncherReplacement good = scene.request;
    const std::wstring goodSelf = scene.selfPath;
    scene.request.version = L"2.0";
    scene.request.sha256 = std::wstring(64, L'0');
    scene.StartFrom(scene.folder / L"a.exe");
    scene.PutSettings("{}");
    EXPECT_EQ(scene.Run(), 40);
    scene.request.version = good.version;
    EXPECT_EQ(scene.Run(), 41);
    scene.selfPath = goodSelf;
    EXPECT_EQ(scene.Run(), 42);
    scene.PutSettings(OldSettings());
    EXPECT_EQ(scene.Run(), 43);
    scene.request.sha256 = good.sha256;
    scene.ExpectReplaced(scene.Run());
}

// --- Copies

TEST(SelfReplacement, TargetThatCannotBeCopied_ExitsWith44) {
    Scene missing;
    ASSERT_TRUE(DeleteFileW(missing.target.c_str()));
    EXPECT_EQ(missing.Run(), 44);
    EXPECT_EQ(missing.Now(), missing.BeforeBut({{kTarget, ""}}));
    EXPECT_TRUE(missing.moves.empty());
}

TEST(SelfReplacement, TargetThatNobodyMayRead_ExitsWith44) {
    Scene locked;
    const FileHandle holder = Hold(locked.target, 0);
    EXPECT_EQ(locked.Run(), 44);
    EXPECT_TRUE(locked.moves.empty());
    EXPECT_FALSE(Exists(locked.updater + L"\\launcher-replacement.exe"));
}

TEST(SelfReplacement, StaleReplacement_GoesFirst_EvenWhereNoCopyCanBeMade) {
    Scene scene;
    scene.Put(L"Velmora Pine Relay\\Updater\\launcher-replacement.exe", "stale");
    ASSERT_TRUE(DeleteFileW(scene.target.c_str()));
    const MutationFaults faults;
    EXPECT_EQ(scene.Run(), 44);
    EXPECT_EQ(scene.Now(), scene.BeforeBut({{kTarget, ""}, {kReplacement, ""}}));
    const RecordedCall first = faults.Calls().at(0);
    EXPECT_EQ(first.function, "DeleteFileW");
    EXPECT_TRUE(first.path.ends_with(L"launcher-replacement.exe")) << platform::EncodeUtf8(first.path);
}

TEST(SelfReplacement, NewLauncherThatCannotBeCopied_ExitsWith44) {
    Scene scene;
    ASSERT_TRUE(launcher_update::EnsureDirectory(scene.updater + L"\\launcher-replacement.exe"));
    EXPECT_EQ(scene.Run(), 44);
    scene.ExpectOldWithBackup();
    EXPECT_TRUE(scene.moves.empty());
}

TEST(SelfReplacement, NewLauncherCopiedInPart_ExitsWith44) {
    Scene scene;
    MutationFaults faults(FaultKind::failTorn, 1, ERROR_DISK_FULL);
    faults.CountOnly("CopyFileW", L"Launcher 2.exe");
    EXPECT_EQ(scene.Run(), 44);
    EXPECT_TRUE(faults.Reached());
    scene.ExpectOldWithBackup();
    EXPECT_TRUE(scene.moves.empty());
}

TEST(SelfReplacement, CopyThatDiffers_ExitsWith45) {
    struct Row {
        const char* what;
        std::string (*alter)(std::string);
    };
    for (const Row& row : {Row{"last byte",
                               [](std::string bytes) {
                                   bytes.back() = static_cast<char>(bytes.back() ^ 1);
                                   return bytes;
                               }},
                           Row{"cut", [](std::string bytes) { return bytes.substr(0, bytes.size() / 2); }},
                           Row{"empty", [](std::string) { return std::string(); }},
                           Row{"longer", [](std::string bytes) { return bytes + '\0'; }}}) {
        SCOPED_TRACE(row.what);
        Scene scene;
        int copies = 0;
        const OnCopyFile onCopyFile([&](LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
            const BOOL copied = OnCopyFile::Original(from, to, failIfExists);
            if (std::wstring_view(to).ends_with(L"launcher-replacement.exe")) {
                WriteWholeFile(to, row.alter(ReadWholeFile(to)));
                ++copies;
            }
            return copied;
        });
        EXPECT_EQ(scene.Run(), 45);
        EXPECT_EQ(copies, 1);
        scene.ExpectOldWithBackup();
        EXPECT_TRUE(scene.moves.empty());
    }
}

// --- The target is in use

/// A program that runs may be read, but not replaced.
TEST(SelfReplacement, TargetFreedInTime_IsReplaced) {
    for (const std::size_t heldPauses : {1u, 50u, 290u, 299u}) {
        SCOPED_TRACE(heldPauses);
        Scene scene;
        FileHandle holder = Hold(scene.target, FILE_SHARE_READ);
        scene.onPause = [&] {
            EXPECT_EQ(ReadWholeFile(scene.updater + L"\\launcher-replacement.exe"), NewLauncher());
            if (scene.pauses.size() == heldPauses) holder.Reset();
        };
        const int code = scene.Run();
        holder.Reset();
        scene.ExpectReplaced(code);
        EXPECT_EQ(scene.pauses, std::vector<DWORD>(heldPauses, 100));
        EXPECT_EQ(scene.MovesOnto(kTargetEnd).size(), heldPauses + 1);
    }
}

TEST(SelfReplacement, TargetHeldForHalfAMinute_ExitsWith46) {
    for (const bool freedAtLast : {false, true}) {
        SCOPED_TRACE(freedAtLast);
        Scene scene;
        FileHandle holder = Hold(scene.target, FILE_SHARE_READ);
        scene.onPause = [&] {
            if (freedAtLast && scene.pauses.size() == 300) holder.Reset();  // behind the last try
        };
        EXPECT_EQ(scene.Run(), 46);
        holder.Reset();
        scene.ExpectOldWithBackup();
        EXPECT_EQ(scene.pauses, std::vector<DWORD>(300, 100));
        EXPECT_EQ(scene.moves.size(), 300u);
        EXPECT_EQ(scene.MovesOnto(kTargetEnd).size(), 300u);
    }
}

/// Windows does not rename over a read-only file; elsewhere it may be done.
TEST(SelfReplacement, ReadOnlyTarget_ExitsWith46) {
    Scene scene;
    ASSERT_TRUE(SetFileAttributesW(scene.target.c_str(), FILE_ATTRIBUTE_READONLY));
    scene.refusal = [](const Move& move) -> DWORD {
        const DWORD attributes = GetFileAttributesW(move.to.c_str());
        const bool readOnly = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0;
        return readOnly ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    };
    EXPECT_EQ(scene.Run(), 46);
    scene.ExpectOldWithBackup();
    EXPECT_EQ(scene.pauses, std::vector<DWORD>(300, 100));
    EXPECT_EQ(scene.MovesOnto(kTargetEnd).size(), 300u);
    EXPECT_NE(GetFileAttributesW(scene.target.c_str()) & FILE_ATTRIBUTE_READONLY, 0u) << "it was the user's own wish";
}

TEST(SelfReplacement, ReplacementThatVanishesMeanwhile_ExitsWith46) {
    Scene scene;
    FileHandle holder = Hold(scene.target, FILE_SHARE_READ);
    scene.onPause = [&] {
        DeleteFileW((scene.updater + L"\\launcher-replacement.exe").c_str());
        holder.Reset();
    };
    EXPECT_EQ(scene.Run(), 46);
    scene.ExpectOldWithBackup();
}

// --- Not confirmed

/// The old launcher is back, by a rename like the one before, and its copy stays.
void ExpectTakenBack(Scene& scene) {
    EXPECT_EQ(scene.Run(), 47);
    scene.ExpectOldWithBackup();
    const std::vector<Move> moves = scene.MovesOnto(kTargetEnd);
    ASSERT_EQ(moves.size(), 2u);
    for (const Move& move : moves) {
        EXPECT_TRUE(move.from.ends_with(L"\\launcher-replacement.exe")) << platform::EncodeUtf8(move.from);
        EXPECT_EQ(move.flags, kMoveFlags);
    }
}

TEST(SelfReplacement, SettingsWithoutAVersionToReplace_ExitWith47) {
    for (const char* value : {"1", "null", "{\"a\": \"1\"}", "\"1.0\\u0030\"", "\"1.0\\q\""}) {
        SCOPED_TRACE(value);
        Scene scene;
        scene.PutSettings(SettingsWith(value));
        ExpectTakenBack(scene);
    }
    Scene keyless;
    keyless.PutSettings(Replaced(OldSettings(), "launcherVersion", "launcherVersions"));
    ExpectTakenBack(keyless);
}

/// The next start reads no more than 65536 bytes, and a launcher that refuses its own settings is lost.
TEST(SelfReplacement, SettingsThatWouldGrowTooLarge_ExitWith47) {
    const std::string shortVersion = SettingsWith("\"1\"");
    const std::size_t room = 65536 - NewSettings().size();
    {
        Scene fits;
        fits.PutSettings(shortVersion + std::string(room, ' '));
        EXPECT_EQ(fits.Run(), 0);
        EXPECT_EQ(ReadWholeFile(fits.settings), NewSettings() + std::string(room, ' '));
    }
    Scene tooLarge;
    tooLarge.PutSettings(shortVersion + std::string(room + 1, ' '));
    ExpectTakenBack(tooLarge);
}

TEST(SelfReplacement, SettingsThatCannotBeReplaced_ExitWith47) {
    Scene refused;
    refused.refusal = [](const Move& move) -> DWORD {
        return move.to.ends_with(L"current.json") ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    };
    ExpectTakenBack(refused);
    EXPECT_EQ(refused.MovesOnto(L"current.json").size(), 1u);
    EXPECT_TRUE(refused.pauses.empty());
}

TEST(SelfReplacement, SettingsThatCannotBeWritten_ExitWith47) {
    Scene blocked;
    ASSERT_TRUE(launcher_update::EnsureDirectory(blocked.settings + L".launcher-update"));
    ExpectTakenBack(blocked);
}

/// The old launcher may still write them while it ends.
TEST(SelfReplacement, SettingsSpoiledMeanwhile_ExitWith47AndStayAsTheyAre) {
    for (const std::string& spoiled :
         {std::string(), OldSettings() + "\xFF", OldSettings() + std::string(65537 - OldSettings().size(), ' ')}) {
        SCOPED_TRACE(spoiled.size());
        Scene scene;
        scene.onMoved = [&](const Move& move) {
            if (move.to.ends_with(kTargetEnd) && scene.MovesOnto(kTargetEnd).size() == 1)
                WriteWholeFile(scene.settings, spoiled);
        };
        EXPECT_EQ(scene.Run(), 47);
        EXPECT_EQ(ReadWholeFile(scene.settings), spoiled);
        EXPECT_EQ(ReadWholeFile(scene.target), kOld);
        EXPECT_EQ(ReadWholeFile(scene.updater + L"\\launcher-backup.exe"), kOld);
        EXPECT_FALSE(Exists(scene.updater + L"\\launcher-replacement.exe"));
    }
}

TEST(SelfReplacement, SettingsChangedMeanwhile_KeepTheChange) {
    Scene scene;
    const std::string changed = Replaced(OldSettings(), "\"productVersion\": \"1.0", "\"productVersion\": \"1.1");
    const std::string large = changed + std::string(65536 - changed.size(), ' ');
    scene.onMoved = [&](const Move& move) {
        if (move.to.ends_with(kTargetEnd)) WriteWholeFile(scene.settings, large);
    };
    EXPECT_EQ(scene.Run(), 0);
    EXPECT_EQ(ReadWholeFile(scene.settings), Replaced(large, "\"1.0.0.0\"", "\"2.0.0.7\""));
}

/// The version is not recorded for a launcher that is not the announced one.
TEST(SelfReplacement, TargetThatDiffersAfterTheMove_ExitsWith47) {
    for (const auto alter : {+[](const std::wstring& path) { WriteWholeFile(path, NewLauncher() + "x"); },
                             +[](const std::wstring& path) { WriteWholeFile(path, "an intruder"); },
                             +[](const std::wstring& path) { EXPECT_TRUE(DeleteFileW(path.c_str())); }}) {
        Scene scene;
        scene.onMoved = [&](const Move& move) {
            if (move.to.ends_with(kTargetEnd) && scene.MovesOnto(kTargetEnd).size() == 1) alter(scene.target);
        };
        ExpectTakenBack(scene);
        EXPECT_TRUE(scene.MovesOnto(L"current.json").empty());
    }
}

TEST(SelfReplacement, OldLauncherThatCannotBePutBack_IsKeptBesideAWholeNewOne) {
    Scene scene;
    scene.PutSettings(SettingsWith("1"));
    scene.refusal = [&scene](const Move&) -> DWORD {
        return scene.MovesOnto(kTargetEnd).size() > 1 ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    };
    EXPECT_EQ(scene.Run(), 47);
    EXPECT_EQ(scene.Now(), scene.BeforeBut({{kTarget, kNew}, {kBackup, kOld}}));
    EXPECT_TRUE(scene.pauses.empty()) << "half a minute is for the first move";
}

TEST(SelfReplacement, AfterAFailure_TheNextRunReplaces) {
    Scene scene;
    scene.PutSettings(SettingsWith("1"));
    EXPECT_EQ(scene.Run(), 47);
    WriteWholeFile(scene.settings, OldSettings());
    scene.ExpectReplaced(scene.Run());
}

// --- Every call that changes the disk fails

using Fault = test_support::CallFault;
using test_support::kCallFaults;
constexpr std::uint32_t kMostCalls = 100;  // far above what a replacement needs

/// One run with one fault.
struct Faulted {
    int code;
    bool reached;
    std::vector<RecordedCall> calls;
};

Faulted RunWith(const Scene& scene, const Fault& fault, std::uint32_t at) {
    MutationFaults faults(fault.kind, at, ERROR_DISK_FULL, fault.fromThenOn);
    const int code = scene.Run();
    return {code, faults.Reached(), faults.Calls()};
}

bool IsMoveOntoTarget(const RecordedCall& call) {
    return call.function == "MoveFileExW" && call.second.ends_with(kTargetEnd);
}

/// Whether the way back itself met the fault.
bool MetTheWayBack(const Fault& fault, std::uint32_t at, const Faulted& run, bool recordable) {
    const auto firstMove = std::find_if(run.calls.begin(), run.calls.end(), IsMoveOntoTarget);
    const bool behindTheMove = at > static_cast<std::uint32_t>(firstMove - run.calls.begin()) + 1;
    return run.code == 47 && (fault.fromThenOn || (!recordable && behindTheMove));
}

/// Half of a first copy may stay behind 44; a backup that cannot be deleted stays behind a success.
void ExpectTrueBackup(const Files& now, const Fault& fault, std::uint32_t at, const Faulted& run) {
    const bool exists = now.count(kBackup) != 0;
    if (run.code >= 45) {
        EXPECT_TRUE(exists);
        EXPECT_EQ(exists ? now.at(kBackup) : "", kOld);
    }
    if (run.code == 0 && exists) {
        EXPECT_TRUE(fault.fromThenOn || run.calls[at - 1].path.ends_with(L"launcher-backup.exe"));
    }
}

/// What the code tells is true, launcher and settings are whole, and nothing else has changed.
void ExpectTrue(const Scene& scene, const Fault& fault, std::uint32_t at, const Faulted& run, bool recordable) {
    const Files now = scene.Now();
    const bool replaced = run.code == 0;
    EXPECT_TRUE(replaced || run.code == 44 || run.code == 46 || run.code == 47) << run.code;
    if (MetTheWayBack(fault, at, run, recordable)) {
        EXPECT_TRUE(now.at(kTarget) == kOld || now.at(kTarget) == kNew) << now.at(kTarget);
    } else {
        EXPECT_EQ(now.at(kTarget), replaced ? kNew : kOld);
    }
    EXPECT_EQ(now.at(kSettings), replaced ? NewSettings() : scene.before.at(kSettings));
    ExpectTrueBackup(now, fault, at, run);
    Files others = now;
    for (const char* path : {kTarget, kSettings, kBackup})
        others.erase(path);
    if (fault.fromThenOn) {  // nothing can be cleared either
        others.erase(kReplacement);
        others.erase(std::string(kSettings) + ".launcher-update");
    }
    EXPECT_EQ(others, scene.BeforeBut({{kTarget, ""}, {kSettings, ""}}));
}

void ExpectSound(const std::string& settings, bool recordable, std::uint32_t leastCalls) {
    for (const Fault& fault : kCallFaults) {
        std::uint32_t at = 1;
        for (; at <= kMostCalls; ++at) {
            SCOPED_TRACE(std::string(fault.name) + ", " + std::to_string(at));
            Scene scene;
            scene.PutSettings(settings);
            const Faulted run = RunWith(scene, fault, at);
            if (!run.reached) {
                EXPECT_EQ(run.code, recordable ? 0 : 47);
                break;
            }
            SCOPED_TRACE(run.calls[at - 1].function + " " + platform::EncodeUtf8(run.calls[at - 1].path));
            ExpectTrue(scene, fault, at, run, recordable);
            WriteWholeFile(scene.settings, OldSettings());
            scene.ExpectReplaced(scene.Run());
        }
        EXPECT_GT(at, leastCalls) << "too few calls met the fault";
        EXPECT_LT(at, kMostCalls);
    }
}

/// Two copies that are forced out, the rename, the settings' writing and rename, and the backup's end at least.
TEST(SelfReplacementFaults, AnyFailingCall_LeavesTheOldOrTheNewLauncherWithItsSettings) {
    ExpectSound(OldSettings(), true, 10);
}

/// As above without the settings, and the way back.
TEST(SelfReplacementFaults, AnyFailingCallOfARunThatIsTakenBack_LeavesAWholeLauncher) {
    ExpectSound(SettingsWith("1"), false, 8);
}

}  // namespace
}  // namespace launcher_shell
