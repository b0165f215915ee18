#include "Platform/X11Connection.h"

#include <cstdlib>
#include <xcb/xcb.h>

namespace marlune {

std::variant<X11Connection, X11Unavailable> X11Connection::open(std::string_view display) {
    std::string name(display);
    if (name.empty()) {
        const char* fromEnvironment = std::getenv("DISPLAY");
        if (fromEnvironment == nullptr || *fromEnvironment == '\0') {
            return X11Unavailable{
                "Keyboard and clipboard services need an X11 session, and DISPLAY is not set."};
        }
        name = fromEnvironment;
    }
    int screenNumber = 0;
    xcb_connection_t* connection = xcb_connect(name.c_str(), &screenNumber);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return X11Unavailable{"Cannot connect to the X11 display " + name + "."};
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i) {
        xcb_screen_next(&screens);
    }
    if (screens.rem == 0) {
        xcb_disconnect(connection);
        return X11Unavailable{"The X11 display " + name + " has no screen."};
    }
    return X11Connection(connection, screens.data->root);
}

X11Connection::X11Connection(xcb_connection_t* connection, std::uint32_t root)
    : connection_(connection), root_(root) {}

X11Connection::X11Connection(X11Connection&& other) noexcept
    : connection_(other.connection_), root_(other.root_) {
    other.connection_ = nullptr;
}

X11Connection& X11Connection::operator=(X11Connection&& other) noexcept {
    if (this != &other) {
        if (connection_ != nullptr) {
            xcb_disconnect(connection_);
        }
        connection_ = other.connection_;
        root_ = other.root_;
        other.connection_ = nullptr;
    }
    return *this;
}

X11Connection::~X11Connection() {
    if (connection_ != nullptr) {
        xcb_disconnect(connection_);
    }
}

int X11Connection::fileDescriptor() const {
    return xcb_get_file_descriptor(connection_);
}

bool X11Connection::broken() const {
    return xcb_connection_has_error(connection_) != 0;
}

void X11Connection::sync() const {
    std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

std::uint32_t X11Connection::atom(std::string_view name) const {
    const auto cookie =
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data());
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection_, cookie, nullptr);
    if (reply == nullptr) {
        return XCB_ATOM_NONE;
    }
    const std::uint32_t atom = reply->atom;
    std::free(reply);
    return atom;
}

} // namespace marlune
