#include "app/shared/Credentials.h"
#include "app/shared/EventHandler.h"
#include "app/shared/SecretStore.h"
#include "app/shared/SuppressionRules.h"
#include "app/shared/Settings.h"
#include "cli/Cli.h"
#include "core/BridgeConfig.h"
#include "core/SessionNames.h"
#include "core/SessionStore.h"
#include "service/EventListener.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <unistd.h>

namespace norrow::cli {
namespace {

struct ServeOptions {
    std::optional<int> port;
    std::optional<std::string> token;
    std::filesystem::path claudeFolder;
    bool json = false;
};

// SIGINT and SIGTERM end the event loop through a self-pipe, the one thing a signal
// handler may safely do.
int signalPipe[2] = {-1, -1};

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto ignored = ::write(signalPipe[1], &byte, 1);
}

void quitOnSignals(QObject* parent) {
    if (::pipe(signalPipe) != 0) return;
    ::fcntl(signalPipe[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(signalPipe[1], F_SETFD, FD_CLOEXEC);
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, parent);
    QObject::connect(notifier, &QSocketNotifier::activated, [] { QCoreApplication::quit(); });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

// One printed line per alert: the kind, the project, the summary and the duration.
std::string alertLine(const EventHandler::Alert& alert, const std::string& name) {
    std::string line =
        std::string(symbol(alert.result.kind)) + " " + std::string(label(alert.result.kind));
    if (!name.empty()) line += " \u00b7 " + name;
    line += " \u00b7 " + alert.result.text;
    if (alert.result.durationText) line += " (" + *alert.result.durationText + ")";
    return line;
}

// The listener and what the app does around it, without any window: the bridge config is
// published once per bound port, the port is remembered after a successful start, and
// events go through the app's alert rules with the frontmost application unknown.
class Server {
public:
    Server(const ServeOptions& options, Settings& settings)
        : options_(options), settings_(settings), credentials_(keychain_, settings),
          claudeFolder_(options.claudeFolder), rules_(settings), handler_(turns_, names_, rules_) {}

    int run() {
        token_ = options_.token ? *options_.token : credentials_.token();
        listener_ = EventListener::create(token_, [](std::function<void()> task) {
            QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task),
                                      Qt::QueuedConnection);
        });
        listener_->setOnEvent([this](HookEvent event) { handle(event); });
        listener_->setOnStateChange([this](bool listening) { stateChanged(listening); });
        try {
            listener_->start(preferredPort());
        } catch (const EventListener::ListenerError& e) {
            return refuse(e.what());
        }
        QTimer::singleShot(500, [this] {
            if (const auto port = listener_->port()) credentials_.rememberPort(*port);
        });
        // Turns whose "Stop" never came are forgotten, as in the app.
        QTimer sweep;
        QObject::connect(&sweep, &QTimer::timeout,
                         [this] { turns_.sweep(std::chrono::system_clock::now()); });
        sweep.start(std::chrono::seconds(900));
        const int status = QCoreApplication::exec();
        listener_->stop();
        return status;
    }

private:
    std::optional<std::uint16_t> preferredPort() const {
        if (!options_.port) return credentials_.preferredPort();
        if (*options_.port == 0) return std::nullopt;
        return static_cast<std::uint16_t>(*options_.port);
    }

    void stateChanged(bool listening) {
        const auto port = listener_->port();
        if (listening && port) {
            // Published before the announcement, so whoever waits for it finds the file.
            publishBridgeConfig(*port);
            if (!announced_) std::cout << "listening on 127.0.0.1:" << *port << '\n' << std::flush;
            announced_ = true;
            return;
        }
        if (!announced_) {
            std::cerr << "listener failed to start: no port could be bound on 127.0.0.1\n";
            QCoreApplication::exit(refused);
        }
    }

    void publishBridgeConfig(std::uint16_t port) {
        if (publishedPort_ == port) return;
        try {
            BridgeConfig::write(port, token_, BridgeConfig::location(claudeFolder_));
            publishedPort_ = port;
        } catch (const std::exception& e) {
            std::cerr << "Norrow: could not publish the bridge config: " << e.what() << '\n';
        }
    }

    void handle(const HookEvent& event) {
        if (options_.json) printJson(event.encode());
        const auto outcome = handler_.handle(event, std::nullopt, std::chrono::system_clock::now());
        if (options_.json || !outcome.alert) return;
        std::cout << alertLine(*outcome.alert, sessionName(event)) << '\n' << std::flush;
    }

    std::string sessionName(const HookEvent& event) {
        if (const auto project = event.projectName()) return *project;
        if (!event.sessionId) return {};
        return names_.displayName(*event.sessionId, SessionNames::projectsFolder(claudeFolder_));
    }

    const ServeOptions& options_;
    Settings& settings_;
    KeychainStore keychain_;
    Credentials credentials_;
    std::filesystem::path claudeFolder_;
    std::string token_;
    SessionStore turns_;
    SessionNames names_;
    SuppressionRules rules_;
    EventHandler handler_;
    std::shared_ptr<EventListener> listener_;
    std::optional<std::uint16_t> publishedPort_;
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
        ->check(CLI::Range(0, 65535));
    serve->add_option_function<std::string>(
        "--token", [options](const std::string& t) { options->token = t; },
        "Bearer token to demand (default: the stored bridge token)");
    const ClaudeFolderOption folder(serve);
    serve->add_flag("--json", options->json, "Print every accepted event as one JSON line");
    serve->callback([options, folder, &status] {
        Settings settings;
        options->claudeFolder = folder.folder();
        quitOnSignals(QCoreApplication::instance());
        status = Server(*options, settings).run();
    });
}

} // namespace norrow::cli
