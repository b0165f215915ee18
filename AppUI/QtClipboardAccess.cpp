#include "AppUI/QtClipboardAccess.h"

#include "ClipboardKit/PasteboardClassifier.h"
#include "MarluneCore/Log.h"
#include "Platform/SelectionCapture.h"
#include "Platform/SelectionCaptureWorker.h"
#include "Platform/X11Connection.h"
#include "Platform/X11SelectionReader.h"

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

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

QByteArray toQBytes(const std::vector<std::uint8_t>& data) {
    return {reinterpret_cast<const char*>(data.data()), static_cast<qsizetype>(data.size())};
}

QByteArray asUtf8(const QByteArray& bytes, std::string_view type) {
    return isLatin1TextTarget(type) ? QString::fromLatin1(bytes).toUtf8() : bytes;
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
        // Every window Qt makes carries the resource id base of its connection.
        const xcb_setup_t* setup = xcb_get_setup(x11->connection());
        const std::uint32_t base = setup->resource_id_base;
        const std::uint32_t mask = setup->resource_id_mask;
        worker_ = std::make_unique<SelectionCaptureWorker>(
            [base, mask](std::uint32_t owner) { return (owner & ~mask) == base; },
            captureReadBudget);
    }
}

QtClipboardAccess::~QtClipboardAccess() {
    // Its reads post to `connections_`, which must outlive them.
    worker_.reset();
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
    X11SelectionReader* x11 = reader();
    if (x11 == nullptr) {
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
    SelectionCaptureRequest request{x11->atom("CLIPBOARD"),
                                    Clock::now() + mainThreadReadBudget,
                                    {},
                                    [this](std::uint32_t owner) { return ownedHere(owner); }};
    if (unresponsiveOwner_ != 0) {
        request.skipOwners.push_back(unresponsiveOwner_);
    }
    for (int attempt = 0; attempt < maxReadAttempts; ++attempt) {
        SelectionCapture capture = captureSelection(*x11, request);
        if (capture.read.outcome == ClipboardCaptureRead::Outcome::changed) {
            continue;
        }
        PasteboardSnapshot result;
        captureFinished(std::move(capture), [&](ClipboardCaptureRead read) {
            if (read.outcome == ClipboardCaptureRead::Outcome::read) {
                result = std::move(read.snapshot);
            }
        });
        return result;
    }
    return {};
}

void QtClipboardAccess::readForCapture(std::vector<std::uint64_t> skipOwners,
                                       std::function<void(ClipboardCaptureRead)> done) {
    if (!worker_ || clipboard_->ownsClipboard()) {
        // Our own data is in memory; without X11 there is no connection of our own to ask.
        SelectionCapture capture;
        capture.heldHere = true;
        QMetaObject::invokeMethod(
            &connections_,
            [this, capture = std::move(capture), done = std::move(done)]() mutable {
                captureFinished(std::move(capture), done);
            },
            Qt::QueuedConnection);
        return;
    }
    worker_->read(std::move(skipOwners), [this, done = std::move(done)](SelectionCapture capture) {
        QMetaObject::invokeMethod(
            &connections_,
            [this, capture = std::move(capture), done]() mutable {
                captureFinished(std::move(capture), done);
            },
            Qt::QueuedConnection);
    });
}

void QtClipboardAccess::captureFinished(SelectionCapture capture,
                                        const std::function<void(ClipboardCaptureRead)>& done) {
    ClipboardCaptureRead& read = capture.read;
    if (capture.heldHere) {
        read.snapshot = readOnce();
    }
    const auto owner = static_cast<std::uint32_t>(read.owner);
    if (read.outcome == ClipboardCaptureRead::Outcome::timedOut) {
        unresponsiveOwner_ = owner;
    } else if (read.outcome == ClipboardCaptureRead::Outcome::read && owner == unresponsiveOwner_) {
        unresponsiveOwner_ = 0;
    }
    done(std::move(read));
}

bool QtClipboardAccess::unresponsive(std::uint32_t owner) const {
    return owner != 0 && owner == unresponsiveOwner_;
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
        if (std::chrono::steady_clock::now() - started > captureReadBudget) {
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
            if (const auto rank = textTargetRank(payload.type);
                rank && (!text || *rank < text->first)) {
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
        if (X11SelectionReader::isProtocolTarget(type) ||
            std::any_of(item.payloads.begin(), item.payloads.end(),
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
    // The keyboard is held while the user waits for the snippet: one budget for the whole save.
    const auto deadline = Clock::now() + mainThreadReadBudget;
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
        if (unresponsive(owner)) {
            return saveFailure(Outcome::timedOut, {});
        }
        const auto failed = [&](Outcome outcome, const std::string& target) {
            if (outcome == Outcome::timedOut) {
                unresponsiveOwner_ = owner;
            }
            return saveFailure(outcome, target);
        };
        auto listed = x11->targets(selection, deadline);
        if (const auto* outcome = std::get_if<Outcome>(&listed)) {
            return failed(*outcome, {});
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
                return failed(transfer.outcome, target.name);
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
    if (owner == XCB_NONE || unresponsive(owner)) {
        return std::nullopt;
    }
    const auto deadline = Clock::now() + mainThreadReadBudget;
    const auto listed = x11->targets(XCB_ATOM_PRIMARY, deadline);
    const auto* targets = std::get_if<std::vector<X11SelectionReader::Target>>(&listed);
    if (targets == nullptr) {
        if (std::get<Outcome>(listed) == Outcome::timedOut) {
            unresponsiveOwner_ = owner;
        }
        return std::nullopt;
    }
    const X11SelectionReader::Target* best = nullptr;
    std::optional<int> bestRank;
    for (const auto& target : *targets) {
        if (const auto rank = textTargetRank(target.name);
            rank && (!bestRank || *rank < *bestRank)) {
            best = &target;
            bestRank = rank;
        }
    }
    if (best == nullptr) {
        return std::nullopt;
    }
    const auto transfer = x11->fetch(XCB_ATOM_PRIMARY, best->atom, cap, deadline);
    if (transfer.outcome != Outcome::data) {
        if (transfer.outcome == Outcome::timedOut) {
            unresponsiveOwner_ = owner;
        }
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
