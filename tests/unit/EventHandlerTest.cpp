#include "core/EventHandler.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::system_clock;

class EventHandlerTest : public ::testing::Test {
protected:
    HookEvent event(HookEvent::Name name, const std::string& promptId = "p1") {
        HookEvent e(name);
        e.promptId = promptId;
        e.sessionId = "session-1";
        e.cwd = "/work/proj";
        e.lastAssistantMessage = "Fixed the bug. Tests pass.";
        return e;
    }

    // Opens a turn at t0 with `frontmost` in front and ends it `after` later with `frontmostNow`.
    std::optional<EventHandler::Alert>
    turn(std::chrono::duration<double> after,
         std::optional<std::string> frontmost = "com.apple.Terminal",
         std::optional<std::string> frontmostNow = "com.apple.Safari",
         HookEvent stop = HookEvent(HookEvent::Name::stop)) {
        if (!stop.promptId) stop = event(HookEvent::Name::stop);
        handle(event(HookEvent::Name::userPromptSubmit), frontmost, t0);
        return handle(stop, frontmostNow, t0 + std::chrono::duration_cast<Clock::duration>(after))
            .alert;
    }

    EventHandler::Outcome handle(const HookEvent& e, const std::optional<std::string>& frontmost,
                                 Clock::time_point at) {
        return handler.handle(e, frontmost, at, rules);
    }

    AlertRules rules;
    SessionStore turns;
    SessionNames names;
    EventHandler handler{turns, names};
    Clock::time_point t0 = Clock::now();
};

TEST_F(EventHandlerTest, MinimumDurationHoldsBackShortTurns) {
    EXPECT_FALSE(turn(19.9s));
    const auto alert = turn(20s);
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->result.text, "Fixed the bug. Tests pass.");
    EXPECT_EQ(alert->result.durationText, "20s");
    rules.minimumDuration = 0s;
    EXPECT_TRUE(turn(0s));
}

TEST_F(EventHandlerTest, OnlyIfAwayHoldsBackTurnsWatchedInTheSameApp) {
    EXPECT_FALSE(turn(60s, "com.apple.Terminal", "com.apple.Terminal"));
    EXPECT_TRUE(turn(60s, std::nullopt, "com.apple.Terminal"));
    EXPECT_TRUE(turn(60s, "com.apple.Terminal", std::nullopt));
    HookEvent fromEditor = event(HookEvent::Name::stop);
    fromEditor.termProgram = "vscode";
    EXPECT_TRUE(turn(60s, "com.microsoft.VSCode", "com.microsoft.VSCode", fromEditor));
    rules.onlyIfAway = false;
    EXPECT_TRUE(turn(60s, "com.apple.Terminal", "com.apple.Terminal"));
    rules.onlyIfAway = true;
    rules.enabled = false;
    EXPECT_TRUE(turn(1s, "com.apple.Terminal", "com.apple.Terminal"));
}

TEST_F(EventHandlerTest, AStopWithoutAnOpenTurnIsAnnouncedWithoutDuration) {
    const auto outcome = handle(event(HookEvent::Name::stop, "never-opened"), "x", t0);
    ASSERT_TRUE(outcome.alert);
    EXPECT_FALSE(outcome.alert->result.durationText);
}

TEST_F(EventHandlerTest, AFailedTurnClosesAndIsAnnouncedLikeAWaitingAlert) {
    HookEvent failure = event(HookEvent::Name::stopFailure);
    HookEvent subagents = failure;
    subagents.agentId = "aa71b40bae677c767";
    handle(event(HookEvent::Name::userPromptSubmit), "a", t0);
    EXPECT_FALSE(handle(subagents, "a", t0 + 1s).alert);
    EXPECT_EQ(turns.openCount(), 1u);
    const auto alert = turn(1s, "com.apple.Terminal", "com.apple.Terminal", failure);
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->result.kind, SummaryKind::needsYou);
    EXPECT_EQ(turns.openCount(), 0u);
    rules.mutedProjects = {"proj"};
    EXPECT_FALSE(turn(60s, "a", "b", failure));
}

// Claude Code reminds of an unanswered turn a minute after its end: no second alert for a
// turn whose end was announced, unless something happened in its session since.
TEST_F(EventHandlerTest, TheIdleReminderOfAnAnnouncedEndIsNotAnnouncedAgain) {
    HookEvent idle = event(HookEvent::Name::notification);
    idle.notificationType = HookEvent::NotificationType::idlePrompt;
    idle.message = "Claude is waiting for your input";
    HookEvent laterPrompt = idle;
    laterPrompt.promptId = "p2";

    const auto remind = [&](std::chrono::seconds turnLength, std::vector<HookEvent> between,
                            const HookEvent& reminder) {
        turn(turnLength);
        for (const HookEvent& e : between)
            handle(e, "app", t0 + 90s);
        return handle(reminder, "app", t0 + 120s).alert.has_value();
    };
    EXPECT_FALSE(remind(60s, {}, idle));
    // A reminder held back still counts as the session's latest event.
    EXPECT_EQ(handler.lastEventBySession().at("session-1").notificationType, idle.notificationType);
    EXPECT_FALSE(remind(60s, {idle}, idle));
    EXPECT_TRUE(remind(5s, {}, idle));
    EXPECT_TRUE(remind(60s, {event(HookEvent::Name::subagentStop)}, idle));
    EXPECT_TRUE(remind(60s, {event(HookEvent::Name::userPromptSubmit, "p2")}, laterPrompt));
    EXPECT_TRUE(remind(60s, {}, laterPrompt));
}

