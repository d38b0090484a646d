#include "core/AppVersion.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <arpa/inet.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;
using namespace std::chrono_literals;

constexpr const char* token = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

std::string contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A corpus payload moved to another session.
std::string payload(const std::string& name, const std::string& session) {
    json event =
        json::parse(contents(fs::path(NORROW_CORPUS_DIR) / "hook-payloads" / (name + ".json")));
    event["session_id"] = session;
    return event.dump();
}

// The real norrowctl serving in a temporary Claude Code folder, with the real bridge
// installed there by the real setup flow.
class BridgeScriptTest : public testing::Test {
protected:
    test::TempDir top;
    fs::path claude = top / "claude";
    fs::path state = claude / "norrow/state";
    fs::path bridge = claude / "norrow/bridge";
    test::Environment environment{{"HOME", (top / "home").string()},
                                  {"XDG_CONFIG_HOME", (top / "home/.config").string()},
                                  {"TERM_PROGRAM", "vscode"},
                                  {"__CFBundleIdentifier", std::nullopt}};
    std::unique_ptr<test::Process> server;

    void SetUp() override {
        fs::create_directories(claude);
        std::ofstream(claude / "settings.json") << "{}";
        server = std::make_unique<test::Process>(
            std::vector<std::string>{NORROWCTL, "serve", "--json", "--port", "0", "--token", token,
                                     "--claude-folder", claude.string()},
            environment);
        ASSERT_TRUE(server->readLine().value_or("").starts_with("listening on 127.0.0.1:"));
        for (int i = 0; i < 100 && !fs::exists(claude / "norrow/config.json"); ++i)
            std::this_thread::sleep_for(50ms);
        const auto setup = test::run(
            {NORROWCTL, "hooks", "install", "--claude-folder", claude.string()}, {}, environment);
        ASSERT_EQ(setup.status, 0) << setup.err;
        ASSERT_TRUE(setup.out.starts_with("Setup complete\n"));
    }

    // Runs the bridge with `payload` on stdin; it must print nothing and succeed.
    void post(const std::string& body, std::vector<std::string> shell = {"sh"},
              const test::Environment& extra = {}) {
        test::Environment env = environment;
        for (const auto& [name, value] : extra)
            env[name] = value;
        shell.push_back(bridge.string());
        const auto result = test::run(shell, body, env);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "");
    }

    json received() {
        const auto line = server->readLine();
        return line ? json::parse(*line) : json();
    }
};

TEST_F(BridgeScriptTest, CarriesOnePromptThroughASessionUnderEveryShell) {
    const std::vector<std::vector<std::string>> shells = {
        {"sh"}, {"dash"}, {"bash"}, {"zsh", "--emulate", "sh"}};
    for (const auto& shell : shells) {
        const std::string session = "e2e-" + shell.front();
        SCOPED_TRACE(session);
        post(payload("0048", session), shell);
        const json prompt = received();
        EXPECT_EQ(prompt["hook_event_name"], "UserPromptSubmit");
        EXPECT_EQ(prompt["prompt"], "Ok, go ahead, keep the ultrathink activated");
        EXPECT_EQ(prompt["bridge_version"], AppVersion::current());
        EXPECT_EQ(prompt["term_program"], "vscode");
        ASSERT_TRUE(prompt["prompt_id"].is_string());
        EXPECT_EQ(prompt["prompt_id"].get<std::string>().size(), 36u);
        EXPECT_EQ(json::parse(contents(state / (session + ".json")))["prompt_id"],
                  prompt["prompt_id"]);

        post(payload("0004", session), shell);
        post(payload("0040", session), shell);
        for (const char* name : {"Stop", "Notification"}) {
            const json event = received();
            EXPECT_EQ(event["hook_event_name"], name);
            EXPECT_EQ(event["prompt_id"], prompt["prompt_id"]);
            EXPECT_EQ(event["term_app_path"], prompt["term_app_path"]);
        }

        post(R"({"session_id":")" + session +
                 R"(","hook_event_name":"SessionEnd","reason":"exit"})",
             shell);
        const json end = received();
        EXPECT_EQ(end["hook_event_name"], "SessionEnd");
        EXPECT_FALSE(end.contains("prompt_id"));
        EXPECT_FALSE(fs::exists(state / (session + ".json")));
    }
    EXPECT_TRUE(fs::is_empty(state));
}

