#include "app/platform/x11/X11Desktop.h"

#include "core/KnownEditors.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename T> using Owned = std::unique_ptr<T, Free>;

std::optional<fs::path> executableOf(pid_t pid) {
    std::error_code error;
    fs::path executable = fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", error);
    if (error) return std::nullopt;
    return executable;
}

// The same text the bridge reports for the process hosting a session.
std::string identityOf(const fs::path& executable) {
    const std::string path = executable.string();
    return std::string(editors::identifierForExecutable(path).value_or(path));
}

// Links and dot folders resolved, so that two spellings of one executable compare equal.
fs::path resolved(const fs::path& path) {
    std::error_code error;
    fs::path canonical = fs::weakly_canonical(path, error);
    return error ? path : canonical;
}

} // namespace

// Replies are read with no place for an error, so xcb drops it: a window gone meanwhile or a
// property never set just means nothing found.
struct X11Desktop::Connection {
    xcb_connection_t* xcb = nullptr;
    xcb_ewmh_connection_t ewmh{};
    int screen = 0;
    bool ready = false;

    ~Connection() {
        if (ready) xcb_ewmh_connection_wipe(&ewmh);
        xcb_disconnect(xcb);
    }
    xcb_window_t root() const { return ewmh.screens[screen]->root; }
};

X11Desktop::X11Desktop(const std::string& display) : x_(std::make_unique<Connection>()) {
    x_->xcb = xcb_connect(display.empty() ? nullptr : display.c_str(), &x_->screen);
    if (xcb_connection_has_error(x_->xcb)) return;
    x_->ready = xcb_ewmh_init_atoms_replies(&x_->ewmh, xcb_ewmh_init_atoms(x_->xcb, &x_->ewmh),
                                            nullptr) != 0;
}

X11Desktop::~X11Desktop() = default;

bool X11Desktop::connected() const {
    return x_->ready && !xcb_connection_has_error(x_->xcb);
}

std::optional<std::string> X11Desktop::frontmostApplication() {
    if (!connected()) return std::nullopt;
    discardEvents();
    const auto pid = activePid();
    if (!pid) return std::nullopt;
    const auto executable = executableOf(*pid);
    if (!executable) return std::nullopt;
    return identityOf(*executable);
}

std::optional<Desktop::RunningApp> X11Desktop::runningApp(const HookEvent& event) {
    if (!connected() || (!event.termBundleId && !event.termAppPath)) return std::nullopt;
    discardEvents();
    struct Host {
        Client client;
        fs::path executable;
    };
    std::vector<Host> hosts;
    for (const Client& client : clients(false))
        if (auto executable = executableOf(client.pid))
            hosts.push_back({client, std::move(*executable)});

    const auto describe = [this](const Host& host) {
        std::string name = windowClass(host.client.window);
        if (name.empty()) name = host.executable.filename().string();
        return RunningApp{identityOf(host.executable), std::move(name), host.client.pid};
    };
    if (event.termBundleId)
        for (const Host& host : hosts)
            if (identityOf(host.executable) == *event.termBundleId) return describe(host);
    if (event.termAppPath) {
        const fs::path wanted = resolved(*event.termAppPath);
        for (const Host& host : hosts)
            if (resolved(host.executable) == wanted) return describe(host);
    }
    return std::nullopt;
}

bool X11Desktop::activate(const RunningApp& app) {
    if (!connected()) return false;
    discardEvents();
    bool found = false;
    // Bottom to top, so that the window that was on top ends up active. Asked as a pager
    // asks, for the user, so that no focus stealing prevention holds the request back.
    for (const Client& client : clients(true)) {
        if (client.pid != app.pid) continue;
        xcb_ewmh_request_change_active_window(&x_->ewmh, x_->screen, client.window,
                                              XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, XCB_CURRENT_TIME,
                                              XCB_NONE);
        found = true;
    }
    xcb_flush(x_->xcb);
    return found;
}

