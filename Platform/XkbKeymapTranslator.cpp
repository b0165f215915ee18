#include "Platform/XkbKeymapTranslator.h"

#include <array>
#include <cstdlib>
#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon.h>

namespace marlune {

namespace {

// Keys that only change what other keys do: Shift and friends, Caps and Num Lock, AltGr, the
// layout switches. They type nothing and must not disturb a compose sequence.
bool isModifierKeysym(xkb_keysym_t sym) {
    return (sym >= XKB_KEY_Shift_L && sym <= XKB_KEY_Hyper_R) || sym == XKB_KEY_Mode_switch ||
           sym == XKB_KEY_Num_Lock ||
           (sym >= XKB_KEY_ISO_Lock && sym <= XKB_KEY_ISO_Last_Group_Lock);
}

std::optional<ModifierKey> modifierKeyFor(xkb_keysym_t sym) {
    switch (sym) {
    case XKB_KEY_Shift_L:
        return ModifierKey::leftShift;
    case XKB_KEY_Shift_R:
        return ModifierKey::rightShift;
    case XKB_KEY_Control_L:
        return ModifierKey::leftControl;
    case XKB_KEY_Control_R:
        return ModifierKey::rightControl;
    case XKB_KEY_Alt_L:
    case XKB_KEY_Meta_L:
        return ModifierKey::leftAlt;
    case XKB_KEY_Alt_R:
    case XKB_KEY_Meta_R:
        return ModifierKey::rightAlt;
    case XKB_KEY_Super_L:
        return ModifierKey::leftSuper;
    case XKB_KEY_Super_R:
        return ModifierKey::rightSuper;
    default:
        return std::nullopt;
    }
}

NamedKey namedKeyFor(xkb_keysym_t sym) {
    switch (sym) {
    case XKB_KEY_Return:
        return NamedKey::returnKey;
    case XKB_KEY_KP_Enter:
        return NamedKey::keypadEnter;
    case XKB_KEY_Tab:
    case XKB_KEY_ISO_Left_Tab:
        return NamedKey::tab;
    case XKB_KEY_Escape:
        return NamedKey::escape;
    case XKB_KEY_Left:
    case XKB_KEY_KP_Left:
        return NamedKey::left;
    case XKB_KEY_Right:
    case XKB_KEY_KP_Right:
        return NamedKey::right;
    case XKB_KEY_Up:
    case XKB_KEY_KP_Up:
        return NamedKey::up;
    case XKB_KEY_Down:
    case XKB_KEY_KP_Down:
        return NamedKey::down;
    case XKB_KEY_Home:
    case XKB_KEY_KP_Home:
        return NamedKey::home;
    case XKB_KEY_End:
    case XKB_KEY_KP_End:
        return NamedKey::end;
    case XKB_KEY_Prior:
    case XKB_KEY_KP_Prior:
        return NamedKey::pageUp;
    case XKB_KEY_Next:
    case XKB_KEY_KP_Next:
        return NamedKey::pageDown;
    case XKB_KEY_Delete:
    case XKB_KEY_KP_Delete:
        return NamedKey::deleteForward;
    default:
        return NamedKey::other;
    }
}

// Control characters come out of keys such as Escape or Control+letter; they are not text.
bool isPrintable(std::string_view text) {
    if (text.empty()) {
        return false;
    }
    const auto first = static_cast<unsigned char>(text.front());
    return !(text.size() == 1 && (first < 0x20 || first == 0x7f));
}

template <std::size_t N> void wipe(std::array<char, N>& bytes) {
    volatile char* p = bytes.data();
    for (std::size_t i = 0; i < N; ++i) {
        p[i] = 0;
    }
}

std::unique_ptr<XkbKeymapTranslator> adoptOffline(xkb_context* context, xkb_keymap* keymap,
                                                  std::string_view composeLocale,
                                                  XkbKeymapTranslator::StateSource source) {
    xkb_context_unref(context);
    if (keymap == nullptr) {
        return nullptr;
    }
    xkb_state* state = xkb_state_new(keymap);
    if (state == nullptr) {
        xkb_keymap_unref(keymap);
        return nullptr;
    }
    return std::make_unique<XkbKeymapTranslator>(keymap, state, source, composeLocale);
}

} // namespace

std::unique_ptr<XkbKeymapTranslator> XkbKeymapTranslator::fromNames(std::string_view layout,
                                                                    std::string_view variant,
                                                                    std::string_view options,
                                                                    std::string_view composeLocale,
                                                                    StateSource source) {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
    if (context == nullptr) {
        return nullptr;
    }
    const std::string layoutText(layout);
    const std::string variantText(variant);
    const std::string optionsText(options);
    xkb_rule_names names{};
    names.rules = "evdev";
    names.model = "pc105";
    names.layout = layoutText.c_str();
    names.variant = variantText.c_str();
    names.options = optionsText.c_str();
    xkb_keymap* keymap = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    return adoptOffline(context, keymap, composeLocale, source);
}

std::unique_ptr<XkbKeymapTranslator>
XkbKeymapTranslator::fromKeymapText(std::string_view keymapText, std::string_view composeLocale) {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
    if (context == nullptr) {
        return nullptr;
    }
    xkb_keymap* keymap =
        xkb_keymap_new_from_buffer(context, keymapText.data(), keymapText.size(),
                                   XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
    return adoptOffline(context, keymap, composeLocale, StateSource::keys);
}

XkbKeymapTranslator::XkbKeymapTranslator(xkb_keymap* keymap, xkb_state* state, StateSource source,
                                         std::string_view composeLocale)
    : source_(source), keymap_(keymap), state_(state) {
    cacheModifierIndices();
    if (composeLocale.empty()) {
        return;
    }
    context_ = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
    if (context_ == nullptr) {
        return;
    }
    const std::string locale(composeLocale);
    composeTable_ =
        xkb_compose_table_new_from_locale(context_, locale.c_str(), XKB_COMPOSE_COMPILE_NO_FLAGS);
    if (composeTable_ != nullptr) {
        composeState_ = xkb_compose_state_new(composeTable_, XKB_COMPOSE_STATE_NO_FLAGS);
    }
}

XkbKeymapTranslator::~XkbKeymapTranslator() {
    // The compose state remembers the keys of a sequence in progress.
    if (composeState_ != nullptr) {
        xkb_compose_state_reset(composeState_);
        xkb_compose_state_unref(composeState_);
    }
    xkb_compose_table_unref(composeTable_);
    xkb_state_unref(state_);
    xkb_keymap_unref(keymap_);
    xkb_context_unref(context_);
}

std::string XkbKeymapTranslator::composeLocaleFromEnvironment() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        const std::string_view locale(value);
        if (locale == "C" || locale == "POSIX") {
            break;
        }
        return std::string(locale);
    }
    return "C.UTF-8";
}

