#include "app/platform/null/NullDesktop.h"
#include "app/platform/x11/X11Desktop.h"
#include "support/Eventually.h"
#include "support/Process.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"
#include "support/XObserver.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace norrow {

void PrintTo(const Desktop::RunningApp& app, std::ostream* out) {
    *out << "{" << app.identity << ", " << app.localizedName << ", pid " << app.pid << "}";
}

namespace {

namespace fs = std::filesystem;
using RunningApp = Desktop::RunningApp;

const std::string xterm = fs::canonical("/usr/bin/xterm").string();

// Sets an environment variable, or removes it when given nothing, until the end of the scope.
class Variable {
public:
    Variable(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        set(value);
    }
    ~Variable() { set(old_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void set(const std::optional<std::string>& value) {
        if (value)
            ::setenv(name_, value->c_str(), 1);
        else
            ::unsetenv(name_);
    }
    const char* name_;
    std::optional<std::string> old_;
};

// A real X server and window manager, with real terminal windows opened on it as needed.
class DesktopTest : public testing::Test {
protected:
    struct Window {
        xcb_window_t id = XCB_NONE;
        pid_t pid = 0;
    };

    test::TempDir folder;
    test::VirtualDisplay session;
    test::XObserver x{session.display()};
    X11Desktop x11{session.display()};
    std::vector<std::unique_ptr<test::Process>> programs;

    // An xterm (or a copy of it at `program`) whose windows have the class `windowClass`,
    // once the window manager manages its window. Told not to wait for the window manager to
    // answer its resizes, which Xt otherwise does for up to five seconds at a time. It runs
    // cat, which ends with the terminal.
    Window openTerminal(const std::string& windowClass, const std::string& program = "xterm") {
        programs.push_back(std::make_unique<test::Process>(
            std::vector<std::string>{program, "-class", windowClass, "-xrm", "*waitforwm: false",
                                     "-e", "cat"},
            test::Environment{{"DISPLAY", session.display()}}));
        const auto found =
            managed([&](xcb_window_t window) { return x.windowClass(window) == windowClass; });
        if (!found)
            throw std::runtime_error(program + " opened no window: " + programs.back()->errors());
        return *found;
    }

    // A top-level window of this test's own connection, not yet mapped.
    xcb_window_t createWindow() {
        const xcb_window_t window = xcb_generate_id(x.connection());
        xcb_create_window(x.connection(), XCB_COPY_FROM_PARENT, window, x.root(), 0, 0, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        return window;
    }

    // A window of this test's own process, with no WM_CLASS, once it is managed.
    Window openOwnWindow() {
        const xcb_window_t window = createWindow();
        const auto pid = static_cast<std::uint32_t>(::getpid());
        xcb_change_property(x.connection(), XCB_PROP_MODE_REPLACE, window, x.atom("_NET_WM_PID"),
                            XCB_ATOM_CARDINAL, 32, 1, &pid);
        xcb_map_window(x.connection(), window);
        xcb_flush(x.connection());
        const auto found = managed([window](xcb_window_t listed) { return listed == window; });
        if (!found) throw std::runtime_error("the window manager never managed the window");
        return *found;
    }

    // The managed window that matches, once there is one.
    template <typename Match> std::optional<Window> managed(Match match) {
        Window found;
        if (!test::eventually([&] {
                for (const xcb_window_t window : x.windows(x.root(), "_NET_CLIENT_LIST"))
                    if (match(window)) found = {window, pidOf(window)};
                return found.id != XCB_NONE;
            }))
            return std::nullopt;
        return found;
    }

    pid_t pidOf(xcb_window_t window) {
        return static_cast<pid_t>(x.cardinal(window, "_NET_WM_PID").value_or(0));
    }

    xcb_window_t active() {
        const auto windows = x.windows(x.root(), "_NET_ACTIVE_WINDOW");
        return windows.empty() ? XCB_NONE : windows.front();
    }

    bool becomesActive(const Window& window) {
        return test::eventually([&] { return active() == window.id; });
    }

    // What the window manager publishes, written by hand; in place once this returns.
    void setActive(xcb_window_t window) {
        xcb_connection_t* c = x.connection();
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, x.root(), x.atom("_NET_ACTIVE_WINDOW"),
                            XCB_ATOM_WINDOW, 32, 1, &window);
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    }
};

TEST_F(DesktopTest, FrontmostIsTheIdentityOfTheActiveWindowsProgram) {
    EXPECT_EQ(x11.frontmostApplication(), std::nullopt) << "nothing is active yet";

    const Window terminal = openTerminal("FirstTerm");
    ASSERT_TRUE(becomesActive(terminal));
    EXPECT_EQ(x11.frontmostApplication(), xterm);

    // A known editor is its identifier, wherever its executable lives.
    fs::copy_file(xterm, folder / "code");
    const Window editor = openTerminal("Editor", (folder / "code").string());
    ASSERT_TRUE(becomesActive(editor));
    EXPECT_EQ(x11.frontmostApplication(), "com.microsoft.vscode");

    // A window inside a client names no process; the client around it does.
    const auto inner = x.children(terminal.id);
    ASSERT_FALSE(inner.empty());
    ASSERT_EQ(pidOf(inner.front()), 0);
    setActive(inner.front());
    EXPECT_EQ(x11.frontmostApplication(), xterm);

    // Outside any client there is nobody to ask.
    setActive(createWindow());
    EXPECT_EQ(x11.frontmostApplication(), std::nullopt);
}

TEST_F(DesktopTest, FindsTheApplicationHostingASession) {
    const Window first = openTerminal("FirstTerm");
    const Window second = openTerminal("SecondTerm");
    fs::copy_file(xterm, folder / "code");
    const Window editor = openTerminal("Editor", (folder / "code").string());
    openOwnWindow();
    ASSERT_NE(first.pid, second.pid);
    fs::create_symlink(xterm, folder / "terminal");
    const std::string self = fs::read_symlink("/proc/self/exe").string();

    const RunningApp firstTerminal{xterm, "FirstTerm", first.pid};
    struct Case {
        const char* what;
        std::optional<std::string> bundle;
        std::optional<std::string> path;
        std::optional<RunningApp> found;
    };
    const Case cases[] = {
        {"by executable: the first window's", std::nullopt, "/usr/bin/xterm", firstTerminal},
        {"by another spelling of it", std::nullopt, "/usr/bin/../bin/./xterm", firstTerminal},
        {"by a link to it", std::nullopt, (folder / "terminal").string(), firstTerminal},
        {"by identity", xterm, std::nullopt, firstTerminal},
        {"by an editor's identifier", "com.microsoft.vscode", std::nullopt,
         RunningApp{"com.microsoft.vscode", "Editor", editor.pid}},
        {"by executable when the identity is not running", "com.exafunction.windsurf",
         "/usr/bin/xterm", firstTerminal},
        {"identity not running", "com.exafunction.windsurf", std::nullopt, std::nullopt},
        {"executable not running", std::nullopt, "/opt/nowhere/terminal", std::nullopt},
        {"running without a window", std::nullopt, fs::canonical("/usr/bin/cat").string(),
         std::nullopt},
        {"neither", std::nullopt, std::nullopt, std::nullopt},
        {"a window without a class is named after its executable", std::nullopt, self,
         RunningApp{self, fs::path(self).filename().string(), ::getpid()}},
    };
    for (const auto& [what, bundle, path, found] : cases) {
        HookEvent event(HookEvent::Name::stop);
        event.termBundleId = bundle;
        event.termAppPath = path;
        EXPECT_EQ(x11.runningApp(event), found) << what;
    }
}

TEST_F(DesktopTest, ActivateBringsTheApplicationForward) {
    const Window first = openTerminal("FirstTerm");
    const Window second = openTerminal("SecondTerm");
    ASSERT_TRUE(becomesActive(second));

    EXPECT_TRUE(x11.activate({xterm, "FirstTerm", first.pid}));
    EXPECT_TRUE(becomesActive(first));
    EXPECT_TRUE(x11.activate({xterm, "SecondTerm", second.pid}));
    EXPECT_TRUE(becomesActive(second));

    const RunningApp self{"self", "self", ::getpid()};
    EXPECT_FALSE(x11.activate(self)) << "it has no window yet";

    // Of several windows, the one that was on top ends up active.
    const Window lower = openOwnWindow();
    const Window upper = openOwnWindow();
    EXPECT_TRUE(x11.activate({xterm, "FirstTerm", first.pid}));
    ASSERT_TRUE(becomesActive(first));
    const auto stacking = x.windows(x.root(), "_NET_CLIENT_LIST_STACKING");
    const auto above =
        std::ranges::find(stacking, upper.id) > std::ranges::find(stacking, lower.id);
    EXPECT_TRUE(x11.activate(self));
    session.waitForWindowManager();
    EXPECT_EQ(active(), above ? upper.id : lower.id) << "the window that was on top";
}

TEST_F(DesktopTest, CompositedWhileACompositingManagerHoldsTheScreen) {
    EXPECT_FALSE(x11.composited()) << "Xvfb and openbox draw no translucency";
    EXPECT_FALSE(NullDesktop().composited());

    // A compositing manager announces itself by owning the screen's selection.
    const xcb_window_t manager = createWindow();
    const xcb_atom_t selection = x.atom("_NET_WM_CM_S" + std::to_string(x.screenNumber()));
    xcb_set_selection_owner(x.connection(), manager, selection, XCB_CURRENT_TIME);
    ASSERT_TRUE(x.owned("_NET_WM_CM_S" + std::to_string(x.screenNumber())));
    EXPECT_TRUE(x11.composited());

    xcb_destroy_window(x.connection(), manager);
    ASSERT_FALSE(x.owned("_NET_WM_CM_S" + std::to_string(x.screenNumber())));
    EXPECT_FALSE(x11.composited());
}

TEST_F(DesktopTest, ChoosesTheDesktopFromTheSession) {
    const Window terminal = openTerminal("FirstTerm");
    ASSERT_TRUE(becomesActive(terminal));
    HookEvent event(HookEvent::Name::stop);
    event.termAppPath = xterm;

    Variable wayland("WAYLAND_DISPLAY", std::nullopt);
    {
        Variable display("DISPLAY", session.display());
        EXPECT_TRUE(desktop::displayReachable());
        const auto chosen = Desktop::create();
        EXPECT_EQ(chosen->frontmostApplication(), xterm);
    }
    const std::optional<std::string> noServer[] = {std::nullopt, ":65000"};
    for (const auto& name : noServer) {
        Variable display("DISPLAY", name);
        EXPECT_FALSE(desktop::displayReachable()) << name.value_or("no DISPLAY");
        EXPECT_FALSE(X11Desktop(name.value_or("")).connected());
        const auto chosen = Desktop::create();
        EXPECT_NE(dynamic_cast<NullDesktop*>(chosen.get()), nullptr);
        EXPECT_EQ(chosen->frontmostApplication(), std::nullopt);
        EXPECT_EQ(chosen->runningApp(event), std::nullopt);
        EXPECT_FALSE(chosen->activate({xterm, "FirstTerm", terminal.pid}));
    }

    // A Wayland session counts where its socket is: by name in the runtime folder, or by path.
    const fs::path socketPath = folder / "wayland-0";
    const int listening = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    Variable display("DISPLAY", std::nullopt);
    Variable runtime("XDG_RUNTIME_DIR", folder.path().string());
    const std::pair<std::string, bool> sockets[] = {
        {"wayland-0", true}, {socketPath.string(), true}, {"wayland-9", false}, {"", false}};
    for (const auto& [name, reachable] : sockets) {
        Variable named("WAYLAND_DISPLAY", name);
        EXPECT_EQ(desktop::displayReachable(), reachable) << name;
    }
    ::close(listening);
}

} // namespace
} // namespace norrow
