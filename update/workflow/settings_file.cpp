#include "update/workflow/settings_file.h"

#include "update/files/file_io.h"
#include "update/manifest/json_reader.h"

namespace launcher_update {

bool RewriteSettings(const std::wstring& path, const ReplaceText& replace, WriteText write) {
    std::string bytes;
    std::wstring text;
    std::wstring replaced;
    return ReadFileLimited(path, kMaxSettingsBytes, bytes) && DecodeUtf8Document(bytes, text) &&
           replace(text, replaced) && EncodeUtf8(replaced).size() <= kMaxSettingsBytes && write(path, replaced);
}

}  // namespace launcher_update
