#pragma once

#include <cstdint>
#include <optional>

namespace marlune {

// Waits for the clipboard to settle before a change is captured: applications often write
// the clipboard several times in a row (clear, then text, then rich text), and only the
// final state belongs in the history. The caller polls with the change counter and a
// monotonic time in seconds.
struct CaptureCoalescer {
    double settle = 0.25;
    std::optional<std::int64_t> pendingChangeCount;
    std::optional<double> pendingSince;
    std::optional<std::int64_t> lastCaptured;

    CaptureCoalescer() = default;
    explicit CaptureCoalescer(double settleSeconds) : settle(settleSeconds) {}

    // True exactly once per change that has stayed put for `settle` seconds.
    bool observe(std::int64_t changeCount, double now);
};

} // namespace marlune
