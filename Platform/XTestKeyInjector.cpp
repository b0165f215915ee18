#include "Platform/XTestKeyInjector.h"

#include <array>
#include <cstdlib>
#include <optional>
#include <set>
#include <xcb/xcb.h>
// xcb's XKB header names a field "explicit", which C++ reserves.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-x11.h>

namespace marlune {

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};

constexpr std::uint32_t kShiftMask = 1;
constexpr std::uint32_t kControlMask = 4;
constexpr std::uint32_t kMod1Mask = 8;
constexpr std::uint32_t kMod4Mask = 64;

// Decodes one code point; malformed bytes come out as U+FFFD, one byte at a time.
char32_t nextCodePoint(std::string_view text, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const std::size_t length = lead < 0x80       ? 1
                               : lead >> 5 == 6  ? 2
                               : lead >> 4 == 14 ? 3
                               : lead >> 3 == 30 ? 4
                                                 : 0;
    if (length == 0 || at + length > text.size()) {
        ++at;
        return 0xfffd;
    }
    char32_t code = length == 1 ? lead : lead & (0x7f >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if (next >> 6 != 2) {
            ++at;
            return 0xfffd;
        }
        code = (code << 6) | (next & 0x3f);
    }
    at += length;
    return code;
}

InjectionFailed noKeyFor(std::uint32_t keysym) {
    std::array<char, 64> name{};
    xkb_keysym_get_name(keysym, name.data(), name.size());
    return InjectionFailed{std::string("No key of the current keyboard layout types ") +
                           name.data() + "."};
}

} // namespace

std::variant<std::unique_ptr<XTestKeyInjector>, X11Unavailable>
XTestKeyInjector::open(std::shared_ptr<InjectionLedger> ledger, std::string_view display) {
    auto opened = X11Connection::open(display);
    if (auto* failure = std::get_if<X11Unavailable>(&opened)) {
        return std::move(*failure);
    }
    X11Connection connection = std::move(std::get<X11Connection>(opened));
    xcb_connection_t* c = connection.get();
    const xcb_query_extension_reply_t* xtest = xcb_get_extension_data(c, &xcb_test_id);
    if (xtest == nullptr || xtest->present == 0) {
        return X11Unavailable{"The X server lacks the XTest extension that text expansion needs."};
    }
    if (xkb_x11_setup_xkb_extension(c, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                    XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr,
                                    nullptr) == 0) {
        return X11Unavailable{"The X server lacks the XKB extension that text expansion needs."};
    }
    const std::int32_t keyboardId = xkb_x11_get_core_keyboard_device_id(c);
    return std::make_unique<XTestKeyInjector>(std::move(connection), std::move(ledger), keyboardId);
}

XTestKeyInjector::XTestKeyInjector(X11Connection connection,
                                   std::shared_ptr<InjectionLedger> ledger, std::int32_t keyboardId)
    : connection_(std::move(connection)), ledger_(std::move(ledger)), keyboardId_(keyboardId) {}

XTestKeyInjector::~XTestKeyInjector() {
    releaseKeymap();
}

KeyModifiers XTestKeyInjector::heldModifiers() {
    xcb_connection_t* c = connection_.get();
    std::unique_ptr<xcb_xkb_get_state_reply_t, FreeDeleter> reply(
        xcb_xkb_get_state_reply(c, xcb_xkb_get_state(c, XCB_XKB_ID_USE_CORE_KBD), nullptr));
    if (reply == nullptr) {
        return {};
    }
    const std::uint32_t down = reply->baseMods;
    return KeyModifiers{(down & kShiftMask) != 0, (down & kControlMask) != 0,
                        (down & kMod1Mask) != 0, (down & kMod4Mask) != 0};
}

bool XTestKeyInjector::isModifierKey(std::uint32_t keycode) const {
    const xkb_keysym_t* syms = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap_, keycode, 0, 0, &syms);
    return count > 0 && ((syms[0] >= XKB_KEY_Shift_L && syms[0] <= XKB_KEY_Hyper_R) ||
                         (syms[0] >= XKB_KEY_ISO_Lock && syms[0] <= XKB_KEY_ISO_Last_Group_Lock) ||
                         syms[0] == XKB_KEY_Mode_switch || syms[0] == XKB_KEY_Num_Lock);
}

