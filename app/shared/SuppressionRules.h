#pragma once

#include "app/shared/Settings.h"
#include "core/HookEvent.h"
#include "core/Seconds.h"
#include "core/Summary.h"

#include <optional>
#include <string>

namespace norrow {

// The user's interruption rules, read afresh from the settings on every decision so a
// change in the menu applies to the next event.
class SuppressionRules {
public:
    explicit SuppressionRules(Settings& settings) : settings_(settings) {}

    bool enabled() const;
    Seconds minimumDuration() const;
    bool onlyIfAway() const;
    QStringList mutedProjects() const;

    void setEnabled(bool enabled);
    void setMinimumDuration(Seconds duration);
    void setOnlyIfAway(bool onlyIfAway);

    // Whether an alert of `kind` for `event` is held back: muted projects always; the
    // minimum duration and the only-if-away rule only when enabled, and never for waiting
    // alerts or failed turns. Unknown durations and unknown frontmost applications never
    // hold an alert back.
    bool holdsBack(const HookEvent& event, SummaryKind kind, std::optional<Seconds> duration,
                   const std::optional<std::string>& frontmostAtStart,
                   const std::optional<std::string>& frontmostNow) const;

private:
    Settings& settings_;
};

} // namespace norrow
