#include "AppUI/QtClipboardAccess.h"

#include "ClipboardKit/PasteboardClassifier.h"
#include "MarluneCore/Log.h"
#include "Platform/X11Connection.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QMimeData>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QtGui/qguiapplication_platform.h>
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <poll.h>
#include <set>
#include <string>
#include <utility>
#include <vector>
#include <xcb/xcb.h>

namespace marlune {

namespace {

using Clock = std::chrono::steady_clock;

// A read that overlaps a change of owner mixes two owners' types; it is read again, but not
// forever if the clipboard keeps changing.
constexpr int maxReadAttempts = 3;
// An owner's target list: thousands of types is not a clipboard any application offers.
constexpr std::size_t targetListLimit = std::size_t{64} << 10;

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

QByteArray toQBytes(const std::vector<std::uint8_t>& data) {
    return {reinterpret_cast<const char*>(data.data()), static_cast<qsizetype>(data.size())};
}

// Targets that describe or act on the selection instead of holding content (asking for
// DELETE or INSERT_SELECTION would make the owner do something), and Qt's in-process names.
bool isProtocolTarget(std::string_view name) {
    static constexpr std::string_view protocol[] = {
        "TARGETS", "TIMESTAMP",        "MULTIPLE",        "SAVE_TARGETS",
        "DELETE",  "INSERT_SELECTION", "INSERT_PROPERTY", "INCR",
    };
    return std::find(std::begin(protocol), std::end(protocol), name) != std::end(protocol) ||
           name.starts_with("application/x-qt-");
}

// ICCCM's STRING, and text labelled Latin-1.
bool isLatin1Text(std::string_view type) {
    const std::string lower = lowercase(type);
    return type == "STRING" || lower.find("charset=iso-8859-1") != std::string::npos ||
           lower.find("charset=latin1") != std::string::npos;
}

// Where a plain-text flavour stands as the source of the text offered under every text
// target (lower first): an explicit UTF-8 label, the X11 UTF-8 target, text/plain (UTF-8 on
// this desktop), any other UTF-8 flavour, then Latin-1 ones; nothing for other types.
std::optional<int> textRank(std::string_view type) {
    const std::string lower = lowercase(type);
    if (lower == "text/plain;charset=utf-8") {
        return 0;
    }
    if (type == "UTF8_STRING") {
        return 1;
    }
    if (lower == "text/plain") {
        return 2;
    }
    if (PasteboardClassifier::uniformType(type, {}) != PasteboardClassifier::plainTextType) {
        return std::nullopt;
    }
    return isLatin1Text(type) ? 4 : 3;
}

QByteArray asUtf8(const QByteArray& bytes, std::string_view type) {
    return isLatin1Text(type) ? QString::fromLatin1(bytes).toUtf8() : bytes;
}

// Our clipboard contents. The xcb platform asks the data for a type when a client requests
// it, which is how we learn that the paste target has read what we put there.
class OwnedMimeData : public QMimeData {
public:
    explicit OwnedMimeData(std::function<void()> pulled) : pulled_(std::move(pulled)) {}

    // Bytes for a target that Qt's xcb backend would answer from another format.
    const QByteArray* ownBytes(std::string_view target) const {
        const auto found = ownBytes_.find(target);
        return found != ownBytes_.end() ? &found->second : nullptr;
    }
    void setOwnBytes(std::string target, QByteArray bytes) {
        ownBytes_[std::move(target)] = std::move(bytes);
    }
    void notePulled() const {
        if (pulled_) {
            pulled_();
        }
    }

protected:
    QVariant retrieveData(const QString& type, QMetaType preferred) const override {
        notePulled();
        return QMimeData::retrieveData(type, preferred);
    }

private:
    std::function<void()> pulled_;
    std::map<std::string, QByteArray, std::less<>> ownBytes_;
};

// Qt's xcb backend answers UTF8_STRING from "text/plain", STRING and TEXT from "text/plain"
// converted to Latin-1 and text/x-moz-url from "text/uri-list", whatever bytes a format of
// that name holds. Where what we wrote names such a target with
// bytes of its own (a restore of another owner's clipboard), this answers the request before
// Qt sees it. Requests inside MULTIPLE, and payloads too large for one request (they would
// need INCR), are left to Qt and get its answer.
class RemappedTargetServer : public QAbstractNativeEventFilter {
public:
    static constexpr std::string_view remapped[] = {"UTF8_STRING", "STRING", "TEXT",
                                                    "text/x-moz-url"};

