#include "Marlune/ClipboardCaptureService.h"
#include "MarluneCore/CaptureRuleStore.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/Settings.h"
#include "support/FakeActiveWindow.h"
#include "support/FakeClipboard.h"
#include "support/LibraryFixture.h"
#include "support/ManualScheduler.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace marlune {
namespace {

using namespace std::chrono_literals;
using Payload = PasteboardSnapshot::Payload;

PasteboardSnapshot snapshotOf(std::vector<Payload> payloads) {
    return PasteboardSnapshot::fromItems({{std::move(payloads)}});
}

Payload text(std::string_view value) {
    return Payload::fromText("text/plain;charset=utf-8", value);
}

// The eight-byte signature is all the classifier needs to accept a PNG.
Payload png() {
    return Payload{"image/png", {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 0}};
}

// Collects log lines instead of printing them, for the life of one test.
struct LogLines {
    LogLines() {
        Logger::setSink([this](std::string_view, LogLevel, std::string_view line) {
            lines.emplace_back(line);
        });
    }
    ~LogLines() { Logger::setSink({}); }
    std::vector<std::string> lines;
};

struct Harness {
    Harness() {
        window.window = ActiveWindow{"Gedit", "notes.txt - gedit", 4242};
        // Reads answer later on the main thread, as the real clipboard's do.
        clipboard.deliverOn = &scheduler;
        service.start();
    }

    // Another application copies, then the clock runs long enough for any capture.
    void copy(PasteboardSnapshot snapshot) {
        clipboard.setContents(std::move(snapshot));
        scheduler.advance(1s);
    }
    std::vector<Clip> clips() { return store().recent(100); }
    ClipStore store() { return ClipStore(library.context(), {}); }

