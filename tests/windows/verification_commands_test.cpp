#include "launcher/verification/commands.h"

#include <windows.h>

#include <commctrl.h>
#include <gtest/gtest.h>
#include <process.h>
#include <winhttp.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "launcher/verification/output.h"
#include "platform/text.h"
#include "tests/support/manifest_builder.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "ui/prompt.h"
#include "ui/window_messages.h"
#include "update/files/attributes.h"

// The verification commands inside this program, with a Windows that refuses what they ask for: every one must end with
// the exit code of that failure, and leave nothing behind.

namespace launcher_shell {
namespace {

using launcher_update::Stage;
using test_support::FileLength;
using test_support::ReadWholeFile;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnBeginThread = StandIn<"_beginthreadex", decltype(_beginthreadex)>;
using OnCreateBitmap = StandIn<"CreateDIBSection", decltype(CreateDIBSection)>;
using OnCreateWindow = StandIn<"CreateWindowExW", decltype(CreateWindowExW)>;
using OnDriveType = StandIn<"GetDriveTypeW", decltype(GetDriveTypeW)>;
using OnEnableWindow = StandIn<"EnableWindow", decltype(EnableWindow)>;
using OnFileType = StandIn<"GetFileType", decltype(GetFileType)>;
using OnGetStdHandle = StandIn<"GetStdHandle", decltype(GetStdHandle)>;
using OnOpenInternet = StandIn<"WinHttpOpen", decltype(WinHttpOpen)>;
using OnSendMessage = StandIn<"SendMessageW", decltype(SendMessageW)>;
using OnSendTimeout = StandIn<"SendMessageTimeoutW", decltype(SendMessageTimeoutW)>;
using OnSetTimer = StandIn<"SetTimer", decltype(SetTimer)>;
using OnSetWindowText = StandIn<"SetWindowTextW", decltype(SetWindowTextW)>;
using OnShowWindow = StandIn<"ShowWindow", decltype(ShowWindow)>;
using OnSleep = StandIn<"Sleep", decltype(Sleep)>;
using OnThreadId = StandIn<"GetCurrentThreadId", decltype(GetCurrentThreadId)>;
using OnTicks = StandIn<"GetTickCount64", decltype(GetTickCount64)>;
using OnWait = StandIn<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)>;
using OnWriteFile = StandIn<"WriteFile", decltype(WriteFile)>;
using Arguments = std::vector<std::wstring>;

/// The standard output of this program is a file, for the life of the object.
class OutputFile {
  public:
    explicit OutputFile(const std::wstring& path)
        : path_(path),
          before_(GetStdHandle(STD_OUTPUT_HANDLE)),
          file_(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                            nullptr)) {
        SetStdHandle(STD_OUTPUT_HANDLE, file_);
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile() {
        SetStdHandle(STD_OUTPUT_HANDLE, before_);
        CloseHandle(file_);
    }
    [[nodiscard]] std::string Text() const { return ReadWholeFile(path_); }

  private:
    std::wstring path_;
    HANDLE before_;
    HANDLE file_;
};

HWND StatusWindowHandle() {
    return FindWindowW(L"VPRLauncherStatusWindow", nullptr);
}

class VerificationCommands : public testing::Test {
  protected:
    VerificationCommands() {
        WriteWholeFile(manifest_, platform::EncodeUtf8(test_support::FullManifest().Text()));
        WriteWholeFile(state_, "{}");
    }
    ~VerificationCommands() override { EXPECT_EQ(StatusWindowHandle(), nullptr) << "a window outlived its command"; }

    std::optional<int> Run(const Arguments& arguments, CommandTurn turn = CommandTurn::first) const {
        return RunVerificationCommand(turn, arguments, folder_ / L"Velmora Pine Relay.exe", folder_.Path());
    }

