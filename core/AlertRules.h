#pragma once

#include "core/HookEvent.h"
#include "core/Seconds.h"
#include "core/Summary.h"

#include <optional>
#include <string>
#include <vector>

namespace norrow {

// The user's interruption rules as they stand at one event.
struct AlertRules {
    bool enabled = true;
    // Turns shorter than this are not announced.
    Seconds minimumDuration{20.0};
    // Announce only when the frontmost application changed since the turn began.
    bool onlyIfAway = true;
    // Projects never announced, by exact name.
    std::vector<std::string> mutedProjects;

    // Whether an alert of `kind` for `event` is held back: muted projects always; the
    // minimum duration and the only-if-away rule only when enabled, and never for waiting
    // alerts or failed turns. Unknown durations and unknown frontmost applications never
    // hold an alert back.
    bool holdsBack(const HookEvent& event, SummaryKind kind, std::optional<Seconds> duration,
                   const std::optional<std::string>& frontmostAtStart,
                   const std::optional<std::string>& frontmostNow) const;
};

} // namespace norrow
