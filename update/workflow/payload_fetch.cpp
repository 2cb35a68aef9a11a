#include "update/workflow/payload_fetch.h"

#include <windows.h>

#include <utility>
#include <vector>

#include "download/mirror.h"
#include "platform/text.h"
#include "platform/unique_handle.h"
#include "product/language.h"
#include "update/failure.h"
#include "update/files/file_hashing.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/manifest/metadata_fetch.h"
#include "update/manifest/release_identity.h"
#include "update/packages/archive.h"

namespace launcher_update {
namespace {

constexpr wchar_t kFileSizeOrStaging[] = L"更新檔大小不符或無法寫入暫存區。";
constexpr wchar_t kFileDigestDiffers[] = L"更新檔的 SHA-256 驗證失敗。";
constexpr wchar_t kPackageSizeOrStaging[] = L"資源包大小不符或無法寫入隔離暫存區。";
constexpr wchar_t kPackageDigestDiffers[] = L"資源包的 SHA-256 驗證失敗。";

launcher_download::Request BuildRequest(const std::wstring& url, std::uint64_t size, const std::wstring& sha256,
                                        const PayloadContext& context) {
    launcher_download::Request request;
    request.url = url;
    request.sha256 = platform::ToLower(sha256);
    request.cacheDirectory = context.cacheDirectory;
    request.size = size;
    request.comparisonDelayMs = kComparisonDelayMs;
    request.comparisonWindowMs = kComparisonWindowMs;
    request.backupSource = IsBackupReleaseUrl(url);
    request.component = ClassifyPayload(url);
    request.session = context.settings.sourceSession;
    request.compareAtStart = true;
    return request;
}

/// Puts the engine's figures of one payload into the run's figures and hands them on.
void ForwardProgress(const PayloadContext& context, launcher_download::Progress progress) {
    using launcher_download::Phase;
    progress.aggregateBytes = context.completedBytes + progress.bytes;
    progress.aggregateTotal = context.totalBytes;
    if (context.settings.onDownloadProgress) context.settings.onDownloadProgress(progress);
    if (progress.phase == Phase::failed || progress.phase == Phase::cancelled) return;
    if (context.onProgress) context.onProgress(progress.bytes, progress.total);
}

bool MakeParent(const std::wstring& target) {
    const auto folder = platform::ParentPath(target);
    return folder && CreateDirectoryChain(*folder);
}

bool FetchThroughEngine(const launcher_download::Request& request, const std::wstring& target,
                        const PayloadContext& context, std::wstring& error) {
    launcher_download::Callbacks callbacks;
    callbacks.cancelled = context.settings.shouldCancel;
    callbacks.reconnect = context.settings.shouldReconnect;
    callbacks.progress = [&context](const launcher_download::Progress& progress) {
        ForwardProgress(context, progress);
    };
    const launcher_download::Result result = launcher_download::Download(request, callbacks);
    if (!result.success) {
        if (!result.canceled)
            error = product::LocalizedText(product::TextId::DownloadIncomplete) + (L" (" + result.reason + L")");
        return false;
    }
    // Refusing to overwrite: a staging folder is new in each run, so a file there already is not ours.
    if (MakeParent(target) && CopyFileW(ToLongPath(result.path).c_str(), ToLongPath(target).c_str(), TRUE)) return true;
    error = product::LocalizedText(product::TextId::StagingCopyFailed);
    return false;
}

bool WriteNewFile(const std::wstring& target, const std::string& bytes) {
    const platform::FileHandle file(
        CreateFileW(ToLongPath(target).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

/// Verification runs read local fixtures whole; the sizes in a manifest bound the memory.
bool FetchLocally(const std::wstring& url, std::uint64_t size, const std::wstring& target,
                  const PayloadContext& context, std::wstring& error) {
    std::string bytes;
    const auto progress = [&context](const std::uint64_t& done, const std::uint64_t& total) {
        if (context.onProgress) context.onProgress(done, total);
    };
    if (!FetchBytes(url, true, size, bytes, error, progress, context.settings.shouldCancel)) return false;
    return bytes.size() == size && MakeParent(target) && WriteNewFile(target, bytes);
}

/// What is fetched, and the words for what may be wrong with it.
struct Payload {
    const std::wstring& url;
    const std::wstring& sha256;
    std::uint64_t size = 0;
    const wchar_t* sizeOrStaging = nullptr;
    const wchar_t* digestDiffers = nullptr;
};

/// A cancel is no failure: it leaves without a word.
bool GoOnUnlessCancelled(const PayloadContext& context, std::wstring& error) {
    return !CancelRequested(context.settings) || Fail(error, L"");
}

bool FetchAndHash(const Payload& payload, const std::wstring& target, const PayloadContext& context,
                  std::wstring& error) {
    if (!FetchPayload(payload.url, payload.size, payload.sha256, target, context, error)) {
        if (error.empty() && !CancelRequested(context.settings)) error = payload.sizeOrStaging;
        return false;
    }
    if (context.onVerifying) context.onVerifying();
    if (!GoOnUnlessCancelled(context, error)) return false;
    std::wstring hex;
    if (HashFileSha256(target, hex) && platform::EqualsIgnoringCase(hex, payload.sha256)) return true;
    return Fail(error, payload.digestDiffers);
}

}  // namespace

bool FetchPayload(const std::wstring& url, std::uint64_t size, const std::wstring& sha256, const std::wstring& target,
                  const PayloadContext& context, std::wstring& error) {
    error.clear();
    if (context.verificationMode) return FetchLocally(url, size, target, context, error);
    return FetchThroughEngine(BuildRequest(url, size, sha256, context), target, context, error);
}

bool FetchVerifiedFile(const ManifestFileEntry& entry, const std::wstring& target, const PayloadContext& context,
                       std::wstring& error) {
    return FetchAndHash({entry.url, entry.sha256, entry.size, kFileSizeOrStaging, kFileDigestDiffers}, target, context,
                        error);
}

bool FetchVerifiedPackage(const PackageDescriptor& descriptor, const std::wstring& target,
                          const PayloadContext& context, std::wstring& error) {
    return FetchAndHash(
               {descriptor.url, descriptor.sha256, descriptor.size, kPackageSizeOrStaging, kPackageDigestDiffers},
               target, context, error) &&
           VerifyPackageArchive(target, descriptor, error) && GoOnUnlessCancelled(context, error);
}

}  // namespace launcher_update
