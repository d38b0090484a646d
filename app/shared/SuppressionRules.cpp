#include "app/shared/SuppressionRules.h"

namespace norrow {

bool SuppressionRules::enabled() const {
    return settings_.boolean(SettingKey::rulesEnabled);
}
// The settings keep the minimum duration as a number of seconds.
Seconds SuppressionRules::minimumDuration() const {
    return Seconds(settings_.real(SettingKey::minimumDuration));
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
void SuppressionRules::setMinimumDuration(Seconds duration) {
    settings_.set(SettingKey::minimumDuration, duration.count());
}
void SuppressionRules::setOnlyIfAway(bool onlyIfAway) {
    settings_.set(SettingKey::onlyIfAway, onlyIfAway);
}

bool SuppressionRules::holdsBack(const HookEvent& event, SummaryKind kind,
                                 std::optional<Seconds> duration,
                                 const std::optional<std::string>& frontmostAtStart,
                                 const std::optional<std::string>& frontmostNow) const {
    if (const auto project = event.projectName();
        project && mutedProjects().contains(QString::fromStdString(*project)))
        return true;
    // A failed turn waits on the user as much as a question does.
    if (!enabled() || kind == SummaryKind::waiting ||
        event.hookEventName == HookEvent::Name::stopFailure)
        return false;
    if (duration && minimumDuration() > *duration) return true;
    if (onlyIfAway() && !event.isIntegratedTerminal() && frontmostAtStart && frontmostNow &&
        *frontmostAtStart == *frontmostNow)
        return true;
    return false;
}

} // namespace norrow
