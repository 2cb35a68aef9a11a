// Random streams of everything that can happen to the window. After every event, whatever the order, what is shown must
// be something that a user can trust.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/window_model_fixture.h"

namespace launcher_ui {
namespace {

using namespace test_support;

constexpr std::uint64_t kStreams = 10000;
constexpr int kEventsPerStream = 25;

enum class Kind {
    stage,
    report,
    stallTimer,
    motionTimer,
    cancel,
    button,
    closeBox,
    escape,
    enter,
    takeReconnect,
    openPrompt,
    closePrompt,
    failureView,
};

struct Event {
    Kind kind = Kind::stage;
    Stage stage = Stage::Checking;
    const wchar_t* detail = L"";
    std::uint64_t completed = 0;
    std::uint64_t total = 0;
    Progress progress;
    int button = 0;
    bool flag = false;  // blocking failure view, update chosen, or an address in the prompt
};

std::string Describe(const Event& event) {
    const std::string figures = std::to_string(event.completed) + "/" + std::to_string(event.total);
    switch (event.kind) {
        case Kind::stage:
            return "stage " + std::to_string(Number(event.stage)) + " \"" + Narrow(event.detail) + "\" " + figures;
        case Kind::report:
            return "report in phase " + std::to_string(Number(event.progress.phase)) + ", attempt " +
                   std::to_string(event.progress.attempt) + (event.progress.restarted ? ", restarted at " : ", at ") +
                   std::to_string(event.progress.aggregateBytes) + "/" + std::to_string(event.progress.aggregateTotal);
        case Kind::button:
            return "button " + std::to_string(event.button);
        default: {
            static const std::map<Kind, std::string> kNames = {
                {Kind::stallTimer, "stall timer"},  {Kind::motionTimer, "motion timer"},
                {Kind::cancel, "cancel"},           {Kind::closeBox, "close box"},
                {Kind::escape, "Escape"},           {Kind::enter, "Enter"},
                {Kind::openPrompt, "prompt"},       {Kind::takeReconnect, "reconnect asked for"},
                {Kind::closePrompt, "prompt ends"}, {Kind::failureView, "failure view"}};
            return kNames.at(event.kind) + (event.flag ? ", yes" : ", no");
        }
    }
}

// --- Events ---

class Generator {
  public:
    explicit Generator(std::uint64_t seed) : random_(seed) {}

    Event Next() {
        Event event;
        event.kind = NextKind();
        event.flag = Below(2) == 0;
        event.stage = NextStage();
        event.detail = OneOf<const wchar_t*>({L"", L"package:a", L"app.zip", L"2.1.4.2"});
        event.total = OneOf<std::uint64_t>({0, 1, 100, 100, 100, 1000});
        event.completed = Below(event.total + 20);
        event.button = Below(2) == 0 ? kReconnectButtonId : 1000 + static_cast<int>(Below(9));
        if (event.kind == Kind::report) event.progress = NextProgress();
        return event;
    }

    std::uint64_t Below(std::uint64_t limit) { return random_() % limit; }

  private:
    template <typename Value, std::size_t Count>
    Value OneOf(const Value (&values)[Count]) {
        return values[Below(Count)];
    }

    Kind NextKind() {
        // Stages and reports make up most of a stream, as they do of an update.
        const std::uint64_t dice = Below(100);
        if (dice < 50) return Kind::stage;
        if (dice < 70) return Kind::report;
        return static_cast<Kind>(2 + (dice - 70) % 11);
    }

    Stage NextStage() {
        if (Below(10) < 6) return OneOf({Stage::Downloading, Stage::DownloadingBytes, Stage::Verifying});
        return static_cast<Stage>(Below(16));
    }

    Progress NextProgress() {
        Progress progress;
        progress.phase = OneOf({Phase::connecting, Phase::receiving, Phase::slow, Phase::retrying, Phase::verifying,
                                Phase::cached, Phase::switchingSource, Phase::complete});
        progress.bytesPerSecond = OneOf({-1.0, 0.0, 5.0, 131072.0, 1e300});
        progress.elapsedMs = OneOf<std::uint64_t>({0, 2999, 3000, 60000});
        progress.total = 1000;
        progress.bytes = Below(1100);
        progress.attempt = static_cast<std::uint32_t>(Below(5));
        progress.restarted = Below(4) == 0;
        progress.backup = Below(2) == 0;
        progress.slow = Below(2) == 0;
        progress.aggregateTotal = OneOf<std::uint64_t>({0, 100, 100, 1000});
        progress.aggregateBytes = Below(progress.aggregateTotal + 20);
        return progress;
    }

    std::mt19937_64 random_;
};

// --- What must hold ---

/// How often each situation occurred: a rule that was never put to the test proves nothing.
using Reached = std::map<std::string_view, std::uint64_t>;  // by rules, which are literals

class Watched {
  public:
    Watched(std::uint64_t seed, Reached& reached) : generator_(seed), seed_(seed), reached_(reached) {
        model_ = CompactWindow();
    }

