#include <windows.h>

#include <gtest/gtest.h>
#include <shellapi.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "launcher/application_start.h"
#include "launcher/command_line.h"
#include "launcher/configuration.h"
#include "launcher/update_worker.h"
#include "platform/text.h"
#include "tests/support/import_hook.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/workflow/schedule.h"

namespace launcher_shell {
namespace {

using launcher_update::Outcome;
using launcher_update::Result;
using test_support::ReadWholeFile;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

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
    ASSERT_TRUE(RebuildLauncherConfiguration(folder.Path(), SystemProgram(), folder / L"current.json", rebuilt, error));
    EXPECT_TRUE(IsDottedVersion(rebuilt.productVersion));
    EXPECT_EQ(rebuilt.productVersion, ReadFileVersion(SystemProgram()));
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
        ASSERT_TRUE(RunUpdateWorker(work, result));
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
    EXPECT_FALSE(RunUpdateWorker([] { return Result{}; }, result));
}

TEST(UpdateWorker, WaitThatFails_IsUnsafe) {
    static decltype(&WaitForSingleObject) original;
    const auto failing = +[](HANDLE handle, DWORD timeout) -> DWORD {
        original(handle, timeout);
        return WAIT_FAILED;
    };
    const test_support::ImportHook hook("WaitForSingleObject", reinterpret_cast<void*>(failing));
    original = reinterpret_cast<decltype(&WaitForSingleObject)>(hook.Original());
    Result result;
    ASSERT_TRUE(RunUpdateWorker([] { return Result{}; }, result));
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_FALSE(result.safeToLaunch);
    EXPECT_EQ(result.error, L"The update worker completion could not be confirmed.");
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
    WriteWholeFile(path, ReadWholeFile(path) + std::string(16384, ' '));
    EXPECT_TRUE(launcher_update::IsCheckDue(path, 15));
}

}  // namespace
}  // namespace launcher_shell
