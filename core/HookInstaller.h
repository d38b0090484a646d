#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

// Computes the text change that registers the bridge script as a Claude Code hook in
// "settings.json", or removes it again, and checks a written result. Text in, text out: it
// rewrites only the event arrays inside the top-level "hooks" member that it changes, keeps
// other tools' hooks byte for byte, and refuses any file Claude Code itself would not read.
namespace norrow::HookInstaller {

// An event the bridge runs on, and what Claude Code matches there ("" for everything): a
// tool's name, a notification's type, an MCP server's name.
struct EventHook {
    std::string_view event;
    std::string_view matcher;
    // How long Claude Code lets the bridge run there.
    std::chrono::seconds timeout{5};
};

// After a tool has run, all Norrow learns is that a question the tool asked was answered, so
// it hears only from tools that can ask. Anchored, since a matcher with any pattern character
// is searched for in the name: "Write" alone would match every "TodoWrite".
inline constexpr std::string_view askingTools =
    "^(Bash|Edit|Write|MultiEdit|NotebookEdit|WebFetch|WebSearch|AskUserQuestion|ExitPlanMode)$|"
    "^mcp__";
// The notifications that ask for the user; a plain list is matched name by name.
inline constexpr std::string_view askingNotifications =
    "permission_prompt|idle_prompt|agent_needs_input|elicitation_dialog";

// Where the bridge is registered, in the order new events are written.
inline constexpr std::array<EventHook, 11> eventHooks{{
    {"SessionStart", ""},
    {"UserPromptSubmit", ""},
    // The bridge waits for the user's answer from the app, long enough for a person to come
    // back to it; the client's dialog stands meanwhile.
    {"PermissionRequest", "", std::chrono::seconds(600)},
    {"PostToolUse", askingTools},
    {"PostToolUseFailure", askingTools},
    {"Elicitation", ""},
    {"ElicitationResult", ""},
    {"Notification", askingNotifications},
    {"Stop", ""},
    {"StopFailure", ""},
    {"SessionEnd", ""},
}};
// A hook whose command is a path ending in this is ours.
inline constexpr std::string_view marker = "/norrow/bridge";

// Whether settings.json holds Norrow's hooks: none of them, exactly the wanted ones, or some
// that an earlier Norrow wrote (other events, matchers or bridge path).
enum class Status { notInstalled, current, outOfDate };

struct Plan {
    // The whole new text, absent when nothing is to be written.
    std::optional<std::string> updatedDocument;
    bool alreadyCorrect = false;
    // Entries of other tools under our events, kept as they were.
    int foreignHookCount = 0;

    bool operator==(const Plan&) const = default;
};

class InstallError : public std::runtime_error {
public:
    enum class Case { unreadable, notJSON, verificationFailed, duplicateHooks, duplicateEvent };

    static InstallError unreadable(const std::string& detail);
    static InstallError notJSON(const std::string& detail);
    static InstallError verificationFailed(const std::string& detail);
    static InstallError duplicateHooks();
    static InstallError duplicateEvent(const std::string& event);

    Case kind() const { return kind_; }

private:
    InstallError(Case kind, const std::string& description);
    Case kind_;
};

// All three throw InstallError, or JSONSplice::SpliceError from the splice.
Plan planInstall(std::string_view document, std::string_view bridgePath);
Plan planRemoval(std::string_view document);
Status status(std::string_view document, std::string_view bridgePath);

// Throws InstallError unless `after` is a valid edit of `before`: both readable objects
// whose top-level members other than "hooks" are semantically unchanged.
void verify(std::string_view before, std::string_view after);

// Throws notJSON when a comma is followed, outside strings, only by whitespace and a
// closing bracket: JSON that lenient parsers read but Claude Code's does not.
void rejectTrailingCommas(std::string_view document);

// The hand-formatted layout written into settings.json: one member or element per line,
// `indent` repeated per level, object keys in `keyOrder`.
std::string render(const nlohmann::json& value, std::string_view indent, std::size_t depth);
std::string escape(std::string_view text);
// "matcher", "hooks", "type", "command", "args", "timeout", "env" first, in that order,
// then every other key in ascending order.
bool keyOrder(std::string_view a, std::string_view b);
// Compact, keys sorted: equal for values that differ only in spacing, key order and the form
// of their numbers.
std::string canonical(const nlohmann::json& value);

} // namespace norrow::HookInstaller
