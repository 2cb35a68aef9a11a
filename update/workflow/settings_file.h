#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace launcher_update {

/// What the launcher reads at the most of its settings file `current.json`; a longer one counts as unusable.
inline constexpr std::size_t kMaxSettingsBytes = 65536;

using ReplaceText = std::function<bool(std::wstring_view text, std::wstring& replaced)>;
using WriteText = bool (*)(const std::wstring& path, std::wstring_view text);

/// Gives the text of the settings file at `path` to `replace` and writes what comes of it by `write`, one of the
/// replacing writes of durable_write.h. A byte order mark is dropped. False, with the file as it was, if it cannot be
/// read, `replace` refuses, the next start could not read the new text, or the write fails. Any thread.
[[nodiscard]] bool RewriteSettings(const std::wstring& path, const ReplaceText& replace, WriteText write);

}  // namespace launcher_update
