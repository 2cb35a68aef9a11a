#include "launcher/run.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <process.h>
#include <shellapi.h>
#include <winhttp.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "launcher/configuration_text.h"
#include "launcher/exit_codes.h"
#include "platform/text.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"
#include "update/transaction/lock.h"
#include "update/transaction/recovery.h"

namespace launcher_shell {
namespace {

using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnDpiContext = StandIn<"SetProcessDpiAwarenessContext", decltype(SetProcessDpiAwarenessContext)>;
using OnModuleFileName = StandIn<"GetModuleFileNameW", decltype(GetModuleFileNameW)>;
using OnCommandLine = StandIn<"GetCommandLineW", decltype(GetCommandLineW)>;
using OnSplit = StandIn<"CommandLineToArgvW", decltype(CommandLineToArgvW)>;
using OnMessageBox = StandIn<"MessageBoxW", decltype(MessageBoxW)>;
using OnWait = StandIn<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)>;
using OnCreateWindow = StandIn<"CreateWindowExW", decltype(CreateWindowExW)>;
using OnCreateProcess = StandIn<"CreateProcessW", decltype(CreateProcessW)>;
using OnBeginThread = StandIn<"_beginthreadex", decltype(_beginthreadex)>;
using OnOpenInternet = StandIn<"WinHttpOpen", decltype(WinHttpOpen)>;

struct Start {
    std::wstring program;
    std::wstring commandLine;
    std::wstring folder;
};

std::wstring TextOf(HWND window) {
    wchar_t text[1024] = L"";
    GetWindowTextW(window, text, 1024);
    return text;
}

/// The status window of this program, visible or not, or null.
HWND StatusWindowHandle() {
    return FindWindowW(L"VPRLauncherStatusWindow", nullptr);
}

/// What the notes panel says, or nothing while it is not to be seen.
std::wstring PanelText() {
    const HWND panel = FindWindowExW(StatusWindowHandle(), nullptr, L"VPRReleaseNotesPanel", nullptr);
    return IsWindowVisible(panel) ? TextOf(panel) : std::wstring();
}

/// Whole runs of the launcher inside this program: Windows is asked as ever, but for the own path, the command line and
/// the start of the application. There is no network. A user closes every view that waits for it.
class LauncherRun : public testing::Test {
  protected:
    LauncherRun() {
        EXPECT_TRUE(launcher_update::EnsureDirectory(folder / L"Velmora Pine Relay"));
        WriteWholeFile(Program(), "a program");
        LauncherConfiguration configuration;
        configuration.productVersion = L"1.0.0.0";
        configuration.launcherVersion = L"1.0.0.0";
        Configure(configuration);
    }

    std::wstring Program() const { return folder / L"Velmora Pine Relay\\Velmora Pine Relay.exe"; }
    void Configure(const LauncherConfiguration& configuration) {
        WriteWholeFile(folder / L"current.json", platform::EncodeUtf8(RenderLauncherConfiguration(configuration)));
    }
    void ConfigureWithALocation() {
        LauncherConfiguration configuration;
        configuration.productVersion = L"1.0.0.0";
        configuration.launcherVersion = L"1.0.0.0";
        configuration.updateManifestUrl = L"https://h.example/stable.json";
        Configure(configuration);
    }

