#pragma once

#include "app/shared/SetupAlert.h"

namespace norrow::SetupDialogs {

// Shows the alert as a modal dialog in front of every other application and returns once
// it is dismissed; a warning when what the user asked for did not happen.
void inform(const SetupAlert& alert, bool warning = false);
// Asks before removing Norrow from Claude Code; true when the user chose to remove.
bool confirmRemoval();

} // namespace norrow::SetupDialogs
