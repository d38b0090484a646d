#include "core/AppVersion.h"
#include "core/PermissionAnswer.h"
#include "core/RequestProtocol.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/Sockets.h"
#include "support/TempDir.h"

#include <asio.hpp>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>
#include <unistd.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;
using namespace std::chrono_literals;

constexpr const char* token = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

using test::contents;

// A corpus payload moved to another session, and given another event name if one is given.
std::string payload(const std::string& name, const std::string& session,
                    const std::string& event = "") {
    json object =
        json::parse(contents(fs::path(NORROW_CORPUS_DIR) / "hook-payloads" / (name + ".json")));
    object["session_id"] = session;
    if (!event.empty()) object["hook_event_name"] = event;
    return object.dump();
}

// Whether the bridge leaves a member out of what it posts: what a tool was given and gave
// back, in the events that only tell that the user answered.
bool leftOut(const json& sent, const std::string& key) {
    static const std::set<std::string> answers{"PostToolUse", "PostToolUseFailure",
                                               "PermissionDenied"};
    return (key == "tool_input" || key == "tool_response") &&
           answers.contains(sent.value("hook_event_name", ""));
}

// Stands in for the app, to see exactly what the bridge posts and how it takes a reply: a listener
// of this user, published in `config`, that answers each request at once and gives its body.
class Sink {
public:
    explicit Sink(const fs::path& config) {
        std::ofstream(config) << R"({"port":)" << acceptor_.local_endpoint().port()
                              << R"(,"token":")" << token << "\"}";
    }

    // The body of the next request; "{}" when none comes within five seconds. It is answered
    // with `reply`.
    std::string body(std::string_view reply = "HTTP/1.1 204 No Content\r\n\r\n") {
        pollfd ready{acceptor_.native_handle(), POLLIN, 0};
        if (::poll(&ready, 1, 5000) <= 0) return "{}";
        asio::ip::tcp::socket socket = acceptor_.accept();
        asio::write(socket, asio::buffer(reply));
        const std::string request =
            test::readUntilClosed(socket.native_handle(), std::chrono::steady_clock::now() + 5s)
                .value_or("");
        path =
            request.substr(request.find(' ') + 1, request.find(" HTTP/") - request.find(' ') - 1);
        const auto end = request.find("\r\n\r\n");
        return end == std::string::npos ? "{}" : request.substr(end + 4);
    }

    // Where the last request went.
    std::string path;

private:
    asio::io_context io_;
    asio::ip::tcp::acceptor acceptor_{io_, {asio::ip::address_v4::loopback(), 0}};
};

// The real norrowctl serving a temporary Claude Code folder, with the bridge installed there
// by the real setup flow.
class BridgeScriptTest : public testing::Test {
protected:
    test::TempDir top;
    fs::path claude = top / "claude";
    fs::path state = claude / "norrow/state";
    test::Environment environment{{"HOME", (top / "home").string()},
                                  {"XDG_CONFIG_HOME", (top / "home/.config").string()},
                                  {"TERM_PROGRAM", "vscode"},
                                  {"__CFBundleIdentifier", ""}};
    std::unique_ptr<test::Process> server;
    std::optional<Sink> sink;

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

    // Runs the bridge from `shell` with `body` on stdin: it must print nothing and succeed.
    // Gives the event the server echoed or the sink took, if either is there: `body` with
    // keys added and some left out.
    json post(const std::string& body, std::vector<std::string> shell = {"sh"}) {
        shell.push_back((claude / "norrow/bridge").string());
        std::future<std::string> taken;
        if (sink) taken = std::async(std::launch::async, [this] { return sink->body(); });
        const auto result = test::run(shell, body, environment);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out + result.err, "");
        if (!server && !sink) return json();
        json event = json::parse(sink ? taken.get() : server->readLine().value_or("{}"));
        const json sent = json::parse(body);
        for (const auto& [key, value] : sent.items()) {
            if (leftOut(sent, key)) {
                EXPECT_FALSE(event.contains(key)) << key;
            } else {
                EXPECT_EQ(event[key], value) << key;
            }
        }
        return event;
    }
};

