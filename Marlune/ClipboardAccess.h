#pragma once

#include "ClipboardKit/PasteboardSnapshot.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace marlune {

// Why the user's clipboard could not be kept whole before a paste of ours.
struct ClipboardSaveFailed {
    std::string message;
    friend bool operator==(const ClipboardSaveFailed&, const ClipboardSaveFailed&) = default;
};
using ClipboardSave = std::variant<PasteboardSnapshot, ClipboardSaveFailed>;

// What one read of the clipboard for the history brought back.
struct ClipboardCaptureRead {
    enum class Outcome {
        read,     // `snapshot` is what was on offer (empty when nothing was)
        timedOut, // the owner did not hand everything over within the budget: nothing is kept
        skipped,  // the owner is one the caller asked not to read
        changed,  // the clipboard changed hands during the read: nothing is kept
        failed,   // the display could not be reached
    };
    // A payload left out for its size, which is at least `size` bytes.
    struct Oversize {
        std::string type;
        std::uint64_t size = 0;
        std::uint64_t limit = 0;
        friend bool operator==(const Oversize&, const Oversize&) = default;
    };

    Outcome outcome = Outcome::read;
    PasteboardSnapshot snapshot;
    // Who held the clipboard (an X window), 0 for nobody: what a caller backs off from.
    std::uint64_t owner = 0;
    std::vector<Oversize> leftOut;
};

// The CLIPBOARD selection as the services see it. The X11 implementation sits on Qt's
// clipboard (it speaks TARGETS, INCR and MULTIPLE); tests use a recording fake.
class ClipboardAccess {
public:
    virtual ~ClipboardAccess() = default;

    // Grows by one on every change of the clipboard's owner or contents, ours included.
    virtual std::int64_t changeCount() const = 0;
    // Every payload of every type on offer, each read bounded in size and time; types that are
    // not content (TARGETS, TIMESTAMP, MULTIPLE, SAVE_TARGETS) are left out. It waits for the
    // owner on the calling thread, so only callers that need the answer at once use it.
    virtual PasteboardSnapshot snapshot() = 0;
    // The read for the history, made away from the main thread so that an owner that is slow
    // or never answers holds up nothing else: all types together get `captureReadBudget`,
    // and `done` runs later on the main thread, once. Owners in `skipOwners` are not asked
    // (the outcome is `skipped`). A read asked for while one is still waiting to start takes
    // its place; the one replaced ends as `failed`.
    static constexpr std::chrono::milliseconds captureReadBudget{2000};
    virtual void readForCapture(std::vector<std::uint64_t> skipOwners,
                                std::function<void(ClipboardCaptureRead)> done) = 0;
    // Takes ownership of the clipboard with exactly these payloads; a text payload is offered
    // under every target text clients ask for (UTF8_STRING, STRING, TEXT, text/plain,
    // text/plain;charset=utf-8) that the snapshot does not name itself. An empty snapshot
    // leaves the clipboard empty. Callers that write the
    // user's text (expansions, restores) add the concealed markers themselves, so no history,
    // ours or another's, records it.
    virtual void write(const PasteboardSnapshot& snapshot) = 0;
    // Whether the clipboard still holds what `write` put there last: nobody has copied since.
    virtual bool holdsOurLastWrite() const = 0;
    // The whole clipboard as its owner offers it, to be put back after a paste of ours: every
    // target of any type (protocol targets aside), byte for byte, up to `kWholeSaveLimit` in
    // all. An empty clipboard (no owner, or no targets) gives an empty snapshot, which
    // `write` puts back as an empty clipboard.
    static constexpr std::size_t kWholeSaveLimit = std::size_t{64} << 20;
    virtual ClipboardSave saveWhole() = 0;
    // The text of the PRIMARY selection (what is selected in the frontmost window), read with
    // the bounds of a clipboard text read; nothing when no text is selected.
    virtual std::optional<std::string> selectionText() = 0;
    // Called (on the main thread) after every change; the capture service ticks on it.
    virtual void setChangeHandler(std::function<void()> handler) = 0;
};

} // namespace marlune
