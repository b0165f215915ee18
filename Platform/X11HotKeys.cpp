#include "Platform/X11HotKeys.h"

#include "Platform/KeyChordText.h"

#include <algorithm>
#include <cstdlib>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-x11.h>

namespace marlune {

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};

constexpr std::uint16_t kShortcutModifiers =
    XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;

std::uint16_t coreMask(const KeyModifiers& modifiers) {
    return static_cast<std::uint16_t>((modifiers.shift ? XCB_MOD_MASK_SHIFT : 0) |
                                      (modifiers.control ? XCB_MOD_MASK_CONTROL : 0) |
                                      (modifiers.alt ? XCB_MOD_MASK_1 : 0) |
                                      (modifiers.super ? XCB_MOD_MASK_4 : 0));
}

} // namespace

std::variant<std::unique_ptr<X11HotKeys>, X11Unavailable>
X11HotKeys::open(std::string_view display) {
    auto opened = X11Connection::open(display);
    if (auto* failure = std::get_if<X11Unavailable>(&opened)) {
        return std::move(*failure);
    }
    X11Connection connection = std::move(std::get<X11Connection>(opened));
    if (xkb_x11_setup_xkb_extension(
            connection.get(), XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
            XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr) == 0) {
        return X11Unavailable{"The X server lacks the XKB extension that shortcuts need."};
    }
    const std::int32_t keyboardId = xkb_x11_get_core_keyboard_device_id(connection.get());
    return std::make_unique<X11HotKeys>(std::move(connection), keyboardId);
}

X11HotKeys::X11HotKeys(X11Connection connection, std::int32_t keyboardId)
    : connection_(std::move(connection)), keyboardId_(keyboardId) {}

X11HotKeys::~X11HotKeys() {
    for (const auto& [id, registration] : registrations_) {
        release(registration.grabs);
    }
    xcb_flush(connection_.get());
}

void X11HotKeys::setHandler(Handler handler) {
    handler_ = std::move(handler);
}

std::vector<std::uint8_t> X11HotKeys::keycodesFor(std::uint32_t keysym) {
    std::vector<std::uint8_t> keycodes;
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (context == nullptr) {
        return keycodes;
    }
    xkb_keymap* keymap = xkb_x11_keymap_new_from_device(context, connection_.get(), keyboardId_,
                                                        XKB_KEYMAP_COMPILE_NO_FLAGS);
    xkb_context_unref(context);
    if (keymap == nullptr) {
        return keycodes;
    }
    // Every key that gives the keysym unshifted in some layout, so the shortcut works in each.
    for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap);
         kc <= xkb_keymap_max_keycode(keymap) && kc <= 255; ++kc) {
        for (xkb_layout_index_t layout = 0; layout < xkb_keymap_num_layouts_for_key(keymap, kc);
             ++layout) {
            const xkb_keysym_t* syms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap, kc, layout, 0, &syms) == 1 &&
                syms[0] == keysym &&
                std::find(keycodes.begin(), keycodes.end(), kc) == keycodes.end()) {
                keycodes.push_back(static_cast<std::uint8_t>(kc));
            }
        }
    }
    xkb_keymap_unref(keymap);
    return keycodes;
}

std::uint16_t X11HotKeys::numLockMask() {
    const auto numLockKeys = keycodesFor(XKB_KEY_Num_Lock);
    xcb_connection_t* c = connection_.get();
    std::unique_ptr<xcb_get_modifier_mapping_reply_t, FreeDeleter> reply(
        xcb_get_modifier_mapping_reply(c, xcb_get_modifier_mapping(c), nullptr));
    if (reply == nullptr) {
        return 0;
    }
    const xcb_keycode_t* keys = xcb_get_modifier_mapping_keycodes(reply.get());
    const int perModifier = reply->keycodes_per_modifier;
    for (int modifier = 0; modifier < 8; ++modifier) {
        for (int i = 0; i < perModifier; ++i) {
            const xcb_keycode_t key = keys[modifier * perModifier + i];
            if (key != 0 &&
                std::find(numLockKeys.begin(), numLockKeys.end(), key) != numLockKeys.end()) {
                return static_cast<std::uint16_t>(1U << modifier);
            }
        }
    }
    return 0;
}

void X11HotKeys::release(const std::vector<Grab>& grabs) {
    for (const Grab& grab : grabs) {
        xcb_ungrab_key(connection_.get(), grab.keycode, connection_.root(), grab.modifiers);
    }
}

HotKeyRegistration X11HotKeys::registerHotKey(const KeyChord& chord) {
    const std::string name = KeyChordText::describe(chord);
    Registration registration;
    registration.keycodes = keycodesFor(chord.keysym);
    registration.modifiers = coreMask(chord.modifiers);
    if (registration.keycodes.empty()) {
        return HotKeyUnavailable{"The shortcut " + name + " cannot be typed on this keyboard."};
    }
    const std::uint16_t numLock = numLockMask();
    std::vector<std::uint16_t> lockVariants{0, XCB_MOD_MASK_LOCK};
    if (numLock != 0) {
        lockVariants.push_back(numLock);
        lockVariants.push_back(static_cast<std::uint16_t>(numLock | XCB_MOD_MASK_LOCK));
    }

    xcb_connection_t* c = connection_.get();
    std::vector<std::pair<Grab, xcb_void_cookie_t>> requests;
    for (const std::uint8_t keycode : registration.keycodes) {
        for (const std::uint16_t locks : lockVariants) {
            const auto modifiers = static_cast<std::uint16_t>(registration.modifiers | locks);
            requests.push_back({Grab{keycode, modifiers},
                                xcb_grab_key_checked(c, 1, connection_.root(), modifiers, keycode,
                                                     XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)});
        }
    }
    bool taken = false;
    for (const auto& [grab, cookie] : requests) {
        std::unique_ptr<xcb_generic_error_t, FreeDeleter> error(xcb_request_check(c, cookie));
        if (error == nullptr) {
            registration.grabs.push_back(grab);
        } else if (error->error_code == XCB_ACCESS) {
            taken = true;
        }
    }
    if (taken || registration.grabs.empty()) {
        release(registration.grabs);
        xcb_flush(c);
        return HotKeyTaken{"The shortcut " + name + " is already taken by another application."};
    }
    const HotKeyId id = nextId_++;
    registrations_.emplace(id, std::move(registration));
    return HotKeyRegistered{id};
}

void X11HotKeys::unregisterHotKey(HotKeyId id) {
    const auto it = registrations_.find(id);
    if (it == registrations_.end()) {
        return;
    }
    release(it->second.grabs);
    xcb_flush(connection_.get());
    registrations_.erase(it);
}

bool X11HotKeys::processPendingEvents() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_.get())) {
        std::unique_ptr<xcb_generic_event_t, FreeDeleter> owned(event);
        if ((event->response_type & 0x7f) != XCB_KEY_PRESS) {
            continue;
        }
        const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event);
        const auto held = static_cast<std::uint16_t>(press->state & kShortcutModifiers);
        for (const auto& [id, registration] : registrations_) {
            const bool ourKey =
                std::find(registration.keycodes.begin(), registration.keycodes.end(),
                          press->detail) != registration.keycodes.end();
            if (ourKey && held == registration.modifiers && handler_) {
                handler_(id);
                break;
            }
        }
    }
    return !connection_.broken();
}

} // namespace marlune
