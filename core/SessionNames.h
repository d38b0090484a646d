#pragma once

#include "core/HookEvent.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace norrow {

// Readable project names for session identifiers, learned from events or from the first
// lines of a session's transcript. Each user (the app's controller, a norrowctl command)
// owns one instance instead of sharing a process-wide cache; not thread-safe.
class SessionNames {
public:
    // How much of a transcript a lookup may examine.
    static constexpr std::size_t readLimit = 64000;
    static constexpr std::size_t lineLimit = 40;
    // How many characters of the identifier stand in for a session without a name.
    static constexpr std::size_t fallbackLength = 8;

    // Records the event's project name for its session, and the title the user gave it.
    void remember(const HookEvent& event);
    // The session's project name: learned earlier, or from its transcript under
    // `projectsFolder`. A name found in a transcript is kept for the object's lifetime.
    std::optional<std::string> projectName(const std::string& id,
                                           const std::filesystem::path& projectsFolder);
    // What a list of sessions shows: the session's title, else its project name, else the
    // identifier's first characters.
    std::string displayName(const std::string& id, const std::filesystem::path& projectsFolder);

    // The working folder recorded in the session's transcript, the first transcript named
    // after the session in any subfolder of `projectsFolder`.
    static std::optional<std::string> findCWD(const std::string& id,
                                              const std::filesystem::path& projectsFolder);
    // The first non-empty "cwd" text among the first lines of a transcript.
    static std::optional<std::string> firstCWD(const std::filesystem::path& transcript);

    // "projects" inside a Claude Code folder.
    static std::filesystem::path projectsFolder(const std::filesystem::path& claudeFolder);

private:
    std::unordered_map<std::string, std::string> cache_;
    std::unordered_map<std::string, std::string> titles_;
};

} // namespace norrow