TEST_F(EventHandlerTest, EventsThatNeedNothingProduceNothing) {
    using Type = HookEvent::NotificationType;
    for (const auto type : {std::optional<Type>(Type::agentCompleted),
                            std::optional<Type>(Type::authSuccess), std::optional<Type>()}) {
        HookEvent notice = event(HookEvent::Name::notification);
        notice.notificationType = type;
        const auto outcome = handle(notice, "app", t0);
        EXPECT_FALSE(outcome.alert);
        EXPECT_FALSE(outcome.menuChanged);
    }
    EXPECT_FALSE(handle(event(HookEvent::Name::sessionEnd), "app", t0).alert);
    EXPECT_FALSE(handle(event(HookEvent::Name::subagentStop), "app", t0).alert);
    EXPECT_TRUE(handler.lastEventBySession().empty());
}

TEST_F(EventHandlerTest, MutedProjectsAreSilentButStillRemembered) {
    rules.mutedProjects = {"proj", "other"};
    rules.enabled = false;
    HookEvent stop = event(HookEvent::Name::stop);
    stop.bridgeVersion = "1.2.0";
    EXPECT_FALSE(turn(600s, "a", "b", stop));
    HookEvent ask = event(HookEvent::Name::notification);
    ask.notificationType = HookEvent::NotificationType::agentNeedsInput;
    EXPECT_FALSE(handle(ask, "b", t0).alert);
    EXPECT_EQ(handler.lastEventBySession().at("session-1").notificationType, ask.notificationType);
    EXPECT_EQ(handler.lastBridgeVersion(), "1.2.0");
    EXPECT_EQ(names.projectName("session-1", "/nonexistent"), "proj");
}

// A dialog is announced as it opens and stands until the first event of its session after
// it; an answer restarts the turn's clock, so the user's wait is not counted as the agent's.
TEST_F(EventHandlerTest, DialogsStandUntilTheFirstEventAfterThemAndAnAnswerRestartsTheClock) {
    using N = HookEvent::Name;
    struct Case {
        N next;
        bool withdraws;
        bool restarts;
    };
    const Case cases[] = {
        {N::postToolUse, true, true},       {N::postToolUseFailure, true, true},
        {N::permissionDenied, true, true},  {N::elicitationResult, true, true},
        {N::userPromptSubmit, true, false}, {N::stop, true, false},
        {N::stopFailure, true, false},      {N::sessionEnd, true, false},
        {N::subagentStop, false, false},    {N::notification, false, false},
        {N::sessionStart, false, false},
    };
    for (const auto& [next, withdraws, restarts] : cases) {
        SCOPED_TRACE(std::string(HookEvent::rawValue(next)));
        turns.sweep(t0 + 24h);
        handle(event(N::userPromptSubmit), "terminal", t0);
        HookEvent request = event(N::permissionRequest);
        request.toolName = "Bash";
        request.toolInput = nlohmann::json{{"command", "npm test"}};
        const auto asked = handle(request, "terminal", t0 + 1s);
        ASSERT_TRUE(asked.alert);
        EXPECT_TRUE(asked.alert->standing);
        EXPECT_EQ(asked.alert->result.text, "Allow Bash: npm test");
        EXPECT_EQ(asked.alert->result.kind, SummaryKind::waiting);
        EXPECT_EQ(handler.waiting().at("session-1").since, t0 + 1s);

        HookEvent after = event(next, next == N::userPromptSubmit ? "p2" : "p1");
        if (next == N::notification)
            after.notificationType = HookEvent::NotificationType::permissionPrompt;
        const auto answered = handle(after, next == N::stop ? "browser" : "terminal", t0 + 75s);
        EXPECT_EQ(answered.withdrawn.has_value(), withdraws);
        EXPECT_EQ(handler.waiting().contains("session-1"), !withdraws);
        if (next == N::notification) {
            EXPECT_FALSE(answered.alert);
        }
        if (next == N::stop) {
            ASSERT_TRUE(answered.alert);
            EXPECT_EQ(answered.alert->result.durationText, "1m 15s");
        }
        if (!restarts) continue;
        // A second later the turn ends in another application: one second of work.
        EXPECT_FALSE(handle(event(N::stop), "browser", t0 + 76s).alert);
    }
}

