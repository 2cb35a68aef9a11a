#include "tests/support/package_fixture.h"

#include <windows.h>

#include <miniz.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "platform/sha256.h"
#include "platform/text.h"
#include "tests/support/temporary_directory.h"
#include "update/files/paths.h"
#include "update/files/trees.h"

namespace test_support {
namespace {

using launcher_update::DirectoryEntry;
using launcher_update::PackageDescriptor;
using launcher_update::PackageFileDescriptor;

/// A fixture that cannot be made must end the program: its test would prove nothing.
void Require(bool condition) {
    if (!condition) std::abort();
}

void AddTree(const std::wstring& folder, const std::wstring& prefix, PackageContent& content) {
    std::vector<DirectoryEntry> entries;
    Require(launcher_update::ListDirectory(folder, entries));
    for (const DirectoryEntry& entry : entries) {
        const std::wstring path = launcher_update::JoinPath(folder, entry.name);
        if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            AddTree(path, prefix + entry.name + L"/", content);
        } else {
            content[prefix + entry.name] = ReadWholeFile(path);
        }
    }
}

}  // namespace

PackageFileDescriptor DescribeFile(const std::wstring& path, std::string_view content) {
    PackageFileDescriptor file{path, {}, content.size()};
    Require(platform::Sha256OfMemory(content.data(), content.size(), file.sha256));
    return file;
}

PackageDescriptor DescribePackage(const std::wstring& id, const std::wstring& version, const PackageContent& content) {
    PackageDescriptor package;
    package.id = id;
    package.version = version;
    package.capability = id;
    package.requiredForStartup = true;
    for (const auto& [path, bytes] : content) {
        package.inventory.push_back(DescribeFile(path, bytes));
    }
    return package;
}

void AddPatch(PackageDescriptor& package, const std::wstring& baseVersion, const std::vector<std::wstring>& paths) {
    package.patch.baseVersion = baseVersion;
    for (const std::wstring& path : paths) {
        const auto found = std::find_if(package.inventory.begin(), package.inventory.end(),
                                        [&](const PackageFileDescriptor& file) { return file.path == path; });
        Require(found != package.inventory.end());
        package.patch.files.push_back(*found);
    }
}

void WritePackageTree(const std::wstring& folder, const PackageContent& content) {
    Require(launcher_update::EnsureDirectory(folder));
    for (const auto& [path, bytes] : content) {
        const std::wstring target = launcher_update::JoinPath(folder, path);
        Require(launcher_update::EnsureDirectory(*platform::ParentPath(target)));
        WriteWholeFile(target, bytes);
    }
}

PackageContent ReadPackageTree(const std::wstring& folder) {
    PackageContent content;
    AddTree(folder, L"", content);
    return content;
}

struct ArchiveBuilder::State {
    mz_zip_archive zip{};
};

ArchiveBuilder::ArchiveBuilder() : state_(new State) {
    Require(mz_zip_writer_init_heap(&state_->zip, 0, 0));
}

ArchiveBuilder::~ArchiveBuilder() {
    mz_zip_writer_end(&state_->zip);
    delete state_;
}

ArchiveBuilder& ArchiveBuilder::Add(std::string_view name, std::string_view content, Method method) {
    const mz_uint level = method == Method::stored ? MZ_NO_COMPRESSION : MZ_DEFAULT_COMPRESSION;
    Require(mz_zip_writer_add_mem(&state_->zip, std::string(name).c_str(), content.data(), content.size(), level));
    return *this;
}

ArchiveBuilder& ArchiveBuilder::AddPayload(const PackageContent& content) {
    for (const auto& [path, bytes] : content) {
        Add("payload/" + platform::EncodeUtf8(path), bytes);
    }
    return *this;
}

std::string ArchiveBuilder::Finish() {
    void* bytes = nullptr;
    std::size_t length = 0;
    Require(mz_zip_writer_finalize_heap_archive(&state_->zip, &bytes, &length));
    std::string archive(static_cast<const char*>(bytes), length);
    mz_free(bytes);
    return archive;
}

std::string BuildArchive(const PackageContent& content) {
    return ArchiveBuilder().AddPayload(content).Finish();
}

}  // namespace test_support