    void ExpectStopped(const std::wstring& message) const {
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0], L"What's new\r\n\r\nUpdate recovery needs attention. Launch stopped.\r\n\r\n" + message)
            << platform::EncodeUtf8(messages[0]);
        EXPECT_TRUE(starts.empty());
        EXPECT_EQ(StatusWindowHandle(), nullptr);
    }
    void ExpectStarted(int exitCode) const {
        EXPECT_EQ(exitCode, kStarted);
        EXPECT_EQ(StatusWindowHandle(), nullptr) << "the window outlived the run";
        EXPECT_EQ(starts.size(), 1u);
        EXPECT_TRUE(messages.empty());
    }

    void LookAtTheWindow() {
        const HWND window = StatusWindowHandle();
        const std::wstring panel = PanelText();
        if (panel.empty() || panel == lastSeen) return;
        lastSeen = panel;
        if (!IsWindowVisible(GetDlgItem(window, 1004))) {
            notices.push_back(panel);
            return;
        }
        course.emplace_back("message");
        messages.push_back(panel);
        PostMessageW(window, WM_CLOSE, 0, 0);
    }

    TemporaryDirectory folder;
    std::wstring launcherPath = folder / L"Velmora Pine Relay.exe";
    std::wstring commandLine = L"launcher.exe";
    std::vector<std::string> course;
    std::vector<std::wstring> messages;  // of views that wait for the user
    std::vector<std::wstring> notices;   // of views that pass by themselves
    std::wstring lastSeen;
    std::vector<Start> starts;
    int sessions = 0;
    int holdWaits = 0;
    bool noWindows = false;
    DWORD startFailure = ERROR_SUCCESS;

    OnDpiContext onDpiContext{[this](DPI_AWARENESS_CONTEXT context) {
        course.emplace_back("dpi");
        EXPECT_EQ(context, DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }};
    OnModuleFileName onModuleFileName{[this](HMODULE module, LPWSTR buffer, DWORD units) -> DWORD {
        if (module != nullptr) return OnModuleFileName::Original(module, buffer, units);
        course.emplace_back("path");
        if (launcherPath.size() >= units) {
            launcherPath.copy(buffer, units);
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return units;
        }
        launcherPath.copy(buffer, launcherPath.size());
        buffer[launcherPath.size()] = L'\0';
        return static_cast<DWORD>(launcherPath.size());
    }};
    OnCommandLine onCommandLine{[this] {
        course.emplace_back("command line");
        return commandLine.data();
    }};
    OnMessageBox onMessageBox{[](auto...) {
        ADD_FAILURE() << "nothing is said in a dialog";
        return IDOK;
    }};
    OnWait onWait{[this](DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds, DWORD mask) {
        EXPECT_EQ(mask, 0x1CFFu);
        if (IsWindowVisible(StatusWindowHandle())) LookAtTheWindow();
        if (count == 0 && milliseconds <= 20) ++holdWaits;
        return OnWait::Original(count, handles, all, milliseconds, mask);
    }};
    OnCreateWindow onCreateWindow{[this](DWORD extended, LPCWSTR name, LPCWSTR title, DWORD style, int x, int y,
                                         int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                                         LPVOID parameter) -> HWND {
        if (noWindows) return nullptr;
        return OnCreateWindow::Original(extended, name, title, style, x, y, width, height, parent, menu, instance,
                                        parameter);
    }};
    OnCreateProcess onCreateProcess{[this](LPCWSTR program, LPWSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES,
                                           BOOL, DWORD, LPVOID, LPCWSTR startFolder, LPSTARTUPINFOW,
                                           LPPROCESS_INFORMATION) {
        course.emplace_back("start");
        EXPECT_FALSE(IsWindowVisible(StatusWindowHandle())) << "the application and the window are seen at once";
        starts.push_back({program, line, startFolder});
        SetLastError(startFailure);
        return startFailure == ERROR_SUCCESS ? TRUE : FALSE;
    }};
    OnOpenInternet onOpenInternet{[this](auto...) -> HINTERNET {
        ++sessions;
        SetLastError(ERROR_WINHTTP_INTERNAL_ERROR);
        return nullptr;
    }};
};

TEST_F(LauncherRun, StartsTheApplication) {
    commandLine = L"\"C:\\any name\" one --skip-update-check \"\" \"a b\\\\\"";
    ExpectStarted(RunLauncher());
    EXPECT_EQ(starts[0].program, Program());
    EXPECT_EQ(starts[0].commandLine, L"\"" + Program() + L"\" \"one\" \"\" \"a b\\\\\"");
    EXPECT_EQ(starts[0].folder, folder / L"Velmora Pine Relay");
    EXPECT_EQ(course, (std::vector<std::string>{"dpi", "path", "command line", "start"}));
}

TEST_F(LauncherRun, OwnPathThatCannotBeRead_ExitsWithOne) {
    launcherPath.clear();
    EXPECT_EQ(RunLauncher(), 1);
    launcherPath = L"C:\\" + std::wstring(32768 - 3, L'a');
    EXPECT_EQ(RunLauncher(), 1);
    EXPECT_TRUE(messages.empty());
    EXPECT_TRUE(starts.empty());
}

