#include "app/shared/SuppressionRules.h"

namespace norrow {

bool SuppressionRules::enabled() const {
    return settings_.boolean(SettingKey::rulesEnabled);
}
double SuppressionRules::minimumDuration() const {
    return settings_.real(SettingKey::minimumDuration);
}
bool SuppressionRules::onlyIfAway() const {
    return settings_.boolean(SettingKey::onlyIfAway);
}
QStringList SuppressionRules::mutedProjects() const {
    return settings_.stringList(SettingKey::mutedProjects);
}

void SuppressionRules::setEnabled(bool enabled) {
    settings_.set(SettingKey::rulesEnabled, enabled);
}
void SuppressionRules::setMinimumDuration(double seconds) {
    settings_.set(SettingKey::minimumDuration, seconds);
}
void SuppressionRules::setOnlyIfAway(bool onlyIfAway) {
    settings_.set(SettingKey::onlyIfAway, onlyIfAway);
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
