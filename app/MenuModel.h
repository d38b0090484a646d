#pragma once

#include "core/HookInstaller.h"
#include "core/RelativeTime.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace norrow {

// What the status menu's items do when chosen.
enum class MenuAction {
    returnToSession,
    runInstall,
    runUninstall,
    copyManualInstructions,
    chooseSound,
    toggleRules,
    chooseMinimumDuration,
    toggleOnlyIfAway,
    toggleAnswerFromBanners,
    openDownload,
    quit,
};

// One item of the status menu as plain data: a separator, or a titled item with its
// state, its action and the value the action works on, and possibly a submenu.
struct MenuItem {
    // A session's identifier, a sound style, or a number of seconds.
    using Value = std::variant<std::monostate, std::string, double>;

    // How an item shows whether it is on: not at all, as a toggle of its own, or as one
    // choice among its siblings.
    enum class Mark { none, toggle, choice };

    std::string title;
    bool separator = false;
    bool enabled = true;
    Mark mark = Mark::none;
    bool checked = false;
    std::optional<MenuAction> action;
    Value represented;
    std::string toolTip;
    // The key that chooses the item with the platform's shortcut modifier.
    std::string keyEquivalent;
    std::vector<MenuItem> submenu;

    bool operator==(const MenuItem&) const = default;
};

// Everything the status menu shows, gathered at the moment of a rebuild.
struct MenuState {
    struct Session {
        std::string id;
        // The project name, else the identifier's first characters.
        std::string name;
        RelativeTime::Date lastActivity;
        // The localised name of the running application hosting it, when there is one.
        std::optional<std::string> host;
        // Since when it waits on the user's answer, when it does.
        std::optional<RelativeTime::Date> waitingSince;
    };

    bool listening = false;
    // Newest activity first; the menu lists those waiting on the user before the others.
    std::vector<Session> sessions;
    HookInstaller::Status hooks = HookInstaller::Status::notInstalled;
    // The stored sound style, unchecked everywhere when it is none of the known ones.
    std::string soundStyle;
    bool rulesEnabled = true;
    double minimumDuration = 20;
    bool onlyIfAway = true;
    bool answerFromBanners = true;
    std::string version;
    // The newer release's version, when one is out.
    std::optional<std::string> availableVersion;
    bool bridgeStale = false;
    std::optional<std::string> lastBridgeVersion;
    RelativeTime::Date now;
};

namespace MenuModel {

// The choices under "Ignore turns shorter than", in seconds.
inline constexpr double minimumDurationChoices[] = {0, 5, 10, 20, 30, 60};

// The whole menu for `state`, top to bottom.
std::vector<MenuItem> build(const MenuState& state, const RelativeTime& relativeTime);

} // namespace MenuModel
} // namespace norrow
