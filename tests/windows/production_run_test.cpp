#include "tests/support/loopback_server.h"
// loopback_server.h brings winsock2.h, which must come before windows.h
#include <windows.h>

#include <bcrypt.h>
#include <gtest/gtest.h>
#include <winhttp.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "download/request.h"
#include "launcher/configuration_text.h"
#include "platform/text.h"
#include "product/locations.h"
#include "tests/support/import_hook.h"
#include "tests/support/manifest_builder.h"
#include "tests/support/stage_report.h"
#include "tests/support/stand_in.h"
#include "tests/support/temporary_directory.h"
#include "update/files/file_hashing.h"
#include "update/files/trees.h"
#include "update/transaction/lock.h"
#include "update/transaction/recovery.h"
#include "update/workflow/check_and_apply.h"
#include "update/workflow/payload_fetch.h"
#include "update/workflow/schedule.h"

namespace launcher_update {
namespace {

using launcher_download::Phase;
using launcher_download::Progress;
using test_support::Array;
using test_support::FileLength;
using test_support::JsonObject;
using test_support::LoopbackServer;
using test_support::ReadWholeFile;
using test_support::Reply;
using test_support::StageReport;
using test_support::StandIn;
using test_support::TemporaryDirectory;
using test_support::WriteWholeFile;
using Exchange = LoopbackServer::Exchange;
using Script = LoopbackServer::Script;

using OnConnect = StandIn<"WinHttpConnect", decltype(WinHttpConnect)>;
using OnOpenRequest = StandIn<"WinHttpOpenRequest", decltype(WinHttpOpenRequest)>;
using OnTickCount = StandIn<"GetTickCount64", decltype(GetTickCount64)>;
using OnMessageBox = StandIn<"MessageBoxW", decltype(MessageBoxW)>;

constexpr wchar_t kExecutable[] = L"Velmora Pine Relay\\Velmora Pine Relay.exe";
constexpr wchar_t kTheme[] = L"Velmora Pine Relay\\Themes\\dawn.vprtheme";
constexpr wchar_t kOffer[] = L"發現 Velmora Pine Relay 1.1.0.0 更新。\n\n現在下載並安裝嗎？";
constexpr char kPrimaryManifest[] = "/QuillFarrowWorks/Velmora-Pine-Relay-Updates/master/updates/stable.json";
constexpr char kBackupManifest[] = "/updates/stable.json";
constexpr char kThemePayload[] = "/QuillFarrowWorks/Files/dawn.vprtheme";
constexpr wchar_t kDownloadIncomplete[] =
    L"Download could not finish. You can retry later; eligible partial data is retained and the installed version is "
    L"unchanged.";

Reply Whole(const std::string& body) {
    Reply reply;
    reply.headers = {"ETag: \"one\""};
    reply.body = body;
    return reply;
}

Reply Status(const char* status) {
    Reply reply;
    reply.status = status;
    return reply;
}

/// A whole run as a user has it: the production locations, the schedule, the prompt, the download engine. Every
/// connection leads to a server of the test instead, and the TLS is taken off; the rest is the product's own.
///
/// Version 1.0.0.0 is installed; the release 1.1.0.0 has two files.
class ProductionRun : public testing::Test {
  protected:
    ProductionRun() {
        launcher_shell::LauncherConfiguration configuration;
        configuration.productVersion = L"1.0.0.0";
        configuration.launcherVersion = L"1.0.0.0";
        EXPECT_TRUE(EnsureDirectory(root / L"Velmora Pine Relay\\Themes"));
        WriteWholeFile(root / L"current.json",
                       platform::EncodeUtf8(launcher_shell::RenderLauncherConfiguration(configuration)));
        WriteWholeFile(root / kExecutable, "old");

        settings.productVersion = L"1.0.0.0";
        settings.launcherVersion = L"1.0.0.0";
        settings.applicationDirectory = L"Velmora Pine Relay";
        settings.updateManifestUrl = product::kPrimaryManifestUrl;
        settings.onStage = [this](Stage stage, const std::wstring& detail, std::uint64_t completed,
                                  std::uint64_t total) {
            reports.push_back({stage, detail, completed, total});
            if (onStageHook) onStageHook(reports.back());
        };
        settings.promptForUpdate = [this](const std::wstring& version, const ReleaseNotes& notes) {
            prompts.push_back(version + L"|" + notes.summary);
            return accept;
        };
        settings.onDownloadProgress = [this](const Progress& progress) {
            progresses.emplace_back(progress, reports.size());
        };
        settings.shouldCancel = [this] { return cancel.load(); };
    }

