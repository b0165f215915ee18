#include "MarluneCore/Database.h"
#include "MarluneCore/UndoManager.h"

#include <gtest/gtest.h>
#include <string>

namespace marlune {
namespace {

// Each step adds one row of about `payload` bytes, so its change set is about that size and
// undoing it shows as the row going away.
class UndoHistory {
public:
    explicit UndoHistory(UndoManager::Limits limits) : undo(db, limits) {
        db.execute("CREATE TABLE Item (id INTEGER PRIMARY KEY, value TEXT NOT NULL)");
    }

    void add(int id, std::size_t payload) {
        undo.beginGroup("Add " + std::to_string(id));
        db.prepare("INSERT INTO Item (id, value) VALUES (?1, ?2)")
            .bind(1, id)
            .bind(2, std::string(payload, '.'))
            .run();
        undo.endGroup();
    }

    // The newest row left, 0 when none is.
    std::int64_t newest() {
        auto stmt = db.prepare("SELECT coalesce(max(id), 0) FROM Item");
        stmt.step();
        return stmt.int64(0);
    }

    Database db = Database::openInMemory();
    UndoManager undo;
};

TEST(UndoManager, ManyStepsStayWithinBothBoundsAndTheNewestStillUndo) {
    struct Case {
        const char* name;
        UndoManager::Limits limits;
        int steps;
        std::size_t payload;
        std::size_t expectedKept;
    };
    const Case cases[] = {
        {"the step count binds", {10, std::size_t{1} << 20}, 50, 100, 10},
        {"the byte count binds", {100, 20'000}, 50, 3'000, 6},
        {"the default bounds", {}, 120, 200'000, UndoManager::maxBytes / 200'100},
    };
    for (const auto& c : cases) {
        UndoHistory history(c.limits);
        for (int i = 1; i <= c.steps; ++i) {
            history.add(i, c.payload);
            ASSERT_LE(history.undo.undoCount(), c.limits.steps) << c.name;
            ASSERT_LE(history.undo.retainedBytes(), c.limits.bytes) << c.name;
        }
        EXPECT_EQ(history.undo.undoCount(), c.expectedKept) << c.name;
        // Every step still kept undoes its own change, newest first.
        for (std::size_t back = 0; back < c.expectedKept; ++back) {
            const auto step = c.steps - static_cast<int>(back);
            EXPECT_EQ(history.undo.undo(), "Add " + std::to_string(step)) << c.name;
            EXPECT_EQ(history.newest(), step - 1) << c.name;
        }
        EXPECT_FALSE(history.undo.canUndo()) << c.name << ": the oldest steps were dropped";
        // Undone steps move to redo without costing more.
        EXPECT_LE(history.undo.retainedBytes(), c.limits.bytes) << c.name;
        const auto oldestKept = c.steps - static_cast<int>(c.expectedKept) + 1;
        EXPECT_EQ(history.undo.redo(), "Add " + std::to_string(oldestKept)) << c.name;
        EXPECT_EQ(history.newest(), oldestKept) << c.name;
    }
}

TEST(UndoManager, AStepOverTheByteBoundIsNotKeptAndDropsOnlyTheRedoSteps) {
    UndoHistory history({100, 10'000});
    history.add(1, 100);
    history.add(2, 100);
    history.add(3, 100);
    ASSERT_EQ(history.undo.undo(), "Add 3");
    ASSERT_TRUE(history.undo.canRedo());
    const std::size_t before = history.undo.retainedBytes();

    history.add(4, 50'000);
    EXPECT_EQ(history.newest(), 4);
    EXPECT_FALSE(history.undo.canRedo()) << "redo would replay onto a state that is gone";
    EXPECT_EQ(history.undo.undoCount(), 2U) << "the earlier steps must stay undoable";
    EXPECT_LT(history.undo.retainedBytes(), before) << "the dropped redo step still counted";

    // The earlier steps undo their own changes, and the large one is not undone with them.
    EXPECT_EQ(history.undo.undo(), "Add 2");
    EXPECT_EQ(history.newest(), 4);
    history.add(5, 100);
    EXPECT_EQ(history.undo.undo(), "Add 5");
    EXPECT_EQ(history.newest(), 4);
}

} // namespace
} // namespace marlune