TEST_F(EventHandlerTest, ANewDialogReplacesTheOneBeforeAndNoticesStandOnlyForThemselves) {
    HookEvent first = event(HookEvent::Name::elicitation);
    first.message = "Which branch?";
    EXPECT_FALSE(handle(first, "a", t0).withdrawn);
    HookEvent second = event(HookEvent::Name::permissionRequest);
    second.toolName = "ExitPlanMode";
    const auto replaced = handle(second, "a", t0 + 1s);
    EXPECT_EQ(replaced.withdrawn, "session-1");
    EXPECT_EQ(replaced.alert->result.text, "Plan ready for review");

    // The client's notice of the dialog, arriving just after its answer, is no new dialog.
    HookEvent notice = event(HookEvent::Name::notification);
    notice.notificationType = HookEvent::NotificationType::permissionPrompt;
    notice.message = "Claude needs your permission";
    handle(event(HookEvent::Name::postToolUse), "a", t0 + 2s);
    EXPECT_FALSE(handle(notice, "a", t0 + 7s).alert);

    // Without a request hook, the notice is the dialog's only sign, and stands until answered;
    // like any waiting alert, no rule holds it back.
    notice.sessionId = "session-2";
    notice.message.reset();
    HookEvent prompt = event(HookEvent::Name::userPromptSubmit, "p2");
    notice.promptId = "p2";
    prompt.sessionId = "session-2";
    handle(prompt, "a", t0 + 7s);
    const auto alone = handle(notice, "a", t0 + 8s);
    ASSERT_TRUE(alone.alert);
    EXPECT_TRUE(alone.alert->standing);
    EXPECT_EQ(alone.alert->result.text, "Waiting for you");
    EXPECT_EQ(alone.alert->result.durationText, "1s");
    HookEvent answered = event(HookEvent::Name::postToolUse);
    answered.sessionId = "session-2";
    EXPECT_TRUE(handle(answered, "a", t0 + 9s).withdrawn);
}

// The client announces a prompt typed while the agent works under the running turn's id;
// it runs under an id of its own once that turn stops.
TEST_F(EventHandlerTest, APromptTypedWhileTheAgentWorksIsTimedFromWhenItRuns) {
    handle(event(HookEvent::Name::userPromptSubmit, "p1"), "a", t0);
    handle(event(HookEvent::Name::userPromptSubmit, "p1"), "a", t0 + 50s);
    const auto first = handle(event(HookEvent::Name::stop, "p1"), "b", t0 + 60s);
    ASSERT_TRUE(first.alert);
    EXPECT_EQ(first.alert->result.durationText, "1m");
    HookEvent request = event(HookEvent::Name::permissionRequest, "p2");
    request.toolName = "Bash";
    EXPECT_EQ(handle(request, "b", t0 + 65s).alert->result.durationText, "5s");
    handle(event(HookEvent::Name::postToolUse, "p2"), "a", t0 + 90s);
    // Answered in the application where the queued turn started, and just after.
    EXPECT_FALSE(handle(event(HookEvent::Name::stop, "p2"), "a", t0 + 95s).alert);
}

TEST_F(EventHandlerTest, ATurnLeavingBackgroundTasksIsAnnouncedOnlyWhenItReallyEnds) {
    handle(event(HookEvent::Name::userPromptSubmit), "a", t0);
    HookEvent running = event(HookEvent::Name::stop);
    running.backgroundTasks = nlohmann::json::parse(R"([{"id":"b1","status":"running"}])");
    const auto early = handle(running, "b", t0 + 30s);
    EXPECT_FALSE(early.alert);
    EXPECT_EQ(turns.openCount(), 1u);
    // When the work ends the client prompts the agent itself, in a turn of its own.
    HookEvent notice = event(HookEvent::Name::userPromptSubmit, "p2");
    notice.prompt = "<task-notification>\n<task-id>b1</task-id>\n</task-notification>";
    handle(notice, "b", t0 + 80s);
    HookEvent finished = event(HookEvent::Name::stop, "p2");
    finished.backgroundTasks = nlohmann::json::parse(R"([{"id":"b1","status":"completed"}])");
    const auto late = handle(finished, "b", t0 + 90s);
    ASSERT_TRUE(late.alert);
    EXPECT_EQ(late.alert->result.durationText, "1m 30s");
}

TEST_F(EventHandlerTest, ASessionIsKnownFromItsStartAndNamedByItsTitle) {
    HookEvent start = event(HookEvent::Name::sessionStart);
    start.promptId.reset();
    start.termAppPath = "/usr/bin/xterm";
    const auto outcome = handle(start, "a", t0);
    EXPECT_TRUE(outcome.menuChanged);
    EXPECT_FALSE(outcome.alert);
    EXPECT_EQ(handler.lastEventBySession().at("session-1").termAppPath, "/usr/bin/xterm");
    EXPECT_EQ(names.displayName("session-1", "/nonexistent"), "proj");
    HookEvent renamed = event(HookEvent::Name::userPromptSubmit);
    renamed.sessionTitle = "Fix login";
    handle(renamed, "a", t0);
    EXPECT_EQ(names.displayName("session-1", "/nonexistent"), "Fix login");
}

} // namespace
} // namespace norrow
