#pragma once

#include "core/HookEvent.h"
#include "core/Seconds.h"

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace norrow {

// The turns Claude Code has started and not yet finished, keyed by prompt identifier.
// Every operation may be called from any thread.
class SessionStore {
public:
    using TimePoint = std::chrono::system_clock::time_point;

    // Six hours: the age at which the application forgets a turn whose "Stop" never came.
    static constexpr std::chrono::hours defaultStaleAfter{6};

    struct OpenTurn {
        std::string promptId;
        std::optional<std::string> sessionId;
        std::optional<std::string> cwd;
        std::optional<std::string> prompt;
        TimePoint startedAt;
        // The application that was frontmost when the turn opened, when known.
        std::optional<std::string> frontmostAtStart;

        bool operator==(const OpenTurn&) const = default;
    };

    struct Finished {
        OpenTurn turn;
        // On the wall clock; negative when the clock was set back meanwhile.
        Seconds duration;
    };

    explicit SessionStore(Seconds staleAfter = defaultStaleAfter) : staleAfter_(staleAfter) {}
    SessionStore(const SessionStore&) = delete;
    SessionStore& operator=(const SessionStore&) = delete;

    // Opens (or reopens) the event's prompt at `now`, superseding any other open turn of its
    // session; false when the event has no prompt id.
    bool begin(const HookEvent& event, std::optional<std::string> frontmost, TimePoint now);
    // Closes the event's prompt and measures it; nothing when no such turn is open.
    std::optional<Finished> finish(const HookEvent& event, TimePoint now);
    std::optional<OpenTurn> peek(const std::optional<std::string>& promptId) const;
    // Starts the prompt's clock over at `now`, with `frontmost` in front: the user just
    // answered it, and their wait was not the agent's work. False when it is not open.
    bool restart(const std::optional<std::string>& promptId, std::optional<std::string> frontmost,
                 TimePoint now);
    // Forgets every turn at least `staleAfter` old; gives how many went.
    std::size_t sweep(TimePoint now);

    std::size_t openCount() const;
    Seconds staleAfter() const { return staleAfter_; }

private:
    mutable std::mutex lock_;
    std::unordered_map<std::string, OpenTurn> open_;
    const Seconds staleAfter_;
};

} // namespace norrow
