#include "AppUI/AppServices.h"

#include "AppUI/AtspiFieldReader.h"
#include "MarluneCore/Log.h"
#include "Platform/InjectionLedger.h"
#include "Platform/PasteShortcut.h"
#include "Platform/X11ActiveWindow.h"
#include "Platform/X11HotKeys.h"
#include "Platform/X11KeyboardGrabProbe.h"
#include "Platform/X11KeyboardWatcher.h"
#include "Platform/XTestKeyInjector.h"

#include <QSocketNotifier>

#include <utility>

namespace marlune {

namespace {

// Stands in for the active window where the display gives no way to ask.
class NoActiveWindow : public ActiveWindowInfo {
public:
    std::optional<ActiveWindow> activeWindow() override { return std::nullopt; }
};

// Both markers, so that neither our own history nor another's records it again.
PasteboardSnapshot markedAsOurs(PasteboardSnapshot snapshot) {
    if (snapshot.items.empty()) {
        snapshot.items.emplace_back();
    }
    auto& payloads = snapshot.items.front().payloads;
    payloads.push_back(PasteboardSnapshot::Payload::fromText("x-kde-passwordManagerHint", "secret"));
    payloads.push_back({"org.nspasteboard.ConcealedType", {}});
    return PasteboardSnapshot::fromItems(std::move(snapshot.items));
}

template <class Backend>
std::unique_ptr<Backend> opened(std::variant<std::unique_ptr<Backend>, X11Unavailable> result,
                                std::string& why) {
    if (auto* failure = std::get_if<X11Unavailable>(&result)) {
        why = failure->message;
        return nullptr;
    }
    return std::move(std::get<std::unique_ptr<Backend>>(result));
}

std::map<std::string, std::string, std::less<>> pasteOverrides(const Settings& settings) {
    std::map<std::string, std::string, std::less<>> overrides;
    const auto json = settings.dictionary("pasteShortcutOverrides");
    if (json.is_object()) {
        for (const auto& [key, value] : json.items()) {
            if (value.is_string()) {
                overrides.emplace(key, value.get<std::string>());
            }
        }
    }
    return overrides;
}

} // namespace

AppServices::AppServices(ModelContext& context, Settings& settings, std::function<Date()> clock)
    : context_(context), settings_(settings), clock_(std::move(clock)),
      ledger_(std::make_shared<InjectionLedger>()),
      fillIn_(FillInController::FocusKeeper{
          [this]() -> std::uint32_t { return windows_ ? windows_->inputFocus() : 0; },
          [this](std::uint32_t window) {
              if (windows_) {
                  windows_->restoreInputFocus(window);
              }
          }}) {}

AppServices::~AppServices() {
    notifiers_.clear();
    pasteStack_.reset();
    boardCapture_.reset();
    capture_.reset();
    expansion_.reset();
}

void AppServices::watch(int fileDescriptor, std::function<void()> onReadable) {
    auto notifier = std::make_unique<QSocketNotifier>(fileDescriptor, QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                     [onReadable = std::move(onReadable)] { onReadable(); });
    notifiers_.push_back(std::move(notifier));
}

std::vector<std::string> AppServices::start(std::shared_ptr<PasteStackModel> pasteStack) {
    std::vector<std::string> report;
    std::string why;

    windows_ = opened(X11ActiveWindow::open(), why);
    report.push_back(windows_ ? "Active window: known through X11."
                              : "Active window: unknown (" + why + "); capture rules by "
                                "application and per-application paste keys are off.");
    ActiveWindowInfo* windows = windows_.get();
    if (windows == nullptr) {
        noWindows_ = std::make_unique<NoActiveWindow>();
        windows = noWindows_.get();
    }
    accessibility_.windows = windows;

    capture_ = std::make_unique<ClipboardCaptureService>(clipboard_, *windows, scheduler_,
                                                         context_, settings_, clock_);
    capture_->start();
    report.push_back("Clipboard capture: on.");

    watcher_ = opened(X11KeyboardWatcher::open(ledger_), why);
    if (!watcher_) {
        report.push_back("Text expansion: off, the keyboard cannot be watched (" + why +
                         "; it needs the XInput2 extension).");
    }
    injector_ = opened(XTestKeyInjector::open(ledger_), why);
    if (watcher_ && !injector_) {
        report.push_back("Text expansion: off, keys cannot be sent (" + why +
                         "; it needs the XTEST extension).");
    }
    grabProbe_ = opened(X11KeyboardGrabProbe::open(), why);
    hotKeys_ = opened(X11HotKeys::open(), why);
    report.push_back(hotKeys_ ? "Global shortcuts: on." : "Global shortcuts: off (" + why + ").");
    if (hotKeys_) {
        watch(hotKeys_->fileDescriptor(), [this] { hotKeys_->processPendingEvents(); });
        hotKeys_->setHandler([this](HotKeyId id) {
            if (boardCapture_) {
                boardCapture_->handleHotKey(id);
            }
        });
    }

    // Reminders of Board due dates, on the application's own schedule.
    reminderCenter_ = std::make_unique<ScheduledReminderCenter>(notifier_, scheduler_, clock_);
    reminders_ = std::make_unique<BoardReminders>(*reminderCenter_, context_);
    try {
        const auto outcome = reminders_->reconcile(clock_());
        report.push_back("Board reminders: " + std::to_string(outcome.added) + " scheduled.");
    } catch (const std::exception& error) {
        logs::app.warning(std::string("Board reminders could not be scheduled: ") + error.what());
    }

    if (injector_) {
        boardCapture_ = std::make_unique<BoardCaptureService>(
            BoardCaptureService::Services{clipboard_, *injector_, *windows, scheduler_, toast_,
                                          &sound_, &accessibility_},
            context_, settings_, clock_, &ClipboardCaptureService::steadyUptime);
        boardCapture_->clipboardConsumed = [this] { capture_->noteOwnWrite(); };
        boardCapture_->captured = [this](const BoardStore::AddResult&) {
            reminders_->reconcile(clock_());
        };
        // The tray comes later than the services and goes first; until it exists, and once it
        // is gone, a capture simply does not pulse.
        boardCapture_->pulse = [this] {
            if (tray_) {
                tray_->pulse();
            }
        };
        std::string shortcut = "Board capture: Shift twice";
        if (hotKeys_) {
            const auto registered = boardCapture_->registerHotKeys(*hotKeys_, kBoardCaptureChord);
            if (std::holds_alternative<HotKeyRegistered>(registered)) {
                shortcut += ", or Ctrl+Alt+B";
            } else if (const auto* taken = std::get_if<HotKeyTaken>(&registered)) {
                shortcut += " (" + taken->message + ")";
            }
        }
        report.push_back(shortcut + ".");
    }

    if (injector_) {
        stackHotKeys_ = opened(X11HotKeys::open(), why);
    }
    if (stackHotKeys_ && pasteStack) {
        watch(stackHotKeys_->fileDescriptor(), [this] { stackHotKeys_->processPendingEvents(); });
        pasteStack_ = std::make_unique<PasteStackService>(context_, std::move(pasteStack),
                                                          *stackHotKeys_, *this, scheduler_, clock_);
        pasteStack_->setToast([this](std::string_view message) {
            toast_.show(message, std::nullopt, "list.bullet.rectangle");
        });
    }

    if (watcher_ && injector_ && grabProbe_) {
        ExpansionService::Collaborators collaborators{
            context_,
            settings_,
            *injector_,
            clipboard_,
            *windows,
            *grabProbe_,
            scheduler_,
            fillIn_,
            notifier_,
            clock_,
            [this](std::string_view windowClass) -> std::optional<KeyChord> {
                const auto method =
                    PasteShortcut::forWindowClass(windowClass, pasteOverrides(settings_));
                if (const auto* chord = std::get_if<PasteByChord>(&method)) {
                    return chord->chord;
                }
                return std::nullopt;
            },
            &accessibility_,
            [this](const ExpansionStats& stats) {
                const auto saved = stats.keystrokesSaved - lastStats_.keystrokesSaved;
                lastStats_ = stats;
                if (onExpansion) {
                    onExpansion(saved);
                }
            },
            {},
            {}};
        expansion_ = std::make_unique<ExpansionService>(std::move(collaborators));
        expansion_->start(keyStream_);
        clipboard_.setPullHandler([this] { expansion_->pastePulled(); });
        watcher_->setHandler([this](const KeyboardEvent& event) {
            keyStream_.deliver(event);
            if (boardCapture_) {
                boardCapture_->handleKeyEvent(event, clock_());
            }
        });
        watch(watcher_->fileDescriptor(), [this] { watcher_->processPendingEvents(); });
        report.push_back("Text expansion: on (" + std::to_string(expansion_->triggerCount()) +
                         " keywords).");
        followSmartFieldDetection();
        if (settings_.boolean("smartFieldDetection", false)) {
            report.push_back(atspi_ ? "Password fields: recognised through the accessibility bus."
                                    : "Password fields: not recognised, the accessibility bus "
                                      "cannot be reached.");
        }
        report.push_back(atspi_ ? "Web page addresses: read through the accessibility bus."
                                : "Web page addresses: not read; the session's accessibility "
                                  "is off (smart field detection turns it on).");
    }
    return report;
}

HotKeys* AppServices::hotKeys() { return hotKeys_.get(); }

TrayIcon::Toggles AppServices::trayToggles() {
    TrayIcon::Toggles toggles;
    toggles.attached = [this](TrayIcon& tray) { tray_ = &tray; };
    if (expansion_) {
        toggles.pauseExpansion = [this](bool paused) {
            expansion_->setPaused(paused);
            logs::app.info(paused ? "Text expansion paused." : "Text expansion resumed.");
        };
    }
    if (capture_) {
        toggles.pauseCapture = [this](bool paused) {
            if (paused) {
                capture_->pause();
            } else {
                capture_->resume();
            }
            logs::app.info(paused ? "Clipboard capture paused." : "Clipboard capture resumed.");
        };
    }
    if (pasteStack_) {
        toggles.startPasteStack = [this] {
            if (const auto refusal = pasteStack_->start()) {
                toast_.show(*refusal, std::nullopt, "exclamationmark.triangle");
            }
        };
        toggles.clearPasteStack = [this] { pasteStack_->clear(); };
    }
    if (boardCapture_) {
        toggles.captureToBoard = [this] { boardCapture_->capture(); };
    }
    return toggles;
}

void AppServices::libraryChanged() {
    if (expansion_) {
        followSmartFieldDetection();
        expansion_->refresh();
    }
    if (reminders_) {
        try {
            reminders_->reconcile(clock_());
        } catch (const std::exception& error) {
            logs::app.warning(std::string("Board reminders could not be updated: ") + error.what());
        }
    }
}

void AppServices::followSmartFieldDetection() {
    const bool smart = settings_.boolean("smartFieldDetection", false);
    if (atspi_) {
        if (smart && !accessibilityTurnedOn_) {
            AtspiFieldReader::enableAccessibility();
            accessibilityTurnedOn_ = true;
        }
        return;
    }
    // Without the setting the session is asked once, at start, whether it has accessibility on.
    if (!smart && accessibilityProbed_) {
        return;
    }
    accessibilityProbed_ = true;
    QString why;
    atspi_ = AtspiFieldReader::connect(why, smart);
    accessibilityTurnedOn_ = smart && atspi_;
    accessibility_.reader = atspi_.get();
    if (!atspi_ && smart) {
        logs::app.warning("Password fields cannot be recognised: " + why.toStdString() + ".");
    }
}

std::optional<FocusedField> AppServices::AccessibilitySlot::focusedField() {
    return reader != nullptr ? reader->focusedField() : std::nullopt;
}

std::optional<std::string> AppServices::AccessibilitySlot::focusedPageAddress() {
    if (reader == nullptr) {
        return std::nullopt;
    }
    const auto window = windows != nullptr ? windows->activeWindow() : std::nullopt;
    return reader->focusedPageAddress(window ? window->pid : std::nullopt);
}

void AppServices::copyToClipboard(const PasteboardSnapshot& content) {
    clipboard_.write(markedAsOurs(content));
    if (capture_) {
        capture_->noteOwnWrite();
    }
}

std::optional<std::string> AppServices::paste(const PasteboardSnapshot& content) {
    if (!expansion_) {
        return "Pasting needs the keyboard services, which are not running in this session.";
    }
    return expansion_->paste(content);
}

std::optional<std::string> AppServices::activate(std::string_view application) {
    if (!windows_) {
        return "Windows cannot be brought to the front in this session.";
    }
    return windows_->activate(application);
}

} // namespace marlune
