#pragma once

#include "ClipboardKit/PasteboardSnapshot.h"
#include "Marlune/ClipboardAccess.h"
#include "Marlune/Scheduler.h"

#include <chrono>
#include <optional>
#include <string>

namespace marlune {

// The user's clipboard around a paste of ours: saved whole before anything is deleted, our
// content written with the concealment markers, and the user's put back once the target has
// read ours. A second paste before the restore keeps the first one's saved clipboard, since
// what is on the clipboard then is our own text. Main thread only.
class PasteClipboard {
public:
    // The user's clipboard goes back this long after the target has read our content, or
    // after the timeout when the target never says it read it.
    static constexpr std::chrono::milliseconds kRestoreAfterPull{100};
    static constexpr std::chrono::milliseconds kRestoreTimeout{1000};

    PasteClipboard(ClipboardAccess& clipboard, Scheduler& scheduler);
    PasteClipboard(const PasteClipboard&) = delete;
    PasteClipboard& operator=(const PasteClipboard&) = delete;
    ~PasteClipboard();

    // Saves the user's clipboard, unless a restore is still pending (then the one saved for
    // it stands). False, with a line in the log, when it cannot be saved whole: the caller
    // must not paste over it.
    bool save();
    // Puts `content` on the clipboard, marked so that no history records it.
    void write(PasteboardSnapshot content);
    // The paste shortcut went out: the restore follows the target's read, or the timeout.
    void pasteSent();
    // Another client read our content. The first read after the shortcut is the paste; later
    // ones (a clipboard manager, another paste) do not put the restore off again.
    void pulled();
    // Nothing was pasted after all: the user's clipboard goes back now.
    void pasteAbandoned();

    // The text of the user's clipboard while it is saved aside; nothing when not saved.
    std::optional<std::optional<std::string>> savedText() const;

    // Both markers, so that neither our own history nor another's records what we put there.
    static PasteboardSnapshot concealed(PasteboardSnapshot snapshot);
    static std::optional<std::string> firstText(const PasteboardSnapshot& snapshot);

private:
    void scheduleRestore(std::chrono::milliseconds delay);
    void cancelRestore();
    void restore();

    ClipboardAccess& clipboard_;
    Scheduler& scheduler_;
    std::optional<PasteboardSnapshot> saved_;
    bool wroteOurs_ = false;
    bool pasteSent_ = false;
    bool restoreAfterPull_ = false;
    std::optional<Scheduler::TaskID> restoreTask_;
};

} // namespace marlune
