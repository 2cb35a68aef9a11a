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
    {TextId::AlreadyLatest,
     {L"You already have the latest version.", L"目前已是最新版本。", L"当前已是最新版本。",
      L"すでに最新バージョンです。", L"이미 최신 버전입니다."}},
    {TextId::LauncherTooOld,
     {L"This update requires a newer launcher. Please download the latest full package.",
      L"此更新需要較新的啟動器，請下載最新版完整安裝包。", L"此更新需要较新的启动器，请下载最新版完整安装包。",
      L"この更新には新しいランチャーが必要です。最新の完全版パッケージをダウンロードしてください。",
      L"이 업데이트에는 더 새로운 런처가 필요합니다. 최신 전체 패키지를 다운로드하세요."}},
    {TextId::StartFailedPrefix,
     {L"Failed to start the app (error code ", L"啟動主程式失敗（錯誤碼 ", L"启动主程序失败（错误码 ",
      L"アプリを起動できませんでした（エラーコード ", L"앱을 시작하지 못했습니다 (오류 코드 "}},
    {TextId::StartFailedSuffix, {L"):\n", L"）：\n", L"）：\n", L"）：\n", L"):\n"}},
    {TextId::NotesUnavailable,
     {L"Release notes are not available for this version.", L"此版本沒有更新說明。", L"此版本没有更新说明。",
      L"このバージョンの更新内容はありません。", L"이 버전에는 업데이트 내용이 없습니다."}},
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
    {TextId::DidNotFinishStarting,
     {L"Update did not finish. Starting the installed version…", L"更新未完成，正在啟動目前版本…",
      L"更新未完成，正在启动当前版本…", L"更新を完了できませんでした。現在のバージョンを起動しています…",
      L"업데이트를 완료하지 못했습니다. 현재 버전을 시작하는 중…"}},
    {TextId::RecoveryNeedsAttention,
     {L"Update recovery needs attention. Launch stopped.", L"更新回復需要處理，已停止啟動。",
      L"更新恢复需要处理，已停止启动。", L"更新の復旧に対処が必要です。起動を停止しました。",
      L"업데이트 복구에 조치가 필요합니다. 시작을 중지했습니다."}},
    {TextId::BackupMetadataOlder,
     {L"Backup update information is older than the version already checked. Please retry later.",
      L"備援更新資訊比已確認的版本舊，請稍後重試。", L"备用更新信息比已确认的版本旧，请稍后重试。",
      L"予備サーバーの更新情報が確認済みの版より古いため、後で再試行してください。",
      L"예비 서버의 업데이트 정보가 확인된 버전보다 오래되었습니다. 나중에 다시 시도하세요."}},
};

constexpr bool RowsAreCompleteAndOrdered() {
    for (std::size_t row = 0; row < std::size(kRows); ++row) {
        if (row > 0 && kRows[row - 1].id >= kRows[row].id) return false;
        for (const wchar_t* text : kRows[row].texts) {
            if (text == nullptr || *text == L'\0') return false;
        }
    }
    return true;
}
static_assert(RowsAreCompleteAndOrdered(), "a text is missing in one language, or a row is out of order");

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

const wchar_t* TextIn(Language language, TextId id) {
    for (const Row& row : kRows) {
        if (row.id == id) return row.texts[static_cast<std::size_t>(language)];
    }
    return L"";
}

}  // namespace product
