#include "cli/Cli.h"

#include "app/shared/ClaudeFolder.h"
#include "app/shared/Settings.h"
#include "core/Files.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace norrow::cli {

std::string readInput(const std::string& file) {
    if (file.empty() || file == "-") {
        // In blocks: character by character, a megabyte of input took longer than its summary.
        std::string text;
        std::array<char, 65'536> block;
        do {
            std::cin.read(block.data(), block.size());
            text.append(block.data(), static_cast<std::size_t>(std::cin.gcount()));
        } while (std::cin);
        return text;
    }
    auto text = files::read(file);
    if (!text) throw std::runtime_error("cannot read " + file + ": " + std::strerror(errno));
    return std::move(*text);
}

void printJson(const nlohmann::ordered_json& value) {
    std::cout << value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n'
              << std::flush;
}

void printJson(const nlohmann::json& value) {
    std::cout << value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n'
              << std::flush;
}

ClaudeFolderOption::ClaudeFolderOption(CLI::App* command)
    : value_(std::make_shared<std::optional<std::string>>()) {
    command
        ->add_option_function<std::string>(
            "--claude-folder", [value = value_](const std::string& folder) { *value = folder; },
            "Claude Code folder (default: the app's, ~/.claude unless overridden)")
        ->type_name("DIR");
}

std::filesystem::path ClaudeFolderOption::folder() const {
    if (*value_) return **value_;
    return ClaudeFolder::url(Settings());
}

nlohmann::ordered_json orNull(const std::optional<std::string>& text) {
    return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json(nullptr);
}

int refuse(const std::string& description) {
    std::cerr << description << '\n' << std::flush;
    return refused;
}

int refusing(const std::function<int()>& action) {
    try {
        return action();
    } catch (const std::exception& e) {
        return refuse(e.what());
    }
}

std::unique_ptr<CLI::App> commandTable(int& status) {
    auto app = std::make_unique<CLI::App>(
        "Norrow's command-line tool: the listener without a window, summaries, Claude Code's "
        "hooks, and starting Norrow at login",
        "norrowctl");
    app->require_subcommand(1);
    app->footer("Exit status: 0 success; 1 the input was refused, with the reason on standard "
                "error; 2 usage error. Every command has --help.");
    addServeCommand(*app, status);
    addHooksCommands(*app, status);
    addSessionCommands(*app, status);
    addSummaryCommands(*app, status);
    addVersionCommands(*app, status);
    addAutostartCommands(*app, status);
    return app;
}

} // namespace norrow::cli