// A compositing manager owns the screen's _NET_WM_CM_Sn selection while it runs.
bool X11Desktop::composited() {
    if (!connected()) return false;
    discardEvents();
    const Owned<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        x_->xcb, xcb_get_selection_owner(x_->xcb, x_->ewmh._NET_WM_CM_Sn[x_->screen]), nullptr));
    return owner && owner->owner != XCB_NONE;
}

std::vector<X11Desktop::Client> X11Desktop::clients(bool stacking) {
    auto& ewmh = x_->ewmh;
    const auto listCookie = stacking ? xcb_ewmh_get_client_list_stacking(&ewmh, x_->screen)
                                     : xcb_ewmh_get_client_list(&ewmh, x_->screen);
    xcb_ewmh_get_windows_reply_t list;
    if (xcb_ewmh_get_windows_reply(&ewmh, listCookie, &list, nullptr) == 0) return {};
    // Every question first, then every answer: one round trip for the whole list.
    std::vector<xcb_get_property_cookie_t> cookies;
    for (std::uint32_t i = 0; i < list.windows_len; ++i)
        cookies.push_back(xcb_ewmh_get_wm_pid(&ewmh, list.windows[i]));
    std::vector<Client> found;
    for (std::uint32_t i = 0; i < list.windows_len; ++i) {
        std::uint32_t pid = 0;
        if (xcb_ewmh_get_wm_pid_reply(&ewmh, cookies[i], &pid, nullptr) != 0 && pid > 0)
            found.push_back({list.windows[i], static_cast<pid_t>(pid)});
    }
    xcb_ewmh_get_windows_reply_wipe(&list);
    return found;
}

std::optional<pid_t> X11Desktop::windowPid(std::uint32_t window) {
    std::uint32_t pid = 0;
    if (xcb_ewmh_get_wm_pid_reply(&x_->ewmh, xcb_ewmh_get_wm_pid(&x_->ewmh, window), &pid,
                                  nullptr) == 0 ||
        pid == 0)
        return std::nullopt;
    return static_cast<pid_t>(pid);
}

std::optional<pid_t> X11Desktop::activePid() {
    xcb_window_t active = XCB_NONE;
    if (xcb_ewmh_get_active_window_reply(
            &x_->ewmh, xcb_ewmh_get_active_window(&x_->ewmh, x_->screen), &active, nullptr) == 0 ||
        active == XCB_NONE)
        return std::nullopt;
    if (const auto pid = windowPid(active)) return pid;
    // A window inside a client names no process; the client around it does.
    const auto managed = clients(false);
    for (xcb_window_t window = parentOf(active); window != XCB_NONE && window != x_->root();
         window = parentOf(window)) {
        const auto client = std::ranges::find(managed, window, &Client::window);
        if (client != managed.end()) return client->pid;
    }
    return std::nullopt;
}

std::uint32_t X11Desktop::parentOf(std::uint32_t window) {
    const Owned<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(x_->xcb, xcb_query_tree(x_->xcb, window), nullptr));
    return tree ? tree->parent : XCB_NONE;
}

std::string X11Desktop::windowClass(std::uint32_t window) {
    const Owned<xcb_get_property_reply_t> property(xcb_get_property_reply(
        x_->xcb, xcb_get_property(x_->xcb, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256),
        nullptr));
    if (!property) return {};
    // "instance\0class\0"
    const std::string_view value(
        static_cast<const char*>(xcb_get_property_value(property.get())),
        static_cast<std::size_t>(xcb_get_property_value_length(property.get())));
    const auto end = value.find('\0');
    if (end == std::string_view::npos) return {};
    const std::string_view rest = value.substr(end + 1);
    return std::string(rest.substr(0, rest.find('\0')));
}

void X11Desktop::discardEvents() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(x_->xcb))
        std::free(event);
}

} // namespace norrow
