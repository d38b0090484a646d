#pragma once

#include "support/AgentSession.h"
#include "support/Process.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace norrow::test {

// Norrow's listener without a window, `norrowctl serve`, beside a real Claude Code: in the
// session's home and settings folder, with its hooks put into the session's Claude Code
// folder by `norrowctl hooks install`, as a user sets it up. Made before the session starts,
// since the client reads its hooks as it starts. Throws when serve or the install fails.
class NorrowServer {
public:
    // `settings` are lines of Norrow's settings file, such as "rule.minimumDuration=4".
    NorrowServer(const AgentSession& session, const std::vector<std::string>& settings);

    // The next line serve prints; nothing when none comes within `timeout`.
    std::optional<std::string>
    nextLine(std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // `norrowctl` with `arguments` followed by the session's Claude Code folder.
    Finished norrowctl(std::vector<std::string> arguments) const;
    // What serve wrote to its standard error.
    std::string errors() const { return serve_->errors(); }

private:
    std::filesystem::path claudeFolder_;
    Environment environment_;
    std::unique_ptr<Process> serve_;
};

} // namespace norrow::test
