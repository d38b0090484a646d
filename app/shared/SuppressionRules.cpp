#include "app/shared/SuppressionRules.h"

namespace norrow {

SuppressionRules::SuppressionRules(UserDefaults& defaults) : defaults_(defaults) {
    defaults_.registerDefaults(
        {{"rule.enabled", true}, {"rule.minimumDuration", 20.0}, {"rule.onlyIfAway", true}});
}

bool SuppressionRules::enabled() const {
    return defaults_.boolean("rule.enabled");
}
double SuppressionRules::minimumDuration() const {
    return defaults_.real("rule.minimumDuration");
}
bool SuppressionRules::onlyIfAway() const {
    return defaults_.boolean("rule.onlyIfAway");
}
QStringList SuppressionRules::mutedProjects() const {
    return defaults_.stringList("rule.mutedProjects");
}

void SuppressionRules::setEnabled(bool enabled) {
    defaults_.set("rule.enabled", enabled);
}
void SuppressionRules::setMinimumDuration(double seconds) {
    defaults_.set("rule.minimumDuration", seconds);
}
void SuppressionRules::setOnlyIfAway(bool onlyIfAway) {
    defaults_.set("rule.onlyIfAway", onlyIfAway);
}

bool SuppressionRules::holdsBack(const HookEvent& event, SummaryKind kind,
                                 std::optional<double> duration,
                                 const std::optional<std::string>& frontmostAtStart,
                                 const std::optional<std::string>& frontmostNow) const {
    if (const auto project = event.projectName();
        project && mutedProjects().contains(QString::fromStdString(*project)))
        return true;
    if (!enabled() || kind == SummaryKind::waiting) return false;
    if (duration && minimumDuration() > *duration) return true;
    if (onlyIfAway() && !event.isIntegratedTerminal() && frontmostAtStart && frontmostNow &&
        *frontmostAtStart == *frontmostNow)
        return true;
    return false;
}

} // namespace norrow
