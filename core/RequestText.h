#pragma once

#include "core/HookEvent.h"

#include <optional>
#include <string>

// What the agent asks of the user, in its own words on one plain line of at most
// Summarizer::maxLength characters: a question with its choices, a plan to review, a tool to
// allow and what it will do, an MCP server's question.
namespace norrow::RequestText {

// Absent for an event that asks nothing (anything but a permission request or an
// elicitation).
std::optional<std::string> describe(const HookEvent& event);
// The same line, uncut: the whole of what will run.
std::optional<std::string> whole(const HookEvent& event);

} // namespace norrow::RequestText