    TemporaryDirectory folder_;
    std::wstring manifest_ = folder_ / L"stable.json";
    std::wstring state_ = folder_ / L"state.json";
    std::wstring bitmap_ = folder_ / L"picture.bmp";
    OutputFile output_{folder_ / L"output.txt"};
};

// --- Turns ---

TEST_F(VerificationCommands, AnythingElse_IsANormalRun) {
    for (const CommandTurn turn : {CommandTurn::first, CommandTurn::afterSettings}) {
        EXPECT_EQ(Run({}, turn), std::nullopt);
        EXPECT_EQ(Run({L"--check-for-updates"}, turn), std::nullopt);
        EXPECT_EQ(Run({L"--launcher-update-progress-model-self-test", L"one too many"}, turn), std::nullopt);
        EXPECT_EQ(Run({L"--launcher-repair-ui-screenshot", L"en", bitmap_}, turn), std::nullopt);
    }
}

TEST_F(VerificationCommands, OnlyTheHeldLock_WaitsForTheSettings) {
    EXPECT_EQ(Run({L"--launcher-hold-lock-self-test", L"100"}, CommandTurn::first), std::nullopt);
    EXPECT_EQ(Run({L"--launcher-update-progress-model-self-test"}, CommandTurn::afterSettings), std::nullopt);
    DWORD slept = 0;
    const OnSleep sleep([&](DWORD milliseconds) { slept += milliseconds; });
    EXPECT_EQ(Run({L"--launcher-hold-lock-self-test", L"100"}, CommandTurn::afterSettings), 0);
    EXPECT_EQ(slept, 100u);
}

TEST_F(VerificationCommands, HeldLock_StaysWithinItsLimits) {
    struct Row {
        const wchar_t* text;
        DWORD sleeps;
    };
    for (const Row& row :
         {Row{L"0", 100}, Row{L"99", 100}, Row{L"100", 100}, Row{L"101", 101}, Row{L"9999", 9999}, Row{L"10000", 10000},
          Row{L"10001", 10000}, Row{L"18446744073709551615", 10000}, Row{L"18446744073709551616", 1000}, Row{L"", 1000},
          Row{L"-5", 1000}, Row{L"+200", 1000}, Row{L"200 ", 1000}, Row{L"2e3", 1000}, Row{L"soon", 1000}}) {
        DWORD slept = 0;
        const OnSleep sleep([&](DWORD milliseconds) { slept += milliseconds; });
        EXPECT_EQ(Run({L"--launcher-hold-lock-self-test", row.text}, CommandTurn::afterSettings), 0);
        EXPECT_EQ(slept, row.sleeps) << platform::EncodeUtf8(row.text);
    }
}

// --- Windows refuses ---

TEST_F(VerificationCommands, WindowThatCannotBeMade_EndsEveryCommandThatHasOne) {
    struct Row {
        Arguments arguments;
        int exitCode;
    };
    const Row kRows[] = {
        {{L"--launcher-failure-handoff-self-test"}, 1311},
        {{L"--launcher-failure-handoff-self-test", L"ja", folder_.Path()}, 1311},
        {{L"--launcher-r2-install-self-test", folder_.Path(), L"1.0.0.0"}, 1317},
        {{L"--launcher-update-ui-order-self-test", manifest_, L"en", L"Quieter start.", L"Faster."}, 36},
        {{L"--launcher-verification-progress-self-test", L"en"}, 43},
        {{L"--launcher-verification-progress-self-test", L"en", bitmap_}, 43},
        {{L"--launcher-update-responsive-self-test"}, 42},
        {{L"--launcher-update-ui-screenshot", manifest_, L"en", bitmap_}, 33},
        {{L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"1", L"2"}, 33},
        {{L"--launcher-repair-ui-screenshot", L"en", bitmap_, L"1.0.0.0"}, 34},
    };
    int sessions = 0;
    const OnOpenInternet internet([&](auto...) -> HINTERNET {
        ++sessions;
        return nullptr;
    });
    for (const Row& row : kRows) {
        int refused = 0;
        const OnCreateWindow none([&](auto...) -> HWND {
            ++refused;
            return nullptr;
        });
        EXPECT_EQ(Run(row.arguments), row.exitCode) << platform::EncodeUtf8(row.arguments[0]);
        EXPECT_GT(refused, 0) << platform::EncodeUtf8(row.arguments[0]);
        EXPECT_EQ(FileLength(bitmap_), -1);
    }
    EXPECT_EQ(sessions, 0) << "a workflow ran without its window";
    EXPECT_EQ(output_.Text(), "") << "what was never looked at was reported";
}

TEST_F(VerificationCommands, PictureThatCannotBeMade_EndsWith34) {
    const Arguments kCommands[] = {
        {L"--launcher-update-ui-screenshot", manifest_, L"en", bitmap_},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"1", L"2"},
        {L"--launcher-repair-ui-screenshot", L"en", bitmap_, L"1.0.0.0"},
    };
    for (const Arguments& arguments : kCommands) {
        {
            const OnCreateBitmap none([](auto...) -> HBITMAP { return nullptr; });
            EXPECT_EQ(Run(arguments), 34) << platform::EncodeUtf8(arguments[0]);
            EXPECT_EQ(FileLength(bitmap_), -1);
        }
        {
            const OnWriteFile full([](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED other) {
                OnWriteFile::Original(file, bytes, size / 2, written, other);
                SetLastError(ERROR_DISK_FULL);
                return FALSE;
            });
            EXPECT_EQ(Run(arguments), 34) << platform::EncodeUtf8(arguments[0]);
        }
        EXPECT_EQ(FileLength(bitmap_), -1) << "a part of a picture was left";
        EXPECT_EQ(Run(arguments), 0) << platform::EncodeUtf8(arguments[0]);
        EXPECT_GT(FileLength(bitmap_), 54);
        ASSERT_TRUE(DeleteFileW(bitmap_.c_str()));
    }
}

TEST_F(VerificationCommands, NotesThatCannotBeRead_EndThePicturesWith32) {
    for (const char* content : {"", "{}", "{\"schemaVersion\":1}", "\xFF\xFE", "[]"}) {
        WriteWholeFile(manifest_, content);
        EXPECT_EQ(Run({L"--launcher-update-ui-screenshot", manifest_, L"en", bitmap_}), 32) << content;
        EXPECT_EQ(Run({L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"1", L"2"}),
                  32)
            << content;
        EXPECT_EQ(FileLength(bitmap_), -1);
    }
}

// --- Paths ---

/// Every command that takes paths, with all values good.
struct PathCommand {
    Arguments arguments;
    int badArguments;
};

