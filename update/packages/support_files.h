#pragma once

/// The files of the package "application-runtime" that must also stand at the top of the application's folder: helper
/// programs and licence texts. A transaction that installs the package covers them. Pure; any thread.

#include <span>
#include <string_view>

namespace launcher_update {

inline constexpr std::wstring_view kApplicationRuntimePackage = L"application-runtime";

/// The compiled list, relative paths with forward slashes.
[[nodiscard]] std::span<const std::wstring_view> ApplicationRuntimeSupportFiles();

/// Membership in the list, ignoring case.
[[nodiscard]] bool IsApplicationRuntimeSupportFile(std::wstring_view path);

}  // namespace launcher_update