/// What comes of a folder that deep is Windows' business; the run goes on until it asks for it.
TEST_F(LauncherRun, OwnPathOf32767Units_IsAccepted) {
    launcherPath = L"C:\\" + std::wstring(32767 - 3 - 2, L'a') + L"\\x";
    ASSERT_EQ(launcherPath.size(), 32767u);
    EXPECT_GT(RunLauncher(), kModulePathWithoutFolder);
    EXPECT_EQ(messages.size(), 1u);
}

TEST_F(LauncherRun, OwnPathWithoutAFolder_ExitsWithTwo) {
    launcherPath = L"launcher.exe";
    EXPECT_EQ(RunLauncher(), 2);
    EXPECT_TRUE(messages.empty());
    EXPECT_TRUE(starts.empty());
}

TEST_F(LauncherRun, OwnPathWithASlash_HasAFolder) {
    launcherPath = folder.Path() + L"/launcher.exe";
    ExpectStarted(RunLauncher());
}

TEST_F(LauncherRun, CommandLineThatCannotBeSplit_IsOneWithoutArguments) {
    commandLine = L"launcher.exe --install-launcher-update a b c d";
    const OnSplit split([](auto...) { return nullptr; });
    ExpectStarted(RunLauncher());
    EXPECT_EQ(starts[0].commandLine, L"\"" + Program() + L"\"");
}

TEST_F(LauncherRun, TheProgramsOwnName_IsNoSwitch) {
    ConfigureWithALocation();
    commandLine = L"--skip-update-check one";
    ExpectStarted(RunLauncher());
    EXPECT_GT(sessions, 0);
}

TEST_F(LauncherRun, TheFolderIsSettledBeforeTheSettingsAreRead) {
    WriteWholeFile(folder / L"current.json", "unusable");
    ASSERT_TRUE(launcher_update::EnsureDirectory(folder / L".vpr-update"));
    WriteWholeFile(folder / L".vpr-update\\transaction.json", "{}");
    EXPECT_EQ(RunLauncher(), 39);
    ExpectStopped(L"上一次更新的交易紀錄無效；已保留備份並停止啟動。");
}

TEST_F(LauncherRun, TheFolderIsSettledWithoutAnUpdateCheckToo) {
    commandLine = L"launcher.exe --skip-update-check";
    WriteWholeFile(folder / L".vpr-update", "a file");
    EXPECT_EQ(RunLauncher(), 39);
    ExpectStopped(L"更新交易位置不是安全的一般資料夾。");
}

TEST_F(LauncherRun, UnusableSettings_ExitWithThree) {
    WriteWholeFile(folder / L"current.json", "{}");
    EXPECT_EQ(RunLauncher(), 3);
    ExpectStopped(L"current.json 缺少必要欄位或使用不支援的格式。");
}

TEST_F(LauncherRun, LostSettingsThatCannotBeMadeAnew_ExitWithThree) {
    ASSERT_TRUE(DeleteFileW((folder / L"current.json").c_str()));
    EXPECT_EQ(RunLauncher(), 3);
    ExpectStopped(L"current.json 遺失，且無法從現有程式重建版本資訊。");
}

TEST_F(LauncherRun, LostSettingsOfARunThatNamesTheReplacement_AreLeftLost) {
    ASSERT_TRUE(DeleteFileW((folder / L"current.json").c_str()));
    commandLine = L"launcher.exe --install-launcher-update a b c";
    ExpectStarted(RunLauncher());
    EXPECT_EQ(test_support::FileLength(folder / L"current.json"), -1);
    EXPECT_EQ(starts[0].commandLine, L"\"" + Program() + L"\" \"--install-launcher-update\" \"a\" \"b\" \"c\"");
    EXPECT_EQ(sessions, 0);
}

TEST_F(LauncherRun, ReplacementStartsNothing) {
    ConfigureWithALocation();
    commandLine = L"launcher.exe --install-launcher-update a b c d";
    EXPECT_EQ(RunLauncher(), 40);
    EXPECT_TRUE(starts.empty());
    EXPECT_EQ(sessions, 0);
}

