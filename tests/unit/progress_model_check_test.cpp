#include "launcher/verification/progress_model_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/window_model_fixture.h"

// The check is itself checked: with the real model it passes, and a model that does any one thing wrong is found out,
// under the name of the group that the wrong thing belongs to.

namespace launcher_shell {
namespace {

using namespace test_support;

struct Event {
    Stage stage;
    std::wstring detail;
    std::uint64_t completed;
    std::uint64_t total;
    bool operator==(const Event&) const = default;
};

void Apply(WindowModel& model, const Event& event) {
    launcher_ui::ApplyStage(model, event.stage, event.detail, event.completed, event.total);
}

/// The verdict over a model that treats events in a way of its own. `number` counts them from 1.
using Treatment = std::function<void(WindowModel& model, const Event& event, std::size_t number)>;

ProgressModelVerdict Check(const Treatment& treat) {
    std::size_t number = 0;
    return CheckProgressModel(
        [&](WindowModel& model, Stage stage, const std::wstring& detail, std::uint64_t completed, std::uint64_t total) {
            treat(model, {stage, detail, completed, total}, ++number);
        });
}

using Groups = std::set<std::string>;

struct Group {
    const char* name;
    bool ProgressModelVerdict::*holds;
};
constexpr Group kGroups[] = {
    {"phase_changes", &ProgressModelVerdict::phaseChanges},
    {"multiple_assets", &ProgressModelVerdict::multipleAssets},
    {"unknown_total", &ProgressModelVerdict::unknownTotal},
    {"stale_events", &ProgressModelVerdict::staleEvents},
    {"extraction", &ProgressModelVerdict::extraction},
    {"per_file_verification", &ProgressModelVerdict::perFileVerification},
    {"no_transfer_install", &ProgressModelVerdict::noTransferInstall},
    {"cancel_terminal", &ProgressModelVerdict::cancelTerminal},
    {"mixed_total", &ProgressModelVerdict::mixedTotal},
};

Groups FailedIn(const ProgressModelVerdict& verdict) {
    Groups failed;
    for (const Group& group : kGroups) {
        if (!(verdict.*group.holds)) failed.insert(group.name);
    }
    return failed;
}

std::string Line(const Groups& failed) {
    std::string line = "UPDATE_PROGRESS_MODEL";
    for (const Group& group : kGroups)
        line += std::string(" ") + group.name + (failed.contains(group.name) ? "=0" : "=1");
    return line + (failed.empty() ? " passed=1\n" : " passed=0\n");
}

void ExpectFound(const Treatment& treat, const Groups& groups, const std::string& what) {
    const ProgressModelVerdict verdict = Check(treat);
    EXPECT_EQ(FailedIn(verdict), groups) << what;
    EXPECT_EQ(verdict.Passed(), groups.empty()) << what;
    EXPECT_EQ(RenderProgressModelVerdict(verdict), Line(groups)) << what;
}

// --- The sequences ---

/// What the check plays, in order, and what each event speaks for.
struct Played {
    Event event;
    const char* group;
};
const std::vector<Played>& Sequences() {
    static const std::vector<Played> kSequences = {
        {{Stage::Downloading, L"package:first", 0, 2}, "phase_changes"},
        {{Stage::DownloadingBytes, L"package:first", 20, 100}, "phase_changes"},
        {{Stage::Verifying, L"package:first/file", 5, 20}, "per_file_verification"},
        {{Stage::Verifying, L"package:first", 40, 100}, "extraction"},
        {{Stage::Downloading, L"package:second", 1, 2}, "multiple_assets"},
        {{Stage::DownloadingBytes, L"package:second", 30, 100}, "multiple_assets"},
        {{Stage::DownloadingBytes, L"package:second", 80, 100}, "multiple_assets"},
        {{Stage::Verifying, L"package:second", 100, 100}, "extraction"},
        {{Stage::Installing, L"2.1.4.2", 0, 0}, "phase_changes"},
        {{Stage::DownloadingBytes, L"stale", 60, 100}, "stale_events"},
        {{Stage::Completed, L"2.1.4.2", 0, 0}, "phase_changes"},
        {{Stage::Verifying, L"stale", 70, 100}, "stale_events"},
        {{Stage::Verifying, L"candidate-a", 90, 100}, "mixed_total"},
        {{Stage::Verifying, L"candidate-b", 10, 100}, "mixed_total"},
        {{Stage::DownloadingBytes, L"unknown", 5, 0}, "unknown_total"},
        {{Stage::DownloadingBytes, L"one scale", 20, 100}, "mixed_total"},
        {{Stage::DownloadingBytes, L"another", 150, 200}, "mixed_total"},
        {{Stage::Installing, L"2.1.4.2", 0, 0}, "no_transfer_install"},
        {{Stage::Cancelled, L"", 0, 0}, "cancel_terminal"},
        {{Stage::DownloadingBytes, L"stale-after-cancel", 10, 100}, "cancel_terminal"},
        {{Stage::Repairing, L"2.1.4.2", 0, 0}, "phase_changes"},
        {{Stage::DownloadingBytes, L"package:application-runtime", 53, 100}, "phase_changes"},
    };
    return kSequences;
}

std::string Named(std::size_t number) {
    return "event " + std::to_string(number) + ", " + platform::EncodeUtf8(Sequences()[number - 1].event.detail);
}

TEST(ProgressModelCheck, RealModel_Passes) {
    ExpectFound([](WindowModel& model, const Event& event, std::size_t) { Apply(model, event); }, {}, "the real model");
}

TEST(ProgressModelCheck, ItPlaysTheseEvents) {
    std::vector<Event> seen;
    (void)Check([&](WindowModel& model, const Event& event, std::size_t) {
        seen.push_back(event);
        Apply(model, event);
    });
    ASSERT_EQ(seen.size(), Sequences().size());
    for (std::size_t number = 1; number <= seen.size(); ++number)
        EXPECT_TRUE(seen[number - 1] == Sequences()[number - 1].event) << Named(number);
}

/// A model that treats all events well but for one moment has a wrong state: after the event with this number. The
/// state is right again before a stale event, which changes nothing and would let it stand.
Treatment SpoiledAt(std::size_t at, const std::function<void(WindowModel&)>& spoil) {
    return [at, spoil, right = std::make_shared<WindowModel>()](WindowModel& model, const Event& event,
                                                                std::size_t number) {
        if (number == at + 1 && event.detail.starts_with(L"stale")) model = *right;
        Apply(model, event);
        if (number != at) return;
        *right = model;
        spoil(model);
    };
}

TEST(ProgressModelCheck, AWrongBarAfterAnyEvent_IsFoundInItsGroup) {
    for (std::size_t number = 1; number <= Sequences().size(); ++number) {
        const Groups group = {Sequences()[number - 1].group};
        const auto spoiled = [&](void (*spoil)(WindowModel&)) { return FailedIn(Check(SpoiledAt(number, spoil))); };
        EXPECT_EQ(spoiled([](WindowModel& model) { ++model.progress.percent; }), group) << Named(number);
        EXPECT_EQ(spoiled([](WindowModel& model) { --model.progress.percent; }), group) << Named(number);
        EXPECT_EQ(spoiled([](WindowModel& model) { model.progress.indeterminate = !model.progress.indeterminate; }),
                  group)
            << Named(number);
    }
}

/// What must hold beside the bar after single events.
struct SpoiledState {
    const char* what;
    std::size_t at;
    void (*spoil)(WindowModel& model);
};
constexpr SpoiledState kSpoiledStates[] = {
    {"a transfer can be cancelled", 1, [](WindowModel& model) { model.progress.cancelEnabled = false; }},
    {"the stage is Installing", 9, [](WindowModel& model) { model.progress.lastStage = Stage::Verifying; }},
    {"an install cannot be cancelled", 9, [](WindowModel& model) { model.progress.cancelEnabled = true; }},
    {"an install blocks the close box", 9, [](WindowModel& model) { model.progress.closeBlocked = false; }},
    {"a stale event is no stage", 10, [](WindowModel& model) { model.progress.lastStage = Stage::DownloadingBytes; }},
    {"a stale event gives no cancel back", 10, [](WindowModel& model) { model.progress.cancelEnabled = true; }},
    {"a stale event frees no close box", 10, [](WindowModel& model) { model.progress.closeBlocked = false; }},
    {"the stage is Completed", 11, [](WindowModel& model) { model.progress.lastStage = Stage::Installing; }},
    {"a stale event at the end is no stage", 12,
     [](WindowModel& model) { model.progress.lastStage = Stage::Verifying; }},
    {"a verification teaches no total", 14, [](WindowModel& model) { model.progress.aggregateKnown = true; }},
    {"an unknown total is not learned", 15, [](WindowModel& model) { model.progress.aggregateKnown = true; }},
    {"the first total stays", 17, [](WindowModel& model) { model.progress.aggregateTotal = 200; }},
    {"an install without transfer is Installing", 18,
     [](WindowModel& model) { model.progress.lastStage = Stage::Verifying; }},
    {"an install without transfer cannot be cancelled", 18,
     [](WindowModel& model) { model.progress.cancelEnabled = true; }},
    {"an install without transfer blocks the close box", 18,
     [](WindowModel& model) { model.progress.closeBlocked = false; }},
    {"a cancelled update is over", 20, [](WindowModel& model) { model.progress.terminal = false; }},
    {"a cancelled update stays cancelled", 20,
     [](WindowModel& model) { model.progress.lastStage = Stage::DownloadingBytes; }},
    {"a cancelled update cannot be cancelled", 20, [](WindowModel& model) { model.progress.cancelEnabled = true; }},
    {"a cancelled update frees the close box", 20, [](WindowModel& model) { model.progress.closeBlocked = true; }},
    {"a repair shows the window", 21, [](WindowModel& model) { model.shown = false; }},
    {"a repair stays compact", 21, [](WindowModel& model) { model.viewMode = ViewMode::progress; }},
    {"the stage is Repairing", 21, [](WindowModel& model) { model.progress.lastStage = Stage::Checking; }},
    {"a repair can be cancelled", 21, [](WindowModel& model) { model.progress.cancelEnabled = false; }},
    {"a repair blocks the close box", 21, [](WindowModel& model) { model.progress.closeBlocked = false; }},
    {"bytes of a repair leave the window compact", 22, [](WindowModel& model) { model.viewMode = ViewMode::progress; }},
    {"a repair shows no notes", 22, [](WindowModel& model) { model.At(Control::notesPanel).visible = true; }},
    {"a repair offers no update", 22, [](WindowModel& model) { model.At(Control::updateButton).visible = true; }},
    {"the text alone is no cancel", 22,
     [](WindowModel& model) {
         model.progress.cancelEnabled = false;
         model.At(Control::statusLine).text = model.Text(TextId::CancellingSafely);
     }},
    {"the close box asks to cancel a repair", 22, [](WindowModel& model) { model.progress.cancelEnabled = false; }},
};

TEST(ProgressModelCheck, AWrongStateAfterAnEvent_IsFoundInItsGroup) {
    for (const SpoiledState& state : kSpoiledStates)
        ExpectFound(SpoiledAt(state.at, state.spoil), {Sequences()[state.at - 1].group}, state.what);
}

// --- Models with a rule missing ---

struct WrongModel {
    const char* what;
    Treatment treat;
    Groups groups;
};

bool IsTransfer(Stage stage) {
    return stage == Stage::Downloading || stage == Stage::DownloadingBytes || stage == Stage::Verifying;
}

const std::vector<WrongModel>& WrongModels() {
    static const std::vector<WrongModel> kWrongModels = {
        {"nothing is shown at all",
         [](WindowModel&, const Event&, std::size_t) {},
         {"phase_changes", "multiple_assets", "stale_events", "extraction", "per_file_verification",
          "no_transfer_install", "cancel_terminal", "mixed_total"}},
        {"no stage can be cancelled",
         [](WindowModel& model, const Event& event, std::size_t) {
             Apply(model, event);
             model.progress.cancelEnabled = false;
         },
         {"phase_changes"}},
        {"a repair opens the large view",
         [](WindowModel& model, const Event& event, std::size_t) {
             Apply(model, event);
             if (event.stage == Stage::Repairing) launcher_ui::OpenProgressView(model);
         },
         {"phase_changes"}},
        {"the next asset begins at 0",
         [](WindowModel& model, const Event& event, std::size_t) {
             if (event.detail == L"package:second" && event.stage == Stage::Downloading)
                 model.progress.aggregateDone = 0;
             Apply(model, event);
         },
         {"multiple_assets"}},
        {"bytes may fall",
         [](WindowModel& model, const Event& event, std::size_t) {
             if (event.stage == Stage::DownloadingBytes && event.total == model.progress.aggregateTotal)
                 model.progress.aggregateDone = event.completed;
             Apply(model, event);
         },
         {"multiple_assets"}},
        {"an unknown total is taken for a hundred",
         [](WindowModel& model, const Event& event, std::size_t) {
             Event known = event;
             if (event.stage == Stage::DownloadingBytes && event.total == 0) known.total = 100;
             Apply(model, known);
         },
         {"unknown_total"}},
        {"late events of a transfer are shown",
         [](WindowModel& model, const Event& event, std::size_t) {
             if (IsTransfer(event.stage)) {
                 model.progress.installing = false;
                 model.progress.terminal = false;
             }
             Apply(model, event);
         },
         {"stale_events", "cancel_terminal"}},
        {"late events are shown while an install runs",
         [](WindowModel& model, const Event& event, std::size_t) {
             if (IsTransfer(event.stage)) model.progress.installing = false;
             Apply(model, event);
         },
         {"stale_events"}},
        {"the last verified bytes of an asset move nothing",
         [](WindowModel& model, const Event& event, std::size_t) {
             if (event.stage != Stage::Verifying || event.completed != event.total) Apply(model, event);
         },
         {"extraction"}},
        {"verified bytes move nothing",
         [](WindowModel& model, const Event& event, std::size_t) {
             const bool ofTheTransfer = event.stage == Stage::Verifying && event.total == model.progress.aggregateTotal;
             if (!ofTheTransfer) Apply(model, event);
         },
         {"extraction", "multiple_assets"}},
        {"single files move the bar",
         [](WindowModel& model, const Event& event, std::size_t) {
             const auto& known = model.progress;
             const bool ofOneFile =
                 event.stage == Stage::Verifying && known.aggregateKnown && event.total != known.aggregateTotal;
             Apply(model, event);
             if (ofOneFile) model.progress.percent = static_cast<std::int32_t>(100 * event.completed / event.total);
         },
         {"per_file_verification"}},
        {"an install is full without a transfer",
         [](WindowModel& model, const Event& event, std::size_t) {
             Apply(model, event);
             if (event.stage != Stage::Installing) return;
             model.progress.percent = 100;
             model.progress.indeterminate = false;
         },
         {"no_transfer_install"}},
        {"a cancelled update goes on",
         [](WindowModel& model, const Event& event, std::size_t) {
             Apply(model, event);
             if (event.stage == Stage::Cancelled) model.progress.terminal = false;
         },
         {"cancel_terminal"}},
        {"a verification teaches the total",
         [](WindowModel& model, const Event& event, std::size_t) {
             Event taken = event;
             if (event.stage == Stage::Verifying && !model.progress.aggregateKnown)
                 taken.stage = Stage::DownloadingBytes;
             Apply(model, taken);
         },
         {"mixed_total"}},
        {"another scale takes over",
         [](WindowModel& model, const Event& event, std::size_t) {
             if (event.stage == Stage::DownloadingBytes && event.total > model.progress.aggregateTotal)
                 model.progress.aggregateKnown = false;
             Apply(model, event);
         },
         {"mixed_total"}},
    };
    return kWrongModels;
}

TEST(ProgressModelCheck, AModelWithoutARule_IsFoundOut) {
    for (const WrongModel& wrong : WrongModels())
        ExpectFound(wrong.treat, wrong.groups, wrong.what);
}

TEST(ProgressModelCheck, EveryGroup_IsFoundAloneByAWrongModel) {
    for (const Group& group : kGroups) {
        EXPECT_TRUE(std::any_of(WrongModels().begin(), WrongModels().end(), [&](const WrongModel& wrong) {
            return wrong.groups == Groups{group.name};
        })) << group.name;
    }
}

TEST(ProgressModelVerdict, EveryGroupAlone_KeepsItFromPassing) {
    EXPECT_TRUE(ProgressModelVerdict().Passed());
    EXPECT_EQ(RenderProgressModelVerdict({}), Line({}));
    for (const Group& group : kGroups) {
        ProgressModelVerdict verdict;
        verdict.*group.holds = false;
        EXPECT_FALSE(verdict.Passed()) << group.name;
        EXPECT_EQ(RenderProgressModelVerdict(verdict), Line({group.name}));
    }
}

TEST(ProgressModelVerdict, Line_HasTheGroupsInTheirOrder) {
    EXPECT_EQ(RenderProgressModelVerdict({}),
              "UPDATE_PROGRESS_MODEL phase_changes=1 multiple_assets=1 unknown_total=1 stale_events=1 extraction=1 "
              "per_file_verification=1 no_transfer_install=1 cancel_terminal=1 mixed_total=1 passed=1\n");
}

}  // namespace
}  // namespace launcher_shell
