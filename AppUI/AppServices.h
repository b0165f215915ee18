#pragma once

#include "AppUI/DesktopNotifier.h"
#include "AppUI/FillInController.h"
#include "AppUI/QtClipboardAccess.h"
#include "AppUI/QtScheduler.h"
#include "AppUI/ToastPopup.h"
#include "AppUI/TrayIcon.h"
#include "Marlune/BoardCaptureService.h"
#include "Marlune/BoardReminders.h"
#include "Marlune/ClipboardCaptureService.h"
#include "Marlune/DesktopActions.h"
#include "Marlune/ExpansionService.h"
#include "Marlune/PasteStackService.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Settings.h"

#include <QPointer>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QSocketNotifier;

namespace marlune {

class AtspiFieldReader;
class InjectionLedger;
class X11ActiveWindow;
class X11HotKeys;
class X11KeyboardGrabProbe;
class X11KeyboardWatcher;
class XTestKeyInjector;
class HotKeys;

// The desktop half of the application in GUI mode: the X11 backends, the clipboard, the
// fill-in form and notices, and the services built on them (text expansion, clipboard
// capture), for the life of the process. Each part starts on its own, so a session without
// XTest still captures the clipboard; `start` says what works.
class AppServices final : public DesktopActions {
public:
    AppServices(ModelContext& context, Settings& settings, std::function<Date()> clock = dateNow);
    ~AppServices() override;
    AppServices(const AppServices&) = delete;
    AppServices& operator=(const AppServices&) = delete;

    // The shortcut that captures the selection to the Board.
    static constexpr KeyChord kBoardCaptureChord{{false, true, true, false}, 0x62}; // Ctrl+Alt+B

    // Opens the backends and starts the services; returns one line per facility saying
    // whether it works (and why not), for the log. `pasteStack` is the queue the command line
    // shares.
    std::vector<std::string> start(std::shared_ptr<PasteStackModel> pasteStack);

    // Null when the facility could not start.
    ExpansionService* expansion() { return expansion_.get(); }
    ClipboardCaptureService* capture() { return capture_.get(); }
    BoardCaptureService* boardCapture() { return boardCapture_.get(); }
    BoardReminders* reminders() { return reminders_.get(); }
    PasteStackService* pasteStack() { return pasteStack_.get(); }
    HotKeys* hotKeys();
    ClipboardAccess& clipboard() { return clipboard_; }
    Scheduler& scheduler() { return scheduler_; }
    DesktopNotifier& notifier() { return notifier_; }
    FillInController& fillIn() { return fillIn_; }

    // The tray's pause toggles for the services that run; the tray built from them is the
    // one a Board capture pulses.
    TrayIcon::Toggles trayToggles();

    // The library or the settings changed (a command, an import): keywords and settings are
    // read again, and the Board's reminders follow its items.
    void libraryChanged();

    // Called with the keystrokes saved by each expansion, to keep the statistics.
    std::function<void(std::int64_t keystrokesSaved)> onExpansion;

    void copyToClipboard(const PasteboardSnapshot& content) override;
    std::optional<std::string> paste(const PasteboardSnapshot& content) override;
    std::optional<std::string> activate(std::string_view application) override;

private:
    void watch(int fileDescriptor, std::function<void()> onReadable);
    // Connects to the accessibility bus, turning it on for every application once
    // `smartFieldDetection` is on; without it, only when the session's accessibility is on.
    void followSmartFieldDetection();

    // What the expansion service and the Board capture ask; answers from the accessibility
    // bus once connected.
    class AccessibilitySlot : public FieldReader, public PageAddressSource {
    public:
        std::optional<FocusedField> focusedField() override;
        std::optional<std::string> focusedPageAddress() override;
        AtspiFieldReader* reader = nullptr;
        ActiveWindowInfo* windows = nullptr;
    };

    ModelContext& context_;
    Settings& settings_;
    std::function<Date()> clock_;
    QtScheduler scheduler_;
    QtClipboardAccess clipboard_;
    DesktopNotifier notifier_;
    std::shared_ptr<InjectionLedger> ledger_;
    std::unique_ptr<X11ActiveWindow> windows_;
    std::unique_ptr<X11KeyboardWatcher> watcher_;
    std::unique_ptr<XTestKeyInjector> injector_;
    std::unique_ptr<X11HotKeys> hotKeys_;
    std::unique_ptr<X11KeyboardGrabProbe> grabProbe_;
    std::unique_ptr<ActiveWindowInfo> noWindows_;
    FillInController fillIn_;
    std::unique_ptr<AtspiFieldReader> atspi_;
    AccessibilitySlot accessibility_;
    bool accessibilityTurnedOn_ = false;
    bool accessibilityProbed_ = false;
    std::unique_ptr<ExpansionService> expansion_;
    std::unique_ptr<ClipboardCaptureService> capture_;
    ToastPopup toast_;
    ThemeSoundPlayer sound_;
    std::unique_ptr<BoardCaptureService> boardCapture_;
    QPointer<TrayIcon> tray_;
    std::unique_ptr<ScheduledReminderCenter> reminderCenter_;
    std::unique_ptr<BoardReminders> reminders_;
    // The paste stack owns the handler of a hot-key connection of its own.
    std::unique_ptr<X11HotKeys> stackHotKeys_;
    std::unique_ptr<PasteStackService> pasteStack_;
    // Hands the raw key stream to expansion and to the Board's double tap alike.
    class KeyStreamTee : public KeyboardWatcher {
    public:
        void setHandler(Handler handler) override { handler_ = std::move(handler); }
        void deliver(const KeyboardEvent& event) const {
            if (handler_) {
                handler_(event);
            }
        }

    private:
        Handler handler_;
    };
    KeyStreamTee keyStream_;
    std::vector<std::unique_ptr<QSocketNotifier>> notifiers_;
    ExpansionStats lastStats_;
};

} // namespace marlune
