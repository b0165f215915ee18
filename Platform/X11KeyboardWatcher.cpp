#include "Platform/X11KeyboardWatcher.h"

#include <cstdlib>
#include <cstring>
#include <xcb/xcb.h>
#include <xcb/xinput.h>
// xcb's XKB header names a field "explicit", which C++ reserves.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-x11.h>

namespace marlune {

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

// Every XKB event shares one event code and starts with this header.
struct XkbEventHeader {
    std::uint8_t responseType;
    std::uint8_t xkbType;
    std::uint16_t sequence;
    xcb_timestamp_t time;
    std::uint8_t deviceID;
};

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool selectXkbEvents(xcb_connection_t* connection, std::int32_t keyboardId) {
    constexpr std::uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY |
                                     XCB_XKB_EVENT_TYPE_MAP_NOTIFY |
                                     XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    constexpr std::uint16_t mapParts =
        XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP |
        XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS | XCB_XKB_MAP_PART_KEY_ACTIONS |
        XCB_XKB_MAP_PART_VIRTUAL_MODS | XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    constexpr std::uint16_t stateParts =
        XCB_XKB_STATE_PART_MODIFIER_BASE | XCB_XKB_STATE_PART_MODIFIER_LATCH |
        XCB_XKB_STATE_PART_MODIFIER_LOCK | XCB_XKB_STATE_PART_GROUP_BASE |
        XCB_XKB_STATE_PART_GROUP_LATCH | XCB_XKB_STATE_PART_GROUP_LOCK;
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = stateParts;
    details.stateDetails = stateParts;
    const auto cookie = xcb_xkb_select_events_aux_checked(
        connection, static_cast<xcb_xkb_device_spec_t>(keyboardId), events, 0, 0, mapParts,
        mapParts, &details);
    Reply<xcb_generic_error_t> error(xcb_request_check(connection, cookie));
    return error == nullptr;
}

bool selectRawInput(xcb_connection_t* connection, xcb_window_t root) {
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } masters{}, all{};
    masters.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    masters.head.mask_len = 1;
    masters.mask = XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE |
                   XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS;
    all.head.deviceid = XCB_INPUT_DEVICE_ALL;
    all.head.mask_len = 1;
    all.mask = XCB_INPUT_XI_EVENT_MASK_HIERARCHY;
    bool ok = true;
    for (const auto* selection : {&masters, &all}) {
        const auto cookie =
            xcb_input_xi_select_events_checked(connection, root, 1, &selection->head);
        Reply<xcb_generic_error_t> error(xcb_request_check(connection, cookie));
        ok = ok && error == nullptr;
    }
    return ok;
}

} // namespace

std::variant<std::unique_ptr<X11KeyboardWatcher>, X11Unavailable>
X11KeyboardWatcher::open(std::shared_ptr<InjectionLedger> ledger, std::string_view display,
                         std::string_view composeLocale) {
    auto opened = X11Connection::open(display);
    if (auto* failure = std::get_if<X11Unavailable>(&opened)) {
        return std::move(*failure);
    }
    X11Connection connection = std::move(std::get<X11Connection>(opened));
    xcb_connection_t* c = connection.get();

    std::uint8_t xkbEventBase = 0;
    if (xkb_x11_setup_xkb_extension(c, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                    XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr,
                                    &xkbEventBase, nullptr) == 0) {
        return X11Unavailable{"The X server lacks the XKB extension that text expansion needs."};
    }
    const std::int32_t keyboardId = xkb_x11_get_core_keyboard_device_id(c);

    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(c, &xcb_input_id);
    Reply<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    if (xinput == nullptr || xinput->present == 0 || version == nullptr ||
        (version->major_version < 2 ||
         (version->major_version == 2 && version->minor_version < 1))) {
        return X11Unavailable{
            "The X server lacks the XInput 2.1 extension that text expansion needs."};
    }

    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    xkb_keymap* keymap =
        context == nullptr
            ? nullptr
            : xkb_x11_keymap_new_from_device(context, c, keyboardId, XKB_KEYMAP_COMPILE_NO_FLAGS);
    xkb_context_unref(context);
    xkb_state* state =
        keymap == nullptr ? nullptr : xkb_x11_state_new_from_device(keymap, c, keyboardId);
    if (state == nullptr) {
        xkb_keymap_unref(keymap);
        return X11Unavailable{"The keyboard layout could not be read from the X server."};
    }
    const std::string locale = composeLocale.empty()
                                   ? XkbKeymapTranslator::composeLocaleFromEnvironment()
                                   : std::string(composeLocale);
    auto translator = std::make_unique<XkbKeymapTranslator>(
        keymap, state, XkbKeymapTranslator::StateSource::server, locale);

    if (!selectXkbEvents(c, keyboardId) || !selectRawInput(c, connection.root())) {
        return X11Unavailable{"The X server refused to report keyboard events."};
    }
    const std::uint32_t propertyMask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c, connection.root(), XCB_CW_EVENT_MASK, &propertyMask);
    const std::uint32_t activeWindowAtom = connection.atom("_NET_ACTIVE_WINDOW");

    auto watcher = std::make_unique<X11KeyboardWatcher>(
        std::move(connection), std::move(ledger), std::move(translator), keyboardId, xkbEventBase,
        xinput->major_opcode, activeWindowAtom);
    watcher->refreshXTestDevices();
    return watcher;
}

X11KeyboardWatcher::X11KeyboardWatcher(X11Connection connection,
                                       std::shared_ptr<InjectionLedger> ledger,
                                       std::unique_ptr<XkbKeymapTranslator> translator,
                                       std::int32_t keyboardId, std::uint8_t xkbEventBase,
                                       std::uint8_t xinputOpcode, std::uint32_t activeWindowAtom)
    : connection_(std::move(connection)), ledger_(std::move(ledger)),
      translator_(std::move(translator)), keyboardId_(keyboardId), xkbEventBase_(xkbEventBase),
      xinputOpcode_(xinputOpcode), activeWindowAtom_(activeWindowAtom) {}

