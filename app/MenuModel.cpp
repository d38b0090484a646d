#include "app/MenuModel.h"

#include <algorithm>
#include <cmath>

namespace norrow::MenuModel {
namespace {

MenuItem separator() {
    MenuItem item;
    item.separator = true;
    return item;
}

MenuItem label(std::string title) {
    MenuItem item;
    item.title = std::move(title);
    item.enabled = false;
    return item;
}

// An item that only opens its submenu.
MenuItem submenu(std::string title) {
    MenuItem item;
    item.title = std::move(title);
    return item;
}

MenuItem command(std::string title, MenuAction action, MenuItem::Value represented = {}) {
    MenuItem item;
    item.title = std::move(title);
    item.action = action;
    item.represented = std::move(represented);
    return item;
}

void addSessions(std::vector<MenuItem>& menu, const MenuState& state,
                 const RelativeTime& relativeTime) {
    if (state.sessions.empty()) {
        menu.push_back(label("No Claude Code sessions"));
        return;
    }
    menu.push_back(label("Claude Code sessions"));
    std::vector<const MenuState::Session*> order;
    for (const auto& session : state.sessions)
        order.push_back(&session);
    std::ranges::stable_partition(
        order, [](const MenuState::Session* session) { return session->waitingSince.has_value(); });
    for (const MenuState::Session* listed : order) {
        const auto& session = *listed;
        MenuItem item = label(
            session.name + "  \u00b7  " +
            (session.waitingSince
                 ? "needs you  \u00b7  " + relativeTime.describe(*session.waitingSince, state.now)
                 : relativeTime.describe(session.lastActivity, state.now)));
        item.represented = session.id;
        if (session.host) {
            item.enabled = true;
            item.action = MenuAction::returnToSession;
            item.toolTip = *session.host;
        }
        menu.push_back(std::move(item));
    }
}

void addSetup(std::vector<MenuItem>& menu, HookInstaller::Status hooks) {
    switch (hooks) {
    case HookInstaller::Status::notInstalled:
        menu.push_back(command("Set up Claude Code\u2026", MenuAction::runInstall));
        menu.push_back(
            command("Copy setup instructions instead", MenuAction::copyManualInstructions));
        return;
    case HookInstaller::Status::current:
        menu.push_back(label("\u2713  Claude Code is set up"));
        break;
    case HookInstaller::Status::outOfDate:
        menu.push_back(command("Update Claude Code hooks\u2026", MenuAction::runInstall));
        break;
    }
    menu.push_back(command("Remove Norrow from Claude Code\u2026", MenuAction::runUninstall));
}

MenuItem soundMenu(const std::string& current) {
    MenuItem sound = submenu("Sound");
    for (const auto& [title, style] :
         {std::pair{"Bell", "bell"}, std::pair{"Spoken", "voice"}, std::pair{"Silent", "silent"}}) {
        MenuItem choice = command(title, MenuAction::chooseSound, std::string(style));
        choice.mark = MenuItem::Mark::choice;
        choice.checked = current == style;
        sound.submenu.push_back(std::move(choice));
    }
    return sound;
}

std::string durationTitle(double seconds) {
    if (seconds == 0) return "Announce every turn";
    return std::to_string(static_cast<int>(seconds)) + " seconds";
}

MenuItem rulesMenu(const MenuState& state) {
    MenuItem rules = submenu("When to interrupt");

    MenuItem use = command("Use these rules", MenuAction::toggleRules);
    use.mark = MenuItem::Mark::toggle;
    use.checked = state.rulesEnabled;
    rules.submenu.push_back(std::move(use));
    rules.submenu.push_back(separator());

    // Off rules keep their check marks, so turning them back on restores what was there.
    MenuItem shorter = submenu("Ignore turns shorter than");
    shorter.enabled = state.rulesEnabled;
    for (const double seconds : minimumDurationChoices) {
        MenuItem choice =
            command(durationTitle(seconds), MenuAction::chooseMinimumDuration, seconds);
        choice.enabled = state.rulesEnabled;
        choice.mark = MenuItem::Mark::choice;
        choice.checked = state.minimumDuration == seconds;
        shorter.submenu.push_back(std::move(choice));
    }
    rules.submenu.push_back(std::move(shorter));

    MenuItem away =
        command("Only when I have switched to another app", MenuAction::toggleOnlyIfAway);
    away.enabled = state.rulesEnabled;
    away.mark = MenuItem::Mark::toggle;
    away.checked = state.onlyIfAway;
    rules.submenu.push_back(std::move(away));
    rules.submenu.push_back(separator());

    // Not a rule of when to interrupt, so it stays on while the rules are off.
    MenuItem answer =
        command("Answer permissions from banners", MenuAction::toggleAnswerFromBanners);
    answer.mark = MenuItem::Mark::toggle;
    answer.checked = state.answerFromBanners;
    rules.submenu.push_back(std::move(answer));
    return rules;
}

void addAbout(std::vector<MenuItem>& menu, const MenuState& state) {
    menu.push_back(label("Norrow " + state.version));
    if (state.availableVersion)
        menu.push_back(command("\u2B06\uFE0E  Version " + *state.availableVersion +
                                   " is out \u2014 download it",
                               MenuAction::openDownload));
    if (state.bridgeStale)
        menu.push_back(command("\u26A0\uFE0F  Bridge is " +
                                   state.lastBridgeVersion.value_or("older") +
                                   " \u2014 set up again to update it",
                               MenuAction::runInstall));
    MenuItem quit = command("Quit Norrow", MenuAction::quit);
    quit.keyEquivalent = "q";
    menu.push_back(std::move(quit));
}

} // namespace

std::vector<MenuItem> build(const MenuState& state, const RelativeTime& relativeTime) {
    std::vector<MenuItem> menu;
    if (!state.listening)
        menu.push_back(label("\u26A0\uFE0F  Not listening \u2014 quit and reopen Norrow"));
    if (!menu.empty()) menu.push_back(separator());
    addSessions(menu, state, relativeTime);
    menu.push_back(separator());
    addSetup(menu, state.hooks);
    menu.push_back(separator());
    menu.push_back(soundMenu(state.soundStyle));
    menu.push_back(rulesMenu(state));
    menu.push_back(separator());
    addAbout(menu, state);
    return menu;
}

} // namespace norrow::MenuModel
