#include "update/workflow/product_version.h"

#include "update/files/durable_write.h"
#include "update/files/paths.h"
#include "update/workflow/settings_file.h"

namespace launcher_update {

bool WriteProductVersion(const std::wstring& root, std::wstring_view version) {
    const auto replace = [version](std::wstring_view text, std::wstring& replaced) {
        return ReplaceProductVersion(text, version, replaced);
    };
    return RewriteSettings(JoinPath(root, L"current.json"), replace, WriteTextDurable);
}

}  // namespace launcher_update