TEST_F(VerificationCommands, DrivesThatAreNotLocal_AreBadArguments) {
    const std::wstring hash(64, L'a');
    const std::wstring missing = folder_ / L"pictures";
    const PathCommand kCommands[] = {
        {{L"--launcher-failure-handoff-self-test", L"en", missing}, 1311},
        {{L"--launcher-source-session-self-test", L"u", L"b", L"u", L"b", L"1", hash, missing, L"0"}, 1314},
        {{L"--launcher-download-mirror-self-test", L"u", L"b", L"1", hash, missing, L"0", L"0"}, 1314},
        {{L"--launcher-r2-install-self-test", folder_.Path(), L"1.0.0.0"}, 1317},
        {{L"--launcher-r2-update-self-test", folder_.Path(), manifest_, manifest_, L"1.0.0.0"}, 1317},
        {{L"--launcher-download-loopback-self-test", L"u", L"1", hash, missing, L"0"}, 1312},
        {{L"--launcher-update-schedule-self-test", state_, L"15", L"due"}, 30},
        {{L"--launcher-release-notes-self-test", manifest_, L"en", L"Quieter start."}, 31},
        {{L"--launcher-update-metadata-self-test", manifest_, L"en", L"hotfix", L"010"}, 38},
        {{L"--launcher-update-ui-order-self-test", manifest_, L"en", L"Quieter start.", L"Faster."}, 36},
        {{L"--launcher-update-production-manifest-self-test", manifest_, L"invalid"}, 35},
        {{L"--launcher-verification-progress-self-test", L"en", bitmap_}, 43},
        {{L"--launcher-update-ui-screenshot", manifest_, L"en", bitmap_}, 35},
        {{L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"1", L"2"}, 35},
        {{L"--launcher-repair-ui-screenshot", L"en", bitmap_, L"1.0.0.0"}, 35},
    };
    int sessions = 0;
    int windows = 0;
    const OnOpenInternet internet([&](auto...) -> HINTERNET {
        ++sessions;
        return nullptr;
    });
    const OnCreateWindow window([&](auto...) -> HWND {
        ++windows;
        return nullptr;
    });
    for (const UINT driveType : {static_cast<UINT>(DRIVE_UNKNOWN), static_cast<UINT>(DRIVE_NO_ROOT_DIR),
                                 static_cast<UINT>(DRIVE_REMOTE), static_cast<UINT>(DRIVE_CDROM)}) {
        for (const PathCommand& command : kCommands) {
            std::vector<std::wstring> asked;
            const OnDriveType drive([&](LPCWSTR root) {
                asked.emplace_back(root);
                return driveType;
            });
            EXPECT_EQ(Run(command.arguments), command.badArguments)
                << platform::EncodeUtf8(command.arguments[0]) << ", drive type " << driveType;
            ASSERT_FALSE(asked.empty());
            EXPECT_EQ(asked[0], folder_.Path().substr(0, 3)) << "the root of the drive";
        }
    }
    EXPECT_EQ(sessions, 0);
    EXPECT_EQ(windows, 0);
    EXPECT_EQ(FileLength(bitmap_), -1);
    EXPECT_EQ(launcher_update::LookAt(missing).presence, launcher_update::Presence::absent);
    EXPECT_EQ(output_.Text(), "");
}

TEST_F(VerificationCommands, EveryLocalDrive_IsGood) {
    for (const UINT driveType :
         {static_cast<UINT>(DRIVE_REMOVABLE), static_cast<UINT>(DRIVE_FIXED), static_cast<UINT>(DRIVE_RAMDISK)}) {
        const OnDriveType drive([&](LPCWSTR) { return driveType; });
        EXPECT_EQ(Run({L"--launcher-repair-ui-screenshot", L"en", bitmap_, L"1.0.0.0"}), 0) << driveType;
        EXPECT_TRUE(DeleteFileW(bitmap_.c_str())) << driveType;
    }
}

TEST_F(VerificationCommands, ServersAndRelativePaths_AreNotEvenAskedAbout) {
    int asked = 0;
    const OnDriveType drive([&](LPCWSTR) -> UINT {
        ++asked;
        return DRIVE_FIXED;
    });
    for (const wchar_t* path : {L"\\\\server\\share\\p.bmp", L"\\\\?\\C:\\p.bmp", L"p.bmp", L"C:p.bmp", L"\\p.bmp",
                                L"https://h.example/p.bmp", L""}) {
        EXPECT_EQ(Run({L"--launcher-repair-ui-screenshot", L"en", path, L"1.0.0.0"}), 35) << platform::EncodeUtf8(path);
    }
    EXPECT_EQ(asked, 0);
}

TEST_F(VerificationCommands, PicturesArguments_AreJudgedOneByOne) {
    const std::wstring occupied = folder_ / L"occupied.bmp";
    WriteWholeFile(occupied, "mine");
    const Arguments kBad[] = {
        {L"--launcher-update-ui-screenshot", folder_ / L"absent.json", L"en", bitmap_},
        {L"--launcher-update-ui-screenshot", folder_.Path(), L"en", bitmap_},
        {L"--launcher-update-ui-screenshot", manifest_, L"fr", bitmap_},
        {L"--launcher-update-ui-screenshot", manifest_, L"en", occupied},
        {L"--launcher-update-ui-screenshot", manifest_, L"en", folder_ / L"picture.png"},
        {L"--launcher-update-ui-screenshot", manifest_, L"en", bitmap_, L"1.0"},
        {L"--launcher-update-ui-screenshot", manifest_, L"en", bitmap_, L""},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"fr", bitmap_, L"1.0.0.0", L"1", L"2"},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", occupied, L"1.0.0.0", L"1", L"2"},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0", L"1", L"2"},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"-1", L"2"},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"1", L"two"},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"3", L"2"},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"1", L"0"},
        {L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", L"1",
         L"18446744073709551616"},
        {L"--launcher-repair-ui-screenshot", L"zh", bitmap_, L"1.0.0.0"},
        {L"--launcher-repair-ui-screenshot", L"en", occupied, L"1.0.0.0"},
        {L"--launcher-repair-ui-screenshot", L"en", bitmap_, L"1.0.0.0.0"},
        {L"--launcher-repair-ui-screenshot", L"en", bitmap_, L""},
    };
    int windows = 0;
    const OnCreateWindow window([&](auto...) -> HWND {
        ++windows;
        return nullptr;
    });
    for (const Arguments& arguments : kBad) {
        std::string line;
        for (const std::wstring& argument : arguments)
            line += platform::EncodeUtf8(argument) + " ";
        EXPECT_EQ(Run(arguments), 35) << line;
    }
    EXPECT_EQ(windows, 0) << "a window was made before the arguments were judged";
    EXPECT_EQ(FileLength(bitmap_), -1);
    EXPECT_EQ(ReadWholeFile(occupied), "mine");
}