TEST_F(LauncherRun, ReplacementDoesNotPassAnUnsettledFolderOrUnusableSettings) {
    commandLine = L"launcher.exe --install-launcher-update a b c d";
    WriteWholeFile(folder / L"current.json", "{}");
    EXPECT_EQ(RunLauncher(), 3);
    WriteWholeFile(folder / L".vpr-update", "a file");
    EXPECT_EQ(RunLauncher(), 39);
    EXPECT_EQ(messages.size(), 2u);
}

TEST_F(LauncherRun, WithoutALocation_NothingIsAsked) {
    commandLine = L"launcher.exe --check-for-updates";
    ExpectStarted(RunLauncher());
    EXPECT_EQ(sessions, 0);
}

TEST_F(LauncherRun, SkippedCheck_AsksNothing) {
    ConfigureWithALocation();
    commandLine = L"launcher.exe --check-for-updates --skip-update-check";
    ExpectStarted(RunLauncher());
    EXPECT_EQ(sessions, 0);
}

constexpr wchar_t kDidNotFinish[] = L"What's new\r\n\r\nUpdate did not finish. Starting the installed version…";

TEST_F(LauncherRun, FailedCheck_IsShownForAWhileAndStartsTheInstalledVersion) {
    ConfigureWithALocation();
    const ULONGLONG begin = GetTickCount64();
    ExpectStarted(RunLauncher());
    EXPECT_GE(GetTickCount64() - begin, 1400u - 20u);
    EXPECT_GT(holdWaits, 10) << "the window is pumped meanwhile";
    EXPECT_EQ(sessions, 2) << "a location of the user's own has two attempts and no backup";
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_TRUE(notices[0].starts_with(kDidNotFinish)) << platform::EncodeUtf8(notices[0]);
}

TEST_F(LauncherRun, WithoutAnyWindow_TheCheckGoesOnUnseen) {
    ConfigureWithALocation();
    noWindows = true;
    ExpectStarted(RunLauncher());
    EXPECT_EQ(sessions, 2);
    EXPECT_EQ(holdWaits, 0) << "there is nothing to be read";
}

TEST_F(LauncherRun, WithoutAnyWindow_AStopIsStillAStop) {
    noWindows = true;
    WriteWholeFile(folder / L"current.json", "{}");
    EXPECT_EQ(RunLauncher(), 3);
    EXPECT_TRUE(starts.empty());
}

TEST_F(LauncherRun, WorkerThatCannotStart_StartsTheInstalledVersion) {
    ConfigureWithALocation();
    int refused = 0;
    const OnBeginThread begin([&refused](auto...) -> std::uintptr_t {
        ++refused;
        return 0;
    });
    ExpectStarted(RunLauncher());
    EXPECT_EQ(refused, 1);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0], std::wstring(kDidNotFinish) + L"\r\n\r\nUnable to start the update-check worker thread.");
}

TEST_F(LauncherRun, UnsafeResult_StopsWithForty) {
    ConfigureWithALocation();
    const std::wstring control = launcher_update::ControlDirectory(folder.Path());
    ASSERT_TRUE(launcher_update::EnsureDirectory(control));
    std::optional<launcher_update::TransactionLock> other;
    const OnBeginThread begin([&](void* security, unsigned stack, _beginthreadex_proc_type entry, void* argument,
                                  unsigned flags, unsigned* id) {
        other.emplace(control);  // another launcher, between the first settling and the workflow's own
        return OnBeginThread::Original(security, stack, entry, argument, flags, id);
    });
    EXPECT_EQ(RunLauncher(), 40);
    ExpectStopped(L"另一個啟動器仍在處理更新；已停止啟動以避免混合版本。");
}

TEST_F(LauncherRun, MissingApplication_ExitsWithFour) {
    ASSERT_TRUE(DeleteFileW(Program().c_str()));
    EXPECT_EQ(RunLauncher(), 4);
    ExpectStopped(L"找不到主程式：\n" + Program());
}

TEST_F(LauncherRun, FailedStart_ExitsWithWindowsErrorCode) {
    startFailure = ERROR_PRIVILEGE_NOT_HELD;  // more than eight bits
    EXPECT_EQ(RunLauncher(), 1314);
    ASSERT_EQ(starts.size(), 1u);
    starts.clear();
    ExpectStopped(L"Failed to start the app (error code 1314):\n" + Program());
}

}  // namespace
}  // namespace launcher_shell