    /// The files of the release, below `prefix`.
    JsonObject Manifest(const std::wstring& prefix) const {
        std::vector<JsonObject> files;
        for (std::size_t at = 0; at < 2; ++at) {
            std::wstring hex;
            EXPECT_TRUE(Sha256OfBuffer(payloads[at].data(), payloads[at].size(), hex));
            if (upperCaseDigests) {
                std::transform(hex.begin(), hex.end(), hex.begin(), [](wchar_t unit) {
                    return unit >= L'a' && unit <= L'f' ? static_cast<wchar_t>(unit - L'a' + L'A') : unit;
                });
            }
            JsonObject file;
            file.SetText(L"component", at == 0 ? L"application" : L"theme").SetText(L"path", paths[at]);
            file.SetText(L"url", prefix + names[at]).SetText(L"sha256", hex).SetNumber(L"size", payloads[at].size());
            files.push_back(file);
        }
        JsonObject manifest = test_support::BareManifest();
        manifest.SetText(L"version", L"1.1.0.0").Set(L"files", Array(files));
        if (!priority.empty()) manifest.SetText(L"updatePriority", priority);
        JsonObject notes;
        notes.SetText(L"defaultLocale", L"en");
        notes.Set(L"localizations", Array({Localization(L"en", L"Quieter."), Localization(L"ja", L"静か。")}));
        return manifest.Set(L"releaseNotes", notes);
    }
    static JsonObject Localization(std::wstring_view locale, std::wstring_view summary) {
        JsonObject entry;
        entry.SetText(L"locale", locale).SetText(L"summary", summary);
        return entry.Set(L"highlights", L"[\"Faster.\"]").Set(L"emphasizedItems", L"[]");
    }

    void Serve(const std::string& path, const Script& script) { scripts[path] = script; }
    void Serve(const std::string& path, const Reply& reply) {
        Serve(path, [reply](Exchange& exchange) { exchange.Send(reply); });
    }
    void Publish(const std::string& manifestPath, const std::wstring& prefix) {
        Serve(manifestPath, Whole(platform::EncodeUtf8(Manifest(prefix).Text())));
        const std::wstring host = prefix.substr(8, prefix.find(L'/', 8) - 8);
        for (std::size_t at = 0; at < 2; ++at)
            Serve(platform::EncodeUtf8(prefix.substr(8 + host.size()) + names[at]), Whole(payloads[at]));
    }
    void Publish() { Publish(kPrimaryManifest, kPrimary); }
    void PublishOnBackup() { Publish(kBackupManifest, std::wstring(product::kBackupReleasePrefix)); }

    const Result& Run(bool force = false) {
        reports.clear();
        progresses.clear();
        result = CheckAndApply(root.Path(), settings, force, false, {});
        return result;
    }

    std::vector<std::string> RequestedPaths() const {
        std::vector<std::string> requested;
        for (const std::string& head : server.Requests())
            requested.push_back(PathOf(head));
        return requested;
    }
    static std::string PathOf(const std::string& head) {
        const std::size_t start = head.find(' ') + 1;
        return head.substr(start, head.find(' ', start) - start);
    }
    std::vector<Stage> Course() const {
        std::vector<Stage> course;
        for (const StageReport& report : reports)
            course.push_back(report.stage);
        return course;
    }
    std::wstring Control() const { return ControlDirectory(root.Path()); }
    std::wstring StatePath() const { return UpdateStatePath(root.Path()); }
    bool StateWritten() const { return FileLength(StatePath()) >= 0; }
    /// Bytes that the cache holds of one payload; -1 for none.
    long long Cached(std::size_t at) const {
        std::wstring hex;
        EXPECT_TRUE(Sha256OfBuffer(payloads[at].data(), payloads[at].size(), hex));
        return FileLength(Control() + L"\\downloads-v1\\" + hex + L".part");
    }
    std::wstring FolderThatBegins(const std::wstring& prefix) const {
        std::vector<DirectoryEntry> entries;
        static_cast<void>(ListDirectory(Control(), entries));
        for (const DirectoryEntry& entry : entries) {
            if (entry.name.starts_with(prefix)) return Control() + L"\\" + entry.name;
        }
        return {};
    }

