#include "launcher/verification/command_window.h"

#include "product/text_table.h"

namespace launcher_shell {

bool OpenCommandWindow(launcher_ui::StatusWindow& status, const std::wstring& language,
                       const std::wstring& installedVersion) {
    return launcher_ui::CreateStatusWindow(status, GetModuleHandleW(nullptr), installedVersion, SW_SHOWNORMAL,
                                           product::LanguageOfTag(language).value_or(product::Language::english));
}

}  // namespace launcher_shell
