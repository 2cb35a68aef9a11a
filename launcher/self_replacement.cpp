#include "launcher/self_replacement.h"

#include <windows.h>

#include <optional>

#include "launcher/configuration.h"
#include "launcher/full_path.h"
#include "platform/text.h"
#include "product/locations.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/file_hashing.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/manifest/sha256_text.h"
#include "update/workflow/settings_file.h"

namespace launcher_shell {
namespace {

using platform::EqualsIgnoringCase;

constexpr int kMoveAttempts = 300;
constexpr DWORD kMovePauseMs = 100;  // 300 of these: half a minute for the old launcher to end

struct Replacement {
    std::wstring selfPath;
    std::wstring targetPath;
    std::wstring configurationPath;
    std::wstring version;
    std::wstring sha256;
    std::wstring selfFolder;
    std::wstring targetFolder;

    [[nodiscard]] std::wstring BackupPath() const { return selfFolder + L"\\launcher-backup.exe"; }
    [[nodiscard]] std::wstring ReplacementPath() const { return selfFolder + L"\\launcher-replacement.exe"; }
};

/// A step's answer: nothing to go on, or the exit code.
using ExitWith = std::optional<ReplacementExit>;
constexpr std::nullopt_t kGoOn = std::nullopt;

bool MakePathsFull(Replacement& run) {
    const auto makeFull = [](std::wstring& path) {
        std::wstring full;
        if (!FullPath(path, full)) return false;
        path = full;
        return true;
    };
    return makeFull(run.selfPath) && makeFull(run.targetPath) && makeFull(run.configurationPath);
}

bool NameIs(const std::wstring& path, std::wstring_view name) {
    return EqualsIgnoringCase(platform::LastPathComponent(path), name);
}

ExitWith CheckArguments(Replacement& run) {
    if (!MakePathsFull(run)) return kReplacementRefused;
    run.selfFolder = platform::ParentPath(run.selfPath).value_or(L"");
    run.targetFolder = platform::ParentPath(run.targetPath).value_or(L"");
    const std::wstring configurationFolder = platform::ParentPath(run.configurationPath).value_or(L"");
    const bool accepted =
        !EqualsIgnoringCase(run.selfPath, run.targetPath) && NameIs(run.targetPath, product::kApplicationExecutable) &&
        NameIs(run.configurationPath, L"current.json") && EqualsIgnoringCase(run.targetFolder, configurationFolder) &&
        IsDottedVersion(run.version) && launcher_update::IsSha256Hex(run.sha256);
    return accepted ? kGoOn : ExitWith(kReplacementRefused);
}

ExitWith CheckOwnFolder(Replacement& run) {
    const std::wstring expected = run.targetFolder + L'\\' + product::kApplicationDirectory + L"\\Updater";
    return EqualsIgnoringCase(run.selfFolder, expected) ? kGoOn : ExitWith(kNotInUpdaterFolder);
}

ExitWith CheckConfiguration(Replacement& run) {
    LauncherConfiguration configuration;
    std::wstring error;
    const auto status = ReadLauncherConfiguration(run.configurationPath, configuration, error);
    const bool ours = status == ConfigurationStatus::read &&
                      configuration.applicationDirectory == product::kApplicationDirectory &&
                      configuration.applicationExecutable == product::kApplicationExecutable;
    return ours ? kGoOn : ExitWith(kForeignConfiguration);
}

bool HasAnnouncedDigest(const Replacement& run, const std::wstring& path) {
    std::wstring digest;
    return launcher_update::Sha256OfFile(path, digest) && EqualsIgnoringCase(digest, run.sha256);
}

ExitWith CheckSelf(Replacement& run) {
    const bool announced =
        HasAnnouncedDigest(run, run.selfPath) && EqualsIgnoringCase(ReadFileVersion(run.selfPath), run.version);
    return announced ? kGoOn : ExitWith(kNotTheAnnouncedLauncher);
}

/// Whatever its attributes: a read-only file would stay, and stand in the way of the next copy.
void Delete(const std::wstring& path) {
    const std::wstring longPath = launcher_update::ToLongPath(path);
    if (DeleteFileW(longPath.c_str())) return;
    const std::uint32_t attributes = launcher_update::LookAt(path).attributes;
    if (!launcher_update::IsPlainFile(attributes) || (attributes & FILE_ATTRIBUTE_READONLY) == 0) return;
    if (SetFileAttributesW(longPath.c_str(), FILE_ATTRIBUTE_NORMAL)) DeleteFileW(longPath.c_str());
}

/// Forced out, since it is renamed over a launcher soon and a power cut must not leave an empty one.
bool Copy(const std::wstring& source, const std::wstring& destination) {
    Delete(destination);
    return CopyFileW(launcher_update::ToLongPath(source).c_str(), launcher_update::ToLongPath(destination).c_str(),
                     FALSE) &&
           launcher_update::ForceCopyOut(destination);
}

ExitWith LeaveWithoutReplacement(const Replacement& run, ReplacementExit code) {
    Delete(run.ReplacementPath());
    return code;
}

ExitWith MakeCopies(Replacement& run) {
    Delete(run.ReplacementPath());  // of a run that was killed
    if (Copy(run.targetPath, run.BackupPath()) && Copy(run.selfPath, run.ReplacementPath())) return kGoOn;
    return LeaveWithoutReplacement(run, kReplacementNotCopied);
}

ExitWith VerifyCopy(Replacement& run) {
    if (HasAnnouncedDigest(run, run.ReplacementPath())) return kGoOn;
    return LeaveWithoutReplacement(run, kReplacementCopyDiffers);
}

bool MoveOverTarget(const Replacement& run) {
    return MoveFileExW(launcher_update::ToLongPath(run.ReplacementPath()).c_str(),
                       launcher_update::ToLongPath(run.targetPath).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
}

/// A program that still runs keeps its file; its end raises no event that a stranger could await, so it is asked again.
ExitWith MoveIntoPlace(Replacement& run) {
    for (int attempt = 1; attempt <= kMoveAttempts; ++attempt) {
        if (MoveOverTarget(run)) return kGoOn;
        Sleep(kMovePauseMs);
    }
    return LeaveWithoutReplacement(run, kTargetStayedLocked);
}

bool UpdateLauncherVersion(const std::wstring& configurationPath, const std::wstring& version) {
    const auto replace = [&version](std::wstring_view text, std::wstring& replaced) {
        return ReplaceLauncherVersion(text, version, replaced);
    };
    return launcher_update::RewriteSettings(configurationPath, replace, launcher_update::WriteLauncherFileAtomically);
}

/// By way of a copy and a rename: copying over the launcher itself could leave half of one.
void PutOldLauncherBack(const Replacement& run) {
    if (!Copy(run.BackupPath(), run.ReplacementPath()) || !MoveOverTarget(run)) Delete(run.ReplacementPath());
}

ExitWith Confirm(Replacement& run) {
    if (HasAnnouncedDigest(run, run.targetPath) && UpdateLauncherVersion(run.configurationPath, run.version)) {
        Delete(run.BackupPath());
        return kReplaced;
    }
    PutOldLauncherBack(run);
    return kReplacementNotConfirmed;
}

}  // namespace

int ReplaceLauncher(const std::wstring& selfPath, const LauncherReplacement& replacement) {
    constexpr ExitWith (*kSteps[])(Replacement&) = {
        CheckArguments, CheckOwnFolder, CheckConfiguration, CheckSelf,  // nothing is changed up to here
        MakeCopies,     VerifyCopy,     MoveIntoPlace,      Confirm,
    };
    Replacement run;
    run.selfPath = selfPath;
    run.targetPath = replacement.targetPath;
    run.configurationPath = replacement.configurationPath;
    run.version = replacement.version;
    run.sha256 = replacement.sha256;
    for (const auto step : kSteps) {
        if (const ExitWith code = step(run)) return *code;
    }
    return kReplaced;
}

}  // namespace launcher_shell
