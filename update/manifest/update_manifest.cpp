#include "update/manifest/update_manifest.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "platform/relative_path.h"
#include "platform/text.h"
#include "platform/url.h"
#include "product/locations.h"
#include "update/manifest/json_reader.h"
#include "update/manifest/release_notes.h"
#include "update/manifest/sha256_text.h"
#include "update/manifest/version.h"

namespace launcher_update {
namespace {

using platform::EndsWithIgnoringCase;
using platform::EqualsIgnoringCase;
using platform::StartsWithIgnoringCase;

/// Why a manifest is refused; the number of the message.
enum class Fault : std::size_t {
    none,
    format,
    releaseVersion,
    fileList,
    file,
    twoPackageLists,
    packageList,
    package,
    packageVersion,
    inventory,
    inventoryFile,
};

constexpr std::array<const wchar_t*, 11> kMessages = {
    L"",
    L"更新清單格式不正確。",
    L"更新清單的版本號格式不正確。",
    L"更新清單缺少檔案列表。",
    L"更新清單包含無效或不允許的檔案。",
    L"更新清單不可同時包含兩種資源包列表。",
    L"更新清單的資源包列表格式不正確。",
    L"更新清單包含無效的資源包描述。",
    L"更新清單包含重複或版本無效的資源包。",
    L"資源包缺少有效的 inventory。",
    L"資源包 inventory 包含無效的檔案。",
};
static_assert(kMessages.size() == static_cast<std::size_t>(Fault::inventoryFile) + 1);

constexpr bool IsWithin(std::uint64_t size, std::uint64_t most) {
    return size >= 1 && size <= most;
}

bool ReadSchema(std::wstring_view text) {
    constexpr std::uint64_t kSchemaVersion = 1;
    std::uint64_t schema = 0;
    return ReadJsonUnsignedLoose(text, L"schemaVersion", schema) && schema == kSchemaVersion;
}

/// A string that may be missing, but not be something else.
bool ReadOptionalString(std::wstring_view text, std::wstring_view key, std::wstring& value) {
    std::uint64_t position = kNotFound;
    std::uint64_t next = kNotFound;
    return !FindTopLevelValue(text, key, position) || ParseJsonStringAt(text, position, value, next);
}

bool ReadHead(std::wstring_view text, UpdateManifest& manifest) {
    return ReadSchema(text) && ReadJsonString(text, L"version", manifest.version) &&
           ReadJsonString(text, L"minimumLauncherVersion", manifest.minimumLauncherVersion) &&
           ReadOptionalString(text, L"releaseNotesUrl", manifest.releaseNotesUrl);
}

/// A priority that this launcher does not know is a normal one, so that later releases may add some.
void ReadPriority(std::wstring_view text, UpdateManifest& manifest) {
    std::wstring priority;
    if (!ReadJsonString(text, L"updatePriority", priority)) return;
    if (priority == L"recommended" || priority == L"hotfix") manifest.updatePriority = std::move(priority);
}

bool ReadFile(std::wstring_view text, bool allowLocalFiles, ManifestFileEntry& entry) {
    const bool read = ReadJsonString(text, L"component", entry.component) &&
                      ReadJsonString(text, L"path", entry.path) && ReadJsonString(text, L"url", entry.url) &&
                      ReadJsonString(text, L"sha256", entry.sha256) && ReadJsonUnsignedLoose(text, L"size", entry.size);
    return read && IsWithin(entry.size, kMaxDownloadBytes) && entry.sha256.size() == kSha256HexUnits &&
           platform::IsSafeRelativePath(entry.path) && IsAllowedManifestFile(entry) &&
           IsAcceptedSourceUrl(entry.url, allowLocalFiles);
}

Fault ReadFiles(std::wstring_view text, bool allowLocalFiles, std::vector<ManifestFileEntry>& files) {
    std::uint64_t position = kNotFound;
    std::vector<std::wstring> elements;
    if (!FindTopLevelValue(text, L"files", position)) return Fault::fileList;
    if (!ExtractObjectArrayAt(text, position, elements)) return Fault::fileList;
    for (const std::wstring& element : elements) {
        ManifestFileEntry entry;
        if (!ReadFile(element, allowLocalFiles, entry)) return Fault::file;
        files.push_back(std::move(entry));
    }
    return Fault::none;
}

/// Moves the patch object out of the package's text and leaves `null` in its place. Strings inside the patch can then
/// no longer get in the way of the package's own keys. Fails if `patch` is there and no object; `patch` stays empty if
/// there is none.
bool TakePatch(std::wstring& package, std::wstring& patch) {
    std::uint64_t position = kNotFound;
    if (!FindTopLevelValue(package, L"patch", position)) return true;
    if (!ExtractObjectAt(package, position, patch)) return false;
    package.replace(position, patch.size(), L"null");
    return true;
}

bool ReadPackageKeys(std::wstring_view text, PackageDescriptor& package) {
    return ReadJsonString(text, L"id", package.id) && ReadJsonString(text, L"version", package.version) &&
           ReadJsonString(text, L"url", package.url) && ReadJsonString(text, L"sha256", package.sha256) &&
           ReadJsonUnsigned(text, L"size", package.size) &&
           ReadJsonBool(text, L"requiredForStartup", package.requiredForStartup) &&
           ReadJsonString(text, L"capability", package.capability);
}

bool IsPackageSound(const PackageDescriptor& package, bool allowLocalFiles) {
    return IsSafeIdentifier(package.id) && IsSafeIdentifier(package.capability) && IsSha256Hex(package.sha256) &&
           IsWithin(package.size, kMaxDownloadBytes) && IsAcceptedSourceUrl(package.url, allowLocalFiles);
}

bool HoldsPackage(const std::vector<PackageDescriptor>& packages, std::wstring_view id) {
    return std::any_of(packages.begin(), packages.end(),
                       [id](const PackageDescriptor& earlier) { return EqualsIgnoringCase(earlier.id, id); });
}

bool ReadInventoryFile(std::wstring_view text, PackageFileDescriptor& file) {
    const bool read = ReadJsonString(text, L"path", file.path) && ReadJsonString(text, L"sha256", file.sha256) &&
                      ReadJsonUnsigned(text, L"size", file.size);
    return read && file.path.size() <= kMaxInventoryPathUnits && file.path.find(L'\\') == std::wstring::npos &&
           platform::IsSafeRelativePath(file.path) && IsSha256Hex(file.sha256) &&
           IsWithin(file.size, kMaxInventoryFileBytes);
}

Fault ReadInventory(std::wstring_view text, std::vector<PackageFileDescriptor>& inventory) {
    std::vector<std::wstring> elements;
    if (!ExtractObjectArrayByKey(text, L"files", elements)) return Fault::inventory;
    if (elements.empty() || elements.size() > kMaxInventoryEntries) return Fault::inventory;
    std::uint64_t total = 0;
    std::set<std::wstring> seen;
    for (const std::wstring& element : elements) {
        PackageFileDescriptor file;
        if (!ReadInventoryFile(element, file)) return Fault::inventoryFile;
        total += file.size;  // cannot wrap: at most 768 sizes of at most 2^27
        if (total > kMaxPackageBytes) return Fault::inventoryFile;
        if (!seen.insert(platform::ToLower(file.path)).second) return Fault::inventoryFile;
        inventory.push_back(std::move(file));
    }
    return Fault::none;
}

bool ReadPatchKeys(std::wstring_view text, PackageDescriptor::Patch& patch) {
    return ReadJsonString(text, L"baseVersion", patch.baseVersion) && ReadJsonString(text, L"url", patch.url) &&
           ReadJsonString(text, L"sha256", patch.sha256) && ReadJsonUnsigned(text, L"size", patch.size);
}

/// A patch that is no smaller than the package would be a worse download than the package.
bool IsPatchSound(const PackageDescriptor& package, bool allowLocalFiles) {
    const PackageDescriptor::Patch& patch = package.patch;
    return IsSha256Hex(patch.sha256) && patch.size >= 1 && patch.size < package.size &&
           IsAcceptedSourceUrl(patch.url, allowLocalFiles);
}

/// A patch leaves at least one file of the package untouched.
bool ReadPatchNames(std::wstring_view text, std::size_t inventorySize, std::vector<std::wstring>& names) {
    std::uint64_t position = kNotFound;
    return FindTopLevelValue(text, L"files", position) && ParseStringArrayAt(text, position, names) && !names.empty() &&
           names.size() < inventorySize;
}

/// Copies the descriptor of each name from the inventory. Fails at a name that is not there, or there a second time.
bool ResolvePatchNames(const std::vector<std::wstring>& names, PackageDescriptor& package) {
    std::map<std::wstring_view, const PackageFileDescriptor*> remaining;
    for (const PackageFileDescriptor& file : package.inventory)
        remaining.emplace(file.path, &file);
    for (const std::wstring& name : names) {
        const auto found = remaining.find(name);
        if (found == remaining.end()) return false;
        package.patch.files.push_back(*found->second);
        remaining.erase(found);
    }
    return true;
}

Fault ReadPatch(std::wstring_view text, bool allowLocalFiles, PackageDescriptor& package) {
    std::vector<std::wstring> names;
    if (!ReadPatchKeys(text, package.patch) || !IsPatchSound(package, allowLocalFiles)) return Fault::package;
    if (!ReadPatchNames(text, package.inventory.size(), names)) return Fault::package;
    if (!IsVersion(package.patch.baseVersion)) return Fault::packageVersion;
    if (package.patch.baseVersion == package.version) return Fault::packageVersion;
    return ResolvePatchNames(names, package) ? Fault::none : Fault::inventoryFile;
}

/// Reads one element of a package list. `text` is its own copy, because the patch is cut out of it first.
Fault ReadPackage(std::wstring text, bool allowLocalFiles, std::vector<PackageDescriptor>& packages) {
    PackageDescriptor package;
    std::wstring patch;
    if (!TakePatch(text, patch)) return Fault::package;
    if (!ReadPackageKeys(text, package) || !IsPackageSound(package, allowLocalFiles)) return Fault::package;
    if (!IsVersion(package.version) || HoldsPackage(packages, package.id)) return Fault::packageVersion;
    if (const Fault fault = ReadInventory(text, package.inventory); fault != Fault::none) return fault;
    if (!patch.empty()) {
        if (const Fault fault = ReadPatch(patch, allowLocalFiles, package); fault != Fault::none) return fault;
    }
    packages.push_back(std::move(package));
    return Fault::none;
}

/// The list has two names, of which a manifest may use one. No list is a release of whole files alone.
Fault ReadPackages(std::wstring_view text, bool allowLocalFiles, std::vector<PackageDescriptor>& packages) {
    std::uint64_t newer = kNotFound;
    std::uint64_t older = kNotFound;
    const bool hasNewer = FindTopLevelValue(text, L"packagesV2", newer);
    const bool hasOlder = FindTopLevelValue(text, L"packages", older);
    if (hasNewer && hasOlder) return Fault::twoPackageLists;
    if (!hasNewer && !hasOlder) return Fault::none;
    std::vector<std::wstring> elements;
    if (!ExtractObjectArrayAt(text, hasNewer ? newer : older, elements)) return Fault::packageList;
    if (elements.size() > kMaxPackages) return Fault::packageList;
    for (std::wstring& element : elements) {
        const Fault fault = ReadPackage(std::move(element), allowLocalFiles, packages);
        if (fault != Fault::none) return fault;
    }
    return Fault::none;
}

/// The order decides which message a manifest with several faults gets.
Fault ReadManifest(std::wstring_view text, bool allowLocalFiles, UpdateManifest& manifest) {
    if (!ReadHead(text, manifest)) return Fault::format;
    if (!IsVersion(manifest.version)) return Fault::releaseVersion;
    ReadPriority(text, manifest);
    ParseReleaseNotes(text, manifest);
    if (const Fault fault = ReadFiles(text, allowLocalFiles, manifest.files); fault != Fault::none) return fault;
    return ReadPackages(text, allowLocalFiles, manifest.packages);
}

/// The empty text counts as relative.
bool IsAbsolutePathInOneLine(std::wstring_view text) {
    return !platform::PathIsRelative(text) && text.find_first_of(L"\r\n") == std::wstring_view::npos;
}

/// Takes `prefix` off the front, ignoring case.
bool TakePrefix(std::wstring_view& rest, std::wstring_view prefix) {
    if (!StartsWithIgnoringCase(rest, prefix)) return false;
    rest.remove_prefix(prefix.size());
    return true;
}

bool IsReadingRuntimeFile(std::wstring_view name) {
    constexpr std::array<std::wstring_view, 4> kNames = {L"aromanize.js", L"LICENSE-aromanize.txt",
                                                         L"lyrics-reading-engine.js", L"runtime-version.txt"};
    return std::any_of(kNames.begin(), kNames.end(),
                       [name](std::wstring_view known) { return EqualsIgnoringCase(name, known); });
}

bool IsThemeFile(std::wstring_view name) {
    constexpr std::wstring_view kExtension = L".vprtheme";
    return name.find(L'\\') == std::wstring_view::npos && name.size() > kExtension.size() &&
           EndsWithIgnoringCase(name, kExtension);
}

}  // namespace

bool ParseUpdateManifest(std::wstring_view text, UpdateManifest& manifest, std::wstring& error, bool allowLocalFiles) {
    manifest = UpdateManifest{};
    const Fault fault = ReadManifest(text, allowLocalFiles, manifest);
    if (fault == Fault::none) return true;
    error = kMessages[static_cast<std::size_t>(fault)];
    return false;
}

bool IsAcceptedSourceUrl(std::wstring_view url, bool allowLocalFiles) {
    if (url.find(L'\0') != std::wstring_view::npos) return false;
    platform::UrlParts parts;  // an empty host is refused by the splitting
    if (platform::SplitUrl(url, parts) && parts.https && !parts.path.empty()) return true;
    return allowLocalFiles && IsAbsolutePathInOneLine(url);
}

bool IsAllowedManifestFile(const ManifestFileEntry& entry) {
    const std::wstring path = platform::WithBackslashes(entry.path);
    std::wstring_view rest = path;
    if (!TakePrefix(rest, product::kApplicationDirectory) || !TakePrefix(rest, L"\\")) return false;
    if (EqualsIgnoringCase(rest, product::kApplicationExecutable)) return entry.component == L"application";
    if (TakePrefix(rest, L"JapaneseReading\\")) {
        return entry.component == L"reading-runtime" && IsReadingRuntimeFile(rest);
    }
    if (TakePrefix(rest, L"Themes\\")) return entry.component == L"theme" && IsThemeFile(rest);
    return false;
}

bool IsSafeIdentifier(std::wstring_view text) {
    if (text.empty() || text.size() > kMaxIdentifierUnits) return false;
    if (text.front() == L'-' || text.back() == L'-') return false;
    return std::all_of(text.begin(), text.end(), [](wchar_t unit) {
        return (unit >= L'a' && unit <= L'z') || (unit >= L'0' && unit <= L'9') || unit == L'-';
    });
}

}  // namespace launcher_update
