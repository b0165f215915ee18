#include "ClipboardKit/CaptureCoalescer.h"

namespace marlune {

bool CaptureCoalescer::observe(std::int64_t changeCount, double now) {
    if (lastCaptured && *lastCaptured == changeCount) {
        pendingChangeCount.reset();
        pendingSince.reset();
        return false;
    }
    if (!pendingChangeCount || *pendingChangeCount != changeCount) {
        // Every new change restarts the wait, so a burst is captured once, in its final state.
        pendingChangeCount = changeCount;
        pendingSince = now;
        return false;
    }
    if (!pendingSince) {
        return false;
    }
    if (now - *pendingSince < settle) {
        return false;
    }
    lastCaptured = changeCount;
    pendingChangeCount.reset();
    pendingSince.reset();
    return true;
}

} // namespace marlune
