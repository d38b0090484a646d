#include "app/shared/SetupAlert.h"

namespace norrow {

using Kind = SetupCoordinator::Outcome::Kind;

SetupAlert SetupAlert::notListening() {
    return {"Not listening yet",
            "Norrow has no port open, so there is nothing to point Claude Code "
            "at. Quit and reopen the app, then try again."};
}

SetupAlert SetupAlert::confirmRemoval() {
    return {"Remove Norrow from Claude Code?",
            "This removes only Norrow's own hooks and its bridge script. Hooks belonging to other "
            "tools are left alone, and a backup is written first."};
}

SetupAlert SetupAlert::copiedInstructions() {
    return {"Copied", "The setup instructions are on your clipboard. They include your port and "
                      "token, so treat them like a password."};
}

std::optional<SetupAlert> SetupAlert::afterInstall(const SetupCoordinator::Outcome& outcome) {
    switch (outcome.kind) {
    case Kind::installed: {
        std::string text =
            "Hooks installed. Restart Claude Code and the next turn will notify you.";
        if (outcome.backup)
            text +=
                "\n\nYour previous settings.json was backed up to:\n" + outcome.backup->string();
        return SetupAlert{"Setup complete", text};
    }
    case Kind::alreadyCurrent:
        return SetupAlert{"Already set up",
                          "Your settings.json is already current \u2014 nothing changed."};
    case Kind::failed:
        return SetupAlert{"Setup did not complete", outcome.message};
    case Kind::cancelled:
        break;
    }
    return std::nullopt;
}

std::optional<SetupAlert> SetupAlert::afterRemoval(const SetupCoordinator::Outcome& outcome) {
    switch (outcome.kind) {
    case Kind::installed: {
        std::string text = "Norrow's hooks are gone. Restart Claude Code to finish.";
        if (outcome.backup) text += "\n\nBacked up to:\n" + outcome.backup->string();
        return SetupAlert{"Removed", text};
    }
    case Kind::alreadyCurrent:
        return SetupAlert{"Nothing to remove", "No Norrow hooks were found."};
    case Kind::failed:
        return SetupAlert{"Removal did not complete", outcome.message};
    case Kind::cancelled:
        break;
    }
    return std::nullopt;
}

} // namespace norrow
