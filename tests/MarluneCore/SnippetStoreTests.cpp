#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/LibraryResealer.h"
#include "MarluneCore/ProfileStore.h"
#include "MarluneCore/Resealer.h"
#include "MarluneCore/SnippetStore.h"
#include "support/LibraryFixture.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <tuple>

namespace marlune {
namespace {

using test::daysAfter;
using test::Library;
using test::testNow;

Snippet snippetWith(const std::string& title, const std::string& keyword) {
    Snippet s = Snippet::make(testNow());
    s.title = title;
    s.keyword = keyword;
    s.content = "Body of " + title;
    return s;
}

TEST(SnippetStore, KeywordIsUniqueAmongLiveSnippetsOnly) {
    Library library;
    SnippetStore store(library.context());
    const auto sig = store.create(snippetWith("Signature", ";sig"), testNow());

    try {
        store.create(snippetWith("Other", ";sig"), testNow());
        FAIL() << "a second live snippet took the keyword";
    } catch (const SnippetStoreError& error) {
        EXPECT_EQ(error.kind(), SnippetStoreError::Kind::keywordInUse);
        EXPECT_STREQ(error.what(),
                     "The keyword \";sig\" is already used by the snippet \"Signature\". Choose "
                     "another keyword, or change that snippet's keyword first.");
    }
    // Renaming onto a taken keyword is refused; saving a snippet under its own keyword is not.
    auto other = store.create(snippetWith("Other", ";oth"), testNow());
    other.keyword = ";sig";
    EXPECT_THROW(store.update(other, testNow()), SnippetStoreError);
    EXPECT_NO_THROW(store.update(sig, testNow()));
    // Keywords are compared exactly.
    EXPECT_NO_THROW(store.create(snippetWith("Upper", ";SIG"), testNow()));
    // A trashed snippet frees its keyword, and cannot come back while another holds it.
    store.moveToTrash(sig.id, testNow());
    EXPECT_FALSE(store.liveSnippet(";sig"));
    const auto replacement = store.create(snippetWith("New signature", ";sig"), testNow());
    EXPECT_THROW(store.restore(sig.id, testNow()), SnippetStoreError);
    store.moveToTrash(replacement.id, testNow());
    EXPECT_EQ(store.restore(sig.id, testNow()).id, sig.id);
    EXPECT_EQ(store.liveSnippet(";sig")->id, sig.id);
    // Any number of snippets may have no keyword.
    EXPECT_NO_THROW(store.create(snippetWith("No keyword 1", ""), testNow()));
    EXPECT_NO_THROW(store.create(snippetWith("No keyword 2", ""), testNow()));
}

TEST(SnippetStore, UpdatedAtIsStampedOnChangesButNotOnUse) {
    Library library;
    SnippetStore store(library.context());
    auto s = store.create(snippetWith("A", ";a"), testNow());
    EXPECT_EQ(s.createdAt, testNow());
    s.title = "B";
    s.keyword = ";b";
    s.content = "changed";
    s.contentType = SnippetContentType::richText;
    s.isFavorite = true;
    s.sortIndex = 9;
    s.lastFillInValues = std::map<std::string, std::string>{{"name", "Ada"}};
    s.createdAt = daysAfter(testNow(), 5); // not the store's to change
    store.update(s, daysAfter(testNow(), 1));
    const auto stored = store.snippet(s.id);
    EXPECT_EQ(stored->updatedAt, daysAfter(testNow(), 1));
    EXPECT_EQ(stored->createdAt, testNow());
    // Every edited column lands in its own place.
    EXPECT_EQ(
        std::tie(stored->title, stored->keyword, stored->content, stored->isFavorite,
                 stored->sortIndex, stored->lastFillInValues),
        std::tie(s.title, s.keyword, s.content, s.isFavorite, s.sortIndex, s.lastFillInValues));
    EXPECT_EQ(stored->contentType, SnippetContentType::richText);
    store.recordUse(s.id, daysAfter(testNow(), 2));
    store.recordUse(s.id, daysAfter(testNow(), 3));
    const auto used = store.snippet(s.id);
    EXPECT_EQ(used->usageCount, 2);
    EXPECT_EQ(used->lastUsedAt, daysAfter(testNow(), 3));
    EXPECT_EQ(used->updatedAt, daysAfter(testNow(), 1));
    store.moveToTrash(s.id, daysAfter(testNow(), 4));
    EXPECT_EQ(store.snippet(s.id)->updatedAt, daysAfter(testNow(), 4));
}

TEST(SnippetStore, SortModesOrderAsNamed) {
    Library library;
    SnippetStore store(library.context());
    auto make = [&](const std::string& title, int editedDay, int uses, int sortIndex) {
        Snippet s = snippetWith(title, ";" + title);
        s.sortIndex = sortIndex;
        s = store.create(s, daysAfter(testNow(), editedDay));
        for (int i = 0; i < uses; ++i) {
            store.recordUse(s.id, daysAfter(testNow(), 10 + editedDay + i));
        }
        return s;
    };
    make("alpha", 3, 1, 2);
    make("beta", 1, 5, 0);
    make("gamma", 2, 0, 1);
    auto titles = [&](SnippetSortMode mode) {
        std::vector<std::string> out;
        for (const auto& s : store.list(mode)) {
            out.push_back(s.title);
        }
        return out;
    };
    using V = std::vector<std::string>;
    EXPECT_EQ(titles(SnippetSortMode::lastEdited), (V{"alpha", "gamma", "beta"}));
    EXPECT_EQ(titles(SnippetSortMode::mostUsed), (V{"beta", "alpha", "gamma"}));
    // beta's last use is day 15, alpha's day 13; never-used gamma comes last.
    EXPECT_EQ(titles(SnippetSortMode::recentlyUsed), (V{"beta", "alpha", "gamma"}));
    EXPECT_EQ(titles(SnippetSortMode::manual), (V{"beta", "gamma", "alpha"}));
}

TEST(SnippetStore, FillInValuesAndProfileRoundTripSealed) {
    Library library;
    SnippetStore store(library.context());
    auto s = store.create(snippetWith("Letter", ";let"), testNow());
    store.setLastFillInValues(s.id, {{"name", "Ada"}, {"city", "Zürich"}});
    EXPECT_EQ(store.snippet(s.id)->lastFillInValues,
              (std::map<std::string, std::string>{{"city", "Zürich"}, {"name", "Ada"}}));
    ProfileStore profile(library.context());
    profile.setValues({{"email", "ada@example.org"}});
    EXPECT_EQ(profile.profile().values.at("email"), "ada@example.org");
}

TEST(SnippetStore, FailedChangeLeavesNothingToUndo) {
    Library library;
    SnippetStore store(library.context());
    store.create(snippetWith("A", ";a"), testNow());
    EXPECT_THROW(store.create(snippetWith("B", ";a"), testNow()), SnippetStoreError);
    EXPECT_EQ(library.context().undoManager().undoActionName(), "New Snippet");
    library.context().undoManager().undo();
    EXPECT_TRUE(store.list(SnippetSortMode::manual).empty());
}

TEST(SnippetStore, AnEditNeverWritesEmptyTextOverFieldsThatDidNotOpen) {
    struct Case {
        const char* name;
        std::function<void(Snippet&)> edit;
        std::string expectedBody;
        bool fillInsKept;
    };
    const Case cases[] = {
        {"rename", [](Snippet& s) { s.title = "Renamed"; }, "sealed body", true},
        {"favourite and keyword",
         [](Snippet& s) {
             s.isFavorite = true;
             s.keyword = ";new";
         },
         "sealed body", true},
        {"new body", [](Snippet& s) { s.content = "replaced"; }, "replaced", true},
        {"emptied on purpose",
         [](Snippet& s) {
             s.contentUnreadable = false;
             s.lastFillInValuesUnreadable = false;
         },
         "", false},
    };
    for (const auto& c : cases) {
        test::TempDir dir;
        const auto keyA = SymmetricKey::random();
        const auto keyB = SymmetricKey::random();
        Uuid id;
        {
            auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(keyA), "d");
            SnippetStore store(container->mainContext());
            Snippet s = snippetWith("Letter", ";let");
            s.content = "sealed body";
            id = store.create(s, testNow()).id;
            store.setLastFillInValues(id, {{"name", "Ada"}});
        }
        {
            // A key that cannot open what key A sealed.
            auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(keyB), "d");
            SnippetStore store(container->mainContext());
            Snippet s = *store.snippet(id);
            EXPECT_TRUE(s.contentUnreadable) << c.name;
            EXPECT_TRUE(s.content.empty()) << c.name;
            EXPECT_TRUE(s.lastFillInValuesUnreadable) << c.name;
            c.edit(s);
            const Snippet saved = store.update(s, testNow());
            EXPECT_EQ(saved.contentUnreadable, c.expectedBody == "sealed body") << c.name;
        }
        auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(keyA, {keyB}), "d");
        const Snippet back = *SnippetStore(container->mainContext()).snippet(id);
        EXPECT_EQ(back.content, c.expectedBody) << c.name;
        EXPECT_FALSE(back.contentUnreadable) << c.name;
        EXPECT_EQ(back.lastFillInValues.has_value(), c.fillInsKept) << c.name;
    }
}

