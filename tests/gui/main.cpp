#include "GuiSupport.h"
#include "support/PulseServer.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"

#include <QApplication>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>

namespace {

norrow::test::PulseServer* pulse = nullptr;

} // namespace

norrow::test::PulseServer& norrow::test::soundServer() {
    return *pulse;
}

// The whole app under a private X session: Xvfb, openbox and a tray, and a private sound
// server, started once for the test program, with a home folder of its own so nothing touches
// the user's settings or speakers.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();

    const norrow::test::TempDir home;
    const norrow::test::VirtualDisplay session({.tray = true});
    ::setenv("DISPLAY", session.display().c_str(), 1);
    ::unsetenv("WAYLAND_DISPLAY");
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    ::setenv("HOME", home.path().c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
    std::filesystem::create_directories(home / "runtime");
    std::filesystem::permissions(home / "runtime", std::filesystem::perms::owner_all);
    ::setenv("XDG_RUNTIME_DIR", (home / "runtime").c_str(), 1);
    norrow::test::PulseServer sounds;
    pulse = &sounds;
    ::setenv("PULSE_SERVER", sounds.address().c_str(), 1);
    ::setenv("CANBERRA_DRIVER", "pulse", 1);

    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("qelvane"));
    QApplication::setApplicationName(QStringLiteral("Norrow"));
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
