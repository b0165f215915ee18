#include "Marlune/ExpansionService.h"

#include "ExpansionEngine/Graphemes.h"
#include "ExpansionEngine/HostLocale.h"
#include "Marlune/DeletionKeys.h"
#include "Marlune/WindowClassKind.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/ProfileStore.h"
#include "MarluneCore/SnippetStore.h"
#include "MarluneCore/Uuid.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>
#include <variant>

namespace marlune {

namespace {

constexpr std::string_view kTextType = "text/plain;charset=utf-8";
// Per snippet, the last value its counter placeholder gave in an expansion that was inserted.
constexpr std::string_view kCountersKey = "snippetCounters";

void wipe(std::string& text) {
    volatile char* bytes = text.data();
    for (std::size_t i = 0; i < text.size(); ++i) {
        bytes[i] = 0;
    }
    text.clear();
}

PasteboardSnapshot::Payload payload(std::string_view type, std::string_view data) {
    return {std::string(type), std::vector<std::uint8_t>(data.begin(), data.end())};
}

bool isKeyEvent(const KeyboardEvent& event) {
    return std::holds_alternative<keyboard::TextTyped>(event) ||
           std::holds_alternative<keyboard::BackspacePressed>(event) ||
           std::holds_alternative<keyboard::KeyPressed>(event);
}

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

} // namespace

ExpansionService::ExpansionService(Collaborators collaborators)
    : c_(std::move(collaborators)), pasteClipboard_(c_.clipboard, c_.scheduler),
      locale_(c_.locale.empty() ? HostLocale::localeID() : c_.locale),
      timeZone_(c_.timeZone.empty() ? HostLocale::timeZoneID() : c_.timeZone) {
    lookup_ = [this](std::string_view keyword) -> const ExpansionSnippet* {
        const auto* found = triggers_.find(keyword);
        if (found != nullptr) {
            renderingSnippet_ = found->id;
        }
        return found;
    };
    keystrokeContext_ = makeContext();
}

ExpansionService::~ExpansionService() {
    if (watcher_ != nullptr) {
        watcher_->setHandler(nullptr);
    }
    if (isFillInOpen_) {
        c_.fillIn.dismiss();
    }
    if (holding_) {
        c_.injector.releaseKeys();
    }
    for (auto* task :
         {&runTask_, &undoTeardownTask_, &phraseResetTask_, &refreshTask_, &releaseTask_}) {
        if (*task) {
            c_.scheduler.cancel(**task);
        }
    }
}

void ExpansionService::start(KeyboardWatcher& watcher) {
    watcher_ = &watcher;
    watcher.setHandler([this](const KeyboardEvent& event) { handle(event); });
    refresh();
    refreshTask_ = c_.scheduler.every(kRefreshPeriod, [this] { refresh(); });
    phraseResetTask_ =
        c_.scheduler.every(PhraseCounter::kResetPeriod, [this] { phrases_.forgetAll(); });
    isRunning_ = true;
}

void ExpansionService::refresh() {
    std::vector<ExpansionSnippet> live;
    std::size_t unreadable = 0;
    for (auto& snippet : SnippetStore(c_.context).list(SnippetSortMode::lastEdited)) {
        if (snippet.keyword.empty()) {
            continue;
        }
        // A body the content key here cannot open would type nothing: the keyword stays as
        // typed until the key is back.
        if (snippet.contentUnreadable) {
            ++unreadable;
            continue;
        }
        live.push_back({snippet.id.string(), std::move(snippet.keyword), std::move(snippet.content),
                        std::string(rawValue(snippet.contentType))});
    }
    triggers_ = KeywordTable(std::move(live));
    if (unreadable != unreadableSnippets_) {
        unreadableSnippets_ = unreadable;
        if (unreadable > 0) {
            logs::app.warning("Not expanding the keywords of " + std::to_string(unreadable) +
                              " snippets whose bodies the content key here cannot open.");
        }
    }

    std::map<std::string, std::string, std::less<>> variables;
    for (auto& [key, value] : ProfileStore(c_.context).profile().values) {
        variables.emplace(key, std::move(value));
    }
    variables_ = std::move(variables);

    // A prefix the configuration would refuse falls back to the default rather than turning
    // every keystroke into a candidate.
    const auto prefix = c_.settings.string("keywordPrefix", ";");
    prefix_ = Graphemes::count(prefix) == 1 ? prefix : ";";
    smartFieldDetection_ = c_.settings.boolean("smartFieldDetection", false);
    keystrokeContext_ = makeContext();
}

ExpansionContext ExpansionService::makeContext() {
    ExpansionContext context;
    context.clipboard = [this]() -> std::optional<std::string> {
        // In the middle of an expansion our own text is on the clipboard; the user's is saved.
        if (auto saved = pasteClipboard_.savedText()) {
            return *saved;
        }
        return PasteClipboard::firstText(c_.clipboard.snapshot());
    };
    context.variables = variables_;
    context.locale = locale_;
    context.timeZone = timeZone_;
    context.resolveSnippet = [this](std::string_view keyword) -> std::optional<std::string> {
        if (const auto* snippet = triggers_.find(keyword)) {
            return snippet->body;
        }
        return std::nullopt;
    };
    // Every counter mark of one expansion gives the same number, one past the last inserted
    // one: a render is not a use (the fill-in form renders twice, an abandoned commit inserts
    // nothing), so the counter advances only when the expansion is carried out.
    context.nextCounter = [this] {
        counterUsedBy_ = renderingSnippet_;
        return counterValue(renderingSnippet_) + 1;
    };
    context.selection = [this] { return c_.clipboard.selectionText(); };
    context.randomInt = [this](std::int64_t low, std::int64_t high) {
        if (high < low) {
            std::swap(low, high);
        }
        return std::uniform_int_distribution<std::int64_t>(low, high)(random_);
    };
    return context;
}

std::string ExpansionService::snippetIDFor(std::string_view keyword) const {
    const auto* snippet = triggers_.find(keyword);
    return snippet ? snippet->id : std::string();
}

void ExpansionService::handle(const KeyboardEvent& event) {
    if (holding_ && isKeyEvent(event)) {
        // It reached no window yet: the injector sends it on when the commit is done.
        heldEvents_.push_back(event);
        return;
    }
    if (const auto* typed = std::get_if<keyboard::TextTyped>(&event)) {
        onText(*typed);
    } else if (const auto* backspace = std::get_if<keyboard::BackspacePressed>(&event)) {
        onBackspace(*backspace);
    } else if (const auto* key = std::get_if<keyboard::KeyPressed>(&event)) {
        onOtherKey(*key);
    } else if (std::holds_alternative<keyboard::MouseClicked>(event) ||
               std::holds_alternative<keyboard::FocusChanged>(event)) {
        // Not an abort: the fill-in form itself moves the focus, and the steps of a commit
        // already under way go to whichever window has it. A keyword still being checked
        // against its field, though, is no longer in front of the caret.
        if (pendingExpansion_ && !run_) {
            abort("focus-moved-during-verify");
        } else if (!isFillInOpen_) {
            forgetTyping();
        }
    }
}

void ExpansionService::onText(const keyboard::TextTyped& typed) {
    if (isFillInOpen_) {
        return;
    }
    if (pendingExpansion_) {
        abort("keydown-during-verify");
        return;
    }
    disarmUndo();
    phrases_.typed(typed.text);
    if (paused_ || typed.text.empty()) {
        return;
    }
    buffer_.appendKeyText(typed.text);
    // The baseline is the buffer without this key rather than the buffer as it stood: once the
    // buffer is full the oldest characters drop off, and the prefix relation must still hold.
    const std::string_view text = buffer_.text();
    const std::string_view baseline = text.substr(0, text.size() - typed.text.size());
    keystrokeContext_.now = c_.clock();
    auto decision =
        TypedExpansion::decide(text, baseline, prefix_, true, lookup_, keystrokeContext_);
    if (!std::holds_alternative<TypedExpansion::None>(decision)) {
        takeDecision(std::move(decision));
    }
}

void ExpansionService::onBackspace(const keyboard::BackspacePressed& pressed) {
    if (isFillInOpen_) {
        return;
    }
    if (pendingExpansion_) {
        abort("keydown-during-verify");
        return;
    }
    if (undoArmed_ && !pressed.modifiers.any() && (!replayingHeld_ || lastHeldEvent_)) {
        undo();
        return;
    }
    disarmUndo();
    if (pressed.modifiers.control || pressed.modifiers.alt) {
        // Deletes a word or more: the buffer can no longer say what stands before the caret.
        buffer_.clear();
        phrases_.abandonLine();
        return;
    }
    buffer_.backspace();
    phrases_.backspace();
}

void ExpansionService::onOtherKey(const keyboard::KeyPressed& pressed) {
    if (isFillInOpen_) {
        return;
    }
    if (pendingExpansion_) {
        abort("keydown-during-verify");
        return;
    }
    disarmUndo();
    const bool lineEnd = pressed.key == NamedKey::returnKey || pressed.key == NamedKey::keypadEnter;
    if (lineEnd && !pressed.modifiers.any()) {
        endPhrase();
    } else {
        phrases_.abandonLine();
    }
    buffer_.clear();
}

void ExpansionService::forgetTyping() {
    disarmUndo();
    buffer_.clear();
    phrases_.abandonLine();
}

void ExpansionService::screenLocked() {
    forgetTyping();
}

void ExpansionService::setPaused(bool paused) {
    paused_ = paused;
    if (paused) {
        buffer_.clear();
    }
}

std::optional<FocusedField> ExpansionService::readField() {
    if (!smartFieldDetection_ || c_.fieldReader == nullptr) {
        return std::nullopt;
    }
    auto field = c_.fieldReader->focusedField();
    if (field && field->pid) {
        const auto window = c_.windows.activeWindow();
        if (window && window->pid && *window->pid != *field->pid) {
            return std::nullopt; // the focus of a window that no longer has it
        }
    }
    return field;
}

void ExpansionService::takeDecision(TypedExpansion::Decision decision) {
    const std::string* typedToken = nullptr;
    if (const auto* commit = std::get_if<TypedExpansion::Commit>(&decision)) {
        typedToken = &commit->typedToken;
    } else if (const auto* request = std::get_if<TypedExpansion::FillInRequest>(&decision)) {
        typedToken = &request->typedToken;
    }
    if (typedToken == nullptr || buffer_.isSuppressed(*typedToken)) {
        return;
    }
    // Keys typed during the last commit have already been sent on behind the keyword: only
    // one that completes a keyword as the very last of them still stands before the caret.
    if (replayingHeld_ && !lastHeldEvent_) {
        return;
    }
    // A password prompt or screen locker holds the keyboard: what is typed is a secret, or
    // goes nowhere visible.
    if (keyboardGrabbedElsewhere()) {
        buffer_.clear();
        return;
    }
    if (auto* commit = std::get_if<TypedExpansion::Commit>(&decision)) {
        // From here until the text and the caret are in place, what the user types on is held
        // back; without that it would land between the keyword's deletion and the paste.
        if (!holdKeys()) {
            return;
        }
        verifyAndCommit(std::move(*commit), kVerifyReads);
        return;
    }
    const auto field = readField();
    if (field && field->isPassword) {
        buffer_.clear();
        return;
    }
    openFillIn(std::get<TypedExpansion::FillInRequest>(std::move(decision)));
}

void ExpansionService::verifyAndCommit(TypedExpansion::Commit commit, int readsLeft) {
    const auto field = readField();
    if (field && field->isPassword) {
        buffer_.clear();
        releaseHeldKeys();
        return;
    }
    if (!field || !field->textBeforeCaret || endsWith(*field->textBeforeCaret, commit.typedToken)) {
        const auto snippetID = snippetIDFor(commit.keyword);
        beginCommit(commit, snippetID, std::chrono::milliseconds(0));
        return;
    }
    if (readsLeft <= 1) {
        // Our buffer and the field disagree (typing in another way, an input method, an edit
        // we did not see): deleting could eat text that is not the keyword.
        abort("precaret-mismatch");
        return;
    }
    // Keys typed meanwhile are held; a click aborts, since the caret may have moved.
    pendingExpansion_ = true;
    runTask_ =
        c_.scheduler.after(kVerifyRetry, [this, commit = std::move(commit), readsLeft]() mutable {
            runTask_.reset();
            pendingExpansion_ = false;
            verifyAndCommit(std::move(commit), readsLeft - 1);
        });
}

void ExpansionService::openFillIn(TypedExpansion::FillInRequest request) {
    const std::string snippetID = snippetIDFor(request.keyword);
    FillInPresenter::Answers initial;
    for (const auto& field : request.fields) {
        if (field.defaultValue) {
            initial[field.name] = *field.defaultValue;
        }
    }
    // What the user answered last time is a better guess than the body's default.
    if (const auto id = Uuid::parse(snippetID)) {
        try {
            if (const auto snippet = SnippetStore(c_.context).snippet(*id)) {
                if (snippet->lastFillInValues) {
                    for (const auto& [name, value] : *snippet->lastFillInValues) {
                        initial[name] = value;
                    }
                }
            }
        } catch (const std::exception& error) {
            logs::app.warning(std::string("Could not read the last fill-in values: ") +
                              error.what());
        }
    }
    isFillInOpen_ = true;
    buffer_.clear();
    const auto shown = request;
    c_.fillIn.present(shown, initial,
                      [this, request = std::move(request),
                       snippetID](std::optional<FillInPresenter::Answers> answers) {
                          fillInAnswered(request, snippetID, std::move(answers));
                      });
}

void ExpansionService::fillInAnswered(const TypedExpansion::FillInRequest& request,
                                      const std::string& snippetID,
                                      std::optional<FillInPresenter::Answers> answers) {
    isFillInOpen_ = false;
    buffer_.clear();
    if (!answers || paused_ || keyboardGrabbedElsewhere()) {
        return;
    }
    if (const auto id = Uuid::parse(snippetID)) {
        try {
            SnippetStore(c_.context)
                .setLastFillInValues(
                    *id, std::map<std::string, std::string>(answers->begin(), answers->end()));
        } catch (const std::exception& error) {
            logs::app.warning(std::string("Could not keep the fill-in values: ") + error.what());
        }
    }
    auto context = makeContext();
    context.now = c_.clock();
    context.fillInValues = std::move(*answers);
    renderingSnippet_ = snippetID;
    counterUsedBy_.clear();
    // Without the field reader we trust that the form handed the focus back to the caret it
    // took it from, with the keyword still in front of it.
    std::optional<std::string> preCaret = request.typedToken;
    if (const auto field = readField()) {
        if (field->isPassword) {
            return;
        }
        preCaret = field->textBeforeCaret;
    }
    auto commit = TypedExpansion::commitFillIn(request, preCaret, context);
    if (preCaret) {
        wipe(*preCaret);
    }
    if (commit.text.empty()) {
        return;
    }
    // The form has just closed: give the focus time to return to the target window.
    beginCommit(commit, snippetID, kSettleDelay);
}

void ExpansionService::beginCommit(const TypedExpansion::Commit& commit, std::string snippetID,
                                   std::chrono::milliseconds leadIn) {
    Run run;
    run.purpose = Run::Purpose::expansion;
    run.advancesCounter = !snippetID.empty() && counterUsedBy_ == snippetID;
    counterUsedBy_.clear();
    run.snippetID = std::move(snippetID);
    run.keystrokesSaved = commit.keystrokesSaved;
    const auto window = c_.windows.activeWindow();
    run.expansion = {commit.text, commit.deleteCount > 0 ? commit.typedToken : std::string(),
                     commit.cursorBack, window ? window->pid : std::nullopt};
    const auto chord = pasteChordFor(window);
    // The fill-in form's commit reaches here without a hold yet.
    if (!holdKeys()) {
        return;
    }
    // Saved before anything is deleted: a clipboard that cannot be put back whole is a reason
    // not to expand at all.
    if (chord && !pasteClipboard_.save()) {
        buffer_.recordAbort("clipboard-not-saved");
        buffer_.clear();
        releaseHeldKeys();
        return;
    }

    auto pause = leadIn;
    for (const auto& step : commit.steps) {
        if (const auto* del = std::get_if<injection::DeleteBackward>(&step)) {
            // The keys that delete the typed keyword as this window counts characters.
            const bool wholeToken = del->count == Graphemes::count(commit.typedToken);
            const auto keys = wholeToken
                                  ? deletionKeys(commit.typedToken, typesInLineEditor(window))
                                  : std::vector<KeyInjection>{keyinjection::Backspaces{del->count}};
            for (const auto& key : keys) {
                run.actions.push_back({Action::Kind::inject, pause, key});
                pause = {};
            }
        } else if (std::holds_alternative<injection::Settle>(step)) {
            pause += kSettleDelay;
        } else if (const auto* paste = std::get_if<injection::Paste>(&step)) {
            if (chord) {
                run.pasteContent.items.push_back({{payload(kTextType, paste->text)}});
                run.actions.push_back({Action::Kind::writeClipboard, pause, {}});
                run.actions.push_back(
                    {Action::Kind::inject, kPasteChordDelay, keyinjection::PressChord{*chord}});
            } else {
                run.actions.push_back(
                    {Action::Kind::inject, pause, keyinjection::TypeText{paste->text}});
            }
            pause = {};
        } else if (const auto* back = std::get_if<injection::MoveCaretBack>(&step)) {
            run.actions.push_back(
                {Action::Kind::inject, pause + kCaretDelay, keyinjection::CaretLeft{back->count}});
            pause = {};
        } else if (const auto* forward = std::get_if<injection::MoveCaretForward>(&step)) {
            run.actions.push_back({Action::Kind::inject, pause + kCaretDelay,
                                   keyinjection::CaretRight{forward->count}});
            pause = {};
        }
    }
    run.actions.push_back({Action::Kind::finish, pause, {}});
    buffer_.clear();
    phrases_.abandonLine();
    startRun(std::move(run));
}

bool ExpansionService::typesInLineEditor(const std::optional<ActiveWindow>& window) {
    return window && windowClassKind(window->bundleIdentifier) != WindowClassKind::ordinary;
}

std::optional<KeyChord>
ExpansionService::pasteChordFor(const std::optional<ActiveWindow>& window) const {
    if (!c_.pasteChord) {
        return KeyChord{{false, true, false, false}, 0x76};
    }
    return c_.pasteChord(window ? std::string_view(window->bundleIdentifier) : std::string_view());
}

std::optional<std::string> ExpansionService::paste(const PasteboardSnapshot& content) {
    if (run_ || pendingExpansion_ || isFillInOpen_ || holding_) {
        return "Marlune is in the middle of an expansion; try again in a moment.";
    }
    if (keyboardGrabbedElsewhere()) {
        return "Another application holds the keyboard, so Marlune cannot paste now.";
    }
    if (content.empty()) {
        return "There is nothing to paste.";
    }
    Run run;
    run.purpose = Run::Purpose::paste;
    if (const auto chord = pasteChordFor(c_.windows.activeWindow())) {
        if (!pasteClipboard_.save()) {
            buffer_.recordAbort("clipboard-not-saved");
            return "The clipboard could not be saved whole, so Marlune did not paste over it.";
        }
        run.pasteContent = content;
        run.actions.push_back({Action::Kind::writeClipboard, {}, {}});
        run.actions.push_back(
            {Action::Kind::inject, kPasteChordDelay, keyinjection::PressChord{*chord}});
    } else {
        auto text = PasteClipboard::firstText(content);
        if (!text || text->empty()) {
            return "The focused window only takes typed text, and this item has none.";
        }
        run.actions.push_back({Action::Kind::inject, {}, keyinjection::TypeText{std::move(*text)}});
    }
    run.actions.push_back({Action::Kind::finish, {}, {}});
    buffer_.clear();
    disarmUndo();
    lastExpansion_.reset();
    startRun(std::move(run));
    return std::nullopt;
}

void ExpansionService::startRun(Run run) {
    run_ = std::move(run);
    pendingExpansion_ = true;
    runNext();
}

bool ExpansionService::readyToInject() {
    // Checked before every step, not once: the user typing on may press Shift or Control in
    // the middle of a commit, and a modifier still held would turn a BackSpace or the paste
    // into another shortcut.
    const bool modifiers = c_.injector.heldModifiers().any();
    bool keys = !modifiers && c_.injector.keyHeld();
    if (keys && holding_ && run_->waitedForKeys >= kHeldKeyPatience) {
        keys = false;
    }
    if (!modifiers && !keys) {
        isSynthesizing_ = true;
        return true;
    }
    if (run_->waitedForModifiers >= kModifierPatience) {
        abort("modifiers-held");
        return false;
    }
    run_->waitedForModifiers += kModifierPoll;
    if (keys) {
        run_->waitedForKeys += kModifierPoll;
    }
    runTask_ = c_.scheduler.after(kModifierPoll, [this] {
        runTask_.reset();
        runNext();
    });
    return false;
}

void ExpansionService::runNext() {
    while (run_ && !run_->actions.empty()) {
        if (run_->awaitingPull) {
            runTask_ = c_.scheduler.after(kPullPatience, [this] {
                runTask_.reset();
                if (run_) {
                    run_->awaitingPull = false;
                }
                runNext();
            });
            return;
        }
        auto& next = run_->actions.front();
        if (next.delay.count() > 0) {
            const auto delay = std::exchange(next.delay, std::chrono::milliseconds(0));
            runTask_ = c_.scheduler.after(delay, [this] {
                runTask_.reset();
                runNext();
            });
            return;
        }
        if (next.kind == Action::Kind::inject && !readyToInject()) {
            return;
        }
        const Action action = std::move(next);
        run_->actions.pop_front();
        perform(action);
    }
}

void ExpansionService::perform(const Action& action) {
    switch (action.kind) {
    case Action::Kind::writeClipboard:
        pasteClipboard_.write(std::move(run_->pasteContent));
        return;
    case Action::Kind::finish:
        finishRun();
        return;
    case Action::Kind::inject:
        break;
    }
    const auto outcome = c_.injector.inject(action.step);
    if (const auto* failed = std::get_if<InjectionFailed>(&outcome)) {
        logs::app.warning("An expansion's key presses failed: " + failed->message);
        abort("injection-failed");
        return;
    }
    if (const auto* deleted = std::get_if<keyinjection::Backspaces>(&action.step)) {
        run_->deleted += deleted->count;
    } else if (std::holds_alternative<keyinjection::TypeText>(action.step)) {
        run_->pasted = true;
    } else if (std::holds_alternative<keyinjection::PressChord>(action.step)) {
        run_->pasted = true;
        run_->awaitingPull = true;
        pasteClipboard_.pasteSent();
    }
}

void ExpansionService::finishRun() {
    Run done = std::move(*run_);
    run_.reset();
    pendingExpansion_ = false;
    isSynthesizing_ = false;

    if (done.purpose == Run::Purpose::paste) {
        buffer_.clear();
        if (onPasteFinished) {
            onPasteFinished();
        }
        return;
    }
    if (done.purpose == Run::Purpose::undo) {
        lastExpansion_.reset();
        buffer_.clear();
        if (!done.expansion.keyword.empty()) {
            buffer_.appendKeyText(done.expansion.keyword);
            buffer_.suppress(done.expansion.keyword);
        }
        releaseHeldKeys();
        return;
    }

    lastExpansion_ = std::move(done.expansion);
    armUndo();
    ++stats_.expansions;
    stats_.keystrokesSaved += done.keystrokesSaved;
    if (c_.statsChanged) {
        c_.statsChanged(stats_);
    }
    if (const auto id = Uuid::parse(done.snippetID)) {
        try {
            SnippetStore(c_.context).recordUse(*id, c_.clock());
        } catch (const std::exception& error) {
            logs::app.warning(std::string("Could not record a snippet's use: ") + error.what());
        }
    }
    if (done.advancesCounter) {
        advanceCounter(done.snippetID);
    }
    releaseHeldKeys();
}

void ExpansionService::abort(std::string_view reason) {
    const bool wasPaste = run_ && run_->purpose == Run::Purpose::paste;
    putKeywordBack();
    buffer_.recordAbort(reason);
    std::string counts;
    for (const auto& [name, count] : buffer_.abortCounts()) {
        counts += (counts.empty() ? "" : ", ") + name + " " + std::to_string(count);
    }
    logs::app.info("An expansion was abandoned (" + std::string(reason) +
                   "); abandoned so far: " + counts + ".");
    if (runTask_) {
        c_.scheduler.cancel(*runTask_);
        runTask_.reset();
    }
    run_.reset();
    pendingExpansion_ = false;
    isSynthesizing_ = false;
    // Our text went onto the clipboard but was never pasted: nothing will pull it, so the
    // user's clipboard goes back at once.
    pasteClipboard_.pasteAbandoned();
    buffer_.clear();
    if (wasPaste && onPasteFinished) {
        onPasteFinished();
    }
    releaseHeldKeys();
}

void ExpansionService::putKeywordBack() {
    if (!run_ || run_->purpose != Run::Purpose::expansion || run_->deleted == 0 || run_->pasted ||
        run_->expansion.keyword.empty()) {
        return;
    }
    // Typed with a modifier held, the keyword would become a string of shortcuts.
    if (c_.injector.heldModifiers().any()) {
        logs::app.warning("The keyword of an abandoned expansion could not be typed back: a "
                          "modifier key was held.");
        return;
    }
    const auto outcome = c_.injector.inject(keyinjection::TypeText{run_->expansion.keyword});
    if (const auto* failed = std::get_if<InjectionFailed>(&outcome)) {
        logs::app.warning("The keyword of an abandoned expansion could not be typed back: " +
                          failed->message);
    }
}

bool ExpansionService::holdKeys() {
    if (holding_) {
        return true;
    }
    if (!c_.injector.holdKeys()) {
        buffer_.recordAbort("keys-not-held");
        logs::app.info("An expansion was abandoned (keys-not-held): the keyboard could not be "
                       "held for the moment of the commit, so nothing was deleted.");
        buffer_.clear();
        return false;
    }
    holding_ = true;
    return true;
}

void ExpansionService::releaseHeldKeys() {
    if (!holding_ || releaseTask_) {
        return;
    }
    if (waitedForRelease_ < kReleasePatience && c_.injector.heldKeyStillDown()) {
        waitedForRelease_ += kReleasePoll;
        releaseTask_ = c_.scheduler.after(kReleasePoll, [this] {
            releaseTask_.reset();
            releaseHeldKeys();
        });
        return;
    }
    waitedForRelease_ = {};
    auto held = std::move(heldEvents_);
    heldEvents_.clear();
    // A keyword typed in full among the held keys, with more keys after it: those go on only
    // once it is expanded, or it would be deleted from behind them.
    const auto keyword = keywordAmongHeldKeys(held);
    const std::size_t through = keyword ? *keyword + 1 : held.size();
    if (keyword) {
        c_.injector.sendOnHeldKeys(through);
        heldEvents_.assign(
            std::make_move_iterator(held.begin() + static_cast<std::ptrdiff_t>(through)),
            std::make_move_iterator(held.end()));
        held.resize(through);
    } else {
        c_.injector.releaseKeys();
    }
    holding_ = false;
    // They are in the window now, behind the inserted text: the typed buffer learns of them as
    // if they had just been typed, and only the last may start another expansion.
    replayingHeld_ = true;
    ownGrabDuringReplay_ = keyword.has_value();
    for (std::size_t i = 0; i < held.size(); ++i) {
        lastHeldEvent_ = i + 1 == held.size();
        handle(held[i]);
    }
    replayingHeld_ = false;
    ownGrabDuringReplay_ = false;
    lastHeldEvent_ = false;
    if (keyword && !holding_) {
        // The keyword did not start a commit after all (a password field, a mismatch): the
        // keys after it go on as they are.
        holding_ = true;
        releaseHeldKeys();
    }
}

std::optional<std::size_t>
ExpansionService::keywordAmongHeldKeys(const std::vector<KeyboardEvent>& held) {
    if (paused_ || held.size() < 2) {
        return std::nullopt;
    }
    TypedBuffer scratch;
    scratch.appendKeyText(buffer_.text());
    for (std::size_t i = 0; i + 1 < held.size(); ++i) {
        if (const auto* typed = std::get_if<keyboard::TextTyped>(&held[i])) {
            if (typed->text.empty()) {
                continue;
            }
            scratch.appendKeyText(typed->text);
            const std::string_view text = scratch.text();
            const auto decision =
                TypedExpansion::decide(text, text.substr(0, text.size() - typed->text.size()),
                                       prefix_, true, lookup_, keystrokeContext_);
            const auto* commit = std::get_if<TypedExpansion::Commit>(&decision);
            if (commit != nullptr && !buffer_.isSuppressed(commit->typedToken)) {
                return i;
            }
        } else if (const auto* backspace = std::get_if<keyboard::BackspacePressed>(&held[i])) {
            if (backspace->modifiers.control || backspace->modifiers.alt) {
                scratch.clear();
            } else {
                scratch.backspace();
            }
        } else {
            scratch.clear();
        }
    }
    return std::nullopt;
}

std::int64_t ExpansionService::counterValue(std::string_view snippetID) const {
    if (snippetID.empty()) {
        return 0;
    }
    const auto counters = c_.settings.dictionary(kCountersKey, nlohmann::json::object());
    const auto found = counters.find(std::string(snippetID));
    if (found == counters.end() || !found->is_number_integer()) {
        return 0;
    }
    return found->get<std::int64_t>();
}

void ExpansionService::advanceCounter(std::string_view snippetID) {
    auto counters = c_.settings.dictionary(kCountersKey, nlohmann::json::object());
    if (!counters.is_object()) {
        counters = nlohmann::json::object();
    }
    counters[std::string(snippetID)] = counterValue(snippetID) + 1;
    try {
        c_.settings.setDictionary(kCountersKey, counters);
    } catch (const std::exception& error) {
        logs::app.warning(std::string("Could not keep a snippet's counter: ") + error.what());
    }
}

void ExpansionService::armUndo() {
    disarmUndo();
    undoArmed_ = true;
    undoTeardownTask_ = c_.scheduler.after(kUndoWindow, [this] {
        undoTeardownTask_.reset();
        undoArmed_ = false;
    });
}

void ExpansionService::disarmUndo() {
    undoArmed_ = false;
    if (undoTeardownTask_) {
        c_.scheduler.cancel(*undoTeardownTask_);
        undoTeardownTask_.reset();
    }
}

void ExpansionService::undo() {
    disarmUndo();
    if (!lastExpansion_ || !holdKeys()) {
        lastExpansion_.reset();
        return;
    }
    const auto inserted = Graphemes::count(lastExpansion_->inserted);
    const auto before = inserted - lastExpansion_->cursorBack;
    if (before <= 0) {
        // The caret stood at the start of the inserted text, so the user's BackSpace took a
        // character of theirs: there is nothing we could put back faithfully.
        lastExpansion_.reset();
        buffer_.clear();
        return;
    }
    Run run;
    run.purpose = Run::Purpose::undo;
    run.expansion = *lastExpansion_;
    std::chrono::milliseconds pause{0};
    // The user's own BackSpace already took the character in front of the caret.
    if (lastExpansion_->cursorBack > 0) {
        run.actions.push_back(
            {Action::Kind::inject, {}, keyinjection::CaretRight{lastExpansion_->cursorBack}});
        pause = kCaretDelay;
    }
    if (inserted > 1) {
        run.actions.push_back(
            {Action::Kind::inject, pause, keyinjection::Backspaces{inserted - 1}});
        pause = {};
    }
    if (!lastExpansion_->keyword.empty()) {
        // Typed, not pasted: the keyword is short and the clipboard stays out of it.
        run.actions.push_back({Action::Kind::inject, pause + kSettleDelay,
                               keyinjection::TypeText{lastExpansion_->keyword}});
        pause = {};
    }
    run.actions.push_back({Action::Kind::finish, pause, {}});
    buffer_.clear();
    startRun(std::move(run));
}

void ExpansionService::pastePulled() {
    pasteClipboard_.pulled();
    if (run_ && run_->awaitingPull) {
        run_->awaitingPull = false;
        if (runTask_) {
            c_.scheduler.cancel(*runTask_);
        }
        runTask_ = c_.scheduler.after(kAfterPullSettle, [this] {
            runTask_.reset();
            runNext();
        });
    }
}

void ExpansionService::endPhrase() {
    if (const auto phrase = phrases_.endedPhrase();
        phrase && !paused_ && !typingIsSecret() && phrases_.count(*phrase)) {
        c_.notifier.suggestSnippet(kSuggestionMessage, *phrase);
    }
    phrases_.clearLine();
}

bool ExpansionService::keyboardGrabbedElsewhere() {
    // While the keys after a keyword typed among the held ones are still held, the grab the
    // probe finds is our own.
    return !ownGrabDuringReplay_ && c_.grabProbe.keyboardGrabbedByAnotherClient();
}

bool ExpansionService::typingIsSecret() {
    // Never count what went into a password prompt or a password field.
    if (keyboardGrabbedElsewhere()) {
        return true;
    }
    const auto field = readField();
    return field && field->isPassword;
}

} // namespace marlune