void XkbKeymapTranslator::cacheModifierIndices() {
    shiftIndex_ = xkb_keymap_mod_get_index(keymap_, XKB_MOD_NAME_SHIFT);
    controlIndex_ = xkb_keymap_mod_get_index(keymap_, XKB_MOD_NAME_CTRL);
    altIndex_ = xkb_keymap_mod_get_index(keymap_, XKB_MOD_NAME_ALT);
    superIndex_ = xkb_keymap_mod_get_index(keymap_, XKB_MOD_NAME_LOGO);
}

KeyModifiers XkbKeymapTranslator::activeModifiers() const {
    const auto active = [this](std::uint32_t index) {
        return index != XKB_MOD_INVALID &&
               xkb_state_mod_index_is_active(state_, index, XKB_STATE_MODS_EFFECTIVE) > 0;
    };
    return KeyModifiers{active(shiftIndex_), active(controlIndex_), active(altIndex_),
                        active(superIndex_)};
}

std::optional<KeyboardEvent> XkbKeymapTranslator::keyPressed(std::uint32_t keycode) {
    const xkb_keysym_t sym = xkb_state_key_get_one_sym(state_, keycode);
    std::optional<KeyboardEvent> event;
    const KeyModifiers modifiers = activeModifiers();

    if (isModifierKeysym(sym)) {
        if (const auto key = modifierKeyFor(sym)) {
            event = keyboard::ModifierChanged{*key, true};
        }
    } else if (sym == XKB_KEY_BackSpace) {
        resetCompose();
        event = keyboard::BackspacePressed{modifiers};
    } else if (const NamedKey named = namedKeyFor(sym);
               named != NamedKey::other || modifiers.control || modifiers.alt || modifiers.super) {
        // A shortcut types nothing whatever its letter, and ends any compose sequence.
        resetCompose();
        event = keyboard::KeyPressed{named, sym, modifiers};
    } else {
        bool composed = false;
        if (composeState_ != nullptr &&
            xkb_compose_state_feed(composeState_, sym) == XKB_COMPOSE_FEED_ACCEPTED) {
            switch (xkb_compose_state_get_status(composeState_)) {
            case XKB_COMPOSE_COMPOSING:
                composed = true;
                break;
            case XKB_COMPOSE_CANCELLED:
                xkb_compose_state_reset(composeState_);
                composed = true;
                break;
            case XKB_COMPOSE_COMPOSED: {
                std::array<char, 64> text{};
                const int size =
                    xkb_compose_state_get_utf8(composeState_, text.data(), text.size());
                const xkb_keysym_t composedSym = xkb_compose_state_get_one_sym(composeState_);
                xkb_compose_state_reset(composeState_);
                if (size > 0 && static_cast<std::size_t>(size) < text.size()) {
                    event =
                        keyboard::TextTyped{std::string(text.data(), size), composedSym, modifiers};
                }
                wipe(text);
                composed = true;
                break;
            }
            case XKB_COMPOSE_NOTHING:
                break;
            }
        }
        if (!composed) {
            std::array<char, 64> text{};
            const int size = xkb_state_key_get_utf8(state_, keycode, text.data(), text.size());
            const std::string_view typed(text.data(),
                                         size > 0 && static_cast<std::size_t>(size) < text.size()
                                             ? static_cast<std::size_t>(size)
                                             : 0);
            if (isPrintable(typed)) {
                event = keyboard::TextTyped{std::string(typed), sym, modifiers};
            } else {
                event = keyboard::KeyPressed{NamedKey::other, sym, modifiers};
            }
            wipe(text);
        }
    }

    if (source_ == StateSource::keys) {
        xkb_state_update_key(state_, keycode, XKB_KEY_DOWN);
    }
    return event;
}

