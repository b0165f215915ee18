#pragma once

#include "ClipboardKit/PasteboardSnapshot.h"
#include "ExpansionEngine/ExpansionContext.h"
#include "ExpansionEngine/KeywordTable.h"
#include "ExpansionEngine/TypedBuffer.h"
#include "ExpansionEngine/TypedExpansion.h"
#include "Marlune/ActiveWindowInfo.h"
#include "Marlune/ClipboardAccess.h"
#include "Marlune/FieldReader.h"
#include "Marlune/FillInPresenter.h"
#include "Marlune/KeyInjector.h"
#include "Marlune/KeyboardGrabProbe.h"
#include "Marlune/KeyboardWatcher.h"
#include "Marlune/Notifier.h"
#include "Marlune/PasteClipboard.h"
#include "Marlune/PhraseCounter.h"
#include "Marlune/Scheduler.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Settings.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// What the service keeps of the expansion it carried out last, so that a BackSpace right after
// it can put back what the user typed.
struct LastExpansion {
    std::string inserted;
    // The keyword as the user typed it, prefix included; empty when the expansion deleted
    // nothing (a fill-in commit whose keyword no longer stood in front of the caret).
    std::string keyword;
    std::int64_t cursorBack = 0;
    std::optional<std::int64_t> pid;

    friend bool operator==(const LastExpansion&, const LastExpansion&) = default;
};

// Counters behind "stats.show". The service owns them; whoever persists them installs
// `ExpansionService::Collaborators::statsChanged` and seeds them with `setStats`.
struct ExpansionStats {
    std::int64_t expansions = 0;
    std::int64_t keystrokesSaved = 0;

    friend bool operator==(const ExpansionStats&, const ExpansionStats&) = default;
};

// How the text reaches a window: the chord that pastes there, or nothing when the window only
// takes typed keys.
using PasteChordChooser = std::function<std::optional<KeyChord>(std::string_view windowClass)>;

// Expansion of keywords typed anywhere in the session. It keeps the typed buffer, asks the
// matcher for a decision on every real key, opens the fill-in form when the snippet asks for
// answers, and carries the plan out in the focused window: BackSpaces over the keyword, the
// text pasted through the clipboard (whose previous contents are put back afterwards) or typed,
// and the caret walked back to the body's cursor mark. Main thread only.
class ExpansionService {
public:
    struct Collaborators {
        ModelContext& context;
        Settings& settings;
        KeyInjector& injector;
        ClipboardAccess& clipboard;
        ActiveWindowInfo& windows;
        KeyboardGrabProbe& grabProbe;
        Scheduler& scheduler;
        FillInPresenter& fillIn;
        Notifier& notifier;
        std::function<Date()> clock;
        // Empty means Ctrl+V everywhere.
        PasteChordChooser pasteChord;
        // Consulted only while `smartFieldDetection` is on; may be null.
        FieldReader* fieldReader = nullptr;
        std::function<void(const ExpansionStats&)> statsChanged;
        // How dates and times in templates are written; empty means the session's own.
        std::string locale;
        std::string timeZone;
    };

