#pragma once

#include "ClipboardKit/PasteboardSnapshot.h"

#include <cstdint>
#include <functional>

namespace marlune {

// The CLIPBOARD selection as the services see it. The X11 implementation sits on Qt's
// clipboard (it speaks TARGETS, INCR and MULTIPLE); tests use a recording fake.
class ClipboardAccess {
public:
    virtual ~ClipboardAccess() = default;

    // Grows by one on every change of the clipboard's owner or contents, ours included.
    virtual std::int64_t changeCount() const = 0;
    // Every payload of every type on offer, each read bounded in size and time; types that are
    // not content (TARGETS, TIMESTAMP, MULTIPLE, SAVE_TARGETS) are left out.
    virtual PasteboardSnapshot snapshot() = 0;
    // Takes ownership of the clipboard with exactly these payloads. Callers that write the
    // user's text (expansions, restores) add the concealed markers themselves, so no history,
    // ours or another's, records it.
    virtual void write(const PasteboardSnapshot& snapshot) = 0;
    // Called (on the main thread) after every change; the capture service ticks on it.
    virtual void setChangeHandler(std::function<void()> handler) = 0;
};

} // namespace marlune
