#include <windows.h>

#include <gtest/gtest.h>
#include <shellapi.h>
#include <winver.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "launcher/application_start.h"
#include "launcher/command_line.h"
#include "launcher/configuration.h"
#include "launcher/update_worker.h"
#include "platform/text.h"
#include "product/locations.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/workflow/schedule.h"

namespace launcher_shell {
namespace {

using launcher_update::Outcome;
using launcher_update::Result;
using test_support::ReadWholeFile;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnCloseHandle = StandIn<"CloseHandle", decltype(CloseHandle)>;
using OnCreateProcess = StandIn<"CreateProcessW", decltype(CreateProcessW)>;
using OnFullPath = StandIn<"GetFullPathNameW", decltype(GetFullPathNameW)>;
using OnQueryValue = StandIn<"VerQueryValueW", decltype(VerQueryValueW)>;
using OnShortPath = StandIn<"GetShortPathNameW", decltype(GetShortPathNameW)>;
using OnWait = StandIn<"WaitForSingleObject", decltype(WaitForSingleObject)>;

TEST(LauncherConfiguration, MissingFile_IsToldFromAMissingFolder) {
    const TemporaryDirectory folder;
    LauncherConfiguration configuration;
    std::wstring error;
    EXPECT_EQ(ReadLauncherConfiguration(folder / L"current.json", configuration, error), ConfigurationStatus::missing);
    EXPECT_EQ(error, L"");
    EXPECT_EQ(ReadLauncherConfiguration(folder / L"missing\\current.json", configuration, error),
              ConfigurationStatus::unusable);
    EXPECT_EQ(error, L"無法讀取 current.json。");
}

TEST(LauncherConfiguration, FileThatCannotBeOpened_IsUnusable) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"current.json", "{}");
    const HANDLE holder =
        CreateFileW((folder / L"current.json").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    LauncherConfiguration configuration;
    std::wstring error;
    EXPECT_EQ(ReadLauncherConfiguration(folder / L"current.json", configuration, error), ConfigurationStatus::unusable);
    EXPECT_EQ(error, L"無法讀取 current.json。");
    CloseHandle(holder);
    EXPECT_EQ(ReadLauncherConfiguration(folder.Path(), configuration, error), ConfigurationStatus::unusable);
}

TEST(LauncherConfiguration, SizesAroundTheLimit) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"current.json";
    const std::string text = platform::EncodeUtf8(RenderLauncherConfiguration(LauncherConfiguration{}));
    LauncherConfiguration configuration;
    std::wstring error;
    WriteWholeFile(path, text + std::string(65536 - text.size(), '\n'));
    EXPECT_EQ(ReadLauncherConfiguration(path, configuration, error), ConfigurationStatus::read);
    WriteWholeFile(path, text + std::string(65537 - text.size(), '\n'));
    EXPECT_EQ(ReadLauncherConfiguration(path, configuration, error), ConfigurationStatus::unusable);
    EXPECT_EQ(error, L"current.json 為空、過大或讀取失敗。");
    WriteWholeFile(path, "");
    EXPECT_EQ(ReadLauncherConfiguration(path, configuration, error), ConfigurationStatus::unusable);
}

TEST(LauncherConfiguration, Rebuild_NeedsBothVersions) {
    const TemporaryDirectory folder;
    LauncherConfiguration configuration;
    std::wstring error;
    EXPECT_FALSE(RebuildLauncherConfiguration(folder.Path(), folder / L"launcher.exe", folder / L"current.json",
                                              configuration, error));
    EXPECT_EQ(error, L"current.json 遺失，且無法從現有程式重建版本資訊。");
    EXPECT_EQ(configuration, LauncherConfiguration{});
}

/// A file of the system carries a version resource, under Wine as on Windows.
std::wstring SystemProgram() {
    wchar_t folder[MAX_PATH] = {};
    GetSystemDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\kernel32.dll";
}

