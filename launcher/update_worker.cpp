#include "launcher/update_worker.h"

#include <windows.h>

#include <process.h>

#include <utility>

#include "platform/unique_handle.h"

namespace launcher_shell {
namespace {

/// Shared by both threads; read by the main thread only after the worker has ended.
struct WorkerBlock {
    std::function<launcher_update::Result()> work;
    launcher_update::Result result;
};

unsigned __stdcall RunWork(void* argument) {
    auto& block = *static_cast<WorkerBlock*>(argument);
    try {
        block.result = block.work();  // an empty callable throws
    } catch (...) {
        block.result.outcome = launcher_update::Outcome::Failed;
        block.result.safeToLaunch = false;
    }
    return 0;
}

/// The worker sends messages to the window and waits for each: a wait that did not pump would be for ever. False if the
/// system refuses the wait.
bool WaitPumping(launcher_ui::StatusWindow& window, HANDLE thread) {
    for (;;) {
        const DWORD woken = MsgWaitForMultipleObjects(1, &thread, FALSE, INFINITE, launcher_ui::kWakeMask);
        if (woken != WAIT_OBJECT_0 && woken != WAIT_OBJECT_0 + 1) return false;
        launcher_ui::PumpMessages(window);
        if (woken == WAIT_OBJECT_0) return true;
    }
}

bool WaitFor(launcher_ui::StatusWindow* window, HANDLE thread) {
    return window != nullptr ? WaitPumping(*window, thread) : WaitForSingleObject(thread, INFINITE) == WAIT_OBJECT_0;
}

/// For a worker whose end could not be awaited in the proper way: it writes into the caller's frame, which must not go
/// before it, and it may itself wait for the window.
void OutlastWorker(launcher_ui::StatusWindow* window, HANDLE thread) {
    constexpr DWORD kLookMs = 20;
    while (window != nullptr && WaitForSingleObject(thread, kLookMs) == WAIT_TIMEOUT) {
        launcher_ui::PumpMessages(*window);
    }
    WaitForSingleObject(thread, INFINITE);
}

}  // namespace

bool RunUpdateWorker(launcher_ui::StatusWindow* window, std::function<launcher_update::Result()> work,
                     launcher_update::Result& result) {
    WorkerBlock block{std::move(work), {}};
    block.result.error = L"The update worker stopped unexpectedly.";
    const platform::KernelHandle thread(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, RunWork, &block, 0, nullptr)));
    if (!thread) return false;
    const bool confirmed = WaitFor(window, thread.Get());
    if (!confirmed) OutlastWorker(window, thread.Get());
    result = std::move(block.result);
    if (!confirmed) {
        result.outcome = launcher_update::Outcome::Failed;
        result.safeToLaunch = false;
        result.error = L"The update worker completion could not be confirmed.";
    }
    return true;
}

}  // namespace launcher_shell
