#include "AppUI/QtClipboardAccess.h"

#include "ClipboardKit/PasteboardClassifier.h"
#include "MarluneCore/Log.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QStringList>
#include <QCoreApplication>
#include <QVariant>
#include <set>
#include <string>
#include <utility>

namespace marlune {

namespace {

// A read that overlaps a change of owner mixes two owners' types; it is read again, but not
// forever if the clipboard keeps changing.
constexpr int maxReadAttempts = 3;

// Our clipboard contents. The xcb platform asks the data for a type when a client requests
// it, which is how we learn that the paste target has read what we put there.
class OwnedMimeData : public QMimeData {
public:
    explicit OwnedMimeData(std::function<void()> pulled) : pulled_(std::move(pulled)) {}

protected:
    QVariant retrieveData(const QString& type, QMetaType preferred) const override {
        if (pulled_) {
            pulled_();
        }
        return QMimeData::retrieveData(type, preferred);
    }

private:
    std::function<void()> pulled_;
};

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
}

QtClipboardAccess::~QtClipboardAccess() = default;

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

void QtClipboardAccess::write(const PasteboardSnapshot& snapshot) {
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
    std::set<std::string> seen;
    // The X11 clipboard holds one item; where a snapshot has several, the first flavour of
    // each type is offered.
    for (const auto& item : snapshot.items) {
        for (const auto& payload : item.payloads) {
            if (!seen.insert(payload.type).second) {
                continue;
            }
            mime->setData(QString::fromStdString(payload.type),
                          QByteArray(reinterpret_cast<const char*>(payload.data.data()),
                                     static_cast<qsizetype>(payload.data.size())));
        }
    }
    clipboard_->setMimeData(mime, QClipboard::Clipboard); // the clipboard takes ownership
}

} // namespace marlune
