#include "app/shared/ClaudeFolder.h"
#include "app/shared/Credentials.h"
#include "app/shared/SecretStore.h"
#include "app/shared/Settings.h"
#include "app/shared/SetupAlert.h"
#include "app/shared/SetupCoordinator.h"
#include "cli/Cli.h"
#include "core/BridgeConfig.h"
#include "core/HookInstaller.h"
#include "core/JSONSplice.h"

#include <functional>
#include <iostream>
#include <memory>
#include <optional>

namespace norrow::cli {
namespace {

using ordered_json = nlohmann::ordered_json;

ordered_json range(JSONSplice::Range r) {
    return ordered_json::array({r.start, r.end});
}

void addJsonCommands(CLI::App& app, int& status) {
    auto* json = app.add_subcommand("json", "Format-preserving edits of one top-level member");
    json->require_subcommand(1);
    auto key = std::make_shared<std::string>();
    auto value = std::make_shared<std::string>();
    auto indent = std::make_shared<std::string>("  ");

    auto* find = json->add_subcommand("find", "Where the member KEY is, in characters");
    find->add_option("KEY", *key)->required();
    find->callback([key, &status] {
        status = refusing([&] {
            const auto member = JSONSplice::find({*key}, readInput());
            if (!member) {
                printJson(ordered_json(nullptr));
                return success;
            }
            printJson(ordered_json{{"valueRange", range(member->valueRange)},
                                   {"memberRange", range(member->memberRangeWithSeparator)}});
            return success;
        });
    });

    auto* set = json->add_subcommand("set", "Replace or insert the member KEY");
    set->add_option("KEY", *key)->required();
    set->add_option("VALUE", *value, "The value as JSON text, inserted verbatim")->required();
    set->add_option("--indent", *indent, "Indentation when the document shows none")
        ->type_name("STR");
    set->callback([key, value, indent, &status] {
        status = refusing([&] {
            std::cout << JSONSplice::set({*key}, *value, readInput(), *indent) << std::flush;
            return success;
        });
    });

    auto* remove = json->add_subcommand("remove", "Remove the member KEY and one separator");
    remove->add_option("KEY", *key)->required();
    remove->callback([key, &status] {
        status = refusing([&] {
            std::cout << JSONSplice::remove({*key}, readInput()) << std::flush;
            return success;
        });
    });
}

void printPlan(const HookInstaller::Plan& plan) {
    printJson(ordered_json{{"updatedDocument", orNull(plan.updatedDocument)},
                           {"alreadyCorrect", plan.alreadyCorrect},
                           {"foreignHookCount", plan.foreignHookCount}});
}

// The port and token to install with: those the running listener published, else the
// remembered port and the stored token. None when there is no port to point at.
std::optional<BridgeConfig> connection(const std::filesystem::path& folder, Settings& settings) {
    if (auto published = BridgeConfig::read(BridgeConfig::location(folder));
        published && published->port != 0)
        return published;
    KeychainStore keychain;
    Credentials credentials(keychain, settings);
    const auto port = credentials.preferredPort();
    if (!port) return std::nullopt;
    return BridgeConfig{*port, credentials.token()};
}

const char* stateName(HookInstaller::Status status) {
    switch (status) {
    case HookInstaller::Status::notInstalled:
        return "notInstalled";
    case HookInstaller::Status::current:
        return "current";
    case HookInstaller::Status::outOfDate:
        break;
    }
    return "outOfDate";
}

// Prints an alert's texts as the app shows them: to stdout when all went well, else to
// stderr with status 1.
int show(const SetupAlert& alert, bool succeeded) {
    (succeeded ? std::cout : std::cerr) << alert.message << '\n'
                                        << alert.informativeText << '\n'
                                        << std::flush;
    return succeeded ? success : refused;
}

int showOutcome(const std::optional<SetupAlert>& alert, const SetupCoordinator::Outcome& outcome) {
    return show(alert.value_or(SetupAlert{}),
                outcome.kind != SetupCoordinator::Outcome::Kind::failed);
}

void addSetupCommands(CLI::App& hooks, int& status) {
    // Each action gets the settings, the Claude Code folder and a coordinator working there.
    const auto command = [&hooks,
                          &status](const std::string& name, const std::string& help,
                                   std::function<int(Settings&, SetupCoordinator&)> action) {
        auto* sub = hooks.add_subcommand(name, help);
        const ClaudeFolderOption folder(sub);
        sub->callback([folder, action, &status] {
            Settings settings;
            SetupCoordinator coordinator(settings, folder.folder());
            status = refusing([&] { return action(settings, coordinator); });
        });
    };

    command("install", "Install the bridge and its hooks into settings.json",
            [](Settings& settings, SetupCoordinator& coordinator) {
                const auto bridge = connection(coordinator.claudeFolder(), settings);
                if (!bridge) return show(SetupAlert::notListening(), false);
                const auto outcome = coordinator.install(bridge->port, bridge->token);
                return showOutcome(SetupAlert::afterInstall(outcome), outcome);
            });
    command("remove", "Remove the hooks, the bridge and its files",
            [](Settings&, SetupCoordinator& coordinator) {
                const auto outcome = coordinator.uninstall();
                return showOutcome(SetupAlert::afterRemoval(outcome), outcome);
            });
    command("status", "Whether the hooks are installed and current",
            [](Settings&, SetupCoordinator& coordinator) {
                const auto folder = coordinator.claudeFolder();
                const auto problem = ClaudeFolder::problem(folder);
                const auto state = coordinator.status();
                printJson(ordered_json{{"claudeFolder", folder.string()},
                                       {"installed", state != HookInstaller::Status::notInstalled},
                                       {"state", stateName(state)},
                                       {"problem", orNull(problem)}});
                if (state == HookInstaller::Status::outOfDate)
                    std::cerr << "Norrow's hooks in " << coordinator.settingsPath().string()
                              << " are out of date; run 'norrowctl hooks install' to update them."
                              << std::endl;
                return success;
            });
    command("instructions", "Print the set-up steps for doing by hand",
            [](Settings& settings, SetupCoordinator& coordinator) -> int {
                const auto bridge = connection(coordinator.claudeFolder(), settings);
                if (!bridge) return show(SetupAlert::notListening(), false);
                std::cout << coordinator.manualInstructions(bridge->port, bridge->token) << '\n'
                          << std::flush;
                return success;
            });
}

void addHooksGroup(CLI::App& app, int& status) {
    auto* hooks = app.add_subcommand("hooks", "Plan, verify, install and remove the hooks");
    hooks->require_subcommand(1);

    auto* plan = hooks->add_subcommand("plan", "The change to settings.json read from stdin");
    plan->require_subcommand(1);
    auto bridge = std::make_shared<std::string>();
    auto* install = plan->add_subcommand("install", "Plan installing the hooks");
    install->add_option("--bridge", *bridge, "Absolute path of the installed bridge script")
        ->required()
        ->type_name("PATH");
    install->callback([bridge, &status] {
        status = refusing([&] {
            printPlan(HookInstaller::planInstall(readInput(), *bridge));
            return success;
        });
    });
    plan->add_subcommand("remove", "Plan removing the hooks")->callback([&status] {
        status = refusing([] {
            printPlan(HookInstaller::planRemoval(readInput()));
            return success;
        });
    });

    auto before = std::make_shared<std::string>();
    auto after = std::make_shared<std::string>();
    auto* verify =
        hooks->add_subcommand("verify", "Whether AFTER is a valid result of editing BEFORE");
    verify->add_option("BEFORE", *before)->required();
    verify->add_option("AFTER", *after)->required();
    verify->callback([before, after, &status] {
        status = refusing([&] {
            HookInstaller::verify(readInput(*before), readInput(*after));
            return success;
        });
    });

    addSetupCommands(*hooks, status);
}

} // namespace

void addHooksCommands(CLI::App& app, int& status) {
    addJsonCommands(app, status);
    addHooksGroup(app, status);
}

} // namespace norrow::cli
