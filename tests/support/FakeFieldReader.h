#pragma once

#include "Marlune/FieldReader.h"
#include "Marlune/KeyboardGrabProbe.h"

#include <deque>
#include <functional>

namespace marlune::test {

// The focused field is whatever the test sets, after the answers queued in `next`, one per
// query; queries are counted.
class FakeFieldReader : public FieldReader {
public:
    std::optional<FocusedField> focusedField() override {
        ++queries;
        if (!next.empty()) {
            auto answer = std::move(next.front());
            next.pop_front();
            return answer;
        }
        return field;
    }
    std::deque<std::optional<FocusedField>> next;
    std::optional<FocusedField> field;
    int queries = 0;
};

// `alsoGrabbed` plays a grab of our own that the probe, on a connection of its own, cannot
// tell from another client's (the injector holding the user's keys).
class FakeKeyboardGrabProbe : public KeyboardGrabProbe {
public:
    bool keyboardGrabbedByAnotherClient() override {
        return grabbed || (alsoGrabbed && alsoGrabbed());
    }
    bool grabbed = false;
    std::function<bool()> alsoGrabbed;
};

} // namespace marlune::test
