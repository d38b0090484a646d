#include "app/shared/ClaudeFolder.h"

#include "core/Files.h"
#include "core/HookInstaller.h"

#include <QDir>
#include <nlohmann/json.hpp>
#include <system_error>

namespace norrow::ClaudeFolder {

std::filesystem::path url(const Settings& settings) {
    const std::filesystem::path home = QDir::homePath().toStdString();
    const auto folder = settings.string(SettingKey::claudeFolderOverride);
    if (!folder || folder->isEmpty()) return home / ".claude";
    const std::string path = folder->toStdString();
    if (path == "~") return home;
    if (path.starts_with("~/")) return home / path.substr(2);
    return path;
}

bool isUsable(const std::filesystem::path& folder) {
    const auto text = files::read(settingsFile(folder));
    if (!text) return false;
    if (nlohmann::json::accept(*text)) return true;
    // A trailing comma is the one flaw the installer explains in its own words, so such a
    // file counts as readable here and is refused there.
    try {
        HookInstaller::rejectTrailingCommas(*text);
        return false;
    } catch (const HookInstaller::InstallError&) {
        return true;
    }
}

std::optional<std::string> problem(const std::filesystem::path& folder) {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
        return "No Claude Code folder at " + folder.string() +
               ". Open Claude Code once, then try again.";
    const auto settings = settingsFile(folder);
    if (!std::filesystem::exists(settings, error))
        return "No settings.json in " + folder.string() +
               ". Open Claude Code once so it creates one.";
    if (!isUsable(folder))
        return settings.string() + " is empty or not valid JSON, so Claude Code is not reading it.";
    return std::nullopt;
}

std::filesystem::path settingsFile(const std::filesystem::path& folder) {
    return folder / "settings.json";
}

} // namespace norrow::ClaudeFolder