    RemappedTargetServer(xcb_connection_t* connection, QClipboard* clipboard,
                         const QPointer<QMimeData>& written)
        : connection_(connection), clipboard_(clipboard), written_(written) {
        clipboardAtom_ = intern("CLIPBOARD");
        for (const std::string_view name : remapped) {
            targets_.emplace_back(intern(name), name);
        }
        // A ChangeProperty request carries 24 bytes besides its data.
        maxBytes_ = static_cast<std::size_t>(xcb_get_maximum_request_length(connection_)) * 4 - 28;
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override {
        if (eventType != "xcb_generic_event_t") {
            return false;
        }
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) != XCB_SELECTION_REQUEST) {
            return false;
        }
        const auto* request = reinterpret_cast<const xcb_selection_request_event_t*>(event);
        const auto* mine = dynamic_cast<const OwnedMimeData*>(written_.data());
        if (request->selection != clipboardAtom_ || mine == nullptr ||
            !clipboard_->ownsClipboard()) {
            return false;
        }
        const auto target = std::find_if(targets_.begin(), targets_.end(),
                                         [&](const auto& t) { return t.first == request->target; });
        const QByteArray* bytes =
            target != targets_.end() ? mine->ownBytes(target->second) : nullptr;
        if (bytes == nullptr || static_cast<std::size_t>(bytes->size()) > maxBytes_) {
            return false;
        }
        const xcb_atom_t property =
            request->property != XCB_NONE ? request->property : request->target;
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, request->requestor, property,
                            request->target, 8, static_cast<std::uint32_t>(bytes->size()),
                            bytes->constData());
        union {
            xcb_selection_notify_event_t notify;
            char wire[32]; // events travel as 32 bytes
        } answer{};
        answer.notify.response_type = XCB_SELECTION_NOTIFY;
        answer.notify.time = request->time;
        answer.notify.requestor = request->requestor;
        answer.notify.selection = request->selection;
        answer.notify.target = request->target;
        answer.notify.property = property;
        xcb_send_event(connection_, 0, request->requestor, XCB_EVENT_MASK_NO_EVENT, answer.wire);
        xcb_flush(connection_);
        mine->notePulled();
        return true;
    }

private:
    xcb_atom_t intern(std::string_view name) {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection_,
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()),
            nullptr));
        return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }

    xcb_connection_t* connection_;
    QClipboard* clipboard_;
    const QPointer<QMimeData>& written_;
    xcb_atom_t clipboardAtom_ = XCB_ATOM_NONE;
    std::vector<std::pair<xcb_atom_t, std::string_view>> targets_;
    std::size_t maxBytes_ = 0;
};

QNativeInterface::QX11Application* x11Application() {
    return qGuiApp != nullptr ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>()
                              : nullptr;
}

} // namespace

// One selection transfer at a time (ICCCM 2.4 and 2.7.2, with INCR), blocking, each step
// bounded in time and every payload bounded in size before it is fetched.
class X11SelectionReader {
public:
    struct Transfer {
        enum class Outcome { data, refused, tooLarge, timedOut, broken };
        Outcome outcome = Outcome::data;
        std::vector<std::uint8_t> bytes;
    };
    struct Target {
        xcb_atom_t atom;
        std::string name;
    };

    explicit X11SelectionReader(X11Connection connection)
        : connection_(std::move(connection)), property_(atom("MARLUNE_SELECTION")),
          incr_(atom("INCR")), targets_(atom("TARGETS")) {}
    ~X11SelectionReader() = default;
    X11SelectionReader(const X11SelectionReader&) = delete;
    X11SelectionReader& operator=(const X11SelectionReader&) = delete;

