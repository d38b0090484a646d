#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>
#include <xcb/xcb.h>

namespace norrow::test {

// A test's own connection to an X server, for looking at what the window manager and the
// clients publish there: root and window properties, window classes, selections.
class XObserver {
public:
    // Throws when the server does not answer.
    explicit XObserver(const std::string& display);
    ~XObserver();
    XObserver(const XObserver&) = delete;
    XObserver& operator=(const XObserver&) = delete;

    xcb_connection_t* connection() const { return connection_; }
    int screenNumber() const { return screenNumber_; }
    xcb_window_t root() const { return root_; }

    xcb_atom_t atom(const std::string& name);
    // A property holding windows, such as the root's "_NET_CLIENT_LIST".
    std::vector<xcb_window_t> windows(xcb_window_t window, const std::string& property);
    // A property holding one number, such as a window's "_NET_WM_PID".
    std::optional<std::uint32_t> cardinal(xcb_window_t window, const std::string& property);
    // A property holding numbers, such as the root's "_NET_WORKAREA".
    std::vector<std::uint32_t> cardinals(xcb_window_t window, const std::string& property);
    // A property holding UTF-8 text, such as a window's "_NET_WM_NAME".
    std::string text(xcb_window_t window, const std::string& property);
    // The class part of the window's WM_CLASS, such as "XTerm"; empty without one.
    std::string windowClass(xcb_window_t window);
    std::vector<xcb_window_t> children(xcb_window_t window);
    // Where the window is on the screen, in root coordinates.
    struct Rect {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
        bool operator==(const Rect&) const = default;
    };
    std::optional<Rect> geometry(xcb_window_t window);
    // Whether the window and all its ancestors are mapped.
    bool viewable(xcb_window_t window);
    // Whether some client owns the selection, such as "_NET_SYSTEM_TRAY_S0".
    bool owned(const std::string& selection);
    // Whether the window manager answers a request for a new window's frame extents within
    // `timeout`. It answers requests in turn, so by then it has handled everything this
    // connection sent it before, and it has finished starting up.
    bool windowManagerAnswers(std::chrono::steady_clock::duration timeout);

private:
    xcb_connection_t* connection_;
    int screenNumber_ = 0;
    xcb_window_t root_ = XCB_NONE;
};

} // namespace norrow::test