TEST(LauncherConfiguration, Rebuild_WritesWhatItReads) {
    const TemporaryDirectory folder;
    ASSERT_TRUE(launcher_update::EnsureDirectory(folder / L"Velmora Pine Relay"));
    ASSERT_TRUE(
        CopyFileW(SystemProgram().c_str(), (folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe").c_str(), FALSE));
    LauncherConfiguration rebuilt;
    std::wstring error;
    EXPECT_FALSE(RebuildLauncherConfiguration(folder.Path(), folder / L"launcher.exe", folder / L"current.json",
                                              rebuilt, error));
    EXPECT_EQ(error, L"current.json 遺失，且無法從現有程式重建版本資訊。") << "the launcher's own version counts too";
    EXPECT_EQ(test_support::FileLength(folder / L"current.json"), -1);
    ASSERT_TRUE(RebuildLauncherConfiguration(folder.Path(), SystemProgram(), folder / L"current.json", rebuilt, error));
    EXPECT_TRUE(IsDottedVersion(rebuilt.productVersion));
    EXPECT_EQ(rebuilt.productVersion, ReadFileVersion(SystemProgram()));
    EXPECT_EQ(rebuilt.launcherVersion, ReadFileVersion(SystemProgram()));
    EXPECT_EQ(rebuilt.updateManifestUrl, product::kPrimaryManifestUrl);
    EXPECT_EQ(rebuilt.updateCheckIntervalMinutes, 15);
    LauncherConfiguration read;
    EXPECT_EQ(ReadLauncherConfiguration(folder / L"current.json", read, error), ConfigurationStatus::read);
    EXPECT_EQ(read, rebuilt);

    test_support::MutationFaults faults(test_support::FaultKind::fail, 1);
    faults.CountOnly("MoveFileExW", L"current.json.launcher-update");
    EXPECT_FALSE(
        RebuildLauncherConfiguration(folder.Path(), SystemProgram(), folder / L"current.json", rebuilt, error));
    EXPECT_EQ(error, L"current.json 遺失，且無法在程式資料夾中重新建立。");
}

TEST(FileVersion, OfAFileWithoutOne_IsEmpty) {
    const TemporaryDirectory folder;
    WriteWholeFile(folder / L"a.exe", "not a program");
    EXPECT_EQ(ReadFileVersion(folder / L"a.exe"), L"");
    EXPECT_EQ(ReadFileVersion(folder / L"missing.exe"), L"");
    EXPECT_TRUE(IsDottedVersion(ReadFileVersion(SystemProgram())));
}

TEST(FileVersion, IsTheFileVersionInFourHalves) {
    VS_FIXEDFILEINFO info{};
    info.dwFileVersionMS = 0x0001'0002;
    info.dwFileVersionLS = 0x0003'FFFF;
    info.dwProductVersionMS = 0x0009'0009;
    info.dwProductVersionLS = 0x0009'0009;
    UINT length = sizeof(info);
    BOOL found = TRUE;
    const OnQueryValue query([&](LPCVOID, LPCWSTR name, LPVOID* value, PUINT valueLength) {
        EXPECT_STREQ(name, L"\\");
        *value = &info;
        *valueLength = length;
        return found;
    });
    EXPECT_EQ(ReadFileVersion(SystemProgram()), L"1.2.3.65535");
    length = 51;
    EXPECT_EQ(ReadFileVersion(SystemProgram()), L"");
    length = sizeof(info);
    found = FALSE;
    EXPECT_EQ(ReadFileVersion(SystemProgram()), L"");
}

class ApplicationStart : public testing::Test {
  protected:
    bool Resolve() { return ResolveApplicationPath(folder.Path(), configuration, path, error); }

    TemporaryDirectory folder;
    LauncherConfiguration configuration;
    std::wstring path;
    std::wstring error;
};

TEST_F(ApplicationStart, PathIsResolvedBelowTheLauncher) {
    ASSERT_TRUE(launcher_update::EnsureDirectory(folder / L"Velmora Pine Relay"));
    WriteWholeFile(folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe", "x");
    EXPECT_TRUE(Resolve());
    EXPECT_EQ(path, folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe");
    configuration.applicationDirectory = L"VELMORA pine relay";
    EXPECT_TRUE(Resolve());
}

TEST_F(ApplicationStart, MissingProgram_IsNamed) {
    EXPECT_FALSE(Resolve());
    EXPECT_EQ(error, L"找不到主程式：\n" + (folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe"));
    ASSERT_TRUE(launcher_update::EnsureDirectory(folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe"));
    EXPECT_FALSE(Resolve());
    EXPECT_EQ(error, L"找不到主程式：\n" + (folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe"));
}

TEST_F(ApplicationStart, PathThatLeavesTheFolder_IsRefused) {
    configuration.applicationDirectory = L"..";
    EXPECT_FALSE(Resolve());
    EXPECT_EQ(error, L"主程式路徑超出啟動器資料夾。");
}

TEST_F(ApplicationStart, PathThatIsTooLong_CannotBeResolved) {
    configuration.applicationDirectory = std::wstring(40000, L'a');
    EXPECT_FALSE(Resolve());
    EXPECT_EQ(error, L"無法解析主程式路徑。");
}

/// The buffer has room for 32767 units and their end; Windows answers with the size it wants when that is too small.
TEST_F(ApplicationStart, LongestPath_Has32767Units) {
    DWORD answer = 0;
    const OnFullPath fullPath([&](LPCWSTR, DWORD units, LPWSTR buffer, LPWSTR*) {
        EXPECT_EQ(units, 32768u);
        const std::wstring longest = folder.Path() + L"\\" + std::wstring(32767 - folder.Path().size() - 1, L'a');
        longest.copy(buffer, longest.size());
        return answer;
    });
    answer = 32767;
    EXPECT_FALSE(Resolve());
    EXPECT_TRUE(error.starts_with(L"找不到主程式：\n" + folder.Path()));
    for (const DWORD refused : {0u, 32768u, 40000u}) {
        answer = refused;
        EXPECT_FALSE(Resolve());
        EXPECT_EQ(error, L"無法解析主程式路徑。") << refused;
    }
}

TEST_F(ApplicationStart, FolderThatOnlyBeginsAlike_IsOutside) {
    std::wstring full;
    const OnFullPath fullPath([&full](LPCWSTR, DWORD, LPWSTR buffer, LPWSTR*) {
        full.copy(buffer, full.size());
        return static_cast<DWORD>(full.size());
    });
    for (const wchar_t* rest : {L"2\\a.exe", L"\\", L""}) {
        full = folder.Path() + rest;
        EXPECT_FALSE(Resolve());
        EXPECT_EQ(error, L"主程式路徑超出啟動器資料夾。") << rest;
    }
}

TEST_F(ApplicationStart, ProcessIsPlain_AndItsHandlesAreClosed) {
    const HANDLE process = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE thread = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const OnCreateProcess create([&](LPCWSTR program, LPWSTR line, LPSECURITY_ATTRIBUTES ofProcess,
                                     LPSECURITY_ATTRIBUTES ofThread, BOOL inherit, DWORD flags, LPVOID environment,
                                     LPCWSTR startFolder, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information) {
        EXPECT_STREQ(program, L"C:\\a b\\c.exe");
        EXPECT_STREQ(line, L"\"C:\\a b\\c.exe\" \"one\" \"\"");
        line[0] = L'x';  // Windows may write here
        EXPECT_EQ(ofProcess, nullptr);
        EXPECT_EQ(ofThread, nullptr);
        EXPECT_EQ(inherit, FALSE);
        EXPECT_EQ(flags, 0u);
        EXPECT_EQ(environment, nullptr);
        EXPECT_STREQ(startFolder, L"C:\\a b");
        STARTUPINFOW sizeOnly{};
        sizeOnly.cb = sizeof(sizeOnly);
        EXPECT_EQ(std::memcmp(startup, &sizeOnly, sizeof(sizeOnly)), 0);
        *information = {process, thread, 1, 2};
        return TRUE;
    });
    std::vector<HANDLE> closed;
    const OnCloseHandle close([&closed](HANDLE handle) {
        closed.push_back(handle);
        return OnCloseHandle::Original(handle);
    });
    EXPECT_EQ(StartApplication(L"C:\\a b\\c.exe", {L"one", L""}), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(std::count(closed.begin(), closed.end(), process), 1);
    EXPECT_EQ(std::count(closed.begin(), closed.end(), thread), 1);
}

/// Process creation bounds a path by MAX_PATH, room for a separator and the terminator included.
TEST_F(ApplicationStart, PathThatIsTooLongToStart_TakesItsShortForm) {
    const auto pathOf = [](std::size_t units) { return L"C:\\" + std::wstring(units - 3 - 6, L'd') + L"\\a.exe"; };
    std::wstring program;
    std::wstring startFolder;
    const OnCreateProcess create([&](LPCWSTR name, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                                     LPVOID, LPCWSTR directory, LPSTARTUPINFOW, LPPROCESS_INFORMATION) {
        program = name;
        startFolder = directory;
        return TRUE;
    });
    std::wstring start;  // of the short forms; empty: the volume keeps none
    const OnShortPath shortPath([&start](LPCWSTR asked, LPWSTR buffer, DWORD) {
        EXPECT_TRUE(std::wstring_view(asked).starts_with(L"\\\\?\\C:\\ddd"));
        if (start.empty()) return DWORD{0};
        const std::wstring shortForm = start + (std::wstring_view(asked).ends_with(L".exe") ? L"D~1\\A.EXE" : L"D~1");
        shortForm.copy(buffer, shortForm.size());
        return static_cast<DWORD>(shortForm.size());
    });
    struct Row {
        std::size_t units;
        std::wstring start;
        std::wstring program;
        std::wstring folder;
    };
    const std::wstring longest = pathOf(258);
    const std::wstring over = pathOf(259);
    const std::wstring deep = pathOf(300);
    const std::wstring folderOfOver = over.substr(0, over.size() - 6);
    const std::wstring folderOfDeep = deep.substr(0, deep.size() - 6);
    const std::wstring stillLong = L"\\\\?\\C:\\" + std::wstring(250, L'e') + L"\\";
    for (const Row& row : {Row{258, L"\\\\?\\C:\\", longest, longest.substr(0, longest.size() - 6)},
                           {259, L"\\\\?\\C:\\", L"\\\\?\\C:\\D~1\\A.EXE", folderOfOver},
                           {300, L"\\\\?\\C:\\", L"\\\\?\\C:\\D~1\\A.EXE", L"C:\\D~1"},
                           {300, L"", L"\\\\?\\" + deep, folderOfDeep},
                           {300, stillLong, L"\\\\?\\" + deep, folderOfDeep},
                           {300, L"\\\\?\\UNC\\s\\t\\", L"\\\\?\\UNC\\s\\t\\D~1\\A.EXE", folderOfDeep}}) {
        start = row.start;
        EXPECT_EQ(StartApplication(pathOf(row.units), {}), static_cast<DWORD>(ERROR_SUCCESS));
        EXPECT_EQ(program, row.program);
        EXPECT_EQ(startFolder, row.folder);
    }
}

TEST_F(ApplicationStart, FailedStart_GivesWindowsErrorCode) {
    WriteWholeFile(folder / L"a.exe", "not a program");
    EXPECT_EQ(StartApplication(folder / L"a.exe", {}), static_cast<DWORD>(ERROR_BAD_EXE_FORMAT));
    EXPECT_EQ(StartApplication(folder / L"missing.exe", {}), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

/// What is quoted here comes out of Windows' own splitter as it went in.
TEST(QuotedArguments, RoundTripThroughWindows) {
    const std::vector<std::wstring> arguments = {
        L"",      L"plain",  L"two words",  L"quote\"inside", L"\"",    L"back\\slash", L"trailing\\",
        L"a\\\\", L"a\\\"b", L"\\\\\"\\\\", L"日本語 é",      L"\ttab", L"--x=\"y z\"", L"C:\\a b\\"};
    const std::wstring line = BuildCommandLine(L"C:\\Program Files\\x.exe", arguments);
    int count = 0;
    wchar_t** split = CommandLineToArgvW(line.c_str(), &count);
    ASSERT_NE(split, nullptr);
    EXPECT_EQ(std::vector<std::wstring>(split + 1, split + count), arguments);
    EXPECT_STREQ(split[0], L"C:\\Program Files\\x.exe");
    LocalFree(split);
}

TEST(UpdateWorker, ResultIsHandedOver) {
    Result result;
    const DWORD mainThread = GetCurrentThreadId();
    DWORD workerThread = 0;
    ASSERT_TRUE(RunUpdateWorker(
        nullptr,
        [&workerThread] {
            workerThread = GetCurrentThreadId();
            Result done;
            done.outcome = Outcome::Applied;
            done.version = L"1.2.3.4";
            return done;
        },
        result));
    EXPECT_EQ(result.outcome, Outcome::Applied);
    EXPECT_EQ(result.version, L"1.2.3.4");
    EXPECT_EQ(result.error, L"");
    EXPECT_NE(workerThread, mainThread);
}

TEST(UpdateWorker, ExceptionOrNothingToRun_IsUnsafe) {
    for (const std::function<Result()>& work :
         {std::function<Result()>(), std::function<Result()>([]() -> Result { throw std::runtime_error("x"); }),
          std::function<Result()>([]() -> Result { throw 7; })}) {
        Result result;
        ASSERT_TRUE(RunUpdateWorker(nullptr, work, result));
        EXPECT_EQ(result.outcome, Outcome::Failed);
        EXPECT_FALSE(result.safeToLaunch);
        EXPECT_EQ(result.error, L"The update worker stopped unexpectedly.");
    }
}

TEST(UpdateWorker, ThreadThatCannotStart_SaysSo) {
    const auto refuse =
        +[](void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) -> std::uintptr_t { return 0; };
    const test_support::ImportHook hook("_beginthreadex", reinterpret_cast<void*>(refuse));
    Result result;
    EXPECT_FALSE(RunUpdateWorker(
        nullptr, [] { return Result{}; }, result));
}

/// The result lies in the frame that waits: it must not go before the worker has ended.
TEST(UpdateWorker, WaitThatFails_IsUnsafeAndStillWaitsForTheWorker) {
    const HANDLE mayEnd = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<bool> ended{false};
    int waits = 0;
    Result result;
    {
        const OnWait wait([&](HANDLE handle, DWORD timeout) -> DWORD {
            if (handle == mayEnd) return OnWait::Original(handle, timeout);
            EXPECT_EQ(timeout, INFINITE);
            if (++waits == 1) return WAIT_FAILED;
            SetEvent(mayEnd);
            return OnWait::Original(handle, timeout);
        });
        ASSERT_TRUE(RunUpdateWorker(
            nullptr,
            [&] {
                WaitForSingleObject(mayEnd, 20000);
                ended = true;
                Result done;
                done.outcome = Outcome::Applied;
                done.version = L"1.2.3.4";
                return done;
            },
            result));
        EXPECT_TRUE(ended) << "the worker still ran";
    }
    EXPECT_EQ(waits, 2);
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_FALSE(result.safeToLaunch);
    EXPECT_EQ(result.version, L"1.2.3.4");
    EXPECT_EQ(result.error, L"The update worker completion could not be confirmed.");
    CloseHandle(mayEnd);
}

TEST(Schedule_Edge, StateIsWrittenAndRead) {
    const TemporaryDirectory folder;
    const std::wstring path = folder / L"update-state.json";
    EXPECT_TRUE(launcher_update::IsCheckDue(path, 15));
    launcher_update::WriteUpdateState(path);
    EXPECT_FALSE(launcher_update::IsCheckDue(path, 15));
    EXPECT_FALSE(launcher_update::IsReleaseDue(path, 15, L"normal"));
    EXPECT_TRUE(launcher_update::IsReleaseDue(path, 15, L"hotfix"));
    EXPECT_TRUE(launcher_update::IsReleaseDue(path, 15, L"recommended"));
    const std::string state = ReadWholeFile(path);
    WriteWholeFile(path, state + std::string(16384 - state.size(), ' '));
    EXPECT_FALSE(launcher_update::IsCheckDue(path, 15));
    WriteWholeFile(path, state + std::string(16385 - state.size(), ' '));
    EXPECT_TRUE(launcher_update::IsCheckDue(path, 15));
}

}  // namespace
}  // namespace launcher_shell
