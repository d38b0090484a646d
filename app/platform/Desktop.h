#pragma once

#include "core/HookEvent.h"

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

namespace norrow {

// The one place that knows which desktop Norrow runs on: which application is in front,
// which running application hosts a Claude Code session, and bringing it forward.
//
// An application's identity is the text the bridge reports for the same application: a
// known editor's identifier (such as "com.microsoft.vscode"), otherwise the absolute path
// of its executable. So "frontmost when the turn began" and "frontmost now" compare like
// with like, and an event's terminal fields find the window to raise.
class Desktop {
public:
    struct RunningApp {
        std::string identity;
        // What the user calls it, for the status menu's tool tips.
        std::string localizedName;
        pid_t pid = 0;

        bool operator==(const RunningApp&) const = default;
    };

    virtual ~Desktop() = default;

    // The identity of the frontmost application, when it can be read.
    virtual std::optional<std::string> frontmostApplication() = 0;
    // The running application that hosts the event's session: the first one whose identity
    // is the event's term_bundle_id, else the one whose executable is its term_app_path.
    virtual std::optional<RunningApp> runningApp(const HookEvent& event) = 0;
    // Brings every window of the application forward; false when nothing could be raised.
    virtual bool activate(const RunningApp& app) = 0;
    // Whether a compositing manager draws the windows, so that a window may be translucent
    // and cast a shadow; without one, translucent pixels come out black.
    virtual bool composited() = 0;

    // The implementation for this session: X11 when an X server answers, the system's own on
    // macOS, otherwise one that knows nothing and does nothing.
    static std::unique_ptr<Desktop> create();
};

namespace desktop {

// Whether there is a graphical session to show a window in: on Linux an X server answering at
// $DISPLAY or a Wayland socket named by $WAYLAND_DISPLAY; on macOS always.
bool displayReachable();

} // namespace desktop
} // namespace norrow
