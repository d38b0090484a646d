#include "support/XObserver.h"

#include "support/Eventually.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace norrow::test {
namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename T> using Owned = std::unique_ptr<T, Free>;

Owned<xcb_get_property_reply_t> property(xcb_connection_t* connection, xcb_window_t window,
                                         xcb_atom_t name, xcb_atom_t type) {
    return Owned<xcb_get_property_reply_t>(xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, window, name, type, 0, 4096), nullptr));
}

} // namespace

XObserver::XObserver(const std::string& display)
    : connection_(xcb_connect(display.c_str(), &screenNumber_)) {
    if (xcb_connection_has_error(connection_)) {
        xcb_disconnect(connection_);
        throw std::runtime_error("no X server answers at " + display);
    }
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < screenNumber_; ++i)
        xcb_screen_next(&screens);
    root_ = screens.data->root;
}

XObserver::~XObserver() {
    xcb_disconnect(connection_);
}

xcb_atom_t XObserver::atom(const std::string& name) {
    const Owned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_,
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.c_str()),
        nullptr));
    return reply ? reply->atom : XCB_NONE;
}

std::vector<xcb_window_t> XObserver::windows(xcb_window_t window, const std::string& name) {
    const auto reply = property(connection_, window, atom(name), XCB_ATOM_WINDOW);
    if (!reply || reply->format != 32) return {};
    const auto* data = static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
    return {data, data + reply->value_len};
}

std::optional<std::uint32_t> XObserver::cardinal(xcb_window_t window, const std::string& name) {
    const auto reply = property(connection_, window, atom(name), XCB_ATOM_CARDINAL);
    if (!reply || reply->format != 32 || reply->value_len == 0) return std::nullopt;
    return *static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
}

std::vector<std::uint32_t> XObserver::cardinals(xcb_window_t window, const std::string& name) {
    const auto reply = property(connection_, window, atom(name), XCB_ATOM_CARDINAL);
    if (!reply || reply->format != 32) return {};
    const auto* data = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {data, data + reply->value_len};
}

std::string XObserver::text(xcb_window_t window, const std::string& name) {
    const auto reply = property(connection_, window, atom(name), atom("UTF8_STRING"));
    if (!reply || reply->format != 8) return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

std::string XObserver::windowClass(xcb_window_t window) {
    const auto reply = property(connection_, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    if (!reply) return {};
    const std::string value(static_cast<const char*>(xcb_get_property_value(reply.get())),
                            static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
    const auto split = value.find('\0');
    return split == std::string::npos ? std::string() : std::string(value.c_str() + split + 1);
}

std::vector<xcb_window_t> XObserver::children(xcb_window_t window) {
    const Owned<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection_, xcb_query_tree(connection_, window), nullptr));
    if (!tree) return {};
    const xcb_window_t* first = xcb_query_tree_children(tree.get());
    return {first, first + xcb_query_tree_children_length(tree.get())};
}

std::optional<XObserver::Rect> XObserver::geometry(xcb_window_t window) {
    const Owned<xcb_get_geometry_reply_t> size(
        xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window), nullptr));
    const Owned<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
        connection_, xcb_translate_coordinates(connection_, window, root_, 0, 0), nullptr));
    if (!size || !place) return std::nullopt;
    return Rect{place->dst_x, place->dst_y, size->width, size->height};
}

bool XObserver::viewable(xcb_window_t window) {
    const Owned<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        connection_, xcb_get_window_attributes(connection_, window), nullptr));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

bool XObserver::owned(const std::string& selection) {
    const Owned<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection_, xcb_get_selection_owner(connection_, atom(selection)), nullptr));
    return reply && reply->owner != XCB_NONE;
}

bool XObserver::windowManagerAnswers(std::chrono::steady_clock::duration timeout) {
    using namespace std::chrono_literals;
    const xcb_window_t probe = xcb_generate_id(connection_);
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, probe, root_, 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_client_message_event_t request{};
    request.response_type = XCB_CLIENT_MESSAGE;
    request.format = 32;
    request.window = probe;
    request.type = atom("_NET_REQUEST_FRAME_EXTENTS");
    const auto answered = [&] { return cardinal(probe, "_NET_FRAME_EXTENTS").has_value(); };
    // Asked again from time to time: a window manager still starting up drops what it gets.
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    bool answer = false;
    while (!answer && std::chrono::steady_clock::now() < deadline) {
        xcb_send_event(connection_, 0, root_,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&request));
        xcb_flush(connection_);
        answer = eventually(answered, 200ms);
    }
    xcb_destroy_window(connection_, probe);
    xcb_flush(connection_);
    return answer;
}

} // namespace norrow::test