TEST_F(VerificationCommands, CompletedEqualToTotal_AndNothingOfNothing_AreGood) {
    for (const wchar_t* number : {L"0", L"7", L"18446744073709551615"}) {
        EXPECT_EQ(
            Run({L"--launcher-update-progress-ui-screenshot", manifest_, L"en", bitmap_, L"1.0.0.0", number, number}),
            0)
            << platform::EncodeUtf8(number);
        EXPECT_TRUE(DeleteFileW(bitmap_.c_str()));
    }
}

TEST_F(VerificationCommands, PictureInAFolderThatIsNotThere_EndsWith34) {
    const std::wstring lost = folder_ / L"absent\\picture.bmp";
    EXPECT_EQ(Run({L"--launcher-repair-ui-screenshot", L"en", lost, L"1.0.0.0"}), 34);
    EXPECT_EQ(Run({L"--launcher-update-ui-screenshot", manifest_, L"en", lost}), 34);
    EXPECT_EQ(Run({L"--launcher-verification-progress-self-test", L"fr", lost}), 43);
}

// --- A window that must answer ---

const Arguments kResponsive = {L"--launcher-update-responsive-self-test"};

TEST_F(VerificationCommands, WindowThatAnswers_IsResponsive) {
    int asked = 0;
    const DWORD main = GetCurrentThreadId();
    const OnSendTimeout ask(
        [&](HWND window, UINT message, WPARAM first, LPARAM second, UINT flags, UINT milliseconds, PDWORD_PTR answer) {
            EXPECT_NE(GetCurrentThreadId(), main) << "the window asks itself";
            EXPECT_EQ(window, StatusWindowHandle());
            ++asked;
            return OnSendTimeout::Original(window, message, first, second, flags, milliseconds, answer);
        });
    EXPECT_EQ(Run(kResponsive), 0);
    EXPECT_GT(asked, 1);
    EXPECT_EQ(output_.Text(), "");
}

TEST_F(VerificationCommands, WindowThatDoesNotAnswerOnce_IsNotResponsive) {
    for (const int silent : {1, 5}) {
        int asked = 0;
        const OnSendTimeout ask([&](HWND window, UINT message, WPARAM first, LPARAM second, UINT flags,
                                    UINT milliseconds, PDWORD_PTR answer) -> LRESULT {
            if (++asked == silent) return 0;
            return OnSendTimeout::Original(window, message, first, second, flags, milliseconds, answer);
        });
        EXPECT_EQ(Run(kResponsive), 42) << silent;
        EXPECT_GE(asked, silent);
    }
}

TEST_F(VerificationCommands, WindowWhoseBarStands_IsNotResponsive) {
    const OnSetTimer still([](HWND, UINT_PTR id, UINT, TIMERPROC) { return id; });
    EXPECT_EQ(Run(kResponsive), 42);
}

TEST_F(VerificationCommands, WorkerThatCannotStart_ProvesNothing) {
    const OnBeginThread none([](auto...) -> std::uintptr_t { return 0; });
    EXPECT_EQ(Run(kResponsive), 42);
    EXPECT_EQ(output_.Text(), "");
    EXPECT_EQ(Run({L"--launcher-verification-progress-self-test", L"en"}), 43);
    EXPECT_EQ(output_.Text(),
              "VERIFICATION_UI attempted=0 updates=0 intermediate=0 progress_paints=0 window_paints=0 owner_thread=1 "
              "final_percent=0 passed=0\n");
}

TEST_F(VerificationCommands, WorkerWhoseEndCannotBeAwaited_ProvesNothing) {
    const OnWait fail([](DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds, DWORD mask) -> DWORD {
        if (count != 0) return WAIT_FAILED;
        return OnWait::Original(count, handles, all, milliseconds, mask);
    });
    EXPECT_EQ(Run(kResponsive), 42);
}

// --- A view that must keep up ---

/// The verification view with a worker whose time runs as the test wants, so that two checks of 900 ms take an instant
/// and always send the same. The worker's messages pass through the test's hands.
class VerificationView : public VerificationCommands {
  protected:
    struct View {
        unsigned attempted = 0, updates = 0, intermediate = 0, progressPaints = 0, windowPaints = 0, ownerThread = 0;
        int finalPercent = 0;
        unsigned passed = 0;
    };

    /// What becomes of one stage message; `deliver` hands it to the window.
    using Hands = std::function<void(const launcher_ui::StageRecord& record, const std::function<void()>& deliver)>;

