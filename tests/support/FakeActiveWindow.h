#pragma once

#include "Marlune/ActiveWindowInfo.h"

namespace marlune::test {

// The frontmost window is whatever the test sets; queries are counted.
class FakeActiveWindow : public ActiveWindowInfo {
public:
    std::optional<ActiveWindow> activeWindow() override {
        ++queries;
        return window;
    }

    std::optional<ActiveWindow> window;
    int queries = 0;
};

} // namespace marlune::test
