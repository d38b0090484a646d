#include "core/EventHandler.h"

namespace norrow {
namespace {

using Name = HookEvent::Name;
using Type = HookEvent::NotificationType;

// Events that mean the session waits on a dialog: a request, or the client's later notice of
// a dialog left unanswered.
bool asks(const HookEvent& event) {
    if (event.hookEventName == Name::permissionRequest || event.hookEventName == Name::elicitation)
        return true;
    const auto type = event.notificationType;
    return event.hookEventName == Name::notification &&
           (type == Type::permissionPrompt || type == Type::agentNeedsInput ||
            type == Type::elicitationDialog);
}

bool endsTurn(Name name) {
    return name == Name::stop || name == Name::stopFailure;
}

// An answer to the dialog itself, after which the agent works on in the same turn.
bool answersTheDialog(Name name) {
    return name == Name::postToolUse || name == Name::postToolUseFailure ||
           name == Name::permissionDenied || name == Name::elicitationResult;
}

// The first of these after a dialog tells that it is over.
bool endsAWait(Name name) {
    return answersTheDialog(name) || endsTurn(name) || name == Name::userPromptSubmit ||
           name == Name::sessionEnd;
}

} // namespace

bool EventHandler::repeatsAnnouncedEnd(const HookEvent& event) const {
    if (event.hookEventName != Name::notification || event.notificationType != Type::idlePrompt ||
        !event.sessionId)
        return false;
    const auto announced = announcedEnds_.find(*event.sessionId);
    return announced != announcedEnds_.end() && announced->second == event.promptId;
}

EventHandler::Outcome EventHandler::handle(const HookEvent& event,
                                           const std::optional<std::string>& frontmostNow,
                                           TimePoint now, const AlertRules& rules) {
    // Claude Code reminds of every unanswered turn a minute after it ended; the user who
    // was told of that end needs no second alert while the session stands still.
    const bool repeat = repeatsAnnouncedEnd(event);
    names_.remember(event);
    if (event.sessionId && !repeat) announcedEnds_.erase(*event.sessionId);
    adoptQueued(event);
    const Outcome answered = answer(event, frontmostNow, now);
    Outcome outcome = dispatch(event, frontmostNow, now, rules);
    startQueued(event, frontmostNow, now);
    outcome.menuChanged = outcome.menuChanged || answered.menuChanged;
    if (!outcome.withdrawn) outcome.withdrawn = answered.withdrawn;
    if (repeat) outcome.alert.reset();
    if (endsTurn(event.hookEventName) && outcome.alert && event.sessionId)
        announcedEnds_.insert_or_assign(*event.sessionId, event.promptId);
    if (event.hookEventName == Name::sessionEnd && event.sessionId) forget(*event.sessionId);
    return outcome;
}

EventHandler::Outcome EventHandler::answer(const HookEvent& event,
                                           const std::optional<std::string>& frontmostNow,
                                           TimePoint now) {
    if (!event.sessionId || !endsAWait(event.hookEventName)) return {};
    const auto node = waiting_.extract(*event.sessionId);
    if (!node) return {};
    if (node.mapped().requested)
        answered_.insert_or_assign(*event.sessionId, node.mapped().promptId);
    // From here the agent works again, watched from wherever the user answered.
    if (answersTheDialog(event.hookEventName))
        turns_.restart(node.mapped().promptId ? node.mapped().promptId : event.promptId,
                       frontmostNow, now);
    return {true, *event.sessionId, std::nullopt};
}

EventHandler::Outcome EventHandler::dispatch(const HookEvent& event,
                                             const std::optional<std::string>& frontmostNow,
                                             TimePoint now, const AlertRules& rules) {
    if (asks(event)) return ask(event, frontmostNow, now, rules);
    switch (event.hookEventName) {
    case Name::userPromptSubmit:
        begin(event, frontmostNow, now);
        return {true, std::nullopt, std::nullopt};
    case Name::sessionStart:
        remember(event);
        return {true, std::nullopt, std::nullopt};
    case Name::stop:
    case Name::stopFailure: {
        // A sub-agent's failure is its own; the session's turn goes on.
        if (event.agentId) return {};
        // Work left running in the background ends the turn only when it is done.
        if (event.leavesTasksRunning()) {
            if (event.sessionId && event.promptId)
                backgroundTurns_.insert_or_assign(*event.sessionId, *event.promptId);
            remember(event);
            return {true, std::nullopt, std::nullopt};
        }
        const auto finished = turns_.finish(event, now);
        if (!finished) return present(event, std::nullopt, std::nullopt, frontmostNow, rules);
        return present(event, finished->duration, finished->turn.frontmostAtStart, frontmostNow,
                       rules);
    }
    case Name::notification:
        // Of the notifications that ask nothing of a dialog, only the idle reminder is told.
        if (event.notificationType != Type::idlePrompt) return {};
        return presentInTurn(event, frontmostNow, now, rules);
    default:
        return {};
    }
}

void EventHandler::begin(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                         TimePoint now) {
    if (event.sessionId) answered_.erase(*event.sessionId);
    // The client announces a prompt typed while the agent works under the running turn's id.
    if (event.sessionId && turns_.peek(event.promptId) && !event.continuesBackgroundWork()) {
        queued_.insert_or_assign(*event.sessionId, Queued{});
        return;
    }
    if (event.sessionId) queued_.erase(*event.sessionId);
    const auto left = event.sessionId ? backgroundTurns_.extract(*event.sessionId)
                                      : decltype(backgroundTurns_)::node_type();
    // The client's own prompt that background work ended carries on the turn that left it;
    // the user's own prompt supersedes that turn.
    if (left) {
        HookEvent earlier(Name::stop);
        earlier.promptId = left.mapped();
        const auto turn = turns_.finish(earlier, now);
        if (turn && event.continuesBackgroundWork()) {
            turns_.begin(event, turn->turn.frontmostAtStart, turn->turn.startedAt);
            return;
        }
    }
    turns_.begin(event, frontmostNow, now);
}

void EventHandler::startQueued(const HookEvent& event,
                               const std::optional<std::string>& frontmostNow, TimePoint now) {
    if (!endsTurn(event.hookEventName) || event.agentId || !event.sessionId) return;
    const auto queued = queued_.find(*event.sessionId);
    if (queued != queued_.end() && !queued->second.since)
        queued->second = Queued{now, frontmostNow};
}

void EventHandler::adoptQueued(const HookEvent& event) {
    if (!event.sessionId || !event.promptId || event.hookEventName == Name::userPromptSubmit)
        return;
    const auto queued = queued_.find(*event.sessionId);
    if (queued == queued_.end() || !queued->second.since || turns_.peek(event.promptId)) return;
    turns_.begin(event, queued->second.frontmostAtStart, *queued->second.since);
    queued_.erase(queued);
}

EventHandler::Outcome EventHandler::ask(const HookEvent& event,
                                        const std::optional<std::string>& frontmostNow,
                                        TimePoint now, const AlertRules& rules) {
    const bool known = event.sessionId && waiting_.contains(*event.sessionId);
    const bool notice = event.hookEventName == Name::notification;
    // The client's later notice of a dialog already announced, or just answered, adds nothing.
    const auto answered = event.sessionId ? answered_.find(*event.sessionId) : answered_.end();
    if (notice && (known || (answered != answered_.end() && answered->second == event.promptId))) {
        remember(event);
        return {};
    }
    if (!notice && event.sessionId) answered_.erase(*event.sessionId);
    Outcome outcome = presentInTurn(event, frontmostNow, now, rules);
    if (!event.sessionId) return outcome;
    // A new dialog of the same session replaces the one before.
    if (known) outcome.withdrawn = event.sessionId;
    waiting_.insert_or_assign(*event.sessionId, Waiting{event.promptId, now, !notice});
    if (outcome.alert) outcome.alert->standing = true;
    return outcome;
}

EventHandler::Outcome EventHandler::present(const HookEvent& event, std::optional<Seconds> duration,
                                            const std::optional<std::string>& frontmostAtStart,
                                            const std::optional<std::string>& frontmostNow,
                                            const AlertRules& rules) {
    SummaryBridge::Result result = SummaryBridge::summarize(event, duration);
    remember(event);
    if (rules.holdsBack(event, result.kind, duration, frontmostAtStart, frontmostNow))
        return {true, std::nullopt, std::nullopt};
    return {true, std::nullopt, Alert{event, std::move(result), false}};
}

EventHandler::Outcome EventHandler::presentInTurn(const HookEvent& event,
                                                  const std::optional<std::string>& frontmostNow,
                                                  TimePoint now, const AlertRules& rules) {
    const auto turn = turns_.peek(event.promptId);
    if (!turn) return present(event, std::nullopt, std::nullopt, frontmostNow, rules);
    return present(event, now - turn->startedAt, turn->frontmostAtStart, frontmostNow, rules);
}

void EventHandler::remember(const HookEvent& event) {
    if (event.bridgeVersion && !event.bridgeVersion->empty())
        lastBridgeVersion_ = event.bridgeVersion;
    if (!event.sessionId) return;
    // Kept per live session for as long as it lives: only what the menu and the way back
    // read, so a long message or a large tool input is not held on to.
    HookEvent kept = event;
    kept.lastAssistantMessage.reset();
    kept.prompt.reset();
    kept.toolInput.reset();
    kept.backgroundTasks.reset();
    lastEventBySession_.insert_or_assign(*event.sessionId, std::move(kept));
}

void EventHandler::forget(const std::string& session) {
    lastEventBySession_.erase(session);
    announcedEnds_.erase(session);
    waiting_.erase(session);
    backgroundTurns_.erase(session);
    queued_.erase(session);
    answered_.erase(session);
}

} // namespace norrow
