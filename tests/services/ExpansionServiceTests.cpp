#include "Marlune/ExpansionService.h"
#include "MarluneCore/Settings.h"
#include "MarluneCore/SnippetStore.h"
#include "Platform/PasteShortcut.h"
#include "support/FakeActiveWindow.h"
#include "support/FakeClipboard.h"
#include "support/FakeFieldReader.h"
#include "support/FakeFillInPresenter.h"
#include "support/FakeKeyInjector.h"
#include "support/FakeKeyboardWatcher.h"
#include "support/FakeNotifier.h"
#include "support/LibraryFixture.h"
#include "support/ManualScheduler.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace marlune::test {
namespace {

using namespace std::chrono_literals;

constexpr KeyChord kCtrlV{{false, true, false, false}, 0x76};
constexpr KeyChord kCtrlShiftV{{true, true, false, false}, 0x76};
constexpr KeyChord kCtrlAltV{{false, true, true, false}, 0x76};

// Steps with the scheduler time at which they were posted.
struct TimedStep {
    std::int64_t at = 0;
    KeyInjection step;
    friend bool operator==(const TimedStep&, const TimedStep&) = default;
};

class TimedInjector : public FakeKeyInjector {
public:
    explicit TimedInjector(ManualScheduler& clock) : scheduler(clock) {}
    InjectionOutcome inject(const KeyInjection& step) override {
        auto outcome = FakeKeyInjector::inject(step);
        if (std::holds_alternative<InjectionDone>(outcome)) {
            timed.push_back({scheduler.now.count(), step});
        }
        return outcome;
    }
    ManualScheduler& scheduler;
    std::vector<TimedStep> timed;
};

PasteboardSnapshot::Payload bytes(std::string type, std::vector<std::uint8_t> data) {
    return {std::move(type), std::move(data)};
}

PasteboardSnapshot snapshotOf(std::vector<PasteboardSnapshot::Item> items) {
    PasteboardSnapshot snapshot;
    snapshot.items = std::move(items);
    for (const auto& item : snapshot.items) {
        for (const auto& p : item.payloads) {
            snapshot.totalBytes += static_cast<std::int64_t>(p.data.size());
        }
    }
    return snapshot;
}

bool hasPayload(const PasteboardSnapshot& snapshot, std::string_view type, std::string_view data) {
    for (const auto& item : snapshot.items) {
        for (const auto& p : item.payloads) {
            if (p.type == type && std::string(p.data.begin(), p.data.end()) == data) {
                return true;
            }
        }
    }
    return false;
}

// The snapshot with our two markers taken out again.
PasteboardSnapshot withoutMarkers(PasteboardSnapshot snapshot) {
    for (auto& item : snapshot.items) {
        std::erase_if(item.payloads, [](const auto& p) {
            return p.type == "x-kde-passwordManagerHint" ||
                   p.type == "org.nspasteboard.ConcealedType";
        });
    }
    snapshot.totalBytes = 0;
    for (const auto& item : snapshot.items) {
        for (const auto& p : item.payloads) {
            snapshot.totalBytes += static_cast<std::int64_t>(p.data.size());
        }
    }
    return snapshot;
}

keyboard::KeyPressed pressed(NamedKey key) {
    keyboard::KeyPressed event;
    event.key = key;
    return event;
}

std::optional<KeyChord> platformChord(std::string_view windowClass) {
    const auto method = PasteShortcut::forWindowClass(windowClass, {});
    if (const auto* chord = std::get_if<PasteByChord>(&method)) {
        return chord->chord;
    }
    return std::nullopt;
}

class ExpansionServiceTest : public ::testing::Test {
protected:
    ExpansionServiceTest() {
        settings = std::make_unique<Settings>(
            Settings::load(library.dir.path() / "settings.json", testNow()));
        windows.window = ActiveWindow{"firefox", "Mail", 4242};
        grab.alsoGrabbed = [this] { return injector.holding; };
        addSnippet("sig", "Kind regards");
    }

    void addSnippet(std::string keyword, std::string body) {
        auto snippet = Snippet::make(testNow());
        snippet.title = keyword;
        snippet.keyword = std::move(keyword);
        snippet.content = std::move(body);
        snippets.push_back(SnippetStore(library.context()).create(snippet, testNow()));
    }

    ExpansionService& service() {
        if (!service_) {
            service_ = std::make_unique<ExpansionService>(ExpansionService::Collaborators{
                library.context(), *settings, injector, clipboard, windows, grab, scheduler, fillIn,
                notifier, [] { return testNow(); }, platformChord, &fieldReader,
                [this](const ExpansionStats& s) { statsSeen.push_back(s); }, "en_US", "UTC"});
            service_->start(watcher);
            clipboard.pullHandler = [this] { service_->pastePulled(); };
        }
        return *service_;
    }