std::optional<KeyboardEvent> XkbKeymapTranslator::keyReleased(std::uint32_t keycode) {
    std::optional<KeyboardEvent> event;
    if (const auto key = modifierKeyFor(xkb_state_key_get_one_sym(state_, keycode))) {
        event = keyboard::ModifierChanged{*key, false};
    }
    if (source_ == StateSource::keys) {
        xkb_state_update_key(state_, keycode, XKB_KEY_UP);
    }
    return event;
}

bool XkbKeymapTranslator::updateMask(const XkbStateMask& mask) {
    const auto components =
        xkb_state_update_mask(state_, mask.depressedMods, mask.latchedMods, mask.lockedMods,
                              static_cast<xkb_layout_index_t>(mask.baseGroup),
                              static_cast<xkb_layout_index_t>(mask.latchedGroup),
                              static_cast<xkb_layout_index_t>(mask.lockedGroup));
    return (components & XKB_STATE_LAYOUT_EFFECTIVE) != 0;
}

void XkbKeymapTranslator::replaceKeymap(xkb_keymap* keymap, xkb_state* state) {
    xkb_state_unref(state_);
    xkb_keymap_unref(keymap_);
    keymap_ = keymap;
    state_ = state;
    cacheModifierIndices();
    resetCompose();
}

void XkbKeymapTranslator::resetCompose() {
    if (composeState_ != nullptr) {
        xkb_compose_state_reset(composeState_);
    }
}

std::uint32_t XkbKeymapTranslator::layoutIndex() const {
    return xkb_state_serialize_layout(state_, XKB_STATE_LAYOUT_EFFECTIVE);
}

std::optional<std::uint32_t> XkbKeymapTranslator::keycodeByName(std::string_view keyName) const {
    const std::string name(keyName);
    const xkb_keycode_t keycode = xkb_keymap_key_by_name(keymap_, name.c_str());
    if (keycode == XKB_KEYCODE_INVALID) {
        return std::nullopt;
    }
    return keycode;
}

} // namespace marlune