    test::Library library;
    Settings settings = Settings::load(library.dir.path() / "settings.json", {});
    test::FakeClipboard clipboard;
    test::FakeActiveWindow window;
    test::ManualScheduler scheduler;
    LogLines log;
    int imagesCaptured = 0;
    ClipboardCaptureService service{
        clipboard,
        window,
        scheduler,
        library.context(),
        settings,
        [this] { return test::testNow() + scheduler.now; },
        [this] { return std::chrono::duration<double>(scheduler.now).count(); }};
};

TEST(ClipboardCaptureService, SettledCopyLeavesTheRightClipOrNothing) {
    struct Case {
        const char* name;
        PasteboardSnapshot contents;
        bool skipLikelySecrets = true;
        std::size_t clips;
        std::optional<ClipKind> kind;
        std::vector<std::string> representations;
        std::vector<std::string> logLines;
        std::vector<ClipboardCaptureRead::Oversize> leftOut = {};
    };
    const std::string awsKey = "AKIA"
                               "IOSFODNN7"
                               "EXAMPLE";
    const Case cases[] = {
        {"plain text",
         snapshotOf({text("hello there")}),
         true,
         1,
         ClipKind::text,
         {"public.utf8-plain-text"},
         {}},
        {"image", snapshotOf({png()}), true, 1, ClipKind::image, {"public.png"}, {}},
        {"password manager hint",
         snapshotOf({text("hunter2"), Payload::fromText("x-kde-passwordManagerHint", "secret")}),
         true,
         0,
         std::nullopt,
         {},
         {}},
        {"concealed marker",
         snapshotOf({text("harmless"), Payload::fromText("org.nspasteboard.ConcealedType", "")}),
         true,
         0,
         std::nullopt,
         {},
         {}},
        {"access key",
         snapshotOf({text(awsKey)}),
         true,
         0,
         std::nullopt,
         {},
         {"[Marlune] Skipped a likely secret (apiKey)"}},
        {"access key, secrets allowed",
         snapshotOf({text(awsKey)}),
         false,
         1,
         ClipKind::text,
         {"public.utf8-plain-text"},
         {}},
        {"nothing usable",
         snapshotOf({Payload::fromText("application/x-unknown", "x")}),
         true,
         0,
         std::nullopt,
         {},
         {}},
        {"image too large beside its caption",
         snapshotOf({text("caption")}),
         true,
         1,
         ClipKind::text,
         {"public.utf8-plain-text"},
         {"[Marlune] Left image/png out of a clipboard capture. The clip flavour is 73.4 MB, "
          "over the 64 MiB limit for a clip flavour."},
         {{"image/png", std::uint64_t{70} << 20, std::uint64_t{64} << 20}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Harness h;
        h.settings.setBoolean("skipLikelySecrets", c.skipLikelySecrets);
        h.service.onImageCaptured = [&](const Clip&) { ++h.imagesCaptured; };
        h.clipboard.leftOut = c.leftOut;
        h.copy(c.contents);

        const auto clips = h.clips();
        ASSERT_EQ(clips.size(), c.clips);
        EXPECT_EQ(h.log.lines, c.logLines);
        EXPECT_EQ(h.service.skippedSecrets().total(), c.kind || c.logLines.empty() ? 0 : 1);
        if (!c.kind) {
            continue;
        }
        EXPECT_EQ(clips[0].primaryKind, *c.kind);
        EXPECT_EQ(clips[0].sourceAppBundleID, "Gedit");
        EXPECT_EQ(h.imagesCaptured, *c.kind == ClipKind::image ? 1 : 0);
        std::vector<std::string> types;
        for (const auto& rep : h.store().representations(clips[0].id)) {
            types.push_back(rep.utTypeIdentifier);
        }
        EXPECT_EQ(types, c.representations);
    }
}

TEST(ClipboardCaptureService, BurstOfWritesBecomesOneClipOfTheLastContent) {
    Harness h;
    for (int i = 1; i <= 5; ++i) {
        h.clipboard.setText("draft " + std::to_string(i));
        h.scheduler.advance(50ms); // five writes within 0.2 s
    }
    h.scheduler.advance(2s);
    const auto clips = h.clips();
    ASSERT_EQ(clips.size(), 1U);
    EXPECT_EQ(clips[0].previewText, "draft 5");
}

TEST(ClipboardCaptureService, CopyIsCapturedOnceAndRecopyBumpsTheSameClip) {
    Harness h;
    h.copy(snapshotOf({text("hello")}));
    h.scheduler.advance(10s); // many polls see the same change
    ASSERT_EQ(h.clips().size(), 1U);
    EXPECT_EQ(h.clips()[0].recopyCount, 0);

    h.copy(snapshotOf({text("hello")}));
    const auto clips = h.clips();
    ASSERT_EQ(clips.size(), 1U);
    EXPECT_EQ(clips[0].recopyCount, 1);
}

TEST(ClipboardCaptureService, ChangeNotificationCapturesWithoutWaitingForThePoll) {
    Harness h;
    h.scheduler.advance(10ms);
    h.clipboard.setText("quick");
    // The polls fall at 0.4 s and 0.8 s; the copy must not wait for the second one.
    h.scheduler.advance(ClipboardCaptureService::settledTickDelay - 1ms);
    EXPECT_TRUE(h.clips().empty()) << "captured before it settled";
    h.scheduler.advance(1ms);
    EXPECT_EQ(h.clips().size(), 1U);
}

TEST(ClipboardCaptureService, ExcludedApplicationsCopiesAreNeitherReadNorStored) {
    Harness h;
    CaptureRuleStore(h.library.context()).add("KeePassXC", "KeePassXC", test::testNow());
    h.window.window = ActiveWindow{"KeePassXC", "Passwords.kdbx", 7};
    h.copy(snapshotOf({text("correct horse battery staple")}));
    EXPECT_TRUE(h.clips().empty());
    EXPECT_EQ(h.clipboard.snapshotReads, 0);

    h.window.window = ActiveWindow{"Gedit", "notes", 8};
    h.copy(snapshotOf({text("ordinary")}));
    EXPECT_EQ(h.clips().size(), 1U);
}

TEST(ClipboardCaptureService, NothingCopiedWhilePausedEntersTheHistory) {
    Harness h;
    h.service.pause();
    h.copy(snapshotOf({text("during pause")}));
    h.service.resume();
    h.scheduler.advance(2s);
    EXPECT_TRUE(h.clips().empty()) << "a copy made during the pause was captured after it";

    h.copy(snapshotOf({text("after pause")}));
    ASSERT_EQ(h.clips().size(), 1U);
    EXPECT_EQ(h.clips()[0].previewText, "after pause");
}

TEST(ClipboardCaptureService, OwnWritesAreNotCaptured) {
    Harness h;
    // The expansion service's paste, marked the way all our writes are.
    h.clipboard.write(
        snapshotOf({text("expanded"), Payload::fromText("x-kde-passwordManagerHint", "secret"),
                    Payload::fromText("org.nspasteboard.ConcealedType", "")}));
    h.scheduler.advance(1s);
    // A writer that says so is not even read.
    h.clipboard.write(snapshotOf({text("unmarked")}));
    h.service.noteOwnWrite();
    const int readsBefore = h.clipboard.snapshotReads;
    h.scheduler.advance(1s);
    EXPECT_TRUE(h.clips().empty());
    EXPECT_EQ(h.clipboard.snapshotReads, readsBefore);
    EXPECT_TRUE(h.log.lines.empty());
}

TEST(ClipboardCaptureService, RestartDoesNotRecountWhatWasAlreadyOnTheClipboard) {
    Harness h;
    h.copy(snapshotOf({text("kept")}));
    h.service.start(); // a second start must not add a second timer
    EXPECT_EQ(h.scheduler.pending(), 1U);
    h.service.stop();
    h.clipboard.setText("while stopped");
    h.scheduler.advance(2s);
    EXPECT_EQ(h.scheduler.pending(), 0U);
    h.service.start();
    h.scheduler.advance(2s);
    const auto clips = h.clips();
    ASSERT_EQ(clips.size(), 1U);
    EXPECT_EQ(clips[0].recopyCount, 0);
}

TEST(ClipboardCaptureService, ChangesDuringAReadBecomeOneFollowUpReadOfTheLatestCopy) {
    Harness h;
    h.clipboard.holdReads = true;
    h.copy(snapshotOf({text("first")}));
    ASSERT_EQ(h.clipboard.captureRequests, 1);
    for (int i = 2; i <= 4; ++i) {
        h.clipboard.setText("copy " + std::to_string(i));
        h.scheduler.advance(400ms); // each settles, well within the read's time
    }
    EXPECT_EQ(h.clipboard.captureRequests, 1) << "a second read started while one was out";

    // That read may hold any of the copies: it gives way to the one that follows.
    h.clipboard.finishRead();
    EXPECT_TRUE(h.clips().empty());
    EXPECT_EQ(h.clipboard.captureRequests, 2);
    h.clipboard.finishRead();
    h.scheduler.advance(2s);
    const auto clips = h.clips();
    ASSERT_EQ(clips.size(), 1U);
    EXPECT_EQ(clips[0].previewText, "copy 4");
    EXPECT_EQ(h.clipboard.captureRequests, 2);
}

TEST(ClipboardCaptureService, ReadThatNeverAnswersIsGivenUpAndItsLateAnswerIgnored) {
    Harness h;
    h.clipboard.holdReads = true;
    h.copy(snapshotOf({text("lost")})); // its read went out at the settled tick
    h.clipboard.setText("waits for the read");
    const auto givenUp = ClipboardCaptureService::settledTickDelay +
                         ClipboardCaptureService::readGiveUpAfter - h.scheduler.now;
    h.scheduler.advance(givenUp - 1ms);
    EXPECT_EQ(h.clipboard.captureRequests, 1) << "a second read started while one was out";
    h.scheduler.advance(1ms);
    EXPECT_EQ(h.clipboard.captureRequests, 2) << "the change that waited was not read";

    ASSERT_EQ(h.clipboard.heldReads.size(), 2U);
    h.clipboard.finishRead(); // the lost read, long after
    EXPECT_TRUE(h.clips().empty());
    h.clipboard.finishRead();
    const auto clips = h.clips();
    ASSERT_EQ(clips.size(), 1U);
    EXPECT_EQ(clips[0].previewText, "waits for the read");
    EXPECT_EQ(clips[0].recopyCount, 0);
}

TEST(ClipboardCaptureService, OwnerThatKeepsTimingOutIsBackedOffWhileOthersAreRead) {
    using Outcome = ClipboardCaptureRead::Outcome;
    Harness h;
    h.clipboard.holdReads = true;
    const std::uint64_t hung = 7;
    const std::uint64_t other = 8;
    const auto copyFrom = [&](std::uint64_t owner, std::string_view value) {
        h.clipboard.owner = owner;
        h.copy(snapshotOf({text(value)}));
    };
    const auto skipsHung = [&] {
        return std::find(h.clipboard.lastSkipOwners.begin(), h.clipboard.lastSkipOwners.end(),
                         hung) != h.clipboard.lastSkipOwners.end();
    };
    // The pause after each timeout in a row: none after the first, then doubling to a cap.
    const double pauses[] = {0, 10, 20, 40, 80, 160, 300, 300};
    for (std::size_t i = 0; i < std::size(pauses); ++i) {
        SCOPED_TRACE("timeout " + std::to_string(i + 1));
        copyFrom(hung, "stuck");
        ASSERT_FALSE(skipsHung());
        ASSERT_EQ(h.clipboard.heldReads.size(), 1U);
        h.clipboard.finishRead(Outcome::timedOut);
        if (pauses[i] == 0) {
            continue;
        }
        copyFrom(hung, "stuck again");
        EXPECT_TRUE(skipsHung());
        EXPECT_TRUE(h.clipboard.heldReads.empty()) << "a backed-off owner was read";

        copyFrom(other, "copied elsewhere " + std::to_string(i));
        ASSERT_EQ(h.clipboard.heldReads.size(), 1U) << "another owner's copy was not read";
        h.clipboard.finishRead();
        EXPECT_EQ(h.clips().front().previewText, "copied elsewhere " + std::to_string(i));

        // Two seconds of the pause went on the copies above.
        h.scheduler.advance(std::chrono::milliseconds(static_cast<int>(pauses[i] * 1000) - 4000));
        copyFrom(hung, "still stuck");
        EXPECT_TRUE(skipsHung()) << "the pause ended early";
        h.scheduler.advance(2s);
    }
    // A read that succeeds starts the owner afresh: one timeout is forgiven again.
    copyFrom(hung, "answered");
    ASSERT_EQ(h.clipboard.heldReads.size(), 1U);
    h.clipboard.finishRead();
    copyFrom(hung, "slow once");
    h.clipboard.finishRead(Outcome::timedOut);
    copyFrom(hung, "answered again");
    EXPECT_FALSE(skipsHung());
}

TEST(ClipboardCaptureService, ReadStillOutWhenCaptureIsPausedIsNotStored) {
    Harness h;
    h.clipboard.holdReads = true;
    h.copy(snapshotOf({text("copied just before the pause")}));
    h.service.pause();
    h.clipboard.finishRead();
    h.service.resume();
    h.scheduler.advance(2s);
    EXPECT_TRUE(h.clips().empty());
}

} // namespace
} // namespace marlune