// Every event after a prompt but a session's start carries the prompt and moves the date of
// the session's state file, which the start creates; a long state file is written anew, and
// a line cut short is passed over.
TEST_F(BridgeScriptTest, CarriesOnePromptThroughASessionUnderEveryShell) {
    server.reset();
    sink.emplace(claude / "norrow/config.json");
    const std::vector<std::string> shells[] = {
        {"sh"}, {"dash"}, {"bash"}, {"zsh", "--emulate", "sh"}};
    const std::pair<std::string, bool> events[] = {{"Stop", true},
                                                   {"StopFailure", true},
                                                   {"Notification", true},
                                                   {"PermissionRequest", true},
                                                   {"PostToolUse", true},
                                                   {"PostToolUseFailure", true},
                                                   {"PermissionDenied", true},
                                                   {"Elicitation", true},
                                                   {"SessionStart", false},
                                                   {"SessionEnd", true}};
    for (const auto& shell : shells) {
        const std::string session = "e2e-" + shell.front();
        const fs::path file = state / (session + ".json");
        SCOPED_TRACE(session);
        EXPECT_FALSE(post(payload("0054", session), shell).contains("prompt_id"));
        EXPECT_TRUE(fs::exists(file));
        const json prompt = post(payload("0048", session), shell);
        EXPECT_EQ(prompt["bridge_version"], AppVersion::current());
        EXPECT_EQ(prompt["term_program"], "vscode");
        EXPECT_EQ(prompt.value("prompt_id", "").size(), 36u);
        std::ofstream(file, std::ios::app) << std::string(1000, '\n') << R"({"prompt_id":"cut)";
        for (const auto& [name, carries] : events) {
            fs::last_write_time(file, fs::file_time_type::clock::now() - 1h);
            const json event = post(payload("0004", session, name), shell);
            EXPECT_EQ(event.value("prompt_id", ""), carries ? prompt.value("prompt_id", "") : "")
                << name;
            EXPECT_EQ(event["term_app_path"], prompt["term_app_path"]);
            if (name != "SessionEnd") {
                EXPECT_GT(fs::last_write_time(file), fs::file_time_type::clock::now() - 1min);
                EXPECT_LT(fs::file_size(file), 1000u);
            }
        }
        EXPECT_FALSE(fs::exists(file));
    }
    EXPECT_TRUE(fs::is_empty(state));
}

// What tools were given and gave back, past the size the app accepts, is left out of the
// events that only tell that the user answered, wherever it stands in the body.
TEST_F(BridgeScriptTest, LeavesOutWhatToolsWereGivenAndGaveBack) {
    server.reset();
    sink.emplace(claude / "norrow/config.json");
    const json request = json::parse(payload("0063", "tools"));
    const std::string large(2 << 20, 'x');
    json answered = request;
    answered["hook_event_name"] = "PostToolUse";
    answered["tool_response"] = {{"stdout", large}, {"interrupted", false}};
    const std::string bodies[] = {
        request.dump(),
        answered.dump(2),
        R"({"tool_response":")" + large +
            R"(","session_id":"tools","hook_event_name":"PostToolUseFailure",)"
            R"("tool_input":{"command":"]\"}"}})",
        R"({"session_id":"tools","tool_input":{"tool_response":[]},"tool_response":[{}],)"
        R"("hook_event_name":"PermissionDenied","reason":"tool_input"})",
    };
    for (const std::string& body : bodies)
        post(body);
}

