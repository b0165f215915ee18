#include "MarluneCore/BatchActions.h"
#include "MarluneCore/BoardAutoArchive.h"
#include "MarluneCore/BoardListingCache.h"
#include "MarluneCore/BoardStore.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Settings.h"
#include "support/LibraryFixture.h"

#include <functional>
#include <gtest/gtest.h>
#include <sstream>

namespace marlune {
namespace {

using test::testNow;

std::string stored(const std::optional<Date>& date) {
    return date ? std::to_string(toStorage(*date)) : "-";
}

// Everything a listing hands out, one line per item, so that listings compare as a whole.
std::vector<std::string> described(const std::vector<BoardItem>& items) {
    std::vector<std::string> out;
    for (const auto& item : items) {
        const Clip& c = item.clip;
        std::ostringstream line;
        line << c.id.string() << '|' << rawValue(c.primaryKind) << '|' << c.previewText << '|'
             << c.contentHash << '|' << toStorage(c.createdAt) << '|' << c.recopyCount << '|'
             << stored(c.lastUsedAt) << '|' << stored(c.completedAt) << '|'
             << (c.boardOrder ? std::to_string(*c.boardOrder) : "-") << '|'
             << stored(c.boardPinnedAt) << '|' << stored(c.snoozedUntil) << '|' << stored(c.dueAt)
             << '|' << c.boardNote.value_or("-") << '|' << item.text << '|'
             << item.sectionID.string() << '|' << item.sectionName << '|';
        for (const auto& tag : item.tags) {
            line << tag << ',';
        }
        out.push_back(line.str());
    }
    return out;
}

class BoardListingCacheTest : public ::testing::Test {
protected:
    BoardListingCacheTest()
        : settings(Settings::load(library.dir.path() / "settings.json",
                                  std::chrono::system_clock::time_point(testNow()))) {}

    ModelContext& context() { return library.context(); }
    // A fresh store value per call, as every command makes one.
    BoardStore store() { return BoardStore(context(), settings); }
    Clip add(std::string_view text, const Pinboard& section, double secondsLater = 0) {
        return store().addText(text, section, {}, addSeconds(testNow(), secondsLater)).clip;
    }
    std::vector<std::string> listing(const Pinboard& section, Date now = testNow(),
                                     const BoardStore::ListFilter& filter = {}) {
        return described(store().items(section, now, filter));
    }
    // The same listing read from the rows, with nothing kept from before.
    std::vector<std::string> freshListing(const Pinboard& section, Date now = testNow(),
                                          const BoardStore::ListFilter& filter = {}) {
        context().boardListings().clear();
        return listing(section, now, filter);
    }
    // Whether the section's listing is kept and would be served as it stands.
    bool kept(const Pinboard& section) {
        return context().boardListings().find(section.id, context().db().changeStamp()) != nullptr;
    }

