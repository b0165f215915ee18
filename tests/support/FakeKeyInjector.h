#pragma once

#include "Marlune/KeyInjector.h"

#include <optional>
#include <vector>

namespace marlune::test {

// Records every step instead of pressing keys. `failWith` makes the next steps fail with that
// message; `held` is what heldModifiers() answers, and each query counts down
// `releaseAfterQueries` until the modifiers let go (a user who lifts Shift a moment later).
class FakeKeyInjector : public KeyInjector {
public:
    InjectionOutcome inject(const KeyInjection& step) override {
        if (failWith) {
            return InjectionFailed{*failWith};
        }
        steps.push_back(step);
        return InjectionDone{};
    }

    KeyModifiers heldModifiers() override {
        ++modifierQueries;
        if (releaseAfterQueries > 0 && --releaseAfterQueries == 0) {
            held = {};
        }
        return held;
    }

    std::vector<KeyInjection> steps;
    std::optional<std::string> failWith;
    KeyModifiers held;
    int releaseAfterQueries = 0;
    int modifierQueries = 0;
};

} // namespace marlune::test
