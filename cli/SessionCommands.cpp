#include "cli/Cli.h"
#include "core/BridgeState.h"
#include "core/SessionNames.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

namespace norrow::cli {
namespace {

// UTC in whole seconds, e.g. 2026-11-21T12:46:25Z; dates beyond what four year digits can
// show are held at the ends of that range.
std::string iso8601(BridgeState::Date date) {
    using namespace std::chrono;
    constexpr double lastSecond = 253402300799.0; // 9999-12-31T23:59:59Z
    const double clamped =
        std::clamp(date.time_since_epoch().count(),
                   BridgeState::distantPast.time_since_epoch().count(), lastSecond);
    const sys_seconds instant{seconds(static_cast<long long>(std::floor(clamped)))};
    const auto day = floor<days>(instant);
    const year_month_day calendar(day);
    const hh_mm_ss time(instant - day);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ",
                  static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
                  static_cast<unsigned>(calendar.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
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
                            {"lastActivity", iso8601(session.lastActivity)}});
        }
        printJson(list);
        status = success;
    });
}

} // namespace norrow::cli
