#include "Platform/X11ActiveWindow.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>
#include <xcb/xcb.h>

namespace marlune {

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
using PropertyReply = std::unique_ptr<xcb_get_property_reply_t, FreeDeleter>;

PropertyReply property(xcb_connection_t* c, xcb_window_t window, xcb_atom_t name, xcb_atom_t type) {
    // 4096 words: far more than any class or title worth showing.
    return PropertyReply(
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, name, type, 0, 4096), nullptr));
}

std::string bytesOf(const PropertyReply& reply) {
    if (reply == nullptr || reply->format != 8) {
        return {};
    }
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

std::optional<std::uint32_t> cardinalOf(const PropertyReply& reply) {
    if (reply == nullptr || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    std::memcpy(&value, xcb_get_property_value(reply.get()), sizeof value);
    return value;
}

std::string latin1ToUtf8(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            out += c;
        } else {
            out += static_cast<char>(0xc0 | (byte >> 6));
            out += static_cast<char>(0x80 | (byte & 0x3f));
        }
    }
    return out;
}

} // namespace

std::variant<std::unique_ptr<X11ActiveWindow>, X11Unavailable>
X11ActiveWindow::open(std::string_view display) {
    auto opened = X11Connection::open(display);
    if (auto* failure = std::get_if<X11Unavailable>(&opened)) {
        return std::move(*failure);
    }
    return std::make_unique<X11ActiveWindow>(std::move(std::get<X11Connection>(opened)));
}

X11ActiveWindow::X11ActiveWindow(X11Connection connection)
    : connection_(std::move(connection)), netActiveWindow_(connection_.atom("_NET_ACTIVE_WINDOW")),
      netWmName_(connection_.atom("_NET_WM_NAME")), netWmPid_(connection_.atom("_NET_WM_PID")),
      utf8String_(connection_.atom("UTF8_STRING")) {}

std::uint32_t X11ActiveWindow::focusedTopLevel() {
    xcb_connection_t* c = connection_.get();
    std::unique_ptr<xcb_get_input_focus_reply_t, FreeDeleter> focus(
        xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    if (focus == nullptr || focus->focus == XCB_NONE ||
        focus->focus == XCB_INPUT_FOCUS_POINTER_ROOT || focus->focus == connection_.root()) {
        return XCB_NONE;
    }
    // Toolkits focus a child window; the class and title sit on its top-level ancestor.
    xcb_window_t window = focus->focus;
    for (int depth = 0; depth < 64; ++depth) {
        if (bytesOf(property(c, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING)).size() > 0) {
            return window;
        }
        std::unique_ptr<xcb_query_tree_reply_t, FreeDeleter> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr));
        if (tree == nullptr || tree->parent == XCB_NONE || tree->parent == connection_.root()) {
            return window;
        }
        window = tree->parent;
    }
    return window;
}

std::uint32_t X11ActiveWindow::inputFocus() {
    xcb_connection_t* c = connection_.get();
    std::unique_ptr<xcb_get_input_focus_reply_t, FreeDeleter> focus(
        xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    return focus == nullptr ? XCB_NONE : focus->focus;
}

void X11ActiveWindow::restoreInputFocus(std::uint32_t window) {
    if (window == XCB_NONE || window == XCB_INPUT_FOCUS_POINTER_ROOT) {
        return;
    }
    xcb_connection_t* c = connection_.get();
    // The window may have gone meanwhile; a checked request keeps the error off the event queue.
    std::unique_ptr<xcb_generic_error_t, FreeDeleter> error(xcb_request_check(
        c, xcb_set_input_focus_checked(c, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME)));
}

std::optional<std::string> X11ActiveWindow::activate(std::string_view application) {
    const auto lower = [](std::string_view text) {
        std::string out(text);
        for (char& ch : out) {
            ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        }
        return out;
    };
    const std::string wanted = lower(application);
    xcb_connection_t* c = connection_.get();
    const auto matches = [&](xcb_window_t window) {
        const std::string wmClass =
            bytesOf(property(c, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING));
        std::size_t start = 0;
        while (start < wmClass.size()) {
            const auto end = std::min(wmClass.find('\0', start), wmClass.size());
            if (lower(std::string_view(wmClass).substr(start, end - start)) == wanted) {
                return true;
            }
            start = end + 1;
        }
        const std::string title = bytesOf(property(c, window, netWmName_, utf8String_));
        return !title.empty() && lower(title) == wanted;
    };

    // The window manager's list of managed windows when there is one; else the mapped
    // children of the root.
    std::vector<xcb_window_t> candidates;
    const auto clientList = property(c, connection_.root(), connection_.atom("_NET_CLIENT_LIST"),
                                     XCB_ATOM_WINDOW);
    if (clientList != nullptr && clientList->format == 32) {
        const auto* windows = static_cast<const xcb_window_t*>(xcb_get_property_value(clientList.get()));
        candidates.assign(windows, windows + xcb_get_property_value_length(clientList.get()) / 4);
    } else {
        std::unique_ptr<xcb_query_tree_reply_t, FreeDeleter> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, connection_.root()), nullptr));
        if (tree != nullptr) {
            const auto* children = xcb_query_tree_children(tree.get());
            for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
                std::unique_ptr<xcb_get_window_attributes_reply_t, FreeDeleter> attributes(
                    xcb_get_window_attributes_reply(
                        c, xcb_get_window_attributes(c, children[i]), nullptr));
                if (attributes != nullptr && attributes->map_state == XCB_MAP_STATE_VIEWABLE) {
                    candidates.push_back(children[i]);
                }
            }
        }
    }
    for (auto it = candidates.rbegin(); it != candidates.rend(); ++it) {
        if (!matches(*it)) {
            continue;
        }
        // Ask the window manager first (it raises and focuses), and set the focus directly
        // for a session without one.
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = *it;
        message.type = netActiveWindow_;
        message.data.data32[0] = 2; // from a pager or tool: honoured over focus stealing rules
        xcb_send_event(c, 0, connection_.root(),
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(c, *it, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        restoreInputFocus(*it);
        return std::nullopt;
    }
    return "No window of '" + std::string(application) + "' is open.";
}

std::optional<ActiveWindow> X11ActiveWindow::activeWindow() {
    xcb_connection_t* c = connection_.get();
    xcb_window_t window = XCB_NONE;
    if (const auto active =
            cardinalOf(property(c, connection_.root(), netActiveWindow_, XCB_ATOM_WINDOW))) {
        window = *active;
    } else {
        window = focusedTopLevel();
    }
    if (window == XCB_NONE) {
        return std::nullopt;
    }

    ActiveWindow info;
    // WM_CLASS holds two NUL-terminated strings: the instance name, then the class.
    const std::string wmClass = bytesOf(property(c, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING));
    if (const auto split = wmClass.find('\0'); split != std::string::npos) {
        std::string className = wmClass.substr(split + 1);
        if (const auto end = className.find('\0'); end != std::string::npos) {
            className = className.substr(0, end);
        }
        info.bundleIdentifier = std::move(className);
    }
    std::string netName = bytesOf(property(c, window, netWmName_, utf8String_));
    info.title =
        !netName.empty()
            ? std::move(netName)
            : latin1ToUtf8(bytesOf(property(c, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING)));
    if (const auto pid = cardinalOf(property(c, window, netWmPid_, XCB_ATOM_CARDINAL))) {
        info.pid = *pid;
    }
    if (connection_.broken()) {
        return std::nullopt;
    }
    return info;
}

} // namespace marlune
