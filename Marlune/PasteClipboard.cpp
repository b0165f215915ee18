#include "Marlune/PasteClipboard.h"

#include "MarluneCore/Log.h"

#include <utility>
#include <variant>

namespace marlune {

namespace {

constexpr std::string_view kKDEHint = "x-kde-passwordManagerHint";
constexpr std::string_view kConcealedType = "org.nspasteboard.ConcealedType";

} // namespace

PasteClipboard::PasteClipboard(ClipboardAccess& clipboard, Scheduler& scheduler)
    : clipboard_(clipboard), scheduler_(scheduler) {}

PasteClipboard::~PasteClipboard() {
    cancelRestore();
}

PasteboardSnapshot PasteClipboard::concealed(PasteboardSnapshot snapshot) {
    if (snapshot.items.empty()) {
        snapshot.items.emplace_back();
    }
    auto& payloads = snapshot.items.front().payloads;
    const auto has = [&](std::string_view type) {
        for (const auto& p : payloads) {
            if (p.type == type) {
                return true;
            }
        }
        return false;
    };
    if (!has(kKDEHint)) {
        payloads.push_back(PasteboardSnapshot::Payload::fromText(std::string(kKDEHint), "secret"));
    }
    if (!has(kConcealedType)) {
        payloads.push_back({std::string(kConcealedType), {}});
    }
    snapshot.totalBytes = PasteboardSnapshot::sumOfPayloadSizes(snapshot.items);
    return snapshot;
}

std::optional<std::string> PasteClipboard::firstText(const PasteboardSnapshot& snapshot) {
    for (const auto& item : snapshot.items) {
        for (const auto& p : item.payloads) {
            if (p.type.rfind("text/plain", 0) == 0 || p.type == "UTF8_STRING") {
                return std::string(p.data.begin(), p.data.end());
            }
        }
    }
    return std::nullopt;
}

bool PasteClipboard::save() {
    if (saved_) {
        // It goes back after this paste instead, or at once should this one be given up.
        cancelRestore();
        pasteSent_ = false;
        return true;
    }
    auto saved = clipboard_.saveWhole();
    if (const auto* failed = std::get_if<ClipboardSaveFailed>(&saved)) {
        logs::app.warning("Did not paste, so as not to lose the clipboard: " + failed->message);
        return false;
    }
    saved_ = std::move(std::get<PasteboardSnapshot>(saved));
    // Nothing of ours is on the clipboard yet: a paste given up now has nothing to put back.
    wroteOurs_ = false;
    pasteSent_ = false;
    return true;
}

void PasteClipboard::write(PasteboardSnapshot content) {
    cancelRestore();
    clipboard_.write(concealed(std::move(content)));
    wroteOurs_ = true;
    pasteSent_ = false;
}

void PasteClipboard::pasteSent() {
    if (!saved_) {
        return;
    }
    pasteSent_ = true;
    restoreAfterPull_ = false;
    scheduleRestore(kRestoreTimeout);
}

void PasteClipboard::pulled() {
    if (saved_ && pasteSent_ && !restoreAfterPull_) {
        restoreAfterPull_ = true;
        scheduleRestore(kRestoreAfterPull);
    }
}

void PasteClipboard::pasteAbandoned() {
    // Once the shortcut went out the target may still be reading: the restore stays timed.
    if (saved_ && !pasteSent_) {
        restore();
    }
}

std::optional<std::optional<std::string>> PasteClipboard::savedText() const {
    if (!saved_) {
        return std::nullopt;
    }
    return firstText(*saved_);
}

void PasteClipboard::scheduleRestore(std::chrono::milliseconds delay) {
    cancelRestore();
    restoreTask_ = scheduler_.after(delay, [this] {
        restoreTask_.reset();
        restore();
    });
}

void PasteClipboard::cancelRestore() {
    if (restoreTask_) {
        scheduler_.cancel(*restoreTask_);
        restoreTask_.reset();
    }
}

void PasteClipboard::restore() {
    cancelRestore();
    if (!saved_) {
        return;
    }
    PasteboardSnapshot saved = std::move(*saved_);
    saved_.reset();
    pasteSent_ = false;
    // Someone copied after our write: their copy is what the user wants on the clipboard now.
    if (!wroteOurs_ || !clipboard_.holdsOurLastWrite()) {
        return;
    }
    clipboard_.write(saved.empty() ? PasteboardSnapshot{} : concealed(std::move(saved)));
}

} // namespace marlune
