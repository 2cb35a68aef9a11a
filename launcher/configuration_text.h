#pragma once

/// The launcher's settings file `current.json` as text. Pure; any thread.
///
/// Read by the flat reader, which looks for the first occurrence of a quoted key anywhere in the text: the file is the
/// program's own, and what was written by any older launcher must stay readable. Update data is never read this way.

#include <cstdint>
#include <string>
#include <string_view>

namespace launcher_shell {

inline constexpr std::int32_t kDefaultIntervalMinutes = 15;
inline constexpr std::int32_t kMaxIntervalMinutes = 43200;  // 30 days

struct LauncherConfiguration {
    std::wstring productVersion;
    std::wstring launcherVersion;
    std::wstring applicationDirectory = L"Velmora Pine Relay";
    std::wstring applicationExecutable = L"Velmora Pine Relay.exe";
    std::wstring updateManifestUrl;
    std::int32_t updateCheckIntervalMinutes = kDefaultIntervalMinutes;

    friend bool operator==(const LauncherConfiguration&, const LauncherConfiguration&) = default;
};

/// Where the value of `key` begins, or nothing.
[[nodiscard]] bool FlatFindValue(std::wstring_view text, std::wstring_view key, std::size_t& position);

/// The string at `position`. Eight escapes are known, `\u` is not one of them. On failure `value` holds what was read
/// so far.
[[nodiscard]] bool FlatReadString(std::wstring_view text, std::size_t position, std::wstring& value);

/// The signed 32-bit number at `position`, as the C library's base-10 conversion takes it: saturating, without a look
/// at what follows. False if no digit is there.
[[nodiscard]] bool FlatReadInt(std::wstring_view text, std::size_t position, std::int32_t& value);

/// Exactly four numbers of at most 65535, split by dots.
[[nodiscard]] bool IsDottedVersion(std::wstring_view text);

/// A path that stays inside the launcher's folder; with `allowFolders` false a single name.
[[nodiscard]] bool IsSafeConfigurationPath(std::wstring_view text, bool allowFolders);

/// Reads the file's bytes. `configuration` is written only on full success; otherwise `error` holds the message.
[[nodiscard]] bool ParseLauncherConfiguration(std::string_view bytes, LauncherConfiguration& configuration,
                                              std::wstring& error);

/// Puts `version` in the place of the launcher's version; every other unit stays. False if the text has no such string.
[[nodiscard]] bool ReplaceLauncherVersion(std::wstring_view text, std::wstring_view version, std::wstring& replaced);

/// The file as the launcher writes it: line feeds, two-space indent, fixed order of keys.
[[nodiscard]] std::wstring RenderLauncherConfiguration(const LauncherConfiguration& configuration);

}  // namespace launcher_shell
