#pragma once

#include "Marlune/ActiveWindowInfo.h"
#include "Marlune/ClipboardAccess.h"
#include "Marlune/DoubleTapDetector.h"
#include "Marlune/HotKeys.h"
#include "Marlune/KeyChord.h"
#include "Marlune/KeyInjector.h"
#include "Marlune/KeyboardWatcher.h"
#include "Marlune/Scheduler.h"
#include "MarluneCore/BoardStore.h"
#include "MarluneCore/Date.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

class Settings;

// The small confirmation that follows a capture: a popup that never takes the focus.
class Toast {
public:
    virtual ~Toast() = default;
    // `symbol` names the icon ("text.cursor", "key.slash", ...).
    virtual void show(std::string_view title, std::optional<std::string_view> subtitle,
                      std::string_view symbol) = 0;
};

// Plays a sound of the freedesktop sound theme by its name ("message-new-instant").
class SoundPlayer {
public:
    virtual ~SoundPlayer() = default;
    virtual void play(std::string_view themeSoundName) = 0;
};

// The address of the page shown in the focused window, when the accessibility tree has one
// (a browser's address field or web area).
class PageAddressSource {
public:
    virtual ~PageAddressSource() = default;
    virtual std::optional<std::string> focusedPageAddress() = 0;
};

enum class BoardCaptureSound { off, pop, tink };

// Turns what is selected in the frontmost window into a Board item: posts the window's copy
// shortcut, waits (polling every 0.05 s, at most 0.7 s) for the clipboard to change, reads it
// through the clipboard's capture decision, and hands the content to the Board store, then
// says what happened in a toast. One capture at a time. Main thread only.
class BoardCaptureService {
public:
    static constexpr std::chrono::milliseconds pollInterval{50};
    static constexpr double giveUpSeconds = 0.7;
    // Before the copy shortcut is posted, the keys of the capture shortcut must come up.
    static constexpr std::chrono::milliseconds keyPoll{25};
    static constexpr std::chrono::milliseconds keyPatience{2000};

    using Uptime = std::function<double()>;
    // Lets the user pick the section (the choosing gesture); answers none when cancelled.
    using SectionChooser = std::function<void(std::vector<Pinboard> sections,
                                              std::function<void(std::optional<Uuid>)> chosen)>;

    struct Services {
        ClipboardAccess& clipboard;
        KeyInjector& injector;
        ActiveWindowInfo& activeWindow;
        Scheduler& scheduler;
        Toast& toast;
        SoundPlayer* sound = nullptr;
        PageAddressSource* pages = nullptr;
    };

    BoardCaptureService(Services services, ModelContext& context, Settings& settings,
                        std::function<Date()> clock, Uptime uptime);
    ~BoardCaptureService();
    BoardCaptureService(const BoardCaptureService&) = delete;
    BoardCaptureService& operator=(const BoardCaptureService&) = delete;

    // Starts a capture; false (and nothing happens) while one is under way.
    bool capture(bool choose = false);
    bool inFlight() const { return inFlight_; }

    // The global shortcut for a capture, and optionally one for the choosing variant. The
    // application's hot-key handler passes every press to `handleHotKey`, which answers
    // whether it was one of these.
    HotKeyRegistration registerHotKeys(HotKeys& hotKeys, const KeyChord& capture,
                                       std::optional<KeyChord> captureChoosing = std::nullopt);
    void unregisterHotKeys(HotKeys& hotKeys);
    bool handleHotKey(HotKeyId id);

    // The raw key stream, for Shift tapped twice ("board.doubleTapEnabled"; Super held while
    // tapping asks for the section). Other double taps are answered as the action, for the
    // application to carry out (the panel and drawing are its business).
    std::optional<DoubleTapDetector::Action> handleKeyEvent(const KeyboardEvent& event, Date now);

    // The window's copy shortcut: Ctrl+Shift+C in terminals (they keep Ctrl+C for
    // interrupting the program in them), Ctrl+Alt+C in rxvt-unicode, Ctrl+C elsewhere; none
    // for xterm, whose selection is read from PRIMARY instead.
    static std::optional<KeyChord> copyShortcut(std::string_view windowClass);
    // The section a capture from `bundleID` lands in: the one remembered for it when
    // "board.sectionMemoryEnabled" is on, else the active section.
    static Pinboard pickSectionForClip(BoardStore& store, const Settings& settings,
                                       std::string_view bundleID, Date now);
    // Keeps `section` as the one for `bundleID` in "board.sectionMemory".
    static void rememberSection(Settings& settings, std::string_view bundleID, const Uuid& section);
    // The freedesktop theme sound for the setting, none for "off".
    static std::optional<std::string_view> themeSound(BoardCaptureSound sound);
    static BoardCaptureSound captureSound(const Settings& settings);

    // Whether synthetic key presses can reach other windows (an X11 session). Unset: yes.
    std::function<bool()> canPostKeys;
    SectionChooser chooseSection;
    // After a capture has read the clipboard: the history's own capture service is told to
    // leave this change alone (the store records it already).
    std::function<void()> clipboardConsumed;
    // After a capture has stored an item (reminders and views follow the Board).
    std::function<void(const BoardStore::AddResult&)> captured;
    // Pulses the tray icon ("board.menuBarPulse").
    std::function<void()> pulse;

private:
    void postCopyWhenKeysAreUp();
    void poll();
    void contentArrived(const PasteboardSnapshot& snapshot);
    void store(const NewClip& content, const Pinboard& section, const BoardStore::Source& source);
    void finish();
    BoardStore makeStore();

    Services services_;
    ModelContext& context_;
    Settings& settings_;
    std::function<Date()> clock_;
    Uptime uptime_;
    DoubleTapDetector doubleTap_;

    bool inFlight_ = false;
    std::chrono::milliseconds keysWaited_{0};
    std::optional<Scheduler::TaskID> keyTask_;
    bool choosing_ = false;
    std::int64_t startCount_ = 0;
    double startUptime_ = 0;
    std::optional<ActiveWindow> source_;
    std::optional<Scheduler::TaskID> pollTask_;
    std::optional<HotKeyId> captureKey_;
    std::optional<HotKeyId> choosingKey_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace marlune
