#include "agents/Agents.h"
#include "support/AgentSession.h"
#include "support/Eventually.h"
#include "support/NorrowServer.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

using json = nlohmann::json;
using namespace std::chrono_literals;

json bash(const std::string& command, bool background = false) {
    json input = {{"command", command}, {"description", "Run " + command}};
    if (background) input["run_in_background"] = true;
    return {{"tool_use", {{"name", "Bash"}, {"input", input}}}};
}

// The model's side of every turn below, by the prompt that starts it.
json script() {
    const json question = {{"question", "Which colour should the button be?"},
                           {"header", "Colour"},
                           {"options",
                            {{{"label", "Red"}, {"description", "A warm red"}},
                             {{"label", "Blue"}, {"description", "A calm blue"}}}},
                           {"multiSelect", false}};
    // As the client asks a model to: the plan into the file it names, then the request.
    const json plan = {
        {"file_path", "{plan_file}"},
        {"content", "# Migrate the schema\n\n1. Add the column.\n2. Backfill it.\n"}};
    return {
        {"replies",
         {{"make the marker", {bash("touch marker"), {{"text", "Made it."}}}},
          {"ask the colour",
           {{{"tool_use", {{"name", "AskUserQuestion"}, {"input", {{"questions", {question}}}}}}},
            {{"text", "Blue it is."}}}},
          {"plan the migration",
           {{{"tool_use", {{"name", "Write"}, {"input", plan}}}},
            {{"tool_use", {{"name", "ExitPlanMode"}, {"input", json::object()}}}},
            {{"text", "Migrating."}}}},
          {"remove the marker", {bash("rm marker"), {{"text", "Removed it."}}}},
          {"fail now", {{{"status", 529}}}},
          {"wait in the background",
           {bash("sleep 6; echo bg-done", true), {{"text", "It runs in the background."}}}},
          {"<task-notification>", {{{"text", "The background command printed bg-done."}}}}}}};
}

// Hook runs of `event` the client has seen to their end: for the bridge, posted to Norrow.
std::size_t finishedRuns(const test::AgentSession& session, const std::string& event) {
    std::size_t count = 0;
    for (const auto& run : session.hookRuns())
        count += run.event == event;
    return count;
}

// One session of the real client with Norrow's real hooks and `norrowctl serve`, whose
// printed lines are read one by one: any line announced that should not be, such as the end
// of a turn whose clock an answer restarted, takes the place of the one expected.
TEST(ClaudeCodeTest, NorrowAnnouncesWhatARealSessionAsksAndWithdrawsItWhenAnswered) {
    const auto installed = test::npm::install(test::agents::claudeCode, NORROW_AGENTS_DIR);
    if (installed.error) GTEST_SKIP() << test::npm::describe(*installed.error);

    test::AgentSession session(installed.program, {.script = script(), .logHooks = false});
    // Every dialog below stays open past this, and every turn after its answer stays under it.
    test::NorrowServer norrow(session, {"rule.minimumDuration=4"});
    ASSERT_TRUE(session.start()) << session.diagnostics();
    const auto expectLine = [&](const std::string& expected) {
        const auto line = norrow.nextLine();
        ASSERT_TRUE(line) << "expected \"" << expected << "\"\n" << session.diagnostics();
        EXPECT_EQ(line->substr(0, expected.size()), expected) << session.diagnostics();
    };

    // Waits until the bridge has run for `event` more than `before` times: Norrow has it.
    const auto waitForBridge = [&](const std::string& event, std::size_t before) {
        return test::eventually([&] { return finishedRuns(session, event) > before; }, 30s);
    };

    // Listed from its start, before any prompt.
    ASSERT_TRUE(test::eventually(
        [&] {
            const json listed = json::parse(norrow.norrowctl({"sessions"}).out, nullptr, false);
            return listed.is_array() && listed.size() == 1;
        },
        20s))
        << norrow.norrowctl({"sessions"}).out;

    struct Dialog {
        std::vector<std::string> before; // keys that set the mode the prompt needs
        std::string prompt;
        std::string shown; // on the screen once the dialog is drawn
        std::vector<std::string> answer;
        std::string announced;
    };
    const Dialog dialogs[] = {
        {{}, "make the marker", "Do you want to proceed?", {"Enter"}, "Allow Bash: touch marker"},
        {{},
         "ask the colour",
         "Which colour should the button be?",
         {"Down", "Enter"},
         "Which colour should the button be? Red / Blue"},
        {{"BTab", "BTab"},
         "plan the migration",
         "Ready to code?",
         {"Down", "Enter"}, // approved, edits still asked for
         "Plan ready for review \u2014 Migrate the schema"},
    };
    for (const auto& dialog : dialogs) {
        SCOPED_TRACE(dialog.prompt);
        if (!dialog.before.empty()) session.terminal().press(dialog.before);
        const std::size_t notices = finishedRuns(session, "Notification");
        const std::size_t stops = finishedRuns(session, "Stop");
        session.submit(dialog.prompt);
        expectLine("\u23f8\ufe0f Waiting \u00b7 project \u00b7 " + dialog.announced);
        ASSERT_TRUE(session.waitForScreen(dialog.shown)) << session.diagnostics();
        // The client's own notice of the open dialog, six seconds after it is drawn, is no
        // second alert.
        ASSERT_TRUE(waitForBridge("Notification", notices)) << session.diagnostics();
        session.terminal().press(dialog.answer);
        expectLine("\u21a9 Withdrawn \u00b7 project");
        // The turn's end is not announced, its clock having started over at the answer. (A
        // prompt typed before that end would join the turn.)
        ASSERT_TRUE(waitForBridge("Stop", stops)) << session.diagnostics();
    }

    // Dismissed, the dialog leaves no trace in the client's events: the alert stands until
    // the next prompt.
    session.submit("remove the marker");
    expectLine("\u23f8\ufe0f Waiting \u00b7 project \u00b7 Allow Bash: rm marker");
    ASSERT_TRUE(session.waitForScreen("Do you want to proceed?")) << session.diagnostics();
    session.terminal().press({"Escape"});
    ASSERT_TRUE(session.waitForScreen("What should Claude do instead?")) << session.diagnostics();
    EXPECT_EQ(norrow.nextLine(2s), std::nullopt);
    session.submit("fail now");
    expectLine("\u21a9 Withdrawn \u00b7 project");
    expectLine("\u2753 Needs you \u00b7 project \u00b7 Turn failed: API Error: 529");
    ASSERT_TRUE(waitForBridge("StopFailure", 0)) << session.diagnostics();

    // Work left running ends the turn once the client has had its word on it (the client
    // runs a command this harmless without asking).
    session.submit("wait in the background");
    expectLine("\u2705 Done \u00b7 project \u00b7 The background command printed bg-done. (");

    for (const auto& request : session.api().requests())
        EXPECT_NE(request.value("method", ""), "CONNECT") << "went beyond 127.0.0.1: " << request;
}

} // namespace
} // namespace norrow
