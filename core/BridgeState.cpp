#include "core/BridgeState.h"

#include <algorithm>
#include <sys/stat.h>
#include <system_error>

namespace norrow::BridgeState {
namespace {

constexpr std::string_view sessionSuffix = ".json";
// The bridge writes a state file under this name first, then renames it.
constexpr std::string_view partialSuffix = ".tmp.json";

Date modificationDate(const std::filesystem::path& file) {
    struct stat info {};
    // The file's own date, not a link target's.
    if (::lstat(file.c_str(), &info) != 0) return distantPast;
    return Date(Seconds(static_cast<double>(info.st_mtim.tv_sec) +
                        static_cast<double>(info.st_mtim.tv_nsec) * 1e-9));
}

} // namespace

std::vector<LiveSession> liveSessionDetails(const std::filesystem::path& folder) {
    std::vector<LiveSession> sessions;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (!name.ends_with(sessionSuffix) || name.ends_with(partialSuffix)) continue;
        sessions.push_back(
            {name.substr(0, name.size() - sessionSuffix.size()), modificationDate(it->path())});
    }
    if (error) return {};
    std::stable_sort(
        sessions.begin(), sessions.end(),
        [](const LiveSession& a, const LiveSession& b) { return a.lastActivity > b.lastActivity; });
    return sessions;
}

std::vector<std::string> liveSessions(const std::filesystem::path& folder) {
    std::vector<std::string> ids;
    for (auto& session : liveSessionDetails(folder))
        ids.push_back(std::move(session.id));
    return ids;
}

std::size_t count(const std::filesystem::path& folder) {
    return liveSessionDetails(folder).size();
}

std::string describe(std::size_t count) {
    if (count == 0) return "No Claude Code sessions";
    if (count == 1) return "1 Claude Code session";
    return std::to_string(count) + " Claude Code sessions";
}

std::filesystem::path stateFolder(const std::filesystem::path& claudeFolder) {
    return claudeFolder / "norrow" / "state";
}

} // namespace norrow::BridgeState
