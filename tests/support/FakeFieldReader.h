#pragma once

#include "Marlune/FieldReader.h"
#include "Marlune/KeyboardGrabProbe.h"

namespace marlune::test {

// The focused field is whatever the test sets; queries are counted.
class FakeFieldReader : public FieldReader {
public:
    std::optional<FocusedField> focusedField() override {
        ++queries;
        return field;
    }
    std::optional<FocusedField> field;
    int queries = 0;
};

class FakeKeyboardGrabProbe : public KeyboardGrabProbe {
public:
    bool keyboardGrabbedByAnotherClient() override { return grabbed; }
    bool grabbed = false;
};

} // namespace marlune::test
