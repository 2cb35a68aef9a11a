#pragma once

#include <string>
#include <string_view>

namespace launcher_update {

/// `text`, the launcher's `current.json`, with the value of its top-level "productVersion" replaced; all else stays to
/// the letter. False if there is no such string value. Pure.
[[nodiscard]] bool ReplaceProductVersion(std::wstring_view text, std::wstring_view version, std::wstring& replaced);

/// Records the new version in `root\current.json`, durably and in one rename. The file must have at most 65536 bytes,
/// before and after, or the next start would not read it. A byte order mark is dropped. False leaves the file as it
/// was.
[[nodiscard]] bool WriteProductVersion(const std::wstring& root, std::wstring_view version);

}  // namespace launcher_update
