#include "cli/Cli.h"
#include "core/AppVersion.h"

#include <iostream>
#include <optional>

namespace norrow::cli {

void addVersionCommands(CLI::App& app, int& status) {
    auto* version = app.add_subcommand("version", "Print the running version, or compare versions");
    version->callback([version, &status] {
        if (version->get_subcommands().empty()) {
            std::cout << AppVersion::current() << '\n';
            status = success;
        }
    });

    auto* newer =
        version->add_subcommand("newer", "Whether CANDIDATE is a later release than BASE");
    auto candidate = std::make_shared<std::string>();
    auto base = std::make_shared<std::string>();
    newer->add_option("CANDIDATE", *candidate)->required();
    newer->add_option("BASE", *base)->required();
    newer->callback([candidate, base, &status] {
        std::cout << (AppVersion::isNewer(*candidate, *base) ? "true" : "false") << '\n';
        status = success;
    });

    auto* stale =
        version->add_subcommand("bridge-stale", "Whether a bridge reporting REPORTED is stale");
    auto reported = std::make_shared<std::optional<std::string>>();
    auto running = std::make_shared<std::optional<std::string>>();
    stale->add_option_function<std::string>("REPORTED",
                                            [reported](const std::string& v) { *reported = v; });
    stale
        ->add_option_function<std::string>(
            "--current", [running](const std::string& v) { *running = v; },
            "The running version (default: this build's)")
        ->type_name("VERSION");
    stale->callback([reported, running, &status] {
        const std::string current = running->value_or(AppVersion::current());
        std::cout << (AppVersion::bridgeIsStale(*reported, current) ? "true" : "false") << '\n';
        status = success;
    });
}

} // namespace norrow::cli
