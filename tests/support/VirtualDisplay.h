#pragma once

#include "support/TempDir.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace norrow::test {

// A private X session for GUI tests: an X server on a free display (Xvfb, or the real server
// with its dummy video driver for more than one monitor), openbox managing its windows and,
// on request, trayer offering a system tray. The constructor returns once each
// one is really up, and throws with what they printed when one does not come up; the
// destructor stops them all. Whatever the test starts on display() is the test's to stop.
class VirtualDisplay {
public:
    struct Options {
        // Start trayer, so that a status icon has a tray to go into.
        bool tray = false;
        // Monitors of 1024x768 side by side, left to right; with one, a 1280x800 screen.
        int monitors = 1;
    };

    VirtualDisplay() : VirtualDisplay(Options{}) {}
    explicit VirtualDisplay(Options options);
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    // Such as ":3": for $DISPLAY or xcb_connect.
    const std::string& display() const { return display_; }

    // Returns once the window manager has handled everything sent to it so far, and what
    // that made the server send it in turn (such as focus changes); throws when it does not
    // answer.
    void waitForWindowManager();

private:
    // Starts a program with $DISPLAY set to this display and its output in the log. With
    // `channel`, the program's descriptor 3 is that descriptor.
    pid_t start(const std::vector<std::string>& argv, int channel = -1);
    // Runs a program to its end on this display; throws when it fails.
    void run(const std::vector<std::string>& argv);
    // Starts the X server, writing its display number to `channel`.
    pid_t startServer(int monitors, int channel);
    // Waits until `ready` holds, or throws when `pid` ends first or it takes too long.
    template <typename Ready> void await(const char* what, pid_t pid, Ready ready);
    // What the programs printed, for failure messages.
    std::string log() const;
    void stopAll();

    TempDir folder_;
    int log_ = -1;
    std::vector<pid_t> children_;
    std::string display_;
};

} // namespace norrow::test
