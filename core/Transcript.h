#pragma once

#include "core/HookEvent.h"

#include <cstddef>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

// What a Claude Code transcript (one JSON record a line) says that the hook events leave
// out. Only reads.
namespace norrow::Transcript {

// How much of a transcript's end a lookup examines.
inline constexpr std::size_t tailLimit = 1 << 20;

// The input the agent gave its last call of `tool`, among the transcript's final lines.
std::optional<nlohmann::json> lastToolInput(const std::filesystem::path& transcript,
                                            std::string_view tool);

// A plan's approval request comes without the plan; the agent's call in the transcript has
// it. Fills the request's input from there when it lacks one.
void completePlanRequest(HookEvent& event);

} // namespace norrow::Transcript