TEST(SnippetStore, ProfileValuesThatDidNotOpenAreNeitherShownNorWrittenOver) {
    test::TempDir dir;
    const auto keyA = SymmetricKey::random();
    {
        auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(keyA), "d");
        ProfileStore(container->mainContext()).setValues({{"name", "Ada"}, {"city", "London"}});
    }
    {
        auto container =
            MarluneStore::makeContainer({}, dir.path(), ClipCrypto(SymmetricKey::random()), "d");
        ProfileStore store(container->mainContext());
        const Profile profile = store.profile();
        EXPECT_TRUE(profile.valuesUnreadable);
        EXPECT_TRUE(profile.values.empty());
        EXPECT_THROW(store.setValues({{"name", "Grace"}}), std::runtime_error);
    }
    auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(keyA), "d");
    const Profile back = ProfileStore(container->mainContext()).profile();
    EXPECT_FALSE(back.valuesUnreadable);
    EXPECT_EQ(back.values,
              (std::map<std::string, std::string>{{"city", "London"}, {"name", "Ada"}}));
}

// Every sealed field, written with a distinctive text, must appear nowhere in the files on
// disk: not in the store, not in its write-ahead log.
TEST(SealingAtRest, NoPlaintextReachesTheStoreFileOrItsLog) {
    Library library(/*onDisk=*/true);
    auto& context = library.context();
    SnippetStore snippets(context);
    ClipStore clips(context, {});
    const std::vector<std::string> secrets = {
        "PLAINTEXT-SNIPPET-BODY-7731", "PLAINTEXT-FILLIN-7732",   "PLAINTEXT-PREVIEW-7733",
        "PLAINTEXT-REP-TEXT-7734",     "PLAINTEXT-REP-DATA-7735", "PLAINTEXT-REP-BLOB-7736",
        "PLAINTEXT-BOARD-NOTE-7737",   "PLAINTEXT-PROFILE-7738",
    };
    Snippet s = snippetWith("Title", ";kw");
    s.content = secrets[0];
    s = snippets.create(s, testNow());
    snippets.setLastFillInValues(s.id, {{"field", secrets[1]}});
    NewClip clip;
    clip.previewText = secrets[2];
    Representation rep;
    rep.utTypeIdentifier = "public.utf8-plain-text";
    rep.text = secrets[3];
    rep.data = std::vector<std::uint8_t>(secrets[4].begin(), secrets[4].end());
    rep.textBlob = std::vector<std::uint8_t>(secrets[5].begin(), secrets[5].end());
    clip.representations.push_back(rep);
    const Clip stored = clips.record(clip, testNow());
    clips.setBoardNote(stored.id, secrets[6]);
    ProfileStore(context).setValues({{"name", secrets[7]}});

    // Read back through the store first, so the plaintexts certainly went in.
    EXPECT_EQ(clips.clip(stored.id)->boardNote, secrets[6]);
    EXPECT_EQ(clips.representations(stored.id).front().textBlob, rep.textBlob);

    const auto dir = library.dir.path() / "Marlune";
    std::string bytes;
    for (const char* name : {"Marlune.store", "Marlune.store-wal"}) {
        const auto file = test::readFileBytes(dir / name);
        bytes.append(file.begin(), file.end());
    }
    ASSERT_GT(bytes.size(), 4096U);
    EXPECT_NE(bytes.find(";kw"), std::string::npos) << "unsealed fields are visible as a control";
    for (const auto& secret : secrets) {
        EXPECT_EQ(bytes.find(secret), std::string::npos) << secret << " was stored in plain";
    }
}

} // namespace
} // namespace marlune