    int Watch(const Hands& hands, DWORD napMs = 5,
              const Arguments& arguments = {L"--launcher-verification-progress-self-test", L"en"}) {
        std::uint64_t workerMs = 1000000;  // touched by the worker alone
        const OnTicks ticks([&]() -> ULONGLONG { return IsWorker() ? workerMs : OnTicks::Original(); });
        const OnSleep sleep([&](DWORD milliseconds) {
            if (!IsWorker()) return OnSleep::Original(milliseconds);
            EXPECT_GT(milliseconds, 0u);
            workerMs += napMs;
        });
        const OnSendMessage send([&](HWND window, UINT message, WPARAM first, LPARAM second) -> LRESULT {
            if (message != launcher_ui::kStageMessage) return OnSendMessage::Original(window, message, first, second);
            hands(*reinterpret_cast<const launcher_ui::StageRecord*>(second),
                  [&] { OnSendMessage::Original(window, message, first, second); });
            return 0;
        });
        return Run(arguments).value_or(-1);
    }

    /// What the one line says; its text must be exactly what these numbers make.
    [[nodiscard]] View Told() const { return Told(output_); }
    static View Told(const OutputFile& output) {
        constexpr char kFormat[] =
            "VERIFICATION_UI attempted=%u updates=%u intermediate=%u progress_paints=%u window_paints=%u "
            "owner_thread=%u final_percent=%d passed=%u\n";
        View view;
        const std::string line = output.Text();
        EXPECT_EQ(
            std::sscanf(line.c_str(), kFormat, &view.attempted, &view.updates, &view.intermediate, &view.progressPaints,
                        &view.windowPaints, &view.ownerThread, &view.finalPercent, &view.passed),
            8)
            << line;
        std::array<char, 400> again;
        std::snprintf(again.data(), again.size(), kFormat, view.attempted, view.updates, view.intermediate,
                      view.progressPaints, view.windowPaints, view.ownerThread, view.finalPercent, view.passed);
        EXPECT_EQ(line, again.data());
        return view;
    }

    bool IsWorker() const { return GetCurrentThreadId() != main_; }
    static bool IsFinal(const launcher_ui::StageRecord& record) { return record.completed == record.total; }

    const DWORD main_ = GetCurrentThreadId();
};

void HandOver(const launcher_ui::StageRecord&, const std::function<void()>& deliver) {
    deliver();
}

/// The harness itself disturbs nothing: with honest hands the view passes.
TEST_F(VerificationView, Undisturbed_Passes) {
    EXPECT_EQ(Watch(HandOver), 0);
    const View view = Told();
    EXPECT_GE(view.attempted, 2000u);
    EXPECT_GE(view.updates, 6u);
    EXPECT_LE(view.updates, 35u);
    EXPECT_GE(view.intermediate, 4u);
    EXPECT_LT(view.intermediate, view.updates);
    EXPECT_GE(view.progressPaints, 3u);
    EXPECT_EQ(view.windowPaints, 0u);
    EXPECT_EQ(view.ownerThread, 1u);
    EXPECT_EQ(view.finalPercent, 100);
    EXPECT_EQ(view.passed, 1u);
}

/// Bursts of a hundred: nine or ten of them to a stage, and the last report.
TEST_F(VerificationView, Attempts_MustBeAtLeast2000) {
    EXPECT_EQ(Watch(HandOver, 90), 0);
    EXPECT_EQ(Told().attempted, 2001u);
}

TEST_F(VerificationView, FewerAttempts_Fail) {
    EXPECT_EQ(Watch(HandOver, 100), 43);
    const View view = Told();
    EXPECT_EQ(view.attempted, 1801u);
    EXPECT_GE(view.updates, 6u) << "the attempts alone are too few";
    EXPECT_EQ(view.passed, 0u);
}

/// Of what lies between start and end only so many reports reach the window, and the last one as often as it takes to
/// make so many updates.
struct Deliveries {
    unsigned intermediate;
    unsigned updates;
    int exitCode;
};

class VerificationViewLimits : public VerificationView, public testing::WithParamInterface<Deliveries> {};

TEST_P(VerificationViewLimits, Updates_AreFrom6To35WithAtLeast4Between) {
    const auto [intermediate, updates, exitCode] = GetParam();
    unsigned delivered = 0;
    const int ended = Watch([&, wanted = intermediate, all = updates](const launcher_ui::StageRecord& record,
                                                                      const std::function<void()>& deliver) {
        const bool between = record.completed > 0 && !IsFinal(record);
        while ((between && delivered < wanted) || (IsFinal(record) && delivered < all)) {
            ++delivered;
            deliver();
            if (between) break;
        }
    });
    EXPECT_EQ(ended, exitCode);
    const View view = Told();
    EXPECT_EQ(view.updates, updates);
    EXPECT_EQ(view.intermediate, intermediate);
    EXPECT_EQ(view.passed, exitCode == 0 ? 1u : 0u);
    EXPECT_GE(view.attempted, 2000u);
    EXPECT_GE(view.progressPaints, 3u);
    EXPECT_EQ(view.finalPercent, 100);
}

INSTANTIATE_TEST_SUITE_P(AtTheLimits, VerificationViewLimits,
                         testing::Values(Deliveries{4, 6, 0}, Deliveries{4, 5, 43}, Deliveries{3, 7, 43},
                                         Deliveries{4, 35, 0}, Deliveries{4, 36, 43}),
                         [](const auto& row) {
                             return std::to_string(row.param.intermediate) + "Of" + std::to_string(row.param.updates);
                         });

/// Lets the window paint its bar so many times.
LRESULT CALLBACK PaintBarSometimes(HWND window, UINT message, WPARAM first, LPARAM second, UINT_PTR, DWORD_PTR left) {
    auto& paints = *reinterpret_cast<unsigned*>(left);
    const bool ofBar = message == WM_DRAWITEM && first == launcher_ui::kBarId;
    if (ofBar && paints == 0) return TRUE;
    if (ofBar) --paints;
    return DefSubclassProc(window, message, first, second);
}