    // The pauses between the steps of a commit.
    static constexpr std::chrono::milliseconds kSettleDelay{100};
    static constexpr std::chrono::milliseconds kPasteChordDelay{25};
    static constexpr std::chrono::milliseconds kCaretDelay{35};
    // How often a commit looks again whether the user has let go of the modifiers, and for how
    // long before it gives up.
    static constexpr std::chrono::milliseconds kModifierPoll{25};
    static constexpr std::chrono::milliseconds kModifierPatience{2000};
    // While the user's keys are held, a key of theirs that is down cannot reach the target,
    // but one of ours with the same code would merge with it: a commit waits this long for it
    // to come up (a key stroke rarely lasts longer) and then goes on.
    static constexpr std::chrono::milliseconds kHeldKeyPatience{150};
    // After the paste shortcut the held keys and the caret moves wait for the target to read
    // our text (many targets insert it only when the answer arrives, after keys already
    // queued), then this long for it to be inserted; a target that never reads it is given
    // `kPullPatience`.
    static constexpr std::chrono::milliseconds kAfterPullSettle{20};
    static constexpr std::chrono::milliseconds kPullPatience{500};
    // A key pressed during the hold and still down is waited for before the held keys are
    // sent on (its press would be dropped), checking this often, for at most this long: a
    // slow typist keeps a key down for a quarter of a second, and one held longer repeats.
    static constexpr std::chrono::milliseconds kReleasePoll{10};
    static constexpr std::chrono::milliseconds kReleasePatience{500};
    // A field that does not show the keyword yet may simply not have taken the last keys (we
    // see them as soon as it does): it is read again this often, this many times in all,
    // before the commit is given up.
    static constexpr std::chrono::milliseconds kVerifyRetry{40};
    static constexpr int kVerifyReads = 4;
    static constexpr auto kRestoreAfterPull = PasteClipboard::kRestoreAfterPull;
    static constexpr auto kRestoreTimeout = PasteClipboard::kRestoreTimeout;
    // A BackSpace within this time after an expansion, with no other key between, undoes it.
    static constexpr std::chrono::milliseconds kUndoWindow{3000};
    static constexpr std::chrono::minutes kRefreshPeriod{5};

    static constexpr std::string_view kSuggestionMessage =
        "You've typed this a few times — make it a snippet?";

    explicit ExpansionService(Collaborators collaborators);
    ExpansionService(const ExpansionService&) = delete;
    ExpansionService& operator=(const ExpansionService&) = delete;
    ~ExpansionService();

    // Loads the keyword table and settings, subscribes to `watcher` and starts the timers.
    void start(KeyboardWatcher& watcher);
    // Rebuilds the keyword table from the live snippets and rereads the settings; call it
    // whenever the library or the settings change.
    void refresh();

    void handle(const KeyboardEvent& event);
    // The screen was locked: what was typed before no longer stands in front of any caret.
    void screenLocked();
    // The paste target read the clipboard while our text was on it.
    void pastePulled();
    // Pastes `content` (every flavour of it) into the focused window the way an expansion
    // pastes its text, and puts the user's clipboard back afterwards. A window that only takes
    // typed keys gets the content's plain text typed. Returns a message for the user when it
    // cannot start: a commit or a form is under way, another client holds the keyboard, or the
    // window takes typed keys and the content has no text.
    std::optional<std::string> paste(const PasteboardSnapshot& content);
    // Runs once the paste started by `paste` has been carried out (or has failed).
    std::function<void()> onPasteFinished;

    void setPaused(bool paused);

    bool isPaused() const { return paused_; }
    bool isSynthesizing() const { return isSynthesizing_; }
    bool pendingExpansion() const { return pendingExpansion_; }
    bool isFillInOpen() const { return isFillInOpen_; }
    const std::optional<LastExpansion>& lastExpansion() const { return lastExpansion_; }
    const std::optional<std::string>& suppressedToken() const { return buffer_.suppressedToken(); }
    const std::optional<std::string>& lastAbortReason() const { return buffer_.lastAbortReason(); }
    const std::map<std::string, std::int64_t, std::less<>>& abortCounts() const {
        return buffer_.abortCounts();
    }
    const std::string& bufferText() const { return buffer_.text(); }
    std::size_t triggerCount() const { return triggers_.size(); }
    const ExpansionStats& stats() const { return stats_; }
    void setStats(ExpansionStats stats) { stats_ = stats; }

private:
    // One thing a commit does, after waiting `delay` from the step before it.
    struct Action {
        enum class Kind { inject, writeClipboard, finish };
        Kind kind = Kind::inject;
        std::chrono::milliseconds delay{0};
        KeyInjection step;
    };
    struct Run {
        enum class Purpose { expansion, undo, paste };
        Purpose purpose = Purpose::expansion;
        std::deque<Action> actions;
        std::string snippetID;
        LastExpansion expansion;
        std::int64_t keystrokesSaved = 0;
        PasteboardSnapshot pasteContent;
        std::chrono::milliseconds waitedForModifiers{0};
        std::chrono::milliseconds waitedForKeys{0};
        // What has reached the window so far: a commit abandoned after its deletions and
        // before its paste puts the keyword back.
        std::int64_t deleted = 0;
        bool pasted = false;
        bool awaitingPull = false;
        bool advancesCounter = false;
    };

