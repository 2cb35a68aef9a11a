#include "download/mirror.h"

#include <windows.h>

#include <system_error>
#include <thread>
#include <utility>

#include "download/cache.h"
#include "download/cache_file.h"
#include "download/failures.h"
#include "download/payload_hash.h"
#include "download/probe.h"
#include "download/source_rules.h"
#include "download/transfer.h"
#include "platform/unique_handle.h"

namespace launcher_download {
namespace {

// Values of `SourceSession::preference`.
constexpr std::int32_t kNoPreference = 0;
constexpr std::int32_t kPrimaryPreferred = 1;
constexpr std::int32_t kBackupPreferred = 2;

Result EndedWith(const wchar_t* reason) {
    Result result;
    result.reason = reason;
    result.canceled = reason == refusals::kCancelled;
    return result;
}

bool Cancelled(const Callbacks& callbacks) {
    return callbacks.cancelled && callbacks.cancelled();
}

void Deliver(const Callbacks& callbacks, const Progress& progress) {
    if (callbacks.progress) callbacks.progress(progress);
}

/// One payload with its two sources. Lives within `withMirror`, on its thread.
class MirroredDownload {
  public:
    MirroredDownload(const Request& request, const Callbacks& callbacks, bool allowLoopback)
        : primary_(request), backup_(request), callbacks_(callbacks), allowLoopback_(allowLoopback) {
        backup_.url = primary_.backupUrl;
        backup_.backupUrl.clear();
        backup_.backupSource = true;
        // Bytes of one source never continue those of the other.
        primary_.cacheDirectory += L"\\github";
        backup_.cacheDirectory += L"\\r2";
    }

    [[nodiscard]] Result Run();

  private:
    [[nodiscard]] bool PrepareDirectories();
    [[nodiscard]] bool ServeFromCache(const Request& source, Result& result) const;
    [[nodiscard]] bool ChooseBackup();
    [[nodiscard]] bool CompareAtStart();
    [[nodiscard]] Probe Measure(const std::wstring& url) const;
    [[nodiscard]] Result BackupFirst();
    [[nodiscard]] Result PrimaryFirst();
    [[nodiscard]] Result RunFirst(const Request& source);
    [[nodiscard]] Result RunSecond(const Request& source) const;
    [[nodiscard]] bool MaySwitch(const Result& result) const;
    void ReportSwitch(bool toBackup, bool slow);

    [[nodiscard]] std::int32_t Preference() const {
        return primary_.session ? primary_.session->preference : kNoPreference;
    }
    void Prefer(std::int32_t preference) const {
        if (primary_.session) primary_.session->preference = preference;
    }

