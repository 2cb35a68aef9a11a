#include "update/packages/archive.h"

#include <miniz.h>

#include <cstring>
#include <optional>
#include <vector>

#include "platform/following_digest.h"
#include "platform/text.h"
#include "update/failure.h"
#include "update/files/paths.h"
#include "update/packages/archive_rules.h"

namespace launcher_update {
namespace {

constexpr wchar_t kCannotOpen[] = L"無法開啟已下載的資源包。";
constexpr wchar_t kPayloadInvalid[] = L"資源包 payload 驗證失敗：";
constexpr std::size_t kMaxNameBytes = 0xFFFF;  // the directory keeps a name's length in 16 bits

/// A block that miniz fills piece by piece.
struct Filling {
    unsigned char* block = nullptr;
    std::size_t length = 0;
    std::size_t filled = 0;
    platform::FollowingDigest& digest;

    /// What does not continue the block or does not fit into it is not taken, which ends the unpacking.
    static std::size_t Take(void* opaque, mz_uint64 offset, const void* piece, std::size_t pieceLength) {
        auto& filling = *static_cast<Filling*>(opaque);
        if (offset != filling.filled || pieceLength > filling.length - filling.filled) return 0;
        std::memcpy(filling.block + filling.filled, piece, pieceLength);
        filling.filled += pieceLength;
        filling.digest.Advance(filling.filled);
        return pieceLength;
    }
};

}  // namespace

struct PackageArchive::State {
    mz_zip_archive zip{};
    bool isOpen = false;
    platform::FollowingDigest digest;
    std::vector<char> name = std::vector<char>(kMaxNameBytes + 1);  // with the end that miniz adds

    [[nodiscard]] std::size_t EntryCount() const { return zip.m_total_files; }

    /// The name as stored. miniz's record of an entry would cut it at 511 bytes, which inventory paths may exceed.
    std::string_view NameOf(mz_uint index) {
        const mz_uint length = mz_zip_reader_get_filename(&zip, index, name.data(), static_cast<mz_uint>(name.size()));
        return {name.data(), length == 0 ? 0 : length - 1};
    }

    std::optional<mz_uint> Find(std::string_view wanted) {
        if (wanted.empty() || wanted.size() > kMaxNameBytes) return std::nullopt;
        for (mz_uint index = 0; index < EntryCount(); ++index) {
            if (NameOf(index) == wanted) return index;
        }
        return std::nullopt;
    }

    /// A block of the archive's allocator; of one byte at least, since nothing is no block.
    void* Allocate(std::size_t length) { return zip.m_pAlloc(zip.m_pAlloc_opaque, 1, length == 0 ? 1 : length); }

    /// Unpacks an entry into a block of exactly `length` bytes while its digest follows. miniz compares the CRC.
    bool Extract(mz_uint index, void* block, std::size_t length, std::wstring& hex) {
        Filling filling{static_cast<unsigned char*>(block), length, 0, digest};
        digest.Begin(block, length);
        const bool unpacked = mz_zip_reader_extract_to_callback(&zip, index, Filling::Take, &filling, 0) != 0;
        const bool hashed = digest.Finish(hex);  // in any case: behind it nobody reads the block any more
        return unpacked && filling.filled == length && hashed;
    }

    ArchiveEntry Describe(mz_uint index) {
        mz_zip_archive_file_stat stat{};
        if (!mz_zip_reader_file_stat(&zip, index, &stat)) return {};
        return {true, stat.m_is_directory != 0, std::string(NameOf(index)), stat.m_uncomp_size};
    }
};

void PackageArchive::Bytes::Free::operator()(void* data) const {
    mz_free(data);
}

PackageArchive::PackageArchive() : state_(std::make_unique<State>()) {}

PackageArchive::~PackageArchive() {
    if (state_->isOpen) mz_zip_reader_end(&state_->zip);
}

bool PackageArchive::Open(const std::wstring& path) {
    const std::string utf8 = platform::EncodeUtf8(ToPackageLongPath(path));
    state_->isOpen = !utf8.empty() && mz_zip_reader_init_file(&state_->zip, utf8.c_str(), 0);
    return state_->isOpen;
}

const wchar_t* PackageArchive::JudgeShape(const std::vector<PackageFileDescriptor>& inventory) {
    // Before the entries are described: their number is what the archive says, and may be anything.
    if (const wchar_t* message = JudgeEntryCount(inventory.size(), state_->EntryCount())) return message;
    std::vector<ArchiveEntry> entries;
    for (mz_uint index = 0; index < state_->EntryCount(); ++index) {
        entries.push_back(state_->Describe(index));
    }
    return JudgeArchiveShape(inventory, entries);
}

bool PackageArchive::ExtractVerified(const PackageFileDescriptor& file, Bytes& bytes) {
    bytes = Bytes();
    const std::optional<mz_uint> index = state_->Find(PayloadEntryName(file));
    // The size is judged before miniz allocates what the archive claims.
    if (!index || state_->Describe(*index).unpackedSize != file.size) return false;
    Bytes unpacked;
    unpacked.length_ = static_cast<std::size_t>(file.size);
    unpacked.data_.reset(state_->Allocate(unpacked.length_));
    std::wstring hex;
    if (!unpacked.data_ || !state_->Extract(*index, unpacked.data_.get(), unpacked.length_, hex)) return false;
    if (!platform::EqualsIgnoringCase(hex, file.sha256)) return false;
    bytes = std::move(unpacked);
    return true;
}

bool VerifyPackageArchive(const std::wstring& archivePath, const PackageDescriptor& descriptor, std::wstring& error) {
    const std::vector<PackageFileDescriptor>& inventory = descriptor.inventory;
    if (const wchar_t* message = JudgeInventoryCount(inventory.size())) return Fail(error, message);
    PackageArchive archive;
    if (!archive.Open(archivePath)) return Fail(error, kCannotOpen);
    if (const wchar_t* message = archive.JudgeShape(inventory)) return Fail(error, message);
    PackageArchive::Bytes bytes;
    for (const PackageFileDescriptor& file : inventory) {
        if (!archive.ExtractVerified(file, bytes)) return Fail(error, kPayloadInvalid + file.path);
    }
    return true;
}

}  // namespace launcher_update