TEST_F(VerificationView, Bar_MustBePaintedThreeTimes) {
    for (const unsigned paints : {3u, 2u, 0u}) {
        unsigned left = paints;
        const OutputFile output(folder_ / (L"paints" + std::to_wstring(paints)));
        const OnBeginThread worker([&](auto... all) {
            SetWindowSubclass(StatusWindowHandle(), PaintBarSometimes, 1, reinterpret_cast<DWORD_PTR>(&left));
            return OnBeginThread::Original(all...);
        });
        EXPECT_EQ(Watch(HandOver), paints < 3 ? 43 : 0) << paints;
        const View view = Told(output);
        EXPECT_EQ(view.progressPaints, paints);
        EXPECT_EQ(view.passed, paints < 3 ? 0u : 1u);
        EXPECT_GE(view.updates, 6u);
        EXPECT_EQ(view.windowPaints, 0u);
    }
}

TEST_F(VerificationView, OnePaintOfTheWholeWindow_Fails) {
    const int ended = Watch([](const launcher_ui::StageRecord& record, const std::function<void()>& deliver) {
        if (IsFinal(record)) InvalidateRect(StatusWindowHandle(), nullptr, FALSE);
        deliver();
    });
    EXPECT_EQ(ended, 43);
    const View view = Told();
    EXPECT_EQ(view.windowPaints, 1u);
    EXPECT_EQ(view.passed, 0u);
}

TEST_F(VerificationView, EndThatIsNeverShown_Fails) {
    const int ended = Watch([](const launcher_ui::StageRecord& record, const std::function<void()>& deliver) {
        if (!IsFinal(record)) deliver();
    });
    EXPECT_EQ(ended, 43);
    const View view = Told();
    EXPECT_LT(view.finalPercent, 100);
    EXPECT_GE(view.updates, 6u);
    EXPECT_EQ(view.passed, 0u);
}

/// The window takes itself for another thread's.
TEST_F(VerificationView, MessageOnAnotherThread_Fails) {
    bool lied = false;
    const OnThreadId thread([&]() -> DWORD {
        if (lied || OnThreadId::Original() != main_) return OnThreadId::Original();
        lied = true;  // the first to ask is the window that notes its thread
        return main_ + 1;
    });
    EXPECT_EQ(Watch(HandOver), 43);
    EXPECT_TRUE(lied);
    const View view = Told();
    EXPECT_EQ(view.ownerThread, 0u);
    EXPECT_GE(view.updates, 6u);
    EXPECT_EQ(view.finalPercent, 100);
    EXPECT_EQ(view.passed, 0u);
}

TEST_F(VerificationView, PictureThatCannotBeWritten_FailsWhatPassed) {
    const OnCreateBitmap none([](auto...) -> HBITMAP { return nullptr; });
    EXPECT_EQ(Watch(HandOver, 5, {L"--launcher-verification-progress-self-test", L"en", bitmap_}), 43);
    EXPECT_EQ(FileLength(bitmap_), -1);
    EXPECT_EQ(Told().passed, 1u) << "the view itself was good";
}

// --- Failure views ---

const Arguments kHandoff = {L"--launcher-failure-handoff-self-test"};
constexpr char kHandoffPassed[] =
    "LAUNCHER_FAILURE_HANDOFF_PASS safe_nonmodal=1 unsafe_blocked=1 inline_no_dialog=1 byte_units=1 "
    "stall_clears_speed=1\n";

class FailureHandoff : public VerificationCommands {
  protected:
    void ExpectFailed(const std::string& what) const {
        EXPECT_EQ(Run(kHandoff), 1311) << what;
        EXPECT_EQ(output_.Text(), "") << what;
    }
    [[nodiscard]] Arguments WithFolder(const std::wstring& folder) const {
        return {L"--launcher-failure-handoff-self-test", L"en", folder};
    }
    std::wstring pictures_ = folder_ / L"pictures";
};

TEST_F(FailureHandoff, Undisturbed_Passes) {
    EXPECT_EQ(Run(kHandoff), 0);
    EXPECT_EQ(output_.Text(), kHandoffPassed);
}

bool IsPanel(HWND window) {
    wchar_t name[64] = L"";
    GetClassNameW(window, name, 64);
    return std::wstring_view(name) == L"VPRReleaseNotesPanel";
}

/// The views are told apart by what the panel says: 1 the safe one, 2 and 3 the unsafe ones, 4 to 6 the results that
/// block nothing, 7 the one that blocks. View 0 is the failed stage before them.
TEST_F(FailureHandoff, DialogOverAnyView_Fails) {
    for (int shownOver = 0; shownOver <= 7; ++shownOver) {
        int view = -1;
        HWND dialog = nullptr;
        const auto next = [&] {
            if (dialog != nullptr) DestroyWindow(dialog);
            dialog = nullptr;
            if (++view != shownOver) return;
            dialog = CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 5, 5, 50, 50, nullptr, nullptr,
                                     GetModuleHandleW(nullptr), nullptr);
            EXPECT_TRUE(IsWindowVisible(dialog));
        };
        {
            const OnSetWindowText text([&](HWND window, LPCWSTR content) {
                const std::wstring_view said = content;
                const bool failedStage = said == L"Update did not finish. Checking the installed version…";
                if (IsPanel(window) || (failedStage && view < 0)) next();
                return OnSetWindowText::Original(window, content);
            });
            const Arguments english = {L"--launcher-failure-handoff-self-test", L"en", folder_ / L"absent"};
            EXPECT_EQ(Run(english), 1311) << "a dialog over view " << shownOver;
        }
        EXPECT_EQ(view, shownOver) << "the run went on";
        if (dialog != nullptr) DestroyWindow(dialog);
        EXPECT_EQ(output_.Text(), "");
    }
}