    void ExpectOldTree() const {
        EXPECT_EQ(ReadWholeFile(root / kExecutable), "old");
        EXPECT_EQ(FileLength(root / kTheme), -1);
        EXPECT_NE(ReadWholeFile(root / L"current.json").find("\"productVersion\": \"1.0.0.0\""), std::string::npos);
        EXPECT_EQ(FolderThatBegins(L"staging-"), L"");
        EXPECT_EQ(FolderThatBegins(L"backup-"), L"");
        EXPECT_TRUE(result.safeToLaunch);
    }
    void ExpectNewTree() const {
        EXPECT_EQ(result.outcome, Outcome::Applied) << platform::EncodeUtf8(result.error);
        EXPECT_EQ(ReadWholeFile(root / kExecutable), payloads[0]);
        EXPECT_EQ(ReadWholeFile(root / kTheme), payloads[1]);
        EXPECT_NE(ReadWholeFile(root / L"current.json").find("\"productVersion\": \"1.1.0.0\""), std::string::npos);
        EXPECT_TRUE(StateWritten());
    }

    const std::wstring kPrimary =
        L"https://" + std::wstring(product::kPrimaryReleaseHost) + L"/QuillFarrowWorks/Files/";
    const std::vector<std::wstring> names = {L"app-1.1.0.0.bin", L"dawn.vprtheme"};
    const std::vector<std::wstring> paths = {L"Velmora Pine Relay/Velmora Pine Relay.exe",
                                             L"Velmora Pine Relay/Themes/dawn.vprtheme"};
    const std::vector<std::string> payloads = {"a changed application", "a new theme"};

    TemporaryDirectory root;
    std::map<std::string, Script> scripts;  // arranged before a run, read by the server's threads during one
    std::wstring priority;
    bool upperCaseDigests = false;
    Settings settings;
    std::atomic<bool> cancel{false};
    bool accept = true;
    std::function<void(const StageReport&)> onStageHook;
    std::function<int(HWND, const std::wstring&, const std::wstring&, UINT)> onBox;
    std::vector<StageReport> reports;
    std::vector<std::wstring> prompts;
    std::vector<std::pair<Progress, std::size_t>> progresses;  // each with the stage reports that came before it
    std::vector<std::wstring> hosts;
    Result result;

