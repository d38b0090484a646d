#pragma once

#include "app/shared/SummaryBridge.h"
#include "app/shared/SuppressionRules.h"
#include "core/HookEvent.h"
#include "core/SessionNames.h"
#include "core/SessionStore.h"

#include <map>
#include <optional>
#include <string>

namespace norrow {

// What each incoming hook event leads to: the turn bookkeeping, the session's name and
// bridge version, and whether the user is alerted, by the user's rules. Whoever presents
// alerts (the app's banners and sounds, norrowctl's printed lines) calls it on one thread.
class EventHandler {
public:
    struct Alert {
        HookEvent event;
        SummaryBridge::Result result;
    };
    struct Outcome {
        // The state a status menu shows changed (a turn opened, an event was presented).
        bool menuChanged = false;
        std::optional<Alert> alert;
    };

    EventHandler(SessionStore& turns, SessionNames& names, const SuppressionRules& rules)
        : turns_(turns), names_(names), rules_(rules) {}

    // `frontmostNow` is the frontmost application when known.
    Outcome handle(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                   SessionStore::TimePoint now);

    const std::map<std::string, HookEvent>& lastEventBySession() const {
        return lastEventBySession_;
    }
    const std::optional<std::string>& lastBridgeVersion() const { return lastBridgeVersion_; }

private:
    Outcome dispatch(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                     SessionStore::TimePoint now);
    // Whether `event` is the idle reminder of a turn whose end was announced, with nothing
    // else seen of its session since.
    bool repeatsAnnouncedEnd(const HookEvent& event) const;
    Outcome present(const HookEvent& event, std::optional<Seconds> duration,
                    const std::optional<std::string>& frontmostAtStart,
                    const std::optional<std::string>& frontmostNow);

    SessionStore& turns_;
    SessionNames& names_;
    const SuppressionRules& rules_;
    std::map<std::string, HookEvent> lastEventBySession_;
    std::optional<std::string> lastBridgeVersion_;
    // Per session, the prompt of the last turn whose end was announced, until its session
    // shows any other sign of life.
    std::map<std::string, std::optional<std::string>> announcedEnds_;
};

} // namespace norrow
