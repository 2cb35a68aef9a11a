#pragma once

/// Every text that a window shows, in five languages, compiled in. Pure; any thread.

#include <string_view>

namespace product {

enum class Language { english, traditionalChinese, simplifiedChinese, japanese, korean };
inline constexpr int kLanguageCount = 5;

/// Numbers are fixed: other parts of the program name texts by them.
enum class TextId : unsigned {
    AlreadyLatest = 25,
    LauncherTooOld = 27,
    StartFailedPrefix = 28,
    StartFailedSuffix = 29,
    NotesUnavailable = 31,
    DownloadIncomplete = 53,
    StagingCopyFailed = 54,
    DidNotFinishStarting = 56,
    RecoveryNeedsAttention = 57,
    BackupMetadataOlder = 66,
};

/// The language for a Windows locale name such as "zh-TW". Plain prefixes, any letter case; English for the rest.
/// A Traditional Chinese name written with its script subtag is taken for Simplified: script subtags are not read.
[[nodiscard]] Language ClassifyLocaleName(std::wstring_view name);

/// "en", "zh-TW", "zh-CN", "ja" or "ko".
[[nodiscard]] const wchar_t* LanguageTag(Language language);

/// A static text, never null. An id without a row gives an empty text.
[[nodiscard]] const wchar_t* TextIn(Language language, TextId id);

}  // namespace product