    LoopbackServer server{[this](Exchange& exchange) {
        const auto found = scripts.find(PathOf(exchange.Request()));
        if (found == scripts.end()) {
            exchange.Send(Status("404 Not Found"));
        } else {
            found->second(exchange);
        }
    }};
    OnConnect onConnect{[this](HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
        EXPECT_EQ(port, 443);
        hosts.emplace_back(host);
        return OnConnect::Original(session, L"127.0.0.1", server.Port(), reserved);
    }};
    OnOpenRequest onOpenRequest{[](HINTERNET owner, LPCWSTR verb, LPCWSTR object, LPCWSTR version, LPCWSTR referrer,
                                   LPCWSTR* types, DWORD flags) {
        EXPECT_NE(flags & WINHTTP_FLAG_SECURE, 0u);
        return OnOpenRequest::Original(owner, verb, object, version, referrer, types,
                                       flags & ~static_cast<DWORD>(WINHTTP_FLAG_SECURE));
    }};
    OnMessageBox onMessageBox{[this](HWND owner, LPCWSTR text, LPCWSTR title, UINT flags) {
        if (onBox) return onBox(owner, text, title, flags);
        ADD_FAILURE() << "nobody shall be asked by a message box";
        return IDNO;
    }};
};

TEST_F(ProductionRun, NewerRelease_IsOfferedOnceAndInstalled) {
    Publish();
    settings.language = L"ja";
    Run();
    ExpectNewTree();
    EXPECT_EQ(prompts, std::vector<std::wstring>{L"1.1.0.0|静か。"});
    EXPECT_EQ(result.version, L"1.1.0.0");
    EXPECT_EQ(result.notes.summary, L"静か。");
    const std::wstring releases(product::kPrimaryReleaseHost);
    EXPECT_EQ(hosts, (std::vector<std::wstring>{VPR_PRIMARY_MANIFEST_HOST, releases, releases}));
}

TEST_F(ProductionRun, OfferThatIsDeclined_CountsForTheSchedule) {
    Publish();
    accept = false;
    EXPECT_EQ(Run().outcome, Outcome::Declined);
    EXPECT_EQ(result.version, L"1.1.0.0");
    EXPECT_EQ(result.error, L"");
    EXPECT_EQ(reports.back(), (StageReport{Stage::Declined, L"1.1.0.0", 0, 0}));
    EXPECT_EQ(Course()[Course().size() - 2], Stage::UpdateAvailable);
    EXPECT_TRUE(StateWritten());
    EXPECT_EQ(RequestedPaths().size(), 1u);
    ExpectOldTree();
}

TEST_F(ProductionRun, Repair_AsksNobody) {
    Publish();
    settings.productVersion = L"1.1.0.0";
    EXPECT_EQ(Run().outcome, Outcome::Applied);
    EXPECT_TRUE(prompts.empty());
}

TEST_F(ProductionRun, WithoutAPrompt_AMessageBoxAsks) {
    Publish();
    settings.promptForUpdate = {};
    struct Row {
        int button;
        Outcome outcome;
    };
    for (const Row& row : {Row{IDNO, Outcome::Declined}, Row{IDCANCEL, Outcome::Declined}, Row{0, Outcome::Declined},
                           Row{IDYES, Outcome::Applied}}) {
        int asked = 0;
        onBox = [&](HWND owner, const std::wstring& text, const std::wstring& title, UINT flags) {
            ++asked;
            EXPECT_EQ(owner, nullptr);
            EXPECT_EQ(text, std::wstring(kOffer) + L"\n\nQuieter.\n• Faster.");
            EXPECT_EQ(title, L"Velmora Pine Relay");
            EXPECT_EQ(flags, static_cast<UINT>(MB_YESNO));
            return row.button;
        };
        EXPECT_EQ(Run(true).outcome, row.outcome) << row.button;
        EXPECT_EQ(asked, 1);
    }
}

TEST_F(ProductionRun, NormalRelease_WaitsBetweenChecks) {
    Publish();
    WriteUpdateState(StatePath());
    const std::string state = ReadWholeFile(StatePath());
    EXPECT_EQ(Run().outcome, Outcome::Skipped);
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Checking, L"", 0, 0}, {Stage::Skipped, L"", 0, 0}}));
    EXPECT_EQ(result.version, L"");
    EXPECT_EQ(result.notes, ReleaseNotes{});
    EXPECT_EQ(ReadWholeFile(StatePath()), state);
    EXPECT_TRUE(ReadWholeFile(Control() + L"\\release-watermark.txt").starts_with("1.1.0.0\n"))
        << "what was seen is recorded all the same";
    EXPECT_TRUE(prompts.empty());
    Run(true);
    EXPECT_EQ(prompts.size(), 1u);
    ExpectNewTree();
}

TEST_F(ProductionRun, UrgentRelease_DoesNotWait) {
    accept = false;
    for (const wchar_t* urgent : {L"recommended", L"hotfix"}) {
        priority = urgent;
        Publish();
        WriteUpdateState(StatePath());
        prompts.clear();
        EXPECT_EQ(Run().outcome, Outcome::Declined);
        EXPECT_EQ(prompts.size(), 1u) << "urgent, and offered as any other";
    }
}

TEST_F(ProductionRun, IntervalOfTheSettings_Decides) {
    Publish();
    accept = false;
    WriteWholeFile(StatePath(), RenderUpdateState(_time64(nullptr) - 20 * 60));
    settings.updateCheckIntervalMinutes = 30;
    EXPECT_EQ(Run().outcome, Outcome::Skipped);
    settings.updateCheckIntervalMinutes = 15;
    EXPECT_EQ(Run().outcome, Outcome::Declined);
}

