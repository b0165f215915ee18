#include "Marlune/DoubleTapDetector.h"
#include "support/LibraryFixture.h"

#include <gtest/gtest.h>
#include <vector>

namespace marlune::test {
namespace {

using Action = DoubleTapDetector::Action;

// One event at a time in milliseconds from the start.
struct Timed {
    std::int64_t ms;
    KeyboardEvent event;
};

keyboard::ModifierChanged down(ModifierKey key) {
    return {key, true};
}
keyboard::ModifierChanged up(ModifierKey key) {
    return {key, false};
}

constexpr auto LS = ModifierKey::leftShift;
constexpr auto RS = ModifierKey::rightShift;

struct TapCase {
    const char* name;
    std::vector<Timed> events;
    std::vector<Action> detected;
};

std::vector<Timed> shiftTwice(std::int64_t start, std::int64_t hold, std::int64_t gap,
                              ModifierKey key = LS, ModifierKey second = LS) {
    return {{start, down(key)},
            {start + hold, up(key)},
            {start + hold + gap, down(second)},
            {start + hold + gap + hold, up(second)}};
}

std::vector<Timed> joined(std::vector<std::vector<Timed>> parts) {
    std::vector<Timed> all;
    for (auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

TEST(DoubleTapDetector, DetectsOnlyQuickCleanDoubleTaps) {
    const std::vector<TapCase> cases{
        {"quick double shift", shiftTwice(0, 80, 150), {Action::capture}},
        {"gap at the window", shiftTwice(0, 80, 300), {Action::capture}},
        {"gap past the window", shiftTwice(0, 80, 301), {}},
        {"held too long", shiftTwice(0, 251, 100), {}},
        {"left then right", shiftTwice(0, 80, 100, LS, RS), {}},
        {"right shift", shiftTwice(0, 80, 100, RS, RS), {Action::capture}},
        {"control twice",
         shiftTwice(0, 80, 100, ModifierKey::leftControl, ModifierKey::leftControl),
         {Action::toggle}},
        {"alt twice",
         shiftTwice(0, 80, 100, ModifierKey::rightAlt, ModifierKey::rightAlt),
         {Action::draw}},
        {"with super held",
         joined({{{0, down(ModifierKey::leftSuper)}}, shiftTwice(10, 80, 100)}),
         {Action::captureChoosing}},
        {"a letter between the taps",
         joined({{{0, down(LS)}, {80, up(LS)}, {120, keyboard::TextTyped{"A", 0x41, {}}}},
                 {{200, down(LS)}, {260, up(LS)}}}),
         {}},
        {"right after typing the tighter limits apply",
         joined({{{0, keyboard::TextTyped{"a", 0x61, {}}}}, shiftTwice(100, 80, 200)}),
         {}},
        {"right after typing a crisp double tap still counts",
         joined({{{0, keyboard::TextTyped{"a", 0x61, {}}}}, shiftTwice(100, 60, 150)}),
         {Action::capture}},
        {"third tap inside the refractory time",
         joined({shiftTwice(0, 50, 100), shiftTwice(250, 20, 20)}),
         {Action::capture}},
        {"a new pair after the refractory time",
         joined({shiftTwice(0, 50, 100), shiftTwice(600, 50, 100)}),
         {Action::capture, Action::capture}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DoubleTapDetector detector;
        std::vector<Action> seen;
        for (const auto& [ms, event] : c.events) {
            if (auto action = detector.handle(event, testNow() + std::chrono::milliseconds(ms))) {
                seen.push_back(*action);
            }
        }
        EXPECT_EQ(seen, c.detected);
    }
}

TEST(DoubleTapDetector, ConfigDefaults) {
    const DoubleTapDetector::Config config;
    EXPECT_EQ(config.holdLimit, 0.25);
    EXPECT_EQ(config.window, 0.3);
    EXPECT_EQ(config.hiddenHoldLimit, 0.15);
    EXPECT_EQ(config.hiddenWindow, 0.18);
    EXPECT_EQ(config.refractory, 0.3);
}

} // namespace
} // namespace marlune::test
