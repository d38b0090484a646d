#include "core/HookEvent.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace norrow {
namespace {

using json = nlohmann::json;

std::optional<HookEvent> decoded(const char* text) {
    return HookEvent::decode(std::string_view(text));
}

TEST(HookEventDecoding, OnlyTheHookNameCanMakeDecodingFail) {
    const std::pair<const char*, bool> cases[] = {
        {R"({"hook_event_name":"Stop"})", true},
        {R"({"hook_event_name":"SubagentStop","session_id":42})", true},
        {R"({"hook_event_name":"StopFailure","error":"rate_limit"})", true},
        {R"({"hook_event_name":"PreToolUse"})", false},
        {R"({"hook_event_name":"stop"})", false},
        {R"({"hook_event_name":7})", false},
        {R"({"session_id":"s"})", false},
        {R"(["Stop"])", false},
        {R"("Stop")", false},
        {"", false},
        {R"({"hook_event_name":"Stop",})", false},
        {"{\"hook_event_name\":\"Stop\",\"message\":\"\xff\"}", false},
        {R"({"hook_event_name":"Stop","message":"\ud800"})", false},
    };
    for (const auto& [body, decodes] : cases)
        EXPECT_EQ(decoded(body).has_value(), decodes) << body;
}

TEST(HookEventDecoding, MistypedOptionalFieldsBecomeAbsent) {
    const auto event = decoded(R"({"hook_event_name":"Notification","session_id":42,
        "stop_hook_active":"true","notification_type":"some_new_kind","cwd":null,
        "message":"hi","prompt":["x"],"stats":{"tool_count":3},"tool_input":"rm -rf /",
        "background_tasks":{"id":1},"session_title":7})");
    ASSERT_TRUE(event);
    EXPECT_EQ(event->hookEventName, HookEvent::Name::notification);
    EXPECT_FALSE(event->sessionId);
    EXPECT_FALSE(event->stopHookActive);
    EXPECT_FALSE(event->notificationType);
    EXPECT_FALSE(event->cwd);
    EXPECT_FALSE(event->prompt);
    EXPECT_FALSE(event->toolInput);
    EXPECT_FALSE(event->backgroundTasks);
    EXPECT_FALSE(event->sessionTitle);
    EXPECT_EQ(event->message, "hi");
    ASSERT_TRUE(event->stats);
    EXPECT_EQ(*event->stats, HookEvent::Stats{});
}

TEST(HookEventDecoding, StatsFailAsAWhole) {
    const std::pair<const char*, std::optional<HookEvent::Stats>> cases[] = {
        {R"({"toolCount":3,"costUSD":0.12})", HookEvent::Stats{3, {}, {}, {}, 0.12}},
        {R"({"toolCount":"3"})", std::nullopt},
        {R"({"toolCount":3.5})", std::nullopt},
        {R"({"linesAdded":null,"linesRemoved":-4})", HookEvent::Stats{{}, {}, {}, -4, {}}},
        {R"({"costUSD":2})", HookEvent::Stats{{}, {}, {}, {}, 2.0}},
        {R"({"filesTouched":18446744073709551615})", std::nullopt},
        {R"("many")", std::nullopt},
    };
    for (const auto& [stats, expected] : cases) {
        const std::string body = std::string(R"({"hook_event_name":"Stop","stats":)") + stats + "}";
        const auto event = HookEvent::decode(std::string_view(body));
        ASSERT_TRUE(event) << body;
        EXPECT_EQ(event->stats, expected) << body;
    }
}

TEST(HookEventEncoding, WritesPresentKeysInRecordOrderAndEveryRealPayloadRoundTrips) {
    HookEvent event(HookEvent::Name::notification);
    event.termProgram = "vscode";
    event.bridgeVersion = "1.2.0";
    event.sessionId = "s1";
    event.notificationType = HookEvent::NotificationType::idlePrompt;
    event.stats = HookEvent::Stats{1, {}, 5, {}, {}};
    EXPECT_EQ(
        event.encode().dump(),
        R"({"hook_event_name":"Notification","session_id":"s1","notification_type":"idle_prompt",)"
        R"("bridge_version":"1.2.0","term_program":"vscode","stats":{"toolCount":1,"linesAdded":5}})");
    EXPECT_EQ(HookEvent::fromJson(json::parse(event.encode().dump())), event);

    int decodedCount = 0;
    for (const auto& entry : std::filesystem::directory_iterator(
             std::filesystem::path(NORROW_CORPUS_DIR) / "hook-payloads")) {
        if (entry.path().extension() != ".json") continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string body((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
        const auto real = HookEvent::decode(std::string_view(body));
        if (!real) continue;
        ++decodedCount;
        EXPECT_EQ(HookEvent::fromJson(json::parse(real->encode().dump())), real) << entry.path();
    }
    EXPECT_GT(decodedCount, 30);
}

TEST(HookEventProperties, DerivedFromTheRecordedFields) {
    HookEvent event(HookEvent::Name::stop);
    const std::pair<std::optional<std::string>, std::optional<std::string>> projects[] = {
        {"/Users/a/proj/", "proj"},   {"/Users/a/proj", "proj"}, {"/", "/"},   {"", std::nullopt},
        {std::nullopt, std::nullopt}, {"relative", "relative"},  {"///", "/"},
    };
    for (const auto& [cwd, name] : projects) {
        event.cwd = cwd;
        EXPECT_EQ(event.projectName(), name) << cwd.value_or("(absent)");
    }

    const std::pair<std::optional<std::string>, const char*> labels[] = {
        {"CODEX", "Codex"},
        {"codex", "Codex"},
        {"codex-cli", "Claude Code"},
        {std::nullopt, "Claude Code"},
    };
    for (const auto& [agent, label] : labels) {
        event.agent = agent;
        EXPECT_EQ(event.agentLabel(), label);
    }

    using Terminal = std::tuple<std::optional<std::string>, std::optional<std::string>, bool>;
    const Terminal terminals[] = {
        {"VSCode", std::nullopt, true},
        {std::nullopt, "COM.MICROSOFT.VSCODE", true},
        {std::nullopt, "com.jetbrains.pycharm", true},
        {std::nullopt, "com.todesktop.230313mzl4w4u92", true},
        {std::nullopt, "com.apple.Terminal", false},
        {"iTerm.app", "", false},
        {std::nullopt, std::nullopt, false},
    };
    for (const auto& [program, bundle, integrated] : terminals) {
        event.termProgram = program;
        event.termBundleId = bundle;
        EXPECT_EQ(event.isIntegratedTerminal(), integrated) << bundle.value_or("-");
    }

    for (const auto& [tasks, running] :
         {std::pair{R"([])", false}, std::pair{R"([{"id":"b1","status":"completed"}, 3])", false},
          std::pair{R"([{"id":"b0"},{"id":"b1","status":"running"}])", true}}) {
        event.backgroundTasks = json::parse(tasks);
        EXPECT_EQ(event.leavesTasksRunning(), running) << tasks;
    }
}

} // namespace
} // namespace norrow
