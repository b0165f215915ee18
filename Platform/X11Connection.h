#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

struct xcb_connection_t;

namespace marlune {

struct X11Unavailable {
    std::string message;
};

// One xcb connection to the X server and its default screen's root window. Each X11 backend
// keeps one of its own, so that events selected by one never reach another and a backend that
// blocks on a reply holds up nobody else.
class X11Connection {
public:
    // `display` as in DISPLAY; empty means DISPLAY itself.
    static std::variant<X11Connection, X11Unavailable> open(std::string_view display = {});

    X11Connection(X11Connection&& other) noexcept;
    X11Connection& operator=(X11Connection&& other) noexcept;
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;
    ~X11Connection();

    xcb_connection_t* get() const { return connection_; }
    std::uint32_t root() const { return root_; }
    int fileDescriptor() const;
    // The server went away or the connection broke; nothing more will come.
    bool broken() const;
    // Waits until the server has handled every request sent so far.
    void sync() const;
    std::uint32_t atom(std::string_view name) const;

private:
    X11Connection(xcb_connection_t* connection, std::uint32_t root);

    xcb_connection_t* connection_ = nullptr;
    std::uint32_t root_ = 0;
};

} // namespace marlune
