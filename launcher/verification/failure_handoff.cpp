#include <windows.h>

#include <iterator>
#include <string>

#include "launcher/update_result.h"
#include "launcher/verification/command_window.h"
#include "launcher/verification/output.h"
#include "launcher/verification/window_commands.h"
#include "product/language.h"
#include "ui/capture.h"
#include "ui/failure_view.h"
#include "ui/status_window.h"
#include "update/files/attributes.h"

namespace launcher_shell {

using launcher_ui::Control;
using launcher_ui::StatusWindow;
using launcher_update::Outcome;
using launcher_update::Stage;
using product::TextId;

namespace {

constexpr int kHandoffFailed = 1311;
constexpr std::uint64_t kSilenceMs = 3000;

/// One window through all views of a failure.
class Handoff {
  public:
    explicit Handoff(const std::wstring& pictureFolder) : folder_(pictureFolder) {}

    bool Pass(const std::wstring& language) {
        if (!OpenCommandWindow(status_, language, L"")) return false;
        window_ = status_.window;
        return SpeedsAreSaidInBytes() && SilenceClearsSpeed() && FailedStageStaysInline() && SafeViewPassesBy() &&
               UnsafeViewBlocks() && CloseBoxEndsUnsafeView() && ResultsAreHandedOff();
    }

  private:
    [[nodiscard]] std::wstring TextOf(Control control) const {
        wchar_t text[1024] = L"";  // longer than anything compared here
        GetWindowTextW(status_.At(control), text, static_cast<int>(std::size(text)));
        return text;
    }
    [[nodiscard]] bool Shows(Control control, TextId id) const { return TextOf(control) == status_.model.Text(id); }
    [[nodiscard]] bool Mentions(Control control, const std::wstring& part) const {
        return TextOf(control).find(part) != std::wstring::npos;
    }
    [[nodiscard]] bool IsShown(Control control) const {
        return (GetWindowLongPtrW(status_.At(control), GWL_STYLE) & WS_VISIBLE) != 0;
    }
    [[nodiscard]] bool IsOffered(Control control) const {
        return IsShown(control) && IsWindowEnabled(status_.At(control));
    }

    /// No view may open a dialog or another window: what the user sees is the one window from the beginning.
    [[nodiscard]] bool IsTheOnlyWindow() const {
        struct Search {
            HWND own;
            bool foundOther;
        };
        Search search = {window_, false};
        EnumThreadWindows(
            GetCurrentThreadId(),
            [](HWND window, LPARAM parameter) -> BOOL {
                auto& found = *reinterpret_cast<Search*>(parameter);
                if (window != found.own && IsWindowVisible(window)) found.foundOther = true;
                return TRUE;
            },
            reinterpret_cast<LPARAM>(&search));
        return status_.window == window_ && !search.foundOther;
    }

    /// True without a folder for pictures.
    [[nodiscard]] bool Picture(const wchar_t* name) const {
        return folder_.empty() || launcher_ui::SaveWindowPicture(window_, folder_ + L'\\' + name);
    }

    void Receive(double bytesPerSecond) {
        launcher_download::Progress progress;
        progress.phase = launcher_download::Phase::receiving;
        progress.bytesPerSecond = bytesPerSecond;
        progress.attempt = 1;
        launcher_ui::ApplyDownloadProgress(status_, progress);
    }

    bool SpeedsAreSaidInBytes() {
        launcher_ui::ApplyStage(status_, Stage::Downloading, L"payload", 0, 1);
        Receive(131072.0);
        const bool kilobytes = Mentions(Control::footer, L"128.0 KB/s");
        Receive(2097152.0);
        return kilobytes && Mentions(Control::footer, L"2.0 MB/s") && IsOffered(Control::reconnectButton);
    }

    /// The watch's own timer message, after a silence that is only dated back.
    bool SilenceClearsSpeed() {
        status_.model.progress.lastProgressTicks -= kSilenceMs;
        SendMessageW(window_, WM_TIMER, launcher_ui::kStallTimerId, 0);
        return Mentions(Control::footer, L"0.0 KB/s") && !Mentions(Control::footer, L"2.0 MB/s");
    }

