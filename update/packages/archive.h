#pragma once

/// Package archives, read through miniz and through nothing else. miniz finds and unpacks entries; every judgement of
/// what it finds is made here and in `archive_rules.h`. One thread per object.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "update/manifest/update_manifest.h"

namespace launcher_update {

/// One open archive, read-only.
class PackageArchive {
  public:
    /// One unpacked entry, in memory of the archive's own allocator.
    class Bytes {
      public:
        [[nodiscard]] const void* Data() const { return data_.get(); }
        [[nodiscard]] std::size_t Length() const { return length_; }

      private:
        friend class PackageArchive;
        struct Free {
            void operator()(void* data) const;
        };
        std::unique_ptr<void, Free> data_;
        std::size_t length_ = 0;
    };

    PackageArchive();
    PackageArchive(const PackageArchive&) = delete;
    PackageArchive& operator=(const PackageArchive&) = delete;
    ~PackageArchive();

    /// Opens `path` by its long form. At most once per object; false when miniz cannot read it as an archive.
    [[nodiscard]] bool Open(const std::wstring& path);

    /// Null when the directory has the inventory's shape, otherwise the message. Unpacks nothing.
    [[nodiscard]] const wchar_t* JudgeShape(const std::vector<PackageFileDescriptor>& inventory);

    /// Unpacks the entry of one inventory file, found by the exact bytes of its name, into memory of exactly the file's
    /// size, and compares size, CRC and SHA-256. False with nothing in `bytes` on any difference or failure, lack of
    /// memory included.
    [[nodiscard]] bool ExtractVerified(const PackageFileDescriptor& file, Bytes& bytes);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/// True when every file of `descriptor.inventory` is in the archive, at its place, with its size and its SHA-256, and
/// nothing else is but perhaps a runtime manifest. Only the inventory of the descriptor is read. False with a message;
/// `error` is untouched on success. Holds one unpacked file in memory at a time and writes nothing.
[[nodiscard]] bool VerifyPackageArchive(const std::wstring& archivePath, const PackageDescriptor& descriptor,
                                        std::wstring& error);

}  // namespace launcher_update