    test::Library library{true};
    Settings settings;
};

TEST_F(BoardListingCacheTest, AKeptListingFiltersLikeAReadFromTheRows) {
    const Pinboard inbox = store().activeSection(testNow());
    const Clip milk = add("Buy milk", inbox, 1);
    const Clip ada = add("Call Ada", inbox, 2);
    const Clip later = add("Later", inbox, 3);
    const Clip done = add("Filed taxes", inbox, 4);
    const Clip pinned = add("Pinned memo", inbox, 5);
    NewClip link;
    link.kind = ClipKind::url;
    link.previewText = "https://example.org/a";
    Representation rep;
    rep.utTypeIdentifier = "public.url";
    rep.text = link.previewText;
    link.representations.push_back(rep);
    store().capture(link, inbox, {}, addSeconds(testNow(), 6));
    store().setTag("Errands", true, {milk.id, ada.id}, testNow());
    store().setTag("home", true, {milk.id}, testNow());
    store().snooze({later.id}, addSeconds(testNow(), 3'600));
    store().setDone({done.id}, true, testNow());
    store().setPinned({pinned.id}, true, testNow());
    ClipStore(context(), {}).setBoardNote(ada.id, "after lunch");

    auto filter = [](std::function<void(BoardStore::ListFilter&)> set) {
        BoardStore::ListFilter f;
        set(f);
        return f;
    };
    const struct {
        const char* name;
        BoardStore::ListFilter filter;
        std::size_t expected;
    } cases[] = {
        {"default", {}, 5},
        {"open only", filter([](auto& f) { f.includeDone = false; }), 4},
        {"done only", filter([](auto& f) { f.includeOpen = false; }), 1},
        {"snoozed only", filter([](auto& f) { f.snoozedOnly = true; }), 1},
        {"snoozed or not", filter([](auto& f) { f.includeSnoozed = true; }), 6},
        {"tag in another case", filter([](auto& f) { f.tag = "ERRANDS"; }), 2},
        {"tag and done", filter([](auto& f) {
             f.tag = "errands";
             f.includeOpen = false;
         }),
         0},
        {"kind", filter([](auto& f) { f.kind = ClipKind::url; }), 1},
        {"unknown tag", filter([](auto& f) { f.tag = "nowhere"; }), 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto fresh = freshListing(inbox, testNow(), c.filter);
        EXPECT_EQ(fresh.size(), c.expected);
        ASSERT_TRUE(kept(inbox));
        EXPECT_EQ(listing(inbox, testNow(), c.filter), fresh);
        // Inside a transaction nothing is kept or served: the rows are read and filtered as
        // they come, which must give the same list.
        Database::Transaction tx(context().db());
        EXPECT_EQ(listing(inbox, testNow(), c.filter), fresh);
    }
}

TEST_F(BoardListingCacheTest, EveryKindOfWriteShowsInTheNextListing) {
    const Pinboard inbox = store().activeSection(testNow());
    const Pinboard work = store().createSection("Work", testNow());
    const Clip milk = add("Buy milk", inbox, 1);
    const Clip ada = add("Call Ada", inbox, 2);
    const Clip memo = add("Draft memo", work, 3);
    Clip rent;
    const std::filesystem::path file = *library.container->storeURL();

    const struct {
        const char* name;
        std::function<void()> write;
    } cases[] = {
        {"add an item", [&] { rent = add("Pay rent", inbox, 4); }},
        {"set done", [&] { store().setDone({milk.id}, true, testNow()); }},
        {"pin", [&] { store().setPinned({ada.id}, true, testNow()); }},
        {"rewrite the text", [&] { store().rewrite(ada.id, "Call Ada at five", testNow()); }},
        {"note through the history",
         [&] { ClipStore(context(), {}).setBoardNote(rent.id, "first of the month"); }},
        {"add a tag", [&] { store().setTag("errands", true, {rent.id}, testNow()); }},
        {"take the tag off in a batch",
         [&] {
             const auto tags = ClipStore(context(), {}).tagsOf(rent.id);
             ASSERT_EQ(tags.size(), 1U);
             BatchActions::removeTagFromClips(context(), {rent.id}, tags.front().first);
         }},
        {"snooze", [&] { store().snooze({rent.id}, addSeconds(testNow(), 3'600)); }},
        {"wake", [&] { store().wake({rent.id}); }},
        {"archive pass",
         [&] {
             EXPECT_EQ(BoardAutoArchive::run(context(), 7, test::daysAfter(testNow(), 30)), 1);
         }},
        {"undo", [&] { EXPECT_TRUE(context().undoManager().undo()); }},
        {"redo", [&] { EXPECT_TRUE(context().undoManager().redo()); }},
        {"move to the Trash", [&] { store().trashSelection({ada.id}, testNow()); }},
        {"undo the Trash", [&] { EXPECT_TRUE(context().undoManager().undo()); }},
        {"take off the Board", [&] { store().removeSelection({rent.id}); }},
        {"move in from another section", [&] { store().moveSelection({memo.id}, inbox); }},
        {"plain SQL on the same connection",
         [&] {
             context()
                 .db()
                 .prepare("UPDATE Clip SET completedAt = ?2 WHERE id = ?1")
                 .bind(1, memo.id.string())
                 .bind(2, toStorage(testNow()))
                 .run();
         }},
        {"another connection to the file",
         [&] {
             Database other = Database::open(file, Database::OpenMode::readWrite);
             other.execute("UPDATE Clip SET completedAt = NULL");
         }},
        {"delete the section", [&] { store().deleteSection(inbox.id); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto before = listing(inbox);
        ASSERT_TRUE(kept(inbox));
        c.write();
        const auto after = listing(inbox);
        EXPECT_NE(after, before); // each write changes what the section shows
        EXPECT_EQ(after, freshListing(inbox));
    }
    EXPECT_TRUE(listing(inbox).empty());
}

TEST_F(BoardListingCacheTest, SnoozedItemsFollowTheTimeOnAKeptListing) {
    const Pinboard inbox = store().activeSection(testNow());
    const Clip later = add("Later", inbox);
    add("Now", inbox, 1);
    store().snooze({later.id}, addSeconds(testNow(), 3'600));
    BoardStore::ListFilter snoozed;
    snoozed.snoozedOnly = true;

    EXPECT_EQ(listing(inbox).size(), 1U);
    ASSERT_TRUE(kept(inbox));
    const Date afterWaking = addSeconds(testNow(), 7'200);
    EXPECT_EQ(listing(inbox, afterWaking).size(), 2U);
    EXPECT_EQ(listing(inbox, testNow(), snoozed).size(), 1U);
    EXPECT_TRUE(listing(inbox, afterWaking, snoozed).empty());
    EXPECT_TRUE(kept(inbox)); // all of it from the one listing kept
}

TEST_F(BoardListingCacheTest, SectionsAreKeptApartAndOnlyTheLastTwo) {
    const Pinboard a = store().activeSection(testNow());
    const Pinboard b = store().createSection("Work", testNow());
    const Pinboard c = store().createSection("Home", testNow());
    add("in A", a);
    add("in B", b);
    add("in C", c);
    auto texts = [&](const Pinboard& section) {
        std::vector<std::string> out;
        for (const auto& item : store().items(section, testNow())) {
            out.push_back(item.text + " @ " + item.sectionName);
        }
        return out;
    };
    const std::vector<std::string> inA{"in A @ Inbox"};
    EXPECT_EQ(texts(a), inA);
    EXPECT_EQ(texts(b), std::vector<std::string>{"in B @ Work"});
    EXPECT_EQ(texts(a), inA);
    EXPECT_TRUE(kept(b) && kept(a)); // looking counts as use: A stays the latest
    EXPECT_EQ(texts(c), std::vector<std::string>{"in C @ Home"});
    EXPECT_EQ(context().boardListings().sectionCount(), 2U);
    EXPECT_TRUE(kept(c) && kept(a));
    EXPECT_FALSE(kept(b)); // the least recently listed one went
    EXPECT_EQ(texts(b), std::vector<std::string>{"in B @ Work"});
    // Listing all sections goes through the same kept listings.
    EXPECT_EQ(store().allItems(testNow(), {}).size(), 3U);
}

TEST_F(BoardListingCacheTest, AListingInsideATransactionThatRollsBackIsNotKept) {
    const Pinboard inbox = store().activeSection(testNow());
    const Clip milk = add("Buy milk", inbox);
    BoardStore::ListFilter open;
    open.includeDone = false;
    {
        Database::Transaction tx(context().db());
        context()
            .db()
            .prepare("UPDATE Clip SET completedAt = ?2 WHERE id = ?1")
            .bind(1, milk.id.string())
            .bind(2, toStorage(testNow()))
            .run();
        EXPECT_TRUE(listing(inbox, testNow(), open).empty());
    }
    EXPECT_EQ(listing(inbox, testNow(), open).size(), 1U);
}

TEST_F(BoardListingCacheTest, ListingWritesNothing) {
    const Pinboard inbox = store().activeSection(testNow());
    const Clip milk = add("Buy milk", inbox);
    store().setDone({milk.id}, true, testNow());
    const auto stamp = context().db().changeStamp();
    // The refresh before a listing, with nothing old enough to archive, and the listing.
    EXPECT_EQ(BoardAutoArchive::archiveFinishedItems(context(), settings, testNow()), 0);
    EXPECT_EQ(listing(inbox).size(), 1U);
    EXPECT_EQ(listing(inbox).size(), 1U);
    EXPECT_EQ(context().db().changeStamp(), stamp);
}

TEST(DatabaseChangeStampTest, MovesWithEveryWriteByAnyConnectionAndOnlyThen) {
    test::TempDir dir;
    const auto file = dir.path() / "stamp.sqlite";
    Database db = Database::open(file, Database::OpenMode::readWriteCreate);
    db.execute("PRAGMA journal_mode = WAL");
    db.execute("CREATE TABLE t (x INTEGER PRIMARY KEY, y TEXT)");
    db.execute("CREATE TABLE log (x INTEGER)");
    db.execute("CREATE TRIGGER t_log AFTER UPDATE ON t BEGIN INSERT INTO log VALUES (new.x); END");
    db.execute("INSERT INTO t VALUES (1, 'a'), (2, 'b')");
    Database other = Database::open(file, Database::OpenMode::readWrite);
    const struct {
        const char* name;
        bool byOther;
        const char* sql;
        bool moves;
    } cases[] = {
        {"read", false, "SELECT * FROM t", false},
        {"update of no row", false, "UPDATE t SET y = 'z' WHERE x = 99", false},
        {"insert", false, "INSERT INTO t VALUES (3, 'c')", true},
        {"update", false, "UPDATE t SET y = 'd' WHERE x = 1", true},
        {"delete", false, "DELETE FROM t WHERE x = 3", true},
        {"delete everything", false, "DELETE FROM log", true},
        {"read by another connection", true, "SELECT * FROM t", false},
        {"insert by another connection", true, "INSERT INTO t VALUES (4, 'e')", true},
        {"update by another connection, with its trigger", true, "UPDATE t SET y = 'f' WHERE x = 4",
         true},
        {"transaction by another connection", true, "BEGIN; DELETE FROM t WHERE x = 4; COMMIT",
         true},
        {"rolled back by another connection", true, "BEGIN; DELETE FROM t WHERE x = 1; ROLLBACK",
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto before = db.changeStamp();
        (c.byOther ? other : db).execute(c.sql);
        EXPECT_EQ(!(db.changeStamp() == before), c.moves);
        EXPECT_FALSE(db.inTransaction());
    }
    Database::Transaction tx(db);
    EXPECT_TRUE(db.inTransaction());
}

TEST(BoardListingCacheBoundsTest, KeepsAtMostTwoSectionsWithinTheItemBudget) {
    const Database::ChangeStamp now{7, 1};
    struct Case {
        const char* name;
        std::vector<std::size_t> sizes; // of the sections kept, in order
        std::vector<bool> stillKept;    // afterwards
    };
    const Case cases[] = {
        {"three small", {10, 20, 30}, {false, true, true}},
        {"the last two over the budget", {10, 12'000, 12'000}, {false, false, true}},
        {"exactly the budget", {8'000, 12'000}, {true, true}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        BoardListingCache cache;
        std::vector<Uuid> sections;
        for (const std::size_t size : c.sizes) {
            sections.push_back(Uuid::random());
            ASSERT_TRUE(BoardListingCache::fits(size));
            EXPECT_EQ(cache.keep(sections.back(), now, std::vector<BoardItem>(size)).size(), size);
        }
        for (std::size_t i = 0; i < sections.size(); ++i) {
            EXPECT_EQ(cache.find(sections[i], now) != nullptr, c.stillKept[i]) << i;
        }
    }
    EXPECT_FALSE(BoardListingCache::fits(BoardListingCache::itemBudget + 1));

    // Another stamp: whatever was kept is out of date and goes.
    BoardListingCache cache;
    const Uuid section = Uuid::random();
    cache.keep(section, now, std::vector<BoardItem>(3));
    EXPECT_EQ(cache.find(section, {8, 1}), nullptr);
    EXPECT_EQ(cache.sectionCount(), 0U);
    EXPECT_EQ(cache.find(section, now), nullptr);
}

} // namespace
} // namespace marlune