    bool FailedStageStaysInline() {
        launcher_ui::ApplyStage(status_, Stage::Failed, L"", 0, 0);
        return Shows(Control::progressLine, TextId::DidNotFinishChecking) && IsTheOnlyWindow();
    }

    bool SafeViewPassesBy() {
        launcher_ui::ShowFailure(status_, true, L"A download was interrupted; the installed version was not changed.");
        launcher_ui::HoldFailureView(status_);  // returns at once
        return Shows(Control::progressLine, TextId::DidNotFinishStarting) && !status_.model.failureBlocking &&
               !IsShown(Control::cancelButton) && IsTheOnlyWindow() && Picture(L"failure-safe.bmp");
    }

    void Point(bool at) const {
        SendMessageW(status_.At(Control::cancelButton), at ? WM_MOUSEMOVE : WM_MOUSELEAVE, 0, 0);
    }

    /// The pointer comes, goes and comes again, and the button is taken away from under it.
    bool HoverFollowsPointer() {
        const HWND close = status_.At(Control::cancelButton);
        Point(true);
        if (status_.hoverButton != close || !Picture(L"failure-hover.bmp")) return false;
        Point(false);
        if (status_.hoverButton != nullptr) return false;
        Point(true);
        const bool again = status_.hoverButton == close;
        EnableWindow(close, FALSE);
        const bool dropped = status_.hoverButton == nullptr;
        EnableWindow(close, TRUE);
        return again && dropped;
    }

    bool UnsafeViewBlocks() {
        launcher_ui::ShowFailure(status_, false, status_.model.Text(TextId::StagingCopyFailed));
        const bool blocks = launcher_ui::FailureIsHeld(status_.model) && IsOffered(Control::cancelButton) &&
                            Shows(Control::cancelButton, TextId::Close) && Picture(L"failure-inline.bmp");
        if (!blocks || !HoverFollowsPointer() || !IsTheOnlyWindow()) return false;
        SendMessageW(status_.At(Control::cancelButton), BM_CLICK, 0, 0);
        return status_.model.failureClosed;
    }

    bool CloseBoxEndsUnsafeView() {
        launcher_ui::ShowFailure(status_, false, L"Recovery remains incomplete.");
        if (!launcher_ui::FailureIsHeld(status_.model) || !IsTheOnlyWindow()) return false;
        PostMessageW(window_, WM_CLOSE, 0, 0);
        launcher_ui::HoldFailureView(status_);
        return status_.model.failureClosed;
    }

    /// Whether a run that ended so goes on to the application exactly if that is safe, and is held exactly if not.
    bool IsHandedOff(Outcome outcome, bool safeToLaunch) {
        launcher_update::Result result;
        result.outcome = outcome;
        result.safeToLaunch = safeToLaunch;
        result.error = L"Recovery remains incomplete.";
        const bool goesOn = PresentUpdateResult(status_, result, true);
        return goesOn == safeToLaunch && launcher_ui::FailureIsHeld(status_.model) != safeToLaunch && IsTheOnlyWindow();
    }

    bool ResultsAreHandedOff() {
        return IsHandedOff(Outcome::Failed, true) && IsHandedOff(Outcome::LauncherTooOld, true) &&
               IsHandedOff(Outcome::UpToDate, true) && IsHandedOff(Outcome::Failed, false);
    }

    std::wstring folder_;
    StatusWindow status_;
    HWND window_ = nullptr;
};

/// Pictures go into a folder that is there, or nowhere.
std::wstring PictureFolder(const CommandRun& run) {
    if (run.values.size() < 2) return {};
    const auto facts = launcher_update::LookAt(run.values[1]);
    return launcher_update::IsRealDirectory(facts.attributes) ? run.values[1] : std::wstring();
}

}  // namespace

int CheckFailureHandoff(const CommandRun& run) {
    const std::wstring language = run.values.empty() ? product::LanguageTag(product::CurrentLanguage()) : run.values[0];
    Handoff handoff(PictureFolder(run));
    if (!handoff.Pass(language)) return kHandoffFailed;
    WriteOutput(
        "LAUNCHER_FAILURE_HANDOFF_PASS safe_nonmodal=1 unsafe_blocked=1 inline_no_dialog=1 byte_units=1 "
        "stall_clears_speed=1\n");
    return 0;
}

}  // namespace launcher_shell
