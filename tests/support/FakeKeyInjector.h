#pragma once

#include "Marlune/KeyInjector.h"

#include <functional>
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
        if (failIf && failIf(step)) {
            return InjectionFailed{"The key press was refused."};
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

    bool holdKeys() override {
        ++holds;
        if (refuseHold) {
            return false;
        }
        holding = true;
        return true;
    }

    std::size_t releaseKeys() override {
        ++releases;
        holding = false;
        // Where in the record of steps the held keys went on.
        releasedAt.push_back(steps.size());
        return 0;
    }

    void sendOnHeldKeys(std::size_t keyPresses) override {
        partialReleases.push_back({steps.size(), keyPresses});
    }

    std::vector<KeyInjection> steps;
    // Where in the record of steps held keys went on before the end of a hold, and how many.
    std::vector<std::pair<std::size_t, std::size_t>> partialReleases;
    // Fails just the steps it picks.
    std::function<bool(const KeyInjection&)> failIf;
    bool refuseHold = false;
    bool holding = false;
    int holds = 0;
    int releases = 0;
    std::vector<std::size_t> releasedAt;
    std::optional<std::string> failWith;
    KeyModifiers held;
    int releaseAfterQueries = 0;
    int modifierQueries = 0;
};

} // namespace marlune::test
