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

EventHandler::Outcome EventHandler::handle(const HookEvent& event,
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
