#pragma once

/// Every text that a window shows, in five languages, compiled in. Pure; any thread.
///
/// Many rows are pieces of a sentence around a value. The caller joins them exactly as they stand: the rows hold every
/// space and all punctuation, and because word order differs between languages a suffix is never left out, even where
/// it looks empty of meaning in English.
///
/// | pieces                                                       | value                              |
/// |--------------------------------------------------------------|------------------------------------|
/// | CurrentVersionPrefix, value                                  | version; UnknownVersion if none    |
/// | VersionAvailablePrefix, value, AvailableInstallSuffix        | new version                        |
/// | VersionWaitingPrefix, value, AvailableWaitingSuffix          | new version                        |
/// | UpToDate, OnlineVersionPrefix, value, OnlineVersionSuffix    | online version                     |
/// | SkippedVersionPrefix, value, SkippedVersionSuffix            | skipped version                    |
/// | DownloadedPrefix, value, DownloadedSuffix                    | megabytes so far                   |
/// | InstallingPrefix, value, InstallingSuffix                    | version                            |
/// | CompletedPrefix, value                                       | version                            |
/// | CheckFailedPrefix, value                                     | message, on lines of its own       |
/// | StartFailedPrefix, value, StartFailedSuffix, second value    | error code; then the message       |
/// | SpeedPrefix, value                                           | what `FormatSpeed` gives           |
/// | RemainingPrefix, value, " s"                                 | whole seconds left                 |

#include <optional>
#include <string_view>

namespace product {

enum class Language { english, traditionalChinese, simplifiedChinese, japanese, korean };
inline constexpr int kLanguageCount = 5;

/// Numbers are fixed, 0 to 67 in this order. docs/texts.md shows every text beside its number.
enum class TextId : unsigned {
    CurrentVersionPrefix = 0,
    UnknownVersion,
    PreparingCheck,
    UpdateNow,
    Later,
    VersionAvailablePrefix,
    AvailableInstallSuffix,
    CheckingForUpdates,
    RecentlyChecked,
    UpToDate,

    OnlineVersionPrefix = 10,
    OnlineVersionSuffix,
    VersionWaitingPrefix,
    AvailableWaitingSuffix,
    SkippedVersionPrefix,
    SkippedVersionSuffix,
    UpdatingRequiredResources,
    Repairing,
    Downloading,
    DownloadedPrefix,

    DownloadedSuffix = 20,
    InstallingPrefix,
    InstallingSuffix,
    CompletedPrefix,
    CheckFailedStarting,
    AlreadyLatest,
    CheckFailedPrefix,
    LauncherTooOld,
    StartFailedPrefix,
    StartFailedSuffix,

    WhatsNew = 30,
    NotesUnavailable,
    ViewFullNotes,
    NewVersionAvailable,
    HotfixAvailable,
    RecommendedAvailable,
    ScrollForMore,
    SafetyNoteVerified,
    SafetyNoteSwitching,
    Cancel,

    SkipUpdateAndOpen = 40,
    CancellingSafely,
    VerifyingDownload,
    CancelledStarting,
    CheckingFiles,
    VerifyingFiles,
    Reconnect,
    ConnectingToServer,
    Reconnecting,
    SlowConnection,

    SpeedPrefix = 50,
    RemainingPrefix,
    ReusingVerifiedData,
    DownloadIncomplete,
    StagingCopyFailed,
    DidNotFinishChecking,
    DidNotFinishStarting,
    RecoveryNeedsAttention,
    WaitingForData,
    Close,

    StatusDetails = 60,
    LaunchStopped,
    AutoStartNote,
    SwitchingToBackup,
    SlowSwitchingToBackup,
    SourceBackup,
    BackupMetadataOlder,
    ComparingSources,
};
inline constexpr unsigned kTextCount = 68;
static_assert(static_cast<unsigned>(TextId::ComparingSources) + 1 == kTextCount);

/// The language for a Windows locale name such as "zh-TW". Plain prefixes, any letter case; English for the rest.
/// A Traditional Chinese name written with its script subtag is taken for Simplified: script subtags are not read.
[[nodiscard]] Language ClassifyLocaleName(std::wstring_view name);

/// "en", "zh-TW", "zh-CN", "ja" or "ko".
[[nodiscard]] const wchar_t* LanguageTag(Language language);

/// The language of such a tag, ignoring case.
[[nodiscard]] std::optional<Language> LanguageOfTag(std::wstring_view tag);

/// A static text, never null. A number beyond the last id gives an empty text. Two indexed reads; nothing is allocated.
[[nodiscard]] const wchar_t* TextIn(Language language, TextId id);

}  // namespace product
