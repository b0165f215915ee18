#include "MarluneCore/BoardMembershipBackfill.h"

#include "MarluneCore/BoardStore.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Settings.h"

#include <vector>

namespace marlune {

std::int64_t BoardMembershipBackfill::run(ModelContext& context, Settings& settings) {
    MainActor::assertIsolated();
    if (settings.boolean(BoardSettingKeys::membershipBackfilled, false)) {
        return 0;
    }
    auto& db = context.db();
    std::vector<Pinboard> sections;
    {
        auto stmt = db.prepare("SELECT " + std::string(pinboardColumns) +
                               " FROM Pinboard WHERE isBoard = 1 ORDER BY sortIndex, createdAt, id");
        while (stmt.step()) {
            sections.push_back(readPinboardRow(stmt));
        }
    }
    if (sections.empty()) {
        settings.setBoolean(BoardSettingKeys::membershipBackfilled, true);
        return 0;
    }
    const Pinboard* target = nullptr;
    if (auto id = Uuid::parse(settings.string(BoardSettingKeys::activeSectionID, ""))) {
        for (const auto& s : sections) {
            if (s.id == *id) {
                target = &s;
            }
        }
    }
    if (!target) {
        const std::string inbox = boardFoldCase(BoardConstants::defaultSectionName);
        for (const auto& s : sections) {
            if (boardFoldCase(s.name) == inbox && (!target || s.createdAt < target->createdAt)) {
                target = &s;
            }
        }
    }
    if (!target) {
        target = &sections.front();
    }

    std::int64_t count = 0;
    {
        Database::Transaction tx(db);
        auto stmt = db.prepare(
            "INSERT INTO ClipPinboard (clip_id, pinboard_id) SELECT id, ?1 FROM Clip "
            "WHERE deletedAt IS NULL AND pinboardCount = 0 AND (boardOrder IS NOT NULL OR "
            "completedAt IS NOT NULL OR boardPinnedAt IS NOT NULL)");
        stmt.bind(1, target->id.string()).run();
        count = db.changes();
        tx.commit();
    }
    settings.setBoolean(BoardSettingKeys::membershipBackfilled, true);
    return count;
}

} // namespace marlune
