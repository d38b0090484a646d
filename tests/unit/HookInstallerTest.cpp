#include "core/HookInstaller.h"

#include <functional>
#include <gtest/gtest.h>

namespace norrow {
namespace {

using json = nlohmann::json;
using Plan = HookInstaller::Plan;

constexpr const char* bridge = "/home/u/.claude/norrow/bridge";

// The description of what `operation` throws, or "" when it succeeds.
template <typename Operation> std::string failure(Operation operation) {
    try {
        operation();
        return "";
    } catch (const std::exception& e) {
        return e.what();
    }
}

TEST(HookInstaller, InstallsIntoAnEmptyObjectInTheHandFormattedLayout) {
    std::string entries;
    for (const auto& [event, matcher, timeout] : HookInstaller::eventHooks)
        entries += std::string(entries.empty() ? "" : ",\n") + "    \"" + std::string(event) +
                   "\": [\n      {\n        \"matcher\": \"" + std::string(matcher) +
                   "\",\n        \"hooks\": [\n          {\n            \"type\": \"command\",\n"
                   "            \"command\": \"" +
                   bridge + "\",\n            \"timeout\": " + std::to_string(timeout.count()) +
                   "\n          }\n        ]\n      }\n    ]";
    EXPECT_EQ(HookInstaller::planInstall("{}", bridge),
              (Plan{"{\n  \"hooks\": {\n" + entries + "\n  }\n}", false, 0}));
}

// Installations that differ from a fresh one: the current ones plan nothing, the earlier ones
// are brought up to date, and either kind is removed, always keeping the other tool's entry.
TEST(HookInstaller, KnowsAnEarlierInstallationAndBringsItUpToDate) {
    using Status = HookInstaller::Status;
    const json fresh = json::parse(*HookInstaller::planInstall("{}", bridge).updatedDocument);
    const json say = json::parse(R"({"type": "command", "command": "say done"})");
    const json saying = {{"matcher", ""}, {"hooks", {say}}};
    const std::pair<std::function<void(json&)>, Status> cases[] = {
        {[](json&) {}, Status::current},
        // Another tool's group after ours, no matcher where all tools are meant, 5.0 for 5.
        {[&](json& h) {
             h["Stop"].push_back(saying);
             h["Stop"][0].erase("matcher");
             h["Stop"][0]["hooks"][0]["timeout"] = 5.0;
         },
         Status::current},
        // The five events an earlier Norrow registered.
        {[](json& h) {
             for (const char* event : {"SessionStart", "PermissionRequest", "PostToolUse",
                                       "PostToolUseFailure", "ElicitationResult", "Elicitation"})
                 h.erase(event);
         },
         Status::outOfDate},
        {[](json& h) { h["PostToolUse"][0]["matcher"] = ""; }, Status::outOfDate},
        {[](json& h) { h["Stop"][0]["hooks"][0]["timeout"] = 30; }, Status::outOfDate},
        {[&](json& h) {
             h["Stop"] = {h["Stop"][0], saying, h["Stop"][0]};
         },
         Status::outOfDate},
        {[](json& h) { h["PreToolUse"] = h["Stop"]; }, Status::outOfDate},
        // An old bridge path in a group it shares with another tool.
        {[&](json& h) {
             h["Stop"][0]["hooks"][0]["command"] = "'/old/norrow/bridge'";
             h["Stop"][0]["hooks"].push_back(say);
         },
         Status::outOfDate},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        json settings = fresh;
        cases[i].first(settings["hooks"]);
        const std::string document = settings.dump(2);
        const int foreign = document.find("say done") != std::string::npos ? 1 : 0;
        EXPECT_EQ(HookInstaller::status(document, bridge), cases[i].second);
        const auto plan = HookInstaller::planInstall(document, bridge);
        EXPECT_EQ(plan.alreadyCorrect, cases[i].second == Status::current);
        EXPECT_EQ(plan.foreignHookCount, foreign);
        const std::string installed = plan.updatedDocument.value_or(document);
        EXPECT_EQ(HookInstaller::status(installed, bridge), Status::current);
        for (const std::string& text : {document, installed}) {
            const std::string removed = HookInstaller::planRemoval(text).updatedDocument.value();
            EXPECT_EQ(HookInstaller::planRemoval(removed), (Plan{std::nullopt, true, foreign}));
            EXPECT_EQ(json::parse(removed).value("hooks", json::object()),
                      foreign ? json({{"Stop", {saying}}}) : json::object());
        }
    }
}

TEST(HookInstaller, TakesOnlyCommandsThatAreABridgePathForItsOwn) {
    const std::pair<std::string, bool> cases[] = {
        {"/home/u/.claude/norrow/bridge", true},
        {" ~/.claude/norrow/bridge\n", true},
        {"'/Users/a b/.claude/norrow/bridge'", true},
        {"\"/Users/a b/.claude/norrow/bridge\"", true},
        {"/opt/tool/norrow/bridge-helper", false},
        {"/opt/tool/norrow/bridge --relay", false},
        {"logger -t hook; /home/u/.claude/norrow/bridge", false},
        {"\"/x/norrow/bridge\" | tee log", false},
        {"'/x/hook' && '/x/norrow/bridge'", false},
    };
    for (const auto& [command, own] : cases) {
        const std::string document =
            R"({"hooks": {"Stop": [{"hooks": [{"command": )" + json(command).dump() + "}]}]}}";
        EXPECT_EQ(HookInstaller::planRemoval(document).alreadyCorrect, !own) << command;
        const auto installed =
            json::parse(*HookInstaller::planInstall(document, bridge).updatedDocument);
        EXPECT_EQ(installed["hooks"]["Stop"].size(), own ? 1u : 2u) << command;
    }
}

TEST(HookInstaller, RefusesWhatClaudeCodeWouldNotRead) {
    const std::string notJSON = "settings.json is not valid JSON, so it will not be modified: ";
    const std::string notObject = notJSON + "top level is not a JSON object";
    const std::string trailing =
        "' \u2014 valid to lenient JSON readers but not to the parser Claude Code "
        "uses, so this file will not be modified";
    const std::pair<std::string, std::string> cases[] = {
        {"{\"a\": [1, 2,\n]}", notJSON + "trailing comma before ']" + trailing},
        {"{\"a\": 1, \u2028}", notJSON + "trailing comma before '}" + trailing},
        {"{\"a\": \",]\", \"b\": \"\\\",}\"}", ""},
        {"[]", notObject},
        {"{\"a\": 1} // note", notObject},
        {"{\"a\": \"\xff\"}", notObject},
        {std::string("{\"a\": 1}\0{", 10), notObject},
        {"{\"a\":" + std::string(600, '[') + std::string(600, ']') + "}", notObject},
        {"{\"hooks\": {}, \"\\u0068ooks\": {}}",
         "settings.json has more than one top-level \"hooks\" member and Claude Code reads only "
         "the last, so it will not be modified. Merge them into one, then try again."},
        {R"({"hooks": {"Stop": [], "a": {"Stop": 1}, "Stop": []}})",
         "settings.json lists the hook event Stop more than once and Claude Code reads only the "
         "last, so it will not be modified. Merge them into one, then try again."},
    };
    for (const auto& [document, description] : cases)
        EXPECT_EQ(failure([&] { HookInstaller::planInstall(document, bridge); }), description)
            << document.substr(0, 30);
    EXPECT_EQ(failure([] { HookInstaller::planRemoval("[]"); }),
              notJSON + "top-level parse failed");
}

TEST(HookInstaller, VerifiesThatOnlyHooksChanged) {
    const std::string failed = "the file was written but failed verification: ";
    const std::string outside = failed + "a key outside `hooks` changed";
    const std::string before = R"({"a": 1.0, "b": {"x": [1, "y"]}, "hooks": {}})";
    const std::pair<std::string, std::string> cases[] = {
        {R"({"b":{"x":[1,"y"]},"a":1,"hooks":{"Stop":[]}})", ""},
        {R"({"a": 1, "b": {"x": [1, "y"]}})", ""},
        {R"({"a": 2, "b": {"x": [1, "y"]}})", outside},
        {R"({"b": {"x": [1, "y"]}})", outside},
        {R"({"a": 1, "b": {"x": [1, "y"]}, "c": null})", outside},
        {R"({"a": 1, "b": {"x": ["y", 1]}})", outside},
        {R"([1])", failed + "result does not parse"},
        {std::string(R"({"a": 1, "b": {"x": [1, "y"]}})") + '\0' + "junk",
         failed + "result does not parse"},
    };
    for (const auto& [after, description] : cases)
        EXPECT_EQ(failure([&] { HookInstaller::verify(before, after); }), description) << after;
    EXPECT_EQ(failure([] { HookInstaller::verify("{", "{}"); }),
              failed + "original no longer parses");
}

TEST(HookInstaller, RendersStringsNumbersAndKeysItsOwnWay) {
    EXPECT_EQ(HookInstaller::escape("a\"b\\c\td\ne\rf\x01g\x1f/\u00e9"),
              "a\\\"b\\\\c\\td\\ne\\rf\\u0001g\\u001f/\u00e9");
    const json value =
        json::parse(R"({"zeta": [1, -2, 1.5, 1e300, 18446744073709551615, true, null],
                        "env": {}, "timeout": 5, "alpha": [], "matcher": "m"})");
    EXPECT_EQ(HookInstaller::render(value, "\t", 0),
              "{\n\t\"matcher\": \"m\",\n\t\"timeout\": 5,\n\t\"env\": {},\n\t\"alpha\": [],\n"
              "\t\"zeta\": [\n\t\t1,\n\t\t-2,\n\t\t1.5,\n\t\t1e+300,\n\t\t18446744073709551615,\n"
              "\t\ttrue,\n\t\tnull\n\t]\n}");
    const auto canonical = [](const char* text) {
        return HookInstaller::canonical(json::parse(text));
    };
    EXPECT_EQ(canonical("{\"n\": 100, \"m\": 1}"), canonical("{\"m\":1, \"n\": 1e2}"));
    EXPECT_NE(canonical("{\"n\": 0.1}"), canonical("{\"n\": 0.10000000000000002}"));
    EXPECT_NE(canonical("{\"n\": 1}"), canonical("{\"n\": true}"));
}

} // namespace
} // namespace norrow