    Request primary_;
    Request backup_;
    const Callbacks& callbacks_;
    const bool allowLoopback_;
    std::uint64_t comparisonBytes_ = 0;  // taken by the comparison at the start
    Progress last_;                      // what the first source told last
};

/// The order of a download with two sources.
Result MirroredDownload::Run() {
    if (Cancelled(callbacks_)) return EndedWith(refusals::kCancelled);
    if (!PrepareDirectories()) return EndedWith(refusals::kUnsafeOrFullCache);
    for (const Request* source : {&primary_, &backup_}) {
        Result cached;
        if (ServeFromCache(*source, cached)) return cached;
        if (Cancelled(callbacks_)) return EndedWith(refusals::kCancelled);
    }
    const bool backupFirst = ChooseBackup();
    if (Cancelled(callbacks_)) return EndedWith(refusals::kCancelled);
    return backupFirst ? BackupFirst() : PrimaryFirst();
}

bool MirroredDownload::PrepareDirectories() {
    std::wstring normalised;
    for (Request* source : {&primary_, &backup_}) {
        if (!PrepareSafeDirectory(source->cacheDirectory, normalised)) return false;
        source->cacheDirectory = normalised;
    }
    return true;
}

/// A complete copy of either source is the payload, whichever source would be preferred.
bool MirroredDownload::ServeFromCache(const Request& source, Result& result) const {
    std::wstring path = CachePath(source.cacheDirectory, source.sha256 + L".part");
    const platform::FileHandle file = OpenExistingCacheFile(path);
    std::uint64_t length = 0;
    if (!file || !ReadLength(file.Get(), length) || length != source.size) return false;
    if (HashFileOrBuffer(nullptr, 0, file.Get(), callbacks_) != source.sha256) return false;
    Progress progress;
    progress.phase = Phase::cached;
    progress.bytes = source.size;
    progress.total = source.size;
    progress.backup = source.backupSource;
    Deliver(callbacks_, progress);
    result.success = true;
    result.path = std::move(path);
    return true;
}

bool MirroredDownload::ChooseBackup() {
    if (primary_.compareAtStart && Preference() == kNoPreference) return CompareAtStart();
    return Preference() == kBackupPreferred;
}

bool MirroredDownload::CompareAtStart() {
    Progress progress;
    progress.phase = Phase::comparingSource;
    progress.total = primary_.size;
    Deliver(callbacks_, progress);
    // At the same time, so that neither is measured under better conditions.
    Probe ofPrimary;
    const auto measurePrimary = [this, &ofPrimary] { ofPrimary = Measure(primary_.url); };
    std::thread second;
    try {
        second = std::thread(measurePrimary);
    } catch (const std::system_error&) {
        measurePrimary();  // one after the other is better than not at all
    }
    const Probe ofBackup = Measure(primary_.backupUrl);
    if (second.joinable()) second.join();
    comparisonBytes_ = ofPrimary.bytes + ofBackup.bytes;
    return BackupWinsAtStart(ofPrimary.bytesPerSecond, ofBackup.bytesPerSecond);
}

Probe MirroredDownload::Measure(const std::wstring& url) const {
    Request request = primary_;
    request.backupUrl = url;
    return compareBackup(request, callbacks_, allowLoopback_, kStartProbe);
}

Result MirroredDownload::BackupFirst() {
    Result result = RunFirst(backup_);
    if (result.success) Prefer(kBackupPreferred);
    if (!MaySwitch(result)) return result;
    Prefer(kPrimaryPreferred);
    primary_.backupUrl.clear();  // the backup has failed already: there is nothing to compare with
    ReportSwitch(false, false);
    return RunSecond(primary_);
}

Result MirroredDownload::PrimaryFirst() {
    Result result = RunFirst(primary_);
    if (result.success) Prefer(kPrimaryPreferred);
    if (!MaySwitch(result)) return result;
    ReportSwitch(true, result.reason == failures::kBackupMeasuredFaster.reason);
    result = RunSecond(backup_);
    if (result.success) Prefer(kBackupPreferred);
    return result;
}

/// Runs the source that comes first. Its failure is not shown as one: what follows is told instead.
Result MirroredDownload::RunFirst(const Request& source) {
    last_.total = source.size;
    last_.networkBytes = comparisonBytes_;
    Callbacks wrapped = callbacks_;
    wrapped.progress = [this](const Progress& progress) {
        last_ = progress;
        last_.networkBytes += comparisonBytes_;
        if (progress.phase != Phase::failed) Deliver(callbacks_, last_);
    };
    return run(source, wrapped, allowLoopback_);
}

Result MirroredDownload::RunSecond(const Request& source) const {
    Callbacks wrapped = callbacks_;
    wrapped.progress = [this](Progress progress) {
        progress.networkBytes += last_.networkBytes;
        Deliver(callbacks_, progress);
    };
    return run(source, wrapped, allowLoopback_);
}

bool MirroredDownload::MaySwitch(const Result& result) const {
    return !result.success && !result.canceled && !Cancelled(callbacks_) && IsFailoverEligible(result);
}

void MirroredDownload::ReportSwitch(bool toBackup, bool slow) {
    last_.phase = Phase::switchingSource;
    last_.bytes = 0;
    last_.restarted = true;
    last_.backup = toBackup;
    last_.slow = slow;
    Deliver(callbacks_, last_);
}

/// The driver over the sources of a payload.
Result withMirror(const Request& request, const Callbacks& callbacks, bool allowLoopback) {
    Request primary = request;
    // On loopback nothing has a second place unless the caller says so.
    if (!allowLoopback && primary.backupUrl.empty()) primary.backupUrl = DeriveBackupUrl(primary.url);
    if (primary.backupUrl.empty()) return run(primary, callbacks, allowLoopback);
    if (!IsValidPayload(primary)) return EndedWith(refusals::kInvalidPayload);
    return MirroredDownload(primary, callbacks, allowLoopback).Run();
}

}  // namespace

Result Download(const Request& request, const Callbacks& callbacks) {
    return withMirror(request, callbacks, false);
}

Result DownloadAllowingLoopback(const Request& request, const Callbacks& callbacks) {
    return withMirror(request, callbacks, true);
}

}  // namespace launcher_download
