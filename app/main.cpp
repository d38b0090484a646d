#include "app/AppController.h"
#include "app/NetworkTransport.h"
#include "app/SingleInstance.h"
#include "app/platform/Desktop.h"
#include "app/platform/QuitOnSignals.h"
#include "app/shared/SecretStore.h"
#include "app/shared/Settings.h"

#include <QApplication>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    using namespace norrow;
    if (!desktop::displayReachable()) {
        std::cerr << "Norrow needs a graphical session and found no display; to run only the "
                     "listener, use `norrowctl serve`.\n";
        return 1;
    }
    // Under Wayland a client cannot place its own windows or see which one is in front, so
    // Norrow runs on XWayland when there is one.
    if (std::getenv("WAYLAND_DISPLAY") && std::getenv("DISPLAY") && !std::getenv("QT_QPA_PLATFORM"))
        ::setenv("QT_QPA_PLATFORM", "xcb", 0);

    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("qelvane"));
    QApplication::setApplicationName(QStringLiteral("Norrow"));
    // Ties the windows to the installed launcher entry and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("com.qelvane.Norrow"));
    QApplication::setQuitOnLastWindowClosed(false);

    const SingleInstance instance;
    if (!instance.acquired()) {
        std::cerr << "Norrow is already running; look for its bell in the tray.\n";
        return 0;
    }
    quitOnSignals();

    Settings settings;
    KeychainStore keychain;
    const auto desktop = Desktop::create();
    const char* debug = std::getenv("NORROW_DEBUG");
    AppController::Options options;
    options.debug = debug && std::string_view(debug) == "1";
    AppController controller(settings, keychain, *desktop, std::make_unique<NetworkTransport>(),
                             options);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &controller, &AppController::stop);
    controller.start();
    return QApplication::exec();
}