X11KeyboardWatcher::~X11KeyboardWatcher() = default;

void X11KeyboardWatcher::setHandler(Handler handler) {
    handler_ = std::move(handler);
}

bool X11KeyboardWatcher::processPendingEvents() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_.get())) {
        Reply<xcb_generic_event_t> owned(event);
        handle(event);
    }
    return !connection_.broken();
}

bool X11KeyboardWatcher::syncAndProcess() {
    connection_.sync();
    return processPendingEvents();
}

void X11KeyboardWatcher::deliver(const KeyboardEvent& event) {
    if (handler_) {
        handler_(event);
    }
}

void X11KeyboardWatcher::handle(const void* event) {
    const auto* generic = static_cast<const xcb_generic_event_t*>(event);
    const std::uint8_t type = generic->response_type & 0x7f;
    if (type == XCB_GE_GENERIC) {
        const auto* ge = static_cast<const xcb_ge_generic_event_t*>(event);
        if (ge->extension == xinputOpcode_) {
            handleRawEvent(event);
        }
    } else if (type == xkbEventBase_) {
        handleXkbEvent(event);
    } else if (type == XCB_PROPERTY_NOTIFY) {
        const auto* property = static_cast<const xcb_property_notify_event_t*>(event);
        if (property->atom == activeWindowAtom_ && property->window == connection_.root()) {
            translator_->resetCompose();
            deliver(keyboard::FocusChanged{});
        }
    }
}

void X11KeyboardWatcher::handleRawEvent(const void* event) {
    const auto* raw = static_cast<const xcb_input_raw_key_press_event_t*>(event);
    switch (raw->event_type) {
    case XCB_INPUT_RAW_KEY_PRESS:
    case XCB_INPUT_RAW_KEY_RELEASE: {
        const bool press = raw->event_type == XCB_INPUT_RAW_KEY_PRESS;
        if (xtestDevices_.count(raw->sourceid) != 0 &&
            ledger_->claim(raw->detail, press, InjectionLedger::Clock::now())) {
            return;
        }
        const auto translated =
            press ? translator_->keyPressed(raw->detail) : translator_->keyReleased(raw->detail);
        if (translated) {
            deliver(*translated);
        }
        return;
    }
    case XCB_INPUT_RAW_BUTTON_PRESS:
        // Buttons 4 to 7 are the wheel: scrolling leaves the caret where it was.
        if (raw->detail < 4 || raw->detail > 7) {
            translator_->resetCompose();
            deliver(keyboard::MouseClicked{});
        }
        return;
    case XCB_INPUT_HIERARCHY:
        refreshXTestDevices();
        return;
    default:
        return;
    }
}

void X11KeyboardWatcher::handleXkbEvent(const void* event) {
    const auto* header = static_cast<const XkbEventHeader*>(event);
    if (header->deviceID != keyboardId_) {
        return;
    }
    switch (header->xkbType) {
    case XCB_XKB_NEW_KEYBOARD_NOTIFY: {
        const auto* notify = static_cast<const xcb_xkb_new_keyboard_notify_event_t*>(event);
        if ((notify->changed & XCB_XKB_NKN_DETAIL_KEYCODES) != 0) {
            reloadKeymap();
        }
        return;
    }
    case XCB_XKB_MAP_NOTIFY:
        reloadKeymap();
        return;
    case XCB_XKB_STATE_NOTIFY: {
        const auto* notify = static_cast<const xcb_xkb_state_notify_event_t*>(event);
        const XkbStateMask mask{notify->baseMods,  notify->latchedMods,  notify->lockedMods,
                                notify->baseGroup, notify->latchedGroup, notify->lockedGroup};
        if (translator_->updateMask(mask)) {
            deliver(keyboard::LayoutChanged{});
        }
        return;
    }
    default:
        return;
    }
}

void X11KeyboardWatcher::reloadKeymap() {
    xcb_connection_t* c = connection_.get();
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (context == nullptr) {
        return;
    }
    xkb_keymap* keymap =
        xkb_x11_keymap_new_from_device(context, c, keyboardId_, XKB_KEYMAP_COMPILE_NO_FLAGS);
    xkb_context_unref(context);
    xkb_state* state =
        keymap == nullptr ? nullptr : xkb_x11_state_new_from_device(keymap, c, keyboardId_);
    if (state == nullptr) {
        // Keep translating with the old keymap rather than not at all.
        xkb_keymap_unref(keymap);
        return;
    }
    translator_->replaceKeymap(keymap, state);
    deliver(keyboard::LayoutChanged{});
}

void X11KeyboardWatcher::refreshXTestDevices() {
    xcb_connection_t* c = connection_.get();
    Reply<xcb_input_xi_query_device_reply_t> reply(xcb_input_xi_query_device_reply(
        c, xcb_input_xi_query_device(c, XCB_INPUT_DEVICE_ALL), nullptr));
    if (reply == nullptr) {
        return;
    }
    xtestDevices_.clear();
    for (auto it = xcb_input_xi_query_device_infos_iterator(reply.get()); it.rem > 0;
         xcb_input_xi_device_info_next(&it)) {
        const std::string_view name(xcb_input_xi_device_info_name(it.data),
                                    xcb_input_xi_device_info_name_length(it.data));
        // The server names each master's XTest keyboard "<master> XTEST keyboard".
        if (it.data->type == XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD &&
            endsWith(name, "XTEST keyboard")) {
            xtestDevices_.insert(it.data->deviceid);
        }
    }
}

} // namespace marlune
