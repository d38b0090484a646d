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
bool SuppressionRules::answerFromBanners() const {
    return settings_.boolean(SettingKey::answerFromBanners);
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
void SuppressionRules::setAnswerFromBanners(bool answer) {
    settings_.set(SettingKey::answerFromBanners, answer);
}

AlertRules SuppressionRules::current() const {
    AlertRules rules{enabled(), minimumDuration(), onlyIfAway(), {}};
    for (const QString& project : mutedProjects())
        rules.mutedProjects.push_back(project.toStdString());
    return rules;
}

} // namespace norrow