TEST_F(ProductionRun, EachSourceOfTheManifest_IsTriedTwice) {
    Serve(kPrimaryManifest, Status("503 Busy"));
    Serve(kBackupManifest, Status("502 Gone"));
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_EQ(RequestedPaths(),
              (std::vector<std::string>{kPrimaryManifest, kPrimaryManifest, kBackupManifest, kBackupManifest}));
    EXPECT_EQ(hosts[3], product::kBackupHost);
    EXPECT_EQ(result.error, L"更新伺服器回傳錯誤（HTTP 502）。") << "the last error is told";
    EXPECT_EQ(reports.back(), (StageReport{Stage::Failed, result.error, 0, 0}));
    ASSERT_EQ(progresses.size(), 1u);
    EXPECT_EQ(progresses[0].first.phase, Phase::switchingSource);
    EXPECT_TRUE(progresses[0].first.backup);
    EXPECT_FALSE(StateWritten());
    ExpectOldTree();
}

TEST_F(ProductionRun, LocationOfTheUsersOwn_HasNoBackup) {
    settings.updateManifestUrl = L"https://h.example/own.json";
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_EQ(RequestedPaths(), (std::vector<std::string>{"/own.json", "/own.json"}));
    EXPECT_TRUE(progresses.empty());
}

TEST_F(ProductionRun, LocationGivenForTheRun_ReplacesThatOfTheSettings) {
    Publish();
    PublishOnBackup();
    result = CheckAndApply(root.Path(), settings, false, false, L"https://h.example/other.json");
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_EQ(RequestedPaths(), (std::vector<std::string>{"/other.json", "/other.json"}));
}

TEST_F(ProductionRun, ManifestThatIsNoText_LeavesNoEarlierError) {
    settings.updateManifestUrl = L"https://h.example/own.json";
    std::atomic<int> asked{0};
    Serve("/own.json",
          [&asked](Exchange& exchange) { exchange.Send(++asked == 1 ? Status("500 Oops") : Whole("\xFF\xFE")); });
    EXPECT_EQ(Run().error, L"無法解析更新清單。");
}

TEST_F(ProductionRun, SecondAttempt_TakesNothingFromTheFirst) {
    Publish();
    const Script good = scripts[kPrimaryManifest];
    std::atomic<int> asked{0};
    Serve(kPrimaryManifest, [&](Exchange& exchange) {
        if (++asked > 1) return good(exchange);
        exchange.Send(Whole(platform::EncodeUtf8(Manifest(kPrimary)
                                                     .SetText(L"releaseNotesUrl", L"https://h.example/notes")
                                                     .SetText(L"version", L"x")
                                                     .Text())));
    });
    Run();
    ExpectNewTree();
    EXPECT_EQ(result.notes.url, L"");
    EXPECT_EQ(asked, 2);
}

TEST_F(ProductionRun, CancelBetweenAttempts_AsksNobodyElse) {
    for (std::size_t answered = 0; answered <= 4; ++answered) {
        SCOPED_TRACE(answered);
        const std::size_t before = server.Requests().size();
        settings.shouldCancel = [&] { return server.Requests().size() - before >= answered; };
        EXPECT_EQ(Run().outcome, Outcome::Cancelled);
        EXPECT_EQ(server.Requests().size() - before, answered);
        EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Checking, L"", 0, 0}, {Stage::Cancelled, L"", 0, 0}}));
        EXPECT_EQ(result.error, L"");
        EXPECT_FALSE(StateWritten());
        ExpectOldTree();
    }
}

/// The question belongs to the attempt, not to the fetch in it.
TEST_F(ProductionRun, CancelThatIsToldOnlyOnce_IsHeardAllTheSame) {
    Publish();
    int questions = 0;
    settings.shouldCancel = [&questions] { return ++questions == 1; };
    EXPECT_EQ(Run().outcome, Outcome::Cancelled);
    EXPECT_TRUE(server.Requests().empty());
}

TEST_F(ProductionRun, ReleaseOfTheBackup_IsFetchedFromThere) {
    PublishOnBackup();
    Run();
    ExpectNewTree();
    EXPECT_EQ(progresses[0].first.phase, Phase::switchingSource);
    for (const auto& [progress, reported] : progresses)
        EXPECT_TRUE(progress.backup) << static_cast<unsigned>(progress.phase);
}

TEST_F(ProductionRun, BackupThatPointsElsewhere_IsRefusedBeforeItIsRemembered) {
    Publish(kBackupManifest, kPrimary);
    EXPECT_EQ(Run().error, L"backup-metadata-not-independent");
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_EQ(reports.back().stage, Stage::Failed);
    EXPECT_EQ(result.version, L"");
    settings.updateManifestUrl = product::kBackupManifestUrl;
    EXPECT_EQ(Run().error, L"backup-metadata-not-independent") << "also where the user asks the backup first";
    EXPECT_FALSE(StateWritten());
    EXPECT_EQ(FileLength(Control() + L"\\release-watermark.txt"), -1);
    ExpectOldTree();
}

