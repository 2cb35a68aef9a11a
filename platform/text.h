#pragma once

/// Text: UTF-8 in files, UTF-16 in memory. Pure; any thread.
///
/// A wide string holds one UTF-16 code unit per `wchar_t`, also where `wchar_t` is wider than 16 bits.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Strict UTF-8 (RFC 3629): over-long forms, surrogates, values above U+10FFFF and cut-off sequences are refused.
/// Nothing is repaired. Gives what `MultiByteToWideChar` gives with `MB_ERR_INVALID_CHARS`. Empty bytes give an empty
/// text.
[[nodiscard]] std::optional<std::wstring> DecodeUtf8(std::string_view bytes);

/// UTF-8 of a UTF-16 text. An unpaired surrogate becomes U+FFFD, as `WideCharToMultiByte` does without flags.
[[nodiscard]] std::string EncodeUtf8(std::wstring_view text);

/// Lower case as `towlower` has it in the "C" locale, which is the only locale this program ever runs in: A to Z alone.
[[nodiscard]] constexpr wchar_t ToLowerUnit(wchar_t unit) {
    return unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit - L'A' + L'a') : unit;
}

[[nodiscard]] std::wstring ToLower(std::wstring_view text);

/// Equality as `_wcsicmp` sees it in the "C" locale. Names that differ only in the case of a letter beyond A to Z count
/// as different here; where the file system folds them, copies that refuse to overwrite are the second fence.
[[nodiscard]] bool EqualsIgnoringCase(std::wstring_view left, std::wstring_view right);

[[nodiscard]] bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix);

[[nodiscard]] bool EndsWithIgnoringCase(std::wstring_view text, std::wstring_view suffix);

/// The text with every `/` turned into `\`.
[[nodiscard]] std::wstring WithBackslashes(std::wstring_view text);

/// The pieces between `\` and `/`, empty ones included; at least one piece.
[[nodiscard]] std::vector<std::wstring_view> SplitPath(std::wstring_view path);

/// The part before the last `\` or `/`, or nothing if the text holds neither.
[[nodiscard]] std::optional<std::wstring> ParentPath(std::wstring_view path);

/// The part behind the last `\` or `/`, or the whole text.
[[nodiscard]] std::wstring_view LastPathComponent(std::wstring_view path);

/// Widens text that is known to be ASCII.
[[nodiscard]] std::wstring WidenAscii(std::string_view ascii);

}  // namespace platform