bool XTestKeyInjector::keyHeld() {
    xcb_connection_t* c = connection_.get();
    std::unique_ptr<xcb_query_keymap_reply_t, FreeDeleter> reply(
        xcb_query_keymap_reply(c, xcb_query_keymap(c), nullptr));
    if (reply == nullptr || (keymap_ == nullptr && !loadKeymap())) {
        return false;
    }
    for (std::uint32_t keycode = 8; keycode < 256; ++keycode) {
        if ((reply->keys[keycode / 8] & (1U << (keycode % 8))) != 0 && !isModifierKey(keycode)) {
            return true;
        }
    }
    return false;
}

bool XTestKeyInjector::loadKeymap() {
    // Fetched for every step: the user may have switched layouts since the last one.
    releaseKeymap();
    xcb_connection_t* c = connection_.get();
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (context == nullptr) {
        return false;
    }
    keymap_ = xkb_x11_keymap_new_from_device(context, c, keyboardId_, XKB_KEYMAP_COMPILE_NO_FLAGS);
    xkb_context_unref(context);
    if (keymap_ != nullptr) {
        state_ = xkb_x11_state_new_from_device(keymap_, c, keyboardId_);
    }
    if (state_ == nullptr) {
        releaseKeymap();
        return false;
    }
    spareKeycodes_.clear();
    for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap_); kc <= xkb_keymap_max_keycode(keymap_);
         ++kc) {
        if (kc <= 255 && xkb_keymap_num_layouts_for_key(keymap_, kc) == 0) {
            spareKeycodes_.push_back(kc);
        }
    }
    return true;
}

void XTestKeyInjector::releaseKeymap() {
    xkb_state_unref(state_);
    xkb_keymap_unref(keymap_);
    state_ = nullptr;
    keymap_ = nullptr;
}

std::optional<std::uint32_t> XTestKeyInjector::modifierKey(std::uint32_t keysym) const {
    for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap_); kc <= xkb_keymap_max_keycode(keymap_);
         ++kc) {
        const xkb_keysym_t* syms = nullptr;
        if (xkb_keymap_key_get_syms_by_level(keymap_, kc, 0, 0, &syms) == 1 && syms[0] == keysym) {
            return kc;
        }
    }
    return std::nullopt;
}

std::optional<XTestKeyInjector::KeyStroke> XTestKeyInjector::strokeFor(std::uint32_t keysym) const {
    // Candidate modifier sets, simplest first; each is checked against a copy of the current
    // state (locks and layout included) because Caps Lock or Num Lock change what a level gives.
    std::vector<std::vector<std::uint32_t>> combinations{{}};
    const auto shift = modifierKey(XKB_KEY_Shift_L);
    const auto level3 = modifierKey(XKB_KEY_ISO_Level3_Shift);
    if (shift) {
        combinations.push_back({*shift});
    }
    if (level3) {
        combinations.push_back({*level3});
        if (shift) {
            combinations.push_back({*shift, *level3});
        }
    }
    const xkb_mod_mask_t locked = xkb_state_serialize_mods(state_, XKB_STATE_MODS_LOCKED);
    const xkb_layout_index_t layout =
        xkb_state_serialize_layout(state_, XKB_STATE_LAYOUT_EFFECTIVE);
    xkb_state* trial = xkb_state_new(keymap_);
    std::optional<KeyStroke> found;
    for (const auto& modifiers : combinations) {
        xkb_state_update_mask(trial, 0, 0, 0, 0, 0, 0);
        for (const std::uint32_t key : modifiers) {
            xkb_state_update_key(trial, key, XKB_KEY_DOWN);
        }
        const xkb_mod_mask_t held = xkb_state_serialize_mods(trial, XKB_STATE_MODS_DEPRESSED);
        xkb_state_update_mask(trial, held, 0, locked, 0, 0, layout);
        for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap_);
             !found && kc <= xkb_keymap_max_keycode(keymap_); ++kc) {
            if (xkb_state_key_get_one_sym(trial, kc) == keysym) {
                found = KeyStroke{kc, modifiers};
            }
        }
        if (found) {
            break;
        }
    }
    xkb_state_unref(trial);
    return found;
}

