#include "support/VirtualDisplay.h"

#include "support/Eventually.h"
#include "support/XObserver.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace norrow::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kStartTimeout = 30s;
constexpr auto kStopGrace = 3s;

// Focus goes to new windows and never follows the (absent) mouse, whatever the user's own
// openbox configuration says.
constexpr const char* kOpenboxConfig = R"(<?xml version="1.0"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew><followMouse>no</followMouse></focus>
</openbox_config>
)";

// Xvfb has a single monitor per screen and cannot be given more; the real server's dummy
// driver has outputs that RandR can place side by side, as monitors.
constexpr int kMonitorWidth = 1024;
constexpr int kMonitorHeight = 768;

std::string dummyServerConfig(int monitors) {
    const int width = kMonitorWidth * monitors;
    return R"(Section "Device"
  Identifier "card"
  Driver "dummy"
  VideoRam )" +
           std::to_string(width * kMonitorHeight * 4 / 1024 + 1024) +
           R"(
EndSection
Section "Monitor"
  Identifier "monitor"
  HorizSync 5.0-1000.0
  VertRefresh 5.0-200.0
  Modeline "1024x768" 63.50 1024 1072 1176 1328 768 771 775 798 -hsync +vsync
EndSection
Section "Screen"
  Identifier "screen"
  Device "card"
  Monitor "monitor"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Modes "1024x768"
    Virtual )" +
           std::to_string(width) + " " + std::to_string(kMonitorHeight) + R"(
  EndSubSection
EndSection
Section "ServerFlags"
  Option "AutoAddDevices" "false"
  Option "DontVTSwitch" "true"
EndSection
)";
}

// Reaps the child if it has ended.
bool ended(pid_t pid) {
    int status = 0;
    return ::waitpid(pid, &status, WNOHANG) == pid;
}

// The display number Xvfb writes to its -displayfd, then a line feed.
std::string displayNumber(int fd) {
    std::string number;
    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (number.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd readable{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&readable, 1, static_cast<int>(left.count())) <= 0)
            return {};
        char buffer[16];
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) return {};
        number.append(buffer, static_cast<std::size_t>(n));
    }
    number.erase(number.find('\n'));
    return number;
}

} // namespace

VirtualDisplay::VirtualDisplay(Options options)
    : log_(::memfd_create("virtual-display", MFD_CLOEXEC)) {
    try {
        int channel[2];
        if (::pipe2(channel, O_CLOEXEC) != 0) throw std::runtime_error("cannot create a pipe");
        const pid_t server = startServer(options.monitors, channel[1]);
        ::close(channel[1]);
        const std::string number = displayNumber(channel[0]);
        ::close(channel[0]);
        if (number.empty()) {
            if (ended(server)) std::erase(children_, server);
            throw std::runtime_error("the X server did not start:\n" + log());
        }
        display_ = ":" + number;
        XObserver x(display_);
        for (int monitor = 1; monitor < options.monitors; ++monitor) {
            const std::string output = "DUMMY" + std::to_string(monitor);
            run({"xrandr", "--addmode", output, "1024x768"});
            run({"xrandr", "--output", output, "--mode", "1024x768", "--right-of",
                 "DUMMY" + std::to_string(monitor - 1)});
        }

        const auto config = folder_ / "rc.xml";
        std::ofstream(config) << kOpenboxConfig;
        await("openbox", start({"openbox", "--sm-disable", "--config-file", config.string()}),
              [&] { return !x.windows(x.root(), "_NET_SUPPORTING_WM_CHECK").empty(); });
        // It claims the screen before its startup is over; a window mapped meanwhile may stay
        // unmanaged.
        waitForWindowManager();

        if (options.tray) {
            await("trayer",
                  start({"trayer", "--edge", "top", "--align", "right", "--widthtype", "request",
                         "--height", "24", "--transparent", "false", "--expand", "true",
                         "--SetDockType", "true"}),
                  [&] {
                      const auto clients = x.windows(x.root(), "_NET_CLIENT_LIST");
                      const auto isTray = [&](xcb_window_t window) {
                          return x.windowClass(window) == "trayer";
                      };
                      return x.owned("_NET_SYSTEM_TRAY_S" + std::to_string(x.screenNumber())) &&
                             std::ranges::any_of(clients, isTray);
                  });
        }
    } catch (...) {
        stopAll();
        ::close(log_);
        throw;
    }
}

