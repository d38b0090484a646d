#pragma once

#include "core/Seconds.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

// The live Claude Code sessions, as the bridge's per-session state files show them. Only
// reads the state folder; never writes there.
namespace norrow::BridgeState {

// A wall-clock instant in seconds as a double, so that the distant past and "now minus
// it" both stay representable.
using Date = std::chrono::time_point<std::chrono::system_clock, Seconds>;

// 0001-01-01T00:00:00Z: the activity of a session whose file's date cannot be read.
inline constexpr Date distantPast{Seconds(-62135596800.0)};

struct LiveSession {
    std::string id;
    // The modification time of the session's state file.
    Date lastActivity;

    bool operator==(const LiveSession&) const = default;
};

// The live sessions, latest activity first (equal times keep listing order). An
// unreadable folder has none.
std::vector<LiveSession> liveSessionDetails(const std::filesystem::path& folder);
std::vector<std::string> liveSessions(const std::filesystem::path& folder);
std::size_t count(const std::filesystem::path& folder);

// The menu's heading text for a number of sessions.
std::string describe(std::size_t count);

// "norrow/state" inside a Claude Code folder.
std::filesystem::path stateFolder(const std::filesystem::path& claudeFolder);

} // namespace norrow::BridgeState