TEST_F(ProductionRun, EveryReportOfADownload_CountsForTheWholeRun) {
    Publish();
    Run();
    ExpectNewTree();
    const std::uint64_t first = payloads[0].size();
    const std::uint64_t total = first + payloads[1].size();
    std::uint64_t before = 0;
    std::size_t handedOn = 0;
    for (const auto& [progress, reported] : progresses) {
        SCOPED_TRACE(static_cast<unsigned>(progress.phase));
        if (progress.total == payloads[1].size()) before = first;
        EXPECT_FALSE(progress.backup);
        EXPECT_EQ(progress.aggregateBytes, before + progress.bytes);
        EXPECT_EQ(progress.aggregateTotal, total);
        const StageReport& next = reports.at(reported);
        EXPECT_EQ(next,
                  (StageReport{Stage::DownloadingBytes, paths[before == 0 ? 0 : 1], before + progress.bytes, total}));
        ++handedOn;
    }
    const std::vector<Stage> course = Course();
    EXPECT_EQ(std::count(course.begin(), course.end(), Stage::DownloadingBytes), static_cast<std::ptrdiff_t>(handedOn));
    EXPECT_GE(handedOn, 6u);
}

TEST_F(ProductionRun, FailedDownload_TellsTheEnginesReason) {
    Publish();
    Serve(kThemePayload, Status("404 Not Found"));
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_EQ(result.error, std::wstring(kDownloadIncomplete) + L" (http-error)") << platform::EncodeUtf8(result.error);
    ASSERT_FALSE(progresses.empty());
    EXPECT_EQ(progresses.back().first.phase, Phase::failed);
    EXPECT_EQ(reports.at(progresses.back().second), (StageReport{Stage::Failed, result.error, 0, 0}))
        << "a final report is no progress of bytes";
    EXPECT_FALSE(StateWritten());
    ExpectOldTree();
}

TEST_F(ProductionRun, CancelDuringTheLastDownload_KeepsWhatTheCacheHolds) {
    Publish();
    const Script good = scripts[kThemePayload];
    Serve(kThemePayload, [this](Exchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 11\r\n\r\na new");
        exchange.AwaitUntil([this] { return Cached(1) == 5; });
        cancel = true;
        exchange.Pause(200);  // the client is in its wait by now, and ends it by itself or by the close below
    });
    EXPECT_EQ(Run().outcome, Outcome::Cancelled);
    EXPECT_EQ(result.error, L"");
    EXPECT_EQ(reports.back(), (StageReport{Stage::Cancelled, L"1.1.0.0", 0, 0}));
    EXPECT_EQ(progresses.back().first.phase, Phase::cancelled);
    EXPECT_EQ(reports.at(progresses.back().second).stage, Stage::Cancelled) << "a final report is no progress of bytes";
    EXPECT_TRUE(StateWritten());
    EXPECT_EQ(Cached(0), static_cast<long long>(payloads[0].size()));
    EXPECT_EQ(Cached(1), 5);
    ExpectOldTree();

    cancel = false;
    const std::size_t before = server.Requests().size();
    Serve(kThemePayload, good);
    Run(true);
    ExpectNewTree();
    const std::vector<std::string> requested = RequestedPaths();
    EXPECT_EQ(std::vector<std::string>(requested.begin() + static_cast<std::ptrdiff_t>(before), requested.end()),
              (std::vector<std::string>{kPrimaryManifest, kThemePayload}));
}

TEST_F(ProductionRun, CancelBetweenPayloads_BeginsNoOther) {
    Publish();
    const StageReport stops[] = {{Stage::UpdateAvailable, L"1.1.0.0", 0, 0}, {Stage::Downloading, paths[0], 1, 2}};
    for (const StageReport& stop : stops) {
        cancel = false;
        onStageHook = [&](const StageReport& report) { cancel = cancel || report == stop; };
        EXPECT_EQ(Run(true).outcome, Outcome::Cancelled);
        ASSERT_GE(reports.size(), 2u);
        EXPECT_EQ(reports[reports.size() - 2], stop);
        EXPECT_EQ(reports.back().stage, Stage::Cancelled);
        ExpectOldTree();
    }
}

