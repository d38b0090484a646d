#pragma once

#include "app/shared/Settings.h"

#include <filesystem>
#include <optional>
#include <string>

// Claude Code's own folder, where settings.json lives and the app keeps its "norrow" files.
namespace norrow::ClaudeFolder {

// The "claudeFolderOverride" setting when set (a leading "~/" meaning the home folder),
// otherwise ".claude" in the home folder.
std::filesystem::path url(const Settings& settings);

// Whether the folder's settings.json can be read and Claude Code would read it as JSON.
bool isUsable(const std::filesystem::path& folder);

// Why the folder cannot be set up, for the user; none when it can.
std::optional<std::string> problem(const std::filesystem::path& folder);

std::filesystem::path settingsFile(const std::filesystem::path& folder);

} // namespace norrow::ClaudeFolder
