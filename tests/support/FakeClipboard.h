#pragma once

#include "Marlune/ClipboardAccess.h"
#include "Marlune/Scheduler.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace marlune::test {

// The clipboard as a value the test controls. `write` records what was written and becomes the
// contents; `setContents` plays another application copying. Both move `changeCount` on and call
// the change handler, as the real clipboard does for our writes too. `snapshotReads` counts the
// reads, so a test can tell whether the service looked; `simulatePull` plays the target window
// reading the clipboard to carry out a paste.
//
// Capture reads answer with the contents through `deliverOn` (at once, like a quick owner), or
// straight away when it is not set. With `holdReads` they wait in `heldReads` for the test to
// finish them, like the read of a slow or hung owner. `owner` is who holds the clipboard.
class FakeClipboard : public ClipboardAccess {
public:
    using Done = std::function<void(ClipboardCaptureRead)>;

    std::int64_t changeCount() const override { return count; }

    PasteboardSnapshot snapshot() override {
        ++snapshotReads;
        return contents;
    }

    void readForCapture(std::vector<std::uint64_t> skipOwners, Done done) override {
        ++captureRequests;
        lastSkipOwners = skipOwners;
        if (std::find(skipOwners.begin(), skipOwners.end(), owner) != skipOwners.end()) {
            deliver(std::move(done), {ClipboardCaptureRead::Outcome::skipped, {}, owner, {}});
        } else if (holdReads) {
            heldReads.push_back(std::move(done));
        } else {
            deliver(std::move(done), readNow());
        }
    }

    // Ends the oldest held read: with what is on the clipboard now, or as `outcome` says.
    void finishRead(ClipboardCaptureRead::Outcome outcome = ClipboardCaptureRead::Outcome::read) {
        Done done = std::move(heldReads.front());
        heldReads.pop_front();
        if (outcome == ClipboardCaptureRead::Outcome::read) {
            done(readNow());
        } else {
            done({outcome, {}, owner, {}});
        }
    }

    ClipboardSave saveWhole() override {
        ++wholeSaves;
        if (saveFailure) {
            return ClipboardSaveFailed{*saveFailure};
        }
        return contents;
    }

    std::optional<std::string> selectionText() override { return selection; }

    void write(const PasteboardSnapshot& snapshot) override {
        writes.push_back(snapshot);
        contents = snapshot;
        ours = true;
        changed();
    }

    bool holdsOurLastWrite() const override { return ours; }

    void setChangeHandler(std::function<void()> newHandler) override {
        handler = std::move(newHandler);
    }

    // Another application took the clipboard with these contents.
    void setContents(PasteboardSnapshot snapshot) {
        contents = std::move(snapshot);
        ours = false;
        changed();
    }
    void setText(std::string_view text, std::string_view type = "text/plain;charset=utf-8") {
        PasteboardSnapshot snapshot;
        snapshot.items.push_back(
            {{{std::string(type), std::vector<std::uint8_t>(text.begin(), text.end())}}});
        snapshot.totalBytes = static_cast<std::int64_t>(text.size());
        setContents(std::move(snapshot));
    }

    // The paste target read what is on the clipboard (its contents do not change).
    void simulatePull() {
        ++pulls;
        if (pullHandler) {
            pullHandler();
        }
    }

    // The first text payload on the clipboard, or empty.
    std::string text() const {
        for (const auto& item : contents.items) {
            for (const auto& payload : item.payloads) {
                if (payload.type.rfind("text/plain", 0) == 0 || payload.type == "UTF8_STRING") {
                    return std::string(payload.data.begin(), payload.data.end());
                }
            }
        }
        return {};
    }

    PasteboardSnapshot contents;
    std::uint64_t owner = 1;
    // Set on a read's result, as the reader reports payloads too large to keep.
    std::vector<ClipboardCaptureRead::Oversize> leftOut;
    Scheduler* deliverOn = nullptr;
    bool holdReads = false;
    std::deque<Done> heldReads;
    int captureRequests = 0;
    std::vector<std::uint64_t> lastSkipOwners;
    std::vector<PasteboardSnapshot> writes;
    std::int64_t count = 0;
    bool ours = false;
    int snapshotReads = 0;
    int wholeSaves = 0;
    // Set to make `saveWhole` fail with this message.
    std::optional<std::string> saveFailure;
    // The PRIMARY selection's text.
    std::optional<std::string> selection;
    int pulls = 0;
    std::function<void()> handler;
    // Whoever wants to know of pulls (the service, through its wiring) sets this.
    std::function<void()> pullHandler;

private:
    ClipboardCaptureRead readNow() {
        ++snapshotReads;
        return {ClipboardCaptureRead::Outcome::read, contents, owner, leftOut};
    }
    void deliver(Done done, ClipboardCaptureRead read) {
        if (deliverOn == nullptr) {
            done(std::move(read));
            return;
        }
        deliverOn->after(std::chrono::milliseconds(0),
                         [done = std::move(done), read = std::move(read)] { done(read); });
    }

    void changed() {
        ++count;
        if (handler) {
            handler();
        }
    }
};

} // namespace marlune::test
