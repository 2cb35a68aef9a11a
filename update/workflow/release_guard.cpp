#include "update/workflow/release_guard.h"

#include <vector>

#include "platform/text.h"
#include "product/language.h"
#include "update/files/attributes.h"
#include "update/files/durable_write.h"
#include "update/files/file_hashing.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/files/trees.h"
#include "update/manifest/json_reader.h"
#include "update/manifest/release_identity.h"

namespace launcher_update {
namespace {

/// A mark that cannot be read counts as none: the primary source then sets it anew.
std::wstring ReadWatermark(const std::wstring& path) {
    std::string bytes;
    std::wstring text;
    if (!ReadFileLimited(path, kMaxWatermarkBytes, bytes) || !DecodeUtf8Document(bytes, text)) return {};
    return text;
}

/// A mark beyond the limit could not be read back: it would count as none, and the guard would be gone with it.
bool WriteWatermark(const std::wstring& path, const std::wstring& text) {
    const std::string bytes = platform::EncodeUtf8(text);
    return bytes.size() <= kMaxWatermarkBytes && WriteStateAtomically(path, bytes);
}

}  // namespace

bool ComputeReleaseIdentity(const UpdateManifest& manifest, std::wstring& identity) {
    const std::wstring text = ReleaseIdentityText(manifest);
    std::vector<unsigned char> littleEndian;
    littleEndian.reserve(text.size() * 2);
    for (const wchar_t unit : text) {
        littleEndian.push_back(static_cast<unsigned char>(unit & 0xFF));
        littleEndian.push_back(static_cast<unsigned char>((unit >> 8) & 0xFF));
    }
    return Sha256OfBuffer(littleEndian.data(), littleEndian.size(), identity);
}

bool CheckReleaseWatermark(const std::wstring& controlDirectory, const UpdateManifest& manifest,
                           const std::wstring& identity, bool fromBackup, std::wstring& error) {
    if (!CreateDirectoryChain(controlDirectory) || !IsRealDirectory(LookAt(controlDirectory).attributes)) {
        error = L"release-watermark-directory-unsafe";
        return false;
    }
    const std::wstring path = JoinPath(controlDirectory, L"release-watermark.txt");
    const WatermarkDecision decision =
        JudgeReleaseWatermark(ReadWatermark(path), manifest.version, identity, fromBackup);
    if (decision.action == WatermarkDecision::Action::refuse) {
        error = product::LocalizedText(product::TextId::BackupMetadataOlder);
        return false;
    }
    if (decision.action == WatermarkDecision::Action::write && !WriteWatermark(path, decision.text)) {
        error = L"release-watermark-write-failed";
        return false;
    }
    return true;
}

}  // namespace launcher_update