std::optional<XTestKeyInjector::KeyStroke>
XTestKeyInjector::strokeForChord(const KeyChord& chord) const {
    KeyStroke stroke;
    // Shortcuts name the unshifted key: Ctrl+Shift+V is the V key, whatever Shift makes of it.
    // A layout without the letter (Cyrillic) falls back to the key that has it in another.
    const xkb_layout_index_t current =
        xkb_state_serialize_layout(state_, XKB_STATE_LAYOUT_EFFECTIVE);
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts(keymap_);
    bool found = false;
    for (xkb_layout_index_t offset = 0; !found && offset < layouts; ++offset) {
        const xkb_layout_index_t layout = (current + offset) % layouts;
        for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap_);
             !found && kc <= xkb_keymap_max_keycode(keymap_); ++kc) {
            const xkb_keysym_t* syms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap_, kc, layout, 0, &syms) == 1 &&
                syms[0] == chord.keysym) {
                stroke.keycode = kc;
                found = true;
            }
        }
    }
    if (!found) {
        return std::nullopt;
    }
    const std::pair<bool, std::uint32_t> wanted[] = {{chord.modifiers.control, XKB_KEY_Control_L},
                                                     {chord.modifiers.alt, XKB_KEY_Alt_L},
                                                     {chord.modifiers.shift, XKB_KEY_Shift_L},
                                                     {chord.modifiers.super, XKB_KEY_Super_L}};
    for (const auto& [needed, keysym] : wanted) {
        if (!needed) {
            continue;
        }
        const auto key = modifierKey(keysym);
        if (!key) {
            return std::nullopt;
        }
        stroke.modifierKeys.push_back(*key);
    }
    return stroke;
}

std::optional<std::uint32_t> XTestKeyInjector::spareKeycode(std::uint32_t keysym) {
    if (spareKeycodes_.empty()) {
        return std::nullopt;
    }
    // Round robin, so that a key code is not given a new meaning while the client may still be
    // reading the press made with the previous one.
    const std::uint32_t keycode = spareKeycodes_[sparesInUse_.size() % spareKeycodes_.size()];
    const std::array<xcb_keysym_t, 2> syms{keysym, keysym};
    xcb_change_keyboard_mapping(connection_.get(), 1, static_cast<xcb_keycode_t>(keycode), 2,
                                syms.data());
    sparesInUse_.push_back(keycode);
    connection_.sync();
    return keycode;
}

void XTestKeyInjector::restoreSpareKeycodes() {
    if (sparesInUse_.empty()) {
        return;
    }
    connection_.sync();
    const std::array<xcb_keysym_t, 2> none{XCB_NO_SYMBOL, XCB_NO_SYMBOL};
    for (const std::uint32_t keycode : sparesInUse_) {
        xcb_change_keyboard_mapping(connection_.get(), 1, static_cast<xcb_keycode_t>(keycode), 2,
                                    none.data());
    }
    sparesInUse_.clear();
}

