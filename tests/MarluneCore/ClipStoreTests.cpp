#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentFingerprint.h"
#include "MarluneCore/LibraryResealer.h"
#include "MarluneCore/Resealer.h"
#include "MarluneCore/TrashPolicy.h"
#include "support/LibraryFixture.h"

#include <gtest/gtest.h>
#include <random>

namespace marlune {
namespace {

using test::daysAfter;
using test::Library;
using test::testNow;

NewClip textClip(const std::string& text) {
    NewClip clip;
    clip.kind = ClipKind::text;
    clip.previewText = text;
    Representation rep;
    rep.utTypeIdentifier = "public.utf8-plain-text";
    rep.text = text;
    clip.representations.push_back(rep);
    clip.sourceAppBundleID = "org.example.Editor";
    return clip;
}

Uuid makePinboard(ModelContext& context) {
    const Uuid id = Uuid::random();
    context.db()
        .prepare("INSERT INTO Pinboard (id, name, createdAt) VALUES (?1, 'Keep', 0)")
        .bind(1, id.string())
        .run();
    return id;
}

std::int64_t trueTrimmableCount(ModelContext& context) {
    auto stmt = context.db().prepare(
        "SELECT count(*) FROM Clip c WHERE deletedAt IS NULL AND isPinned = 0 AND NOT EXISTS "
        "(SELECT 1 FROM ClipPinboard p WHERE p.clip_id = c.id)");
    stmt.step();
    return stmt.int64(0);
}

TEST(ClipStore, RecopyBumpsTheExistingClipInsteadOfAddingOne) {
    Library library;
    ClipStore store(library.context(), {});
    const Date first = testNow();
    const Date second = daysAfter(first, 2);
    const Clip a = store.record(textClip("hello"), first);
    const Clip b = store.record(textClip("hello"), second);
    EXPECT_EQ(a.id, b.id);
    EXPECT_EQ(b.recopyCount, 1);
    EXPECT_EQ(b.createdAt, first);
    EXPECT_EQ(b.lastUsedAt, second);
    EXPECT_EQ(b.sourceDeviceID, "test-device");
    EXPECT_EQ(store.liveCount(), 1);
    // The bumped clip rises to the top of the history.
    store.record(textClip("other"), daysAfter(first, 1));
    EXPECT_EQ(store.recent(1).front().id, a.id);
}

TEST(ClipStore, SameTextUnderAnotherKindOrFlavourIsAnotherClip) {
    Library library;
    ClipStore store(library.context(), {});
    NewClip asURL = textClip("https://example.org");
    asURL.kind = ClipKind::url;
    NewClip twoFlavours = textClip("https://example.org");
    Representation html;
    html.utTypeIdentifier = "public.html";
    html.text = "<a>https://example.org</a>";
    twoFlavours.representations.push_back(html);
    store.record(textClip("https://example.org"), testNow());
    store.record(asURL, testNow());
    store.record(twoFlavours, testNow());
    EXPECT_EQ(store.liveCount(), 3);
}

TEST(ClipStore, CopyMatchingATrashedClipMakesANewClip) {
    Library library;
    ClipStore store(library.context(), {});
    const Clip old = store.record(textClip("again"), testNow());
    BatchActions::moveClipsToTrash(library.context(), {old.id}, testNow());
    const Clip fresh = store.record(textClip("again"), daysAfter(testNow(), 1));
    EXPECT_NE(fresh.id, old.id);
    EXPECT_EQ(fresh.recopyCount, 0);
    EXPECT_TRUE(store.clip(old.id)->deletedAt.has_value()) << "the trashed clip stays trashed";
}

TEST(ClipStore, RepresentationsRoundTripInOrderWithLargeBytesOutsideTheRow) {
    Library library;
    ClipStore store(library.context(), {});
    NewClip image;
    image.kind = ClipKind::image;
    image.previewText = "Image 2x2";
    Representation png;
    png.utTypeIdentifier = "public.png";
    png.data = std::vector<std::uint8_t>(300'000, 0x89);
    Representation text;
    text.utTypeIdentifier = "public.utf8-plain-text";
    text.textBlob = std::vector<std::uint8_t>{'l', 'o', 'n', 'g'};
    image.representations = {png, text};
    const Clip clip = store.record(image, testNow());
    const auto reps = store.representations(clip.id);
    ASSERT_EQ(reps.size(), 2U);
    EXPECT_EQ(reps[0].utTypeIdentifier, "public.png");
    EXPECT_EQ(reps[0].data, png.data);
    EXPECT_EQ(reps[1].text, "long") << "a text stored outside the row reads back as text";
    auto inRow = library.context().db().prepare("SELECT max(length(text)) FROM Representation");
    inRow.step();
    EXPECT_TRUE(inRow.isNull(0)) << "bytes must not be stored in the representation's row";
}

struct TrimCase {
    const char* name;
    int clips;
    std::int64_t limit;
    bool unlimited;
    int pinnedOldest;     // how many of the oldest clips are pinned
    int onPinboardOldest; // how many of the next oldest are on a pinboard
    int expectedLive;
    int expectedOldestSurvivor; // index of the oldest surviving unspared clip
};

class ClipStoreTrim : public ::testing::TestWithParam<TrimCase> {};

TEST_P(ClipStoreTrim, DropsOldestUnsparedBeyondTheLimit) {
    const auto& c = GetParam();
    Library library;
    ClipStoreSettings settings;
    settings.maxUnpinnedHistory = c.limit;
    settings.unlimitedHistory = c.unlimited;
    ClipStore store(library.context(), settings);
    const Uuid board = makePinboard(library.context());
    std::vector<Uuid> ids;
    for (int i = 0; i < c.clips; ++i) {
        // Clip i was last used on day i.
        ids.push_back(
            store.record(textClip("clip " + std::to_string(i)), daysAfter(testNow(), i)).id);
    }
    std::vector<Uuid> pinned(ids.begin(), ids.begin() + c.pinnedOldest);
    std::vector<Uuid> boarded(ids.begin() + c.pinnedOldest,
                              ids.begin() + c.pinnedOldest + c.onPinboardOldest);
    BatchActions::setClipsPinned(library.context(), pinned, true);
    BatchActions::addClipsToPinboard(library.context(), boarded, board);
    store.trim();
    EXPECT_EQ(store.liveCount(), c.expectedLive);
    for (const auto& id : pinned) {
        EXPECT_TRUE(store.clip(id)) << "pinned clips are never trimmed";
    }
    for (const auto& id : boarded) {
        EXPECT_TRUE(store.clip(id)) << "clips on a pinboard are never trimmed";
    }
    const int firstUnspared = c.pinnedOldest + c.onPinboardOldest;
    for (int i = firstUnspared; i < c.clips; ++i) {
        EXPECT_EQ(store.clip(ids[static_cast<std::size_t>(i)]).has_value(),
                  i >= c.expectedOldestSurvivor)
            << "clip " << i;
    }
    EXPECT_EQ(store.trimmableCount(), trueTrimmableCount(library.context()));
}

INSTANTIATE_TEST_SUITE_P(Limits, ClipStoreTrim,
                         ::testing::Values(TrimCase{"AtLimitKeepsAll", 5, 5, false, 0, 0, 5, 0},
                                           TrimCase{"OneOverDropsOldest", 6, 5, false, 0, 0, 5, 1},
                                           TrimCase{"LimitOfOne", 4, 1, false, 0, 0, 1, 3},
                                           TrimCase{"UnlimitedKeepsAll", 8, 2, true, 0, 0, 8, 0},
                                           TrimCase{"SparedDoNotCount", 8, 3, false, 2, 2, 7, 5}),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(ClipStore, PurgeUsesRecencyAndIsStrictAtTheCutoff) {
    Library library;
    ClipStoreSettings settings;
    settings.clipRetentionDays = 7;
    ClipStore store(library.context(), settings);
    const Date now = testNow();
    const Clip yearOldRecopied = store.record(textClip("old but used"), daysAfter(now, -365));
    store.record(textClip("old but used"), daysAfter(now, -1));
    const Clip exactlyAtCutoff = store.record(textClip("edge"), daysAfter(now, -7));
    const Clip justPast = store.record(textClip("gone"), addSeconds(daysAfter(now, -7), -0.000001));
    const Clip pinnedOld = store.record(textClip("pinned"), daysAfter(now, -100));
    BatchActions::setClipsPinned(library.context(), {pinnedOld.id}, true);
    const Clip trashedOld = store.record(textClip("trashed"), daysAfter(now, -100));
    BatchActions::moveClipsToTrash(library.context(), {trashedOld.id}, daysAfter(now, -1));

    EXPECT_EQ(store.purge(now), 1);
    EXPECT_TRUE(store.clip(yearOldRecopied.id));
    EXPECT_TRUE(store.clip(exactlyAtCutoff.id));
    EXPECT_FALSE(store.clip(justPast.id));
    EXPECT_TRUE(store.clip(pinnedOld.id));
    EXPECT_TRUE(store.clip(trashedOld.id)) << "the Trash keeps its own retention";
}

TEST(ClipStore, RetentionBelowOneDayKeepsEverything) {
    Library library;
    ClipStore store(library.context(), {}); // clipRetentionDays 0
    store.record(textClip("ancient"), daysAfter(testNow(), -5000));
    EXPECT_EQ(store.purge(testNow()), 0);
    EXPECT_EQ(store.liveCount(), 1);
}

TEST(ClipStore, PromotionCandidatesAreLiveUnhandledAtThreshold) {
    Library library;
    ClipStore store(library.context(), {});
    for (int i = 0; i < 3; ++i) {
        store.record(textClip("thrice"), daysAfter(testNow(), i));
    }
    const Clip handled = store.record(textClip("handled"), testNow());
    for (int i = 0; i < 3; ++i) {
        store.record(textClip("handled"), daysAfter(testNow(), i));
    }
    store.markPromotionHandled(handled.id);
    store.record(textClip("once"), testNow());
    const auto candidates = store.promotionCandidates(2);
    ASSERT_EQ(candidates.size(), 1U);
    EXPECT_EQ(candidates.front().previewText, "thrice");
    EXPECT_EQ(candidates.front().recopyCount, 2);
    EXPECT_TRUE(store.promotionCandidates(3).empty());
}

TEST(ClipStore, SearchOpensSealedPreviewsAndIgnoresASCIICase) {
    Library library;
    ClipStore store(library.context(), {});
    store.record(textClip("Meeting notes for Tuesday"), testNow());
    store.record(textClip("grocery list"), daysAfter(testNow(), 1));
    const auto found = store.search("TUESDAY", 10);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.front().previewText, "Meeting notes for Tuesday");
    EXPECT_EQ(store.search("", 10).size(), 2U);
}

// The history limit reads a counter kept by triggers; any drift would trim the wrong clips.
TEST(ClipStore, TrimCounterMatchesTheLibraryThroughRandomChangesAndUndo) {
    Library library;
    ClipStoreSettings settings;
    settings.maxUnpinnedHistory = 15;
    ClipStore store(library.context(), settings);
    auto& context = library.context();
    const Uuid board = makePinboard(context);
    std::mt19937 random(7);
    std::vector<Uuid> ids;
    for (int step = 0; step < 400; ++step) {
        const Date now = addSeconds(testNow(), step);
        const int action = static_cast<int>(random() % 9);
        auto pick = [&] { return ids[random() % ids.size()]; };
        if (action <= 2 || ids.empty()) {
            ids.push_back(store.capture(textClip("c" + std::to_string(random() % 40)), now).id);
        } else if (action == 3) {
            BatchActions::setClipsPinned(context, {pick()}, random() % 2 == 0);
        } else if (action == 4) {
            BatchActions::addClipsToPinboard(context, {pick(), pick()}, board);
        } else if (action == 5) {
            BatchActions::removeClipsFromPinboard(context, {pick()}, board);
        } else if (action == 6) {
            BatchActions::moveClipsToTrash(context, {pick()}, now);
        } else if (action == 7) {
            BatchActions::deleteClips(context, {pick()});
        } else {
            context.undoManager().undo();
        }
        ASSERT_EQ(store.trimmableCount(), trueTrimmableCount(context)) << "after step " << step;
    }
}

TEST(ContentFingerprint, FramingKeepsDifferentInputsApart) {
    const auto key = FingerprintKey::derive(SymmetricKey::random());
    const std::vector<std::uint8_t> ab{'a', 'b'};
    const std::vector<std::uint8_t> b{'b'};
    const std::vector<std::uint8_t> empty;
    const FingerprintPart whole[] = {{"public.text", ab}};
    const FingerprintPart split[] = {{"public.texta", b}};
    const FingerprintPart two[] = {{"public.text", ab}, {"public.html", empty}};
    const auto h1 = ContentFingerprint::compute(key, "text", whole);
    EXPECT_EQ(h1.size(), 64U);
    EXPECT_NE(h1, ContentFingerprint::compute(key, "text", split));
    EXPECT_NE(h1, ContentFingerprint::compute(key, "url", whole));
    EXPECT_NE(h1, ContentFingerprint::compute(key, "text", two));
    EXPECT_EQ(h1, ContentFingerprint::compute(key, "text", whole));
}

// What someone holding only the store file could compute from a guess.
std::vector<std::string> unkeyedGuesses(std::string_view text) {
    std::vector<std::uint8_t> framed;
    const auto append = [&framed](std::string_view bytes, bool withLength) {
        if (withLength) {
            for (int shift = 56; shift >= 0; shift -= 8) {
                framed.push_back(static_cast<std::uint8_t>(bytes.size() >> shift));
            }
        }
        framed.insert(framed.end(), bytes.begin(), bytes.end());
    };
    append(std::string_view("marlune-clip-v1\0", 16), false);
    append("text", true);
    framed.insert(framed.end(), {0, 0, 0, 0, 0, 0, 0, 1});
    append("public.utf8-plain-text", true);
    append(text, true);
    const auto bytes = [](std::string_view v) {
        return std::span(reinterpret_cast<const std::uint8_t*>(v.data()), v.size());
    };
    return {sha256Hex(framed), sha256Hex(bytes(text))};
}

TEST(ContentFingerprint, OnlyTheContentKeyMakesTheFingerprintOfAGuess) {
    const auto keyA = SymmetricKey::random();
    const auto keyB = SymmetricKey::random();
    const std::string pin = "4711";
    const std::vector<std::uint8_t> bytes(pin.begin(), pin.end());
    const FingerprintPart part[] = {{"public.utf8-plain-text", bytes}};
    const auto underA = ContentFingerprint::compute(FingerprintKey::derive(keyA), "text", part);
    EXPECT_EQ(underA, ContentFingerprint::compute(FingerprintKey::derive(keyA), "text", part));
    EXPECT_NE(underA, ContentFingerprint::compute(FingerprintKey::derive(keyB), "text", part));
    EXPECT_NE(underA,
              ContentFingerprint::compute(FingerprintKey::withoutContentKey(), "text", part));
    for (const auto& guess : unkeyedGuesses(pin)) {
        EXPECT_NE(underA, guess);
    }
    // The recorded name of a key tells keys apart and says nothing of the fingerprints.
    EXPECT_EQ(FingerprintKey::derive(keyA).identifier(), FingerprintKey::derive(keyA).identifier());
    EXPECT_NE(FingerprintKey::derive(keyA).identifier(), FingerprintKey::derive(keyB).identifier());
}

std::string storedFingerprint(ModelContext& context, const Uuid& clip) {
    auto stmt = context.db().prepare("SELECT contentHash FROM Clip WHERE id = ?1");
    stmt.bind(1, clip.string());
    stmt.step();
    return stmt.text(0);
}

TEST(ClipStore, ACopyStillFindsItsClipAfterTheContentKeyChanges) {
    test::TempDir dir;
    const auto oldKey = SymmetricKey::random();
    const auto newKey = SymmetricKey::random();
    Uuid first;
    std::string before;
    {
        auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(oldKey), "d");
        first = ClipStore(container->mainContext(), {}).record(textClip("PIN 4711"), testNow()).id;
        before = storedFingerprint(container->mainContext(), first);
    }
    auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(newKey, {oldKey}), "d");
    auto& context = container->mainContext();
    LibraryResealer::resealAll(context, Resealer({oldKey}, newKey));
    EXPECT_NE(storedFingerprint(context, first), before) << "still under the retired key";

