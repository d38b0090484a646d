#include "app/platform/QuitOnSignals.h"
#include "app/shared/ListenerHost.h"
#include "app/shared/SecretStore.h"
#include "app/shared/Settings.h"
#include "app/shared/SuppressionRules.h"
#include "cli/Cli.h"
#include "core/EventHandler.h"
#include "core/SessionNames.h"

#include <QCoreApplication>
#include <chrono>
#include <filesystem>
#include <iostream>

namespace norrow::cli {
namespace {

struct ServeOptions {
    std::optional<int> port;
    std::optional<std::string> token;
    std::filesystem::path claudeFolder;
    bool json = false;
};

// One printed line per alert: the kind, the project, the summary and the duration.
std::string alertLine(const EventHandler::Alert& alert, const std::string& name) {
    std::string line =
        std::string(symbol(alert.result.kind)) + " " + std::string(label(alert.result.kind));
    if (!name.empty()) line += " \u00b7 " + name;
    line += " \u00b7 " + alert.result.text;
    if (alert.result.durationText) line += " (" + *alert.result.durationText + ")";
    return line;
}

// A waiting alert taken back: the user answered, or the session moved on.
std::string withdrawalLine(const std::string& name) {
    return "\u21A9 Withdrawn" + (name.empty() ? std::string() : " \u00b7 " + name);
}

// The shared listener host without any window: events go through the app's alert rules
// with the frontmost application unknown, and each alert becomes one printed line.
class Server {
public:
    Server(const ServeOptions& options, Settings& settings)
        : options_(options), host_(settings, keychain_, options.claudeFolder), rules_(settings),
          handler_(host_.turns(), names_) {}

    int run() {
        host_.setOnEvent([this](const HookEvent& event) { handle(event); });
        host_.setOnStateChange([this](bool listening) { stateChanged(listening); });
        try {
            host_.start(preferredPort(), options_.token);
        } catch (const EventListener::ListenerError& e) {
            return refuse(e.what());
        }
        const int status = QCoreApplication::exec();
        host_.stop();
        return status;
    }

private:
    std::optional<std::uint16_t> preferredPort() const {
        if (!options_.port) return host_.rememberedPort();
        if (*options_.port == 0) return std::nullopt;
        return static_cast<std::uint16_t>(*options_.port);
    }

    void stateChanged(bool listening) {
        const auto port = host_.port();
        if (listening && port) {
            // Published before the announcement, so whoever waits for it finds the file.
            host_.publishBridgeConfig();
            if (!announced_) std::cout << "listening on 127.0.0.1:" << *port << '\n' << std::flush;
            announced_ = true;
            return;
        }
        if (!announced_) {
            std::cerr << "listener failed to start: no port could be bound on 127.0.0.1\n";
            QCoreApplication::exit(refused);
        }
    }

    void handle(const HookEvent& event) {
        if (options_.json) printJson(event.encode());
        const auto outcome = handler_.handle(event, std::nullopt, std::chrono::system_clock::now(),
                                             rules_.current());
        if (options_.json) return;
        if (outcome.withdrawn) std::cout << withdrawalLine(sessionName(event)) << '\n';
        if (outcome.alert) std::cout << alertLine(*outcome.alert, sessionName(event)) << '\n';
        std::cout << std::flush;
    }

    std::string sessionName(const HookEvent& event) {
        if (const auto project = event.projectName()) return *project;
        if (!event.sessionId) return {};
        return names_.displayName(*event.sessionId,
                                  SessionNames::projectsFolder(host_.claudeFolder()));
    }

    const ServeOptions& options_;
    KeychainStore keychain_;
    ListenerHost host_;
    SessionNames names_;
    SuppressionRules rules_;
    EventHandler handler_;
    bool announced_ = false;
};

} // namespace

void addServeCommand(CLI::App& app, int& status) {
    auto* serve = app.add_subcommand("serve", "Run the loopback event listener without any GUI");
    auto options = std::make_shared<ServeOptions>();
    serve
        ->add_option_function<int>(
            "--port", [options](const int& port) { options->port = port; },
            "Preferred port (0: any free port)")
        ->check(CLI::Range(0, 65535))
        ->type_name("N");
    serve
        ->add_option_function<std::string>(
            "--token", [options](const std::string& t) { options->token = t; },
            "Bearer token to demand (default: the stored bridge token)")
        ->type_name("TOKEN");
    const ClaudeFolderOption folder(serve);
    serve->add_flag("--json", options->json, "Print every accepted event as one JSON line");
    serve->callback([options, folder, &status] {
        Settings settings;
        options->claudeFolder = folder.folder();
        quitOnSignals();
        status = Server(*options, settings).run();
    });
}

} // namespace norrow::cli