    void type(std::string_view text) {
        service();
        watcher.type(text);
    }

    std::vector<KeyInjection> steps() const { return injector.steps; }

    Library library;
    std::unique_ptr<Settings> settings;
    ManualScheduler scheduler;
    TimedInjector injector{scheduler};
    FakeClipboard clipboard;
    FakeActiveWindow windows;
    FakeKeyboardGrabProbe grab;
    FakeFillInPresenter fillIn;
    FakeNotifier notifier;
    FakeFieldReader fieldReader;
    FakeKeyboardWatcher watcher;
    std::vector<Snippet> snippets;
    std::vector<ExpansionStats> statsSeen;
    std::unique_ptr<ExpansionService> service_;
};

TEST_F(ExpansionServiceTest, KeywordExpandsWithTheStepsAtTheirDelays) {
    clipboard.setText("user text");
    type(";sig");
    ASSERT_TRUE(service().pendingExpansion());
    scheduler.advance(1000);

    const std::vector<TimedStep> expected{
        {0, keyinjection::Backspaces{4}},
        {125, keyinjection::PressChord{kCtrlV}},
    };
    EXPECT_EQ(injector.timed, expected);
    ASSERT_EQ(clipboard.writes.size(), 1U);
    EXPECT_TRUE(hasPayload(clipboard.writes[0], "text/plain;charset=utf-8", "Kind regards"));
    EXPECT_FALSE(service().pendingExpansion());
    EXPECT_FALSE(service().isSynthesizing());
    EXPECT_EQ(service().lastExpansion(), (LastExpansion{"Kind regards", ";sig", 0, 4242}));
    EXPECT_TRUE(service().bufferText().empty());
}

TEST_F(ExpansionServiceTest, ReadsAfterThePasteDoNotPutTheRestoreOff) {
    // A clipboard manager (or anything else) reading what we pasted again and again.
    clipboard.setText("mine");
    type(";sig");
    scheduler.advance(130);
    for (int i = 0; i < 20; ++i) {
        clipboard.simulatePull();
        scheduler.advance(50);
    }
    EXPECT_EQ(clipboard.text(), "mine");
    EXPECT_EQ(clipboard.writes.size(), 2U);
}

TEST_F(ExpansionServiceTest, CaretAndHeldKeysWaitUntilTheTargetHasReadThePaste) {
    // Targets that read the clipboard asynchronously insert the text only when the answer
    // arrives, after any key already queued: the caret moves and the held keys wait for it.
    addSnippet("addr", "Dear {@cursor@},");
    struct Case {
        const char* name;
        std::optional<std::int64_t> pullAfter; // ms after the paste shortcut
        std::int64_t caretAt;
    };
    const Case cases[] = {
        {"target reads at once", 5, 125 + 5 + 20 + 35},
        {"target reads late", 300, 125 + 300 + 20 + 35},
        {"target never reads", std::nullopt, 125 + 500 + 35},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.reset();
        scheduler = ManualScheduler();
        injector.timed.clear();
        injector.steps.clear();
        injector.releasedAt.clear();
        type(";addr");
        watcher.type(" x"); // typed on at once: held
        scheduler.advance(125 + c.pullAfter.value_or(0));
        if (c.pullAfter) {
            clipboard.simulatePull();
        }
        scheduler.advance(1000);
        const std::vector<TimedStep> expected{
            {0, keyinjection::Backspaces{5}},
            {125, keyinjection::PressChord{kCtrlV}},
            {c.caretAt, keyinjection::CaretLeft{1}},
        };
        EXPECT_EQ(injector.timed, expected);
        EXPECT_EQ(injector.releasedAt, std::vector<std::size_t>{3}) << "after the last step";
        EXPECT_EQ(service().bufferText(), " x");
        EXPECT_FALSE(service().lastAbortReason());
    }
}

TEST_F(ExpansionServiceTest, OurClipboardWritesCarryBothConcealedMarkers) {
    clipboard.setText("user text");
    type(";sig");
    clipboard.writes.clear();
    scheduler.advance(125);
    clipboard.simulatePull();
    scheduler.advance(1000);
    ASSERT_EQ(clipboard.writes.size(), 2U); // the paste, then the restore
    for (const auto& write : clipboard.writes) {
        EXPECT_TRUE(hasPayload(write, "x-kde-passwordManagerHint", "secret"));
        EXPECT_TRUE(hasPayload(write, "org.nspasteboard.ConcealedType", ""));
    }
}

struct RestoreCase {
    const char* name;
    PasteboardSnapshot user;
    bool pulled;
    std::int64_t restoredAt;
};

TEST_F(ExpansionServiceTest, UserClipboardComesBackByteExactAfterThePullOrTheTimeout) {
    const std::vector<std::uint8_t> png{0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0xff};
    const std::vector<RestoreCase> cases{
        {"text pulled", snapshotOf({{{bytes("text/plain;charset=utf-8", {'h', 'i'})}}}), true, 225},
        {"image and html, never pulled",
         snapshotOf({{{bytes("image/png", png), bytes("text/html", {'<', 'b', '>'})}},
                     {{bytes("text/uri-list", {'f', ':', '/'})}}}),
         false, 1125},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.reset();
        scheduler = ManualScheduler();
        clipboard = FakeClipboard();
        clipboard.setContents(c.user);
        type(";sig");
        scheduler.advance(125);
        ASSERT_NE(clipboard.contents, c.user);
        if (c.pulled) {
            clipboard.simulatePull();
        }
        scheduler.advance(c.restoredAt - 125 - 1);
        EXPECT_NE(withoutMarkers(clipboard.contents), c.user) << "restored too early";
        scheduler.advance(1);
        EXPECT_EQ(withoutMarkers(clipboard.contents), c.user);
    }
}

TEST_F(ExpansionServiceTest, CopyMadeAfterOurWriteIsNotOverwrittenByTheRestore) {
    clipboard.setText("old");
    type(";sig");
    scheduler.advance(125);
    clipboard.setText("copied meanwhile");
    scheduler.advance(2000);
    EXPECT_EQ(clipboard.text(), "copied meanwhile");
}

TEST_F(ExpansionServiceTest, SecondExpansionBeforeTheRestoreKeepsTheUsersClipboard) {
    clipboard.setText("mine");
    type(";sig");
    scheduler.advance(200);
    type(" ;sig");
    scheduler.advance(3000);
    EXPECT_EQ(clipboard.text(), "mine");
}

struct ContentPasteCase {
    const char* name;
    const char* windowClass;
    bool grabbed;
    PasteboardSnapshot content;
    std::optional<std::string> refusal;
    std::vector<KeyInjection> steps;
};

TEST_F(ExpansionServiceTest, PastingContentGoesThroughTheClipboardOrIsTypedAndRestores) {
    const std::vector<std::uint8_t> png{0x89, 'P', 'N', 'G', 0x00, 0xff};
    const auto image = snapshotOf(
        {{{bytes("image/png", png), bytes("text/plain;charset=utf-8", {'a', 'l', 't'})}}});
    const auto onlyImage = snapshotOf({{{bytes("image/png", png)}}});
    const std::vector<ContentPasteCase> cases{
        {"every flavour pasted", "firefox", false, image, std::nullopt,
         {keyinjection::PressChord{kCtrlV}}},
        {"terminal gets its own chord", "gnome-terminal-server", false, image, std::nullopt,
         {keyinjection::PressChord{kCtrlShiftV}}},
        {"keyboard grabbed elsewhere", "firefox", true, image,
         "Another application holds the keyboard, so Marlune cannot paste now.", {}},
        {"nothing to paste", "firefox", false, PasteboardSnapshot{}, "There is nothing to paste.",
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.reset();
        scheduler = ManualScheduler();
        clipboard = FakeClipboard();
        injector.steps.clear();
        injector.timed.clear();
        clipboard.setText("mine");
        windows.window = ActiveWindow{c.windowClass, "Window", 7};
        grab.grabbed = c.grabbed;
        int finished = 0;
        service().onPasteFinished = [&] { ++finished; };
        EXPECT_EQ(service().paste(c.content), c.refusal);
        scheduler.advance(40);
        if (!c.refusal) {
            clipboard.simulatePull();
        }
        scheduler.advance(100);
        EXPECT_EQ(steps(), c.steps);
        if (c.refusal) {
            EXPECT_EQ(finished, 0);
            EXPECT_EQ(clipboard.text(), "mine");
            continue;
        }
        EXPECT_EQ(finished, 1);
        ASSERT_FALSE(clipboard.writes.empty());
        EXPECT_EQ(withoutMarkers(clipboard.writes.front()), c.content);
        clipboard.simulatePull();
        scheduler.advance(200);
        EXPECT_EQ(clipboard.text(), "mine");
        // A paste is not an expansion: no undo, no statistics.
        EXPECT_FALSE(service().lastExpansion());
        EXPECT_TRUE(statsSeen.empty());
    }
    grab.grabbed = false;

    // A window that takes only typed keys gets the text, and refuses content without any.
    service_.reset();
    injector.steps.clear();
    windows.window = ActiveWindow{"xterm-typed", "Window", 7};
    service_ = std::make_unique<ExpansionService>(ExpansionService::Collaborators{
        library.context(), *settings, injector, clipboard, windows, grab, scheduler, fillIn,
        notifier, [] { return testNow(); },
        [](std::string_view) -> std::optional<KeyChord> { return std::nullopt; }, &fieldReader,
        {}, "en_US", "UTC"});
    service_->start(watcher);
    EXPECT_EQ(service_->paste(onlyImage),
              "The focused window only takes typed text, and this item has none.");
    EXPECT_EQ(service_->paste(image), std::nullopt);
    scheduler.advance(100);
    EXPECT_EQ(steps(), (std::vector<KeyInjection>{keyinjection::TypeText{"alt"}}));
}

TEST_F(ExpansionServiceTest, PasteWhileACommitRunsIsRefused) {
    type(";sig");
    ASSERT_TRUE(service().pendingExpansion());
    EXPECT_EQ(service().paste(snapshotOf({{{bytes("text/plain", {'x'})}}})),
              "Marlune is in the middle of an expansion; try again in a moment.");
}

struct PasteCase {
    const char* windowClass;
    KeyInjection expected;
};

TEST_F(ExpansionServiceTest, PasteFollowsTheWindowClass) {
    const std::vector<PasteCase> cases{
        {"firefox", keyinjection::PressChord{kCtrlV}},
        {"Gnome-terminal", keyinjection::PressChord{kCtrlShiftV}},
        {"kitty", keyinjection::PressChord{kCtrlShiftV}},
        {"URxvt", keyinjection::PressChord{kCtrlAltV}},
        {"XTerm", keyinjection::TypeText{"Kind regards"}},
    };
    service();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.windowClass);
        injector.steps.clear();
        clipboard.writes.clear();
        windows.window->bundleIdentifier = c.windowClass;
        watcher.type(" ;sig");
        scheduler.advance(2000);
        ASSERT_EQ(injector.steps.size(), 2U);
        EXPECT_EQ(injector.steps[1], c.expected);
        // Typing leaves the clipboard alone.
        EXPECT_EQ(clipboard.writes.empty(),
                  std::holds_alternative<keyinjection::TypeText>(c.expected));
    }
}