void XTestKeyInjector::send(std::uint32_t keycode, bool press) {
    ledger_->expect(keycode, press, InjectionLedger::Clock::now());
    xcb_test_fake_input(connection_.get(), press ? XCB_KEY_PRESS : XCB_KEY_RELEASE,
                        static_cast<std::uint8_t>(keycode), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}

void XTestKeyInjector::letGo(std::uint32_t keycode) {
    // A press of a key that is already down on the keyboard it is sent from (the XTest
    // keyboard another program types with, or the one key the core keyboard merges) is
    // dropped by the server, and the character with it. A release first makes it a fresh
    // press; where the key is not down the server drops the release and nothing comes back,
    // which is why the ledger does not expect it.
    xcb_test_fake_input(connection_.get(), XCB_KEY_RELEASE, static_cast<std::uint8_t>(keycode),
                        XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}

void XTestKeyInjector::tap(const KeyStroke& stroke) {
    for (const std::uint32_t modifier : stroke.modifierKeys) {
        send(modifier, true);
    }
    letGo(stroke.keycode);
    send(stroke.keycode, true);
    send(stroke.keycode, false);
    for (auto it = stroke.modifierKeys.rbegin(); it != stroke.modifierKeys.rend(); ++it) {
        send(*it, false);
    }
}

InjectionOutcome XTestKeyInjector::finish() {
    xcb_connection_t* c = connection_.get();
    std::optional<xcb_grab_keyboard_cookie_t> regrab;
    if (holding_) {
        regrab = xcb_grab_keyboard(c, 0, connection_.root(), XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC,
                                   XCB_GRAB_MODE_ASYNC);
    }
    xcb_flush(c);
    connection_.sync();
    ungrabbed_ = false;
    if (regrab) {
        std::unique_ptr<xcb_grab_keyboard_reply_t, FreeDeleter> reply(
            xcb_grab_keyboard_reply(c, *regrab, nullptr));
        // Another client took the keyboard in between: the keys typed from now on go to the
        // window directly, and those already held are still sent on at the release.
        holding_ = reply != nullptr && reply->status == XCB_GRAB_STATUS_SUCCESS;
    }
    if (connection_.broken()) {
        return InjectionFailed{"The connection to the X server was lost."};
    }
    return InjectionDone{};
}

bool XTestKeyInjector::grab() {
    xcb_connection_t* c = connection_.get();
    std::unique_ptr<xcb_grab_keyboard_reply_t, FreeDeleter> reply(
        xcb_grab_keyboard_reply(c,
                                xcb_grab_keyboard(c, 0, connection_.root(), XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr));
    return reply != nullptr && reply->status == XCB_GRAB_STATUS_SUCCESS;
}

bool XTestKeyInjector::holdKeys() {
    if (holding_) {
        return true;
    }
    // Key events left from an earlier hold that were never sent on are not the user's now.
    takeHeldEvents(held_);
    held_.clear();
    sentDown_.clear();
    holding_ = grab();
    return holding_;
}

void XTestKeyInjector::takeHeldEvents(std::vector<std::pair<std::uint8_t, bool>>& into) {
    // Only key events come to this connection, and only while it holds the grab; anything else
    // (a mapping notice after a spare key code was used) is dropped.
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_.get())) {
        const std::uint8_t type = event->response_type & 0x7f;
        if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
            const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
            into.emplace_back(key->detail, type == XCB_KEY_PRESS);
        }
        std::free(event);
    }
}

bool XTestKeyInjector::heldKeyStillDown() {
    if (!holding_) {
        return false;
    }
    connection_.sync();
    takeHeldEvents(held_);
    std::set<std::uint8_t> down = sentDown_;
    for (const auto& [keycode, press] : held_) {
        if (press) {
            down.insert(keycode);
        } else {
            down.erase(keycode);
        }
    }
    return !down.empty();
}

bool XTestKeyInjector::sendOnHeld(std::uint8_t keycode, bool press) {
    if (!press && sentDown_.erase(keycode) == 0) {
        return false; // its press reached the window before the hold
    }
    if (press) {
        sentDown_.insert(keycode);
        letGo(keycode);
    }
    send(keycode, press);
    return true;
}

void XTestKeyInjector::sendOnHeldKeys(std::size_t keyPresses) {
    if (!holding_ || (keymap_ == nullptr && !loadKeymap())) {
        return;
    }
    connection_.sync();
    takeHeldEvents(held_);
    std::size_t end = 0;
    for (std::size_t presses = 0; end < held_.size() && presses < keyPresses; ++end) {
        if (held_[end].second && !isModifierKey(held_[end].first)) {
            ++presses;
        }
    }
    // The same batch as a step: let go, send, take the keyboard again.
    xcb_ungrab_keyboard(connection_.get(), XCB_CURRENT_TIME);
    for (std::size_t i = 0; i < end; ++i) {
        sendOnHeld(held_[i].first, held_[i].second);
    }
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(end));
    finish();
}

