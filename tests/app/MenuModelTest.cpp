#include "app/MenuModel.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace norrow {
namespace {

using namespace std::chrono_literals;

// In the order of MenuAction.
constexpr const char* actionNames[] = {"returnToSession",
                                       "runInstall",
                                       "runUninstall",
                                       "copyManualInstructions",
                                       "chooseSound",
                                       "toggleRules",
                                       "chooseMinimumDuration",
                                       "toggleOnlyIfAway",
                                       "toggleAnswerFromBanners",
                                       "openDownload",
                                       "quit"};

// One line per item: "[x]" when checked, "(off)" when disabled, the title, then the action
// and the value it works on, the tool tip and the key; submenus indented.
void render(const std::vector<MenuItem>& items, std::vector<std::string>& lines,
            const std::string& indent = "") {
    for (const MenuItem& item : items) {
        if (item.separator) {
            lines.push_back(indent + "---");
            continue;
        }
        std::string line =
            indent + (item.checked ? "[x] " : "") + (item.enabled ? "" : "(off) ") + item.title;
        if (item.action) line += std::string(" => ") + actionNames[static_cast<int>(*item.action)];
        if (const auto* text = std::get_if<std::string>(&item.represented))
            line += "(" + *text + ")";
        if (const auto* number = std::get_if<double>(&item.represented))
            line += "(" + std::to_string(static_cast<int>(*number)) + ")";
        if (!item.toolTip.empty()) line += " tip:" + item.toolTip;
        if (!item.keyEquivalent.empty()) line += " key:" + item.keyEquivalent;
        lines.push_back(line);
        render(item.submenu, lines, indent + "  ");
    }
}

std::vector<std::string> lines(const MenuState& state) {
    const RelativeTime relativeTime("en_US");
    std::vector<std::string> out;
    render(MenuModel::build(state, relativeTime), out);
    return out;
}

MenuState listeningState() {
    MenuState state;
    state.listening = true;
    state.soundStyle = "voice";
    state.version = "1.4.0";
    state.now = RelativeTime::Date(1'800'000'000s);
    return state;
}

// The tail every menu ends with under the default rules.
const std::vector<std::string> defaultSoundAndRules = {
    "Sound",
    "  Bell => chooseSound(bell)",
    "  [x] Spoken => chooseSound(voice)",
    "  Silent => chooseSound(silent)",
    "When to interrupt",
    "  [x] Use these rules => toggleRules",
    "  ---",
    "  Ignore turns shorter than",
    "    Announce every turn => chooseMinimumDuration(0)",
    "    5 seconds => chooseMinimumDuration(5)",
    "    10 seconds => chooseMinimumDuration(10)",
    "    [x] 20 seconds => chooseMinimumDuration(20)",
    "    30 seconds => chooseMinimumDuration(30)",
    "    60 seconds => chooseMinimumDuration(60)",
    "  [x] Only when I have switched to another app => toggleOnlyIfAway",
    "  ---",
    "  [x] Answer permissions from banners => toggleAnswerFromBanners",
    "---",
    "(off) Norrow 1.4.0",
};

std::vector<std::string> concat(std::vector<std::string> head,
                                const std::vector<std::string>& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

TEST(MenuModelTest, AFreshListeningAppWithoutSessions) {
    EXPECT_EQ(lines(listeningState()),
              concat(concat({"(off) No Claude Code sessions", "---",
                             "Set up Claude Code\u2026 => runInstall",
                             "Copy setup instructions instead => copyManualInstructions", "---"},
                            defaultSoundAndRules),
                     {"Quit Norrow => quit key:q"}));
}

TEST(MenuModelTest, NotListeningComesFirstAndSetupStillOffersItsItems) {
    MenuState state = listeningState();
    state.listening = false;
    const auto menu = lines(state);
    ASSERT_GE(menu.size(), 6u);
    EXPECT_EQ(std::vector<std::string>(menu.begin(), menu.begin() + 6),
              (std::vector<std::string>{
                  "(off) \u26A0\uFE0F  Not listening \u2014 quit and reopen Norrow", "---",
                  "(off) No Claude Code sessions", "---", "Set up Claude Code\u2026 => runInstall",
                  "Copy setup instructions instead => copyManualInstructions"}));
}

TEST(MenuModelTest, SessionsWaitingFirstThenNewestEnabledOnlyWithARunningHost) {
    MenuState state = listeningState();
    state.hooks = HookInstaller::Status::current;
    state.sessions = {
        {"a1b2c3d4-0000", "api", state.now - 5min, "XTerm", std::nullopt},
        {"e5f6a7b8-1111", "e5f6a7b8", state.now - 2h - 10min, std::nullopt, std::nullopt},
        {"c0ffee00-2222", "web", state.now - 3 * 24h, "Visual Studio Code", state.now - 1min},
    };
    const auto menu = lines(state);
    EXPECT_EQ(std::vector<std::string>(menu.begin(), menu.begin() + 8),
              (std::vector<std::string>{
                  "(off) Claude Code sessions",
                  "web  \u00b7  needs you  \u00b7  1 minute ago => returnToSession(c0ffee00-2222) "
                  "tip:Visual Studio Code",
                  "api  \u00b7  5 minutes ago => returnToSession(a1b2c3d4-0000) tip:XTerm",
                  "(off) e5f6a7b8  \u00b7  2 hours ago(e5f6a7b8-1111)",
                  "---",
                  "(off) \u2713  Claude Code is set up",
                  "Remove Norrow from Claude Code\u2026 => runUninstall",
                  "---",
              }));
}

TEST(MenuModelTest, HooksOfAnEarlierNorrowAreOfferedAnUpdate) {
    MenuState state = listeningState();
    state.hooks = HookInstaller::Status::outOfDate;
    const auto menu = lines(state);
    EXPECT_EQ(
        std::vector<std::string>(menu.begin() + 2, menu.begin() + 5),
        (std::vector<std::string>{"Update Claude Code hooks\u2026 => runInstall",
                                  "Remove Norrow from Claude Code\u2026 => runUninstall", "---"}));
}

TEST(MenuModelTest, RulesOffDisableTheirChoicesButKeepTheirCheckMarks) {
    MenuState state = listeningState();
    state.rulesEnabled = false;
    state.minimumDuration = 60;
    state.answerFromBanners = false;
    const auto menu = lines(state);
    const auto rules = std::find(menu.begin(), menu.end(), "When to interrupt");
    ASSERT_NE(rules, menu.end());
    EXPECT_EQ(std::vector<std::string>(rules, rules + 13),
              (std::vector<std::string>{
                  "When to interrupt",
                  "  Use these rules => toggleRules",
                  "  ---",
                  "  (off) Ignore turns shorter than",
                  "    (off) Announce every turn => chooseMinimumDuration(0)",
                  "    (off) 5 seconds => chooseMinimumDuration(5)",
                  "    (off) 10 seconds => chooseMinimumDuration(10)",
                  "    (off) 20 seconds => chooseMinimumDuration(20)",
                  "    (off) 30 seconds => chooseMinimumDuration(30)",
                  "    [x] (off) 60 seconds => chooseMinimumDuration(60)",
                  "  [x] (off) Only when I have switched to another app => toggleOnlyIfAway",
                  "  ---",
                  "  Answer permissions from banners => toggleAnswerFromBanners",
              }));
}

TEST(MenuModelTest, OnlyAnExactlyMatchingChoiceIsChecked) {
    const std::vector<std::pair<std::string, double>> cases = {
        {"bell", 0}, {"silent", 5}, {"Bell", 20.4}, {"", 19.999}, {"chime", 30}};
    for (const auto& [style, minimum] : cases) {
        MenuState state = listeningState();
        state.soundStyle = style;
        state.minimumDuration = minimum;
        std::vector<std::string> checked;
        for (const auto& line : lines(state))
            if (line.find("[x]") != std::string::npos &&
                line.find("=> choose") != std::string::npos)
                checked.push_back(line.substr(line.find("[x]")));
        std::vector<std::string> expected;
        if (style == "bell") expected.push_back("[x] Bell => chooseSound(bell)");
        if (style == "silent") expected.push_back("[x] Silent => chooseSound(silent)");
        if (minimum == 0) expected.push_back("[x] Announce every turn => chooseMinimumDuration(0)");
        if (minimum == 5) expected.push_back("[x] 5 seconds => chooseMinimumDuration(5)");
        if (minimum == 30) expected.push_back("[x] 30 seconds => chooseMinimumDuration(30)");
        EXPECT_EQ(checked, expected) << "style '" << style << "', minimum " << minimum;
    }
}

TEST(MenuModelTest, ReleaseAndBridgeNoticesStandBeforeQuit) {
    struct Case {
        std::optional<std::string> available;
        bool stale;
        std::optional<std::string> reported;
        std::vector<std::string> tail;
    };
    const std::vector<Case> cases = {
        {"1.5.0",
         false,
         std::nullopt,
         {"(off) Norrow 1.4.0",
          "\u2B06\uFE0E  Version 1.5.0 is out \u2014 download it => openDownload",
          "Quit Norrow => quit key:q"}},
        {std::nullopt,
         true,
         "1.1.9",
         {"(off) Norrow 1.4.0",
          "\u26A0\uFE0F  Bridge is 1.1.9 \u2014 set up again to update it => runInstall",
          "Quit Norrow => quit key:q"}},
        {"2.0",
         true,
         std::nullopt,
         {"(off) Norrow 1.4.0",
          "\u2B06\uFE0E  Version 2.0 is out \u2014 download it => openDownload",
          "\u26A0\uFE0F  Bridge is older \u2014 set up again to update it => runInstall",
          "Quit Norrow => quit key:q"}},
        {std::nullopt, false, "1.4.0", {"(off) Norrow 1.4.0", "Quit Norrow => quit key:q"}},
    };
    for (const auto& c : cases) {
        MenuState state = listeningState();
        state.availableVersion = c.available;
        state.bridgeStale = c.stale;
        state.lastBridgeVersion = c.reported;
        const auto menu = lines(state);
        EXPECT_EQ(
            std::vector<std::string>(menu.end() - static_cast<long>(c.tail.size()), menu.end()),
            c.tail);
    }
}

} // namespace
} // namespace norrow
