#pragma once

#include <chrono>
#include <string>

namespace norrow {

// A moment as ISO 8601 UTC text in whole seconds, as in 2026-11-21T12:46:25Z.
std::string iso8601(std::chrono::sys_seconds instant);

} // namespace norrow