TEST_F(BridgeScriptTest, KeepsClaudeCodesOwnKeysAndTextIntact) {
    // Claude Code's own prompt id is kept, not doubled, and followed by the session.
    post(payload("0047", "own-id"));
    const json prompt = received();
    EXPECT_EQ(prompt["prompt_id"], "48d89da6-1151-4c47-aa99-9be384f19357");
    EXPECT_EQ(prompt["prompt"], "\u043f\u0440\u043e\u0434\u043e\u043b\u0436\u0438");

    // A long, awkward message laid out over many lines survives byte for byte.
    std::string message =
        "Fixed it: \"quotes\", \\backslashes\\, $HOME, `ticks`, 'single', \u00e9\u2014\U0001F600\n";
    while (message.size() < 300'000)
        message += message;
    const json stop = {{"session_id", "own-id"},
                       {"hook_event_name", "Stop"},
                       {"last_assistant_message", message},
                       {"bridge_version", "from-claude"}};
    post(stop.dump(2));
    const json event = received();
    EXPECT_EQ(event["last_assistant_message"], message);
    EXPECT_EQ(event["prompt_id"], prompt["prompt_id"]);
    // Added keys come first, so Claude Code's win.
    EXPECT_EQ(event["bridge_version"], "from-claude");

    // A session id cannot lead out of the state folder.
    post(R"({"session_id":"../../evil/x","hook_event_name":"Stop"})");
    EXPECT_EQ(received()["session_id"], "../../evil/x");
    EXPECT_TRUE(fs::exists(state / ".._.._evil_x.json"));
    EXPECT_FALSE(fs::exists(top / "evil"));
}

TEST_F(BridgeScriptTest, FindsTheHostingEditor) {
    std::ofstream(top / "payload.json")
        << R"({"session_id":"editor","hook_event_name":"Notification"})";
    for (const auto& [host, identifier] :
         {std::pair{top / "code", "com.microsoft.vscode"},
          std::pair{top / "pycharm-2024.1/jbr/bin/java", "com.jetbrains.pycharm"},
          std::pair{top / "xterm", ""}}) {
        fs::create_directories(host.parent_path());
        fs::copy_file("/bin/dash", host);
        fs::remove(state / "editor.json");
        // The trailing command keeps the host from replacing itself with the hook's shell.
        const std::string hook =
            "sh " + bridge.string() + " < " + (top / "payload.json").string() + "; true";
        EXPECT_EQ(test::run({host.string(), "-c", hook}, {}, environment).status, 0);
        const json event = received();
        EXPECT_EQ(event["term_app_path"], host.string());
        EXPECT_EQ(event.value("term_bundle_id", ""), identifier);
    }
    post(R"({"session_id":"editor","hook_event_name":"Stop"})", {"sh"},
         {{"__CFBundleIdentifier", "com.apple.Terminal"}});
    EXPECT_EQ(received()["term_bundle_id"], "com.apple.Terminal");
}

TEST_F(BridgeScriptTest, StaysQuietAndBriefWithoutTheApp) {
    const std::string event = payload("0004", "alone");
    server->stop(SIGTERM);
    post(event);
    EXPECT_TRUE(fs::exists(state / "alone.json"));

    std::ofstream(claude / "norrow/config.json") << R"({"port":)";
    post(event);
    fs::remove(claude / "norrow/config.json");
    post(event);

    // A listener that accepts connections but never answers: the token reaches curl through
    // neither its arguments nor its environment.
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(::listen(listener, 8), 0);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    const std::string port = std::to_string(ntohs(address.sin_port));
    std::ofstream(claude / "norrow/config.json")
        << R"({"port":)" << port << R"(,"token":")" << token << "\"}";
    std::ofstream(top / "payload.json") << event;

    test::Process hook(
        {"sh", "-c", "sh " + bridge.string() + " < " + (top / "payload.json").string()},
        environment);
    int seen = 0;
    for (int i = 0; i < 40 && seen == 0; ++i) {
        std::this_thread::sleep_for(20ms);
        for (const auto& process : fs::directory_iterator("/proc")) {
            const std::string command = contents(process.path() / "cmdline");
            if (!command.starts_with("curl") || command.find(port) == std::string::npos) continue;
            ++seen;
            EXPECT_EQ(command.find(token), std::string::npos);
            EXPECT_EQ(contents(process.path() / "environ").find(token), std::string::npos);
        }
    }
    EXPECT_GT(seen, 0);
    EXPECT_FALSE(hook.readLine());
    EXPECT_EQ(hook.stop(0), 0);
    ::close(listener);
}

} // namespace
} // namespace norrow
