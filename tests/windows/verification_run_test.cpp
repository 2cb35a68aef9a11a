#include "launcher/verification/verification_run.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "tests/support/import_hook.h"
#include "tests/support/seen_calls.h"
#include "tests/support/stage_report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/trees.h"

namespace launcher_shell {
namespace {

using launcher_update::Outcome;
using launcher_update::Result;
using launcher_update::Settings;
using launcher_update::Stage;
using platform::FileHandle;
using test_support::FaultKind;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::ReadWholeFile;
using test_support::SeenCalls;
using test_support::StageReport;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;

using OnCreateFile = StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnFlush = StandIn<"FlushFileBuffers", decltype(FlushFileBuffers)>;
using OnGetDriveType = StandIn<"GetDriveTypeW", decltype(GetDriveTypeW)>;
using OnGetEnvironment = StandIn<"GetEnvironmentVariableW", decltype(GetEnvironmentVariableW)>;
using OnGetFileTime = StandIn<"GetFileTime", decltype(GetFileTime)>;
using OnReadFile = StandIn<"ReadFile", decltype(ReadFile)>;
using OnSetFilePointer = StandIn<"SetFilePointer", decltype(SetFilePointer)>;
using OnSetFileTime = StandIn<"SetFileTime", decltype(SetFileTime)>;
using OnSleep = StandIn<"Sleep", decltype(Sleep)>;
using OnWriteFile = StandIn<"WriteFile", decltype(WriteFile)>;

constexpr wchar_t kVariable[] = L"VPR_TEST_MUTATE_AFTER_FULL_VERIFY";
constexpr wchar_t kMutationFailed[] = L"Test-only post-verification mutation failed.";
constexpr wchar_t kResultName[] = L"launcher-update-self-test-result.json";
constexpr wchar_t kErrorName[] = L"launcher-update-self-test-error.txt";
constexpr wchar_t kApplication[] = L"Velmora Pine Relay\\Velmora Pine Relay.exe";
constexpr char kImage[] = "MZ and more";
constexpr char kFlippedImage[] = "mZ and more";
const FILETIME kLongAgo = {0x12345678, 0x01C00000};

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

FileHandle OpenForTimes(const std::wstring& path) {
    return FileHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::uint64_t LastWrite(const std::wstring& path) {
    FILETIME time = {};
    EXPECT_TRUE(GetFileTime(OpenForTimes(path).Get(), nullptr, nullptr, &time));
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

/// A variable of this process, for the life of the object; none for no value.
class Environment {
  public:
    explicit Environment(const wchar_t* value) { SetEnvironmentVariableW(kVariable, value); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() { SetEnvironmentVariableW(kVariable, nullptr); }
};

WorkflowVerification Observing() {
    WorkflowVerification wanted;
    wanted.writesResult = true;
    return wanted;
}

WorkflowVerification Cancelling() {
    WorkflowVerification wanted = Observing();
    wanted.cancels = true;
    return wanted;
}

WorkflowVerification Crashing(const std::wstring& marker) {
    WorkflowVerification wanted = Observing();
    wanted.crashMarker = marker;
    return wanted;
}

/// A launcher's folder with its application, and a run that the workflow reports to.
struct Scene {
    explicit Scene(const wchar_t* variable = nullptr, WorkflowVerification wanted = Observing())
        : environment(variable), run(std::move(wanted), folder.Path()) {
        EXPECT_TRUE(launcher_update::EnsureDirectory(folder / L"Velmora Pine Relay"));
        PutApplication(kImage);
        run.Observe(settings);
    }

    void PutApplication(const std::string& bytes) const {
        WriteWholeFile(application, bytes);
        EXPECT_TRUE(SetFileTime(OpenForTimes(application).Get(), nullptr, nullptr, &kLongAgo));
    }
    [[nodiscard]] std::string Application() const { return ReadWholeFile(application); }

    void Report(const StageReport& report) const {
        settings.onStage(report.stage, report.detail, report.completed, report.total);
    }
    void ReportVerified() const { Report({Stage::VerifyingFiles, L"", 100, 100}); }

    Result Judged(Outcome outcome) const {
        Result result;
        result.outcome = outcome;
        run.Judge(result);
        return result;
    }
    int LeaveWith(Outcome outcome, const std::wstring& error = L"") {
        Result result;
        result.outcome = outcome;
        result.error = error;
        return run.Leave(result);
    }
    [[nodiscard]] std::string ResultFile() const { return ReadWholeFile(folder / kResultName); }
    [[nodiscard]] std::string ErrorFile() const { return ReadWholeFile(folder / kErrorName); }

    /// What the result file says about the change.
    [[nodiscard]] bool SaysOfMutation(bool attempted, bool succeeded) const {
        const auto word = [](bool value) { return std::string(value ? "true" : "false"); };
        return ResultFile().find("\"verificationMutationAttempted\":" + word(attempted) +
                                 ",\"verificationMutationSucceeded\":" + word(succeeded) + ",") != std::string::npos;
    }

    TemporaryDirectory folder;
    std::wstring application = folder / kApplication;
    Environment environment;
    Settings settings;
    VerificationRun run;
};

// --- What is told

TEST(VerificationRun, ReportsAreToldInOrder) {
    Scene scene;
    scene.Report({Stage::Checking, L"", 0, 0});
    scene.Report({Stage::Downloading, L"檔案 \"a\"", 1, 2});
    Result result;
    result.outcome = Outcome::Failed;
    result.safeToLaunch = false;
    result.error = L"更新檔的 SHA-256 驗證失敗。";
    EXPECT_EQ(scene.run.Leave(result), 20);
    EXPECT_EQ(scene.ResultFile(),
              platform::EncodeUtf8(L"{\"schemaVersion\":1,\"outcome\":\"Failed\",\"safeToLaunch\":false,"
                                   L"\"error\":\"更新檔的 SHA-256 驗證失敗。\","
                                   L"\"verificationMutationAttempted\":false,\"verificationMutationSucceeded\":"
                                   L"false,\"traceTruncated\":false,\"stages\":["
                                   L"{\"stage\":\"Checking\",\"detail\":\"\",\"completed\":0,\"total\":0},"
                                   L"{\"stage\":\"Downloading\",\"detail\":\"檔案 \\\"a\\\"\",\"completed\":1,"
                                   L"\"total\":2}]}\n"));
    EXPECT_EQ(scene.ErrorFile(), platform::EncodeUtf8(L"更新檔的 SHA-256 驗證失敗。\n"));
}

TEST(VerificationRun, OnlyHooksOfTheWorkflowAreFilled) {
    const Scene scene;
    EXPECT_TRUE(scene.settings.onStage && scene.settings.shouldCancel && scene.settings.onFileApplied);
    EXPECT_FALSE(scene.settings.promptForUpdate || scene.settings.shouldReconnect || scene.settings.onDownloadProgress);
}

// --- Exit codes and files

TEST(VerificationRun, OutcomeDecidesTheCodeAndWhatBecomesOfTheErrorFile) {
    struct Row {
        Outcome outcome;
        const wchar_t* error;
        bool cancels;
        int code;
        const char* errorFile;  // null: none
    };
    for (const Row& row : {Row{Outcome::Applied, L"", false, 0, nullptr},
                           {Outcome::Applied, L"told all the same", false, 0, nullptr},
                           {Outcome::Cancelled, L"", false, 20, "of an earlier run"},
                           {Outcome::UpToDate, L"", false, 20, "of an earlier run"},
                           {Outcome::Skipped, L"", false, 20, "of an earlier run"},
                           {Outcome::Declined, L"", false, 20, "of an earlier run"},
                           {Outcome::LauncherTooOld, L"old", false, 20, "old\n"},
                           {Outcome::Failed, L"bad", false, 20, "bad\n"},
                           {Outcome::Failed, L"", false, 20, "of an earlier run"},
                           {Outcome::Skipped, L"odd", false, 20, "odd\n"},
                           {Outcome::Cancelled, L"", true, 0, nullptr},
                           {Outcome::Applied, L"", true, 20, "of an earlier run"},
                           {Outcome::Applied, L"too late", true, 20, "too late\n"},
                           {Outcome::Failed, L"bad", true, 20, "bad\n"}}) {
        SCOPED_TRACE(testing::Message() << static_cast<unsigned>(row.outcome) << ' ' << row.error << row.cancels);
        Scene scene(nullptr, row.cancels ? Cancelling() : Observing());
        WriteWholeFile(scene.folder / kErrorName, "of an earlier run");
        WriteWholeFile(scene.folder / kResultName, "of an earlier run, and longer than any line that comes now");
        EXPECT_EQ(scene.LeaveWith(row.outcome, row.error), row.code);
        EXPECT_EQ(Exists(scene.folder / kErrorName), row.errorFile != nullptr);
        EXPECT_EQ(scene.ErrorFile(), row.errorFile != nullptr ? row.errorFile : "");
        EXPECT_TRUE(scene.ResultFile().starts_with("{\"schemaVersion\":1,"));
        EXPECT_TRUE(scene.ResultFile().ends_with("]}\n"));
    }
}

TEST(VerificationRun, NoEarlierErrorFile_IsNoFault) {
    Scene scene;
    EXPECT_EQ(scene.LeaveWith(Outcome::Applied), 0);
    EXPECT_FALSE(Exists(scene.folder / kErrorName));
}

TEST(VerificationRun, CrashCommand_PassesLikeAnyOther) {
    Scene scene(nullptr, Crashing(L"C:\\marker"));
    EXPECT_EQ(scene.LeaveWith(Outcome::Applied), 0);
    EXPECT_EQ(scene.LeaveWith(Outcome::Cancelled), 20);
}

TEST(VerificationRun, FolderInTheResultsPlace_HasACodeOfItsOwn) {
    for (const Outcome outcome : {Outcome::Applied, Outcome::Failed}) {
        Scene scene;
        ASSERT_TRUE(CreateDirectoryW((scene.folder / kResultName).c_str(), nullptr));
        EXPECT_EQ(scene.LeaveWith(outcome, outcome == Outcome::Failed ? L"bad" : L""), 21);
        EXPECT_EQ(Exists(scene.folder / kErrorName), outcome == Outcome::Failed);
    }
}

/// Whatever call fails, a lost result is told by its code, and a half-written one is never left.
TEST(VerificationRun, EachFailingCallOfTheResult_IsTold) {
    for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
        std::uint32_t at = 1;
        for (bool reached = true; reached; ++at) {
            SCOPED_TRACE(at);
            Scene scene;
            MutationFaults faults(kind, at);
            const int code = scene.LeaveWith(Outcome::Applied);
            reached = faults.Reached();
            const bool deletionFailed = reached && faults.Calls()[at - 1].path.ends_with(kErrorName);
            EXPECT_EQ(code, reached && !deletionFailed ? 21 : 0);
            EXPECT_EQ(Exists(scene.folder / kResultName), code == 0);
        }
        EXPECT_GT(at, 4u) << "writing, forcing out and renaming are three calls at least";
    }
}

/// How many calls change the disk at the end of a run.
std::uint32_t CallsOfLeaving(const std::wstring& error) {
    Scene scene;
    const MutationFaults faults;
    EXPECT_EQ(scene.LeaveWith(Outcome::Failed, error), 20);
    return faults.Count();
}

TEST(VerificationRun, ErrorTextThatCannotBeWritten_LeavesCodeAndResult) {
    const std::uint32_t calls = CallsOfLeaving(L"bad") - CallsOfLeaving(L"");
    EXPECT_GT(calls, 2u) << "writing, forcing out and renaming are three calls at least";
    for (std::uint32_t at = 1; at <= calls; ++at) {
        SCOPED_TRACE(at);
        Scene scene;
        const MutationFaults faults(FaultKind::fail, at);
        EXPECT_EQ(scene.LeaveWith(Outcome::Failed, L"bad"), 20);
        EXPECT_TRUE(faults.Reached());
        EXPECT_FALSE(Exists(scene.folder / kErrorName));
        EXPECT_TRUE(Exists(scene.folder / kResultName));
    }
}

// --- Cancelling

TEST(VerificationRun, FirstBytesOfAPayload_Cancel) {
    const Scene scene(nullptr, Cancelling());
    EXPECT_FALSE(scene.settings.shouldCancel());
    for (const StageReport& report :
         {StageReport{Stage::Checking, L"", 0, 0}, StageReport{Stage::VerifyingFiles, L"", 9, 9},
          StageReport{Stage::CheckingFiles, L"", 9, 9}, StageReport{Stage::Downloading, L"a", 1, 2},
          StageReport{Stage::Verifying, L"a", 9, 9}, StageReport{Stage::DownloadingBytes, L"a", 0, 9}}) {
        scene.Report(report);
        EXPECT_FALSE(scene.settings.shouldCancel()) << report;
    }
    scene.Report({Stage::DownloadingBytes, L"a", 1, 9});
    EXPECT_TRUE(scene.settings.shouldCancel());
    scene.Report({Stage::DownloadingBytes, L"b", 0, 9});
    EXPECT_TRUE(scene.settings.shouldCancel()) << "a wish that was heard stands";
}

TEST(VerificationRun, OthersNeverCancel) {
    for (const WorkflowVerification& wanted : {Observing(), Crashing(L"C:\\marker")}) {
        const Scene scene(nullptr, wanted);
        scene.Report({Stage::DownloadingBytes, L"a", 9, 9});
        EXPECT_FALSE(scene.settings.shouldCancel());
    }
}

// --- Standing still

/// Reports the counts and gives back the sleeps.
std::vector<DWORD> SleepsAfter(const Scene& scene, std::initializer_list<std::uint64_t> counts) {
    std::vector<DWORD> sleeps;
    const OnSleep onSleep([&](DWORD milliseconds) { sleeps.push_back(milliseconds); });
    for (const std::uint64_t count : counts)
        scene.settings.onFileApplied(count);
    return sleeps;
}

TEST(VerificationRun, FirstReplacedFile_LeavesTheMarkerAndStandsStill) {
    const TemporaryDirectory elsewhere;
    const Scene scene(nullptr, Crashing(elsewhere / L"marker"));
    EXPECT_TRUE(SleepsAfter(scene, {0}).empty());
    EXPECT_FALSE(Exists(elsewhere / L"marker"));
    EXPECT_EQ(SleepsAfter(scene, {1}), std::vector<DWORD>{INFINITE});
    EXPECT_EQ(ReadWholeFile(elsewhere / L"marker"), "first-target-applied");
    EXPECT_FALSE(Exists(scene.folder / kResultName));
}

TEST(VerificationRun, LaterFiles_DoNotStandStill) {
    const TemporaryDirectory elsewhere;
    const Scene scene(nullptr, Crashing(elsewhere / L"marker"));
    EXPECT_TRUE(SleepsAfter(scene, {2, 3, 256}).empty());
    EXPECT_FALSE(Exists(elsewhere / L"marker"));
}

TEST(VerificationRun, MarkerIsClosedBeforeTheSleep) {
    const TemporaryDirectory elsewhere;
    const Scene scene(nullptr, Crashing(elsewhere / L"marker"));
    bool closed = false;
    const OnSleep onSleep([&](DWORD) { closed = static_cast<bool>(OpenForTimes(elsewhere / L"marker")); });
    scene.settings.onFileApplied(1);
    EXPECT_TRUE(closed) << "a driver that finds it may want it for itself";
}

TEST(VerificationRun, MarkerThatCannotBeMade_StandsStillAsWell) {
    const TemporaryDirectory elsewhere;
    WriteWholeFile(elsewhere / L"there", "of an earlier run");
    ASSERT_TRUE(CreateDirectoryW((elsewhere / L"folder").c_str(), nullptr));
    for (const wchar_t* marker : {L"there", L"folder", L"none\\marker"}) {
        const Scene scene(nullptr, Crashing(elsewhere / marker));
        EXPECT_EQ(SleepsAfter(scene, {1}), std::vector<DWORD>{INFINITE}) << marker;
    }
    EXPECT_EQ(ReadWholeFile(elsewhere / L"there"), "of an earlier run");
    EXPECT_FALSE(Exists(elsewhere / L"none"));
}

TEST(VerificationRun, MarkerWithoutItsText_StandsStillAsWell) {
    const TemporaryDirectory elsewhere;
    const Scene scene(nullptr, Crashing(elsewhere / L"marker"));
    const OnWriteFile fails([](auto...) { return FALSE; });
    EXPECT_EQ(SleepsAfter(scene, {1}), std::vector<DWORD>{INFINITE});
}

TEST(VerificationRun, OthersNeverStandStill) {
    for (const WorkflowVerification& wanted : {Observing(), Cancelling()}) {
        const Scene scene(nullptr, wanted);
        EXPECT_TRUE(SleepsAfter(scene, {1}).empty());
    }
}

TEST(VerificationRun, MarkerMustBeAnAbsoluteLocalPath) {
    struct Row {
        const wchar_t* path;
        bool good;
    };
    for (const Row& row :
         {Row{L"C:\\marker", true}, Row{L"c:/a/marker", true}, Row{L"marker", false}, Row{L"", false},
          Row{L"C:", false}, Row{L"C:marker", false}, Row{L"\\marker", false}, Row{L"\\\\server\\share\\marker", false},
          Row{L"\\\\?\\C:\\marker", false}, Row{L"1:\\marker", false}, Row{L"CC:\\marker", false}}) {
        const VerificationRun run(Crashing(row.path), L"C:\\launcher");
        EXPECT_EQ(run.ArgumentsAreGood(), row.good) << row.path;
    }
    EXPECT_TRUE(VerificationRun(Observing(), L"C:\\launcher").ArgumentsAreGood());
}

TEST(VerificationRun, MarkerMustLieOnADriveOfThisMachine) {
    struct Row {
        UINT type;
        bool good;
    };
    for (const Row& row :
         {Row{DRIVE_UNKNOWN, false}, Row{DRIVE_NO_ROOT_DIR, false}, Row{DRIVE_REMOVABLE, true}, Row{DRIVE_FIXED, true},
          Row{DRIVE_REMOTE, false}, Row{DRIVE_CDROM, false}, Row{DRIVE_RAMDISK, true}}) {
        std::wstring asked;
        const OnGetDriveType type([&](LPCWSTR root) {
            asked = root;
            return row.type;
        });
        EXPECT_EQ(VerificationRun(Crashing(L"D:\\a\\marker"), L"C:\\launcher").ArgumentsAreGood(), row.good)
            << row.type;
        EXPECT_EQ(asked, L"D:\\");
    }
}

// --- The change behind the verification

TEST(VerificationRun, FullVerification_ChangesOneBit) {
    Scene scene(L"1");
    const std::uint64_t time = LastWrite(scene.application);
    scene.ReportVerified();
    EXPECT_EQ(scene.Application(), kFlippedImage);
    EXPECT_EQ(LastWrite(scene.application), time);
    const Result result = scene.Judged(Outcome::UpToDate);
    EXPECT_EQ(result.outcome, Outcome::UpToDate);
    EXPECT_TRUE(result.safeToLaunch && result.error.empty());
    EXPECT_EQ(scene.LeaveWith(Outcome::Applied), 0);
    EXPECT_TRUE(scene.SaysOfMutation(true, true));
}

TEST(VerificationRun, EveryFirstByte_IsFlippedInOneBit) {
    for (const auto& [before, after] :
         {std::pair{'\0', ' '}, {' ', '\0'}, {'a', 'A'}, {'\xff', '\xdf'}, {'\x80', '\xa0'}}) {
        const Scene scene(L"1");
        scene.PutApplication(std::string(1, before));
        scene.ReportVerified();
        EXPECT_EQ(scene.Application(), std::string(1, after));
    }
}

TEST(VerificationRun, SecondFullVerification_ChangesNothingMore) {
    const Scene scene(L"1");
    scene.ReportVerified();
    scene.ReportVerified();
    EXPECT_EQ(scene.Application(), kFlippedImage);
}

TEST(VerificationRun, OnlyAFullVerification_ChangesTheApplication) {
    Scene scene(L"1");
    for (const StageReport& report :
         {StageReport{Stage::Checking, L"", 0, 0}, StageReport{Stage::VerifyingFiles, L"", 0, 9},
          StageReport{Stage::VerifyingFiles, L"a", 8, 9}, StageReport{Stage::VerifyingFiles, L"a", 10, 9},
          StageReport{Stage::VerifyingFiles, L"", 0, 0}, StageReport{Stage::CheckingFiles, L"", 9, 9},
          StageReport{Stage::Verifying, L"a", 9, 9}, StageReport{Stage::DownloadingBytes, L"a", 9, 9},
          StageReport{Stage::Downloading, L"a", 9, 9}, StageReport{Stage::Completed, L"", 9, 9}}) {
        scene.Report(report);
        EXPECT_EQ(scene.Application(), kImage) << report;
    }
    EXPECT_EQ(scene.Judged(Outcome::UpToDate).outcome, Outcome::UpToDate);
    EXPECT_EQ(scene.LeaveWith(Outcome::Applied), 0);
    EXPECT_TRUE(scene.SaysOfMutation(false, false));
    scene.ReportVerified();
    EXPECT_EQ(scene.Application(), kFlippedImage) << "the first that is full counts, whatever came before";
}

TEST(VerificationRun, VariableMustBeExactlyOne) {
    for (const wchar_t* value : {L"0", L"11", L"", L" 1", L"1 ", L"2", L"true", static_cast<const wchar_t*>(nullptr)}) {
        Scene scene(value);
        scene.ReportVerified();
        EXPECT_EQ(scene.Application(), kImage) << (value != nullptr ? value : L"(none)");
        EXPECT_EQ(scene.Judged(Outcome::Applied).outcome, Outcome::Applied);
        EXPECT_EQ(scene.LeaveWith(Outcome::Applied), 0);
        EXPECT_TRUE(scene.SaysOfMutation(false, false));
    }
}

TEST(VerificationRun, VariableIsReadIntoTwoUnits) {
    std::vector<std::pair<std::wstring, DWORD>> asked;
    const OnGetEnvironment onGet([&](LPCWSTR name, LPWSTR buffer, DWORD size) {
        asked.emplace_back(name, size);
        return OnGetEnvironment::Original(name, buffer, size);
    });
    const Scene scene(L"1");
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].first, kVariable);
    EXPECT_EQ(asked[0].second, 2u);
}

TEST(VerificationRun, ChangeActsInEveryCommand) {
    for (const WorkflowVerification& wanted : {WorkflowVerification(), Cancelling(), Crashing(L"C:\\marker")}) {
        const Scene scene(L"1", wanted);
        scene.ReportVerified();
        EXPECT_EQ(scene.Application(), kFlippedImage);
    }
}

/// The result is forced, whatever the workflow came to, and the attempt is not made again.
void ExpectFailedAttempt(Scene& scene) {
    scene.ReportVerified();
    for (const Outcome outcome : {Outcome::UpToDate, Outcome::Applied, Outcome::Cancelled, Outcome::Skipped}) {
        const Result result = scene.Judged(outcome);
        EXPECT_EQ(result.outcome, Outcome::Failed);
        EXPECT_FALSE(result.safeToLaunch);
        EXPECT_EQ(result.error, kMutationFailed);
    }
    EXPECT_EQ(scene.run.Leave(scene.Judged(Outcome::Applied)), 20);
    EXPECT_TRUE(scene.SaysOfMutation(true, false));
    EXPECT_EQ(scene.ErrorFile(), platform::EncodeUtf8(std::wstring(kMutationFailed) + L"\n"));
}

void ExpectNoSecondAttempt(Scene& scene) {
    const std::string before = scene.Application();
    scene.ReportVerified();
    EXPECT_EQ(scene.Application(), before);
    EXPECT_TRUE(scene.Judged(Outcome::Applied).error == kMutationFailed);
}

TEST(VerificationRun, NoPlainFileToChange_FailsTheRun) {
    struct Row {
        const char* what;
        std::function<void(const Scene&)> spoil;
    };
    const auto remove = [](const Scene& scene) { EXPECT_TRUE(DeleteFileW(scene.application.c_str())); };
    const Row rows[] = {{"missing", remove},
                        {"a folder",
                         [&](const Scene& scene) {
                             remove(scene);
                             EXPECT_TRUE(CreateDirectoryW(scene.application.c_str(), nullptr));
                         }},
                        {"no folder around it",
                         [&](const Scene& scene) {
                             remove(scene);
                             EXPECT_TRUE(RemoveDirectoryW((scene.folder / L"Velmora Pine Relay").c_str()));
                         }},
                        {"empty", [](const Scene& scene) { scene.PutApplication(""); }}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Scene scene(L"1");
        row.spoil(scene);
        ExpectFailedAttempt(scene);
    }
}

TEST(VerificationRun, Link_IsNotChanged) {
    Scene scene(L"1");
    {
        const ForcedAttributes link(L"Velmora Pine Relay.exe", FILE_ATTRIBUTE_REPARSE_POINT);
        ExpectFailedAttempt(scene);
    }
    EXPECT_EQ(scene.Application(), kImage);
    ExpectNoSecondAttempt(scene);
}

TEST(VerificationRun, LinkMadeAtTheLastMoment_IsOpenedItself) {
    const Scene scene(L"1");
    const SeenCalls seen;
    scene.ReportVerified();
    ASSERT_EQ(seen.openings.size(), 1u);
    EXPECT_TRUE(seen.openings[0].flags & FILE_FLAG_OPEN_REPARSE_POINT);
    EXPECT_EQ(seen.openings[0].disposition, DWORD{OPEN_EXISTING});
    seen.ExpectLongForms();
}

TEST(VerificationRun, FailingOpen_FailsTheRun) {
    Scene scene(L"1");
    {
        const OnCreateFile fails([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                     DWORD disposition, DWORD flags, HANDLE other) -> HANDLE {
            if (!std::wstring_view(path).ends_with(kApplication))
                return OnCreateFile::Original(path, access, share, security, disposition, flags, other);
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        });
        ExpectFailedAttempt(scene);
    }
    EXPECT_EQ(scene.Application(), kImage);
    ExpectNoSecondAttempt(scene);
}

/// Reports a full verification while `Fault` stands in for one of the calls, and looks at what came of it.
template <typename Fault>
void ExpectFaultTold(typename Fault::Body body, const char* left) {
    Scene scene(L"1");
    {
        std::uint32_t calls = 0;
        const Fault fault([&](auto... arguments) {
            ++calls;
            return body(arguments...);
        });
        scene.ReportVerified();
        EXPECT_EQ(calls, 1u);
    }
    EXPECT_EQ(scene.Application(), left);
    ExpectFailedAttempt(scene);
    EXPECT_EQ(scene.Application(), left);
    ExpectNoSecondAttempt(scene);
}

TEST(VerificationRun, EachFailingCallOfTheChange_FailsTheRun) {
    const auto fails = [](auto...) { return FALSE; };
    ExpectFaultTold<OnGetFileTime>(fails, kImage);
    ExpectFaultTold<OnReadFile>(fails, kImage);
    ExpectFaultTold<OnSetFilePointer>([](auto...) { return INVALID_SET_FILE_POINTER; }, kImage);
    ExpectFaultTold<OnWriteFile>(fails, kImage);
    ExpectFaultTold<OnSetFileTime>(fails, kFlippedImage);
    ExpectFaultTold<OnFlush>(fails, kFlippedImage);
}

TEST(VerificationRun, ByteThatIsNotRead_FailsTheRun) {
    ExpectFaultTold<OnReadFile>(
        [](HANDLE, LPVOID, DWORD, LPDWORD read, LPOVERLAPPED) {
            *read = 0;
            return TRUE;
        },
        kImage);
}

TEST(VerificationRun, ByteThatIsNotWritten_FailsTheRun) {
    ExpectFaultTold<OnWriteFile>(
        [](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) {
            *written = 0;
            return TRUE;
        },
        kImage);
}

/// What Windows writes back after the time was set must not set it anew: the byte goes first.
TEST(VerificationRun, ChangeGoesInOrder) {
    std::vector<std::string> order;
    const OnWriteFile onWrite([&](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED other) {
        order.push_back("write " + std::to_string(size));
        return OnWriteFile::Original(file, bytes, size, written, other);
    });
    const OnGetFileTime onGetTime([&](HANDLE file, LPFILETIME created, LPFILETIME accessed, LPFILETIME written) {
        order.emplace_back("look at the time");
        return OnGetFileTime::Original(file, created, accessed, written);
    });
    const OnSetFileTime onSetTime(
        [&](HANDLE file, const FILETIME* created, const FILETIME* accessed, const FILETIME* written) {
            order.emplace_back(created == nullptr && accessed == nullptr ? "put the time back" : "set other times");
            return OnSetFileTime::Original(file, created, accessed, written);
        });
    const OnFlush onFlush([&](HANDLE file) {
        order.emplace_back("force out");
        return OnFlush::Original(file);
    });
    Scene scene(L"1");
    order.clear();
    scene.ReportVerified();
    EXPECT_EQ(order, (std::vector<std::string>{"look at the time", "write 1", "put the time back", "force out"}));
}

}  // namespace
}  // namespace launcher_shell
