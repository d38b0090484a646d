#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace norrow::cli {

// Exit statuses of every subcommand.
enum Status : int { success = 0, refused = 1, usage = 2 };

// The whole command table with its help texts: what norrowctl parses, and what its manual page
// and shell completions are written from. The callbacks store the exit status in `status`.
std::unique_ptr<CLI::App> commandTable(int& status);

// Each group of subcommands adds itself to the application; its callbacks store the exit
// status in `status`.
void addServeCommand(CLI::App& app, int& status);
void addHooksCommands(CLI::App& app, int& status);
void addSessionCommands(CLI::App& app, int& status);
void addSummaryCommands(CLI::App& app, int& status);
void addVersionCommands(CLI::App& app, int& status);
void addAutostartCommands(CLI::App& app, int& status);

// The named file's bytes, or standard input's when `file` is empty. Throws
// std::runtime_error with a message for the user when the file cannot be read.
std::string readInput(const std::string& file = {});
// Prints one compact JSON value and a line feed, flushed.
void printJson(const nlohmann::ordered_json& value);
void printJson(const nlohmann::json& value);
// An absent text is JSON null.
nlohmann::ordered_json orNull(const std::optional<std::string>& text);
// The --claude-folder option of a subcommand: the folder named there, else the app's own
// rule (the "claudeFolderOverride" setting, else ~/.claude).
class ClaudeFolderOption {
public:
    explicit ClaudeFolderOption(CLI::App* command);
    std::filesystem::path folder() const;

private:
    std::shared_ptr<std::optional<std::string>> value_;
};

// Writes the description to standard error; gives `refused`.
int refuse(const std::string& description);
// Runs `action`, turning any refusal into its description on stderr and status 1.
int refusing(const std::function<int()>& action);

} // namespace norrow::cli
