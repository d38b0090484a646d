#include "agents/Agents.h"
#include "support/AgentSession.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

// The harness end to end: a Bash call that needs permission shows its dialog, PermissionRequest
// is logged, and once allowed the tool runs and PostToolUse follows.
TEST(ClaudeCodeTest, PermissionDialogThenToolRuns) {
    const auto installed = test::npm::install(test::agents::claudeCode, NORROW_AGENTS_DIR);
    if (installed.error) GTEST_SKIP() << test::npm::describe(*installed.error);

    test::AgentSession session(
        installed.program,
        {.script = {
             {"replies",
              {{"make the marker",
                {{{"tool_use",
                   {{"name", "Bash"},
                    {"input", {{"command", "touch marker"}, {"description", "Make a marker"}}}}}},
                 {{"text", "Made it."}}}}}}}});
    ASSERT_TRUE(session.start()) << session.diagnostics();
    session.submit("make the marker");
    ASSERT_TRUE(session.waitForScreen("Do you want to proceed?")) << session.diagnostics();
    session.terminal().press({"Enter"});
    ASSERT_TRUE(session.waitForHook("Stop")) << session.diagnostics();

    std::vector<std::string> events;
    for (const auto& call : session.hookCalls())
        if (call.payload.contains("tool_name")) events.push_back(call.event());
    EXPECT_EQ(events, (std::vector<std::string>{"PreToolUse", "PermissionRequest", "PostToolUse"}));
    EXPECT_TRUE(std::filesystem::exists(session.project() / "marker"));
    for (const auto& request : session.api().requests())
        EXPECT_NE(request.value("method", ""), "CONNECT") << "went beyond 127.0.0.1: " << request;
}

} // namespace
} // namespace norrow
