#pragma once

/// Two streams of reports, the stages of the update and the figures of a transfer, become one percentage or a bar in
/// motion, one main line, one detail line, one footer and the question whether cancel and close work. Files and
/// packages pass through, events of a finished one come late, totals may be unknown, a retry may move bytes backwards:
/// these rules keep the bar from jumping back, from freezing on a stale event and from claiming a number that nobody
/// knows. Pure; the window's thread.
///
///     check ──► transfer (learns its total, maybe late) ──► verify ──► install (full, deaf to transfers) ──► terminal
///               any `Repairing` starts again

#include <cstdint>
#include <string>

#include "download/request.h"
#include "ui/window_model.h"
#include "update/settings.h"

namespace launcher_ui {

/// A silence of a transfer that is told, in milliseconds.
inline constexpr std::uint64_t kStallMs = 2000;

/// One stage event of the workflow. An event of a transfer that is already over is dropped whole. A stage with an
/// unknown number leaves text and percentage as they are.
void ApplyStage(WindowModel& model, launcher_update::Stage stage, const std::wstring& detail, std::uint64_t completed,
                std::uint64_t total);

/// One report of the download engine; `nowTicks` in milliseconds. Ignored once the transfer is over or to be cancelled.
void ApplyDownloadProgress(WindowModel& model, const launcher_download::Progress& progress, std::uint64_t nowTicks);

/// Back to the start of an update.
void ResetUpdateProgress(WindowModel& model);

/// False while no total is known. Else the percentage and "done / total · percent%".
[[nodiscard]] bool FormatAggregate(const UpdateProgressModel& progress, std::int32_t& percentOut,
                                   std::wstring& detailOut);

/// The stall timer: after a silence of `kStallMs` the footer says that nothing arrives.
void CheckStall(WindowModel& model, std::uint64_t nowTicks);

/// The motion timer: one step of the bar, or its end.
void StepMarquee(WindowModel& model);

}  // namespace launcher_ui
