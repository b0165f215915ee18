#pragma once

#include "Marlune/ClipboardAccess.h"

#include <cstdint>
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
class FakeClipboard : public ClipboardAccess {
public:
    std::int64_t changeCount() const override { return count; }

    PasteboardSnapshot snapshot() override {
        ++snapshotReads;
        return contents;
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
    void changed() {
        ++count;
        if (handler) {
            handler();
        }
    }
};

} // namespace marlune::test