// Claude Code's own prompt id and keys win over the added ones, whatever the size.
TEST_F(BridgeScriptTest, KeepsClaudeCodesOwnKeys) {
    post(payload("0047", "own"));
    std::string message = "\"quotes\", \\back\\, $HOME, `ticks`, 'single', \u00e9\U0001F600\n";
    while (message.size() < 300'000)
        message += message;
    const json stop{{"session_id", "own"},
                    {"hook_event_name", "Stop"},
                    {"last_assistant_message", message},
                    {"bridge_version", "mine"}};
    EXPECT_EQ(post(stop.dump(2))["prompt_id"], "48d89da6-1151-4c47-aa99-9be384f19357");

    // Members nested in others are not the event's, whatever their strings hold.
    const std::string nested =
        R"({"effort":{"hook_event_name":"UserPromptSubmit","prompt_id":"x"},)"
        R"("tags":["]\"}",{"a":"[{\\"}],"session_id":"own","hook_event_name":"Stop"})";
    test::run({"sh", (claude / "norrow/bridge").string()}, nested, environment);
    EXPECT_EQ(json::parse(server->readLine().value_or("{}"))["prompt_id"],
              "48d89da6-1151-4c47-aa99-9be384f19357");

    post(R"({"session_id":"../../evil/x","hook_event_name":"Stop"})");
    EXPECT_TRUE(fs::exists(state / ".._.._evil_x.json"));
    EXPECT_FALSE(fs::exists(top / "evil"));
}

TEST_F(BridgeScriptTest, FindsTheHostingEditor) {
    const std::pair<fs::path, std::string> hosts[] = {
        {top / "code", "com.microsoft.vscode"},
        {top / "pycharm-2024.1/jbr/bin/java", "com.jetbrains.pycharm"},
        {top / "xterm", ""},
    };
    for (const auto& [host, identifier] : hosts) {
        fs::create_directories(host.parent_path());
        fs::copy_file("/bin/dash", host);
        fs::remove(state / "editor.json");
        // The trailing command keeps the host from replacing itself with the hook's shell.
        const json event = post(R"({"session_id":"editor","hook_event_name":"Notification"})",
                                {host.string(), "-c", "sh \"$0\"; true"});
        EXPECT_EQ(event["term_app_path"], host.string());
        EXPECT_EQ(event.value("term_bundle_id", ""), identifier);
    }
    environment["__CFBundleIdentifier"] = "com.apple.Terminal";
    EXPECT_EQ(post(R"({"session_id":"editor","hook_event_name":"Stop"})")["term_bundle_id"],
              "com.apple.Terminal");
}

// A script runs in its interpreter, which is not the host: a wrapper script in a terminal
// gives the terminal, while a terminal that is itself a script, with no other host above
// it, gives its interpreter.
TEST_F(BridgeScriptTest, LooksPastAScriptsInterpreter) {
    const fs::path xterm = top / "xterm", screen = top / "screen";
    fs::copy_file("/bin/dash", xterm);
    fs::copy_file("/bin/dash", screen);
    const fs::path wrapper = top / "start-claude.sh", terminal = top / "terminator";
    test::put(wrapper, "#!/bin/dash\nsh \"$1\"\ntrue\n");
    test::put(terminal, "#!/usr/bin/perl\nsystem(\"sh\", @ARGV);\n");
    for (const fs::path& script : {wrapper, terminal})
        fs::permissions(script, fs::perms::owner_all);
    const std::pair<std::vector<std::string>, fs::path> chains[] = {
        {{xterm, "-c", wrapper.string() + " \"$0\"; true"}, xterm},
        {{screen, "-c", terminal.string() + " \"$0\"; true"}, fs::canonical("/usr/bin/perl")},
    };
    for (const auto& [chain, host] : chains) {
        fs::remove(state / "script.json");
        EXPECT_EQ(
            post(R"({"session_id":"script","hook_event_name":"Stop"})", chain)["term_app_path"],
            host.string());
    }
}

