#include "core/BridgeConfig.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace norrow {
namespace {

constexpr const char* kToken = "serve-test-token";

// Posts one event with curl and gives curl's output (the reply body).
std::string post(std::uint16_t port, const std::string& body, const std::string& token = kToken) {
    // The token travels in curl's config on stdin, never in an argument.
    const std::string config = "header = \"Authorization: Bearer " + token + "\"\n";
    return test::run({"curl", "-s", "-K", "-", "--data-binary", body,
                      "http://127.0.0.1:" + std::to_string(port) + "/v1/event"},
                     config)
        .out;
}

class ServeTest : public ::testing::Test {
protected:
    // A server whose settings and Claude Code folder live in `home` (under the test's folder).
    std::unique_ptr<test::Process> serve(std::vector<std::string> extra,
                                         const std::string& home = "") {
        std::vector<std::string> argv = {NORROWCTL,         "serve",
                                         "--token",         kToken,
                                         "--claude-folder", (dir / home / "claude").string()};
        argv.insert(argv.end(), extra.begin(), extra.end());
        return std::make_unique<test::Process>(
            argv, test::Environment{{"XDG_CONFIG_HOME", (dir / home / "config").string()}});
    }

    static std::uint16_t portOf(const std::optional<std::string>& line) {
        const std::string prefix = "listening on 127.0.0.1:";
        if (!line || line->rfind(prefix, 0) != 0) return 0;
        return static_cast<std::uint16_t>(std::stoi(line->substr(prefix.size())));
    }

    void setting(const std::string& line) {
        std::filesystem::create_directories(dir / "config" / "qelvane");
        std::ofstream(dir / "config" / "qelvane" / "Norrow.conf", std::ios::app) << "[General]\n"
                                                                                 << line << "\n";
    }

    test::TempDir dir;
};

TEST_F(ServeTest, JsonModeEchoesEveryAcceptedEventAndPublishesTheConfig) {
    auto server = serve({"--port", "0", "--json"});
    const std::uint16_t port = portOf(server->readLine());
    ASSERT_NE(port, 0);
    const auto config = BridgeConfig::location(dir / "claude");
    EXPECT_EQ(BridgeConfig::read(config), (BridgeConfig{port, kToken}));
    EXPECT_EQ(test::mode(config), 0600u);
    EXPECT_EQ(test::mode(config.parent_path()), 0700u);

    EXPECT_EQ(post(port, R"({"hook_event_name":"Stop","session_id":"s","unknown":1})"), "ok");
    EXPECT_EQ(post(port, R"({"hook_event_name":"Stop"})", "wrong"), "unauthorized");
    EXPECT_EQ(post(port, R"({"hook_event_name":"PreToolUse"})"), "undecodable event");
    EXPECT_EQ(server->readLine(), R"({"hook_event_name":"Stop","session_id":"s"})");
    EXPECT_EQ(server->stop(SIGTERM), 0);
    EXPECT_EQ(server->errors().find(kToken), std::string::npos);
}

TEST_F(ServeTest, PrintsOneLinePerAlertByTheUsersRules) {
    setting("rule.minimumDuration=0");
    auto server = serve({"--port", "0"});
    const std::uint16_t port = portOf(server->readLine());
    ASSERT_NE(port, 0);
    post(
        port,
        R"({"hook_event_name":"UserPromptSubmit","prompt_id":"p","session_id":"s","cwd":"/w/proj"})");
    post(port, R"({"hook_event_name":"Stop","prompt_id":"p","session_id":"s","cwd":"/w/proj",)"
               R"("last_assistant_message":"Fixed the **bug**. Tests pass."})");
    post(port, R"({"hook_event_name":"Notification","notification_type":"idle_prompt",)"
               R"("prompt_id":"p","session_id":"s","message":"Claude is waiting for your input"})");
    post(port, R"({"hook_event_name":"StopFailure","error":"rate_limit","cwd":"/w/proj",)"
               R"("last_assistant_message":"API Error: Rate limited"})");
    post(
        port,
        R"({"hook_event_name":"Notification","notification_type":"agent_completed","message":"done"})");
    post(port, R"({"hook_event_name":"Notification","notification_type":"permission_prompt",)"
               R"("session_id":"0123456789abcdef","message":"Claude needs your permission"})");
    EXPECT_EQ(server->readLine(), "\u2705 Done \u00b7 proj \u00b7 Fixed the bug. Tests pass. (0s)");
    EXPECT_EQ(server->readLine(),
              "\u2753 Needs you \u00b7 proj \u00b7 Turn failed: API Error: Rate limited");
    EXPECT_EQ(server->readLine(),
              "\u23f8\ufe0f Waiting \u00b7 01234567 \u00b7 Claude needs your permission");
    EXPECT_EQ(server->stop(SIGINT), 0);
}

TEST_F(ServeTest, ABusyPreferredPortFallsBackAndIsRemembered) {
    const auto holder = serve({"--port", "0"}, "holder");
    const std::uint16_t busy = portOf(holder->readLine());
    ASSERT_NE(busy, 0);

    setting("listenerPort=" + std::to_string(busy));
    auto server = serve({});
    const std::uint16_t port = portOf(server->readLine());
    ASSERT_NE(port, 0);
    EXPECT_NE(port, busy);
    EXPECT_EQ(post(port, R"({"hook_event_name":"Stop"})"), "ok");
    ::usleep(800'000);
    EXPECT_EQ(server->stop(SIGTERM), 0);
    std::ifstream settings(dir / "config" / "qelvane" / "Norrow.conf");
    const std::string text(std::istreambuf_iterator<char>(settings), {});
    EXPECT_NE(text.find("listenerPort=" + std::to_string(port)), std::string::npos) << text;
}

TEST_F(ServeTest, RejectsAnInvalidPort) {
    EXPECT_EQ(test::run({NORROWCTL, "serve", "--port", "70000"}).status, 2);
}

} // namespace
} // namespace norrow