std::size_t XTestKeyInjector::releaseKeys() {
    if (!holding_) {
        return 0;
    }
    holding_ = false;
    xcb_connection_t* c = connection_.get();
    // What came before this round trip is sent on in the same batch as the ungrab, so that a
    // key typed just after it cannot overtake them; what arrived while the batch was on its
    // way follows at once.
    std::vector<std::pair<std::uint8_t, bool>> held = std::move(held_);
    held_.clear();
    connection_.sync();
    takeHeldEvents(held);
    xcb_ungrab_keyboard(c, XCB_CURRENT_TIME);
    std::size_t sentOn = 0;
    const auto sendOn = [&](std::size_t from) {
        for (std::size_t i = from; i < held.size(); ++i) {
            sentOn += sendOnHeld(held[i].first, held[i].second) ? 1 : 0;
        }
    };
    sendOn(0);
    const std::size_t first = held.size();
    connection_.sync();
    takeHeldEvents(held);
    sendOn(first);
    // A key still down at the end would stay down on the XTest keyboard (and repeat) once the
    // user lets go of the real one: its release goes with it.
    for (const std::uint8_t keycode : sentDown_) {
        send(keycode, false);
    }
    sentDown_.clear();
    xcb_flush(c);
    return sentOn;
}

InjectionOutcome XTestKeyInjector::repeat(std::uint32_t keysym, std::int64_t count) {
    const auto stroke = strokeFor(keysym);
    if (!stroke) {
        return noKeyFor(keysym);
    }
    for (std::int64_t i = 0; i < count; ++i) {
        tap(*stroke);
    }
    return finish();
}

InjectionOutcome XTestKeyInjector::repeatChord(const KeyChord& keyChord, std::int64_t count) {
    const auto stroke = strokeForChord(keyChord);
    if (!stroke) {
        return noKeyFor(keyChord.keysym);
    }
    for (std::int64_t i = 0; i < count; ++i) {
        tap(*stroke);
    }
    return finish();
}

InjectionOutcome XTestKeyInjector::chord(const KeyChord& keyChord) {
    const auto stroke = strokeForChord(keyChord);
    if (!stroke) {
        return noKeyFor(keyChord.keysym);
    }
    tap(*stroke);
    return finish();
}

InjectionOutcome XTestKeyInjector::type(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const char32_t code = nextCodePoint(text, at);
        const std::uint32_t keysym = code == U'\n'   ? XKB_KEY_Return
                                     : code == U'\t' ? XKB_KEY_Tab
                                                     : xkb_utf32_to_keysym(code);
        if (keysym == XKB_KEY_NoSymbol) {
            continue;
        }
        if (const auto stroke = strokeFor(keysym)) {
            tap(*stroke);
        } else if (const auto spare = spareKeycode(keysym)) {
            tap(KeyStroke{*spare, {}});
            xcb_flush(connection_.get());
        } else {
            restoreSpareKeycodes();
            return noKeyFor(keysym);
        }
    }
    auto outcome = finish();
    restoreSpareKeycodes();
    xcb_flush(connection_.get());
    return outcome;
}

InjectionOutcome XTestKeyInjector::inject(const KeyInjection& step) {
    if (!loadKeymap()) {
        return InjectionFailed{"The keyboard layout could not be read from the X server."};
    }
    if (holding_) {
        // Sent in the same batch as the events of the step and the grab taken again in
        // `finish`.
        xcb_ungrab_keyboard(connection_.get(), XCB_CURRENT_TIME);
        ungrabbed_ = true;
    }
    auto outcome = std::visit(
        [this](const auto& s) -> InjectionOutcome {
            using Step = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<Step, keyinjection::Backspaces>) {
                return repeat(XKB_KEY_BackSpace, s.count);
            } else if constexpr (std::is_same_v<Step, keyinjection::PressChord>) {
                return chord(s.chord);
            } else if constexpr (std::is_same_v<Step, keyinjection::CaretLeft>) {
                return repeat(XKB_KEY_Left, s.count);
            } else if constexpr (std::is_same_v<Step, keyinjection::CaretRight>) {
                return repeat(XKB_KEY_Right, s.count);
            } else if constexpr (std::is_same_v<Step, keyinjection::SelectLeft>) {
                return repeatChord(KeyChord{KeyModifiers{true, false, false, false}, XKB_KEY_Left},
                                   s.count);
            } else {
                return type(s.text);
            }
        },
        step);
    if (ungrabbed_) {
        // A step that failed before sending anything did not reach `finish`.
        ungrabbed_ = false;
        holding_ = grab();
    }
    return outcome;
}

} // namespace marlune
