#pragma once

/// What the update workflow is given, what it reports and what it gives back. Plain records.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "download/request.h"
#include "update/manifest/release_notes.h"

namespace launcher_update {

/// Progress stages. The numbers are part of the traces.
enum class Stage : std::uint32_t {
    Checking = 0,
    Skipped = 1,
    UpToDate = 2,
    UpdateAvailable = 3,
    Repairing = 4,
    Declined = 5,
    Downloading = 6,       // one payload begins; counters are item index and count
    DownloadingBytes = 7,  // counters are bytes
    Verifying = 8,         // counters are bytes
    Installing = 9,
    Completed = 10,
    Cancelled = 11,
    Failed = 12,  // detail holds the message
    CheckingFiles = 13,
    VerifyingFiles = 14,  // installed files are hashed; counters are bytes
};

/// A stage's detail that begins so names a package by its id; any other names a file, a version or a message.
inline constexpr std::wstring_view kPackageDetailPrefix = L"package:";

enum class Outcome : std::uint32_t {
    Skipped = 0,
    UpToDate = 1,
    Declined = 2,
    Cancelled = 3,
    Applied = 4,
    LauncherTooOld = 5,
    Failed = 6,
};

/// How a run ended. `safeToLaunch` is false only when the installed tree may be mixed or another launcher is at work
/// on it: every other failure lets the installed version start.
struct Result {
    Outcome outcome = Outcome::Skipped;
    bool safeToLaunch = true;
    std::wstring version;  // of the release, once known
    ReleaseNotes notes;
    std::wstring error;
};

/// Input of a run. Every function object may be empty, is called on the worker's thread and may block.
struct Settings {
    std::wstring productVersion;
    std::wstring launcherVersion;
    std::wstring applicationDirectory;
    std::wstring updateManifestUrl;
    std::wstring language = L"en";
    std::int32_t updateCheckIntervalMinutes = 15;
    std::function<void(Stage, const std::wstring& detail, std::uint64_t completed, std::uint64_t total)> onStage;
    std::function<bool(const std::wstring& version, const ReleaseNotes&)> promptForUpdate;
    std::function<bool()> shouldCancel;
    std::function<bool()> shouldReconnect;
    std::function<void(const launcher_download::Progress&)> onDownloadProgress;
    std::shared_ptr<launcher_download::SourceSession> sourceSession;  // set by the workflow
    std::function<void(std::uint64_t)> onFileApplied;                 // count of files applied so far
    std::wstring backupManifestUrlOverride;                           // verification mode only
};

/// Reports a stage, if anybody listens.
inline void NotifyStage(const Settings& settings, Stage stage, const std::wstring& detail, std::uint64_t completed,
                        std::uint64_t total) {
    if (settings.onStage) settings.onStage(stage, detail, completed, total);
}

/// Whether the user wants the run stopped.
[[nodiscard]] inline bool CancelRequested(const Settings& settings) {
    return settings.shouldCancel && settings.shouldCancel();
}

}  // namespace launcher_update
