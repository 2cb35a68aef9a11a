#pragma once

/// What the worker sends to the status window. Always by `SendMessageW`: the records belong to the sender and are valid
/// only while it waits.

#include <windows.h>

#include <cstdint>
#include <string>

#include "update/manifest/release_notes.h"
#include "update/settings.h"

namespace launcher_ui {

inline constexpr UINT kStageMessage = 32809;             // lParam: StageRecord
inline constexpr UINT kPromptMessage = 32810;            // lParam: PromptRecord; nonzero: install
inline constexpr UINT kCancelQueryMessage = 32811;       // nonzero: the user asked to cancel
inline constexpr UINT kDownloadProgressMessage = 32812;  // lParam: launcher_download::Progress
inline constexpr UINT kReconnectQueryMessage = 32813;    // nonzero once after the user asked to connect anew
static_assert(kStageMessage > WM_APP);

struct StageRecord {
    launcher_update::Stage stage;
    const std::wstring& detail;
    std::uint64_t completed;
    std::uint64_t total;
};

struct PromptRecord {
    const std::wstring& version;
    const launcher_update::ReleaseNotes& notes;
};

}  // namespace launcher_ui
