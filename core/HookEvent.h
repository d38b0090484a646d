#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace norrow {

// One hook notification from Claude Code, as the bridge forwards it.
// Only the hook name is required; every other field is optional.
struct HookEvent {
    // `stopFailure` ends a turn that an API error cut short, in place of `stop`. The client
    // asks the user through `permissionRequest` (a tool, a question, a plan) and
    // `elicitation` (an MCP server); the events after them tell that the user answered.
    enum class Name {
        userPromptSubmit,
        stop,
        notification,
        sessionEnd,
        subagentStop,
        stopFailure,
        sessionStart,
        permissionRequest,
        postToolUse,
        postToolUseFailure,
        permissionDenied,
        elicitation,
        elicitationResult,
    };
    enum class NotificationType {
        permissionPrompt,
        idlePrompt,
        agentNeedsInput,
        agentCompleted,
        authSuccess,
        elicitationDialog,
    };

    struct Stats {
        std::optional<std::int64_t> toolCount;
        std::optional<std::int64_t> filesTouched;
        std::optional<std::int64_t> linesAdded;
        std::optional<std::int64_t> linesRemoved;
        std::optional<double> costUSD;

        bool operator==(const Stats&) const = default;
    };

    Name hookEventName;
    std::optional<std::string> sessionId;
    std::optional<std::string> promptId;
    std::optional<std::string> cwd;
    std::optional<std::string> transcriptPath;
    std::optional<std::string> permissionMode;
    std::optional<std::string> lastAssistantMessage;
    std::optional<bool> stopHookActive;
    std::optional<std::string> prompt;
    std::optional<NotificationType> notificationType;
    std::optional<std::string> message;
    std::optional<std::string> agent;
    std::optional<std::string> termProgram;
    std::optional<std::string> bridgeVersion;
    std::optional<std::string> termBundleId;
    std::optional<std::string> termAppPath;
    std::optional<Stats> stats;
    // The tool a permission request or a tool's outcome is about, and its input.
    std::optional<std::string> toolName;
    std::optional<nlohmann::json> toolInput;
    // The sub-agent an event comes from, when not from the session's own agent.
    std::optional<std::string> agentId;
    // The session's name, once the user has given it one.
    std::optional<std::string> sessionTitle;
    // What the turn left running when it stopped; a turn is over only once they end.
    std::optional<nlohmann::json> backgroundTasks;

    explicit HookEvent(Name name) : hookEventName(name) {}
    bool operator==(const HookEvent&) const = default;

    // Lenient decoding: only a missing, mistyped or unknown hook name (or a body that is
    // not a JSON object) makes it fail; any other faulty field becomes absent.
    static std::optional<HookEvent> fromJson(const nlohmann::json& object);
    // Decodes a request body with a standard (strict) JSON parser.
    static std::optional<HookEvent> decode(std::string_view body);

    // Present fields only, in the record's key order.
    nlohmann::ordered_json encode() const;

    // The last component of `cwd`, when there is one.
    std::optional<std::string> projectName() const;
    // "Codex" or "Claude Code".
    std::string agentLabel() const;
    // Whether the session runs in an editor's built-in terminal.
    bool isIntegratedTerminal() const;
    // Whether the turn stopped with background tasks still running.
    bool leavesTasksRunning() const;
    // Whether this prompt is the client's own, telling the agent that background work it
    // left running has ended: the turn that left it goes on.
    bool continuesBackgroundWork() const;

    static std::string_view rawValue(Name name);
    static std::string_view rawValue(NotificationType type);
    static std::optional<Name> nameFromRaw(std::string_view raw);
    static std::optional<NotificationType> notificationTypeFromRaw(std::string_view raw);
};

} // namespace norrow
