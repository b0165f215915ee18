#pragma once

#include "Marlune/ClipboardAccess.h"

#include <QMimeData>
#include <QObject>
#include <QPointer>
#include <chrono>
#include <memory>

class QAbstractNativeEventFilter;
class QClipboard;

namespace marlune {

class X11SelectionReader;

// The CLIPBOARD selection through Qt's clipboard on the xcb platform, which speaks TARGETS,
// INCR and MULTIPLE for us. PRIMARY is not watched; `selectionText` reads it on demand.
//
// Limits of the capture reads (`snapshot`). Qt fetches a payload whole (there is no way to ask
// for its size first), and its xcb backend gives up on one conversion after about five
// seconds. So:
// - types that are never kept (unknown types, protocol targets) are never fetched;
// - marker types are reported by name only, since their presence is what counts;
// - a payload over its type's size cap is fetched, then dropped (it costs memory for a
//   moment but is never kept);
// - once `readBudget` has been spent on one snapshot, the remaining types are left out.
//
// `saveWhole` and `selectionText` read another owner's targets over an X connection of their
// own instead: Qt's reader renames UTF8_STRING, STRING and TEXT to "text/plain" and recodes
// text, which a restore that must give back the same bytes cannot have; a connection of our
// own also learns a payload's size before fetching it and can stop a transfer half-way.
class QtClipboardAccess : public ClipboardAccess {
public:
    static constexpr std::chrono::milliseconds readBudget{2000};
    // How long the owner may take to answer one request of `saveWhole` (or to send the next
    // piece of a large payload) before it is taken to be hung, and how long the whole save may
    // take: the user is waiting for the snippet meanwhile. An owner that renders on demand (a
    // large image encoded to PNG) needs about a second.
    static constexpr std::chrono::milliseconds ownerAnswerTimeout{2000};
    static constexpr std::chrono::milliseconds wholeSaveBudget{5000};

    // The application's clipboard (QGuiApplication must exist).
    QtClipboardAccess();
    explicit QtClipboardAccess(QClipboard* clipboard);
    ~QtClipboardAccess() override;
    QtClipboardAccess(const QtClipboardAccess&) = delete;
    QtClipboardAccess& operator=(const QtClipboardAccess&) = delete;

    std::int64_t changeCount() const override { return changeCount_; }
    PasteboardSnapshot snapshot() override;
    void write(const PasteboardSnapshot& snapshot) override;
    bool holdsOurLastWrite() const override;
    ClipboardSave saveWhole() override;
    std::optional<std::string> selectionText() override;
    void setChangeHandler(std::function<void()> handler) override;

    // Called (on the main thread, queued) when another client reads a payload of what we wrote
    // last: the paste target has pulled our text, and the user's clipboard may go back.
    void setPullHandler(std::function<void()> handler);

private:
    PasteboardSnapshot readOnce();
    ClipboardSave saveFrom(const QMimeData& mime);
    // Null when Qt is not on X11 or the display cannot be reached.
    X11SelectionReader* reader();
    // The selection is held by a window of this process (Qt's clipboard window).
    bool ownedHere(std::uint32_t owner) const;

    QClipboard* clipboard_;
    QObject connections_;
    std::int64_t changeCount_ = 0;
    std::function<void()> handler_;
    // Shared with the clipboard's copy of our data, which may outlive this object.
    struct PullState {
        bool readingOurselves = false;
        std::function<void()> handler;
    };
    std::shared_ptr<PullState> pull_ = std::make_shared<PullState>();
    // What we wrote last, while the clipboard still holds it.
    QPointer<QMimeData> written_;
    std::unique_ptr<QAbstractNativeEventFilter> targetServer_;
    std::unique_ptr<X11SelectionReader> reader_;
};

} // namespace marlune