    void Run() {
        for (int count = 0; count < kEventsPerStream && !::testing::Test::HasFailure(); ++count) {
            const Event event = generator_.Next();
            if (promptIsOpen_ && (event.kind == Kind::stage || event.kind == Kind::report)) continue;
            events_.push_back(event);
            const WindowModel before = model_;
            Play(event);
            Check(before, event);
        }
    }

  private:
    void Play(const Event& event) {
        now_ += generator_.Below(3000);
        switch (event.kind) {
            case Kind::stage:
                return Apply(model_, event.stage, event.detail, event.completed, event.total);
            case Kind::report:
                return Report(model_, event.progress, now_);
            case Kind::stallTimer:
                return CheckStall(model_, now_);
            case Kind::motionTimer:
                return StepMarquee(model_);
            case Kind::cancel:
                return RequestCancel(model_);
            case Kind::button:
                return static_cast<void>(PressButton(model_, event.button));
            case Kind::closeBox:
                return PressCloseBox(model_);
            case Kind::escape:
                return static_cast<void>(PressEscape(model_));
            case Kind::enter:
                return static_cast<void>(PressEnter(model_));
            case Kind::takeReconnect:
                return static_cast<void>(TakeReconnectRequest(model_));
            case Kind::openPrompt:
                promptIsOpen_ = true;
                return OpenPrompt(model_, kOffered, {}, event.flag ? kNotesUrl : L"");
            case Kind::closePrompt:
                if (!model_.promptOpen) return;
                promptIsOpen_ = false;
                if (event.flag) model_.promptChoice = PromptChoice::update;
                return static_cast<void>(ClosePrompt(model_));
            case Kind::failureView:
                promptIsOpen_ = false;
                return OpenFailureView(model_, L"text", L"detail", event.flag, true);
        }
    }

    void Check(const WindowModel& before, const Event& event) {
        Follow(before, event);
        CheckFigures();
        CheckButtons();
        CheckVisibility();
        CheckClosing(before, event);
        if (event.kind == Kind::stage) CheckStage(before, event);
        if (IsOfTransfer(event) && before.progress.terminal) CheckNothingChanged(before, "late event");
    }

    static bool IsOfTransfer(const Event& event) {
        return (event.kind == Kind::stage && IsTransferStage(event.stage)) || event.kind == Kind::report ||
               event.kind == Kind::stallTimer;
    }

    /// Keeps what the rules need to know of the past.
    void Follow(const WindowModel& before, const Event& event) {
        const bool repairs = event.kind == Kind::stage && event.stage == Stage::Repairing;
        if (repairs || event.kind == Kind::openPrompt || event.kind == Kind::failureView) shownPercent_.reset();
        if (event.kind == Kind::failureView) {
            failureHidesBadge_ = true;
            failureHidesCancel_ = !event.flag;
        } else if (model_.arrangement != before.arrangement) {
            failureHidesBadge_ = failureHidesCancel_ = false;
        }
        if (event.kind == Kind::stage && !Dropped(before, event)) failureHidesCancel_ = false;
        if (event.kind == Kind::report && event.progress.restarted && TakesReports(before) &&
            event.progress.aggregateTotal == before.progress.aggregateTotal) {
            mayFall_ = true;
        }
    }

    static bool TakesReports(const WindowModel& model) {
        return !model.progress.installing && !model.progress.terminal && !model.progress.cancelRequested;
    }

    static bool Dropped(const WindowModel& before, const Event& event) {
        return IsTransferStage(event.stage) && (before.progress.installing || before.progress.terminal);
    }

    void CheckFigures() {
        const UpdateProgressModel& progress = model_.progress;
        Hold(progress.percent >= 0 && progress.percent <= 100, "percent is a percentage");
        Hold(progress.aggregateDone <= progress.aggregateTotal, "no more done than there is");
        Hold(progress.aggregateKnown == (progress.aggregateTotal != 0), "a known total is a number");
    }

    void CheckButtons() {
        const UpdateProgressModel& progress = model_.progress;
        if (progress.cancelEnabled) Hold(!progress.cancelRequested, "cancel is asked for once");
        const bool ordinary = model_.viewMode == ViewMode::progress && !model_.failureHeld;
        if (ordinary) {
            Hold(model_.At(Control::cancelButton).enabled == progress.cancelEnabled, "Cancel is as it works");
        }
        const ControlState& reconnect = model_.At(Control::reconnectButton);
        if (reconnect.visible && reconnect.enabled) {
            Hold(progress.reconnectAvailable && !progress.reconnectRequested && !progress.cancelRequested,
                 "Reconnect works when it can be pressed");
        }
        if (progress.reconnectRequested) Hold(!reconnect.enabled, "Reconnect is asked for once");
    }

