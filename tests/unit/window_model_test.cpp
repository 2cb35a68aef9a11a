#include "ui/window_model.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/window_model_fixture.h"

namespace launcher_ui {
namespace {

using namespace test_support;

const Names kCompactControls = {"title", "versionLine", "statusLine", "bar"};
const Names kPromptControls = {"title",      "statusLine",   "versionBadge", "notesHeading", "scrollHint",
                               "notesPanel", "safetyNotice", "updateButton", "laterButton"};
const Names kProgressControls = {"title",          "statusLine", "bar",         "versionBadge",
                                 "notesHeading",   "scrollHint", "notesPanel",  "progressLine",
                                 "progressDetail", "footer",     "cancelButton"};

Names With(Names names, const char* name) {
    names.insert(name);
    return names;
}

// --- The first state ---

struct FirstTextRow {
    Control control;
    std::vector<Piece> text;
};

TEST(NewWindow, EveryControl_HasItsFirstText) {
    const FirstTextRow rows[] = {
        {Control::title, {L"Velmora Pine Relay"}},
        {Control::versionLine, {TextId::CurrentVersionPrefix, L"2.1.4.1"}},
        {Control::statusLine, {TextId::PreparingCheck}},
        {Control::bar, {}},
        {Control::versionBadge, {}},
        {Control::notesHeading, {TextId::WhatsNew}},
        {Control::scrollHint, {TextId::ScrollForMore}},
        {Control::notesPanel, {}},
        {Control::safetyNotice, {TextId::SafetyNoteVerified}},
        {Control::progressLine, {}},
        {Control::progressDetail, {}},
        {Control::footer, {TextId::SafetyNoteSwitching}},
        {Control::notesLink, {TextId::ViewFullNotes}},
        {Control::updateButton, {TextId::UpdateNow}},
        {Control::laterButton, {TextId::Later}},
        {Control::cancelButton, {TextId::Cancel}},
        {Control::reconnectButton, {TextId::Reconnect}},
    };
    for (const Language language : kLanguages) {
        const WindowModel model = MakeWindowModel(language, L"2.1.4.1");
        for (const FirstTextRow& row : rows) {
            EXPECT_EQ(model.At(row.control).text, Joined(language, row.text)) << Number(row.control);
        }
        EXPECT_EQ(model.language, language);
    }
}

TEST(NewWindow, WithoutAVersion_SaysThatItIsUnknown) {
    for (const Language language : kLanguages) {
        const WindowModel model = MakeWindowModel(language, L"");
        EXPECT_EQ(model.At(Control::versionLine).text,
                  Joined(language, {TextId::CurrentVersionPrefix, TextId::UnknownVersion}));
        EXPECT_EQ(model.CurrentVersionText(), product::TextIn(language, TextId::UnknownVersion));
    }
    EXPECT_EQ(MakeWindowModel(Language::english, L"2.1").CurrentVersionText(), L"2.1");
}

TEST(NewWindow, IsCompactAndNotYetShown) {
    const WindowModel model = MakeWindowModel(Language::english, L"2.1.4.1");
    EXPECT_EQ(model.viewMode, ViewMode::compact);
    EXPECT_FALSE(model.shown);
    EXPECT_EQ(VisibleControls(model), kCompactControls);
    EXPECT_EQ(model.currentVersion, L"2.1.4.1");
}

TEST(NewWindow, Bar_IsToMoveInTheWorkingColour) {
    const WindowModel model = MakeWindowModel(Language::english, L"");
    EXPECT_TRUE(model.progress.indeterminate);
    EXPECT_EQ(model.progress.barColour, 0x2997FFu);
    EXPECT_EQ(model.progress.percent, 0);
    EXPECT_EQ(model.progress.marqueeTick, 0u);
    EXPECT_FALSE(model.progress.marqueeRuns);
}

TEST(NewWindow, HasNothingToCloseCancelOrAnswer) {
    const WindowModel model = MakeWindowModel(Language::english, L"");
    EXPECT_FALSE(model.progress.cancelEnabled);
    EXPECT_FALSE(model.progress.cancelRequested);
    EXPECT_FALSE(model.progress.closeBlocked);
    EXPECT_FALSE(model.promptOpen);
    EXPECT_EQ(model.promptChoice, PromptChoice::none);
    EXPECT_FALSE(model.autoAcceptPrompt);
    EXPECT_FALSE(model.failureHeld);
    EXPECT_EQ(model.fullNotesUrl, L"");
    EXPECT_EQ(model.offeredVersion, L"");
}

TEST(Choice, Numbers_AreThoseOfThePrompt) {
    EXPECT_EQ(static_cast<unsigned>(PromptChoice::none), 0u);
    EXPECT_EQ(static_cast<unsigned>(PromptChoice::update), 6u);
    EXPECT_EQ(static_cast<unsigned>(PromptChoice::later), 7u);
}

// --- Views ---

TEST(OpenView, FromEveryView_ShowsItsControlsAndHidesTheRest) {
    for (const ViewMode before : kViews) {
        WindowModel model = WindowIn(before);
        for (ControlState& control : model.controls) {
            control.visible = !control.visible;
        }
        model.fullNotesUrl.clear();
        OpenView(model, ViewMode::compact);
        EXPECT_EQ(VisibleControls(model), kCompactControls);
        OpenView(model, ViewMode::prompt);
        EXPECT_EQ(VisibleControls(model), kPromptControls);
        OpenView(model, ViewMode::progress);
        EXPECT_EQ(VisibleControls(model), kProgressControls);
    }
}

TEST(OpenView, NotesLink_IsSeenInThePromptIfItLeadsSomewhere) {
    for (const ViewMode view : kViews) {
        WindowModel model = CompactWindow();
        model.fullNotesUrl = kNotesUrl;
        OpenView(model, view);
        EXPECT_EQ(model.At(Control::notesLink).visible, view == ViewMode::prompt) << Number(view);
    }
    WindowModel model = CompactWindow();
    model.fullNotesUrl = kNotesUrl;
    OpenView(model, ViewMode::prompt);
    EXPECT_EQ(VisibleControls(model), With(kPromptControls, "notesLink"));
}

TEST(OpenView, HidesReconnectUntilAReportComes) {
    WindowModel model = ProgressWindow();
    Report(model, Receiving(1024.0));
    EXPECT_EQ(VisibleControls(model), With(kProgressControls, "reconnectButton"));
    OpenView(model, ViewMode::progress);
    EXPECT_EQ(VisibleControls(model), kProgressControls);
}

TEST(OpenView, ShowsTheWindowAndArrangesIt) {
    for (const ViewMode view : kViews) {
        WindowModel model = CompactWindow();
        model.shown = false;
        const unsigned arrangement = model.arrangement;
        OpenView(model, view);
        EXPECT_TRUE(model.shown);
        EXPECT_EQ(model.viewMode, view);
        EXPECT_EQ(model.arrangement, arrangement + 1);
    }
}

TEST(OpenView, ChangesNoText) {
    const WindowModel before = TransferWindow(30, 100);
    WindowModel model = before;
    OpenView(model, ViewMode::compact);
    for (std::size_t index = 0; index < kControlCount; ++index) {
        EXPECT_EQ(model.controls[index].text, before.controls[index].text) << index;
        EXPECT_EQ(model.controls[index].enabled, before.controls[index].enabled) << index;
    }
}

TEST(OpenProgressView, CannotBeCancelledOrClosedYet) {
    for (const Language language : kLanguages) {
        WindowModel model = CompactWindow(language);
        model.progress.cancelEnabled = true;
        OpenProgressView(model);
        EXPECT_FALSE(model.progress.cancelEnabled);
        EXPECT_TRUE(model.progress.closeBlocked);
        EXPECT_FALSE(model.At(Control::cancelButton).enabled);
        EXPECT_EQ(model.At(Control::cancelButton).text, product::TextIn(language, TextId::SkipUpdateAndOpen));
    }
}

TEST(OpenProgressView, SaysThatItPrepares) {
    WindowModel model = CompactWindow();
    model.At(Control::progressDetail).text = L"old";
    model.At(Control::statusLine).text = L"headline";
    OpenProgressView(model);
    EXPECT_EQ(model.viewMode, ViewMode::progress);
    EXPECT_EQ(model.At(Control::progressLine).text, model.Text(TextId::PreparingCheck));
    EXPECT_EQ(model.At(Control::progressDetail).text, L"");
    EXPECT_EQ(model.At(Control::statusLine).text, L"headline");
}

TEST(OpenCompactView, HasNothingToCancelAndItsCloseBoxWorks) {
    WindowModel model = TransferWindow(30, 100);
    ASSERT_TRUE(model.progress.cancelEnabled);
    ASSERT_TRUE(model.progress.closeBlocked);
    OpenCompactView(model);
    EXPECT_EQ(model.viewMode, ViewMode::compact);
    EXPECT_FALSE(model.progress.cancelEnabled);
    EXPECT_FALSE(model.progress.closeBlocked);
}

// --- Reconnect ---

TEST(ShowReconnect, Button_AgreesWithItsFlagsAndItsView) {
    for (const ViewMode view : kViews) {
        for (const bool available : {false, true}) {
            for (const bool requested : {false, true}) {
                WindowModel model = WindowIn(view);
                model.progress.reconnectAvailable = available;
                model.progress.reconnectRequested = requested;
                ShowReconnect(model);
                const ControlState& button = model.At(Control::reconnectButton);
                EXPECT_EQ(button.visible, available && view == ViewMode::progress) << Number(view) << requested;
                EXPECT_EQ(button.enabled, available && !requested) << Number(view);
            }
        }
    }
}

TEST(WithdrawReconnect, LeavesNeitherOfferNorWish) {
    WindowModel model = TransferWindow(30, 100);
    model.progress.reconnectRequested = true;
    Report(model, Receiving(1024.0));
    const WindowModel before = model;
    WithdrawReconnect(model);
    EXPECT_EQ(Changed(before, model), (Names{"reconnectAvailable", "reconnectRequested", "reconnectButton.visible"}));
    EXPECT_FALSE(model.progress.reconnectRequested);
    EXPECT_FALSE(model.At(Control::reconnectButton).enabled);
}

// --- The main text ---

TEST(SetMainText, IsOnTheLineOfTheViewAndOnTheBar) {
    for (const ViewMode view : kViews) {
        WindowModel model = WindowIn(view);
        model.At(Control::statusLine).text = L"status";
        model.At(Control::progressLine).text = L"progress";
        const WindowModel before = model;
        EXPECT_EQ(MainText(model), view == ViewMode::progress ? L"progress" : L"status");
        SetMainText(model, L"main");
        EXPECT_EQ(MainText(model), L"main");
        EXPECT_EQ(Changed(before, model),
                  (Names{"bar.text", view == ViewMode::progress ? "progressLine.text" : "statusLine.text"}));
        EXPECT_EQ(model.At(Control::bar).text, L"main");
    }
}

}  // namespace
}  // namespace launcher_ui
