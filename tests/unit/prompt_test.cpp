#include "ui/prompt.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/window_model_fixture.h"

namespace launcher_ui {
namespace {

using namespace test_support;
using launcher_update::ReleaseNotes;

ReleaseNotes NotesOf(const std::wstring& priority) {
    ReleaseNotes notes;
    notes.summary = L"What is new";
    notes.highlights = {L"One", L"Two"};
    notes.priority = priority;
    return notes;
}

// --- Addresses ---

std::wstring UrlOfLength(std::size_t length) {
    std::wstring url = L"https://notes.example/";
    return url + std::wstring(length - url.size(), L'a');
}

TEST(NotesUrl, SecureAddress_IsSafe) {
    for (const wchar_t* url : {L"https://notes.example/2", L"HTTPS://notes.example/2", L"hTTpS://NOTES.example",
                               L"https://", L"https://notes.example/a b"}) {
        EXPECT_TRUE(IsSafeNotesUrl(url)) << Narrow(url);
    }
}

TEST(NotesUrl, OtherAddress_IsNotSafe) {
    for (const wchar_t* url :
         {L"", L"http://notes.example/2", L"https:/notes.example", L"https:", L"https", L" https://notes.example",
          L"ftp://notes.example", L"file:///c:/notes.txt", L"notes.example", L"xhttps://notes.example",
          L"ｈttps://notes.example", L"httpſ://notes.example", L"C:\\notes.exe", L"javascript:https://x"}) {
        EXPECT_FALSE(IsSafeNotesUrl(url)) << Narrow(url);
    }
}

TEST(NotesUrl, LineBreakAnywhere_IsNotSafe) {
    const std::wstring url = L"https://notes.example/2";
    for (std::size_t place = 0; place <= url.size(); ++place) {
        for (const wchar_t* unit : {L"\r", L"\n", L"\r\n"}) {
            EXPECT_FALSE(IsSafeNotesUrl(std::wstring(url).insert(place, unit))) << place;
        }
    }
}

TEST(NotesUrl, LongestAddress_Has2048Characters) {
    EXPECT_TRUE(IsSafeNotesUrl(UrlOfLength(2047)));
    EXPECT_TRUE(IsSafeNotesUrl(UrlOfLength(2048)));
    EXPECT_FALSE(IsSafeNotesUrl(UrlOfLength(2049)));
}

// --- Opening the prompt ---

struct HeadlineRow {
    const wchar_t* priority;
    TextId text;
};

constexpr HeadlineRow kHeadlines[] = {
    {L"hotfix", TextId::HotfixAvailable},        {L"recommended", TextId::RecommendedAvailable},
    {L"normal", TextId::NewVersionAvailable},    {L"", TextId::NewVersionAvailable},
    {L"Hotfix", TextId::NewVersionAvailable},    {L"HOTFIX", TextId::NewVersionAvailable},
    {L"hotfix ", TextId::NewVersionAvailable},   {L" hotfix", TextId::NewVersionAvailable},
    {L"hotfixes", TextId::NewVersionAvailable},  {L"Recommended", TextId::NewVersionAvailable},
    {L"recommend", TextId::NewVersionAvailable}, {L"recommended!", TextId::NewVersionAvailable},
};

TEST(OpenPrompt, Priority_DecidesTheHeadline) {
    for (const Language language : kLanguages) {
        for (const HeadlineRow& row : kHeadlines) {
            WindowModel model = CompactWindow(language);
            OpenPrompt(model, kOffered, NotesOf(row.priority), L"");
            EXPECT_EQ(model.At(Control::statusLine).text, product::TextIn(language, row.text)) << Narrow(row.priority);
        }
    }
}

TEST(OpenPrompt, Badge_NamesBothVersions) {
    WindowModel model = CompactWindow();
    OpenPrompt(model, L"2.2", {}, L"");
    EXPECT_EQ(model.At(Control::versionBadge).text, L"2.1.4.1 → 2.2");
    EXPECT_EQ(model.offeredVersion, L"2.2");
}

TEST(OpenPrompt, Badge_SaysThatTheInstalledVersionIsUnknown) {
    for (const Language language : kLanguages) {
        WindowModel model = MakeWindowModel(language, L"");
        OpenPrompt(model, L"2.2", {}, L"");
        EXPECT_EQ(model.At(Control::versionBadge).text, Joined(language, {TextId::UnknownVersion, L" → 2.2"}));
    }
}

TEST(OpenPrompt, Notes_AreToBeFilledAnew) {
    WindowModel model = CompactWindow();
    const unsigned revision = model.notesRevision;
    OpenPrompt(model, kOffered, NotesOf(L"hotfix"), L"");
    EXPECT_EQ(model.notes, NotesOf(L"hotfix"));
    EXPECT_EQ(model.notesRevision, revision + 1);
}

TEST(OpenPrompt, Link_IsSeenIfItLeadsSomewhere) {
    WindowModel model = CompactWindow();
    OpenPrompt(model, kOffered, {}, kNotesUrl);
    EXPECT_EQ(model.fullNotesUrl, kNotesUrl);
    EXPECT_TRUE(model.At(Control::notesLink).visible);
    OpenPrompt(model, kOffered, {}, L"");
    EXPECT_EQ(model.fullNotesUrl, L"");
    EXPECT_FALSE(model.At(Control::notesLink).visible);
}

TEST(OpenPrompt, LargeView_IsShownWithItsControls) {
    WindowModel model = CompactWindow();
    model.shown = false;
    OpenPrompt(model, kOffered, {}, L"");
    EXPECT_EQ(model.viewMode, ViewMode::prompt);
    EXPECT_TRUE(model.shown);
    EXPECT_EQ(VisibleControls(model), (Names{"title", "statusLine", "versionBadge", "notesHeading", "scrollHint",
                                             "notesPanel", "safetyNotice", "updateButton", "laterButton"}));
}

TEST(OpenPrompt, WaitsForAChoice) {
    WindowModel model = CompactWindow();
    model.promptChoice = PromptChoice::later;
    OpenPrompt(model, kOffered, {}, L"");
    EXPECT_TRUE(model.promptOpen);
    EXPECT_EQ(model.promptChoice, PromptChoice::none);
}

TEST(OpenPrompt, AfterATransfer_BeginsANewUpdate) {
    WindowModel model = TransferWindow(30, 100);
    Report(model, Receiving(1024.0));
    model.progress.cancelRequested = true;
    OpenPrompt(model, kOffered, {}, L"");
    EXPECT_FALSE(model.progress.aggregateKnown);
    EXPECT_FALSE(model.progress.progressSeen);
    EXPECT_FALSE(model.progress.stallWatch);
    EXPECT_FALSE(model.progress.reconnectAvailable);
    EXPECT_FALSE(model.progress.cancelRequested);
    EXPECT_FALSE(model.progress.cancelEnabled);
    EXPECT_FALSE(model.progress.closeBlocked);
}

TEST(OpenPrompt, AfterAFailure_LooksAsIfThereHadBeenNone) {
    for (const Language language : kLanguages) {
        for (const bool blocking : {false, true}) {
            WindowModel fresh = CompactWindow(language);
            WindowModel model = FailureWindow(blocking, language);
            model.failureClosed = true;
            OpenPrompt(fresh, kOffered, NotesOf(L"hotfix"), kNotesUrl);
            OpenPrompt(model, kOffered, NotesOf(L"hotfix"), kNotesUrl);
            // What is not to be seen in this view, and the counters.
            const Names allowed = {"percent",     "indeterminate",        "barColour",
                                   "arrangement", "notesRevision",        "progressLine.text",
                                   "bar.text",    "cancelButton.enabled", "reconnectButton.enabled"};
            for (const std::string& name : Changed(fresh, model)) {
                EXPECT_EQ(allowed.count(name), 1u) << name;
            }
        }
    }
}

TEST(OpenPrompt, AfterAFailure_TheHeadingIsThatOfNotes) {
    WindowModel model = FailureWindow(true);
    OpenPrompt(model, kOffered, {}, L"");
    EXPECT_EQ(model.At(Control::notesHeading).text, model.Text(TextId::WhatsNew));
    EXPECT_EQ(model.At(Control::cancelButton).text, model.Text(TextId::Cancel));
    EXPECT_EQ(model.At(Control::footer).text, model.Text(TextId::SafetyNoteSwitching));
}

// --- Closing it ---

TEST(ClosePrompt, Update_OpensTheProgressView) {
    WindowModel model = PromptWindow();
    model.promptChoice = PromptChoice::update;
    EXPECT_TRUE(ClosePrompt(model));
    EXPECT_FALSE(model.promptOpen);
    EXPECT_EQ(model.viewMode, ViewMode::progress);
    EXPECT_EQ(VisibleControls(model), VisibleControls(ProgressWindow()));
    EXPECT_TRUE(model.progress.closeBlocked);
    EXPECT_FALSE(model.progress.cancelEnabled);
    EXPECT_EQ(model.At(Control::cancelButton).text, model.Text(TextId::SkipUpdateAndOpen));
}

TEST(ClosePrompt, Update_SetsTheBarInMotion) {
    WindowModel model = PromptWindow();
    model.progress.percent = 100;
    model.progress.indeterminate = false;
    model.progress.barColour = colour::kBarOffering;
    model.promptChoice = PromptChoice::update;
    EXPECT_TRUE(ClosePrompt(model));
    EXPECT_EQ(model.progress.percent, 0);
    EXPECT_TRUE(model.progress.indeterminate);
    EXPECT_TRUE(model.progress.marqueeRuns);
    EXPECT_EQ(model.progress.barColour, colour::kBarWorking);
}

TEST(ClosePrompt, AnythingElse_OpensTheCompactView) {
    for (const PromptChoice choice : {PromptChoice::later, PromptChoice::none, static_cast<PromptChoice>(1)}) {
        WindowModel model = PromptWindow();
        model.promptChoice = choice;
        EXPECT_FALSE(ClosePrompt(model));
        EXPECT_FALSE(model.promptOpen);
        EXPECT_EQ(model.viewMode, ViewMode::compact);
        EXPECT_EQ(VisibleControls(model), VisibleControls(CompactWindow()));
        EXPECT_FALSE(model.progress.closeBlocked);
    }
}

TEST(ClosePrompt, Offer_IsKeptForTheBadge) {
    WindowModel model = PromptWindow();
    model.promptChoice = PromptChoice::update;
    EXPECT_TRUE(ClosePrompt(model));
    EXPECT_EQ(model.offeredVersion, kOffered);
    EXPECT_TRUE(model.At(Control::versionBadge).visible);
}

// --- Cancel ---

WindowModel Cancellable() {
    WindowModel model = TransferWindow(30, 100);
    Report(model, Receiving(1024.0));
    EXPECT_TRUE(model.progress.cancelEnabled);
    EXPECT_TRUE(model.At(Control::reconnectButton).enabled);
    return model;
}

TEST(RequestCancel, WhileItHasAnEffect_TurnsEverythingOff) {
    const WindowModel before = Cancellable();
    WindowModel model = before;
    RequestCancel(model);
    EXPECT_EQ(Changed(before, model),
              (Names{"cancelRequested", "cancelEnabled", "reconnectAvailable", "indeterminate", "marqueeRuns",
                     "reconnectButton.visible", "reconnectButton.enabled", "cancelButton.enabled", "progressLine.text",
                     "bar.text", "progressDetail.text"}));
    EXPECT_TRUE(model.progress.cancelRequested);
    EXPECT_TRUE(model.progress.indeterminate);
    EXPECT_TRUE(model.progress.marqueeRuns);
    EXPECT_EQ(model.At(Control::progressDetail).text, L"");
}

TEST(RequestCancel, SaysSoOnTheLineOfTheView) {
    for (const Language language : kLanguages) {
        WindowModel large = TransferWindow(30, 100, language);
        RequestCancel(large);
        EXPECT_EQ(large.At(Control::progressLine).text, product::TextIn(language, TextId::CancellingSafely));
        WindowModel compact = RepairWindow(language);
        RequestCancel(compact);
        EXPECT_EQ(compact.At(Control::statusLine).text, product::TextIn(language, TextId::CancellingSafely));
        EXPECT_EQ(compact.viewMode, ViewMode::compact);
    }
}

TEST(RequestCancel, DropsAWishToReconnect) {
    WindowModel model = Cancellable();
    EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
    ASSERT_TRUE(model.progress.reconnectRequested);
    RequestCancel(model);
    EXPECT_FALSE(model.progress.reconnectRequested);
}

TEST(RequestCancel, WithoutEffect_ChangesNothing) {
    for (const bool enabled : {false, true}) {
        for (const bool requested : {false, true}) {
            if (enabled && !requested) continue;
            WindowModel model = Cancellable();
            model.progress.cancelEnabled = enabled;
            model.progress.cancelRequested = requested;
            const WindowModel before = model;
            RequestCancel(model);
            EXPECT_EQ(Changed(before, model), Names{}) << enabled << requested;
        }
    }
}

TEST(RequestCancel, BarMovesUntilTheEndComes) {
    WindowModel model = Cancellable();
    RequestCancel(model);
    StepMarquee(model);
    EXPECT_EQ(model.progress.marqueeTick, 1u);
    Apply(model, Stage::Cancelled);
    EXPECT_FALSE(model.progress.indeterminate);
    EXPECT_EQ(model.progress.marqueeTick, 0u);
    EXPECT_EQ(model.At(Control::progressLine).text, model.Text(TextId::CancelledStarting));
}

// --- Close box and Escape ---

enum Situation { failureHeld = 1, promptOpen = 2, cancelEnabled = 4, closeBlocked = 8 };
constexpr unsigned kSituations = 16;

WindowModel WindowWith(unsigned situations) {
    WindowModel model = TransferWindow(30, 100);
    model.failureHeld = (situations & failureHeld) != 0;
    model.promptOpen = (situations & promptOpen) != 0;
    model.progress.cancelEnabled = (situations & cancelEnabled) != 0;
    model.progress.closeBlocked = (situations & closeBlocked) != 0;
    return model;
}

/// What closing does in the first of the situations that holds.
Names EffectOfClosing(unsigned situations) {
    if ((situations & failureHeld) != 0) return {"failureClosed", "shown"};
    if ((situations & promptOpen) != 0) return {"promptChoice"};
    if ((situations & cancelEnabled) != 0) {
        return {"cancelRequested",      "cancelEnabled",           "indeterminate",
                "marqueeRuns",          "reconnectButton.enabled", "bar.text",
                "cancelButton.enabled", "progressLine.text",       "progressDetail.text"};
    }
    return {};
}

TEST(CloseBox, FirstSituationThatHolds_Decides) {
    for (unsigned situations = 0; situations < kSituations; ++situations) {
        WindowModel model = WindowWith(situations);
        const WindowModel before = model;
        PressCloseBox(model);
        const Names expected = situations == 0 ? Names{"shown"} : EffectOfClosing(situations);
        EXPECT_EQ(Changed(before, model), expected) << situations;
        EXPECT_EQ(model.shown, (situations & failureHeld) == 0 && situations != 0) << situations;
    }
}

TEST(Escape, FirstSituationThatHolds_Decides) {
    for (unsigned situations = 0; situations < kSituations; ++situations) {
        WindowModel model = WindowWith(situations);
        const WindowModel before = model;
        const bool taken = PressEscape(model);
        EXPECT_EQ(Changed(before, model), EffectOfClosing(situations)) << situations;
        EXPECT_EQ(taken, situations != 0) << situations << ": else it is an ordinary key";
    }
}

TEST(CloseBox, OpenPrompt_MeansLater) {
    WindowModel model = PromptWindow();
    PressCloseBox(model);
    EXPECT_EQ(model.promptChoice, PromptChoice::later);
    EXPECT_FALSE(model.progress.cancelRequested);
    EXPECT_TRUE(model.shown);
}

TEST(Escape, OpenPrompt_MeansLater) {
    WindowModel model = PromptWindow();
    EXPECT_TRUE(PressEscape(model));
    EXPECT_EQ(model.promptChoice, PromptChoice::later);
}

TEST(CloseBox, HeldFailure_IsClosedWhetherItBlocksOrNot) {
    for (const bool blocking : {false, true}) {
        WindowModel model = FailureWindow(blocking);
        PressCloseBox(model);
        EXPECT_TRUE(model.failureClosed);
        EXPECT_FALSE(model.shown);
    }
}

TEST(CloseBox, SecondPressWhileCancelling_IsIgnored) {
    WindowModel model = Cancellable();
    PressCloseBox(model);
    EXPECT_TRUE(model.progress.cancelRequested);
    const WindowModel before = model;
    PressCloseBox(model);
    EXPECT_EQ(Changed(before, model), Names{});
}

// --- Enter ---

TEST(Enter, OpenPrompt_IsAccepted) {
    WindowModel model = PromptWindow();
    const WindowModel before = model;
    EXPECT_TRUE(PressEnter(model));
    EXPECT_EQ(Changed(before, model), Names{"promptChoice"});
    EXPECT_EQ(model.promptChoice, PromptChoice::update);
}

TEST(Enter, WithoutAPrompt_IsAnOrdinaryKey) {
    for (const WindowModel& before :
         {CompactWindow(), ProgressWindow(), Cancellable(), FailureWindow(true), FailureWindow(false)}) {
        WindowModel model = before;
        EXPECT_FALSE(PressEnter(model));
        EXPECT_EQ(Changed(before, model), Names{});
    }
}

// --- Buttons ---

constexpr int kAllButtons[] = {kUpdateButtonId,
                               kLaterButtonId,
                               kNotesLinkId,
                               kCancelButtonId,
                               kVersionBadgeId,
                               kBarId,
                               kReconnectButtonId,
                               0,
                               1,
                               1008};

TEST(Buttons, Numbers_AreFixed) {
    EXPECT_EQ(kUpdateButtonId, 1001);
    EXPECT_EQ(kLaterButtonId, 1002);
    EXPECT_EQ(kNotesLinkId, 1003);
    EXPECT_EQ(kCancelButtonId, 1004);
    EXPECT_EQ(kVersionBadgeId, 1005);
    EXPECT_EQ(kBarId, 1006);
    EXPECT_EQ(kReconnectButtonId, 1007);
}

TEST(Buttons, UpdateAndLater_Choose) {
    WindowModel model = PromptWindow();
    EXPECT_EQ(PressButton(model, kUpdateButtonId), ButtonEffect::none);
    EXPECT_EQ(model.promptChoice, PromptChoice::update);
    EXPECT_EQ(PressButton(model, kLaterButtonId), ButtonEffect::none);
    EXPECT_EQ(model.promptChoice, PromptChoice::later);
    EXPECT_TRUE(model.promptOpen) << "the waiting side ends the prompt";
}

TEST(Buttons, Link_OpensTheNotesIfItLeadsSomewhere) {
    WindowModel model = PromptWindow();
    const WindowModel before = model;
    EXPECT_EQ(PressButton(model, kNotesLinkId), ButtonEffect::openFullNotes);
    EXPECT_EQ(Changed(before, model), Names{});
    model.fullNotesUrl.clear();
    EXPECT_EQ(PressButton(model, kNotesLinkId), ButtonEffect::none);
}

TEST(Buttons, Cancel_AsksForTheCancel) {
    WindowModel model = Cancellable();
    WindowModel expected = model;
    RequestCancel(expected);
    EXPECT_EQ(PressButton(model, kCancelButtonId), ButtonEffect::none);
    EXPECT_EQ(Changed(expected, model), Names{});
    EXPECT_TRUE(model.progress.cancelRequested);
}

TEST(Buttons, Cancel_DoesNotCloseAWindowThatHoldsNoFailure) {
    WindowModel model = ProgressWindow();
    model.failureBlocking = true;
    EXPECT_EQ(PressButton(model, kCancelButtonId), ButtonEffect::none);
    EXPECT_FALSE(model.failureClosed);
    EXPECT_TRUE(model.shown);
}

TEST(Buttons, NumberThatNoButtonHas_ChangesNothing) {
    for (const int id : {kVersionBadgeId, kBarId, 0, 1000, 1008, -1}) {
        for (const WindowModel& before : {PromptWindow(), Cancellable(), FailureWindow(true)}) {
            WindowModel model = before;
            EXPECT_EQ(PressButton(model, id), ButtonEffect::none) << id;
            EXPECT_EQ(Changed(before, model), Names{}) << id;
        }
    }
}

TEST(Buttons, HeldFailure_LeavesOnlyCloseAndOnlyIfItBlocks) {
    for (const bool blocking : {false, true}) {
        for (const int id : kAllButtons) {
            WindowModel model = FailureWindow(blocking);
            model.fullNotesUrl = kNotesUrl;
            model.progress.cancelEnabled = true;
            model.progress.reconnectAvailable = true;
            const WindowModel before = model;
            EXPECT_EQ(PressButton(model, id), ButtonEffect::none) << id;
            const bool closes = id == kCancelButtonId && blocking;
            EXPECT_EQ(Changed(before, model), closes ? (Names{"failureClosed", "shown"}) : Names{}) << id;
        }
    }
}

// --- Reconnect ---

TEST(Reconnect, Available_IsAskedForOnce) {
    WindowModel model = Cancellable();
    const WindowModel before = model;
    EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
    EXPECT_EQ(Changed(before, model), (Names{"reconnectRequested", "reconnectButton.enabled"}));
    EXPECT_TRUE(model.progress.reconnectRequested);
    EXPECT_FALSE(model.At(Control::reconnectButton).enabled);
}

TEST(Reconnect, NotAvailableOrCancelled_ChangesNothing) {
    for (const bool available : {false, true}) {
        WindowModel model = Cancellable();
        model.progress.reconnectAvailable = available;
        model.progress.cancelRequested = available;
        const WindowModel before = model;
        EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
        EXPECT_EQ(Changed(before, model), Names{}) << available;
    }
}

TEST(TakeReconnectRequest, Wish_IsToldOnce) {
    WindowModel model = Cancellable();
    EXPECT_FALSE(TakeReconnectRequest(model));
    EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
    EXPECT_TRUE(TakeReconnectRequest(model));
    EXPECT_FALSE(model.progress.reconnectRequested);
    EXPECT_FALSE(TakeReconnectRequest(model));
}

TEST(TakeReconnectRequest, WhileCancelling_IsDropped) {
    WindowModel model = Cancellable();
    model.progress.reconnectRequested = true;
    model.progress.cancelRequested = true;
    EXPECT_FALSE(TakeReconnectRequest(model));
    EXPECT_FALSE(model.progress.reconnectRequested);
    model.progress.cancelRequested = false;
    EXPECT_FALSE(TakeReconnectRequest(model));
}

TEST(TakeReconnectRequest, ChangesTheWishAlone) {
    WindowModel model = Cancellable();
    EXPECT_EQ(PressButton(model, kReconnectButtonId), ButtonEffect::none);
    const WindowModel before = model;
    EXPECT_TRUE(TakeReconnectRequest(model));
    EXPECT_EQ(Changed(before, model), Names{"reconnectRequested"});
}

}  // namespace
}  // namespace launcher_ui