namespace marlune {
namespace {

TEST(LibraryResealer, ValuesSealedUnderARetiredKeyMoveToTheCurrentKey) {
    test::TempDir dir;
    const auto oldKey = SymmetricKey::random();
    const auto newKey = SymmetricKey::random();
    Uuid snippetID;
    Uuid clipID;
    {
        auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(oldKey), "d");
        Snippet s = snippetWith("Old", ";old");
        s.content = "sealed under the old key";
        snippetID = SnippetStore(container->mainContext()).create(s, testNow()).id;
        NewClip clip;
        clip.previewText = "old preview";
        Representation rep;
        rep.utTypeIdentifier = "public.png";
        rep.data = std::vector<std::uint8_t>{1, 2, 3};
        clip.representations.push_back(rep);
        clipID = ClipStore(container->mainContext(), {}).record(clip, testNow()).id;
    }
    {
        auto container =
            MarluneStore::makeContainer({}, dir.path(), ClipCrypto(newKey, {oldKey}), "d");
        EXPECT_EQ(SnippetStore(container->mainContext()).snippet(snippetID)->content,
                  "sealed under the old key");
        const auto moved =
            LibraryResealer::resealAll(container->mainContext(), Resealer({oldKey}, newKey));
        EXPECT_EQ(moved, 3); // the body, the preview and the flavour bytes
        EXPECT_EQ(LibraryResealer::resealAll(container->mainContext(), Resealer({oldKey}, newKey)),
                  0)
            << "a second pass finds nothing left to move";
    }
    auto container = MarluneStore::makeContainer({}, dir.path(), ClipCrypto(newKey), "d");
    EXPECT_EQ(SnippetStore(container->mainContext()).snippet(snippetID)->content,
              "sealed under the old key");
    ClipStore clips(container->mainContext(), {});
    EXPECT_EQ(clips.clip(clipID)->previewText, "old preview");
    EXPECT_EQ(clips.representations(clipID).front().data, (std::vector<std::uint8_t>{1, 2, 3}));
}

} // namespace
} // namespace marlune
