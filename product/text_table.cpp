#include "product/text_table.h"

#include <array>

#include "platform/text.h"

namespace product {
namespace {

struct Row {
    TextId id;
    std::array<const wchar_t*, kLanguageCount> texts;  // en, zh-TW, zh-CN, ja, ko
};

constexpr Row kRows[] = {
    {TextId::CurrentVersionPrefix,
     {L"Current version ", L"目前版本 ", L"当前版本 ", L"現在のバージョン ", L"현재 버전 "}},
    {TextId::UnknownVersion, {L"Unknown", L"未知", L"未知", L"不明", L"알 수 없음"}},
    {TextId::PreparingCheck,
     {L"Preparing to check for updates…", L"正在準備檢查更新…", L"正在准备检查更新…", L"更新の確認を準備中…",
      L"업데이트 확인 준비 중…"}},
    {TextId::UpdateNow, {L"Update now", L"立即更新", L"立即更新", L"今すぐ更新", L"지금 업데이트"}},
    {TextId::Later, {L"Later", L"稍後", L"稍后", L"後で", L"나중에"}},
    {TextId::VersionAvailablePrefix, {L"Version ", L"發現新版本 ", L"发现新版本 ", L"新しいバージョン ", L"새 버전 "}},
    {TextId::AvailableInstallSuffix,
     {L" is available. Download and install it now?", L"，現在下載並安裝嗎？", L"，现在下载并安装吗？",
      L" が見つかりました。ダウンロードしてインストールしますか？",
      L"을(를) 찾았습니다. 지금 다운로드하여 설치할까요?"}},
    {TextId::CheckingForUpdates,
     {L"Checking for updates…", L"正在檢查更新…", L"正在检查更新…", L"更新を確認中…", L"업데이트 확인 중…"}},
    {TextId::RecentlyChecked,
     {L"Updates were checked recently. Starting…", L"最近已檢查更新，正在啟動…", L"最近已检查更新，正在启动…",
      L"更新は最近確認済みです。起動中…", L"최근에 업데이트를 확인했습니다. 시작하는 중…"}},
    {TextId::UpToDate,
     {L"You are up to date", L"已是最新版本", L"已是最新版本", L"最新バージョンです", L"최신 버전입니다"}},
    {TextId::OnlineVersionPrefix,
     {L" (online version ", L"（線上版本 ", L"（在线版本 ", L"（配信バージョン ", L" (온라인 버전 "}},
    {TextId::OnlineVersionSuffix, {L")", L"）", L"）", L"）", L")"}},
    {TextId::VersionWaitingPrefix, {L"Version ", L"發現新版本 ", L"发现新版本 ", L"新しいバージョン ", L"새 버전 "}},
    {TextId::AvailableWaitingSuffix,
     {L" is available. Waiting for your choice…", L"，正在等待您的選擇…", L"，正在等待您的选择…",
      L" があります。選択を待機中…", L"을(를) 찾았습니다. 선택 대기 중…"}},
    {TextId::SkippedVersionPrefix, {L"Skipped version ", L"已略過版本 ", L"已跳过版本 ", L"バージョン ", L"버전 "}},
    {TextId::SkippedVersionSuffix,
     {L". Starting the installed version…", L"，正在啟動目前版本…", L"，正在启动当前版本…",
      L" をスキップし、現在のバージョンを起動しています…", L"을(를) 건너뛰고 현재 버전을 시작하는 중…"}},
    {TextId::UpdatingRequiredResources,
     {L"Updating required resources", L"正在更新必要資源", L"正在更新必要资源", L"必要なリソースを更新中",
      L"필수 리소스 업데이트 중"}},
    {TextId::Repairing,
     {L"Repairing missing or damaged files…", L"正在修復遺失或損壞的檔案…", L"正在修复缺失或损坏的文件…",
      L"不足または破損したファイルを修復中…", L"누락되거나 손상된 파일 복구 중…"}},
    {TextId::Downloading,
     {L"Downloading update", L"正在下載更新", L"正在下载更新", L"更新をダウンロード中", L"업데이트 다운로드 중"}},
    {TextId::DownloadedPrefix, {L" (downloaded ", L"（下載 ", L"（下载 ", L"（ダウンロード ", L" (다운로드 "}},
    {TextId::DownloadedSuffix, {L" MB)", L" MB）", L" MB）", L" MB）", L" MB)"}},
    {TextId::InstallingPrefix,
     {L"Download complete. Installing version ", L"下載完成，正在安裝版本 ", L"下载完成，正在安装版本 ",
      L"ダウンロード完了。バージョン ", L"다운로드 완료. 버전 "}},
    {TextId::InstallingSuffix, {L"…", L"…", L"…", L" をインストールしています…", L" 설치 중…"}},
    {TextId::CompletedPrefix,
     {L"Update complete: version ", L"更新完成：版本 ", L"更新完成：版本 ", L"更新完了：バージョン ",
      L"업데이트 완료: 버전 "}},
    {TextId::CheckFailedStarting,
     {L"Update check failed. Starting the installed version.", L"檢查更新失敗，正在啟動目前版本。",
      L"检查更新失败，正在启动当前版本。", L"更新確認に失敗しました。現在のバージョンを起動します。",
      L"업데이트 확인에 실패했습니다. 현재 버전을 시작합니다."}},
    {TextId::AlreadyLatest,
     {L"You already have the latest version.", L"目前已是最新版本。", L"当前已是最新版本。",
      L"すでに最新バージョンです。", L"이미 최신 버전입니다."}},
    {TextId::CheckFailedPrefix,
     {L"Update check failed:\n", L"檢查更新失敗：\n", L"检查更新失败：\n", L"更新確認に失敗しました：\n",
      L"업데이트 확인 실패:\n"}},
    {TextId::LauncherTooOld,
     {L"This update requires a newer launcher. Please download the latest full package.",
      L"此更新需要較新的啟動器，請下載最新版完整安裝包。", L"此更新需要较新的启动器，请下载最新版完整安装包。",
      L"この更新には新しいランチャーが必要です。最新の完全版パッケージをダウンロードしてください。",
      L"이 업데이트에는 더 새로운 런처가 필요합니다. 최신 전체 패키지를 다운로드하세요."}},
    {TextId::StartFailedPrefix,
     {L"Failed to start the app (error code ", L"啟動主程式失敗（錯誤碼 ", L"启动主程序失败（错误码 ",
      L"アプリを起動できませんでした（エラーコード ", L"앱을 시작하지 못했습니다 (오류 코드 "}},
    {TextId::StartFailedSuffix, {L"):\n", L"）：\n", L"）：\n", L"）：\n", L"):\n"}},
    {TextId::WhatsNew, {L"What's new", L"更新內容", L"更新内容", L"更新内容", L"업데이트 내용"}},
    {TextId::NotesUnavailable,
     {L"Release notes are not available for this version.", L"此版本沒有更新說明。", L"此版本没有更新说明。",
      L"このバージョンの更新内容はありません。", L"이 버전에는 업데이트 내용이 없습니다."}},
    {TextId::ViewFullNotes,
     {L"View full release notes", L"查看完整更新說明", L"查看完整更新说明", L"更新内容の全文を表示",
      L"전체 업데이트 내용 보기"}},
    {TextId::NewVersionAvailable,
     {L"A new version is available", L"有可用的新版本", L"有可用的新版本", L"新しいバージョンがあります",
      L"새 버전이 있습니다"}},
    {TextId::HotfixAvailable,
     {L"Hotfix available", L"有可用的修補程式", L"有可用的修补程序", L"修正プログラムがあります",
      L"핫픽스가 있습니다"}},
    {TextId::RecommendedAvailable,
     {L"Recommended update available", L"有可用的建議更新", L"有可用的推荐更新", L"推奨の更新があります",
      L"권장 업데이트가 있습니다"}},
    {TextId::ScrollForMore,
     {L"Scroll for more", L"捲動查看更多", L"滚动查看更多", L"スクロールで続きを表示", L"스크롤하여 더 보기"}},
    {TextId::SafetyNoteVerified,
     {L"Update files are SHA-256 verified; the installed version is kept if the update fails.",
      L"更新檔案均經 SHA-256 驗證，更新失敗時會保留目前版本。",
      L"更新文件均经 SHA-256 验证，更新失败时会保留当前版本。",
      L"更新ファイルは SHA-256 で検証し、更新に失敗しても現在のバージョンを保持します。",
      L"업데이트 파일은 SHA-256으로 검증하며, 업데이트에 실패해도 현재 버전을 유지합니다."}},
    {TextId::SafetyNoteSwitching,
     {L"Downloaded files are verified before versions are switched safely.", L"下載的檔案會先驗證，再安全切換版本。",
      L"下载的文件会先验证，再安全切换版本。",
      L"ダウンロードしたファイルを検証してから、安全にバージョンを切り替えます。",
      L"다운로드한 파일을 검증한 뒤 버전을 안전하게 전환합니다."}},
    {TextId::Cancel, {L"Cancel", L"取消", L"取消", L"キャンセル", L"취소"}},
    {TextId::SkipUpdateAndOpen,
     {L"Skip update and open app", L"略過更新並啟動主程式", L"跳过更新并启动主程序", L"更新をスキップして起動",
      L"업데이트 건너뛰고 앱 시작"}},
    {TextId::CancellingSafely,
     {L"Cancelling safely…", L"正在安全取消…", L"正在安全取消…", L"安全にキャンセル中…", L"안전하게 취소하는 중…"}},
    {TextId::VerifyingDownload,
     {L"Verifying downloaded files", L"正在驗證下載的檔案", L"正在验证下载的文件", L"ダウンロードしたファイルを検証中",
      L"다운로드한 파일 검증 중"}},
    {TextId::CancelledStarting,
     {L"Update cancelled. Starting the installed version…", L"更新已取消，正在啟動目前版本…",
      L"更新已取消，正在启动当前版本…", L"更新をキャンセルし、現在のバージョンを起動中…",
      L"업데이트를 취소했습니다. 현재 버전을 시작하는 중…"}},
    {TextId::CheckingFiles,
     {L"Checking installed files", L"正在檢查已安裝的檔案", L"正在检查已安装的文件",
      L"インストール済みファイルを確認中", L"설치된 파일 확인 중"}},
    {TextId::VerifyingFiles,
     {L"Verifying file contents", L"正在驗證檔案內容", L"正在验证文件内容", L"ファイルの内容を検証中",
      L"파일 내용 검증 중"}},
    {TextId::Reconnect, {L"Reconnect", L"重新連線", L"重新连接", L"再接続", L"다시 연결"}},
    {TextId::ConnectingToServer,
     {L"Connecting to download server…", L"正在連線至下載伺服器…", L"正在连接至下载服务器…",
      L"ダウンロードサーバーに接続中…", L"다운로드 서버에 연결 중…"}},
    {TextId::Reconnecting,
     {L"Reconnecting; retained data will be verified.", L"正在重連，保留的資料仍會重新驗證。",
      L"正在重连，保留的数据仍会重新验证。", L"再接続中。保持したデータも検証します。",
      L"다시 연결 중입니다. 보관된 데이터도 검증합니다."}},
    {TextId::SlowConnection,
     {L"Slow connection. Keep waiting or reconnect.", L"目前線路較慢，可以等待或重新連線。",
      L"当前线路较慢，可以等待或重新连接。", L"接続が低速です。待機するか再接続できます。",
      L"연결이 느립니다. 기다리거나 다시 연결하세요."}},
    {TextId::SpeedPrefix, {L"Speed: ", L"速度：", L"速度：", L"速度：", L"속도: "}},
    {TextId::RemainingPrefix, {L" · about ", L" · 剩餘約 ", L" · 剩余约 ", L" · 残り約 ", L" · 남은 시간 약 "}},
    {TextId::ReusingVerifiedData,
     {L"Reusing verified downloaded data.", L"正在沿用已驗證的下載資料。", L"正在沿用已验证的下载数据。",
      L"検証済みのダウンロードデータを再利用します。", L"검증된 다운로드 데이터를 재사용합니다."}},
    {TextId::DownloadIncomplete,
     {L"Download could not finish. You can retry later; eligible partial data is retained and the installed version is "
      L"unchanged.",
      L"下載未完成。可以稍後重試；可續傳的資料已保留，目前安裝版本不變。",
      L"下载未完成。可以稍后重试；可续传的数据已保留，当前安装版本不变。",
      L"ダウンロード未完了です。後で再試行できます。再開可能なデータを保持し、現在のバージョンは変更しません。",
      L"다운로드를 완료하지 못했습니다. 나중에 다시 시도하세요. 재개 가능한 데이터를 보관하며 설치된 버전은 변경하지 "
      L"않습니다."}},
    {TextId::StagingCopyFailed,
     {L"Could not copy verified data into update staging.", L"無法將已驗證的資料複製到更新暫存區。",
      L"无法将已验证的数据复制到更新暂存区。", L"検証済みデータを更新用の一時領域にコピーできませんでした。",
      L"검증된 데이터를 업데이트 임시 영역에 복사하지 못했습니다."}},
    {TextId::DidNotFinishChecking,
     {L"Update did not finish. Checking the installed version…", L"更新未完成，正在檢查目前版本…",
      L"更新未完成，正在检查当前版本…", L"更新未完了です。現在のバージョンを確認中…",
      L"업데이트를 완료하지 못했습니다. 현재 버전을 확인하는 중…"}},
    {TextId::DidNotFinishStarting,
     {L"Update did not finish. Starting the installed version…", L"更新未完成，正在啟動目前版本…",
      L"更新未完成，正在启动当前版本…", L"更新未完了です。現在のバージョンを起動中…",
      L"업데이트를 완료하지 못했습니다. 현재 버전을 시작하는 중…"}},
    {TextId::RecoveryNeedsAttention,
     {L"Update recovery needs attention. Launch stopped.", L"更新回復需要處理，已停止啟動。",
      L"更新恢复需要处理，已停止启动。", L"更新の復旧に対処が必要です。起動を停止しました。",
      L"업데이트 복구에 조치가 필요합니다. 시작을 중지했습니다."}},
    {TextId::WaitingForData,
     {L"Waiting for download data…", L"正在等待下載資料…", L"正在等待下载数据…", L"ダウンロードデータを待機中…",
      L"다운로드 데이터를 기다리는 중…"}},
    {TextId::Close, {L"Close", L"關閉", L"关闭", L"閉じる", L"닫기"}},
    {TextId::StatusDetails, {L"Status details", L"狀態詳細資訊", L"状态详细信息", L"状態の詳細", L"상태 세부 정보"}},
    {TextId::LaunchStopped,
     {L"Launch is stopped. Close this window and resolve the issue before trying again.",
      L"已停止啟動。請關閉此視窗，排除問題後重試。", L"已停止启动。请关闭此窗口，解决问题后重试。",
      L"起動を停止しました。このウィンドウを閉じ、問題を解決してから再試行してください。",
      L"시작을 중지했습니다. 이 창을 닫고 문제를 해결한 후 다시 시도하세요."}},
    {TextId::AutoStartNote,
     {L"The installed version will start automatically. You can retry the update later.",
      L"目前版本會自動啟動，可以稍後重試更新。", L"当前版本会自动启动，可以稍后重试更新。",
      L"現在のバージョンは自動的に起動します。更新は後で再試行できます。",
      L"현재 버전이 자동으로 시작됩니다. 업데이트는 나중에 다시 시도할 수 있습니다."}},
    {TextId::SwitchingToBackup,
     {L"Switching to Cloudflare R2 backup…", L"正在切換至 Cloudflare R2 備援…", L"正在切换至 Cloudflare R2 备用…",
      L"Cloudflare R2 の予備サーバーへ切替中…", L"Cloudflare R2 예비 서버로 전환 중…"}},
    {TextId::SlowSwitchingToBackup,
     {L"GitHub remains slow. Switching to Cloudflare R2…", L"GitHub 持續下載過慢，正在切換至 Cloudflare R2…",
      L"GitHub 持续下载过慢，正在切换至 Cloudflare R2…", L"GitHub が低速のため Cloudflare R2 へ切替中…",
      L"GitHub 다운로드가 계속 느려 Cloudflare R2로 전환 중…"}},
    {TextId::SourceBackup,
     {L"Source: Cloudflare R2 backup", L"來源：Cloudflare R2 備援", L"来源：Cloudflare R2 备用",
      L"配信元：Cloudflare R2 予備サーバー", L"다운로드 서버: Cloudflare R2 예비 서버"}},
    {TextId::BackupMetadataOlder,
     {L"Backup update information is older than the version already checked. Please retry later.",
      L"備援更新資訊比已確認的版本舊，請稍後重試。", L"备用更新信息比已确认的版本旧，请稍后重试。",
      L"予備サーバーの更新情報が確認済みの版より古いため、後で再試行してください。",
      L"예비 서버의 업데이트 정보가 확인된 버전보다 오래되었습니다. 나중에 다시 시도하세요."}},
    {TextId::ComparingSources,
     {L"Comparing download sources…", L"正在比較下載來源速度…", L"正在比较下载来源速度…",
      L"ダウンロード元の速度を比較中…", L"다운로드 서버 속도 비교 중…"}},
};

static_assert(std::size(kRows) == kTextCount, "one row for every text");

constexpr bool EveryRowStandsAtItsNumber() {
    for (std::size_t row = 0; row < std::size(kRows); ++row) {
        if (static_cast<std::size_t>(kRows[row].id) != row) return false;
    }
    return true;
}
static_assert(EveryRowStandsAtItsNumber(), "a row is missing, doubled or out of order");

constexpr bool EveryCellHoldsAText() {
    for (const Row& row : kRows) {
        for (const wchar_t* text : row.texts) {
            if (text == nullptr || *text == L'\0') return false;
        }
    }
    return true;
}
static_assert(EveryCellHoldsAText(), "a text is missing in one language");

constexpr bool HaveTheSameTexts(TextId left, TextId right) {
    for (std::size_t language = 0; language < kLanguageCount; ++language) {
        if (std::wstring_view(kRows[static_cast<std::size_t>(left)].texts[language]) !=
            kRows[static_cast<std::size_t>(right)].texts[language]) {
            return false;
        }
    }
    return true;
}
static_assert(HaveTheSameTexts(TextId::VersionAvailablePrefix, TextId::VersionWaitingPrefix),
              "an offer begins with the same words whether it asks or waits");

}  // namespace

Language ClassifyLocaleName(std::wstring_view name) {
    const std::wstring lower = platform::ToLower(name);
    for (const wchar_t* traditional : {L"zh-tw", L"zh-hk", L"zh-mo"}) {
        if (lower.starts_with(traditional)) return Language::traditionalChinese;
    }
    if (lower.starts_with(L"zh")) return Language::simplifiedChinese;
    if (lower.starts_with(L"ja")) return Language::japanese;
    if (lower.starts_with(L"ko")) return Language::korean;
    return Language::english;
}

const wchar_t* LanguageTag(Language language) {
    constexpr const wchar_t* kTags[kLanguageCount] = {L"en", L"zh-TW", L"zh-CN", L"ja", L"ko"};
    return kTags[static_cast<int>(language)];
}

std::optional<Language> LanguageOfTag(std::wstring_view tag) {
    for (int number = 0; number < kLanguageCount; ++number) {
        const auto language = static_cast<Language>(number);
        if (platform::EqualsIgnoringCase(tag, LanguageTag(language))) return language;
    }
    return std::nullopt;
}

const wchar_t* TextIn(Language language, TextId id) {
    const auto row = static_cast<std::size_t>(id);
    if (row >= std::size(kRows)) return L"";
    return kRows[row].texts[static_cast<std::size_t>(language)];
}

}  // namespace product
