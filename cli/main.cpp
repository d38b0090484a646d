#include "cli/Cli.h"

#include <QCoreApplication>
#include <iostream>

int main(int argc, char** argv) {
    // Settings and the keychain need a Qt application object; nothing here shows a window.
    QCoreApplication qt(argc, argv);
    QCoreApplication::setOrganizationName("qelvane");
    QCoreApplication::setApplicationName("Norrow");

    CLI::App app{"norrowctl: Norrow's command-line tool", "norrowctl"};
    app.require_subcommand(1);
    int status = norrow::cli::success;
    norrow::cli::addServeCommand(app, status);
    norrow::cli::addHooksCommands(app, status);
    norrow::cli::addSessionCommands(app, status);
    norrow::cli::addSummaryCommands(app, status);
    norrow::cli::addVersionCommands(app, status);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return norrow::cli::usage;
    }
    return status;
}
