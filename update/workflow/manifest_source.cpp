#include "update/workflow/manifest_source.h"

#include "update/manifest/json_reader.h"
#include "update/manifest/metadata_fetch.h"

namespace launcher_update {
namespace {

constexpr int kAttemptsPerSource = 2;

bool TryOnce(UpdateRun& run, const std::wstring& source, std::wstring& error) {
    run.manifest = UpdateManifest{};
    run.manifestBytes.clear();
    error.clear();
    std::wstring text;
    return FetchBytes(source, run.verificationMode, kMaxManifestBytes, run.manifestBytes, error, {},
                      run.settings.shouldCancel) &&
           DecodeUtf8Document(run.manifestBytes, text) &&
           ParseUpdateManifest(text, run.manifest, error, run.verificationMode);
}

ManifestReading TrySource(UpdateRun& run, const std::wstring& source, std::wstring& error) {
    const int attempts = run.verificationMode ? 1 : kAttemptsPerSource;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (CancelRequested(run.settings)) return ManifestReading::cancelled;
        if (TryOnce(run, source, error)) return ManifestReading::read;
    }
    // A cancel inside a fetch reads as any other failure there; only the user's own flag tells them apart.
    return CancelRequested(run.settings) ? ManifestReading::cancelled : ManifestReading::failed;
}

void ReportSwitchToBackup(const Settings& settings) {
    if (!settings.onDownloadProgress) return;
    launcher_download::Progress progress;
    progress.phase = launcher_download::Phase::switchingSource;
    progress.backup = true;
    settings.onDownloadProgress(progress);
}

}  // namespace

ManifestReading ReadManifest(UpdateRun& run, std::wstring& error) {
    const ManifestReading primary = TrySource(run, run.manifestUrl, error);
    if (primary != ManifestReading::failed || run.backupManifestUrl.empty()) return primary;
    ReportSwitchToBackup(run.settings);
    run.fromBackup = true;
    return TrySource(run, run.backupManifestUrl, error);
}

}  // namespace launcher_update
