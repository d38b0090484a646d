// norrowctl summarize, strip, sentences and lint: output shape, error replies, exit statuses.
#include "core/RequestProtocol.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>

namespace norrow {
namespace {

test::Finished norrowctl(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), NORROWCTL);
    return test::run(arguments, input);
}

TEST(SummaryCommands, PrintOneCompactJsonLine) {
    const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
        {{"summarize", "--duration", "125"},
         R"({"hook_event_name":"Stop","last_assistant_message":"**Fixed** it. Tests pass.",)"
         R"("stats":{"toolCount":3,"filesTouched":2,"linesAdded":10,"linesRemoved":4}})",
         R"({"text":"Fixed it. Tests pass.","kind":"done","statLine":"3 tools )"
         "\u00B7 2 files \u00B7 +10 \u22124"
         R"(","durationText":"2m 5s","usedFallback":false})"},
        {{"summarize", "--markdown"},
         "Broken \xff\xfe bytes?",
         "{\"text\":\"Broken \uFFFD\uFFFD bytes?\","
         R"("kind":"needsYou","statLine":null,"durationText":null,"usedFallback":false})"},
        {{"summarize", "--banner", "--duration", "59.5"},
         R"({"hook_event_name":"Notification","notification_type":"agent_needs_input",)"
         R"("message":"Claude needs **your** permission"})",
         R"({"text":"Claude needs **your** permission","kind":"needsYou","statLine":null,)"
         R"("durationText":"1m"})"},
        {{"summarize", "--banner"},
         R"({"hook_event_name":"Notification","notification_type":"agent_completed"})",
         R"({"text":"Waiting for you","kind":"waiting","statLine":null,"durationText":null})"},
        {{"strip"},
         "## Plan ##\nWe *will* fix it.\n\n```\ncode\n```\n[](x)\n",
         R"j({"blocks":["Plan","We *will* fix it.","[](x)"],"inline":["Plan","We will fix it.",""],)j"
         R"("text":"Plan\n\nWe will fix it."})"},
        {{"strip"}, "\uE0000\uE001 `x`", R"({"blocks":["0 `x`"],"inline":["0 x"],"text":"0 x"})"},
        {{"sentences"},
         "Fixed it. See Dr. Smith! Done \xff",
         "[\"Fixed it.\",\"See Dr. Smith!\",\"Done \uFFFD\"]"},
    };
    for (const auto& [arguments, input, out] : cases) {
        const auto result = norrowctl(arguments, input);
        EXPECT_EQ(result.status, 0) << input << result.err;
        EXPECT_EQ(result.out, out + "\n") << input;
    }
}

TEST(SummaryCommands, RefuseUndecodableEventsAndBadArguments) {
    for (const std::string& input :
         {std::string("not json"), std::string(R"({"hook_event_name":"PreToolUse"})"),
          std::string("[]"), std::string(),
          std::string(R"({"hook_event_name":"Stop"})") + '\0' + "}"}) {
        const auto result = norrowctl({"summarize"}, input);
        EXPECT_EQ(result.status, 1) << input;
        EXPECT_EQ(result.err, "undecodable event\n") << input;
        EXPECT_EQ(result.out, "") << input;
    }
    EXPECT_EQ(norrowctl({"summarize", "--duration", "soon"}, "{}").status, 2);
}

// summarize takes exactly the payloads that the listener accepts, whatever its decoder refuses.
TEST(SummaryCommands, DecodeLikeTheListener) {
    const std::string payloads[] = {
        R"({"hook_event_name":"Stop","last_assistant_message":"Fixed it."})",
        R"({"hook_event_name":"Stop","last_assistant_message":"Fixed \ud800 it."})",
        "{\"hook_event_name\":\"Stop\",\"last_assistant_message\":\"bad \xff byte\"}",
        "{\"hook_event_name\":\"Stop\"}\xff",
        R"({"hook_event_name":"Stop","last_assistant_message":"nul \u0000 inside"})",
        std::string(R"({"hook_event_name":"Stop","message":"raw )") + '\0' + R"( nul"})",
        R"({"hook_event_name":"Stop","stats":"mistyped"})",
        R"({"hook_event_name":"Unknown"})",
    };
    for (const std::string& payload : payloads) {
        RequestProtocol::Request request{
            "POST", "/v1/event", {{"authorization", "Bearer t"}}, payload};
        const int listener = RequestProtocol::dispatch(request, "t").reply.status;
        ASSERT_TRUE(listener == 200 || listener == 422) << payload;
        const auto result = norrowctl({"summarize"}, payload);
        EXPECT_EQ(result.status, listener == 200 ? 0 : 1) << payload;
        EXPECT_EQ(result.err, listener == 200 ? "" : "undecodable event\n") << payload;
    }
}

TEST(LintCommand, PrintsViolationsAndTotals) {
    const test::TempDir folder;
    const std::string table = (folder / "table.md").string();
    std::ofstream(table) << "a | b\n";
    const std::string clean = std::string(NORROW_CORPUS_DIR) + "/assistant-messages/0001.md";
    const std::tuple<std::vector<std::string>, std::string, int> cases[] = {
        {{"lint", "--summary", std::string(150, 'x')}, "", 0},
        {{"lint", "--summary", "- Fixed\u2026", "--lead", "Other", "--limit", "3"},
         "list-marker: leading marker\ntoo-long: 8 > 3\n"
         "not-a-prefix: truncated text is not a prefix of the lead\n",
         1},
        {{"lint", clean}, "1 files, 0 violations\n", 0},
        {{"lint", table, clean}, table + ": table: |\n2 files, 1 violations\n", 1},
        {{"lint"}, "", 2},
    };
    for (const auto& [arguments, out, status] : cases) {
        const auto result = norrowctl(arguments);
        EXPECT_EQ(result.out, out) << arguments.back();
        EXPECT_EQ(result.status, status) << arguments.back();
    }
    const auto missing = norrowctl({"lint", (folder / "absent.md").string()});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("absent.md"), std::string::npos);
}

} // namespace
} // namespace norrow