// While the app is not running anyone may listen on its port; a listener of another user,
// on the loopback address or on every address, is sent nothing at all.
TEST_F(BridgeScriptTest, SendsNothingToAListenerOfAnotherUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can listen as another user here";
    server.reset();
    asio::io_context io;
    const asio::ip::tcp::endpoint addresses[] = {{asio::ip::address_v4::loopback(), 0},
                                                 {asio::ip::address_v6::any(), 0}};
    for (const auto& address : addresses) {
        SCOPED_TRACE(address.address().to_string());
        asio::ip::tcp::acceptor squatter(io);
        // A socket belongs to the user that opens it.
        ASSERT_EQ(::seteuid(65534), 0);
        asio::error_code error;
        squatter.open(address.protocol(), error);
        ASSERT_EQ(::seteuid(0), 0);
        if (error) continue; // no IPv6 here
        squatter.bind(address);
        squatter.listen();
        std::ofstream(claude / "norrow/config.json")
            << R"({"port":)" << squatter.local_endpoint().port() << R"(,"token":")" << token
            << "\"}";
        post(payload("0047", "squatted"));
        squatter.non_blocking(true);
        squatter.accept(error);
        EXPECT_EQ(error, asio::error::would_block);
    }
}

TEST_F(BridgeScriptTest, StaysQuietWithoutTheAppAndKeepsTheTokenOutOfSight) {
    const std::string event = payload("0004", "alone");
    const fs::path config = claude / "norrow/config.json";
    server.reset();
    post(event);
    EXPECT_TRUE(fs::exists(state / "alone.json"));
    std::ofstream(config) << R"({"port":)";
    post(event);
    fs::remove(config);
    post(event);

    // A listener that never answers keeps curl running long enough to look at.
    asio::io_context io;
    asio::ip::tcp::acceptor listener(io, {asio::ip::address_v4::loopback(), 0});
    const std::string port = std::to_string(listener.local_endpoint().port());
    std::ofstream(config) << R"({"port":)" << port << R"(,"token":")" << token << "\"}";
    std::jthread hook([&] { post(event); });
    int seen = 0;
    for (int i = 0; i < 40 && seen == 0; ++i) {
        std::this_thread::sleep_for(20ms);
        for (const auto& process : fs::directory_iterator("/proc")) {
            const std::string command = contents(process.path() / "cmdline");
            const std::string variables = contents(process.path() / "environ");
            if (!command.starts_with("curl") ||
                variables.find(environment["HOME"]) == std::string::npos)
                continue;
            ++seen;
            EXPECT_EQ(command.find(token), std::string::npos);
            EXPECT_EQ(variables.find(token), std::string::npos);
        }
    }
    EXPECT_GT(seen, 0);
}

// A permission request waits at its own address and prints the app's answer, exactly, and
// nothing else: not an empty answer, not an older app's refusal, and no other event prints.
// Claude Code gives a hook sockets for its standard streams, which no path reopens.
TEST_F(BridgeScriptTest, PrintsOnlyTheAnswerTheAppGivesAPermissionRequest) {
    const std::string overSocket = "import socket, subprocess, sys\n"
                                   "ours, its = socket.socketpair()\n"
                                   "hook = subprocess.Popen(sys.argv[1:], stdout=its)\n"
                                   "its.close()\n"
                                   "sys.stdout.buffer.write(ours.makefile('rb').read())\n"
                                   "sys.exit(hook.wait())\n";
    server.reset();
    sink.emplace(claude / "norrow/config.json");
    const std::string allow = PermissionAnswer::hookOutput(PermissionAnswer::Choice::allow);
    const auto reply = [](int status, const std::string& body) {
        return RequestProtocol::Reply{status, body}.bytes();
    };
    const std::string request = payload("0066", "ask"), stop = payload("0004", "ask");
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {request, reply(200, allow), "/v1/permission", allow},
        {request, reply(200, ""), "/v1/permission", ""},
        {request, reply(404, "not found"), "/v1/permission", ""},
        {stop, reply(200, allow), "/v1/event", ""},
    };
    for (const auto& [body, answer, path, printed] : cases) {
        auto taken =
            std::async(std::launch::async, [&, answer = answer] { return sink->body(answer); });
        const auto result =
            test::run({"/usr/bin/python3", "-c", overSocket, (claude / "norrow/bridge").string()},
                      body, environment);
        taken.get();
        EXPECT_EQ(sink->path, path);
        EXPECT_EQ(result.out, printed) << answer;
        EXPECT_EQ(result.status, 0);
    }
}

} // namespace
} // namespace norrow