/// A window that stands hidden is no dialog.
TEST_F(FailureHandoff, HiddenWindowOfTheThread_IsNoDialog) {
    const HWND hidden = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 5, 5, 50, 50, nullptr, nullptr,
                                        GetModuleHandleW(nullptr), nullptr);
    EXPECT_EQ(Run(kHandoff), 0);
    DestroyWindow(hidden);
}

TEST_F(FailureHandoff, TextThatIsNotShown_Fails) {
    for (const wchar_t* needle :
         {L"128.0 KB/s", L"2.0 MB/s", L"0.0 KB/s", L"Update did not finish. Checking the installed version…",
          L"Update did not finish. Starting the installed version…", L"Close"}) {
        int swallowed = 0;
        const OnSetWindowText text([&](HWND window, LPCWSTR content) {
            const bool hit = !IsPanel(window) && std::wstring_view(content).find(needle) != std::wstring_view::npos;
            if (hit) ++swallowed;
            return OnSetWindowText::Original(window, hit ? L"something else" : content);
        });
        const Arguments english = {L"--launcher-failure-handoff-self-test", L"en", folder_ / L"absent"};
        EXPECT_EQ(Run(english), 1311) << platform::EncodeUtf8(needle);
        EXPECT_GT(swallowed, 0) << platform::EncodeUtf8(needle);
    }
    EXPECT_EQ(output_.Text(), "");
}

/// A clock that goes back by two seconds at every look: of the three seconds of silence one is left.
TEST_F(FailureHandoff, SilenceOfLessThanTwoSeconds_ClearsNoSpeed) {
    ULONGLONG now = 1000000;
    const OnTicks ticks([&]() -> ULONGLONG { return now -= 2000; });
    ExpectFailed("a short silence");
}

TEST_F(FailureHandoff, ButtonsThatStayHidden_Fail) {
    for (const int id : {1007, 1004}) {
        int kept = 0;
        const OnShowWindow show([&](HWND window, int command) -> BOOL {
            if (GetDlgCtrlID(window) != id || command == SW_HIDE) return OnShowWindow::Original(window, command);
            ++kept;
            return FALSE;
        });
        ExpectFailed("button " + std::to_string(id));
        EXPECT_GT(kept, 0) << id;
    }
}

/// The button is neither hidden nor disabled until the safe view is over; nothing else is wrong.
TEST_F(FailureHandoff, CloseButtonThatASafeViewOffers_Fails) {
    int views = 0;
    int kept = 0;
    const OnSetWindowText text([&](HWND window, LPCWSTR content) {
        if (IsPanel(window)) ++views;
        return OnSetWindowText::Original(window, content);
    });
    const auto stays = [&](HWND window) { return views <= 1 && GetDlgCtrlID(window) == 1004; };
    const OnShowWindow show([&](HWND window, int command) -> BOOL {
        if (!stays(window) || command != SW_HIDE) return OnShowWindow::Original(window, command);
        ++kept;
        return TRUE;
    });
    const OnEnableWindow enable([&](HWND window, BOOL enabled) {
        return stays(window) && !enabled ? FALSE : OnEnableWindow::Original(window, enabled);
    });
    ExpectFailed("an offered button");
    EXPECT_GT(kept, 0);
}

TEST_F(FailureHandoff, FolderThatIsNotThere_HoldsNoPictures) {
    EXPECT_EQ(Run(WithFolder(pictures_)), 0);
    EXPECT_EQ(output_.Text(), kHandoffPassed);
    EXPECT_EQ(launcher_update::LookAt(pictures_).presence, launcher_update::Presence::absent);
}

TEST_F(FailureHandoff, FileForAFolder_IsRefused) {
    EXPECT_EQ(Run(WithFolder(manifest_)), 1311);
    EXPECT_EQ(output_.Text(), "");
}

constexpr const wchar_t* kPictures[] = {L"\\failure-inline.bmp", L"\\failure-hover.bmp", L"\\failure-safe.bmp"};

TEST_F(FailureHandoff, Folder_GetsThreePictures) {
    ASSERT_TRUE(CreateDirectoryW(pictures_.c_str(), nullptr));
    EXPECT_EQ(Run(WithFolder(pictures_)), 0);
    for (const wchar_t* name : kPictures)
        EXPECT_GT(FileLength(pictures_ + name), 54) << platform::EncodeUtf8(name);
}

TEST_F(FailureHandoff, EveryPictureThatStandsThereAlready_FailsAndIsNotTouched) {
    ASSERT_TRUE(CreateDirectoryW(pictures_.c_str(), nullptr));
    for (const wchar_t* name : kPictures) {
        WriteWholeFile(pictures_ + name, "mine");
        EXPECT_EQ(Run(WithFolder(pictures_)), 1311) << platform::EncodeUtf8(name);
        EXPECT_EQ(ReadWholeFile(pictures_ + name), "mine");
        for (const wchar_t* other : kPictures)
            DeleteFileW((pictures_ + other).c_str());
    }
    EXPECT_EQ(output_.Text(), "");
}

