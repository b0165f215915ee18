#include "Platform/X11KeyboardGrabProbe.h"

#include <cstdlib>
#include <xcb/xcb.h>

namespace marlune {

std::variant<std::unique_ptr<X11KeyboardGrabProbe>, X11Unavailable>
X11KeyboardGrabProbe::open(std::string_view display) {
    auto opened = X11Connection::open(display);
    if (auto* failure = std::get_if<X11Unavailable>(&opened)) {
        return std::move(*failure);
    }
    return std::make_unique<X11KeyboardGrabProbe>(std::move(std::get<X11Connection>(opened)));
}

X11KeyboardGrabProbe::X11KeyboardGrabProbe(X11Connection connection)
    : connection_(std::move(connection)) {}

bool X11KeyboardGrabProbe::keyboardGrabbedByAnotherClient() {
    xcb_connection_t* c = connection_.get();
    const auto cookie = xcb_grab_keyboard(c, 0, connection_.root(), XCB_CURRENT_TIME,
                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    // Releasing a grab we did not get is harmless, so the release need not wait for the answer.
    xcb_ungrab_keyboard(c, XCB_CURRENT_TIME);
    xcb_flush(c);
    xcb_grab_keyboard_reply_t* reply = xcb_grab_keyboard_reply(c, cookie, nullptr);
    if (reply == nullptr) {
        return false;
    }
    const bool grabbed =
        reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED || reply->status == XCB_GRAB_STATUS_FROZEN;
    std::free(reply);
    return grabbed;
}

} // namespace marlune
