#pragma once

/// Packages for tests: a descriptor, the folder and the archive that fit it.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "update/manifest/update_manifest.h"

namespace test_support {

/// Content by inventory path (forward slashes).
using PackageContent = std::map<std::wstring, std::string>;

/// A descriptor whose inventory holds exactly this content, in the order of the paths. Its capability is the id, it is
/// required for the start, and it names no archive.
[[nodiscard]] launcher_update::PackageDescriptor DescribePackage(const std::wstring& id, const std::wstring& version,
                                                                 const PackageContent& content);

/// One descriptor of an inventory.
[[nodiscard]] launcher_update::PackageFileDescriptor DescribeFile(const std::wstring& path, std::string_view content);

/// Lets the patch of `package` carry the files with these paths, which must be in the inventory.
void AddPatch(launcher_update::PackageDescriptor& package, const std::wstring& baseVersion,
              const std::vector<std::wstring>& paths);

/// Writes the files below `folder`, making folders as needed.
void WritePackageTree(const std::wstring& folder, const PackageContent& content);

/// What lies below `folder`: paths with forward slashes, as on disk. Folders do not appear.
[[nodiscard]] PackageContent ReadPackageTree(const std::wstring& folder);

/// A ZIP archive, entry by entry, deflated unless told otherwise.
class ArchiveBuilder {
  public:
    ArchiveBuilder();
    ArchiveBuilder(const ArchiveBuilder&) = delete;
    ArchiveBuilder& operator=(const ArchiveBuilder&) = delete;
    ~ArchiveBuilder();

    enum class Method { stored, deflated };

    /// Adds an entry under exactly these bytes as its name.
    ArchiveBuilder& Add(std::string_view name, std::string_view content, Method method = Method::deflated);

    /// Adds every file of the content at "payload/" and its path.
    ArchiveBuilder& AddPayload(const PackageContent& content);

    /// The archive's bytes; the builder is used up.
    [[nodiscard]] std::string Finish();

  private:
    struct State;
    State* state_;
};

/// The archive of a package with this content and nothing else.
[[nodiscard]] std::string BuildArchive(const PackageContent& content);

}  // namespace test_support
