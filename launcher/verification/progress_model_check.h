#pragma once

/// Plays sequences of events to new progress models and compares what each model comes to. Pure.

#include <functional>
#include <string>

#include "ui/window_model.h"
#include "update/settings.h"

namespace launcher_shell {

/// Whether each group of sequences came out as it must.
struct ProgressModelVerdict {
    bool phaseChanges = true;
    bool multipleAssets = true;
    bool unknownTotal = true;
    bool staleEvents = true;
    bool extraction = true;           // bytes of an archive that is verified move the bar
    bool perFileVerification = true;  // those of one file in it do not
    bool noTransferInstall = true;
    bool cancelTerminal = true;
    bool mixedTotal = true;  // figures of another scale teach nothing

    [[nodiscard]] bool Passed() const;
};

/// What applies an event to a model: the product's own, unless a test asks whether a wrong one would be found.
using StageApplier = std::function<void(launcher_ui::WindowModel&, launcher_update::Stage, const std::wstring& detail,
                                        std::uint64_t completed, std::uint64_t total)>;

[[nodiscard]] ProgressModelVerdict CheckProgressModel(const StageApplier& apply);

/// The verdict as the command prints it.
[[nodiscard]] std::string RenderProgressModelVerdict(const ProgressModelVerdict& verdict);

}  // namespace launcher_shell