struct NoExpansionCase {
    const char* name;
    const char* typed;
    bool grabbed;
    bool paused;
    bool smartDetection;
    bool passwordField;
};

TEST_F(ExpansionServiceTest, NothingExpandsWhereItMustNot) {
    const std::vector<NoExpansionCase> cases{
        {"doubled prefix", ";;sig", false, false, false, false},
        {"unknown keyword", ";sog", false, false, false, false},
        {"keyboard grabbed", ";sig", true, false, false, false},
        {"paused", ";sig", false, true, false, false},
        {"password field", ";sig", false, false, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.reset();
        injector.steps.clear();
        grab.grabbed = c.grabbed;
        settings->setBoolean("smartFieldDetection", c.smartDetection);
        fieldReader.field = FocusedField{c.passwordField, std::nullopt};
        service().setPaused(c.paused);
        watcher.type(c.typed);
        scheduler.advance(2000);
        EXPECT_TRUE(injector.steps.empty());
        EXPECT_FALSE(service().pendingExpansion());
    }
}

TEST_F(ExpansionServiceTest, PasswordFieldIsIgnoredWhenSmartDetectionIsOff) {
    fieldReader.field = FocusedField{true, std::nullopt};
    type(";sig");
    EXPECT_EQ(fieldReader.queries, 0);
    EXPECT_TRUE(service().pendingExpansion());
}

TEST_F(ExpansionServiceTest, KeywordAfterOtherTextAndAfterAFullBufferStillExpands) {
    type(std::string(70, 'a') + "x;sig");
    ASSERT_TRUE(service().pendingExpansion());
    scheduler.advance(10);
    EXPECT_EQ(injector.steps.front(), KeyInjection(keyinjection::Backspaces{4}));
}

TEST_F(ExpansionServiceTest, ClicksFocusChangesAndLocksForgetTheTyping) {
    const std::vector<std::pair<const char*, std::function<void(ExpansionService&)>>> cases{
        {"click", [this](ExpansionService&) { watcher.click(); }},
        {"focus", [this](ExpansionService&) { watcher.push(keyboard::FocusChanged{}); }},
        {"lock", [](ExpansionService& s) { s.screenLocked(); }},
        {"arrow", [this](ExpansionService&) { watcher.push(pressed(NamedKey::left)); }},
    };
    for (const auto& [name, interrupt] : cases) {
        SCOPED_TRACE(name);
        type(" ;si");
        interrupt(service());
        watcher.type("g");
        EXPECT_FALSE(service().pendingExpansion());
    }
    EXPECT_TRUE(injector.steps.empty());
}

TEST_F(ExpansionServiceTest, KeysTypedDuringACommitAreHeldAndAKeywordAmongThemExpandsInPlace) {
    addSnippet("addr", "12 Harbour Road");
    struct Case {
        const char* name;
        std::vector<std::string> typedOn; // during the first commit
        std::string buffer;               // the typed buffer afterwards
        bool secondExpansion;
    };
    const Case cases[] = {
        {"words after the keyword", {" ", "b", "e", "l"}, " bel", false},
        {"a keyword completed by the last held key", {" ", ";", "a", "d", "d", "r"}, "", true},
        // The keys up to the keyword go on, the keyword expands, then the rest follows.
        {"a keyword completed earlier", {";", "s", "i", "g", " "}, "", true},
        {"no keyword once the BackSpace is counted", {";", "s", "i", "BS", "g", " "}, ";sg ",
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.reset();
        scheduler = ManualScheduler();
        injector.steps.clear();
        injector.releasedAt.clear();
        injector.holds = 0;
        type(";sig");
        injector.partialReleases.clear();
        for (const auto& key : c.typedOn) {
            if (key == "BS") {
                watcher.backspace();
            } else {
                watcher.type(key);
            }
        }
        EXPECT_TRUE(injector.holding);
        scheduler.advance(125);
        clipboard.simulatePull();
        scheduler.advance(100);
        EXPECT_EQ(injector.releasedAt.front(), 2U) << "behind the BackSpaces and the paste";
        EXPECT_TRUE(service().lastExpansion());
        EXPECT_EQ(service().pendingExpansion(), c.secondExpansion);
        EXPECT_EQ(injector.holds, c.secondExpansion ? 2 : 1);
        EXPECT_EQ(service().bufferText(), c.buffer);
        EXPECT_TRUE(service().abortCounts().empty());
        if (c.typedOn.back() == " " && c.secondExpansion && c.typedOn.size() == 5) {
            // ";sig" went on (four presses) and the space waits for the second commit.
            using Partial = std::pair<std::size_t, std::size_t>;
            EXPECT_EQ(injector.partialReleases, std::vector<Partial>{Partial(2, 4)});
            scheduler.advance(125);
            clipboard.simulatePull();
            scheduler.advance(100);
            EXPECT_FALSE(service().pendingExpansion());
            EXPECT_EQ(service().bufferText(), " ");
            EXPECT_EQ(injector.releasedAt.back(), 4U) << "after the second paste";
        }
    }
}

TEST_F(ExpansionServiceTest, WithoutTheKeyboardHeldNothingIsDeleted) {
    injector.refuseHold = true;
    clipboard.setText("mine");
    type("x ;sig");
    scheduler.advance(2000);
    EXPECT_TRUE(injector.steps.empty());
    EXPECT_EQ(service().abortCounts().at("keys-not-held"), 1);
    EXPECT_EQ(clipboard.text(), "mine");
    EXPECT_FALSE(service().lastExpansion());
}

TEST_F(ExpansionServiceTest, CommitAbandonedAfterItsDeletionsTypesTheKeywordBack) {
    clipboard.setText("mine");
    injector.failIf = [](const KeyInjection& step) {
        return std::holds_alternative<keyinjection::PressChord>(step);
    };
    type("see ;sig");
    watcher.type(" b");
    scheduler.advance(2000);
    const std::vector<KeyInjection> expected{keyinjection::Backspaces{4},
                                             keyinjection::TypeText{";sig"}};
    EXPECT_EQ(steps(), expected);
    EXPECT_EQ(injector.releasedAt, std::vector<std::size_t>{2}) << "the held keys after it";
    EXPECT_EQ(service().abortCounts().at("injection-failed"), 1);
    // Our text went onto the clipboard but was never pasted: the user's is back at once.
    EXPECT_EQ(clipboard.text(), "mine");
}

TEST_F(ExpansionServiceTest, ClipboardThatCannotBeSavedWholeIsNotPastedOver) {
    clipboard.setText("mine");
    clipboard.saveFailure = "The clipboard holds more than 64 MiB.";
    type(";sig");
    scheduler.advance(2000);
    EXPECT_TRUE(injector.steps.empty()) << "nothing deleted";
    EXPECT_EQ(service().abortCounts().at("clipboard-not-saved"), 1);
    EXPECT_TRUE(clipboard.writes.empty());
    EXPECT_FALSE(injector.holding) << "the held keys went on";
    EXPECT_EQ(service().paste(clipboard.contents),
              "The clipboard could not be saved whole, so Marlune did not paste over it.");
}

struct VerifyCase {
    const char* name;
    // What the field reader answers, one read after another; the last answer repeats.
    std::vector<std::optional<FocusedField>> reads;
    // Something the user does 10 ms after the keyword, while the field is read again.
    std::function<void(FakeKeyboardWatcher&)> interrupt;
    bool expands;
    int queries;
    std::optional<std::string> abortReason;
};

TEST_F(ExpansionServiceTest, FieldThatLagsIsReadAgainAndOneThatDisagreesAbandonsTheCommit) {
    settings->setBoolean("smartFieldDetection", true);
    const FocusedField agrees{false, std::string("hello ;sig")};
    const FocusedField lags{false, std::string("hello ;si")};
    const FocusedField differs{false, std::string("hello ;sog")};
    const auto key = [](FakeKeyboardWatcher& w) { w.type("x"); };
    const auto click = [](FakeKeyboardWatcher& w) { w.click(); };
    const std::vector<VerifyCase> cases{
        {"agrees at once", {agrees}, nullptr, true, 1, std::nullopt},
        {"no text exposed", {FocusedField{false, std::nullopt}}, nullptr, true, 1, std::nullopt},
        {"catches up on the second read", {lags, agrees}, nullptr, true, 2, std::nullopt},
        {"catches up on the last read", {lags, lags, lags, agrees}, nullptr, true, 4, std::nullopt},
        {"never agrees", {lags, lags, lags, lags, agrees}, nullptr, false, 4,
         "precaret-mismatch"},
        {"turns out to be a password field", {differs, FocusedField{true, std::nullopt}}, nullptr,
         false, 2, std::nullopt},
        {"the field's process is not the active window's", {FocusedField{false, "x", 7}}, nullptr,
         true, 1, std::nullopt},
        {"the active window's own field disagrees", {FocusedField{false, "x", 4242}}, nullptr,
         false, 4, "precaret-mismatch"},
        {"a key while reading again is held", {lags, agrees}, key, true, 2, std::nullopt},
        {"a click while reading again", {lags, agrees}, click, false, 1,
         "focus-moved-during-verify"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.reset();
        injector.steps.clear();
        fieldReader.queries = 0;
        fieldReader.next.assign(c.reads.begin(), c.reads.end() - 1);
        fieldReader.field = c.reads.back();
        type(";sig");
        if (c.interrupt) {
            scheduler.advance(10);
            c.interrupt(watcher);
        }
        scheduler.advance(1000);
        const bool expanded = !injector.steps.empty() &&
                              injector.steps.front() == KeyInjection(keyinjection::Backspaces{4});
        EXPECT_EQ(expanded, c.expands);
        EXPECT_EQ(fieldReader.queries, c.queries);
        EXPECT_EQ(service().lastAbortReason(), c.abortReason);
        EXPECT_FALSE(service().pendingExpansion());
    }
}

TEST_F(ExpansionServiceTest, PasteWaitsForAKeywordStillBeingChecked) {
    settings->setBoolean("smartFieldDetection", true);
    fieldReader.next = {FocusedField{false, std::string(";si")}};
    fieldReader.field = FocusedField{false, std::string(";sig")};
    type(";sig");
    EXPECT_TRUE(service().pendingExpansion());
    EXPECT_TRUE(service().paste(snapshotOf({{{bytes("text/plain", {'a'})}}})).has_value());
    scheduler.advance(1000);
    EXPECT_EQ(injector.steps.front(), KeyInjection(keyinjection::Backspaces{4}));
}

TEST_F(ExpansionServiceTest, ModifiersStillHeldDelayTheCommitOrAbortIt) {
    injector.held.shift = true;
    injector.releaseAfterQueries = 3;
    type(";sig");
    EXPECT_TRUE(injector.steps.empty());
    scheduler.advance(2000);
    ASSERT_FALSE(injector.timed.empty());
    EXPECT_EQ(injector.timed.front().at, 50);

    injector.held.control = true;
    injector.releaseAfterQueries = 0;
    injector.timed.clear();
    watcher.type(" ;sig");
    scheduler.advance(5000);
    EXPECT_TRUE(injector.timed.empty());
    EXPECT_EQ(service().lastAbortReason(), "modifiers-held");
}

TEST_F(ExpansionServiceTest, BackspaceRightAfterPutsTheKeywordBackAndSuppressesIt) {
    addSnippet("hi", "Hello {@cursor@}there");
    type(";hi");
    scheduler.advance(1000);
    injector.timed.clear();
    watcher.backspace();
    scheduler.advance(1000);
    const std::vector<TimedStep> expected{
        {1000, keyinjection::CaretRight{5}},
        {1035, keyinjection::Backspaces{10}},
        {1135, keyinjection::TypeText{";hi"}},
    };
    EXPECT_EQ(injector.timed, expected);
    EXPECT_EQ(service().suppressedToken(), ";hi");
    EXPECT_FALSE(service().lastExpansion());

    // Deleting and retyping the last letter must not expand what the user just undid...
    watcher.backspace();
    watcher.type("i");
    EXPECT_FALSE(service().pendingExpansion());
    // ...but a fresh word may.
    watcher.type(" ;hi");
    EXPECT_TRUE(service().pendingExpansion());
}

TEST_F(ExpansionServiceTest, BackspaceAfterOtherTypingOrTheUndoWindowIsAnOrdinaryBackspace) {
    type(";sig");
    scheduler.advance(500);
    watcher.type("x");
    watcher.backspace();
    scheduler.advance(4000);
    type(" ;sig");
    scheduler.advance(ExpansionService::kPullPatience.count() + 500 +
                      ExpansionService::kUndoWindow.count());
    watcher.backspace();
    scheduler.advance(1000);
    EXPECT_EQ(injector.steps.size(), 4U) << "two expansions, no undo";
}

TEST_F(ExpansionServiceTest, ExpansionRecordsUseAndKeystrokesSaved) {
    type(";sig");
    scheduler.advance(1000);
    const auto stored = SnippetStore(library.context()).snippet(snippets[0].id);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->usageCount, 1);
    EXPECT_EQ(stored->lastUsedAt, testNow());
    const ExpansionStats expected{1, 12 - 4};
    EXPECT_EQ(service().stats(), expected);
    ASSERT_EQ(statsSeen.size(), 1U);
    EXPECT_EQ(statsSeen[0], expected);
}

TEST_F(ExpansionServiceTest, LibraryChangesReachTheKeywordTableOnRefresh) {
    service();
    addSnippet("new", "fresh");
    SnippetStore(library.context()).moveToTrash(snippets[0].id, testNow());
    watcher.type(";new");
    EXPECT_FALSE(service().pendingExpansion());
    service().refresh();
    watcher.type(" ;sig");
    EXPECT_FALSE(service().pendingExpansion()) << "trashed snippets never expand";
    watcher.type(" ;new");
    EXPECT_TRUE(service().pendingExpansion());
}

TEST_F(ExpansionServiceTest, KeywordPrefixComesFromTheSettings) {
    settings->setString("keywordPrefix", "!");
    type(";sig");
    EXPECT_FALSE(service().pendingExpansion());
    watcher.type(" !sig");
    EXPECT_TRUE(service().pendingExpansion());
}

// What the expansion put on the clipboard to paste, or empty when nothing was pasted.
std::string pastedText(const FakeClipboard& clipboard) {
    for (const auto& write : clipboard.writes) {
        for (const auto& item : write.items) {
            for (const auto& p : item.payloads) {
                if (p.type == "text/plain;charset=utf-8") {
                    return std::string(p.data.begin(), p.data.end());
                }
            }
        }
    }
    return {};
}

TEST_F(ExpansionServiceTest, CounterAdvancesOncePerInsertedExpansionOfItsOwnSnippet) {
    addSnippet("inv", "Invoice {@counter@}-{@counter@}");
    addSnippet("tkt", "Ticket {@counter@}");
    addSnippet("form", "{@text|name=Who@} #{@counter@}");
    const auto expand = [&](const std::string& typed) {
        clipboard.writes.clear();
        type(" " + typed);
        if (fillIn.isOpen()) {
            fillIn.answer({{"Who", "Ann"}});
        }
        scheduler.advance(150);
        clipboard.simulatePull();
        scheduler.advance(1000);
        return pastedText(clipboard);
    };
    EXPECT_EQ(expand(";inv"), "Invoice 1-1");
    EXPECT_EQ(expand(";inv"), "Invoice 2-2");
    EXPECT_EQ(expand(";tkt"), "Ticket 1") << "each snippet counts its own";
    EXPECT_EQ(expand(";form"), "Ann #1") << "the form renders twice, the counter moves once";
    injector.refuseHold = true;
    EXPECT_EQ(expand(";inv"), "") << "abandoned";
    injector.refuseHold = false;
    service_.reset(); // a new launch
    EXPECT_EQ(expand(";inv"), "Invoice 3-3");
    EXPECT_EQ(expand(";form"), "Ann #2");
}

TEST_F(ExpansionServiceTest, KeywordEndingInAnEmojiIsDeletedAsTheWindowCountsCharacters) {
    addSnippet("ok👍🏽", "fine");
    const std::vector<std::pair<std::string, std::vector<KeyInjection>>> cases{
        {"firefox",
         {keyinjection::SelectLeft{1}, keyinjection::Backspaces{1}, keyinjection::Backspaces{3},
          keyinjection::PressChord{kCtrlV}}},
        {"URxvt", {keyinjection::Backspaces{5}, keyinjection::PressChord{kCtrlAltV}}},
        {"XTerm", {keyinjection::Backspaces{5}, keyinjection::TypeText{"fine"}}},
    };
    for (const auto& [windowClass, expected] : cases) {
        SCOPED_TRACE(windowClass);
        service_.reset();
        scheduler = ManualScheduler();
        injector.steps.clear();
        windows.window = ActiveWindow{windowClass, "Window", 7};
        type(" ;ok👍");
        watcher.type("🏽");
        scheduler.advance(1000);
        EXPECT_EQ(steps(), expected);
    }
}

TEST_F(ExpansionServiceTest, SelectionPlaceholderIsTheSelectedText) {
    addSnippet("q", "“{@selection@}”");
    clipboard.selection = "to be quoted";
    type(";q");
    scheduler.advance(1000);
    EXPECT_EQ(pastedText(clipboard), "“to be quoted”");
}

TEST_F(ExpansionServiceTest, FillInFormAnswersAreCommittedAndRemembered) {
    addSnippet("dear", "Dear {@text|name=Name|default=there@},");
    type(";dear");
    ASSERT_TRUE(fillIn.isOpen());
    EXPECT_TRUE(service().isFillInOpen());
    EXPECT_EQ(fillIn.shownValues.back().at("Name"), "there");
    // Typing into the form must neither feed the buffer nor abort anything.
    watcher.type("Ann");
    watcher.push(keyboard::FocusChanged{});
    fillIn.answer({{"Name", "Ann"}});
    EXPECT_FALSE(service().isFillInOpen());
    scheduler.advance(1000);
    const std::vector<TimedStep> expected{
        {100, keyinjection::Backspaces{5}},
        {225, keyinjection::PressChord{kCtrlV}},
    };
    EXPECT_EQ(injector.timed, expected);
    EXPECT_TRUE(hasPayload(clipboard.writes.at(0), "text/plain;charset=utf-8", "Dear Ann,"));

    watcher.type(" ;dear");
    ASSERT_TRUE(fillIn.isOpen());
    EXPECT_EQ(fillIn.shownValues.back().at("Name"), "Ann");
    fillIn.cancel();
    scheduler.advance(1000);
    EXPECT_EQ(injector.timed.size(), 2U) << "a cancelled form inserts nothing";
}

TEST_F(ExpansionServiceTest, FillInCommitKeepsTheKeywordWhenTheCaretMoved) {
    settings->setBoolean("smartFieldDetection", true);
    addSnippet("dear", "Dear {@text|name=Name@},");
    type(";dear");
    fieldReader.field = FocusedField{false, std::string("elsewhere")};
    fillIn.answer({{"Name", "Bo"}});
    scheduler.advance(1000);
    ASSERT_FALSE(injector.steps.empty());
    EXPECT_EQ(injector.steps.front(), KeyInjection(keyinjection::PressChord{kCtrlV}));
    EXPECT_EQ(service().lastExpansion()->keyword, "");
}

TEST_F(ExpansionServiceTest, PhraseTypedRepeatedlyIsSuggestedOnce) {
    const std::string phrase = "see you at the standup";
    for (int i = 0; i < 4; ++i) {
        type(phrase);
        watcher.push(pressed(NamedKey::returnKey));
        type("ok then");
        watcher.push(pressed(NamedKey::returnKey));
    }
    ASSERT_EQ(notifier.suggestions.size(), 1U);
    EXPECT_EQ(notifier.suggestions[0].first, "You've typed this a few times — make it a snippet?");
    EXPECT_EQ(notifier.suggestions[0].second, phrase);
}

TEST_F(ExpansionServiceTest, PhrasesTypedIntoSecretsOrInterruptedAreNotCounted) {
    const std::vector<std::pair<const char*, std::function<void()>>> cases{
        {"grab", [this] { grab.grabbed = true; }},
        {"password field",
         [this] {
             settings->setBoolean("smartFieldDetection", true);
             service().refresh();
             fieldReader.field = FocusedField{true, std::nullopt};
         }},
        {"click mid-phrase", [] {}},
    };
    for (const auto& [name, setUp] : cases) {
        SCOPED_TRACE(name);
        service_.reset();
        grab.grabbed = false;
        fieldReader.field.reset();
        settings->setBoolean("smartFieldDetection", false);
        service();
        setUp();
        for (int i = 0; i < 3; ++i) {
            watcher.type("my very secret words");
            if (std::string_view(name) == "click mid-phrase") {
                watcher.click();
                watcher.type(" and more");
            }
            watcher.push(pressed(NamedKey::returnKey));
        }
        EXPECT_TRUE(notifier.suggestions.empty());
    }
}

} // namespace
} // namespace marlune::test
