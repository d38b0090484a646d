#include "core/HookEvent.h"

#include "core/KnownEditors.h"
#include "core/StrictJson.h"
#include "core/Unicode.h"

#include <algorithm>
#include <array>
#include <utility>

namespace norrow {
namespace {

using json = nlohmann::json;

constexpr std::array<std::pair<HookEvent::Name, std::string_view>, 13> kNames{{
    {HookEvent::Name::userPromptSubmit, "UserPromptSubmit"},
    {HookEvent::Name::stop, "Stop"},
    {HookEvent::Name::notification, "Notification"},
    {HookEvent::Name::sessionEnd, "SessionEnd"},
    {HookEvent::Name::subagentStop, "SubagentStop"},
    {HookEvent::Name::stopFailure, "StopFailure"},
    {HookEvent::Name::sessionStart, "SessionStart"},
    {HookEvent::Name::permissionRequest, "PermissionRequest"},
    {HookEvent::Name::postToolUse, "PostToolUse"},
    {HookEvent::Name::postToolUseFailure, "PostToolUseFailure"},
    {HookEvent::Name::permissionDenied, "PermissionDenied"},
    {HookEvent::Name::elicitation, "Elicitation"},
    {HookEvent::Name::elicitationResult, "ElicitationResult"},
}};

constexpr std::array<std::pair<HookEvent::NotificationType, std::string_view>, 6> kTypes{{
    {HookEvent::NotificationType::permissionPrompt, "permission_prompt"},
    {HookEvent::NotificationType::idlePrompt, "idle_prompt"},
    {HookEvent::NotificationType::agentNeedsInput, "agent_needs_input"},
    {HookEvent::NotificationType::agentCompleted, "agent_completed"},
    {HookEvent::NotificationType::authSuccess, "auth_success"},
    {HookEvent::NotificationType::elicitationDialog, "elicitation_dialog"},
}};

template <typename Enum, std::size_t N>
std::string_view rawOf(const std::array<std::pair<Enum, std::string_view>, N>& table, Enum value) {
    for (const auto& [e, raw] : table)
        if (e == value) return raw;
    return {};
}

template <typename Enum, std::size_t N>
std::optional<Enum> valueOf(const std::array<std::pair<Enum, std::string_view>, N>& table,
                            std::string_view raw) {
    for (const auto& [e, r] : table)
        if (r == raw) return e;
    return std::nullopt;
}

const json* member(const json& object, const char* key) {
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::optional<std::string> text(const json& object, const char* key) {
    const json* value = member(object, key);
    if (value == nullptr || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<json> structured(const json& object, const char* key, json::value_t type) {
    const json* value = member(object, key);
    if (value == nullptr || value->type() != type) return std::nullopt;
    return *value;
}

std::optional<bool> boolean(const json& object, const char* key) {
    const json* value = member(object, key);
    if (value == nullptr || !value->is_boolean()) return std::nullopt;
    return value->get<bool>();
}

// Inside "stats" a mistyped value fails the whole record, so the result distinguishes
// "absent" (missing or null) from "wrong type".
template <typename T> struct StatsField {
    std::optional<T> value;
    bool valid = true;
};

StatsField<std::int64_t> statsInteger(const json& object, const char* key) {
    const json* value = member(object, key);
    if (value == nullptr || value->is_null()) return {};
    if (value->is_number_integer() && !value->is_number_unsigned())
        return {value->get<std::int64_t>(), true};
    if (value->is_number_unsigned()) {
        const auto u = value->get<std::uint64_t>();
        if (u <= static_cast<std::uint64_t>(INT64_MAX)) return {static_cast<std::int64_t>(u), true};
    }
    return {std::nullopt, false};
}

StatsField<double> statsDouble(const json& object, const char* key) {
    const json* value = member(object, key);
    if (value == nullptr || value->is_null()) return {};
    if (value->is_number()) return {value->get<double>(), true};
    return {std::nullopt, false};
}

std::optional<HookEvent::Stats> decodeStats(const json& object) {
    const json* value = member(object, "stats");
    if (value == nullptr || !value->is_object()) return std::nullopt;
    const auto tools = statsInteger(*value, "toolCount");
    const auto files = statsInteger(*value, "filesTouched");
    const auto added = statsInteger(*value, "linesAdded");
    const auto removed = statsInteger(*value, "linesRemoved");
    const auto cost = statsDouble(*value, "costUSD");
    if (!(tools.valid && files.valid && added.valid && removed.valid && cost.valid))
        return std::nullopt;
    return HookEvent::Stats{tools.value, files.value, added.value, removed.value, cost.value};
}

} // namespace

std::string_view HookEvent::rawValue(Name name) {
    return rawOf(kNames, name);
}
std::string_view HookEvent::rawValue(NotificationType type) {
    return rawOf(kTypes, type);
}
std::optional<HookEvent::Name> HookEvent::nameFromRaw(std::string_view raw) {
    return valueOf(kNames, raw);
}
std::optional<HookEvent::NotificationType>
HookEvent::notificationTypeFromRaw(std::string_view raw) {
    return valueOf(kTypes, raw);
}

std::optional<HookEvent> HookEvent::fromJson(const json& object) {
    if (!object.is_object()) return std::nullopt;
    const auto rawName = text(object, "hook_event_name");
    if (!rawName) return std::nullopt;
    const auto hook = nameFromRaw(*rawName);
    if (!hook) return std::nullopt;

    HookEvent event(*hook);
    event.sessionId = text(object, "session_id");
    event.promptId = text(object, "prompt_id");
    event.cwd = text(object, "cwd");
    event.transcriptPath = text(object, "transcript_path");
    event.permissionMode = text(object, "permission_mode");
    event.lastAssistantMessage = text(object, "last_assistant_message");
    event.stopHookActive = boolean(object, "stop_hook_active");
    event.prompt = text(object, "prompt");
    if (const auto type = text(object, "notification_type"))
        event.notificationType = notificationTypeFromRaw(*type);
    event.message = text(object, "message");
    event.agent = text(object, "agent");
    event.termProgram = text(object, "term_program");
    event.bridgeVersion = text(object, "bridge_version");
    event.termBundleId = text(object, "term_bundle_id");
    event.termAppPath = text(object, "term_app_path");
    event.stats = decodeStats(object);
    event.toolName = text(object, "tool_name");
    event.toolInput = structured(object, "tool_input", json::value_t::object);
    event.agentId = text(object, "agent_id");
    event.sessionTitle = text(object, "session_title");
    event.backgroundTasks = structured(object, "background_tasks", json::value_t::array);
    return event;
}

std::optional<HookEvent> HookEvent::decode(std::string_view body) {
    const json parsed = StrictJson::parse(body);
    if (parsed.is_discarded()) return std::nullopt;
    return fromJson(parsed);
}

nlohmann::ordered_json HookEvent::encode() const {
    nlohmann::ordered_json out;
    out["hook_event_name"] = rawValue(hookEventName);
    const auto put = [&out](const char* key, const auto& field) {
        if (field) out[key] = *field;
    };
    put("session_id", sessionId);
    put("prompt_id", promptId);
    put("cwd", cwd);
    put("transcript_path", transcriptPath);
    put("permission_mode", permissionMode);
    put("last_assistant_message", lastAssistantMessage);
    put("stop_hook_active", stopHookActive);
    put("prompt", prompt);
    if (notificationType) out["notification_type"] = rawValue(*notificationType);
    put("message", message);
    put("agent", agent);
    put("bridge_version", bridgeVersion);
    put("term_program", termProgram);
    put("term_bundle_id", termBundleId);
    put("term_app_path", termAppPath);
    if (stats) {
        nlohmann::ordered_json s = nlohmann::ordered_json::object();
        const auto putStat = [&s](const char* key, const auto& field) {
            if (field) s[key] = *field;
        };
        putStat("toolCount", stats->toolCount);
        putStat("filesTouched", stats->filesTouched);
        putStat("linesAdded", stats->linesAdded);
        putStat("linesRemoved", stats->linesRemoved);
        putStat("costUSD", stats->costUSD);
        out["stats"] = std::move(s);
    }
    put("tool_name", toolName);
    put("tool_input", toolInput);
    put("agent_id", agentId);
    put("session_title", sessionTitle);
    put("background_tasks", backgroundTasks);
    return out;
}

std::optional<std::string> HookEvent::projectName() const {
    if (!cwd || cwd->empty()) return std::nullopt;
    std::string_view path = *cwd;
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    if (path == "/") return std::string("/");
    const auto slash = path.rfind('/');
    const std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (last.empty()) return std::nullopt;
    return std::string(last);
}

std::string HookEvent::agentLabel() const {
    if (agent && unicode::lowercased(*agent) == "codex") return "Codex";
    return "Claude Code";
}

bool HookEvent::isIntegratedTerminal() const {
    if (termProgram && unicode::lowercased(*termProgram) == "vscode") return true;
    return termBundleId && editors::hasIntegratedTerminal(*termBundleId);
}

bool HookEvent::leavesTasksRunning() const {
    if (!backgroundTasks) return false;
    return std::ranges::any_of(*backgroundTasks, [](const json& task) {
        const auto status = task.is_object() ? task.find("status") : task.end();
        return status != task.end() && (*status == "running" || *status == "pending");
    });
}

bool HookEvent::continuesBackgroundWork() const {
    return hookEventName == Name::userPromptSubmit && prompt &&
           prompt->starts_with("<task-notification>");
}

} // namespace norrow
