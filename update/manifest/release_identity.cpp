#include "update/manifest/release_identity.h"

#include <algorithm>
#include <utility>

#include "product/locations.h"
#include "update/manifest/version.h"

namespace launcher_update {
namespace {

/// Builds the canonical text; one call is one line.
class IdentityText {
  public:
    void Line(std::wstring_view value) { text_.append(value).push_back(L'\n'); }
    void Line(std::uint64_t value) { Line(std::to_wstring(value)); }

    void File(const PackageFileDescriptor& file) {
        Line(file.path);
        Line(file.sha256);
        Line(file.size);
    }

    void Entry(const ManifestFileEntry& entry) {
        Line(entry.component);
        Line(entry.path);
        Line(entry.sha256);
        Line(entry.size);
    }

    void Patch(const PackageDescriptor::Patch& patch) {
        Line(patch.baseVersion);
        Line(patch.sha256);
        Line(patch.size);
        for (const PackageFileDescriptor& file : patch.files)
            File(file);
    }

    void Package(const PackageDescriptor& package) {
        Line(package.id);
        Line(package.version);
        Line(package.sha256);
        Line(package.size);
        Line(package.capability);
        Line(package.requiredForStartup ? L"required" : L"optional");
        for (const PackageFileDescriptor& file : package.inventory)
            File(file);
        Patch(package.patch);
    }

    [[nodiscard]] std::wstring Take() { return std::move(text_); }

  private:
    std::wstring text_;
};

struct Watermark {
    std::wstring_view version;
    std::wstring_view identity;
};

Watermark SplitWatermark(std::wstring_view text) {
    const std::size_t lineFeed = text.find(L'\n');
    if (lineFeed == std::wstring_view::npos) return {text, {}};
    return {text.substr(0, lineFeed), text.substr(lineFeed + 1)};
}

/// How the release stands to the record. `comparable` is false if either version does not parse.
struct Standing {
    bool comparable = false;
    int order = 0;  // -1 if the release is older, 1 if it is newer
    bool otherContent = false;
};

/// Older, or the same version with another content: what only the primary source may publish.
bool IsRollback(const Standing& standing) {
    return standing.comparable && (standing.order < 0 || (standing.order == 0 && standing.otherContent));
}

}  // namespace

std::wstring ReleaseIdentityText(const UpdateManifest& manifest) {
    IdentityText text;
    text.Line(manifest.version);
    text.Line(manifest.minimumLauncherVersion);
    for (const ManifestFileEntry& entry : manifest.files)
        text.Entry(entry);
    for (const PackageDescriptor& package : manifest.packages)
        text.Package(package);
    return text.Take();
}

bool IsBackupReleaseUrl(std::wstring_view url) {
    return url.starts_with(product::kBackupReleasePrefix);
}

bool PointsOnlyAtBackup(const UpdateManifest& manifest) {
    const auto fileIsOnBackup = [](const ManifestFileEntry& entry) { return IsBackupReleaseUrl(entry.url); };
    const auto packageIsOnBackup = [](const PackageDescriptor& package) {
        return IsBackupReleaseUrl(package.url) && (package.patch.url.empty() || IsBackupReleaseUrl(package.patch.url));
    };
    return std::all_of(manifest.files.begin(), manifest.files.end(), fileIsOnBackup) &&
           std::all_of(manifest.packages.begin(), manifest.packages.end(), packageIsOnBackup);
}

WatermarkDecision JudgeReleaseWatermark(std::wstring_view watermark, std::wstring_view version,
                                        std::wstring_view identity, bool fromBackup) {
    const Watermark seen = SplitWatermark(watermark);
    Standing standing;
    if (!seen.version.empty()) standing.order = CompareVersions(version, seen.version, standing.comparable);
    standing.otherContent = !seen.identity.empty() && seen.identity != identity;

    using Action = WatermarkDecision::Action;
    if (fromBackup && IsRollback(standing)) return {Action::refuse, {}};
    const bool raises = seen.version.empty() || (standing.comparable && standing.order >= 0);
    if (!raises) return {Action::leave, {}};
    std::wstring raised(version);
    raised.append(L"\n").append(identity);
    return {Action::write, std::move(raised)};
}

}  // namespace launcher_update
