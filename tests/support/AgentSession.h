#pragma once

#include "support/MessagesApi.h"
#include "support/Process.h"
#include "support/TempDir.h"
#include "support/Terminal.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace norrow::test {

// One hook call as the logging hook saw it: when it started, and what it was given.
struct HookCall {
    std::int64_t milliseconds = 0; // since the epoch
    nlohmann::json payload;
    std::string event() const { return payload.value("hook_event_name", ""); }
};

// One run of a command hook, as the client's debug log tells it once the hook has finished.
struct HookRun {
    std::string event; // without the query it matched, such as the tool's name
    std::string command;
    std::optional<int> milliseconds; // how long it took, for a hook the client waits for
};

// A real Claude Code in a terminal, with a home folder of its own in which it is set up and
// trusts its project folder, talking to a stand-in API on 127.0.0.1 and nowhere else (any
// other address goes to the stand-in as a proxy, which logs and refuses it).
//
// The constructor prepares the home, the settings and the stand-in; start() runs the client.
// In between, a test may add to the settings in claudeFolder(), such as hooks of its own.
class AgentSession {
public:
    struct Options {
        // The stand-in's replies; see messages_api.py.
        nlohmann::json script = nlohmann::json::object();
        // After the program; the permission mode makes dialogs appear (the default mode
        // decides by itself).
        std::vector<std::string> arguments = {"--permission-mode", "default"};
        // For the client, on top of the isolating ones.
        Environment environment{};
        // Registers a hook on every event that logs the call, for hookCalls().
        bool logHooks = true;
    };

    AgentSession(const std::filesystem::path& program, Options options);
    AgentSession(const AgentSession&) = delete;
    AgentSession& operator=(const AgentSession&) = delete;

    // Starts the client; false when its input box is not shown within `timeout`.
    bool start(std::chrono::milliseconds timeout = std::chrono::seconds(60));
    // Types a prompt and sends it once the client shows it.
    void submit(const std::string& prompt);

    Terminal& terminal() { return *terminal_; }
    MessagesApi& api() { return api_; }
    bool waitForScreen(const std::string& text,
                       std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;

    // Hook calls logged so far, in the order they started.
    std::vector<HookCall> hookCalls() const;
    // Waits until a call of `event` is logged; false when `timeout` passes first.
    bool waitForHook(const std::string& event,
                     std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;

    // Hook runs finished so far, in the order they finished.
    std::vector<HookRun> hookRuns() const;

    const std::filesystem::path& home() const { return home_; }
    std::filesystem::path claudeFolder() const { return home_ / ".claude"; }
    const std::filesystem::path& project() const { return project_; }
    // The client's whole environment, for a program that is to share its home.
    const Environment& environment() const { return environment_; }
    // Screen, the client's errors and the API requests, for a failed assertion's message.
    std::string diagnostics() const;

private:
    TempDir folder_;
    std::filesystem::path home_;
    std::filesystem::path project_;
    std::filesystem::path hookLog_;
    std::filesystem::path debugLog_;
    MessagesApi api_;
    std::filesystem::path program_;
    Options options_;
    Environment environment_;
    std::unique_ptr<Terminal> terminal_;
};

} // namespace norrow::test
