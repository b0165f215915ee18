#include "MarluneCore/BoardAutoArchive.h"
#include "MarluneCore/BoardMembershipBackfill.h"
#include "MarluneCore/BoardStore.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/Schema.h"
#include "MarluneCore/Settings.h"
#include "support/LibraryFixture.h"

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>

namespace marlune {
namespace {

using test::testNow;

class BoardArchiveTest : public ::testing::Test {
protected:
    BoardArchiveTest()
        : settings(Settings::load(library.dir / "settings.json",
                                  std::chrono::system_clock::time_point(testNow()))),
          store(library.context(), settings) {}

    Clip doneAgo(std::string_view text, const Pinboard& section, std::chrono::seconds ago) {
        const Clip clip = store.addText(text, section, {}, testNow() - ago).clip;
        store.setDone({clip.id}, true, testNow() - ago);
        return clip;
    }
    std::vector<std::string> pinboardsOf(const Clip& clip) {
        std::vector<std::string> names;
        for (const auto& [id, name] : ClipStore(library.context(), {}).pinboardsOf(clip.id)) {
            names.push_back(name);
        }
        return names;
    }

    test::Library library;
    Settings settings;
    BoardStore store;
};

TEST_F(BoardArchiveTest, TheCutOffIsStrict) {
    using std::chrono::hours;
    using std::chrono::seconds;
    struct Case {
        std::int64_t days;
        seconds doneAgo;
        bool archived;
    };
    const Case cases[] = {
        {1, hours(23), false},
        {1, hours(24) + seconds(1), true},
        {1, hours(24), false}, // exactly at the cut-off
        {0, hours(24 * 400), false}, // never
        {7, hours(24 * 7) + seconds(1), true},
        {7, hours(24 * 6), false},
    };
    for (const auto& c : cases) {
        test::Library fresh;
        Settings s = Settings::load(fresh.dir / "settings.json",
                                    std::chrono::system_clock::time_point(testNow()));
        BoardStore board(fresh.context(), s);
        const Pinboard inbox = board.activeSection(testNow());
        const Clip clip = board.addText("item", inbox, {}, testNow() - c.doneAgo).clip;
        board.setDone({clip.id}, true, testNow() - c.doneAgo);
        board.addText("still open", inbox, {}, testNow() - hours(24 * 500));
        const auto count = BoardAutoArchive::run(fresh.context(), c.days, testNow());
        EXPECT_EQ(count, c.archived ? 1 : 0) << c.days << " days, " << c.doneAgo.count() << " s";
        EXPECT_EQ(board.isOnBoard(clip.id), !c.archived);
        // The archive pinboard is only made when something goes into it.
        EXPECT_EQ(board.pinboardNamed("Board Archive").has_value(), c.archived);
    }
}

TEST_F(BoardArchiveTest, AnItemInTwoSectionsCountsTwiceAndLandsOnce) {
    const Pinboard inbox = store.activeSection(testNow());
    const Pinboard work = store.createSection("Work", testNow());
    const Clip clip = doneAgo("both", inbox, std::chrono::hours(24 * 10));
    store.pinExisting(clip.id, work);
    EXPECT_EQ(BoardAutoArchive::run(library.context(), 7, testNow()), 2);
    EXPECT_EQ(pinboardsOf(clip), std::vector<std::string>{"Board Archive"});
    const auto archive = store.pinboardNamed("Board Archive");
    ASSERT_TRUE(archive);
    EXPECT_EQ(archive->iconSymbol, "archivebox");
    EXPECT_FALSE(archive->isBoard.value_or(false));
    EXPECT_TRUE(ClipStore(library.context(), {}).clip(clip.id)->completedAt.has_value());
    EXPECT_EQ(BoardAutoArchive::run(library.context(), 7, testNow()), 0); // nothing left
}

TEST_F(BoardArchiveTest, AUserMadeBoardArchiveIsReused) {
    const Pinboard mine = store.createPinboard("Board Archive", "star", testNow());
    const Clip clip = doneAgo("old", store.activeSection(testNow()), std::chrono::hours(24 * 8));
    EXPECT_EQ(BoardAutoArchive::run(library.context(), 7, testNow()), 1);
    const auto boards = ClipStore(library.context(), {}).pinboardsOf(clip.id);
    ASSERT_EQ(boards.size(), 1U);
    EXPECT_EQ(boards.front().first, mine.id);
}

TEST_F(BoardArchiveTest, AgeSettingAndSyncSettling) {
    EXPECT_EQ(BoardAutoArchive::archiveDays(settings), 7);
    settings.setString("board.autoArchiveDays", "thirty");
    EXPECT_EQ(BoardAutoArchive::archiveDays(settings), 7);
    settings.setInteger("board.autoArchiveDays", 30);
    EXPECT_EQ(BoardAutoArchive::archiveDays(settings), 30);
    EXPECT_EQ(BoardAutoArchive::choiceLabel(0), "Never");
    EXPECT_EQ(BoardAutoArchive::choiceLabel(1), "After a day");
    EXPECT_EQ(BoardAutoArchive::choiceLabel(30), "After 30 days");

    const Clip clip = doneAgo("old", store.activeSection(testNow()), std::chrono::hours(24 * 40));
    BoardAutoArchive::SyncState busy{true, true, std::nullopt};
    EXPECT_EQ(BoardAutoArchive::archiveFinishedItems(library.context(), settings, testNow(), busy), 0);
    BoardAutoArchive::SyncState recent{true, false, testNow() - std::chrono::seconds(19)};
    EXPECT_FALSE(BoardAutoArchive::settled(recent, testNow()));
    recent.lastEventAt = testNow() - std::chrono::seconds(20);
    EXPECT_TRUE(BoardAutoArchive::settled(recent, testNow()));
    EXPECT_TRUE(store.isOnBoard(clip.id));
    EXPECT_EQ(BoardAutoArchive::archiveFinishedItems(library.context(), settings, testNow()), 1);
}

TEST_F(BoardArchiveTest, BackfillTargetsActiveThenEarliestInboxAndSetsItsFlag) {
    struct Case {
        bool activeStored;
        bool staleActive;
        const char* expected;
    };
    const Case cases[] = {
        {true, false, "Errands"},
        {false, false, "inbox"},  // the earliest of two sections named Inbox, any case
        {true, true, "inbox"},    // a stale active id is passed over
    };
    for (const auto& c : cases) {
        test::Library fresh;
        Settings s = Settings::load(fresh.dir / "settings.json",
                                    std::chrono::system_clock::time_point(testNow()));
        BoardStore board(fresh.context(), s);
        const Pinboard errands = board.createSection("Errands", testNow());
        const Pinboard inbox = board.createSection("inbox", testNow() + std::chrono::seconds(1));
        board.createSection("INBOX", testNow() + std::chrono::seconds(2));
        if (c.activeStored) {
            s.setString("board.activeSectionID", c.staleActive ? Uuid::random().string()
                                                               : errands.id.string());
        }
        // A clip with Board state but no section, one never on the Board, and an archived one.
        ClipStore history(fresh.context(), {});
        auto record = [&](std::string_view text) {
            NewClip n;
            n.previewText = std::string(text);
            Representation rep;
            rep.utTypeIdentifier = "public.utf8-plain-text";
            rep.text = std::string(text);
            n.representations.push_back(rep);
            return history.record(n, testNow());
        };
        const Clip orphan = record("orphan");
        fresh.context().db().prepare("UPDATE Clip SET boardOrder = 5 WHERE id = ?1")
            .bind(1, orphan.id.string()).run();
        record("plain history");
        const Clip archived = board.addText("archived", inbox, {}, testNow()).clip;
        board.setDone({archived.id}, true, testNow() - std::chrono::hours(24 * 30));
        BoardAutoArchive::run(fresh.context(), 7, testNow());

        EXPECT_EQ(BoardMembershipBackfill::run(fresh.context(), s), 1);
        const auto item = board.item(orphan.id);
        ASSERT_TRUE(item);
        EXPECT_EQ(item->sectionName, c.expected);
        EXPECT_FALSE(board.isOnBoard(archived.id));
        EXPECT_TRUE(s.boolean("board.membershipBackfilled", false));
        EXPECT_EQ(BoardMembershipBackfill::run(fresh.context(), s), 0);
    }
}

TEST_F(BoardArchiveTest, BackfillWithoutSectionsOnlySetsTheFlag) {
    EXPECT_EQ(BoardMembershipBackfill::run(library.context(), settings), 0);
    EXPECT_TRUE(settings.boolean("board.membershipBackfilled", false));
    EXPECT_TRUE(store.sections().empty());
}

TEST_F(BoardArchiveTest, OnlyLiveDoneBoardItemsLeave) {
    using std::chrono::hours;
    const Pinboard inbox = store.activeSection(testNow());
    const Pinboard ideas = store.createPinboard("Ideas", "pin", testNow());
    const Clip due = doneAgo("due", inbox, hours(24 * 9));
    const Clip trashed = doneAgo("trashed", inbox, hours(24 * 9));
    store.trashSelection({trashed.id}, testNow());
    const Clip filed = doneAgo("filed", inbox, hours(24 * 9));
    store.fileSelection({filed.id}, ideas);
    const Clip recent = doneAgo("recent", inbox, hours(24 * 2));
    const Clip undone = doneAgo("undone", inbox, hours(24 * 9));
    store.setDone({undone.id}, false, testNow());

    EXPECT_EQ(BoardAutoArchive::run(library.context(), 7, testNow()), 1);
    EXPECT_EQ(pinboardsOf(due), std::vector<std::string>{"Board Archive"});
    EXPECT_EQ(pinboardsOf(trashed), std::vector<std::string>{"Inbox"});
    EXPECT_EQ(pinboardsOf(filed), std::vector<std::string>{"Ideas"});
    EXPECT_EQ(pinboardsOf(recent), std::vector<std::string>{"Inbox"});
    EXPECT_EQ(pinboardsOf(undone), std::vector<std::string>{"Inbox"});
    // Archived clips stay done; the next pass passes over them.
    EXPECT_EQ(BoardAutoArchive::run(library.context(), 7, testNow()), 0);
    EXPECT_EQ(BoardAutoArchive::run(library.context(), 1, testNow()), 1); // "recent"
}

// Libraries written before the done-items index existed get it when opened, and keep their
// schema version: the index changes no record.
TEST(BoardArchiveIndex, OlderLibrariesGainTheIndexWhenOpened) {
    namespace fs = std::filesystem;
    struct Case {
        const char* name;
        std::function<void(Database&)> make;
        SchemaVersion expected;
    };
    const Case cases[] = {
        {"first schema", [](Database& db) { MarluneSchemaV1::create(db); }, {2, 0, 0}},
        {"current schema without the index",
         [](Database& db) {
             MarluneMigrationPlan::createCurrent(db);
             db.execute("DROP INDEX Clip_done");
         },
         {2, 0, 0}},
        {"current schema",
         [](Database& db) { MarluneMigrationPlan::createCurrent(db); },
         {2, 0, 0}},
    };
    for (const auto& c : cases) {
        test::TempDir dir;
        const fs::path file = dir / "Marlune.store";
        {
            Database db = Database::open(file, Database::OpenMode::readWriteCreate);
            c.make(db);
        }
        auto container =
            MarluneStore::makeContainer({}, dir.path(), ClipCrypto(SymmetricKey::random()), "d");
        auto& db = container->mainContext().db();
        auto index = db.prepare("SELECT sql FROM sqlite_master WHERE type = 'index' AND "
                                "name = 'Clip_done'");
        ASSERT_TRUE(index.step()) << c.name;
        EXPECT_NE(index.text(0).find("completedAt IS NOT NULL"), std::string::npos) << c.name;
        container.reset();
        EXPECT_EQ(MarluneStore::schemaVersionOf(file), c.expected) << c.name;
    }
}

} // namespace
} // namespace marlune
