#pragma once

#include "app/platform/Desktop.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace norrow {

// The desktop of an X server, read and driven through the window manager's EWMH properties
// and requests. An application is the process that owns a client window (_NET_WM_PID); its
// identity is a known editor's identifier or its executable's path, as the bridge gives it.
class X11Desktop final : public Desktop {
public:
    // Connects to `display` (such as ":1"), or to the one $DISPLAY names when it is empty.
    explicit X11Desktop(const std::string& display = {});
    ~X11Desktop() override;
    X11Desktop(const X11Desktop&) = delete;
    X11Desktop& operator=(const X11Desktop&) = delete;

    // Whether the X server answered; without it nothing is found and nothing is raised.
    bool connected() const;

    std::optional<std::string> frontmostApplication() override;
    std::optional<RunningApp> runningApp(const HookEvent& event) override;
    bool activate(const RunningApp& app) override;
    bool composited() override;

private:
    struct Connection;
    // A window the window manager manages, and the process that owns it.
    struct Client {
        std::uint32_t window = 0;
        pid_t pid = 0;
    };

    // _NET_CLIENT_LIST in the order the windows were mapped, or _NET_CLIENT_LIST_STACKING
    // from bottom to top; only windows that name their process.
    std::vector<Client> clients(bool stacking);
    std::optional<pid_t> windowPid(std::uint32_t window);
    // The process of the active window, or of the client window around it.
    std::optional<pid_t> activePid();
    std::uint32_t parentOf(std::uint32_t window);
    // The class part of WM_CLASS, such as "XTerm".
    std::string windowClass(std::uint32_t window);
    // Events and errors nobody asked for pile up in the connection unless taken off it.
    void discardEvents();

    std::unique_ptr<Connection> x_;
};

} // namespace norrow
