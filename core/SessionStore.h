#pragma once

#include "core/HookEvent.h"

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
    static constexpr double defaultStaleAfter = 21600;

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
        // Seconds on the wall clock; negative when the clock was set back meanwhile.
        double duration;
    };

    explicit SessionStore(double staleAfter = defaultStaleAfter) : staleAfter_(staleAfter) {}
    SessionStore(const SessionStore&) = delete;
    SessionStore& operator=(const SessionStore&) = delete;

    // Opens (or reopens) the event's prompt at `now`; false when the event has no prompt id.
    bool begin(const HookEvent& event, std::optional<std::string> frontmost, TimePoint now);
    // Closes the event's prompt and measures it; nothing when no such turn is open.
    std::optional<Finished> finish(const HookEvent& event, TimePoint now);
    std::optional<OpenTurn> peek(const std::optional<std::string>& promptId) const;
    // Forgets every turn at least `staleAfter` seconds old; gives how many went.
    std::size_t sweep(TimePoint now);

    std::size_t openCount() const;
    double staleAfter() const { return staleAfter_; }

    // `to` minus `from` in seconds.
    static double seconds(TimePoint from, TimePoint to) {
        return std::chrono::duration<double>(to - from).count();
    }

private:
    mutable std::mutex lock_;
    std::unordered_map<std::string, OpenTurn> open_;
    const double staleAfter_;
};

} // namespace norrow
