#pragma once

#include "core/HookEvent.h"

#include <string>
#include <string_view>

// Answering a tool's permission request from Norrow instead of the terminal: which requests
// may be answered so, and the hook output that tells the client the answer.
namespace norrow::PermissionAnswer {

enum class Choice { allow, deny };

// What the client shows the model when a tool is denied from Norrow.
inline constexpr std::string_view denialMessage = "The user denied this from Norrow.";

// A tool's permission request; a question or a plan approval is answered where its choices
// are, in the terminal.
bool offered(const HookEvent& event);

// The hook's standard output for the answer, exactly as the client reads it.
std::string hookOutput(Choice choice);

} // namespace norrow::PermissionAnswer
