#pragma once

#include "Marlune/KeyboardGrabProbe.h"
#include "Platform/X11Connection.h"

#include <memory>
#include <string_view>
#include <variant>

namespace marlune {

// X has no request that tells whether someone grabbed the keyboard, so the probe tries to grab
// it and lets go at once: the server refuses with AlreadyGrabbed (or Frozen) while another
// client holds it. The grab and its release travel in one burst, so the keyboard is ours only
// between two requests; the focused window still sees a FocusOut and FocusIn of grab mode,
// which is why this is asked just before an expansion and not on every key.
class X11KeyboardGrabProbe : public KeyboardGrabProbe {
public:
    static std::variant<std::unique_ptr<X11KeyboardGrabProbe>, X11Unavailable>
    open(std::string_view display = {});

    explicit X11KeyboardGrabProbe(X11Connection connection);

    bool keyboardGrabbedByAnotherClient() override;

private:
    X11Connection connection_;
};

} // namespace marlune
