#include "app/shared/EventHandler.h"

namespace norrow {
namespace {

// Notifications that ask for the user; completion and auth notices need nothing.
bool interrupts(const std::optional<HookEvent::NotificationType>& type) {
    using Type = HookEvent::NotificationType;
    return type == Type::permissionPrompt || type == Type::idlePrompt ||
           type == Type::agentNeedsInput;
}

} // namespace

bool EventHandler::repeatsAnnouncedEnd(const HookEvent& event) const {
    if (event.hookEventName != HookEvent::Name::notification ||
        event.notificationType != HookEvent::NotificationType::idlePrompt || !event.sessionId)
        return false;
    const auto announced = announcedEnds_.find(*event.sessionId);
    return announced != announcedEnds_.end() && announced->second == event.promptId;
}

EventHandler::Outcome EventHandler::handle(const HookEvent& event,
                                           const std::optional<std::string>& frontmostNow,
                                           SessionStore::TimePoint now) {
    // Claude Code reminds of every unanswered turn a minute after it ended; the user who
    // was told of that end needs no second alert while the session stands still.
    const bool repeat = repeatsAnnouncedEnd(event);
    if (event.sessionId && !repeat) announcedEnds_.erase(*event.sessionId);
    Outcome outcome = dispatch(event, frontmostNow, now);
    if (repeat) outcome.alert.reset();
    const bool endsTurn = event.hookEventName == HookEvent::Name::stop ||
                          event.hookEventName == HookEvent::Name::stopFailure;
    if (endsTurn && outcome.alert && event.sessionId)
        announcedEnds_.insert_or_assign(*event.sessionId, event.promptId);
    return outcome;
}

EventHandler::Outcome EventHandler::dispatch(const HookEvent& event,
                                             const std::optional<std::string>& frontmostNow,
                                             SessionStore::TimePoint now) {
    switch (event.hookEventName) {
    case HookEvent::Name::userPromptSubmit:
        turns_.begin(event, frontmostNow, now);
        return {true, std::nullopt};
    case HookEvent::Name::stop:
    case HookEvent::Name::stopFailure: {
        const auto finished = turns_.finish(event, now);
        if (!finished) return present(event, std::nullopt, std::nullopt, frontmostNow);
        return present(event, finished->duration, finished->turn.frontmostAtStart, frontmostNow);
    }
    case HookEvent::Name::notification: {
        if (!interrupts(event.notificationType)) return {};
        const auto turn = turns_.peek(event.promptId);
        if (!turn) return present(event, std::nullopt, std::nullopt, frontmostNow);
        return present(event, now - turn->startedAt, turn->frontmostAtStart, frontmostNow);
    }
    case HookEvent::Name::sessionEnd:
    case HookEvent::Name::subagentStop:
        return {};
    }
    return {};
}

EventHandler::Outcome EventHandler::present(const HookEvent& event, std::optional<Seconds> duration,
                                            const std::optional<std::string>& frontmostAtStart,
                                            const std::optional<std::string>& frontmostNow) {
    SummaryBridge::Result result = SummaryBridge::summarize(event, duration);
    names_.remember(event);
    if (event.sessionId) lastEventBySession_.insert_or_assign(*event.sessionId, event);
    if (event.bridgeVersion && !event.bridgeVersion->empty())
        lastBridgeVersion_ = event.bridgeVersion;
    if (rules_.holdsBack(event, result.kind, duration, frontmostAtStart, frontmostNow))
        return {true, std::nullopt};
    return {true, Alert{event, std::move(result)}};
}

} // namespace norrow
