#include "MarluneCore/BoardAutoArchive.h"

#include "MarluneCore/BoardStore.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Settings.h"

#include <vector>

namespace marlune {

std::int64_t BoardAutoArchive::archiveDays(const Settings& settings) {
    return settings.integer(BoardSettingKeys::autoArchiveDays, defaultDays);
}

std::string BoardAutoArchive::choiceLabel(std::int64_t days) {
    if (days == 0) {
        return "Never";
    }
    if (days == 1) {
        return "After a day";
    }
    return "After " + std::to_string(days) + " days";
}

std::int64_t BoardAutoArchive::run(ModelContext& context, std::int64_t days, Date now) {
    MainActor::assertIsolated();
    if (days < 1) {
        return 0;
    }
    const Date cutoff = now - std::chrono::seconds(days * 86'400);
    auto& db = context.db();
    // Section after section, so a clip in two sections is kept twice. The done clips old
    // enough are read first, from their index (Clip_done): the pass then costs what there is to
    // check (mostly clips archived earlier, which stay done) rather than one look per open item.
    std::vector<std::string> kept;
    {
        auto& stmt = db.cached(
            "SELECT cp.clip_id FROM Clip c CROSS JOIN ClipPinboard cp ON cp.clip_id = c.id "
            "JOIN Pinboard p ON p.id = cp.pinboard_id WHERE p.isBoard = 1 "
            "AND c.deletedAt IS NULL AND c.completedAt IS NOT NULL AND c.completedAt < ?1 "
            "ORDER BY p.sortIndex, p.createdAt, cp.clip_id");
        stmt.bind(1, toStorage(cutoff));
        while (stmt.step()) {
            kept.push_back(stmt.text(0));
        }
        stmt.reset();
    }
    if (kept.empty()) {
        return 0;
    }
    Database::Transaction tx(db);
    std::optional<std::string> archive;
    {
        auto find = db.prepare("SELECT id FROM Pinboard WHERE name = ?1 AND "
                               "coalesce(isBoard, 0) = 0 ORDER BY createdAt, id LIMIT 1");
        find.bind(1, BoardConstants::archivePinboardName);
        if (find.step()) {
            archive = find.text(0);
        }
    }
    if (!archive) {
        const Uuid id = Uuid::random();
        auto& next = db.cached(
            "SELECT coalesce(max(sortIndex) + 1, 0) FROM Pinboard WHERE coalesce(isBoard, 0) = 0");
        const std::int64_t sortIndex = next.step() ? next.int64(0) : 0;
        next.reset();
        db.prepare("INSERT INTO Pinboard (id, name, iconSymbol, sortIndex, createdAt, isBoard) "
                   "VALUES (?1, ?2, ?3, ?4, ?5, 0)")
            .bind(1, id.string())
            .bind(2, BoardConstants::archivePinboardName)
            .bind(3, BoardConstants::archivePinboardSymbol)
            .bind(4, sortIndex)
            .bind(5, toStorage(now))
            .run();
        archive = id.string();
    }
    auto leave = db.prepare("DELETE FROM ClipPinboard WHERE clip_id = ?1 AND "
                            "pinboard_id IN (SELECT id FROM Pinboard WHERE isBoard = 1)");
    auto file = db.prepare("INSERT OR IGNORE INTO ClipPinboard (clip_id, pinboard_id) "
                           "VALUES (?1, ?2)");
    for (const auto& id : kept) {
        leave.bind(1, id).run();
        file.bind(1, id).bind(2, *archive).run();
    }
    tx.commit();
    return static_cast<std::int64_t>(kept.size());
}

std::int64_t BoardAutoArchive::archiveFinishedItems(ModelContext& context,
                                                    const Settings& settings, Date now) {
    return archiveFinishedItems(context, settings, now, SyncState());
}

bool BoardAutoArchive::settled(const SyncState& sync, Date now) {
    if (!sync.enabled) {
        return true;
    }
    if (sync.importOrExportPending) {
        return false;
    }
    return !sync.lastEventAt || now - *sync.lastEventAt >= std::chrono::seconds(settleSeconds);
}

std::int64_t BoardAutoArchive::archiveFinishedItems(ModelContext& context,
                                                    const Settings& settings, Date now,
                                                    const SyncState& sync) {
    const std::int64_t days = archiveDays(settings);
    if (!settled(sync, now)) {
        return 0;
    }
    return run(context, days, now);
}

} // namespace marlune