VirtualDisplay::~VirtualDisplay() {
    stopAll();
    ::close(log_);
}

pid_t VirtualDisplay::start(const std::vector<std::string>& argv, int channel) {
    std::vector<std::string> environment;
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (!std::string_view(*variable).starts_with("DISPLAY="))
            environment.emplace_back(*variable);
    if (!display_.empty()) environment.push_back("DISPLAY=" + display_);
    const auto pointers = [](const std::vector<std::string>& strings) {
        std::vector<char*> out;
        for (const auto& s : strings)
            out.push_back(const_cast<char*>(s.c_str()));
        out.push_back(nullptr);
        return out;
    };
    const auto args = pointers(argv);
    const auto env = pointers(environment);
    const std::string failure = "cannot run " + argv[0] + "\n";
    const pid_t parent = ::getpid();

    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("cannot start " + argv[0]);
    if (pid == 0) {
        // Ends with the test even when the test dies without stopping it.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) ::_exit(127);
        const int nothing = ::open("/dev/null", O_RDONLY);
        ::dup2(nothing, 0);
        ::dup2(log_, 1);
        ::dup2(log_, 2);
        if (channel >= 0) ::dup2(channel, 3);
        ::execvpe(args[0], args.data(), env.data());
        [[maybe_unused]] const auto written = ::write(2, failure.data(), failure.size());
        ::_exit(127);
    }
    children_.push_back(pid);
    return pid;
}

pid_t VirtualDisplay::startServer(int monitors, int channel) {
    if (monitors == 1)
        return start({"Xvfb", "-displayfd", "3", "-screen", "0", "1280x800x24", "-nolisten", "tcp"},
                     channel);
    const auto config = folder_ / "xorg.conf";
    std::ofstream(config) << dummyServerConfig(monitors);
    std::filesystem::create_directories(folder_ / "xorg.conf.d");
    return start({"Xorg", "-displayfd", "3", "-config", config.string(), "-configdir",
                  (folder_ / "xorg.conf.d").string(), "-logfile", (folder_ / "xorg.log").string(),
                  "-noreset", "-nolisten", "tcp", "-novtswitch", "-sharevts"},
                 channel);
}

void VirtualDisplay::run(const std::vector<std::string>& argv) {
    const pid_t pid = start(argv);
    int status = 0;
    ::waitpid(pid, &status, 0);
    std::erase(children_, pid);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error(argv[0] + " failed:\n" + log());
}

template <typename Ready> void VirtualDisplay::await(const char* what, pid_t pid, Ready ready) {
    bool gone = false;
    const bool up = eventually([&] { return ready() || (gone = ended(pid)); }, kStartTimeout);
    if (gone) std::erase(children_, pid);
    if (!up || gone)
        throw std::runtime_error(std::string(what) + (gone ? " ended" : " did not come up") +
                                 ":\n" + log());
}

// Two answers in a row: the events the window manager caused while handling the first
// request reach it before the second.
void VirtualDisplay::waitForWindowManager() {
    XObserver x(display_);
    for (int round = 0; round < 2; ++round)
        if (!x.windowManagerAnswers(kStartTimeout))
            throw std::runtime_error("openbox does not answer:\n" + log());
}

std::string VirtualDisplay::log() const {
    std::string text;
    char buffer[4096];
    for (ssize_t n;
         (n = ::pread(log_, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
        text.append(buffer, static_cast<std::size_t>(n));
    return text;
}

// The last started first, so that the X server goes last; each gets a grace period after
// SIGTERM before SIGKILL.
void VirtualDisplay::stopAll() {
    for (auto child = children_.rbegin(); child != children_.rend(); ++child) {
        const pid_t pid = *child;
        ::kill(pid, SIGTERM);
        if (eventually([pid] { return ended(pid); }, kStopGrace)) continue;
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    children_.clear();
}

} // namespace norrow::test
