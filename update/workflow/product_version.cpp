#include "update/workflow/product_version.h"

#include "update/files/durable_write.h"
#include "update/files/file_io.h"
#include "update/files/paths.h"
#include "update/manifest/json_reader.h"

namespace launcher_update {
namespace {

constexpr std::size_t kMaxSettingsBytes = 65536;  // what the launcher itself reads of this file

}  // namespace

bool WriteProductVersion(const std::wstring& root, std::wstring_view version) {
    const std::wstring path = JoinPath(root, L"current.json");
    std::string bytes;
    std::wstring text;
    std::wstring replaced;
    return ReadFileLimited(path, kMaxSettingsBytes, bytes) && DecodeUtf8Document(bytes, text) &&
           ReplaceProductVersion(text, version, replaced) && EncodeUtf8(replaced).size() <= kMaxSettingsBytes &&
           WriteTextDurable(path, replaced);
}

}  // namespace launcher_update
