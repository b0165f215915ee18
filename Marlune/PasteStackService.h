#pragma once

#include "ClipboardKit/PasteboardSnapshot.h"
#include "Marlune/HotKeys.h"
#include "Marlune/KeyChord.h"
#include "Marlune/Scheduler.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/PasteStackModel.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

class DesktopActions;

// What a paste-stack entry stands for in the library now.
struct PasteStackContent {
    std::string preview;
    std::string iconName;
    // Filled only when asked for: every flavour of a clip, or a snippet's rendered text.
    PasteboardSnapshot pasteboard;
    std::optional<std::string> text;
};

// Resolves paste-stack entries against the library, and opens the persisted queue.
struct PasteStackLibrary {
    // Nothing when the clip or snippet was deleted or is in the Trash. With `withContent`, a
    // clip's flavours are read and a snippet's body is rendered as of `now`.
    static std::optional<PasteStackContent>
    resolve(ModelContext& context, const PasteStackEntry& entry, bool withContent, Date now);

    // The queue kept in `libraryDirectory` (see PasteStackFile), with previews read from the
    // library and a write-through that replaces the file on every change. Entries whose
    // record is gone stay queued (previewed as "Deleted item") and are skipped when popped.
    static std::shared_ptr<PasteStackModel> open(const std::filesystem::path& libraryDirectory,
                                                 ModelContext& context);
};

// "Start Paste Stack": while armed, the paste shortcut (Ctrl+V) in any application pastes the
// next item of the queue instead of the clipboard; the stack disarms itself when it runs
// empty. Owns the handler of the HotKeys it is given (give it an instance of its own).
//
// While armed, Ctrl+V is grabbed. When it is pressed the grab is let go first (our own paste
// sends Ctrl+V too), the front item is pasted through the desktop's paste path once the key
// is released, and only a paste that went through takes the item off the queue; the grab
// comes back after `rearmDelay`, once that synthetic Ctrl+V has been delivered.
class PasteStackService {
public:
    using Toast = std::function<void(std::string_view message)>;

    static constexpr std::string_view addedMessage = "Added to the Paste Stack";
    static constexpr std::string_view emptyMessage = "The Paste Stack is empty.";
    static constexpr KeyChord pasteChord{{false, true, false, false}, 0x76}; // Ctrl+V
    static constexpr std::chrono::milliseconds pasteDelay{60};
    static constexpr std::chrono::milliseconds rearmDelay{500};
    // A paste refused because a key is still held or a paste is under way is tried again this
    // many times, `pasteDelay` apart, before the user is told.
    static constexpr int pasteAttempts = 15;

    PasteStackService(ModelContext& context, std::shared_ptr<PasteStackModel> model,
                      HotKeys& hotKeys, DesktopActions& desktop, Scheduler& scheduler,
                      std::function<Date()> now = dateNow);
    ~PasteStackService();
    PasteStackService(const PasteStackService&) = delete;
    PasteStackService& operator=(const PasteStackService&) = delete;

    // Shows short notices ("Added to the Paste Stack", why a paste failed).
    void setToast(Toast toast) { toast_ = std::move(toast); }

    // "Start Paste Stack". A message for the user when it cannot start: the stack is empty,
    // or another application holds the shortcut.
    std::optional<std::string> start();
    void stop();
    bool isArmed() const { return armed_; }

    // "Clear Paste Stack": empties the queue and disarms.
    void clear();

    // Queues a clip or snippet (from a clip's menu or the Board) and says so; false, with a
    // notice, when the stack is full or the record is gone.
    bool add(const PasteStackEntry& entry);

    // What the shortcut does while armed: pastes the front item (skipping, with a logged
    // warning, entries whose record was deleted) and takes it off the queue. A message for
    // the user when nothing could be pasted.
    std::optional<std::string> pasteNext();

    PasteStackModel& model() { return *model_; }

private:
    void onHotKey(HotKeyId id);
    void grab();
    void release();
    void attemptPaste(int attemptsLeft);
    void afterPaste();
    void show(std::string_view message);

    ModelContext& context_;
    std::shared_ptr<PasteStackModel> model_;
    HotKeys& hotKeys_;
    DesktopActions& desktop_;
    Scheduler& scheduler_;
    std::function<Date()> now_;
    Toast toast_;
    bool armed_ = false;
    bool pasting_ = false;
    std::optional<HotKeyId> hotKey_;
    std::optional<Scheduler::TaskID> pending_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace marlune
