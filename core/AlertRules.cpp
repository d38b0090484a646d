#include "core/AlertRules.h"

#include <algorithm>

namespace norrow {

bool AlertRules::holdsBack(const HookEvent& event, SummaryKind kind,
                           std::optional<Seconds> duration,
                           const std::optional<std::string>& frontmostAtStart,
                           const std::optional<std::string>& frontmostNow) const {
    if (const auto project = event.projectName();
        project && std::ranges::find(mutedProjects, *project) != mutedProjects.end())
        return true;
    // A failed turn waits on the user as much as a question does.
    if (!enabled || kind == SummaryKind::waiting ||
        event.hookEventName == HookEvent::Name::stopFailure)
        return false;
    if (duration && minimumDuration > *duration) return true;
    if (onlyIfAway && !event.isIntegratedTerminal() && frontmostAtStart && frontmostNow &&
        *frontmostAtStart == *frontmostNow)
        return true;
    return false;
}

} // namespace norrow
