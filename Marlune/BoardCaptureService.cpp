#include "Marlune/BoardCaptureService.h"

#include "ClipboardKit/CaptureGate.h"
#include "ClipboardKit/NewClipFromCapture.h"
#include "ClipboardKit/SecretDetector.h"
#include "Marlune/ClipboardCaptureService.h"
#include "Marlune/WindowClassKind.h"
#include "MarluneCore/CaptureRuleStore.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/Settings.h"

#include <algorithm>
#include <array>

namespace marlune {

namespace {

constexpr Logger boardLog{"board"};
constexpr std::uint32_t keysymC = 0x63;

} // namespace

BoardCaptureService::BoardCaptureService(Services services, ModelContext& context,
                                         Settings& settings, std::function<Date()> clock,
                                         Uptime uptime)
    : services_(services), context_(context), settings_(settings), clock_(std::move(clock)),
      uptime_(std::move(uptime)) {}

BoardCaptureService::~BoardCaptureService() {
    *alive_ = false;
    if (pollTask_) {
        services_.scheduler.cancel(*pollTask_);
    }
    if (keyTask_) {
        services_.scheduler.cancel(*keyTask_);
    }
}

std::optional<KeyChord> BoardCaptureService::copyShortcut(std::string_view windowClass) {
    KeyChord chord;
    chord.keysym = keysymC;
    chord.modifiers.control = true;
    switch (windowClassKind(windowClass)) {
    case WindowClassKind::xterm:
        return std::nullopt;
    case WindowClassKind::rxvtUnicode:
        chord.modifiers.alt = true;
        break;
    case WindowClassKind::terminal:
        chord.modifiers.shift = true;
        break;
    case WindowClassKind::ordinary:
        break;
    }
    return chord;
}

Pinboard BoardCaptureService::pickSectionForClip(BoardStore& store, const Settings& settings,
                                                 std::string_view bundleID, Date now) {
    if (settings.boolean(BoardSettingKeys::sectionMemoryEnabled, false) && !bundleID.empty()) {
        const auto memory = settings.dictionary(BoardSettingKeys::sectionMemory);
        const auto found = memory.find(std::string(bundleID));
        if (found != memory.end() && found->is_string()) {
            if (auto id = Uuid::parse(found->get<std::string>())) {
                if (auto section = store.section(*id)) {
                    return *section;
                }
            }
        }
    }
    return store.activeSection(now);
}

void BoardCaptureService::rememberSection(Settings& settings, std::string_view bundleID,
                                          const Uuid& section) {
    if (bundleID.empty()) {
        return;
    }
    auto memory = settings.dictionary(BoardSettingKeys::sectionMemory, nlohmann::json::object());
    memory[std::string(bundleID)] = section.string();
    settings.setDictionary(BoardSettingKeys::sectionMemory, memory);
}

BoardCaptureSound BoardCaptureService::captureSound(const Settings& settings) {
    const auto value = settings.string(BoardSettingKeys::captureSound, "pop");
    return value == "off" ? BoardCaptureSound::off
           : value == "tink" ? BoardCaptureSound::tink
                             : BoardCaptureSound::pop;
}

std::optional<std::string_view> BoardCaptureService::themeSound(BoardCaptureSound sound) {
    switch (sound) {
    case BoardCaptureSound::off:
        return std::nullopt;
    case BoardCaptureSound::pop:
        return "message-new-instant";
    case BoardCaptureSound::tink:
        return "complete";
    }
    return std::nullopt;
}

BoardStore BoardCaptureService::makeStore() {
    return BoardStore(context_, settings_);
}

bool BoardCaptureService::capture(bool choose) {
    if (inFlight_) {
        return false;
    }
    inFlight_ = true;
    choosing_ = choose;
    if (canPostKeys && !canPostKeys()) {
        services_.toast.show("Board capture needs Accessibility (it types ⌘C into the frontmost "
                             "app).",
                             "System Settings › Privacy & Security › Accessibility › Marlune.",
                             "hand.raised");
        finish();
        return true;
    }
    keysWaited_ = std::chrono::milliseconds(0);
    postCopyWhenKeysAreUp();
    return true;
}

void BoardCaptureService::postCopyWhenKeysAreUp() {
    // The shortcut that started the capture may still be held: Ctrl+Alt+B's Alt would turn
    // our Ctrl+C into another shortcut.
    if ((services_.injector.heldModifiers().any() || services_.injector.keyHeld()) &&
        keysWaited_ < keyPatience) {
        keysWaited_ += keyPoll;
        keyTask_ = services_.scheduler.after(keyPoll, [this] {
            keyTask_.reset();
            postCopyWhenKeysAreUp();
        });
        return;
    }
    source_ = services_.activeWindow.activeWindow();
    startCount_ = services_.clipboard.changeCount();
    startUptime_ = uptime_();
    const auto copy =
        copyShortcut(source_ ? std::string_view(source_->bundleIdentifier) : std::string_view());
    if (!copy) {
        // The selection itself is what such a window copies.
        auto selected = services_.clipboard.selectionText();
        if (!selected || selected->empty()) {
            services_.toast.show("Nothing selected", "There was nothing to add.", "text.cursor");
            finish();
            return;
        }
        contentArrived(PasteboardSnapshot::fromItems(
            {{{PasteboardSnapshot::Payload::fromText("text/plain;charset=utf-8", *selected)}}}));
        return;
    }
    const auto posted = services_.injector.inject(keyinjection::PressChord{*copy});
    if (const auto* failed = std::get_if<InjectionFailed>(&posted)) {
        services_.toast.show("Nothing captured", failed->message, "eye.slash");
        finish();
        return;
    }
    pollTask_ = services_.scheduler.every(pollInterval, [this] { poll(); });
}

void BoardCaptureService::poll() {
    if (services_.clipboard.changeCount() != startCount_) {
        services_.scheduler.cancel(*pollTask_);
        pollTask_.reset();
        const PasteboardSnapshot snapshot = services_.clipboard.snapshot();
        if (clipboardConsumed) {
            clipboardConsumed();
        }
        contentArrived(snapshot);
        return;
    }
    // Compared with a small tolerance: 14 polls of 0.05 s are 0.7 s, even in floating point.
    if (uptime_() - startUptime_ >= giveUpSeconds - 1e-6) {
        services_.scheduler.cancel(*pollTask_);
        pollTask_.reset();
        services_.toast.show("Nothing selected", "There was nothing to add.", "text.cursor");
        finish();
    }
}

void BoardCaptureService::contentArrived(const PasteboardSnapshot& snapshot) {
    try {
        if (source_ && CaptureRuleStore(context_).isExcluded(source_->bundleIdentifier)) {
            services_.toast.show("Nothing captured", std::nullopt, "eye.slash");
            finish();
            return;
        }
        const CaptureDecision decision =
            CaptureGate::decide(snapshot, ClipboardCaptureService::secretPolicy(settings_));
        if (decision.secretKind()) {
            boardLog.info("Skipped a likely secret (" +
                          std::string(secretKindRawValue(*decision.secretKind())) + ")");
            services_.toast.show("Looks like a secret — not saved", std::nullopt, "key.slash");
            finish();
            return;
        }
        const CapturedClip* clipFound = decision.capturedClip();
        if (!clipFound) {
            services_.toast.show("Nothing captured", std::nullopt, "eye.slash");
            finish();
            return;
        }

        BoardStore::Source source;
        if (source_) {
            if (!source_->title.empty()) {
                source.title = source_->title;
            }
        }
        if (services_.pages) {
            if (auto address = services_.pages->focusedPageAddress();
                address && (address->starts_with("http://") || address->starts_with("https://"))) {
                source.url = std::move(*address);
            }
        }
        const std::string bundleID = source_ ? source_->bundleIdentifier : std::string();
        const NewClip content = newClipFromCapture(*clipFound, clock_(), bundleID);
        auto board = makeStore();
        if (choosing_ && chooseSection) {
            chooseSection(board.sections(), [this, alive = std::weak_ptr<bool>(alive_), content,
                                              source, bundleID](std::optional<Uuid> chosen) {
                if (alive.expired()) {
                    return;
                }
                auto chooser = makeStore();
                const auto section = chosen ? chooser.section(*chosen) : std::nullopt;
                if (!section) {
                    finish(); // cancelled
                    return;
                }
                if (settings_.boolean(BoardSettingKeys::sectionMemoryEnabled, false)) {
                    rememberSection(settings_, bundleID, section->id);
                }
                store(content, *section, source);
            });
            return;
        }
        store(content, pickSectionForClip(board, settings_, bundleID, clock_()), source);
    } catch (const std::exception& error) {
        boardLog.error(std::string("Board capture failed: ") + error.what());
        services_.toast.show("Nothing captured", "The Board could not be saved.", "eye.slash");
        finish();
    }
}

void BoardCaptureService::store(const NewClip& content, const Pinboard& section,
                                const BoardStore::Source& source) {
    try {
        auto board = makeStore();
        const auto result = board.capture(content, section, source, clock_());
        if (result.outcome == BoardStore::CaptureOutcome::added) {
            services_.toast.show("Captured", section.name, "checkmark.circle");
        } else {
            services_.toast.show("Already on " + section.name, std::nullopt, "arrow.up.circle");
        }
        if (services_.sound) {
            if (auto sound = themeSound(captureSound(settings_))) {
                services_.sound->play(*sound);
            }
        }
        if (pulse && settings_.boolean(BoardSettingKeys::menuBarPulse, true)) {
            pulse();
        }
        if (captured) {
            captured(result);
        }
    } catch (const std::exception& error) {
        boardLog.error(std::string("Board capture failed: ") + error.what());
        services_.toast.show("Nothing captured", "The Board could not be saved.", "eye.slash");
    }
    finish();
}

void BoardCaptureService::finish() {
    inFlight_ = false;
    choosing_ = false;
    source_.reset();
}

HotKeyRegistration BoardCaptureService::registerHotKeys(HotKeys& hotKeys, const KeyChord& capture,
                                                        std::optional<KeyChord> captureChoosing) {
    auto registration = hotKeys.registerHotKey(capture);
    if (const auto* ok = std::get_if<HotKeyRegistered>(&registration)) {
        captureKey_ = ok->id;
    }
    if (captureChoosing) {
        const auto choosing = hotKeys.registerHotKey(*captureChoosing);
        if (const auto* ok = std::get_if<HotKeyRegistered>(&choosing)) {
            choosingKey_ = ok->id;
        }
    }
    return registration;
}

void BoardCaptureService::unregisterHotKeys(HotKeys& hotKeys) {
    for (auto* key : {&captureKey_, &choosingKey_}) {
        if (*key) {
            hotKeys.unregisterHotKey(**key);
            key->reset();
        }
    }
}

bool BoardCaptureService::handleHotKey(HotKeyId id) {
    if (captureKey_ && id == *captureKey_) {
        capture(false);
        return true;
    }
    if (choosingKey_ && id == *choosingKey_) {
        capture(true);
        return true;
    }
    return false;
}

std::optional<DoubleTapDetector::Action> BoardCaptureService::handleKeyEvent(
    const KeyboardEvent& event, Date now) {
    const auto action = doubleTap_.handle(event, now);
    if (!action) {
        return std::nullopt;
    }
    if (*action == DoubleTapDetector::Action::capture ||
        *action == DoubleTapDetector::Action::captureChoosing) {
        if (settings_.boolean(BoardSettingKeys::doubleTapEnabled, false)) {
            capture(*action == DoubleTapDetector::Action::captureChoosing);
        }
        return std::nullopt;
    }
    return action;
}

} // namespace marlune
