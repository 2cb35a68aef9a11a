#include "update/installed/verified_inventory.h"

#include <windows.h>

#include <ctime>

#include <algorithm>

#include "platform/text.h"
#include "platform/unique_handle.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/file_hashing.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/files/plain_path.h"
#include "update/files/trees.h"
#include "update/installed/expected_files.h"
#include "update/packages/runtime_state.h"
#include "update/transaction/recovery.h"

namespace launcher_update {
namespace {

constexpr ULONGLONG kReportIntervalMs = 100;

std::wstring RecordPath(const std::wstring& root) {
    return JoinPath(ControlDirectory(root), L"verified-inventory-v1.txt");
}

/// What must hold of the layout as a whole before its files are looked at one by one.
bool LayoutHolds(const std::wstring& root, const Settings& settings, const UpdateManifest& manifest,
                 InstalledLayout layout) {
    const std::wstring applicationRoot = ApplicationRoot(root, settings);
    switch (layout) {
        case InstalledLayout::activated:
            return RuntimeStateMatches(RuntimeFolder(applicationRoot), manifest.packages) &&
                   ActivatedPackageFoldersExact(applicationRoot, manifest.packages);
        case InstalledLayout::portable:
            return IsPortableLayout(applicationRoot);
        case InstalledLayout::files:
            break;
    }
    return true;
}

/// Metadata alone: the open asks for no right to read content. It does not follow a link either, so that the attributes
/// are those of what stands at the path; asking the path for them would cost as much again.
bool ReadIdentity(const std::wstring& path, std::uint64_t expectedSize, FileIdentity& identity) {
    const platform::FileHandle file(CreateFileW(
        ToLongPath(path).c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    FILE_STANDARD_INFO standard{};
    FILE_BASIC_INFO basic{};
    FILE_ID_INFO id{};
    if (!file || !GetFileInformationByHandleEx(file.Get(), FileStandardInfo, &standard, sizeof(standard)) ||
        !GetFileInformationByHandleEx(file.Get(), FileBasicInfo, &basic, sizeof(basic)) ||
        !GetFileInformationByHandleEx(file.Get(), FileIdInfo, &id, sizeof(id))) {
        return false;
    }
    const LONGLONG size = standard.EndOfFile.QuadPart;
    if (standard.Directory || !IsPlainFile(basic.FileAttributes)) return false;
    if (size < 0 || static_cast<std::uint64_t>(size) != expectedSize) return false;
    identity.lastWriteTime = basic.LastWriteTime.QuadPart;
    identity.changeTime = basic.ChangeTime.QuadPart;
    identity.volumeSerialNumber = id.VolumeSerialNumber;
    std::copy(std::begin(id.FileId.Identifier), std::end(id.FileId.Identifier), identity.fileId.begin());
    return true;
}

bool AppendInventoryEntry(PlainPathWalk& walk, const std::wstring& key, std::uint64_t size, std::wstring& text) {
    std::wstring path;
    FileIdentity identity;
    if (!walk.Enter(key, path) || !ReadIdentity(path, size, identity)) return false;
    AppendFileIdentity(text, key, size, identity);
    return true;
}

/// Counts files; the list can be long, so reports are held 100 ms apart.
class FileCountReporter {
  public:
    FileCountReporter(const Settings& settings, InventoryProgress progress, std::uint64_t total)
        : settings_(settings), reported_(progress == InventoryProgress::reported), total_(total) {
        if (!reported_) return;
        Notify(L"", 0);
    }
    void Done(const std::wstring& path, std::uint64_t count) {
        if (reported_ && (count == total_ || GetTickCount64() - lastReportMs_ >= kReportIntervalMs))
            Notify(path, count);
    }

  private:
    void Notify(const std::wstring& path, std::uint64_t count) {
        NotifyStage(settings_, Stage::CheckingFiles, path, count, total_);
        lastReportMs_ = GetTickCount64();
    }

    const Settings& settings_;
    const bool reported_;
    const std::uint64_t total_;
    ULONGLONG lastReportMs_ = 0;
};

/// The record, when it can be read and speaks of this manifest on this layout.
bool ReadRecord(const std::wstring& root, std::wstring_view manifestDigest, InstalledLayout layout,
                std::int64_t& verifiedTime, std::wstring& inventoryDigest) {
    if (!IsRealDirectory(LookAt(ControlDirectory(root)).attributes) ||
        !IsPlainFile(LookAt(RecordPath(root)).attributes))
        return false;
    std::string bytes;
    std::wstring recordedManifest;
    std::wstring layoutText;
    return ReadFileLimited(RecordPath(root), kMaxVerifiedInventoryBytes, bytes) &&
           ParseVerifiedInventory(bytes, recordedManifest, layoutText, verifiedTime, inventoryDigest) &&
           recordedManifest == manifestDigest && layoutText == LayoutText(layout);
}

/// Whether a record may be written: nothing but a plain file is replaced.
bool RecordPlaceIsSafe(const std::wstring& root) {
    const std::wstring controlDirectory = ControlDirectory(root);
    if (!EnsureDirectory(controlDirectory) || !IsRealDirectory(LookAt(controlDirectory).attributes)) return false;
    const PathFacts record = LookAt(RecordPath(root));
    return record.presence == Presence::absent || IsPlainFile(record.attributes);
}

}  // namespace

bool ComputeInventoryDigest(const std::wstring& root, const Settings& settings, const UpdateManifest& manifest,
                            InstalledLayout layout, std::wstring& digest, InventoryProgress progress) {
    digest.clear();
    ExpectedFiles files;
    if (!LayoutHolds(root, settings, manifest, layout) ||
        !CollectExpectedInventory(settings.applicationDirectory, manifest, layout, files)) {
        return false;
    }
    FileCountReporter reporter(settings, progress, files.size());
    std::wstring text = std::wstring(LayoutText(layout)) + L"\n";
    PlainPathWalk walk(root);
    std::uint64_t count = 0;
    for (const auto& [key, size] : files) {
        if (!AppendInventoryEntry(walk, key, size, text)) return false;
        reporter.Done(key, ++count);
    }
    const std::string utf8 = platform::EncodeUtf8(text);
    return Sha256OfBuffer(utf8.data(), utf8.size(), digest);
}

bool VerifiedInventoryIsFresh(const std::wstring& root, const Settings& settings, const UpdateManifest& manifest,
                              std::wstring_view manifestDigest, InstalledLayout layout) {
    std::int64_t verifiedTime = 0;
    std::wstring recorded;
    if (!ReadRecord(root, manifestDigest, layout, verifiedTime, recorded)) return false;
    if (!VerificationIsRecent(verifiedTime, _time64(nullptr))) return false;
    std::wstring digest;
    return ComputeInventoryDigest(root, settings, manifest, layout, digest, InventoryProgress::reported) &&
           digest == recorded;
}

void WriteVerifiedInventory(const std::wstring& root, const Settings& settings, const UpdateManifest& manifest,
                            std::wstring_view manifestDigest, InstalledLayout layout, std::wstring_view priorDigest) {
    if (priorDigest.empty()) return;
    std::wstring digest;
    if (!ComputeInventoryDigest(root, settings, manifest, layout, digest, InventoryProgress::silent) ||
        digest != priorDigest) {
        return;
    }
    const std::int64_t now = _time64(nullptr);
    if (now < 0 || !RecordPlaceIsSafe(root)) return;
    // Without a record the next start verifies again, which is all that a failed write costs.
    static_cast<void>(
        WriteJournalDurable(RecordPath(root), RenderVerifiedInventory(manifestDigest, layout, now, digest)));
}

void RemoveVerifiedInventory(const std::wstring& root) {
    const std::wstring record = RecordPath(root);
    if (!IsRealDirectory(LookAt(ControlDirectory(root)).attributes) || !IsPlainFile(LookAt(record).attributes)) return;
    DeleteFileW(ToLongPath(record).c_str());
}

}  // namespace launcher_update
