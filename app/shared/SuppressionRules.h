#pragma once

#include "app/shared/Settings.h"
#include "core/AlertRules.h"
#include "core/Seconds.h"

namespace norrow {

// The user's interruption rules, read afresh from the settings on every decision so a
// change in the menu applies to the next event.
class SuppressionRules {
public:
    explicit SuppressionRules(Settings& settings) : settings_(settings) {}

    bool enabled() const;
    Seconds minimumDuration() const;
    bool onlyIfAway() const;
    // Whether a tool's permission request can be answered from its banner.
    bool answerFromBanners() const;
    QStringList mutedProjects() const;

    void setEnabled(bool enabled);
    void setMinimumDuration(Seconds duration);
    void setOnlyIfAway(bool onlyIfAway);
    void setAnswerFromBanners(bool answer);

    // The rules as they stand now.
    AlertRules current() const;

private:
    Settings& settings_;
};

} // namespace norrow
