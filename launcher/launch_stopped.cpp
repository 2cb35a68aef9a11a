#include "launcher/launch_stopped.h"

#include <windows.h>

#include "product/language.h"
#include "product/locations.h"

namespace launcher_shell {

void ShowLaunchStopped(const std::wstring& message) {
    const std::wstring text = product::LocalizedText(product::TextId::RecoveryNeedsAttention) + (L"\n\n" + message);
    MessageBoxW(nullptr, text.c_str(), product::kProductName, MB_OK | MB_ICONERROR);
}

}  // namespace launcher_shell
