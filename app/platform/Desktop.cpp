#include "app/platform/Desktop.h"

#if defined(__APPLE__)
#include "app/platform/mac/MacDesktop.h"
#else
#include "app/platform/null/NullDesktop.h"
#include "app/platform/x11/X11Desktop.h"

#include <cstdlib>
#include <filesystem>
#include <xcb/xcb.h>
#endif

namespace norrow {

#if defined(__APPLE__)

std::unique_ptr<Desktop> Desktop::create() {
    return std::make_unique<MacDesktop>();
}

bool desktop::displayReachable() {
    return true;
}

#else

std::unique_ptr<Desktop> Desktop::create() {
    auto x11 = std::make_unique<X11Desktop>();
    if (x11->connected()) return x11;
    return std::make_unique<NullDesktop>();
}

namespace {

bool xServerAnswers() {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    const bool answers = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return answers;
}

// A relative name is a socket in $XDG_RUNTIME_DIR, as Wayland clients look for it.
bool waylandSocketNamed() {
    const char* name = std::getenv("WAYLAND_DISPLAY");
    if (name == nullptr || *name == '\0') return false;
    std::filesystem::path socket(name);
    if (socket.is_relative()) {
        const char* runtime = std::getenv("XDG_RUNTIME_DIR");
        if (runtime == nullptr) return false;
        socket = std::filesystem::path(runtime) / socket;
    }
    std::error_code error;
    return std::filesystem::is_socket(socket, error);
}

} // namespace

bool desktop::displayReachable() {
    return xServerAnswers() || waylandSocketNamed();
}

#endif

} // namespace norrow
