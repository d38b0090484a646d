#pragma once

#include "core/AlertRules.h"
#include "core/HookEvent.h"
#include "core/SessionNames.h"
#include "core/SessionStore.h"
#include "core/SummaryBridge.h"

#include <map>
#include <optional>
#include <string>

namespace norrow {

// What each incoming hook event means: a turn opens or closes, a session starts waiting on
// the user or is answered, an alert is announced or withdrawn, by the user's rules. Whoever
// presents alerts (the app's banners and sounds, norrowctl's printed lines) calls it on one
// thread and only carries out what it decides.
class EventHandler {
public:
    using TimePoint = SessionStore::TimePoint;

    struct Alert {
        HookEvent event;
        SummaryBridge::Result result;
        // It stands until withdrawn: the session waits on the user's answer to a dialog.
        bool standing = false;
    };
    struct Outcome {
        // The state a status menu shows changed (a turn opened, an event was presented).
        bool menuChanged = false;
        // The session whose standing alert no longer holds, taken back before any new alert.
        std::optional<std::string> withdrawn;
        std::optional<Alert> alert;
    };
    // A session waiting on the user's answer to a dialog.
    struct Waiting {
        std::optional<std::string> promptId;
        TimePoint since;
        // Announced by its request rather than by the client's later notice.
        bool requested = false;
    };

    EventHandler(SessionStore& turns, SessionNames& names) : turns_(turns), names_(names) {}

    // `frontmostNow` is the frontmost application when known.
    Outcome handle(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                   TimePoint now, const AlertRules& rules);

    // Per session, its latest presented event, without the bulk of its message and tool
    // input.
    const std::map<std::string, HookEvent>& lastEventBySession() const {
        return lastEventBySession_;
    }
    const std::optional<std::string>& lastBridgeVersion() const { return lastBridgeVersion_; }
    // The sessions waiting on the user now.
    const std::map<std::string, Waiting>& waiting() const { return waiting_; }

private:
    Outcome dispatch(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                     TimePoint now, const AlertRules& rules);
    // The user answered the session's dialog, if it had one: the mark goes and the turn's
    // clock starts over.
    Outcome answer(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                   TimePoint now);
    // Opens the event's turn, or carries on the one that left background work running, or
    // holds a prompt typed while its session's turn still runs.
    void begin(const HookEvent& event, const std::optional<std::string>& frontmostNow,
               TimePoint now);
    // The queued prompt of a session whose turn just ended starts now; the first event under
    // a prompt id not seen before opens its turn from then.
    void startQueued(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                     TimePoint now);
    void adoptQueued(const HookEvent& event);
    // A dialog: announced as it opens, and the session marked as waiting until answered.
    Outcome ask(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                TimePoint now, const AlertRules& rules);
    // Whether `event` is the idle reminder of a turn whose end was announced, with nothing
    // else seen of its session since.
    bool repeatsAnnouncedEnd(const HookEvent& event) const;
    Outcome present(const HookEvent& event, std::optional<Seconds> duration,
                    const std::optional<std::string>& frontmostAtStart,
                    const std::optional<std::string>& frontmostNow, const AlertRules& rules);
    // An event that does not end its turn, with the turn's age so far when it is open.
    Outcome presentInTurn(const HookEvent& event, const std::optional<std::string>& frontmostNow,
                          TimePoint now, const AlertRules& rules);
    // What the menu and the way back need of an event.
    void remember(const HookEvent& event);
    void forget(const std::string& session);

    SessionStore& turns_;
    SessionNames& names_;
    std::map<std::string, HookEvent> lastEventBySession_;
    std::optional<std::string> lastBridgeVersion_;
    // Per session, the prompt of the last turn whose end was announced, until its session
    // shows any other sign of life.
    std::map<std::string, std::optional<std::string>> announcedEnds_;
    std::map<std::string, Waiting> waiting_;
    // Per session, the prompt of the turn that stopped with background work still running.
    std::map<std::string, std::string> backgroundTurns_;
    // A prompt typed while the agent worked: it runs once the turn before it stops, under a
    // prompt id of its own that no prompt event announces.
    struct Queued {
        std::optional<TimePoint> since;
        std::optional<std::string> frontmostAtStart;
    };
    std::map<std::string, Queued> queued_;
    // Per session, the prompt whose requested dialog was answered last: the client's notice of
    // that dialog may still be on its way.
    std::map<std::string, std::optional<std::string>> answered_;
};

} // namespace norrow
