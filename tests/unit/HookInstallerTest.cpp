#include "core/HookInstaller.h"

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
    for (const char* event :
         {"Notification", "SessionEnd", "Stop", "StopFailure", "UserPromptSubmit"})
        entries += std::string(entries.empty() ? "" : ",\n") + "    \"" + event +
                   "\": [\n      {\n        \"matcher\": \"\",\n        \"hooks\": [\n          {\n"
                   "            \"type\": \"command\",\n            \"command\": \"" +
                   bridge +
                   "\",\n            \"timeout\": 5\n          }\n        ]\n      }\n    ]";
    EXPECT_EQ(HookInstaller::planInstall("{}", bridge),
              (Plan{"{\n  \"hooks\": {\n" + entries + "\n  }\n}", false, 0}));
}

TEST(HookInstaller, ReplacesItsOwnOldEntriesAndRemovesThemAgain) {
    const std::string document = R"({"model": "opus", "hooks": {
        "Stop": [{"matcher": "", "hooks": [{"command": "say"}, {"command": "/old/norrow/bridge"}]}],
        "Notification": [{"matcher": "", "hooks": [{"command": "/old/norrow/bridge"}]}]}})";
    const json own = json::parse(R"([{"matcher": "", "hooks": [{"type": "command", "command": ")" +
                                 std::string(bridge) + R"(", "timeout": 5}]}])");
    const json foreign = json::parse(R"({"matcher": "", "hooks": [{"command": "say"}]})");
    const auto plan = HookInstaller::planInstall(document, bridge);
    ASSERT_TRUE(plan.updatedDocument);
    const std::string& installed = *plan.updatedDocument;
    EXPECT_EQ(json::parse(installed)["hooks"]["Stop"], json::array({foreign, own[0]}));
    // The group that held only the old entry goes rather than staying empty.
    EXPECT_EQ(json::parse(installed)["hooks"]["Notification"], own);

    // Already current whatever the number form, but not for another bridge path.
    EXPECT_EQ(HookInstaller::planInstall(installed, bridge), (Plan{std::nullopt, true, 1}));
    json reformatted = json::parse(installed);
    reformatted["hooks"]["Notification"][0]["hooks"][0]["timeout"] = 5.0;
    EXPECT_TRUE(HookInstaller::planInstall(reformatted.dump(), bridge).alreadyCorrect);
    EXPECT_FALSE(
        HookInstaller::planInstall(reformatted.dump(), "/else/norrow/bridge").alreadyCorrect);

    EXPECT_EQ(json::parse(HookInstaller::planRemoval(installed).updatedDocument.value())["hooks"],
              json({{"Stop", json::array({foreign})}}));
    EXPECT_EQ(HookInstaller::planRemoval(R"({"hooks": {"Stop": [{"hooks": [{"command": "x"}]}]}})"),
              (Plan{std::nullopt, true, 1}));
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
    EXPECT_TRUE(
        HookInstaller::semanticallyEqual("{\"n\": 100, \"m\": 1}", "{\"m\":1, \"n\": 1e2}"));
    EXPECT_FALSE(HookInstaller::semanticallyEqual("{\"n\": 0.1}", "{\"n\": 0.10000000000000002}"));
    EXPECT_FALSE(HookInstaller::semanticallyEqual("{\"n\": 1}", "{\"n\": true}"));
}

} // namespace
} // namespace norrow