TEST_F(ProductionRun, WishForAnotherConnection_ReachesTheEngine) {
    Publish();
    std::atomic<bool> told{false};
    settings.shouldReconnect = [&] { return Cached(1) == 5 && !told.exchange(true); };
    std::atomic<int> asked{0};
    Serve(kThemePayload, [&](Exchange& exchange) {
        if (++asked > 1) {
            exchange.Send(Whole(payloads[1]));
            return;
        }
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 11\r\n\r\na new");
        exchange.AwaitUntil([&told] { return told.load(); });
    });
    Run();
    EXPECT_TRUE(told);
}

TEST_F(ProductionRun, FileThatStandsInStagingAlready_IsNotOverwritten) {
    Publish();
    onStageHook = [this](const StageReport& report) {
        if (report.stage != Stage::Downloading || report.completed != 1) return;
        const std::wstring staging = FolderThatBegins(L"staging-1.1.0.0-");
        ASSERT_TRUE(EnsureDirectory(staging + L"\\Velmora Pine Relay\\Themes"));
        WriteWholeFile(staging + L"\\" + kTheme, payloads[1]);
    };
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_EQ(result.error, L"Could not copy verified data into update staging.");
    ExpectOldTree();
}

/// The engine names its files by the digest and takes lower case alone.
TEST_F(ProductionRun, DigestsInUpperCase_AreLoweredForTheEngine) {
    upperCaseDigests = true;
    Publish();
    Run();
    ExpectNewTree();
    EXPECT_EQ(Cached(0), static_cast<long long>(payloads[0].size())) << "the cache keeps its copy";
    EXPECT_EQ(Cached(1), static_cast<long long>(payloads[1].size()));
}

TEST_F(ProductionRun, TreeThatIsCurrent_ReportsTheCheckAndNothingElse) {
    Publish();
    Run();
    settings.productVersion = L"1.1.0.0";
    ASSERT_TRUE(DeleteFileW(StatePath().c_str()));
    const OnTickCount still([] { return 1000ull; });  // no report comes in between
    EXPECT_EQ(Run().outcome, Outcome::UpToDate);
    const std::uint64_t total = payloads[0].size() + payloads[1].size();
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Checking, L"", 0, 0},
                                                 {Stage::VerifyingFiles, L"", 0, total},
                                                 {Stage::VerifyingFiles, L"", total, total},
                                                 {Stage::UpToDate, L"1.1.0.0", 0, 0}}));
    EXPECT_TRUE(StateWritten());
    EXPECT_EQ(result.version, L"1.1.0.0");
}

TEST_F(ProductionRun, LauncherThatIsTooOld_IsOfferedNothing) {
    const OnTickCount still([] { return 1000ull; });  // no report comes in between
    Publish();
    settings.launcherVersion = L"0.9.0.0";
    EXPECT_EQ(Run().outcome, Outcome::LauncherTooOld);
    const std::uint64_t total = payloads[0].size() + payloads[1].size();
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Checking, L"", 0, 0},
                                                 {Stage::VerifyingFiles, L"", 0, total},
                                                 {Stage::VerifyingFiles, L"", total, total},
                                                 {Stage::Failed, result.error, 0, 0}}));
    EXPECT_TRUE(prompts.empty());
    EXPECT_FALSE(StateWritten());
    settings.launcherVersion = L"soon";
    EXPECT_EQ(Run().outcome, Outcome::LauncherTooOld);
    ExpectOldTree();
}

TEST_F(ProductionRun, OlderRelease_IsAConclusionBeforeAnythingElseIsAsked) {
    Publish();
    settings.productVersion = L"1.2.0.0";
    settings.applicationDirectory.clear();
    EXPECT_EQ(Run().outcome, Outcome::UpToDate);
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Checking, L"", 0, 0}, {Stage::UpToDate, L"1.1.0.0", 0, 0}}));
    EXPECT_TRUE(StateWritten());
}

