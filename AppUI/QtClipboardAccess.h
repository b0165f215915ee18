#pragma once

#include "Marlune/ClipboardAccess.h"

#include <QMimeData>
#include <QObject>
#include <QPointer>
#include <chrono>
#include <memory>
#include <vector>

class QAbstractNativeEventFilter;
class QClipboard;

namespace marlune {

class SelectionCaptureWorker;
class X11SelectionReader;
struct SelectionCapture;

// The CLIPBOARD selection through Qt's clipboard on the xcb platform, which speaks TARGETS,
// INCR and MULTIPLE for us when we own it. PRIMARY is not watched; `selectionText` reads it
// on demand.
//
// Another owner's data is read over X connections of our own instead of through Qt: Qt's
// reader waits for each type up to five seconds with the whole application stopped, renames
// UTF8_STRING, STRING and TEXT to "text/plain" and recodes text, which a restore that must
// give back the same bytes cannot have; a connection of our own learns a payload's size
// before fetching it and can stop a transfer half-way.
// - The capture reads (`readForCapture`) run on a thread of their own.
// - The reads that must answer at once (`snapshot`, `saveWhole` before a paste,
//   `selectionText`) wait on the main thread, at most `mainThreadReadBudget` for all types
//   together; an owner that has just let a read run out of time is not asked again by them
//   while it keeps the selection, so a hung application costs that wait once, not every time.
class QtClipboardAccess : public ClipboardAccess {
public:
    // The user is waiting meanwhile (for a snippet, or for the Board). An owner that renders
    // on demand (a large image encoded to PNG) needs about a second.
    static constexpr std::chrono::milliseconds mainThreadReadBudget{1500};

    // The application's clipboard (QGuiApplication must exist).
    QtClipboardAccess();
    explicit QtClipboardAccess(QClipboard* clipboard);
    ~QtClipboardAccess() override;
    QtClipboardAccess(const QtClipboardAccess&) = delete;
    QtClipboardAccess& operator=(const QtClipboardAccess&) = delete;

    std::int64_t changeCount() const override { return changeCount_; }
    PasteboardSnapshot snapshot() override;
    void readForCapture(std::vector<std::uint64_t> skipOwners,
                        std::function<void(ClipboardCaptureRead)> done) override;
    void write(const PasteboardSnapshot& snapshot) override;
    bool holdsOurLastWrite() const override;
    ClipboardSave saveWhole() override;
    std::optional<std::string> selectionText() override;
    void setChangeHandler(std::function<void()> handler) override;

    // Called (on the main thread, queued) when another client reads a payload of what we wrote
    // last: the paste target has pulled our text, and the user's clipboard may go back.
    void setPullHandler(std::function<void()> handler);

private:
    // Our own clipboard (or, without X11, Qt's idea of it), read in memory.
    PasteboardSnapshot readOnce();
    void captureFinished(SelectionCapture capture,
                         const std::function<void(ClipboardCaptureRead)>& done);
    // Whether a read on the main thread should leave this owner alone.
    bool unresponsive(std::uint32_t owner) const;
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
    // The last owner whose read ran out of time, while no read of it has succeeded since.
    std::uint32_t unresponsiveOwner_ = 0;
    std::unique_ptr<SelectionCaptureWorker> worker_;
};

} // namespace marlune
