#pragma once

/// The rules of an accepted manifest, written down a second time and on their own: tests that throw broken documents at
/// the parser hold whatever it lets through against these. Nothing here calls the code under test.

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "update/manifest/update_manifest.h"

namespace test_support {

inline std::wstring Lowered(std::wstring_view text) {
    std::wstring lowered;
    for (const wchar_t unit : text) {
        const bool upper = unit >= L'A' && unit <= L'Z';
        lowered.push_back(upper ? static_cast<wchar_t>(unit + 32) : unit);
    }
    return lowered;
}

inline std::vector<std::wstring> Pieces(std::wstring_view text, std::wstring_view separators) {
    std::vector<std::wstring> pieces(1);
    for (const wchar_t unit : text) {
        if (separators.find(unit) != std::wstring_view::npos) {
            pieces.emplace_back();
        } else {
            pieces.back().push_back(unit);
        }
    }
    return pieces;
}

inline bool HoldsOnly(std::wstring_view text, std::wstring_view allowed) {
    return text.find_first_not_of(allowed) == std::wstring_view::npos;
}

inline bool ObeysVersionRule(std::wstring_view text) {
    const auto parts = Pieces(text, L".");
    return parts.size() == 4 && std::all_of(parts.begin(), parts.end(), [](const std::wstring& part) {
               if (part.empty() || !HoldsOnly(part, L"0123456789")) return false;
               const std::wstring digits = part.substr(std::min(part.find_first_not_of(L'0'), part.size()));
               return digits.size() < 5 || (digits.size() == 5 && digits <= L"65535");
           });
}

inline bool ObeysPathRule(std::wstring_view path) {
    const auto pieces = Pieces(path, L"/\\");
    return path.find(L':') == std::wstring_view::npos && path.find(L'\0') == std::wstring_view::npos &&
           std::none_of(pieces.begin(), pieces.end(),
                        [](const std::wstring& piece) { return piece.empty() || piece == L"." || piece == L".."; });
}

inline bool ObeysUrlRule(std::wstring_view url) {
    if (Lowered(url.substr(0, 8)) != L"https://" || url.find(L'\0') != std::wstring_view::npos) return false;
    const std::wstring_view rest = url.substr(8);
    const std::size_t end = rest.find_first_of(L"/?#");
    return end != std::wstring_view::npos && end > 0 && rest[end] == L'/';
}

inline bool ObeysDigestRule(std::wstring_view text) {
    return text.size() == 64 && HoldsOnly(text, L"0123456789abcdefABCDEF");
}

inline bool ObeysIdentifierRule(std::wstring_view text) {
    return !text.empty() && text.size() <= 64 && HoldsOnly(text, L"abcdefghijklmnopqrstuvwxyz0123456789-") &&
           text.front() != L'-' && text.back() != L'-';
}

inline bool ObeysTargetRule(const launcher_update::ManifestFileEntry& file) {
    const auto pieces = Pieces(Lowered(file.path), L"/\\");
    if (pieces.front() != L"velmora pine relay") return false;
    if (pieces.size() == 2) return pieces[1] == L"velmora pine relay.exe" && file.component == L"application";
    if (pieces.size() != 3) return false;
    if (pieces[1] == L"themes") {
        return file.component == L"theme" && pieces[2].size() > 9 &&
               pieces[2].substr(pieces[2].size() - 9) == L".vprtheme";
    }
    const std::set<std::wstring> runtime = {L"aromanize.js", L"license-aromanize.txt", L"lyrics-reading-engine.js",
                                            L"runtime-version.txt"};
    return pieces[1] == L"japanesereading" && file.component == L"reading-runtime" && runtime.count(pieces[2]) == 1;
}

inline std::string BrokenFileRule(const launcher_update::ManifestFileEntry& file) {
    if (file.size < 1 || file.size > 536870912) return "file size";
    if (file.sha256.size() != 64) return "file digest";
    if (!ObeysPathRule(file.path)) return "file path";
    if (!ObeysTargetRule(file)) return "file target";
    if (!ObeysUrlRule(file.url)) return "file url";
    return {};
}

inline std::string BrokenInventoryRule(const std::vector<launcher_update::PackageFileDescriptor>& inventory) {
    if (inventory.empty() || inventory.size() > 768) return "inventory length";
    std::uint64_t total = 0;
    std::set<std::wstring> names;
    for (const auto& file : inventory) {
        if (file.path.size() > 260 || file.path.find(L'\\') != std::wstring::npos || !ObeysPathRule(file.path)) {
            return "inventory path";
        }
        if (!ObeysDigestRule(file.sha256)) return "inventory digest";
        if (file.size < 1 || file.size > 134217728) return "inventory size";
        if (!names.insert(Lowered(file.path)).second) return "inventory duplicate";
        total += file.size;
    }
    return total > 402653184 ? "inventory total" : "";
}

inline std::string BrokenPatchRule(const launcher_update::PackageDescriptor& package) {
    const auto& patch = package.patch;
    if (patch.files.empty()) return patch == launcher_update::PackageDescriptor::Patch{} ? "" : "patch leftovers";
    if (!ObeysVersionRule(patch.baseVersion) || patch.baseVersion == package.version) return "patch base";
    if (!ObeysUrlRule(patch.url)) return "patch url";
    if (!ObeysDigestRule(patch.sha256)) return "patch digest";
    if (patch.size < 1 || patch.size >= package.size) return "patch size";
    if (patch.files.size() >= package.inventory.size()) return "patch length";
    std::set<std::wstring> names;
    for (const auto& file : patch.files) {
        if (std::find(package.inventory.begin(), package.inventory.end(), file) == package.inventory.end()) {
            return "patch file not in the inventory";
        }
        if (!names.insert(file.path).second) return "patch duplicate";
    }
    return {};
}

inline std::string BrokenPackageRule(const launcher_update::PackageDescriptor& package) {
    if (!ObeysIdentifierRule(package.id)) return "package id";
    if (!ObeysIdentifierRule(package.capability)) return "package capability";
    if (!ObeysVersionRule(package.version)) return "package version";
    if (!ObeysUrlRule(package.url)) return "package url";
    if (!ObeysDigestRule(package.sha256)) return "package digest";
    if (package.size < 1 || package.size > 536870912) return "package size";
    if (std::string broken = BrokenInventoryRule(package.inventory); !broken.empty()) return broken;
    return BrokenPatchRule(package);
}

inline bool ObeysNoteLineRule(const std::wstring& line) {
    return !line.empty() && line.size() <= 500 &&
           std::none_of(line.begin(), line.end(), [](wchar_t unit) { return unit < 0x20 && unit != 0x09; });
}

inline std::string BrokenNotesRule(const launcher_update::UpdateManifest& manifest) {
    const std::set<std::wstring> priorities = {L"normal", L"recommended", L"hotfix"};
    if (priorities.count(manifest.updatePriority) == 0) return "priority";
    if (manifest.localizations.size() > 8) return "localizations";
    if (manifest.localizations.empty() && !manifest.defaultLocale.empty()) return "default locale of no notes";
    std::set<std::wstring> locales;
    for (const auto& entry : manifest.localizations) {
        if (entry.locale.empty() || entry.locale.size() > 16 || !locales.insert(Lowered(entry.locale)).second)
            return "locale";
        std::set<std::wstring> lines(entry.highlights.begin(), entry.highlights.end());
        lines.insert(entry.summary);
        if (!std::all_of(lines.begin(), lines.end(), ObeysNoteLineRule)) return "note line";
        if (entry.highlights.empty() || entry.highlights.size() > 12) return "highlights";
        if (entry.emphasizedItems.size() > 13) return "emphasis length";
        for (const auto& item : entry.emphasizedItems) {
            if (lines.count(item) == 0) return "emphasis of no line";
        }
    }
    return {};
}

/// The name of the first rule that an accepted manifest of HTTPS sources breaks, or an empty text.
inline std::string BrokenRule(const launcher_update::UpdateManifest& manifest) {
    if (!ObeysVersionRule(manifest.version)) return "version";
    if (std::string broken = BrokenNotesRule(manifest); !broken.empty()) return broken;
    for (const auto& file : manifest.files) {
        if (std::string broken = BrokenFileRule(file); !broken.empty()) return broken;
    }
    if (manifest.packages.size() > 16) return "package count";
    std::set<std::wstring> ids;
    for (const auto& package : manifest.packages) {
        if (std::string broken = BrokenPackageRule(package); !broken.empty()) return broken;
        if (!ids.insert(Lowered(package.id)).second) return "package duplicate";
    }
    return {};
}

}  // namespace test_support
