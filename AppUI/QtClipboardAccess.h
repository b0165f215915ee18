#pragma once

#include "Marlune/ClipboardAccess.h"

#include <QObject>
#include <chrono>

class QClipboard;

namespace marlune {

// The CLIPBOARD selection through Qt's clipboard on the xcb platform, which speaks TARGETS,
// INCR and MULTIPLE for us. PRIMARY is not watched.
//
// Limits of the reads. Qt fetches a payload whole (there is no way to ask for its size
// first), and its xcb backend gives up on one conversion after about five seconds. So:
// - types that are never kept (unknown types, protocol targets) are never fetched;
// - marker types are reported by name only, since their presence is what counts;
// - a payload over its type's size cap is fetched, then dropped (it costs memory for a
//   moment but is never kept);
// - once `readBudget` has been spent on one snapshot, the remaining types are left out.
class QtClipboardAccess : public ClipboardAccess {
public:
    static constexpr std::chrono::milliseconds readBudget{2000};

    // The application's clipboard (QGuiApplication must exist).
    QtClipboardAccess();
    explicit QtClipboardAccess(QClipboard* clipboard);
    ~QtClipboardAccess() override;
    QtClipboardAccess(const QtClipboardAccess&) = delete;
    QtClipboardAccess& operator=(const QtClipboardAccess&) = delete;

    std::int64_t changeCount() const override { return changeCount_; }
    PasteboardSnapshot snapshot() override;
    void write(const PasteboardSnapshot& snapshot) override;
    void setChangeHandler(std::function<void()> handler) override;

    // Called (on the main thread, queued) when another client reads a payload of what we wrote
    // last: the paste target has pulled our text, and the user's clipboard may go back.
    void setPullHandler(std::function<void()> handler);

private:
    PasteboardSnapshot readOnce();

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
};

} // namespace marlune
