#include "app/shared/EventHandler.h"

#include "support/TempDir.h"

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
        handler.handle(event(HookEvent::Name::userPromptSubmit), frontmost, t0);
        return handler
            .handle(stop, frontmostNow, t0 + std::chrono::duration_cast<Clock::duration>(after))
            .alert;
    }

    test::TempDir dir;
    Settings settings{QString::fromStdString((dir / "settings.ini").string())};
    SuppressionRules rules{settings};
    SessionStore turns;
    SessionNames names;
    EventHandler handler{turns, names, rules};
    Clock::time_point t0 = Clock::now();
};

TEST_F(EventHandlerTest, MinimumDurationHoldsBackShortTurns) {
    EXPECT_FALSE(turn(19.9s));
    const auto alert = turn(20s);
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->result.text, "Fixed the bug. Tests pass.");
    EXPECT_EQ(alert->result.durationText, "20s");
    rules.setMinimumDuration(0s);
    EXPECT_TRUE(turn(0s));
}

TEST_F(EventHandlerTest, OnlyIfAwayHoldsBackTurnsWatchedInTheSameApp) {
    EXPECT_FALSE(turn(60s, "com.apple.Terminal", "com.apple.Terminal"));
    EXPECT_TRUE(turn(60s, std::nullopt, "com.apple.Terminal"));
    EXPECT_TRUE(turn(60s, "com.apple.Terminal", std::nullopt));
    HookEvent fromEditor = event(HookEvent::Name::stop);
    fromEditor.termProgram = "vscode";
    EXPECT_TRUE(turn(60s, "com.microsoft.VSCode", "com.microsoft.VSCode", fromEditor));
    rules.setOnlyIfAway(false);
    EXPECT_TRUE(turn(60s, "com.apple.Terminal", "com.apple.Terminal"));
    rules.setOnlyIfAway(true);
    rules.setEnabled(false);
    EXPECT_TRUE(turn(1s, "com.apple.Terminal", "com.apple.Terminal"));
}

TEST_F(EventHandlerTest, AStopWithoutAnOpenTurnIsAnnouncedWithoutDuration) {
    const auto outcome = handler.handle(event(HookEvent::Name::stop, "never-opened"), "x", t0);
    ASSERT_TRUE(outcome.alert);
    EXPECT_FALSE(outcome.alert->result.durationText);
}

TEST_F(EventHandlerTest, NotificationsThatAskForTheUserAreNeverHeldBackByTheRules) {
    handler.handle(event(HookEvent::Name::userPromptSubmit), "app", t0);
    HookEvent permission = event(HookEvent::Name::notification);
    permission.lastAssistantMessage.reset();
    permission.notificationType = HookEvent::NotificationType::permissionPrompt;
    const auto outcome = handler.handle(permission, "app", t0 + 1s);
    ASSERT_TRUE(outcome.alert);
    EXPECT_EQ(outcome.alert->result.kind, SummaryKind::waiting);
    EXPECT_EQ(outcome.alert->result.text, "Waiting for you");
    EXPECT_EQ(outcome.alert->result.durationText, "1s");
    EXPECT_EQ(turns.openCount(), 1u);
}

TEST_F(EventHandlerTest, AFailedTurnClosesAndIsAnnouncedLikeAWaitingAlert) {
    HookEvent failure = event(HookEvent::Name::stopFailure);
    const auto alert = turn(1s, "com.apple.Terminal", "com.apple.Terminal", failure);
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->result.kind, SummaryKind::needsYou);
    EXPECT_EQ(turns.openCount(), 0u);
    settings.set("rule.mutedProjects", QStringList{"proj"});
    EXPECT_FALSE(turn(60s, "a", "b", failure));
}

// Claude Code reminds of an unanswered turn a minute after its end: no second alert for a
// turn whose end was announced, unless something happened in its session since.
TEST_F(EventHandlerTest, TheIdleReminderOfAnAnnouncedEndIsNotAnnouncedAgain) {
    HookEvent idle = event(HookEvent::Name::notification);
    idle.notificationType = HookEvent::NotificationType::idlePrompt;
    idle.message = "Claude is waiting for your input";
    HookEvent permission = idle;
    permission.notificationType = HookEvent::NotificationType::permissionPrompt;
    HookEvent laterPrompt = idle;
    laterPrompt.promptId = "p2";

    const auto remind = [&](std::chrono::seconds turnLength, std::vector<HookEvent> between,
                            const HookEvent& reminder) {
        turn(turnLength);
        for (const HookEvent& e : between)
            handler.handle(e, "app", t0 + 90s);
        return handler.handle(reminder, "app", t0 + 120s).alert.has_value();
    };
    EXPECT_FALSE(remind(60s, {}, idle));
    // A reminder held back still counts as the session's latest event.
    EXPECT_EQ(handler.lastEventBySession().at("session-1"), idle);
    EXPECT_FALSE(remind(60s, {idle}, idle));
    EXPECT_TRUE(remind(5s, {}, idle));
    EXPECT_TRUE(remind(60s, {permission}, idle));
    EXPECT_TRUE(remind(60s, {event(HookEvent::Name::userPromptSubmit, "p2")}, laterPrompt));
    EXPECT_TRUE(remind(60s, {}, laterPrompt));
}

TEST_F(EventHandlerTest, EventsThatNeedNothingProduceNothing) {
    using Type = HookEvent::NotificationType;
    for (const auto type : {std::optional<Type>(Type::agentCompleted),
                            std::optional<Type>(Type::authSuccess), std::optional<Type>()}) {
        HookEvent notice = event(HookEvent::Name::notification);
        notice.notificationType = type;
        const auto outcome = handler.handle(notice, "app", t0);
        EXPECT_FALSE(outcome.alert);
        EXPECT_FALSE(outcome.menuChanged);
    }
    EXPECT_FALSE(handler.handle(event(HookEvent::Name::sessionEnd), "app", t0).alert);
    EXPECT_FALSE(handler.handle(event(HookEvent::Name::subagentStop), "app", t0).alert);
    EXPECT_TRUE(handler.lastEventBySession().empty());
}

TEST_F(EventHandlerTest, MutedProjectsAreSilentButStillRemembered) {
    settings.set("rule.mutedProjects", QStringList{"proj", "other"});
    rules.setEnabled(false);
    HookEvent stop = event(HookEvent::Name::stop);
    stop.bridgeVersion = "1.2.0";
    EXPECT_FALSE(turn(600s, "a", "b", stop));
    HookEvent ask = event(HookEvent::Name::notification);
    ask.notificationType = HookEvent::NotificationType::agentNeedsInput;
    EXPECT_FALSE(handler.handle(ask, "b", t0).alert);
    EXPECT_EQ(handler.lastEventBySession().at("session-1"), ask);
    EXPECT_EQ(handler.lastBridgeVersion(), "1.2.0");
    EXPECT_EQ(names.projectName("session-1", dir.path()), "proj");
}

} // namespace
} // namespace norrow
