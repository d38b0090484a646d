#include "app/shared/Autostart.h"
#include "cli/Cli.h"

#include <iostream>
#include <memory>

namespace norrow::cli {
namespace {

using State = Autostart::State;

std::string_view stateName(State state) {
    switch (state) {
    case State::off:
        return "off";
    case State::on:
        return "on";
    case State::editedByHand:
        return "editedByHand";
    case State::awaitingApproval:
        return "awaitingApproval";
    }
    return "off";
}

int say(const std::string& line) {
    std::cout << line << '\n' << std::flush;
    return success;
}

} // namespace

void addAutostartCommands(CLI::App& app, int& status) {
    auto* autostart =
        app.add_subcommand("autostart", "Start Norrow when you log in, or stop doing so");
    autostart->require_subcommand(1);

    auto* on = autostart->add_subcommand(
        "on", "Start Norrow at login (an XDG autostart entry; on macOS, a login item)");
    auto program = std::make_shared<std::string>();
    on->add_option("--program", *program,
                   "The program to start, by absolute path (default: the norrow beside norrowctl)")
        ->type_name("PATH");
    on->callback([program, &status] {
        status = refusing([&] {
            Autostart login;
            const auto change = login.enable(program->empty() ? Autostart::defaultProgram()
                                                              : std::filesystem::path(*program));
            const auto now = login.status();
            const std::string where = " (" + now.location.string() + ")";
            if (now.state == State::awaitingApproval)
                return say("Norrow is waiting for your approval: allow it in System Settings, "
                           "General, Login Items.");
            return say(change == Autostart::Change::made
                           ? "Norrow will start when you log in" + where + "."
                           : "Norrow already starts when you log in" + where + ".");
        });
    });

    autostart->add_subcommand("off", "Stop starting Norrow at login")->callback([&status] {
        status = refusing([] {
            return say(Autostart().disable() == Autostart::Change::made
                           ? "Norrow will no longer start when you log in."
                           : "Norrow does not start when you log in; nothing to change.");
        });
    });

    autostart->add_subcommand("status", "Whether Norrow starts at login: state, entry and program")
        ->callback([&status] {
            status = refusing([] {
                const auto now = Autostart().status();
                printJson(nlohmann::ordered_json{
                    {"state", stateName(now.state)},
                    {"entry", now.location.string()},
                    {"program",
                     orNull(now.program ? std::optional(now.program->string()) : std::nullopt)}});
                return success;
            });
        });
}

} // namespace norrow::cli