    /// The table of the view, and the exceptions: the link needs an address, Reconnect a report, and a failure view
    /// has no badge and, unless it blocks, no button.
    void CheckVisibility() {
        for (int index = 0; index < kControlCount; ++index) {
            const auto control = static_cast<Control>(index);
            const bool visible = model_.At(control).visible;
            bool expected = IsPartOf(control, model_.viewMode);
            if (control == Control::notesLink) {
                expected = model_.viewMode == ViewMode::prompt && !model_.fullNotesUrl.empty();
                if (expected) Hold(visible, "link to the notes");
            } else if (control == Control::reconnectButton) {
                if (visible) Hold(model_.progress.reconnectAvailable, "Reconnect is seen while it is offered");
                expected = visible && model_.viewMode == ViewMode::progress;
            } else if (control == Control::versionBadge && failureHidesBadge_) {
                expected = false;
            } else if (control == Control::cancelButton && failureHidesCancel_) {
                expected = false;
                Hold(!visible, "no button on a failure that passes");
            }
            Hold(visible == expected, kControlNames[static_cast<std::size_t>(index)]);
        }
    }

    void CheckClosing(const WindowModel& before, const Event& event) {
        const bool closing = event.kind == Kind::closeBox || event.kind == Kind::escape;
        if (closing && before.shown && !before.failureHeld && before.progress.closeBlocked) {
            Hold(model_.shown, "a window that is at work is not closed");
        }
        if (event.kind == Kind::escape && before.shown && !model_.shown) {
            Hold(before.failureHeld, "Escape hides nothing but a failure");
        }
        if (before.progress.cancelRequested && event.kind != Kind::openPrompt) {
            Hold(model_.progress.cancelRequested, "a cancel stands");
        }
    }

    void CheckStage(const WindowModel& before, const Event& event) {
        if (Dropped(before, event)) return CheckNothingChanged(before, "dropped stage");
        const UpdateProgressModel& progress = model_.progress;
        Hold(progress.lastStage == event.stage, "the stage is remembered");
        Hold(progress.marqueeRuns == progress.indeterminate, "the timer runs while the bar is in motion");
        if (!progress.indeterminate) Hold(progress.marqueeTick == 0, "a still bar starts anew");
        if (progress.repairMode) {
            const bool compact = before.viewMode == ViewMode::compact;
            Hold(model_.viewMode == before.viewMode, compact ? "a repair stays compact" : "a repair opens no view");
        }
        if (before.progress.terminal && event.stage != Stage::Repairing) Hold(progress.terminal, "the end stands");
        if (IsTransferStage(event.stage)) CheckTransferStage();
    }

    void CheckTransferStage() {
        const UpdateProgressModel& progress = model_.progress;
        if (!progress.aggregateKnown) {
            Hold(progress.indeterminate && progress.percent == 0, "no number for an unknown total");
        } else {
            Hold(!progress.indeterminate, "a number for a known total");
        }
        if (model_.viewMode == ViewMode::progress) {
            Hold(model_.At(Control::progressDetail).text.empty() != progress.aggregateKnown,
                 "figures for a known total alone");
        }
        if (shownPercent_ && *shownPercent_ > progress.percent) Hold(mayFall_, "falls only after a restart");
        if (shownPercent_ && *shownPercent_ < progress.percent) Hold(true, "rises");
        shownPercent_ = progress.percent;
        mayFall_ = false;
    }

    void CheckNothingChanged(const WindowModel& before, const char* situation) {
        const Names changed = Changed(before, model_);
        Hold(changed.empty(), situation);
        for (const std::string& name : changed) {
            ADD_FAILURE() << "changed: " << name;
        }
    }

    void Hold(bool holds, const char* rule) {
        ++reached_[rule];
        if (holds) return;
        std::string story;
        for (const Event& event : events_) {
            story += "\n  " + Describe(event);
        }
        ADD_FAILURE() << rule << ", seed " << seed_ << ", after:" << story;
    }

    Generator generator_;
    std::uint64_t seed_;
    Reached& reached_;
    WindowModel model_;
    std::uint64_t now_ = 50000;
    std::vector<Event> events_;
    bool promptIsOpen_ = false;  // the worker waits and sends nothing

    std::optional<std::int32_t> shownPercent_;  // of this transfer
    bool mayFall_ = false;
    bool failureHidesBadge_ = false;
    bool failureHidesCancel_ = false;
};

constexpr const char* kRules[] = {
    "percent is a percentage",
    "no more done than there is",
    "a known total is a number",
    "cancel is asked for once",
    "Cancel is as it works",
    "Reconnect works when it can be pressed",
    "Reconnect is asked for once",
    "Reconnect is seen while it is offered",
    "link to the notes",
    "no button on a failure that passes",
    "a window that is at work is not closed",
    "Escape hides nothing but a failure",
    "a cancel stands",
    "the stage is remembered",
    "the timer runs while the bar is in motion",
    "a still bar starts anew",
    "a repair opens no view",
    "a repair stays compact",
    "the end stands",
    "no number for an unknown total",
    "a number for a known total",
    "figures for a known total alone",
    "falls only after a restart",
    "rises",
    "late event",
    "dropped stage",
};

TEST(ProgressStreams, AnyOrderOfEvents_ShowsNothingFalse) {
    Reached reached;
    for (std::uint64_t seed = 1; seed <= kStreams && !HasFailure(); ++seed) {
        Watched(seed, reached).Run();
    }
    if (HasFailure()) return;
    for (const char* rule : kRules) {
        EXPECT_GT(reached[rule], 100u) << rule << " was hardly put to the test";
    }
}

}  // namespace
}  // namespace launcher_ui
