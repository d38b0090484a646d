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
    // `stopFailure` ends a turn that an API error cut short, in place of `stop`.
    enum class Name { userPromptSubmit, stop, notification, sessionEnd, subagentStop, stopFailure };
    enum class NotificationType {
        permissionPrompt,
        idlePrompt,
        agentNeedsInput,
        agentCompleted,
        authSuccess
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

    static std::string_view rawValue(Name name);
    static std::string_view rawValue(NotificationType type);
    static std::optional<Name> nameFromRaw(std::string_view raw);
    static std::optional<NotificationType> notificationTypeFromRaw(std::string_view raw);
};

} // namespace norrow
