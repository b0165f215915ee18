#pragma once

namespace marlune {

// Whether another client holds the whole keyboard, as password prompts and screen lockers do.
// While it does, nothing may be expanded: what is typed is a secret, or goes nowhere visible.
class KeyboardGrabProbe {
public:
    virtual ~KeyboardGrabProbe() = default;
    virtual bool keyboardGrabbedByAnotherClient() = 0;
};

} // namespace marlune