TEST_F(ProductionRun, ReleaseWithoutAnIdentity_IsRefused) {
    Publish();
    const StandIn<"BCryptOpenAlgorithmProvider", decltype(BCryptOpenAlgorithmProvider)> open(
        [](auto...) -> NTSTATUS { return -1; });
    EXPECT_EQ(Run().error, L"release-identity-unavailable");
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_EQ(reports.back(), (StageReport{Stage::Failed, result.error, 0, 0}));
    EXPECT_EQ(FileLength(Control() + L"\\release-watermark.txt"), -1);
    ExpectOldTree();
}

TEST_F(ProductionRun, FolderThatCannotBeSettled_IsToldEvenWithoutALocation) {
    settings.updateManifestUrl.clear();
    WriteWholeFile(Control(), "a file in its place");
    EXPECT_EQ(Run().outcome, Outcome::Failed);
    EXPECT_FALSE(result.safeToLaunch);
    EXPECT_EQ(reports, (std::vector<StageReport>{{Stage::Failed, L"更新交易位置不是安全的一般資料夾。", 0, 0}}));
}

TEST_F(ProductionRun, Lock_IsHeldFromTheDownloadToTheEndAndNotBefore) {
    Publish();
    bool heldAtTheOffer = true;
    settings.promptForUpdate = [&](const std::wstring&, const ReleaseNotes&) {
        heldAtTheOffer = !TransactionLock(Control()).Held();
        return true;
    };
    std::size_t applying = 0;
    onStageHook = [&](const StageReport& report) {
        if (report.stage < Stage::Downloading || report.stage > Stage::Completed) return;
        ++applying;
        EXPECT_FALSE(TransactionLock(Control()).Held()) << static_cast<unsigned>(report.stage);
    };
    Run();
    ExpectNewTree();
    EXPECT_FALSE(heldAtTheOffer) << "another launcher must be able to start while the user thinks";
    EXPECT_GE(applying, 8u);
    EXPECT_TRUE(TransactionLock(Control()).Held());
}

TEST_F(ProductionRun, WorkFolders_AreNamedByVersionAndRunAndGoBeforeTheLock) {
    Publish();
    std::wstring staging;
    std::wstring backup;
    onStageHook = [&](const StageReport& report) {
        if (report.stage != Stage::Installing) return;
        staging = FolderThatBegins(L"staging-1.1.0.0-" + std::to_wstring(GetCurrentProcessId()) + L"-");
        backup = FolderThatBegins(L"backup-1.0.0.0-" + std::to_wstring(GetCurrentProcessId()) + L"-");
        EXPECT_EQ(ReadWholeFile(backup + L"\\" + kExecutable), "old");
    };
    const test_support::MutationFaults calls;
    Run();
    ExpectNewTree();
    ASSERT_NE(staging, L"");
    ASSERT_NE(backup, L"");
    EXPECT_EQ(staging.substr(staging.rfind(L'-')), backup.substr(backup.rfind(L'-'))) << "one run, one suffix";
    EXPECT_EQ(FolderThatBegins(L"staging-"), L"");
    EXPECT_EQ(FolderThatBegins(L"backup-"), L"");
    const std::vector<test_support::RecordedCall> recorded = calls.Calls();
    ASSERT_FALSE(recorded.empty());
    EXPECT_EQ(recorded.back().function, "DeleteFileW");
    EXPECT_TRUE(recorded.back().path.ends_with(L"\\transaction.lock"));
}

TEST_F(ProductionRun, PayloadFromAPlainServer_IsRefused) {
    PayloadContext context{settings, false, Control() + L"\\downloads-v1", 0, 0, {}, {}};
    std::wstring error = L"left from before";
    EXPECT_FALSE(FetchPayload(server.Url(L"/x"), 5, std::wstring(64, L'a'), root / L"x", context, error));
    EXPECT_TRUE(error.starts_with(std::wstring(kDownloadIncomplete) + L" (")) << platform::EncodeUtf8(error);
    EXPECT_TRUE(server.Requests().empty());
}

TEST_F(ProductionRun, PayloadThatIsCancelled_HasNoMessage) {
    PayloadContext context{settings, false, Control() + L"\\downloads-v1", 0, 0, {}, {}};
    cancel = true;
    std::wstring error = L"left from before";
    EXPECT_FALSE(FetchPayload(kPrimary + L"x", 5, std::wstring(64, L'a'), root / L"x", context, error));
    EXPECT_EQ(error, L"");
    EXPECT_TRUE(server.Requests().empty());
}

}  // namespace
}  // namespace launcher_update