TEST_F(FailureHandoff, PictureThatCannotBeMade_Fails) {
    ASSERT_TRUE(CreateDirectoryW(pictures_.c_str(), nullptr));
    const OnCreateBitmap none([](auto...) -> HBITMAP { return nullptr; });
    EXPECT_EQ(Run(WithFolder(pictures_)), 1311);
    EXPECT_TRUE(RemoveDirectoryW(pictures_.c_str())) << "something was left in it";
}

// --- The standard output ---

/// A handle that this program was given as standard output, for the life of the object.
class StandardOutput {
  public:
    explicit StandardOutput(HANDLE handle) : before_(GetStdHandle(STD_OUTPUT_HANDLE)) {
        SetStdHandle(STD_OUTPUT_HANDLE, handle);
    }
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;
    ~StandardOutput() { SetStdHandle(STD_OUTPUT_HANDLE, before_); }

  private:
    HANDLE before_;
};

/// Counts what is written while it lives.
class Writes {
  public:
    [[nodiscard]] int Count() const { return count_; }

  private:
    int count_ = 0;
    OnWriteFile write_{[this](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
        ++count_;
        return OnWriteFile::Original(file, bytes, size, written, overlapped);
    }};
};

TEST(WriteOutput, File_GetsTheExactBytes) {
    const TemporaryDirectory folder;
    const OutputFile output(folder / L"output.txt");
    WriteOutput("ONE a=1\n");
    WriteOutput("");
    WriteOutput("TWO\nTHREE\n");
    EXPECT_EQ(output.Text(), "ONE a=1\nTWO\nTHREE\n");
}

TEST(WriteOutput, Pipe_GetsTheExactBytes) {
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    ASSERT_TRUE(CreatePipe(&reader, &writer, nullptr, 4096));
    {
        const StandardOutput output(writer);
        WriteOutput("ONE a=1\n");
    }
    CloseHandle(writer);
    char bytes[64] = {};
    DWORD count = 0;
    ASSERT_TRUE(ReadFile(reader, bytes, sizeof bytes, &count, nullptr));
    EXPECT_EQ(std::string(bytes, count), "ONE a=1\n");
    CloseHandle(reader);
}

TEST(WriteOutput, PipeThatNobodyReads_LosesTheLine) {
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    ASSERT_TRUE(CreatePipe(&reader, &writer, nullptr, 4096));
    CloseHandle(reader);
    {
        const StandardOutput output(writer);
        WriteOutput("ONE a=1\n");
    }
    CloseHandle(writer);
}

TEST(WriteOutput, WithoutAHandle_NothingIsWritten) {
    for (const HANDLE none : {static_cast<HANDLE>(nullptr), INVALID_HANDLE_VALUE}) {
        const StandardOutput output(none);
        const Writes writes;
        WriteOutput("LINE\n");
        EXPECT_EQ(writes.Count(), 0);
    }
}

TEST(WriteOutput, HandleThatWasClosed_IsNotWrittenTo) {
    const TemporaryDirectory folder;
    const HANDLE file = CreateFileW((folder / L"closed.txt").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    const StandardOutput output(file);
    const Writes writes;
    WriteOutput("LINE\n");
    EXPECT_EQ(writes.Count(), 0);
}

TEST(WriteOutput, Device_IsNotWrittenTo) {
    const HANDLE device = CreateFileW(L"NUL", GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_EQ(GetFileType(device), static_cast<DWORD>(FILE_TYPE_CHAR));
    {
        const StandardOutput output(device);
        const Writes writes;
        WriteOutput("LINE\n");
        EXPECT_EQ(writes.Count(), 0);
    }
    CloseHandle(device);
}

TEST(WriteOutput, OnlyPipesAndFiles_AreWrittenTo) {
    const TemporaryDirectory folder;
    const OutputFile output(folder / L"output.txt");
    for (const DWORD kind : {static_cast<DWORD>(FILE_TYPE_UNKNOWN), static_cast<DWORD>(FILE_TYPE_CHAR),
                             static_cast<DWORD>(FILE_TYPE_REMOTE), static_cast<DWORD>(FILE_TYPE_DISK),
                             static_cast<DWORD>(FILE_TYPE_PIPE)}) {
        const OnFileType type([kind](HANDLE) { return kind; });
        const Writes writes;
        WriteOutput("LINE\n");
        EXPECT_EQ(writes.Count(), kind == FILE_TYPE_DISK || kind == FILE_TYPE_PIPE ? 1 : 0) << kind;
    }
    EXPECT_EQ(output.Text(), "LINE\nLINE\n");
}

/// Commands end as ever where nobody listens.
TEST_F(VerificationCommands, WithoutOutput_TheyEndAlike) {
    const StandardOutput none(nullptr);
    EXPECT_EQ(Run({L"--launcher-update-progress-model-self-test"}), 0);
    EXPECT_EQ(Run({L"--launcher-download-contract-self-test"}), 0);
    EXPECT_EQ(Run(kHandoff), 0);
    EXPECT_EQ(output_.Text(), "");
}

TEST_F(VerificationCommands, ProgressModel_PrintsItsLine) {
    EXPECT_EQ(Run({L"--launcher-update-progress-model-self-test"}), 0);
    EXPECT_EQ(output_.Text(),
              "UPDATE_PROGRESS_MODEL phase_changes=1 multiple_assets=1 unknown_total=1 stale_events=1 extraction=1 "
              "per_file_verification=1 no_transfer_install=1 cancel_terminal=1 mixed_total=1 passed=1\n");
}

}  // namespace
}  // namespace launcher_shell
