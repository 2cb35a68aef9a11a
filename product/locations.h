#pragma once

/// Where this product's releases live. Everything is fixed when the launcher is built; no setting can move it.

#include <string_view>

#include "product/build_constants.h"

namespace product {

inline constexpr std::wstring_view kPrimaryReleaseHost = VPR_PRIMARY_RELEASE_HOST;
inline constexpr std::wstring_view kBackupHost = VPR_BACKUP_HOST;

inline constexpr wchar_t kPrimaryManifestUrl[] =
    L"https://" VPR_PRIMARY_MANIFEST_HOST L"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/master/updates/stable.json";
inline constexpr wchar_t kBackupManifestUrl[] = L"https://" VPR_BACKUP_HOST L"/updates/stable.json";

/// Every release of the primary host lies under this prefix, as `<tag>/<file>`; compared literally.
inline constexpr std::wstring_view kPrimaryReleasePrefix =
    L"https://" VPR_PRIMARY_RELEASE_HOST L"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/releases/download/";

/// Every payload of the backup host lies under this prefix, which is compared literally: scheme, host and folder.
inline constexpr std::wstring_view kBackupReleasePrefix = L"https://" VPR_BACKUP_HOST L"/releases/";

inline constexpr wchar_t kProductName[] = L"Velmora Pine Relay";
inline constexpr wchar_t kApplicationDirectory[] = L"Velmora Pine Relay";
inline constexpr wchar_t kApplicationExecutable[] = L"Velmora Pine Relay.exe";

}  // namespace product