    bool broken() const { return connection_.broken(); }
    xcb_atom_t atom(std::string_view name) const { return connection_.atom(name); }

    xcb_window_t owner(xcb_atom_t selection) const {
        xcb_connection_t* c = connection_.get();
        const Reply<xcb_get_selection_owner_reply_t> reply(
            xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
        return reply ? reply->owner : XCB_NONE;
    }

    // The owner's content targets in its order, without protocol targets, or why not.
    std::variant<std::vector<Target>, Transfer::Outcome> targets(xcb_atom_t selection,
                                                                 Clock::time_point deadline) {
        const Transfer listed = fetch(selection, targets_, targetListLimit, deadline);
        if (listed.outcome != Transfer::Outcome::data) {
            return listed.outcome;
        }
        std::vector<xcb_atom_t> atoms;
        for (std::size_t at = 0; at + 4 <= listed.bytes.size(); at += 4) {
            xcb_atom_t value = 0;
            std::memcpy(&value, listed.bytes.data() + at, 4);
            if (value != XCB_ATOM_NONE &&
                std::find(atoms.begin(), atoms.end(), value) == atoms.end()) {
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

    // One target's bytes, at most `limit` of them.
    Transfer fetch(xcb_atom_t selection, xcb_atom_t target, std::size_t limit,
                   Clock::time_point deadline) {
        xcb_connection_t* c = connection_.get();
        const xcb_window_t requestor = window();
        xcb_convert_selection(c, requestor, selection, target, property_, XCB_CURRENT_TIME);
        xcb_flush(c);
        const EventPtr notified = waitFor(
            [&](const xcb_generic_event_t& event) {
                if ((event.response_type & 0x7f) != XCB_SELECTION_NOTIFY) {
                    return false;
                }
                const auto& n = reinterpret_cast<const xcb_selection_notify_event_t&>(event);
                return n.requestor == requestor && n.selection == selection && n.target == target;
            },
            answerDeadline(deadline));
        if (notified == nullptr) {
            return abandon(broken() ? Transfer::Outcome::broken : Transfer::Outcome::timedOut);
        }
        if (reinterpret_cast<const xcb_selection_notify_event_t*>(notified.get())->property ==
            XCB_NONE) {
            return {Transfer::Outcome::refused, {}};
        }
        // The first word tells the size (or, for INCR, the announced size) before the rest.
        const PropertyReply head = property(false, 1);
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
            return abandon(Transfer::Outcome::tooLarge);
        }
        const PropertyReply whole = property(true, static_cast<std::uint32_t>((size + 3) / 4));
        if (whole == nullptr) {
            return abandon(Transfer::Outcome::broken);
        }
        const auto* data = static_cast<const std::uint8_t*>(xcb_get_property_value(whole.get()));
        return {Transfer::Outcome::data, {data, data + xcb_get_property_value_length(whole.get())}};
    }

private:
    using EventPtr = Reply<xcb_generic_event_t>;
    using PropertyReply = Reply<xcb_get_property_reply_t>;

    static Clock::time_point answerDeadline(Clock::time_point deadline) {
        return std::min(deadline, Clock::now() + QtClipboardAccess::ownerAnswerTimeout);
    }

    xcb_window_t window() {
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

    // A transfer given up half-way: its window goes, so that whatever the owner still sends
    // to it can never be taken for the answer to a later request.
    Transfer abandon(Transfer::Outcome outcome) {
        if (window_ != XCB_NONE && !broken()) {
            xcb_destroy_window(connection_.get(), window_);
            xcb_flush(connection_.get());
        }
        window_ = XCB_NONE;
        return {outcome, {}};
    }

    PropertyReply property(bool remove, std::uint32_t words) const {
        xcb_connection_t* c = connection_.get();
        return PropertyReply(
            xcb_get_property_reply(c,
                                   xcb_get_property(c, remove ? 1 : 0, window_, property_,
                                                    XCB_GET_PROPERTY_TYPE_ANY, 0, words),
                                   nullptr));
    }

    Transfer readIncrementally(std::size_t announced, std::size_t limit,
                               Clock::time_point deadline) {
        // The announced size is a lower bound; when it alone is too much, nothing is fetched.
        if (announced > limit) {
            return abandon(Transfer::Outcome::tooLarge);
        }
        xcb_connection_t* c = connection_.get();
        // Deleting the INCR property asks for the first piece.
        xcb_delete_property(c, window_, property_);
        xcb_flush(c);
        std::vector<std::uint8_t> bytes;
        bytes.reserve(announced);
        for (;;) {
            const EventPtr changed = waitFor(
                [&](const xcb_generic_event_t& event) {
                    if ((event.response_type & 0x7f) != XCB_PROPERTY_NOTIFY) {
                        return false;
                    }
                    const auto& n = reinterpret_cast<const xcb_property_notify_event_t&>(event);
                    return n.window == window_ && n.atom == property_ &&
                           n.state == XCB_PROPERTY_NEW_VALUE;
                },
                answerDeadline(deadline));
            if (changed == nullptr) {
                return abandon(broken() ? Transfer::Outcome::broken : Transfer::Outcome::timedOut);
            }
            // One word more than there is room for shows a piece that does not fit.
            const std::size_t room = limit - bytes.size();
            const PropertyReply piece = property(true, static_cast<std::uint32_t>(room / 4 + 1));
            if (piece == nullptr) {
                return abandon(Transfer::Outcome::broken);
            }
            const auto length =
                static_cast<std::size_t>(xcb_get_property_value_length(piece.get()));
            if (piece->bytes_after > 0 || length > room) {
                return abandon(Transfer::Outcome::tooLarge);
            }
            if (length == 0) {
                return {Transfer::Outcome::data, std::move(bytes)};
            }
            const auto* data =
                static_cast<const std::uint8_t*>(xcb_get_property_value(piece.get()));
            bytes.insert(bytes.end(), data, data + length);
        }
    }

    template <typename Match> EventPtr waitFor(Match match, Clock::time_point deadline) {
        xcb_connection_t* c = connection_.get();
        for (;;) {
            while (EventPtr event{xcb_poll_for_event(c)}) {
                if (match(*event)) {
                    return event;
                }
            }
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (broken() || left.count() <= 0) {
                return nullptr;
            }
            pollfd readable{connection_.fileDescriptor(), POLLIN, 0};
            ::poll(&readable, 1, static_cast<int>(left.count()));
        }
    }

    X11Connection connection_;
    xcb_atom_t property_;
    xcb_atom_t incr_;
    xcb_atom_t targets_;
    // Our requestor window; made anew after a transfer is abandoned.
    xcb_window_t window_ = XCB_NONE;
};

namespace {

// Why a save failed, for the log line of the paste that is then not made; `target` is the
// target being read, empty for the target list.
ClipboardSaveFailed saveFailure(X11SelectionReader::Transfer::Outcome outcome,
                                const std::string& target) {
    using Outcome = X11SelectionReader::Transfer::Outcome;
    switch (outcome) {
    case Outcome::tooLarge:
        return {"The clipboard holds more than 64 MiB, too much to keep aside while a snippet "
                "is pasted."};
    case Outcome::broken:
        return {"The connection to the X server failed while the clipboard was being saved."};
    case Outcome::refused:
        return {"The application holding the clipboard does not tell what it holds."};
    case Outcome::data:
    case Outcome::timedOut:
        break;
    }
    return {target.empty() ? "The application holding the clipboard did not answer in time."
                           : "The application holding the clipboard did not hand over its \"" +
                                 target + "\" data in time."};
}

} // namespace

QtClipboardAccess::QtClipboardAccess() : QtClipboardAccess(QGuiApplication::clipboard()) {}

QtClipboardAccess::QtClipboardAccess(QClipboard* clipboard) : clipboard_(clipboard) {
    QObject::connect(clipboard_, &QClipboard::changed, &connections_,
                     [this](QClipboard::Mode mode) {
                         if (mode != QClipboard::Clipboard) {
                             return;
                         }
                         ++changeCount_;
                         if (handler_) {
                             handler_();
                         }
                     });
    if (auto* x11 = x11Application()) {
        targetServer_ =
            std::make_unique<RemappedTargetServer>(x11->connection(), clipboard_, written_);
        QCoreApplication::instance()->installNativeEventFilter(targetServer_.get());
    }
}

QtClipboardAccess::~QtClipboardAccess() {
    if (targetServer_ && QCoreApplication::instance() != nullptr) {
        QCoreApplication::instance()->removeNativeEventFilter(targetServer_.get());
    }
}

void QtClipboardAccess::setChangeHandler(std::function<void()> handler) {
    handler_ = std::move(handler);
}

void QtClipboardAccess::setPullHandler(std::function<void()> handler) {
    pull_->handler = std::move(handler);
}

PasteboardSnapshot QtClipboardAccess::snapshot() {
    PasteboardSnapshot result;
    for (int attempt = 0; attempt < maxReadAttempts; ++attempt) {
        const std::int64_t before = changeCount_;
        result = readOnce();
        // Qt waits for the owner's answers in a local event loop, so a change notice can
        // arrive in the middle of a read.
        if (changeCount_ == before) {
            return result;
        }
    }
    return result;
}

PasteboardSnapshot QtClipboardAccess::readOnce() {
    const QMimeData* mime = clipboard_->mimeData(QClipboard::Clipboard);
    if (mime == nullptr) {
        return {};
    }
    // Reading our own data is not a paste.
    pull_->readingOurselves = true;
    struct Reset {
        PullState& state;
        ~Reset() { state.readingOurselves = false; }
    } reset{*pull_};
    const auto started = std::chrono::steady_clock::now();
    PasteboardSnapshot::Item item;
    std::set<std::string> seen;
    for (const QString& format : mime->formats()) {
        std::string type = format.toStdString();
        if (!seen.insert(type).second) {
            continue;
        }
        if (PasteboardClassifier::isConcealedMarker(type)) {
            item.payloads.push_back({std::move(type), {}});
            continue;
        }
        const std::size_t cap = PasteboardClassifier::sizeCap(type);
        if (cap == 0) {
            continue;
        }
        if (std::chrono::steady_clock::now() - started > readBudget) {
            logs::platform.warning("Clipboard read took too long; left out the remaining types.");
            break;
        }
        const QByteArray bytes = mime->data(format);
        if (bytes.isEmpty() || static_cast<std::size_t>(bytes.size()) > cap) {
            continue;
        }
        item.payloads.push_back(
            {std::move(type), std::vector<std::uint8_t>(bytes.begin(), bytes.end())});
    }
    if (item.payloads.empty()) {
        return {};
    }
    return PasteboardSnapshot::fromItems({std::move(item)});
}

// Text goes out under every target a text client may ask for. Qt's xcb backend offers
// "text/plain" as text/plain, UTF8_STRING, STRING and TEXT, answering the first two with the
// UTF-8 bytes and the last two with the text converted to Latin-1, as ICCCM defines STRING:
// characters outside Latin-1 become "?" there. Clients that can take more ask for
// UTF8_STRING first, and a lossless STRING would have to be something other than Latin-1.
void QtClipboardAccess::write(const PasteboardSnapshot& snapshot) {
    if (snapshot.empty()) {
        // Giving the selection up leaves it without an owner: nothing is on offer.
        clipboard_->clear(QClipboard::Clipboard);
        return;
    }
    auto* mime = new OwnedMimeData([state = std::weak_ptr<PullState>(pull_)] {
        const auto live = state.lock();
        if (!live || live->readingOurselves || !live->handler) {
            return;
        }
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [state] {
                if (const auto again = state.lock(); again && again->handler) {
                    again->handler();
                }
            },
            Qt::QueuedConnection);
    });
    // The X11 clipboard holds one item; where a snapshot has several, the first flavour of
    // each type is offered.
    std::map<std::string, QByteArray, std::less<>> formats;
    std::optional<std::pair<int, QByteArray>> text;
    for (const auto& item : snapshot.items) {
        for (const auto& payload : item.payloads) {
            if (formats.contains(payload.type)) {
                continue;
            }
            QByteArray bytes = toQBytes(payload.data);
            mime->setData(QString::fromStdString(payload.type), bytes);
            if (const auto rank = textRank(payload.type); rank && (!text || *rank < text->first)) {
                text.emplace(*rank, asUtf8(bytes, payload.type));
            }
            formats.emplace(payload.type, std::move(bytes));
        }
    }
    if (text) {
        for (const char* type : {"text/plain", "text/plain;charset=utf-8"}) {
            if (formats.emplace(type, text->second).second) {
                mime->setData(QString::fromLatin1(type), text->second);
            }
        }
    }
    // Targets that Qt would answer from another format keep their own bytes where those
    // differ from Qt's answer.
    const auto plain = formats.find("text/plain");
    for (const std::string_view target : RemappedTargetServer::remapped) {
        const auto own = formats.find(target);
        if (own == formats.end()) {
            continue;
        }
        std::optional<QByteArray> qtAnswer;
        if (plain != formats.end() && target == "UTF8_STRING") {
            qtAnswer = plain->second;
        } else if (plain != formats.end() && (target == "STRING" || target == "TEXT")) {
            qtAnswer = QString::fromUtf8(plain->second).toLatin1();
        }
        if (qtAnswer != own->second) {
            mime->setOwnBytes(own->first, own->second);
        }
    }
    written_ = mime;
    clipboard_->setMimeData(mime, QClipboard::Clipboard); // the clipboard takes ownership
}

ClipboardSave QtClipboardAccess::saveFrom(const QMimeData& mime) {
    // Reading our own data is not a paste.
    pull_->readingOurselves = true;
    struct Reset {
        PullState& state;
        ~Reset() { state.readingOurselves = false; }
    } reset{*pull_};
    PasteboardSnapshot::Item item;
    std::size_t total = 0;
    for (const QString& format : mime.formats()) {
        std::string type = format.toStdString();
        if (isProtocolTarget(type) || std::any_of(item.payloads.begin(), item.payloads.end(),
                                                  [&](const auto& p) { return p.type == type; })) {
            continue;
        }
        const QByteArray bytes = mime.data(format);
        total += static_cast<std::size_t>(bytes.size());
        if (total > kWholeSaveLimit) {
            return saveFailure(X11SelectionReader::Transfer::Outcome::tooLarge, type);
        }
        item.payloads.push_back({std::move(type), {bytes.begin(), bytes.end()}});
    }
    if (item.payloads.empty()) {
        return PasteboardSnapshot{};
    }
    return PasteboardSnapshot::fromItems({std::move(item)});
}

X11SelectionReader* QtClipboardAccess::reader() {
    if (reader_ && reader_->broken()) {
        reader_.reset();
    }
    if (!reader_ && targetServer_) {
        auto opened = X11Connection::open();
        if (auto* connection = std::get_if<X11Connection>(&opened)) {
            reader_ = std::make_unique<X11SelectionReader>(std::move(*connection));
        }
    }
    return reader_.get();
}

bool QtClipboardAccess::ownedHere(std::uint32_t owner) const {
    auto* x11 = x11Application();
    if (x11 == nullptr || owner == XCB_NONE) {
        return false;
    }
    // Every window Qt makes carries the resource id base of its connection.
    const xcb_setup_t* setup = xcb_get_setup(x11->connection());
    return (owner & ~setup->resource_id_mask) == setup->resource_id_base;
}

bool QtClipboardAccess::holdsOurLastWrite() const {
    // Another owner taking the clipboard makes Qt drop our data, and with it `written_`; the
    // change notices may come later than that, so they are not what is asked here.
    return !written_.isNull() && clipboard_->ownsClipboard() &&
           clipboard_->mimeData(QClipboard::Clipboard) == written_.data();
}

ClipboardSave QtClipboardAccess::saveWhole() {
    using Outcome = X11SelectionReader::Transfer::Outcome;
    X11SelectionReader* x11 = reader();
    if (x11 == nullptr) {
        const QMimeData* mime = clipboard_->mimeData(QClipboard::Clipboard);
        return mime != nullptr ? saveFrom(*mime) : PasteboardSnapshot{};
    }
    const xcb_atom_t selection = x11->atom("CLIPBOARD");
    const auto deadline = Clock::now() + wholeSaveBudget;
    for (int attempt = 0; attempt < maxReadAttempts; ++attempt) {
        const xcb_window_t owner = x11->owner(selection);
        if (owner == XCB_NONE) {
            return PasteboardSnapshot{};
        }
        if (ownedHere(owner)) {
            // Asking ourselves over the X server would wait on this very thread.
            const QMimeData* mime = clipboard_->mimeData(QClipboard::Clipboard);
            return mime != nullptr ? saveFrom(*mime) : PasteboardSnapshot{};
        }
        auto listed = x11->targets(selection, deadline);
        if (const auto* outcome = std::get_if<Outcome>(&listed)) {
            return saveFailure(*outcome, {});
        }
        PasteboardSnapshot::Item item;
        std::size_t total = 0;
        for (const auto& target : std::get<std::vector<X11SelectionReader::Target>>(listed)) {
            auto transfer = x11->fetch(selection, target.atom, kWholeSaveLimit - total, deadline);
            if (transfer.outcome == Outcome::data) {
                total += transfer.bytes.size();
                item.payloads.push_back({target.name, std::move(transfer.bytes)});
            } else if (transfer.outcome != Outcome::refused) {
                // (A target its owner lists but will not give holds nothing to put back.)
                return saveFailure(transfer.outcome, target.name);
            }
        }
        // A new owner in the meantime may have answered some of the requests.
        if (x11->owner(selection) == owner) {
            return item.payloads.empty() ? PasteboardSnapshot{}
                                         : PasteboardSnapshot::fromItems({std::move(item)});
        }
    }
    return ClipboardSaveFailed{"The clipboard kept changing while it was being saved."};
}

std::optional<std::string> QtClipboardAccess::selectionText() {
    using Outcome = X11SelectionReader::Transfer::Outcome;
    const std::size_t cap = PasteboardClassifier::sizeCap("text/plain");
    X11SelectionReader* x11 = reader();
    const xcb_window_t owner = x11 != nullptr ? x11->owner(XCB_ATOM_PRIMARY) : XCB_NONE;
    if (x11 == nullptr || ownedHere(owner)) {
        const QMimeData* mime = clipboard_->mimeData(QClipboard::Selection);
        if (mime == nullptr || !mime->hasText()) {
            return std::nullopt;
        }
        const QByteArray text = mime->text().toUtf8();
        if (text.isEmpty() || static_cast<std::size_t>(text.size()) > cap) {
            return std::nullopt;
        }
        return text.toStdString();
    }
    if (owner == XCB_NONE) {
        return std::nullopt;
    }
    const auto deadline = Clock::now() + readBudget;
    const auto listed = x11->targets(XCB_ATOM_PRIMARY, deadline);
    const auto* targets = std::get_if<std::vector<X11SelectionReader::Target>>(&listed);
    if (targets == nullptr) {
        return std::nullopt;
    }
    const X11SelectionReader::Target* best = nullptr;
    std::optional<int> bestRank;
    for (const auto& target : *targets) {
        if (const auto rank = textRank(target.name); rank && (!bestRank || *rank < *bestRank)) {
            best = &target;
            bestRank = rank;
        }
    }
    if (best == nullptr) {
        return std::nullopt;
    }
    const auto transfer = x11->fetch(XCB_ATOM_PRIMARY, best->atom, cap, deadline);
    if (transfer.outcome != Outcome::data) {
        return std::nullopt;
    }
    QByteArray text = asUtf8(toQBytes(transfer.bytes), best->name);
    // Older toolkits end their strings with a NUL, as C strings.
    if (text.endsWith('\0')) {
        text.chop(1);
    }
    if (text.isEmpty() || static_cast<std::size_t>(text.size()) > cap) {
        return std::nullopt;
    }
    return text.toStdString();
}

} // namespace marlune
