#include "ClipboardKit/CaptureCoalescer.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace marlune {
namespace {

struct Poll {
    std::int64_t changeCount;
    double now;
    bool captured;
};

struct CoalescerCase {
    const char* name;
    std::vector<Poll> polls;
};

// Each row is a sequence of polls as the capture service makes them every 0.4 s or faster,
// with settle = 0.25 s.
TEST(CaptureCoalescerTest, CapturesEachSettledChangeExactlyOnce) {
    const std::vector<CoalescerCase> cases = {
        {"one change is captured once after settling, never again",
         {{1, 0.0, false}, {1, 0.1, false}, {1, 0.3, true}, {1, 0.7, false}, {1, 5.0, false}}},
        {"a poll exactly at the settle time captures", {{1, 10.0, false}, {1, 10.25, true}}},
        {"a burst restarts the wait and captures only the final state",
         {{1, 0.0, false}, {2, 0.2, false}, {3, 0.4, false}, {3, 0.6, false}, {3, 0.65, true}}},
        {"a change during the wait restarts it",
         {{5, 0.0, false}, {6, 0.24, false}, {6, 0.3, false}, {6, 0.49, true}}},
        {"a new change after a capture is captured in its turn",
         {{1, 0.0, false}, {1, 0.4, true}, {2, 0.8, false}, {2, 1.2, true}, {2, 1.6, false}}},
        {"going back to the captured count clears what was pending",
         {{1, 0.0, false},
          {1, 0.4, true},
          {2, 0.5, false},
          {1, 0.6, false},
          {1, 2.0, false},
          {2, 2.1, false},
          {2, 2.2, false},
          {2, 2.4, true}}},
        {"a counter that restarts (new clipboard owner) is still captured",
         {{40, 0.0, false}, {40, 0.4, true}, {0, 0.8, false}, {0, 1.2, true}}},
    };
    for (const auto& c : cases) {
        CaptureCoalescer coalescer(0.25);
        for (std::size_t i = 0; i < c.polls.size(); ++i) {
            const auto& poll = c.polls[i];
            EXPECT_EQ(coalescer.observe(poll.changeCount, poll.now), poll.captured)
                << c.name << ", poll " << i;
        }
    }
}

TEST(CaptureCoalescerTest, PendingWithoutStartTimeNeverCaptures) {
    CaptureCoalescer coalescer(0.25);
    coalescer.pendingChangeCount = 3; // e.g. restored from an older state
    EXPECT_FALSE(coalescer.observe(3, 100.0));
    EXPECT_FALSE(coalescer.lastCaptured.has_value());
}

} // namespace
} // namespace marlune
