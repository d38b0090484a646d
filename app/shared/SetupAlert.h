#pragma once

#include "app/shared/SetupCoordinator.h"

#include <optional>
#include <string>
#include <string_view>

namespace norrow {

// What the app's alerts say about setting up and removing the hooks: the message text and
// the informative text below it. The command-line tool prints the same words.
struct SetupAlert {
    std::string message;
    std::string informativeText;

    bool operator==(const SetupAlert&) const = default;

    // The removal confirmation's buttons, the first being the default.
    static constexpr std::string_view removeButton = "Remove";
    static constexpr std::string_view cancelButton = "Cancel";

    static SetupAlert notListening();
    static SetupAlert confirmRemoval();
    static SetupAlert copiedInstructions();
    // None for a cancelled run, which shows nothing.
    static std::optional<SetupAlert> afterInstall(const SetupCoordinator::Outcome& outcome);
    static std::optional<SetupAlert> afterRemoval(const SetupCoordinator::Outcome& outcome);
};

} // namespace norrow
