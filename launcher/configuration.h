#pragma once

#include <string>

#include "launcher/configuration_text.h"

namespace launcher_shell {

enum class ConfigurationStatus { missing = 0, read = 1, unusable = 2 };

/// Reads the settings file. `missing` only if the file itself is not there: a missing folder is `unusable`, since
/// nothing may be repaired in it. With `unusable`, `error` holds the message; `configuration` is written only with
/// `read`.
[[nodiscard]] ConfigurationStatus ReadLauncherConfiguration(const std::wstring& path,
                                                            LauncherConfiguration& configuration, std::wstring& error);

/// Makes a lost settings file anew from the version resources of the two executables, at their fixed places. On failure
/// `error` holds the message and no file is left.
[[nodiscard]] bool RebuildLauncherConfiguration(const std::wstring& launcherDirectory, const std::wstring& launcherPath,
                                                const std::wstring& path, LauncherConfiguration& configuration,
                                                std::wstring& error);

/// The file version (not the product version) of an executable's fixed version block, as four numbers joined by dots;
/// empty on any failure ("VS_FIXEDFILEINFO structure").
[[nodiscard]] std::wstring ReadFileVersion(const std::wstring& path);

}  // namespace launcher_shell
