#include "cli/Cli.h"
#include "core/BridgeState.h"
#include "core/SessionNames.h"
#include "core/UtcTime.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

namespace norrow::cli {
namespace {

// Dates beyond what four year digits can show are held at the ends of that range.
std::string lastActivityText(BridgeState::Date date) {
    constexpr double lastSecond = 253402300799.0; // 9999-12-31T23:59:59Z
    const double clamped =
        std::clamp(date.time_since_epoch().count(),
                   BridgeState::distantPast.time_since_epoch().count(), lastSecond);
    return iso8601(std::chrono::sys_seconds{
        std::chrono::seconds(static_cast<long long>(std::floor(clamped)))});
}

} // namespace

void addSessionCommands(CLI::App& app, int& status) {
    auto* sessions =
        app.add_subcommand("sessions", "List the live Claude Code sessions, latest activity first");
    const ClaudeFolderOption folder(sessions);
    sessions->callback([folder, &status] {
        const std::filesystem::path claude = folder.folder();
        const auto projects = SessionNames::projectsFolder(claude);
        SessionNames names;
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto& session :
             BridgeState::liveSessionDetails(BridgeState::stateFolder(claude))) {
            list.push_back({{"id", session.id},
                            {"name", names.displayName(session.id, projects)},
                            {"lastActivity", lastActivityText(session.lastActivity)}});
        }
        printJson(list);
        status = success;
    });
}

} // namespace norrow::cli
