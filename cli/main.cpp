#include "cli/Cli.h"

#include <QCoreApplication>

int main(int argc, char** argv) {
    // Settings and the keychain need a Qt application object; nothing here shows a window.
    QCoreApplication qt(argc, argv);
    QCoreApplication::setOrganizationName("qelvane");
    QCoreApplication::setApplicationName("Norrow");

    int status = norrow::cli::success;
    const auto app = norrow::cli::commandTable(status);
    try {
        app->parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app->exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app->exit(e);
    } catch (const CLI::ParseError& e) {
        app->exit(e);
        return norrow::cli::usage;
    }
    return status;
}
