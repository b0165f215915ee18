#include "Platform/X11SelectionReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <poll.h>
#include <string>
#include <utility>
#include <xcb/xcb.h>

namespace marlune {

namespace {

using Clock = SelectionSource::Clock;

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;
using EventPtr = Reply<xcb_generic_event_t>;
using PropertyReply = Reply<xcb_get_property_reply_t>;

PropertyReply readProperty(xcb_connection_t* c, xcb_window_t window, xcb_atom_t property,
                           bool remove, std::uint32_t words) {
    return PropertyReply(xcb_get_property_reply(
        c,
        xcb_get_property(c, remove ? 1 : 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, words),
        nullptr));
}

// The first event that `match` accepts (others are dropped: this connection only hears about
// its own transfers), or null at the deadline, on a broken connection, or when `interrupt`
// turns readable.
template <typename Match>
EventPtr waitFor(const X11Connection& connection, int interrupt, Match match,
                 Clock::time_point deadline) {
    xcb_connection_t* c = connection.get();
    for (;;) {
        while (EventPtr event{xcb_poll_for_event(c)}) {
            if (match(*event)) {
                return event;
            }
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (connection.broken() || left.count() <= 0) {
            return nullptr;
        }
        pollfd fds[2] = {{connection.fileDescriptor(), POLLIN, 0}, {interrupt, POLLIN, 0}};
        ::poll(fds, interrupt >= 0 ? 2 : 1, static_cast<int>(left.count()));
        if (interrupt >= 0 && (fds[1].revents & POLLIN) != 0) {
            return nullptr;
        }
    }
}

} // namespace

X11SelectionReader::X11SelectionReader(X11Connection connection)
    : connection_(std::move(connection)), property_(atom("MARLUNE_SELECTION")), incr_(atom("INCR")),
      targets_(atom("TARGETS")) {}

X11SelectionReader::~X11SelectionReader() = default;

bool X11SelectionReader::isProtocolTarget(std::string_view name) {
    static constexpr std::string_view protocol[] = {
        "TARGETS", "TIMESTAMP",        "MULTIPLE",        "SAVE_TARGETS",
        "DELETE",  "INSERT_SELECTION", "INSERT_PROPERTY", "INCR",
    };
    return std::find(std::begin(protocol), std::end(protocol), name) != std::end(protocol) ||
           name.starts_with("application/x-qt-");
}

std::uint32_t X11SelectionReader::owner(std::uint32_t selection) {
    xcb_connection_t* c = connection_.get();
    const Reply<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
    return reply ? reply->owner : XCB_NONE;
}

SelectionSource::Targets X11SelectionReader::targets(std::uint32_t selection,
                                                     Clock::time_point deadline) {
    const Transfer listed = fetch(selection, targets_, targetListLimit, deadline);
    if (listed.outcome != Transfer::Outcome::data) {
        return listed.outcome;
    }
    std::vector<xcb_atom_t> atoms;
    for (std::size_t at = 0; at + 4 <= listed.bytes.size(); at += 4) {
        xcb_atom_t value = 0;
        std::memcpy(&value, listed.bytes.data() + at, 4);
        if (value != XCB_ATOM_NONE && std::find(atoms.begin(), atoms.end(), value) == atoms.end()) {
            atoms.push_back(value);
        }
    }
    xcb_connection_t* c = connection_.get();
    std::vector<xcb_get_atom_name_cookie_t> cookies;
    cookies.reserve(atoms.size());
    for (const xcb_atom_t a : atoms) {
        cookies.push_back(xcb_get_atom_name(c, a));
    }
    std::vector<Target> result;
    for (std::size_t i = 0; i < atoms.size(); ++i) {
        const Reply<xcb_get_atom_name_reply_t> name(
            xcb_get_atom_name_reply(c, cookies[i], nullptr));
        if (name == nullptr) {
            continue;
        }
        std::string text(xcb_get_atom_name_name(name.get()),
                         static_cast<std::size_t>(xcb_get_atom_name_name_length(name.get())));
        if (!isProtocolTarget(text)) {
            result.push_back({atoms[i], std::move(text)});
        }
    }
    return result;
}

SelectionTransfer X11SelectionReader::fetch(std::uint32_t selection, std::uint32_t target,
                                            std::size_t limit, Clock::time_point deadline) {
    xcb_connection_t* c = connection_.get();
    const xcb_window_t requestor = window();
    xcb_convert_selection(c, requestor, selection, target, property_, XCB_CURRENT_TIME);
    xcb_flush(c);
    const EventPtr notified = waitFor(
        connection_, interrupt_,
        [&](const xcb_generic_event_t& event) {
            if ((event.response_type & 0x7f) != XCB_SELECTION_NOTIFY) {
                return false;
            }
            const auto& n = reinterpret_cast<const xcb_selection_notify_event_t&>(event);
            return n.requestor == requestor && n.selection == selection && n.target == target;
        },
        deadline);
    if (notified == nullptr) {
        return abandon(broken() ? Transfer::Outcome::broken : Transfer::Outcome::timedOut);
    }
    if (reinterpret_cast<const xcb_selection_notify_event_t*>(notified.get())->property ==
        XCB_NONE) {
        return {Transfer::Outcome::refused, {}};
    }
    // The first word tells the size (or, for INCR, the announced size) before the rest.
    const PropertyReply head = readProperty(c, window_, property_, false, 1);
    if (head == nullptr) {
        return abandon(Transfer::Outcome::broken);
    }
    if (head->type == XCB_NONE) {
        return {Transfer::Outcome::refused, {}}; // it named a property it never set
    }
    if (head->type == incr_) {
        std::uint32_t announced = 0;
        if (xcb_get_property_value_length(head.get()) >= 4) {
            std::memcpy(&announced, xcb_get_property_value(head.get()), 4);
        }
        return readIncrementally(announced, limit, deadline);
    }
    const std::size_t size =
        static_cast<std::size_t>(xcb_get_property_value_length(head.get())) + head->bytes_after;
    if (size > limit) {
        return abandon(Transfer::Outcome::tooLarge, size);
    }
    const PropertyReply whole =
        readProperty(c, window_, property_, true, static_cast<std::uint32_t>((size + 3) / 4));
    if (whole == nullptr) {
        return abandon(Transfer::Outcome::broken);
    }
    const auto* data = static_cast<const std::uint8_t*>(xcb_get_property_value(whole.get()));
    return {Transfer::Outcome::data, {data, data + xcb_get_property_value_length(whole.get())}};
}

std::uint32_t X11SelectionReader::window() {
    if (window_ == XCB_NONE) {
        xcb_connection_t* c = connection_.get();
        window_ = xcb_generate_id(c);
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(c, 0, window_, connection_.root(), 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                          &events);
    }
    return window_;
}

SelectionTransfer X11SelectionReader::abandon(Transfer::Outcome outcome, std::uint64_t size) {
    if (window_ != XCB_NONE && !broken()) {
        xcb_destroy_window(connection_.get(), window_);
        xcb_flush(connection_.get());
    }
    window_ = XCB_NONE;
    return {outcome, {}, size};
}

SelectionTransfer X11SelectionReader::readIncrementally(std::size_t announced, std::size_t limit,
                                                        Clock::time_point deadline) {
    xcb_connection_t* c = connection_.get();
    // An owner cannot tell that a transfer was given up, and some (xclip, for one) serve nobody
    // else until theirs ends: a payload that turns out too large is read to its end and
    // dropped, as far as the deadline allows. The announced size is only a lower bound.
    bool tooLarge = announced > limit;
    std::uint64_t size = 0;
    std::vector<std::uint8_t> bytes;
    if (!tooLarge) {
        bytes.reserve(announced);
    }
    // Deleting the INCR property asks for the first piece.
    xcb_delete_property(c, window_, property_);
    xcb_flush(c);
    for (;;) {
        const EventPtr changed = waitFor(
            connection_, interrupt_,
            [&](const xcb_generic_event_t& event) {
                if ((event.response_type & 0x7f) != XCB_PROPERTY_NOTIFY) {
                    return false;
                }
                const auto& n = reinterpret_cast<const xcb_property_notify_event_t&>(event);
                return n.window == window_ && n.atom == property_ &&
                       n.state == XCB_PROPERTY_NEW_VALUE;
            },
            deadline);
        if (changed == nullptr) {
            if (broken()) {
                return abandon(Transfer::Outcome::broken);
            }
            return tooLarge ? abandon(Transfer::Outcome::tooLarge,
                                      std::max<std::uint64_t>(size, announced))
                            : abandon(Transfer::Outcome::timedOut);
        }
        // One word more than there is room for shows a piece that does not fit; a piece to be
        // dropped is read whole, since only a property read to its end is deleted.
        const std::size_t room = tooLarge ? 0 : limit - bytes.size();
        const std::uint32_t words = tooLarge ? std::numeric_limits<std::uint32_t>::max() / 4
                                             : static_cast<std::uint32_t>(room / 4 + 1);
        const PropertyReply piece = readProperty(c, window_, property_, true, words);
        if (piece == nullptr) {
            return abandon(Transfer::Outcome::broken);
        }
        const auto length = static_cast<std::size_t>(xcb_get_property_value_length(piece.get()));
        size += length + piece->bytes_after;
        if (length == 0 && piece->bytes_after == 0) {
            if (tooLarge) {
                return {Transfer::Outcome::tooLarge, {}, std::max<std::uint64_t>(size, announced)};
            }
            return {Transfer::Outcome::data, std::move(bytes)};
        }
        if (!tooLarge && (piece->bytes_after > 0 || length > room)) {
            tooLarge = true;
            bytes = {};
        }
        if (piece->bytes_after > 0) {
            // The owner sends its next piece once this one is gone.
            xcb_delete_property(c, window_, property_);
            xcb_flush(c);
        }
        if (!tooLarge) {
            const auto* data =
                static_cast<const std::uint8_t*>(xcb_get_property_value(piece.get()));
            bytes.insert(bytes.end(), data, data + length);
        }
    }
}

} // namespace marlune