    void onText(const keyboard::TextTyped& typed);
    void onBackspace(const keyboard::BackspacePressed& pressed);
    void onOtherKey(const keyboard::KeyPressed& pressed);
    void forgetTyping();

    bool expansionBlocked();
    std::optional<FocusedField> readField();
    void takeDecision(TypedExpansion::Decision decision);
    void verifyAndCommit(TypedExpansion::Commit commit, int readsLeft);
    void openFillIn(TypedExpansion::FillInRequest request);
    void fillInAnswered(const TypedExpansion::FillInRequest& request, const std::string& snippetID,
                        std::optional<FillInPresenter::Answers> answers);
    void beginCommit(const TypedExpansion::Commit& commit, std::string snippetID,
                     std::chrono::milliseconds leadIn);
    void startRun(Run run);
    bool readyToInject();
    void runNext();
    bool holdKeys();
    void releaseHeldKeys();
    std::optional<std::size_t> keywordAmongHeldKeys(const std::vector<KeyboardEvent>& held);
    void putKeywordBack();
    std::int64_t counterValue(std::string_view snippetID) const;
    void advanceCounter(std::string_view snippetID);
    void perform(const Action& action);
    void finishRun();
    void abort(std::string_view reason);
    void undo();
    void armUndo();
    void disarmUndo();

    std::optional<KeyChord> pasteChordFor(const std::optional<ActiveWindow>& window) const;
    // Terminals: their line editors take one BackSpace per code point and know no selection.
    static bool typesInLineEditor(const std::optional<ActiveWindow>& window);

    void endPhrase();
    bool typingIsSecret();
    bool keyboardGrabbedElsewhere();

    ExpansionContext makeContext();
    std::string snippetIDFor(std::string_view keyword) const;

    Collaborators c_;
    PasteClipboard pasteClipboard_;
    KeyboardWatcher* watcher_ = nullptr;
    TypedBuffer buffer_;
    KeywordTable triggers_;
    // Snippets left out of the table because their bodies did not open (logged on change).
    std::size_t unreadableSnippets_ = 0;
    SnippetLookup lookup_;
    std::map<std::string, std::string, std::less<>> variables_;
    std::string prefix_ = ";";
    std::string locale_;
    std::string timeZone_;
    bool smartFieldDetection_ = false;
    bool paused_ = false;
    bool isRunning_ = false;
    // Built once, so that a keystroke that matches nothing allocates nothing.
    ExpansionContext keystrokeContext_;

    bool isSynthesizing_ = false;
    bool pendingExpansion_ = false;
    bool isFillInOpen_ = false;
    std::optional<Run> run_;
    std::optional<Scheduler::TaskID> runTask_;
    std::optional<LastExpansion> lastExpansion_;
    bool undoArmed_ = false;
    std::optional<Scheduler::TaskID> undoTeardownTask_;

    // The user's keys typed while a commit is under way: held back from the target window by
    // the injector and replayed once the commit is done; here they are fed to the typed buffer
    // afterwards, in the same order.
    bool holding_ = false;
    std::optional<Scheduler::TaskID> releaseTask_;
    std::chrono::milliseconds waitedForRelease_{0};
    std::vector<KeyboardEvent> heldEvents_;
    bool replayingHeld_ = false;
    bool ownGrabDuringReplay_ = false;
    bool lastHeldEvent_ = false;

    // The snippet whose body is being rendered, and the one whose render asked for its counter.
    std::string renderingSnippet_;
    std::string counterUsedBy_;

    PhraseCounter phrases_;
    std::optional<Scheduler::TaskID> phraseResetTask_;
    std::optional<Scheduler::TaskID> refreshTask_;

    ExpansionStats stats_;
    std::mt19937_64 random_{std::random_device{}()};
};

} // namespace marlune
