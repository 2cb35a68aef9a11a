#include "product/text_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "product/locations.h"

namespace product {
namespace {

constexpr std::array kLanguages = {Language::english, Language::traditionalChinese, Language::simplifiedChinese,
                                   Language::japanese, Language::korean};
constexpr std::array kTranslations = {Language::traditionalChinese, Language::simplifiedChinese, Language::japanese,
                                      Language::korean};

// The English column, written down a second time with the number of each text.
struct EnglishText {
    unsigned number;
    TextId id;
    const wchar_t* text;
};
constexpr EnglishText kEnglish[] = {
    {0, TextId::CurrentVersionPrefix, L"Current version "},
    {1, TextId::UnknownVersion, L"Unknown"},
    {2, TextId::PreparingCheck, L"Preparing to check for updates…"},
    {3, TextId::UpdateNow, L"Update now"},
    {4, TextId::Later, L"Later"},
    {5, TextId::VersionAvailablePrefix, L"Version "},
    {6, TextId::AvailableInstallSuffix, L" is available. Download and install it now?"},
    {7, TextId::CheckingForUpdates, L"Checking for updates…"},
    {8, TextId::RecentlyChecked, L"Updates were checked recently. Starting…"},
    {9, TextId::UpToDate, L"You are up to date"},
    {10, TextId::OnlineVersionPrefix, L" (online version "},
    {11, TextId::OnlineVersionSuffix, L")"},
    {12, TextId::VersionWaitingPrefix, L"Version "},
    {13, TextId::AvailableWaitingSuffix, L" is available. Waiting for your choice…"},
    {14, TextId::SkippedVersionPrefix, L"Skipped version "},
    {15, TextId::SkippedVersionSuffix, L". Starting the installed version…"},
    {16, TextId::UpdatingRequiredResources, L"Updating required resources"},
    {17, TextId::Repairing, L"Repairing missing or damaged files…"},
    {18, TextId::Downloading, L"Downloading update"},
    {19, TextId::DownloadedPrefix, L" (downloaded "},
    {20, TextId::DownloadedSuffix, L" MB)"},
    {21, TextId::InstallingPrefix, L"Download complete. Installing version "},
    {22, TextId::InstallingSuffix, L"…"},
    {23, TextId::CompletedPrefix, L"Update complete: version "},
    {24, TextId::CheckFailedStarting, L"Update check failed. Starting the installed version."},
    {25, TextId::AlreadyLatest, L"You already have the latest version."},
    {26, TextId::CheckFailedPrefix, L"Update check failed:\n"},
    {27, TextId::LauncherTooOld, L"This update requires a newer launcher. Please download the latest full package."},
    {28, TextId::StartFailedPrefix, L"Failed to start the app (error code "},
    {29, TextId::StartFailedSuffix, L"):\n"},
    {30, TextId::WhatsNew, L"What's new"},
    {31, TextId::NotesUnavailable, L"Release notes are not available for this version."},
    {32, TextId::ViewFullNotes, L"View full release notes"},
    {33, TextId::NewVersionAvailable, L"A new version is available"},
    {34, TextId::HotfixAvailable, L"Hotfix available"},
    {35, TextId::RecommendedAvailable, L"Recommended update available"},
    {36, TextId::ScrollForMore, L"Scroll for more"},
    {37, TextId::SafetyNoteVerified,
     L"Update files are SHA-256 verified; the installed version is kept if the update fails."},
    {38, TextId::SafetyNoteSwitching, L"Downloaded files are verified before versions are switched safely."},
    {39, TextId::Cancel, L"Cancel"},
    {40, TextId::SkipUpdateAndOpen, L"Skip update and open app"},
    {41, TextId::CancellingSafely, L"Cancelling safely…"},
    {42, TextId::VerifyingDownload, L"Verifying downloaded files"},
    {43, TextId::CancelledStarting, L"Update cancelled. Starting the installed version…"},
    {44, TextId::CheckingFiles, L"Checking installed files"},
    {45, TextId::VerifyingFiles, L"Verifying file contents"},
    {46, TextId::Reconnect, L"Reconnect"},
    {47, TextId::ConnectingToServer, L"Connecting to download server…"},
    {48, TextId::Reconnecting, L"Reconnecting; retained data will be verified."},
    {49, TextId::SlowConnection, L"Slow connection. Keep waiting or reconnect."},
    {50, TextId::SpeedPrefix, L"Speed: "},
    {51, TextId::RemainingPrefix, L" · about "},
    {52, TextId::ReusingVerifiedData, L"Reusing verified downloaded data."},
    {53, TextId::DownloadIncomplete,
     L"Download could not finish. You can retry later; eligible partial data is retained and the installed version is "
     L"unchanged."},
    {54, TextId::StagingCopyFailed, L"Could not copy verified data into update staging."},
    {55, TextId::DidNotFinishChecking, L"Update did not finish. Checking the installed version…"},
    {56, TextId::DidNotFinishStarting, L"Update did not finish. Starting the installed version…"},
    {57, TextId::RecoveryNeedsAttention, L"Update recovery needs attention. Launch stopped."},
    {58, TextId::WaitingForData, L"Waiting for download data…"},
    {59, TextId::Close, L"Close"},
    {60, TextId::StatusDetails, L"Status details"},
    {61, TextId::LaunchStopped, L"Launch is stopped. Close this window and resolve the issue before trying again."},
    {62, TextId::AutoStartNote, L"The installed version will start automatically. You can retry the update later."},
    {63, TextId::SwitchingToBackup, L"Switching to Cloudflare R2 backup…"},
    {64, TextId::SlowSwitchingToBackup, L"GitHub remains slow. Switching to Cloudflare R2…"},
    {65, TextId::SourceBackup, L"Source: Cloudflare R2 backup"},
    {66, TextId::BackupMetadataOlder,
     L"Backup update information is older than the version already checked. Please retry later."},
    {67, TextId::ComparingSources, L"Comparing download sources…"},
};
static_assert(std::size(kEnglish) == kTextCount);

// The wording that is fixed in the other languages too, written down a second time.
struct FixedRow {
    TextId id;
    std::array<const wchar_t*, kTranslations.size()> texts;
};
constexpr FixedRow kFixedRows[] = {
    {TextId::VersionAvailablePrefix, {L"發現新版本 ", L"发现新版本 ", L"新しいバージョン ", L"새 버전 "}},
    {TextId::AvailableInstallSuffix,
     {L"，現在下載並安裝嗎？", L"，现在下载并安装吗？", L" が見つかりました。ダウンロードしてインストールしますか？",
      L"을(를) 찾았습니다. 지금 다운로드하여 설치할까요?"}},
    {TextId::SkippedVersionPrefix, {L"已略過版本 ", L"已跳过版本 ", L"バージョン ", L"버전 "}},
    {TextId::SkippedVersionSuffix,
     {L"，正在啟動目前版本…", L"，正在启动当前版本…", L" をスキップし、現在のバージョンを起動しています…",
      L"을(를) 건너뛰고 현재 버전을 시작하는 중…"}},
    {TextId::DownloadedPrefix, {L"（下載 ", L"（下载 ", L"（ダウンロード ", L" (다운로드 "}},
    {TextId::DownloadedSuffix, {L" MB）", L" MB）", L" MB）", L" MB)"}},
    {TextId::InstallingPrefix,
     {L"下載完成，正在安裝版本 ", L"下载完成，正在安装版本 ", L"ダウンロード完了。バージョン ",
      L"다운로드 완료. 버전 "}},
    {TextId::InstallingSuffix, {L"…", L"…", L" をインストールしています…", L" 설치 중…"}},
    {TextId::CheckFailedPrefix,
     {L"檢查更新失敗：\n", L"检查更新失败：\n", L"更新確認に失敗しました：\n", L"업데이트 확인 실패:\n"}},
    {TextId::StartFailedPrefix,
     {L"啟動主程式失敗（錯誤碼 ", L"启动主程序失败（错误码 ", L"アプリを起動できませんでした（エラーコード ",
      L"앱을 시작하지 못했습니다 (오류 코드 "}},
    {TextId::StartFailedSuffix, {L"）：\n", L"）：\n", L"）：\n", L"):\n"}},
    {TextId::Reconnecting,
     {L"正在重連，保留的資料仍會重新驗證。", L"正在重连，保留的数据仍会重新验证。",
      L"再接続中。保持したデータも検証します。", L"다시 연결 중입니다. 보관된 데이터도 검증합니다."}},
    {TextId::SlowConnection,
     {L"目前線路較慢，可以等待或重新連線。", L"当前线路较慢，可以等待或重新连接。",
      L"接続が低速です。待機するか再接続できます。", L"연결이 느립니다. 기다리거나 다시 연결하세요."}},
    {TextId::DownloadIncomplete,
     {L"下載未完成。可以稍後重試；可續傳的資料已保留，目前安裝版本不變。",
      L"下载未完成。可以稍后重试；可续传的数据已保留，当前安装版本不变。",
      L"ダウンロード未完了です。後で再試行できます。再開可能なデータを保持し、現在のバージョンは変更しません。",
      L"다운로드를 완료하지 못했습니다. 나중에 다시 시도하세요. 재개 가능한 데이터를 보관하며 설치된 버전은 변경하지 "
      L"않습니다."}},
    {TextId::SwitchingToBackup,
     {L"正在切換至 Cloudflare R2 備援…", L"正在切换至 Cloudflare R2 备用…", L"Cloudflare R2 の予備サーバーへ切替中…",
      L"Cloudflare R2 예비 서버로 전환 중…"}},
    {TextId::SlowSwitchingToBackup,
     {L"GitHub 持續下載過慢，正在切換至 Cloudflare R2…", L"GitHub 持续下载过慢，正在切换至 Cloudflare R2…",
      L"GitHub が低速のため Cloudflare R2 へ切替中…", L"GitHub 다운로드가 계속 느려 Cloudflare R2로 전환 중…"}},
    {TextId::SourceBackup,
     {L"來源：Cloudflare R2 備援", L"来源：Cloudflare R2 备用", L"配信元：Cloudflare R2 予備サーバー",
      L"다운로드 서버: Cloudflare R2 예비 서버"}},
    {TextId::BackupMetadataOlder,
     {L"備援更新資訊比已確認的版本舊，請稍後重試。", L"备用更新信息比已确认的版本旧，请稍后重试。",
      L"予備サーバーの更新情報が確認済みの版より古いため、後で再試行してください。",
      L"예비 서버의 업데이트 정보가 확인된 버전보다 오래되었습니다. 나중에 다시 시도하세요."}},
    {TextId::ComparingSources,
     {L"正在比較下載來源速度…", L"正在比较下载来源速度…", L"ダウンロード元の速度を比較中…",
      L"다운로드 서버 속도 비교 중…"}},
};

// The texts that stand around values; a value follows the last piece where the frame is open at its end.
const std::vector<std::vector<TextId>> kFrames = {
    {TextId::CurrentVersionPrefix},
    {TextId::VersionAvailablePrefix, TextId::AvailableInstallSuffix},
    {TextId::VersionWaitingPrefix, TextId::AvailableWaitingSuffix},
    {TextId::OnlineVersionPrefix, TextId::OnlineVersionSuffix},
    {TextId::SkippedVersionPrefix, TextId::SkippedVersionSuffix},
    {TextId::DownloadedPrefix, TextId::DownloadedSuffix},
    {TextId::InstallingPrefix, TextId::InstallingSuffix},
    {TextId::CompletedPrefix},
    {TextId::CheckFailedPrefix},
    {TextId::StartFailedPrefix, TextId::StartFailedSuffix},
    {TextId::SpeedPrefix},
    {TextId::RemainingPrefix},
};

// Texts with a space at one end, and the languages in which they have it.
struct SpaceAtTheEnd {
    TextId id;
    std::wstring_view languages;
};
constexpr std::wstring_view kEveryLanguage = L"en zh-TW zh-CN ja ko";
constexpr SpaceAtTheEnd kSpaceBefore[] = {
    {TextId::AvailableInstallSuffix, L"en ja"}, {TextId::OnlineVersionPrefix, L"en ko"},
    {TextId::AvailableWaitingSuffix, L"en ja"}, {TextId::SkippedVersionSuffix, L"ja"},
    {TextId::DownloadedPrefix, L"en ko"},       {TextId::DownloadedSuffix, kEveryLanguage},
    {TextId::InstallingSuffix, L"ja ko"},       {TextId::RemainingPrefix, kEveryLanguage},
};
constexpr SpaceAtTheEnd kSpaceBehind[] = {
    {TextId::CurrentVersionPrefix, kEveryLanguage}, {TextId::VersionAvailablePrefix, kEveryLanguage},
    {TextId::OnlineVersionPrefix, kEveryLanguage},  {TextId::VersionWaitingPrefix, kEveryLanguage},
    {TextId::SkippedVersionPrefix, kEveryLanguage}, {TextId::DownloadedPrefix, kEveryLanguage},
    {TextId::InstallingPrefix, kEveryLanguage},     {TextId::CompletedPrefix, kEveryLanguage},
    {TextId::StartFailedPrefix, kEveryLanguage},    {TextId::SpeedPrefix, L"en ko"},
    {TextId::RemainingPrefix, kEveryLanguage},
};

// Words that stay in Latin letters everywhere.
constexpr std::wstring_view kNames[] = {L"Cloudflare R2", L"GitHub", L"SHA-256", L"MB"};

// A term of the English column, found by a part that its forms share, and its one word in each language. An empty word
// asks for nothing; `except` names the texts that say it otherwise.
struct Term {
    std::wstring_view english;
    std::array<std::wstring_view, kTranslations.size()> words;
    std::set<TextId> except = {};
};
const std::vector<Term> kTerms = {
    {L"pdate", {L"更新", L"更新", L"更新", L"업데이트"}},
    {L"ersion", {L"版本", L"版本", L"バージョン", L"버전"}, {TextId::BackupMetadataOlder}},
    {L"the installed version", {L"目前", L"当前", L"現在のバージョン", L"버전"}},
    {L"ownload", {L"下載", L"下载", L"ダウンロード", L"다운로드"}},
    {L"erif", {L"驗證", L"验证", L"検証", L"검증"}},
    {L"hecking", {L"檢查", L"检查", L"確認", L"확인"}},
    {L"check for", {L"檢查", L"检查", L"確認", L"확인"}},
    {L"checked recently", {L"檢查", L"检查", L"確認", L"확인"}},
    {L"check failed", {L"檢查更新失敗", L"检查更新失败", L"更新確認に失敗しました", L"업데이트 확인"}},
    {L"Starting", {L"正在啟動", L"正在启动", L"起動", L"시작하는 중"}, {TextId::CheckFailedStarting}},
    {L"Launch", {L"停止啟動", L"停止启动", L"起動を停止しました", L"시작을 중지했습니다"}},
    {L"installed files", {L"已安裝", L"已安装", L"インストール済み", L"설치된"}},
    {L"Installing", {L"安裝", L"安装", L"", L""}},
    {L"did not finish", {L"未完成", L"未完成", L"未完了です", L"완료하지 못했습니다"}},
    {L"ancel", {L"取消", L"取消", L"キャンセル", L"취소"}},
    {L"Close", {L"關閉", L"关闭", L"閉じ", L"닫"}},
    {L"Skip", {L"略過", L"跳过", L"", L""}},
    {L"elease notes", {L"更新說明", L"更新说明", L"更新内容", L"업데이트 내용"}},
    {L"retry", {L"重試", L"重试", L"再試行", L"다시 시도"}},
    {L"ater", {L"稍後", L"稍后", L"後で", L"나중에"}},
    {L"econnect", {L"重", L"重", L"再接続", L"다시 연결"}},
    {L"Waiting", {L"等待", L"等待", L"待機中", L""}},
    {L"files", {L"檔案", L"文件", L"ファイル", L"파일"}},
    {L" data", {L"資料", L"数据", L"データ", L"데이터"}},
    {L"Unknown", {L"未知", L"未知", L"不明", L"알 수 없음"}},
    {L"Preparing", {L"準備", L"准备", L"準備", L"준비"}},
    {L"Repairing", {L"修復", L"修复", L"修復", L"복구"}},
    {L"Connecting", {L"連線", L"连接", L"接続", L"연결"}},
    {L"safely", {L"安全", L"安全", L"安全", L"안전"}},
    {L"contents", {L"內容", L"内容", L"内容", L"내용"}},
    {L"full release notes", {L"完整", L"完整", L"全文", L"전체"}},
    {L"Status", {L"狀態", L"状态", L"状態", L"상태"}},
    {L"Scroll", {L"捲動", L"滚动", L"スクロール", L"스크롤"}},
    {L"resources", {L"資源", L"资源", L"リソース", L"리소스"}},
    {L"server", {L"伺服器", L"服务器", L"サーバー", L"서버"}},
    {L"Hotfix", {L"修補程式", L"修补程序", L"修正プログラム", L"핫픽스"}},
    {L"Recommended", {L"建議", L"推荐", L"推奨", L"권장"}},
    {L"vailable",
     {L"新版本", L"新版本", L"", L""},
     {TextId::NotesUnavailable, TextId::AvailableInstallSuffix, TextId::AvailableWaitingSuffix, TextId::HotfixAvailable,
      TextId::RecommendedAvailable}},
};

// Characters of the table that belong to one way of writing, and older or simplified forms that Japanese has not.
constexpr std::wstring_view kOnlyTraditional =
    L"並來備傳內動區問啟嗎壞將復態捲換損擇敗時暫會檔檢沒準無狀現發確碼約細經線續舊處補裝製複視訊試詳認誤說請證議"
    L"變資較載連過選遺錯閉關題餘驗";
constexpr std::wstring_view kOnlySimplified =
    L"会传关内务动区发变吗启处备将当态择损换数无旧时暂来检没滚状现码约线细经续补装认证试详误说请败资载较过连选错"
    L"闭问题验";
constexpr std::wstring_view kNotJapanese =
    L"內發檢驗續處擇狀舊殘濟證變對獎啟戶关动发变吗启处备态择损换无时检现码约线细经续补装认证试详误说请败资载较过"
    L"连选错闭问题验";

std::wstring Text(Language language, TextId id) {
    return TextIn(language, id);
}

std::wstring English(TextId id) {
    return TextIn(Language::english, id);
}

TextId IdOf(unsigned number) {
    return static_cast<TextId>(number);
}

std::vector<TextId> AllIds() {
    std::vector<TextId> ids;
    for (unsigned number = 0; number < kTextCount; ++number)
        ids.push_back(IdOf(number));
    return ids;
}

std::string Where(Language language, TextId id) {
    return platform::EncodeUtf8(LanguageTag(language)) + ", text " + std::to_string(static_cast<unsigned>(id));
}

bool IsBetween(wchar_t unit, wchar_t first, wchar_t last) {
    return unit >= first && unit <= last;
}
bool IsAscii(wchar_t unit) {
    return IsBetween(unit, L'\0', L'\x7F');
}
bool IsKana(wchar_t unit) {
    return IsBetween(unit, L'\x3041', L'\x30FF');
}
bool IsIdeograph(wchar_t unit) {
    return IsBetween(unit, L'\x3400', L'\x9FFF');
}
bool IsHangul(wchar_t unit) {
    return IsBetween(unit, L'\x1100', L'\x11FF') || IsBetween(unit, L'\xAC00', L'\xD7A3');
}
bool IsFullWidthPunctuation(wchar_t unit) {
    return IsBetween(unit, L'\x3000', L'\x303F') || IsBetween(unit, L'\xFF01', L'\xFF60');
}
bool IsFullWidth(Language language) {
    return language != Language::english && language != Language::korean;
}

std::size_t Count(std::wstring_view text, std::wstring_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

std::wstring WithoutNames(std::wstring text) {
    for (const std::wstring_view name : kNames) {
        for (std::size_t at = text.find(name); at != text.npos; at = text.find(name))
            text.erase(at, name.size());
    }
    return text;
}

bool HoldsAny(std::wstring_view text, bool (*is)(wchar_t)) {
    return std::any_of(text.begin(), text.end(), is);
}

// A frame with a value in each gap, or a text that stands alone.
struct Sentence {
    TextId first;
    std::wstring text;
};

std::vector<Sentence> Sentences(Language language) {
    std::vector<Sentence> sentences;
    std::set<TextId> in_frames;
    for (const std::vector<TextId>& frame : kFrames) {
        std::wstring text;
        for (const TextId id : frame) {
            text += (id == frame.front() ? L"" : L"7") + Text(language, id);
            in_frames.insert(id);
        }
        sentences.push_back({frame.front(), text});
    }
    for (const TextId id : AllIds()) {
        if (!in_frames.contains(id)) sentences.push_back({id, Text(language, id)});
    }
    return sentences;
}

// The punctuation and spaces at the end of a sentence, in their half-width form. A full-width colon brings its own
// space.
std::wstring Ending(std::wstring_view text) {
    std::wstring plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool ends_line = at + 1 < text.size() && text[at + 1] == L'\n';
        switch (text[at]) {
            case L'：':
                plain += ends_line ? L":" : L": ";
                break;
            case L'。':
                plain += L'.';
                break;
            case L'，':
                plain += L',';
                break;
            case L'？':
                plain += L'?';
                break;
            case L'！':
                plain += L'!';
                break;
            case L'（':
                plain += L'(';
                break;
            case L'）':
                plain += L')';
                break;
            default:
                plain += text[at];
        }
    }
    const std::size_t last_of_words = plain.find_last_not_of(L" \n…:.,;?!()·、");
    return last_of_words == plain.npos ? plain : plain.substr(last_of_words + 1);
}

// Texts and values as a caller joins them.
struct Piece {
    Piece(TextId text) : id(text) {}
    Piece(const wchar_t* text) : value(text) {}
    TextId id = static_cast<TextId>(kTextCount);  // gives an empty text
    std::wstring value;
};

std::wstring Joined(Language language, const std::vector<Piece>& pieces) {
    std::wstring text;
    for (const Piece& piece : pieces)
        text += Text(language, piece.id) + piece.value;
    return text;
}

void ExpectInEachLanguage(const std::vector<Piece>& pieces,
                          const std::array<const wchar_t*, kLanguageCount>& sentences) {
    for (std::size_t at = 0; at < kLanguages.size(); ++at)
        EXPECT_EQ(Joined(kLanguages[at], pieces), sentences[at]);
}

TEST(Language, LocaleNames_AreClassifiedByPrefix) {
    for (const wchar_t* name : {L"zh-TW", L"ZH-tw", L"zh-HK", L"Zh-hK", L"zh-MO", L"ZH-MO", L"zh-mo-x", L"zh-TWN"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::traditionalChinese) << name;
    }
    for (const wchar_t* name : {L"zh", L"ZH", L"zh-CN", L"zh-cn", L"zh-SG", L"ZH-SG", L"zh-Hans", L"zh-Hans-CN"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::simplifiedChinese) << name;
    }
    for (const wchar_t* name : {L"ja", L"JA", L"ja-JP", L"jA-us"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::japanese) << name;
    }
    for (const wchar_t* name : {L"ko", L"KO", L"ko-KR", L"Ko-kp"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::korean) << name;
    }
    for (const wchar_t* name :
         {L"en-US", L"EN", L"fr-FR", L"de", L"", L"z", L"j", L"k", L"-", L"en-TW", L"x-zh-TW", L"x-ja", L"x-ko"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::english) << name;
    }
}

TEST(Language, ScriptSubtags_AreNotRead) {
    for (const wchar_t* name : {L"zh-Hant", L"zh-Hant-TW", L"zh-Hant-HK", L"zh-CHT", L"zh_TW", L"zh-T"}) {
        EXPECT_EQ(ClassifyLocaleName(name), Language::simplifiedChinese) << name;
    }
}

TEST(Language, NamesThatMerelyBeginAlike_AreTakenForThatLanguage) {
    EXPECT_EQ(ClassifyLocaleName(L"jav-ID"), Language::japanese);
    EXPECT_EQ(ClassifyLocaleName(L"kok-IN"), Language::korean);
    EXPECT_EQ(ClassifyLocaleName(L"zha-CN"), Language::simplifiedChinese);
}

TEST(Language, TagsMatchTheFiveLanguages) {
    EXPECT_STREQ(LanguageTag(Language::english), L"en");
    EXPECT_STREQ(LanguageTag(Language::traditionalChinese), L"zh-TW");
    EXPECT_STREQ(LanguageTag(Language::simplifiedChinese), L"zh-CN");
    EXPECT_STREQ(LanguageTag(Language::japanese), L"ja");
    EXPECT_STREQ(LanguageTag(Language::korean), L"ko");
}

TEST(Language, EveryTag_NamesItsLanguageInAnyCase) {
    constexpr std::pair<const wchar_t*, Language> kTags[] = {
        {L"en", Language::english},
        {L"EN", Language::english},
        {L"eN", Language::english},
        {L"zh-TW", Language::traditionalChinese},
        {L"ZH-tw", Language::traditionalChinese},
        {L"zh-CN", Language::simplifiedChinese},
        {L"zh-cn", Language::simplifiedChinese},
        {L"ja", Language::japanese},
        {L"Ja", Language::japanese},
        {L"ko", Language::korean},
        {L"KO", Language::korean},
    };
    for (const auto& [tag, language] : kTags)
        EXPECT_EQ(LanguageOfTag(tag), language) << platform::EncodeUtf8(tag);
}

TEST(Language, AnythingButATag_NamesNone) {
    for (const wchar_t* text : {L"", L"e", L"eng", L"en-US", L"en ", L" en", L"zh", L"zh-", L"zh-HK", L"zh_TW",
                                L"zh-TW-x", L"ja-JP", L"jp", L"kor", L"\x212Ao", L"\xFF45\xFF4E", L"english"})
        EXPECT_EQ(LanguageOfTag(text), std::nullopt) << platform::EncodeUtf8(text);
}

TEST(TextTable, UnknownId_GivesAnEmptyText) {
    for (const Language language : kLanguages) {
        for (const unsigned number : {68u, 69u, 4000000000u, 0xFFFFFFFFu}) {
            EXPECT_STREQ(TextIn(language, IdOf(number)), L"") << number;
        }
    }
}

TEST(TextTable, English_IsToTheLetter) {
    unsigned number = 0;
    for (const EnglishText& row : kEnglish) {
        EXPECT_EQ(row.number, number++);
        EXPECT_EQ(static_cast<unsigned>(row.id), row.number);
        EXPECT_STREQ(TextIn(Language::english, row.id), row.text) << row.number;
    }
}

TEST(TextTable, FixedWording_IsToTheLetterInEachLanguage) {
    for (const FixedRow& row : kFixedRows) {
        for (std::size_t at = 0; at < kTranslations.size(); ++at) {
            EXPECT_STREQ(TextIn(kTranslations[at], row.id), row.texts[at]) << Where(kTranslations[at], row.id);
        }
    }
}

TEST(TextTable, AnOffer_BeginsAlikeWhetherItAsksOrWaits) {
    for (const Language language : kLanguages) {
        EXPECT_EQ(Text(language, TextId::VersionAvailablePrefix), Text(language, TextId::VersionWaitingPrefix));
    }
}

TEST(TextTable, Frames_ReadAsSentencesWithTheirValues) {
    ExpectInEachLanguage({TextId::CurrentVersionPrefix, L"1.2.3"},
                         {L"Current version 1.2.3", L"目前版本 1.2.3", L"当前版本 1.2.3", L"現在のバージョン 1.2.3",
                          L"현재 버전 1.2.3"});
    ExpectInEachLanguage(
        {TextId::VersionWaitingPrefix, L"1.2.3", TextId::AvailableWaitingSuffix},
        {L"Version 1.2.3 is available. Waiting for your choice…", L"發現新版本 1.2.3，正在等待您的選擇…",
         L"发现新版本 1.2.3，正在等待您的选择…", L"新しいバージョン 1.2.3 があります。選択を待機中…",
         L"새 버전 1.2.3을(를) 찾았습니다. 선택 대기 중…"});
    ExpectInEachLanguage({TextId::UpToDate, TextId::OnlineVersionPrefix, L"1.2.3", TextId::OnlineVersionSuffix},
                         {L"You are up to date (online version 1.2.3)", L"已是最新版本（線上版本 1.2.3）",
                          L"已是最新版本（在线版本 1.2.3）", L"最新バージョンです（配信バージョン 1.2.3）",
                          L"최신 버전입니다 (온라인 버전 1.2.3)"});
    ExpectInEachLanguage(
        {TextId::Downloading, TextId::DownloadedPrefix, L"12.3", TextId::DownloadedSuffix},
        {L"Downloading update (downloaded 12.3 MB)", L"正在下載更新（下載 12.3 MB）", L"正在下载更新（下载 12.3 MB）",
         L"更新をダウンロード中（ダウンロード 12.3 MB）", L"업데이트 다운로드 중 (다운로드 12.3 MB)"});
    ExpectInEachLanguage({TextId::CompletedPrefix, L"1.2.3"},
                         {L"Update complete: version 1.2.3", L"更新完成：版本 1.2.3", L"更新完成：版本 1.2.3",
                          L"更新完了：バージョン 1.2.3", L"업데이트 완료: 버전 1.2.3"});
    ExpectInEachLanguage(
        {TextId::SpeedPrefix, L"12.3 MB/s", TextId::RemainingPrefix, L"42", L" s"},
        {L"Speed: 12.3 MB/s · about 42 s", L"速度：12.3 MB/s · 剩餘約 42 s", L"速度：12.3 MB/s · 剩余约 42 s",
         L"速度：12.3 MB/s · 残り約 42 s", L"속도: 12.3 MB/s · 남은 시간 약 42 s"});
}

TEST(TextTable, EveryText_HoldsPlainUtf16) {
    for (const Language language : kLanguages) {
        for (const TextId id : AllIds()) {
            const std::wstring text = Text(language, id);
            EXPECT_FALSE(text.empty()) << Where(language, id);
            for (const wchar_t unit : text) {
                const bool control = (unit < L' ' && unit != L'\n') || IsBetween(unit, L'\x7F', L'\x9F');
                const bool surrogate_or_beyond = IsBetween(unit, L'\xD800', L'\xDFFF') || unit > L'\xFFFD';
                const bool invisible = IsBetween(unit, L'\x2000', L'\x200F') || unit == L'\xA0' || unit == L'\xFEFF';
                EXPECT_FALSE(control || surrogate_or_beyond || invisible)
                    << Where(language, id) << ", unit " << static_cast<unsigned>(unit);
            }
        }
    }
}

TEST(TextTable, Spaces_StandAtAnEndOnlyWhereTheFrameNeedsThem) {
    const auto wants = [](auto begin, auto end, Language language, TextId id) {
        const auto row = std::find_if(begin, end, [&](const SpaceAtTheEnd& one) { return one.id == id; });
        return row != end && row->languages.find(LanguageTag(language)) != row->languages.npos;
    };
    for (const Language language : kLanguages) {
        for (const TextId id : AllIds()) {
            const std::wstring text = Text(language, id);
            EXPECT_EQ(text.starts_with(L' '), wants(std::begin(kSpaceBefore), std::end(kSpaceBefore), language, id))
                << Where(language, id) << ", before";
            EXPECT_EQ(text.ends_with(L' '), wants(std::begin(kSpaceBehind), std::end(kSpaceBehind), language, id))
                << Where(language, id) << ", behind";
        }
        for (const Sentence& sentence : Sentences(language)) {
            EXPECT_EQ(sentence.text.find(L"  "), std::wstring::npos) << Where(language, sentence.first);
        }
    }
}

TEST(TextTable, HalfWidthPunctuation_HasASpaceBehindItAndNoneBefore) {
    for (const Language language : {Language::english, Language::korean}) {
        for (const Sentence& sentence : Sentences(language)) {
            const std::wstring& text = sentence.text;
            for (std::size_t at = 1; at + 1 < text.size(); ++at) {
                if (std::wstring_view(L".,:;?").find(text[at]) == std::wstring_view::npos) continue;
                EXPECT_TRUE(text[at + 1] == L' ' || text[at + 1] == L'\n') << Where(language, sentence.first);
                EXPECT_NE(text[at - 1], L' ') << Where(language, sentence.first);
            }
        }
    }
}

TEST(TextTable, LineFeeds_EndTheTextsThatAMessageFollows) {
    for (const Language language : kLanguages) {
        for (const TextId id : AllIds()) {
            const std::wstring text = Text(language, id);
            const bool wanted = id == TextId::CheckFailedPrefix || id == TextId::StartFailedSuffix;
            EXPECT_EQ(text.find(L'\n'), wanted ? text.size() - 1 : text.npos) << Where(language, id);
        }
    }
}

TEST(TextTable, Sentences_EndAsTheEnglishOnes) {
    const std::vector<Sentence> english = Sentences(Language::english);
    for (const Language language : kTranslations) {
        const std::vector<Sentence> sentences = Sentences(language);
        ASSERT_EQ(sentences.size(), english.size());
        for (std::size_t at = 0; at < sentences.size(); ++at) {
            EXPECT_EQ(Ending(sentences[at].text), Ending(english[at].text)) << Where(language, english[at].first);
        }
    }
}

TEST(TextTable, Ellipsis_StandsWhereEnglishHasOne) {
    const std::vector<Sentence> english = Sentences(Language::english);
    for (const Language language : kLanguages) {
        const std::vector<Sentence> sentences = Sentences(language);
        for (std::size_t at = 0; at < sentences.size(); ++at) {
            const std::wstring& text = sentences[at].text;
            EXPECT_EQ(Count(text, L"…"), Count(english[at].text, L"…")) << Where(language, english[at].first);
            EXPECT_EQ(Count(text, L"..") + Count(text, L"。。") + Count(text, L"⋯"), 0u)
                << Where(language, english[at].first);
        }
    }
}

TEST(TextTable, MiddleDot_SeparatesTheRemainingTimeInEachLanguage) {
    for (const Language language : kLanguages) {
        for (const TextId id : AllIds()) {
            const bool wanted = id == TextId::RemainingPrefix;
            EXPECT_EQ(Text(language, id).starts_with(L" \xB7 "), wanted) << Where(language, id);
            EXPECT_EQ(Count(Text(language, id), L"\xB7"), wanted ? 1u : 0u) << Where(language, id);
        }
    }
}

TEST(TextTable, ChineseAndJapanese_HoldNoAsciiButNamesAndTheirSpaces) {
    for (const Language language : kTranslations) {
        if (!IsFullWidth(language)) continue;
        for (const TextId id : AllIds()) {
            const std::wstring text = Text(language, id);
            for (const wchar_t unit : WithoutNames(text)) {
                EXPECT_TRUE(!IsAscii(unit) || unit == L' ' || unit == L'\n')
                    << Where(language, id) << ": " << static_cast<char>(unit);
            }
            for (std::size_t at = 1; at + 1 < text.size(); ++at) {
                const bool beside_latin =
                    IsAscii(text[at - 1]) || IsAscii(text[at + 1]) || id == TextId::RemainingPrefix;
                EXPECT_TRUE(text[at] != L' ' || beside_latin) << Where(language, id) << ", a space inside";
            }
        }
    }
}

TEST(TextTable, Korean_HasHalfWidthPunctuationAndNoLatinButNames) {
    for (const TextId id : AllIds()) {
        const std::wstring text = Text(Language::korean, id);
        EXPECT_FALSE(HoldsAny(text, IsFullWidthPunctuation)) << static_cast<unsigned>(id);
        for (const wchar_t unit : WithoutNames(text)) {
            EXPECT_TRUE(!IsAscii(unit) || std::wstring_view(L" \n.,:;?()").find(unit) != std::wstring_view::npos)
                << static_cast<unsigned>(id) << ": " << static_cast<char>(unit);
        }
    }
}

TEST(TextTable, English_IsAsciiButForEllipsisAndMiddleDot) {
    for (const TextId id : AllIds()) {
        for (const wchar_t unit : English(id)) {
            EXPECT_TRUE(IsAscii(unit) || unit == L'…' || unit == L'\xB7') << static_cast<unsigned>(id);
        }
    }
}

TEST(TextTable, Names_StayInLatinLetters) {
    for (const Language language : kTranslations) {
        for (const TextId id : AllIds()) {
            for (const std::wstring_view name : kNames) {
                EXPECT_EQ(Count(Text(language, id), name), Count(English(id), name)) << Where(language, id);
            }
        }
    }
}

TEST(TextTable, EachLanguage_IsInItsOwnScript) {
    for (const TextId id : AllIds()) {
        for (const Language language : {Language::traditionalChinese, Language::simplifiedChinese}) {
            EXPECT_FALSE(HoldsAny(Text(language, id), IsKana)) << Where(language, id);
            EXPECT_FALSE(HoldsAny(Text(language, id), IsHangul)) << Where(language, id);
        }
        EXPECT_FALSE(HoldsAny(Text(Language::japanese, id), IsHangul)) << Where(Language::japanese, id);
        EXPECT_FALSE(HoldsAny(Text(Language::korean, id), IsKana)) << Where(Language::korean, id);
        EXPECT_FALSE(HoldsAny(Text(Language::korean, id), IsIdeograph)) << Where(Language::korean, id);
    }
}

TEST(TextTable, ChineseAndJapanese_KeepTheirOwnForms) {
    constexpr std::pair<Language, std::wstring_view> kForeign[] = {{Language::traditionalChinese, kOnlySimplified},
                                                                   {Language::simplifiedChinese, kOnlyTraditional},
                                                                   {Language::japanese, kNotJapanese}};
    for (const auto& [language, foreign] : kForeign) {
        for (const TextId id : AllIds()) {
            EXPECT_EQ(Text(language, id).find_first_of(foreign), std::wstring::npos) << Where(language, id);
        }
    }
}

TEST(TextTable, Terms_HaveOneWordInEachLanguage) {
    for (const Term& term : kTerms) {
        unsigned uses = 0;
        for (const TextId id : AllIds()) {
            if (English(id).find(term.english) == std::wstring::npos || term.except.contains(id)) continue;
            ++uses;
            for (std::size_t at = 0; at < kTranslations.size(); ++at) {
                EXPECT_NE(Text(kTranslations[at], id).find(term.words[at]), std::wstring::npos)
                    << Where(kTranslations[at], id) << ": " << platform::EncodeUtf8(term.english);
            }
        }
        EXPECT_GT(uses, 0u) << platform::EncodeUtf8(term.english);
    }
}

TEST(TextTable, DifferentTexts_DifferInEachLanguage) {
    for (const Language language : kTranslations) {
        for (const TextId left : AllIds()) {
            for (const TextId right : AllIds()) {
                if (Text(language, left) != Text(language, right)) continue;
                EXPECT_EQ(English(left), English(right))
                    << Where(language, left) << " is text " << static_cast<unsigned>(right);
            }
        }
    }
}

TEST(Locations, BackupPrefix_HasSchemeHostAndFolder) {
    EXPECT_EQ(kBackupReleasePrefix, L"https://" + std::wstring(kBackupHost) + L"/releases/");
    EXPECT_EQ(kBackupReleasePrefix.size(), kBackupHost.size() + 18);
}

}  // namespace
}  // namespace product
