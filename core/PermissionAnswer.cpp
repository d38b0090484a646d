#include "core/PermissionAnswer.h"

#include <nlohmann/json.hpp>

namespace norrow::PermissionAnswer {

bool offered(const HookEvent& event) {
    return event.hookEventName == HookEvent::Name::permissionRequest && event.toolName &&
           !event.toolName->empty() && *event.toolName != "AskUserQuestion" &&
           *event.toolName != "ExitPlanMode";
}

std::string hookOutput(Choice choice) {
    nlohmann::ordered_json decision{{"behavior", choice == Choice::allow ? "allow" : "deny"}};
    if (choice == Choice::deny) decision["message"] = denialMessage;
    return nlohmann::ordered_json{
        {"hookSpecificOutput", {{"hookEventName", "PermissionRequest"}, {"decision", decision}}}}
        .dump();
}

} // namespace norrow::PermissionAnswer
