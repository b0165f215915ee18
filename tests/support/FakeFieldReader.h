#pragma once

#include "Marlune/FieldReader.h"
#include "Marlune/KeyboardGrabProbe.h"

#include <deque>

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

class FakeKeyboardGrabProbe : public KeyboardGrabProbe {
public:
    bool keyboardGrabbedByAnotherClient() override { return grabbed; }
    bool grabbed = false;
};

} // namespace marlune::test
