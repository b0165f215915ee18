#pragma once

#include "Marlune/KeyboardWatcher.h"

#include <string_view>

namespace marlune::test {

// Lets a test play the user's keyboard: each push reaches the handler at once.
class FakeKeyboardWatcher : public KeyboardWatcher {
public:
    void setHandler(Handler newHandler) override { handler = std::move(newHandler); }

    void push(const KeyboardEvent& event) {
        if (handler) {
            handler(event);
        }
    }
    // One TextTyped per code point, as a user typing the text key by key would produce; the
    // keysym is the character for ASCII (as in X11) and 0 otherwise.
    void type(std::string_view text) {
        std::size_t at = 0;
        while (at < text.size()) {
            std::size_t next = at + 1;
            while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xc0) == 0x80) {
                ++next;
            }
            const auto lead = static_cast<unsigned char>(text[at]);
            push(keyboard::TextTyped{
                std::string(text.substr(at, next - at)), lead < 0x80 ? lead : 0U, {}});
            at = next;
        }
    }
    void backspace() { push(keyboard::BackspacePressed{}); }
    void click() { push(keyboard::MouseClicked{}); }

    Handler handler;
};

} // namespace marlune::test