    const Clip again = ClipStore(context, {}).record(textClip("PIN 4711"), daysAfter(testNow(), 1));
    EXPECT_EQ(again.id, first);
    EXPECT_EQ(again.recopyCount, 1);
}

TEST(ClipStore, FingerprintsOfAnOlderLibraryAreRecomputedOnceUnderTheKey) {
    Library library;
    auto& context = library.context();
    ClipStore store(context, {});
    const Uuid plain = store.record(textClip("PIN 4711"), testNow()).id;
    NewClip image;
    image.kind = ClipKind::image;
    Representation png;
    png.utTypeIdentifier = "public.png";
    png.data = std::vector<std::uint8_t>{1, 2, 3};
    image.representations.push_back(png);
    const Uuid damaged = store.record(image, testNow()).id;
    const std::string damagedFingerprint = storedFingerprint(context, damaged);
    // As a library written before fingerprints were keyed: unkeyed fingerprints and no record
    // of a key; and one clip whose bytes no longer open.
    context.db()
        .prepare("UPDATE Clip SET contentHash = ?2 WHERE id = ?1")
        .bind(1, plain.string())
        .bind(2, unkeyedGuesses("PIN 4711").front())
        .run();
    context.db().execute("DELETE FROM Metadata WHERE key = 'clipFingerprintKey'");
    context.db().execute("UPDATE RepresentationData SET bytes = X'4D526B31' || zeroblob(40)");

    const Clip again = store.record(textClip("PIN 4711"), daysAfter(testNow(), 1));
    EXPECT_EQ(again.id, plain) << "the copy did not find the clip with the old fingerprint";
    EXPECT_EQ(storedFingerprint(context, damaged), damagedFingerprint)
        << "a fingerprint of content that does not open was written";
    EXPECT_TRUE(
        LibraryResealer::fingerprintsUseKey(context.db(), context.crypto().fingerprintKey()));
    EXPECT_EQ(LibraryResealer::refreshFingerprints(context.db(), context.crypto()), 0)
        << "a second pass found work left";
}

TEST(ClipStore, LongTextsLiveOutsideTheRowAndReadBackEverywhere) {
    const std::size_t limit = ClipStore::inlineTextLimit;
    const struct {
        std::size_t size;
        bool outsideRow;
    } cases[] = {{limit - 1, false}, {limit, false}, {limit + 1, true}, {limit * 4, true}};
    for (const auto& c : cases) {
        Library library;
        auto& context = library.context();
        ClipStore store(context, {});
        std::string text(c.size - 6, 'x');
        text += "NEEDLE";
        NewClip clip = textClip(text);
        clip.previewText = "short preview";
        const Clip stored = store.record(clip, testNow());

        auto inRow = context.db().prepare("SELECT text IS NULL FROM Representation");
        inRow.step();
        EXPECT_EQ(inRow.int64(0) != 0, c.outsideRow) << c.size;
        const auto reps = store.representations(stored.id);
        ASSERT_EQ(reps.size(), 1U);
        EXPECT_EQ(reps[0].text, text) << c.size;
        EXPECT_FALSE(reps[0].textBlob.has_value()) << c.size;
        const auto found = store.searchAll("needle", {});
        ASSERT_EQ(found.size(), 1U) << c.size;
        EXPECT_EQ(found[0].matchedIn, "text");
        EXPECT_EQ(store.clip(stored.id)->previewText, "short preview");

        // The fingerprint of what was stored is the one made at capture, so a copy finds it.
        context.db().execute("DELETE FROM Metadata WHERE key = 'clipFingerprintKey'");
        EXPECT_EQ(LibraryResealer::refreshFingerprints(context.db(), context.crypto()), 0)
            << c.size;
        EXPECT_EQ(store.record(textClip(text), testNow()).id, stored.id) << c.size;
    }
}

} // namespace
} // namespace marlune
